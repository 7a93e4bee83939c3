// One followed file: what of it was told, and what is new. It is held open, so that its
// text stays within reach wherever it is moved.
#pragma once

#include <stddef.h>
#include <sys/types.h>

// How much of a file's start is remembered to notice that it was written anew.
constexpr size_t follow_head_max = 1024;

static_assert(sizeof(off_t) == 8 && sizeof(ino_t) == 8, "build with _FILE_OFFSET_BITS=64");

struct Follow {
    int file;                   // owned descriptor
    int watch;                  // inotify watch on the file; -1 once the kernel took it off
    dev_t device;               // together with the next: which file it is
    ino_t inode;                //
    off_t told;                 // text before this offset was told
    size_t head_size;           // bytes in `head`
    char head[follow_head_max]; // the start of the file, never more than was told
    bool unlinked;              // deleted when last looked at
    bool settled;               // its place in the order of files is certain
};

// Opens and watches the file at a place free of links, all of its text untold, or,
// `at_end`, none. Returns 0 or -1 with errno set: EISDIR or EINVAL for anything but a plain
// file, EAGAIN when another file came to the place meanwhile, which gives an event.
int follow_open(Follow *follow, int inotify, const char *place, bool at_end);

// Watches it anew, whatever its name is now. Without /proc, or without room for a watch, it
// stays unwatched.
void follow_watch_again(Follow *follow, int inotify);

// Lets go of it, without an event.
void follow_close(Follow *follow, int inotify);

// Copies new text to `text`, of `size` bytes, and returns its length, 0 when there is none.
// Whole lines only, but for one that does not fit; with `ended`, or once the file is
// deleted, the unfinished last one too. `*more` tells whether the file holds more.
size_t follow_read(Follow *follow, char *text, size_t size, bool ended, bool *more);

// Notes that the text last read was told.
void follow_told(Follow *follow, const char *text, size_t length);
