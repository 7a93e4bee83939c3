"""The module's calls of the C library, as preloaded functions see them.

The wait is select without a timeout, and a failed one is repeated; raw mode goes through
tcsetattr; the two interrupts are held back through sigprocmask while they are taken over.
"""
import os
import signal
import subprocess

import pytest

from reads import READERS

PRELOADED = r"""
#define _GNU_SOURCE
#define _FILE_OFFSET_BITS 64 /* as the module is built */
#define _TIME_BITS 64
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/select.h>
#include <termios.h>

int waits, limited, highest, others;    /* of select */
int failures, failure;                  /* so many fail so */
int settings, settings_fail;            /* of tcsetattr */
int blocked, unblocked;                 /* of SIGINT and SIGTSTP, by sigprocmask */

static void *next(const char *name) { return dlsym(RTLD_NEXT, name); }

int select(int n, fd_set *reads, fd_set *writes, fd_set *errors, struct timeval *limit)
{
    /* where a time in it is wider than it was, the C library has a second one */
    int (*real)(int, fd_set *, fd_set *, fd_set *, struct timeval *) =
        next(sizeof(time_t) > sizeof(long) ? "__select64" : "select");
    if (limit) {
        limited++;
        return real(n, reads, writes, errors, limit);
    }
    waits++;
    highest = n;
    others += writes || errors;
    if (failures > 0) {
        failures--;
        errno = failure;
        return -1;
    }
    return real(n, reads, writes, errors, limit);
}

int tcsetattr(int fd, int action, const struct termios *wanted)
{
    int (*real)(int, int, const struct termios *) = next("tcsetattr");
    settings++;
    if (settings_fail) {
        errno = EIO;
        return -1;
    }
    return real(fd, action, wanted);
}

int sigprocmask(int how, const sigset_t *set, sigset_t *old)
{
    int (*real)(int, const sigset_t *, sigset_t *) = next("sigprocmask");
    if (set && sigismember(set, SIGINT) && sigismember(set, SIGTSTP)) {
        blocked += how == SIG_BLOCK;
        unblocked += how == SIG_UNBLOCK;
    }
    return real(how, set, old);
}
"""

SCRIPT = """
import ctypes, errno
import Keyline
def seen(name): return ctypes.c_int.in_dll(ctypes.CDLL(None), name)
"""


@pytest.fixture(scope="session")
def outside(setup, tmp_path_factory):
    """The environment that preloads them."""
    library = str(tmp_path_factory.mktemp("outside") / "outside.so")
    subprocess.run(["gcc", "-Wall", "-Werror", "-shared", "-fPIC", "-x", "c", "-o", library, "-"],
                   input=PRELOADED.encode(), check=True)
    before = setup.sanitizer_environment().get("LD_PRELOAD")
    return {"LD_PRELOAD": "%s:%s" % (before, library) if before else library}


@pytest.mark.parametrize("reader", READERS)
def test_the_wait(start, outside, reader):
    """One for each key, without a timeout, on the terminal alone; none at rest."""
    child = start(SCRIPT + "read()\nbefore = seen('waits').value\n" + reader + """
tell("waits", seen("waits").value - before)
tell("highest", seen("highest").value)
tell("others", seen("others").value)
""", env=outside)
    child.enter("")
    child.expect_prompt()
    for letter in "abc":
        child.send(letter)
        child.wait("the key", lambda: letter in child.shown()[0])
    child.send("<enter>")
    child.expect_line("abc")
    child.expect_fact("waits", 4)
    child.expect_fact("highest", 1)
    child.expect_fact("others", 0)
    child.expect_end()


@pytest.mark.parametrize("error", ["EINTR", "EBADF", "EINVAL", "ENOMEM", "ECHILD"])
def test_a_failed_wait_is_repeated(start, outside, error):
    """For any error, at once and as often as it fails."""
    child = start(SCRIPT + """
seen("failure").value = errno.%s
seen("failures").value = 1000
read()
tell("failures", seen("failures").value)
""" % error, env=outside)
    child.enter("ab")
    child.expect_fact("failures", 0)
    child.expect_end()


def test_an_interrupt_while_the_wait_fails(start, outside):
    child = start(SCRIPT + """
seen("failure").value = errno.EBADF
seen("failures").value = 2000000000
read()
""", env=outside)
    child.expect_prompt()
    child.signal(signal.SIGINT)
    child.expect_raised("KeyboardInterrupt", "Ctrl-C pressed")
    child.expect_end()


def test_raw_mode(start, outside):
    """Set once for each line, and once back."""
    child = start(SCRIPT + """
read()
before = seen("settings").value
read()
tell("settings", seen("settings").value - before)
""", env=outside)
    for _ in range(2):
        child.enter("ab")
    child.expect_fact("settings", 2)
    child.expect_end()


def test_raw_mode_that_fails(start, outside):
    """With nothing to read the line ends at once; with input it is read, and a message told."""
    child = start(SCRIPT + """
read()
seen("settings_fail").value = 1
read()
wait_for("typed")
read()
""", env=outside)
    child.enter("")
    child.expect_raised("EOFError", "readline returned NULL")
    child.send("ab<enter>")
    child.wait("the line", lambda: b"ab" in child.display.raw)
    child.go("typed")
    child.expect_line("ab")
    assert b"Could not set rawmode." in child.display.raw
    child.expect_end()


def test_the_interrupts_are_taken_over_while_blocked(start, outside):
    child = start(SCRIPT + """
before = seen("blocked").value, seen("unblocked").value
read()
tell("blocked", (seen("blocked").value - before[0], seen("unblocked").value - before[1]))
""", env=outside)
    child.enter("")
    child.expect_fact("blocked", (1, 1))
    child.expect_end()


@pytest.mark.plain_only  # which has calls of its own
def test_no_raw_system_call(setup):
    """Neither the module nor the log watch makes one past the C library."""
    for library in (setup.module(), os.path.join(setup.module_dir, "libVantor.so")):
        names = subprocess.run(["nm", "-D", "--undefined-only", library], check=True,
                               capture_output=True, text=True).stdout.split()
        assert not [name for name in names if name.split("@")[0] == "syscall"]
        code = subprocess.run(["objdump", "-d", library], check=True, capture_output=True,
                              text=True).stdout
        assert "\tsyscall" not in code and "\tsvc" not in code
