"""Output to the terminal, also while a line is being edited.

The editor draws prompt and line at the cursor: to print meanwhile, their rows must be cleared.
Before the editor calls the shell, for a key or for log lines, it saves the cursor position at
their start.  So it is enough to restore that position and to clear everything below, however
many rows there are.  On a terminal that cannot save the cursor, output begins on a new row.
"""
import os
import re
import sys
import textwrap
import time
import unicodedata
from contextlib import suppress
from typing import (Callable, Dict, Iterable, Iterator, List, Optional, Sequence, Sized, Tuple,
                    TypeVar, Union)

import Keyline

from . import keys

RETURN, ERASE, ERASE_ROW = "\x1b8", "\x1b[J", "\r\x1b[K"
INVISIBLE, VISIBLE = "\x01", "\x02"  # around parts of the prompt with zero width
# Bracketed paste: between its marks no key gives help.
MARKS, NO_MARKS = "\x1b[?2004h", "\x1b[?2004l"
LOOK = "\x1b\\[[0-9;:]*m"  # SGR: a colour or attribute
LOOKS = {"bold": 1, "dim": 2, "underline": 4, "reverse": 7, "red": 31, "green": 32,
         "yellow": 33, "blue": 34, "magenta": 35, "cyan": 36, "white": 37}
MORE = "--More--"
plain = True  # the terminal cannot save the cursor, or that is not known yet
widths: Dict[int, int] = {}  # columns of the window: the width set by hand
Item = TypeVar("Item")


def look() -> None:
    """Checks the capabilities of the terminal of a new user."""
    import subprocess  # not needed without a terminal

    global plain
    plain = True
    widths.clear()
    with suppress(OSError):
        plain = subprocess.run(["tput", "sc"], stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL).stdout != b"\x1b7"


def terminal() -> bool:
    """Whether there is a user: both streams are a terminal."""
    with suppress(OSError, ValueError):  # closed
        return sys.stdin.isatty() and sys.stdout.isatty()
    return False


def window() -> Tuple[int, int]:
    """The terminal's current columns and rows; zeros if unknown."""
    with suppress(OSError, ValueError):
        size = os.get_terminal_size(sys.stdout.fileno())
        return size.columns, size.lines
    return 0, 0


def width_is(columns: int) -> None:
    """Sets the width until the window changes; for a terminal that does not report it."""
    widths.clear()
    widths[window()[0]] = columns
    Keyline.TerminalWidthIs(columns)


def line_width() -> int:
    found = window()[0]
    return widths.get(found, found) or 80


def leave(fd: int) -> None:
    """Switches bracketed paste off for the next program, if the terminal still exists."""
    if os.isatty(fd) and os.environ.get("TERM", "dumb") != "dumb":
        with suppress(OSError):
            os.write(fd, NO_MARKS.encode())


def replace(text: str) -> bool:
    """Prints text, of complete rows or none, over prompt and line.

    Returns whether the editor is to draw these again below: not without a terminal.
    """
    drawn = sys.stdin.isatty()
    if drawn:
        text = ("\n" if plain else RETURN + ERASE) + text
    sys.stdout.write(text)
    sys.stdout.flush()
    return drawn


def give_up(shown: str) -> None:
    """Moves below a line that was interrupted, wherever the cursor is in it."""
    print(shown if plain else ERASE + shown)


def mark(interrupt: KeyboardInterrupt) -> None:
    """Shows the key that ended a question; the caller of the command ends the row."""
    if terminal():
        shown = {"Ctrl-C": "^C", "Ctrl-Z": "^Z"}.get(str(interrupt)[:6], "")
        sys.stdout.write(shown if plain else ERASE + shown)
        sys.stdout.flush()


# --- Text ------------------------------------------------------------------------------


def visible(text: str) -> str:
    """Text that the shell did not write itself, escaped for a terminal.

    Characters that a terminal does not show are escaped as ^A or \\U+202E, by their Unicode
    category: control characters except tabs and newlines, format characters such as those of
    the text direction, private and unassigned ones, and other line separators.
    """
    return "".join(map(_visible, text))


def _visible(letter: str) -> str:
    category = unicodedata.category(letter)
    if letter in "\t\n" or category[0] != "C" and category not in ("Zl", "Zp"):
        return letter
    code = ord(letter)
    return "^" + chr(code ^ 64) if code < 32 or code == 127 else "\\U+%04X" % code


def _width(letter: str) -> int:
    if unicodedata.category(letter) in ("Mn", "Me") or "\u1160" <= letter <= "\u11ff":
        return 0
    return 2 if unicodedata.east_asian_width(letter) in "WF" else 1


def place(text: str, columns: int) -> Tuple[int, int]:
    """The row and the column after text that begins in the first column of row 0."""
    row = column = 0
    for letter in visible(text):
        if letter == "\n":
            row, column = row + 1, 0
            continue
        size = _width(letter)
        if column + size > columns:
            row, column = row + 1, 0
        column += min(8 - column % 8, columns - column) if letter == "\t" else size
    return (row + 1, 0) if column == columns else (row, column)


def width(text: str) -> int:
    """The columns of text at the start of a row that is wide enough."""
    return place(text, sys.maxsize)[1]


def fold(text: str, columns: int, indent: int = 2) -> str:
    """Text wrapped between words, with all rows but the first indented."""
    return textwrap.fill(text, columns, subsequent_indent=" " * min(indent, columns // 2),
                         break_on_hyphens=False) + "\n"


def _coloured() -> bool:
    return os.environ.get("TERM", "dumb") != "dumb" and not os.environ.get("NO_COLOR")


def colour(text: str, *looks: str) -> str:
    """Text in a colour, bold, ..., see LOOKS; unchanged without colours or a terminal."""
    codes = ";".join(str(LOOKS[name]) for name in looks)
    return "\x1b[%sm%s\x1b[0m" % (codes, text) if terminal() and _coloured() else text


def prompt(text: str) -> str:
    """A prompt for the editor: colours and attributes are marked as invisible."""
    if not _coloured():  # it may have been made for another terminal
        text = re.sub(INVISIBLE + LOOK + VISIBLE + "|" + LOOK, "", text)
    text = re.sub("(%s[^%s]*%s)|(%s)" % (INVISIBLE, VISIBLE, VISIBLE, LOOK),
                  lambda match: match[1] or INVISIBLE + match[2] + VISIBLE, text)
    return text if plain else INVISIBLE + MARKS + VISIBLE + text


def printed(text: str) -> str:
    """A prompt to print, without the marks for the editor."""
    if not _coloured():
        text = re.sub(LOOK, "", text)
    return text.replace(INVISIBLE, "").replace(VISIBLE, "")


def bare(text: str) -> str:
    """The last row of a prompt, without its invisible parts."""
    text = re.sub("%s[^%s]*%s|%s" % (INVISIBLE, VISIBLE, VISIBLE, LOOK), "", text)
    return text.rpartition("\n")[2]


# --- Columns and tables ----------------------------------------------------------------


def _padded(text: str, columns: int, right: bool = False) -> str:
    blanks = " " * (columns - width(text))
    return blanks + text if right else text + blanks


def _cell(value: object) -> str:
    return visible(re.sub(r"[\t\n]", " ", str(value)))


def columns(names: Iterable[str], total: int = 0) -> List[str]:
    """Names in as many columns as fit the window, filled downwards."""
    words = [_cell(name) for name in names]
    widest = max(map(width, words), default=0) + 2
    count = max(1, ((total or line_width()) + 1) // widest)
    high = -(-len(words) // count)
    return ["".join(_padded(word, widest) for word in words[row::high]).rstrip()
            for row in range(high)]


def table(rows: Iterable[Sequence[object]], heads: Sequence[str] = ()) -> List[str]:
    """Rows of cells in aligned columns, numbers to the right, with heads if given."""
    cells = [list(row) for row in rows]
    shown = [[_cell(cell) for cell in row] for row in ([heads] if heads else []) + cells]
    count = max(map(len, shown), default=0)
    widths = [max(width(row[at]) for row in shown if at < len(row)) for at in range(count)]
    right = [all(isinstance(row[at], (int, float)) for row in cells if at < len(row))
             and bool(cells) for at in range(count)]
    return ["  ".join(_padded(cell, widths[at], right[at])
                      for at, cell in enumerate(row)).rstrip() for row in shown]


# --- Paging and progress -----------------------------------------------------------------


def page(text: Union[str, Iterable[str]]) -> bool:
    """Prints rows, a windowful at a time; returns False if the user has quit.

    At --More-- a space shows the next windowful and Enter the next row; q quits, and Ctrl-C
    ends the whole command.  Without a terminal it does not wait.
    """
    lines = text.splitlines() if isinstance(text, str) else text
    if not terminal():
        for line in lines:
            print(line)
        return True
    used, room = 0, window()[1] - 1
    for line in lines:
        need = max(1, _rows(line))
        if room > 0 and used and used + need > room:
            try:
                key = keys.read(sys.stdin.fileno(), MORE, b" \r\nqQ")
            except KeyboardInterrupt as interrupt:
                mark(interrupt)
                raise
            sys.stdout.write("\r" + " " * len(MORE) + "\r" if plain else ERASE_ROW)
            sys.stdout.flush()
            if key in b"qQ":
                return False
            room = window()[1] - 1  # it may have changed meanwhile
            used = 0 if key == b" " else room - need
        print(line)
        used += need
    return True


def _rows(line: str) -> int:
    row, column = place(bare(line), line_width())
    return row + (column > 0)


def progress(items: Iterable[Item], label: str, total: Optional[int] = None,
             clock: Callable[[], float] = time.monotonic) -> Iterator[Item]:
    """The items, with a line that shows the progress of the loop, and is cleared at its end.

    It is written at most ten times a second, and not without a terminal.  Ctrl-C ends the
    command, as everywhere, and the line stays.
    """
    if total is None:
        total = len(items) if isinstance(items, Sized) else 0
    watched, last = terminal(), -1.0
    for count, item in enumerate(items):
        if watched and clock() >= last + 0.1:
            last = clock()
            far = "%d of %d, %d %%" % (count, total, 100 * count // total) if total else str(count)
            text = "%s: %s" % (visible(label), far)
            sys.stdout.write(("\r" if plain else ERASE_ROW) + text)
            sys.stdout.flush()
        yield item
    if last >= 0:
        sys.stdout.write("\n" if plain else ERASE_ROW)
        sys.stdout.flush()
