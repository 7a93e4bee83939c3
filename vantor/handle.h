// What a handle holds. All state of the library is here, except which handles' callbacks
// are running.
#pragma once

#include "arrivals.h"
#include "follow.h"
#include "route.h"
#include "vantor.h"

#include <limits.h>
#include <sys/inotify.h>
#include <time.h>

constexpr int files_max = 16; // open at a time
constexpr int gone_max = 16;

// A file that is no longer followed.
struct Gone {
    dev_t device;
    ino_t inode;
    struct timespec birth;
};

struct vantor_handle {
    vantor_callback callback;
    void *context;       // borrowed
    char path[PATH_MAX]; // absolute
    // Owned descriptors.
    int inotify;
    int more; // eventfd: there is more to do; set by vantor_inotify_fd
    int text; // memfd with the text being delivered
    // The path, and the files that appeared there.
    Route route;
    Arrivals arrivals;
    Follow files[files_max]; // oldest first; the last is the one at the path, if any
    int count;               // of files
    Gone gone[gone_max];     // ring of those no longer followed
    unsigned gone_count;     // in total
    bool moved;              // the path may resolve to another file now
    bool overflowed;         // the event queue did, and the directory was not searched yet
    struct timespec known;   // all events up to this time were read
    bool pending;            // there is more to do, without an event
    bool waiting;            // the descriptor was asked for since the last processing
    // The new text.
    int delivering;         // index of the file whose text the callback has, -1 for none
    size_t delivering_size; // bytes of it
    size_t text_size;       // bytes in `text`
    alignas(inotify_event) char buffer[VANTOR_TEXT_MAX]; // events, then new text
};
