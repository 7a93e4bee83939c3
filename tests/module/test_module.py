"""Module entry: what import gives, the method table, and the two small methods."""
import pytest

DOCSTRINGS = {
    "readline":
        "readline(string, function, string, string) -> None\n"
        "Read a line of input, using the given prompt string and\n"
        "callback function for completion.  The callback is\n"
        "called as function(line, pos, key) where line is the\n"
        "contents of the line buffer, pos is the current cursor\n"
        "position, and key is the key that invoked completion.\n"
        "The return value is the completed text to append to the\n"
        "line, or None if there is no completion.  Two other optional\n"
        "arguments can be provided to support per-mode history, which\n"
        "specifies the history key for the current mode and its parent.\n"
        "If key is not specified, the line is not added to history.",
    "simpleReadline":
        "simpleReadline(string) -> None\n"
        "Read a line of input, using the given prompt string.\n"
        "This does not support the use of ctrl+c and ctrl+z",
    "history":
        "history(string) -> list\n"
        "Return a list containing the lines in the history.  An optional\n"
        "string can be provided as a key to return only history relevant\n"
        "to the specified key.",
    "newHistoryMode":
        "newHistoryMode(string, string) -> None\n"
        "Create a new history mode based on the key and parent key.",
    "addHistory":
        "addHistory(string, string, string) -> bool\n"
        "Add a line to history with two keys provided to support per-mode\n"
        "history: the first specifies the history key for the current mode\n"
        "and the second specifies its parent.  If the parent mode does not\n"
        "exist, return False, else return True.",
    "clearHistory":
        "clearHistory() -> None\n"
        "Clear the session command history.",
    "keyBindingsEnabledIs":
        "keyBindingsEnabledIs(bool) -> None\n"
        "Enable/disable readline bindings for the <tab> and ? keys.",
    "keyBindingsEnabled":
        "keyBindingsEnabled() -> bool\n"
        "Return whether readline bindings for the <tab> and ? keys are enabled.",
    "historyLimitIs":
        "historyLimitIs(int) -> None\n"
        "Specify history recording limit (default 1024).",
    "TerminalWidthIs":
        "TerminalWidthIs(int) -> None\n"
        "Set Terminal Width using rl_screen_size.",
    "loggingSyncEnabledIs":
        "loggingSyncEnabledIs(filename, callback) -> None\n"
        "Enable/disable synchronous logging.",
    "resetInput":
        "resetInput() -> None\n"
        "Resets the CLI for a new user with new terminal to come in.",
}
METH_VARARGS, METH_NOARGS = 1, 4
WITHOUT_ARGUMENTS = ("clearHistory", "keyBindingsEnabled")


@pytest.mark.smoke
def test_import_gives_the_methods_and_nothing_else(run):
    found = run("""
import Keyline
tell("names", list(vars(Keyline)))
tell("doc", Keyline.__doc__)
""")
    names = found.one("names")
    assert [name for name in names if not name.startswith("__")] == list(DOCSTRINGS)
    assert {name for name in names if name.startswith("__")} <= {
        "__name__", "__doc__", "__package__", "__loader__", "__spec__", "__file__"}
    assert found.one("doc") == ("This module implements interactive command input,\n"
                                "with support for editing, completion and help.")


def test_import_warns_of_nothing(run):
    """A module made for another interface version would warn here."""
    run("import warnings; warnings.simplefilter('error'); import Keyline")


def test_method_table(run):
    """Names, order, flags and docstrings, as the interpreter finds them in the object."""
    found = run("""
import ctypes, Keyline

class Method(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("function", ctypes.c_void_p),
                ("flags", ctypes.c_int), ("doc", ctypes.c_char_p)]

HEAD = object.__basicsize__ + 3 * ctypes.sizeof(ctypes.c_void_p)

class Definition(ctypes.Structure):
    _fields_ = [("head", ctypes.c_char * HEAD), ("name", ctypes.c_char_p),
                ("doc", ctypes.c_char_p), ("size", ctypes.c_ssize_t),
                ("methods", ctypes.POINTER(Method)), ("slots", ctypes.c_void_p),
                ("traverse", ctypes.c_void_p), ("clear", ctypes.c_void_p),
                ("free", ctypes.c_void_p)]

get = ctypes.pythonapi.PyModule_GetDef
get.restype, get.argtypes = ctypes.POINTER(Definition), [ctypes.py_object]
definition = get(Keyline).contents
tell("definition", (definition.name, definition.size, definition.slots,
                    definition.traverse, definition.clear, definition.free))
index = 0
while definition.methods[index].name:
    method = definition.methods[index]
    tell("method", (method.name.decode(), method.flags, method.doc.decode()))
    index += 1
""")
    assert found.one("definition") == (b"Keyline", -1, None, None, None, None)
    assert found.all("method") == [
        (name, METH_NOARGS if name in WITHOUT_ARGUMENTS else METH_VARARGS, doc)
        for name, doc in DOCSTRINGS.items()]


def test_docstrings_reach_python(run):
    found = run("import Keyline; tell('docs', [getattr(Keyline, n).__doc__ for n in %r])"
                % list(DOCSTRINGS))
    assert found.one("docs") == list(DOCSTRINGS.values())


@pytest.mark.parametrize("value", ["None", "0", "__import__('readline')"])
def test_import_is_refused_beside_readline(run, value):
    """The key counts, whatever its value; and nothing is left behind by the refusal."""
    found = run("""
import sys
sys.modules["readline"] = %s
tell("raised", raises(__import__, "Keyline"))
tell("left", "Keyline" in sys.modules)
del sys.modules["readline"]
import Keyline
tell("limit", Keyline.history())
""" % value)
    assert found.one("raised") == (
        "ImportError", "Keyline cannot be used if the readline module is loaded")
    assert found.one("left") is False
    assert found.one("limit") == []


def test_readline_may_be_imported_afterwards(run):
    found = run("import Keyline, readline; tell('both', readline.get_history_length())")
    assert found.one("both") == -1


def test_import_touches_neither_streams_nor_signals(run):
    found = run("""
import sys
before = dispositions(), sys.getrefcount(sys.stdin), sys.getrefcount(sys.stdout)
import Keyline
after = dispositions(), sys.getrefcount(sys.stdin), sys.getrefcount(sys.stdout)
tell("same", before == after)
tell("enabled", Keyline.keyBindingsEnabled())
""")
    assert found.one("same") is True
    assert found.one("enabled") is False
