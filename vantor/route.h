// The resolution of the followed path: inotify watches on every directory and symbolic link
// that it passes, and the resolved path, free of links. Any later change of one of them
// gives an event, upon which the path is resolved again.
#pragma once

#include <limits.h>

// In deeper paths, renamed directories beyond this number go unnoticed.
constexpr int route_watches = 64;

struct Route {
    int watches[route_watches]; // watch descriptors
    int count;
    int entries;         // watch descriptor of `dir`, with events for its entries; or -1
    int parent;          // of its parent, for its deletion, while `name` is missing; or -1
    bool whole;          // all directories exist: dir/name is the path of the file
    char dir[PATH_MAX];  // the last directory that exists; the root is ""
    char name[PATH_MAX]; // the next component, which may not exist
};

// The event mask of the watch on a followed file.
extern const unsigned route_file_events;

// An empty route, with no watches.
void route_init(Route *route);

// Resolves the absolute path again, adds the watches that are missing and removes the
// others. Any change from the start of this call on gives an event. Returns 0, also when a
// component is missing, or -1 with errno set, with watches up to the component that failed:
// EAGAIN when the path changed during every walk.
int route_update(Route *route, int inotify, const char *path);

// Writes dir/name to `path`, of PATH_MAX bytes. Returns 0 or -1 with errno set.
int route_join(const Route *route, const char *name, char *path);
