#include "terminal_cells.h"

std::string
encoded(char32_t character)
{
    std::string text;
    if (character < 0x80) {
        text += static_cast<char>(character);
        return text;
    }
    int more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    static const int first[] = {0, 0xc0, 0xe0, 0xf0};
    text += static_cast<char>(first[more] | character >> (6 * more));
    while (more-- > 0)
        text += static_cast<char>(0x80 | (character >> (6 * more) & 0x3f));
    return text;
}

std::string
readable(const Row &row)
{
    std::string text;
    for (const Cell &cell : trimmed(row).cells) {
        if (cell.base == empty_cell)
            text += "\xc2\xb7";
        else if (cell.base == broken_cell)
            text += "\xef\xbf\xbd";
        else if (cell.base != second_half)
            text += encoded(cell.base);
        for (char32_t mark : cell.marks)
            text += encoded(mark);
    }
    return text + (row.joined ? "\xe2\x86\x92" : "|");
}
