// Files that appeared at the followed path and were renamed away before their events were
// processed: their order and their current names, from the events of the directory. So
// several rotations between two calls lose nothing.
#pragma once

#include <stddef.h>
#include <stdint.h>

struct inotify_event;

struct Arrival {
    char *name;      // owned; null between the two events of a rename
    uint32_t cookie; // of that rename, else 0
    bool opened;     // it is among the followed files
};

struct Arrivals {
    Arrival *list; // owned, oldest first
    size_t count;
    size_t capacity;
};

// Adds a file as the newest, under its current name.
void arrivals_add(Arrivals *arrivals, const char *name);

// Processes one event of an entry of the directory; `at_path` when the entry is the path's.
// True when it concerns one of the files kept here.
bool arrivals_event(Arrivals *arrivals, bool at_path, const inotify_event *event);

// Drops the files that were opened or have left the directory, or all.
void arrivals_drop_opened(Arrivals *arrivals);
void arrivals_clear(Arrivals *arrivals);
