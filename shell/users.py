"""Users who come to a shell that is already there, one after another.

The server makes a terminal for each user and hands the user's end of it to the companion
program, which passes on keys, output and the size of the window between it and the terminal
that the user sits at.
"""
import fcntl
import os
import select
import signal
import socket
import struct
import sys
import termios
import tty
from contextlib import contextmanager, suppress
from typing import Callable, Dict, Iterator

import Keyline
import screen


def serve(path: str, session: Callable[[], int]) -> int:
    """Runs a session for each user who connects to the socket, until interrupted."""
    with socket.socket(socket.AF_UNIX) as listener:
        with naming(path):
            listener.bind(path)
        listener.listen()
        # Keys and window of a terminal send signals to the processes that it belongs to: to
        # a process that leads a session of its own, and can take terminal after terminal.
        alive, ended = os.pipe()
        child = os.fork()
        if child == 0:
            os.close(ended)
            serve_users(listener, alive, session)
            os._exit(0)
        signal.signal(signal.SIGTERM, signal.default_int_handler)
        try:
            print("waiting for users: ./demo --connect " + path, flush=True)
            return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        except KeyboardInterrupt:
            os.kill(child, signal.SIGTERM)
            os.waitpid(child, 0)
            return 0
        finally:
            os.unlink(path)


def serve_users(listener: socket.socket, alive: int, session: Callable[[], int]) -> None:
    """Serves one user after another, until the process at the other end of alive is gone."""
    os.setsid()
    signal.signal(signal.SIGHUP, signal.SIG_IGN)  # of a user who hangs up, or is done
    while alive not in select.select([listener, alive], [], [])[0]:
        link, _ = listener.accept()
        with link, suppress(OSError, ValueError):  # a user who is gone already
            rows, columns, os.environ["TERM"] = link.recv(256).decode().split()
            size = int(rows), int(columns)
            master, slave = os.openpty()
            with open(slave) as sys.stdin, open(os.dup(slave), "w") as sys.stdout:
                set_size(slave, *size)
                fcntl.ioctl(slave, termios.TIOCSCTTY, 0)
                try:
                    socket.send_fds(link, [b"."], [master])
                finally:
                    os.close(master)
                try:
                    session()
                finally:
                    # While the streams are still there: it gives up those that it finds.
                    Keyline.resetInput()
                    sys.stdout.flush()
                    fcntl.ioctl(slave, termios.TIOCNOTTY)


def connect(path: str) -> int:
    """Sits the user of this terminal at the shell behind the socket."""
    with socket.socket(socket.AF_UNIX) as link:
        with naming(path):
            link.connect(path)
        size = os.get_terminal_size(0)
        hello = "%d %d %s" % (size.lines, size.columns, os.environ.get("TERM", "dumb"))
        link.sendall(hello.encode())
        if not select.select([link], [], [], 0.5)[0]:
            print("waiting for the user before you to leave", flush=True)
        _, received, _, _ = socket.recv_fds(link, 1, 1)
        if not received:
            raise ConnectionError("nobody serves any more")
        master = received[0]

    def pass_size_on(*_: object) -> None:
        window = os.get_terminal_size(0)
        set_size(master, window.lines, window.columns)

    signal.signal(signal.SIGWINCH, pass_size_on)
    pass_size_on()
    before = termios.tcgetattr(0)
    tty.setraw(0, termios.TCSADRAIN)
    with suppress(OSError):  # which is how the terminal over there ends
        relay({0: master, master: 1})
    screen.leave(1)  # for a shell that was ended
    termios.tcsetattr(0, termios.TCSADRAIN, before)
    return 0


@contextmanager
def naming(path: str) -> Iterator[None]:
    """Errors with a socket do not say by themselves which one it is."""
    try:
        yield
    except OSError as error:
        error.filename = path
        raise


def relay(ways: Dict[int, int]) -> None:
    """Passes on what comes in at each descriptor to the other one that is named for it."""
    while True:
        for source in select.select(list(ways), [], [])[0]:
            data = os.read(source, 4096)
            if not data:
                return
            while data:
                data = data[os.write(ways[source], data):]


def set_size(terminal: int, rows: int, columns: int) -> None:
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("4H", rows, columns, 0, 0))
