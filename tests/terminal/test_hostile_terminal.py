"""Terminals that are not read from, are read slowly, are stopped, or of any size.

What blocks there is the child's own write, and the tests wait until they see it in it.
While they hold the output, nothing at all is taken from the terminal.
"""
import os
import select
import signal
import subprocess
import time

import pytest

from log_file import append, usage, wait_state
from reads import READERS, eof
from script import DEADLINE



def number_of_write():
    """What a process sleeps in that writes to a full pipe, or None where nothing tells it."""
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    try:
        while True:
            os.write(writer, bytes(4096))
    except BlockingIOError:
        os.set_blocking(writer, True)
    process = subprocess.Popen(["/bin/sh", "-c", "echo"], stdout=writer)
    end = time.monotonic() + DEADLINE
    try:
        while time.monotonic() < end:
            with open("/proc/%d/syscall" % process.pid, encoding="utf-8") as file:
                call = file.read().split()
            if call[1:2] == ["0x1"]:
                return call[0]
    except OSError:
        pass
    finally:
        process.kill()
        process.wait()
        os.close(reader)
        os.close(writer)
    return None


WRITE = number_of_write()
needs_write = pytest.mark.only_where(WRITE is not None, "the number of write() is not known")
C_PRESSED = ("KeyboardInterrupt", "Ctrl-C pressed")
HUNG_UP = "signal.signal(signal.SIGHUP, signal.SIG_IGN)\n"
LINE = "x" * 3000
REDRAWS = "<c-l>" * 60  # of that line: more than the terminal holds


def stop_reading(child):
    """From now on the output is not read, until resume_reading."""
    return child.sources.pop(child.master)


def resume_reading(child, source):
    child.sources[child.master] = source


def writing(child):
    """How often the child went to sleep so far, if it sleeps in a write to the terminal."""
    with open("/proc/%d/syscall" % child.process.pid, encoding="utf-8") as file:
        call = file.read().split()[:2]
    full = not select.select([], [child.slave], [], 0)[1]
    return usage(child) if call == [WRITE, "0x1"] and full else None


def wait_blocked(child):
    """Waits until the terminal takes no more of the child's output.

    A write may sleep for a moment without that; this sleep lasts for some looks.
    """
    __tracebackhide__ = True
    seen = []

    def lasting():
        seen.append(writing(child))
        return len(seen) > 3 and seen[-1] and seen[-4:].count(seen[-1]) == 4

    child.wait("the child to be blocked in a write to the terminal", lasting)


def wait_raw(child):
    __tracebackhide__ = True
    child.wait("the editor's raw mode", lambda: child.settings() != child.found)


def wait_as_found(child):
    __tracebackhide__ = True
    child.wait("the settings as they were", lambda: child.settings() == child.found)


def expect_after(child):
    """One more line is read."""
    __tracebackhide__ = True
    child.enter("after")
    child.expect_end()


# A terminal that is not read from

def blocked(start, script):
    """A child that redraws a line and blocks; answers it and what resume_reading needs."""
    child = start(script)
    child.expect_prompt()
    source = stop_reading(child)
    child.send(LINE)
    child.send(REDRAWS)
    wait_blocked(child)
    assert child.settings() != child.found
    return child, source


@needs_write
@pytest.mark.parametrize("reader", READERS)
def test_output_taken_late(start, reader):
    """Keys wait behind the redrawing, and none of either is lost."""
    child, source = blocked(start, reader + "\n" + reader)
    child.send("<bs>y<c-a>z<enter>")
    resume_reading(child, source)
    child.expect_line("z" + LINE[1:] + "y")
    expect_after(child)
    assert child.display.raw.count(b"\x1b[H\x1b[2J") == 60


@needs_write
def test_prompts_taken_late(start):
    """Some lines are read before the block, the others after it, behind whole prompts."""
    child = start("import Keyline\nfor number in range(60):\n"
                  "    attempt(Keyline.readline, '%s%d> ' % ('p' * 1800, number))\nread()")
    child.wait("the first prompt", lambda: b"p0> " in child.display.raw)
    source = stop_reading(child)
    child.send("".join("%d<enter>" % number for number in range(60)))
    wait_blocked(child)
    assert len(child.facts) < 60
    resume_reading(child, source)
    for number in range(60):
        child.expect_line(str(number))
    expect_after(child)
    shown = bytes(child.display.raw)
    places = [shown.index(b"ppp%d> " % number) for number in range(60)]
    assert places == sorted(places)
    assert shown.count(b"p") == 60 * 1800


@needs_write
def test_interrupt_typed_while_output_is_not_taken(start):
    """The terminal throws the output away with the key, so the read ends at once."""
    child, source = blocked(start, "read()\nread()")
    child.send("<c-c>")
    child.expect_raised(*C_PRESSED)
    resume_reading(child, source)
    expect_after(child)


@needs_write
def test_interrupt_sent_while_output_is_not_taken(start):
    """It waits until the write is over, which it may be at once if there is a little room."""
    child, source = blocked(start, "read()\nread()")
    child.signal(signal.SIGINT)
    resume_reading(child, source)
    child.expect_raised(*C_PRESSED)
    expect_after(child)


@needs_write
@pytest.mark.parametrize("name", ["SIGTERM", "SIGHUP", "SIGQUIT"])
def test_ending_signal_while_output_is_not_taken(start, name):
    """It does not wait for the output: the settings are back, and the process is gone."""
    child, source = blocked(start, "read()")
    child.signal(getattr(signal, name))
    child.wait("the child's end", lambda: child.status is not None)
    child.sources.pop(child.master, None)
    child.expect_end(name)


@needs_write
@pytest.mark.parametrize("reader", READERS)
@pytest.mark.parametrize("ignored", [False, True], ids=["default", "ignored"])
def test_hang_up_while_output_is_not_taken(start, reader, ignored):
    child, source = blocked(start, (HUNG_UP if ignored else "") + reader + "\n" + reader)
    resume_reading(child, source)
    child.hang_up()
    if ignored:
        child.expect_raised(*eof(reader))
        child.expect_raised(*eof(reader))
    child.expect_end("clean" if ignored else "SIGHUP")


# One that is read from byte by byte

def test_output_taken_byte_by_byte(start, monkeypatch):
    child = start("read(lambda key, line: 'able')\nread()")
    take = child._take

    def take_one(fd):
        if fd != child.master or child.status is not None:
            return take(fd)
        return child.sources[fd](os.read(fd, 1))

    child.expect_prompt()
    monkeypatch.setattr(child, "_take", take_one)
    child.send("vari<tab>" + "<c-l>" * 5 + "x" * 100 + "<c-a>y<c-e><bs>")
    child.expect_shown("yvariable" + "x" * 68, "x" * 31)
    child.send("<enter>")
    child.expect_line("yvariable" + "x" * 99)
    expect_after(child)


# A stopped one

@needs_write
@pytest.mark.parametrize("reader", READERS)
@pytest.mark.parametrize("before", ["", "ab"], ids=["at the prompt", "in mid-line"])
def test_stopped_terminal(start, reader, before):
    """Nothing is shown while it is stopped, and all of it afterwards."""
    child = start(reader + "\n" + reader)
    child.type(before)
    shown = bytes(child.display.raw)
    child.send("<c-s>cx")
    wait_blocked(child)
    child.send("<bs>d<enter>")
    wait_blocked(child)
    assert bytes(child.display.raw) == shown and not child.facts
    child.send("<c-q>")
    child.expect_line(before + "cd")
    # The line is told by another way than the terminal, which may be slower.
    child.wait("the line on the screen", lambda: (
        child.display.screen.display[0].rstrip() == "1> " + before + "cd"))
    expect_after(child)


@needs_write
def test_stopped_at_the_end_of_a_line(start):
    """The row's end cannot be shown, so the read is not over and the terminal is raw."""
    child = start("read()\nread()")
    child.type("ab")
    child.send("<c-s><enter>")
    wait_blocked(child)
    assert not child.facts and child.settings() != child.found
    child.send("<c-q>")
    child.expect_line("ab")
    expect_after(child)


@needs_write
@pytest.mark.parametrize("how", ["typed", "sent", "sent while it writes"])
def test_interrupt_at_a_stopped_terminal(start, how):
    """The key lets the terminal go on by itself. The settings do not wait for that."""
    child = start("read()\nread()")
    child.type("ab")
    child.send("<c-s>")
    if how == "sent while it writes":
        child.send("c")
        wait_blocked(child)
    else:
        child.expect_taken()
        wait_state(child, "S")
    if how == "typed":
        child.send("<c-c>")
    else:
        child.signal(signal.SIGINT)
        if how == "sent":
            wait_as_found(child)
        wait_blocked(child)  # what comes next is the script's own new row
        assert not child.facts
        child.send("<c-q>")
    child.expect_raised(*C_PRESSED)
    expect_after(child)


@needs_write
@pytest.mark.parametrize("reader", READERS)
@pytest.mark.parametrize("name", ["SIGTERM", "SIGHUP", "SIGQUIT"])
@pytest.mark.parametrize("writes", [False, True], ids=["waiting", "writing"])
def test_ending_signal_at_a_stopped_terminal(start, reader, name, writes):
    child = start(reader)
    child.type("ab")
    child.send("<c-s>" + ("cd" if writes else ""))
    if writes:
        wait_blocked(child)
    else:
        wait_state(child, "S")
    child.signal(getattr(signal, name))
    child.expect_end(name)


@needs_write
@pytest.mark.parametrize("reader", READERS)
def test_hang_up_of_a_stopped_terminal(start, reader):
    child = start(HUNG_UP + reader + "\n" + reader)
    child.expect_prompt()
    child.send("<c-s>ab")
    wait_blocked(child)
    child.hang_up()
    child.expect_raised(*eof(reader))
    child.expect_raised(*eof(reader))
    child.expect_end()


@needs_write
def test_end_of_input_at_a_stopped_terminal(start):
    """The key is shown first, so the end waits for the terminal."""
    child = start("read()\nread()")
    child.expect_prompt()
    child.send("<c-s><c-d>")
    wait_blocked(child)
    assert child.settings() != child.found
    child.send("<c-q>")
    child.expect_raised(*eof("read()"))
    expect_after(child)


# Sizes

SIZES = [(1, 1), (1, 2), (2, 1), (2, 2), (1, 80), (24, 1), (24, 2), (3, 7), (1, 1000),
         (1000, 1), (1000, 80), (24, 1000), (1000, 1000)]
IN_ANY_WINDOW = """
import Keyline
open("log", "w").close()
def news(descriptor, length):
    os.write(1, b"\\r\\n" + os.read(descriptor, length).replace(b"\\n", b"\\r\\n"))
    tell("news")
    return 1
Keyline.loggingSyncEnabledIs("log", news)
for number in range(3):
    line = read(lambda key, line: "able", "exec", "")
    Keyline.addHistory(line, "exec", "")
    wait_for("on")
"""


@pytest.mark.parametrize("size", SIZES, ids="%dx%d".__mod__)
def test_window_of_size(start, size):
    """Typing, wrapping, a completion, log news, recall and a search give the right lines."""
    child = start(IN_ANY_WINDOW, rows=size[0], columns=size[1])
    long = "x" * (2 * size[1] + 50) + "<c-a>z<c-e><bs>y"
    whole = "z" + "x" * (2 * size[1] + 49) + "y"
    for typed, again, line in [
            ("vari<tab>", "s", "variables"), (long, "", whole),
            ("<up><up><down>1", "<bs>2<c-r>vari<esc><c-e>3", "variables3")]:
        wait_raw(child)
        child.send(typed)
        child.expect_taken()
        append(child, "a line\n", "another\n" * min(size[0], 40))
        child.expect_fact("news")
        child.send(again + "<enter>")
        child.wait("the line", lambda: any(fact[0] == "line" for fact in child.facts))
        child.facts = [fact for fact in child.facts if fact[0] != "news"]
        child.expect_line(line)
        child.assert_settings_as_found()
        child.go("on")
    child.expect_end()


def test_a_dumb_terminal_that_is_very_wide(start):
    """It can only go right by writing what is there, in as many columns as it takes."""
    child = start("read()", env={"TERM": "dumb"}, columns=1300)
    text = "x" * 1200
    child.type(text + "<c-a>y<c-e>z", "y" + text + "z")
    child.send("<enter>")
    child.expect_line("y" + text + "z")
    child.expect_end()
