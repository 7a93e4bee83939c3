#include "terminal_model.h"

#include <algorithm>
#include <stdlib.h>

TerminalModel::TerminalModel(const TerminalType &of_type, int of_rows, int of_columns)
    : type(of_type), rows(of_rows), columns(of_columns)
{
}

// ---- what it shows ----

int
TerminalModel::height() const
{
    return rows;
}

int
TerminalModel::width() const
{
    return columns;
}

int
TerminalModel::cursor_row() const
{
    return at_row;
}

int
TerminalModel::cursor_column() const
{
    return at_column;
}

bool
TerminalModel::wraps_next() const
{
    return state == Waits;
}

const Row &
TerminalModel::row(int number) const
{
    return any_row(scrolled() + static_cast<size_t>(number));
}

size_t
TerminalModel::scrolled() const
{
    return dropped + top;
}

const Row &
TerminalModel::any_row(size_t number) const
{
    static const Row none;
    number -= dropped;
    return number < lines.size() ? lines[number] : none;
}

size_t
TerminalModel::used() const
{
    size_t cursor = top + static_cast<size_t>(at_row) + 1;
    size_t count = lines.size();
    while (count > cursor && is_empty(lines[count - 1]))
        count--;
    return dropped + std::max(count, cursor);
}

void
TerminalModel::keep_scrolled(size_t count)
{
    kept = count;
}

bool
TerminalModel::inserts() const
{
    return insert_mode;
}

int
TerminalModel::beeps() const
{
    return bells;
}

std::string
TerminalModel::take_answers()
{
    std::string taken;
    taken.swap(answers);
    return taken;
}

int
TerminalModel::clears() const
{
    return clearings;
}

size_t
TerminalModel::cleared_from() const
{
    return cleared_row;
}

const std::vector<std::string> &
TerminalModel::errors() const
{
    return wrong;
}

void
TerminalModel::forget_errors()
{
    wrong.clear();
}

std::string
TerminalModel::text() const
{
    std::string all;
    for (size_t number = scrolled(); number < used(); number++)
        all += "    |" + readable(any_row(number)) + "\n";
    return all + "    cursor in row " + std::to_string(at_row) + ", column " +
           std::to_string(at_column) + (state == Waits ? ", before a wrap\n" : "\n");
}

// ---- what it is fed ----

void
TerminalModel::error(const std::string &text)
{
    if (wrong.size() < 20)
        wrong.push_back(text);
}

void
TerminalModel::feed(const std::string &bytes)
{
    feed(bytes.data(), bytes.size());
}

void
TerminalModel::feed(const char *bytes, size_t count)
{
    for (size_t i = 0; i < count; i++)
        take(static_cast<unsigned char>(bytes[i]));
}

void
TerminalModel::take(unsigned char byte)
{
    if (!sequence.empty()) {
        take_sequence(byte);
    } else if (character_left > 0) {
        character = character << 6 | (byte & 0x3f);
        if ((byte & 0xc0) != 0x80) {
            error("an incomplete character");
            character_left = 0;
            take(byte);
        } else if (--character_left == 0) {
            print(character);
        }
    } else if (byte < 0x20 || byte == 0x7f) {
        take_control(byte);
    } else if (byte < 0x80) {
        print(byte);
    } else if (byte >= 0xc2 && byte < 0xf5) {
        character_left = byte < 0xe0 ? 1 : byte < 0xf0 ? 2 : 3;
        character = byte & (0x3f >> character_left);
    } else {
        error("a byte that begins no character: " + std::to_string(byte));
    }
}

// Bell, backspace, line feed and return are every terminal's, whatever its description
// says; so are the two that select a character set. The terminal's driver has made CR LF
// of a line feed.
void
TerminalModel::take_control(unsigned char byte)
{
    switch (byte) {
    case '\a':
        bells++;
        break;
    case '\b':
        act(Action::Left, 1);
        break;
    case '\n':
        line_feed();
        at_column = 0;
        break;
    case '\r':
        state = Column;
        at_column = 0;
        break;
    case '\033':
        sequence += '\033';
        break;
    case '\016':
    case '\017':
    case '\0':
        break;
    default:
        act(std::string(1, static_cast<char>(byte)));
        break;
    }
}

// Whether the sequence is complete: a title, one with parameters, or a short one.
static bool
is_complete(const std::string &sequence)
{
    char last = sequence.back();
    if (sequence.size() < 2)
        return false;
    if (sequence[1] == ']')
        return last == '\a' || (last == '\\' && sequence[sequence.size() - 2] == '\033');
    if (sequence[1] == '[')
        return sequence.size() > 2 && last >= '@' && last <= '~';
    return last >= '0' && last <= '~';
}

void
TerminalModel::take_sequence(unsigned char byte)
{
    sequence += static_cast<char>(byte);
    if (!is_complete(sequence))
        return;
    std::string text;
    text.swap(sequence);
    // Attributes, character sets and titles come from the prompt, not by the description.
    bool is_attribute = text[1] == '[' && text.back() == 'm';
    if (text[1] != ']' && text[1] != '(' && !is_attribute)
        act(text);
}

// A sequence that the type has, as it is or with a number. One is what is meant where a
// sequence with parameters has none.
void
TerminalModel::act(const std::string &text)
{
    auto found = type.sequences.find(text);
    if (found != type.sequences.end()) {
        act(found->second, 1);
        return;
    }
    if (text.size() > 2 && text[1] == '[') {
        size_t end = text.find_first_not_of("0123456789", 2);
        found = type.sequences.find("\033[#" + text.substr(end));
        int count = end == 2 ? 1 : atoi(text.c_str() + 2);
        if (found != type.sequences.end() && count > 0) {
            act(found->second, count);
            return;
        }
    }
    std::string shown;
    for (char c : text)
        shown +=
            c < ' ' ? std::string("^") + static_cast<char>(c ^ 0100) : std::string(1, c);
    error("not known to " + type.name + ": " + shown);
}

void
TerminalModel::act(Action action, int count)
{
    bool everywhere = action == Action::Column || action == Action::Home ||
                      action == Action::Save || action == Action::Restore ||
                      action == Action::Up || action == Action::Down ||
                      action == Action::EraseAll || action == Action::InsertMode ||
                      action == Action::ReplaceMode || action == Action::Report ||
                      action == Action::Nothing;
    if (!everywhere && state != Column) {
        error(
            "depends on the column, which is not the same in all terminals before a wrap");
        state = Column;
    }
    switch (action) {
    case Action::Left:
        move_sideways(-count);
        break;
    case Action::Right:
        move_sideways(count);
        break;
    case Action::Up:
        move_vertically(-count);
        break;
    case Action::Down:
        move_vertically(count);
        break;
    case Action::Column:
        state = Column;
        at_column = 0;
        move_sideways(count - 1);
        break;
    case Action::EraseAll:
        clearings++;
        cleared_row = scrolled();
        for (size_t i = top; i < lines.size(); i++)
            lines[i] = Row();
        [[fallthrough]];
    case Action::Home:
        state = Column;
        at_row = at_column = 0;
        break;
    case Action::Insert:
        insert(count);
        break;
    case Action::Delete:
        remove(count);
        break;
    case Action::EraseRight:
        erase_right();
        break;
    case Action::EraseBelow:
        erase_below();
        break;
    case Action::InsertMode:
        insert_mode = true;
        break;
    case Action::ReplaceMode:
        insert_mode = false;
        break;
    case Action::Save:
        if (state != Column)
            error("the cursor is saved before a wrap");
        is_saved = true;
        saved_row = at_row;
        saved_column = at_column;
        break;
    case Action::Restore:
        if (!is_saved)
            error("no cursor was saved");
        state = Column;
        at_row = std::min(saved_row, rows - 1);
        at_column = std::min(saved_column, columns - 1);
        break;
    case Action::Tab:
        at_column = std::min((at_column / 8 + 1) * 8, columns - 1);
        break;
    case Action::Report:
        answers += "\033[" + std::to_string(at_row + 1) + ";" +
                   std::to_string(at_column + 1) + "R";
        break;
    case Action::Nothing:
        break;
    }
}

void
TerminalModel::move_sideways(int count)
{
    at_column += count;
    if (at_column < 0 || at_column >= columns)
        error("moves out of the row");
    at_column = std::max(0, std::min(at_column, columns - 1));
}

void
TerminalModel::move_vertically(int count)
{
    at_row = std::max(0, std::min(at_row + count, rows - 1));
    if (state == Waits)
        state = Unknown;
}
