"""What the module's methods do, in plain Python: the history by mode, the switches, and what
a read gives. Arguments are parsed by the interpreter's own parser, so that its errors are
those of the version at hand.
"""
import ctypes
import os

PARSE = ctypes.pythonapi.PyArg_ParseTuple
PARSE.restype = ctypes.c_int
BLANK = b" \t\n\v\f\r"

FORMATS = {
    "readline": b"s|Oss:readline", "simpleReadline": b"s:simpleReadline",
    "history": b"|s:history", "newHistoryMode": b"ss:newHistoryMode",
    "addHistory": b"sss:addHistory", "keyBindingsEnabledIs": b"O:keyBindingsEnabledIs",
    "historyLimitIs": b"I:historyLimitIs", "TerminalWidthIs": b"i",
    "loggingSyncEnabledIs": b"s|O:loggingSyncEnabledIs",
}
TYPES = {"s": ctypes.c_char_p, "O": ctypes.py_object, "I": ctypes.c_uint, "i": ctypes.c_int}


def parse(name, arguments):
    """The values as C sees them, None for those not given; or what the parser raises."""
    letters = [letter for letter in FORMATS[name].decode().split(":")[0] if letter != "|"]
    slots = [TYPES[letter]() for letter in letters]
    PARSE(ctypes.py_object(arguments), FORMATS[name], *map(ctypes.byref, slots))
    return [slot.value if index < len(arguments) else None
            for index, slot in enumerate(slots)]


def text(data):
    return data.decode("utf-8")


class Mode:
    def __init__(self, key, parent):
        self.key, self.parent = key, parent

    def shows(self):
        mode, chain = self, []
        while mode is not None:
            chain.append(mode)
            mode = mode.parent
        return chain


class Skip(Exception):
    """The call would end the process, as it should."""


class Model:
    """Each method answers what the module's answers, or raises what it raises."""

    def __init__(self):
        self.modes, self.current = {}, None
        self.lines, self.limit = [], 1024  # lines: (bytes, mode), oldest first
        self.editor_lines = []  # the editor's own history, until the first set-up
        self.ready = self.installed = False  # set up; ever set up
        self.enabled = self.bound = False  # as switched; as the keys are
        self.completer = self.parked = None
        self.log, self.news = None, b""
        self.references = 0  # taken by set-ups less dropped by resets
        self.keys = None  # of the read that is to come: see read()
        self.reads = False  # the last call read a line; what it told the callbacks:
        self.told, self.calls, self.ends = b"", [], 0

    # -- the mode table and the lines

    def find(self, key):
        return self.modes.get(key) if key else None

    def find_or_make(self, key, parent_key):
        if self.find(key):
            return self.find(key)
        parent = self.find(parent_key)
        if parent_key and parent is None:
            return None
        mode = Mode(key, parent)
        if key:  # one without a key is never found again
            self.modes[key] = mode
        return mode

    def visible(self, mode):
        chain = mode.shows() if mode else None
        return [line for line, entered in self.lines
                if chain is None or entered is None or entered in chain]

    def shrink(self):
        self.lines = self.lines[len(self.lines) - self.limit:] if self.limit < len(
            self.lines) else self.lines

    def set_up(self):
        self.ready = self.installed = self.enabled = self.bound = True
        self.references += 1

    # -- the methods

    def history(self, key=None):
        return [text(line) for line in self.visible(self.find(key))]

    def newHistoryMode(self, key, parent_key):
        if self.find_or_make(key, parent_key) is None:
            raise KeyError(text(parent_key))

    def addHistory(self, line, key, parent_key):
        if not line.strip(BLANK):
            return True
        mode = self.find_or_make(key, parent_key)
        if mode is None:
            return False
        self.current = mode
        if self.limit and not self.installed:
            self.editor_lines.append(line)
        elif self.limit and not (self.lines and self.lines[-1][0] == line):
            self.lines.append((line, mode))
            self.shrink()
        return True

    def clearHistory(self):
        self.lines, self.editor_lines = [], []

    def keyBindingsEnabledIs(self, enabled):
        if type(enabled) is not bool:
            raise TypeError("Expected a bool")
        if not self.ready:
            self.set_up()
        self.enabled = self.bound = enabled

    def keyBindingsEnabled(self):
        return self.enabled

    def historyLimitIs(self, limit):
        self.limit = limit
        self.shrink()

    def TerminalWidthIs(self, width):
        pass

    def loggingSyncEnabledIs(self, name, callback=None):
        if callback is None:
            self.log, self.news = None, b""
        elif self.log is None and os.path.isfile(name):
            self.log = name

    def resetInput(self, *ignored):
        self.ready = False
        self.references -= 1
        self.clearHistory()

    # -- reads

    def readline(self, prompt, callback=None, key=None, parent_key=None):
        if not self.ready:
            self.set_up()
        if key is not None:
            self.current = self.find_or_make(key, parent_key)
        line = self.read()
        if self.parked is not None:
            error, self.parked = self.parked, None
            raise error
        if line is None:
            raise EOFError("readline returned NULL")
        return text(line)

    def simpleReadline(self, prompt):
        line = self.read()
        if line is None:
            raise EOFError("simpleReadline returned NULL")
        return text(line)

    def read(self):
        """The line that the keys give; None for the end of input.

        They are a text, how often Up and then Down, a completion key or none, and the end:
        Return, or Ctrl-D, which ends the input where the line is empty, with Return. `ends`
        tells how many of the last are needed.
        """
        typed, ups, downs, tab, end = self.keys
        self.reads = True
        if self.installed:
            self.told, self.news = self.news, b""
            lines = self.visible(self.current)[::-1]
        else:
            lines = self.editor_lines[::-1]
        place = max(0, min(ups, len(lines)) - downs)
        line = recalled(lines[place - 1]) if place else typed.encode()
        if tab:
            line = self.complete(line, tab)
        if line is None:  # a completion has ended the read
            self.ends = 0
        elif end[0] == "\x04" and not line:
            self.ends, line = 1, None
        else:
            self.ends = len(end)
        return line

    def check_read(self, name):
        """Before a read: whether its keys may be typed."""
        tab, end = self.keys[3:]
        sets_up = name == "readline" and not self.ready
        if tab and not self.installed and not sets_up:
            raise Skip("the editor's own completion")
        if tab and (self.bound or sets_up) and self.completer and self.parked:
            raise Skip("an exception is parked already")

    def complete(self, line, tab):
        if not self.bound:
            return line + tab.encode()
        if self.completer is None:
            return line
        try:
            seen = text(line[:len(text(line))])  # cut as if each character were a byte
            self.calls.append((tab.encode(), seen))
            answer = self.completer(tab.encode(), seen)
            if answer is None:
                return line
            if type(answer) is not str:
                raise TypeError("bad argument type for built-in operation")
            answer.encode()
        except BaseException as error:
            self.parked = error
            return None
        kept = text(line)
        rest = answer.lstrip("\b")
        return (kept[:max(0, len(kept) - (len(answer) - len(rest)))] + rest).encode()


def recalled(line):
    """The editor drops a newline and then a blank from the end of a line from history."""
    if line.endswith(b"\n"):
        line = line[:-1]
    return line[:-1] if line.endswith(b" ") else line
