// Keys and commands one by one, where the adapted editor differs from the packaged one, and
// at the greatest length that a line can have.
#include "editor_in_child.h"

// ---- the greatest length ----

#ifndef __SANITIZE_ADDRESS__ // with which such lines take longer than a session may

// Nearly as long as a line can be, as it comes from the history. What is typed behind it
// does not all find room.
static const std::string long_line(4193000, 'a');
static const std::string too_much = times(1500, "b");
static const std::string longest = long_line + times(4194301 - 4193000, "b");

static char **
insert_text(const char *, int, int)
{
    rl_attempted_completion_over = 1;
    rl_insert_text("xyz");
    return nullptr;
}

// A count, a quoted key, a word once more, what was killed, a completion, a search: each of
// them needs room.
static std::string
keys_that_add(const std::string &again)
{
    return ESC "3x" + again + "\026x" + again + ESC "\037" + again + ctrl('Y') + again +
           "\t" + again + ctrl('R') + "\n";
}

TEST(EditorKeys, NothingIsAddedToTheLongestLine)
{
    Session with;
    with.history = {long_line};
    with.before = [] { rl_attempted_completion_function = insert_text; };
    std::string full = "x" + ctrl('A') + ctrl('K') + UP + too_much;
    with.steps = {{full + keys_that_add(ctrl('H') + "b")}}; // the cursor is at the end
    Outcome outcome = run(with);
    EXPECT_TRUE(outcome.line == longest);
    EXPECT_EQ(outcome.screen.find("bck:"), std::string::npos) << "a search began";
    // Behind a word, in front of text that must not be written over.
    with.steps = {{full + ctrl('A') + ctrl('D') + ctrl('D') + "wo" + keys_that_add("")}};
    EXPECT_TRUE(run(with).line == "wo" + longest.substr(2));
}

TEST(EditorKeys, NothingIsAddedToTheLongestLineAsInVi)
{
    std::string full = "x" ESC "ddkA" + too_much + ESC;
    EXPECT_TRUE(line_with_history({long_line}, vi(full + "pP_#\n")) == longest);
    EXPECT_TRUE(line_with_history({long_line}, vi(full + "0p0P0_#\n")) == longest);
}

// A word that finds no room in the pattern's buffer, nor behind the line, is not appended.
TEST(EditorKeys, NoRoomForASearchedWord)
{
    std::string keys = UP + ctrl('A') + ctrl('R') + "a" + ctrl('W');
    EXPECT_TRUE(line_with_history({long_line}, keys + ctrl('G') + ctrl('G') + "b\n") ==
                "b" + long_line);
    EXPECT_EQ(line_with_history({"ab", long_line}, keys + ctrl('R') + "\n"), "ab")
        << "the pattern is as it was";
}

TEST(EditorKeys, LongestLineBackFromTheHistory)
{
    std::string whole(4194301, 'a');
    EXPECT_TRUE(line_with_history({whole}, UP "b\n") == whole);
    EXPECT_EQ(line_with_history({whole + "a"}, UP "b\n"), "b");
}

#endif

// ---- one by one ----

TEST(EditorKeys, ListOfTheHistory)
{
    Session with;
    with.history = {"one", "two\tand more"};
    with.steps = {{command("history") + "a\n"}};
    Outcome outcome = run(with);
    EXPECT_EQ(outcome.line, "a");
    EXPECT_NE(outcome.screen.find("1\tone\r\n2\ttwo"), std::string::npos) << outcome.screen;
}

TEST(EditorKeys, ArrowKeyThatStandsForAnotherString)
{
    EXPECT_EQ(line_of(command("bind -k -s up a") + command("bind -k -s up bc") +
                      command("bind -e") + UP "\n"),
              "bc");
}

TEST(EditorKeys, KeyThatIsNoLongerBound)
{
    EXPECT_EQ(line_of(command("bind -r x") + "axb\n"), "ab");
}

TEST(EditorKeys, ColumnThree)
{
    EXPECT_EQ(line_of(vi("abcde" ESC "3|x\n")), "abde");
}

TEST(EditorKeys, WordsOfTheLastLine)
{
    EXPECT_EQ(line_with_history({"one", "two three  four"}, vi("a" ESC "_" ESC "2_\n")),
              "a four three");
    EXPECT_EQ(line_of(vi("a" ESC "_b\n")), "a") << "there is none";
    EXPECT_EQ(line_with_history({"one"}, vi("a" ESC "5_b\n")), "a") << "there is one";
}

TEST(EditorKeys, LineKeptByTheStepToTheOldest)
{
    EXPECT_EQ(line_with_history({"one", "two"}, vi("abc" ESC "Gjj\n")), "abc");
}

// ---- searches ----

// The pattern goes through a line of which each place is looked at, in both directions.
TEST(EditorKeys, SearchForwardInTheLine)
{
    std::string forward = command("bind ^T em-inc-search-next");
    EXPECT_EQ(
        line_of(forward + "x ab ab" + ctrl('A') + ctrl('T') + "ab" + ctrl('D') + "\n"),
        "x b ab");
    EXPECT_EQ(
        line_of(forward + "x ab acb" + ctrl('A') + ctrl('T') + "a.b" + ctrl('D') + "\n"),
        "x ab cb");
}

TEST(EditorKeys, SearchEndsWithTheLine)
{
    EXPECT_EQ(line_of("x ab ab" + ctrl('R') + "b[^c]" + ctrl('D') + "\n"), "x a ab");
}

TEST(EditorKeys, PatternThatFindsALine)
{
    EXPECT_EQ(
        line_with_history({"abc one", "axc two", "abd"}, ctrl('R') + "a.c" + ESC "\n"),
        "axc two");
}

// In the C locale a line of other letters has no form that could be shown.
TEST(EditorKeys, SearchPassesALineThatCannotBeDecoded)
{
    Session with;
    with.locale = "C";
    with.history = {"abc one", "\xc3\xa9 abc two"};
    with.steps = {{ctrl('R') + "abc" + ctrl('E') + "\n"}};
    EXPECT_EQ(run(with).line, "abc one");
}

TEST(EditorKeys, RepeatedSearchThatFindsALineDoesNotRing)
{
    Session with;
    with.steps = {{vi(ESC "/ab\nn\n")}};
    with.history = {"ab 1", "cd", "ab 2"};
    Outcome outcome = run(with);
    EXPECT_EQ(outcome.line, "ab 1");
    EXPECT_EQ(outcome.screen.find('\a'), std::string::npos);
}

// A search by the line's start says nothing of a direction to repeat it in.
TEST(EditorKeys, RepeatedSearchWithoutADirection)
{
    EXPECT_EQ(line_with_history({"one"}, vi("o" ESC "Kniabc\n")), "abc");
}

// It finds its own line again, where there are no others. The next step back finds none.
TEST(EditorKeys, StepBehindASearchThatWentRound)
{
    EXPECT_EQ(line_of(command("bind ^T em-inc-search-next") + "abc" + ctrl('T') + "b" +
                      ctrl('T') + ESC + ctrl('P') + "d\n"),
              "adbc");
}

TEST(EditorKeys, LineKeptWhileThereAreNoOthers)
{
    EXPECT_EQ(line_of("ab" + ctrl('P') + "c" + ctrl('P') + ctrl('N') + ctrl('N') + "d\n"),
              "abcd");
}

TEST(EditorKeys, LineThatCannotBeShownIsPassed)
{
    Session with;
    with.locale = "C";
    with.history = {"one", "\xc3\xa9"};
    with.steps = {{UP UP "b\n"}};
    EXPECT_EQ(run(with).line, "oneb");
}

// ---- prompts, and before the editor is set up ----

TEST(EditorKeys, PromptWithAnOpenInvisiblePart)
{
    Session with;
    with.prompt = "x\001y> ";
    with.steps = {{"a\n"}};
    Outcome outcome = run(with);
    EXPECT_EQ(outcome.line, "a");
    EXPECT_NE(outcome.screen.find("xa"), std::string::npos) << outcome.screen;
}

// Where the prompt is kept, what is left of a longer text stands behind it.
TEST(EditorKeys, PromptBehindALongerText)
{
    Session with;
    for (const char *prompt : {"x\001y> ", "x\001z\001"}) {
        for (const char *before : {"12345", "123456", "1234567890"}) {
            with.prompt = prompt;
            with.history = {before};
            with.steps = {{UP + ctrl('A') + ctrl('K') + "a\n"}};
            Outcome outcome = run(with);
            EXPECT_EQ(outcome.line, "a");
            EXPECT_EQ(outcome.screen.find('y'), std::string::npos) << outcome.screen;
            EXPECT_EQ(outcome.screen.find('5'), outcome.screen.rfind('5'))
                << outcome.screen;
            EXPECT_EQ(outcome.screen.find('7'), outcome.screen.rfind('7'))
                << outcome.screen;
        }
    }
}

// As in the packaged editor: what was killed does not make the line's buffer grow.
TEST(EditorKeys, KilledTextThatNeedsALargerBuffer)
{
    std::string line = times(600, "a");
    EXPECT_EQ(line_of(line + ctrl('A') + ctrl('K') + ctrl('Y') + ctrl('Y') + "b\n"),
              line + "b");
}

TEST(EditorKeys, LineBufferBeforeAnyLine)
{
    auto look = [] {
        if (strcmp(rl_get_line_buffer(), "") != 0)
            _exit(3);
    };
    EXPECT_EQ(line_after(look, "a\n"), "a");
}
