"""The terminal and the processes in which scenarios are played.

This process leads a session of its own on a pseudo terminal; each scenario is played in a
child that it forks, which is warmed up and may die of it. One process types and reads, so
it opens the terminal itself, and for itself, where tools/pty_child.py starts another program.
"""
import ctypes
import fcntl
import gc
import json
import os
import pty
import signal
import struct
import sys
import termios
import threading

import calling
import interposer
import scenarios

NOISE = 12  # bytes a play; the smallest piece of memory takes 32
LONGER = 5  # times as many plays, where noise is to be small
DEADLINE = float(os.environ.get("KEYLINE_TEST_DEADLINE", "30"))
TYPED = (signal.SIGINT, signal.SIGQUIT, signal.SIGTSTP, signal.SIGHUP, signal.SIGTERM,
         signal.SIGCONT, signal.SIGWINCH, signal.SIGTTOU, signal.SIGTTIN)


def set_up(module, library):
    """A session and a terminal; descriptor 2 becomes the file "stderr"."""
    if os.getsid(0) != os.getpid():
        os.setsid()
    master, slave = pty.openpty()
    fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("4H", 24, 80, 0, 0))
    set_controlling_terminal(slave)
    os.set_blocking(master, False)
    for number in (0, 1):
        os.dup2(slave, number)
    os.dup2(os.open("stderr", os.O_RDWR | os.O_CREAT | os.O_APPEND), 2)
    for number in TYPED:  # what is typed reaches this process too
        signal.signal(number, signal.SIG_IGN)
    interposer.attach(module, library)
    interposer.state.master, interposer.state.slave = master, slave


def set_controlling_terminal(slave):
    """Makes it the controlling terminal of this process's session."""
    fcntl.ioctl(slave, termios.TIOCSCTTY, 0)


def reach(level):
    """Brings this process to where the scenario begins."""
    signal.setitimer(signal.ITIMER_REAL, DEADLINE)
    if level != "loaded":
        __import__("Keyline")
    if level == "used":
        # A read's waits are given keys only while its calls count.
        for name in ("line", "completed", "log_news", "recalled"):
            with interposer.counting():
                scenarios.SCENARIOS[name]()
    signal.setitimer(signal.ITIMER_REAL, 0)


def forked_telling(play, told, *arguments):
    """Plays in a child of its own: told(...) is called with each thing that it tells.

    Answers what play(..., tell) answers there, None if it did not get there, and the status.
    """
    reading, writing = os.pipe()
    child = os.fork()
    if child == 0:
        try:
            os.close(reading)
            for number in TYPED:
                signal.signal(number, signal.SIG_DFL)
            signal.signal(signal.SIGINT, signal.default_int_handler)
            signal.setitimer(signal.ITIMER_REAL, DEADLINE)
            file = open(writing, "w", buffering=1)

            def tell(value):
                file.write(json.dumps(value) + "\n")

            tell({"answer": play(*arguments, tell)})
            os._exit(0)
        except BaseException:
            sys.excepthook(*sys.exc_info())
            os._exit(70)
    os.close(writing)
    answer = None
    with open(reading) as file:
        for line in file:
            value = json.loads(line)
            if "answer" in value:
                answer = value["answer"]
            else:
                told(value)
    return answer, os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


def forked(play, *arguments):
    """The same for a play that answers only in the end."""
    return forked_telling(lambda *given: play(*given[:-1]), None, *arguments)


def clean_terminal(found):
    """After a child: whether it left the settings; then they are put right."""
    now = termios.tcgetattr(0)
    termios.tcsetattr(0, termios.TCSANOW, found)
    termios.tcflush(0, termios.TCIFLUSH)
    fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("4H", 24, 80, 0, 0))
    try:
        while os.read(interposer.state.master, 65536):
            pass
    except BlockingIOError:
        pass
    return now == found


def stderr():
    """What was written there since the last look."""
    size = os.lseek(2, 0, os.SEEK_END)
    os.lseek(2, 0, os.SEEK_SET)
    text = os.read(2, min(size, 4000)).decode("utf-8", "replace")
    os.ftruncate(2, 0)
    return text


# ---- in the child ----

def as_before():
    """Everything that scenarios switch is as the first of them found it, the time left too."""
    signal.setitimer(signal.ITIMER_REAL, DEADLINE)
    Keyline = sys.modules.get("Keyline")
    if interposer.state.log >= 0:
        try:
            os.close(interposer.state.log)
        except OSError:  # an interrupt came right behind the scenario's own
            pass
        interposer.state.log = -1
    termios.tcflush(0, termios.TCIFLUSH)
    if Keyline and scenarios.LEVELS.index(as_before.level) == 2:
        Keyline.loggingSyncEnabledIs("")
        Keyline.historyLimitIs(1024)
        Keyline.clearHistory()
        Keyline.keyBindingsEnabledIs(True)
        Keyline.TerminalWidthIs(80)
        fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("4H", 24, 80, 0, 0))


def found():
    return termios.tcgetattr(0)[:6] + [interposer.dispositions()]


def played(scenario, refused=0):
    """The scenario's outcome, or what went through it."""
    calling.begin(refused)
    try:
        return json.loads(json.dumps(scenario()))
    except BaseException as error:
        return [["through the scenario", type(error).__name__, str(error)]]
    finally:
        calling.refused = 0


def last_read():
    """A read whose keys another thread of the interpreter types, once it waits for them."""
    import Keyline

    def type_line():
        while not interposer.state.waits and not over:
            pass
        os.write(interposer.state.master, b"last\r")

    over = []
    interposer.state.feeding = 0
    thread = threading.Thread(target=type_line)
    with interposer.counting():
        thread.start()
        result = calling.do(Keyline.readline, "> ")
    over.append(True)
    thread.join()
    return list(result)


def growth(play, times):
    """Bytes and descriptors that one play leaves behind, after some to get warm.

    Counted over `times` plays, three times, smallest first: what only moves about, or is made
    once, is not in all of them.
    """
    for _ in range(3):
        play()
    counts = [account()]
    for _ in range(3):
        for _ in range(times):
            play()
        counts.append(account())
    return [sorted((after[kind] - before[kind]) / times
                   for before, after in zip(counts, counts[1:]))
            for kind in (0, 1)]


def leak(play, times, usual):
    """Bytes and descriptors that each play loses and the usual one does not, or None.

    Where it may be more than noise it is counted again, over as many plays as the usual growth:
    a piece of memory takes up to 16 bytes more or less than the one before it, and in few
    plays that looks like much.
    """
    for plays in (times, LONGER * times):
        size, files = [counts[0] - often[1]
                       for counts, often in zip(growth(play, plays), usual)]
        if size <= NOISE and files <= 0:
            return None
    return size, files


def account():
    """Bytes that the C library has handed out, and open descriptors.

    Without those that the interpreter keeps: in its cache of attributes a name that is made for
    one look, as the module does for "flush", stays until another takes its place.
    """
    gc.collect()
    ctypes.pythonapi.PyType_ClearCache()
    return interposer.memory(), len(os.listdir("/proc/self/fd"))
