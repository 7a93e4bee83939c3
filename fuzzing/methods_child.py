"""The side of the methods' fuzzer that has the module: makes the calls of a session in a
process of their own, each beside the model, and tells the first difference.

Started as `python methods_child.py LINK MASTER`, with a terminal as standard input and
output whose other side is MASTER. Sessions and answers are lines of JSON at LINK.
"""
import ctypes
import json
import mmap
import os
import signal
import struct
import sys
import tempfile
import termios
import traceback

from methods_model import FORMATS, Model, Skip, parse

LOST_AFTER = int(os.environ.get("KEYLINE_TEST_DEADLINE", "5"))  # s that a session may take


class Name(str):
    """A subclass of str, which the parser takes."""


class Index:
    """A number that is not an int."""

    def __init__(self, value):
        self.value = value

    def __index__(self):
        if isinstance(self.value, Exception):
            raise self.value
        return self.value


class Log:
    """A callback for log news: keeps what it read, and answers as it is told."""

    def __init__(self):
        self.read, self.answer = b"", None

    def __call__(self, descriptor, length):
        self.read += os.read(descriptor, length)
        return self.answer


class Completer:
    """A completion callback with a fixed answer. The model asks it, too."""

    def __init__(self, answer):
        self.answer, self.calls = answer, []

    def __call__(self, key, line):
        self.calls.append((key, line))
        if isinstance(self.answer, Exception):
            raise type(self.answer)(*self.answer.args)
        return self.answer


def outcome(function, *arguments, **keywords):
    try:
        result = function(*arguments, **keywords)
    except BaseException as error:
        return "raised", type(error).__name__, str(error)
    return "returned", type(result).__name__, result


# What a session's arguments may name. A callback is borrowed by the module, so that none
# of these is ever freed.
log = Log()
space = {
    "Name": Name, "Index": Index, "log": log, "none": Completer(None),
    "empty": Completer(""), "more": Completer("xy"), "back": Completer("\b\b\xe4z"),
    "far": Completer("\b" * 5000 + "new"), "inner": Completer("a\bb"),
    "number": Completer(7), "data": Completer(b"x"), "lone": Completer("\udc80"),
    "fails": Completer(ValueError("no completion")), "leaves": Completer(SystemExit(3)),
    "five": 5,
}
completers = [value for value in space.values() if isinstance(value, Completer)]


class Session:
    def __init__(self, master):
        import Keyline

        self.module, self.model, self.master = Keyline, Model(), master
        self.folder = tempfile.mkdtemp(prefix="keyline-methods-")
        os.chdir(self.folder)
        for name in ("one.log", "two.log"):
            open(name, "wb").write(b"old\n")
        self.kept = 0  # references taken in place of set-ups
        self.counts = [sys.getrefcount(file) for file in (sys.stdin, sys.stdout)]

    def close(self):
        os.chdir("/")
        for name in os.listdir(self.folder):
            os.unlink(os.path.join(self.folder, name))
        os.rmdir(self.folder)

    def expected(self, name, arguments, keywords):
        """What the model makes of a call."""
        model = self.model
        if keywords:
            return outcome(self.refuse, name, name in FORMATS or name == "resetInput",
                           "takes no keyword arguments")
        if name == "readline":
            # Stored by the parser as soon as it gets there.
            model.completer = None
            if 2 <= len(arguments) <= 4 and outcome(
                    parse, "history", arguments[:1])[0] == "returned":
                model.completer = arguments[1]
        if name in FORMATS:
            values = outcome(parse, name, arguments)
            if values[0] == "raised":
                return values
            arguments = values[2]
            while arguments and arguments[-1] is None and name != "keyBindingsEnabledIs":
                arguments.pop()
        elif arguments and name != "resetInput":
            return outcome(self.refuse, name, False,
                           "takes no arguments (%d given)" % len(arguments))
        if name in ("readline", "simpleReadline"):
            model.check_read(name)
        return outcome(getattr(model, name), *arguments)

    @staticmethod
    def refuse(name, plain, why):
        """The interpreter's words for a call that does not fit the method table."""
        raise TypeError("%s%s() %s" % ("" if plain else "Keyline.", name, why))

    def append(self, name, lines):
        with open(name, "ab") as file:
            file.write(lines)
        if self.model.log == name.encode():
            self.model.news += lines

    def keep_streams(self):
        """Takes a reference in the place of a set-up, for a reset to drop."""
        self.kept += 1
        for file in (sys.stdin, sys.stdout):
            ctypes.pythonapi.Py_IncRef(ctypes.py_object(file))

    def call(self, name, argument_text, keys):
        """One call. None, or the difference in words."""
        arguments, keywords = eval("(lambda *a, **k: (a, k))(%s)" % argument_text, space)
        if name == "append":
            return self.append(*arguments)
        model = self.model
        model.keys, model.reads, model.told, model.calls = keys, False, b"", []
        try:
            wanted = self.expected(name, arguments, keywords)
        except Skip:
            return None
        for completer in completers:
            completer.calls.clear()
        log.read, log.answer = b"", [None, 0, 1, True, -1][len(argument_text) % 5]
        if name == "resetInput" and not keywords:
            self.keep_streams()
        if model.reads:
            typed, ups, downs, tab, end = keys
            line = typed + "\033[A" * ups + "\033[B" * downs + tab
            os.write(self.master, (line + end[:model.ends]).encode())
        seen = outcome(getattr(self.module, name), *arguments, **keywords)
        return "gave %r, not %r" % (seen, wanted) if seen != wanted else self.traces()

    def traces(self):
        """What else a call left; None when that is as it should be."""
        model = self.model
        calls = [call for completer in completers for call in completer.calls]
        known = isinstance(model.completer, Completer)
        if known and calls != model.calls:
            return "completed %r, not %r" % (calls, model.calls)
        if log.read != model.told:
            return "told %r of the log, not %r" % (log.read, model.told)
        counts = [sys.getrefcount(file) for file in (sys.stdin, sys.stdout)]
        wanted = [count + model.references + self.kept for count in self.counts]
        if counts != wanted:
            return "references to the streams: %r, not %r" % (counts, wanted)
        if self.module.keyBindingsEnabled() is not model.enabled:
            return "the switch of the keys is not %r" % model.enabled
        return None

    def last_look(self):
        """After all calls: the lines of every mode."""
        for key in [b"", *self.model.modes]:
            seen, wanted = self.module.history(key.decode()), self.model.history(key)
            if seen != wanted:
                return "history(%r) gives %r, not %r" % (key.decode(), seen, wanted)
        return None


def run(calls, master, at):
    """A session. None, or the difference in words; the number of each call goes to `at`."""
    signal.alarm(LOST_AFTER)
    session = Session(master)
    try:
        for number, (name, arguments, keys) in enumerate(calls):
            at[:4] = struct.pack("i", number)
            difference = session.call(name, arguments, keys)
            if difference:
                return difference
        at[:4] = struct.pack("i", len(calls))
        return session.last_look()
    finally:
        session.close()


def run_apart(calls, master, at, settings):
    """A session in a process of its own: how that ended, after how many calls."""
    result, writing = os.pipe()
    child = os.fork()
    if child == 0:
        try:
            difference = run(calls, master, at)
        except BaseException:
            difference = traceback.format_exc()
        os.write(writing, (difference or "").encode("utf-8", "backslashreplace")[:60000])
        os._exit(0)
    os.close(writing)
    with open(result, "rb") as file:
        difference = file.read().decode()
    status = os.waitpid(child, 0)[1]
    termios.tcsetattr(0, termios.TCSAFLUSH, settings)
    if os.WIFSIGNALED(status):
        difference = "ended by " + signal.Signals(os.WTERMSIG(status)).name
    elif status:
        difference = "ended with status %d" % os.WEXITSTATUS(status)
    return {"number": struct.unpack("i", at[:4])[0], "difference": difference}


def main():
    link, master = int(sys.argv[1]), int(sys.argv[2])
    at = mmap.mmap(-1, 4)
    settings = termios.tcgetattr(0)
    # What is typed ahead stays as it is. Without echo the editor would not edit.
    settings[0], settings[3] = 0, termios.ECHO
    termios.tcsetattr(0, termios.TCSANOW, settings)
    with os.fdopen(link, "r+b", buffering=0) as file:
        for line in open(link, "rb", closefd=False):
            answer = run_apart(json.loads(line), master, at, settings)
            file.write(json.dumps(answer).encode() + b"\n")


main()
