// Files that came to the followed path and left it again by a rename before anybody looked:
// their order and their names of now, from the events of the directory. So several
// rotations between two looks lose nothing.
#pragma once

#include <stddef.h>
#include <stdint.h>

struct inotify_event;

struct Arrival {
    char *name;      // owned; null while its new name is not known yet
    uint32_t cookie; // of the rename that took the old name away, else 0
    bool opened;     // it is among the followed files
};

struct Arrivals {
    Arrival *list; // owned, oldest first
    size_t count;
    size_t room;
};

// Adds a file as the newest, under its name of now.
void arrivals_add(Arrivals *arrivals, const char *name);

// Takes in one event of an entry of the directory, which is that of the path or another.
// True when it concerns one of the files kept here.
bool arrivals_event(Arrivals *arrivals, bool at_path, const inotify_event *event);

// Drops the files that were opened or have left the directory, or all.
void arrivals_drop_opened(Arrivals *arrivals);
void arrivals_clear(Arrivals *arrivals);
