// An index by which the history's cursor skips long runs of lines that the current mode
// does not show, without touching their entries. It never changes what is found, only how
// fast. Used by history.cpp alone; the tests check it against the store.
//
// Event numbers increase by one from line to line, so lines are found by number in two ring
// buffers: one holds a 16-bit hash of each line's mode, which is scanned sequentially, the
// other the newest entry of each block of numbers, from which a line is a few links away.
// The number of a deleted line keeps its slot and finds nothing.
//
// It is here for long histories: a key whose walk passes 100,000 lines on a fragmented heap
// takes 0.2 ms with it, and by the links alone 14 ms on an idle machine, 54 on a busy one;
// 10,000 lines 0.02 and 0.6 ms; at the default limit of 1,024 it saves nothing (the last
// columns of `ninja -C build/3.9 history_bench && build/3.9/history_bench`).
//
// As long as all lines have one mode there are no ring buffers: a walk that has met one
// hidden line will find none.
#pragma once

#include "history_store.h"

// How many numbers share an entry in `heads`; a power of two.
constexpr uint32_t hist_index_block = 16;

struct HistoryIndex {
    bool in_use;          // else walks follow the links
    uint32_t capacity;    // numbers that the rings hold, a power of two; 0 without rings
    uint16_t *tags;       // owned; the slot of a number is number % capacity
    HistoryEntry **heads; // owned array of borrowed entries, null where a block is empty
};

extern HistoryIndex hist_index;

// The hash of a mode. Two modes may have the same, so a line found by it is checked again.
uint16_t hist_index_tag(const HistoryMode *mode);

// Adds an entry that is about to be linked as the newest.
void hist_index_add(HistoryEntry *entry);

// Removes an entry that is still linked and counted.
void hist_index_remove(const HistoryEntry *entry);

// Frees memory when the store has become much smaller.
void hist_index_fit();

// Frees the rings and forgets the modes. Walks follow the links until the store has been
// empty once.
void hist_index_drop();

// The first line that the current mode shows, from `entry` on, itself included, towards
// older or towards newer lines; the sentinel when there is none. Only while the index is in
// use, and for an entry that the current mode does not show.
HistoryLink *hist_index_older(const HistoryEntry *entry);
HistoryLink *hist_index_newer(const HistoryEntry *entry);
