// The way to the followed path: inotify watches on every directory and symbolic link that
// its resolution passes, and the place where it ends, free of links. Whatever happens later
// on that way gives an event, upon which it is laid again.
#pragma once

#include <limits.h>

// Deeper paths lose only the notice of renamed directories beyond this number.
constexpr int route_watches = 64;

struct Route {
    int watches[route_watches];
    int count;
    int entries;         // the watch on `dir`, with events for its entries; -1 for none
    int above;           // that on its parent, for its deletion, while `name` is missing
    bool whole;          // all directories exist: dir/name is the place of the file
    char dir[PATH_MAX];  // the deepest directory; the root is ""
    char name[PATH_MAX]; // the next name in it, which may not exist
};

// Events that a file is watched for, with its own watch.
extern const unsigned route_file_events;

// An empty route, with no watches.
void route_init(Route *route);

// Lays the route anew: looks where the absolute path leads now, adds the watches that are
// missing and drops the others. A change after this call gives an event, also while it
// runs. Returns 0, also when the path ends at a missing name, or -1 with errno set, in
// which case the watches reach as far as the error: EAGAIN when the way never held still.
int route_lay(Route *route, int inotify, const char *path);

// Writes dir/name to `place`, of PATH_MAX bytes. Returns 0 or -1 with errno set.
int route_place(const Route *route, const char *name, char *place);
