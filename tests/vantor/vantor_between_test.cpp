// The log watch library when names change in the middle of its look at them. What it looks
// with is hooked, so that a test can say between which two steps something happens.
#include "vantor_check.h"

#include <algorithm>
#include <sys/inotify.h>
#include <sys/syscall.h>

// Called before a look at a place, or before a watch is put on it; neither within the
// other.
static std::function<void(const std::string &)> before_look;
static std::function<void(const std::string &, uint32_t)> before_watch;
static bool in_hook;

static int
look(const char *name, struct stat *status)
{
    if (before_look && !in_hook) {
        in_hook = true;
        before_look(name);
        in_hook = false;
    }
    return fstatat(AT_FDCWD, name, status, AT_SYMLINK_NOFOLLOW);
}

extern "C" int
lstat(const char *name, struct stat *status) noexcept
{
    return look(name, status);
}

#if !__GLIBC_PREREQ(2, 33) // lstat() is inline, and calls this
extern "C" int
__lxstat(int, const char *name, struct stat *status) noexcept
{
    return look(name, status);
}
#endif

extern "C" int
inotify_add_watch(int inotify, const char *name, uint32_t mask) noexcept
{
    if (before_watch && !in_hook) {
        in_hook = true;
        before_watch(name, mask);
        in_hook = false;
    }
    return static_cast<int>(syscall(SYS_inotify_add_watch, inotify, name, mask));
}

class Between : public Watch
{
  protected:
    void TearDown() override
    {
        before_look = nullptr;
        before_watch = nullptr;
        Watch::TearDown();
    }

    // Another file is put in the place of the log.
    void exchange(const std::string &old_name, const std::string &contents)
    {
        move(path, old_name);
        put(path, contents);
    }

    // From now on the log is exchanged so many times, each between its opening and the
    // watch that is put on it; each new file holds its number.
    void exchange_when_watched(int times)
    {
        before_watch = [this, times, done = 0](const std::string &name,
                                               uint32_t mask) mutable {
            if (name != path || !(mask & IN_MODIFY) || done == times)
                return;
            ++done;
            exchange(path + "." + std::to_string(done), std::to_string(done) + "\n");
        };
    }

    // The exchanged log, at `path`.1, is back at the path when the new one, opened, is to
    // be watched, which is at `path`.2 from then on.
    bool old_is_back = false;
    void bring_back_when_watched()
    {
        before_watch = [this](const std::string &name, uint32_t mask) {
            if (name != path || !(mask & IN_MODIFY) || old_is_back)
                return;
            old_is_back = true;
            move(path, path + ".2");
            move(path + ".1", path);
        };
    }
};

// ---- the file ----

TEST_F(Between, ExchangedWhileItIsOpened)
{
    exchange_when_watched(1);
    start(path);
    put(path + ".1", "to the old one\n");
    EXPECT_EQ(news(), "") << "the new file is followed from its end";
    put(path, "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Between, ExchangedEachTimeItIsOpened)
{
    exchange_when_watched(100);
    expect_error(path.c_str(), ENOENT);
}

// A look opens the log twice, as what came to the path and as what is there now. The call
// gives up looking, and the next one goes on.
TEST_F(Between, ExchangedInEachLook)
{
    start(path);
    exchange(path + ".0", "0\n");
    exchange_when_watched(15);
    process();
    EXPECT_EQ(text, "") << "the order is not certain yet";
    ASSERT_TRUE(readable());
    EXPECT_EQ(news(), "0\n1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n14\n15\n");
    put(path, "more\n");
    EXPECT_EQ(news(), "more\n");
}

// The watch for the new file meets the old one, which has its own already.
TEST_F(Between, OldFileComesBackWhileTheNewOneIsOpened)
{
    start(path);
    exchange(path + ".1", "new\n");
    bring_back_when_watched();
    EXPECT_EQ(news(), "new\n");
    for (const char *line : {"one\n", "two\n"}) {
        put(path, line);
        EXPECT_EQ(news(), line);
    }
    EXPECT_TRUE(old_is_back) << "never watched";
}

// As above, but when it is looked at again nothing is to be seen of that.
TEST_F(Between, OldFileIsThereWhileTheNewOneIsWatched)
{
    start(path);
    exchange(path + ".1", "new\n");
    bring_back_when_watched();
    before_look = [this](const std::string &name) {
        if (name != path || !old_is_back)
            return;
        move(path, path + ".1");
        move(path + ".2", path);
        before_look = nullptr;
    };
    EXPECT_EQ(news(), "new\n");
    EXPECT_FALSE(before_look) << "never looked at";
    for (const char *line : {"one\n", "two\n"}) {
        put(path, line);
        EXPECT_EQ(news(), line);
        put(path + ".1", line);
        EXPECT_EQ(news(), line);
    }
}

// The file has lost its name before its place in the order was certain, but was opened.
TEST_F(Between, DeletedOnceItWasOpened)
{
    start(path);
    exchange(path + ".1", "came and went\n");
    exchange(path + ".2", "last\n");
    before_watch = [this](const std::string &name, uint32_t mask) {
        if (name == path && mask & IN_MODIFY)
            remove((path + ".2").c_str());
    };
    EXPECT_EQ(news(), "came and went\nlast\n");
}

// Of those that came, the newer has lost its name, and the older is found once more.
TEST_F(Between, DeletedOnceItWasOpenedBehindAnother)
{
    start(path);
    exchange(path + ".1", "1\n");
    exchange(path + ".2", "2\n");
    exchange(path + ".3", "3\n");
    before_watch = [this](const std::string &name, uint32_t mask) {
        if (name == path && mask & IN_MODIFY)
            remove((path + ".3").c_str());
    };
    EXPECT_EQ(news(), "1\n2\n3\n");
    before_watch = nullptr;
    put(path, "more\n");
    EXPECT_EQ(news(), "more\n");
}

// Names move up while they are looked at, so that the look meets each file under the name
// of another. Nothing of it counts, and the order is that in which the files came.
TEST_F(Between, NumberedFilesThatMoveUpWhileTheyAreLookedAt)
{
    start(path);
    exchange(path + ".1", "1\n");
    move(path + ".1", path + ".2");
    exchange(path + ".1", "2\n");
    before_look = [this](const std::string &name) {
        if (name != path + ".1")
            return;
        move(path + ".2", path + ".3");
        move(path + ".1", path + ".2");
        exchange(path + ".1", "3\n");
        before_look = nullptr;
    };
    EXPECT_EQ(news(), "1\n2\n3\n");
    EXPECT_FALSE(before_look) << "never looked at";
    put(path, "more\n");
    EXPECT_EQ(news(), "more\n");
}

// The end is where it was when the file was opened, and a file that was emptied at that
// moment has no start to be known by. What is told later is not taken for its start.
TEST_F(Between, EmptiedWhileItIsOpened)
{
    before_watch = [this](const std::string &name, uint32_t mask) {
        if (name == path && mask & IN_MODIFY)
            cut(path, 0);
    };
    start(path);
    before_watch = nullptr;
    put(path, "one\n");
    EXPECT_EQ(news(), "");
    for (const char *line : {"two\n", "three\n", "four\n"}) {
        put(path, line);
        EXPECT_EQ(news(), line);
    }
}

// ---- the path ----

TEST_F(Between, LinkThatIsGoneWhenItIsRead)
{
    std::string link = dir + "/link";
    make_link("log", link);
    start(link);
    put(dir + "/other", "other\n");
    remove_path(link);
    make_link("log", link);
    int times = 0;
    before_watch = [&](const std::string &name, uint32_t) {
        if (name == link && times++ == 0)
            remove_path(link);
    };
    put(path, "still\n");
    EXPECT_EQ(news(), "still\n");
    EXPECT_EQ(times, 1) << "the second walk met no link";
    make_link("other", link);
    EXPECT_EQ(news(), "other\n");
}

TEST_F(Between, LinkThatIsADirectoryWhenItIsRead)
{
    std::string link = dir + "/link";
    make_directory(dir + "/real");
    put(dir + "/real/log", "old\n");
    make_link("real", link);
    before_watch = [&](const std::string &name, uint32_t) {
        if (name == link && remove(link.c_str()) == 0) {
            make_directory(link);
            put(link + "/log", "older\n");
            before_watch = nullptr;
        }
    };
    start(link + "/log");
    put(dir + "/real/log", "to the old one\n");
    EXPECT_EQ(news(), "");
    put(link + "/log", "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Between, DirectoryThatIsAFileWhenItIsWatched)
{
    std::string inner = dir + "/inner";
    make_directory(inner);
    put(inner + "/log", "old\n");
    int times = 0;
    before_watch = [&](const std::string &name, uint32_t mask) {
        if (name == inner && mask & IN_CREATE && times++ == 0) {
            move(inner, inner + ".1");
            put(inner, "a file\n");
        }
    };
    before_look = [&](const std::string &name) {
        if (name == inner && times == 1 && remove(inner.c_str()) == 0)
            move(inner + ".1", inner);
    };
    start(inner + "/log");
    EXPECT_GT(times, 1) << "it is a directory again in the second walk";
    put(inner + "/log", "new\n");
    EXPECT_EQ(news(), "new\n");
}

// A walk that breaks leaves no watch on a directory that the next one does not pass.
TEST_F(Between, DirectoryThatIsNoLongerInThePath)
{
    make_directory(dir + "/a");
    make_directory(dir + "/b");
    make_link("../log", dir + "/a/log");
    put(dir + "/b/log", "old\n");
    make_link("a", dir + "/now");
    make_link("b", dir + "/next");
    before_watch = [this](const std::string &name, uint32_t) {
        if (name != dir + "/a/log")
            return;
        remove_path(name);
        move(dir + "/next", dir + "/now");
        before_watch = nullptr;
    };
    start(dir + "/now/log");
    EXPECT_FALSE(before_watch) << "the first walk met no link";
    EXPECT_EQ(news(), "");
    move(dir + "/a", dir + "/away");
    EXPECT_FALSE(readable()) << "a watch was left";
    put(dir + "/b/log", "new\n");
    EXPECT_EQ(news(), "new\n");
}

// The file is deleted, but held open, so its directory does not say that it goes.
TEST_F(Between, DirectoryDeletedBeforeAnyWatchOfTheLook)
{
    std::string inner = dir + "/inner";
    bool met = true;
    for (int nth = 0; met; ++nth) {
        make_directory(inner);
        put(inner + "/log", "old\n");
        start(inner + "/log");
        remove_path(inner + "/log");
        met = false;
        before_watch = [&, count = 0](const std::string &, uint32_t) mutable {
            if (count++ == nth)
                met = remove(inner.c_str()) == 0;
        };
        EXPECT_EQ(news(), "");
        before_watch = nullptr;
        if (!met)
            remove_path(inner);
        make_directory(inner);
        put(inner + "/log", "new\n");
        EXPECT_EQ(news(), "new\n") << "before watch " << nth;
        vantor_close(handle);
        handle = nullptr;
        remove_path(inner + "/log");
        remove_path(inner);
        EXPECT_TRUE(met || nth > 3);
    }
}

// A path with more directories than are watched: each is made when the one before it is
// watched as the last.
TEST_F(Between, DirectoriesThatComeWhileTheyAreLookedFor)
{
    std::string first = dir + "/d";
    std::string deep = first;
    std::vector<std::string> directories = {deep};
    while (directories.size() < 100)
        directories.push_back(deep += "/d");
    for (const std::string &name : directories)
        make_directory(name);
    put(deep + "/log", "old\n");
    start(deep + "/log");
    move(first, dir + "/away");
    size_t made = 0;
    before_look = [&, last = std::string()](const std::string &name) mutable {
        if (made < directories.size() && name == directories[made] && name == last)
            make_directory(directories[made++]);
        last = name;
    };
    EXPECT_EQ(news(), "");
    before_look = nullptr;
    while (made < directories.size())
        make_directory(directories[made++]);
    put(deep + "/log", "new\n");
    EXPECT_EQ(news(), "new\n");
}

TEST_F(Between, LinkThatIsNeverThereWhenItIsRead)
{
    std::string link = dir + "/link";
    make_link("log", link);
    int times = 0;
    before_look = [&](const std::string &name) {
        if (name == link && access(link.c_str(), F_OK) != 0)
            make_link("log", link);
    };
    before_watch = [&](const std::string &name, uint32_t) {
        if (name == link) {
            remove_path(link);
            ++times;
        }
    };
    expect_error(link.c_str(), ENOENT);
    EXPECT_GT(times, 1) << "it is tried more than once, but not without end";
}

// However often the path changes during a walk, another walk follows until it does not.
TEST_F(Between, LinkThatComesBackAfterManyWalks)
{
    std::string link = dir + "/link";
    for (int limit : {1, 2, 15, 16, 17, 31, 32, 33, 48, 64, 100}) {
        make_link("log", link);
        start(link);
        int times = 0;
        before_look = [&](const std::string &name) {
            if (name == link && times < limit && access(link.c_str(), F_OK) != 0)
                make_link("log", link);
        };
        before_watch = [&](const std::string &name, uint32_t) {
            if (name == link && times++ < limit)
                remove_path(link);
        };
        remove_path(link);
        EXPECT_EQ(news(), "");
        EXPECT_GE(times, std::min(limit, 16));
        before_look = nullptr;
        before_watch = nullptr;
        remove(link.c_str()); // it may be there
        std::string other = "other." + std::to_string(limit);
        put(dir + "/" + other, "new\n");
        make_link(other, link);
        EXPECT_EQ(news(), "new\n") << limit;
        vantor_close(handle);
        remove_path(link);
    }
    handle = nullptr;
}
