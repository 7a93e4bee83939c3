// A side table that lets the history's cursor pass long runs of lines that the current mode
// does not show without touching their entries. It never changes what is found, only how
// soon. Used by history.cpp alone; the tests check it against the store.
//
// Event numbers rise by one from line to line, so lines are found by number in two rings:
// one holds a short hash of each line's mode, which is scanned at memory speed, the other
// the newest entry of each block of numbers, from which a line is a few links away. The
// number of a deleted line keeps its slot and finds nothing.
//
// It is here for long histories: a key whose walk passes 100,000 lines on a scattered heap
// takes 0.2 ms with it and by the links alone 14 ms on a quiet machine, 54 on a busy one;
// 10,000 lines 0.02 and 0.6 ms; at the default limit of 1,024 nothing is won (the last
// columns of `ninja -C build/3.9 history_bench && build/3.9/history_bench`).
//
// As long as all lines are of one mode there are no rings and no memory is spent on them: a
// walk that has met one hidden line is at its end.
#pragma once

#include "history_store.h"

// How many numbers share an entry in `heads`; a power of two.
constexpr uint32_t hist_index_block = 16;

struct HistoryIndex {
    bool in_use;          // else walks do without it
    uint32_t capacity;    // numbers that the rings hold, a power of two; 0 without rings
    uint16_t *tags;       // owned; slot of a number: its remainder by the capacity
    HistoryEntry **heads; // owned array of borrowed entries, null where a block is empty
};

extern HistoryIndex hist_index;

// The hash of a mode. Two modes may share one, so a line found by it is looked at again.
uint16_t hist_index_tag(const HistoryMode *mode);

// Takes an entry in, which is about to be linked as the newest.
void hist_index_add(HistoryEntry *entry);

// Lets go of an entry, which is still linked and counted.
void hist_index_remove(const HistoryEntry *entry);

// Gives memory back when the store has become much smaller.
void hist_index_fit();

// Frees the rings and forgets what it knew of modes. Walks do without it until the store
// has been empty once.
void hist_index_drop();

// The first line that the current mode shows, from `entry` on, itself included, towards
// older or towards newer lines; the sentinel when there is none. Only while the table is in
// use, and for an entry that the current mode does not show.
HistoryLink *hist_index_older(const HistoryEntry *entry);
HistoryLink *hist_index_newer(const HistoryEntry *entry);
