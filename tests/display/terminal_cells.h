// Rows of cells, as a terminal has them and as a layout makes them.
#pragma once

#include <string>
#include <vector>

// What a cell's base may be besides a character.
constexpr char32_t empty_cell = 0;         // never written, or cleared: not a blank
constexpr char32_t second_half = 0x110000; // of the wide character to the left
constexpr char32_t broken_cell = 0x110001; // of a wide character whose other half is gone

struct Cell {
    char32_t base = empty_cell;
    std::u32string marks; // of width 0, which stand in the same cell
};

inline bool
operator==(const Cell &one, const Cell &other)
{
    return one.base == other.base && one.marks == other.marks;
}

struct Row {
    std::vector<Cell> cells; // those behind the last are empty
    bool joined = false;     // goes on in the next row
};

inline bool
is_empty(const Row &row)
{
    for (const Cell &cell : row.cells)
        if (cell.base != empty_cell)
            return false;
    return true;
}

// Without the empty cells at its end.
inline Row
trimmed(Row row)
{
    while (!row.cells.empty() && row.cells.back().base == empty_cell)
        row.cells.pop_back();
    return row;
}

// A row to be read: blanks as they are, an empty cell as a dot in the middle of the line,
// the row's continuation as an arrow.
std::string readable(const Row &row);

// The character as UTF-8.
std::string encoded(char32_t character);
