"""What the tests of a watched log file share: writing it, and what its reader is doing."""
import os
import subprocess
import sys

# Appends the lines 0, 1, 2 ... as fast as it can, each with a write of its own.
WRITER = """
import os, sys
log = os.open(sys.argv[1], os.O_WRONLY | os.O_APPEND)
print("ready", flush=True)
sys.stdin.readline()
for number in range(int(sys.argv[2])):
    os.write(log, b"%d\\n" % number)
"""


class Writer:
    """Another process that is to write so many lines to the child's log."""

    def __init__(self, child, lines):
        self.process = subprocess.Popen(
            [sys.executable, "-S", "-c", WRITER, os.path.join(child.home, "log"),
             str(lines)], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.process.stdout.readline()

    def go(self):
        self.process.stdin.write(b"\n")
        self.process.stdin.flush()

    def end(self):
        self.process.communicate()
        assert self.process.returncode == 0


def append(child, *texts, name="log"):
    """Appends to a file of the child's, with one write for each text."""
    with open(os.path.join(child.home, name), "ab", buffering=0) as file:
        for text in texts:
            file.write(text.encode())


def usage(child):
    """The child's state as a letter, its processor time, and how often it went to sleep."""
    with open("/proc/%d/stat" % child.process.pid, encoding="utf-8") as file:
        fields = file.read().rpartition(")")[2].split()
    with open("/proc/%d/status" % child.process.pid, encoding="utf-8") as file:
        switches, = [line for line in file if line.startswith("voluntary_ctxt_switches")]
    return fields[0], fields[11], fields[12], switches


def wait_state(child, letter):
    """Waits until the child sleeps (S) or is stopped (T); answers its usage then."""
    __tracebackhide__ = True

    def reached():
        found = usage(child)
        return found if found[0] == letter else None

    return child.wait("the child in state " + letter, reached)
