// Reads first and checks afterwards: a file that is still the same after its text was taken
// was the same while it was taken.
#include "follow.h"

#include "route.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr int looks_max = 8;

static bool
same_file(const struct stat *one, const struct stat *other)
{
    return one->st_dev == other->st_dev && one->st_ino == other->st_ino;
}

// Sets errno for what cannot be followed. A pipe or device is not even opened, which could
// have effects of its own.
static bool
is_plain(const struct stat *status)
{
    if (S_ISREG(status->st_mode))
        return true;
    errno = S_ISDIR(status->st_mode) ? EISDIR : EINVAL;
    return false;
}

// The watch goes by the place and might meet another file than the one opened, so the place
// is looked at once more. If that is followed itself it loses its watch, is told so, and is
// watched again.
static int
watch_file(Follow *follow, int inotify, const char *place, const struct stat *opened)
{
    struct stat now;
    follow->watch = inotify_add_watch(inotify, place, route_file_events | IN_DONT_FOLLOW);
    if (follow->watch == -1)
        return -1;
    if (lstat(place, &now) == 0 && same_file(&now, opened))
        return 0;
    inotify_rm_watch(inotify, follow->watch);
    errno = EAGAIN;
    return -1;
}

int
follow_open(Follow *follow, int inotify, const char *place, bool at_end)
{
    struct stat status;
    memset(follow, 0, sizeof *follow);
    if (lstat(place, &status) == -1 || !is_plain(&status))
        return -1;
    do {
        follow->file =
            open(place, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC);
    } while (follow->file == -1 && errno == EINTR);
    if (follow->file == -1)
        return -1;
    if (fstat(follow->file, &status) == -1 || !is_plain(&status) ||
        watch_file(follow, inotify, place, &status) == -1) {
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
        follow->told = status.st_size;
        follow->head_size = head > 0 ? static_cast<size_t>(head) : 0;
    }
    return 0;
}

void
follow_watch_again(Follow *follow, int inotify)
{
    char place[32];
    snprintf(place, sizeof place, "/proc/self/fd/%d", follow->file);
    follow->watch = inotify_add_watch(inotify, place, route_file_events);
}

void
follow_close(Follow *follow, int inotify)
{
    inotify_rm_watch(inotify, follow->watch);
    close(follow->file);
}

// Whether the file still starts as it did, as far as it reaches. One that cannot be read
// now counts as the same: to tell all of it again would be worse than to wait.
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

// Finds the new text of a truncated file: behind its end when it was only cut, all of it
// when it was written anew. True when that changed anything.
static bool
find_start(Follow *follow, off_t size)
{
    bool same = same_head(follow, size);
    if (same && size >= follow->told)
        return false;
    follow->told = same ? size : 0;
    if (static_cast<off_t>(follow->head_size) > follow->told)
        follow->head_size = static_cast<size_t>(follow->told);
    return true;
}

size_t
follow_read(Follow *follow, char *text, size_t size, bool ended, bool *more)
{
    ssize_t got = 0;
    *more = false;
    for (int looks = 0; looks < looks_max; looks++) {
        struct stat status;
        got = pread(follow->file, text, size, follow->told);
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
follow_told(Follow *follow, const char *text, size_t length)
{
    size_t room = follow_head_max - follow->head_size;
    // The head grows only without a gap: a file that was cut may have a short one.
    if (static_cast<off_t>(follow->head_size) == follow->told && room > 0) {
        size_t taken = length < room ? length : room;
        memcpy(follow->head + follow->head_size, text, taken);
        follow->head_size += taken;
    }
    follow->told += static_cast<off_t>(length);
}
