#include "display_check.h"

#include <algorithm>

bool
display_known_resize(const std::string &type, TerminalModel::Resize *how)
{
    for (const char *prefix : {"tmux", "screen"})
        if (type.rfind(prefix, 0) == 0) {
            *how = TerminalModel::Reflows;
            return true;
        }
    for (const char *prefix : {"linux", "vt"})
        if (type.rfind(prefix, 0) == 0) {
            *how = TerminalModel::Clips;
            return true;
        }
    return false;
}

DisplayCheck::DisplayCheck(const TerminalModel *of_terminal, const TerminalType &of_type)
    : terminal(of_terminal), type(of_type)
{
    clears = terminal->clears();
}

size_t
DisplayCheck::usable_width() const
{
    return static_cast<size_t>(type.usable(terminal->width()));
}

// Where the cursor cannot go up, only its own row can be kept right.
size_t
DisplayCheck::usable_height() const
{
    return type.can(Action::Up) ? static_cast<size_t>(terminal->height()) : 1;
}

void
DisplayCheck::ignore_joins()
{
    looks_at_joins = false;
}

size_t
DisplayCheck::rows_below() const
{
    return below;
}

void
DisplayCheck::begin()
{
    start = terminal->scrolled() + static_cast<size_t>(terminal->cursor_row());
    top = highest_top = 0;
    least_scrolled = most_scrolled = terminal->scrolled();
    remember_above();
}

void
DisplayCheck::remember_above()
{
    above.clear();
    for (size_t number = start - std::min<size_t>(start, 30); number < start; number++)
        above.push_back(terminal->any_row(number));
}

void
DisplayCheck::resize(TerminalModel *changing, int rows, int columns,
                     TerminalModel::Resize how)
{
    if (reflowed == nullptr) {
        changing->follow(start);
        cursor_down =
            terminal->scrolled() + static_cast<size_t>(terminal->cursor_row()) - start;
        reflowed = std::make_unique<TerminalModel>(*terminal);
        changes = 0;
    }
    changes++;
    changing->resize(rows, columns, how);
    reflowed->resize(rows, columns, TerminalModel::Reflows);
}

void
DisplayCheck::told()
{
    start = terminal->followed();
    size_t down = reflowed->scrolled() + static_cast<size_t>(reflowed->cursor_row()) -
                  reflowed->followed();
    TerminalModel::Resize how;
    bool is_known = display_known_resize(type.name, &how);
    // One terminal puts the cursor into the line's first row as soon as it has scrolled:
    // there the line is redrawn from the cursor's row on.
    is_certain = type.name.rfind("rxvt", 0) != 0 && (is_known || down == cursor_down) &&
                 start >= terminal->scrolled() && highest_top == 0;
    misleads = !is_known && changes > 1 &&
               start + down !=
                   terminal->scrolled() + static_cast<size_t>(terminal->cursor_row()) &&
               reflowed->cursor_column() == terminal->cursor_column();
    reflowed.reset();
    remember_above();
}

bool
DisplayCheck::is_misleading() const
{
    return misleads;
}

// Where no program can know whether the terminal has reflowed, what it has left of the line
// may stand above; but no row of others is gone.
std::string
DisplayCheck::compare_resized(const Layout &layout)
{
    begin_if_cleared();
    size_t cursor = terminal->scrolled() + static_cast<size_t>(terminal->cursor_row());
    size_t seen_top = naive_top(layout, usable_height(), 0);
    size_t first = cursor - std::min(cursor, layout.cursor_row - seen_top);
    std::string what = compare_above();
    if (what.empty() && first < start && first > terminal->scrolled())
        what = "drawn over rows above";
    if (what.empty() && is_certain && first > start && seen_top == 0)
        what = "something is left above";
    if (!what.empty())
        return report(layout, "resized: " + what);
    below = std::min(usable_height(), layout.rows.size() - seen_top) -
            (layout.cursor_row - seen_top);
    start = first; // nothing has left the window for good
    top = highest_top = 0;
    least_scrolled = most_scrolled = terminal->scrolled();
    remember_above();
    return "";
}

// The row's cells without the empty ones at its end, and without the blanks there, which
// are as good as nothing where nothing can be cleared.
static size_t
filled(const Row &row, bool can_clear)
{
    size_t count = row.cells.size();
    while (count > 0 && (row.cells[count - 1] == Cell() ||
                         (!can_clear && row.cells[count - 1] == Cell{U' ', {}})))
        count--;
    return count;
}

static bool
is_same(const Row &one, const Row &other, bool can_clear)
{
    size_t count = filled(one, can_clear);
    return count == filled(other, can_clear) &&
           std::equal(one.cells.begin(), one.cells.begin() + static_cast<long>(count),
                      other.cells.begin());
}

std::string
DisplayCheck::report(const Layout &layout, const std::string &what) const
{
    std::string text = what + "\n  expected, rows from " + std::to_string(top) + " on:\n";
    for (size_t i = top; i < layout.rows.size() && i < top + usable_height(); i++)
        text += "    |" + readable(layout.rows[i]) + "\n";
    text +=
        "    cursor in row " + std::to_string(layout.cursor_row) + ", column " +
        std::to_string(layout.cursor_column) + "\n  seen, the prompt begins in row " +
        std::to_string(static_cast<long>(start) - static_cast<long>(terminal->scrolled())) +
        ":\n" + terminal->text();
    for (const std::string &error : terminal->errors())
        text += "  " + error + "\n";
    return text;
}

// That the last of them goes on means nothing.
std::string
DisplayCheck::compare_above() const
{
    for (size_t i = 0; i < above.size(); i++) {
        const Row &row = terminal->any_row(start - above.size() + i);
        bool is_last = i + 1 == above.size();
        if (!is_same(row, above[i], true) || (!is_last && row.joined != above[i].joined))
            return "a row above the prompt has changed";
    }
    return "";
}

// A row goes on when the terminal itself has wrapped there, and else it does not. Only what
// leads to an empty row, or out of the window, may be either; and what leads to a row that
// had to be cleared with blanks, or behind the blank that another character left.
std::string
DisplayCheck::compare_joined(const Layout &layout, size_t number, size_t at,
                             bool is_last) const
{
    bool wanted = layout.rows[number].joined && type.margins && type.delayed;
    if (!looks_at_joins || (is_last && layout.rows[number].joined))
        return "";
    if (wanted && layout.rows[number + 1].cells.empty())
        return "";
    bool next_is_wide = wanted && layout.rows[number].cells.size() < usable_width();
    bool next_is_clear = filled(terminal->any_row(at + 1), false) == 0;
    if (!type.can(Action::EraseRight) && (next_is_wide || next_is_clear))
        return "";
    if (terminal->any_row(at).joined != wanted)
        return std::string(wanted ? "is not joined: row " : "is joined: row ") +
               std::to_string(number);
    return "";
}

// The rows `first` and following of the layout, and that nothing else is below them.
std::string
DisplayCheck::compare_rows(const Layout &layout, size_t first, size_t shown,
                           size_t at) const
{
    bool can_clear = type.can(Action::EraseRight);
    size_t end = terminal->scrolled() + static_cast<size_t>(terminal->height());
    for (size_t number = first; number < first + shown; number++, at++) {
        if (!is_same(terminal->any_row(at), layout.rows[number], can_clear))
            return "wrong: row " + std::to_string(number);
        std::string joined =
            compare_joined(layout, number, at, number + 1 == first + shown);
        if (!joined.empty())
            return joined;
    }
    for (size_t below_it = at; below_it < end; below_it++)
        if (filled(terminal->any_row(below_it), can_clear) > 0)
            return "something is left below";
    return "";
}

void
DisplayCheck::begin_around(const Layout &layout)
{
    size_t row = static_cast<size_t>(terminal->cursor_row());
    size_t height = usable_height();
    top = highest_top = 0;
    if (layout.rows.size() > height && layout.cursor_row > row)
        top = layout.cursor_row - row;
    start = terminal->scrolled() + row - std::min(row, layout.cursor_row - top);
    least_scrolled = most_scrolled = terminal->scrolled();
    above.clear();
}

// What has left the window: as much as has had to, and rows of a line that is too long.
// Empty rows at the end need not be there.
std::string
DisplayCheck::compare_scrolled(const Layout &layout, size_t shown, bool had_more)
{
    size_t scrolled = terminal->scrolled();
    size_t bottom = static_cast<size_t>(terminal->height());
    size_t filled = shown;
    while (top + filled > layout.cursor_row + 1 && is_empty(layout.rows[top + filled - 1]))
        filled--;
    least_scrolled =
        std::max(least_scrolled, start + filled - std::min(start + filled, bottom));
    most_scrolled =
        std::max(most_scrolled, start + shown - std::min(start + shown, bottom));
    if (highest_top > 0)
        most_scrolled = std::max(most_scrolled, start + highest_top);
    if (had_more)
        least_scrolled = most_scrolled = std::max(least_scrolled, scrolled);
    if (scrolled >= least_scrolled && scrolled <= most_scrolled)
        return "";
    return "has scrolled " + std::to_string(scrolled) + " rows, not " +
           std::to_string(least_scrolled);
}

// A window that was cleared has the prompt at its top, or had, if the key did more.
void
DisplayCheck::begin_if_cleared()
{
    if (terminal->clears() != clears) {
        clears = terminal->clears();
        start = terminal->cleared_from();
        top = highest_top = 0;
        least_scrolled = most_scrolled = start;
        above.clear();
    }
}

std::string
DisplayCheck::compare(const Layout &layout, bool had_more)
{
    begin_if_cleared();
    size_t height = usable_height();
    size_t scrolled = terminal->scrolled();
    size_t cursor = scrolled + static_cast<size_t>(terminal->cursor_row());
    size_t row = static_cast<size_t>(terminal->cursor_row());
    if (had_more && row <= layout.cursor_row &&
        layout.cursor_row - row + height <= layout.rows.size())
        top = layout.cursor_row - row; // what was shown meanwhile may have moved it
    top = naive_top(layout, height, top);
    highest_top = std::max(highest_top, top);
    size_t shown = std::min(height, layout.rows.size() - top);
    below = shown - (layout.cursor_row - top);
    size_t at = std::max(start, scrolled);
    if (!type.can(Action::Up))
        at = cursor;

    std::string what = compare_above();
    if (what.empty())
        what = compare_rows(layout, top, shown, at);
    if (what.empty() &&
        (cursor != at + layout.cursor_row - top ||
         static_cast<size_t>(terminal->cursor_column()) != layout.cursor_column ||
         terminal->wraps_next()))
        what = "the cursor is wrong";
    if (what.empty() && terminal->inserts())
        what = "insert mode is on";
    if (what.empty() && !terminal->errors().empty())
        what = terminal->errors()[0];
    if (what.empty() && type.can(Action::Up))
        what = compare_scrolled(layout, shown, had_more);
    return what.empty() ? "" : report(layout, what);
}

std::string
DisplayCheck::compare_entered(const Layout &layout)
{
    size_t scrolled = terminal->scrolled();
    size_t cursor = scrolled + static_cast<size_t>(terminal->cursor_row());
    size_t count = layout.rows.size();
    begin_if_cleared();
    size_t shown = std::min(count, std::min(cursor - scrolled, usable_height()));
    top = count - shown;
    std::string what = compare_above();
    if (what.empty() && (terminal->cursor_column() != 0 || terminal->wraps_next()))
        what = "the cursor is not below the line";
    if (what.empty() && type.can(Action::Up) && start >= scrolled &&
        cursor != start + count)
        what = "the cursor is not right below the line";
    if (what.empty())
        what = compare_rows(layout, top, shown, cursor - shown);
    if (what.empty() && !terminal->errors().empty())
        what = terminal->errors()[0];
    return what.empty() ? "" : report(layout, "entered: " + what);
}
