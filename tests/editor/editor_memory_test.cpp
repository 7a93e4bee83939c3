// Memory errors and hangs of the packaged editor that its user could reach with keys, a
// prompt or a configuration, each with the fewest keys that show it. Run under the
// sanitizers, each of them ends the packaged editor.
#include "../support/failing_malloc.h"
#include "editor_in_child.h"

#include <algorithm>
#include <histedit.h>
#include <random>
#include <signal.h>
#include <sys/resource.h>

// Ends the child at once when it would go on with undefined behaviour, and shows uses of a
// stack that is gone.
extern "C" const char *__asan_default_options();
extern "C" const char *__ubsan_default_options();

extern "C" const char *
__asan_default_options()
{
    return "detect_stack_use_after_return=1";
}

extern "C" const char *
__ubsan_default_options()
{
    return "halt_on_error=1:print_stacktrace=1";
}

// A command typed in the insert mode of vi.
static std::string
vi_command(const std::string &text)
{
    return ESC ":" + text + "\r";
}

static const std::string copy_previous_word = ESC "\037";

// ---- lines that grow ----

TEST(EditorMemory, CopyOfThePreviousWordOverTheBuffersEnd)
{
    EXPECT_EQ(line_of("ab" + times(10, copy_previous_word) + "\n"), times(1024, "ab"));
}

TEST(EditorMemory, CountBeyondAnyLine)
{
    EXPECT_EQ(line_of(ESC "9" ESC "9" ESC "9" ESC "9" ESC "9" ESC "9" ESC "9"
                          "xa\n"),
              "a");
}

TEST(EditorMemory, RegionAfterAnUndo)
{
    EXPECT_EQ(line_of(vi(vi_command("bind -a W em-kill-region") + "abc" ESC "xuWid\n")),
              "dc");
}

// ---- commands ----

TEST(EditorMemory, CommandWithAnOpenQuote)
{
    EXPECT_EQ(line_of(command("\"") + command("\"") + "a\n"), "a");
}

TEST(EditorMemory, CommandThatEndsInABackslash)
{
    EXPECT_EQ(line_of(command("bind \\") + "a\n"), "a");
}

static void
split_a_line_that_ends_in_a_backslash()
{
    std::string line = times(100, "a") + " \\";
    Tokenizer *tokenizer = tok_init(nullptr);
    int argc = 0;
    const char **argv = nullptr;
    if (tok_str(tokenizer, line.c_str(), &argc, &argv) != 0 || argc != 2 ||
        argv[0] != times(100, "a"))
        _exit(3);
    tok_end(tokenizer);
}

TEST(EditorMemory, WordsOfALineThatEndsInABackslash)
{
    EXPECT_EQ(line_after(split_a_line_that_ends_in_a_backslash, "a\n"), "a");
}

static void
bind_unfinished_escapes()
{
    FILE *terminal = fdopen(dup(terminal_fd), "r+");
    EditLine *editor = el_init("test", terminal, terminal, stderr);
    if (el_wset(editor, EL_BIND, L"\\U+", L"ed-insert", nullptr) != -1 ||
        el_wset(editor, EL_BIND, L"\\U+00E", L"ed-insert", nullptr) != -1 ||
        el_wset(editor, EL_BIND, L"\\U+00E9", L"ed-insert", nullptr) != 0)
        _exit(3);
    el_end(editor);
}

TEST(EditorMemory, UnfinishedEscapeInABinding)
{
    EXPECT_EQ(line_after(bind_unfinished_escapes, "a\n"), "a");
}

TEST(EditorMemory, StringTooLongToBind)
{
    char path[] = "/tmp/editrc.XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    std::string text =
        "bind " + times(3000, "a") + " ed-insert\nbind -s ^G " + times(3000, "b") + "\n";
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
    Session with;
    with.steps = {{"a\n"}};
    with.editrc = path;
    EXPECT_EQ(run(with).line, "a");
    unlink(path);
}

TEST(EditorMemory, ListOfALongKeySequence)
{
    EXPECT_EQ(line_of(command("bind " + times(511, "\001") + " ed-insert") +
                      command("bind") + command("bind " + times(511, "\001")) + "a\n"),
              "a");
}

static void
read_from_descriptor_1024()
{
    struct rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    int ends[2];
    if (setrlimit(RLIMIT_NOFILE, &files) != 0 || pipe(ends) != 0 ||
        write(ends[1], "ab\n", 3) != 3 || dup2(ends[0], 1024) != 1024)
        _exit(2);
    FILE *terminal = fdopen(dup(terminal_fd), "r+");
    EditLine *editor = el_init("test", fdopen(1024, "r"), terminal, stderr);
    int count = 0;
    const char *line = el_gets(editor, &count);
    if (line == nullptr || strcmp(line, "ab\n") != 0)
        _exit(3);
    el_end(editor);
}

// It is not one that select() could wait for, and is read without.
TEST(EditorMemory, HighDescriptor)
{
    EXPECT_EQ(line_after(read_from_descriptor_1024, "a\n"), "a");
}

// A key that was bound in part is unknown; it does not begin a number.
TEST(EditorMemory, KeySequenceForWhichThereIsNoMemory)
{
    static int allowed;
    for (allowed = 0; allowed < 20; allowed++) {
        Session with;
        with.steps = {{"a",
                       [] {
                           mallocs_left = allowed;
                           rl_parse_and_bind("bind -s 5xy z");
                           mallocs_left = -1;
                       }},
                      {"5bcd\n"}};
        std::string line = run(with).line;
        EXPECT_TRUE(line == "a5bcd" || line == "abcd" || line == "acd")
            << allowed << ": " << line;
    }
}

TEST(EditorMemory, LeadInWithoutAnySequence)
{
    Session with;
    with.steps = {{command("bind ^T ed-command") + ctrl('T') + "bind -r ^X\r" + ctrl('T') +
                   "bind -r ^[\r" ESC "a\n"}};
    EXPECT_EQ(run(with).line, "a");
}

TEST(EditorMemory, ArrowKeyThatStandsForAString)
{
    EXPECT_EQ(line_of(command("bind -k -s up abc") + command("bind") + command("bind -e") +
                      UP "\n"),
              "abc");
}

TEST(EditorMemory, ArrowKeyThatStandsForNothing)
{
    EXPECT_EQ(line_of(command("bind -k -r up") + command("bind -e") + "a\n"), "a");
}

TEST(EditorMemory, KeyThatStandsForItself)
{
    EXPECT_EQ(line_of(command("bind -s b b") + "abc\n"), "ac");
}

TEST(EditorMemory, KeyThatStandsForItselfAndMore)
{
    EXPECT_EQ(line_of(command("bind -s b xb") + "abc\n").substr(0, 10), "axxxxxxxxx");
}

TEST(EditorMemory, CommandThatRepeatsItself)
{
    EXPECT_EQ(line_of(vi(vi_command("bind ^G vi-redo") + ESC "ix" + ctrl('G') + "\n"))
                  .substr(0, 4),
              "xxxx");
}

TEST(EditorMemory, ManyTerminalStrings)
{
    std::string keys;
    for (int i = 0; i < 280; i++)
        keys += command("settc al x") + command("settc al xxxxxxx");
    EXPECT_EQ(line_of(keys + "a\n"), "a");
}

TEST(EditorMemory, EchoOfATerminalStringThatEndsInAPercentSign)
{
    std::string screen = run({{{command("settc al <al%") + command("settc bl <bl%d") +
                                command("echotc al") + command("echotc bl 7") + "\n"}}})
                             .screen;
    EXPECT_NE(screen.find("\n<al%> "), std::string::npos);
    EXPECT_NE(screen.find("\n<bl7> "), std::string::npos);
}

TEST(EditorMemory, ManyCharactersDeletedFromALongLine)
{
    EXPECT_EQ(
        line_of(times(900, "a") + ctrl('A') + ESC "8" ESC "0" ESC "0" + ctrl('D') + "\n"),
        times(100, "a"));
}

// ---- searches ----

TEST(EditorMemory, WordOfAnEmptySearch)
{
    EXPECT_EQ(line_of(ctrl('R') + ctrl('W') + ctrl('G') + "a\n"), "a");
}

TEST(EditorMemory, SearchPatternOverItsBuffersEnd)
{
    EXPECT_EQ(line_of(times(3000, "a") + ctrl('A') + ctrl('R') + "a" + ctrl('W') +
                      ctrl('A') + "b\n"),
              "b" + times(3000, "a"));
}

TEST(EditorMemory, SearchPatternOfTooManyKeys)
{
    std::string line = times(1100, "a");
    EXPECT_EQ(line_of(line + ctrl('A') + ctrl('R') + line + ctrl('E') + "b\n"), line + "b");
}

TEST(EditorMemory, SearchWordOverTheLinesEnd)
{
    EXPECT_EQ(line_of(times(1000, "a") + ctrl('A') + ctrl('R') + "a" + ctrl('W') +
                      ctrl('G') + ctrl('G') + "b\n"),
              "b" + times(1000, "a"));
}

TEST(EditorMemory, SearchGivenUpOnALongerLine)
{
    EXPECT_EQ(
        line_with_history({times(3000, "a") + "needle"},
                          "bc" LEFT + ctrl('R') + "needle" + ctrl('G') + ctrl('G') + "d\n"),
        "bdc");
}

static void
lower_the_stack()
{
    struct rlimit limit = {1 << 20, 1 << 20};
    setrlimit(RLIMIT_STACK, &limit);
}

TEST(EditorMemory, SearchOfManyKeys)
{
    Session with;
    with.before = lower_the_stack;
    with.history = {"one", "two"};
    with.steps = {{ctrl('R') + "o" + times(8000, ctrl('R')) + ctrl('A') + "x\n"}};
    EXPECT_EQ(run(with).line, "xone");
}

TEST(EditorMemory, SearchOfManyPlaces)
{
    std::string line = times(30000, "ab c ");
    EXPECT_EQ(line_of(line + ctrl('R') + "z" + ctrl('G') + ctrl('G') + "d\n"), line + "d");
}

// What is searched for stands at a random place of a random line, of every length around
// those that are looked at together. The line found is the newest that has the pattern's
// longest beginning that any line has.
TEST(EditorMemory, SearchFindsWhatIsThere)
{
    static const char *const letters[] = {"a", "b", "c", "\u00e9", "\u65e5"};
    std::mt19937 chance(1);
    for (int round = 0; round < 60; round++) {
        auto text = [&](size_t length, size_t of) {
            std::string made;
            for (size_t i = 0; i < length; i++)
                made += letters[chance() % of];
            return made;
        };
        size_t of = round % 2 == 0 ? 2 : 5;
        std::vector<std::string> history;
        for (size_t length = 1; length < 70; length++)
            history.push_back(text(length, of));
        std::shuffle(history.begin(), history.end(), chance);
        std::string pattern = text(1 + chance() % 12, std::min<size_t>(of, 3));
        std::string expected;
        for (size_t length = 1; length <= pattern.size(); length++)
            for (const std::string &line : history)
                if (line.find(pattern.substr(0, length)) != std::string::npos)
                    expected = line;
        EXPECT_EQ(line_with_history(history, ctrl('R') + pattern + ctrl('E') + "\n"),
                  expected)
            << "pattern " << pattern;
    }
}

TEST(EditorMemory, SearchPatternWithoutEnd)
{
    EXPECT_EQ(line_with_history({times(200, "a")},
                                ctrl('R') + R"(\(a*\)\(a*\)\(a*\)\(a*\)\1\2\3\4b)" +
                                    ctrl('G') + ctrl('G') + "c\n"),
              "c");
}

TEST(EditorMemory, WildcardsAroundALongPattern)
{
    EXPECT_EQ(line_with_history({"one"}, vi(times(1100, "a") + ESC "K/\rAb\n")), "b");
}

TEST(EditorMemory, RepeatedSearchThatFindsNothing)
{
    EXPECT_EQ(line_with_history({"one"}, vi(ESC "/two\riabc" ESC "nxid\n")), "d");
}

// ---- history ----

TEST(EditorMemory, LongLineBackFromTheHistory)
{
    EXPECT_EQ(line_with_history({"one"}, times(1500, "a") + UP DOWN "b\n"),
              times(1500, "a") + "b");
}

// ---- vi ----

TEST(EditorMemory, MoreWordsBackThanThereAre)
{
    EXPECT_EQ(line_of(vi("a b" ESC "5bic\n")), "ca b");
    EXPECT_EQ(line_of(vi("a b" ESC "5Bic\n")), "ca b");
}

TEST(EditorMemory, EndOfAnEmptyViLine)
{
    EXPECT_EQ(line_of(vi(ESC "$ia\n")), "a");
}

TEST(EditorMemory, CaseOfASingleCharacter)
{
    EXPECT_EQ(line_of(vi("a" ESC "~\n")), "A");
}

TEST(EditorMemory, CaseOfAHundredThousandCharacters)
{
    std::string line = times(100000, "a");
    EXPECT_EQ(line_of(vi(line + ESC "0100000~\n")), times(100000, "A"));
}

// Only clang's sanitizer told of this one. What is deleted is the packaged editor's way.
TEST(EditorMemory, MatchingBracketBefore)
{
    EXPECT_EQ(line_of(vi("(a)b" ESC "hd%id\n")), "(d)b");
}

// ---- a count of zero ----

TEST(EditorMemory, ColumnZero)
{
    EXPECT_EQ(line_of(command("bind ^G vi-to-column") + "a" ESC "0" + ctrl('G') + "b\n"),
              "ba");
}

TEST(EditorMemory, ZeroLinesUp)
{
    EXPECT_EQ(line_of(command("bind ^G ed-prev-line") + "a" ESC "0" + ctrl('G') + "b\n"),
              "ab");
}

TEST(EditorMemory, ToTheZerothCharacter)
{
    EXPECT_EQ(line_of(command("bind ^G vi-to-next-char") + "a" + ctrl('A') + ESC "0" +
                      ctrl('G') + "b\n"),
              "ba");
}

// ---- prompts and completions ----

static Outcome
with_prompt(const char *prompt, const char *locale)
{
    Session with;
    with.steps = {{"a\n"}};
    with.prompt = prompt;
    with.locale = locale;
    return run(with);
}

TEST(EditorMemory, PromptThatTheLocaleCannotDecode)
{
    Outcome outcome = with_prompt("\xc3\xa9> ", "C");
    EXPECT_EQ(outcome.line, "a");
    EXPECT_NE(outcome.screen.find("?\?> "), std::string::npos);
}

TEST(EditorMemory, PromptThatIsNoText)
{
    Outcome outcome = with_prompt("\xc3\xa9\xff> ", "C.UTF-8");
    EXPECT_EQ(outcome.line, "a");
    EXPECT_NE(outcome.screen.find("\xc3\xa9?> "), std::string::npos);
}

static char **
one_match(const char *, int, int)
{
    char **matches = static_cast<char **>(malloc(2 * sizeof *matches));
    matches[0] = strdup("abc");
    matches[1] = nullptr;
    return matches;
}

static void
complete_with_one_match()
{
    rl_attempted_completion_function = one_match;
}

TEST(EditorMemory, ListOfASingleMatch)
{
    EXPECT_EQ(line_after(complete_with_one_match, "a\t\n"), "abc ");
}
