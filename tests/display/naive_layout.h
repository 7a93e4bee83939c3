// Prompt and line laid out into rows, slowly and obviously. What the editor's own layout
// and the screen are compared with.
#pragma once

#include <map>
#include <stddef.h>
#include <string>
#include <utility>
#include <vector>

#include "terminal_cells.h"

struct Layout {
    std::vector<Row> rows;
    size_t cursor_row = 0;
    size_t cursor_column = 0;
    // What is written for the cells, by row and column, that have invisible parts with
    // them.
    std::map<std::pair<size_t, size_t>, std::u32string> written;
};

// The line has been entered: the cursor is behind it, and has no row of its own.
constexpr size_t no_cursor = static_cast<size_t>(-1);

// What stands between two `ignore` characters of the prompt has no columns.
Layout naive_layout(const std::wstring &prompt, wchar_t ignore, const std::wstring &line,
                    size_t cursor, size_t width);

// The first row of those that a window of that height shows, when `before` was it last.
size_t naive_top(const Layout &layout, size_t height, size_t before);
