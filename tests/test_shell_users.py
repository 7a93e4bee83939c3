"""Users who come to a serving example shell, one after another."""
import os
import signal

import pytest

from at_shell import WELCOME, ShellUser, shell


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

    yield come
    server.signal(signal.SIGTERM)
    server.expect_end("clean")
    assert not os.path.exists(path)


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
               'TAB and ? stand for themselves now, until "terminal help-keys on"', "demo> ")
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


def test_a_user_who_is_tired_of_waiting(serving):
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
    user.terminal.wait("the line drawn anew", lambda: len(user.terminal.display.raw) > drawn)
    user.type("<enter>", "demo> sh ter", "width 100, history of 1024 lines",
              "TAB and ? give help", "demo> ")
    user.leave()


def test_nobody_serves(run, tmp_path):
    result = run(shell("--connect", str(tmp_path / "nobody")), end="exception")
    assert result.stderr == (
        b"demo: [Errno 2] No such file or directory: '%s/nobody'\n" % bytes(tmp_path))


def test_a_socket_that_is_taken(run, tmp_path):
    (tmp_path / "taken").write_text("")
    result = run(shell("--serve", str(tmp_path / "taken")), end="exception")
    assert result.stderr == (
        b"demo: [Errno 98] Address already in use: '%s/taken'\n" % bytes(tmp_path))
    assert (tmp_path / "taken").exists()
