"""The driver's end of a terminal, and of a child on a pseudo terminal behind it.

The terminal's own line is handed over by holder.py.  All that the child writes goes to the
terminal unchanged; all that the terminal answers goes to the child, but for answers to the
driver's own questions.  So the driver types without the window's help, and knows when the
terminal has taken everything.
"""
import fcntl
import os
import re
import select
import signal
import socket
import struct
import termios
import threading
import time

from pty_child import open_terminal, set_window, start_at, window

DEADLINE = 20  # seconds; only a terminal or a child that hangs meets it
# What kind of terminal it is: all answer it in turn, and no child asks it.
QUESTION, ANSWER = b"\x1b[c", re.compile(rb"\x1b\[\?[\d;]*c")


class Lost(Exception):
    """What was waited for did not come."""


def wait_until(what, state):
    limit = time.monotonic() + DEADLINE
    while not state():
        if time.monotonic() > limit:
            raise Lost("waited for: " + what)
        time.sleep(0.001)


class Line:
    """The line to one terminal, from the moment that the holder calls."""

    def __init__(self, folder):
        self.path = os.path.join(folder, "holder")
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(self.path)
        self.listener.listen()
        self.lock = threading.Lock()
        self.tty = self.link = self.thread = self.child = None
        self.master = self.slave = None
        self.over = False
        self.environment = {}
        self.asked = 0  # questions of the driver without an answer yet
        self.output = b""  # of the child

    def close(self):
        self.over = True
        if self.thread:
            self.thread.join()
        self.end_child()
        for thing in (self.link, self.listener):
            if thing:
                thing.close()
        if self.tty is not None:
            os.close(self.tty)
            self.tty = None

    def accept(self):
        self.listener.settimeout(DEADLINE)
        try:
            self.link, _ = self.listener.accept()
        except socket.timeout:
            raise Lost("the terminal did not start") from None
        environment, descriptors, _, _ = socket.recv_fds(self.link, 65536, 1)
        self.environment = dict(
            pair.split("=", 1) for pair in environment.decode().split("\0"))
        self.tty = descriptors[0]
        self.thread = threading.Thread(target=self._pump, daemon=True)
        self.thread.start()

    # The pump

    def _pump(self):
        while not self.over:
            sources = [self.tty, self.link] + ([] if self.master is None else [self.master])
            try:
                for source in select.select(sources, [], [], 0.02)[0]:
                    self._move(source)
            except (OSError, ValueError):
                if not self.over:
                    time.sleep(0.001)

    def _move(self, source):
        if source is self.link:
            if not self.link.recv(1):
                self.over = True
            if self.master is not None:
                set_window(self.master, *window(self.tty))
        elif source == self.tty:
            self._from_terminal(os.read(self.tty, 65536))
        else:
            with self.lock:
                data = os.read(self.master, 65536)
                self.output += data
            self.write(data)

    def _from_terminal(self, data):
        with self.lock:
            data, count = ANSWER.subn(b"", data, self.asked)
            self.asked -= count
        if data and self.master is not None:
            os.write(self.master, data)

    # The terminal

    def write(self, data):
        """To the terminal."""
        if isinstance(data, str):
            data = data.encode()
        view = memoryview(data)
        while view:
            view = view[os.write(self.tty, view):]

    def sync(self):
        """Waits until the terminal has taken what was written to it."""
        with self.lock:
            self.asked += 1
        self.write(QUESTION)
        wait_until("an answer of the terminal", lambda: not self.asked)

    def window(self):
        """Columns and rows."""
        return window(self.tty)[::-1]

    def cell(self):
        """Width and height of a cell in pixels."""
        rows, columns, width, height = struct.unpack(
            "4H", fcntl.ioctl(self.tty, termios.TIOCGWINSZ, b"\0" * 8))
        return width // columns, height // rows

    # The child

    def start_child(self, command, environment):
        master, self.slave = open_terminal(*window(self.tty))
        self.output = b""
        self.child = start_at(self.slave, command, environment)
        self.master = master

    def end_child(self):
        if self.child:
            self.child.kill()
            self.child.send_signal(signal.SIGCONT)
            self.child.wait()
            self.child = None
            os.close(self.slave)
            master, self.master = self.master, None
            time.sleep(0)
            os.close(master)

    def keys(self, data):
        os.write(self.master, data.encode() if isinstance(data, str) else data)

    def state(self):
        with open("/proc/%d/stat" % self.child.pid, "rb") as file:
            return file.read().rpartition(b")")[2].split()[0]

    def _is_quiet(self):
        """Whether the child has slept for some looks, with nothing to read or to pass on."""
        return all(self._sleeps() for _ in range(3))

    def _sleeps(self):
        if self.child.poll() is not None:
            raise Lost("the child has ended: %r" % self.output[-300:])
        with self.lock:
            more = select.select([self.master], [], [], 0)[0]
        if more or window(self.slave) != window(self.tty):
            return False
        unread = struct.unpack("i", fcntl.ioctl(self.slave, termios.FIONREAD, b"\0" * 4))[0]
        return self.state() == b"T" or self.state() == b"S" and not unread

    def rest(self):
        """Waits until the child sleeps, and the terminal has nothing more to show or to say."""
        written = -1
        while written != len(self.output):
            wait_until("rest", self._is_quiet)
            written = len(self.output)
            self.sync()  # what the child asked the terminal is answered before
            wait_until("rest", self._is_quiet)

    def expect(self, first, then=b""):
        """Waits for output with the one behind the other, and for rest."""
        wait_until("%r and %r" % (first, then), lambda: then in self.output.partition(first)[2]
                   and first in self.output)
        self.rest()
