"""The interpreter ends while a daemon thread reads: neither a crash nor a hang, whatever comes.

The terminal is as it was, and the status is the one that the program wants.
"""
import os
import signal
import time
from contextlib import suppress

import pytest

SCRIPT = """
import Keyline
def news(descriptor, length):
    os.read(descriptor, length)
    return 1
def complete(key, line): return "-done"
open("log", "w").close()
Keyline.loggingSyncEnabledIs("log", news)
def reading():
    while True:
        try:
            Keyline.readline("> ", complete)
        except (EOFError, KeyboardInterrupt):
            pass
beside(reading)
class Late:  # one who uses the module when the interpreter is nearly gone
    def __del__(self):
        Keyline.addHistory("late", "exec", "")
        Keyline.TerminalWidthIs(40)
sys.late = Late()
wait_for("end")
tell("ends")
sys.exit(7)
"""


def without_leaks(setup):
    """The leak checker stops all threads, which never succeeds while signals keep coming."""
    told = setup.sanitizer_environment().get("ASAN_OPTIONS")
    return told and {"ASAN_OPTIONS": told + ":detect_leaks=0"}


def write(child, keys):
    with suppress(BlockingIOError):  # more than the terminal holds
        os.write(child.master, keys)


@pytest.mark.parametrize("what", ["nothing", "keys", "news", "Ctrl-C", "signals", "all"])
@pytest.mark.parametrize("delay", range(4))
def test_the_interpreter_ends(setup, start, what, delay):
    child = start(SCRIPT, env=without_leaks(setup))
    child.wait("the prompt", lambda: b"> " in child.display.raw)
    child.send("ab")
    child.wait("the keys", lambda: b"ab" in child.display.raw)
    child.go("end")
    with open(os.path.join(child.home, "log"), "a", encoding="utf-8") as log:
        until = time.monotonic() + 30
        while child.status is None and time.monotonic() < until:
            if what in ("news", "all"):
                log.write("news\n" * (delay + 1))
                log.flush()
            if what in ("keys", "all"):
                write(child, b"x\t\r"[:delay])
            if what == "Ctrl-C":
                write(child, b"\x03")
            if what in ("signals", "all"):
                for number in (signal.SIGWINCH, signal.SIGCONT):
                    signal.pidfd_send_signal(child.pidfd, number)
            child._pump(0.001 * delay)
    child.end_stated = True
    child.wait("the end", lambda: child.status is not None)
    # The interpreter gives Ctrl-C back to the kernel before it is gone, and then it kills.
    if what != "Ctrl-C" or child.status != -signal.SIGINT:
        assert child.status == 7
        child.assert_settings_as_found()
