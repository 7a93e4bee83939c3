"""A session of keyline_shell: Ctrl-C in commands, idle users, signals, the end."""
import signal
import threading
import time

import pytest

from at_shell import ShellUser
from log_file import append
from rest import expect_rest

pytestmark = pytest.mark.package

SHELL = """
import os, signal, subprocess, sys, threading, time
from keyline_shell import *
from keyline_shell import screen
shell = Shell(%s)
top = shell.mode("exec", "> ")
low = top.mode("low", "low> ", "down")

@shell.command("wait")
def wait():
    tell("waits")
    time.sleep(1000)

@shell.command("spin")
def spin():
    tell("waits")
    while True: pass

@shell.command("child")
def child():
    process = subprocess.Popen(["sh", "-c", "echo child; exec sleep 1000"])
    print("ended", process.wait())

@shell.command("stubborn")
def stubborn():
    try:
        tell("waits")
        time.sleep(1000)
    except KeyboardInterrupt:
        tell("caught")
        print("not yet")

@shell.command("secret")
def secret(): print(repr(password()))

@shell.command("count <1-1000>")
def count(most): page(str(number) for number in range(most))

%s
status = shell.run()
tell("handlers", [signal.getsignal(number) in (signal.SIG_DFL, signal.default_int_handler)
                  for number in (signal.SIGINT, signal.SIGTSTP, signal.SIGTERM, signal.SIGQUIT,
                                 signal.SIGHUP)])
tell("wakeup", signal.set_wakeup_fd(-1))
assert shell.current is None
tell("threads", threading.active_count())
sys.exit(status)
"""


@pytest.fixture
def user(start):
    return ShellUser(start(SHELL % ("", "")), "> ")


def expect_tidy(child):
    child.expect_fact("handlers", [True] * 5)
    child.expect_fact("wakeup", -1)
    child.expect_fact("threads", 1)


def leave(user, end="clean"):
    user.terminal.send("<c-u>end<enter>exit<enter>")
    expect_tidy(user.terminal)
    user.terminal.expect_end(end)


def expect_running(child, command):
    """The command runs, and sleeps: a signal right before its sleep ends no sleep in Python."""
    child.expect_fact("waits")
    if command != "spin":
        expect_rest(child)


# --- Ctrl-C, Ctrl-Z ------------------------------------------------------------------------


@pytest.mark.smoke
@pytest.mark.parametrize("command", ["wait", "spin"])
@pytest.mark.parametrize("way", ["key", "signal"])
def test_ctrl_c_ends_a_command_and_not_the_shell(user, command, way):
    user.type("down<enter>", "> down", "low> ")
    for again in range(3):
        user.terminal.send(command + "<enter>")
        expect_running(user.terminal, command)
        if way == "key":
            user.terminal.send("<c-c>")
        else:
            user.terminal.signal(signal.SIGINT)
        user.expect("low> " + command, "^C" if way == "key" else "", "low> ")
    leave(user)


def test_ctrl_c_ends_also_what_a_command_started(user):
    user.terminal.send("child<enter>")
    user.terminal.wait_screen("the child", lambda rows: rows[1] == "child")
    user.terminal.send("<c-z>")  # would stop the child
    user.terminal.wait("the key", lambda: b"^Z" in user.terminal.display.raw)
    expect_rest(user.terminal)
    user.type("<c-c>", "> child", "child", "^Z^C", "> ")
    leave(user)


def test_a_command_may_have_its_own_way_with_ctrl_c(user):
    user.terminal.send("stubborn<enter>")
    expect_running(user.terminal, "stubborn")
    user.terminal.send("<c-c>")
    user.terminal.expect_fact("caught")
    user.expect("> stubborn", "^Cnot yet", "> ")
    leave(user)


def test_ctrl_z_in_a_command_does_nothing(user):
    user.terminal.send("wait<enter>")
    expect_running(user.terminal, "wait")
    user.terminal.send("<c-z>")
    user.terminal.wait("the key", lambda: b"^Z" in user.terminal.display.raw)
    user.terminal.send("<c-c>")
    user.expect("> wait", "^Z^C", "> ")
    leave(user)


# --- Idle ----------------------------------------------------------------------------------

IDLE = "idle=%g, warning=%g"


def ended_idle(user, seconds):
    expect_tidy(user.terminal)
    user.terminal.expect_end("status 124")
    user.terminal.assert_settings_as_found()
    assert "%% No key for %g seconds: good-bye" % seconds in user.terminal.display.rows()


@pytest.mark.smoke
def test_a_user_who_is_idle_is_warned_and_logged_out(start):
    user = ShellUser(start(SHELL % (IDLE % (1.5, 0.5), "")), "> ")
    begun = time.monotonic()
    user.type("half a line", "> half a line")
    user.expect("% No key for 1 seconds: the session ends in 0.5", "> half a line")
    warned = time.monotonic() - begun
    ended_idle(user, 1.5)
    assert 0.9 < warned and 1.4 < time.monotonic() - begun


@pytest.mark.once
def test_each_key_counts_and_log_lines_do_not(start):
    """Keys, a quarter of the time apart; log lines come all the time, also after the last one."""
    child = start("open('log', 'w').close()\n" + SHELL % (
        IDLE % (2, 0), "shell.log_file, shell.log_shown = 'log', True"))
    child.wait("the prompt", lambda: b"> " in child.display.raw)
    over = threading.Event()

    def write():
        while not over.wait(0.05):
            append(child, "news\n")

    writer = threading.Thread(target=write)
    writer.start()
    try:
        begun = time.monotonic()
        child.send("abcdefghij", size=1, pause=0.5)  # the keys are the input, as slow as they are
        assert child.status is None
        last = time.monotonic() - 0.5
        expect_tidy(child)
        child.expect_end("status 124")
    finally:
        over.set()
        writer.join()
    assert 1.9 < time.monotonic() - last and last - begun > 4
    assert b"> abcdefghij" in child.display.raw and child.display.raw.count(b"news\r\n") > 50


@pytest.mark.parametrize("command, shown", [
    ("secret", "Password: "), ("count 100", "--More--"), ("down", "low> ")])
def test_idle_wherever_keys_are_awaited(start, command, shown):
    child = start(SHELL % (IDLE % (2, 0), ""))
    child.wait("the prompt", lambda: b"> " in child.display.raw)
    child.send(command + "<enter>")
    child.wait_screen(shown, lambda rows: any(row == shown.rstrip() for row in rows))
    expect_tidy(child)
    child.expect_end("status 124")
    child.assert_settings_as_found()


@pytest.mark.once
def test_the_warning_at_a_question_has_rows_of_its_own(start):
    child = start(SHELL % (IDLE % (3, 1), ""))
    child.wait("the prompt", lambda: b"> " in child.display.raw)
    child.send("secret<enter>")
    expect_tidy(child)
    child.expect_end("status 124")
    assert [row for row in child.display.rows() if row] == [
        "> secret", "Password:", "% No key for 2 seconds: the session ends in 1",
        "% No key for 3 seconds: good-bye"]


@pytest.mark.once
def test_a_command_that_runs_is_not_idle(start):
    child = start(SHELL % (IDLE % (2, 0.5), """
@top.command("work")
def work():
    wait_for("done")
    tell("worked")
"""))
    child.wait("the prompt", lambda: b"> " in child.display.raw)
    child.send("work<enter>")
    begun = time.monotonic()
    child.wait("the work's time", lambda: time.monotonic() > begun + 2.5)
    child.go("done")
    child.expect_fact("worked")
    assert b"No key" not in child.display.raw
    expect_tidy(child)
    child.expect_end("status 124")


def test_no_processor_time_while_nothing_happens(start):
    child = start(SHELL % (IDLE % (100, 10), ""))
    child.wait("the prompt", lambda: b"> " in child.display.raw)
    path = "/proc/%d/task" % child.process.pid

    def wakes():
        import os
        total = 0
        for task in os.listdir(path):
            with open("%s/%s/status" % (path, task), encoding="utf-8") as file:
                total += sum(int(line.split()[1]) for line in file if "ctxt_switches" in line)
        return total

    begun, before = time.monotonic(), wakes()
    child.wait("a second", lambda: time.monotonic() > begun + 1)
    assert wakes() - before <= 2
    child.send("exit<enter>")
    expect_tidy(child)
    child.expect_end("clean")


# --- Other ends ------------------------------------------------------------------------------

@pytest.mark.parametrize("command", ["wait", "stubborn"])
def test_a_terminal_lost_in_a_command_ends_it(user, command):
    user.terminal.send(command + "<enter>")
    expect_running(user.terminal, command)
    user.terminal.hang_up()
    if command == "stubborn":
        user.terminal.expect_fact("caught")
    expect_tidy(user.terminal)
    user.terminal.expect_end("clean")


SAVED = """
import atexit
shell.history = "history"
"""


@pytest.mark.parametrize("name", ["SIGTERM", "SIGQUIT"])
@pytest.mark.parametrize("where", ["prompt", "command", "password", "page", "stubborn"])
def test_ended_in_good_order_by_a_signal(start, name, where):
    """The terminal is as it was, the history is kept, and the signal is what ended it."""
    user = ShellUser(start(SHELL % ("", SAVED)), "> ")
    child = user.terminal
    keys = {"prompt": "half", "command": "wait<enter>", "password": "secret<enter>",
            "page": "count 100<enter>", "stubborn": "stubborn<enter>"}[where]
    child.send("down<enter>")
    user.expect("> down", "low> ")
    child.send(keys)
    if where in ("command", "stubborn"):
        expect_running(child, where)
    else:
        shown = {"prompt": "low> half", "password": "Password:", "page": "--More--"}[where]
        child.wait_screen(shown, lambda rows: shown in rows)
    child.signal(getattr(signal, name))
    if where == "stubborn":
        child.expect_fact("caught")
    child.expect_end(name)
    assert child.display.raw.rfind(b"\x1b[?2004h") < child.display.raw.rfind(b"\x1b[?2004l")
    with open(child.home + "/history", encoding="utf-8") as file:
        assert "exec\tdown\n" in file.read()


def test_a_handler_of_the_program_stays(start):
    child = start(SHELL % ("", """
signal.signal(signal.SIGTERM, lambda *_: tell("handled"))
"""))
    child.wait("the prompt", lambda: b"> " in child.display.raw)
    child.signal(signal.SIGTERM)
    child.send("exit<enter>")
    child.expect_fact("handled")
    child.expect_fact("handlers", [True, True, False, True, True])
    child.expect_fact("wakeup", -1)
    child.expect_fact("threads", 1)
    child.expect_end("clean")


def test_signals_work_after_an_event_loop_in_a_command(start):
    """The loop sets the wakeup descriptor for itself, and unsets it."""
    user = ShellUser(start(SHELL % ("", """
import asyncio
@top.command("loop")
def loop():
    async def work():
        asyncio.get_running_loop().add_signal_handler(signal.SIGUSR1, print)
        asyncio.get_running_loop().remove_signal_handler(signal.SIGUSR1)
        print("looped")
    asyncio.run(work())
""")), "> ")
    user.type("loop<enter>", "> loop", "looped", "> ")
    user.terminal.signal(signal.SIGTERM)
    user.terminal.expect_end("SIGTERM")


def test_an_unforeseen_error_leaves_the_terminal(start):
    child = start(SHELL % ("", """
@top.command("fail")
def fail(): raise RuntimeError("on purpose")
"""))
    child.wait("the prompt", lambda: b"> " in child.display.raw)
    child.send("fail<enter>")
    child.expect_fact("exception", ("RuntimeError", "on purpose"))
    child.expect_end("exception")
    assert child.display.raw.rfind(b"\x1b[?2004h") < child.display.raw.rfind(b"\x1b[?2004l")


def test_one_session_after_another(start):
    """In one process, on one terminal; each finds nothing of the one before."""
    child = start(SHELL.replace("status = shell.run()", "shell.run(); status = shell.run()")
                  % ("banner='hello'", """
shell.standard()
"""))
    user = ShellUser(child, "hello", "> ")
    user.type("term hist size 5<enter>", "> term hist size 5", "> ")
    user.type("down<enter>", "> down", "low> ")
    user.type("<c-d>", "low> ^D", "> ")
    user.type("<c-d>", "> ^D", "hello", "> ")
    user.type("<up>", "> ")
    user.type("show term<enter>", "> show term", "width 80, history of 1024 lines",
              "TAB and ? give help", "> ")
    leave(user)


# --- What is typed -----------------------------------------------------------------------------

NAMES = ["/etc/passwd", "!ls", "`id`", "$(id)", "|id", "~/.profile", "< /etc/passwd", "> made"]


def test_nothing_that_is_typed_opens_a_file_or_starts_a_program(start):
    """The interpreter tells of every file and program; the history's file is the only one."""
    child = start(SHELL % ("history='kept'", """
shell.standard()
@shell.command("say LINE")
def say(line): print(visible(line))
@shell.command("ask")
def ask_all(): print(ask("Who"), choose("Which", ["one", "two"]), confirm("So"), sep="|")
shell.kind("PORT", values=lambda: ["eth0", "/etc/passwd"])
@shell.command("port PORT")
def port(name): print(name)
def hook(event, arguments):
    if event in ("open", "os.listdir", "os.scandir", "glob.glob", "subprocess.Popen", "os.exec",
                 "os.fork", "os.posix_spawn", "os.system"):
        tell("done", (event, str(arguments[0])))
@shell.command("begin")
def begin(): sys.addaudithook(hook)
"""))
    child.wait("the prompt", lambda: b"> " in child.display.raw)
    child.send("begin<enter>")
    for name in NAMES:
        child.send("%s<enter>say %s<tab>?<enter>port %s<tab>?<c-u>" % ((name,) * 3))
        child.send("ask<enter>%s<enter>%s<tab>?<c-u>one<enter>%s<enter>n<enter>" % ((name,) * 3))
        child.send("secret<enter>%s<enter>" % name)
    child.send("count 100<enter>")
    # Before that, Ctrl-U would be the terminal's own, and take the "q" away.
    child.wait("the question", lambda: b"--More--" in child.display.raw)
    child.send("v!q<c-x><c-e><esc>v<c-u>exit<enter>")
    child.wait("the end", lambda: child.status is not None)
    done = [value for fact, value in child.facts if fact == "done"]
    child.facts = [fact for fact in child.facts if fact[0] != "done"]
    assert child.display.raw.count(b"|one|False") == len(NAMES)
    assert {one for one in done if not one[1].isdigit()} == {("open", "kept")}  # not descriptors
    expect_tidy(child)
    child.expect_end("clean")
