// The editor's layout of prompt and line is that of the rules, whatever the size.
#include <gtest/gtest.h>
#include <locale.h>
#include <random>
#include <stdlib.h>
#include <string>

extern "C" {
#include "config.h"

#include "el.h"
}

#include "naive_layout.h"

static std::mt19937 generator;

static size_t
below(size_t limit)
{
    return generator() % limit;
}

// ---- one case ----

struct Case {
    std::wstring prompt;
    std::wstring line;
    size_t cursor;
    size_t width;
    size_t height;
    size_t top;
};

static const wchar_t mark_of_ignored = L'\001';

static std::string
cell_text(const layout_t &made, wint_t cell)
{
    std::string text;
    if (cell == LAYOUT_EMPTY || cell == LAYOUT_FILL)
        return cell == LAYOUT_FILL ? "" : "(empty)";
    if (!(cell & LAYOUT_COMPOSED))
        return encoded(cell);
    for (const wchar_t *c = layout_composed(&made, cell); *c != '\0'; c++)
        text += encoded(static_cast<char32_t>(*c));
    return text;
}

static std::string
cell_text(const Layout &naive, size_t row, size_t column)
{
    std::string text;
    const Cell &cell = naive.rows[row].cells[column];
    if (cell.base == second_half)
        return "";
    auto written = naive.written.find({row, column});
    for (char32_t c :
         written != naive.written.end() ? written->second : cell.base + cell.marks)
        text += encoded(c);
    return text;
}

// Each cell between bars.
static std::string
text_of(const layout_t &made)
{
    std::string text;
    for (int i = 0; i < made.rows; i++) {
        const layout_row_t *row = layout_row(&made, i);
        for (int column = 0; column < row->end; column++)
            text += cell_text(made, row->cells[column]) + "|";
        text += row->continued && i + 1 < made.rows ? " goes on\n" : "\n";
    }
    return text + "top " + std::to_string(made.top) + ", cursor " +
           std::to_string(made.cursor.v) + " " + std::to_string(made.cursor.h);
}

static std::string
text_of(const Layout &naive, const Case &that)
{
    std::string text;
    size_t top = naive_top(naive, that.height, that.top);
    size_t end = std::min(naive.rows.size(), top + that.height);
    for (size_t row = top; row < end; row++) {
        for (size_t column = 0; column < naive.rows[row].cells.size(); column++)
            text += cell_text(naive, row, column) + "|";
        text += naive.rows[row].joined && row + 1 < end ? " goes on\n" : "\n";
    }
    return text + "top " + std::to_string(top) + ", cursor " +
           std::to_string(naive.cursor_row - top) + " " +
           std::to_string(naive.cursor_column);
}

static void
expect_same(const Case &that)
{
    layout_t made = {};
    ASSERT_EQ(
        layout_alloc(&made, static_cast<int>(that.width), static_cast<int>(that.height)),
        0);
    layout_text_t text = {that.prompt.c_str(), mark_of_ignored, that.line.data(),
                          that.line.size(), that.cursor};
    layout_make(&made, &text, static_cast<int>(that.top));
    Layout naive =
        naive_layout(that.prompt, mark_of_ignored, that.line, that.cursor, that.width);
    EXPECT_EQ(text_of(made), text_of(naive, that))
        << "prompt " << ::testing::PrintToString(that.prompt) << ", line "
        << ::testing::PrintToString(that.line) << ", cursor " << that.cursor << ", "
        << that.height << " rows of " << that.width << " columns, before from " << that.top;
    layout_free(&made);
}

// ---- many ----

class LayoutTest : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        setlocale(LC_ALL, "C.UTF-8");
    }
};

static std::wstring
random_text(size_t length, bool is_prompt)
{
    static const wchar_t characters[] =
        L"aaaabc  \xe4\xdf\x6f22\x5b57\x4e0d\x1f600\x301\x308\x323\t\t\n\n\r\033\003\177"
        L"\x200d\xad\x202e\xfeff\x85\xe0001\x10fffd\xe000\x301\x301\x301";
    std::wstring text;
    size_t kinds = 4 + below(sizeof characters / sizeof *characters - 4);
    while (text.size() < length) {
        text += characters[below(kinds)];
        if (!is_prompt && below(200) == 0)
            text += static_cast<wchar_t>(-1 - static_cast<int>(below(128)));
        if (is_prompt && below(6) == 0)
            text += mark_of_ignored;
    }
    return text;
}

TEST_F(LayoutTest, FollowsTheRules)
{
    const char *seed = getenv("KEYLINE_DISPLAY_SEED");
    generator.seed(seed == nullptr ? 1 : static_cast<unsigned>(atol(seed)));
    const char *keys = getenv("KEYLINE_DISPLAY_KEYS");
    for (long left = keys == nullptr ? 50000 : atol(keys); left > 0; left--) {
        Case next;
        next.width = 1 + below(below(2) == 0 ? 12 : 90);
        next.height = 1 + below(below(2) == 0 ? 4 : 30);
        next.prompt = random_text(below(below(3) == 0 ? 60 : 4), true);
        next.line = random_text(below(below(3) == 0 ? 200 : 30), false);
        next.cursor = below(10) == 0 ? no_cursor : below(next.line.size() + 1);
        next.top = below(3) == 0 ? below(40) : 0;
        expect_same(next);
        if (HasFailure())
            break;
    }
}
