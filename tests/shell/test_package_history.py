"""The history between two sessions of keyline_shell: the file, its rights, its neighbours."""
import os
import stat
import subprocess

import pytest

from at_shell import ShellUser
from script import environment

pytestmark = pytest.mark.package

SHELL = """
from keyline_shell import *
shell = Shell(history=%r, history_size=%d)
shell.standard()
top = shell.mode("exec", "> ")
low = top.mode("low", "low> ", "down")
sys.exit(shell.run())
"""
HEAD = "keyline history 1\n"


@pytest.fixture
def path(tmp_path):
    return tmp_path / "history"


@pytest.fixture
def login(start, path):
    """Starts a session; rows are what stands there first."""
    def begin(*rows, size=1000, **options):
        return ShellUser(start(SHELL % (str(path), size), **options), *(rows or ("> ",)))
    return begin


def lines(path):
    text = path.read_bytes().decode()
    assert text.startswith(HEAD) and text.endswith("\n")
    return text[len(HEAD):-1].split("\n") if text != HEAD else []


@pytest.mark.smoke
def test_lines_are_there_at_the_next_login_in_their_modes(login, path):
    user = login()
    user.type("! one<enter>", "> ! one", "> ")
    user.type("! one<enter>", "> ! one", "> ")
    user.type("down<enter>", "> down", "low> ")
    user.type("! b\u00fcro \\n<enter>", "low> ! b\u00fcro \\n", "low> ")
    user.type("   <enter>", "low>", "low> ")
    user.leave("<c-d><c-d>")
    assert stat.S_IMODE(os.stat(path).st_mode) == 0o600
    assert lines(path) == ["exec\t! one", "exec\tdown", "low\t! b\u00fcro \\\\n"]
    user = login()
    user.type("<up>", "> down")
    user.type("<enter>", "> down", "low> ")
    user.type("<up><up>", "low> ! b\u00fcro \\n")
    user.type("<c-u>sh hi<enter>", "low> sh hi", "    1  ! one", "    2  down",
              "    3  ! b\u00fcro \\n", "    4  down", "    5  sh hi", "low> ")
    user.leave("<c-d><c-d>")


def test_a_line_with_control_characters(login, path):
    user = login()
    user.type("! a<c-v><enter>b<c-v><esc>c<c-v><c-j><enter>", "> ! a", "b^[c^M", "> ")
    user.leave("<c-d>")
    assert len(lines(path)) == 1
    user = login()
    user.type("<up>", "> ! a", "b^[c^M")
    user.leave("<c-u><c-d>")


def test_every_line_comes_back_as_it_was(run, path):
    added = [("exec", "a\nb"), ("a mode", "\\n\\\\"), ("exec", "\t \r\x1b\u2028\x85 \U0001f642")]
    found = run("""
from keyline_shell.history import History
history = History(%r)
for entry in %r:
    history.add(*entry)
tell("loaded", history.load())
""" % (str(path), added)).one("loaded")
    assert found == (added, "")


def test_sessions_side_by_side_lose_nothing(login, path):
    users = [login() for number in range(3)]
    for number in range(5):
        for name, user in zip("abc", users):
            user.type("! %s%d<enter>" % (name, number), "> ! %s%d" % (name, number), "> ")
    for user in users:
        user.leave("<c-d>")
    assert lines(path) == ["exec\t! %s%d" % (name, number)
                           for number in range(5) for name in "abc"]


MANY = """
import sys
from keyline_shell import history as module
module.PATIENCE = 60  # of each other, on a machine that has more to do
history = module.History(%r, 100)
for number in range(300):
    history.add("exec", "%%s %%d" %% (sys.argv[1], number))
    if number %% 10 == 0:
        history.load()
"""


def test_many_processes_at_once_lose_nothing_but_the_oldest(setup, path, tmp_path):
    """Each shortens the file now and then while the others write."""
    script = tmp_path / "script.py"
    script.write_text(MANY % str(path))
    running = [subprocess.Popen([setup.interpreter, str(script), name],
                                env=environment(setup, str(tmp_path), None)) for name in "abcd"]
    for process in running:
        assert process.wait() == 0
    kept = [line.split("\t")[1].split() for line in lines(path)]
    assert 100 <= len(kept) <= 220
    for name in "abcd":
        numbers = [int(number) for who, number in kept if who == name]
        assert numbers == list(range(numbers[0], 300)) if numbers else True
    assert sorted(os.listdir(tmp_path)) == ["history", "script.py"]


def test_only_the_newest_lines_are_kept(login, path):
    path.write_text(HEAD + "".join("exec\t! %d\n" % number for number in range(50)))
    user = login(size=10)
    assert lines(path) == ["exec\t! %d" % number for number in range(40, 50)]
    assert stat.S_IMODE(os.stat(path).st_mode) == 0o600
    user.type("sh hi<enter>", "> sh hi", *["%5d  ! %d" % (number, number + 40)
                                          for number in range(1, 10)], "   10  sh hi", "> ")
    user.leave("<c-d>")
    assert lines(path)[-1] == "exec\tsh hi"


@pytest.mark.parametrize("data", [b"nonsense\n", HEAD.encode() + b"no tab\n", b"\x00" * 100 + b"\n",
                                  HEAD.encode() + b"exec\t\xff\n", HEAD.encode() + b"\tx\n",
                                  HEAD.encode() + b"exec\ta\x00b\n", b"keyline history 2\n"])
def test_a_damaged_file_is_set_aside_and_said(login, path, data):
    path.write_bytes(data)
    user = login("% The history was damaged and is now in " + str(path) + ".damaged", "> ",
                 columns=200)
    user.type("! new<enter>", "> ! new", "> ")
    user.leave("<c-d>")
    assert lines(path) == ["exec\t! new"]
    assert (path.parent / "history.damaged").read_bytes() == data
    path.write_bytes(b"again\n")
    login("% The history was damaged and is now in " + str(path) + ".damaged-2", "> ",
          columns=200).leave("<c-d>")


def test_half_a_line_at_the_end_is_dropped(login, path):
    """As left by a session that is killed while it writes."""
    path.write_text(HEAD + "exec\t! one\nexec\t! tw")
    user = login()
    user.type("<up>", "> ! one")
    user.type("<c-u>! new<enter>", "> ! new", "> ")
    user.leave("<c-d>")
    assert lines(path) == ["exec\t! one", "exec\t! new"]


def test_lines_of_modes_that_are_no_more_are_kept(login, path):
    path.write_text(HEAD + "gone\tsecret\nexec\t! one\n")
    user = login()
    user.type("sh hi<enter>", "> sh hi", "    1  ! one", "    2  sh hi", "> ")
    user.leave("<c-d>")
    assert lines(path) == ["gone\tsecret", "exec\t! one", "exec\tsh hi"]


def test_rights_that_are_too_wide_are_narrowed(login, path):
    path.write_text(HEAD)
    os.chmod(path, 0o666)
    login().leave("<c-d>")
    assert stat.S_IMODE(os.stat(path).st_mode) == 0o600


@pytest.mark.parametrize("kind", ["folder", "link", "pipe", "nowhere"])
def test_what_is_no_history_is_left_alone_and_said_once(start, path, kind):
    other = path.parent / "other"
    other.write_text("mine")
    if kind == "folder":
        path.mkdir()
    elif kind == "link":
        path.symlink_to(other)
    elif kind == "pipe":
        os.mkfifo(path)
    else:
        path = path.parent / "no" / "history"
    child = start(SHELL % (str(path), 100), columns=250)
    child.wait_screen("the prompt", lambda rows: rows[1] == ">")
    assert child.display.rows()[0].startswith("% The history is not saved: ")
    assert str(path) in child.display.rows()[0]
    child.send("! one<enter>! two<enter>exit<enter>")
    child.expect_end("clean")
    assert bytes(child.display.raw).count(b"not saved") == 1
    assert other.read_text() == "mine"


def test_a_session_that_was_stopped_with_the_file_is_not_waited_for_for_ever(login, path, setup):
    holder = subprocess.Popen(
        [setup.interpreter, "-c", "import fcntl, sys; f = open(sys.argv[1], 'a');"
         " fcntl.flock(f, fcntl.LOCK_EX); print('held', flush=True); sys.stdin.read()", str(path)],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert holder.stdout.readline() == b"held\n"
    user = login("% The history is not saved: " + str(path)
                 + ": another session keeps it locked", "> ", columns=200)
    user.leave("<c-d>")
    holder.communicate()


def test_home_is_where_a_tilde_leads(start):
    user = ShellUser(start(SHELL % ("~/.lab_history", 10)), "> ")
    user.type("! one<enter>", "> ! one", "> ")
    assert os.path.exists(user.terminal.home + "/.lab_history")
    user.leave("<c-d>")


def test_nothing_is_kept_of_a_pipe_and_of_passwords(run, start, path):
    shell = (SHELL % (str(path), 10)).replace("sys.exit", """
top.command("secret")(lambda: print(len(password()), ask("Who")))
sys.exit""")
    run(shell, stdin=b"! one\n")
    assert not path.exists()
    user = ShellUser(start(shell), "> ")
    user.type("secret<enter>word<enter>me<enter>", "> secret", "Password:", "Who: me", "4 me", "> ")
    user.leave("<c-d>")
    assert lines(path) == ["exec\tsecret"]
