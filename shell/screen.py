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

ROOM = 2
INVISIBLE, VISIBLE = "\x01", "\x02"  # what is between them takes no column of the prompt
SAVE = "\x1bD" * ROOM + "\x1b[%dA" % ROOM + "\x1b7"
RETURN, ERASE = "\x1b8", "\x1b[J"


def is_plain() -> bool:
    return os.environ.get("TERM", "dumb") == "dumb"


def prompt(text: str) -> str:
    return text if is_plain() else INVISIBLE + SAVE + VISIBLE + text


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
    return len(visible(text).expandtabs())


def visible(text: str) -> str:
    """Text that the shell did not write itself, fit for a terminal.

    What no terminal shows as a character of its own, by its category in Unicode, is shown as
    ^A or <U+202E>: controls but for tabs and ends of lines, formats such as those that turn
    the direction of writing, what has no meaning (yet, or for all), ends of lines of other
    kinds.
    """
    return "".join(map(_visible, text))


def _visible(letter: str) -> str:
    category = unicodedata.category(letter)
    if letter in "\t\n" or category[0] != "C" and category not in ("Zl", "Zp"):
        return letter
    code = ord(letter)
    return "^" + chr(code ^ 64) if code < 32 or code == 127 else "<U+%04X>" % code
