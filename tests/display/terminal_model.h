// A terminal in this process, which is fed with bytes. It understands what the description
// of its type says and takes everything else as an error of the program. Where terminals
// differ it takes the worst: what one of them may forget is forgotten, and a program that
// relies on what only some of them do makes an error.
#pragma once

#include <deque>
#include <stddef.h>
#include <string>
#include <vector>

#include "terminal_cells.h"
#include "terminal_type.h"

class TerminalModel
{
  public:
    TerminalModel(const TerminalType &type, int rows, int columns);

    void feed(const char *bytes, size_t count);
    void feed(const std::string &bytes);

    // As terminals do that reflow all lines, or as those that cut and keep rows.
    enum Resize { Reflows, Clips };
    void resize(int rows, int columns, Resize how);
    // A row, by its number, whose new number is wanted after changes of the size.
    void follow(size_t number);
    size_t followed() const;

    int height() const;
    int width() const;
    // Row and column of the cursor in the window.
    int cursor_row() const;
    int cursor_column() const;
    // Whether the last column is written and the next character goes to the next row.
    bool wraps_next() const;

    // A row of the window.
    const Row &row(int number) const;
    // Rows that have left the window at its top, and all rows by their number from the
    // first ever: that of the window's first row is `scrolled()`.
    size_t scrolled() const;
    const Row &any_row(size_t number) const;
    // Rows with something in them, or with the cursor, or above such.
    size_t used() const;
    // Only the newest of those that have left are kept.
    void keep_scrolled(size_t count);

    bool inserts() const;
    int beeps() const;
    // What it has answered since the last time.
    std::string take_answers();
    int clears() const;          // how often the whole window was cleared
    size_t cleared_from() const; // the number of its first row then
    // What the program has done wrong so far, in words.
    const std::vector<std::string> &errors() const;
    void forget_errors();
    // The window, to be read, cursor included.
    std::string text() const;

  private:
    TerminalType type;
    int rows;
    int columns;
    std::deque<Row> lines; // kept ones; those below the last are empty
    size_t dropped = 0;    // rows that were not kept
    size_t top = 0;        // of the window, in `lines`
    size_t watched = 0;    // the row that is followed
    size_t kept = static_cast<size_t>(-1);
    int at_row = 0;
    int at_column = 0;
    // After a vertical move from there terminals do not agree where the cursor is.
    enum { Column, Waits, Unknown } state = Column;
    bool insert_mode = false;
    bool is_saved = false;
    int saved_row = 0;
    int saved_column = 0;
    int bells = 0;
    std::string answers;
    int clearings = 0;
    size_t cleared_row = 0;
    std::string sequence; // of escape, so far
    char32_t character = 0;
    int character_left = 0; // bytes that it still wants
    std::vector<std::string> wrong;

    Row &here();
    void extend();
    void error(const std::string &text);
    void take(unsigned char byte);
    void take_control(unsigned char byte);
    void take_sequence(unsigned char byte);
    void act(const std::string &text);
    void act(Action action, int count);
    void move_sideways(int count);
    void move_vertically(int count);
    void print(char32_t printed);
    void print_mark(char32_t mark);
    void put(char32_t printed, int cells);
    void advance(int cells);
    void next_row();
    void line_feed();
    void split(Row *row, int column);
    void insert(int count);
    void remove(int count);
    void erase_right();
    void erase_below();
    void resize_clipping(int new_rows, int new_columns);
    void resize_reflowing(int new_columns);
};
