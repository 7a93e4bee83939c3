"""What is done at the prompt in every terminal, in the terminals' and the programs' own terms.

A scenario begins in a window of that size with some rows of output; a line comes to the
prompt; then come the steps:

    100          the window gets so many columns (100x30: and rows), and all come to rest
    burst 40 90  one width after the other at once
    drag 100 40  column by column at once; "slowly": all come to rest at each
    stop 40      the program is stopped from elsewhere, the width changes, it goes on
    stop         it is stopped and goes on
    attach 100   detached, and attached again at that width; multiplexers only

In the end a Z is typed where the cursor is.
"""
import unicodedata
from typing import NamedTuple, Tuple

SHORT, LONG = "lab> ", "edge-router-17.example.net(config-policy-map-class)# "
END = -1


def width(text):
    """The columns that text takes."""
    return len(text) + sum(unicodedata.east_asian_width(letter) == "W" for letter in text)


class Scenario(NamedTuple):
    name: str
    length: int  # of the line; 0 and above
    steps: Tuple[str, ...] = ()
    cursor: int = END
    prompt: str = SHORT
    size: Tuple[int, int] = (80, 24)
    rows: int = 20  # of output before
    how: str = "typed"  # or recalled, searched, completed, news
    text: str = ""  # instead of one of that length

    def line(self):
        """The line: words of six characters, so that blanks come at many places."""
        words = "".join("w%04d " % number for number in range(self.length // 6 + 1))
        text = self.text or words[:self.length]
        return text[:-1] + "e" if text else ""  # no blank at its end

    def place(self):
        return len(self.line()) if self.cursor == END else self.cursor

    def widths(self):
        widths = [self.size[0]]
        for step in self.steps:
            words = step.split()
            numbers = [int(word.split("x")[0]) for word in words if word[0].isdigit()]
            if words[0] == "drag":
                first, last = numbers[:2]
                numbers = range(first, last, 1 if last > first else -1)
            widths += numbers
        return widths

    def is_steady(self):
        """Whether the cursor is in the same row of the line at all widths."""
        column = width(self.prompt + self.line()[:self.place()])
        return len({column // width for width in self.widths()}) == 1


def pairs():
    """Each width to each other one, the cursor at the end, in the middle, at the start."""
    for first, last, length, cursor in (
            (40, 80, 100, END), (40, 100, 300, END), (40, 120, 300, END), (80, 40, 100, END),
            (80, 100, 170, END), (80, 120, 200, END), (100, 40, 90, END), (100, 80, 270, END),
            (100, 120, 250, END), (120, 40, 200, END), (120, 80, 130, END), (120, 100, 110, END),
            (80, 40, 200, 30), (80, 120, 200, 100), (100, 40, 250, 150), (120, 80, 300, 0),
            (40, 120, 300, 0), (80, 100, 300, 150)):
        where = {END: "end", 0: "start"}.get(cursor, "at %d" % cursor)
        yield Scenario("%d to %d, %d characters, cursor %s" % (first, last, length, where),
                       length, (str(last),), cursor, size=(first, 24))


SCENARIOS = [
    # The line is copied as one line, however it came.
    Scenario("typed", 150),
    Scenario("typed, blanks at the margin", 150, text="abcd " * 30),
    Scenario("recalled, wide characters", 75, how="recalled", text="x" + "\u4e16\u754c" * 37),
    Scenario("recalled", 150, how="recalled"),
    Scenario("searched", 150, how="searched"),
    Scenario("completed", 150, how="completed"),
    Scenario("redrawn below log news", 150, how="news"),
    Scenario("recalled, then 100", 270, ("100",), how="recalled"),
    Scenario("completed, then 40", 100, ("40",), how="completed"),
    Scenario("below log news, then 120", 200, ("120",), how="news"),
    *pairs(),
    Scenario("wide characters, 80 to 100", 75, ("100",), how="recalled",
             text="\u4e16\u754c" * 40),
    Scenario("wide characters, 100 to 40, cursor start", 75, ("40",), 0, size=(100, 24),
             how="recalled", text="\u4e16\u754c" * 40),
    Scenario("10 characters, 80 to 40", 10, ("40",)),
    Scenario("10 characters, 40 to 120", 10, ("120",), size=(40, 24)),
    Scenario("fills the row at 80, then 100", 75, ("100",)),
    Scenario("fills the row at 40, from 80", 115, ("40",)),
    Scenario("long prompt, 80 to 40", 60, ("40",), prompt=LONG),
    Scenario("long prompt, 40 to 120", 150, ("120",), prompt=LONG, size=(40, 24)),
    Scenario("long prompt, 80 to 100, cursor start", 150, ("100",), 0, LONG),
    Scenario("there and back", 200, ("40", "80")),
    Scenario("burst 100 60 120 40 90", 200, ("burst 100 60 120 40 90",)),
    Scenario("burst, cursor start", 200, ("burst 100 60 120 40 90",), 0),
    Scenario("drag 100 to 40 and back", 150, ("drag 100 40", "drag 40 100"), size=(100, 24)),
    Scenario("drag 100 to 40 and back, cursor start", 150, ("drag 100 40", "drag 40 100"), 0,
             size=(100, 24)),
    Scenario("drag 100 to 40 slowly", 150, ("drag 100 40 slowly",), size=(100, 24)),
    Scenario("drag 100 to 40 slowly, cursor start", 150, ("drag 100 40 slowly",), 0,
             size=(100, 24)),
    Scenario("drag 40 to 100 slowly", 150, ("drag 40 100 slowly",), size=(40, 24)),
    Scenario("stopped during 80 to 40", 150, ("stop 40",)),
    Scenario("stopped during 80 to 120", 150, ("stop 120",)),
    Scenario("stopped, cursor start, 80 to 40", 150, ("stop 40",), 0),
    Scenario("stopped and continued", 150, ("stop",)),
    Scenario("stopped and continued, cursor start", 150, ("stop",), 0),
    Scenario("attached at 100", 150, ("attach 100",)),
    Scenario("attached at 40, cursor start", 150, ("attach 40",), 0),
    Scenario("lower and higher", 150, ("80x12", "80x30")),
    Scenario("higher and lower", 150, ("80x40", "80x24")),
    Scenario("lower, much above", 150, ("80x12",), rows=60),
    Scenario("lower and narrower, little above", 150, ("40x12",), rows=3),
    Scenario("higher and wider, much above", 250, ("120x40",), rows=60),
    Scenario("narrower at the top", 200, ("40",), rows=1),
    Scenario("wider at the top", 200, ("120",), rows=1),
]
