"""The driver's side of a pseudo terminal: one child at work, its output and what it costs.

Nothing here knows what the child is. Children run on the last processor and the driver on
the first, so that where there are two a child has one for itself. What a child costs is the
processor time that the kernel counts for its threads, system calls included, in ns.
"""
import os
import select
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "tools"))

from pty_child import PtyChild, is_asleep  # noqa: E402

DEADLINE = 120  # seconds; only a child that hangs meets it
PROCESSORS = sorted(os.sched_getaffinity(0))
ROWS, COLUMNS = 24, 80


class Lost(Exception):
    """The child did not do what was waited for."""


class Session(PtyChild):
    """A child at a terminal.

    None in command stands for the number of the descriptor that the child writes facts to.
    wrap is a command that starts another, such as strace. The terminal does not control the
    child's session, which would take a call of this interpreter in the child before it starts,
    and be counted.
    """

    def __init__(self, command, environment, wrap=()):
        reading, writing = os.pipe()
        self.facts = reading
        command = [str(writing) if word is None else word for word in command]
        os.sched_setaffinity(0, PROCESSORS[-1:])
        self.started = time.perf_counter_ns()
        try:
            super().__init__([*wrap, *command], environment, ROWS, COLUMNS, controlling=False,
                             pass_fds=[writing])
        finally:
            os.sched_setaffinity(0, PROCESSORS[:1])
            os.close(writing)
        self.wrapped = bool(wrap)  # the child is one of the wrap's
        self.output = b""
        self.taken = 0  # bytes of output ever

    def close(self):
        os.close(self.facts)
        super().close()

    def end(self):
        """Ends the child with Ctrl-D, which it takes at an empty line."""
        self.send(b"\4")
        try:
            self.wait(b"there is no such output")
        except OSError:  # the other side is closed
            pass
        self.child.wait()

    # Keys and output

    def send(self, data):
        self.output = b""
        self.write(data)

    def take(self, limit=DEADLINE):
        """Takes what is there; False when there was nothing for limit seconds."""
        data = self.read(limit)
        self.output += data
        self.taken += len(data)
        return bool(data)

    def wait(self, text):
        """Takes output until text is in what came since the last send."""
        limit = time.monotonic() + DEADLINE
        while text not in self.output:
            if time.monotonic() > limit or not self.take():
                raise Lost("%r is not in %r" % (text, self.output[-300:]))

    def prompt(self):
        """Waits for the first prompt."""
        self.wait(b">")
        if self.wrapped:
            with open("/proc/%d/task/%d/children" % (self.pid, self.pid), "rb") as file:
                self.pid = int((file.read().split() or [self.pid])[0])
        self.rest()

    def rest(self):
        """Takes output until the child sleeps and nothing more comes."""
        limit = time.monotonic() + DEADLINE
        while self.take(0) or not is_asleep(self.pid) or self.take(0):  # written before it slept
            if time.monotonic() > limit:
                raise Lost("no rest after %r" % self.output[-300:])
            time.sleep(0.0002)

    def key(self, key, pause=0.001):
        """One key alone: its echo is there and the child sleeps again."""
        self.send(key)
        if not self.take():
            raise Lost("no echo of %r" % key)
        self.rest()
        time.sleep(pause)

    def keys(self, text, pause=0.001):
        for at in range(len(text)):
            self.key(text[at:at + 1], pause)

    def burst(self, text, end):
        """Keys at once, until end is shown."""
        self.send(text)
        self.wait(end)
        self.rest()

    def enter(self):
        """Ends the line; returns the nanoseconds from the key to the next prompt."""
        before = time.perf_counter_ns()
        self.send(b"\r")
        self.wait(b">")
        after = time.perf_counter_ns()
        self.rest()
        return after - before

    def pour(self, data):
        """Types data as fast as the terminal takes it, until the child tells a fact."""
        os.set_blocking(self.master, False)
        data = memoryview(data)
        limit = time.monotonic() + DEADLINE
        while True:
            readable, writable, _ = select.select(
                [self.master, self.facts], [self.master] if data else [], [], 1)
            if self.master in readable:
                self.taken += len(os.read(self.master, 65536))
            if writable:
                try:
                    data = data[os.write(self.master, data[:4096]):]
                except BlockingIOError:
                    pass
            if self.facts in readable:
                break
            if time.monotonic() > limit:
                raise Lost("the child has not read everything")
        os.set_blocking(self.master, True)
        return self.fact()

    def fact(self):
        """The numbers of the next fact that the child tells."""
        limit = time.monotonic() + DEADLINE
        while not select.select([self.facts], [], [], 0)[0]:
            if time.monotonic() > limit:
                raise Lost("no fact after %r" % self.output[-300:])
            self.take(0.01)
        return [float(number) for number in os.read(self.facts, 1000).split()]

    # What it costs

    def _tasks(self, name):
        folder = "/proc/%d/task" % self.pid
        for task in os.listdir(folder):
            with open("%s/%s/%s" % (folder, task, name), encoding="utf-8") as file:
                yield file.read()

    def cpu(self):
        """Processor time so far, of a child that sleeps, in nanoseconds."""
        return sum(int(text.split()[0]) for text in self._tasks("schedstat"))

    def wakeups(self):
        """How often it has gone to sleep by itself."""
        return sum(int(line.split()[1]) for text in self._tasks("status")
                   for line in text.splitlines() if line.startswith("voluntary"))

    def private(self):
        """Its private memory in kilobytes."""
        with open("/proc/%d/smaps_rollup" % self.pid, encoding="utf-8") as file:
            return sum(int(line.split()[1]) for line in file if line.startswith("Private"))
