// Command history that knows the command mode: the table of modes, the store of lines, and
// the ten callbacks through which the line editor sees those lines that the current mode
// shows. Knows nothing of Python, nor of threads: who calls it sees to that. Allocation
// results are not checked anywhere here.
#pragma once

#include "base.h"

#include <histedit.h>
#include <stdint.h>

// One command mode; never freed.
struct HistoryMode {
    char *key;           // owned
    HistoryMode *parent; // borrowed; null for a root
};

// The links of the ring of lines. An entry begins with a pair of them; the sentinel is
// nothing more than a pair.
struct HistoryLink {
    HistoryLink *next; // the next older entry; the sentinel after the oldest
    HistoryLink *prev; // the next newer entry; the sentinel before the newest
};

// One stored line.
struct HistoryEntry : HistoryLink {
    HistoryMode *mode; // borrowed: the mode in which it was entered; null if there was none
    HistEvent ev;      // number, and the line, which is owned (strdup)
};

// The one history: handed to the line editor as the reference of the callbacks below. It is
// static and outlives every editor instance, none of which may free it.
struct HistoryContext {
    HistoryMode **modes;       // owned array, ascending by key; null until the first mode
    int32_t mode_count;        // slots used
    int32_t mode_capacity;     // slots allocated: 0, 16, then doubled
    HistoryMode *current_mode; // borrowed; null: every line is visible
    HistoryLink list;          // the sentinel: next is the newest entry, prev the oldest
    HistoryLink *cursor;       // the entry the editor is positioned on, or &list for none
    int32_t last_event_num;    // the last number handed out
    uint32_t event_count;      // entries in the ring
    uint32_t history_limit;    // entries at most; 0 means history is off
};

extern HistoryContext hist_ctx;

// Makes the store empty with the default limit of 1024. The modes stay.
void hist_init_context();

// The mode with this key, borrowed, or null. A null or empty key is never found.
HistoryMode *find_history_mode(const char *key);

// Finds the mode with this key or creates it below the parent named; a null or empty parent
// key makes a root. Returns null, and changes nothing, when the parent is not known. For a
// mode that exists the parent key is not looked at.
HistoryMode *new_history_mode(const char *key, const char *parent_key);

// True when `mode` shows this entry: there is no mode, or the entry has none, or the
// entry's is `mode` itself or an ancestor of it.
bool hist_visible(const HistoryEntry *entry, const HistoryMode *mode);

// Takes an entry out of the ring and frees it; a cursor on it moves to the newer neighbour,
// else to the older one.
void hist_delete(HistoryEntry *entry);

// Drops the oldest entries, whatever their mode, until the limit is kept.
void hist_shrink();

// What the line editor calls: during a read with the interpreter lock away, and out of the
// history methods with the lock held. No signal jumps out of them, as the editor passes
// interrupts on only while it waits for a key.
//
// Older is "next" and newer is "prev", as in the editor's own history. Results are 0 for
// success and -1 for no such line unless stated otherwise; `ev` is filled only on success,
// and its line stays owned by the store. The reference is always &hist_ctx.
extern "C" {

// The newest and the oldest visible line; the cursor leaves the lines when there is none.
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
