"""What the tests of single reads share: the two readers, and how a read is interrupted."""
import signal
import termios

import pytest

READERS = ["read()", "simple_read()"]
EOF = ("EOFError", "readline returned NULL")
SIMPLE_EOF = ("EOFError", "simpleReadline returned NULL")
INTERRUPTS = {
    "C": ("<c-c>", signal.SIGINT, ("KeyboardInterrupt", "Ctrl-C pressed")),
    "Z": ("<c-z>", signal.SIGTSTP, ("KeyboardInterrupt", "Ctrl-Z pressed")),
}
BOTH = pytest.mark.parametrize("letter", INTERRUPTS)
BOTH_WAYS = pytest.mark.parametrize("how", ["typed", "sent"])

# Threads that compute, or that wait in the kernel, while the main thread reads. Where they
# compute, the lock changes hands often, or each interrupt would wait for all of them.
THREADS = {
    "alone": "",
    "busy": "sys.setswitchinterval(0.0001)\n"
            "def busy():\n    while True: sum(range(1000))\n"
            "for number in range(4): beside(busy)\n",
    "waiting": "for number in range(4): beside(threading.Event().wait)\n",
}


def eof(reader):
    """What that reader raises at the end of the input."""
    return EOF if reader == "read()" else SIMPLE_EOF


def no_echo(settings):
    """Settings without ECHO, with which a terminal's lines are not edited."""
    settings[3] &= ~termios.ECHO


def send_interrupt(child, letter, how):
    """Ctrl-C or Ctrl-Z, as a key or as a signal to the child alone."""
    key, number, _ = INTERRUPTS[letter]
    if how == "typed":
        child.send(key)
    else:
        child.signal(number)


def interrupt(child, letter, how):
    """The same, and the read ends with it."""
    send_interrupt(child, letter, how)
    child.expect_raised(*INTERRUPTS[letter][2])
