"""Which thread waits for keys, and how others end that: an idle timeout, SIGTERM.

Only an interrupt on the thread that reads ends a read of the editor early.  It is sent again
until the read has ended, because one that arrives just before the read is lost.
"""
import fcntl
import os
import signal
import struct
import threading
import time
from contextlib import contextmanager, suppress
from typing import Callable, Iterable, Iterator, Optional

F_SETOWN_EX, F_SETSIG, F_OWNER_TID = 15, 10, 0  # of fcntl, where Python has no names
POLL_OUT = 2  # si_code of SIGIO: output is possible, so no key
AGAIN = 0.1  # seconds between two interrupts


class Reader:
    """The one thread of the shell that reads."""

    def __init__(self) -> None:
        self.thread: Optional[int] = None  # while it waits
        self.since = 0.0
        self.editing = False  # it waits in the editor
        self.over = ""  # why the session is over
        self.begun: Optional[Callable[[], None]] = None  # called when it begins to wait

    @contextmanager
    def waiting(self, editing: bool = False) -> Iterator[None]:
        self.since, self.editing = time.monotonic(), editing
        self.thread = threading.get_ident()
        try:
            if self.over:
                raise KeyboardInterrupt(self.over)
            if self.begun:
                self.begun()
            yield
        finally:
            self.thread, self.editing = None, False

    def end(self, why: str) -> None:
        """Called on another thread; returns when the reader does not wait any more."""
        self.over = why
        while True:
            thread = self.thread
            if thread is None:
                return
            signal.pthread_kill(thread, signal.SIGINT)
            time.sleep(AGAIN)


reader = Reader()  # one user per process, as there is one editor


class Idle:
    """Ends the reader when no key has come for so many seconds.

    The terminal sends SIGIO for each key to a thread of this class, which waits for it.  Output
    at the prompt meanwhile, such as log lines, does not count.
    """

    def __init__(self, fd: int, seconds: float, warning: float,
                 warn: Callable[[], None]) -> None:
        self.fd, self.seconds, self.warn = fd, seconds, warn
        self.quiet = max(0.0, seconds - warning)
        self.stopped = False
        self.ready, self.done = threading.Event(), threading.Event()
        self.thread = threading.Thread(target=self._run, daemon=True)
        self.thread.start()
        self.ready.wait()
        self.flags = fcntl.fcntl(fd, fcntl.F_GETFL)
        fcntl.fcntl(fd, F_SETSIG, signal.SIGIO)
        fcntl.fcntl(fd, F_SETOWN_EX, struct.pack("ii", F_OWNER_TID, self.thread.native_id or 0))
        fcntl.fcntl(fd, fcntl.F_SETFL, self.flags | os.O_ASYNC)
        reader.begun = self._wake

    def stop(self) -> None:
        reader.begun, self.stopped = None, True
        with suppress(OSError):  # closed
            fcntl.fcntl(self.fd, fcntl.F_SETFL, self.flags)
            fcntl.fcntl(self.fd, F_SETSIG, 0)
            fcntl.fcntl(self.fd, fcntl.F_SETOWN, 0)
        self._wake()
        self.done.set()
        self.thread.join()

    def _wake(self) -> None:
        """The thread exists until `done` is set."""
        signal.pthread_kill(self.thread.ident or 0, signal.SIGIO)

    def _run(self) -> None:
        signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGIO})
        self.ready.set()
        while not self.stopped:
            self._watch()
        self.done.wait()

    def _watch(self) -> None:
        """Waits for the next key; warns the user and ends the reader in time."""
        last, warned = time.monotonic(), False
        while True:
            left = None
            if reader.thread is not None and not reader.over:
                quiet = time.monotonic() - max(last, reader.since)
                if quiet >= self.seconds:
                    reader.end("idle")
                    continue
                if quiet >= self.quiet and not warned:
                    warned = True
                    self.warn()
                left = (self.seconds if warned else self.quiet) - quiet
            found = (signal.sigwaitinfo({signal.SIGIO}) if left is None
                     else signal.sigtimedwait({signal.SIGIO}, max(left, 0)))
            if found is not None and found.si_code != POLL_OUT:
                return


class Ends:
    """Makes these signals end the reader at once; their handlers run after that."""

    def __init__(self, numbers: Iterable[int]) -> None:
        self.numbers = set(numbers)
        self.told, self.telling = os.pipe()
        os.set_blocking(self.telling, False)
        self.before = -1
        self.thread = threading.Thread(target=self._run, daemon=True)
        self.thread.start()
        self.before = signal.set_wakeup_fd(self.telling, warn_on_full_buffer=False)

    def stop(self) -> None:
        signal.set_wakeup_fd(self.before)
        os.write(self.telling, b"\0")
        self.thread.join()
        os.close(self.told)
        os.close(self.telling)

    def again(self) -> None:
        """A command may have set another wake-up descriptor, as event loops do."""
        signal.set_wakeup_fd(self.telling, warn_on_full_buffer=False)

    def _run(self) -> None:
        while True:
            for number in os.read(self.told, 64):
                if number == 0:
                    return
                if number in self.numbers:
                    reader.end(signal.Signals(number).name)
