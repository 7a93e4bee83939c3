// Compares a terminal's screen with the layout of prompt and line.
#pragma once

#include <memory>
#include <string>

#include "naive_layout.h"
#include "terminal_model.h"

// What terminals of that type are known to do when their size changes. False where some do
// this and others that.
bool display_known_resize(const std::string &type, TerminalModel::Resize *how);

class DisplayCheck
{
  public:
    DisplayCheck(const TerminalModel *terminal, const TerminalType &type);

    // Prompt and line will be drawn from the cursor's row on.
    void begin();
    // As `begin`, where the cursor is in them already. What is above them is not looked at.
    void begin_around(const Layout &layout);

    // The window's size changes: what is above the prompt now has to stay, as the terminal
    // leaves it. The program is told when it has changed; prompt and line have been
    // redrawn when that is over. What is wrong then, or nothing.
    void resize(TerminalModel *changing, int rows, int columns, TerminalModel::Resize how);
    void told();
    std::string compare_resized(const Layout &layout);
    // Whether the cursor, taken along by sizes between the last two, stands by chance in
    // the column that it has where the rows are reflowed: the program believes that.
    bool is_misleading() const;

    // What is wrong on the screen while that is edited, or nothing. The editor may have
    // shown more meanwhile, with one key that does several things.
    std::string compare(const Layout &layout, bool had_more);
    // What is wrong on the screen after that was entered.
    std::string compare_entered(const Layout &layout);

    // From now on nothing is said of rows that are joined, or are not: the terminal wraps
    // at another width than the one that was set.
    void ignore_joins();

    // Rows from the cursor's to the one below the last of what was compared last.
    size_t rows_below() const;

    size_t usable_width() const;
    size_t usable_height() const;

  private:
    const TerminalModel *terminal;
    std::unique_ptr<TerminalModel> reflowed; // what it would be if it reflowed
    size_t cursor_down = 0;                  // of the start, before its size changed
    int changes = 0;                         // of the size, since it was told
    bool misleads = false;
    bool is_certain = false; // that the start is in the same row, whatever it is
    TerminalType type;
    size_t start = 0;          // row of the prompt's first, counted from the first ever
    size_t top = 0;            // first row of the layout that is shown
    size_t highest_top = 0;    // ever, since the start
    size_t least_scrolled = 0; // what has had to leave the window so far ...
    size_t most_scrolled = 0;  // ... or may have
    int clears = 0;
    bool looks_at_joins = true;
    size_t below = 1;
    std::vector<Row> above; // what stood above the start, the nearest row at the end

    void begin_if_cleared();
    void remember_above();
    std::string compare_above() const;
    std::string compare_scrolled(const Layout &layout, size_t shown, bool had_more);
    std::string compare_rows(const Layout &layout, size_t first, size_t shown,
                             size_t at) const;
    std::string compare_joined(const Layout &layout, size_t number, size_t at,
                               bool is_last) const;
    std::string report(const Layout &layout, const std::string &what) const;
};
