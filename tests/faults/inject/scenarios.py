"""What a shell does with the module, in scenarios: small, repeatable, with a known outcome.

A scenario answers a list with one entry for each call of the module that it makes, and one that
says what was told of a log. It sets up what it needs, so that it can follow any other, also
one that went wrong.
"""
import os
import sys
import termios

import interposer
from calling import Log, bare_reset, do, read, simple_read

LEVELS = ("loaded", "imported", "used")  # what the process has done before
SCENARIOS = {}


def scenario(level):
    def add(function):
        SCENARIOS[function.__name__] = function
        function.level = level
        return function
    return add


def fill():
    """A history of three lines, in two modes."""
    import Keyline

    Keyline.clearHistory()
    return [do(Keyline.addHistory, "show version", "exec", ""),
            do(Keyline.addHistory, "hostname r1", "config", "exec"),
            do(Keyline.addHistory, "show r\u00e9seau", "exec", "")]


# ---- from the start ----

@scenario("loaded")
def importing():
    return [do(lambda: __import__("Keyline").__name__)]


@scenario("imported")
def before_the_editor():
    import Keyline
    return [do(Keyline.TerminalWidthIs, 100), do(Keyline.keyBindingsEnabled),
            do(Keyline.newHistoryMode, "exec", ""), do(Keyline.history)]


@scenario("imported")
def first_read():
    return [read([b"abc\r"])]


@scenario("imported")
def first_simple_read():
    return [simple_read([b"abc\r"])]


@scenario("imported")
def first_reset():
    return [bare_reset(), read([b"abc\r"])]


@scenario("imported")
def first_bindings():
    import Keyline
    return [do(Keyline.keyBindingsEnabledIs, True), read([b"a\t?b\r"])]


@scenario("imported")
def first_history():
    return fill()


# ---- reads ----

@scenario("used")
def line():
    return [read([b"a", b"b", b"c", b"\r"])]


@scenario("used")
def edited():
    """Moves, kills, changes of case, a quoted key, keys in the middle of a line."""
    return [read([b"one two three", b"\x01", b"\x1bf\x1bf", b"\x17", b"\x19", b"\x02x",
                  b"\x1b[D\x1b[C", b"\x1bu", b"\x14", b"\x16\x01", b"\x0b", b"\x05\x7f",
                  b"\x1b4z", b"\x0c", b"\r"])]


@scenario("used")
def long_line():
    """Many rows. Twice more is typed than there is room for; the rest is put in from a cut."""
    return [read([b"0123456789" * 10, b"\x01\x0b"] + [b"\x19"] * 10 + [b"0123456789" * 5]
                 + [b"\x19"] * 9 + [b"0123456789" * 12, b"\r"])]


@scenario("used")
def pasted():
    """The second line is there before its read."""
    return [read([b"first\rsecond\r"]), read([])]


@scenario("used")
def resized():
    result = [read([b"some text", (interposer.SIZE, b"\x14\x1e"), b"more",
                    (interposer.SIZE, b"\x18\x50"), b"\r"])]
    return result


@scenario("used")
def other_width():
    import Keyline
    return [do(Keyline.TerminalWidthIs, 20), read([b"a line of thirty characters ..\r"]),
            do(Keyline.TerminalWidthIs, 80)]


@scenario("used")
def end_of_input():
    return [read([b"\x04"]), read([b"ab\x01\xff"])]


@scenario("used")
def interrupted():
    return [read([b"ab", b"\x03"]), read([b"ab", b"\x1a"])]


@scenario("used")
def simple():
    return [simple_read([b"a", b"b\r"]), simple_read([b"\x04"])]


@scenario("used")
def without_echo():
    """The editor starts without echo and does not edit."""
    import Keyline
    found = termios.tcgetattr(0)
    changed = termios.tcgetattr(0)
    changed[3] &= ~termios.ECHO
    try:
        termios.tcsetattr(0, termios.TCSANOW, changed)
        bare_reset()
        result = [read([b"abc\r"]), read([b"x" * 80 + b"\r"])]
        Keyline.resetInput()
        return result
    finally:
        termios.tcsetattr(0, termios.TCSANOW, found)


@scenario("used")
def reset():
    import Keyline
    return [do(Keyline.resetInput), read([b"abc\r"])]


@scenario("used")
def from_a_pipe():
    """Input that is no terminal, read with the editor's first settings."""
    import Keyline
    reading, writing = os.pipe()
    found = sys.stdin
    try:
        with open(reading) as sys.stdin:
            bare_reset()
            os.write(writing, b"piped\nhalf")
            os.close(writing)
            result = [read([]), read([]), read([])]
            Keyline.resetInput()
        return result
    finally:
        sys.stdin = found


# ---- completion ----

def answer(key, line):
    if key == b"?":
        return None
    return "\b\bcd" if line.endswith("ab") else "e\u00e9"


def fail(key, line):
    raise LookupError(line)


@scenario("used")
def completed():
    return [read([b"xab", b"\t", b"?", b"z", b"\t", b"\r"], answer)]


@scenario("used")
def failing_completion():
    return [read([b"ab", b"\t"], fail), read([b"ab", b"?"], lambda key, line: 5),
            read([b"\t"], 7)]


@scenario("used")
def bindings():
    import Keyline
    return [do(Keyline.keyBindingsEnabledIs, False), read([b"?\t\r"], answer),
            do(Keyline.keyBindingsEnabledIs, True), do(Keyline.keyBindingsEnabled),
            do(Keyline.keyBindingsEnabledIs, 1)]


# ---- history ----

@scenario("used")
def history():
    import Keyline
    result = fill()
    result += [do(Keyline.history), do(Keyline.history, "config"),
               do(Keyline.newHistoryMode, "other", "exec"),
               do(Keyline.newHistoryMode, "x", "unknown"),
               do(Keyline.addHistory, "x", "y", "unknown"),
               do(Keyline.historyLimitIs, 2), do(Keyline.history),
               do(Keyline.historyLimitIs, 0), do(Keyline.history),
               do(Keyline.historyLimitIs, 1024), do(Keyline.clearHistory)]
    return result


@scenario("used")
def many_lines():
    """More than the side table of the walks first has room for, and fewer again."""
    import Keyline
    Keyline.clearHistory()
    for number in range(200):  # what is raised here, and below, goes through the scenario
        Keyline.addHistory("line %d" % number, "exec" if number % 70 == 0 else "many", "")
    result = [read([b"\x10\x10", b"\r"], None, "exec", ""), do(Keyline.historyLimitIs, 10),
              do(len, Keyline.history())]
    Keyline.historyLimitIs(1024)
    Keyline.clearHistory()
    return result


@scenario("used")
def more_lines():
    """The side table is there already and full: it grows, or the walks do without it."""
    import Keyline

    counted, interposer.state.on = interposer.state.on, 0  # what is there before cannot fail
    Keyline.clearHistory()
    for number in range(47):  # room for 64 lines but for a block of 16, and for one more
        Keyline.addHistory("line %d" % number, "exec" if number % 20 == 0 else "many", "")
    interposer.state.on = counted
    result = [do(Keyline.addHistory, line, "many", "") for line in ("next", "last")]
    result += [read([keys, b"\r"], None, mode, "") for mode, keys in (
        ("many", b"\x10\x10\x0e"), ("many", b"\x10" * 40), ("exec", b"\x10"))]
    Keyline.clearHistory()
    return result


@scenario("used")
def recalled():
    return fill() + [
        read([b"\x1b[A", b"\x1b[A", b"\x1b[B", b"\r"], None, "exec", ""),
        read([b"\x12", b"ve", b"\x12", b"\r"], None, "config", "exec"),
        read([b"sh\x1bp", b"\r"], None, "exec", ""),
        read([b"x\x1b[A", b"\x1b[B", b"\r"], None, "z", "unknown")]


# ---- log news ----

@scenario("used")
def log_news():
    log = Log()
    result = [read([b"a", (interposer.LOG, b"news\n"), b"b", (interposer.LOG, b"half"),
                    (interposer.LOG, b" a line\n"), b"\r"])]
    return result + log.end()


@scenario("used")
def log_exchanged():
    """Renamed away and made again, truncated, and reached by a link that is put elsewhere."""
    log = Log()
    log.put(b"last\n")
    os.rename(log.name, log.name + ".1")
    log.put(b"first\n")
    result = [read([b"a", b"\r"])]
    log.put(b"more\n", os.O_TRUNC)
    result += [read([b"b", b"\r"])]
    return result + log.end()


@scenario("used")
def log_behind_a_link():
    for number in "12":
        os.makedirs("link%s.d" % number, exist_ok=True)
    if os.path.islink("way"):
        os.unlink("way")
    os.symlink("link1.d", "way")
    log = Log("way")
    with open("link2.d/log", "w") as file:
        file.write("other\n")
    log.written += b"other\n"
    os.symlink("link2.d", "new")
    os.rename("new", "way")
    return [read([b"a", b"\r"])] + log.end()


@scenario("used")
def log_missing():
    import Keyline
    return [do(Keyline.loggingSyncEnabledIs, "no such file", answer), read([b"a\r"])]


# ---- one read each, for the races ----

@scenario("used")
def short_completion():
    return [read([b"ab", b"\t", b"\r"], answer)]


@scenario("used")
def short_recall():
    return fill() + [read([b"\x1b[A", b"\x12", b"ve", b"\r"], None, "exec", "")]


@scenario("used")
def short_simple():
    return [simple_read([b"a", b"b\r"])]


@scenario("used")
def short_log():
    log = Log()
    result = [read([b"a", (interposer.LOG, b"news\n"), b"\r"])]
    return result + log.close()
