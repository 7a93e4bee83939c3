"""What the user sees at rest is the same, however fast the keys come.

Random scripts of keys are typed one by one and pasted. Whenever all keys are taken and the
reader waits for the next, the screens are equal, and so is the cursor; what they are to be,
test_layout.py knows.

TAB and "?" are in, with nothing to complete. A paste holds no more than one line, and Enter
is never quoted: keys typed ahead meet the terminal's settings of that moment, not the later
ones.
"""
import random

import pytest

import reads
from rest import expect_rest

HISTORY = ["show version", "show interfaces", "configure terminal", "hostname somewhere",
           "interface 1/1", "description the uplink to the other building", "shutdown",
           "ping 192.0.2.1", "show interfaces 1/1 counters", "écho ça", "write",
           "copy running-config tftp://192.0.2.99/backup/the/running/configuration/today"]
WORDS = ["show", "interface", "1/1", "ab cd", "x", "two words", "$%&", "0123456789", " "]
MOVES = ["<left>", "<right>", "<c-a>", "<c-e>", "<c-b>", "<c-f>", "<m-b>", "<m-f>",
         "<home>", "<end>", "<m-4><c-b>"]
ERASERS = ["<bs>", "<m-3><bs>", "<c-b><del>", "<c-h>", "<c-k>", "<c-u>", "<c-w>", "<m-d>",
           "<c-e>yz<c-b><c-d>"]
CHANGES = ["<c-t>", "<c-y>", "<m-c>", "<m-l>", "<m-u>", "<c-v><c-a>", "<c-x><c-x>",
           "<m-3>o", "<tab>", "?"]
RECALLS = ["<up>", "<down>", "<c-p>", "<c-n>", "<up><up><up>", "<m-p>", "<m-n>"]
SEARCHES = ["<c-r>sh", "<c-r>i<c-r><c-r>", "<c-r>zzz<bs><bs>", "<c-r>ow<c-g>",
            "<c-r>s<c-e>"]
LONG = ["a long line that wraps at the end of the row, and then some more of it " * 2]
KINDS = [(WORDS, 8), (MOVES, 6), (ERASERS, 4), (CHANGES, 3), (RECALLS, 4), (SEARCHES, 2),
         (LONG, 1), (["<c-l>"], 1)]
SCRIPTS = range(25)

SHELL = """
import Keyline
Keyline.keyBindingsEnabledIs(True)
for line in %r:
    Keyline.addHistory(line, "exec", "")
while True:
    line = read(None, "exec", "")
    if line is None:
        break
    Keyline.addHistory(line, "exec", "")
""" % HISTORY


def write(seed):
    """A script: pastes, each a list of keys, of which about every second ends the line."""
    chance = random.Random(seed)
    kinds = [kind for kind, weight in KINDS for _ in range(weight)]
    pastes = [[chance.choice(chance.choice(kinds)) for _ in range(chance.randrange(2, 12))]
              + chance.choice([[], ["<enter>"]]) for _ in range(8)]
    return pastes + [["<c-g>", "<c-u>", "end"]]


def at_rest(child):
    """What is shown at rest: rows, and the cursor."""
    expect_rest(child)
    return child.display.rows(), child.display.cursor()


def screens(child, script, pasted=False):
    """What is shown at rest after each key of each paste, or after each paste alone."""
    child.expect_prompt()
    at_rest(child)
    shown = []
    for paste in script:
        for keys in ["".join(paste)] if pasted else paste:
            child.send(keys)
            shown.append(at_rest(child))
    return shown


def lines(child):
    """All lines that were read; ends the child."""
    child.send("<enter>")
    at_rest(child)
    child.send("<c-d>")
    child.wait("the child's end", lambda: child.status is not None)
    *read, end = child.facts
    assert end == ("raised", reads.EOF)
    child.facts.clear()
    child.expect_end()
    return [value for name, value in read]


def last_of_each(script, shown):
    ends = []
    for paste in script:
        ends.append(shown[len(paste) - 1])
        shown = shown[len(paste):]
    return ends


@pytest.mark.once
@pytest.mark.parametrize("seed", SCRIPTS)
def test_pasted(start, seed):
    """Pasted keys are shown at once, and look the same."""
    script = write(seed)
    typed, pasted = start(SHELL), start(SHELL)
    shown = last_of_each(script, screens(typed, script))
    assert screens(pasted, script, pasted=True) == shown
    assert lines(pasted) == lines(typed)
