"""A child at a pseudo terminal of its own: how tests, benchmarks and tools start one.

What they wait for, and what they make of its output, is theirs.
"""
import fcntl
import functools
import os
import select
import struct
import subprocess
import termios


def window(descriptor):
    """Rows and columns of a terminal."""
    return struct.unpack("4H", fcntl.ioctl(descriptor, termios.TIOCGWINSZ, b"\0" * 8))[:2]


def set_window(descriptor, rows, columns):
    fcntl.ioctl(descriptor, termios.TIOCSWINSZ, struct.pack("4H", rows, columns, 0, 0))


def open_terminal(rows=24, columns=80):
    """The user's end and the child's."""
    master, slave = os.openpty()
    set_window(slave, rows, columns)
    return master, slave


def start_at(slave, command, environment, controlling=True, **options):
    """Starts a command in a session of its own, with that end as standard streams.

    The terminal is the session's, too: Ctrl-C is a signal there. Without `controlling` it is
    not, and no code of this process runs in the child before the command does.
    """
    if controlling:
        options["preexec_fn"] = functools.partial(fcntl.ioctl, 0, termios.TIOCSCTTY, 0)
    return subprocess.Popen(command, env=environment, start_new_session=True, **{
        "stdin": slave, "stdout": slave, "stderr": slave, **options})


class PtyChild:
    """A child, and the user's end of its terminal."""

    def __init__(self, command, environment, rows=24, columns=80, **options):
        self.master, slave = open_terminal(rows, columns)
        try:
            self.child = start_at(slave, command, environment, **options)
        except BaseException:
            os.close(self.master)
            raise
        finally:
            os.close(slave)
        self.pid = self.child.pid

    def __enter__(self):
        return self

    def __exit__(self, *reason):
        self.close()

    def read(self, limit):
        """What it has written, at once or in limit seconds; b"" when there was nothing.

        OSError, when the other end is closed and everything was read.
        """
        if not select.select([self.master], [], [], limit)[0]:
            return b""
        return os.read(self.master, 65536)

    def write(self, data):
        os.write(self.master, data)

    def close(self):
        """Takes the terminal away, and ends the child if it is still there."""
        os.close(self.master)
        self.child.kill()
        self.child.wait()


def is_asleep(pid):
    """Whether the process waits for something."""
    with open("/proc/%d/stat" % pid, "rb") as file:
        return file.read().rpartition(b")")[2].split()[0] == b"S"
