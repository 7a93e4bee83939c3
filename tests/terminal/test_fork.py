"""A process that is forked while a line is read: there is no read in it.

The reader's terminal and signals are the reader's alone, however the child ends, and a child
that wants to read reads.
"""
import os
import signal

import pytest

import manual

# Three ways in which a child is made during a read, by the function `child`. The
# callable that the log calls lives as long as the script.
FROM = {
    "thread": """
def fork_and_run():
    wait_for("fork")
    if os.fork() == 0:
        child()
    tell("forked")
beside(fork_and_run)
arguments = ()
""",
    "completion": """
def callback(key, line):
    if os.fork() == 0:
        child()
    tell("forked")
arguments = (callback,)
""",
    "log": """
def news(descriptor, length):
    os.read(descriptor, length)
    if os.fork() == 0:
        child()
    tell("forked")
open("log", "w").close()
Keyline.loggingSyncEnabledIs("log", news)
arguments = ()
""",
}

# What a child raises or reads is told without a look at the terminal, which the reader has.
SCRIPT = """
import Keyline
before, reader = dispositions(), os.getpid()
def child():
    %s
%s
try:
    line = Keyline.readline(next_prompt(), *arguments)
    tell("line", line)
except (Exception, SystemExit) as error:
    tell("raised", (type(error).__name__, str(error)))
if os.getpid() != reader:
    Keyline.addHistory("a line", "exec", "")
    tell("lines", Keyline.history())
    # An interpreter that was forked has lost its old locks, on purpose.
    os._exit(0) if hasattr(libc, "__lsan_do_leak_check") else sys.exit()
"""


def fork(child, way):
    """Types half a line, and makes a child."""
    child.type("half a ", "half a")
    if way == "thread":
        child.go("fork")
    elif way == "completion":
        child.send("<tab>")
    else:
        with open(os.path.join(child.home, "log"), "a", encoding="utf-8") as log:
            log.write("news\n")
    child.expect_fact("forked")


def finish(child):
    """The reader goes on undisturbed."""
    assert not child.settings()[3] & manual.COOKED
    child.send("line<enter>")
    child.expect_line("half a line")
    child.expect_end()


ENDS = {
    "os._exit": "os._exit(0)",
    "sys.exit": "tell('child'); sys.exit(3)",
    "SIGTERM": "os.kill(os.getpid(), signal.SIGTERM)",
    "SIGHUP": "signal.raise_signal(signal.SIGHUP)",
    "SIGQUIT": "signal.raise_signal(signal.SIGQUIT)",
}


@pytest.mark.parametrize("way", FROM)
@pytest.mark.parametrize("end", [
    pytest.param(end, marks=pytest.mark.plain_only if end == "sys.exit" else ())
    for end in ENDS])  # after a fork the interpreter loses some locks of its own
def test_end_of_a_child(start, way, end):
    """In every case the reader's terminal stays raw and the line goes on."""
    child = start(SCRIPT % ("tell('pid', os.getpid()); " + ENDS[end], FROM[way]))
    fork(child, way)
    child.wait("the child's end", lambda: any(
        name == "pid" and not os.path.exists("/proc/%d/fd/0" % value)
        for name, value in child.facts))
    child.expect_fact("pid")
    if end == "sys.exit":
        child.expect_fact("child")
        if way != "thread":  # where it is within a read, which ends
            child.expect_fact("raised", ("SystemExit", "3") if way == "completion"
                              else ("EOFError", "readline returned NULL"))
            child.expect_fact("lines", ["a line"])
    finish(child)


SIGNALS = """
    tell('as before', dispositions() == before)
    seen = []
    signal.signal(signal.SIGINT, lambda *_: seen.append("INT"))
    signal.signal(signal.SIGTERM, lambda *_: seen.append("TERM"))
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.raise_signal(number)
    signal.raise_signal(signal.SIGWINCH)
    signal.raise_signal(signal.SIGCONT)
    tell('seen', seen)
    os._exit(0)
"""


@pytest.mark.parametrize("way", FROM)
def test_signals_of_a_child(start, way):
    """They are as they were before the read, and handlers of the child's own are called."""
    child = start(SCRIPT % (SIGNALS, FROM[way]))
    fork(child, way)
    child.expect_fact("as before", True)
    child.expect_fact("seen", ["INT", "TERM"])
    finish(child)


READS = """
    os.dup2(other_terminal, 0)
    os.dup2(other_terminal, 1)
    %s
    attempt(lambda: Keyline.readline("other> ", lambda key, line: "!"))
    Keyline.addHistory("a line", "exec", "")
    attempt(lambda: Keyline.readline("again> ", None, "exec"))
    attempt(lambda: Keyline.simpleReadline("simple> "))
    tell("over")
    os._exit(0)
"""


@pytest.mark.parametrize("way", FROM)
@pytest.mark.parametrize("first", ["pass", "Keyline.resetInput()"])
def test_a_child_that_reads(start, way, first):
    """On a terminal of its own, while the reader's line waits."""
    child = start(SCRIPT % (READS % first, FROM[way]), other=True)
    fork(child, way)

    def other_shows(text):
        child.wait(text, lambda: text in "\n".join(child.other.rows()))

    for prompt, typed, line in (("other>", "x<tab>?", "x!!"), ("again>", "<up>", "a line"),
                                ("simple>", "y", "y")):
        other_shows(prompt)
        child.send_other(typed + "<enter>")
        child.expect_line(line)
    child.expect_fact("over")
    finish(child)


@pytest.mark.parametrize("way", FROM)
def test_interrupt_in_a_child_that_reads(start, way):
    """Ctrl-C at its terminal interrupts its read alone."""
    child = start(SCRIPT % ("""
    os.dup2(other_terminal, 0)
    os.dup2(other_terminal, 1)
    Keyline.resetInput()
    tell("pid", os.getpid())
    attempt(lambda: Keyline.readline("other> "))
    os._exit(0)
""", FROM[way]), other=True)
    fork(child, way)
    child.wait("the prompt", lambda: "other>" in "\n".join(child.other.rows()))
    os.kill(child.expect_fact("pid"), signal.SIGINT)
    child.expect_raised("KeyboardInterrupt", "Ctrl-C pressed")
    finish(child)


@pytest.mark.parametrize("way", ["completion", "log"])
def test_a_child_that_returns_to_the_read(start, way):
    """The line is the reader's: for the child it is the end of the input."""
    child = start(SCRIPT % ("return", FROM[way]))
    fork(child, way)
    child.expect_fact("forked")  # the child tells it, too
    child.expect_raised("EOFError", "readline returned NULL")
    child.expect_fact("lines", ["a line"])
    finish(child)


def test_multiprocessing(start):
    """A worker that a thread starts, and ends by SIGTERM, while a line is read."""
    child = start("""
import multiprocessing
import Keyline
def work():
    wait_for("fork")
    worker = multiprocessing.get_context("fork").Process(target=signal.pause)
    worker.start()
    worker.terminate()
    worker.join()
    tell("forked", worker.exitcode)
beside(work)
read()
os._exit(0)
""")
    child.type("half a ", "half a")
    child.go("fork")
    child.expect_fact("forked", -signal.SIGTERM)
    finish(child)
