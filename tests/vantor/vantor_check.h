// What the tests of the log watch library share: a directory of its own per test, a reader
// that takes news as a shell does, and file operations that must succeed.
//
// The kernel queues events before the call that causes them returns. So a test on one
// thread needs no waiting: when the descriptor is not readable, everything was told.
#pragma once

#include "vantor/vantor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

constexpr int deadline_ms = 30000;

inline void
put(const std::string &path, const std::string &text, int flags = O_APPEND)
{
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0644);
    ASSERT_GE(file, 0) << path << ": " << strerror(errno);
    ASSERT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(file);
}

inline void
move(const std::string &from, const std::string &to)
{
    ASSERT_EQ(rename(from.c_str(), to.c_str()), 0) << from << ": " << strerror(errno);
}

inline void
remove_path(const std::string &path)
{
    ASSERT_EQ(remove(path.c_str()), 0) << path << ": " << strerror(errno);
}

inline void
make_directory(const std::string &path)
{
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0) << path << ": " << strerror(errno);
}

inline void
make_link(const std::string &target, const std::string &path)
{
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0) << path << ": " << strerror(errno);
}

inline void
cut(const std::string &path, off_t size)
{
    ASSERT_EQ(truncate(path.c_str(), size), 0) << path << ": " << strerror(errno);
}

inline int
open_descriptors()
{
    int count = 0;
    DIR *list = opendir("/proc/self/fd");
    while (readdir(list))
        ++count;
    closedir(list);
    return count;
}

// Runs a check in a child process, which may give up rights or descriptors for it.
inline void
expect_in_child(const std::function<bool()> &check)
{
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
        _exit(check() ? 0 : 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

class Watch : public testing::Test
{
  protected:
    std::string dir;
    std::string path;
    vantor_handle *handle = nullptr;
    std::string text;       // told and not yet taken by news()
    std::vector<int> sizes; // of each callback since the last news()
    std::function<void()> in_callback;
    bool processing = false;
    pthread_t thread = pthread_self();

    void SetUp() override
    {
        char made[] = "/tmp/vantor_test.XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        dir = made;
        path = dir + "/log";
        put(path, "old\n");
    }

    void TearDown() override
    {
        vantor_close(handle);
        ASSERT_EQ(system(("rm -rf " + dir).c_str()), 0);
    }

    void start(const std::string &name)
    {
        handle = vantor_open(name.c_str(), take, this);
        ASSERT_NE(handle, nullptr) << name << ": " << strerror(errno);
    }

    // Deletes the log under two names. The kernel takes the watch off a file that loses its
    // last name, if that is not the one by which it was opened.
    void delete_all_names()
    {
        ASSERT_EQ(link(path.c_str(), (path + ".link").c_str()), 0);
        remove_path(path);
        remove_path(path + ".link");
    }

    // Opening fails, for that reason, and leaves no descriptor.
    static void expect_error(const char *name, int error, vantor_callback callback = take)
    {
        int descriptors = open_descriptors();
        errno = 0;
        EXPECT_EQ(vantor_open(name, callback, nullptr), nullptr) << name;
        EXPECT_EQ(errno, error) << strerror(errno);
        EXPECT_EQ(open_descriptors(), descriptors);
    }

    static void take(int first, void *context, int second)
    {
        Watch *watch = static_cast<Watch *>(context);
        EXPECT_TRUE(watch->processing);
        EXPECT_TRUE(pthread_equal(watch->thread, pthread_self()));
        ASSERT_GT(second, 0);
        ASSERT_LE(second, VANTOR_TEXT_MAX);
        char piece[VANTOR_TEXT_MAX];
        ASSERT_EQ(read(first, piece, sizeof piece), second);
        ASSERT_EQ(read(first, piece + second, 1), 0) << "text behind the news";
        watch->text.append(piece, static_cast<size_t>(second));
        watch->sizes.push_back(second);
        if (watch->in_callback)
            watch->in_callback();
    }

    bool readable(int timeout = 0)
    {
        pollfd wait = {vantor_inotify_fd(handle), POLLIN, 0};
        return poll(&wait, 1, timeout) == 1;
    }

    void process()
    {
        size_t before = sizes.size();
        processing = true;
        EXPECT_EQ(vantor_process_event(handle), 0) << strerror(errno);
        processing = false;
        EXPECT_LE(sizes.size(), before + 1);
    }

    // Processes until nothing waits, and returns what was told. Rounds without news are
    // few: more would be spinning.
    std::string news()
    {
        text.clear();
        sizes.clear();
        int idle = 0;
        while (readable()) {
            size_t before = sizes.size();
            process();
            idle = sizes.size() == before ? idle + 1 : 0;
            if (idle > 20) {
                ADD_FAILURE() << "readable without end";
                break;
            }
        }
        return text;
    }
};
