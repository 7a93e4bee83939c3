"""Programs that were written for input() and the standard module readline, on Keyline.

    python3 -m keyline_shell.readline PROGRAM [ARGUMENT...]
    python3 -m keyline_shell.readline -m MODULE [ARGUMENT...]

The program's input() reads through Keyline while both streams are the terminal, and what it
imports as readline is this module.  Your own program calls install() instead, before anything
imports readline.

What is not supported is reported once, on standard error.
"""
import builtins
import codecs
import importlib.util
import io
import locale
import os
import re
import runpy
import signal
import stat
import sys
import threading
from contextlib import redirect_stdout, suppress
from typing import Callable, List, Optional, Sequence, Set, Tuple, Union

import Keyline

from . import screen

Completer = Callable[[str, int], Optional[str]]
Hook = Callable[[], object]
MatchesHook = Callable[[str, Sequence[str], int], object]
Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]

backend = "readline"  # whose syntax of key bindings is understood

MODE = "readline"  # of the history; it has no parent
MANY = 100  # so many completions are listed without a question

_plain_input = builtins.input
_reading = threading.Lock()
_reader: Optional[int] = None  # the thread that reads
_said: Set[str] = set()

_history: List[str] = []
_known = 0  # so many of its lines are in the editor's history, or -1: others are
_length = -1  # of history files
_auto_history = True

_completer: Optional[Completer] = None
_delims = " \t\n`~!@#$%^&*()-=+[{]}\\|;:'\",<>/?"
_tab_completes = True
_list_at_once = False
_startup_hook: Optional[Hook] = None
_pre_input_hook: Optional[Hook] = None
_matches_hook: Optional[MatchesHook] = None

# During a completion: the line, where the word is in it, what insert_text() has added.
_line: Optional[str] = None
_begin = _end = 0
_inserted = ""
_tabbed: Optional[Tuple[str, int]] = None  # the line that TAB made, and how often in a row
_prompt = ""
_looked = False  # whether the terminal's capabilities were checked


def _say(what: str) -> None:
    """Reports what is not supported, once."""
    if what not in _said:
        _said.add(what)
        sys.stderr.write("keyline_shell.readline: %s\n" % what)


# --- input() -----------------------------------------------------------------------------


def _at_terminal() -> bool:
    """Whether both streams are the original ones of the process, and a terminal."""
    try:
        return (sys.stdin.fileno(), sys.stdout.fileno()) == (0, 1) and \
            os.isatty(0) and os.isatty(1)
    except (AttributeError, OSError, ValueError):  # no streams, closed ones, other objects
        return False


def input(prompt: object = "", /) -> str:
    """Reads a line, as the built-in function of this name does."""
    global _reader
    if not _at_terminal():
        return _plain_input(prompt)
    if _reader == threading.get_ident():
        raise RuntimeError("can't re-enter readline")
    sys.audit("builtins.input", prompt)
    with suppress(AttributeError, OSError):
        sys.stderr.flush()
    text = str(prompt)
    if "\0" in text:
        raise ValueError("input: prompt string cannot contain null characters")
    with _reading:
        _reader = threading.get_ident()
        try:
            line = _read(text)
        finally:
            _reader = None
            screen.leave(1)
    if _auto_history and line and (not _history or _history[-1] != line):
        add_history(line)
    sys.audit("builtins.input/result", line)
    return line


def _read(prompt: str) -> str:
    global _looked, _prompt, _tabbed
    Keyline.keyBindingsEnabledIs(True)  # sets the editor up, before the history is used
    if not _looked:
        screen.look()
        Keyline.historyLimitIs(-1)  # as good as none
        _looked = True
    above, newline, last = prompt.rpartition("\n")
    sys.stdout.write(screen.printed(above) + newline)
    _prompt = screen.prompt(last)
    # Interpreters may take everything for UTF-8; the editor and the terminal go by the locale.
    utf8 = codecs.lookup(sys.stdin.encoding).name == "utf-8" and \
        locale.nl_langinfo(locale.CODESET) in ("UTF-8", "ANSI_X3.4-1968")
    recalled = _run_hooks()
    while True:
        _tell_history(recalled)
        Keyline.keyBindingsEnabledIs(_completer is not None and _tab_completes and utf8)
        _tabbed = None
        sys.stdout.flush()
        try:
            return Keyline.readline(_prompt, _on_key, MODE, "")
        except EOFError:
            raise EOFError from None
        except UnicodeDecodeError as error:
            if not utf8:
                return error.object.decode(sys.stdin.encoding, sys.stdin.errors or "strict")
            # TAB or "?" after letters outside ASCII.
            _give_up("\n")
            sys.stderr.write("no completion here; Up brings back what is left of the line\n")
            recalled = error.object[:error.start].decode()
            continue
        except KeyboardInterrupt as interrupt:
            stop = str(interrupt).startswith("Ctrl-Z")
        # The program's handler or the default action.  After a stop, or if the signal is
        # ignored, the read goes on.
        _give_up("^Z\n" if stop else "^C")
        signal.raise_signal(signal.SIGTSTP if stop else signal.SIGINT)
        if not stop:
            _give_up("\n")


def _give_up(mark: str) -> None:
    """Moves below a line that was dropped, wherever the cursor is in it."""
    sys.stdout.write(("" if screen.plain else screen.ERASE) + mark)
    sys.stdout.flush()


def _run_hooks() -> str:
    """Runs the program's hooks before a line; returns the text that they insert."""
    global _inserted
    _inserted = ""
    for hook in _startup_hook, _pre_input_hook:
        if hook:
            with suppress(Exception):  # as the standard module does
                hook()
    if _inserted:
        _say("a line cannot start with text: Up recalls it")
    return _inserted


# --- Completion --------------------------------------------------------------------------


def _on_key(key: bytes, line: str) -> Optional[str]:
    """Handles TAB and "?", which can only be bound together."""
    global _tabbed
    if key == b"?":
        screen.replace("")
        return "?"
    if not line.isascii():  # it is only a prefix of the line
        screen.replace("")
        _say("no completion after letters outside ASCII")
        return None
    times = _tabbed[1] + 1 if _tabbed and _tabbed[0] == line else 1
    matches = _matches(line)
    word, common = line[_begin:], os.path.commonprefix(matches)
    answer = (_difference(word, common) if common else "") + _inserted
    _tabbed = line[:_begin] + (common or word) + _inserted, times
    if answer and times == 1 or len(matches) == 1:
        screen.replace("")
    elif not matches or times == 1 and not _list_at_once:
        screen.replace("\a")
    else:
        shown = screen.printed(_prompt) + screen.visible(line) + "\n"
        if len(matches) > MANY and times == 2 - _list_at_once:
            shown += "%d possibilities; TAB shows them\n" % len(matches)
        else:
            shown += _listed(word, matches)
        screen.replace(shown)
    return answer


def _difference(word: str, text: str) -> str:
    """The result that makes the editor replace word by text at the end of the line."""
    if text.startswith(word):
        return text[len(word):]
    return "\b" * len(word) + text


def _matches(line: str) -> List[str]:
    """The program's completions of the last word of the line, without duplicates."""
    global _line, _begin, _end, _inserted
    _begin = max(line.rfind(letter) for letter in _delims) + 1 if _delims else 0
    _line, _end, _inserted = line, len(line), ""
    found: List[str] = []
    try:
        while _completer:
            try:
                match = _completer(line[_begin:], len(found))
            except Exception:  # as the standard module does
                break
            if not isinstance(match, str):
                break
            found.append(match)
    finally:
        _line = None
    return sorted(set(found))


def _listed(word: str, matches: List[str]) -> str:
    """The matches as rows, as the program wants them shown."""
    if not _matches_hook:
        return "".join(row + "\n" for row in screen.columns(matches))
    # It prints below the line, and often prompt and line again, which the editor does anyway.
    written = io.StringIO()
    with suppress(Exception), redirect_stdout(written):  # as the standard module does
        _matches_hook(word, matches, max(map(len, matches)))
    return "".join(row + "\n" for row in written.getvalue().split("\n")[:-1] if row)


# --- The history -------------------------------------------------------------------------


def _tell_history(recalled: str) -> None:
    """Copies the program's history to the editor, and one more line that Up recalls first."""
    global _known
    if _known < 0:
        Keyline.clearHistory()
        _known = 0
    elif not Keyline.history(MODE):  # a session of keyline_shell may have cleared it
        _known = 0
    for line in _history[_known:] + [recalled]:
        # A history file may contain what the editor cannot store.
        Keyline.addHistory(line.replace("\0", "?").encode(errors="replace").decode(), MODE, "")
    _known = -1 if recalled else len(_history)


def _at(position: int) -> int:
    """Checks a position in the history, counted from 0."""
    if position < 0:
        raise ValueError("History index cannot be negative")
    if position >= len(_history):
        raise ValueError("No history item at position %d" % position)
    return position


def add_history(line: str, /) -> None:
    _history.append(_text(line))


def clear_history() -> None:
    global _known
    _known = -1
    _history.clear()


def get_current_history_length() -> int:
    return len(_history)


def get_history_item(index: int, /) -> Optional[str]:
    """Counted from 1, unlike in remove_history_item and replace_history_item."""
    return _history[index - 1] if 0 < index <= len(_history) else None


def remove_history_item(pos: int, /) -> None:
    global _known
    del _history[_at(pos)]
    _known = -1


def replace_history_item(pos: int, line: str, /) -> None:
    global _known
    _history[_at(pos)] = _text(line)
    _known = -1


def set_auto_history(enabled: bool, /) -> None:
    global _auto_history
    _auto_history = bool(enabled)


def get_history_length() -> int:
    return _length


def set_history_length(length: int, /) -> None:
    global _length
    _length = int(length)


def read_history_file(filename: Optional[Path] = None, /) -> None:
    with open(_history_file(filename), "rb") as file:
        lines = file.read().decode(errors="surrogateescape").split("\n")
    _history.extend(line for line in lines if line)


def write_history_file(filename: Optional[Path] = None, /) -> None:
    """Replaces the file atomically; a new one is private to its owner."""
    lines = _history[-_length:] if _length > 0 else [] if _length == 0 else _history
    _replace(_history_file(filename), lines)


def append_history_file(nelements: int, filename: Optional[Path] = None, /) -> None:
    path = _history_file(filename)
    data = _encoded(_history[-nelements:] if nelements > 0 else [])
    descriptor = os.open(path, os.O_WRONLY | os.O_APPEND | os.O_CLOEXEC)
    with open(descriptor, "wb") as file:
        file.write(data)
    if _length >= 0:
        with open(path, "rb") as file:
            lines = file.read().decode(errors="surrogateescape").split("\n")[:-1]
        if len(lines) > _length:
            _replace(path, lines[len(lines) - _length:])


def _history_file(filename: Optional[Path]) -> str:
    if filename is None:
        filename = os.path.join(os.path.expanduser("~"), ".history")
    return os.path.realpath(os.fsdecode(filename))


def _encoded(lines: Sequence[str]) -> bytes:
    return "".join(line + "\n" for line in lines).encode(errors="surrogateescape")


def _replace(path: str, lines: Sequence[str]) -> None:
    data, mode = _encoded(lines), 0o600
    with suppress(FileNotFoundError):
        found = os.stat(path)
        mode = stat.S_IMODE(found.st_mode)
        if not stat.S_ISREG(found.st_mode):  # such as /dev/null
            with open(path, "wb") as device:
                device.write(data)
            return
    part = "%s.%d" % (path, os.getpid())
    with suppress(FileNotFoundError):  # left by a process with the same ID that was killed
        os.unlink(part)
    descriptor = os.open(part, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o600)
    try:
        with open(descriptor, "wb") as file:
            os.fchmod(descriptor, mode)
            file.write(data)
        os.replace(part, path)
    except BaseException:
        os.unlink(part)
        raise


def _check(name: str, function: object) -> None:
    if function is not None and not callable(function):
        raise TypeError(name + "(func): argument not callable")


def _text(line: str) -> str:
    if not isinstance(line, str):
        raise TypeError("argument must be str, not " + type(line).__name__)
    return line


# --- What completers use -----------------------------------------------------------------


def set_completer(function: Optional[Completer] = None, /) -> None:
    global _completer
    _check("set_completer", function)
    _completer = function


def get_completer() -> Optional[Completer]:
    return _completer


def set_completer_delims(string: str, /) -> None:
    global _delims
    _delims = _text(string)


def get_completer_delims() -> str:
    return _delims


def get_line_buffer() -> str:
    if _line is None and _reader is not None:
        _say("the line is known only while it is completed")
    return _line or ""


def get_begidx() -> int:
    return _begin


def get_endidx() -> int:
    return _end


def get_completion_type() -> int:
    return ord("?" if _tabbed and _tabbed[1] > 1 else "\t")


def set_completion_display_matches_hook(function: Optional[MatchesHook] = None, /) -> None:
    global _matches_hook
    _check("set_completion_display_matches_hook", function)
    _matches_hook = function


def insert_text(string: str, /) -> None:
    """During a completion, inserts at the end of the line."""
    global _inserted
    _inserted += _text(string)


def redisplay() -> None:
    """After a completion the line is drawn anyway."""
    if _line is None and _reader is not None:
        _say("the line is redrawn only when it is completed")


def set_startup_hook(function: Optional[Hook] = None, /) -> None:
    global _startup_hook
    _check("set_startup_hook", function)
    _startup_hook = function


def set_pre_input_hook(function: Optional[Hook] = None, /) -> None:
    global _pre_input_hook
    _check("set_pre_input_hook", function)
    _pre_input_hook = function


# --- Settings ----------------------------------------------------------------------------


_TAB = re.compile(r'(?i)(?:tab|"?\\t"?|"?\\C-i"?|control-i|C-i)\s*:\s*(\S+)|bind\s+\^I\s+(\S+)')
_COMPLETE = {"complete", "menu-complete", "rl_complete"}
_EXPECTED = re.compile(r"(?i)\s*(#.*|\$.*|set\s+(bell-style|editing-mode\s+emacs|"
                       r"enable-bracketed-paste|completion-\S+|colored-\S+|"
                       r"visible-stats|mark-\S+|page-completions)\b.*)?")


def parse_and_bind(string: str, /) -> None:
    """Understands what TAB does, and when matches are listed."""
    global _tab_completes, _list_at_once
    match = _TAB.fullmatch(string.strip())
    if match:
        _tab_completes = (match[1] or match[2]).lower() in _COMPLETE
        return
    match = re.fullmatch(r"(?i)\s*set\s+show-all-if-(?:ambiguous|unmodified)\s+(\S+)\s*", string)
    if match:
        _list_at_once = match[1].lower() in ("on", "1")
    elif not _EXPECTED.fullmatch(string):
        _say("keys are bound in the editor settings, see keyline(7)")


def read_init_file(filename: Optional[Path] = None, /) -> None:
    _say("keys are bound in the editor settings, see keyline(7)")


# --- Programs ----------------------------------------------------------------------------


def install() -> None:
    """Makes input() and `import readline`, from now on, those of this module."""
    sys.modules["readline"] = sys.modules[__name__]
    builtins.input = input


def main(arguments: Sequence[str]) -> None:
    """Runs a program as the interpreter does."""
    if not arguments or arguments[0] in ("-h", "--help") or arguments == ["-m"]:
        sys.exit("usage: python3 -m keyline_shell.readline PROGRAM [ARGUMENT...]\n"
                 "       python3 -m keyline_shell.readline -m MODULE [ARGUMENT...]")
    install()
    os.environ.setdefault("PYTHON_BASIC_REPL", "1")  # pdb has an editor of its own from 3.15 on
    if arguments[0] == "-m":
        name, sys.argv[:] = arguments[1], arguments[1:]
        if not _is_there(name):
            sys.exit("keyline_shell.readline: no module named " + name)
        runpy.run_module(name, run_name="__main__", alter_sys=True)
    else:
        path, sys.argv[:] = arguments[0], arguments
        if not os.path.exists(path):
            sys.exit("keyline_shell.readline: no such file: " + path)
        if os.path.isfile(path):  # runpy adds a directory or an archive itself
            sys.path[0] = os.path.dirname(os.path.realpath(path))
        runpy.run_path(path, run_name="__main__")


def _is_there(name: str) -> bool:
    try:
        return importlib.util.find_spec(name) is not None
    except ImportError:  # its package does not exist
        return False


def _forked() -> None:
    """The child of a fork does not read."""
    global _reading, _reader
    _reading, _reader = threading.Lock(), None


os.register_at_fork(after_in_child=_forked)

if __name__ == "__main__":
    from keyline_shell import readline  # the module __main__ is another one

    readline.main(sys.argv[1:])
