"""The small shell inside the child.

Started as `python child.py SCRIPT LINK OTHER PIPE [session]`: it runs the test's own script with
the helpers below in its namespace. Facts go to the test through the descriptor LINK, a literal
per line, never through the terminal, so that the screen shows what a user sees. OTHER is a
second terminal and PIPE a pipe to write into, for the script's own use; "-" is none. With
`session` it makes standard input its session's terminal, so that Ctrl-C is a signal: where the
test's process does that, it must fork, which takes it longer.
"""
import atexit
import ctypes
import fcntl
import os
import signal
import sys
import termios
import threading

link, other_terminal, output_pipe = [
    None if number == "-" else int(number) for number in sys.argv[2:5]]
libc = ctypes.CDLL(None)
prompts = 0
tell_lock = threading.RLock()  # a signal handler may tell, too
received = []


def tell(name, value=None):
    """Sends the test one fact: a name and a value that ast.literal_eval can read back."""
    with tell_lock:
        os.write(link, (ascii((name, value)) + "\n").encode())


def wait_for(word):
    """Blocks until the test calls go(word). One thread of a script may wait at a time."""
    while word not in received:
        words = os.read(link, 4096).decode().split()
        if not words:
            os._exit(70)  # the test is gone
        received.extend(words)
    received.remove(word)


def beside(function, *arguments):
    """Runs function on a thread of its own that never keeps the child from ending."""
    thread = threading.Thread(target=function, args=arguments, daemon=True)
    thread.start()
    return thread


def next_prompt():
    """A prompt that no read had before: its number tells a new one from a redraw."""
    global prompts
    prompts += 1
    return "%d> " % prompts


def new_row():
    """Moves the cursor off an abandoned line, as every shell does, where it can."""
    try:
        os.write(1, b"\n")
    except OSError:
        pass


def attempt(function, *arguments, watched=True):
    """Calls function; tells ("line", result) or ("raised", (type, message)).

    Whichever way the read ended, the terminal's settings and the signals are as it found
    them; if not, that is told too and fails the test. watched=False leaves out the signals.
    """
    before = settings(), watched and dispositions()
    try:
        result = function(*arguments)
        told = "line", result
    except BaseException as error:  # KeyboardInterrupt is what many tests are about
        result = None
        new_row()
        told = "raised", (type(error).__name__, str(error))
    after = settings(), watched and dispositions()
    hung_up = before[0] and not after[0]
    if after != before and not hung_up:
        tell("changed", (before, after))
    tell(*told)
    return result


def read(*arguments):
    """One line through readline: read(callback, key, parent), all optional."""
    import Keyline

    return attempt(Keyline.readline, next_prompt(), *arguments)


def simple_read(watched=True):
    """One line through simpleReadline."""
    import Keyline

    return attempt(Keyline.simpleReadline, next_prompt(), watched=watched)


def raises(function, *arguments, **keywords):
    """The (type, message) that a call raises, or None; for tests that need no terminal."""
    try:
        function(*arguments, **keywords)
    except Exception as error:
        return type(error).__name__, str(error)
    return None


WATCHED = ("SIGHUP", "SIGINT", "SIGQUIT", "SIGTERM", "SIGCONT", "SIGTSTP", "SIGWINCH")


SA_RESTORER = 0x04000000  # set by the C library


class SignalSet(ctypes.Structure):
    """1,024 signals, on every machine."""

    _fields_ = [("bits", ctypes.c_ulong * (1024 // 8 // ctypes.sizeof(ctypes.c_ulong)))]


class SignalAction(ctypes.Structure):
    """The C library's struct sigaction."""

    _fields_ = [("handler", ctypes.c_void_p)] + (
        [("reserved", ctypes.c_int), ("flags", ctypes.c_int), ("restorer", ctypes.c_void_p),
         ("mask", SignalSet)] if os.uname().machine == "s390x" else
        [("mask", SignalSet), ("flags", ctypes.c_int), ("restorer", ctypes.c_void_p)])


def dispositions():
    """The kernel's handler and flags of each signal that the editor takes; the blocked ones."""
    found = []
    for name in WATCHED:
        action = SignalAction()
        libc.sigaction(int(getattr(signal, name)), None, ctypes.byref(action))
        found.append((name, action.handler or 0, action.flags & ~SA_RESTORER))
    blocked = sorted(int(number) for number in signal.pthread_sigmask(signal.SIG_BLOCK, []))
    return found, blocked


class Account(ctypes.Structure):
    """What mallinfo2() returns, or mallinfo(), which counts in int."""

    _fields_ = [(name, ctypes.c_size_t if hasattr(libc, "mallinfo2") else ctypes.c_uint)
                for name in ("arena ordblks smblks hblks hblkhd usmblks fsmblks uordblks "
                             "fordblks keepcost").split()]


account = libc.mallinfo2 if hasattr(libc, "mallinfo2") else libc.mallinfo
account.restype = Account


def allocated():
    """Bytes that the C library has handed out."""
    found = account()
    return found.uordblks + found.hblkhd


def settings():
    """The settings of the terminal on standard input; None when there is none."""
    try:
        return termios.tcgetattr(0)
    except termios.error:
        return None


# A bystander's program. It collects every signal. When the child asks or has ended, it writes
# down those that a process sent, not the kernel: number and sender.
BYSTANDER = """
import os, signal, sys
numbers = {getattr(signal, name) for name in %r}
signal.pthread_sigmask(signal.SIG_BLOCK, numbers)
print("ready", flush=True)
sys.stdin.readline()
seen = []
while True:
    found = signal.sigtimedwait(numbers, 0)
    if found is None:
        break
    if found.si_pid:
        seen.append((found.si_signo, found.si_pid))
with open("bystander.part", "w") as file:
    print(seen, file=file)
os.rename("bystander.part", "bystander")
""" % (WATCHED,)


class Bystander:
    """A process in the child's process group, off the terminal, that signals may hit."""

    def __init__(self):
        import subprocess

        self.process = subprocess.Popen(
            [sys.executable, "-S", "-c", BYSTANDER], stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            env={**os.environ, "LD_PRELOAD": ""})  # no sanitizer looks at it
        assert os.getpgid(self.process.pid) == os.getpgrp()
        self.process.stdout.readline()

    def seen(self):
        """Ends it; answers the signals that processes sent to it."""
        self.process.communicate(b"\n")
        with open("bystander") as file:
            return file.read().strip()


def look_for_leaks():
    """Looks before the other threads end: what they hold would then look lost."""
    if threading.active_count() > 1:
        libc.__lsan_do_leak_check()


def main():
    for number in (link, other_terminal, output_pipe):
        if number is not None:
            os.set_inheritable(number, False)
    path = sys.argv[1]
    if sys.argv[5:] == ["session"]:
        fcntl.ioctl(0, termios.TIOCSCTTY, 0)
    early = hasattr(sys.modules.get("sitecustomize"), "look")  # and better: see leaks/ there
    if hasattr(libc, "__lsan_do_leak_check") and not early:
        atexit.register(look_for_leaks)
    wait_for("start")
    with open(path, encoding="utf-8") as file:
        code = compile(file.read(), path, "exec")
    space = {name: value for name, value in globals().items() if not name.startswith("_")}
    try:
        exec(code, space)
    except Exception as error:
        tell("exception", (type(error).__name__, str(error)))
        raise


main()
