"""A flood of log lines while a user types: is every line shown once, and every key at once?

Run it with the interpreter that the module was built for:
    python3.9 bench/log_flood.py [--lines N] [--rate R] [FOLDER-OF-THE-MODULE]
Another process appends N lines (1,000,000), R of them a second or, without a rate, as
fast as it can; a key is typed every 20 ms. Prints how long it took and the time from a
key to its echo; ends with 1 when a line is lost, shown twice or out of order, when a key
is not echoed within 50 ms at the 99th percentile, or when prompt and line are wrong at the
end.
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "tools"))

from pty_child import PtyChild  # noqa: E402

LIMIT = 50  # ms
PAUSE = 0.02
# Two sets of keys, typed in turn, so that a key's echo is its first showing. None of them
# is in a log line, nor in what moves the cursor.
KEYS = b"qwetyuiop", b"asfgjkzxv"
KILL = b"\x15"

SHELL = """
import os, sys
import Keyline

def news(descriptor, length):
    text = os.read(descriptor, length)
    os.write(1, b"\\r\\x1b[J" + text)
    return 1

Keyline.loggingSyncEnabledIs(sys.argv[1], news)
line = Keyline.readline("> ")
os.write(int(sys.argv[2]), line.encode())
"""

WRITER = """
import os, sys, time
path, count, rate = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
log = os.open(path, os.O_WRONLY | os.O_APPEND)
start, written = time.monotonic(), 0
while written < count:
    due = min(count, int((time.monotonic() - start) * rate)) if rate else count
    while written < due:
        os.write(log, b"NOV 21 02:46:00 DEMO-6 LINE %07d OF THE TEST\\n" % written)
        written += 1
    if rate:
        time.sleep(0.001)
print(time.monotonic() - start)
"""


class User:
    """Types keys and looks for their echo in what the terminal is sent."""

    def __init__(self, shell):
        self.shell = shell
        self.shown = bytearray()
        self.line = b""
        self.keys = 0
        self.wanted = None  # the key that was typed last, until it is echoed
        self.typed_at = 0.0
        self.echoes = []  # ms

    def type(self):
        at, kind = self.keys % len(KEYS[0]), self.keys // len(KEYS[0]) % 2
        self.keys += 1
        self.wanted = KEYS[kind][at:at + 1]
        self.line = (b"" if at == 0 else self.line) + self.wanted
        self.typed_at = time.monotonic()
        self.shell.write((KILL if at == 0 else b"") + self.wanted)

    def look(self, limit):
        data = self.shell.read(limit)
        self.shown += data
        if self.wanted and self.wanted in data:
            self.echoes.append((time.monotonic() - self.typed_at) * 1000)
            self.wanted = None

    def is_line_shown(self):
        """Whether what stands behind the newest prompt is the line."""
        text = self.shown[self.shown.rindex(b"> ") + 2:]
        text = text[text.rfind(b"\r") + 1:]  # the line was erased since
        return re.sub(rb"\x1b\[[0-9;]*[A-Za-z]", b"", text) == self.line

    def until(self, ready):
        """Types on until ready()."""
        while not ready():
            due = self.typed_at + PAUSE - time.monotonic()
            if due <= 0 and not self.wanted:
                self.type()
            self.look(max(0.0, min(due, PAUSE)) if not self.wanted else PAUSE)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--lines", type=int, default=1000000)
    parser.add_argument("--rate", type=int, default=0)
    parser.add_argument("folder", nargs="?", default=os.path.join(
        os.path.dirname(HERE), "build", "%d.%d" % sys.version_info[:2]))
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="log-flood-") as folder:
        sys.exit(flood(options, os.path.join(folder, "log")))


def flood(options, path):
    open(path, "w").close()
    reading, writing = os.pipe()
    shell = PtyChild([sys.executable, "-c", SHELL, path, str(writing)],
                     dict(os.environ, PYTHONPATH=options.folder, TERM="xterm"),
                     pass_fds=[writing])
    user = User(shell)
    while b"> " not in user.shown:
        user.look(1)
    start = time.monotonic()
    writer = subprocess.Popen([sys.executable, "-S", "-c", WRITER, path, str(options.lines),
                               str(options.rate)], stdout=subprocess.PIPE)
    last = b"LINE %07d OF" % (options.lines - 1)
    user.until(lambda: last in user.shown[-9000:] or shell.child.poll() is not None)
    took = time.monotonic() - start
    while user.wanted or not user.is_line_shown() and time.monotonic() - user.typed_at < 1:
        user.look(0.1)
    right = user.is_line_shown()
    shell.write(b"\n")
    right = right and os.read(reading, 1000) == user.line
    shell.child.wait()
    return report(options, user, took, float(writer.communicate()[0]), right)


def report(options, user, took, written_in, right):
    numbers = [int(number) for number in
               re.findall(rb"LINE (\d+) OF THE TEST\r\n", user.shown)]
    complete = numbers == list(range(options.lines))
    echoes = sorted(user.echoes)
    late = echoes[len(echoes) * 99 // 100]
    print("%d lines written in %.1f s, all shown after %.1f s (%d a second)" % (
        options.lines, written_in, took, options.lines / took))
    print("lines: %s; prompt and line at the end: %s" % (
        "each once, in order" if complete else "WRONG, %d shown" % len(numbers),
        "right" if right else "WRONG"))
    print("key to echo: median %.2f ms, 99th percentile %.2f ms, longest %.2f ms, %d keys; "
          "limit %d ms" % (echoes[len(echoes) // 2], late, echoes[-1], len(echoes), LIMIT))
    return int(not complete or not right or late > LIMIT)


if __name__ == "__main__":
    sys.exit(main())
