// Signals that suspend or end the process that reads: the terminal meanwhile and
// afterwards, and that no other process of its group hears of them.
#include "editor_signals.h"

#include <sys/resource.h>
#include <sys/wait.h>

class EditorProcess : public EditorSignals
{
};

// A child that reads lines in a process group of its own, and a bystander in that group,
// which does nothing and has every disposition at its default.
static pid_t child;
static pid_t bystander;
static bool told; // the child's handler was called

static void
child_says(const std::string &text)
{
    (void)!write(slave, text.data(), text.size());
}

static void
child_handler(int)
{
    told = true;
}

// Reads two lines and tells them.
[[noreturn]] static void
child_reads()
{
    alarm(test_seconds);
    scripted = false;
    for (int i = 0; i < 2; i++) {
        char *line = readline("> ");
        child_says(std::string("got:") + (line == nullptr ? end_of_input : line) +
                   (told ? " told" : "") + "\n");
        free(line);
    }
    _exit(0);
}

static void
start_child(int signo, void (*handler)(int))
{
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    fflush(nullptr);
    told = false;
    child = fork();
    if (child == 0) {
        struct rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        setpgid(0, 0);
        set_disposition(signo, handler);
        close(go[1]);
        char nothing;
        (void)!read(go[0], &nothing, 1); // until both are there
        child_reads();
    }
    close(go[0]);
    setpgid(child, child);
    bystander = fork();
    if (bystander == 0) {
        alarm(test_seconds);
        for (int each : signals)
            set_disposition(each, SIG_DFL);
        close(go[1]);
        setpgid(0, child);
        child_says("beside\n");
        for (;;)
            pause();
    }
    size_t from = shown.size();
    EXPECT_TRUE(sees("beside\r\n", from));
    close(go[1]);
    EXPECT_TRUE(sees("beside\r\n> ", from));
}

// How the child ended or stopped, in words.
static std::string
wait_for(pid_t process)
{
    int status = 0;
    if (waitpid(process, &status, WUNTRACED) != process)
        return "lost";
    if (WIFSTOPPED(status))
        return std::string("stopped: ") + strsignal(WSTOPSIG(status));
    if (WIFSIGNALED(status))
        return strsignal(WTERMSIG(status));
    return "exit " + std::to_string(WEXITSTATUS(status));
}

// What the bystander got first. It is sent the last of all signals: any other one comes
// before.
static std::string
bystander_got()
{
    kill(bystander, SIGRTMAX);
    std::string first = wait_for(bystander);
    if (first.compare(0, 7, "stopped") == 0) {
        kill(bystander, SIGKILL);
        wait_for(bystander);
    }
    return first == strsignal(SIGRTMAX) ? "nothing" : first;
}

TEST_F(EditorProcess, SuspendedByDefaultItGivesTheTerminalBackMeanwhile)
{
    start_child(SIGTSTP, SIG_DFL);
    type("ab");
    ASSERT_TRUE(sees("> ab"));
    size_t from = shown.size();
    kill(child, SIGTSTP);
    EXPECT_EQ(wait_for(child), std::string("stopped: ") + strsignal(SIGTSTP));
    EXPECT_TRUE(::same(settings(), original));
    kill(child, SIGCONT);
    EXPECT_TRUE(sees("> ab", from)) << "drawn again";
    EXPECT_TRUE(wait_until(is_raw));
    type("c\r");
    EXPECT_TRUE(sees("got:abc"));
    EXPECT_TRUE(wait_until(is_raw)) << "the next line is read";
    kill(child, SIGKILL);
    wait_for(child);
    EXPECT_EQ(bystander_got(), "nothing");
}

TEST_F(EditorProcess, TheKeyForSuspendStopsThisProcessAlone)
{
    rl_parse_and_bind("bind ^G rl_tstp");
    start_child(SIGTSTP, SIG_DFL);
    type("ab\007");
    EXPECT_EQ(wait_for(child), std::string("stopped: ") + strsignal(SIGTSTP));
    EXPECT_TRUE(::same(settings(), original));
    kill(child, SIGCONT);
    EXPECT_TRUE(wait_until(is_raw));
    type("c\r");
    EXPECT_TRUE(sees("got:abc"));
    type("d\r");
    EXPECT_EQ(wait_for(child), "exit 0");
    EXPECT_EQ(bystander_got(), "nothing");
}

class EditorProcessEnding : public EditorProcess, public ::testing::WithParamInterface<int>
{
};

TEST_P(EditorProcessEnding, TheTerminalIsGivenBackFirst)
{
    start_child(GetParam(), SIG_DFL);
    type("ab");
    ASSERT_TRUE(sees("> ab"));
    kill(child, GetParam());
    EXPECT_EQ(wait_for(child), strsignal(GetParam()));
    EXPECT_TRUE(::same(settings(), original));
    EXPECT_EQ(bystander_got(), "nothing");
}

INSTANTIATE_TEST_SUITE_P(Each, EditorProcessEnding,
                         ::testing::Values(SIGTERM, SIGHUP, SIGQUIT, SIGINT));

TEST_F(EditorProcess, HandledTheSignalGoesToNoOtherProcess)
{
    for (int signo : {SIGINT, SIGTSTP, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH}) {
        start_child(signo, child_handler);
        size_t from = shown.size();
        type("ab");
        ASSERT_TRUE(sees("ab", from));
        kill(child, signo);
        type("c\r");
        EXPECT_TRUE(sees("got:abc told", from)) << strsignal(signo);
        type("d\r");
        EXPECT_EQ(wait_for(child), "exit 0");
        EXPECT_TRUE(::same(settings(), original));
        EXPECT_EQ(bystander_got(), "nothing");
    }
}

TEST_F(EditorProcess, StoppedAndContinuedFromOutside)
{
    start_child(SIGCONT, child_handler);
    type("ab");
    ASSERT_TRUE(sees("> ab"));
    kill(child, SIGSTOP);
    EXPECT_EQ(wait_for(child), std::string("stopped: ") + strsignal(SIGSTOP));
    tcsetattr(slave, TCSANOW, &original); // as a shell does with a stopped job's terminal
    size_t from = shown.size();
    kill(child, SIGCONT);
    EXPECT_TRUE(sees("> ab", from)) << "drawn again";
    EXPECT_TRUE(is_raw());
    type("c\r");
    EXPECT_TRUE(sees("got:abc told"));
    type("d\r");
    EXPECT_EQ(wait_for(child), "exit 0");
    EXPECT_TRUE(::same(settings(), original));
    bystander_got();
}
