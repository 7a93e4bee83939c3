// What a terminal marks as pasted is text, and only that.
#include "editor_signals.h"

#include <locale.h>

#define ESC "\033"
#define BEGIN ESC "[200~"
#define END ESC "[201~"

static int completions;

extern "C" {
static char **
count_completion(const char *, int, int)
{
    completions++;
    rl_attempted_completion_over = 1;
    return nullptr;
}
}

static std::string
pasted(const std::string &text)
{
    return BEGIN + text + END;
}

class EditorPaste : public EditorSignals
{
  protected:
    void SetUp() override
    {
        EditorSignals::SetUp();
        setlocale(LC_ALL, "C.UTF-8");
        completions = 0;
        rl_attempted_completion_function = count_completion;
        rl_parse_and_bind("bind ? rl_complete");
        add_history("one two");
        add_history("three");
    }

    void TearDown() override
    {
        EditorSignals::TearDown();
        setlocale(LC_ALL, "C");
    }

    // The line that the keys make, and how often the user was beeped at.
    static void expect(const std::string &text, const std::string &line, int beeps)
    {
        size_t from = shown.size();
        EXPECT_EQ(read_line({keys(text)}), line);
        EXPECT_EQ(count_shown("\a", from), beeps) << line;
    }

    static void vi()
    {
        ASSERT_EQ(rl_parse_and_bind("bind -v"), 0);
    }
};

// ---- what is text ----

TEST_F(EditorPaste, RunsNothing)
{
    expect("a" + pasted("b\tc?d") + "e\r", "ab\tc?de", 0);
    EXPECT_EQ(completions, 0);
    expect("a?\t\r", "a", 0);
    EXPECT_EQ(completions, 2) << "these were typed";
}

TEST_F(EditorPaste, DropsControlsWithOneBeepAtItsEnd)
{
    // Those that the terminal leaves to the editor.
    std::string controls;
    for (char control = 0; control < 0x20; control++)
        if (strchr("\t\n\r\033\003\021\023\032\034", control) == nullptr || control == 0)
            controls += control;
    expect("a" + pasted("b" + controls + "\177\u0080\u009bc") + "d\r", "abcd", 1);
    size_t from = shown.size();
    EXPECT_EQ(read_line({keys(BEGIN "a\001b\005"),
                         then([from] { EXPECT_EQ(count_shown("\a", from), 0); }),
                         keys(END "\r")}),
              "ab");
}

TEST_F(EditorPaste, EscapeSequencesAreTheirLetters)
{
    expect(pasted("a" ESC "[Db" ESC "fc" ESC ESC "[5~" ESC) + "d\r", "a[Dbfc[5~d", 1);
    expect(pasted("a" ESC "[20" ESC "[201b" ESC "[21~" ESC "[201" ESC "[2\u00fc") + "d\r",
           "a[20[201b[21~[201[2\u00fcd", 1);
}

TEST_F(EditorPaste, LettersOutsideAscii)
{
    expect("\u00fc" + pasted("B\u00fcro \u6f22\u200de\u0301") + "x\r",
           "\u00fcB\u00fcro \u6f22\u200de\u0301x", 0);
}

TEST_F(EditorPaste, RefusesWhatIsNoCharacter)
{
    expect(pasted("a\xe6\xbc"
                  "b\xc3") +
               "c\r",
           "abc", 2);
}

TEST_F(EditorPaste, ItsFirstMarkOnceMore)
{
    expect(BEGIN "a" BEGIN "b" END "c\t\r", "abc", 0);
    EXPECT_EQ(completions, 1);
}

// ---- over several reads ----

TEST_F(EditorPaste, EndsLinesAndGoesOn)
{
    EXPECT_EQ(read_line({keys("a" + pasted("one\r\ttwo?\nthree\t") + "\tx\r")}), "aone");
    EXPECT_EQ(read_line({}), "\ttwo?");
    EXPECT_EQ(completions, 0);
    EXPECT_EQ(read_line({}), "three\tx");
    EXPECT_EQ(completions, 1) << "the TAB behind it";
}

TEST_F(EditorPaste, EndsWithALine)
{
    EXPECT_EQ(read_line({keys(pasted("one\001\r") + "\tx\r")}), "one");
    EXPECT_EQ(count_shown("\a"), 0);
    EXPECT_EQ(read_line({}), "x");
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(count_shown("\a"), 1);
}

TEST_F(EditorPaste, InPieces)
{
    std::vector<Step> bytes;
    for (char byte : "a" + pasted("\u00fc\t" ESC "[201" ESC "[") + "\t\r")
        bytes.push_back(keys(std::string(1, byte)));
    EXPECT_EQ(read_line(bytes), "a\u00fc\t[201[");
    EXPECT_EQ(completions, 1);
}

// ---- its end ----

TEST_F(EditorPaste, MarksThatNobodyAskedFor)
{
    expect("a" END "b" END "\t\r", "ab", 0);
    EXPECT_EQ(completions, 1);
}

TEST_F(EditorPaste, WithoutEndUntilAnInterrupt)
{
    EXPECT_EQ(guarded_line({keys(BEGIN "ab\t"), then([] { raise(SIGINT); })}), interrupted);
    EXPECT_EQ(guarded_line({keys("c\t" END "d\r")}), "cd");
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(guarded_line({keys(BEGIN "ab\t"), then([] { raise(SIGTSTP); })}), suspended);
    EXPECT_EQ(guarded_line({keys("c\td\r")}), "cd");
}

TEST_F(EditorPaste, InterruptWithinItsMark)
{
    EXPECT_EQ(guarded_line({keys(BEGIN "ab" ESC "[20"), then([] { raise(SIGINT); })}),
              interrupted);
    EXPECT_EQ(guarded_line({keys("1~\td\r")}), "1~d");
    EXPECT_EQ(completions, 1);
}

TEST_F(EditorPaste, InterruptThatIsSeenWhenTheReadIsOver)
{
    at_step = [] {
        if (taken == typed && typed > 8) { // Enter has been read
            at_step = again = nullptr;
            raise(SIGINT);
        }
    };
    EXPECT_EQ(guarded_line({keys(BEGIN "ab\r")}), interrupted);
    EXPECT_EQ(guarded_line({keys("c\td\r")}), "cd");
    EXPECT_EQ(completions, 1);
}

TEST_F(EditorPaste, InterruptThatTheProgramHandles)
{
    set_disposition(SIGINT, plain);
    EXPECT_EQ(read_line({keys(BEGIN "ab\t"), then([] { raise(SIGINT); }), keys("\tc\r")}),
              "ab\tc");
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(completions, 1);
}

TEST_F(EditorPaste, ForgottenByAReset)
{
    EXPECT_EQ(read_line({keys(BEGIN "ab\r")}), "ab");
    start_editor(fdopen(dup(slave), "r"), fdopen(dup(slave), "w"));
    EXPECT_EQ(read_line({keys("c\td\r")}), "cd");
    EXPECT_EQ(completions, 1);
}

TEST_F(EditorPaste, EndOfInputWithinIt)
{
    EXPECT_EQ(read_line({keys(BEGIN "ab")}), end_of_input);
    EXPECT_EQ(read_line({keys(ESC "[20")}), end_of_input);
}

// ---- where it comes ----

TEST_F(EditorPaste, InMidLineAndWithACount)
{
    expect("ad" ESC "[D" + pasted("bc") + "x\r", "abcxd", 0);
    expect(ESC "3" + pasted("bc") + "x\r", "bcx", 0);
}

TEST_F(EditorPaste, InASearch)
{
    expect("\022" + pasted("two") + "\r", "one two", 0);
    EXPECT_EQ(read_line({keys("\022" + pasted("t\tw?") + "\007\007x\r")}), "x");
    EXPECT_EQ(completions, 0);
    EXPECT_EQ(read_line({keys("\022" + pasted("two\rmore\t") + "\r")}), "one two");
    EXPECT_EQ(read_line({}), "more\t");
}

TEST_F(EditorPaste, InACommand)
{
    expect(ESC "xbin" + pasted("d -s ^T 'a\tb'") + "\r\024\r", "ab", 0);
    EXPECT_EQ(completions, 1) << "a macro is no paste";
}

TEST_F(EditorPaste, QuotedItIsText)
{
    expect("\026" + pasted("\tb\t") + "\r", "\tb\t", 0);
    EXPECT_EQ(completions, 0);
}

TEST_F(EditorPaste, InTheModesOfVi)
{
    vi();
    expect("abc" + pasted("d?x") + "e\r", "abcd?xe", 0);
    expect("abc" ESC "0" + pasted("dx\t") + "x\r", "dx\tbc", 0);
    expect("abc" ESC "0R" + pasted("xy") + "z\r", "xyz", 0);
    expect("abc" ESC "0rx" + pasted("yz") + "x\r", "yzbc", 0);
    expect("abcde" ESC "0d" + pasted("fx") + "x\r", "fxbcde", 0);
    EXPECT_EQ(completions, 0);
}

TEST_F(EditorPaste, AsAnArgumentInVi)
{
    vi();
    expect("abcabc" ESC "0f" + pasted("c") + "x\r", "ababc", 0);
}

TEST_F(EditorPaste, IsNotDoneAgainInVi)
{
    vi();
    rl_parse_and_bind("bind ^I rl_complete");
    expect("a" ESC "ab" + pasted("c\t?") + "d" ESC "..\r", "abc\t?dbdbd", 0);
    EXPECT_EQ(completions, 0);
}
