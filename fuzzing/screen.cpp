#include "screen.h"

#include <string.h>

#include <map>
#include <memory>
#include <stdio.h>
#include <stdlib.h>

#include "../tests/display/display_check.h"
#include "editor_state.h"
#include "terminal_stub.h"

static std::map<std::string, TerminalType> types; // those seen so far
static const TerminalType *type;
static std::unique_ptr<TerminalModel> terminal;
static std::string answers; // not read yet
static bool is_printed = getenv("KEYS_FUZZ_PRINT") != nullptr;
static bool is_lost;
static bool is_over; // a command may have changed what the editor knows of the terminal
static unsigned long compared; // how often
static bool is_fresh;          // nothing has been compared yet
static bool is_apart;          // rows were written that the terminal does not join
static int rows_now;
static int columns_now;

// Where each character begins the next row at once, one column cannot be drawn right.
static bool
is_too_narrow(int columns)
{
    return columns == 1 && !(type->margins && type->delayed);
}

void
screen_start(const char *name, int rows, int columns)
{
    auto found = types.find(name);
    if (found == types.end())
        found = types.emplace(name, terminal_type(name)).first;
    type = &found->second;
    rows_now = rows;
    columns_now = columns;
    stub_size_known = true;
    is_over = false;
    answers.clear();
    screen_clear();
}

void
screen_clear()
{
    // Made when it is known how large the editor takes it for.
    terminal.reset();
    is_lost = false;
}

void
screen_lose()
{
    is_lost = true;
}

void
screen_resize(int rows, int columns)
{
    if (rows != rows_now || columns != columns_now)
        stub_size_known = false;
    rows_now = rows;
    columns_now = columns;
    if (terminal != nullptr && is_too_narrow(terminal->width()))
        terminal->forget_errors();
    // Nothing clears what is left of a wider line on a terminal that cannot.
    if (terminal != nullptr && rows > 0 && columns > 0 && type->can(Action::EraseRight))
        terminal->resize(rows, columns, TerminalModel::Clips);
    else
        screen_lose();
}

static void
make_terminal()
{
    editor_shown shown;
    int rows = rows_now;
    int columns = columns_now;
    if (editor_shows(&shown)) {
        rows = shown.rows;
        columns = shown.columns;
    }
    terminal = std::make_unique<TerminalModel>(*type, rows > 0 ? rows : 24,
                                               columns > 0 ? columns : 80);
    terminal->keep_scrolled(0);
    is_fresh = true;
    is_apart = false;
}

// To read a finding.
static void
tell(const char *bytes, size_t count)
{
    printf("  %s, %d rows of %d, gets ", type->name.c_str(), terminal->height(),
           terminal->width());
    for (size_t i = 0; i < count; i++)
        if (bytes[i] >= 0 && bytes[i] < ' ')
            printf("^%c", bytes[i] ^ 0100);
        else
            putchar(bytes[i]);
    putchar('\n');
}

void
screen_write(const char *bytes, size_t count)
{
    if (is_lost || is_over)
        return;
    if (terminal == nullptr)
        make_terminal();
    if (is_printed)
        tell(bytes, count);
    // The display writes none: what has TABs is a list, printed by a command.
    if (memchr(bytes, '\t', count) != nullptr) {
        screen_lose();
        return;
    }
    terminal->feed(bytes, count);
    answers += terminal->take_answers();
}

bool
screen_answer(char *byte)
{
    if (answers.empty())
        return false;
    *byte = answers[0];
    answers.erase(0, 1);
    return true;
}

std::string
screen_wrong()
{
    editor_shown shown;
    if (!editor_shows(&shown))
        is_over = true;
    if (is_lost || is_over || terminal == nullptr || shown.is_old)
        return "";
    // An editor that is told another size than the terminal's draws for that one; one that
    // is not told of a resize draws nothing anew, also when a second one has undone the
    // first.
    is_lost = !stub_size_known || shown.rows != terminal->height() ||
              shown.columns != terminal->width() || shown.length > 2000 ||
              is_too_narrow(shown.columns);
    if (is_lost)
        return "";
    // What the editor takes for the echo of waiting keys has not been shown.
    if (is_fresh && stub_pending > 0)
        terminal->forget_errors();
    is_fresh = false;
    DisplayCheck check(terminal.get(), *type);
    // At a width that was set by hand the editor ends rows itself, also when the window
    // has that width, too, and has not told so. When it tells so later, they stay as they
    // are.
    is_apart |= (columns_now != 0 && terminal->width() != columns_now) ||
                (shown.window != 0 && shown.window != shown.columns);
    if (is_apart)
        check.ignore_joins();
    Layout layout =
        naive_layout(shown.prompt, shown.ignore, std::wstring(shown.line, shown.length),
                     shown.cursor, check.usable_width());
    check.begin_around(layout);
    compared++;
    return check.compare(layout, true);
}

unsigned long
screen_compared()
{
    return compared;
}
