// The guard against floods of pending input, switched on as only the wide setter can: its
// option, its thresholds, its echo, and editing and the terminal's settings after it.
#include "editor_in_process.h"

extern "C" {
#include "read.h"
}

class EditorFlood : public EditorTest
{
  protected:
    EditLine *el = nullptr;

    // Reads a line behind which the text is pending when it ends.
    void read_with_pending(const std::string &text, bool guarded = true)
    {
        auto end_line = [&] {
            el = sig_reader();
            EXPECT_EQ(el_wset(el, EL_TTY_OVERFLOW_FIX, guarded ? 1 : 0), 0);
            type("\r" + text);
            EXPECT_TRUE(is_pending(static_cast<int>(text.size()) + 1));
        };

        EXPECT_EQ(read_line({keys("first"), then(end_line)}), "first");
    }

    bool edits() const
    {
        return (el->el_flags & EDIT_DISABLED) == 0;
    }
};

// ---- the option ----

TEST_F(EditorFlood, OptionTwentyFive)
{
    EXPECT_EQ(EL_TTY_OVERFLOW_FIX, 25);
    EXPECT_EQ(EL_SAFEREAD, 26);
    el = el_init("test", rl_instream, rl_outstream, stderr);
    int flags = el->el_flags;
    EXPECT_EQ(flags & 0x8000, 0);
    EXPECT_EQ(el_set(el, 25, 1), -1);
    EXPECT_EQ(el->el_flags, flags);
    for (int on : {1, 2, -1}) {
        EXPECT_EQ(el_wset(el, 25, on), 0);
        EXPECT_EQ(el->el_flags, flags | 0x8000);
        EXPECT_EQ(el_set(el, 25, 0), -1);
        EXPECT_EQ(el->el_flags, flags | 0x8000);
        EXPECT_EQ(el_wset(el, 25, 0), 0);
        EXPECT_EQ(el->el_flags, flags);
    }
    int value = 7;
    EXPECT_EQ(el_get(el, 25, &value), -1);
    el_end(el);
}

TEST_F(EditorFlood, OptionThatMadeRoom)
{
    el = el_init("test", rl_instream, rl_outstream, stderr);
    int flags = el->el_flags;
    int value = 7;
    EXPECT_EQ(el_set(el, 26, 1), -1);
    EXPECT_EQ(el_get(el, 26, &value), -1);
    EXPECT_EQ(el->el_flags, flags);
    EXPECT_EQ(el_wset(el, 26, 1), 0);
    EXPECT_EQ(el->el_flags, flags | FIXIO);
    EXPECT_EQ(el_wget(el, 26, &value), 0);
    EXPECT_NE(value, 0);
    EXPECT_EQ(el_wset(el, 26, 0), 0);
    EXPECT_EQ(el->el_flags, flags);
    el_end(el);
}

// ---- the guard ----

// So many bytes, the return key's included, which the editor reads as a newline.
static std::string
line_of(size_t size)
{
    return std::string(size - 1, 'x') + "\r";
}

TEST_F(EditorFlood, StartsAtTwoThousandBytes)
{
    read_with_pending(line_of(1999));
    EXPECT_TRUE(edits());
    EXPECT_TRUE(same(settings(), original));
    EXPECT_EQ(read_line({}) + "\r", line_of(1999));
    read_with_pending(line_of(2000));
    EXPECT_FALSE(edits());
    EXPECT_TRUE(is_raw());
    EXPECT_EQ(read_line({}) + "\r", line_of(2000));
    EXPECT_TRUE(edits());
    EXPECT_TRUE(same(settings(), original));
}

TEST_F(EditorFlood, EndsAtOneThousandBytes)
{
    read_with_pending(line_of(999) + "\r" + line_of(1000));
    EXPECT_FALSE(edits());
    EXPECT_EQ(read_line({}) + "\r", line_of(999));
    EXPECT_EQ(pending(), 1001);
    EXPECT_FALSE(edits());
    EXPECT_TRUE(is_raw());
    EXPECT_EQ(read_line({}), "");
    EXPECT_EQ(pending(), 1000);
    EXPECT_TRUE(edits());
    EXPECT_TRUE(same(settings(), original));
    // The rest is edited again.
    EXPECT_EQ(read_line({}) + "\r", line_of(1000));
    EXPECT_TRUE(same(settings(), original));
    EXPECT_EQ(read_line({keys("ab\033[Dc\r")}), "acb");
    EXPECT_TRUE(same(settings(), original));
}

TEST_F(EditorFlood, EachByteIsEchoedOnceAsItIs)
{
    read_with_pending("a\xe9z\x01\033[D\t\r" + line_of(2100) + "last\r");
    size_t from = shown.size();
    EXPECT_EQ(read_line({}), "a\xe9z\x01\033[D\t");
    ASSERT_TRUE(sees("\t\r\n", from));
    EXPECT_EQ(shown.substr(from), "> a\xe9z\x01\033[D\t\r\n");
    from = shown.size();
    EXPECT_EQ(read_line({}) + "\r", line_of(2100));
    ASSERT_TRUE(sees("\r\n", from));
    EXPECT_EQ(shown.substr(from), "> " + std::string(2099, 'x') + "\r\n");
    EXPECT_EQ(read_line({}), "last");
}

TEST_F(EditorFlood, NoByteIsLostOrAddedThroughTheFlood)
{
    std::string all;
    for (int i = 0; i < 80; i++)
        all += "line " + std::to_string(i) + std::string(40, '.') + "\r";
    ASSERT_LT(all.size(), 4000u);
    read_with_pending(all);
    EXPECT_FALSE(edits());
    std::string got;
    for (int i = 0; i < 80; i++)
        got += read_line({}) + "\r";
    EXPECT_EQ(got, all);
    EXPECT_TRUE(edits());
    EXPECT_TRUE(same(settings(), original));
}

TEST_F(EditorFlood, WithoutTheFlagThereIsNone)
{
    read_with_pending(line_of(3000), false);
    EXPECT_TRUE(edits());
    EXPECT_TRUE(same(settings(), original));
    EXPECT_EQ(read_line({}) + "\r", line_of(3000));
}

TEST_F(EditorFlood, TheRequestIsRefused)
{
    read_with_pending("");
    int flags = el->el_flags;
    EXPECT_TRUE(flags & 0x8000);
    rl_tty_overflow_fix(0);
    EXPECT_EQ(el->el_flags, flags);
    el_wset(el, EL_TTY_OVERFLOW_FIX, 0);
    for (int enable : {1, 0}) {
        rl_tty_overflow_fix(enable);
        EXPECT_EQ(el->el_flags, flags & ~0x8000);
    }
}

static int unguarded_reads;

TEST_F(EditorFlood, ANewInstanceStartsWithout)
{
    read_with_pending(line_of(2000));
    EXPECT_FALSE(edits());
    EXPECT_TRUE(is_raw());
    ASSERT_EQ(rl_initialize(), 0);
    EXPECT_TRUE(same(settings(), original)) << "given back by the instance that had it";
    EXPECT_EQ(pending(), 2000) << "and what was typed is still there";
    before_read = [] {
        unguarded_reads += is_raw() && (sig_reader()->el_flags & 0x8004) == 0;
    };
    unguarded_reads = 0;
    EXPECT_EQ(read_line({}) + "\r", line_of(2000));
    EXPECT_EQ(unguarded_reads, 2000);
}

TEST_F(EditorFlood, PendingInputThatCannotBeCountedIsNone)
{
    read_with_pending("");
    int fd = el->el_infd;
    el->el_infd = -1;
    check_tty_buffer_overflow(el);
    EXPECT_TRUE(edits());
    el->el_flags |= EDIT_DISABLED;
    check_tty_buffer_overflow(el);
    EXPECT_TRUE(edits());
    el->el_infd = fd;
}

// ---- the path without editing ----

// The terminal does not echo, so the editor does not edit.
static void
start_without_echo()
{
    struct termios mute = settings();
    mute.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(slave, TCSANOW, &mute);
    ASSERT_EQ(rl_initialize(), 0);
}

TEST_F(EditorFlood, WithoutTheFlagNothingIsEchoed)
{
    start_without_echo();
    EXPECT_EQ(read_line({keys("secret\n")}), "secret");
    EXPECT_EQ(read_line({keys("more\n")}), "more");
    EXPECT_EQ(shown, "> > ");
    EXPECT_FALSE(is_raw());
}

TEST_F(EditorFlood, WithTheFlagAnyOtherReasonEndsToo)
{
    start_without_echo();
    auto set_flag = [&] {
        el = sig_reader();
        el_wset(el, EL_TTY_OVERFLOW_FIX, 1);
    };
    EXPECT_EQ(read_line({then(set_flag), keys("ab\n")}), "ab");
    EXPECT_TRUE(sees("> ab\r\n"));
    EXPECT_TRUE(edits());
}

TEST_F(EditorFlood, EchoThatCannotBeWritten)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    start_editor(fdopen(ends[0], "r"), fopen("/dev/null", "w"));
    EXPECT_EQ(write(ends[1], "ab\ncd\n", 6), 6);
    scripted = false;
    before_read = [] { el_wset(sig_reader(), EL_TTY_OVERFLOW_FIX, 1); };
    EXPECT_EQ(read_line({}), "ab");
    EXPECT_EQ(read_line({}), "cd");
    close(ends[1]);
}
