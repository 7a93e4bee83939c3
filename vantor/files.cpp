// Follows the path through renames: looks where it leads, and looks again until nothing has
// moved during the look. Signals are blocked by the caller.
#include "files.h"

#include "search.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr int settle_max = 8;

void
files_remove(vantor_handle *handle, int index)
{
    follow_close(handle->files + index, handle->inotify);
    handle->count--;
    memmove(handle->files + index, handle->files + index + 1,
            static_cast<size_t>(handle->count - index) * sizeof(Follow));
}

// The index of the followed file that is this one, or -1.
static int
find_file(const vantor_handle *handle, const struct stat *status)
{
    for (int i = 0; i < handle->count; i++) {
        const Follow *follow = handle->files + i;
        if (follow->device == status->st_dev && follow->inode == status->st_ino)
            return i;
    }
    return -1;
}

// Follows the file at a place as the newest, unless it is followed already. Returns its
// index, or -1 with errno set.
static int
take_file(vantor_handle *handle, const char *name, bool at_end)
{
    char place[PATH_MAX];
    struct stat status;
    // Without this look a file could be followed twice.
    if (route_place(&handle->route, name, place) == -1 || lstat(place, &status) == -1)
        return -1;
    int index = find_file(handle, &status);
    if (index >= 0)
        return index;
    if (handle->count == files_max) {
        errno = EBUSY;
        return -1;
    }
    if (follow_open(handle->files + handle->count, handle->inotify, place, at_end) == -1)
        return -1;
    return handle->count++;
}

// A file that was followed before and is back at the path is the newest again.
static void
make_newest(vantor_handle *handle, int index)
{
    int last = handle->count - 1;
    if (index == last)
        return;
    Follow follow = handle->files[index];
    memmove(handle->files + index, handle->files + index + 1,
            static_cast<size_t>(last - index) * sizeof(Follow));
    handle->files[last] = follow;
}

// Whether a file that could not be followed may be met again under better conditions.
static bool
is_shortage(int error)
{
    return error == EBUSY || error == EMFILE || error == ENFILE || error == ENOSPC ||
           error == ENOMEM;
}

// Whether another look at the path itself may find more, although nothing tells of it: also
// when what was looked at changed underfoot, which everybody here tells by EAGAIN.
static bool
may_pass(int error)
{
    return is_shortage(error) || error == EIO || error == EAGAIN;
}

// Follows what came to the path since the last look, in order, the file that is there now
// as the last. Returns 0, or -1 with errno set when it has to be tried again.
static int
find_files(vantor_handle *handle)
{
    int entries = handle->route.entries;
    int result = route_lay(&handle->route, handle->inotify, handle->path);
    if (handle->route.entries != entries)
        arrivals_clear(&handle->arrivals);
    if (result == -1)
        return may_pass(errno) ? -1 : 0;
    if (!handle->route.whole)
        return 0;
    if (handle->overflown && search_arrivals(handle) == -1)
        return may_pass(errno) ? -1 : 0;
    handle->overflown = false;
    for (size_t i = 0; i < handle->arrivals.count; i++) {
        Arrival *arrival = handle->arrivals.list + i;
        if (arrival->opened || (arrival->name == nullptr))
            continue;
        if (take_file(handle, arrival->name, false) == -1 && is_shortage(errno))
            return -1;
        arrival->opened = true;
    }
    int index = take_file(handle, handle->route.name, false);
    if (index >= 0)
        make_newest(handle, index);
    return index == -1 && may_pass(errno) ? -1 : 0;
}

// Before another look: which file is which is uncertain when names changed meanwhile. Those
// without a name are kept, they could not be found again, and so are those before them,
// which would be found behind them.
static void
forget_unsettled(vantor_handle *handle)
{
    bool keep = false;
    for (int i = handle->count - 1; i >= 0; i--) {
        Follow *follow = handle->files + i;
        struct stat status;
        if (follow->settled)
            continue;
        keep = keep || (fstat(follow->file, &status) == 0 && status.st_nlink == 0);
        if (keep)
            follow->settled = true;
        else
            files_remove(handle, i);
    }
    for (size_t i = 0; i < handle->arrivals.count; i++)
        handle->arrivals.list[i].opened = false;
}

// Notes that a watch was taken off, or any number of them, with -1. The kernel does that to
// a file that is held open when it loses its last name and was opened by another.
static void
unwatch(vantor_handle *handle, int watch)
{
    for (int i = 0; i < handle->count; i++)
        if (watch == -1 || handle->files[i].watch == watch)
            handle->files[i].watch = -1;
}

static void
take_event(vantor_handle *handle, const inotify_event *event)
{
    if (event->mask & IN_Q_OVERFLOW) {
        unwatch(handle, -1);
        arrivals_clear(&handle->arrivals);
        handle->overflown = handle->moved = true;
    } else if (event->mask & IN_IGNORED) {
        unwatch(handle, event->wd);
    } else if (event->len == 0) {
        if (event->mask & (IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT))
            handle->moved = true;
    } else if (event->wd == handle->route.entries) {
        bool awaited = strcmp(event->name, handle->route.name) == 0;
        // What comes where a directory is looked for is none of the path's files.
        bool at_path = awaited && handle->route.whole;
        if (arrivals_event(&handle->arrivals, at_path, event) || awaited)
            handle->moved = true;
    } else if (event->mask & IN_DELETE && event->mask & IN_ISDIR) { // above the last one
        handle->moved = true;
    }
}

// A read that leaves room has emptied the queue; writes to the files need no note, since
// every look at a file reads it.
static int
take_events(vantor_handle *handle)
{
    for (;;) {
        ssize_t got = read(handle->inotify, handle->buffer, sizeof handle->buffer);
        if (got == -1)
            return errno == EAGAIN ? 0 : -1;
        for (ssize_t at = 0; at < got;) {
            const void *start = handle->buffer + at;
            const inotify_event *event = static_cast<const inotify_event *>(start);
            take_event(handle, event);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
        if (got < static_cast<ssize_t>(sizeof handle->buffer / 2))
            return 0;
    }
}

int
files_take_events(vantor_handle *handle)
{
    struct timespec now; // by the clock that files are stamped with
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    int result = take_events(handle);
    if (result == 0 && !handle->overflown)
        handle->known = now;
    for (int i = 0; i < handle->count; i++)
        if (handle->files[i].watch == -1)
            follow_watch_again(handle->files + i, handle->inotify);
    return result;
}

// Waits until an operation under way in the directory, which may show in its names already,
// has queued its events: reading a directory takes the same lock. With no descriptor left
// there is no waiting.
static void
await_events(const vantor_handle *handle)
{
    DIR *dir = opendir(handle->route.dir[0] ? handle->route.dir : "/");
    if (dir != nullptr) {
        static_cast<void>(readdir(dir));
        closedir(dir);
    }
}

// Looks until nothing changed during the look: only then were all names what the events
// said. True when it has to go on in the next call.
bool
files_settle(vantor_handle *handle)
{
    int result = 0;
    for (int looks = 0; handle->moved; looks++) {
        if (looks == settle_max)
            return true;
        forget_unsettled(handle);
        handle->moved = false;
        result = find_files(handle);
        int error = errno;
        await_events(handle);
        files_take_events(handle);
        errno = error;
    }
    for (int i = 0; i < handle->count; i++)
        handle->files[i].settled = true;
    arrivals_drop_opened(&handle->arrivals);
    handle->moved = result == -1; // again with the next event, or behind the next wait
    return result == -1 && errno == EBUSY;
}

// Lays the watches and follows the file from its end. A file that is exchanged meanwhile is
// looked for again.
int
files_start(vantor_handle *handle)
{
    clock_gettime(CLOCK_REALTIME, &handle->known); // not behind any stamp
    for (int looks = 0; looks < settle_max; looks++) {
        struct stat status;
        if (stat(handle->path, &status) == -1)
            return -1;
        if (!S_ISREG(status.st_mode)) {
            errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
            return -1;
        }
        if (route_lay(&handle->route, handle->inotify, handle->path) == -1) {
            if (errno == EAGAIN)
                break;
            return -1;
        }
        if (handle->route.whole && take_file(handle, handle->route.name, true) >= 0) {
            handle->files[0].settled = true;
            return 0;
        }
        if (handle->route.whole && errno != EAGAIN && errno != ENOENT)
            return -1;
    }
    errno = ENOENT;
    return -1;
}
