// Drives the log watch library with file operations from bytes that libFuzzer makes up. An
// input is one session: up to four watches, over a folder that is empty at its start. What
// they tell is compared with the model, piece by piece.
//
// The model does not know what is told of a directory or link that was exchanged together
// with other things, so all news is taken around such an operation. A session may leave
// that out: then only the rules are checked that always hold.
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
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
#include "watch_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static const char *const places[] = {
    "d0/log", "d0/log.1", "d0/log.2", "d0/log.3",   "d1/log", "d1/log.1", "link", "way/log",
    "d0",     "d1",       "way",      "d0/sub/log", "d0/sub", "d0/a",     "d0/b", "d1/a",
};
static const char *const watched[] = {"d0/log",     "link",     "way/log", "d1/log",
                                      "d0/sub/log", "d0/log.1", "way",     "d0"};
static const size_t lengths[] = {0,
                                 1,
                                 1,
                                 10,
                                 80,
                                 100,
                                 1023,
                                 1024,
                                 1025,
                                 4096,
                                 VANTOR_TEXT_MAX - 1,
                                 VANTOR_TEXT_MAX,
                                 VANTOR_TEXT_MAX + 1,
                                 70000};

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

static std::string root;
static Model *model; // null once the session left what it knows
static Watch watches[watches_max];
static int writers[2]; // descriptors that stay open
static Node *written_to[2];
static size_t written;
static unsigned counter; // makes every write another one
static bool around;      // all news is taken around operations on directories and links
static const bool printed = getenv("WATCH_FUZZ_PRINT") != nullptr;

#define TELL(...)                                                                          \
    do {                                                                                   \
        if (printed)                                                                       \
            fprintf(stdout, __VA_ARGS__);                                                  \
    } while (0)

[[noreturn]] static void
broken(const char *what, const Watch *watch)
{
    fprintf(stderr, "does not hold: %s (%s)\n", what, watch ? watch->path.c_str() : "");
    abort();
}

static std::string
real(const std::string &path)
{
    return root + "/" + path;
}

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
        broken("the text told is the one expected", watch);
    model->told(watch->promise, news.index, told);
}

static void
callback(int first, void *context, int second)
{
    static char text[VANTOR_TEXT_MAX + 1];
    Watch *watch = static_cast<Watch *>(context);
    if (!watch->processing || watch->called)
        broken("called once, by vantor_process_event", watch);
    watch->called = true;
    if (second <= 0 || second > VANTOR_TEXT_MAX)
        broken("the length of a piece", watch);
    if (watch->text >= 0 && watch->text != first)
        broken("the same descriptor in every call", watch);
    watch->text = first;
    TELL("  told %d bytes, way %u\n", second, watch->way);
    if (watch->way == leave_unread)
        siglongjmp(watch->landing, 1);
    ssize_t got = read(first, text, watch->way == leave_read ? 1 : sizeof text);
    if (got != (watch->way == leave_read ? 1 : second))
        broken("the descriptor holds the piece", watch);
    if (watch->way == leave_read && pread(first, text, sizeof text, 0) != second)
        broken("the descriptor holds the piece", watch);
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
        broken("there is a descriptor to wait on", watch);
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
        broken("vantor_process_event succeeds", watch);
    watch->processing = false;
    if (model != nullptr && !watch->called && !watch->news.text.empty() &&
        !watch->news.shorter)
        broken("what was written is told", watch);
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
            broken("readable only with news", watch);
    }
    if (watch->handle == nullptr)
        return;
    if (model != nullptr && !model->next(watch->promise).text.empty())
        broken("readable while there is news", watch);
    process(watch, 0);
    if (watch->called)
        broken("no news while not readable", watch);
}

static void
drain_all()
{
    for (Watch &watch : watches)
        drain(&watch);
}

// ---- file operations ----

// Directories, links, and files in their place.
static bool
is_way(const std::string &path)
{
    struct stat status;
    if (path.find('/') == std::string::npos)
        return true;
    return lstat(real(path).c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

// Runs an operation, and repeats it in the model when the kernel did it.
template <typename Do, typename Repeat>
static void
change(bool of_way, Do operation, Repeat repeat)
{
    if (of_way && around)
        drain_all();
    else if (of_way)
        model = nullptr;
    bool done = operation();
    TELL("  %s\n", done ? "done" : strerror(errno));
    if (done && model != nullptr)
        repeat();
    if (of_way && around)
        drain_all();
}

static std::string
any_text()
{
    unsigned which = take();
    size_t length = lengths[(which & 15) % (sizeof lengths / sizeof *lengths)];
    std::string text = which & 16 ? "" : std::to_string(counter++);
    text.resize(std::max(length, text.size()), which & 32 ? '\0' : 'x');
    if (which & 64)
        for (size_t at = 50; at < text.size(); at += 50)
            text[at] = '\n';
    if (!(which & 128))
        text += '\n';
    return text;
}

static void
write_all(int fd, const std::string &text)
{
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        broken("room to write", nullptr);
    written += text.size();
}

static void
append(const std::string &path, const std::string &text)
{
    int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    auto operation = [&] {
        int fd = open(real(path).c_str(), flags, 0644);
        if (fd < 0)
            return false;
        write_all(fd, text);
        close(fd);
        return true;
    };
    auto repeat = [&] {
        Node *node = model->find(path, true).node;
        if (node == nullptr)
            node = model->put(path, Kind::file, "");
        node->text += text;
    };
    // A file that comes where a directory is looked for changes the way.
    struct stat status;
    bool fresh = stat(real(path).c_str(), &status) != 0;
    change(fresh && is_way(path), operation, repeat);
}

static void
rename_path(const std::string &from, const std::string &to)
{
    change(
        is_way(from) || is_way(to),
        [&] { return rename(real(from).c_str(), real(to).c_str()) == 0; },
        [&] { model->move(from, to); });
}

static void
remove_path(const std::string &path, bool with_all)
{
    std::error_code error;
    change(
        is_way(path),
        [&] {
            if (with_all)
                return std::filesystem::remove_all(real(path), error) > 0 && !error;
            return remove(real(path).c_str()) == 0;
        },
        [&] { model->remove(path); });
}

static void
link_to(const std::string &target, const std::string &path)
{
    change(
        true, [&] { return symlink(real(target).c_str(), real(path).c_str()) == 0; },
        [&] { model->put(path, Kind::link, target); });
}

static void
cut(const std::string &path, size_t size, bool to_size)
{
    struct stat status;
    if (stat(real(path).c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return;
    size_t now = static_cast<size_t>(status.st_size);
    size = to_size ? size % (now + 1) : now - size % (now + 1);
    change(
        false, [&] { return truncate(real(path).c_str(), static_cast<off_t>(size)) == 0; },
        [&] { model->find(path, true).node->text.resize(size); });
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
        broken("a file, and nothing else, is opened", watch);
    if (error == 0 && model != nullptr)
        watch->promise = model->follow(path);
}

static void
writer(unsigned which, const std::string &path)
{
    int *fd = writers + (which & 1);
    if (*fd >= 0)
        close(*fd);
    struct stat status;
    bool exists = lstat(real(path).c_str(), &status) == 0 && S_ISREG(status.st_mode);
    *fd = exists ? open(real(path).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC) : -1;
    if (*fd >= 0 && model != nullptr)
        written_to[which & 1] = model->find(path, true).node;
}

static void
late_write(unsigned which, const std::string &text)
{
    if (writers[which & 1] < 0)
        return;
    write_all(writers[which & 1], text);
    if (model != nullptr)
        written_to[which & 1]->text += text;
}

static void
step()
{
    unsigned kind = take() % 20;
    Watch *watch = watches + take() % watches_max;
    std::string path = choose(places);
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
    case 6:
        cut(path, choose(lengths), take() & 1);
        break;
    case 7:
    case 8: {
        std::string to = choose(places);
        TELL("  to %s\n", to.c_str());
        rename_path(path, to);
        break;
    }
    case 9: { // a rotation
        append("d0/log", any_text());
        rename_path("d0/log", path);
        append("d0/log", any_text());
        break;
    }
    case 10:
        remove_path(path, take() & 1);
        break;
    case 11:
        change(
            true, [&] { return mkdir(real(path).c_str(), 0755) == 0; },
            [&] { model->put(path, Kind::directory, ""); });
        break;
    case 12: {
        std::string target = choose(places);
        TELL("  to %s\n", target.c_str());
        link_to(target, path);
        break;
    }
    case 13: { // a link is put on another target, in one go
        link_to(choose(places), "fresh");
        rename_path("fresh", path);
        break;
    }
    case 14:
        writer(take(), path);
        break;
    case 15:
        late_write(take(), any_text());
        break;
    case 16: // a second name: the model has none
        model = nullptr;
        if (link(real(path).c_str(), real(choose(places)).c_str()) != 0)
            TELL("  %s\n", strerror(errno));
        break;
    default:
        append(path, any_text());
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
        broken("a line at the path is told", watch);
}

static uint64_t
open_descriptors()
{
    uint64_t set = 0;
    for (int fd = 0; fd < 64; fd++)
        set |= static_cast<uint64_t>(fcntl(fd, F_GETFD) != -1) << fd;
    return set;
}

static void
make_root()
{
    if (!root.empty())
        return;
    const char *folder = getenv("TMPDIR");
    root = std::string(folder ? folder : "/dev/shm") + "/watch_fuzz.XXXXXX";
    if (mkdtemp(&root[0]) == nullptr)
        broken("there is a folder to work in", nullptr);
    atexit([] { std::filesystem::remove_all(root); });
    setvbuf(stdout, nullptr, _IONBF, 0); // a finding ends the process
}

int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    make_root();
    input = data;
    input_left = size;
    counter = 0;
    written = 0;
    Model known;
    model = &known;
    writers[0] = writers[1] = -1;
    uint64_t before = open_descriptors();
    unsigned flags = take();
    around = (flags & 3) != 3;
    for (const char *dir : {"d0", "d1"}) {
        mkdir(real(dir).c_str(), 0755);
        known.put(dir, Kind::directory, "");
    }
    append("d0/log", "old\n");
    if (flags & 4)
        link_to("d0", "way");
    if (flags & 8)
        link_to("d0/log", "link");
    open_watch(watches, choose(watched));
    while (input_left > 0 && written < written_max)
        step();
    for (Watch &watch : watches)
        probe(&watch);
    for (Watch &watch : watches) {
        vantor_close(watch.handle);
        watch.handle = nullptr;
    }
    for (int fd : writers)
        if (fd >= 0)
            close(fd);
    if (open_descriptors() != before)
        broken("every descriptor is closed", nullptr);
    model = nullptr;
    for (const auto &entry : std::filesystem::directory_iterator(root))
        std::filesystem::remove_all(entry.path());
    return 0;
}
