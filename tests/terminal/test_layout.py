"""After every key the screen shows the layout of prompt and line, and nothing else.

Random keys are typed at a shell of some size, terminal type and prompt, some of which it
answers or prints at; lines of a log come in between, the window changes. A model of the line
(line_model.py) knows what each key does, another one (layout_model.py) how that is laid out.
What stands above is as it was, and below is nothing.

KEYLINE_LAYOUT_KEYS is the number of keys in all, KEYLINE_LAYOUT_SEED the seed. A sequence that
fails is minimized and reported.
"""
import os
import random

import pytest

from layout_model import Layout
from line_model import Line
from log_file import append
from rest import expect_rest
from script import Failure
from terminal import Terminal

KEYS = int(os.environ.get("KEYLINE_LAYOUT_KEYS", "20000"))
SEED = int(os.environ.get("KEYLINE_LAYOUT_SEED", "1"))
SEQUENCES, SHELLS = 40, 2  # tests, and shells in each of them

# The shell is told what to do at a completion before the key comes: what to print in the
# place of prompt and line, and what to answer; "-" is nothing.
SHELL = """
import Keyline
Keyline.keyBindingsEnabledIs(True)
prompts, history = %r, %r
open("log", "w").close()

def told():
    while not received:
        received.extend(os.read(link, 65536).decode().split())
    return received.pop(0)

def say(text):
    os.write(1, b"\\x1b8\\x1b[J" + text)

def complete(key, line):
    printed, answer = told().split(":")
    say(bytes.fromhex(printed.strip("-")))
    tell("completed", line)
    return None if answer == "-" else bytes.fromhex(answer[1:]).decode()

def news(descriptor, length):
    text = os.read(descriptor, length)
    say(text)
    tell("news", text)
    return 1

Keyline.loggingSyncEnabledIs("log", news)
for line in history:
    Keyline.addHistory(line, "exec", "")
count = 0
tell("begun")
while True:
    line = attempt(Keyline.readline, prompts[count %% len(prompts)], complete, "exec", "")
    count += 1
    Keyline.addHistory(line, "exec", "")
"""

ASCII = "abcde fgh  ijk. "
CONFIGURATION = ["access-list 111 permit tcp 255.168.192.100 0.0.0.255 host 100.190.10.255"
                 " eq 8080 log", "no ", "interface 1/1", "ip address 192.0.2.1/24 ", "vlan 4 ",
                 "description the uplink to the other building"]
OTHER = ["\u6f22", "\u5b57", "\u4e0d", "\U0001f60d", "\u00e9", "\u00c4", "e\u0301",
         "x\u0300\u0301", "\u0302", "\t", "\x01", "\x7f", "\u200d", "\u202e", "\x85", "\n",
         "\U000e0001", "a", "b ", "word "]
TYPED = {"ascii": ["x"], "configuration": CONFIGURATION,
         "other": [text for text in OTHER if text[-1] >= "\xa0"]}
MOVES = ["<left>", "<right>", "<home>", "<end>", "<c-b>", "<c-f>", "<m-b>", "<m-f>", "<c-a>",
         "<c-e>", "<m-3><left>", "<m-3><right>"]
CHANGES = ["<bs>", "<bs>", "<del>", "<c-d>", "<c-h>", "<c-k>", "<c-u>", "<c-w>", "<m-d>",
           "<c-y>", "<c-y>", "<c-t>", "<m-c>", "<m-u>", "<m-l>", "<m-3><bs>", "<m-3><del>"]
RECALLS = ["<up>", "<up>", "<c-p>", "<down>", "<c-n>"]
WIDTHS = [1, 2, 3, 4, 5, 7, 8, 9, 12, 16, 20, 20, 33, 40, 40, 80, 80, 80]
CUTTING = ["xterm", "linux", "vt220"]  # what the tests' screen does in another window
HEIGHTS = [1, 2, 3, 4, 5, 8, 24, 24]


def text_of(chance, kind):
    if kind == "ascii":
        return "".join(chance.choice(ASCII) for _ in range(chance.randrange(1, 90)))
    if kind == "configuration":
        return "".join(chance.choice(CONFIGURATION) for _ in range(chance.randrange(1, 3)))
    return "".join(chance.choice(OTHER) for _ in range(chance.randrange(1, 30)))


def prompts_of(chance, kind, width):
    found = ["> ", "", "host(config-if)# ", "\x01\x1b[1m\x02bold\x01\x1b[0m\x02> ",
             "p" * width, "q" * (2 * width - 1), "two\nrows> ", "full" * 20 + "> "]
    if kind == "other":
        found += ["\u6f22\u5b57> ", "e\u0301> ", "w" * (width - 1) + "\u6f22"]
    return [chance.choice(found) for _ in range(3)]


class Plan:
    """A shell, and what is done at it."""

    def __init__(self, seed, count):
        chance = random.Random(seed)
        self.seed = seed
        self.type = chance.choice(CUTTING + ["xterm", "screen", "rxvt"])
        self.kind = chance.choice(["ascii", "configuration", "other"])
        self.rows, self.columns = chance.choice(HEIGHTS), chance.choice(WIDTHS)
        self.history = [text_of(chance, self.kind) for _ in range(12)]
        self.prompts = prompts_of(chance, self.kind, self.columns)
        self.steps = []
        while len(self.steps) < count:
            self.steps += self._steps(chance)

    def _steps(self, chance):
        what = chance.randrange(100)
        if what < 30:
            return list(chance.choice(ASCII) * chance.choice([1, 1, 1, 2, 5]))
        if what < 34:
            return list(chance.choice(TYPED[self.kind]))
        if what < 56:
            return [chance.choice(MOVES)] * chance.choice([1, 1, 2, 6])
        if what < 74:
            return [chance.choice(CHANGES)]
        if what < 81:
            return [chance.choice(RECALLS)] * chance.choice([1, 1, 3])
        if what < 85:
            return self._search(chance)
        if what < 91:
            return [self._completion(chance)]
        if what < 94:
            return [("log", "".join(
                "l" * chance.choice([0, 9, self.columns, 2 * self.columns + 1]) + "\n"
                for _ in range(chance.choice([1, 1, 3, 30]))))]
        if what < 95:
            return ["<c-l>"]
        if what < 97 and self.type in CUTTING:
            return [("resize", chance.choice(HEIGHTS), chance.choice(WIDTHS))]
        return ["<enter>"]

    def _search(self, chance):
        keys = ["<c-r>"] + list(chance.choice(
            ["a", "no", "ip", "c", "de", "zz", "word", "\u6f22", "\u00e9"]))
        for _ in range(chance.randrange(4)):
            keys.append(chance.choice(["<c-r>", "<c-r>", "<bs>", "e", "<c-g>", "<c-a>"]))
        return keys + ["<c-e>"]

    def _completion(self, chance):
        printed = chance.choice(["", "", "what there is\n", "l" * self.columns + "\n\n"])
        answer = chance.choice([None, None, "b", "\b", "\b\b\bxy ", "", "\b" * 300,
                                text_of(chance, self.kind)])
        return chance.choice(["<tab>", "?"]), printed, answer

    def __str__(self):
        return "seed %d: %s, %d x %d, prompts %r, history %r\nkeys: %r" % (
            self.seed, self.type, self.rows, self.columns, self.prompts, self.history,
            self.steps)


class Wrong(AssertionError):
    """The screen is not what it is to be."""


class Watched:
    """A plan's shell, and what its screen is to be."""

    def __init__(self, setup, plan):
        self.plan, self.line, self.reads = plan, Line(plan.history), 0
        self.above, self.top = [], 0
        self.child = Terminal(setup, SHELL % (plan.prompts, plan.history), rows=plan.rows,
                              columns=plan.columns, env={"TERM": plan.type})
        self.screen = self.child.display.screen
        self.screen.answer = lambda data: os.write(self.child.master, data)

    def run(self):
        try:
            self.child.expect_fact("begun")
            expect_rest(self.child)
            self.check("the start")
            for index, step in enumerate(self.plan.steps):
                self.take(step)
                self.check("%r, number %d" % (step, index))
        finally:
            self.child.close()

    # What a step does

    def take(self, step):
        if step[0] == "log":
            append(self.child, step[1])
            self.child.expect_fact("news", step[1].encode())
            expect_rest(self.child)
            self.printed(step[1])
        elif step[0] == "resize":
            self.resize(step[1], step[2])
        elif isinstance(step, tuple):
            self.complete(*step)
        elif step == "<enter>":
            self.enter()
        elif self.line.takes(step):
            self.child.send(step)
            expect_rest(self.child)
            if self.line.searches and len(step) == 1:
                self.drawn_before_found(step)
            self.line.key(step)
            if step == "<c-l>":
                self.above, self.top = [], 0

    def drawn_before_found(self, key):
        """What is looked for is shown before it is found, and may scroll the screen."""
        layout = Layout(self.prompt(), self.line.shown + key, self.line.cursor,
                        self.screen.columns)
        self.drawn(self.spare_rows(layout), layout)

    def printed(self, text):
        """The shell has printed whole rows, or none, in the place of prompt and line."""
        width = self.screen.columns
        for row in text.split("\n")[:-1]:
            self.above += [row[at:at + width].ljust(width)
                           for at in range(0, len(row) or 1, width)]
        self.above = self.above[max(0, len(self.above) + 1 - self.screen.lines):]
        self.top = 0

    def complete(self, key, printed, answer):
        try:
            text = self.line.told().decode()
        except UnicodeDecodeError:
            return  # half a character ends the read
        self.child.go("%s:%s" % (printed.encode().hex() or "-",
                                 "-" if answer is None else "=" + answer.encode().hex()))
        self.child.send(key)
        self.line.end_search()
        told = self.child.expect_fact("completed")
        expect_rest(self.child)
        if told != text:
            raise Wrong("the shell is told %r, not %r" % (told, text))
        self.printed(printed)
        if answer is not None:
            self.line.answer(answer)

    def enter(self):
        self.child.send("<enter>")
        self.line.end_search()
        self.child.expect_line(self.line.text)
        expect_rest(self.child)
        layout = Layout(self.prompt(), self.line.text, None, self.screen.columns)
        rows = layout.texts()[layout.top(self.screen.lines, self.top):][:self.screen.lines]
        self.above = (self.above + rows)[max(
            0, len(self.above + rows) + 1 - self.screen.lines):]
        self.line.enter(self.line.text)
        self.line.begin()
        self.reads += 1
        self.top = 0

    def resize(self, rows, columns):
        """The terminal cuts its rows; prompt and line are drawn again in their place.

        Where the editor cannot know that they were cut, upper rows may stay.
        """
        layout = self.layout()
        row = layout.cursor[0] - layout.top(self.screen.lines, self.top)
        if (rows, columns) == (self.screen.lines, self.screen.columns):
            return
        self.child.resize(rows, columns)
        stood = self.child.display.cells(), self.screen.cursor.y
        expect_rest(self.child)
        self.top = 0
        least = 0 if self.plan.type == "xterm" else row
        for up in range(min(row, rows - 1, stood[1]), min(least, rows - 1, stood[1]) - 1, -1):
            self.above = stood[0][:stood[1] - up]
            if self.spared() is not None:
                break

    # What is seen

    def prompt(self):
        return self.plan.prompts[self.reads % len(self.plan.prompts)]

    def layout(self):
        return Layout(self.prompt(), self.line.shown, self.line.cursor, self.screen.columns)

    def seen(self):
        return self.child.display.cells(), self.child.display.cursor()

    def kept_above(self, rows):
        """The rows above, when so many rows follow them."""
        return self.above[max(0, len(self.above) + rows - self.screen.lines):]

    def expected(self, spared=0):
        """Rows and cursor, when that many empty last rows did not scroll the screen."""
        layout, height = self.layout(), self.screen.lines
        top = layout.top(height, self.top)
        rows = layout.texts()[top:top + height]
        above = self.kept_above(len(rows) - spared)
        shown = (above + rows + [" " * self.screen.columns] * height)[:height]
        return shown, (len(above) + layout.cursor[0] - top, layout.cursor[1])

    def spared(self):
        """How many empty last rows did not scroll the screen; None when the screen is wrong.

        The editor need not make room for rows without text.
        """
        seen = self.seen()
        return next((spared for spared in range(self.spare_rows(self.layout()) + 1)
                     if self.expected(spared) == seen), None)

    def spare_rows(self, layout):
        """How many empty rows the window ends with, behind the cursor."""
        top = layout.top(self.screen.lines, self.top)
        rows = layout.rows[max(top, layout.cursor[0] + 1):top + self.screen.lines]
        return next((at for at, row in enumerate(rows[::-1]) if row), len(rows))

    def drawn(self, spared, layout):
        """Notes what is on the screen now: the window's first row, and the rows above it."""
        height = self.screen.lines
        self.top = layout.top(height, self.top)
        self.above = self.kept_above(min(len(layout.rows) - self.top, height) - spared)

    def check(self, what):
        spared = self.spared()
        if spared is not None:
            self.drawn(spared, self.layout())
            return
        raise Wrong("after %s, with the line %r and the insertion point %d:\n%s" % (
            what, self.line.shown, self.line.cursor, "\n".join(
                "%s, cursor at %d, %d:\n%s" % (which, *cursor, "\n".join(
                    "  |%s|" % row for row in rows)) for which, (rows, cursor) in (
                        ("expected", self.expected()), ("seen", self.seen())))))


def fails(setup, plan):
    try:
        Watched(setup, plan).run()
    except (Wrong, Failure) as error:
        return str(error)
    return None


def shorten(setup, plan, report):
    """Removes steps while it still fails; returns the last report."""
    size = len(plan.steps)
    while size > 0:
        at = 0
        while at < len(plan.steps):
            steps = plan.steps
            plan.steps = steps[:at] + steps[at + size:]
            found = fails(setup, plan)
            if found is None:
                plan.steps = steps
                at += size
            else:
                report = found
        size //= 2
    return report


@pytest.mark.once
@pytest.mark.parametrize("number", range(SEQUENCES))
def test_the_screen_is_the_layout(setup, number):
    for shell in range(SHELLS):
        plan = Plan(SEED * 1000000 + number * SHELLS + shell, KEYS // (SEQUENCES * SHELLS))
        report = fails(setup, plan)
        if report is not None:
            pytest.fail("%s\n%s" % (shorten(setup, plan, report), plan), pytrace=False)
