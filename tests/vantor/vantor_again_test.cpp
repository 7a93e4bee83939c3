// The log watch library when something fails once while the file is exchanged: what came to
// the path is found although nothing is written that tells of it, and told once.
#include "vantor_check.h"

#include <sys/inotify.h>
#include <sys/syscall.h>

// How many calls are still good; the one behind them fails. Negative: all are good.
static int good_looks = -1;
static int good_watches = -1;

static bool
fails(int *good)
{
    return *good >= 0 && (*good)-- == 0;
}

extern "C" int
lstat(const char *name, struct stat *status) noexcept
{
    if (fails(&good_looks)) {
        errno = EIO;
        return -1;
    }
    return fstatat(AT_FDCWD, name, status, AT_SYMLINK_NOFOLLOW);
}

extern "C" int
inotify_add_watch(int inotify, const char *name, uint32_t mask) noexcept
{
    if (fails(&good_watches)) {
        errno = ENOSPC;
        return -1;
    }
    return static_cast<int>(syscall(SYS_inotify_add_watch, inotify, name, mask));
}

class Again : public Watch
{
  protected:
    // Exchanges the log with the next call of one kind failing, then the one behind it, and
    // so on, until none is left that could. Each time the new file is told once, at the
    // latest behind the second wait, and what is written to it later too.
    void exchange_with_each_failing(int *good)
    {
        start(path);
        bool failed = true;
        for (int number = 0; failed; ++number) {
            ASSERT_LT(number, 50);
            move(path, path + ".1");
            put(path, "new\n");
            *good = number;
            std::string told = news();
            failed = *good < 0;
            *good = -1;
            told += news();
            EXPECT_EQ(told, "new\n") << "good calls: " << number;
            put(path, "more\n");
            EXPECT_EQ(news(), "more\n") << "good calls: " << number;
        }
    }
};

TEST_F(Again, PlaceThatCannotBeLookedAt)
{
    exchange_with_each_failing(&good_looks);
}

TEST_F(Again, WatchThatCannotBeAdded)
{
    exchange_with_each_failing(&good_watches);
}

TEST_F(Again, FailureThatLastsIsMetOncePerWait)
{
    start(path);
    move(path, path + ".1");
    put(path, "new\n");
    for (int wait = 0; wait < 5; ++wait) {
        good_watches = 0;
        ASSERT_TRUE(readable());
        process();
        EXPECT_LT(good_watches, 0) << "not tried";
        EXPECT_FALSE(readable()) << "this would spin";
    }
    EXPECT_EQ(news(), "new\n");
}

// A reader may keep what it has waited on in its set, and would spin.
TEST_F(Again, DescriptorOfAnEarlierWaitIsNotReadable)
{
    start(path);
    std::string line(999, 'x');
    for (int i = 0; i < 100; ++i)
        put(path, line + "\n");
    std::vector<int> waited;
    for (; readable(); process())
        waited.push_back(vantor_inotify_fd(handle));
    EXPECT_GT(waited.size(), 2U) << "told in more than one piece";
    for (int descriptor : waited) {
        pollfd wait = {descriptor, POLLIN, 0};
        EXPECT_EQ(poll(&wait, 1, 0), 0);
    }
    EXPECT_EQ(text.size(), 100000U);
}
