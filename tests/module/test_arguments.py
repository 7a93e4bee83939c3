"""Wrong arguments raise the parser's error and have no effect."""
from stub import FUNCTIONS, parameters

# Calls with the parser's whole message, or the part that is the same in every Python.
MESSAGES = [
    ("readline()", "TypeError", "readline() takes at least 1 argument (0 given)"),
    ("readline('', 0, '', '', 0)", "TypeError",
     "readline() takes at most 4 arguments (5 given)"),
    ("readline(1)", "TypeError", "readline() argument 1 must be str, not int"),
    ("readline('', None, 1)", "TypeError", "readline() argument 3 must be str, not int"),
    ("readline('', None, '', None)", "TypeError",
     "readline() argument 4 must be str, not None"),
    ("readline('a\\0b')", "ValueError", "embedded null character"),
    ("readline('\\ud800')", "UnicodeEncodeError", "surrogates not allowed"),
    ("readline(prompt='')", "TypeError", "takes no keyword arguments"),
    ("simpleReadline()", "TypeError",
     "simpleReadline() takes exactly 1 argument (0 given)"),
    ("simpleReadline('', '')", "TypeError",
     "simpleReadline() takes exactly 1 argument (2 given)"),
    ("simpleReadline(b'')", "TypeError",
     "simpleReadline() argument 1 must be str, not bytes"),
    ("history(1)", "TypeError", "history() argument 1 must be str, not int"),
    ("history('', '')", "TypeError", "history() takes at most 1 argument (2 given)"),
    ("newHistoryMode('a')", "TypeError",
     "newHistoryMode() takes exactly 2 arguments (1 given)"),
    ("addHistory('a', 'b')", "TypeError",
     "addHistory() takes exactly 3 arguments (2 given)"),
    ("clearHistory(1)", "TypeError", "clearHistory() takes no arguments (1 given)"),
    ("keyBindingsEnabledIs()", "TypeError",
     "keyBindingsEnabledIs() takes exactly 1 argument (0 given)"),
    ("keyBindingsEnabled(1)", "TypeError",
     "keyBindingsEnabled() takes no arguments (1 given)"),
    ("historyLimitIs()", "TypeError",
     "historyLimitIs() takes exactly 1 argument (0 given)"),
    ("historyLimitIs('1')", "TypeError", "int"),
    ("loggingSyncEnabledIs()", "TypeError",
     "loggingSyncEnabledIs() takes at least 1 argument (0 given)"),
    ("resetInput(x=1)", "TypeError", "resetInput() takes no keyword arguments"),
]
# What is right for a parameter of a type, and what is wrong for it.
RIGHT = {"str": "'x'", "bool": "True", "int": "2"}
WRONG = {
    "str": [("None", "TypeError"), ("5", "TypeError"), ("b'x'", "TypeError"),
            ("['x']", "TypeError"), ("'a\\0b'", "ValueError"),
            ("'a\\ud800'", "UnicodeEncodeError")],
    "bool": [("1", "TypeError"), ("None", "TypeError")],
    "int": [("None", "TypeError"), ("'2'", "TypeError"), ("2.0", "TypeError")],
}


def wrong_numbers():
    """A call with fewer and one with more arguments than the stub allows, of each function."""
    for name in FUNCTIONS:
        types, needed = parameters(name)
        right = [RIGHT.get(kind, "None") for kind in types]
        for count in range(needed):
            yield name, right[:count], "TypeError"
        if not FUNCTIONS[name].args.vararg:
            yield name, right + ["None"], "TypeError"


def wrong_values():
    """For each parameter, calls with what the stub does not allow there."""
    for name in FUNCTIONS:
        types, needed = parameters(name)
        for at, kind in enumerate(types):
            right = [RIGHT.get(other, "None") for other in types[:max(needed, at + 1)]]
            for wrong, error in WRONG.get(kind, ()):
                yield name, right[:at] + [wrong] + right[at + 1:], error


def raised(run, calls):
    """What each call raises. None sets anything up; later, none stores, makes or clears."""
    found = run("""
import sys, Keyline
calls = %r
before = sys.getrefcount(sys.stdin)
for call in calls:
    tell("raised", raises(lambda: eval("Keyline." + call)))
    tell("set up", sys.getrefcount(sys.stdin) - before)
Keyline.keyBindingsEnabledIs(True)
Keyline.newHistoryMode("exec", "")
for line in ("one", "two", "three"): Keyline.addHistory(line, "exec", "")
for call in calls:
    tell("raised again", raises(lambda: eval("Keyline." + call)))
    tell("lines", Keyline.history())
    tell("made", Keyline.addHistory("line", "key", "x"))
    tell("enabled", Keyline.keyBindingsEnabled())
""" % (calls,))
    count = len(calls)
    assert found.all("set up") == [0] * count
    assert found.all("lines") == [["one", "two", "three"]] * count
    assert found.all("made") == [False] * count  # there is no mode "x" that it could be in
    assert found.all("enabled") == [True] * count
    assert len(found.all("raised")) == count
    assert found.all("raised again") == found.all("raised")
    return found.all("raised")


def test_messages(run):
    errors = raised(run, [call for call, _, _ in MESSAGES])
    for (call, error, text), found in zip(MESSAGES, errors):
        assert found[0] == error and text in found[1], call


def test_too_few_and_too_many(run):
    """The module takes as many arguments as the stub says, no fewer and no more."""
    calls = list(wrong_numbers())
    assert len(calls) > len(FUNCTIONS)
    errors = raised(run, ["%s(%s)" % (name, ", ".join(given)) for name, given, _ in calls])
    for call, (error, text) in zip(calls, errors):
        assert error == "TypeError" and "argument" in text and "given)" in text, call


def test_keywords(run):
    errors = raised(run, [name + "(x=1)" for name in FUNCTIONS])
    assert [error for error, _ in errors] == ["TypeError"] * len(FUNCTIONS)
    assert all("takes no keyword arguments" in text for _, text in errors)


def test_values(run):
    calls = list(wrong_values())
    assert len(calls) > 30
    errors = raised(run, ["%s(%s)" % (name, ", ".join(given)) for name, given, _ in calls])
    assert [(call, found) for call, found in zip(calls, errors)
            if found is None or found[0] != call[2]] == []
