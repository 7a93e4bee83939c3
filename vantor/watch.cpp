// The four operations: events in, one piece of news out.
//
// Signals are blocked while the handle changes, so that a jump out of a handler can only
// leave from the callback, and what was not told by then stays noted.
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

// The handles whose callbacks run on this thread, one within the other; null for one that
// was closed there. What a jump out of a callback leaves behind is only compared, and
// dropped when its handle is processed again.
constexpr int running_max = 32;
static __thread vantor_handle *running[running_max];
static __thread int running_count;

// Returns its place.
static int
running_push(vantor_handle *handle)
{
    int place = 0;
    while (place < running_count && running[place] != handle)
        place++;
    if (place == running_max) // so many at a time have been left
        place = 0;
    running[place] = handle;
    running_count = place + 1;
    return place;
}

// False when the handle was closed meanwhile.
static bool
running_pop(int place)
{
    running_count = place;
    return running[place] != nullptr;
}

static void
running_closed(const vantor_handle *handle)
{
    for (vantor_handle *&one : running)
        if (one == handle)
            one = nullptr;
}

// ---- news ----

// Reads the oldest untold text into the buffer; 0 when there is none. Lets go of replaced
// files that are told, except the last of them, which may have slow writers.
static size_t
find_news(vantor_handle *handle, bool *more)
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
            handle->telling = index;
            *more = *more || newer > 0;
            return size;
        }
        if (newer > 1 || (newer == 1 && follow->unlinked)) {
            search_gone(handle, follow);
            files_remove(handle, index);
        } else
            index++;
    }
    return 0;
}

// Puts the news where the callback reads it, and end of file behind it.
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
news_told(vantor_handle *handle)
{
    follow_told(handle->files + handle->telling, handle->buffer, handle->telling_size);
    handle->telling = -1;
}

// After a callback that was left by a jump: what it began to read was told.
static void
end_left_callback(vantor_handle *handle)
{
    if (handle->telling >= 0 && lseek(handle->text, 0, SEEK_CUR) > 0)
        news_told(handle);
    handle->telling = -1;
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
    handle->telling = -1;
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
    // A look that failed is taken up again behind the next wait, whatever ended that: there
    // may be no event for it. Not before: it may fail for long.
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
    // Not readable any longer than it is waited on: a reader may keep it in its set.
    eventfd_t asked;
    eventfd_read(handle->more, &asked);
    int result = files_take_events(handle);
    bool unsettled = files_settle(handle);
    bool more = false;
    size_t size = find_news(handle, &more);
    if (size > 0 && write_text(handle, size) == -1) {
        handle->telling = -1; // no memory for it: again with the next event
        result = -1;
        size = 0;
        more = false;
    }
    handle->telling_size = size;
    handle->pending = size > 0 || unsettled; // also what is cut short by a jump
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (size == 0)
        return result;

    int place = running_push(handle);
    handle->callback(handle->text, handle->context, static_cast<int>(size));
    if (!running_pop(place))
        return result; // closed by the callback
    news_told(handle);
    handle->pending = more || unsettled;
    return result;
}
