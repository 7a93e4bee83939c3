// The four operations: events in, one piece of text out.
//
// Signals are blocked while the handle changes: a signal handler can only jump out of the
// callback, and the handle still knows then what was not delivered.
#pragma GCC visibility push(default)
#include "vantor.h"
#pragma GCC visibility pop

#include "files.h"
#include "search.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

// The handles whose callbacks run on this thread, nested; null for one that was closed
// there. An entry left by a jump out of a callback is only compared, never followed, and
// removed when its handle is processed again.
constexpr int running_max = 32;
static __thread vantor_handle *running[running_max];
static __thread int running_count;

// Returns its index in the stack.
static int
running_push(vantor_handle *handle)
{
    int index = 0;
    while (index < running_count && running[index] != handle)
        index++;
    if (index == running_max) // all of them left by jumps
        index = 0;
    running[index] = handle;
    running_count = index + 1;
    return index;
}

// False when the handle was closed meanwhile.
static bool
running_pop(int index)
{
    running_count = index;
    return running[index] != nullptr;
}

static void
running_closed(const vantor_handle *handle)
{
    for (vantor_handle *&one : running)
        if (one == handle)
            one = nullptr;
}

// ---- new text ----

// Reads the oldest undelivered text into the buffer; 0 when there is none. Closes replaced
// files that were delivered in full, except the last of them, which may have slow writers.
static size_t
read_text(vantor_handle *handle, bool *more)
{
    int index = 0;
    while (index < handle->count && handle->files[index].settled) {
        Follow *follow = handle->files + index;
        int newer = 0;
        while (index + newer + 1 < handle->count &&
               handle->files[index + newer + 1].settled)
            newer++;
        size_t size =
            follow_read(follow, handle->buffer, sizeof handle->buffer, newer > 0, more);
        if (size > 0) {
            handle->delivering = index;
            *more = *more || newer > 0;
            return size;
        }
        if (newer > 1 || (newer == 1 && follow->unlinked)) {
            search_remember(handle, follow);
            files_remove(handle, index);
        } else
            index++;
    }
    return 0;
}

// Copies the text to the memfd that the callback reads, which ends where the text does.
static int
write_text(vantor_handle *handle, size_t size)
{
    if (size < handle->text_size && ftruncate(handle->text, static_cast<off_t>(size)) == -1)
        return -1;
    for (size_t done = 0; done < size;) {
        ssize_t put = pwrite(handle->text, handle->buffer + done, size - done,
                             static_cast<off_t>(done));
        if (put <= 0)
            return -1;
        done += static_cast<size_t>(put);
    }
    handle->text_size = size;
    return lseek(handle->text, 0, SEEK_SET) == 0 ? 0 : -1;
}

static void
text_delivered(vantor_handle *handle)
{
    follow_delivered(handle->files + handle->delivering, handle->buffer,
                     handle->delivering_size);
    handle->delivering = -1;
}

// After a callback that was left by a jump: text that it began to read counts as delivered.
static void
end_left_callback(vantor_handle *handle)
{
    if (handle->delivering >= 0 && lseek(handle->text, 0, SEEK_CUR) > 0)
        text_delivered(handle);
    handle->delivering = -1;
}

// ---- operations ----

// The absolute form of the name, in `path` of PATH_MAX bytes.
static int
make_absolute(const char *filename, char *path)
{
    size_t length = 0;
    if (filename[0] != '/') {
        if (getcwd(path, PATH_MAX) == nullptr)
            return -1;
        length = strlen(path);
        if (length < PATH_MAX - 1)
            path[length++] = '/';
    }
    if (length + strlen(filename) >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    strcpy(path + length, filename);
    return 0;
}

static int
open_descriptors(vantor_handle *handle)
{
    handle->inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (handle->inotify == -1)
        return -1;
    handle->more = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (handle->more == -1)
        return -1;
    handle->text = memfd_create("vantor", MFD_CLOEXEC);
    return handle->text == -1 ? -1 : 0;
}

vantor_handle *
vantor_open(const char *filename, vantor_callback callback, void *context)
{
    if ((filename == nullptr) || (callback == nullptr)) {
        errno = EINVAL;
        return nullptr;
    }
    if (!filename[0]) {
        errno = ENOENT;
        return nullptr;
    }
    vantor_handle *handle = static_cast<vantor_handle *>(calloc(1, sizeof *handle));
    if (handle == nullptr)
        return nullptr;
    handle->callback = callback;
    handle->context = context;
    handle->delivering = -1;
    handle->inotify = handle->more = handle->text = -1;
    route_init(&handle->route);
    if (make_absolute(filename, handle->path) == -1 || open_descriptors(handle) == -1 ||
        files_start(handle) == -1) {
        int error = errno;
        vantor_close(handle);
        errno = error;
        return nullptr;
    }
    return handle;
}

void
vantor_close(vantor_handle *handle)
{
    if (handle == nullptr)
        return;
    running_closed(handle);
    for (int i = 0; i < handle->count; i++)
        close(handle->files[i].file);
    const int descriptors[] = {handle->inotify, handle->more, handle->text};
    for (int descriptor : descriptors)
        if (descriptor >= 0)
            close(descriptor);
    arrivals_clear(&handle->arrivals);
    free(handle);
}

int
vantor_inotify_fd(vantor_handle *handle)
{
    if (handle == nullptr)
        return -1;
    // If the path could not be resolved, it is tried again after the next wait, whatever
    // ended that: there may be no event. Not before that: it may fail for long.
    bool again = handle->moved && handle->waiting;
    handle->waiting = true;
    if (!handle->pending && !again)
        return handle->inotify;
    eventfd_write(handle->more, 1);
    return handle->more;
}

int
vantor_process_event(vantor_handle *handle)
{
    if (handle == nullptr) {
        errno = EINVAL;
        return -1;
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    end_left_callback(handle);
    handle->waiting = false;
    // Readable only while it is waited on: a reader may keep it in its descriptor set.
    eventfd_t asked;
    eventfd_read(handle->more, &asked);
    int result = files_read_events(handle);
    bool unsettled = files_settle(handle);
    bool more = false;
    size_t size = read_text(handle, &more);
    if (size > 0 && write_text(handle, size) == -1) {
        handle->delivering = -1; // no memory: again with the next event
        result = -1;
        size = 0;
        more = false;
    }
    handle->delivering_size = size;
    handle->pending = size > 0 || unsettled; // also if a jump leaves the callback
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (size == 0)
        return result;

    int index = running_push(handle);
    handle->callback(handle->text, handle->context, static_cast<int>(size));
    if (!running_pop(index))
        return result; // closed by the callback
    text_delivered(handle);
    handle->pending = more || unsettled;
    return result;
}
