"""The tests' leak check: it finds leaks, and only leaks, with every interpreter."""
import sys

import pytest

pytestmark = [
    pytest.mark.sanitized_only("nothing else finds leaks"),
    pytest.mark.only_where(sys.maxsize > 1 << 32, "leaks are not looked for with 32 bits"),
]

LOST = {
    "memory": "libc.malloc.restype = ctypes.c_void_p\n"
              "def lose(): libc.malloc(4321)\n",
    "text": "def lose(): ctypes.pythonapi.Py_IncRef(ctypes.py_object('x' * 4321))\n",
}


@pytest.mark.parametrize("what", LOST)
def test_leaks_are_found(setup, run, what):
    """Of many: a register may still point to the last ones."""
    found = run("import Keyline\n" + LOST[what] + """
def many(count):
    for number in range(count):
        lose()
many(100)
many(1)
""", end="clean" if setup.under_valgrind else "status 99")
    assert not found.stderr
    reports = setup.sanitizer_reports()
    assert reports
    for report in reports:
        assert "leak" in report or "lost" in report


def test_names_that_the_interpreter_keeps_are_no_leaks(setup, run):
    """Interned ones and those of attributes, new ones too."""
    run("import sys\nimport Keyline\n"
        "for number in range(100): sys.intern('name%d' % number)\n"
        "for number in range(100): setattr(sys, 'other%d' % number, number)\n")
    assert not setup.sanitizer_reports()


def test_what_a_waiting_thread_holds_is_no_leak(run):
    """Only its stack points to it when the process ends."""
    run("import threading, time\nimport Keyline\n"
        "there = threading.Barrier(11)\n"
        "def hold(number):\n"
        "    text, lock = 'x' * (number + 1000), threading.Lock()\n"
        "    there.wait()\n"
        "    threading.Event().wait()\n"
        "    print(text, lock)\n"
        "for number in range(10): beside(hold, number)\n"
        "there.wait()\n")
