// What becomes of the rows when the window's size changes.
#include "terminal_model.h"

#include <algorithm>

void
TerminalModel::follow(size_t number)
{
    watched = number;
}

size_t
TerminalModel::followed() const
{
    return watched;
}

void
TerminalModel::resize(int new_rows, int new_columns, Resize how)
{
    if (new_rows == rows && new_columns == columns)
        return;
    resize_clipping(new_rows, how == Clips ? new_columns : columns);
    if (new_columns != columns)
        resize_reflowing(new_columns);
}

// Keeps rows in their places. One that is cut, or does not reach the last column any more,
// does not go on. Lower, the top rows leave until the cursor has room; higher, they return.
void
TerminalModel::resize_clipping(int new_rows, int new_columns)
{
    if (new_columns != columns) {
        for (Row &line : lines) {
            split(&line, new_columns);
            line.cells.resize(
                std::min(line.cells.size(), static_cast<size_t>(new_columns)));
            line.joined = false;
        }
        state = Column;
    }
    for (; at_row >= new_rows; at_row--)
        top++;
    for (int row = rows; row < new_rows && top > 0; row++) {
        top--;
        at_row++;
    }
    if (lines.size() > top + static_cast<size_t>(new_rows))
        lines.resize(top + static_cast<size_t>(new_rows));
    rows = new_rows;
    columns = new_columns;
    at_column = std::min(at_column, columns - 1);
}

struct Place {
    size_t row;
    size_t column;
};

// The rows that a line of cells makes. Tells the place of each cell, and at last the one
// behind them. A wide character that does not fit leaves an empty cell.
static std::vector<Row>
rows_of(const std::vector<Cell> &line, size_t columns, std::vector<Place> *places)
{
    std::vector<Row> made(1);
    for (size_t i = 0; i < line.size(); i++) {
        bool is_wide = i + 1 < line.size() && line[i + 1].base == second_half;
        size_t wanted = line[i].base == second_half ? 0 : is_wide && columns > 1 ? 2 : 1;
        if (made.back().cells.size() + wanted > columns) {
            made.back().joined = true;
            made.emplace_back();
        }
        places->push_back({made.size() - 1, made.back().cells.size()});
        if (made.back().cells.size() < columns)
            made.back().cells.push_back(line[i]);
    }
    places->push_back({made.size() - 1, made.back().cells.size()});
    return made;
}

// Reflows the lines, of one or more rows. The window's first row stays the first as
// long as all that is below has room.
void
TerminalModel::resize_reflowing(int new_columns)
{
    extend();
    size_t cursor_line = top + static_cast<size_t>(at_row);
    Place cursor = {0, 0};
    size_t new_top = 0;
    size_t new_watched = watched;
    std::deque<Row> made;
    for (size_t i = 0; i < lines.size();) {
        std::vector<Cell> line;
        std::vector<size_t> starts; // of the old rows
        size_t first = i;
        bool goes_on = true;
        for (; goes_on && i < lines.size(); i++) {
            Row row = trimmed(lines[i]);
            starts.push_back(line.size());
            line.insert(line.end(), row.cells.begin(), row.cells.end());
            goes_on = row.joined;
        }
        std::vector<Place> places;
        std::vector<Row> fresh = rows_of(line, static_cast<size_t>(new_columns), &places);
        if (first <= top && top < i)
            new_top = made.size() + places[starts[top - first]].row;
        if (first + dropped <= watched && watched < i + dropped)
            new_watched =
                dropped + made.size() + places[starts[watched - dropped - first]].row;
        if (first <= cursor_line && cursor_line < i) {
            size_t offset = starts[cursor_line - first] + static_cast<size_t>(at_column);
            cursor = places[std::min(offset, line.size())];
            cursor.row += made.size();
            cursor.column += offset - std::min(offset, line.size());
        }
        made.insert(made.end(), fresh.begin(), fresh.end());
    }
    lines.swap(made);
    // The cursor stays behind the last character, before a wrap if there is no room.
    size_t end = static_cast<size_t>(new_columns);
    if (state == Waits)
        cursor.column++;
    state = cursor.column == end ? Waits : Column;
    cursor.column = std::min(cursor.column, end - 1);
    watched = new_watched;
    columns = new_columns;
    size_t height = static_cast<size_t>(rows);
    while (lines.size() > cursor.row + 1 && is_empty(lines.back()))
        lines.pop_back();
    top = std::max(new_top, lines.size() - std::min(lines.size(), height));
    top = std::min(top, cursor.row);
    lines.resize(std::min(lines.size(), top + height));
    at_row = static_cast<int>(cursor.row - top);
    at_column = static_cast<int>(cursor.column);
}
