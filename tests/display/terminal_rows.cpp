// What printing and the sequences make of the rows.
#include "terminal_model.h"

#include <algorithm>
#include <wchar.h>

// ---- what is printed ----

// The cursor's row, which is now there with all its cells.
Row &
TerminalModel::here()
{
    extend();
    Row &row = lines[top + static_cast<size_t>(at_row)];
    if (row.cells.size() < static_cast<size_t>(columns))
        row.cells.resize(static_cast<size_t>(columns));
    return row;
}

void
TerminalModel::extend()
{
    if (lines.size() <= top + static_cast<size_t>(at_row))
        lines.resize(top + static_cast<size_t>(at_row) + 1);
}

void
TerminalModel::next_row()
{
    if (at_row + 1 < rows) {
        at_row++;
        return;
    }
    extend();
    top++;
    for (; top > kept; top--, dropped++)
        lines.pop_front();
}

// A row that goes on still does: no terminal is known that takes this for its end.
void
TerminalModel::line_feed()
{
    state = Column;
    next_row();
}

void
TerminalModel::print(char32_t printed)
{
    int cells = printed < 0x80 ? 1 : wcwidth(static_cast<wchar_t>(printed));
    if (cells < 0) {
        error("prints what cannot be printed: " + std::to_string(printed));
        return;
    }
    if (cells == 0) {
        print_mark(printed);
        return;
    }
    if (state == Unknown)
        error("prints where the column is not the same in all terminals");
    if (cells > columns) {
        error("prints a wide character in a window of one column");
        return;
    }
    if (type.margins && (state == Waits || at_column + cells > columns)) {
        here().joined = true;
        next_row();
        at_column = 0;
    } else if (at_column + cells > columns) {
        error("prints a wide character where it has no room");
        at_column = columns - cells;
    }
    state = Column;
    put(printed, cells);
    advance(cells);
}

void
TerminalModel::advance(int cells)
{
    at_column += cells;
    if (at_column < columns)
        return;
    at_column = columns - 1;
    if (type.margins && type.delayed) {
        state = Waits;
    } else if (type.margins) {
        here().joined = true;
        next_row();
        at_column = 0;
    }
}

// A wide character of which one half goes is broken: what is left differs from terminal to
// terminal.
void
TerminalModel::split(Row *row, int column)
{
    size_t at = static_cast<size_t>(column);
    if (at > 0 && at < row->cells.size() && row->cells[at].base == second_half) {
        row->cells[at - 1] = {broken_cell, {}};
        row->cells[at] = {broken_cell, {}};
    }
}

// Some terminals know that a row goes on from its last cell.
void
TerminalModel::put(char32_t printed, int cells)
{
    if (insert_mode)
        insert(cells);
    Row &row = here();
    split(&row, at_column);
    split(&row, at_column + cells);
    Cell *cell = &row.cells[static_cast<size_t>(at_column)];
    cell[0] = {printed, {}};
    if (cells == 2)
        cell[1] = {second_half, {}};
    if (at_column + cells == columns)
        row.joined = false;
}

void
TerminalModel::print_mark(char32_t mark)
{
    int column = state == Waits ? at_column : at_column - 1;
    if (column < 0 || state == Unknown) {
        error("prints a mark where no cell is before it");
        return;
    }
    Row &row = here();
    if (row.cells[static_cast<size_t>(column)].base == second_half)
        column--;
    Cell &cell = row.cells[static_cast<size_t>(column)];
    if (cell.base == empty_cell)
        error("prints a mark behind an empty cell");
    cell.marks += mark;
}

// ---- what changes a row ----

void
TerminalModel::insert(int count)
{
    Row &row = here();
    row.joined = false;
    split(&row, at_column);
    auto first = row.cells.begin() + at_column;
    row.cells.insert(first, static_cast<size_t>(std::min(count, columns)), Cell());
    split(&row, columns);
    row.cells.resize(static_cast<size_t>(columns));
}

void
TerminalModel::remove(int count)
{
    Row &row = here();
    row.joined = false;
    count = std::min(count, columns - at_column);
    split(&row, at_column);
    split(&row, at_column + count);
    auto first = row.cells.begin() + at_column;
    row.cells.erase(first, first + count);
    row.cells.resize(static_cast<size_t>(columns));
}

// Clearing all of a row, some forget that the one above goes on in it.
void
TerminalModel::erase_right()
{
    Row &row = here();
    if (at_column == 0 && top + static_cast<size_t>(at_row) > 0)
        lines[top + static_cast<size_t>(at_row) - 1].joined = false;
    row.joined = false;
    split(&row, at_column);
    row.cells.resize(static_cast<size_t>(at_column));
}

void
TerminalModel::erase_below()
{
    erase_right();
    lines.resize(top + static_cast<size_t>(at_row) + 1);
}
