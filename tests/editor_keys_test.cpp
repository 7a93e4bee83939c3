// Keys and commands one by one, where the adapted editor differs from the packaged one, and
// at the greatest length that a line can have.
#include "editor_check.h"

static std::string
line_with_history(const std::vector<std::string> &history, const std::string &keys)
{
    Session with;
    with.steps = {{keys}};
    with.history = history;
    return run(with).line;
}

// Editing as in vi, with the keys that follow in its insert mode.
static std::string
vi(const std::string &keys)
{
    return command("bind -v") + keys;
}

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
TEST(EditorKeys, NothingIsAddedToTheLongestLine)
{
    Session with;
    with.history = {long_line};
    std::string again = ctrl('H') + "b"; // the cursor is at the end
    with.steps = {{"x" + ctrl('A') + ctrl('K') + UP + too_much + ESC "3x" + again +
                   "\026x" + again + ESC "\037" + again + ctrl('Y') + again + "\t" + again +
                   ctrl('R') + "\n"}};
    with.before = [] { rl_attempted_completion_function = insert_text; };
    EXPECT_TRUE(run(with).line == longest);
}

TEST(EditorKeys, NothingIsAddedToTheLongestLineAsInVi)
{
    EXPECT_TRUE(line_with_history({long_line},
                                  vi("x" ESC "ddkA" + too_much + ESC "pP_#\n")) == longest);
}

// A word that finds no room in the pattern's buffer, nor behind the line, is not appended.
TEST(EditorKeys, NoRoomForASearchedWord)
{
    EXPECT_TRUE(line_with_history({long_line}, UP + ctrl('A') + ctrl('R') + "a" +
                                                   ctrl('W') + ctrl('G') + ctrl('G') +
                                                   "b\n") == "b" + long_line);
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

// In the C locale a line of other letters has no form that could be shown.
TEST(EditorKeys, SearchPassesALineThatCannotBeDecoded)
{
    Session with;
    with.locale = "C";
    with.history = {"abc one", "\xc3\xa9 abc two"};
    with.steps = {{ctrl('R') + "abc" + ctrl('E') + "\n"}};
    EXPECT_EQ(run(with).line, "abc one");
}

// A search by the line's start says nothing of a direction to repeat it in.
TEST(EditorKeys, RepeatedSearchWithoutADirection)
{
    EXPECT_EQ(line_with_history({"one"}, vi("o" ESC "Kniabc\n")), "abc");
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

TEST(EditorKeys, LineBufferBeforeAnyLine)
{
    Session with;
    with.steps = {{"a\n"}};
    with.before = [] {
        if (strcmp(rl_get_line_buffer(), "") != 0)
            _exit(3);
    };
    EXPECT_EQ(run(with).line, "a");
}
