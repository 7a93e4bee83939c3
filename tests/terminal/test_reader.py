"""The character reader: one byte at a time, and the news of the watched file before it.

A stand-in for the log watch library decides the order, see there.
"""
import os
import select
import signal

import pytest

from log_file import wait_state
from reads import EOF, no_echo
from stand_in import SCRIPT, stand_in  # noqa: F401, a fixture


def typed(child):
    """Whether a key or, without editing, a line waits to be read."""
    return bool(select.select([child.slave], [], [], 0)[0])


EACH_KEY = SCRIPT + """
def news(first, second):
    tell("news", (first, waiting()))
on()
for number in range(4): put(number, 0)
"""


@pytest.mark.smoke
@pytest.mark.parametrize("change", [None, no_echo], ids=["edited", "not edited"])
def test_news_before_each_key(start, stand_in, change):
    """In each pass one piece of news, then one byte. Sends keys ahead of a prompt."""
    child = start(EACH_KEY + "wait_for('read'); read()", env=stand_in,
                  change_settings=change)
    child.send("abc<enter>")
    child.wait("the line to arrive", lambda: typed(child))
    child.go("read")
    for number in range(4):
        child.expect_fact("news", (number, 4 - number))
    child.expect_line("abc")
    child.expect_end()


@pytest.mark.parametrize("kind", ["pipe", "file"])
def test_news_before_each_byte(run, stand_in, tmp_path, kind):
    """From pipes and files too; at the end of the input nothing is left out."""
    path = tmp_path / "input"
    path.write_bytes(b"abc\nx")
    script = EACH_KEY + "read(); off(); read(); read()"
    reading, writing = os.pipe()
    os.write(writing, b"abc\nx")  # all of it is there before the child looks
    os.close(writing)
    with open(path, "rb") as file, open(reading, "rb") as pipe:
        found = run(script, env=stand_in, stdin=file if kind == "file" else pipe)
    assert found.all("news") == [(0, 6 - 1), (1, 6 - 2), (2, 6 - 3), (3, 6 - 4)]
    assert found.results() == ["abc", "x", EOF]


@pytest.mark.parametrize("byte", [0x80, 0xc3, 0xe9, 0xfe])
def test_sign_is_kept(start, byte):
    """A byte above 0x7f arrives as such, and is no character by itself: it is refused."""
    child = start("read()")
    child.type("a<c-v><0x%02x>b" % byte, "ab")
    child.send("<enter>")
    child.expect_line("ab")
    child.expect_end()


@pytest.mark.parametrize("logging", ["on()", "", "on(); off()"])
def test_all_ones_is_the_end_of_input(start, stand_in, logging):
    """Deliberate: -1 cannot be told from the end. What follows it is the next line."""
    child = start(SCRIPT + logging + "\nread()\nread()", env=stand_in)
    child.expect_prompt()
    child.send("ab<0xff>c<enter>")
    child.expect_raised(*EOF)
    child.expect_prompt()
    child.expect_line("c")
    child.expect_end()


def test_without_a_watched_file(start, stand_in):
    """The library is not asked, neither before logging is on nor after."""
    child = start(SCRIPT + """
put(1, 2)
read()
tell("first", (asked.value, opened.value))
on(); off()
read()
tell("second", (asked.value, processed.value, opened.value, closed.value))
""", env=stand_in)
    for line in "ab", "cd":
        child.enter(line)
    child.expect_fact("first", (0, 0))
    child.expect_fact("second", (0, 0, 1, 1))
    child.expect_end()


def test_library_is_asked_before_every_wait(start, stand_in):
    """Within one line the descriptor changes, is missing for a while, and comes back."""
    child = start(SCRIPT + """
other = os.pipe()
def moved():
    descriptor.value = source.value = other[0]
def missing():
    descriptor.value = -1
    put(5, 6)
    tell("processed", processed.value)
def back():
    descriptor.value = source.value = pipe[0]
def work():
    told("moved", moved)
    told("more", lambda: os.write(other[1], struct.pack("2i", 3, 4)))
    told("missing", missing)
    told("still", lambda: tell("processed", processed.value))
    told("back", back)
on()
put(1, 2)
beside(work)
read()
tell("asked", asked.value)
""", env=stand_in)
    child.expect_prompt()
    child.expect_fact("news", (1, 2))
    child.go("moved")
    child.expect_fact("moved")
    child.send("a")  # ends the wait that began before
    child.expect_shown("a")
    child.go("more")
    child.expect_fact("news", (3, 4))
    child.go("missing")
    child.expect_fact("processed", 2)
    child.send("bcd")
    child.expect_shown("abcd")
    child.go("still")
    child.expect_fact("processed", 2)
    child.go("back")
    child.expect_fact("back")
    child.send("e")
    child.expect_fact("news", (5, 6))
    child.send("<enter>")
    child.expect_line("abcde")
    assert child.expect_fact("asked") >= 6 + 2  # one for each key and each wait cut short
    child.facts.clear()
    child.expect_end()


def test_failing_wait_is_repeated_with_what_is_in_the_set(start, stand_in):
    """The set is cleared once for each character: a bad descriptor stays in it, and the
    key is seen only when that number is a good one again.
    """
    child = start(SCRIPT + """
good, bad = 701, 700
os.dup2(pipe[0], good)
def spin():
    until = asked.value + 1000
    while asked.value < until: pass
def other():
    descriptor.value = good
    spin()
def work():
    told("spins", spin)
    told("other", other)
    told("mended", lambda: os.dup2(pipe[0], bad))
on()
descriptor.value = bad
beside(work)
read()
""", env=stand_in)
    child.expect_prompt()
    child.go("spins")
    child.expect_fact("spins")
    child.send("a")
    child.go("other")
    child.expect_fact("other")
    child.wait("the key to arrive", lambda: typed(child))
    child.expect_shown("")
    child.go("mended")
    child.expect_shown("a")
    child.send("<enter>")
    child.expect_line("a")
    child.facts.clear()
    child.expect_end()


@pytest.mark.parametrize("number", [signal.SIGWINCH, signal.SIGCONT, signal.SIGUSR1])
def test_wait_is_repeated_after_a_signal(start, stand_in, number):
    child = start(SCRIPT + """
signal.signal(signal.SIGUSR1, lambda number, frame: None)
def count():
    global before
    before = asked.value
def again():
    while asked.value == before: pass
on()
beside(lambda: (told("count", count), told("again", again)))
read()
""", env=stand_in)
    child.type("a")
    wait_state(child, "S")
    child.go("count")
    child.expect_fact("count")
    child.signal(number)
    child.go("again")
    child.expect_fact("again")
    child.send("b<enter>")
    child.expect_line("ab")
    child.expect_end()


def test_news_that_is_not_taken_keeps_no_key_waiting(start, stand_in):
    """The library is called again at once, in every pass, and keys are read between."""
    child = start(SCRIPT + """
taken.value = 0
on()
put(1, 2)
def again():
    until = processed.value + 1000
    while processed.value < until: pass
def take():
    taken.value = 1
beside(lambda: (told("again", again), told("take", take)))
read()
""", env=stand_in)
    child.expect_prompt()
    child.go("again")
    child.expect_fact("again")
    child.send("abc")
    child.expect_shown("abc")
    child.go("take")
    child.expect_fact("news", (1, 2))
    child.expect_fact("take")
    child.send("<enter>")
    child.expect_line("abc")
    child.expect_end()


def test_numbers_are_passed_on_unread(start, stand_in):
    """None, one or several callbacks for a piece of news; any two numbers, in order."""
    pairs = [(0, 0), (-1, 5), (2**31 - 1, -2**31), (-2**31, 2**31 - 1), (7, 8)]
    child = start(SCRIPT + """
def news(*numbers):
    tell("news", (numbers, [type(number).__name__ for number in numbers]))
def silent():
    repeats.value = 0
    put(9, 9)
    while waiting(pipe[0]): pass
on()
for pair in %r: put(*pair)
taken.value, repeats.value = 4, 2
beside(told, "silent", silent)
read()
""" % pairs, env=stand_in)
    child.expect_prompt()
    for pair in pairs:
        child.expect_fact("news", (pair, ["int", "int"]))
        child.expect_fact("news", (pair, ["int", "int"]))
    child.go("silent")
    child.expect_fact("silent")
    child.send("a<enter>")
    child.expect_line("a")
    child.expect_end()


@pytest.mark.parametrize("which", ["terminal", "watched"])
@pytest.mark.parametrize("number, end", [(0, "clean"), (1023, "clean"), (1024, "SIGABRT"),
                                         (5000, "SIGABRT")])
def test_descriptors_that_a_set_has_room_for(start, stand_in, which, number, end):
    """Others cannot be waited on: the process stops, and writes behind no set.

    It says why, and the terminal is as it was, whichever of the two it is.
    """
    child = start(SCRIPT + """
limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
resource.setrlimit(resource.RLIMIT_NOFILE, (6000, limit))
terminal, watched = os.dup(0), pipe[0]
if %(which)r == "terminal":
    terminal = os.dup2(0, %(number)d)
else:
    watched = os.dup2(pipe[0], %(number)d)
sys.stdin = os.fdopen(terminal, closefd=False)
descriptor.value = source.value = watched
put(1, 2)
on()
read()
""" % {"which": which, "number": number}, env=stand_in)
    if end == "clean":
        child.expect_prompt()
        child.expect_fact("news", (1, 2))
        child.send("ab<enter>")
        child.expect_line("ab")
    child.expect_end(end)
    if end != "clean":
        said = b"Keyline cannot wait on descriptor %d: only on 0 to 1023" % number
        assert said in child.display.raw
        child.assert_settings_as_found()


def test_failing_read_is_the_end_of_input(run, stand_in):
    """Not repeated; news that is there at the same time is told before it."""
    found = run(SCRIPT + """
class Folder:
    def flush(self): pass
    def fileno(self): return number
number = os.open(".", os.O_RDONLY)
sys.stdin = Folder()
on()
for number_of_read in range(2):
    put(number_of_read, 0)
    read()
""", env=stand_in)
    assert found.facts == [("news", (0, 0)), ("raised", EOF),
                           ("news", (1, 0)), ("raised", EOF)]


def test_simple_read_has_the_reader_once_the_editor_is_set_up(start, stand_in):
    child = start(SCRIPT + """
on()
put(1, 2)
for number in range(3):
    read() if number == 1 else simple_read()
    tell("asked", asked.value > 0)
    put(3 + number, 0)
""", env=stand_in)
    for number in range(3):
        child.expect_prompt()
        if number > 0:
            child.expect_fact("news", (1, 2) if number == 1 else (4, 0))
        if number == 1:
            child.expect_fact("news", (3, 0))
        child.send("a<enter>")
        child.expect_line("a")
        child.expect_fact("asked", number > 0)
    child.expect_end()


@pytest.mark.parametrize("context", ["None", "news"])
def test_callback_outside_a_read(run, stand_in, context):
    """For None nothing is called or locked; anything else needs the lock released."""
    found = run(SCRIPT + """
on()
library.call_with(ctypes.py_object(%s))
tell("alive")
""" % context, env=stand_in, end="clean" if context == "None" else "SIGABRT")
    if context == "None":
        assert found.facts == [("alive", None)]
    else:
        assert b"Cli/Keyline:57: acquireGil: " in found.stderr
        assert b"Assertion `savedPyThreadState != NULL' failed." in found.stderr
