// Text outside ASCII as it is typed: what becomes of its bytes, in several locales.
#include "editor_in_child.h"
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

// ---- marks ----

#define MARK "\u0301"
#define E_MARK "e" MARK "\u0323"

TEST(EditorText, MarksGoWithTheirBaseWhenTheCursorMoves)
{
    std::string text = "ab" E_MARK "cd";
    EXPECT_EQ(line_of(text + times(3, LEFT) + "x\n"), "abx" E_MARK "cd");
    EXPECT_EQ(line_of(text + ctrl('A') + times(3, RIGHT) + "x\n"), "ab" E_MARK "xcd");
    EXPECT_EQ(line_of(text + ESC "3" + ctrl('B') + "x\n"), "abx" E_MARK "cd");
    EXPECT_EQ(line_of(vi(text + ESC "hhix\n")), "abx" E_MARK "cd");
    EXPECT_EQ(line_of(vi(text + ESC "4|ix\n")), "ab" E_MARK "xcd");
    EXPECT_EQ(line_of(vi(text + ESC "0llax\n")), "ab" E_MARK "xcd");
    EXPECT_EQ(line_of(vi("ab" E_MARK ESC "ix\n")), "abx" E_MARK);
    EXPECT_EQ(line_of(vi("ab" E_MARK ESC "0$ix\n")), "abx" E_MARK);
    EXPECT_EQ(line_of(vi("ab" E_MARK ESC "0ll" + ctrl('F') + "ix\n")), "abx" E_MARK)
        << "vi stays on the last character";
}

TEST(EditorText, MarksGoWithTheirBaseWhenItIsDeleted)
{
    std::string text = "ab" E_MARK "cd";
    EXPECT_EQ(line_of(text + LEFT LEFT + ctrl('H') + "\n"), "abcd");
    EXPECT_EQ(line_of(text + ctrl('A') + RIGHT RIGHT + ctrl('D') + "\n"), "abcd");
    EXPECT_EQ(line_of(text + ctrl('A') + RIGHT + ESC "2" + ctrl('D') + "\n"), "acd");
    EXPECT_EQ(line_of(text + ESC "3" + ctrl('H') + "\n"), "ab");
    EXPECT_EQ(line_of(text + ctrl('A') + RIGHT RIGHT ESC "[3~\n"), "abcd");
    EXPECT_EQ(line_of(vi("ab" E_MARK "\177c\n")), "abc");
    EXPECT_EQ(line_of(vi(text + ESC "0ll2x\n")), "abd");
    EXPECT_EQ(line_of(vi(text + ESC "0llsx\n")), "abxcd");
    EXPECT_EQ(line_of(vi(text + ESC "0lldl\n")), "abcd");
    EXPECT_EQ(line_of(vi(text + ESC "hhXp\n")), "a" E_MARK "bcd");
    EXPECT_EQ(line_of(vi("ab" E_MARK ESC "xx\n")), "a") << "the last one";
    EXPECT_EQ(line_of(vi("ab" E_MARK ESC "x0P\n")), E_MARK "ab");
    EXPECT_EQ(line_of(vi(ESC "a" E_MARK "\177f" ESC ".\n")), "ff");
}

TEST(EditorText, MarksGoWithTheirBaseWhenItIsReplaced)
{
    EXPECT_EQ(line_of(vi("ab" E_MARK "cd" ESC "0llrx~\n")), "abXcd");
    EXPECT_EQ(line_of(vi("a" E_MARK E_MARK "b" ESC "0l2rx\n")), "axxb");
    EXPECT_EQ(line_of(vi("a" E_MARK E_MARK "b" ESC "0lRo" MARK "\n")),
              "ao" MARK E_MARK "b");
}

TEST(EditorText, MarksGoWithTheirBaseWhenItIsExchanged)
{
    EXPECT_EQ(line_of("a" E_MARK "b" MARK + ctrl('T') + "\n"), "ab" MARK E_MARK);
    EXPECT_EQ(line_of("ab" E_MARK "c" LEFT + ctrl('T') + "x\n"), "abc" E_MARK "x");
    EXPECT_EQ(line_of(E_MARK + ctrl('T') + "\n"), E_MARK) << "only one";
    EXPECT_EQ(line_of("ab" + ctrl('A') + ctrl('T') + "x\n"), "xab");
    EXPECT_EQ(line_of(command("bind ^T em-gosmacs-transpose") + "a" E_MARK "b" LEFT +
                      ctrl('T') + "\n"),
              E_MARK "ab");
}

TEST(EditorText, WordsAreWholeWithTheirMarks)
{
    std::string text = "one m" E_MARK "r three";
    EXPECT_EQ(line_of(text + ctrl('W') + ctrl('W') + "\n"), "one ");
    EXPECT_EQ(line_of(text + ctrl('A') + ESC "f" ESC "d" + ctrl('E') + ctrl('Y') + "\n"),
              "one three m" E_MARK "r");
    EXPECT_EQ(line_of("m" E_MARK " two" ESC "b" ESC "b" ESC "u\n"), "M"
                                                                    "E" MARK "\u0323 two");
    EXPECT_EQ(line_of("." MARK "one" + ctrl('W') + "\n"), "");
    EXPECT_EQ(line_of("/" MARK "one" + ctrl('W') + "\n"), "/" MARK);
    EXPECT_EQ(line_of(vi(text + ESC "bbix\n")), "one xm" E_MARK "r three");
    EXPECT_EQ(line_of(vi(text + ESC "0wdw\n")), "one three");
    EXPECT_EQ(line_of(vi(text + ESC "0wde\n")), "one  three");
    EXPECT_EQ(line_of(vi("m" E_MARK " two" ESC "0ede\n")), "m");
    EXPECT_EQ(line_of(vi(text + ESC "BBix\n")), "one xm" E_MARK "r three");
    EXPECT_EQ(line_of(vi("one m" E_MARK ESC "0wEax\n")), "one m" E_MARK "x");
}

TEST(EditorText, FoundWithTheirMarks)
{
    std::string text = "a" E_MARK "bc";
    EXPECT_EQ(line_of(vi(text + ESC "0dfe\n")), "bc");
    EXPECT_EQ(line_of(vi(text + ESC "0tbx\n")), "abc");
    EXPECT_EQ(line_of(vi(text + ESC "Tex\n")), "a" E_MARK "c");
    EXPECT_EQ(line_with_history({text}, ctrl('R') + MARK ESC "x\n"), "a" E_MARK "xbc");
}

// Each is a base for the mark that is already there.
TEST(EditorText, BaseThatComesLater)
{
    EXPECT_EQ(line_of(MARK "b" + ctrl('A') + "ex\n"), "e" MARK "xb");
    EXPECT_EQ(line_of(MARK "b" LEFT + ctrl('H') + "\n"), "b");
}

TEST(EditorText, FormatCharactersAreNoMarks)
{
    EXPECT_EQ(line_of("a\u200db" + ctrl('H') + ctrl('H') + "\n"), "a");
}

// ---- case ----

TEST(EditorText, CaseOfLetters)
{
    std::string word = "\u00fc\u00c9\u0436\u00df\u0345";
    EXPECT_EQ(line_of(word + ctrl('A') + ESC "u\n"), "\u00dc\u00c9\u0416\u00df\u0345");
    EXPECT_EQ(line_of(word + ctrl('A') + ESC "l\n"), "\u00fc\u00e9\u0436\u00df\u0345");
    EXPECT_EQ(line_of(word + ctrl('A') + ESC "c\n"), "\u00dc\u00e9\u0436\u00df\u0345");
    EXPECT_EQ(line_of(vi(word + ESC "0~~~~\n")), "\u00dc\u00e9\u0416\u00df\u0345");
}

// The other case of the micro sign has no byte there.
TEST(EditorText, CaseThatTheLocaleDoesNotHave)
{
    std::string keys = "\xb5\xfc" + ctrl('A');
    EXPECT_EQ(in_locale(use_latin1, keys + ESC "u\n").line, "\xb5\xdc");
    EXPECT_EQ(in_locale(use_latin1, vi("\xb5\xfc" ESC "0~~\n")).line, "\xb5\xdc");
}

// ---- kill and yank, history, completion ----

TEST(EditorText, KilledAndYanked)
{
    EXPECT_EQ(line_of("B\u00fcro \u6f22" E_MARK + ctrl('U') + "x" + ctrl('Y') + "\n"),
              "xB\u00fcro \u6f22" E_MARK);
    EXPECT_EQ(line_of("\u6f22" E_MARK "b" + ctrl('A') + RIGHT + ctrl('K') + ctrl('A') +
                      ctrl('Y') + "\n"),
              E_MARK "b\u6f22");
}

TEST(EditorText, RecalledAndSearched)
{
    std::vector<std::string> lines = {"B\u00fcro \u6f22\u5b57", "plain"};
    EXPECT_EQ(line_with_history(lines, UP UP "x\n"), lines[0] + "x");
    EXPECT_EQ(line_with_history(lines, ctrl('R') + "\u6f22\n"), lines[0]);
    EXPECT_EQ(line_with_history(lines, "B\u00fc" ESC "p\n"), lines[0]);
    EXPECT_EQ(line_with_history(lines, vi(ESC "/\u00fcro\nx\n")), lines[0].substr(1));
}

static char **
answer(const char *, int, int)
{
    rl_attempted_completion_over = 1;
    rl_delete_text(rl_end - 1, rl_end);
    rl_insert_text("\u6f22" E_MARK);
    rl_forced_update_display();
    return nullptr;
}

TEST(EditorText, Completed)
{
    EXPECT_EQ(
        line_after([] { rl_attempted_completion_function = answer; }, "B\u00fcx\tz\n"),
        "B\u00fc\u6f22" E_MARK "z");
}

// ---- keys that mean nothing ----

static const char *const unbound[] = {
    ESC "[5~",        ESC "[6~",      // PageUp, PageDown
    ESC "[3;5~",      ESC "[3;2~",    // Delete with Control, with Shift
    ESC "[1;2A",      ESC "[1;5B",    // arrows with Shift and Control
    ESC "[1;2D",      ESC "[1;7C",    //
    ESC "[1;5H",      ESC "[1;10F",   // Home and End with others
    ESC "[15~",       ESC "[24;6~",   // function keys
    ESC "OP",         ESC "[1;5P",    //
    ESC "O5P",        ESC "O1;2S",    //
    ESC "[[A",        ESC "[[E",      // of the console
    ESC "[3$",        ESC "[24$",     // and with Shift
    ESC "[5^",        ESC "[6@",      // and with Control and both
    ESC "Oa",         ESC "Ob",       //
    ESC "[a",         ESC "[Z",       // arrows with Shift, TAB with Shift
    ESC "[27;5;9~",   ESC "[97;5u",   // keys told as numbers
    ESC "[?1;2c",     ESC "[?12;1$y", // answers of the terminal
    ESC "[>0;276;0c",                 //
    ESC "[0 q",       ESC "[=1;2;3{", //
    ESC "OM",         ESC "[200;7~",  //
    ESC ESC "[5~",    ESC ESC "OP",   // with Escape for Alt
};

static const char *const reports[] = {
    ESC "[I",         ESC "[O",          // the window has the focus, or not
    ESC "[M !!",      ESC "[M#\xe9\xfe", // the mouse, as bytes
    ESC "[<0;12;34M", ESC "[<35;120;1m", // and as numbers
    ESC "[2;3R",                         // where the cursor is
};

TEST(EditorText, UnboundKeysTypeNothing)
{
    for (const char *keys : unbound) {
        Session with;
        with.steps = {{std::string("ab") + LEFT + keys + "z\n"}};
        Outcome outcome = run(with);
        EXPECT_EQ(outcome.line, "azb") << keys + 1;
        EXPECT_EQ(beeps(outcome), 1) << keys + 1;
        with.steps = {{std::string(ESC "3") + keys + "z\n"}};
        EXPECT_EQ(run(with).line, "z") << "the count is over: " << keys + 1;
    }
}

TEST(EditorText, ReportsAreNoKeys)
{
    for (const char *keys : reports) {
        Session with;
        with.steps = {{std::string("a") + keys + "z" ESC "3" + keys + "x\n"}};
        Outcome outcome = run(with);
        EXPECT_EQ(outcome.line, "azxxx") << keys + 1;
        EXPECT_EQ(beeps(outcome), 0) << keys + 1;
    }
}

TEST(EditorText, UnboundKeysLeaveNoModeOfVi)
{
    for (auto &table : {std::vector<const char *>(std::begin(unbound), std::end(unbound)),
                        std::vector<const char *>(std::begin(reports), std::end(reports))})
        for (const char *keys : table) {
            if (keys[1] == '\033')
                continue; // the first Escape is one by itself
            EXPECT_EQ(line_of(vi(std::string("ab") + keys + "z\n")), "abz") << keys + 1;
            EXPECT_EQ(line_of(vi(std::string("abc" ESC "0R1") + keys + "z\n")), "1zc")
                << keys + 1;
            EXPECT_EQ(line_of(vi(std::string("abcd" ESC "h") + keys + "x\n")), "abd")
                << keys + 1;
        }
}

TEST(EditorText, UnboundKeysAreNotDoneAgainInVi)
{
    EXPECT_EQ(line_of(vi("a" ESC "ab" ESC "[5~c" ESC ".\n")), "abcbc");
}

TEST(EditorText, KeyThatCutsASequence)
{
    EXPECT_EQ(line_of("ab" ESC "[" + ctrl('A') + "x\n"), "xab");
    EXPECT_EQ(line_of("ab" ESC "[1;" LEFT "x\n"), "axb");
    EXPECT_EQ(line_of("ab" ESC "[1\u00fc\n"), "ab\u00fc");
    EXPECT_EQ(line_of("ab" ESC "O\nx\n"), "ab");
}

TEST(EditorText, SequenceBehindAnotherLeadIn)
{
    EXPECT_EQ(line_of("ab" + ctrl('X') + ESC "[5~z\n"), "abz");
    EXPECT_EQ(line_of("ab" + ctrl('X') + "qz\n"), "abz");
}

TEST(EditorText, EndOfInputWithinASequence)
{
    EXPECT_EQ(line_of("ab" ESC "[5"), "(end of input)");
    EXPECT_EQ(line_of("ab" ESC "[M  "), "(end of input)");
}

TEST(EditorText, LoneEscapeIsMeta)
{
    EXPECT_EQ(line_of("ab cd" ESC "bx\n"), "ab xcd");
    EXPECT_EQ(line_of("ab" ESC "zc\n"), "abc") << "one that is not bound";
}

TEST(EditorText, BoundKeysOfManyForms)
{
    std::string bind = command("bind \"\\\\e[5~\" ed-move-to-beg");
    EXPECT_EQ(line_of(bind + "ab" ESC "[5~x\n"), "xab");
    EXPECT_EQ(line_of(bind + "ab" ESC "[5;2~x\n"), "abx");
}

// ---- the usual forms of keys ----

TEST(EditorText, UsualFormsOfKeys)
{
    struct {
        std::vector<std::string> forms;
        const char *line;
    } keys[] = {
        {{ESC "[H", ESC "OH", ESC "[1~", ESC "[7~"}, "xab cd ef"},
        {{ctrl('A') + ESC "[F", ctrl('A') + ESC "OF", ctrl('A') + ESC "[4~",
          ctrl('A') + ESC "[8~"},
         "ab cd efx"},
        {{LEFT ESC "[3~"}, "ab cd ex"},
        {{ESC "[1;5D", ESC "[1;3D", ESC "[1;9D", ESC "[5D", ESC "Od", ESC "O5D",
          ESC ESC "[D", ESC ESC "OD", ESC "b"},
         "ab cd xef"},
        {{ctrl('A') + ESC "[1;5C", ctrl('A') + ESC "[1;3C", ctrl('A') + ESC "[1;9C",
          ctrl('A') + ESC "[5C", ctrl('A') + ESC "Oc", ctrl('A') + ESC "O5C",
          ctrl('A') + ESC ESC "[C", ctrl('A') + ESC ESC "OC", ctrl('A') + ESC "f"},
         "abx cd ef"},
    };
    for (const char *terminal : {"xterm", "linux", "vt100", "rxvt", "screen", "dumb"})
        for (auto &key : keys)
            for (const std::string &form : key.forms)
                for (std::string before : {"", "bind -e"}) {
                    Session with;
                    with.terminal = terminal;
                    with.steps = {{(before.empty() ? "" : command(before)) + "ab cd ef" +
                                   form + "x\n"}};
                    EXPECT_EQ(run(with).line, key.line) << terminal << form.substr(1);
                }
}

TEST(EditorText, UsualFormsOfKeysInVi)
{
    EXPECT_EQ(line_of(vi("ab cd ef" ESC "[1~x\n")), "b cd ef");
    EXPECT_EQ(line_of(vi("ab cd ef" ESC "0" ESC "[8~x\n")), "ab cd e");
    EXPECT_EQ(line_of(vi("ab cd ef" ESC "[1;5Dx\n")), "ab cd f");
    EXPECT_EQ(line_of(vi("ab cd ef" ESC "0" ESC "Ocx\n")), "abcd ef");
    EXPECT_EQ(line_of(vi("ab cd ef" ESC "0" ESC "[3~x\n")), " cd ef");
}
