"""Single keys and lines without echo, read between two reads of the editor.

The terminal is in raw mode meanwhile: no key sends a signal, and typeahead is kept for the
next read.
"""
import os
import sys
import termios
from contextlib import contextmanager, suppress
from typing import Iterator

from .reader import reader

CTRL_C, CTRL_D, CTRL_U, CTRL_W, CTRL_Z = b"\x03", b"\x04", b"\x15", b"\x17", b"\x1a"

GONE = "no terminal any more"


@contextmanager
def raw(fd: int, prompt: str) -> Iterator[None]:
    """Raw mode without echo.

    The prompt is written after the echo is off, so that nothing typed at it is shown.
    """
    try:
        before, settings = termios.tcgetattr(fd), termios.tcgetattr(fd)
    except termios.error:
        raise EOFError(GONE) from None
    settings[0] &= ~(termios.ICRNL | termios.INLCR | termios.IGNCR | termios.IXON)
    settings[3] &= ~(termios.ICANON | termios.ECHO | termios.ISIG | termios.IEXTEN)
    settings[6][termios.VMIN], settings[6][termios.VTIME] = 1, 0
    termios.tcsetattr(fd, termios.TCSADRAIN, settings)
    try:
        sys.stdout.write(prompt)
        sys.stdout.flush()
        yield
    finally:
        with suppress(termios.error):  # no terminal any more
            termios.tcsetattr(fd, termios.TCSADRAIN, before)


def _key(fd: int) -> bytes:
    """One byte; Ctrl-C and Ctrl-Z raise the same as at a prompt."""
    with reader.waiting():
        try:
            key = os.read(fd, 1)
        except OSError:  # no terminal any more
            key = b""
    if not key:
        raise EOFError(GONE)
    if key in (CTRL_C, CTRL_Z):
        raise KeyboardInterrupt("Ctrl-%s pressed" % ("C" if key == CTRL_C else "Z"))
    return key


def read(fd: int, prompt: str, wanted: bytes) -> bytes:
    """Waits for one of the wanted keys; others do nothing."""
    with raw(fd, prompt):
        while True:
            key = _key(fd)
            if key in wanted:
                return key


def read_hidden(fd: int, prompt: str) -> str:
    """A line without echo; Ctrl-D in an empty one raises EOFError."""
    typed = b""
    with raw(fd, prompt):
        while True:
            key = _key(fd)
            if key in b"\r\n":
                return typed.decode(sys.stdin.encoding or "utf-8", "surrogateescape")
            if key in b"\x7f\b":
                typed = typed.decode("utf-8", "surrogateescape")[:-1].encode(
                    "utf-8", "surrogateescape")
            elif key in (CTRL_U, CTRL_W):
                typed = b""
            elif key == CTRL_D:
                if not typed:
                    raise EOFError("no answer")
            elif key >= b" ":
                typed += key
