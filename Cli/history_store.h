// What the history holds: the table of command modes, and lines, each with the mode in
// which it was entered. Knows nothing of Python, and is not thread safe: callers hold the
// locks. Allocation failures are not checked here.
#pragma once

#include "../lineedit/lineedit.h"

#include <stdint.h>

// One command mode; never freed.
struct HistoryMode {
    char *key;           // owned
    HistoryMode *parent; // borrowed; null for a root
};

// The links of the ring of lines: the base of an entry, and all of the sentinel.
struct HistoryLink {
    HistoryLink *next; // the next older entry; the sentinel after the oldest
    HistoryLink *prev; // the next newer entry; the sentinel before the newest
};

// One stored line.
struct HistoryEntry : HistoryLink {
    HistoryMode *mode; // borrowed: the mode in which it was entered; null if there was none
    HistEvent ev;      // number, and the line, which is owned (strdup)
};

// The one history: what the line editor passes to its callbacks. It is static and outlives
// every editor instance, none of which may free it.
struct HistoryContext {
    HistoryMode **modes;       // owned array, ascending by key; null until the first mode
    int32_t mode_count;        // slots used
    int32_t mode_capacity;     // slots allocated: 0, 16, then doubled
    HistoryMode *current_mode; // borrowed; null: every line is visible
    HistoryLink list;          // the sentinel: next is the newest entry, prev the oldest
    HistoryLink *cursor;       // the entry the editor is positioned on, or &list for none
    int32_t last_event_num;    // the last number used
    uint32_t event_count;      // entries in the ring
    uint32_t history_limit;    // entries at most; 0 means history is off
};

extern HistoryContext hist_ctx;

// The mode with this key, borrowed, or null. A null or empty key is never found.
HistoryMode *find_history_mode(const char *key);

// Finds the mode with this key or creates it below the parent named; a null or empty parent
// key makes a root. Returns null, and changes nothing, when the parent is not known. For a
// mode that exists the parent key is ignored.
HistoryMode *new_history_mode(const char *key, const char *parent_key);

// True when `mode` shows this entry: there is no mode, or the entry has none, or the
// entry's is `mode` itself or an ancestor of it.
bool hist_visible(const HistoryEntry *entry, const HistoryMode *mode);
