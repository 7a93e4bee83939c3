"""What the user sees at rest is the same, however fast the keys come, and as packaged.

Random scripts of keys are typed one by one and pasted, and typed one by one at a shell on
the distribution's own editor with the same keys bound (packaged_shell.c). Whenever all keys
are taken and the reader waits for the next, the screens are equal, and so is the cursor.

Left out, as the module differs deliberately: bytes above 0x7f; Ctrl-C and Ctrl-Z, which end
the read here and the shell there; resizes; and the commands that the adapted editor has
corrected (lineedit/README.md), as Meta-0, Meta-x and Meta-Ctrl-_, and vi's. TAB and "?" are
in, with nothing to complete. A paste holds no more than one line, and Enter is never
quoted: keys typed ahead meet the terminal's settings of that moment, not the later ones.
"""
import os
import random
import select
import subprocess

import pytest

import reads

HERE = os.path.dirname(os.path.abspath(__file__))
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


@pytest.fixture(scope="session")
def packaged(tmp_path_factory):
    """A script for a child: it becomes a shell on the packaged editor."""
    program = str(tmp_path_factory.mktemp("packaged") / "shell")
    subprocess.run(["gcc", "-Wall", "-Wextra", "-Werror", "-o", program,
                    os.path.join(HERE, "packaged_shell.c"), "-ledit"], check=True)
    return ("import os\nos.set_inheritable(link, True)\n"
            "os.execv(%r, [%r, str(link)] + %r)\n" % (program, program, HISTORY))


def write(seed):
    """A script: pastes, each a list of keys, of which about every second ends the line."""
    chance = random.Random(seed)
    kinds = [kind for kind, weight in KINDS for _ in range(weight)]
    pastes = [[chance.choice(chance.choice(kinds)) for _ in range(chance.randrange(2, 12))]
              + chance.choice([[], ["<enter>"]]) for _ in range(8)]
    return pastes + [["<c-g>", "<c-u>", "end"]]


def at_rest(child):
    """The screen, once all keys are taken and the child sleeps: rows, and the cursor."""
    child.expect_taken()
    child.wait("the child to be at rest", lambda: is_asleep(child)
               and not select.select([child.master], [], [], 0)[0])
    return child.display.rows(), child.display.cursor()


def is_asleep(child):
    if child.status is not None:
        return False
    with open("/proc/%d/stat" % child.process.pid, encoding="utf-8") as file:
        return file.read().rpartition(")")[2].split()[0] == "S"


def screens(child, script, pasted=False):
    """What is shown at rest after each key of each paste, or after each paste alone."""
    child.expect_prompt()
    at_rest(child)  # the packaged editor shows the prompt first, then sets the terminal
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
    read = [value for name, value in child.facts if name == "line"]
    assert child.facts[len(read):] in ([], [("raised", reads.EOF)])
    child.facts.clear()
    child.expect_end()
    return [line if isinstance(line, bytes) else line.encode() for line in read]


def last_of_each(script, shown):
    ends = []
    for paste in script:
        ends.append(shown[len(paste) - 1])
        shown = shown[len(paste):]
    return ends


@pytest.mark.parametrize("seed", SCRIPTS)
def test_pasted(start, seed):
    """Keys that wait for one another are shown in one go, and look the same."""
    script = write(seed)
    typed, pasted = start(SHELL), start(SHELL)
    shown = last_of_each(script, screens(typed, script))
    assert screens(pasted, script, pasted=True) == shown
    assert lines(pasted) == lines(typed)


@pytest.mark.parametrize("seed", SCRIPTS)
def test_packaged(start, packaged, seed):
    script = write(seed)
    adapted, plain = start(SHELL), start(packaged)
    assert screens(adapted, script) == screens(plain, script)
    assert lines(adapted) == lines(plain)
