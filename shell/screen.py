"""The rows of the screen that prompt and line are on.

The editor draws prompt and line where the cursor is: whoever prints meanwhile must first
leave their rows.  Before it calls the shell, for a key or for log lines, it has the terminal
save the place where they begin.  So it is enough to go back there and to clear all below,
however many rows there are.  On a terminal whose description does not say how to save a
place, what is printed begins on a new row.
"""
import os
import subprocess
import sys
import textwrap
import unicodedata
from contextlib import suppress

RETURN, ERASE = "\x1b8", "\x1b[J"
INVISIBLE, VISIBLE = "\x01", "\x02"  # what is between them takes no column of the prompt
# Asks the terminal for marks around what is pasted, between which no key gives help.
MARKS, NO_MARKS = "\x1b[?2004h", "\x1b[?2004l"
plain = True  # the terminal cannot save a place, as far as is known


def look() -> None:
    """Finds out what the terminal of the user who comes now can do."""
    global plain
    plain = True
    with suppress(OSError):
        plain = subprocess.run(["tput", "sc"], stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL).stdout != b"\x1b7"


def prompt(text: str) -> str:
    return text if plain else INVISIBLE + MARKS + VISIBLE + text


def leave(fd: int) -> None:
    """The terminal is another program's again, if it is still there."""
    if os.isatty(fd) and os.environ.get("TERM", "dumb") != "dumb":
        with suppress(OSError):
            os.write(fd, NO_MARKS.encode())


def replace(text: str) -> bool:
    """Prints text, of whole rows or none, in the place of prompt and line.

    Returns whether the editor is to draw these again below: not without a terminal.
    """
    drawn = sys.stdin.isatty()
    if drawn:
        text = ("\n" if plain else RETURN + ERASE) + text
    sys.stdout.write(text)
    sys.stdout.flush()
    return drawn


def give_up(mark: str) -> None:
    """Goes on below a line that was interrupted, wherever in it the cursor is."""
    print(mark if plain else ERASE + mark)


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
