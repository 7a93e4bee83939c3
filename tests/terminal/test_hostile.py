"""What a process may be without: standard streams, descriptors, room on the disk, memory."""
import os
import signal
import subprocess

import pytest

from log_file import append, wait_state
from reads import EOF, READERS, eof

C_PRESSED = ("KeyboardInterrupt", "Ctrl-C pressed")
LOG = """
import Keyline, resource
INFINITY = resource.RLIM_INFINITY
open("log", "w").close()
def news(descriptor, length):
    tell("news", os.read(descriptor, length + 1).decode())
    return 1
def on():
    Keyline.loggingSyncEnabledIs("log", news)
"""


def expect_lines(child, *lines):
    """Types each line at a prompt of its own, and the child ends."""
    __tracebackhide__ = True
    for line in lines:
        child.enter("x" + line[1:] + "<c-a>" + line[0] + "<del>", line)
    child.expect_end()


# Standard streams that are closed

@pytest.mark.parametrize("reader", READERS)
@pytest.mark.parametrize("when", ["before the import", "before the read", "between reads"])
@pytest.mark.parametrize("term", ["xterm", "unknown"])
def test_closed_standard_error(start, reader, when, term):
    """Its number goes to the log library's first descriptor, and messages go nowhere."""
    close = "os.close(2)\n"
    child = start(
        (close if when == "before the import" else "") + LOG
        + (close if when == "before the read" else "") + reader + "\n"
        + (close if when == "between reads" else "") + "on()\n" + reader + "\n"
        + "tell('kind', 'inotify' in os.readlink('/proc/self/fd/2'))\nread()",
        env={"TERM": term})
    child.enter("one")
    child.expect_prompt()
    append(child, "a line\n")
    if reader == "read()":  # the other has no reader of ours before there is set-up
        child.expect_fact("news", "a line\n")
    child.send("two<enter>")
    child.expect_line("two")
    child.expect_fact("kind", True)
    if reader != "read()":
        child.expect_fact("news", "a line\n")
    expect_lines(child, "three")


def test_closed_standard_output_before_the_first_read(start):
    """A stream that cannot be wrapped: nothing can be shown, but the lines are read."""
    child = start("os.close(1)\nread()\nread()\nread()")
    child.send("one<enter>")
    name, message = child.expect_fact("raised")
    assert name == "SystemError" and "returned a result with an" in message
    for line in ("two", "three"):
        child.send(line + "<enter>")
        child.expect_line(line)
    child.expect_end()
    assert b">" not in child.display.raw


@pytest.mark.parametrize("reader", READERS)
def test_standard_output_closed_between_reads(start, reader):
    """The editor does not notice, and edits unseen; opened again, it is shown."""
    child = start(reader + "\nkept = os.dup(1)\nos.close(1)\n" + reader
                  + "\nos.dup2(kept, 1)\n" + reader)
    child.enter("one")
    child.send("wo<c-a>t<enter>")
    child.expect_line("two")
    expect_lines(child, "three")


def test_closed_standard_input_before_the_first_read(start):
    """It counts as the end of the input, until it is open again."""
    child = start("kept = os.dup(0)\nos.close(0)\nread()\nos.dup2(kept, 0)\nread()")
    child.expect_raised(*EOF)
    child.send("one<enter>")
    child.expect_line("one")
    child.expect_end()


@pytest.mark.parametrize("reader", READERS)
def test_standard_input_closed_between_reads(start, reader):
    """No raw mode and no key: it counts as the end of the input, until it is open again."""
    child = start(reader + "\nkept = os.dup(0)\nos.close(0)\n" + reader
                  + "\nos.dup2(kept, 0)\n" + reader)
    child.enter("one")
    child.expect_raised(*eof(reader))
    expect_lines(child, "two")


@pytest.mark.parametrize("reader", READERS)
def test_standard_input_that_is_no_terminal_closed_between_reads(run, reader):
    found = run(reader + "\nos.close(0)\n" + reader, stdin=b"one\ntwo\n")
    assert found.facts == [("line", "one"), ("raised", eof(reader))]


def processor_time(child):
    with open("/proc/%d/stat" % child.process.pid, encoding="utf-8") as file:
        return sum(map(int, file.read().rpartition(")")[2].split()[11:13]))


def test_standard_input_closed_in_a_read(start):
    """The reader repeats its wait without end, by contract, until an interrupt."""
    child = start("""
import Keyline
def close(descriptor, length):
    os.close(0)
    tell("closed")
kept, found = os.dup(0), settings()
open("log", "w").close()
Keyline.loggingSyncEnabledIs("log", close)
read()
Keyline.loggingSyncEnabledIs("log")
os.dup2(kept, 0)
termios.tcsetattr(0, termios.TCSANOW, found)  # which nobody could do before
read()
""")
    child.expect_prompt()
    append(child, "news\n")
    child.expect_fact("closed")
    before = processor_time(child)
    child.wait("the reader to spin", lambda: processor_time(child) > before + 5)
    child.signal(signal.SIGINT)
    child.expect_raised(*C_PRESSED)
    expect_lines(child, "two")


@pytest.mark.parametrize("reader", READERS)
def test_all_three_closed_between_reads(start, reader):
    child = start(reader + "\nkept = os.dup(0)\nfor number in range(3): os.close(number)\n"
                  + reader + "\nfor number in range(3): os.dup2(kept, number)\n" + reader)
    child.enter("one")
    child.expect_raised(*eof(reader))
    expect_lines(child, "two")


# Descriptors

MANY = LOG + """
resource.setrlimit(resource.RLIMIT_NOFILE, (4096, 4096))
while os.dup(0) < %d - 1:
    pass
on()
read()
read()
"""
BIG = "a line of news\n" * 3000  # more than is passed on at once


@pytest.mark.not_memcheck("it keeps the highest descriptors for itself")
@pytest.mark.parametrize("lowest", [1000, 1020, 1022])
def test_many_open_files(start, lowest):
    """The library's descriptors are the next ones; two of them have to be below 1,024."""
    child = start(MANY % lowest)
    child.type("a")
    append(child, "a line\n")
    child.expect_fact("news", "a line\n")
    append(child, BIG)
    told = ""
    while len(told) < len(BIG):
        told += child.expect_fact("news")
    assert told == BIG
    child.send("<enter>")
    child.expect_line("a")
    expect_lines(child, "after")


@pytest.mark.not_memcheck("it keeps the highest descriptors for itself")
@pytest.mark.parametrize("lowest", [1023, 1024, 3000])
def test_too_many_open_files(start, lowest):
    """What cannot be waited on stops the process before anything is written past a set."""
    child = start(MANY % lowest)
    if lowest == 1023:
        child.expect_prompt()
        append(child, "a line\n")
        child.expect_fact("news", "a line\n")
        append(child, BIG)
        child.expect_fact("news")
    child.expect_end("SIGABRT")


@pytest.mark.parametrize("reader", READERS)
def test_no_descriptor_left(start, reader):
    """Settings and terminal's description cannot be opened; a reset makes up for it."""
    child = start(LOG + """
limit = resource.getrlimit(resource.RLIMIT_NOFILE)
resource.setrlimit(resource.RLIMIT_NOFILE, (0, limit[1]))
%s
on()
%s
resource.setrlimit(resource.RLIMIT_NOFILE, limit)
Keyline.resetInput()
read()
""" % (reader, reader))
    for line in ("one", "two", "three"):
        child.enter("x" + line + "<c-a><del><c-l>", line)
        seen = bytes(child.display.raw)
    child.expect_end()
    assert b'No entry for terminal type "xterm"' in seen
    assert b"create inotify event: Too many open files" in seen
    assert b"\x1b[H\x1b[2J3> three" in child.display.raw


# A full disk

@pytest.mark.parametrize("reader", READERS)
@pytest.mark.parametrize("also", ["", "os.dup2(1, 2)\n"], ids=["output", "and error"])
def test_output_to_a_full_device(start, reader, also):
    """It is no terminal, so the terminal's own editing is in force."""
    child = start("import Keyline\nos.dup2(os.open('/dev/full', os.O_WRONLY), 1)\n" + also
                  + reader + "\nKeyline.loggingSyncEnabledIs('none', print)\n" + reader,
                  env={"TERM": "unknown"})
    child.send("axe<bs><bs>b<enter>")
    child.expect_line("ab")
    child.send("<c-d>")
    child.expect_raised(*eof(reader))
    child.expect_end()


@pytest.mark.parametrize("reader", READERS)
def test_output_to_a_full_device_between_reads(start, reader):
    child = start("kept = os.dup(1)\n%s\nos.dup2(os.open('/dev/full', os.O_WRONLY), 1)\n%s\n"
                  "os.dup2(kept, 1)\n%s" % (reader, reader, reader))
    child.enter("one")
    child.send("wo<c-a>t<c-l><enter>")
    child.expect_line("two")
    expect_lines(child, "three")


@pytest.mark.parametrize("size", [0, 3])
def test_news_without_room_for_them(start, size):
    """It waits for an event after there is room again; the reader does not spin."""
    child = start(LOG + """
resource.setrlimit(resource.RLIMIT_FSIZE, (%d, INFINITY))
on()
read()
resource.setrlimit(resource.RLIMIT_FSIZE, (INFINITY, INFINITY))
read()
""" % size)
    child.expect_prompt()
    append(child, "one\n", "two\n")
    child.send("a<enter>")
    child.expect_line("a")
    child.expect_prompt()
    wait_state(child, "S")
    append(child, "three\n")
    child.expect_fact("news", "one\ntwo\nthree\n")
    child.send("after<enter>")
    child.expect_line("after")
    child.expect_end()


@pytest.fixture
def small_disk(tmp_path):
    """A file system with room for 16 kB."""
    path = tmp_path / "disk"
    path.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16k", "none", str(path)], check=True)
    yield str(path)
    subprocess.run(["umount", "-l", str(path)], check=True)


def test_log_on_a_full_file_system(start, small_disk):
    """What was written is told; the line that was cut short, once it is complete."""
    log, filler = os.path.join(small_disk, "log"), os.path.join(small_disk, "filler")
    lines = b"a line ..\n" * 500
    child = start(LOG + "wait_for('on')\nKeyline.loggingSyncEnabledIs(%r, news)\nread()" % log)
    open(log, "wb").close()
    child.go("on")
    child.expect_prompt()
    with open(filler, "wb") as file:
        file.write(bytes(3 * 4096))
    with open(log, "ab", buffering=0) as file:
        assert file.write(lines) == 4096
        child.expect_fact("news", lines[:4090].decode())
        os.unlink(filler)
        file.write(lines[4096:])
    child.expect_fact("news", lines[4090:].decode())
    child.send("a<enter>")
    child.expect_line("a")
    child.expect_end()


# Memory

@pytest.mark.plain_only("a sanitizer needs all the addresses there are")
@pytest.mark.parametrize("first", [False, True], ids=["without an editor", "with an editor"])
@pytest.mark.parametrize("room", [0, 64, 256, 1024])
def test_little_memory(start, first, room):
    """No editor, an exception, or a line that stops growing; with memory all works again."""
    child = start("""
import Keyline, resource
INFINITY = resource.RLIM_INFINITY
def complete(key, line):
    return answer
def little(prompt):
    resource.setrlimit(resource.RLIMIT_AS, (size + %d * 1024, INFINITY))
    try:
        return Keyline.readline(prompt, complete)
    finally:  # telling it takes memory, too
        resource.setrlimit(resource.RLIMIT_AS, (INFINITY, INFINITY))
answer, prompt = "y" * 1000, next_prompt()
%s
with open("/proc/self/statm") as file:
    size = int(file.read().split()[0]) * resource.getpagesize()
attempt(little, prompt)
wait_for("memory")
while not (read(complete) or "").endswith("c"):
    pass
""" % (room, "read()" if first else ""))
    if first:
        child.enter("one")
    child.wait("raw mode or the end of the read",
               lambda: child.facts or child.settings() != child.found)
    if not child.facts:
        child.send("x" * 3000 + "<tab>" * 10 + "<enter>")
    child.wait("the end of the read", lambda: child.facts)
    kind, value = child.facts.pop()
    if kind == "line":
        assert len(value) > 1000 and ("x" * 3000 + "y" * 10000).startswith(value)
    else:
        assert room < 1024 and value in (EOF, ("MemoryError", ""))
    child.assert_settings_as_found()
    child.go("memory")
    child.prompt = 2 if first else 1
    child.expect_prompt()
    child.send("<c-u>ab<tab>c<enter>")
    while True:  # keys of the read before, perhaps
        line = child.expect_fact("line")
        if line.endswith("c"):
            break
    assert line == "ab" + "y" * 1000 + "c"
    child.expect_end()
