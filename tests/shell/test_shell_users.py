"""Users who come to a serving example shell, one after another."""
import os
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time
from contextlib import suppress

import pytest

from at_shell import WELCOME, ShellUser, changed_shell, shell
from script import DEADLINE

pytestmark = pytest.mark.package


WAITING = "waiting for the user before you to leave"


@pytest.fixture
def serving(start, tmp_path):
    """A serving shell, and a way to start users of it; the shell ends with the test."""
    path = str(tmp_path / "shell")
    server = start(shell("--serve", path), columns=200)
    server.wait_screen("the server", lambda rows: rows[0] == (
        "waiting for users: ./demo --connect " + path))

    def come(**options):
        return start(shell("--connect", path), **options)

    come.path, come.server = path, server
    yield come
    server.signal(signal.SIGTERM)
    server.expect_end("clean")
    assert not os.path.exists(path)


@pytest.fixture
def others():
    """Runs a statement as another user, and answers what it raises."""
    def run(statement):
        return subprocess.run(
            [sys.executable, "-I", "-c", """
import os
os.setgroups([]); os.setgid(65534); os.setuid(65534)
try:
    %s
except Exception as error:
    print(type(error).__name__)
""" % statement], check=True, capture_output=True, text=True).stdout.strip()
    return run


@pytest.mark.smoke
def test_one_user_after_another(serving):
    first = ShellUser(serving(rows=24, columns=80))
    first.type("conf<enter>", "demo> conf", "demo(config)# ")
    first.type("hostname shared<enter>", "demo(config)# hostname shared", "shared(config)# ")
    waiting = serving(rows=10, columns=44, env={"TERM": "vt100"})
    waiting.wait_screen("the waiting", lambda rows: rows[0] == WAITING)
    first.type("no such command", "shared(config)# no such command")
    first.type("<c-z>", "shared(config)# no such command^Z", "shared> ")
    first.leave("exit<enter>")

    second = ShellUser(waiting, WAITING, WELCOME, "shared> ")
    second.type("<up>", "shared> ")
    second.type("sh hist<enter>", "shared> sh hist", "    1  sh hist", "shared> ")
    second.type("! a line that wraps where this user's window ends",
                "shared> ! a line that wraps where this user'", "s window ends")
    second.drop(1)
    second.type("<c-c>", "shared> ! a line that wraps where this user'", "s window ends^C",
                "shared> ")
    second.leave("<c-d>")


def test_a_user_finds_no_settings_of_the_one_before(serving):
    first = ShellUser(serving())
    first.type("term help off<enter>", "demo> term help off",
               'TAB and ? insert themselves now, until "terminal help-keys on"', "demo> ")
    first.type("term hist size 1<enter>", "demo> term hist size 1", "demo> ")
    first.type("term width 40<enter>", "demo> term width 40", "demo> ")
    first.type("logging sync<enter>", "demo> logging sync", "demo> ")
    first.leave("exit<enter>")
    second = ShellUser(serving(columns=60))
    second.type("sh v?", "demo> sh v?", "  version  What this is", "demo> sh v")
    second.type("<c-a><c-k>logging test 5<enter>", "demo> logging test 5", "demo> ")
    second.type("sh ter<enter>", "demo> sh ter", "width 60, history of 1024 lines",
                "TAB and ? give help", "demo> ")
    second.leave("exit<enter>")


def test_a_user_who_hangs_up_makes_room(serving):
    first = ShellUser(serving())
    first.type("conf<enter>", "demo> conf", "demo(config)# ")
    first.type("half a", "demo(config)# half a")
    second = serving()
    second.wait_screen("the waiting", lambda rows: rows[0] == WAITING)
    first.terminal.hang_up()
    first.terminal.expect_end("SIGHUP")
    ShellUser(second, WAITING, WELCOME, "demo> ").leave("exit<enter>")


def test_a_user_who_sleeps_makes_room(start, tmp_path):
    path = str(tmp_path / "shell")
    server = start(shell("--serve", path, "--idle", "1"), columns=200)
    server.wait_screen("the server", lambda rows: rows[0].startswith("waiting for users"))
    users = [start(shell("--connect", path)) for number in range(2)]
    for user in users:
        user.expect_end("clean")
        assert "% No key for 1 seconds: good-bye" in user.display.rows()
    server.signal(signal.SIGTERM)
    server.expect_end("clean")


def test_ctrl_c_while_waiting_for_another_user(serving):
    first = ShellUser(serving())
    second = serving()
    second.wait_screen("the waiting", lambda rows: rows[0] == WAITING)
    second.send("<c-c>")
    second.expect_end("status 130")
    assert [row for row in second.display.rows() if row] == [WAITING, "^C"]
    first.type("sh", "demo> sh")
    first.leave()
    ShellUser(serving()).leave()


def test_the_end_of_the_server_is_the_end_of_its_users(start, tmp_path):
    path = str(tmp_path / "shell")
    server = start(shell("--serve", path))
    server.wait("the socket", lambda: os.path.exists(path) and server.display.rows()[0])
    user = ShellUser(start(shell("--connect", path)))
    waiting = start(shell("--connect", path))
    waiting.wait_screen("the waiting", lambda rows: rows[0] == WAITING)
    server.send("<c-c>")
    server.expect_end("clean")
    user.terminal.expect_end("clean")
    waiting.expect_end("exception")
    waiting.wait_screen("the reason", lambda rows: rows[1].startswith("demo: "))


@pytest.mark.once
def test_many_users(serving):
    for number in range(20):
        user = ShellUser(serving(columns=60 + number))
        user.type("sh ter<enter>", "demo> sh ter",
                  "width %d, history of 1024 lines" % (60 + number), "TAB and ? give help",
                  "demo> ")
        user.type("sh <tab>", "demo> sh ", "  history  running-config  terminal  version",
                  "demo> sh ")
        user.leave()


def test_a_resize_reaches_the_shell(serving):
    user = ShellUser(serving())
    user.type("sh ter<enter>", "demo> sh ter", "width 80, history of 1024 lines",
              "TAB and ? give help", "demo> ")
    user.type("sh ter", "demo> sh ter")
    drawn = len(user.terminal.display.raw)
    user.terminal.resize(24, 100)
    user.terminal.wait("the line redrawn", lambda: len(user.terminal.display.raw) > drawn)
    user.type("<enter>", "demo> sh ter", "width 100, history of 1024 lines",
              "TAB and ? give help", "demo> ")
    user.leave()


def test_connecting_without_a_server(run, tmp_path):
    result = run(shell("--connect", str(tmp_path / "nobody")), end="exception")
    assert result.stderr == (
        b"demo: [Errno 2] No such file or directory: '%s/nobody'\n" % bytes(tmp_path))


def test_a_socket_that_is_taken(run, tmp_path):
    (tmp_path / "taken").write_text("")
    result = run(shell("--serve", str(tmp_path / "taken")), end="exception")
    assert result.stderr == (
        b"demo: [Errno 98] Address already in use: '%s/taken'\n" % bytes(tmp_path))
    assert (tmp_path / "taken").exists()


# Who is no user, or a bad one

def talk(path, said, hold=False):
    """A stranger who says this to the server; answers what is heard until it closes."""
    with socket.socket(socket.AF_UNIX) as link:
        link.settimeout(DEADLINE)
        link.connect(path)
        with suppress(BrokenPipeError, ConnectionResetError):
            link.sendall(said)
            if hold:
                return link.detach()
            link.shutdown(socket.SHUT_WR)
            heard = link.recv(100)
            while link.recv(100):
                pass
            return heard
        return b""


STRANGERS = [
    b"", b"\n", b"hello", b"24 80 xterm", b"99999 80 xterm\n", b"24 99999 xterm\n",
    b"-1 80 xterm\n", b"24 -80 xterm\n", b"24 80\n", b"24 80 xterm more\n", b"\xff\xfe\n",
    "٢ ٢ xterm\n".encode(), b"1e3 80 xterm\n", b"24 80 " + b"x" * 1000 + b"\n",
    b"rubbish\0" * 131072, b"24 80 xterm\n" * 100000,
]


@pytest.mark.parametrize("said", STRANGERS, ids=lambda said: repr(said[:16]))
def test_a_stranger_is_sent_away(serving, said):
    assert talk(serving.path, said) == b""
    ShellUser(serving()).leave()


@pytest.mark.once
@pytest.mark.parametrize("said", [b"", b"24 80 xte", b"24"])
def test_a_silent_peer_is_waited_for_a_second(serving, said):
    links = [talk(serving.path, said, hold=True) for number in range(4)]
    begun = time.monotonic()
    ShellUser(serving(), WAITING, WELCOME, "demo> ").leave()
    assert 1 < time.monotonic() - begun < 2 * len(links) + 1
    for link in links:
        os.close(link)


def test_a_peer_who_talks_slowly(serving):
    """Byte by byte, without an end: the second is for all of it."""
    with socket.socket(socket.AF_UNIX) as link:
        link.connect(serving.path)
        begun = time.monotonic()
        link.settimeout(0.05)
        with suppress(BrokenPipeError, ConnectionResetError):
            while time.monotonic() < begun + DEADLINE:
                link.send(b"2")
                with suppress(socket.timeout):
                    if not link.recv(1):
                        break
        assert time.monotonic() < begun + 3
    ShellUser(serving()).leave()


@pytest.mark.parametrize("kind", ["\x1b]0;x\x07", "../../../tmp/x", "/tmp/x", "a\u202eb", "-x",
                                  "%s%n", ""])
def test_a_terminal_type_that_is_none(serving, kind):
    """Counts as dumb, and is shown nowhere."""
    with socket.socket(socket.AF_UNIX) as link:
        link.connect(serving.path)
        link.sendall(b"24 80 %s\n" % kind.encode())
        _, (master,), _, _ = socket.recv_fds(link, 1, 1)
        shown = b""
        while b"demo> " not in shown:
            shown += os.read(master, 1000)
        assert b"\x1b" not in shown
        os.write(master, b"exit\r")
        with suppress(OSError):  # how the terminal ends
            while os.read(master, 1000):
                pass
        os.close(master)
    assert [row for row in serving.server.display.rows() if row][1:] == []
    ShellUser(serving()).leave()


def test_a_peer_who_is_gone_after_the_greeting(serving):
    for number in range(5):
        os.close(talk(serving.path, b"24 80 xterm\n", hold=True))
    ShellUser(serving()).leave()


@pytest.mark.parametrize("keys", ["<c-\\>", "ab<c-\\>"])
def test_quit_is_a_key_of_the_user(serving, keys):
    """The server is there for the next one, and for this one too."""
    user = ShellUser(serving())
    user.terminal.send(keys)
    user.terminal.send("<c-u>sh v<enter>")
    user.terminal.wait("the answer", lambda: b"Example shell" in user.terminal.display.raw)
    user.terminal.send("exit<enter>")
    user.terminal.expect_end()
    ShellUser(serving()).leave()


def test_an_error_of_a_session_is_its_users_alone(start, tmp_path):
    path = str(tmp_path / "shell")
    server = start(changed_shell("""
@top.command("fail", "Fail")
def fails(): raise RuntimeError("on purpose\\x1b[2J")
""").replace("sys.argv[1:] = []", "sys.argv[1:] = ['--serve', %r]" % path), columns=200)
    server.wait_screen("the server", lambda rows: rows[0].startswith("waiting for users"))
    user = ShellUser(start(shell("--connect", path)))
    user.terminal.send("fail<enter>")
    user.terminal.expect_end()
    server.wait_screen("the error", lambda rows: "RuntimeError: on purpose^[[2J" in rows)
    ShellUser(start(shell("--connect", path))).leave()
    server.signal(signal.SIGTERM)
    server.expect_end("clean")


def test_a_watched_log_that_is_gone(start, tmp_path):
    """Each user is told, and the shell is there for the next one."""
    path, log = str(tmp_path / "shell"), tmp_path / "log"
    log.write_text("")
    server = start(shell("--serve", path, "--watch", str(log)), columns=200)
    server.wait_screen("the server", lambda rows: rows[0].startswith("waiting for users"))
    ShellUser(start(shell("--connect", path), columns=200)).leave()
    log.unlink()
    for number in range(3):
        user = ShellUser(start(shell("--connect", path), columns=200),
                         "%% [Errno 2] No such file or directory: '%s'" % log, WELCOME, "demo> ")
        user.leave()
    log.write_text("")
    user = ShellUser(start(shell("--connect", path), columns=200))
    with open(log, "a", encoding="utf-8") as file:
        file.write("news\n")
    user.expect("news", "demo> ")
    user.leave()
    server.signal(signal.SIGTERM)
    server.expect_end("clean")


# Who may come

def test_the_socket_is_its_owners_alone(serving):
    status = os.stat(serving.path)
    assert stat.S_IMODE(status.st_mode) == 0o600 and status.st_uid == os.getuid()


def test_nobody_else_gets_in(start, others):
    """Another user of the machine, who can reach the place where the socket is."""
    folder = tempfile.mkdtemp(prefix="shell-")
    os.chmod(folder, 0o755)
    path = folder + "/shell"
    server = start(shell("--serve", path), columns=200)
    server.wait_screen("the server", lambda rows: rows[0].startswith("waiting for users"))
    connect = "import socket; socket.socket(socket.AF_UNIX).connect(%r)" % path
    assert others(connect) == "PermissionError"
    os.chmod(path, 0o666)  # it is the socket's rights that kept them away
    assert others(connect) == ""
    ShellUser(start(shell("--connect", path))).leave()
    server.signal(signal.SIGTERM)
    server.expect_end("clean")
    os.rmdir(folder)
