// Text outside ASCII as it is typed: what becomes of its bytes, in several locales.
#include "editor_check.h"
#include "made_locales.h"

static int
beeps(const Outcome &outcome)
{
    int count = 0;
    for (char byte : outcome.screen)
        count += byte == '\a';
    return count;
}

// What becomes of the keys in another locale.
static Outcome
in_locale(void (*use)(), const std::string &keys)
{
    Session with;
    with.steps = {{keys}};
    with.before = use;
    return run(with);
}

static void
use_latin1()
{
    MadeLocales::use(latin1);
}

static void
use_euc_jp()
{
    MadeLocales::use(euc_jp);
}

static void
use_c()
{
    setlocale(LC_ALL, "C");
}

// ---- characters of UTF-8 ----

TEST(EditorText, TypedAsPeopleWriteIt)
{
    for (std::string text :
         {"B\u00fcro", "\u00a0", "\u07ff", "\u0800", "\ud7ff", "\ue000", "\uffff",
          "\U00010000", "\U0001f600 \u6f22\u5b57", "\U0010ffff", "e\u0301"}) {
        Session with;
        with.steps = {{text + "\n"}};
        Outcome outcome = run(with);
        EXPECT_EQ(outcome.line, text);
        EXPECT_EQ(beeps(outcome), 0) << text;
    }
}

// Each stands between two letters, which are all that is left, and beeps so often.
TEST(EditorText, RefusedWithABeep)
{
    struct {
        const char *bytes;
        int beeps;
    } wrong[] = {
        {"\x80", 1},
        {"\xbf\xbf", 2},
        {"\xc0\x80", 1},             // overlong
        {"\xc1\xbf", 1},             //
        {"\xe0\x9f\xbf", 1},         //
        {"\xf0\x8f\xbf\xbf", 1},     //
        {"\xed\xa0\x80", 1},         // a surrogate
        {"\xed\xbf\xbf", 1},         //
        {"\xf4\x90\x80\x80", 1},     // beyond Unicode
        {"\xf5\x80\x80\x80", 1},     //
        {"\xf8\x88\x80\x80\x80", 1}, // five bytes, and six
        {"\xfc\x84\x80\x80\x80\x80", 1},
        {"\xfe", 1},
        {"\xc3", 1}, // cut by the letter
        {"\xe2\x82", 1},
        {"\xf0\x9f\x98", 1},
        {"\xc3\xc3", 2},     // cut by one that is cut
        {"\xe2\x82\xfe", 2}, // and by one that is none
    };
    for (auto &each : wrong) {
        Session with;
        with.steps = {{std::string("a") + each.bytes + "z\n"}};
        Outcome outcome = run(with);
        EXPECT_EQ(outcome.line, "az") << each.bytes;
        EXPECT_EQ(beeps(outcome), each.beeps) << each.bytes;
    }
}

TEST(EditorText, TheKeyThatCutsCounts)
{
    EXPECT_EQ(line_of("ab\xc3" + ctrl('A') + "x\n"), "xab");
    EXPECT_EQ(line_of("ab\xe2\x82\n"), "ab");
    EXPECT_EQ(line_of("ab\xe2\x82\xc3\xbc\n"), "ab\u00fc");
    EXPECT_EQ(line_of("ab\xe2\x82" LEFT "x\n"), "axb");
}

TEST(EditorText, EndOfInputWithinACharacter)
{
    EXPECT_EQ(line_of("ab\xe2\x82"), "(end of input)");
}

TEST(EditorText, ControlsAboveAsciiRunNothing)
{
    for (const char *control : {"\u0080", "\u0088", "\u0085", "\u009b", "\u009f"}) {
        Session with;
        with.steps = {{std::string("one ") + control + "two\n"}};
        Outcome outcome = run(with);
        EXPECT_EQ(outcome.line, "one two");
        EXPECT_EQ(beeps(outcome), 1);
        EXPECT_EQ(outcome.screen.find(control), std::string::npos);
    }
}

TEST(EditorText, FormatCharactersStand)
{
    for (std::string format : {"\u00ad", "\u200b", "\u200d", "\u202e", "\ufeff"})
        EXPECT_EQ(line_of("a" + format + "b\n"), "a" + format + "b");
}

// ---- where keys are read ----

TEST(EditorText, Counted)
{
    EXPECT_EQ(line_of(ESC "3\u00fc\u6f22\n"), "\u00fc\u00fc\u00fc\u6f22");
}

TEST(EditorText, Quoted)
{
    EXPECT_EQ(line_of("\026\u00fc\026\u009b\n"), "\u00fc\u009b");
    EXPECT_EQ(line_of("\026\xc3"
                      "a\n"),
              "a");
}

TEST(EditorText, MacrosThatStandForIt)
{
    EXPECT_EQ(line_of(command("bind -s ^T B\u00fcro") + ctrl('T') + "\n"), "B\u00fcro");
    Session with; // not a character
    with.steps = {{command("bind -s ^T a\\\\U+D800z") + ctrl('T') + "\n"}};
    Outcome outcome = run(with);
    EXPECT_EQ(outcome.line, "az");
    EXPECT_EQ(beeps(outcome), 1);
}

// The low byte of each is a key of the search: Enter, Backspace, Ctrl-R, Escape.
TEST(EditorText, SearchedAsLetters)
{
    for (std::string letter : {"\u4e0d", "\u0108", "\u0112", "\u011b"}) {
        std::vector<std::string> lines = {"a" + letter + "b", "ab", "a"};
        EXPECT_EQ(line_with_history(lines, ctrl('R') + "a" + letter + "b\n"), lines[0]);
    }
}

TEST(EditorText, WithViCommands)
{
    EXPECT_EQ(line_of(vi("ab\u00fccd\u00fce" ESC "0f\u00fcx;x\n")), "abcde");
    EXPECT_EQ(line_of(vi("a\u6f22b" ESC "0lr\u00fc~\n")), "a\u00dcb");
    EXPECT_EQ(line_of(vi(ESC "a\u00fc" ESC "..\n")), "\u00fc\u00fc\u00fc");
    for (const char *letter : {"\u00fc", "\u6f22", "\u009f"}) {
        Session with;
        with.steps = {{vi(std::string("abc" ESC) + letter + "x\n")}};
        Outcome outcome = run(with);
        EXPECT_EQ(outcome.line, "ab") << "no command";
        EXPECT_EQ(beeps(outcome), 1);
    }
}

// ---- keys above ASCII ----

TEST(EditorText, BoundByTheUser)
{
    std::string bind = command("bind \\\\346 em-upper-case");
    EXPECT_EQ(line_of(bind + "abc" + ctrl('A') + "\u00e6\n"), "ABC");
    EXPECT_EQ(in_locale(use_latin1, bind + "abc" + ctrl('A') + "\xe6\n").line, "ABC");
    Outcome outcome = in_locale(use_c, bind + "abc" + ctrl('A') + "\xe6\026\xe6\n");
    EXPECT_EQ(outcome.line, "ABC") << "a key, but no text";
    EXPECT_EQ(beeps(outcome), 1);
}

TEST(EditorText, MetaByAnotherKeyThanEscape)
{
    std::string meta = command("bind ^T em-meta-next");
    EXPECT_EQ(line_of(meta + "abc" + ctrl('A') + ctrl('T') + "u\n"), "ABC");
    EXPECT_EQ(line_of(meta + "abc" + ctrl('A') + ctrl('T') + "\u00f5\n"), "\u00f5abc");
}

// Its low byte is the digit's.
TEST(EditorText, NoKeyOfTheMap)
{
    Session with;
    with.steps = {{command("bind \u0436 ed-newline") + command("bind -r \u0436") + "6\n"}};
    EXPECT_EQ(run(with).line, "6");
}

// ---- other locales ----

TEST(EditorText, ALocaleOfSingleBytes)
{
    Outcome outcome = in_locale(use_latin1, "B\xfcro\xa0\xb7\n");
    EXPECT_EQ(outcome.line, "B\xfcro\xa0\xb7");
    EXPECT_EQ(beeps(outcome), 0);
    outcome = in_locale(use_latin1, "a\x88\x9fz\n");
    EXPECT_EQ(outcome.line, "az") << "controls";
    EXPECT_EQ(beeps(outcome), 2);
}

TEST(EditorText, ALocaleOfSeveralBytes)
{
    Outcome outcome = in_locale(use_euc_jp, "\xb4\xc1\xbb\xfa\x8f\xb0\xa1\n");
    EXPECT_EQ(outcome.line, "\xb4\xc1\xbb\xfa\x8f\xb0\xa1");
    EXPECT_EQ(beeps(outcome), 0);
    outcome = in_locale(use_euc_jp, "a\xb4z" + ctrl('A') + "\xb4\xc1\n");
    EXPECT_EQ(outcome.line, "\xb4\xc1"
                            "az")
        << "cut";
    EXPECT_EQ(beeps(outcome), 1);
}

TEST(EditorText, TheLocaleOfAscii)
{
    Outcome outcome = in_locale(use_c, "one \xf0\x9f\x98\x80z\n");
    EXPECT_EQ(outcome.line, "one z");
    EXPECT_EQ(beeps(outcome), 4);
    EXPECT_EQ(in_locale(use_c, "a\026\xe9z\n").line, "az");
}
