"""The sides of a terminal: keys by name, the screen by row, the settings by name."""
import copy
import re
import termios
import unicodedata

import pyte
import pyte.modes
from pyte.screens import Char

from characters import columns

KEYS = {
    "tab": b"\t", "enter": b"\r", "esc": b"\x1b", "bs": b"\x7f", "lt": b"<",
    "up": b"\x1b[A", "down": b"\x1b[B", "right": b"\x1b[C", "left": b"\x1b[D",
    "home": b"\x1b[H", "end": b"\x1b[F", "del": b"\x1b[3~",
}


def keys(text):
    """The bytes of the keys named in text; unnamed characters stand for themselves."""
    def one(match):
        name = match.group(1)
        if name in KEYS:
            return KEYS[name].decode("latin-1")
        if re.fullmatch(r"c-[@-_a-z]", name):
            return chr(ord(name[2].upper()) & 0x1f)
        if re.fullmatch(r"m-.", name):
            return "\x1b" + name[2]
        if re.fullmatch(r"0x[0-9a-f]{2}", name):
            return chr(int(name, 16))
        raise ValueError("no key is called <%s>" % name)

    parts = re.split(r"(<(?:[cm]-.|[a-z0-9]+)>)", text)
    return b"".join(re.sub(r"<(.+)>", one, part).encode("latin-1") if index % 2
                    else part.encode("utf-8") for index, part in enumerate(parts))


class Screen(pyte.Screen):
    """pyte's screen, corrected where it differs from terminals."""

    answer = None  # is called with the replies to the program's requests

    def draw(self, data):
        """With the C library's widths; never cuts a wide character in two."""
        for char in data.translate(self.g1_charset if self.charset else self.g0_charset):
            width = columns(char)
            if width == 0:
                self._mark(char)
            if width <= 0:
                continue
            if self.cursor.x + width > self.columns:
                self.carriage_return()
                self.linefeed()
            if pyte.modes.IRM in self.mode:
                self.insert_characters(width)
            if width <= self.columns:
                self._put(char, width)

    def _put(self, char, width):
        x, line = self.cursor.x, self.buffer[self.cursor.y]
        for part in (x, x + width):
            if part in line and line[part].data == "":
                self._part(part)
        line[x] = Char._make((char,) + self.cursor.attrs[1:])
        if width == 2:
            line[x + 1] = self.cursor.attrs._replace(data="")
        self.cursor.x += width  # may be behind the last column: the next one wraps

    def _mark(self, char):
        """Adds a combining mark to the character before it, also to a wide one."""
        x, line = self.cursor.x - 1, self.buffer[self.cursor.y]
        if x > 0 and line[x].data == "":
            x -= 1
        if x >= 0 and unicodedata.combining(char):
            text = unicodedata.normalize("NFC", line[x].data + char)
            line[x] = line[x]._replace(data=text)

    def _part(self, x):
        """Erases a wide character that is about to be cut in two before column x."""
        line = self.buffer[self.cursor.y]
        if 0 < x < self.columns and line[x].data == "":
            line[x - 1] = line[x] = self.default_char

    def insert_characters(self, count=None):
        """Drops what is pushed out at the right margin, which pyte keeps."""
        self._part(self.cursor.x)
        super().insert_characters(count)
        line = self.buffer[self.cursor.y]
        for x in range(self.columns, self.columns + (count or 1) + 1):
            if line.pop(x, self.default_char).data == "":
                line.pop(self.columns - 1, None)

    def delete_characters(self, count=None):
        self._part(self.cursor.x)
        self._part(self.cursor.x + (count or 1))
        super().delete_characters(count)

    def erase_in_line(self, how=0, private=False):
        if how != 2:
            self._part(self.cursor.x + how)
        super().erase_in_line(how, private)

    def save_cursor(self):
        """Saves one cursor, where pyte has a stack of them."""
        self.savepoints.clear()
        super().save_cursor()

    def restore_cursor(self):
        saved = list(self.savepoints)
        super().restore_cursor()
        if saved:
            self.savepoints.append(saved[0]._replace(cursor=copy.copy(saved[0].cursor)))

    def resize(self, lines=None, columns=None):
        """Drops rows below the cursor first, then rows at the top."""
        lines, columns = lines or self.lines, columns or self.columns
        dropped = max(0, self.cursor.y + 1 - lines)
        rows = [self.buffer[y] for y in range(self.lines)][dropped:dropped + lines]
        self.buffer.clear()
        self.buffer.update(enumerate(rows))
        for line in rows:
            if line[columns].data == "":
                line.pop(columns - 1, None)
            for x in range(columns, self.columns):
                line.pop(x, None)
        self.lines, self.columns = lines, columns
        self.cursor.y -= dropped
        self.ensure_hbounds()
        self.set_margins()

    def write_process_input(self, data):
        if self.answer:
            self.answer(data.encode())


class Display:
    """All that was sent to one terminal, and its screen."""

    def __init__(self, rows, columns):
        self.raw = bytearray()
        self.screen = Screen(columns or 80, rows or 24)
        self.stream = pyte.ByteStream(self.screen)

    def feed(self, data):
        self.raw += data
        self.stream.feed(data)

    def rows(self):
        return [row.rstrip() for row in self.cells()]

    def cells(self):
        """The rows at their full width."""
        screen = self.screen
        columns = range(screen.columns)
        return ["".join([line[x].data for x in columns]) if line else " " * screen.columns
                for line in [screen.buffer[y] for y in range(screen.lines)]]

    def cursor(self):
        """Row and column of the cursor, from 0."""
        return self.screen.cursor.y, self.screen.cursor.x


FLAGS = (
    "IGNBRK BRKINT IGNPAR PARMRK INPCK ISTRIP INLCR IGNCR ICRNL IXON IXANY IXOFF IUTF8",
    "OPOST ONLCR OCRNL ONOCR ONLRET", "CREAD HUPCL CLOCAL PARENB PARODD CSTOPB",
    "ISIG ICANON ECHO ECHOE ECHOK ECHONL NOFLSH TOSTOP ECHOCTL ECHOPRT ECHOKE IEXTEN",
)


def changed_settings(before, after):
    """What differs between two answers of tcgetattr, in words."""
    changed = []
    for names, was, now in zip(FLAGS, before, after):
        changed += [("-" if was & getattr(termios, name) else "+") + name
                    for name in names.split()
                    if hasattr(termios, name) and (was ^ now) & getattr(termios, name)]
    changed += ["character %d: %r was %r" % (index, now, was)
                for index, (was, now) in enumerate(zip(before[6], after[6])) if was != now]
    return changed
