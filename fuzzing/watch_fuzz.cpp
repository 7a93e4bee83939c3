// Drives the log watch library with file operations from bytes that libFuzzer makes up. An
// input is one session: up to four watches, over a folder that is empty at its start. What
// they tell is compared with the model, piece by piece.
//
// The model does not know what is told of a directory or link that was exchanged together
// with other things, so all news is taken around such an operation. A session may leave
// that out: then only the rules are checked that always hold.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <setjmp.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "../vantor/vantor.h"
#include "input.h"
#include "watch_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static const char *const watched[] = {"d0/log",     "link",     "way/log", "d1/log",
                                      "d0/sub/log", "d0/log.1", "way",     "d0"};
constexpr int watches_max = 4;
constexpr size_t written_max = 1 << 20;
constexpr int idle_max = 20; // calls without news until all was told

struct Watch {
    vantor_handle *handle;
    Promise *promise;
    std::string path;
    std::string said; // since the last probe
    int text;         // the library's descriptor, the same in every call
    bool processing;
    bool called;
    News news;    // what the model expects
    unsigned way; // how the callback takes it
    sigjmp_buf landing;
};

static Watch watches[watches_max];

// ---- news ----

// Ways of the callback: to be left by a jump with the text unread or read in part, or to
// close its handle. Otherwise it reads all.
enum { leave_unread = 1, leave_read = 2, close_handle = 3 };

static void
take_news(Watch *watch, const char *text, size_t size)
{
    watch->said.append(text, size);
    const News &news = watch->news;
    if (model == nullptr)
        return;
    std::string_view told(text, size);
    if (news.shorter ? news.text.substr(0, size) != told : news.text != told)
        broken("the text told is the one expected", watch->path);
    model->told(watch->promise, news.index, told);
}

static void
callback(int first, void *context, int second)
{
    static char text[VANTOR_TEXT_MAX + 1];
    Watch *watch = static_cast<Watch *>(context);
    if (!watch->processing || watch->called)
        broken("called once, by vantor_process_event", watch->path);
    watch->called = true;
    if (second <= 0 || second > VANTOR_TEXT_MAX)
        broken("the length of a piece", watch->path);
    if (watch->text >= 0 && watch->text != first)
        broken("the same descriptor in every call", watch->path);
    watch->text = first;
    TELL("  told %d bytes, way %u\n", second, watch->way);
    if (watch->way == leave_unread)
        siglongjmp(watch->landing, 1);
    ssize_t got = read(first, text, watch->way == leave_read ? 1 : sizeof text);
    if (got != (watch->way == leave_read ? 1 : second))
        broken("the descriptor holds the piece", watch->path);
    if (watch->way == leave_read && pread(first, text, sizeof text, 0) != second)
        broken("the descriptor holds the piece", watch->path);
    take_news(watch, text, static_cast<size_t>(second));
    if (watch->way == leave_read)
        siglongjmp(watch->landing, 1);
    if (watch->way == close_handle) {
        vantor_close(watch->handle);
        watch->handle = nullptr;
    }
}

static bool
is_readable(const Watch *watch)
{
    int fd = vantor_inotify_fd(watch->handle);
    if (fd < 0)
        broken("there is a descriptor to wait on", watch->path);
    pollfd wait = {fd, POLLIN, 0};
    return poll(&wait, 1, 0) == 1;
}

static void
process(Watch *watch, unsigned way)
{
    watch->way = way;
    watch->called = false;
    watch->processing = true;
    watch->news = {0, {}, false};
    if (model != nullptr) {
        model->look(watch->promise);
        watch->news = model->next(watch->promise);
    }
    if (sigsetjmp(watch->landing, 0) == 0 && vantor_process_event(watch->handle) != 0)
        broken("vantor_process_event succeeds", watch->path);
    watch->processing = false;
    if (model != nullptr && !watch->called && !watch->news.text.empty() &&
        !watch->news.shorter)
        broken("what was written is told", watch->path);
}

// Takes all news.
static void
drain(Watch *watch)
{
    int idle = 0;
    while (watch->handle != nullptr && is_readable(watch)) {
        process(watch, 0);
        idle = watch->called ? 0 : idle + 1;
        if (idle > idle_max)
            broken("readable only with news", watch->path);
    }
    if (watch->handle == nullptr)
        return;
    if (model != nullptr && !model->next(watch->promise).text.empty())
        broken("readable while there is news", watch->path);
    process(watch, 0);
    if (watch->called)
        broken("no news while not readable", watch->path);
}

static void
drain_watches()
{
    for (Watch &watch : watches)
        drain(&watch);
}

// ---- watches ----

static void
open_watch(Watch *watch, const char *path)
{
    if (watch->handle != nullptr)
        return;
    struct stat status;
    int expected = stat(real(path).c_str(), &status) != 0 ? errno
                   : S_ISDIR(status.st_mode)              ? EISDIR
                                                          : 0;
    watch->path = path;
    watch->said.clear();
    watch->text = -1;
    watch->handle = vantor_open(real(path).c_str(), callback, watch);
    int error = watch->handle == nullptr ? errno : 0;
    TELL("  %s\n", strerror(error));
    if (error == EMFILE) // another process has too many watches
        return;
    if (error != expected)
        broken("a file, and nothing else, is opened", watch->path);
    if (error == 0 && model != nullptr)
        watch->promise = model->follow(path);
}

static void
step()
{
    unsigned kind = take() % 20;
    Watch *watch = watches + take() % watches_max;
    std::string path = any_place();
    TELL("step %u, watch %d, %s\n", kind, static_cast<int>(watch - watches), path.c_str());
    switch (kind) {
    case 0:
        open_watch(watch, choose(watched));
        break;
    case 1:
        vantor_close(watch->handle);
        watch->handle = nullptr;
        break;
    case 2:
    case 3:
        if (watch->handle != nullptr)
            process(watch, 0);
        break;
    case 4:
        if (watch->handle == nullptr)
            break;
        if (!is_way(watch->path))
            append(watch->path, any_text());
        if (watch->handle != nullptr)
            process(watch, take() % 4);
        break;
    case 5:
        drain(watch);
        break;
    default:
        file_step(kind, path);
        break;
    }
    // More files than it has open at a time: one that goes meanwhile may be lost.
    if (watch->handle != nullptr && model != nullptr && watch->news.shorter)
        drain(watch);
}

// ---- the session ----

// Every watch whose path leads to a file sees what is appended there, at last.
static void
probe(Watch *watch)
{
    struct stat status;
    drain(watch);
    if (watch->handle == nullptr || stat(real(watch->path).c_str(), &status) != 0 ||
        !S_ISREG(status.st_mode))
        return;
    std::string line = "probe " + std::to_string(counter++) + "\n";
    watch->said.clear();
    append(watch->path, line);
    drain(watch);
    std::string &said = watch->said;
    if (said.size() < line.size() ||
        said.compare(said.size() - line.size(), line.size(), line) != 0)
        broken("a line at the path is told", watch->path);
}

static uint64_t
open_descriptors()
{
    uint64_t set = 0;
    for (int fd = 0; fd < 64; fd++)
        set |= static_cast<uint64_t>(fcntl(fd, F_GETFD) != -1) << fd;
    return set;
}

int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    make_root();
    input = data;
    input_left = size;
    Model known;
    model = &known;
    uint64_t before = open_descriptors();
    unsigned flags = take();
    around = (flags & 3) != 3;
    drain_all = drain_watches;
    begin_files(flags & 4, flags & 8);
    open_watch(watches, choose(watched));
    while (input_left > 0 && written < written_max)
        step();
    for (Watch &watch : watches)
        probe(&watch);
    for (Watch &watch : watches) {
        vantor_close(watch.handle);
        watch.handle = nullptr;
    }
    close_files();
    if (open_descriptors() != before)
        broken("every descriptor is closed", "");
    model = nullptr;
    clear_root();
    return 0;
}
