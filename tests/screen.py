"""The sides of a terminal: keys by name, the screen by row, the settings by name."""
import re
import termios

import pyte

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


class Display:
    """All that one terminal was sent, and the screen that a user sees of it."""

    def __init__(self, rows, columns):
        self.raw = bytearray()
        self.screen = pyte.Screen(columns or 80, rows or 24)
        self.stream = pyte.ByteStream(self.screen)

    def feed(self, data):
        self.raw += data
        self.stream.feed(data)

    def rows(self):
        return [row.rstrip() for row in self.screen.display]

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
