"""The terminal that the tests sit at.

A Terminal starts a script (see child.py) on a pseudo terminal of its own, of fixed type and
size, with a fixed locale and an otherwise empty environment. pyte is the screen. Keys are given
by name: send("show<tab>"), "<c-c>", "<up>", "<0xe9>". Nothing sleeps: every wait is for a state,
with one generous deadline, and meanwhile what the child writes is read. A wait that fails reports
facts, output, screen and the last messages.
"""
import ast
import collections
import fcntl
import os
import re
import select
import shutil
import signal
import socket
import sys
import termios
import time

from pty_child import open_terminal, set_window, start_at
from screen import Display, changed_settings, keys
from script import CHILD, DEADLINE, RESULTS, Failure, ended, environment, write_script

ANYTHING = object()
TIOCGPTPEER = 0x5441  # opens the other side of a pseudo terminal


class Terminal:
    """One child at a terminal. script is Python text, run with the helpers of child.py.

    change_settings(settings) may alter the terminal's settings before the script runs.
    other=True adds a second terminal, pipe=True a pipe to write into; the script finds them
    as other_terminal and output_pipe.
    """

    def __init__(self, setup, script, rows=24, columns=80, env=None, change_settings=None,
                 other=False, pipe=False):
        self.setup = setup
        self.born = self.heard = time.monotonic()
        self.messages = collections.deque(maxlen=10)
        self.display = Display(rows, columns)
        self.other = Display(24, 80) if other else None
        self.piped = bytearray()
        self.facts, self.half_fact = [], b""
        self.prompt = 0
        self.status = None
        self.end_stated = False
        self.home, path = write_script(script)
        self.link, link = socket.socketpair()
        self.sources = {self.link.fileno(): self._take_facts}
        self.other_master, other_slave = open_terminal() if other else (None, None)
        self.pipe_end, writing = os.pipe() if pipe else (None, None)
        if other:
            self.sources[self.other_master] = self.other.feed
        if pipe:
            self.sources[self.pipe_end] = self.piped.extend
        given = [link.fileno(), other_slave, writing]
        numbers = ["-" if fd is None else str(fd) for fd in given]
        self.master, slave = open_terminal(rows, columns)
        self.process = start_at(
            slave, [setup.interpreter, CHILD, path] + numbers + ["session"],
            environment(setup, self.home, env), cwd=self.home, controlling=False,
            pass_fds=[fd for fd in given if fd is not None])
        os.close(slave)
        link.close()
        if pipe:
            os.close(writing)
        # Both stay open here, so that the settings can be asked for after the child's end.
        self.other_slave = other_slave
        self.slave = fcntl.ioctl(self.master, TIOCGPTPEER, os.O_RDWR | os.O_NOCTTY)
        os.set_blocking(self.master, False)
        self.sources[self.master] = self._take_output
        self.pidfd = os.pidfd_open(self.process.pid)
        if change_settings:
            settings = termios.tcgetattr(self.slave)
            change_settings(settings)
            termios.tcsetattr(self.slave, termios.TCSANOW, settings)
        self.found = self.settings()
        self.go("start")

    # What comes in

    def _note(self, direction, text):
        self.messages.append((time.monotonic() - self.born, direction, text))

    def _take_output(self, data):
        self._note("received", repr(data.decode("utf-8", "backslashreplace")))
        self.display.feed(data)

    def _take_facts(self, data):
        *lines, self.half_fact = (self.half_fact + data).split(b"\n")
        for line in lines:
            self._note("fact", line.decode())
            self.facts.append(ast.literal_eval(line.decode()))

    def _take(self, fd):
        """Takes one piece of what fd has; an ended source is dropped."""
        try:
            data = os.read(fd, 65536)
        except BlockingIOError:
            return
        except OSError:  # a terminal whose other side is closed
            data = b""
        if data:
            self.heard = time.monotonic()
            self.sources[fd](data)
        else:
            del self.sources[fd]
            if fd in (self.pipe_end, self.other_master):
                os.close(fd)

    def _pump(self, limit):
        """Takes what is there, waiting for at most limit seconds; sees the child's end."""
        waiting = list(self.sources) + ([self.pidfd] if self.status is None else [])
        for fd in select.select(waiting, [], [], limit)[0]:
            if fd != self.pidfd:
                self._take(fd)
            elif self.process.poll() is not None:
                self._ended()

    def _ended(self):
        """Notes how the child ended, and reads the rest of its output."""
        self.status = self.process.returncode
        self._note("ended", ended(self.status))
        self.last_settings = self.settings()
        if self.slave is not None:
            os.close(self.slave)
        if self.other:
            os.close(self.other_slave)
        limit = time.monotonic() + DEADLINE
        while self.sources and time.monotonic() < limit:
            self._pump(1)
        if self.sources:
            raise self._failure("the end of the output: another process still holds it")

    def wait(self, what, ready, outlived=False):
        """Waits until ready() answers something true, and answers that.

        The child's end ends the wait too, unless something outlives it. A child that goes on
        writing has ten times as long: its speed is not tested.
        """
        __tracebackhide__ = True
        begun = time.monotonic()
        while True:
            limit = min(max(begun, self.heard) + DEADLINE, begun + 10 * DEADLINE)
            over = self.status is not None and not outlived or time.monotonic() > limit
            if any(name == "changed" for name, value in self.facts):
                raise self._failure("terminal and signals as the read found them")
            value = ready()
            if value:
                return value
            if over:
                raise self._failure(what)
            self._pump(0.01)

    # What goes out

    def send(self, text, size=256, pause=0):
        """Types keys as fast as the terminal takes them, or in pieces with pauses."""
        data = keys(text)
        self._note("sent", repr(data[:200].decode("utf-8", "backslashreplace")))
        self._type(self.master, data, size, pause)

    def send_other(self, text):
        """Types keys at the second terminal."""
        self._type(self.other_master, keys(text))

    def _type(self, fd, data, size=256, pause=0):
        limit = time.monotonic() + DEADLINE
        while data:
            if time.monotonic() > limit or self.status is not None:
                raise self._failure("the terminal to take %d more bytes" % len(data))
            self._pump(0)
            if select.select([], [fd], [], 0.01)[1]:
                try:
                    data = data[os.write(fd, data[:size]):]
                    limit = time.monotonic() + DEADLINE
                except BlockingIOError:
                    pass
                if pause:
                    time.sleep(pause)  # part of the input

    def go(self, word):
        """Lets the script's wait_for(word) return."""
        self._note("told", word)
        try:
            self.link.sendall(word.encode() + b"\n")
        except BrokenPipeError:
            self.wait("the child, to be told: " + word, lambda: False)

    def signal(self, number):
        """Sends a signal to the child alone, never to its group."""
        self._note("signal", signal.Signals(number).name)
        os.kill(self.process.pid, number)

    def resize(self, rows, columns):
        """Gives the window a new size; the kernel tells the child."""
        self._note("resized", "%dx%d" % (rows, columns))
        self.display.screen.resize(rows, columns)
        set_window(self.master, rows, columns)

    def hang_up(self):
        """Takes the terminal away, as the end of a remote login does."""
        self._note("sent", "hang-up")
        del self.sources[self.master]
        os.close(self.slave)
        self.slave = None
        os.close(self.master)
        self.master = None

    # What is expected

    def expect_prompt(self, display=None):
        """Waits for a prompt with a number that was not seen before; ESC 7 is not one."""
        __tracebackhide__ = True
        display = display or self.display

        def found():
            for match in re.finditer(rb"(?<![0-9\x1b])([0-9]+)> ", display.raw):
                if int(match.group(1)) > self.prompt:
                    return match
            return None

        match = self.wait("a new prompt, after %d" % self.prompt, found)
        self.prompt = int(match.group(1))

    def expect_fact(self, name, value=ANYTHING):
        """Waits for the next fact of that name; "line" and "raised" are one queue."""
        __tracebackhide__ = True
        names = RESULTS if name in RESULTS else (name,)
        what = name if value is ANYTHING else "%s %r" % (name, value)
        fact = self.wait("the fact " + what, lambda: next(
            (fact for fact in self.facts if fact[0] in names), None))
        self.facts.remove(fact)
        if fact[0] != name or value is not ANYTHING and fact[1] != value:
            raise self._failure("the fact %s, but the child told %s %r" % (what, *fact))
        return fact[1]

    def expect_line(self, line):
        __tracebackhide__ = True
        return self.expect_fact("line", line)

    def enter(self, keys, line=None):
        """At a new prompt, types keys and Enter; the read gives line, or what was typed."""
        __tracebackhide__ = True
        self.expect_prompt()
        self.send(keys + "<enter>")
        self.expect_line(keys if line is None else line)

    def expect_raised(self, name, message):
        __tracebackhide__ = True
        return self.expect_fact("raised", (name, message))

    def shown(self, display=None, redrawn=False):
        """The rows on the screen from the newest prompt's row on.

        A completion draws prompt and line again behind what was there, deliberately; with
        redrawn the row counts from the last drawing on.
        """
        rows = (display or self.display).rows()
        prompt = "%d>" % self.prompt
        starts = [index for index, row in enumerate(rows)
                  if row.startswith(prompt) or redrawn and prompt in row]
        rows = rows[starts[-1]:] if starts else []
        if rows and redrawn:
            rows[0] = rows[0][rows[0].rindex(prompt):]
        return rows

    def expect_shown(self, *rows, display=None, redrawn=False):
        """Waits until the newest prompt is followed by these texts, one a row."""
        __tracebackhide__ = True
        wanted = [("%d> %s" % (self.prompt, rows[0])).rstrip()] + list(rows[1:])

        def equal():
            seen = self.shown(display, redrawn)
            return seen[:len(wanted)] == wanted and not any(seen[len(wanted):])

        self.wait("the screen to show %r from the prompt on" % wanted, equal)

    def wait_screen(self, what, predicate):
        """Waits until predicate(rows of the screen) is true."""
        __tracebackhide__ = True
        return self.wait(what, lambda: predicate(self.display.rows()))

    def type(self, keys, *rows, redrawn=False):
        """At a new prompt, types keys; the screen shows them behind it, or these rows."""
        __tracebackhide__ = True
        self.expect_prompt()
        self.send(keys)
        self.expect_shown(*(rows or (keys,)), redrawn=redrawn)

    def expect_cursor(self, row, column):
        """Waits until the cursor stands there; the row counts from the newest prompt's."""
        __tracebackhide__ = True

        def there():
            start = len(self.display.rows()) - len(self.shown())
            return self.display.cursor() == (start + row, column)

        self.wait("the cursor at %d, %d" % (row, column), there)

    def expect_taken(self):
        """Waits until the child has read every key that was typed.

        select(), unlike FIONREAD, first delivers what the kernel still buffers.
        """
        __tracebackhide__ = True
        self.wait("the child to take every key",
                  lambda: not select.select([self.slave], [], [], 0)[0])

    def settings(self):
        """The terminal's settings now; None after a hang-up."""
        return None if self.slave is None else termios.tcgetattr(self.slave)

    def assert_settings_as_found(self):
        """The terminal has, or had at the child's end, the settings from before the script.

        Each read checks this in the child too (child.py: attempt), and expect_end does.
        """
        __tracebackhide__ = True
        now = self.settings() if self.status is None else self.last_settings
        if now != self.found:
            raise self._failure("the settings as they were; changed: "
                              + ", ".join(changed_settings(self.found, now)))

    # How it ends

    def expect_end(self, end="clean"):
        """Waits for the child's end: "clean", "exception" or a signal's name.

        Unless a check failed, it has restored the terminal's settings.
        """
        __tracebackhide__ = True
        self.end_stated = True
        self.wait("the child's end (%s)" % end, lambda: self.status is not None)
        if ended(self.status) != end:
            raise self._failure("the child to end as: " + end)
        if self.facts:
            raise self._failure("no more facts, but there are %r" % self.facts)
        if self.last_settings and end != "SIGABRT":
            self.assert_settings_as_found()

    def expect_bystander(self, seen="[]"):
        """Waits for what the bystander wrote down after the child's end."""
        __tracebackhide__ = True
        path = os.path.join(self.home, "bystander")
        self.wait("the bystander's note", lambda: os.path.exists(path), outlived=True)
        with open(path, encoding="utf-8") as file:
            found = file.read().strip()
        if found != seen:
            raise self._failure("the bystander to see %s, not %s" % (seen, found))

    def expect_abort(self, expression, line, function):
        """Waits for the child's end by a failed check, and for its whole report."""
        __tracebackhide__ = True
        self.expect_end("SIGABRT")
        report = "Cli/Keyline:%d: %s: Assertion `%s' failed." % (line, function, expression)
        if report.encode() not in self.display.raw:
            raise self._failure("the report " + report)

    def close(self):
        """Ends the child if it still runs, and closes everything."""
        if self.status is None:
            self.process.kill()
            while self.status is None:
                self._pump(1)
        if self.master is not None:
            os.close(self.master)
        os.close(self.pidfd)
        self.link.close()
        shutil.rmtree(self.home, ignore_errors=True)

    def _failure(self, what):
        frame = sys._getframe(1)
        while frame.f_code.co_filename == __file__:
            frame = frame.f_back
        self._pump(0)
        screen = ["  |" + row for row in self.display.rows()]
        while len(screen) > 1 and screen[-1] == "  |":
            screen.pop()
        how = "" if self.status is None else "ended: "
        return Failure("\n".join(
            ["awaited: " + what,
             "at: %s:%d" % (frame.f_code.co_filename, frame.f_lineno),
             "child: " + how + ended(self.status),
             "facts not asked for: %r" % self.facts,
             "output: %r" % bytes(self.display.raw[-2000:]),
             "screen, cursor at %d, %d:" % self.display.cursor()] + screen
            + ["last messages:"]
            + ["  %8.3f s  %-8s  %s" % (when, direction, text[:300])
               for when, direction, text in self.messages]
            + self.setup.sanitizer_reports()))
