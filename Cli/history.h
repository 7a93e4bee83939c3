// Command history with modes: the ring of lines, and the ten callbacks by which the line
// editor sees those that the current mode shows. Knows nothing of Python, and is not thread
// safe: callers hold the locks. Allocation failures are not checked anywhere here.
#pragma once

#include "history_store.h"

// Makes the store empty with the default limit of 1024. The modes stay.
void hist_init_context();

// Unlinks an entry and frees it; a cursor on it moves to the newer neighbour, else to the
// older one.
void hist_delete(HistoryEntry *entry);

// Deletes the oldest entries, whatever their mode, until there are no more than the limit.
void hist_shrink();

// The callbacks of the line editor: called during a read with the interpreter lock away,
// and from the history methods with the lock held. No signal handler jumps out of them,
// because the editor calls those only while it waits for a key.
//
// Older is "next" and newer is "prev", as in the editor's own history. Results are 0 for
// success and -1 for no such line unless stated otherwise; `ev` is filled only on success,
// and its line stays owned by the store. The reference is always &hist_ctx.
extern "C" {

// The newest and the oldest visible line; when there is none, the cursor is on no line.
int hist_first(void *ref, HistEvent *ev);
int hist_last(void *ref, HistEvent *ev);

// The next visible line from the cursor; the cursor stays where it was when there is none.
int hist_next(void *ref, HistEvent *ev);
int hist_prev(void *ref, HistEvent *ev);

// The line under the cursor, visible or not.
int hist_curr(void *ref, HistEvent *ev);

// Puts the cursor on the line with this number, visible or not; `ev` is not touched.
int hist_set(void *ref, HistEvent *ev, int num);

// Frees every line; numbers start again at 1.
void hist_clear(void *ref, HistEvent *ev);

// Stores a copy of `str` as the newest line: 1, or 0 when the newest line equals it
// already.
int hist_enter(void *ref, HistEvent *ev, const char *str);

// Appends `str` to the line under the cursor: 0. Without a cursor the same as hist_enter.
int hist_add(void *ref, HistEvent *ev, const char *str);

// Removes the line with this number; the line in `ev` is a copy that the caller owns.
int hist_del(void *ref, HistEvent *ev, int num);
}
