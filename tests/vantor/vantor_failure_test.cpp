// The log watch library when things fail: each reason, nothing left behind, and recovery;
// and when it is used ten thousand times.
#include "vantor_check.h"

#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>

// ---- a watch limit that is reached at will ----

static int watches_left = -1; // negative: no limit

// Stands in for the C library's: the kernel's limit cannot be lowered for one process.
extern "C" int
inotify_add_watch(int inotify, const char *name, uint32_t mask)
{
    if (watches_left == 0) {
        errno = ENOSPC;
        return -1;
    }
    if (watches_left > 0)
        --watches_left;
    return static_cast<int>(syscall(SYS_inotify_add_watch, inotify, name, mask));
}

static void
ignore_news(int, void *, int)
{
}

// ---- failures ----

class Failure : public Watch
{
};

TEST_F(Failure, NamesThatLeadToNoFile)
{
    expect_error((dir + "/none").c_str(), ENOENT);
    expect_error((dir + "/none/log").c_str(), ENOENT);
    expect_error("", ENOENT);
    expect_error(dir.c_str(), EISDIR);
    expect_error("/", EISDIR);
    expect_error((path + "/log").c_str(), ENOTDIR);
    expect_error((path + "/").c_str(), ENOTDIR);
    expect_error((dir + "/" + std::string(300, 'n')).c_str(), ENAMETOOLONG);
    expect_error((dir + std::string(5000, '/') + "log").c_str(), ENAMETOOLONG);
    make_link("loop", dir + "/loop");
    expect_error((dir + "/loop").c_str(), ELOOP);
    make_link("none", dir + "/dangling");
    expect_error((dir + "/dangling").c_str(), ENOENT);
}

TEST_F(Failure, RelativeNameInADirectoryThatIsGone)
{
    std::string inner = dir + "/inner";
    make_directory(inner);
    expect_in_child([inner] {
        return chdir(inner.c_str()) == 0 && remove(inner.c_str()) == 0 &&
               !vantor_open("log", ignore_news, nullptr) && errno == ENOENT;
    });
}

TEST_F(Failure, NoNameOrCallback)
{
    expect_error(nullptr, EINVAL);
    expect_error(path.c_str(), EINVAL, nullptr);
}

TEST_F(Failure, PipesAndDevicesAreRefusedWithoutWaiting)
{
    std::string pipe = dir + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);
    expect_error(pipe.c_str(), EINVAL);
    expect_error("/dev/null", EINVAL);
}

// True when opening fails with the error for a user without privileges.
static bool
refused_to_a_user(const std::string &name, int error)
{
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) == -1)
        return false;
    return !vantor_open(name.c_str(), ignore_news, nullptr) && errno == error;
}

TEST_F(Failure, PermissionIsNeeded)
{
    auto refused = [this] { return refused_to_a_user(path, EACCES); };
    ASSERT_EQ(chmod(dir.c_str(), 0755), 0);
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    expect_in_child(refused);
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    ASSERT_EQ(chmod(dir.c_str(), 0), 0);
    expect_in_child(refused);
    ASSERT_EQ(chmod(dir.c_str(), 0711), 0);
    if (geteuid() == 0)
        expect_in_child(refused); // the owner's bits count for an owner
    ASSERT_EQ(chmod(dir.c_str(), 0755), 0);
}

TEST_F(Failure, DirectoryOfThePathNeedsOnlyToBeSearched)
{
    make_directory(dir + "/inner");
    put(dir + "/inner/log", "old\n");
    ASSERT_EQ(chmod(dir.c_str(), geteuid() == 0 ? 0711 : 0111), 0);
    expect_in_child([this] { return !refused_to_a_user(dir + "/inner/log", EACCES); });
    ASSERT_EQ(chmod(dir.c_str(), 0755), 0);
}

TEST_F(Failure, FileThatMayNotBeReadIsWaitedFor)
{
    if (geteuid() == 0) {
        ASSERT_EQ(chown(dir.c_str(), 65534, 65534), 0);
    }
    expect_in_child([this] {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) == -1)
            return false;
        start(path);
        move(path, path + ".1");
        put(path, "secret\n");
        bool hidden = chmod(path.c_str(), 0) == 0 && news().empty();
        bool shown = chmod(path.c_str(), 0600) == 0 && news() == "secret\n";
        return hidden && shown;
    });
}

// The process may open 0, 1, 2 ... descriptors more, until opening succeeds.
TEST_F(Failure, OutOfDescriptors)
{
    expect_in_child([this] {
        int next = dup(0);
        close(next);
        for (int allowed = 0; allowed < 20; ++allowed) {
            rlimit old;
            getrlimit(RLIMIT_NOFILE, &old);
            rlimit limit = {static_cast<rlim_t>(next + allowed), old.rlim_max};
            setrlimit(RLIMIT_NOFILE, &limit);
            vantor_handle *opened = vantor_open(path.c_str(), ignore_news, nullptr);
            int error = errno;
            setrlimit(RLIMIT_NOFILE, &old);
            if (opened) {
                vantor_close(opened);
                return allowed >= 2;
            }
            int now = dup(0);
            close(now);
            if (error != EMFILE || now != next)
                return false;
        }
        return false;
    });
}

// As a user of its own, so that other processes are not disturbed.
TEST_F(Failure, OutOfInotifyInstances)
{
    ASSERT_EQ(chmod(dir.c_str(), 0755), 0);
    expect_in_child([this] {
        if (geteuid() == 0 && setresuid(54321, 54321, 54321) == -1)
            return false;
        while (inotify_init1(IN_CLOEXEC) >= 0)
            continue;
        return !vantor_open(path.c_str(), ignore_news, nullptr) && errno == EMFILE;
    });
}

TEST_F(Failure, OutOfInotifyWatches)
{
    int needed = 0;
    for (;; ++needed) {
        int descriptors = open_descriptors();
        watches_left = needed;
        handle = vantor_open(path.c_str(), ignore_news, nullptr);
        int error = errno;
        watches_left = -1;
        if (handle)
            break;
        ASSERT_EQ(error, ENOSPC);
        ASSERT_EQ(open_descriptors(), descriptors);
        ASSERT_LT(needed, 20);
    }
    EXPECT_GE(needed, 2) << "the file and its directory";
}

TEST_F(Failure, WatchLimitLaterIsOvercomeAtTheNextEvent)
{
    start(path);
    watches_left = 0;
    move(path, path + ".1");
    put(path, "new\n");
    EXPECT_EQ(news(), "");
    watches_left = -1;
    put(path + ".1", "late\n");
    EXPECT_EQ(news(), "late\nnew\n");
}

TEST_F(Failure, WatchLimitWhenAllNamesAreDeletedIsOvercomeAtTheNextEvent)
{
    start(path);
    int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    delete_all_names();
    watches_left = 0;
    process();
    watches_left = -1;
    EXPECT_EQ(news(), "");
    put(dir + "/other", "");
    EXPECT_EQ(news(), "");
    ASSERT_EQ(write(file, "late\n", 5), 5);
    close(file);
    EXPECT_EQ(news(), "late\n");
}

TEST_F(Failure, DescriptorLimitLaterIsOvercomeAtTheNextEvent)
{
    start(path);
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit none = {0, limit.rlim_max};
    move(path, path + ".1");
    put(path, "new\n");
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    process();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(news(), "");
    put(path, "more\n");
    put(path + ".1", "late\n");
    EXPECT_EQ(news(), "late\nnew\nmore\n");
}

// ---- long life ----

static long
resident_pages()
{
    long size = 0;
    long resident = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    EXPECT_EQ(fscanf(file, "%ld %ld", &size, &resident), 2);
    fclose(file);
    return resident;
}

// Many handles at a time, each on a thread of its own: the kernel takes milliseconds to
// close an inotify descriptor.
TEST_F(Watch, TenThousandCyclesLeaveNothingBehind)
{
    constexpr int at_a_time = 20;
    int descriptors = open_descriptors();
    long pages = 0;
    for (int cycle = 0; cycle < 10000; cycle += at_a_time) {
        std::thread threads[at_a_time];
        for (std::thread &one : threads) {
            one = std::thread([this] {
                vantor_handle *opened = vantor_open(path.c_str(), ignore_news, nullptr);
                ASSERT_NE(opened, nullptr) << strerror(errno);
                put(path, "line\n");
                EXPECT_EQ(vantor_process_event(opened), 0);
                vantor_close(opened);
            });
        }
        for (std::thread &one : threads)
            one.join();
        if (cycle == 1000)
            pages = resident_pages();
    }
    EXPECT_EQ(open_descriptors(), descriptors);
#ifdef __SANITIZE_ADDRESS__ // it keeps freed memory, and finds leaks itself at the end
    EXPECT_GT(pages, 0);
#else
    EXPECT_LT(resident_pages() - pages, 256);
#endif
}
