"""The rows of the screen that prompt and line are on.

The editor draws prompt and line where the cursor is: whoever prints meanwhile must first
leave their rows.  How many these are, and in which one the cursor stands, the editor does
not tell.  So the prompt leaves a note: it saves the cursor's place, after making room for
ROOM rows below, so that a line that wraps at the bottom does not scroll away from the note.
(Of a line with more rows than that, the upper ones may stay above what is printed.)  On a
terminal that cannot do this, what is printed begins on a new row.
"""
import os
import sys
import textwrap
import unicodedata
from contextlib import suppress

ROOM = 2
INVISIBLE, VISIBLE = "\x01", "\x02"  # what is between them takes no column of the prompt
SAVE = "\x1bD" * ROOM + "\x1b[%dA" % ROOM + "\x1b7"
RETURN, ERASE = "\x1b8", "\x1b[J"
# Asks the terminal for marks around what is pasted, between which no key gives help.
MARKS, NO_MARKS = "\x1b[?2004h", "\x1b[?2004l"


def is_plain() -> bool:
    return os.environ.get("TERM", "dumb") == "dumb"


def prompt(text: str) -> str:
    return text if is_plain() else INVISIBLE + MARKS + SAVE + VISIBLE + text


def leave(fd: int) -> None:
    """The terminal is another program's again, if it is still there."""
    if os.isatty(fd) and not is_plain():
        with suppress(OSError):
            os.write(fd, NO_MARKS.encode())


def replace(text: str) -> bool:
    """Prints text, of whole rows or none, in the place of prompt and line.

    Returns whether the editor is to draw these again below: not without a terminal.
    """
    drawn = sys.stdin.isatty()
    if drawn:
        text = ("\n" if is_plain() else RETURN + ERASE) + text
    sys.stdout.write(text)
    sys.stdout.flush()
    return drawn


def give_up(mark: str) -> None:
    """Goes on below a line that was interrupted, wherever in it the cursor is."""
    print(mark if is_plain() else ERASE + mark)


def fold(text: str, columns: int, indent: int = 2) -> str:
    """Text as rows that end between words, the first of them as it is, others indented."""
    return textwrap.fill(text, columns, subsequent_indent=" " * min(indent, columns // 2),
                         break_on_hyphens=False) + "\n"


def width(text: str) -> int:
    """The columns that text takes at the start of a row."""
    return sum(0 if unicodedata.category(letter) in ("Mn", "Me") else
               2 if unicodedata.east_asian_width(letter) in "WF" else 1
               for letter in visible(text).expandtabs())


def visible(text: str) -> str:
    """Text with control characters, but for tabs and ends of lines, as ^A or \\U+0080."""
    return "".join(
        letter if letter in "\t\n" or unicodedata.category(letter) not in ("Cc", "Cf") else
        "^" + chr(ord(letter) ^ 64) if letter < "\x80" else "\\U+%04X" % ord(letter)
        for letter in text)
