#include "naive_layout.h"

#include <stdio.h>
#include <wchar.h>
#include <wctype.h>

// Characters that only change how others look: the general category Cf.
static bool
is_format(wchar_t c)
{
    static const struct {
        unsigned first, last;
    } ranges[] = {
        {0xad, 0xad},       {0x600, 0x605},     {0x61c, 0x61c},     {0x6dd, 0x6dd},
        {0x70f, 0x70f},     {0x890, 0x891},     {0x8e2, 0x8e2},     {0x180e, 0x180e},
        {0x200b, 0x200f},   {0x202a, 0x202e},   {0x2060, 0x2064},   {0x2066, 0x206f},
        {0xfeff, 0xfeff},   {0xfff9, 0xfffb},   {0x110bd, 0x110bd}, {0x110cd, 0x110cd},
        {0x13430, 0x1343f}, {0x1bca0, 0x1bca3}, {0x1d173, 0x1d17a}, {0xe0001, 0xe0001},
        {0xe0020, 0xe007f},
    };
    for (const auto &range : ranges)
        if (static_cast<unsigned>(c) >= range.first &&
            static_cast<unsigned>(c) <= range.last)
            return true;
    return false;
}

// What is no character, a byte that could not be decoded, is shown by its last digits.
static std::wstring
as_number(wchar_t c)
{
    wchar_t text[20];
    swprintf(text, 20, L"\\U+%04X", static_cast<unsigned>(c < 0 ? c & 0xffff : c));
    return text;
}

struct Place {
    size_t row;
    size_t column;
};

// The rows so far, and what is to be written with the next cell.
struct Rows {
    std::vector<Row> rows = std::vector<Row>(1);
    size_t width;
    std::u32string parts;
    std::map<std::pair<size_t, size_t>, std::u32string> written;

    size_t column() const
    {
        return rows.back().cells.size();
    }

    void go_on()
    {
        rows.back().joined = true;
        rows.emplace_back();
    }

    Place place(wchar_t base)
    {
        if (column() == width)
            go_on();
        rows.back().cells.push_back({static_cast<char32_t>(base), {}});
        if (!parts.empty())
            written[{rows.size() - 1, column() - 1}] = parts + static_cast<char32_t>(base);
        parts.clear();
        return {rows.size() - 1, column() - 1};
    }

    // Its first column, if it is a wide one.
    Place cell_before() const
    {
        size_t last = column() - 1;
        return {rows.size() - 1,
                rows.back().cells[last].base == second_half ? last - 1 : last};
    }

    // What waits goes behind the cell before, if there is one in this row.
    void end_parts()
    {
        if (parts.empty() || rows.back().cells.empty())
            return;
        Place before = cell_before();
        std::u32string &text = written[{before.row, before.column}];
        if (text.empty()) {
            const Cell &cell = rows.back().cells[before.column];
            text = cell.base + cell.marks;
        }
        text += parts;
        parts.clear();
    }

    Place place_wide(wchar_t base)
    {
        if (column() + 2 > width)
            go_on();
        Place first = place(base);
        rows.back().cells.push_back({second_half, {}});
        return first;
    }

    Place place_all(const std::wstring &text)
    {
        Place first = place(text[0]);
        for (size_t i = 1; i < text.size(); i++)
            place(text[i]);
        return first;
    }

    Place place_tab()
    {
        Place first = place(L' ');
        while (column() % 8 != 0 && column() < width)
            place(L' ');
        return first;
    }

    Place end_row()
    {
        if (column() == width)
            rows.emplace_back();
        Place end = {rows.size() - 1, column()};
        rows.emplace_back();
        return end;
    }

    // In the cell before, if that is one of the line and has room.
    Place place_mark(wchar_t mark)
    {
        if (rows.back().cells.empty())
            return place_all(as_number(mark));
        Place before = cell_before();
        std::u32string &marks = rows.back().cells[before.column].marks;
        if (marks.size() == 8)
            return place_all(as_number(mark));
        end_parts();
        marks += static_cast<char32_t>(mark);
        auto with_parts = written.find({before.row, before.column});
        if (with_parts != written.end())
            with_parts->second += static_cast<char32_t>(mark);
        return before;
    }

    // Where its first cell has come to.
    Place place_character(wchar_t c)
    {
        if (c == L'\t')
            return place_tab();
        if (c == L'\n')
            return end_row();
        if ((c >= 0 && c < 32) || c == 127)
            return place_all({L'^', static_cast<wchar_t>(c ^ 0100)});
        if (c < 0 || !iswprint(static_cast<wint_t>(c)) || is_format(c))
            return place_all(as_number(c));
        switch (wcwidth(c)) {
        case 0:
            return place_mark(c);
        case 1:
            return place(c);
        default:
            return width == 1 ? place_all(as_number(c)) : place_wide(c);
        }
    }
};

Layout
naive_layout(const std::wstring &prompt, wchar_t ignore, const std::wstring &line,
             size_t cursor, size_t width)
{
    Rows made;
    made.width = width;
    for (size_t i = 0; i < prompt.size(); i++) {
        if (ignore == 0 || prompt[i] != ignore) {
            made.place_character(prompt[i]);
            continue;
        }
        size_t end = prompt.find(ignore, i + 1);
        if (end == std::wstring::npos)
            break;
        made.parts.append(prompt.begin() + static_cast<long>(i) + 1,
                          prompt.begin() + static_cast<long>(end));
        i = end;
    }
    made.end_parts();
    Layout layout;
    for (size_t i = 0; i < line.size(); i++) {
        Place first = made.place_character(line[i]);
        if (i == cursor) {
            layout.cursor_row = first.row;
            layout.cursor_column = first.column;
        }
    }
    if (cursor >= line.size()) {
        if (cursor == line.size() && made.column() == width) {
            made.go_on();
            made.place(L' ');
            layout.cursor_column = 0;
        } else {
            layout.cursor_column = made.column();
        }
        layout.cursor_row = made.rows.size() - 1;
    }
    layout.rows = made.rows;
    layout.written = made.written;
    return layout;
}

size_t
naive_top(const Layout &layout, size_t height, size_t before)
{
    size_t top = before;
    if (layout.cursor_row < top)
        top = layout.cursor_row;
    else if (layout.cursor_row >= top + height)
        top = layout.cursor_row - height + 1;
    if (top + height > layout.rows.size())
        top = layout.rows.size() > height ? layout.rows.size() - height : 0;
    return top;
}
