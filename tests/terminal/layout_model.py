"""How prompt and line are laid out into rows: the rules, one after another.

A row is a list with one text for each column; the second column of a wide character is "".
"""
import unicodedata

from characters import columns, is_printable

MARKS = 8  # more than that, in one cell, are shown by their numbers
START, END = "\x01", "\x02"  # around the invisible parts of a prompt


def visible(prompt):
    """The prompt without its invisible parts."""
    parts = prompt.split(START)
    return parts[0] + "".join(part.partition(END)[2] for part in parts[1:])


def form(char):
    """How a character is shown that is not shown as itself."""
    if ord(char) < 32 or ord(char) == 127:
        return "^" + chr(ord(char) ^ 64)
    return "\\U+%04X" % ord(char)


def is_shown(char):
    return (ord(char) in range(32, 127) or ord(char) >= 160 and is_printable(char)
            and unicodedata.category(char) != "Cf")


class Layout:
    """All rows, and the cursor's place in them: row, column."""

    def __init__(self, prompt, line, cursor, width):
        """cursor is None once the line has ended."""
        self.width = width
        self.rows = [[]]
        self.last = None  # row, column and number of marks of the cell before
        self.cursor = None
        for char in visible(prompt):
            self._place(char)
        for index, char in enumerate(line):
            place = self._place(char)
            if index == cursor:
                self.cursor = place
        if cursor == len(line):
            if len(self.rows[-1]) == width:
                self.rows.append([])
                self.cursor = self._cell(" ")
            else:
                self.cursor = len(self.rows) - 1, len(self.rows[-1])

    def _cell(self, text, wide=False):
        if len(self.rows[-1]) + 1 + wide > self.width:
            self.rows.append([])
        row = self.rows[-1]
        self.last = [len(self.rows) - 1, len(row), 0]
        row += [text, ""] if wide else [text]
        return self.last[0], self.last[1]

    def _place(self, char):
        """Places a character; answers the row and column of its first cell."""
        if char == "\n":
            if len(self.rows[-1]) == self.width:
                self.rows.append([])
            place = len(self.rows) - 1, len(self.rows[-1])
            self.rows.append([])
            self.last = None
            return place
        if char == "\t":
            place = self._cell(" ")
            while len(self.rows[-1]) % 8 and len(self.rows[-1]) < self.width:
                self._cell(" ")
            return place
        width = columns(char) if is_shown(char) else -1
        if width == 0 and self.last and self.last[2] < MARKS:
            row, column, _ = self.last
            self.last[2] += 1
            self.rows[row][column] += char
            return row, column
        if 0 < width <= self.width:
            return self._cell(char, width == 2)
        return [self._cell(one) for one in form(char)][0]

    def top(self, height, before):
        """The first row shown in a window of that height, where it was `before` until now."""
        row = self.cursor[0] if self.cursor else len(self.rows) - 1
        top = min(before, row)
        if row >= top + height:
            top = row - height + 1
        return max(0, min(top, len(self.rows) - height))

    def texts(self):
        """The rows, each as wide as the screen."""
        return [unicodedata.normalize("NFC", "".join(row + [" "] * (self.width - len(row))))
                for row in self.rows]
