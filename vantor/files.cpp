// Follows the path through renames: resolves it, and does so again until nothing has
// changed meanwhile. Signals are blocked by the caller.
#include "files.h"

#include "search.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr int tries_max = 8;

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

// Follows the file of this name as the newest, unless it is followed already. Returns its
// index, or -1 with errno set.
static int
add_file(vantor_handle *handle, const char *name, bool at_end)
{
    char path[PATH_MAX];
    struct stat status;
    // Without this check a file could be followed twice.
    if (route_join(&handle->route, name, path) == -1 || lstat(path, &status) == -1)
        return -1;
    int index = find_file(handle, &status);
    if (index >= 0)
        return index;
    if (handle->count == files_max) {
        errno = EBUSY;
        return -1;
    }
    if (follow_open(handle->files + handle->count, handle->inotify, path, at_end) == -1)
        return -1;
    return handle->count++;
}

// A followed file that is back at the path is the newest again.
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

// Whether a file that could not be followed may be tried again with more resources.
static bool
is_lack_of_resources(int error)
{
    return error == EBUSY || error == EMFILE || error == ENFILE || error == ENOSPC ||
           error == ENOMEM;
}

// Whether resolving the path again may succeed, although no event will announce it. EAGAIN
// is what all functions here return when a file changed while it was examined.
static bool
is_transient(int error)
{
    return is_lack_of_resources(error) || error == EIO || error == EAGAIN;
}

// Follows, in order, the files that appeared at the path since the last call, the one that
// is there now last. Returns 0, or -1 with errno set when it has to be tried again.
static int
find_files(vantor_handle *handle)
{
    int entries = handle->route.entries;
    int result = route_update(&handle->route, handle->inotify, handle->path);
    if (handle->route.entries != entries)
        arrivals_clear(&handle->arrivals);
    if (result == -1)
        return is_transient(errno) ? -1 : 0;
    if (!handle->route.whole)
        return 0;
    if (handle->overflowed && search_arrivals(handle) == -1)
        return is_transient(errno) ? -1 : 0;
    handle->overflowed = false;
    for (size_t i = 0; i < handle->arrivals.count; i++) {
        Arrival *arrival = handle->arrivals.list + i;
        if (arrival->opened || (arrival->name == nullptr))
            continue;
        if (add_file(handle, arrival->name, false) == -1 && is_lack_of_resources(errno))
            return -1;
        arrival->opened = true;
    }
    int index = add_file(handle, handle->route.name, false);
    if (index >= 0)
        make_newest(handle, index);
    return index == -1 && is_transient(errno) ? -1 : 0;
}

// Before another try: when names changed meanwhile, the order of the unsettled files is
// uncertain, so they are dropped, to be found again. A deleted file could not be found
// again: it is kept, and so are those before it, which would be found after it.
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

// Notes that the kernel removed a watch, or with -1 that it may have removed any. It does
// so when a file that is held open here, and was opened by another path, loses its last
// name.
static void
unwatch(vantor_handle *handle, int watch)
{
    for (int i = 0; i < handle->count; i++)
        if (watch == -1 || handle->files[i].watch == watch)
            handle->files[i].watch = -1;
}

static void
handle_event(vantor_handle *handle, const inotify_event *event)
{
    if (event->mask & IN_Q_OVERFLOW) {
        unwatch(handle, -1);
        arrivals_clear(&handle->arrivals);
        handle->overflowed = handle->moved = true;
    } else if (event->mask & IN_IGNORED) {
        unwatch(handle, event->wd);
    } else if (event->len == 0) {
        if (event->mask & (IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT))
            handle->moved = true;
    } else if (event->wd == handle->route.entries) {
        bool awaited = strcmp(event->name, handle->route.name) == 0;
        // An entry that is to be a directory of the path is no log file.
        bool at_path = awaited && handle->route.whole;
        if (arrivals_event(&handle->arrivals, at_path, event) || awaited)
            handle->moved = true;
    } else if (event->mask & IN_DELETE && event->mask & IN_ISDIR) { // from route.parent
        handle->moved = true;
    }
}

// A short read has emptied the queue. IN_MODIFY needs no handling: all files are read after
// this anyway.
static int
read_events(vantor_handle *handle)
{
    for (;;) {
        ssize_t got = read(handle->inotify, handle->buffer, sizeof handle->buffer);
        if (got == -1)
            return errno == EAGAIN ? 0 : -1;
        for (ssize_t at = 0; at < got;) {
            const void *start = handle->buffer + at;
            const inotify_event *event = static_cast<const inotify_event *>(start);
            handle_event(handle, event);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
        if (got < static_cast<ssize_t>(sizeof handle->buffer / 2))
            return 0;
    }
}

int
files_read_events(vantor_handle *handle)
{
    struct timespec now; // by the clock of file timestamps
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    int result = read_events(handle);
    if (result == 0 && !handle->overflowed)
        handle->known = now;
    for (int i = 0; i < handle->count; i++)
        if (handle->files[i].watch == -1)
            follow_watch_again(handle->files + i, handle->inotify);
    return result;
}

// Waits until an operation in progress in the directory, whose result may be visible
// already, has queued its events: reading a directory takes the same lock. Without a free
// descriptor there is no waiting.
static void
await_events(const vantor_handle *handle)
{
    DIR *dir = opendir(handle->route.dir[0] ? handle->route.dir : "/");
    if (dir != nullptr) {
        static_cast<void>(readdir(dir));
        closedir(dir);
    }
}

// Repeats until no event arrived meanwhile: only then do the names agree with the events.
// True when it has to go on in the next call.
bool
files_settle(vantor_handle *handle)
{
    int result = 0;
    for (int tries = 0; handle->moved; tries++) {
        if (tries == tries_max)
            return true;
        forget_unsettled(handle);
        handle->moved = false;
        result = find_files(handle);
        int error = errno;
        await_events(handle);
        files_read_events(handle);
        errno = error;
    }
    for (int i = 0; i < handle->count; i++)
        handle->files[i].settled = true;
    arrivals_drop_opened(&handle->arrivals);
    handle->moved = result == -1; // again with the next event, or after the next wait
    return result == -1 && errno == EBUSY;
}

// Adds the watches and follows the file from its end. If the file is replaced meanwhile, it
// starts again.
int
files_start(vantor_handle *handle)
{
    clock_gettime(CLOCK_REALTIME, &handle->known); // not earlier than any timestamp
    for (int tries = 0; tries < tries_max; tries++) {
        struct stat status;
        if (stat(handle->path, &status) == -1)
            return -1;
        if (!S_ISREG(status.st_mode)) {
            errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
            return -1;
        }
        if (route_update(&handle->route, handle->inotify, handle->path) == -1) {
            if (errno == EAGAIN)
                break;
            return -1;
        }
        if (handle->route.whole && add_file(handle, handle->route.name, true) >= 0) {
            handle->files[0].settled = true;
            return 0;
        }
        if (handle->route.whole && errno != EAGAIN && errno != ENOENT)
            return -1;
    }
    errno = ENOENT;
    return -1;
}
