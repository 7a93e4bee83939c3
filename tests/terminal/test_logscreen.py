"""Log lines above a line being typed: on the screen, in floods, at rest, for long."""
import os
import re
import time

import pytest

from log_file import Writer, append, usage, wait_state
from stand_in import SCRIPT as STAND_IN_SCRIPT, stand_in  # noqa: F401, a fixture

# How a shell's callable does it: it leaves the rows of prompt and line, `above` of which
# are above the cursor's, prints, and asks for prompt and line to be drawn again.
SCRIPT = """
import Keyline
above = 0
open("log", "w").close()

def news(descriptor, length):
    leave = "\\r" + ("\\x1b[%dA" % above if above else "") + "\\x1b[J"
    sys.stdout.write(leave + os.read(descriptor, length).decode())
    sys.stdout.flush()
    return 1

def on(): Keyline.loggingSyncEnabledIs("log", news)
def off(): Keyline.loggingSyncEnabledIs("log")
"""


def wrapped(text, columns):
    return [text[at:at + columns] for at in range(0, len(text), columns)]


LAYOUTS = {  # prompt, text, how often the cursor is moved left
    "one row": ("1> ", "show version", 5),
    "several rows": ("0123456789" * 6 + "1> ", "abcdefghij" * 7 + "klm", 30),
}


@pytest.mark.smoke
@pytest.mark.parametrize("single", [False, True], ids=["at once", "one by one"])
@pytest.mark.parametrize("height", [24, 1050], ids=["scrolled", "all seen"])
@pytest.mark.parametrize("layout", LAYOUTS)
def test_bursts(start, layout, height, single):
    """All lines stand above, in order; prompt and line once below, cursor where it was."""
    columns = 40
    prompt, text, left = LAYOUTS[layout]
    place = len(prompt) + len(text) - left
    child = start(SCRIPT + "above = %d\non()\nattempt(Keyline.readline, %r)\n" % (
        place // columns, prompt), rows=height, columns=columns)
    child.expect_prompt()
    child.send(text + "<left>" * left)
    below = wrapped(prompt + text, columns)
    wanted = []

    def expect():
        rows = (wanted + below)[-height:]
        cursor = len(rows) - len(below) + place // columns, place % columns
        what = "%d log lines, %r and the cursor at %r" % (len(wanted), below, cursor)
        child.wait(what, lambda: child.display.cursor() == cursor
                   and child.display.rows() == rows + [""] * (height - len(rows)))

    expect()
    for count in 1, 10, 1000:
        lines = ["line %d of %d" % (number + 1, count) for number in range(count)]
        texts = [line + "\n" for line in lines]
        append(child, *(texts if single else ["".join(texts)]))
        wanted += lines
        expect()
    shown = re.findall(rb"line \d+ of \d+(?=\r\n)", child.display.raw)
    assert [line.decode() for line in shown] == wanted
    child.send("X<enter>")
    child.expect_line(text[:-left] + "X" + text[-left:])
    child.expect_end()


def test_lines_written_while_the_shell_was_busy(start):
    """They wait for the next read, and come above its prompt; what is off shows nothing."""
    child = start(SCRIPT + "on()\nread()\nwait_for('more')\nread()\noff()\nread()")
    child.enter("a")
    append(child, "one\ntwo\n")
    child.go("more")
    child.wait_screen("the log", lambda rows: rows[:4] == ["1> a", "one", "two", "2>"])
    child.enter("b")
    child.expect_prompt()
    append(child, "three\n")
    child.send("c<enter>")
    child.expect_line("c")
    child.expect_end()
    assert child.display.rows()[4:6] == ["3> c", ""]


def test_while_other_things_are_shown(start):
    """A long line of the log, an empty one, one that is not ASCII; after a search, too."""
    child = start(SCRIPT + """
on()
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory("first line", "mode", "")
read()
""")
    child.type("ab")
    append(child, "x" * 100 + "\n\n\u00fc\u00df\n")
    rows = ["x" * 80, "x" * 20, "", "\u00fc\u00df"]
    child.wait_screen("the log", lambda seen: seen[:5] == rows + ["1> ab"])
    child.send("<c-u><c-r>fir")
    child.expect_shown("first line", "bck:fir")
    child.send("<esc><c-e>")
    child.expect_shown("first line")
    child.expect_cursor(0, 13)
    append(child, "more\n")
    child.wait_screen("more", lambda seen: "more" in seen and seen[
        seen.index("more") + 1].startswith("1> first line"))
    child.send("<enter>")
    child.expect_line("first line")
    child.expect_end()


@pytest.mark.once
def test_flood(start):
    """Another process writes as fast as it can: no line is lost or told twice, keys are
    echoed meanwhile, and at the end prompt and line are right.
    """
    count, letters = 50000, "qwertyuiop"  # none of them in what moves the cursor
    child = start(SCRIPT + "on()\nread()")
    child.expect_prompt()
    writer = Writer(child, count)
    last = b"J%d\r\n" % (count - 1), b"\n%d\r\n" % (count - 1)
    child.send(letters[0])
    child.expect_shown(letters[0])
    writer.go()
    during = 0
    for number, letter in enumerate(letters[1:], 2):
        child.send(letter)
        child.wait("the echo of " + letter, lambda: letter.encode() in child.display.raw)
        echo = child.display.raw.index(letter.encode())
        during += not any(line in child.display.raw[:echo] for line in last)
    child.wait("the last line",
               lambda: any(line in child.display.raw[-200:] for line in last))
    writer.end()
    child.expect_shown(letters)
    child.expect_cursor(0, 3 + len(letters))
    assert during > 0, "no key was echoed during the flood"
    shown = re.findall(rb"(?<=[J\n])\d+(?=\r\n)", child.display.raw)
    assert shown == [b"%d" % number for number in range(count)]
    child.send("<left>x<enter>")
    child.expect_line(letters[:-1] + "x" + letters[-1])
    child.expect_end()


@pytest.mark.parametrize("before", ["", "news"])
def test_rest(start, before):
    """While nothing happens, the process does nothing. The second is what is measured."""
    child = start(SCRIPT + "on()\nread()")
    child.expect_prompt()
    if before:
        append(child, ("x" * 1000 + "\n") * 100)
    child.send("ab")
    child.expect_shown("ab")
    found = wait_state(child, "S")
    time.sleep(1)
    assert usage(child) == found
    child.send("<enter>")
    child.expect_line("ab")
    child.expect_end()


SWITCHINGS = """
def state():
    with open("/proc/self/statm") as file:
        resident = int(file.read().split()[1]) * 4
    return resident, allocated(), sorted(os.listdir("/proc/self/fd"))

def use(count):
    for number in range(count):
        on()
        if number %% 10 == 0:
            make_news()
            try:
                Keyline.readline("")
            except EOFError:
                pass
        off()

def news(first, second):
    global seen
    seen += 1

seen = 0
%s
use(100)
before = state()
use(%d)
after = state()
tell("seen", seen)
tell("descriptors", before[2] == after[2])
tell("grown", [after[index] - before[index] for index in range(2)])
"""


@pytest.mark.parametrize("library", ["bundled", "stand-in"])
def test_thousands_of_switchings(run, setup, stand_in, library):
    """With a read and its news at every tenth: no descriptor and no memory is left behind.

    The kernel takes 10 ms to give a watch up; KEYLINE_SWITCHINGS is how often it has to.
    """
    if library == "bundled":
        script, count, env = SCRIPT, int(os.environ.get("KEYLINE_SWITCHINGS", "300")), None
        make = "log = open('log', 'a', buffering=1)\ndef make_news(): log.write('line\\n')"
    else:
        script, count, env = STAND_IN_SCRIPT, 10000, stand_in
        make = "def make_news(): put(1, 2)"
    found = run(script + SWITCHINGS % (make, count), env=env)
    assert found.one("seen") == 10 + count // 10
    assert found.one("descriptors")
    resident, allocated = found.one("grown")  # kilobytes, bytes
    assert allocated < 1024
    if not setup.sanitizer_logs:  # a sanitizer keeps what was freed for a while
        assert resident < 256
