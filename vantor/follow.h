// One followed file: what of it was delivered, and what is new. It is held open, so that it
// can be read whatever it is renamed to.
#pragma once

#include <stddef.h>
#include <sys/types.h>

// How much of a file's start is remembered to notice that it was rewritten.
constexpr size_t follow_head_max = 1024;

static_assert(sizeof(off_t) == 8 && sizeof(ino_t) == 8, "build with _FILE_OFFSET_BITS=64");

struct Follow {
    int file;                   // owned descriptor
    int watch;                  // watch descriptor; -1 once the kernel removed the watch
    dev_t device;               // identifies the file,
    ino_t inode;                // with this
    off_t delivered;            // text before this offset was delivered
    size_t head_size;           // bytes in `head`
    char head[follow_head_max]; // the start of the file, never more than was delivered
    bool unlinked;              // deleted when last checked
    bool settled;               // its position in the order of files is certain
};

// Opens and watches the file at a path free of links, from its start or its end. Returns 0
// or -1 with errno set: EISDIR or EINVAL for anything but a regular file, EAGAIN when the
// file was replaced meanwhile, which gives an event.
int follow_open(Follow *follow, int inotify, const char *path, bool at_end);

// Watches it again, whatever its name is now. Without /proc, or when no watch can be added,
// it stays unwatched.
void follow_watch_again(Follow *follow, int inotify);

// Closes it and removes its watch.
void follow_close(Follow *follow, int inotify);

// Copies new text to `text`, of `size` bytes, and returns its length, 0 when there is none.
// Whole lines only, except for one that does not fit; with `ended`, or once the file is
// deleted, the unfinished last one too. Sets `*more` when the file holds more.
size_t follow_read(Follow *follow, char *text, size_t size, bool ended, bool *more);

// Notes that the text last read was delivered.
void follow_delivered(Follow *follow, const char *text, size_t length);
