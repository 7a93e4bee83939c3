"""Users who come to a shell that is already there, one after another.

The server makes a terminal for each user and hands the user's end of it to the companion
program, which passes on keys, output and the size of the window between it and the terminal
that the user sits at.  Who may come is said by the rights of the socket: its owner alone,
who is whoever serves, and root.  A shell for others would ask them who they are.
"""
import fcntl
import os
import re
import select
import signal
import socket
import struct
import sys
import termios
import time
import traceback
import tty
from contextlib import contextmanager, suppress
from typing import Callable, Dict, Iterator, Tuple

from . import screen


def serve(path: str, session: Callable[[], int], how: str = "") -> int:
    """Runs a session, such as Shell.run, for each user who connects to the socket.

    That is so until it is interrupted.  how is told: the command that connects a user.
    """
    with socket.socket(socket.AF_UNIX) as listener:
        mask = os.umask(0o177)  # from its first moment on
        try:
            with naming(path):
                listener.bind(path)
        finally:
            os.umask(mask)
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
            print("waiting for users: " + (how or path), flush=True)
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
    signal.signal(signal.SIGQUIT, signal.SIG_IGN)  # and of one who types Ctrl-\\
    while alive not in select.select([listener, alive], [], [])[0]:
        link, _ = listener.accept()
        with link:
            try:
                serve_user(link, session)
            except (OSError, Stranger):  # a user who is gone already, or is none
                pass
            except Exception:  # is this user's alone
                sys.stderr.write(screen.visible(traceback.format_exc()))


def serve_user(link: socket.socket, session: Callable[[], int]) -> None:
    rows, columns, os.environ["TERM"] = greeting(link)
    master, slave = os.openpty()
    with open(slave) as sys.stdin, open(os.dup(slave), "w") as sys.stdout:
        set_size(slave, rows, columns)
        fcntl.ioctl(slave, termios.TIOCSCTTY, 0)
        try:
            socket.send_fds(link, [b"."], [master])
        finally:
            os.close(master)
        try:
            session()
        finally:
            fcntl.ioctl(slave, termios.TIOCNOTTY)


class Stranger(Exception):
    """Somebody who does not say what the companion program says, or not at once."""


def greeting(link: socket.socket) -> Tuple[int, int, str]:
    """The size and the type of the terminal that the user sits at.

    Others wait meanwhile: it must be there within a second.
    """
    said, end = b"", time.monotonic() + 1
    while not said.endswith(b"\n") and len(said) < 256:
        link.settimeout(max(0.001, end - time.monotonic()))
        piece = link.recv(256 - len(said))
        if not piece or time.monotonic() > end:
            break
        said += piece
    link.settimeout(None)
    match = re.fullmatch(rb"([0-9]{1,4}) ([0-9]{1,4}) (\S*)\n", said)
    if not match:
        raise Stranger
    rows, columns, kind = match.groups()
    # The type is the name of a file for the terminal library, and may be shown.
    known = re.fullmatch(rb"[A-Za-z0-9][A-Za-z0-9+._-]*", kind)
    return int(rows), int(columns), kind.decode() if known else "dumb"


def connect(path: str) -> int:
    """Sits the user of this terminal at the shell behind the socket."""
    with socket.socket(socket.AF_UNIX) as link:
        with naming(path):
            link.connect(path)
        size = os.get_terminal_size(0)
        hello = "%d %d %s\n" % (size.lines, size.columns, os.environ.get("TERM", "dumb"))
        link.sendall(hello.encode())
        said = False
        # Again and again: the interpreter would not see a Ctrl-C right before an endless wait.
        while not select.select([link], [], [], 0.5)[0]:
            if not said:
                print("waiting for the user before you to leave", flush=True)
            said = True
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
