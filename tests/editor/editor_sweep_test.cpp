// A signal at each of the editor's system calls in turn, at the very end of a read, and
// many thousands of them at random moments: each is passed on exactly once, and nothing is
// lost.
#include "editor_signals.h"

class EditorSweep : public EditorSignals
{
};

// ---- at every system call ----

// Reads one line for each of the read's steps, with the signal raised there. Returns how
// many steps there were; the last read had none.
static int
sweep(int signo, std::string (*read)(), void (*check)(int, const std::string &))
{
    signal_raised = signo;
    for (int at = 1;; at++) {
        set_script({});
        type("ab\n");
        is_pending(3);
        steps = 0;
        signal_at = at;
        std::string line = read();
        signal_at = 0;
        bool raised = steps >= at;
        tcflush(slave, TCIFLUSH);
        typed = taken = 0;
        drain();
        shown.clear();
        if (!raised)
            return at;
        check(at, line);
        if (::testing::Test::HasFailure())
            return at;
    }
}

static struct termios settings_before;
static std::vector<struct sigaction> dispositions_before;

static void
check_as_found(int at)
{
    EXPECT_TRUE(same(settings(), settings_before)) << "step " << at;
    EXPECT_EQ(changed_since(dispositions_before), 0) << "step " << at;
    EXPECT_EQ(rl_signal_level, 0) << "step " << at;
}

static void
check_once(int at, const std::string &line)
{
    EXPECT_EQ(calls, 1) << "step " << at;
    EXPECT_EQ(line, "ab") << "step " << at;
    calls = 0;
    check_as_found(at);
}

// A jump, or, in the last steps, the program's own handler after the line.
static void
check_jump(int at, const std::string &line)
{
    EXPECT_EQ(jumps + calls, 1) << "step " << at;
    EXPECT_EQ(line == "ab", calls == 1) << "step " << at;
    calls = jumps = 0;
    check_as_found(at);
}

static std::string
plain_line()
{
    char *line = readline("> ");
    std::string result = line == nullptr ? end_of_input : line;
    free(line);
    return result;
}

TEST_F(EditorSweep, JumpAtEverySystemCall)
{
    for (int signo : {SIGINT, SIGTSTP}) {
        set_disposition(signo, plain);
        settings_before = original;
        dispositions_before = dispositions();
        EXPECT_GT(sweep(signo, guarded_line, check_jump), 40);
        shown.reserve(shown.size() + (1 << 20)); // what the user has seen grows, too
        size_t before = allocated();
        sweep(signo, guarded_line, check_jump);
        EXPECT_LT(allocated(), before + 500);
    }
}

TEST_F(EditorSweep, HandlerAtEverySystemCall)
{
    settings_before = original;
    for (int signo : signals) {
        set_disposition(signo, plain);
        dispositions_before = dispositions();
        EXPECT_GT(sweep(signo, plain_line, check_once), 40) << strsignal(signo);
    }
}

// Each read is the first one that knows of the handler: the one before had the default.
static std::string
line_after_another_disposition()
{
    int at = signal_at;
    int signo = signal_raised;
    signal_at = 0;
    set_disposition(signo, SIG_DFL);
    free(readline("> "));
    set_disposition(signo, plain);
    type("ab\n");
    is_pending(3);
    steps = 0;
    signal_at = at;
    return plain_line();
}

TEST_F(EditorSweep, NewHandlerAtEverySystemCall)
{
    settings_before = original;
    for (int signo : {SIGTERM, SIGHUP, SIGQUIT, SIGWINCH}) {
        set_disposition(signo, plain);
        dispositions_before = dispositions();
        EXPECT_EXIT(
            {
                sweep(signo, line_after_another_disposition, check_once);
                _exit(HasFailure() ? 1 : 0);
            },
            ::testing::ExitedWithCode(0), "")
            << strsignal(signo);
    }
}

// ---- the line that a late interrupt would lose ----

static int late_steps;

// Once the line has been taken the dispositions go back: the terminal is cooked by then.
static void
interrupt_late()
{
    if (taken < typed || is_raw() || jumps > 0)
        return;
    again = nullptr;
    late_steps++;
    raise(SIGINT);
}

TEST_F(EditorSweep, InterruptAfterTheLineLosesNoMemory)
{
    set_disposition(SIGINT, plain);
    std::string text(1000, 'x');
    size_t before = 0;
    late_steps = 0;
    for (int i = 0; i < 20; i++) {
        jumps = 0;
        set_script({keys(text), then([] { at_step = interrupt_late; }), keys("\r")});
        EXPECT_EQ(guarded_line(), interrupted);
        drain();
        shown.clear();
        if (i == 5)
            before = allocated();
    }
    EXPECT_EQ(late_steps, 20);
    EXPECT_LT(allocated(), before + 1000);
}

// ---- a storm ----

static std::atomic<int> sent;
static pthread_t reading_thread;
static std::atomic<bool> storm_over;

// Sends a signal, to this thread, to the reading one or to whichever takes it, as soon as
// the last one has come to its end, after a pause of no fixed length.
static void *
send_storm(void *)
{
    unsigned random = 1;
    for (int i = 0; i < 10000; i++) {
        int signo = i % 2 == 0 ? SIGINT : SIGTSTP;
        random = random * 1103515245 + 12345;
        for (unsigned pause = (random >> 16) % 6000; pause > 0; pause--)
            asm volatile("");
        sent = i + 1;
        if (i % 3 == 0)
            pthread_kill(pthread_self(), signo);
        else if (i % 3 == 1)
            pthread_kill(reading_thread, signo);
        else
            kill(getpid(), signo);
        while (jumps + calls < sent)
            sched_yield();
    }
    storm_over = true;
    kill(getpid(), SIGCONT);
    return nullptr;
}

TEST_F(EditorSweep, StormOfInterrupts)
{
    set_disposition(SIGINT, plain);
    set_disposition(SIGTSTP, plain);
    std::vector<struct sigaction> before = dispositions();
    reading_thread = pthread_self();
    storm_over = false;
    set_script({});
    scripted = false;
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, send_storm, nullptr), 0);
    size_t allocated_early = 0;
    int lines = 0;
    for (int i = 0; !storm_over; i++) {
        if (pending() == 0)
            (void)!write(master, "some keys\n", 10);
        std::string line = guarded_line();
        if (line != interrupted && line != suspended)
            lines++;
        drain();
        shown.clear();
        if (i == 1000)
            allocated_early = allocated();
    }
    pthread_join(thread, nullptr);
    scripted = true;
    EXPECT_EQ(jumps + calls, 10000);
    EXPECT_GT(jumps, 1000);
    EXPECT_GT(lines, 0);
    EXPECT_LT(allocated(), allocated_early + 2000);
    EXPECT_TRUE(::same(settings(), original));
    EXPECT_EQ(changed_since(before), 0);
    tcflush(slave, TCIFLUSH);
    typed = taken = 0;
    EXPECT_EQ(read_line({keys("\025ab\r")}), "ab");
}
