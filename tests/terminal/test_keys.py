"""Which keys complete, and switching them off and on. Their order: keys_test.cpp."""
import pytest

ASKED = """
import Keyline
def complete(key, line):
    tell("asked", (key, line))
    return "-done"
"""
SWITCHED = pytest.mark.parametrize("enabled", [True, False])
BAD = ["1", "0", "None", "'True'", "[]", "1.0", "object()", "bool"]


# The method, without a terminal

def test_answers_what_was_last_switched(run):
    """Not what is bound: False before the first set-up, and kept over a reset."""
    found = run("""
import Keyline
def enabled():
    tell("enabled", Keyline.keyBindingsEnabled())
enabled()
read(); enabled()
for value in (False, False, True, True, False):
    tell("result", Keyline.keyBindingsEnabledIs(value)); enabled()
Keyline.resetInput(); enabled()
read(); enabled()
""", stdin=b"\n\n")
    assert found.all("enabled") == [
        False, True, False, False, True, True, False, False, True]
    assert found.all("result") == [None] * 5


@SWITCHED
def test_switching_sets_the_editor_up(run, enabled):
    found = run("""
import Keyline
Keyline.keyBindingsEnabledIs(%r)
tell("enabled", Keyline.keyBindingsEnabled())
Keyline.addHistory("kept by the module", "exec", "")
read()
tell("enabled", Keyline.keyBindingsEnabled())
tell("history", Keyline.history())
""" % enabled, stdin=b"\n")
    assert found.all("enabled") == [enabled, enabled]
    # Had the read set the editor up, the line would be gone with the editor's own history.
    assert found.one("history") == ["kept by the module"]


@SWITCHED
@pytest.mark.parametrize("bad", BAD)
def test_only_a_bool_will_do(run, bad, enabled):
    found = run("""
import Keyline
tell("raised", raises(Keyline.keyBindingsEnabledIs, %s))
tell("enabled", Keyline.keyBindingsEnabled())
Keyline.keyBindingsEnabledIs(%r)
tell("raised", raises(Keyline.keyBindingsEnabledIs, %s))
tell("enabled", Keyline.keyBindingsEnabled())
""" % (bad, enabled, bad))
    assert found.all("raised") == [("TypeError", "Expected a bool")] * 2
    assert found.all("enabled") == [False, enabled]


def test_refused_value_does_not_set_the_editor_up(run):
    found = run("""
import Keyline
raises(Keyline.keyBindingsEnabledIs, 1)
Keyline.addHistory("goes to the editor's own history", "exec", "")
tell("history", Keyline.history())
""")
    assert found.one("history") == []


@pytest.mark.parametrize("call", [
    "keyBindingsEnabledIs()", "keyBindingsEnabledIs(True, True)",
    "keyBindingsEnabledIs(enabled=True)", "keyBindingsEnabled(1)",
    "keyBindingsEnabled(enabled=1)"])
def test_wrong_number_of_arguments(run, call):
    found = run("""
import Keyline
tell("raised", raises(lambda: Keyline.%s))
tell("enabled", Keyline.keyBindingsEnabled())
""" % call)
    name, message = found.one("raised")
    assert name == "TypeError" and call.split("(")[0] in message
    assert found.one("enabled") is False


# At the prompt

@pytest.mark.smoke
def test_completion_keys(start):
    """TAB and "?" ask the callback in mid-line too, and are no part of the line."""
    child = start(ASKED + "read(complete)")
    child.expect_prompt()
    child.send("ab<left><tab>")
    child.expect_fact("asked", (b"\t", "ab"))
    child.send("<c-a>?")
    child.expect_fact("asked", (b"?", "ab-done"))
    child.send("<enter>")
    child.expect_line("ab-done-done")
    child.expect_end()


@pytest.mark.parametrize("before", ["", "read()\n"], ids=["first thing", "later"])
def test_keys_off_and_on(start, before):
    """Off, the two insert themselves where the cursor is; on, they ask again."""
    child = start(ASKED + before + """
for value in (False, True, True, False, True):
    Keyline.keyBindingsEnabledIs(value)
    read(complete)
""")
    if before:
        child.enter("")
    for enabled in (False, True, True, False, True):
        child.expect_prompt()
        child.send("ab<left>?x<tab>")
        if enabled:
            child.expect_fact("asked", (b"?", "ab"))
            child.expect_fact("asked", (b"\t", "ab-donex"))
        else:
            child.expect_shown("a?x  b")
        child.send("<enter>")
        child.expect_line("ab-donex-done" if enabled else "a?x\tb")
    child.expect_end()


@SWITCHED
@pytest.mark.parametrize("reset", ["readline", "simple read"])
def test_reset_switches_the_keys_on_again(start, reset, enabled):
    """With the new editor that the next readline makes; a simple read makes none."""
    child = start(ASKED + """
Keyline.keyBindingsEnabledIs(%r)
read(complete)
Keyline.resetInput()
tell("enabled", Keyline.keyBindingsEnabled())
if %r == "simple read":
    simple_read()
    tell("enabled", Keyline.keyBindingsEnabled())
read(complete)
tell("enabled", Keyline.keyBindingsEnabled())
""" % (enabled, reset))
    for letter in "ab" if reset == "simple read" else "a":
        child.expect_prompt()
        child.send(letter + "?")
        if enabled:
            child.expect_fact("asked", (b"?", letter))
        child.send("<enter>")
        child.expect_line(letter + ("-done" if enabled else "?"))
        child.expect_fact("enabled", enabled)
    child.expect_prompt()
    child.send("c?")
    child.expect_fact("asked", (b"?", "c"))
    child.send("<tab>")
    child.expect_fact("asked", (b"\t", "c-done"))
    child.send("<enter>")
    child.expect_line("c-done-done")
    child.expect_fact("enabled", True)
    child.expect_end()


@SWITCHED
def test_search_and_delete_keys(start, enabled):
    """Ctrl-R searches backwards as one types, Ctrl-W deletes the word before the cursor."""
    child = start(ASKED + """
Keyline.keyBindingsEnabledIs(%r)
for line in ("show version", "show interfaces", "configure"):
    Keyline.addHistory(line, "exec", "")
read(complete, "exec", "")
read(complete, "exec", "")
""" % enabled)
    child.expect_prompt()
    child.send("<c-r>sho")
    child.wait_screen("the search", lambda rows: "bck:sho" in "".join(rows[:2]))
    child.expect_shown("show interfaces", "bck:sho")
    child.send("<c-r>")
    child.expect_shown("show version", "bck:sho")
    child.send("<enter>")
    child.expect_line("show version")
    child.type("one two,three four<left><left><c-w>", "one two,three ur")
    child.send("<c-w>")
    child.expect_shown("one two,ur")
    child.send("<c-w><c-w><c-w>")
    child.expect_shown("ur")
    child.send("<enter>")
    child.expect_line("ur")
    child.expect_end()


EDITRC = "bind ^R ed-insert\nbind ^W ed-insert\nbind ^I ed-insert\nbind ? ed-insert\n"


@SWITCHED
def test_keys_are_bound_over_the_users_own(start, tmp_path, enabled):
    """Set-up comes after the user's editor settings; switching on binds all four again."""
    (tmp_path / "editrc").write_text(EDITRC)
    child = start(ASKED + """
Keyline.keyBindingsEnabledIs(%r)
Keyline.addHistory("show version", "exec", "")
read(complete, "exec", "")
""" % enabled, env={"EDITRC": str(tmp_path / "editrc")})
    child.type("<c-r>sho", "show version", "bck:sho")
    child.send("<esc>")
    child.expect_shown("show version")
    child.send("<c-e><c-w>?")
    if enabled:
        child.expect_fact("asked", (b"?", "show "))
    child.send("<enter>")
    child.expect_line("show -done" if enabled else "show ?")
    child.expect_end()


def test_switching_by_another_thread_while_reading(start):
    """The editor in use changes its keys at once."""
    child = start(ASKED + """
def other():
    for value in (False, True):
        wait_for("switch")
        Keyline.keyBindingsEnabledIs(value)
        tell("switched")
beside(other)
read(complete)
""")
    child.expect_prompt()
    child.send("a?")
    child.expect_fact("asked", (b"?", "a"))
    child.go("switch")
    child.expect_fact("switched")
    child.send("?<tab>x")
    child.expect_shown("a-done?      x", redrawn=True)
    child.go("switch")
    child.expect_fact("switched")
    child.send("?")
    child.expect_fact("asked", (b"?", "a-done?\tx"))
    child.send("<enter>")
    child.expect_line("a-done?\tx-done")
    child.expect_end()


def test_switching_often(start):
    """The same bindings are made again, nothing adds up."""
    child = start(ASKED + """
for number in range(1000):
    Keyline.keyBindingsEnabledIs(True)
for number in range(2000):
    Keyline.keyBindingsEnabledIs(number % 2 == 0)
read(complete)
Keyline.keyBindingsEnabledIs(True)
read(complete)
""")
    child.enter("a?")
    child.expect_prompt()
    child.send("a?")
    child.expect_fact("asked", (b"?", "a"))
    child.send("<enter>")
    child.expect_line("a-done")
    child.expect_end()
