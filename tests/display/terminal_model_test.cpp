// The model of a terminal and the naive layout, which the display is measured by, do what
// terminals do and what the rules say.
#include "terminal_model.h"

#include <gtest/gtest.h>
#include <locale.h>

#include "naive_layout.h"

class TerminalModelTest : public ::testing::Test
{
  protected:
    TerminalModel terminal = TerminalModel(terminal_type("xterm"), 4, 5);

    void SetUp() override
    {
        setlocale(LC_ALL, "C.UTF-8");
    }

    // The window's rows up to the cursor or the last with something in it.
    std::vector<std::string> rows()
    {
        std::vector<std::string> all;
        for (size_t number = terminal.scrolled(); number < terminal.used(); number++)
            all.push_back(readable(terminal.any_row(number)));
        return all;
    }

    std::vector<std::string> after(const std::string &bytes)
    {
        terminal.feed(bytes);
        EXPECT_EQ(terminal.errors(), std::vector<std::string>());
        return rows();
    }

    // What is wrong about the bytes, or nothing.
    std::string error_after(const std::string &bytes)
    {
        terminal.feed(bytes);
        return terminal.errors().empty() ? "" : terminal.errors()[0];
    }

    void expect_cursor(int row, int column)
    {
        EXPECT_EQ(terminal.cursor_row(), row);
        EXPECT_EQ(terminal.cursor_column(), column);
    }

    void become(const char *type, int height = 4, int width = 5)
    {
        TerminalType found = terminal_type(type);
        ASSERT_TRUE(found.known) << type;
        terminal = TerminalModel(found, height, width);
    }
};

using Rows = std::vector<std::string>;

static const std::string arrow = "\xe2\x86\x92";
static const std::string dot = "\xc2\xb7"; // an empty cell
static const std::string gone = "\xef\xbf\xbd";
static const std::string wide = "\xe6\xbc\xa2";

// ---- margins ----

TEST_F(TerminalModelTest, WrapsWithTheNextCharacter)
{
    EXPECT_EQ(after("abcde"), Rows({"abcde|"}));
    expect_cursor(0, 4);
    EXPECT_TRUE(terminal.wraps_next());
    EXPECT_EQ(after("f"), Rows({"abcde" + arrow, "f|"}));
    expect_cursor(1, 1);
}

TEST_F(TerminalModelTest, ReturnEndsTheWait)
{
    EXPECT_EQ(after("abcde\rx"), Rows({"xbcde|"}));
    expect_cursor(0, 1);
}

TEST_F(TerminalModelTest, LineFeedAfterTheLastColumnJoinsNothing)
{
    EXPECT_EQ(after("abcde\nf"), Rows({"abcde|", "f|"}));
}

TEST_F(TerminalModelTest, DownWithinALineKeepsItJoined)
{
    EXPECT_EQ(after("abcdef\r\033[A\n\033[A\033[1B"), Rows({"abcde" + arrow, "f|"}));
    expect_cursor(1, 0);
}

TEST_F(TerminalModelTest, LastCellWrittenAnewIsForgottenToGoOn)
{
    EXPECT_EQ(after("abcdef\033[A\033[5Gx"), Rows({"abcdx|", "f|"}));
    EXPECT_EQ(after("y"), Rows({"abcdx" + arrow, "y|"}));
}

TEST_F(TerminalModelTest, WrapsAtOnceWithoutTheDelay)
{
    become("ansi");
    EXPECT_EQ(after("abcde"), Rows({"abcde" + arrow, "|"}));
    expect_cursor(1, 0);
}

TEST_F(TerminalModelTest, StaysInTheLastColumnWithoutMargins)
{
    become("vt52");
    EXPECT_EQ(after("abcdef"), Rows({"abcdf|"}));
    expect_cursor(0, 4);
}

TEST_F(TerminalModelTest, ScrollsAtTheBottom)
{
    EXPECT_EQ(after("1\n2\n3\n4\nabcdef"), Rows({"3|", "4|", "abcde" + arrow, "f|"}));
    EXPECT_EQ(terminal.scrolled(), 2u);
    EXPECT_EQ(readable(terminal.any_row(1)), "2|");
}

// ---- characters of other widths ----

TEST_F(TerminalModelTest, WideCharacterGoesWholeToTheNextRow)
{
    EXPECT_EQ(after("abcd " + wide + "e"), Rows({"abcd " + arrow, wide + "e|"}));
    EXPECT_EQ(after("\r\nabcd" + wide),
              Rows({"abcd " + arrow, wide + "e|", "abcd" + arrow, wide + "|"}));
}

TEST_F(TerminalModelTest, HalfOfAWideCharacterIsBroken)
{
    EXPECT_EQ(after("a" + wide + "b\r\033[Cx"), Rows({"ax" + gone + "b|"}));
    EXPECT_EQ(after("\r\033[K" + wide + "b\r\033[Cx"), Rows({gone + "xb|"}));
    EXPECT_EQ(after("\r\033[K" + wide + "b\r\033[C\033[P"), Rows({gone + "b|"}));
    EXPECT_EQ(after("\r\033[Kabc" + wide + "\r\033[1@x"), Rows({"xabc" + gone + "|"}));
}

TEST_F(TerminalModelTest, MarkStandsWithTheCellBefore)
{
    EXPECT_EQ(after("abcde\xcc\x81"), Rows({"abcde\xcc\x81|"}));
    EXPECT_TRUE(terminal.wraps_next());
    EXPECT_EQ(after("\r" + wide + "\xcc\x81"), Rows({wide + "\xcc\x81" + "cde\xcc\x81|"}));
}

TEST_F(TerminalModelTest, MarkWithoutACellIsAnError)
{
    EXPECT_NE(error_after("\xcc\x81"), "");
}

TEST_F(TerminalModelTest, WideCharacterInOneColumnIsAnError)
{
    become("xterm", 4, 1);
    EXPECT_NE(error_after(wide), "");
}

// ---- what changes a row ----

TEST_F(TerminalModelTest, InsertsAndDeletes)
{
    EXPECT_EQ(after("abcd\r\033[C\033[1@x"), Rows({"axbcd|"}));
    EXPECT_EQ(after("\033[2@"), Rows({"ax" + dot + dot + "b|"}));
    EXPECT_EQ(after("\r\033[P\033[2P"), Rows({dot + "b|"}));
    EXPECT_EQ(after("\r\033[4hyz\033[4l"), Rows({"yz" + dot + "b|"}));
}

TEST_F(TerminalModelTest, ClearsToTheRight)
{
    EXPECT_EQ(after("abc\nabc\nabc\033[2A\b\033[K"), Rows({"ab|", "abc|", "abc|"}));
    EXPECT_EQ(after("\n\033[C\033[J"), Rows({"ab|", "a|"}));
}

TEST_F(TerminalModelTest, ChangeOfARowIsForgottenToGoOn)
{
    for (const char *change :
         {"\033[1@", "\033[P", "\033[K", "\033[J", "\033[4hx\033[4l"}) {
        become("xterm");
        after(std::string("abcdef\r\033[A") + change);
        EXPECT_FALSE(terminal.row(0).joined) << change;
    }
}

TEST_F(TerminalModelTest, RowIsForgottenToGoOnInOneThatIsCleared)
{
    EXPECT_EQ(after("abcdef\033[K\r"), Rows({"abcde" + arrow, "f|"}));
    EXPECT_EQ(after("\033[K"), Rows({"abcde|", "|"}));
}

TEST_F(TerminalModelTest, ClearsTheWindow)
{
    EXPECT_EQ(after("abc\nd\033[H\033[2Je"), Rows({"e|"}));
}

// ---- the cursor ----

TEST_F(TerminalModelTest, MovesAsTold)
{
    EXPECT_EQ(after("\033[3G\033[2B"), Rows({"|", "|", "|"}));
    expect_cursor(2, 2);
    after("\033[A\b\033[2C\033[3D");
    expect_cursor(1, 0);
    after("\0337\033[1B\0338");
    expect_cursor(1, 0);
}

TEST_F(TerminalModelTest, StepBeforeAWrapIsAnError)
{
    for (const char *step : {"\b", "\033[D", "\033[K", "\033[P", "\033[1@", "\033[J"}) {
        become("xterm");
        EXPECT_NE(error_after(std::string("abcde") + step), "") << step;
    }
    become("xterm");
    EXPECT_NE(error_after("abcde\033[1Bx"), "");
    become("xterm");
    EXPECT_EQ(error_after("abcde\033[1B\rx\033[3G"), "");
}

TEST_F(TerminalModelTest, StepOutOfTheRowIsAnError)
{
    EXPECT_NE(error_after("\b"), "");
    become("xterm");
    EXPECT_NE(error_after("\033[5C"), "");
    become("xterm");
    EXPECT_NE(error_after("\033[6G"), "");
}

TEST_F(TerminalModelTest, SaysWhereTheCursorIs)
{
    after("abcdef\033[6n");
    EXPECT_EQ(terminal.take_answers(), "\033[2;2R");
    EXPECT_EQ(terminal.take_answers(), "");
    after("cdef\033[6n");
    EXPECT_EQ(terminal.take_answers(), "\033[2;5R");
    EXPECT_TRUE(terminal.wraps_next());
}

// ---- types ----

TEST_F(TerminalModelTest, UnderstandsWhatItsTypeHas)
{
    EXPECT_EQ(error_after("\033[2@\033[3G\033[1P\033]0;title\a\033[1mx\033[0m\a"), "");
    EXPECT_EQ(terminal.beeps(), 1);
    EXPECT_EQ(after("\r\033[3Ga\033[D\033[@b"), Rows({dot + dot + "ba|"}));
    EXPECT_EQ(error_after("\033[2T"), "not known to xterm: ^[[2T");
    become("xterm");
    EXPECT_EQ(error_after("\033[0@"), "not known to xterm: ^[[0@");
    become("vt100");
    EXPECT_EQ(error_after("ab\r\033[C\033[K\033[J\033[2D"), "moves out of the row");
    become("vt100");
    EXPECT_EQ(error_after("\033[P"), "not known to vt100: ^[[P");
    become("dumb");
    EXPECT_EQ(error_after("a\b\rb\033[K"), "not known to dumb: ^[[K");
    become("vt52");
    EXPECT_EQ(error_after("ab\033D\033C\r\033K\033J\033A"), "");
    become("xterm");
    EXPECT_EQ(error_after("\033[C$<2>"), "");
    EXPECT_EQ(rows(), Rows({dot + "$<2>" + "|"}));
}

TEST_F(TerminalModelTest, InventedTypesLackOneThing)
{
    std::vector<std::string> names;
    ASSERT_TRUE(invent_types(&names));
    EXPECT_GE(names.size(), 15u);
    for (const std::string &name : names)
        EXPECT_TRUE(terminal_type(name).known) << name;
    EXPECT_FALSE(terminal_type("test-no-up").can(Action::Up));
    EXPECT_FALSE(terminal_type("test-no-erase").can(Action::EraseBelow));
    EXPECT_FALSE(terminal_type("test-no-delay").delayed);
    EXPECT_EQ(terminal_type("test-padded").sequences.count("\033[K"), 1u);
    EXPECT_EQ(terminal_type("test-padded").sequences.count("\033[#@"), 1u);
}

// ---- resizes ----

TEST_F(TerminalModelTest, ReflowKeepsLinesTogether)
{
    after("12\nabcdefgh");
    terminal.resize(4, 8, TerminalModel::Reflows);
    EXPECT_EQ(rows(), Rows({"12|", "abcdefgh|"}));
    expect_cursor(1, 7);
    EXPECT_TRUE(terminal.wraps_next());
    terminal.resize(4, 3, TerminalModel::Reflows);
    EXPECT_EQ(rows(), Rows({"12|", "abc" + arrow, "def" + arrow, "gh|"}));
    expect_cursor(3, 2);
    terminal.resize(2, 3, TerminalModel::Reflows);
    EXPECT_EQ(rows(), Rows({"def" + arrow, "gh|"}));
    terminal.resize(4, 10, TerminalModel::Reflows);
    EXPECT_EQ(rows(), Rows({"12|", "abcdefgh|"}));
    expect_cursor(1, 8);
}

TEST_F(TerminalModelTest, ReflowKeepsWideCharactersWhole)
{
    after(wide + wide + "a");
    terminal.resize(4, 3, TerminalModel::Reflows);
    EXPECT_EQ(rows(), Rows({wide + arrow, wide + "a|"}));
    expect_cursor(1, 2);
    EXPECT_TRUE(terminal.wraps_next());
    terminal.resize(4, 6, TerminalModel::Reflows);
    EXPECT_EQ(rows(), Rows({wide + wide + "a|"}));
    expect_cursor(0, 5);
}

TEST_F(TerminalModelTest, ClippingCutsRows)
{
    after("12\nabcdefg");
    terminal.resize(4, 4, TerminalModel::Clips);
    EXPECT_EQ(rows(), Rows({"12|", "abcd|", "fg|"}));
    expect_cursor(2, 2);
    terminal.resize(4, 8, TerminalModel::Clips);
    EXPECT_EQ(rows(), Rows({"12|", "abcd|", "fg|"}));
    terminal.resize(2, 8, TerminalModel::Clips);
    EXPECT_EQ(rows(), Rows({"abcd|", "fg|"}));
    expect_cursor(1, 2);
    terminal.resize(4, 8, TerminalModel::Clips);
    EXPECT_EQ(rows(), Rows({"12|", "abcd|", "fg|"}));
}
