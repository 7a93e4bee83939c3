// Every operation asks the kernel, and repeats in the model what the kernel did.
#include "watch_files.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../vantor/vantor.h"
#include "input.h"

static const char *const places[] = {
    "d0/log", "d0/log.1", "d0/log.2", "d0/log.3",   "d1/log", "d1/log.1", "link", "way/log",
    "d0",     "d1",       "way",      "d0/sub/log", "d0/sub", "d0/a",     "d0/b", "d1/a",
};
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

const bool printed = getenv("WATCH_FUZZ_PRINT") != nullptr;
static std::string root;
static int writers[2]; // descriptors that stay open
static Node *written_to[2];

void
broken(const char *what, const std::string &path)
{
    fprintf(stderr, "does not hold: %s (%s)\n", what, path.c_str());
    abort();
}

std::string
real(const std::string &path)
{
    return root + "/" + path;
}

bool
is_way(const std::string &path)
{
    struct stat status;
    if (path.find('/') == std::string::npos)
        return true;
    return lstat(real(path).c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

// ---- operations ----

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

const char *
any_place()
{
    return choose(places);
}

std::string
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
        broken("room to write", "");
    written += text.size();
}

void
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
    // A file that comes where a directory is looked for changes the path.
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

void
file_step(unsigned kind, const std::string &path)
{
    switch (kind) {
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
}

// ---- the session ----

void
make_root()
{
    if (!root.empty())
        return;
    const char *folder = getenv("TMPDIR");
    root = std::string(folder ? folder : "/dev/shm") + "/watch_fuzz.XXXXXX";
    if (mkdtemp(&root[0]) == nullptr)
        broken("there is a folder to work in", "");
    atexit([] { std::filesystem::remove_all(root); });
    setvbuf(stdout, nullptr, _IONBF, 0); // a finding ends the process
}

void
begin_files(bool with_way, bool with_link)
{
    counter = 0;
    written = 0;
    writers[0] = writers[1] = -1;
    for (const char *dir : {"d0", "d1"}) {
        mkdir(real(dir).c_str(), 0755);
        model->put(dir, Kind::directory, "");
    }
    append("d0/log", "old\n");
    if (with_way)
        link_to("d0", "way");
    if (with_link)
        link_to("d0/log", "link");
}

void
close_files()
{
    for (int fd : writers)
        if (fd >= 0)
            close(fd);
}

void
clear_root()
{
    for (const auto &entry : std::filesystem::directory_iterator(root))
        std::filesystem::remove_all(entry.path());
}
