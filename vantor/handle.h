// What a handle holds. All state of the library is here, but for the note which handle's
// callback is running.
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

// A file that was followed.
struct Gone {
    dev_t device;
    ino_t inode;
    struct timespec born;
};

struct vantor_handle {
    vantor_callback callback;
    void *context;       // borrowed
    char path[PATH_MAX]; // absolute
    // Owned descriptors.
    int inotify;
    int more; // readable from when it is waited on until the next look
    int text; // holds the news being told
    // The way to the file, and what came along it.
    Route route;
    Arrivals arrivals;
    Follow files[files_max]; // oldest first; the last is that at the path, if there is one
    int count;               // of files
    Gone gone[gone_max];     // the last that were let go, a ring
    unsigned gone_count;     // ever
    bool moved;              // the path may lead elsewhere than when last looked
    bool overflown;        // events were lost, and what they told is still to be looked for
    struct timespec known; // all events before this were taken in
    bool pending;          // there is more to do than events say
    bool waiting;          // the descriptor was asked for since the last look
    // The news.
    int telling;         // index of the file whose news the callback has, -1 for none
    size_t telling_size; // bytes of it
    size_t text_size;    // bytes in `text`
    alignas(inotify_event) char buffer[VANTOR_TEXT_MAX]; // events, then news
};
