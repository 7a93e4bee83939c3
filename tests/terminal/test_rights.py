"""Keys and editor settings reach nothing but the line.

From the set-up on, the kernel ends the child by SIGSYS when it starts a program, opens a file
or sends a signal to another process (confine.h). Each command of the editor on its own is in
editor_rights_test.cpp; this is the module as it is used.
"""
import os
import subprocess

import pytest

from script import ROOT

SUPPORT = os.path.join(ROOT, "tests", "support")

# The end is one that opens nothing either.
SCRIPT = """
import ctypes, os
import Keyline
confine = ctypes.CDLL(%r).confine
callback = (lambda key, line: "ow" if line == "sh" else None)
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory("show version", "exec", "")
assert confine(0) == 0
%s
os._exit(0)
"""


@pytest.fixture(scope="session")
def confining(tmp_path_factory):
    """A library with confine(), for a child to load."""
    library = str(tmp_path_factory.mktemp("confine") / "confine.so")
    source = '#define inline __attribute__((used, visibility("default")))\n' \
        '#define static\n#include "%s/confine.h"\n' % SUPPORT
    subprocess.run(["gcc", "-shared", "-fPIC", "-w", "-x", "c", "-o", library, "-"],
                   input=source.encode(), check=True)
    return library


@pytest.mark.parametrize("act", ["os.open('/dev/null', os.O_RDONLY)", "os.fork()",
                                 "os.kill(os.getppid(), 0)", "os.execv('/bin/true', ['true'])"])
def test_the_kernel_watches(start, confining, act):
    child = start(SCRIPT % (confining, act))
    child.expect_end("SIGSYS")


EMACS = [
    "show<m-x>bind ^T vi-histedit<enter><c-t>",
    "show<m-x>bind -v<enter>!v!v!99v",
    "show<m-x>bind -v<enter>!",  # now the line before, in vi's command mode
    "sh<tab> ?<up><c-r>ver<c-r><esc>",
    "x<m-x>history save history<enter><m-x>source /etc/passwd<enter>",
    "~/<tab>?/et<tab>*<m-*>",
    "<m-x>bind ^T rl_complete<enter>/et<c-t>x",
]


@pytest.mark.parametrize("typed", EMACS)
def test_keys(start, confining, typed):
    child = start(SCRIPT % (confining, "read(callback, 'exec', '')\n"
                            "simple_read(watched=False)"))
    child.expect_prompt()
    child.send(typed.replace("!", "<esc>") + "<enter>")
    child.expect_fact("line")
    child.expect_prompt()
    child.send("i" + typed.replace("!", "<esc>") + "<enter>")
    child.expect_fact("line")
    child.expect_end()


@pytest.mark.parametrize("settings", ["bind -v", "bind ^T vi-histedit",
                                      "bind -v\nbind ^T vi-histedit",
                                      ".*:bind -v\nsource /etc/passwd\nhistory save all\n"])
def test_settings(start, confining, tmp_path, settings):
    (tmp_path / "settings").write_text(settings + "\n")
    child = start(SCRIPT % (confining, "read(callback, 'exec', '')"),
                  env={"EDITRC": str(tmp_path / "settings"), "EDITOR": "true"})
    child.expect_prompt()
    child.send("show<c-t><esc>v<enter>")
    child.expect_fact("line")
    child.expect_end()


def test_v_beeps_and_the_line_stays(start, tmp_path):
    """And so does every other way to the same command."""
    (tmp_path / "settings").write_text("bind -v\nbind ^T vi-histedit\n")
    child = start("read()", env={"EDITRC": str(tmp_path / "settings"), "EDITOR": "true"})
    child.expect_prompt()
    child.send("show<c-t>x<esc>vv3v")
    child.expect_taken()
    child.wait("beeps", lambda: child.display.raw.count(b"\a") == 4)
    child.expect_shown("showx")
    child.send("a|<enter>")
    child.expect_line("showx|")
    child.expect_end()
