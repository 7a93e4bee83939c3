"""What else a program does while a line is read, on another thread or within a callable.

A second read is refused and touches nothing of the first one. All other methods work, on
whatever thread: the editor and the history are the reader's but while it waits for a key.
"""
import os
import re
import signal

import pytest

from log_file import wait_state
from reads import READERS

REFUSED = ("RuntimeError", "a line is being read already")
SECOND = {"readline": "Keyline.readline('second> ', other, 'elsewhere', '')",
          "simpleReadline": "Keyline.simpleReadline('second> ')"}

# The reader's callback says that it is still the one that is called.
FIRST = """
import Keyline
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory("an older line", "exec", "")
def other(key, line): return "-other"
def second():
    tell("second", raises(lambda: %s))
def first(key, line):
    if %r and key == b"?":
        second()
    return "-first"
def news(descriptor, length):
    os.read(descriptor, length)
    second()
open("log", "w").close()
Keyline.loggingSyncEnabledIs("log", news)
def on_a_thread():
    wait_for("second")
    second()
"""


def goes_on(child):
    """The first read's callback, mode, history and interrupts are its own."""
    child.send("<tab>")
    child.expect_shown("ab-first", redrawn=True)
    child.send("<c-u><up>")
    child.expect_shown("an older line", redrawn=True)
    child.send("<c-c>")
    child.expect_raised("KeyboardInterrupt", "Ctrl-C pressed")
    child.enter("next")
    child.expect_end()


def second_on_a_thread(child):
    child.go("second")


def second_in_a_completion(child):
    child.send("?")


def second_in_the_log_callable(child):
    with open(os.path.join(child.home, "log"), "a", encoding="utf-8") as log:
        log.write("news\n")


@pytest.mark.parametrize("how", [second_on_a_thread, second_in_a_completion,
                                 second_in_the_log_callable])
@pytest.mark.parametrize("method", SECOND)
def test_a_second_read_is_refused(start, method, how):
    child = start(FIRST % (SECOND[method], how is second_in_a_completion) + """
beside(on_a_thread)
read(first, "exec", "")
read(first, "exec", "")
""")
    child.type("ab")
    how(child)
    child.expect_fact("second", REFUSED)
    if how is second_in_a_completion:
        child.expect_shown("ab-first", redrawn=True)
        child.send("<c-u>ab")
    goes_on(child)


@pytest.mark.parametrize("method", SECOND)
def test_a_second_read_within_a_simple_one(start, method):
    child = start(FIRST % (SECOND[method], True) + """
beside(on_a_thread)
read(first, "exec", "")
simple_read(watched=False)
""")
    child.enter("")
    child.expect_prompt()
    child.send("ab?")
    child.expect_fact("second", REFUSED)
    child.go("second")
    child.expect_fact("second", REFUSED)
    child.expect_shown("ab-first", redrawn=True)
    child.send("<enter>")
    child.expect_line("ab-first")
    child.expect_end()


def test_a_refused_read_parses_nothing(start):
    """Not even wrong arguments raise: the callback of the first read stays."""
    child = start(FIRST % ("Keyline.readline(1, 2, 3)", False) + """
beside(on_a_thread)
read(first, "exec", "")
read(first, "exec", "")
""")
    child.expect_prompt()
    child.send("ab")
    child.go("second")
    child.expect_fact("second", REFUSED)
    goes_on(child)


# All other methods

CALLS = {
    "addHistory": "Keyline.addHistory('line %d.' % (n % 50), 'exec' if n % 3 else 'config', '')",
    "clearHistory": "Keyline.clearHistory()",
    "historyLimitIs": "Keyline.historyLimitIs(n % 7 * 5)",
    "history": "Keyline.history()",
    "newHistoryMode": "Keyline.newHistoryMode('mode %d' % (n % 500), 'exec')",
    "TerminalWidthIs": "Keyline.TerminalWidthIs(n % 70 + 10)",
    "keyBindingsEnabledIs": "Keyline.keyBindingsEnabledIs(n % 2 == 0)",
    "loggingSyncEnabledIs": "Keyline.loggingSyncEnabledIs('log', news if n % 2 else None); "
                            "n % 9 or open('log', 'a').write('news')",
    "resetInput": "hold.append((sys.stdin, sys.stdout)); more_references(); "
                  "Keyline.resetInput(); Keyline.keyBindingsEnabledIs(True)",
}

STORM = """
import Keyline
hold, over = [], threading.Event()
def more_references():  # a reset drops one of each
    for stream in sys.stdin, sys.stdout:
        ctypes.pythonapi.Py_IncRef(ctypes.py_object(stream))
def news(descriptor, length):
    os.read(descriptor, length)
    return length %% 2
def storm():
    sys.setswitchinterval(0.0001)
    n = 0
    while not over.is_set():
        n += 1
        %s
        if %r: over.wait(0.005)  # each costs a new editor
    tell("calls", n)
with open("log", "w") as log: pass
Keyline.keyBindingsEnabledIs(True)
Keyline.loggingSyncEnabledIs("log", news)
with open("log", "a") as log: log.write("news\\n")
for n in range(1, 40): Keyline.addHistory("line %%d." %% n, "exec", "")
def complete(key, line):
    return "\\b" * len(line) if len(line) > 20 else "xy"
"""
KEYS = ("<up><up><down>ab<c-r>ine<c-r><c-r><esc><c-a>cd<c-e><tab>?<m-p><m-n><up><c-w>"
        "<left>x<c-k><c-y><c-u>and more of it" * 3)


@pytest.mark.parametrize("called", list(CALLS) + ["all"])
@pytest.mark.parametrize("reader", READERS)
def test_methods_on_another_thread(start, called, reader):
    """While the user types, pastes, recalls, searches and completes."""
    statements = "; ".join(CALLS.values()) if called == "all" else CALLS[called]
    child = start(STORM % (statements, called in ("resetInput", "all")) + """
read(complete, "exec", "")
storming = beside(storm)
for number in range(12): %s
over.set()
storming.join()
os._exit(0)
""" % ("read(complete, 'exec', '')" if reader == "read()" else "simple_read(watched=False)"))
    child.enter("")
    for number in range(12):
        child.expect_prompt()
        if number % 2:
            child.send(KEYS, size=3, pause=0.0005)
        else:
            child.send(KEYS)
        child.expect_taken()
        child.send("<c-g><c-u>ended<enter>")
        found = child.expect_fact("line")
        # The keys that complete may stand for themselves just then, and the width be another.
        assert re.search("ended$", found), found
    assert child.expect_fact("calls") > 10
    child.expect_end()


@pytest.mark.parametrize("called", CALLS)
def test_a_callback_that_waits_for_a_thread(start, called):
    """Which uses a method, as the callback might itself."""
    child = start(STORM % ("pass", False) + """
def work(n):
    %s
    tell("worked")
def waits(key, line):
    worker = threading.Thread(target=work, args=(2,))
    worker.start()
    worker.join()
    return "-done"
read(waits, "exec", "")
os._exit(0)
""" % CALLS[called])
    child.expect_prompt()
    child.send("ab<tab>")
    child.expect_fact("worked")
    child.send("<enter>")
    child.expect_fact("line")
    child.expect_end()


def test_keys_that_wait_outlive_new_editors(start):
    """Keys that came in the place of the terminal's answer stay with the read.

    The first of the new editors waits for the end of the read, the second is ended at once.
    """
    child = start("""
import Keyline
def starts_anew(key, line):
    for number in range(3):
        for stream in sys.stdin, sys.stdout:  # a reset drops one reference of each
            ctypes.pythonapi.Py_IncRef(ctypes.py_object(stream))
        Keyline.resetInput()
        Keyline.keyBindingsEnabledIs(True)
    return ""
read(starts_anew, "exec", "")
read()
""", env={"TERM": "xterm"})
    child.type("x" * 90, "x" * 77, "x" * 13)
    child.resize(24, 30)
    child.wait("the terminal to be asked", lambda: b"\x1b[6n" in child.display.raw)
    child.send("<tab> and more<enter>")
    child.expect_line("x" * 90 + " and more")
    child.enter("next")
    child.expect_end()


# Log echo, switched off where it is in use

OFF = """
import Keyline
calls = []
def news(descriptor, length):
    calls.append(os.read(descriptor, length))
    %s
    return 1
for name in "log", "other": open(name, "w").close()
Keyline.loggingSyncEnabledIs("log", news)
def off():
    global news
    Keyline.loggingSyncEnabledIs("log")
    news = None  # it may be gone now
def later(descriptor, length):
    calls.append(b"other: " + os.read(descriptor, length))
    tell("later")
    return 1
def other():
    off()
    Keyline.loggingSyncEnabledIs("other", later)
def on_a_thread(function):
    thread = threading.Thread(target=function)
    thread.start()
    thread.join()
read()
tell("calls", calls)
tell("off", Keyline.loggingSyncEnabledIs("log"))
%s
os._exit(0)  # the leak checker cannot look at a process that was stopped
"""


def append(child, name, text):
    with open(os.path.join(child.home, name), "a", encoding="utf-8") as log:
        log.write(text)


def begin(start, statement):
    """The callable is called once, though the news come in two pieces: a file and the next.

    The child is stopped meanwhile, so that it meets both at once.
    """
    child = start(OFF % (statement + "; tell('called')", ""))
    child.type("ab")
    child.signal(signal.SIGSTOP)
    wait_state(child, "T")
    append(child, "log", "first\n")
    append(child, "log.new", "second\n")
    os.rename(os.path.join(child.home, "log.new"), os.path.join(child.home, "log"))
    child.signal(signal.SIGCONT)
    child.expect_fact("called")
    return child


def finish(child, *calls):
    child.send("c<enter>")
    child.expect_line("abc")
    child.expect_fact("calls", [call.encode() for call in calls])
    child.expect_fact("off", None)
    child.expect_end()


@pytest.mark.parametrize("statement", ["off()", "on_a_thread(off)"])
def test_switched_off_within_the_callable(start, statement):
    """News that it has not been told of is dropped."""
    child = begin(start, statement)
    append(child, "log", "third\n")
    finish(child, "first\n")


@pytest.mark.parametrize("statement", ["other()", "on_a_thread(other)"])
def test_switched_to_another_file_within_the_callable(start, statement):
    child = begin(start, statement)
    append(child, "other", "from there\n")
    child.expect_fact("later")
    finish(child, "first\n", "other: from there\n")


def test_switched_in_the_wait(start):
    """By another thread: the reader hears of it with the next key."""
    child = start(OFF % ("tell('called')", """
Keyline.loggingSyncEnabledIs("log", lambda *_: 0)
def switch():
    for word, act in (("off", off), ("other", other)):
        wait_for(word)
        act()
        tell(word)
beside(switch)
read()
"""))
    child.enter("")
    child.expect_fact("calls", [])
    child.expect_fact("off", None)
    child.type("a")
    child.go("off")
    child.expect_fact("off")
    child.send("b")
    child.expect_shown("ab")
    child.go("other")
    child.expect_fact("other")
    child.send("c")
    child.expect_shown("abc")
    append(child, "other", "from there\n")
    child.expect_fact("later")
    child.send("<enter>")
    child.expect_line("abc")
    child.expect_end()
