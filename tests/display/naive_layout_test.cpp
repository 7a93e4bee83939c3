// The naive layout follows the rules of the display, one by one.
#include "naive_layout.h"

#include <gtest/gtest.h>
#include <locale.h>

static const std::string arrow = "\xe2\x86\x92";

class NaiveLayoutTest : public ::testing::Test
{
  protected:
    Layout layout;

    void SetUp() override
    {
        setlocale(LC_ALL, "C.UTF-8");
    }

    std::vector<std::string> rows(const std::wstring &prompt, const std::wstring &line,
                                  size_t width, size_t cursor = no_cursor)
    {
        layout = naive_layout(prompt, L'\001', line, cursor, width);
        std::vector<std::string> all;
        for (const Row &row : layout.rows)
            all.push_back(readable(row));
        return all;
    }

    void expect_cursor(size_t row, size_t column)
    {
        EXPECT_EQ(layout.cursor_row, row);
        EXPECT_EQ(layout.cursor_column, column);
    }
};

using Rows = std::vector<std::string>;

TEST_F(NaiveLayoutTest, RowsGoOn)
{
    EXPECT_EQ(rows(L"> ", L"abcd", 5, 4), Rows({"> abc" + arrow, "d|"}));
    expect_cursor(1, 1);
    EXPECT_EQ(rows(L"> ", L"abcd", 5, 3), Rows({"> abc" + arrow, "d|"}));
    expect_cursor(1, 0);
    EXPECT_EQ(rows(L"> ", L"abcd", 5, 2), Rows({"> abc" + arrow, "d|"}));
    expect_cursor(0, 4);
}

TEST_F(NaiveLayoutTest, CursorBehindAFullRowHasARowOfItsOwn)
{
    EXPECT_EQ(rows(L"> ", L"abc", 5, 3), Rows({"> abc" + arrow, " |"}));
    expect_cursor(1, 0);
    EXPECT_EQ(rows(L"> ", L"abc", 5, 2), Rows({"> abc|"}));
    EXPECT_EQ(rows(L"> ", L"abc", 5), Rows({"> abc|"}));
    EXPECT_EQ(rows(L"> abc", L"", 5, 0), Rows({"> abc" + arrow, " |"}));
    expect_cursor(1, 0);
}

TEST_F(NaiveLayoutTest, LineFeedEndsARow)
{
    EXPECT_EQ(rows(L"one\n> ", L"a\nb", 5, 1), Rows({"one|", "> a|", "b|"}));
    expect_cursor(1, 3);
    EXPECT_EQ(rows(L"12345\n> ", L"", 5, 0), Rows({"12345|", "|", "> |"}));
    EXPECT_EQ(rows(L"> ", L"abc\nd", 5, 3), Rows({"> abc|", "|", "d|"}));
    expect_cursor(1, 0);
}

TEST_F(NaiveLayoutTest, TabReachesTheNextStopOrTheEnd)
{
    EXPECT_EQ(rows(L"> ", L"\ta", 10, 1), Rows({">       a|"}));
    expect_cursor(0, 8);
    EXPECT_EQ(rows(L"> ", L"\ta", 5, 0), Rows({">    " + arrow, "a|"}));
    expect_cursor(0, 2);
    EXPECT_EQ(rows(L"> abc", L"\ta", 5, 0), Rows({"> abc" + arrow, "     " + arrow, "a|"}));
    expect_cursor(1, 0);
}

TEST_F(NaiveLayoutTest, WideCharactersGoWholeToTheNextRow)
{
    EXPECT_EQ(rows(L"> ", L"ab漢c", 5, 2), Rows({"> ab" + arrow, "漢c|"}));
    expect_cursor(1, 0);
    EXPECT_EQ(rows(L"", L"漢", 1, 0), Rows({"\\" + arrow, "U" + arrow, "+" + arrow,
                                            "6" + arrow, "F" + arrow, "2" + arrow, "2|"}));
}

TEST_F(NaiveLayoutTest, ControlsAndNumbersBreakOverTheEnd)
{
    EXPECT_EQ(rows(L"> ", L"ab\003c", 5, 2), Rows({"> ab^" + arrow, "Cc|"}));
    expect_cursor(0, 4);
    EXPECT_EQ(rows(L"", L"\x7f\r\x202e\x1f600\xe0001", 40, 2),
              Rows({"^?^M\\U+202E😀\\U+E0001|"}));
    EXPECT_EQ(rows(L"", std::wstring(1, L'\0') + L"\x80", 40), Rows({"^@\\U+0080|"}));
    EXPECT_EQ(rows(L"", std::wstring(1, static_cast<wchar_t>(-61)), 40),
              Rows({"\\U+FFC3|"}));
}

TEST_F(NaiveLayoutTest, MarksStayWithTheCellBefore)
{
    EXPECT_EQ(rows(L"> ", L"abe\x301g", 5, 3), Rows({"> abe\xcc\x81" + arrow, "g|"}));
    expect_cursor(0, 4);
    EXPECT_EQ(rows(L"", L"\x301x\n\x301", 9, 3), Rows({"\\U+0301x|", "\\U+0301|"}));
    expect_cursor(1, 0);
    EXPECT_EQ(rows(L"", L"漢\x301x", 9, 1), Rows({"漢\xcc\x81x|"}));
    expect_cursor(0, 0);
    std::wstring nine(9, L'\x301');
    EXPECT_EQ(rows(L"a", nine, 9, 8).size(), 1u);
    expect_cursor(0, 1);
    EXPECT_EQ(layout.rows[0].cells.size(), 8u);
    EXPECT_EQ(layout.rows[0].cells[0].marks.size(), 8u);
}

TEST_F(NaiveLayoutTest, IgnoredPartsHaveNoColumns)
{
    EXPECT_EQ(rows(L"\001\033[1m\001ab\001\033[m\001> ", L"c", 9, 1), Rows({"ab> c|"}));
    expect_cursor(0, 5);
    EXPECT_EQ(layout.written.at({0, 0}), U"\033[1ma");
    EXPECT_EQ(layout.written.at({0, 2}), U"\033[m>");
    EXPECT_EQ(layout.written.size(), 2u);
    EXPECT_EQ(rows(L"a\x301\001x\001", L"b", 9, 0), Rows({"a\xcc\x81"
                                                          "b|"}));
    EXPECT_EQ(layout.written.at({0, 0}), U"a\x301x");
    EXPECT_EQ(rows(L"\n\001x\001", L"b", 9, 0), Rows({"|", "b|"}));
    EXPECT_EQ(layout.written.at({1, 0}), U"xb");
    EXPECT_EQ(rows(L"a\001bc", L"d", 9, 0), Rows({"ad|"}));
}

TEST_F(NaiveLayoutTest, WindowFollowsTheCursor)
{
    rows(L"", L"abcdefghij", 1, 0);
    EXPECT_EQ(naive_top(layout, 4, 3), 0u);
    rows(L"", L"abcdefghij", 1, 5);
    EXPECT_EQ(naive_top(layout, 4, 0), 2u);
    EXPECT_EQ(naive_top(layout, 4, 9), 5u);
    EXPECT_EQ(naive_top(layout, 4, 4), 4u);
    rows(L"", L"abcdefghij", 1, 10);
    EXPECT_EQ(naive_top(layout, 4, 0), 7u);
    rows(L"", L"abcdefgh", 1, 7);
    EXPECT_EQ(naive_top(layout, 4, 7), 4u);
    EXPECT_EQ(naive_top(layout, 20, 7), 0u);
}
