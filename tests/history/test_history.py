"""The history methods: lines by mode, limits. No terminal is needed for these.

The rules of the store itself are tested without an interpreter: history_test.cpp.
"""
import pytest

from modes import LINES, PARENTS, START, TREE, visible


@pytest.mark.smoke
def test_lines_by_mode(run):
    found = run(TREE + """
tell("all", Keyline.history())
for mode in %r: tell("mode", Keyline.history(mode))
for mode in ("", "nobody", "EXEC", "exec "): tell("none", Keyline.history(mode))
""" % list(PARENTS))
    assert found.one("all") == [line for line, mode in LINES]
    assert found.all("mode") == [visible(mode)[::-1] for mode in PARENTS]
    assert found.all("none") == [[line for line, mode in LINES]] * 4


def test_new_modes(run):
    """An unknown parent is the error's whole message, and nothing is made; a mode that is
    there keeps its parent, whatever is said of it then."""
    found = run(START + """
def add(*arguments): tell("raised", raises(Keyline.newHistoryMode, *arguments))
add("x", "nobody"); add("x", "nobody"); add("x", ""); add("y", "x")
add("x", "nobody"); add("x", "y"); add("y", ""); add("z", "z"); add("z", "X")
tell("added", [Keyline.addHistory("line " + key, key, "nobody") for key in "xyz"])
tell("lines", [Keyline.history(key) for key in "xyz"])
""")
    assert found.all("raised") == [
        ("KeyError", "'nobody'"), ("KeyError", "'nobody'"), None, None, None, None, None,
        ("KeyError", "'z'"), ("KeyError", "'X'")]
    assert found.one("added") == [True, True, False]
    assert found.one("lines") == [["line x"], ["line x", "line y"], ["line x", "line y"]]


def test_many_modes(run):
    """Past every size of the table, made out of order, each found again."""
    found = run(START + """
keys = ["mode %d" % (number * 37 % 100) for number in range(100)]
for before, key in zip([""] + keys, keys): Keyline.newHistoryMode(key, before)
for key in keys: Keyline.addHistory("line of " + key, key, "nobody")
tell("same", [Keyline.history(key) == ["line of " + other for other in keys[:index + 1]]
              for index, key in enumerate(keys)])
""")
    assert found.one("same") == [True] * 100


def test_empty_keys(run):
    """Never found, so each use makes another mode, deliberately; no mode sees its lines."""
    found = run(START + """
for number in range(40):
    Keyline.newHistoryMode("", "")
    tell("added", Keyline.addHistory("line %d" % number, "", ""))
tell("added", Keyline.addHistory("of exec", "exec", ""))
tell("raised", raises(Keyline.newHistoryMode, "", "nobody"))
tell("refused", Keyline.addHistory("lost", "", "nobody"))
tell("child", Keyline.addHistory("child of none", "sub", ""))
tell("lines", [len(Keyline.history()), Keyline.history("exec"), len(Keyline.history(""))])
""")
    assert found.all("added") == [True] * 41
    assert found.one("raised") == ("KeyError", "'nobody'")
    assert found.one("refused") is False and found.one("child") is True
    assert found.one("lines") == [42, ["of exec"], 42]


@pytest.mark.parametrize("line", ["", " ", "   ", "\t", "\n", "\v\f\r", " \t\n "])
def test_blank_lines(run, line):
    """True, and nothing else: the mode is neither made nor chosen."""
    found = run(START + """
tell("added", Keyline.addHistory(%r, "new", "nobody"))
tell("added", Keyline.addHistory(%r, "new", ""))
tell("unknown", Keyline.addHistory("x", "below", "new"))
tell("lines", Keyline.history())
""" % (line, line))
    assert found.all("added") == [True, True]
    assert found.one("unknown") is False
    assert found.one("lines") == []


def test_lines_are_stored_as_given(run):
    lines = [" x", "x ", "x", "\xa0", "grün", "日本語", "\x01\x1b[A", "a\nb", "🐍" * 300, "\\"]
    found = run(START + """
tell("added", [Keyline.addHistory(line, "exec", "") for line in %r])
tell("lines", Keyline.history("exec"))
""" % lines)
    assert found.one("added") == [True] * len(lines)
    assert found.one("lines") == lines


def test_only_a_repeat_of_the_newest_line_is_dropped(run):
    """Whatever the mode, and the line stays in its old one."""
    found = run(START + """
for line, mode in (("a", "x"), ("a", "x"), ("b", "x"), ("a", "x"), ("a", "y"), ("c", "y"),
                   ("a", "y"), ("a ", "y")):
    tell("added", Keyline.addHistory(line, mode, ""))
tell("lines", [Keyline.history(mode) for mode in ("", "x", "y")])
""")
    assert found.all("added") == [True] * 8
    assert found.one("lines") == [
        ["a", "b", "a", "c", "a", "a "], ["a", "b", "a"], ["c", "a", "a "]]


def test_lines_from_before_the_set_up_are_lost(run):
    """They go to the editor's own history; the modes are made all the same."""
    found = run("""
import Keyline
tell("added", Keyline.addHistory("lost", "exec", ""))
tell("refused", Keyline.addHistory("lost", "new", "nobody"))
Keyline.clearHistory()
tell("added", Keyline.addHistory("lost too", "sub", "exec"))
tell("lines", Keyline.history())
read()
tell("added", Keyline.addHistory("kept", "sub", "nobody"))
tell("lines", Keyline.history())
""", stdin=b"\n")
    assert found.all("added") == [True] * 3
    assert found.one("refused") is False
    assert found.all("lines") == [[], ["kept"]]


def test_limits(run):
    """The oldest go at once, whatever their mode; 0 is off; an int is taken by its bits."""
    found = run(START + """
def limit(number):
    tell("result", Keyline.historyLimitIs(number))
    for name in "abcde": Keyline.addHistory(name + str(number), name, "")
    tell("lines", Keyline.history())
for number in (2, 0, 0, 3, 1, -1, 2**32, 2**32 + 2, True, 2**64 - 1):
    limit(number)
Keyline.historyLimitIs(3)
tell("lines", Keyline.history())
tell("added", [Keyline.historyLimitIs(0), Keyline.addHistory("x", "new", ""),
               Keyline.addHistory("x", "sub", "new"),
               Keyline.addHistory("x", "sub2", "old")])
tell("lines", Keyline.history())
""")
    five = ["a%d", "b%d", "c%d", "d%d", "e%d"]
    minus, last = [[line % number for line in five] for number in (-1, 2**64 - 1)]
    assert found.all("result") == [None] * 10
    assert found.all("lines") == [
        ["d2", "e2"], [], [], ["c3", "d3", "e3"], ["e1"], ["e1"] + minus, [],
        ["d%d" % (2**32 + 2), "e%d" % (2**32 + 2)], ["eTrue"], ["eTrue"] + last,
        last[-3:], []]
    assert found.one("added") == [None, True, True, False]


def test_limit_from_the_start(run):
    found = run(START + """
for number in range(1030): Keyline.addHistory(str(number), "exec", "")
tell("lines", Keyline.history())
tell("cleared", Keyline.clearHistory())
tell("lines", Keyline.history())
Keyline.addHistory("again", "exec", "nobody")
tell("lines", Keyline.history("exec"))
""")
    assert found.one("cleared") is None
    assert found.all("lines") == [[str(number) for number in range(6, 1030)], [], ["again"]]


def test_very_long_text(run):
    found = run(START + """
long = "x" * (1 << 20)
tell("added", [Keyline.addHistory(long, long, ""), Keyline.addHistory(long, long, ""),
               Keyline.addHistory(long + "y", long + "y", long),
               Keyline.addHistory(long, "new", long + "z")])
tell("same", [Keyline.history() == [long, long + "y"], Keyline.history(long) == [long],
              Keyline.history(long + "y") == [long, long + "y"]])
tell("raised", raises(Keyline.newHistoryMode, "new", long + "z")
     == ("KeyError", repr(long + "z")))
Keyline.historyLimitIs(1)
tell("same", Keyline.history() == [long + "y"])
""")
    assert found.one("added") == [True, True, True, False]
    assert found.all("same") == [[True] * 3, True]
    assert found.one("raised") is True
