// The terminal's settings: raw mode for every line, and the user's own settings found again
// after each way out.
#include "editor_in_process.h"

#include <dlfcn.h>
#include <stdarg.h>

// ---- the changes of settings that the editor makes ----

static int changes;
static int discarding_changes; // those that throw unread input away
static bool raw_before_prompt; // when the editor last asked for the window's size
static int moments;            // that the editor waited before the settings went back
static std::string typed_late; // in the next of them

static void
count_change(int fd, bool discards)
{
    if (fd != slave)
        return;
    changes++;
    if (discards)
        discarding_changes++;
}

extern "C" {
int
tcsetattr(int fd, int action, const struct termios *wanted) noexcept
{
    static auto *call =
        reinterpret_cast<decltype(&tcsetattr)>(dlsym(RTLD_NEXT, "tcsetattr"));
    count_change(fd, action == TCSAFLUSH);
    return call(fd, action, wanted);
}

int
ioctl(int fd, unsigned long request, ...) noexcept
{
    static auto *call = reinterpret_cast<decltype(&ioctl)>(dlsym(RTLD_NEXT, "ioctl"));
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (request == TCSETS || request == TCSETSW || request == TCSETSF)
        count_change(fd, request == TCSETSF);
    if (request == TIOCGWINSZ)
        raw_before_prompt = is_raw();
    return call(fd, request, argument);
}

// The moment that the editor gives a paste to go on.
int
nanosleep(const struct timespec *, struct timespec *)
{
    moments++;
    if (!typed_late.empty()) {
        int before = pending();
        type(typed_late);
        EXPECT_TRUE(is_pending(before + static_cast<int>(typed_late.size())));
        typed_late.clear();
    }
    return 0;
}
}

static void
set_settings(const struct termios &wanted)
{
    tcsetattr(slave, TCSANOW, &wanted);
    changes = discarding_changes = 0;
}

class EditorTty : public EditorTest
{
};

// ---- raw mode ----

TEST_F(EditorTty, RawBeforeThePromptWhenNothingIsPending)
{
    EXPECT_EQ(read_line({keys("ab\033[Dc\r")}), "acb");
    EXPECT_TRUE(raw_before_prompt);
    EXPECT_TRUE(same(settings(), original));
}

static int cooked_reads;

TEST_F(EditorTty, RawBeforeThePromptWhenLinesArePending)
{
    cooked_reads = 0;
    before_read = [] { cooked_reads += !is_raw(); };
    type("one\ntwo\nab\033[Dc\n");
    ASSERT_TRUE(is_pending(15));
    for (const char *line : {"one", "two", "acb"}) {
        raw_before_prompt = false;
        EXPECT_EQ(read_line({}), line);
        EXPECT_TRUE(raw_before_prompt) << line;
        EXPECT_TRUE(same(settings(), original)) << line;
    }
    EXPECT_EQ(cooked_reads, 0);
}

// Gives the editor's descriptor another file behind its back.
class AnotherInput
{
  public:
    explicit AnotherInput(const std::string &text)
    {
        EXPECT_EQ(pipe(ends), 0);
        EXPECT_EQ(write(ends[1], text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
        kept = dup(slave);
        dup2(ends[0], slave);
        scripted = false;
    }

    ~AnotherInput()
    {
        dup2(kept, slave);
        for (int fd : {kept, ends[0], ends[1]})
            close(fd);
        scripted = true;
        typed = taken = 0;
    }

  private:
    int ends[2];
    int kept;
};

TEST_F(EditorTty, LineIsReadAlthoughRawModeCannotBeSet)
{
    ::testing::internal::CaptureStderr();
    {
        AnotherInput input("abc\ndef\n");
        EXPECT_EQ(read_line({}), "abc");
        EXPECT_EQ(read_line({}), "def");
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Could not set rawmode.\nCould not set rawmode.\n");
    EXPECT_EQ(read_line({keys("ab\033[Dc\r")}), "acb");
    EXPECT_TRUE(same(settings(), original));
}

TEST_F(EditorTty, NoLineWhenRawModeCannotBeSetAndNothingIsPending)
{
    ::testing::internal::CaptureStderr();
    {
        AnotherInput input("");
        EXPECT_EQ(read_line({}), end_of_input);
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(shown, "") << "no prompt either";
    EXPECT_EQ(read_line({keys("abc\r")}), "abc");
}

// ---- settings as found ----

struct Unusual {
    const char *name;
    void (*change)(struct termios *);
};

static void
PrintTo(const Unusual &each, std::ostream *out)
{
    *out << each.name;
}

static const Unusual unusual[] = {
    {"usual", [](struct termios *) {}},
    {"noechoctl", [](struct termios *t) { t->c_lflag &= ~static_cast<tcflag_t>(ECHOCTL); }},
    {"noflsh", [](struct termios *t) { t->c_lflag |= NOFLSH; }},
    {"noicrnl", [](struct termios *t) { t->c_iflag &= ~static_cast<tcflag_t>(ICRNL); }},
    {"noicanon", [](struct termios *t) { t->c_lflag &= ~static_cast<tcflag_t>(ICANON); }},
    {"noisig", [](struct termios *t) { t->c_lflag &= ~static_cast<tcflag_t>(ISIG); }},
    {"noiexten", [](struct termios *t) { t->c_lflag &= ~static_cast<tcflag_t>(IEXTEN); }},
    {"igncr", [](struct termios *t) { t->c_iflag |= IGNCR | INLCR; }},
    {"ixoff", [](struct termios *t) { t->c_iflag |= IXOFF | IXANY; }},
    {"echonl", [](struct termios *t) { t->c_lflag |= ECHONL; }},
    {"onlret", [](struct termios *t) { t->c_oflag |= ONLRET; }},
    {"noopost", [](struct termios *t) { t->c_oflag &= ~static_cast<tcflag_t>(OPOST); }},
    {"keys",
     [](struct termios *t) {
         t->c_cc[VINTR] = 'B' & 037;
         t->c_cc[VSUSP] = _POSIX_VDISABLE;
         t->c_cc[VERASE] = 'H' & 037;
         t->c_cc[VEOL] = ';';
         t->c_cc[VMIN] = 3;
         t->c_cc[VTIME] = 7;
     }},
};

class EditorSettings : public EditorTty, public ::testing::WithParamInterface<Unusual>
{
  protected:
    void SetUp() override
    {
        EditorTty::SetUp();
        GetParam().change(&original);
        set_settings(original);
    }
};

static char **
end_the_read(const char *, int, int)
{
    rl_attempted_completion_over = 1;
    rl_done = 1;
    return nullptr;
}

static char **
complete_nothing(const char *, int, int)
{
    rl_attempted_completion_over = 1;
    return nullptr;
}

TEST_P(EditorSettings, AfterEveryWayOut)
{
    EXPECT_EQ(read_line({keys("ab\n")}), "ab");
    EXPECT_TRUE(same(settings(), original)) << "a line";
    EXPECT_EQ(changes, 2);
    rl_attempted_completion_function = complete_nothing;
    EXPECT_EQ(read_line({keys("ab\t"), keys("c\n")}), "abc");
    EXPECT_TRUE(same(settings(), original)) << "a line with a completion";
    EXPECT_EQ(read_line({keys("\004")}), end_of_input);
    EXPECT_TRUE(same(settings(), original)) << "the key for the end";
    EXPECT_EQ(read_line({keys("ab")}), end_of_input);
    EXPECT_TRUE(same(settings(), original)) << "the end of the input";
    rl_attempted_completion_function = end_the_read;
    EXPECT_EQ(read_line({keys("ab\t")}), end_of_input);
    EXPECT_TRUE(same(settings(), original)) << "a completion that ends the read";
    EXPECT_EQ(read_line({keys("a\026"), keys("b\n")}), "ab");
    EXPECT_TRUE(same(settings(), original)) << "a quoted key";
    EXPECT_EQ(read_line({keys("a\026")}), end_of_input);
    EXPECT_TRUE(same(settings(), original)) << "the end within a quoted key";
    changes = 0;
    ASSERT_EQ(rl_initialize(), 0);
    EXPECT_EQ(changes, 0) << "a new instance";
    EXPECT_EQ(read_line({keys("ab\033[Dc\n")}), "acb");
    EXPECT_TRUE(same(settings(), original)) << "a line of the new instance";
    EXPECT_EQ(discarding_changes, 0);
}

INSTANTIATE_TEST_SUITE_P(Each, EditorSettings, ::testing::ValuesIn(unusual),
                         [](const auto &each) { return std::string(each.param.name); });

TEST_F(EditorTty, SettingsThatTheUserChangesBetweenLinesAreTheOnesKept)
{
    read_line({keys("ab\n")});
    for (const Unusual &each : unusual) {
        struct termios changed = original;
        each.change(&changed);
        set_settings(changed);
        EXPECT_EQ(read_line({keys("ab\n")}), "ab");
        EXPECT_TRUE(same(settings(), changed)) << each.name;
    }
}

// As with "stty" where the shell was paused and is in the foreground again.
TEST_F(EditorTty, SettingsThatTheUserChangesInAPauseHoldForTheRestOfTheLine)
{
    auto pause = then([this] {
        struct termios changed = original;
        changed.c_cc[VERASE] = 'z';
        set_settings(changed);
        raise(SIGCONT);
        serve_signals();
        EXPECT_TRUE(is_raw());
    });
    EXPECT_EQ(read_line({keys("ab"), pause, keys("zc\r")}), "ac");
}

TEST_F(EditorTty, TypedAheadTextSurvivesANewInstance)
{
    EXPECT_EQ(read_line({keys("ab\n")}), "ab");
    size_t from = shown.size();
    type("cd");
    ASSERT_TRUE(sees("cd", from)) << "echoed by the terminal";
    ASSERT_EQ(rl_initialize(), 0);
    EXPECT_EQ(read_line({keys("e\r")}), "cde");
    EXPECT_TRUE(same(settings(), original));
}

static std::string inner_line;

static char **
read_within(const char *, int, int)
{
    char *line = readline("inner> ");
    inner_line = line == nullptr ? end_of_input : line;
    free(line);
    return complete_nothing(nullptr, 0, 0);
}

TEST_F(EditorTty, ReadWithinAReadGetsNoLine)
{
    rl_attempted_completion_function = read_within;
    EXPECT_EQ(read_line({keys("ab\t"), keys("d\033[Dc\r")}), "abcd");
    EXPECT_EQ(inner_line, end_of_input);
    EXPECT_TRUE(same(settings(), original));
    EXPECT_EQ(read_line({keys("ab\033[Dc\r")}), "acb");
    EXPECT_TRUE(same(settings(), original));
}

// ---- what the terminal has echoed itself ----

// Somebody else types: what this process writes may stand in the row. The other process is
// only reaped with this one, or its bytes would count as ours.
static void
others_type(const std::string &text)
{
    typed += text.size();
    if (fork() == 0)
        _exit(write(master, text.data(), text.size()) < 0);
}

// Keys of any kind: the row has nothing but their echo.
TEST_F(EditorTty, TypedAheadIsClearedBeforeThePrompt)
{
    // The last key is there before it is waited for, or the next read begins at once.
    EXPECT_EQ(read_line({keys("ab\r")}), "ab");
    for (const char *ahead : {"abc", "a\tb", "\033[D\001", "\303\251"}) {
        size_t from = shown.size();
        others_type(ahead);
        ASSERT_TRUE(wait_until([&] { return shown.size() > from; })) << "the echo";
        read_line({keys("\025d\r")});
        EXPECT_NE(shown.find("\r\033[K> ", from), std::string::npos) << shown;
    }
}

TEST_F(EditorTty, TypedAheadOverTheRowsEndIsClearedFromTheLastRow)
{
    EXPECT_EQ(read_line({keys("ab\r")}), "ab");
    size_t from = shown.size();
    std::string text(90, 'a');
    others_type(text);
    ASSERT_TRUE(sees(text, from));
    EXPECT_EQ(read_line({keys("\r")}), text);
    EXPECT_EQ(shown.substr(from + 90, 6), "\r\033[K> ");
}

// What this process has written since may stand in the row, before the echo or behind it.
TEST_F(EditorTty, TypedAheadBesideOtherTextStays)
{
    EXPECT_EQ(read_line({keys("ab\r")}), "ab");
    size_t from = shown.size();
    others_type("abc");
    ASSERT_TRUE(sees("abc", from));
    ASSERT_EQ(write(slave, "name: ", 6), 6);
    EXPECT_EQ(read_line({keys("d\r")}), "abcd");
    EXPECT_EQ(shown.substr(from), "abcname: > abcd\r\n");
}

TEST_F(EditorTty, TypedAheadOfTheFirstReadStays)
{
    others_type("abc");
    ASSERT_TRUE(sees("abc"));
    EXPECT_EQ(read_line({keys("d\r")}), "abcd");
    EXPECT_EQ(shown, "abc> abcd\r\n");
}

TEST_F(EditorTty, WhatCameInRawModeHasNotBeenEchoed)
{
    EXPECT_EQ(read_line({keys("\rab")}), "");
    EXPECT_EQ(read_line({keys("\r")}), "ab");
    EXPECT_EQ(shown, "> \r\n> ab\r\n");
}

TEST_F(EditorTty, APasteThatGoesOnIsNotEchoed)
{
    moments = 0;
    typed_late = "ab\n";
    type("\n\n");
    ASSERT_TRUE(is_pending(2));
    ASSERT_TRUE(sees("\r\n\r\n")); // the echo may come later
    size_t from = shown.size();
    for (const char *line : {"", "", "ab"})
        EXPECT_EQ(read_line({}), line);
    EXPECT_EQ(shown.substr(from), "> \r\n> \r\n> ab\r\n");
    EXPECT_GT(moments, 0);
}

TEST_F(EditorTty, APasteThatIsOverIsWaitedForOnce)
{
    moments = 0;
    type("\n\n\n\n");
    ASSERT_TRUE(is_pending(4));
    EXPECT_EQ(read_line({}), "");
    int once = moments;
    EXPECT_GT(once, 0);
    for (int number = 0; number < 3; number++)
        EXPECT_EQ(read_line({}), "");
    EXPECT_EQ(moments, once);
    EXPECT_EQ(read_line({keys("\n")}), "");
    EXPECT_EQ(moments, once) << "a line that is typed";
}
