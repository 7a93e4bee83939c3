// One line after the other: the line as it comes back, the window's size, and instances
// that are started again.
#include "editor_in_process.h"

#include <dlfcn.h>
#include <set>

extern "C" int tgetent(char *, const char *);

// The buffers that terminal descriptions were asked into.
static std::set<char *> descriptions;

// In the place of the terminal library's, which does the work.
extern "C" int
tgetent(char *buffer, const char *name)
{
    static const auto library =
        reinterpret_cast<int (*)(char *, const char *)>(dlsym(RTLD_NEXT, "tgetent"));
    descriptions.insert(buffer);
    return library(buffer, name);
}

class Editor : public EditorTest
{
};

static char **
complete_nothing(const char *, int, int)
{
    rl_attempted_completion_over = 1;
    return nullptr;
}

// ---- the line as it comes back ----

class EditorPipe : public Editor
{
  protected:
    void SetUp() override
    {
        Editor::SetUp();
        ASSERT_EQ(pipe(ends), 0);
        start_editor(fdopen(ends[0], "r"), fopen("/dev/null", "w"));
        scripted = false;
    }

    void give(const std::string &text)
    {
        ASSERT_EQ(write(ends[1], text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
        close(ends[1]);
    }

    int ends[2];
};

TEST_F(EditorPipe, OneTerminatorOfEitherKind)
{
    give("abc\rdef\nghi\r\njkl\n\r\rmno");
    for (const char *line : {"abc", "def", "ghi", "", "jkl", "", "", "mno"})
        EXPECT_EQ(read_line({}), line);
    EXPECT_EQ(read_line({}), end_of_input);
}

TEST_F(EditorPipe, LineWithANul)
{
    std::string nul(1, '\0');
    give(nul + std::string(300, 'y') + "\nab" + nul + "\ncd\r" + nul + "\n" + nul);
    for (const char *line : {"", "ab", "cd", "", ""})
        EXPECT_EQ(read_line({}), line);
    EXPECT_EQ(read_line({}), end_of_input);
}

TEST_F(Editor, QuotedTerminatorStays)
{
    EXPECT_EQ(read_line({keys("ab\026"), keys("\n"), keys("\r")}), "ab\n");
    EXPECT_EQ(read_line({keys("ab\026"), keys("\r"), keys("\r")}), "ab\r");
}

// ---- the window ----

static int
width()
{
    int columns = 0;
    rl_get_screen_size(nullptr, &columns);
    return columns;
}

TEST_F(Editor, SetWidthHoldsUntilTheWindowChanges)
{
    int within = 0;
    auto look_within = then([&] { within = width(); });
    EXPECT_EQ(width(), 80);
    rl_set_screen_size(24, 40);
    for (int i = 0; i < 2; i++) {
        read_line({look_within, keys("ab\r")});
        EXPECT_EQ(within, 40);
    }
    set_window(24, 100);
    read_line({look_within, keys("ab\r")});
    EXPECT_EQ(within, 100);
    rl_set_screen_size(24, 60);
    read_line({look_within, keys("ab\r")});
    EXPECT_EQ(within, 60);
    set_window(0, 0); // says nothing
    read_line({look_within, keys("ab\r")});
    EXPECT_EQ(within, 60);
}

TEST_F(Editor, SetWidthWrapsTheLine)
{
    rl_set_screen_size(24, 20);
    EXPECT_EQ(read_line({keys(std::string(30, 'x')), keys("\r")}), std::string(30, 'x'));
    EXPECT_TRUE(sees("> " + std::string(18, 'x')));
    EXPECT_EQ(count_shown(std::string(19, 'x')), 0);
}

// The display knows of no row then, not even of one to go below. No key does that.
TEST_F(Editor, EnterWhereNothingIsDrawn)
{
    auto clear = [] {
        fflush(rl_outstream);
        re_clear_display(sig_reader());
    };
    EXPECT_EQ(read_line({keys("ab"), then(clear), keys("\r")}), "ab");
    EXPECT_TRUE(sees("ab\r\n"));
    EXPECT_EQ(shown, "> ab\r\n");
}

// ---- starting again ----

static void
make_instance()
{
    ASSERT_EQ(rl_initialize(), 0);
}

// The bytes that 300 instances keep, behind so many that what the allocator keeps for later
// has settled. The text that is shown has its room before: of what it grew out of, piece by
// piece as it came, the allocator would keep pieces that count as taken.
static size_t
kept_by_instances(int settled = 300, void (*make)() = make_instance)
{
    shown.reserve(1 << 20);
    size_t before = 0;
    for (int i = 0; i < settled + 300; i++) {
        if (i == settled)
            before = allocated();
        make();
        shown.clear();
    }
    size_t after = allocated();
    return after > before ? after - before : 0;
}

TEST_F(Editor, ANewInstanceLosesNoMemory)
{
    EXPECT_LT(kept_by_instances(), 1000U);
}

// The instance that reads is kept until its line is over.
TEST_F(Editor, ANewInstanceWithinAReadLosesNoMemory)
{
    auto make_within = [] {
        read_line({then([] { ASSERT_EQ(rl_initialize(), 0); }), keys("a\r")});
    };
    EXPECT_LT(kept_by_instances(1200, make_within), 1000U);
}

TEST_F(Editor, ANewInstanceLosesNoneOfTheSettings)
{
    char path[] = "/tmp/editrc.XXXXXX";
    FILE *file = fdopen(mkstemp(path), "w");
    ASSERT_NE(file, nullptr);
    fputs(
        "bind -s ^T text\nbind -s ^X^T more\nbind -s ^X^T other\nbind ^X^U ed-move-to-beg\n"
        "bind -k down ed-move-to-end\nbind -k -s up string\nbind -k -s left first\n"
        "bind -k -s left second\nbind -r ^X^U\nbind -a ^X vi-undo\nsettc li 30\n"
        "settc al \\E[L\nsetty -d -echo\nhistory size 7\nedit on\nnothing\n",
        file);
    ASSERT_EQ(fclose(file), 0);
    setenv("EDITRC", path, 1);
    EXPECT_LT(kept_by_instances(), 1000U);
    unlink(path);
}

// The terminal library frees what it made for a buffer when it gets that buffer again.
TEST_F(Editor, DescriptionsAreReadIntoOneBuffer)
{
    descriptions.clear();
    std::vector<std::string> others(40); // so that an instance's memory is elsewhere
    for (size_t i = 0; i < 200; i++) {
        std::string other(1000 + 700 * i % 2000, 'x');
        ASSERT_EQ(rl_initialize(), 0);
        others[i % others.size()].swap(other);
    }
    EXPECT_EQ(descriptions.size(), 1U);
}

TEST_F(Editor, TerminalTypeIsReadAnew)
{
    std::string within;
    auto look_within = then([&] { within = sig_reader()->el_terminal.t_name; });
    read_line({look_within, keys("\r")});
    EXPECT_EQ(within, "xterm");
    setenv("TERM", "vt100", 1);
    ASSERT_EQ(rl_initialize(), 0);
    EXPECT_STREQ(rl_terminal_name, "vt100");
    read_line({look_within, keys("\r")});
    EXPECT_EQ(within, "vt100");
    static char asked_for[] = "vt220";
    rl_terminal_name = asked_for;
    ASSERT_EQ(rl_initialize(), 0);
    ASSERT_EQ(rl_initialize(), 0);
    EXPECT_EQ(rl_terminal_name, asked_for);
    read_line({look_within, keys("\r")});
    EXPECT_EQ(within, "vt220");
    rl_terminal_name = nullptr;
}

static char **
start_anew(const char *, int, int)
{
    rl_initialize();
    return complete_nothing(nullptr, 0, 0);
}

static char **
start_anew_twice(const char *, int, int)
{
    rl_initialize();
    rl_initialize();
    return complete_nothing(nullptr, 0, 0);
}

TEST_F(Editor, StartedAnewWithinARead)
{
    for (auto *hook : {start_anew, start_anew_twice}) {
        rl_attempted_completion_function = hook;
        EditLine *reading = nullptr;
        EditLine *next = nullptr;
        bool edits = false;
        EXPECT_EQ(read_line({keys("ab"), then([&] { reading = sig_reader(); }), keys("\t"),
                             then([&] { EXPECT_EQ(sig_reader(), reading); }),
                             keys("d\033[Dc\r")}),
                  "abcd");
        EXPECT_TRUE(same(settings(), original));
        rl_attempted_completion_function = complete_nothing;
        EXPECT_EQ(read_line({then([&] {
                                 next = sig_reader();
                                 edits = is_raw() && (next->el_flags & EDIT_DISABLED) == 0;
                             }),
                             keys("ab\033[Dc\r")}),
                  "acb");
        EXPECT_TRUE(edits);
        EXPECT_NE(next, reading);
        EXPECT_TRUE(same(settings(), original));
    }
}

TEST_F(Editor, StartedAnewByTheReader)
{
    EXPECT_EQ(read_line({keys("ab"), then([] { rl_initialize(); }), keys("d\033[Dc\r")}),
              "abcd");
    EXPECT_EQ(read_line({keys("ab\033[Dc\r")}), "acb");
    EXPECT_TRUE(same(settings(), original));
}

TEST_F(Editor, StartedAnewWithinAReadWithoutATerminal)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    start_editor(fdopen(ends[0], "r"), fopen("/dev/null", "w"));
    scripted = false;
    before_read = [] {
        before_read = nullptr;
        rl_initialize();
    };
    ASSERT_EQ(write(ends[1], "abc\ndef\n", 8), 8);
    close(ends[1]);
    EXPECT_EQ(read_line({}), "abc");
    EXPECT_EQ(read_line({}), "def");
}
