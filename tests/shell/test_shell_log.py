"""Log lines at the example shell's prompt: above the line being typed, which stays whole."""
import os
import re
import signal
import socket

import pytest

from at_shell import ShellUser, changed_shell, shell

LINE = "demo> ! one two three four five six seven eight nine ten eleven twelve thirteen"
ROWS = [LINE[:40], LINE[40:]]
HALF = len("demo> ! one two three")


def lines(first, last):
    return ["line %04d of the log" % number for number in range(first, last + 1)]


def append(path, rows):
    with open(path, "a", encoding="utf-8") as file:
        file.write("".join(row + "\n" for row in rows))


@pytest.fixture
def log(tmp_path):
    path = tmp_path / "messages"
    path.write_text("what was there before\n")
    return path


def typing(start, log, **options):
    """A user with a line of two rows half typed, the cursor in the first of them."""
    user = ShellUser(start(shell("--watch", str(log)), columns=40, **options))
    user.type(LINE[len("demo> "):], *ROWS)
    user.drop(1)
    user.type("<c-a><m-f><m-f><m-f>", *ROWS, cursor=(1, HALF))
    user.drop(1)
    return user


@pytest.mark.smoke
@pytest.mark.parametrize("rows", [24, 5])
def test_lines_stand_above_the_line_being_typed(start, log, rows):
    user = typing(start, log, rows=rows)
    told = 0
    for count in 1, 10, 1000:
        append(log, lines(told + 1, told + count))
        user.expect(*lines(told + 1, told + count), *ROWS, cursor=(1, HALF))
        user.drop(1)
        told += count
    shown = re.findall(rb"line (\d+) of the log\r\n", user.terminal.display.raw)
    assert [int(number) for number in shown] == list(range(1, told + 1))
    user.type("<right>X", LINE[:HALF + 1] + "X" + LINE[HALF + 1:39], LINE[39:],
              cursor=(1, HALF + 2))
    user.leave()


def test_lines_below_help_and_in_an_empty_line(start, log):
    user = ShellUser(start(shell("--watch", str(log))))
    append(log, ["first", "second"])
    user.expect("first", "second", "demo> ")
    user.type("sh v?", "demo> sh v?", "  version  What this is", "demo> sh v")
    append(log, ["third"])
    user.expect("third", "demo> sh v")
    user.type("<tab>", "demo> sh version ")
    user.leave()


def test_lines_in_a_resized_window_and_on_a_cleared_screen(start, log):
    user = ShellUser(start(shell("--watch", str(log))))
    user.type("show ver", "demo> show ver")
    drawn = len(user.terminal.display.raw)
    user.terminal.resize(30, 100)
    user.terminal.wait("the line redrawn", lambda: len(user.terminal.display.raw) > drawn)
    append(log, ["after the resize"])
    user.expect("after the resize", "demo> show ver")
    user.above = []
    user.type("<c-l>", "demo> show ver")
    append(log, ["after the clearing"])
    user.expect("after the clearing", "demo> show ver")
    user.leave()


def test_off_and_on_again(start, log):
    user = ShellUser(start(shell("--watch", str(log))))
    user.type("no logging sync<enter>", "demo> no logging sync", "demo> ")
    append(log, ["not shown"])
    user.type("logging sync<enter>", "demo> logging sync", "demo> ")
    append(log, ["shown"])
    user.expect("shown", "demo> ")
    user.leave()


def test_a_log_of_its_own_with_test_lines(start, tmp_path):
    user = ShellUser(start(shell(), env={"TMPDIR": str(tmp_path)}))
    user.type("logging test<enter>", "demo> logging test", "demo> ")
    user.type("logging sync<enter>", "demo> logging sync", "demo> ")
    user.terminal.send("logging test 2<enter>")
    user.terminal.wait_screen("both lines", lambda rows: "line 2 of 2" in "\n".join(rows))
    told = user.terminal.display.rows()[4:6]
    for number, row in enumerate(told, 1):
        assert re.fullmatch(r"\w{3} \d\d \d\d:\d\d:\d\d %%TEST-6: line %d of 2" % number, row)
    user.expect("demo> logging test 2", *told, "demo> ")
    user.leave()
    assert os.listdir(tmp_path) == []


def test_test_lines_come_while_the_user_types(start):
    user = ShellUser(start(shell()))
    user.type("logging sync<enter>", "demo> logging sync", "demo> ")
    user.terminal.send("logging test 1000000 rate 1000<enter>")
    user.terminal.wait("many lines", lambda: b"line 100 of" in user.terminal.display.raw)
    user.terminal.send("show ver")
    user.terminal.wait_screen("lines above what was typed", lambda rows: any(
        row == "demo> show ver" and re.search("line [0-9]+ of 1000000$", rows[above])
        for above, row in enumerate(rows[1:])))
    user.leave()
    shown = re.findall(rb"line (\d+) of 1000000\r\n", user.terminal.display.raw)
    assert [int(number) for number in shown] == list(range(1, len(shown) + 1))


def test_control_characters_and_other_text_in_the_log(start, log):
    user = ShellUser(start(shell("--watch", str(log))))
    append(log, ["a\x1b[2Jb\x07\tc é"])
    with open(log, "ab") as file:
        file.write(b"\xff!\n" + "\x9b2J\u202e\u2028\n".encode())
    user.expect("a^[[2Jb^G       c é", "\\xff!", "\\U+009B2J\\U+202E\\U+2028", "demo> ")
    user.leave()


def test_a_log_that_is_gone(start, log):
    user = ShellUser(start(shell("--watch", str(log)), columns=250))
    user.type("no logging sync<enter>", "demo> no logging sync", "demo> ")
    os.unlink(log)
    user.type("logging sync<enter>", "demo> logging sync",
              "%% [Errno 2] No such file or directory: '%s'" % log, "demo> ")
    user.leave()


def test_news_while_commands_come_from_a_pipe(run, log):
    result = run(shell("--watch", str(log)), stdin=b"logging test 5\nshow history\n")
    told = result.stdout.decode().splitlines()
    assert [row.split("TEST-6: ")[-1] for row in told] == [
        "line %d of 5" % number for number in range(1, 6)] + [
        "    1  logging test 5", "    2  show history"]


@pytest.mark.parametrize("number, mark", [(signal.SIGINT, "^C"), (signal.SIGTSTP, "^Z")])
def test_interrupts_wait_for_the_callable(start, log, tmp_path, number, mark):
    """One that comes while news are shown ends the line, not the process, when they are."""
    place = str(tmp_path / "work")
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(place)
        listener.listen()
        child = start(changed_shell("""
import socket, sys, threading
from keyline_shell import screen
on_news = shell.log.callable
def until_others_are_done(*arguments):
    result = on_news(*arguments)
    other = threading.Thread(target=int)
    other.start()
    other.join()
    return result
shell.log.callable = until_others_are_done
at_work, replace = socket.socket(socket.AF_UNIX), screen.replace
at_work.connect(%r)
def slowly(text):
    at_work.send(b"!")
    at_work.recv(1)
    return replace(text)
screen.replace = slowly
""" % place).replace("sys.argv[1:] = []", "sys.argv[1:] = ['--watch', %r]" % str(log)))
        work, _ = listener.accept()
    work.settimeout(30)
    user = ShellUser(child)
    user.type("half a line", "demo> half a line")
    for again in range(2):
        append(log, ["news"])
        assert work.recv(1) == b"!"
        child.signal(number)
        child.wait("the signal to wait", lambda: waits(child, number))
        work.send(b".")
        user.expect("news", "demo> " + ("" if again else "half a line") + mark, "demo> ")
    user.leave()
    work.close()


def waits(child, number):
    """Whether the signal is pending, for the process or for its first thread."""
    with open("/proc/%d/status" % child.process.pid, encoding="utf-8") as file:
        fields = dict(line.split(":", 1) for line in file)
    pending = int(fields["SigPnd"], 16) | int(fields["ShdPnd"], 16)
    return pending >> number - 1 & 1
