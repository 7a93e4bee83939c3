// The log watch library on a file that stays where it is: what is told, in which pieces, on
// which descriptors, and what a jump out of a signal handler leaves.
#include "vantor_check.h"

#include <csetjmp>
#include <csignal>
#include <sys/select.h>
#include <sys/time.h>
#include <thread>

// ---- what is news ----

TEST_F(Watch, OldTextIsNoNews)
{
    start(path);
    EXPECT_EQ(news(), "");
}

TEST_F(Watch, AppendedLinesAreTold)
{
    start(path);
    put(path, "one\n");
    EXPECT_TRUE(readable());
    EXPECT_EQ(news(), "one\n");
    put(path, "two\nthree\n");
    EXPECT_EQ(news(), "two\nthree\n");
    EXPECT_FALSE(readable());
}

TEST_F(Watch, LinesOfAnEmptyFileAreTold)
{
    cut(path, 0);
    start(path);
    put(path, "one\n");
    EXPECT_EQ(news(), "one\n");
}

TEST_F(Watch, ThousandsOfAppendsBecomeFewCallbacks)
{
    start(path);
    std::string expected;
    int file = open(path.c_str(), O_WRONLY | O_APPEND);
    for (int i = 0; i < 5000; ++i) {
        std::string line = "line " + std::to_string(i) + "\n";
        ASSERT_EQ(write(file, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        expected += line;
    }
    close(file);
    EXPECT_EQ(news(), expected);
    EXPECT_EQ(sizes.size(), expected.size() / VANTOR_TEXT_MAX + 1);
}

TEST_F(Watch, StartOfALineWaitsForItsEnd)
{
    start(path);
    put(path, "whole\nha");
    EXPECT_EQ(news(), "whole\n");
    put(path, "lf ");
    EXPECT_EQ(news(), "");
    put(path, "a line\nnext");
    EXPECT_EQ(news(), "half a line\n");
}

TEST_F(Watch, LineThatWasBegunBeforeIsToldFromItsMiddle)
{
    put(path, "begun ");
    start(path);
    put(path, "ended\n");
    EXPECT_EQ(news(), "ended\n");
}

TEST_F(Watch, LongLineComesInPiecesOfTheGreatestSize)
{
    start(path);
    std::string line(2 * VANTOR_TEXT_MAX + 10, 'x');
    put(path, line);
    EXPECT_EQ(news(), std::string(2 * VANTOR_TEXT_MAX, 'x'));
    EXPECT_EQ(sizes, (std::vector<int>{VANTOR_TEXT_MAX, VANTOR_TEXT_MAX}));
    put(path, "end\nnext\n");
    EXPECT_EQ(news(), std::string(10, 'x') + "end\nnext\n");
}

TEST_F(Watch, PiecesEndWithALine)
{
    start(path);
    std::string line(999, 'y');
    line += '\n';
    std::string lines;
    for (int i = 0; i < 500; ++i)
        lines += line;
    put(path, lines);
    EXPECT_EQ(news(), lines);
    for (int size : sizes)
        EXPECT_EQ(size % 1000, 0);
    EXPECT_EQ(sizes.size(), 500000u / (VANTOR_TEXT_MAX / 1000 * 1000) + 1);
}

TEST_F(Watch, OneCallTellsOnePieceAndLeavesTheDescriptorReadable)
{
    start(path);
    put(path, std::string(3 * VANTOR_TEXT_MAX, '\n'));
    for (size_t told = 1; told <= 3; ++told) {
        ASSERT_TRUE(readable());
        process();
        EXPECT_EQ(sizes.size(), told);
    }
    EXPECT_EQ(news(), "");
}

TEST_F(Watch, AnyBytesAreText)
{
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    bytes += '\n';
    start(path);
    put(path, bytes);
    EXPECT_EQ(news(), bytes);
}

TEST_F(Watch, OffsetsPassTwoGibibytes)
{
    off_t large = (off_t(5) << 30) - 3;
    cut(path, large);
    start(path);
    put(path, "far\n");
    EXPECT_EQ(news(), "far\n");
    put(path, "away\n");
    EXPECT_EQ(news(), "away\n");
}

// ---- truncation ----

TEST_F(Watch, LateYears)
{
    // 2100, where the file system can hold it; else the latest that it can.
    timespec late[2] = {{4102444800, 0}, {4102444800, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), late, 0), 0);
    start(path);
    put(path, "one\n");
    EXPECT_EQ(news(), "one\n");
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), late, 0), 0);
    move(path, path + ".1");
    put(path, "two\n");
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), late, 0), 0);
    EXPECT_EQ(news(), "two\n");
}

TEST_F(Watch, EmptiedFileIsReadFromItsStart)
{
    start(path);
    put(path, "one\n");
    EXPECT_EQ(news(), "one\n");
    cut(path, 0);
    EXPECT_EQ(news(), "");
    put(path, "two\n");
    EXPECT_EQ(news(), "two\n");
}

TEST_F(Watch, EmptiedAndWrittenBetweenTwoLooks)
{
    start(path);
    put(path, "shorter\n", O_TRUNC);
    EXPECT_EQ(news(), "shorter\n");
    put(path, "x\n", O_TRUNC);
    EXPECT_EQ(news(), "x\n");
}

TEST_F(Watch, EmptiedAndGrownPastItsOldEndBetweenTwoLooks)
{
    start(path);
    put(path, "first\n");
    EXPECT_EQ(news(), "first\n");
    put(path, "1\n2\n3\n4\n5\n6\n7\n8\n9\n", O_TRUNC);
    EXPECT_EQ(news(), "1\n2\n3\n4\n5\n6\n7\n8\n9\n");
}

TEST_F(Watch, CutFileGoesOnAtItsNewEnd)
{
    start(path);
    put(path, "one\ntwo\nthree\n");
    EXPECT_EQ(news(), "one\ntwo\nthree\n");
    cut(path, 8); // old, one
    EXPECT_EQ(news(), "");
    put(path, "four\n");
    EXPECT_EQ(news(), "four\n");
}

// Deliberate: once it was written behind the cut, the file starts unlike before, and a file
// that was written anew is far more common.
TEST_F(Watch, CutAndWrittenBetweenTwoLooksCountsAsWrittenAnew)
{
    start(path);
    put(path, "one\n");
    EXPECT_EQ(news(), "one\n");
    cut(path, 4);
    put(path, "2\n");
    EXPECT_EQ(news(), "old\n2\n");
}

TEST_F(Watch, TextCutOffBeforeItWasSeenIsLost)
{
    start(path);
    put(path, "seen\nunseen\n");
    cut(path, 9);
    EXPECT_EQ(news(), "seen\n");
}

// ---- the descriptors and the callback ----

TEST_F(Watch, NewsIsACopy)
{
    start(path);
    in_callback = [this] { cut(path, 0); };
    put(path, "first\n");
    EXPECT_EQ(news(), "first\n");
    in_callback = nullptr;
    put(path, "second\n");
    EXPECT_EQ(news(), "second\n");
}

TEST_F(Watch, TextLeftUnreadIsNotToldAgain)
{
    std::vector<std::pair<int, int>> calls;
    handle = vantor_open(
        path.c_str(),
        [](int first, void *context, int second) {
            static_cast<decltype(calls) *>(context)->emplace_back(first, second);
        },
        &calls);
    ASSERT_NE(handle, nullptr);
    for (const char *line : {"a longer line\n", "b\n", "other\n"}) {
        put(path, line);
        news();
    }
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].second, 14);
    EXPECT_EQ(calls[1].second, 2);
    EXPECT_EQ(calls[2].second, 6);
    EXPECT_EQ(calls[1].first, calls[0].first);
    char last[16] = "";
    EXPECT_EQ(read(calls[2].first, last, sizeof last), 6);
    EXPECT_STREQ(last, "other\n") << "the text stays until the next call";
}

TEST_F(Watch, DescriptorsAreNotInherited)
{
    int found = 0;
    start(path);
    for (int descriptor = 3; descriptor < 64; ++descriptor) {
        char number[32];
        char target[4096] = "";
        snprintf(number, sizeof number, "/proc/self/fd/%d", descriptor);
        if (readlink(number, target, sizeof target - 1) == -1)
            continue;
        bool ours = strstr(target, "inotify") || strstr(target, "eventfd") ||
                    strstr(target, "vantor") || path == target;
        found += ours;
        EXPECT_TRUE(!ours || (fcntl(descriptor, F_GETFD) & FD_CLOEXEC)) << target;
    }
    EXPECT_EQ(found, 4);
}

TEST_F(Watch, ProcessingWithoutEventsDoesNothing)
{
    start(path);
    for (int i = 0; i < 10; ++i)
        process();
    EXPECT_TRUE(sizes.empty());
    EXPECT_FALSE(readable());
}

TEST_F(Watch, SelectSeesTheDescriptor)
{
    start(path);
    put(path, std::string(2 * VANTOR_TEXT_MAX - 1, '\n'));
    for (int left = 2; left >= 0; --left) {
        fd_set set;
        timeval none = {0, 0};
        int descriptor = vantor_inotify_fd(handle);
        FD_ZERO(&set);
        FD_SET(descriptor, &set);
        ASSERT_EQ(select(descriptor + 1, &set, nullptr, nullptr, &none), left > 0);
        process();
    }
}

TEST_F(Watch, CallbackMayClose)
{
    int descriptors = open_descriptors();
    start(path);
    put(path, std::string(2 * VANTOR_TEXT_MAX, '\n'));
    in_callback = [this] { vantor_close(handle); };
    process();
    handle = nullptr;
    EXPECT_EQ(sizes.size(), 1u);
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(Watch, CallbackMayCloseAndOpenAnew)
{
    start(path);
    put(path, std::string(2 * VANTOR_TEXT_MAX, '\n'));
    in_callback = [this] {
        vantor_close(handle);
        start(path);
    };
    process();
    in_callback = nullptr;
    EXPECT_EQ(news(), "") << "what is there at the new start is old";
    put(path, "next\n");
    EXPECT_EQ(news(), "next\n");
}

TEST_F(Watch, NullHandles)
{
    vantor_close(nullptr);
    EXPECT_LT(vantor_inotify_fd(nullptr), 0);
    EXPECT_EQ(vantor_process_event(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Watch, HandlesAreIndependent)
{
    start(path);
    int count = 0;
    vantor_handle *other = vantor_open(
        path.c_str(), [](int, void *context, int) { ++*static_cast<int *>(context); },
        &count);
    ASSERT_NE(other, nullptr);
    put(path, "both\n");
    EXPECT_EQ(news(), "both\n");
    vantor_close(handle);
    handle = nullptr;
    EXPECT_EQ(vantor_process_event(other), 0);
    EXPECT_EQ(count, 1);
    vantor_close(other);
}

// ---- jumps out of signal handlers ----

static sigjmp_buf landing;
static volatile sig_atomic_t armed;

TEST_F(Watch, CallbackLeftBeforeReadingIsCalledAgain)
{
    static volatile int calls;
    static volatile bool read_first;
    calls = 0;
    read_first = false;
    handle = vantor_open(
        path.c_str(),
        [](int first, void *, int) {
            char byte;
            calls = calls + 1;
            EXPECT_EQ(read(first, &byte, read_first ? 1 : 0), read_first ? 1 : 0);
            siglongjmp(landing, 1);
        },
        nullptr);
    ASSERT_NE(handle, nullptr);
    put(path, "one\n");
    for (volatile int turn = 1; turn <= 3; turn = turn + 1) {
        EXPECT_TRUE(readable());
        read_first = turn == 3;
        if (sigsetjmp(landing, 1) == 0) {
            vantor_process_event(handle);
            ADD_FAILURE() << "no callback";
        }
        EXPECT_EQ(calls, turn);
    }
    EXPECT_TRUE(readable());
    EXPECT_EQ(vantor_process_event(handle), 0);
    EXPECT_EQ(calls, 3);
    EXPECT_FALSE(readable());
}

static void
jump(int)
{
    if (armed) {
        armed = 0;
        siglongjmp(landing, 1);
    }
}

static std::string caught;

// Takes news with the jump disarmed between reading and keeping it.
static void
take_disarmed(int first, void *, int second)
{
    static char piece[VANTOR_TEXT_MAX];
    armed = 0;
    ssize_t got = read(first, piece, sizeof piece);
    EXPECT_EQ(got, second);
    caught.append(piece, static_cast<size_t>(got));
    armed = 1;
}

TEST_F(Watch, JumpsAtAnyMomentLoseAndRepeatNothing)
{
    constexpr int lines = 20000;
    static volatile int jumps;
    static size_t size;
    jumps = 0;
    size = 0;
    caught.clear();
    handle = vantor_open(path.c_str(), take_disarmed, nullptr);
    ASSERT_NE(handle, nullptr);
    sigset_t alarm_only;
    sigemptyset(&alarm_only);
    sigaddset(&alarm_only, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm_only, nullptr); // the writer's mask
    std::thread writer([this] {
        for (int i = 0; i < lines; ++i)
            put(path, std::to_string(i) + "\n");
    });
    std::string *expected = new std::string;
    for (int i = 0; i < lines; ++i)
        *expected += std::to_string(i) + "\n";
    size = expected->size();

    struct sigaction action = {};
    struct sigaction before;
    action.sa_handler = jump;
    sigaction(SIGALRM, &action, &before);
    pthread_sigmask(SIG_UNBLOCK, &alarm_only, nullptr);
    itimerval never = {{0, 0}, {0, 0}};
    static volatile unsigned round;
    for (round = 0; caught.size() < size; round = round + 1) {
        if (sigsetjmp(landing, 1) != 0) {
            jumps = jumps + 1;
            continue;
        }
        readable(1000);
        // At ever another moment, and at times late enough for any machine to get on.
        itimerval once = {{0, 0},
                          {0, static_cast<suseconds_t>(1 + (round % 100) * (round % 100))}};
        setitimer(ITIMER_REAL, &once, nullptr);
        armed = 1;
        vantor_process_event(handle);
        armed = 0;
    }
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    writer.join();
    EXPECT_EQ(caught, *expected);
    EXPECT_GT(jumps, 0);
    delete expected;
}

// ---- two handles ----

class Two : public Watch
{
  protected:
    std::string other_path;
    vantor_handle *other = nullptr;
    std::string other_text;

    void SetUp() override
    {
        Watch::SetUp();
        other_path = dir + "/other";
        put(other_path, "");
        start(path);
        other = vantor_open(other_path.c_str(), take_other, this);
        ASSERT_NE(other, nullptr);
        put(path, "one\n");
        put(other_path, "two\n");
    }

    void TearDown() override
    {
        vantor_close(other);
        Watch::TearDown();
    }

    static void take_other(int first, void *context, int second)
    {
        Two *two = static_cast<Two *>(context);
        char piece[VANTOR_TEXT_MAX];
        ASSERT_EQ(read(first, piece, sizeof piece), second);
        two->other_text.append(piece, static_cast<size_t>(second));
        if (two->in_other)
            two->in_other();
    }

    std::function<void()> in_other;
};

TEST_F(Two, OneProcessedInTheCallbackOfTheOther)
{
    in_callback = [this] { EXPECT_EQ(vantor_process_event(other), 0); };
    EXPECT_EQ(news(), "one\n");
    EXPECT_EQ(other_text, "two\n");
    put(path, "three\n");
    put(other_path, "four\n");
    EXPECT_EQ(news(), "three\n");
    EXPECT_EQ(other_text, "two\nfour\n");
    EXPECT_EQ(news(), "");
}

TEST_F(Two, OneClosedInTheCallbackOfTheOther)
{
    in_callback = [this] {
        vantor_close(other);
        other = nullptr;
    };
    EXPECT_EQ(news(), "one\n");
    EXPECT_EQ(other_text, "");
}

TEST_F(Two, TheOuterOneClosedInTheInnerCallback)
{
    in_callback = [this] { EXPECT_EQ(vantor_process_event(other), 0); };
    in_other = [this] {
        vantor_close(handle);
        handle = nullptr;
    };
    processing = true;
    EXPECT_EQ(vantor_process_event(handle), 0);
    EXPECT_EQ(text, "one\n");
    EXPECT_EQ(other_text, "two\n");
    in_other = nullptr;
    put(other_path, "three\n");
    EXPECT_EQ(vantor_process_event(other), 0);
    EXPECT_EQ(other_text, "two\nthree\n");
}

TEST_F(Two, BothClosedInTheInnerCallback)
{
    in_callback = [this] { EXPECT_EQ(vantor_process_event(other), 0); };
    in_other = [this] {
        vantor_close(handle);
        vantor_close(other);
        handle = other = nullptr;
    };
    processing = true;
    EXPECT_EQ(vantor_process_event(handle), 0);
    EXPECT_EQ(text + other_text, "one\ntwo\n");
}

static jmp_buf back_here;

static void
leave(int, void *, int)
{
    longjmp(back_here, 1);
}

static void
process_and_leave(vantor_handle *handle)
{
    if (setjmp(back_here) == 0)
        vantor_process_event(handle);
}

// Callbacks that were left by a jump, of more handles than there are places for.
TEST_F(Two, ManyLeftByAJump)
{
    std::vector<vantor_handle *> handles;
    for (int i = 0; i < 40; ++i) {
        handles.push_back(vantor_open(path.c_str(), leave, nullptr));
        ASSERT_NE(handles.back(), nullptr);
        put(path, "left\n");
        process_and_leave(handles.back());
    }
    for (vantor_handle *left : handles)
        vantor_close(left);
    in_callback = [this] { EXPECT_EQ(vantor_process_event(other), 0); };
    EXPECT_EQ(news().substr(0, 9), "one\nleft\n");
    EXPECT_EQ(other_text, "two\n");
    EXPECT_EQ(news(), "");
}
