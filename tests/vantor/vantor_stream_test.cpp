// The log watch library under load: events that the kernel dropped; and each line once, in
// order, while another thread writes and rotates at random.
#include "vantor_check.h"

#include <algorithm>
#include <atomic>
#include <random>
#include <sys/inotify.h>
#include <thread>

// ---- lost events ----

// Fills the queue of the handle with events of other files, and sees on a queue of its own
// that this is more than a queue holds.
static void
overflow(const std::string &dir)
{
    int count = 0;
    FILE *limit = fopen("/proc/sys/fs/inotify/max_queued_events", "r");
    ASSERT_EQ(fscanf(limit, "%d", &count), 1);
    fclose(limit);
    int inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(inotify, dir.c_str(), IN_CREATE | IN_DELETE), 0);
    for (int i = 0; i <= count / 2; ++i) {
        put(dir + "/filler", "");
        remove_path(dir + "/filler");
    }
    bool overflown = false;
    alignas(inotify_event) char buffer[65536];
    for (ssize_t got; (got = read(inotify, buffer, sizeof buffer)) > 0;) {
        for (ssize_t at = 0; at < got;) {
            const void *start = buffer + at;
            const inotify_event *event = static_cast<const inotify_event *>(start);
            overflown = overflown || (event->mask & IN_Q_OVERFLOW);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
    close(inotify);
    ASSERT_TRUE(overflown);
}

TEST_F(Watch, OverflowThenAppend)
{
    start(path);
    overflow(dir);
    put(path, "one\n");
    EXPECT_EQ(news(), "one\n");
}

TEST_F(Watch, OverflowThenRotation)
{
    start(path);
    overflow(dir);
    put(path, "one\n");
    move(path, path + ".1");
    put(path, "two\n");
    EXPECT_EQ(news(), "one\ntwo\n");
    put(path, "three\n");
    EXPECT_EQ(news(), "three\n");
}

TEST_F(Watch, OverflowThenFileDeletedUnderAllItsNames)
{
    start(path);
    int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    overflow(dir);
    delete_all_names();
    EXPECT_EQ(news(), "");
    ASSERT_EQ(write(file, "late\n", 5), 5);
    close(file);
    EXPECT_EQ(news(), "late\n");
}

TEST_F(Watch, OverflowThenDirectoryRenamed)
{
    std::string inner = dir + "/inner";
    make_directory(inner);
    put(inner + "/log", "old\n");
    start(inner + "/log");
    overflow(inner);
    move(inner, dir + "/away");
    EXPECT_EQ(news(), "");
    make_directory(inner);
    put(inner + "/log", "new\n");
    EXPECT_EQ(news(), "new\n");
}

// A rotation as it is mostly done: each older file gets the next name.
static void
rotate(const std::string &path, int older)
{
    for (int i = older; i > 0; --i)
        move(path + "." + std::to_string(i), path + "." + std::to_string(i + 1));
    move(path, path + ".1");
}

// Files made in one tick of the clock that stamps them are born at the same time.
static void
await_tick()
{
    struct timespec begun;
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &begun);
    do
        clock_gettime(CLOCK_REALTIME_COARSE, &now);
    while (now.tv_sec < begun.tv_sec ||
           (now.tv_sec == begun.tv_sec && now.tv_nsec <= begun.tv_nsec));
}

TEST_F(Watch, OverflowThenThreeRotations)
{
    start(path);
    overflow(dir);
    for (int i = 0; i < 3; ++i) {
        put(path, "end of " + std::to_string(i) + "\n");
        rotate(path, i);
        await_tick();
        put(path, "start of " + std::to_string(i + 1) + "\n");
    }
    EXPECT_EQ(news(), "end of 0\nstart of 1\nend of 1\nstart of 2\nend of 2\nstart of 3\n");
    put(path, "later\n");
    EXPECT_EQ(news(), "later\n");
}

// More than can be open at a time.
TEST_F(Watch, OverflowThenThirtyRotations)
{
    start(path);
    overflow(dir);
    std::string expected;
    for (int i = 0; i < 30; ++i) {
        rotate(path, i);
        await_tick();
        put(path, std::to_string(i) + "\n");
        expected += std::to_string(i) + "\n";
    }
    EXPECT_EQ(news(), expected);
}

TEST_F(Watch, OverflowBetweenRotations)
{
    start(path);
    await_tick();
    rotate(path, 0);
    put(path, "one\n");
    overflow(dir);
    rotate(path, 1);
    put(path, "two\n");
    EXPECT_EQ(news(), "one\ntwo\n");
}

TEST_F(Watch, OverflowThenRotationsUnderOtherNames)
{
    std::string named = dir + "/some.log";
    put(named, "");
    start(named);
    overflow(dir);
    const char *const names[] = {"some-20260101.log", "some.log-20260102", "some.log.old",
                                 "some.3.log"};
    std::string expected;
    for (const char *name : names) {
        put(named, std::string(name) + "\n");
        expected += std::string(name) + "\n";
        move(named, dir + "/" + name);
        put(named, "");
    }
    EXPECT_EQ(news(), expected);
}

// What was there before is not new, nor is what is no file of the log.
TEST_F(Watch, OverflowAmongOtherFiles)
{
    put(path + ".1", "from long ago\n");
    put(dir + "/logs", "");
    start(path);
    overflow(dir);
    put(path + ".1", "late\n");
    put(dir + "/other", "other\n");
    put(dir + "/logs", "other\n");
    put(dir + "/logbook.1", "other\n");
    put(path + ".1.gz", "packed\n");
    make_directory(path + ".d");
    make_link("log.1", path + ".link");
    ASSERT_EQ(mkfifo((path + ".pipe").c_str(), 0600), 0);
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
}

// Copied away and cut, as some rotate: the copy is not told once more.
TEST_F(Watch, OverflowThenACopyAndACut)
{
    start(path);
    put(path, "one\n");
    EXPECT_EQ(news(), "one\n");
    overflow(dir);
    put(path + ".1", "old\none\n");
    cut(path, 0);
    put(path, "two\n");
    EXPECT_EQ(news(), "two\n");
}

// Files that were told and let go are not told again by a later overflow.
TEST_F(Watch, OverflowLongAfterRotations)
{
    start(path);
    for (int i = 0; i < 4; ++i) {
        rotate(path, i);
        put(path, std::to_string(i) + "\n");
        EXPECT_EQ(news(), std::to_string(i) + "\n");
    }
    overflow(dir);
    rotate(path, 4);
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
}

// ---- offsets that need more than 32 bits ----

TEST_F(Watch, LargeFile)
{
    const off_t size = (off_t{5} << 30) + 1;
    cut(path, size);
    start(path);
    put(path, "behind 5 GiB\n");
    EXPECT_EQ(news(), "behind 5 GiB\n");
    cut(path, size);
    EXPECT_EQ(news(), "");
    put(path, "again\n");
    EXPECT_EQ(news(), "again\n");
}

// ---- each line once ----

class Stream : public Watch
{
  protected:
    std::atomic<int> written{0};
    std::atomic<int> seen{0};
    std::atomic<bool> ended{false}; // no more news is taken
    int expected = 0;

    // Checks what was told so far: lines with ascending numbers.
    void check_lines()
    {
        size_t at = 0;
        for (size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
            if (text.compare(at, end - at, std::to_string(expected)) != 0) {
                if (!ended)
                    ADD_FAILURE() << "line " << text.substr(at, end - at) << " instead of "
                                  << expected;
                ended = true;
            }
            ++expected;
        }
        text.erase(0, at);
        seen = expected;
    }

    // Takes news until all lines came, while the writer runs.
    void follow(int lines, const std::function<void()> &write_lines)
    {
        std::thread writer(write_lines);
        while (expected < lines && !ended) {
            if (!readable(deadline_ms)) {
                ADD_FAILURE() << "nothing after line " << expected;
                ended = true;
            }
            process();
            check_lines();
        }
        ended = true;
        writer.join();
        EXPECT_EQ(news(), "");
    }

    // For the writer: before it destroys what was not seen yet.
    void wait_until_seen()
    {
        while (seen < written && !ended)
            std::this_thread::yield();
    }
};

static void
write_numbers(const std::string &path, std::atomic<int> *written, int count)
{
    std::string lines;
    for (int i = 0; i < count; ++i)
        lines += std::to_string((*written)++) + "\n";
    put(path, lines);
}

TEST_F(Stream, RenamesAtFullSpeed)
{
    constexpr int lines = 60000;
    start(path);
    follow(lines, [this] {
        std::mt19937 random(1);
        for (int file = 0; written < lines; ++file) {
            for (int appends = static_cast<int>(random() % 20) + 1; appends > 0;
                 --appends) {
                int left = lines - written;
                write_numbers(path, &written,
                              std::min(left, static_cast<int>(random() % 9)));
            }
            move(path, path + "." + std::to_string(file));
            if (random() % 2)
                put(path, "");
        }
    });
}

TEST_F(Stream, AllKindsOfRotation)
{
    constexpr int lines = 20000;
    start(path);
    follow(lines, [this] {
        std::mt19937 random(2);
        for (int file = 0; written < lines && !ended; ++file) {
            for (int appends = static_cast<int>(random() % 20) + 1; appends > 0;
                 --appends) {
                int left = lines - written;
                write_numbers(path, &written,
                              std::min(left, static_cast<int>(random() % 9)));
            }
            std::string old = path + "." + std::to_string(file);
            unsigned kind = random() % 6;
            if (kind == 0)
                continue;
            if (kind >= 2)
                wait_until_seen();
            if (kind <= 2)
                move(path, old);
            else if (kind == 3)
                remove_path(path);
            else if (kind == 4)
                cut(path, 0);
            else
                move(path, path + ".1");
            if (written < lines)
                write_numbers(path, &written, 1); // a file that was not seen cannot be told
            wait_until_seen();
        }
    });
}

TEST_F(Stream, WriterThatKeepsTheRenamedFileForAWhile)
{
    constexpr int lines = 21000;
    start(path);
    follow(lines, [this] {
        for (int file = 0; written < lines && !ended; ++file) {
            std::string old = path + "." + std::to_string(file);
            write_numbers(path, &written, 10);
            move(path, old);
            write_numbers(old, &written, 10);
            wait_until_seen();
            put(path, "");
            write_numbers(old, &written, 10);
            wait_until_seen();
        }
    });
}

TEST_F(Stream, FloodThroughRotations)
{
    constexpr int lines = 1000000;
    start(path);
    follow(lines, [this] {
        for (int file = 0; written < lines; ++file) {
            for (int i = 0; i < 100 && written < lines; ++i)
                write_numbers(path, &written, 100);
            move(path, path + "." + std::to_string(file));
        }
    });
}
