// Reads first and checks afterwards: a file that is unchanged after its text was read was
// unchanged while it was read.
#include "follow.h"

#include "route.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr int tries_max = 8;

static bool
same_file(const struct stat *one, const struct stat *other)
{
    return one->st_dev == other->st_dev && one->st_ino == other->st_ino;
}

// Sets errno when it is no regular file. A pipe or device is not even opened: that could
// have side effects.
static bool
is_plain(const struct stat *status)
{
    if (S_ISREG(status->st_mode))
        return true;
    errno = S_ISDIR(status->st_mode) ? EISDIR : EINVAL;
    return false;
}

// inotify_add_watch takes a path, which may be another file by now than the one opened, so
// it is checked again. If that other file is followed, too, it loses its watch here, gets
// IN_IGNORED and is watched again.
static int
watch_file(Follow *follow, int inotify, const char *path, const struct stat *opened)
{
    struct stat now;
    follow->watch = inotify_add_watch(inotify, path, route_file_events | IN_DONT_FOLLOW);
    if (follow->watch == -1)
        return -1;
    if (lstat(path, &now) == 0 && same_file(&now, opened))
        return 0;
    inotify_rm_watch(inotify, follow->watch);
    errno = EAGAIN;
    return -1;
}

int
follow_open(Follow *follow, int inotify, const char *path, bool at_end)
{
    struct stat status;
    memset(follow, 0, sizeof *follow);
    if (lstat(path, &status) == -1 || !is_plain(&status))
        return -1;
    do {
        follow->file =
            open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC);
    } while (follow->file == -1 && errno == EINTR);
    if (follow->file == -1)
        return -1;
    if (fstat(follow->file, &status) == -1 || !is_plain(&status) ||
        watch_file(follow, inotify, path, &status) == -1) {
        int error = errno;
        close(follow->file);
        errno = error;
        return -1;
    }
    follow->device = status.st_dev;
    follow->inode = status.st_ino;
    if (at_end) {
        size_t length = follow_head_max;
        if (status.st_size < static_cast<off_t>(length))
            length = static_cast<size_t>(status.st_size);
        ssize_t head = pread(follow->file, follow->head, length, 0);
        follow->delivered = status.st_size;
        follow->head_size = head > 0 ? static_cast<size_t>(head) : 0;
    }
    return 0;
}

void
follow_watch_again(Follow *follow, int inotify)
{
    char path[32];
    snprintf(path, sizeof path, "/proc/self/fd/%d", follow->file);
    follow->watch = inotify_add_watch(inotify, path, route_file_events);
}

void
follow_close(Follow *follow, int inotify)
{
    inotify_rm_watch(inotify, follow->watch);
    close(follow->file);
}

// Whether the file still starts with the same bytes, up to its size. One that cannot be
// read now counts as the same: delivering all of it again would be worse than waiting.
static bool
same_head(const Follow *follow, off_t size)
{
    char head[follow_head_max];
    size_t length = follow->head_size;
    if (static_cast<off_t>(length) > size)
        length = static_cast<size_t>(size);
    if (length == 0)
        return true;
    ssize_t got = pread(follow->file, head, length, 0);
    if (got == -1)
        return true;
    return got == static_cast<ssize_t>(length) && memcmp(head, follow->head, length) == 0;
}

// Finds where the new text of a truncated file starts: at its end when it was only
// truncated, at 0 when it was rewritten. True when that changed anything.
static bool
find_start(Follow *follow, off_t size)
{
    bool same = same_head(follow, size);
    if (same && size >= follow->delivered)
        return false;
    follow->delivered = same ? size : 0;
    if (static_cast<off_t>(follow->head_size) > follow->delivered)
        follow->head_size = static_cast<size_t>(follow->delivered);
    return true;
}

size_t
follow_read(Follow *follow, char *text, size_t size, bool ended, bool *more)
{
    ssize_t got = 0;
    *more = false;
    for (int tries = 0; tries < tries_max; tries++) {
        struct stat status;
        got = pread(follow->file, text, size, follow->delivered);
        if (fstat(follow->file, &status) == -1)
            return 0;
        follow->unlinked = status.st_nlink == 0;
        if (!find_start(follow, status.st_size))
            break;
        got = 0;
    }
    if (got <= 0)
        return 0;
    size_t length = static_cast<size_t>(got);
    *more = length == size;
    if (*more || (!ended && !follow->unlinked)) {
        const void *newline = memrchr(text, '\n', length);
        if (newline != nullptr)
            return static_cast<size_t>(static_cast<const char *>(newline) - text) + 1;
        return *more ? length : 0;
    }
    return length;
}

void
follow_delivered(Follow *follow, const char *text, size_t length)
{
    size_t room = follow_head_max - follow->head_size;
    // The head must have no gap: after a truncation it may be shorter than the offset.
    if (static_cast<off_t>(follow->head_size) == follow->delivered && room > 0) {
        size_t taken = length < room ? length : room;
        memcpy(follow->head + follow->head_size, text, taken);
        follow->head_size += taken;
    }
    follow->delivered += static_cast<off_t>(length);
}
