"""A log file whose new lines appear above the line being typed."""
import _thread
import os
import signal
import sys
import threading
import time
from contextlib import suppress
from typing import IO, List

import Keyline
import screen


KEYS = {signal.SIGINT, signal.SIGTSTP}


class Log:
    def __init__(self, path: str) -> None:
        self.path = path
        self.over = threading.Event()
        self.writers: List[threading.Thread] = []
        # The module only borrows the callable.  A bound method is made anew at each look,
        # so it needs a name that lives as long as the log may be shown.
        self.callable = self.on_news

    def show(self) -> None:
        with open(self.path, "rb"):  # raises what the module would only print
            Keyline.loggingSyncEnabledIs(self.path, self.callable)

    def hide(self) -> None:
        Keyline.loggingSyncEnabledIs(self.path)

    def on_news(self, descriptor: int, length: int) -> int:
        """Prints new lines; returns 1 for prompt and line to be drawn again below them.

        Called while the user types.  Ctrl-C and Ctrl-Z that hit it end the process: they are
        held back, and sent again when it is over.  Only those that come before the first or
        after the last statement still do.
        """
        signal.pthread_sigmask(signal.SIG_BLOCK, KEYS)
        try:
            return self.print_news(descriptor, length)
        finally:
            held = []
            while signal.sigpending() & KEYS:
                held.append(signal.sigwait(KEYS))
            signal.pthread_sigmask(signal.SIG_UNBLOCK, KEYS)
            for number in held:  # it gets to run when this thread gives up the lock
                _thread.start_new_thread(os.kill, (os.getpid(), number))

    def print_news(self, descriptor: int, length: int) -> int:
        """Raises nothing, since nobody would catch it."""
        text = os.read(descriptor, length).decode(sys.stdout.encoding, "backslashreplace")
        if not text.endswith("\n"):  # of a line that is very long, or never ended
            text += "\n"
        with suppress(OSError):  # no terminal any more
            return int(screen.replace(screen.visible(text)))
        return 0

    def write_test(self, count: int, rate: int) -> None:
        """Writes lines, all at once or that many a second while the shell goes on."""
        file = open(self.path, "a")
        work = file, self.over, count, rate
        if rate == 0:
            self._write(*work)
        else:
            self.writers.append(threading.Thread(target=self._write, args=work, daemon=True))
            self.writers[-1].start()

    def stop_test(self) -> None:
        """For the end.  Returns when the lines that were begun are whole."""
        self.over.set()
        for writer in self.writers:
            writer.join()

    @staticmethod
    def _write(file: IO[str], over: threading.Event, count: int, rate: int) -> None:
        with file:
            for number in range(1, count + 1):
                if rate and over.wait(1 / rate):
                    break
                stamp = time.strftime("%b %d %H:%M:%S")
                print("%s %%TEST-6: line %d of %d" % (stamp, number, count), file=file,
                      flush=rate > 0)
