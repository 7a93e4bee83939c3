"""The other signals that the editor takes, and what other processes see of all."""
import signal
import termios

import pytest

from log_file import wait_state
from reads import BOTH, BOTH_WAYS, INTERRUPTS, THREADS, interrupt

ENDING = ("SIGTERM", "SIGHUP", "SIGQUIT")
BYSTANDER = """
bystander = Bystander()
for name in %r:
    signal.signal(getattr(signal, name), lambda number, frame: None)
%s
tell("bystander", bystander.seen())
"""


@BOTH
def test_bystander_of_an_interrupt(start, letter):
    """A signal to the shell alone is never passed on to its process group."""
    child = start(BYSTANDER % ((), "read()\nread()"))
    for typed in ("", "ab"):
        child.type(typed)
        interrupt(child, letter, "sent")
    child.expect_fact("bystander", "[]")
    child.expect_end()


@pytest.mark.parametrize("reader, name, handled", [
    ("read()", "SIGHUP", True), ("read()", "SIGTERM", True), ("read()", "SIGQUIT", True),
    ("read()", "SIGCONT", True), ("read()", "SIGCONT", False),
    ("read()", "SIGWINCH", True), ("read()", "SIGWINCH", False),
    ("simple_read()", "SIGINT", True), ("simple_read()", "SIGTSTP", True),
    ("simple_read()", "SIGTSTP", False), ("simple_read()", "SIGTERM", True),
])
def test_bystander_of_a_read_that_goes_on(start, reader, name, handled):
    """The same. A shell that leads its session cannot be stopped, and reads on."""
    child = start(BYSTANDER % ((name,) if handled else (), reader))
    child.type("ab")
    child.signal(getattr(signal, name))
    child.send("c<enter>")
    child.expect_line("abc")
    child.expect_fact("bystander", "[]")
    child.expect_end()


@pytest.mark.parametrize("reader", ["read()", "simple_read()"])
@pytest.mark.parametrize("name", ENDING)
@pytest.mark.parametrize("before", ["", "ab", "<c-c>"])
def test_ending_signal_gives_the_terminal_back(start, reader, name, before):
    """At a fresh prompt, in mid-line, and at the prompt after a landing."""
    child = start("bystander = Bystander()\nsignal.signal(signal.SIGINT, "
                  "signal.default_int_handler)\n" + ("read()\n" * 2 + reader))
    child.enter("")
    child.expect_prompt()
    if before == "<c-c>":
        interrupt(child, "C", "typed")
    else:
        child.send("<enter>")
        child.expect_line("")
    child.expect_prompt()
    if before == "ab":
        child.send("ab")
        child.expect_shown("ab")
    child.wait("the editor's raw mode", lambda: child.settings() != child.found)
    child.signal(getattr(signal, name))
    child.expect_end(name)
    child.expect_bystander("[]")


@pytest.mark.parametrize("threads", ["alone", "busy"])
@pytest.mark.parametrize("reader", ["read()", "simple_read()"])
@pytest.mark.parametrize("name", ENDING)
@pytest.mark.parametrize("handler", ["handled", "ignored"])
def test_ending_signal_that_the_shell_handles(start, threads, reader, name, handler):
    """The read goes on undisturbed; the shell's function runs when it is over."""
    child = start(THREADS[threads] + """
signal.signal(signal.%s, %s)
%s
read()
""" % (name, "lambda number, frame: tell('seen', int(number))" if handler == "handled"
       else "signal.SIG_IGN", reader))
    child.type("ab")
    child.signal(getattr(signal, name))
    child.send("cx<bs>")
    child.expect_shown("abc")
    child.signal(getattr(signal, name))
    child.send("<left>d<enter>")
    child.expect_line("abdc")
    if handler == "handled":
        child.expect_fact("seen", int(getattr(signal, name)))
        child.facts = [fact for fact in child.facts if fact[0] != "seen"]
    child.enter("after")
    child.expect_end()


@BOTH
def test_simple_read_leaves_the_shells_handlers_in_force(start, letter):
    """They run when the read is over; the line is read on, redrawn after the signal."""
    child = start("""
signal.signal(%d, lambda number, frame: tell("seen", int(number)))
simple_read()
wait_for("more")
read()
simple_read()
""" % INTERRUPTS[letter][1])
    for again in range(2):
        child.type("ab")
        child.signal(INTERRUPTS[letter][1])
        child.send("cx<bs>")
        child.expect_shown("abc")
        child.send("<enter>")
        child.expect_line("abc")
        child.expect_fact("seen", int(INTERRUPTS[letter][1]))
        if not again:
            child.go("more")
            child.expect_prompt()
            interrupt(child, letter, "typed")
    child.expect_end()


def test_simple_read_and_the_usual_keyboard_interrupt(start):
    """Python's own handler raises, when the read is over; not the module's."""
    child = start("simple_read()\nread()")
    child.type("ab")
    child.signal(signal.SIGINT)
    child.send("c<enter>")
    child.expect_raised("KeyboardInterrupt", "")
    child.enter("d")
    child.expect_end()


def test_stopped_and_continued(start):
    """Continued, the shell redraws its line, in raw mode."""
    child = start("read()")
    child.type("ab")
    raw = child.settings()
    for again in range(2):
        drawn = len(child.display.raw)
        child.signal(signal.SIGSTOP)
        wait_state(child, "T")
        restore(child)
        child.signal(signal.SIGCONT)
        child.wait("raw mode again", lambda: child.settings() == raw)
        child.wait("a new drawing", lambda: b"> ab" in child.display.raw[drawn:])
    child.send("c<enter>")
    child.expect_line("abc")
    child.expect_end()


def restore(child):
    """What a job-control shell does to the terminal of a job that stopped."""
    termios.tcsetattr(child.slave, termios.TCSANOW, child.found)


# Resets

@BOTH
@BOTH_WAYS
def test_reset_after_a_landing(start, letter, how):
    """No handler is left that would act on the editor that is gone."""
    child = start("""
import Keyline
for name in ("SIGHUP", "SIGTERM", "SIGQUIT", "SIGCONT", "SIGWINCH"):
    signal.signal(getattr(signal, name), lambda number, frame: None)
for number in range(3):
    read()
    Keyline.resetInput()
    for name in WATCHED:
        if name not in ("SIGINT", "SIGTSTP"):
            signal.raise_signal(getattr(signal, name))
read()
""")
    for again in range(3):
        child.type("ab")
        interrupt(child, letter, how)
    child.expect_prompt()
    child.resize(24, 40)
    child.signal(signal.SIGTERM)
    child.send("x" * 50)
    child.expect_shown("x" * 37, "x" * 13)
    child.send("<enter>")
    child.expect_line("x" * 50)
    child.expect_end()


@pytest.fixture
def first_process():
    """Statements after which the script is the first of a PID namespace, as in a container.

    The one that was there before passes the ends on that the test asks for.
    """
    return """
assert libc.unshare(0x20000000) == 0  # the next process to be made is the first
first = os.fork()
if first:
    for number in %r:
        wait_for("end")
        os.kill(first, number)
    os._exit(os.waitstatus_to_exitcode(os.waitpid(first, 0)[1]))
""" % [int(getattr(signal, name)) for name in ENDING]


@pytest.mark.not_memcheck("it does not know of a signal that is fatal but here")
def test_the_first_process_does_not_end(start, first_process):
    """It reads on, on a terminal that was given back: raw again, with the line as it was."""
    child = start(first_process + "read()\nos._exit(0)")
    child.type("ab")
    for typed in range(1, len(ENDING) + 1):
        before = len(child.display.raw)
        child.go("end")
        child.wait("the line redrawn", lambda: b"1> " in child.display.raw[before:])
        child.send("<left>x")
        child.expect_shown("a" + "x" * typed + "b")
        child.send("<right>")
    child.send("<enter>")
    child.expect_line("axxxb")
    child.expect_end()
