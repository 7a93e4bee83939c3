"""A reset: which references it drops, what it empties, and what survives it."""
import pytest


# The references that a reset drops for nothing are given first, or the end would crash.
STREAMS = """
import ctypes, Keyline
for stream in [sys.stdin, sys.stdout] * 4:
    ctypes.pythonapi.Py_IncRef(ctypes.py_object(stream))
def references():
    return sys.getrefcount(sys.stdin), sys.getrefcount(sys.stdout)
def change(function, *arguments):
    before = references()
    answer = function(*arguments)
    after = references()
    tell("change", (after[0] - before[0], after[1] - before[1]))
    return answer
"""


def test_set_up_takes_and_reset_drops_a_reference_to_each_stream(run):
    found = run(STREAMS + """
change(Keyline.keyBindingsEnabledIs, True)
change(Keyline.keyBindingsEnabledIs, True)
tell("answer", change(Keyline.resetInput))
change(Keyline.keyBindingsEnabledIs, True)
tell("answer", change(Keyline.resetInput))
""")
    assert found.all("change") == [(1, 1), (0, 0), (-1, -1), (1, 1), (-1, -1)]
    assert found.all("answer") == [None, None]


def test_reset_drops_references_even_when_none_was_taken(run):
    """Deliberate: the drop is unconditional, and from the current streams."""
    found = run(STREAMS + """
change(Keyline.resetInput)
change(Keyline.resetInput)
""")
    assert found.all("change") == [(-1, -1), (-1, -1)]


def test_reset_drops_from_the_current_streams_not_the_wrapped_ones(run):
    found = run(STREAMS + """
import io
Keyline.keyBindingsEnabledIs(True)
wrapped = sys.stdin
before = sys.getrefcount(wrapped)
sys.stdin = io.StringIO()
ctypes.pythonapi.Py_IncRef(ctypes.py_object(sys.stdin))
lost = sys.getrefcount(wrapped) - before
change(Keyline.resetInput)
tell("wrapped", sys.getrefcount(wrapped) - before - lost)
""")
    assert found.all("change") == [(-1, -1)]
    assert found.one("wrapped") == 0


@pytest.mark.parametrize("arguments", ["", "1, 'x'", "None", "*range(20)"])
def test_reset_ignores_its_arguments(run, arguments):
    found = run(STREAMS + """
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory("a line", "", "")
tell("answer", change(Keyline.resetInput, %s))
tell("history", Keyline.history())
""" % arguments if arguments else STREAMS + """
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory("a line", "", "")
tell("answer", change(Keyline.resetInput))
tell("history", Keyline.history())
""")
    assert found.one("answer") is None
    assert found.all("change") == [(-1, -1)]
    assert found.one("history") == []


@pytest.mark.parametrize("enabled", [True, False])
def test_reset_empties_the_history_and_keeps_modes_limit_and_key_flag(run, enabled):
    found = run("""
import Keyline
Keyline.keyBindingsEnabledIs(%r)
Keyline.newHistoryMode("parent", "")
Keyline.historyLimitIs(2)
Keyline.addHistory("early", "child", "parent")
tell("before", Keyline.history())
Keyline.resetInput()
tell("after", Keyline.history())
tell("enabled", Keyline.keyBindingsEnabled())
tell("known parent", Keyline.addHistory("one", "other child", "parent"))
tell("unknown parent", Keyline.addHistory("lost", "orphan", "nobody"))
for line in ("two", "three", "four"):
    Keyline.addHistory(line, "child", "parent")
tell("limited", Keyline.history())
""" % enabled)
    assert found.one("before") == ["early"]
    assert found.one("after") == []
    assert found.one("enabled") is enabled
    assert found.one("known parent") is True
    assert found.one("unknown parent") is False
    assert len(found.one("limited")) == 2


@pytest.mark.parametrize("first", ["resetInput", "clearHistory"])
def test_reset_before_the_first_read(start, first):
    """The editor starts with its own defaults; the first readline replaces that one."""
    child = start(STREAMS + """
tell("answer", Keyline.%s())
tell("enabled", Keyline.keyBindingsEnabled())
read(lambda key, line: "able")
tell("enabled", Keyline.keyBindingsEnabled())
""" % first)
    child.expect_fact("answer", None)
    child.expect_fact("enabled", False)
    child.type("vari<tab>", "variable", redrawn=True)
    child.send("<enter>")
    child.expect_line("variable")
    child.expect_fact("enabled", True)
    child.expect_end()


def test_many_resets(start):
    """Each replaces the editor and its history object; the store behind them survives."""
    child = start(STREAMS + """
for number in range(20):
    read()
    Keyline.addHistory("kept", "", "")
    Keyline.resetInput()
read()
""")
    for number in range(21):
        child.expect_prompt()
        child.send("line %d<enter>" % number)
        child.expect_line("line %d" % number)
    child.expect_end()
