"""Ctrl-C and Ctrl-Z: at any moment, typed or sent, on any thread."""
import os
import random
import re

import pytest

from reads import BOTH, BOTH_WAYS, INTERRUPTS, THREADS, interrupt, send_interrupt


@pytest.mark.smoke
@BOTH
@BOTH_WAYS
def test_interrupted_line(start, letter, how):
    child = start("read()\nread()")
    child.type("ab")
    interrupt(child, letter, how)
    child.enter("cd")
    child.expect_end()


@BOTH
@BOTH_WAYS
@pytest.mark.parametrize("threads", THREADS)
def test_before_during_and_after_a_key(start, letter, how, threads):
    """Each ends its read alone; the process is not suspended, and reads on.

    That the signals' dispositions and the settings are as before is checked in each read.
    """
    child = start(THREADS[threads] + "for number in range(6): read()")
    # Before any key, twice in a row.
    for again in range(2):
        child.expect_prompt()
        interrupt(child, letter, how)
    # After a key, once it is on the screen.
    child.type("abc")
    interrupt(child, letter, how)
    # During one: the first byte of an arrow key has been read, the others come later.
    child.type("ab<esc>", "ab")
    child.expect_taken()
    interrupt(child, letter, how)
    # What is left of the key is ordinary text then, and nothing else is left over.
    child.enter("[A")
    child.enter("<up>x", "x")
    child.expect_end()


@BOTH
@BOTH_WAYS
def test_in_other_states_of_the_editor(start, letter, how):
    """With an argument begun, in a wrapped line, before a quoted key, while searching."""
    child = start("""
import Keyline
Keyline.keyBindingsEnabledIs(True)
for line in ("first line", "second line"):
    Keyline.addHistory(line, "mode", "")
for number in range(5): read()
""")
    for typed, shown in (("ab<m-4>", ["ab"]), ("x" * 100, ["x" * 77, "x" * 23]),
                         ("ab<c-v>", ["ab"]), ("<c-r>fir", ["first line", "bck:fir"])):
        child.type(typed, *shown)
        child.expect_taken()
        # The key itself would be quoted, or would not be a key at all.
        interrupt(child, letter, "sent" if typed == "ab<c-v>" else how)
    child.enter("abc<left>x", "abxc")
    child.expect_end()


@BOTH
def test_pending_when_the_read_starts(start, letter):
    """Blocked until the handlers are set, it lands before the prompt; the mask stays."""
    key, number, raised = INTERRUPTS[letter]
    child = start("""
read()
signal.pthread_sigmask(signal.SIG_BLOCK, [%d])
signal.raise_signal(%d)
read()
signal.pthread_sigmask(signal.SIG_UNBLOCK, [%d])
read()
""" % (number, number, number))
    child.enter("a")
    child.expect_raised(*raised)
    child.expect_prompt()
    assert child.prompt == 3, "the interrupted read had shown its prompt"
    child.send("b<enter>")
    child.expect_line("b")
    child.expect_end()


@BOTH
@pytest.mark.parametrize("target", ["itself", "another"])
def test_sent_by_a_thread(start, letter, target):
    """To a thread that is not reading, or to the process: the reading thread is hit."""
    kill = ("signal.pthread_kill(threading.get_ident(), %d)" if target == "itself"
            else "os.kill(os.getpid(), %d)") % INTERRUPTS[letter][1]
    child = start("""
def other():
    for number in range(3):
        wait_for("kill")
        %s
thread = beside(other)
for number in range(3): read()
thread.join()
""" % kill)
    for again in range(3):
        child.type("ab")
        child.go("kill")
        child.expect_raised(*INTERRUPTS[letter][2])
    child.expect_end()


def test_read_on_a_thread_that_is_not_the_first(start):
    """The kernel gives a signal to the first thread; the read is on another."""
    child = start("""
def other():
    for number in range(4): read()
thread = beside(other)
thread.join()
""")
    for letter, how in (("C", "typed"), ("Z", "sent"), ("C", "sent")):
        child.type("ab")
        interrupt(child, letter, how)
    child.enter("after")
    child.expect_end()


# A landing on another thread

WRONG_THREAD = """
import ctypes, Keyline
def other():
    wait_for("change")
    thread = ctypes.c_ulong.in_dll(ctypes.CDLL(Keyline.__file__), "readlineThreadId")
    tell("real", thread.value)
    thread.value = 12345
    tell("changed it")
beside(other)
%s
Keyline.readline(next_prompt())
"""
REPORTS = {
    "C": "Assertion failed: readlineThreadId == pthread_self Cli/Keyline:519 (12345, %d)\n",
    "Z": "Assertion failed: readlineThreadId == pthread_self Cli/Keyline:537\n",
}


@BOTH
@BOTH_WAYS
@pytest.mark.parametrize("output", ["terminal", "pipe"])
def test_landing_on_another_thread_is_fatal(start, letter, how, output):
    """The two reports differ, deliberately, and arrive whatever standard output is."""
    piped = output == "pipe"
    child = start(WRONG_THREAD % (
        "sys.stdout = open('/dev/tty', 'w'); os.dup2(output_pipe, 1)" if piped else ""),
        pipe=piped)
    child.expect_prompt()
    child.go("change")
    real = child.expect_fact("real")
    child.expect_fact("changed it")
    send_interrupt(child, letter, how)
    child.expect_end("SIGABRT")
    report = REPORTS[letter] % real if "%d" in REPORTS[letter] else REPORTS[letter]
    if piped:
        assert child.piped.decode() == report
    else:
        assert report.rstrip("\n") in child.display.raw.decode()
    child.assert_settings_as_found()


# An interrupt while the shell's log function runs

@BOTH
@BOTH_WAYS
@pytest.mark.parametrize("waiting", ["while True: pass", "threading.Event().wait()"],
                         ids=["computing", "waiting"])
def test_interrupt_in_the_log_function_is_fatal(start, letter, how, waiting):
    """Deliberate: the module's handlers stay in force, and the landing finds no lock."""
    child = start("""
import Keyline
def news(first, second):
    tell("news")
    %s
open("log", "w").close()
Keyline.loggingSyncEnabledIs("log", news)
Keyline.readline(next_prompt())
""" % waiting)
    child.expect_prompt()
    with open(os.path.join(child.home, "log"), "a", encoding="utf-8") as file:
        file.write("a line\n")
    child.expect_fact("news")
    send_interrupt(child, letter, how)
    child.expect_abort("savedPyThreadState != NULL", 57, "acquireGil")
    child.assert_settings_as_found()


# Random instants

AT_ANY_TIME = """
import resource, Keyline
interrupts = prompt = 0
early = None
def own(number, frame):
    tell("hit", "shell")
signal.signal(signal.%s, own)
complete = lambda key, line: "-done"
state = settings(), dispositions()
line = ""
while line != "stop":
    try:
        prompt += 1
        line = Keyline.readline("%%d> " %% prompt, complete)
        tell("read", (prompt, line))
    except KeyboardInterrupt as error:
        assert str(error) == "Ctrl-%s pressed", error
        interrupts += 1
        tell("hit", "landing")
    assert (settings(), dispositions()) == state, (settings(), dispositions(), state)
    if early is None and interrupts == %d:
        early = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
tell("grown", resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - early)
"""

# What is typed before a signal.  One that comes while a completion runs, or between two
# reads, goes to the shell's own handler.  In all other cases the read is on and takes it.
WITHIN_READ = ["", "a", "abc<left>d", "<up>", "x" * 90, "<c-a>b<c-e><c-w>"]
ANYWHERE = ["ab<tab>", "ab<enter>"]


@pytest.mark.not_memcheck("it grows itself, with the code that it has seen")
@BOTH
@pytest.mark.parametrize("threads", ["alone", "busy"])
def test_each_signal_is_seen_once(start, letter, threads):
    """At random instants, while keys arrive: no signal is lost, and none is seen twice.

    KEYLINE_STORM says how many signals.
    """
    count = int(os.environ.get("KEYLINE_STORM", "200"))
    number = INTERRUPTS[letter][1]
    child = start(THREADS[threads] + AT_ANY_TIME % (number.name, letter, count // 4))
    chance = random.Random(7)
    prompt = 0
    for again in range(count):
        child.wait("a prompt after %d" % prompt, lambda: any(
            int(shown) > prompt
            for shown in re.findall(rb"(\d+)> ", child.display.raw[-400:])))
        keys = chance.choice(WITHIN_READ + ANYWHERE)
        child.send(keys)
        for spin in range(chance.randint(0, 5000)):
            pass
        child.signal(number)
        # Whatever took the signal, the read is over after the first of these.
        child.send("<enter>next<enter>")
        taken_by = child.expect_fact("hit")
        assert taken_by == "landing" or keys in ANYWHERE, keys
        line = None
        while line != "next":
            prompt, line = child.expect_fact("read")
    child.send("<c-u>stop<enter>")
    child.expect_fact("read")
    assert child.expect_fact("grown") < 2048  # in kB
    child.expect_end()
