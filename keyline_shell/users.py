"""A shell that serves users on a socket, one after another.

The server creates a pseudo-terminal for each user and passes its master to the client, which
copies keys, output and the window size between it and the user's terminal.  The permissions of
the socket say who may connect: its owner, who is the user that serves, and root.  A shell for
others would have to authenticate them.
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

    Returns when it is interrupted.  how is printed: the command that connects a user.
    """
    with socket.socket(socket.AF_UNIX) as listener:
        mask = os.umask(0o177)  # no moment with other permissions
        try:
            with naming(path):
                listener.bind(path)
        finally:
            os.umask(mask)
        listener.listen()
        # Signals of a terminal go to the session that it controls.  So the users are served by
        # a session leader, which can acquire one controlling terminal after another.
        alive, ended = os.pipe()
        child = os.fork()
        if child == 0:
            os.close(ended)
            serve_users(listener, alive, session)
            os._exit(0)
        signal.signal(signal.SIGTERM, signal.default_int_handler)
        try:
            with waking() as woken:
                print("waiting for users: " + (how or path), flush=True)
                while True:
                    pid, status = os.waitpid(child, os.WNOHANG)
                    if pid:
                        return os.waitstatus_to_exitcode(status)
                    select.select([woken], [], [])
                    os.read(woken, 4096)
        except KeyboardInterrupt:
            os.kill(child, signal.SIGTERM)
            os.waitpid(child, 0)
            return 0
        finally:
            os.unlink(path)


@contextmanager
def waking() -> Iterator[int]:
    """A descriptor that each signal makes readable, the end of a child too.

    A signal right before a wait for something else would not be noticed until that comes.
    """
    woken, wake = os.pipe()
    os.set_blocking(wake, False)
    handler = signal.signal(signal.SIGCHLD, lambda *_: None)
    before = signal.set_wakeup_fd(wake, warn_on_full_buffer=False)
    try:
        yield woken
    finally:
        signal.set_wakeup_fd(before)
        signal.signal(signal.SIGCHLD, handler)
        os.close(wake)
        os.close(woken)


def serve_users(listener: socket.socket, alive: int, session: Callable[[], int]) -> None:
    """Serves one user after another, until the process at the other end of alive exits."""
    os.setsid()
    signal.signal(signal.SIGHUP, signal.SIG_IGN)  # when a user hangs up or leaves
    signal.signal(signal.SIGQUIT, signal.SIG_IGN)  # when a user types Ctrl-\\
    while alive not in select.select([listener, alive], [], [])[0]:
        link, _ = listener.accept()
        with link:
            try:
                serve_user(link, session)
            except (OSError, Stranger):  # no client, or it has disconnected
                pass
            except Exception:  # ends this user's session only
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
    """A connection that does not send what the client sends, or too late."""


def greeting(link: socket.socket) -> Tuple[int, int, str]:
    """The size and the type of the user's terminal.

    It must arrive within a second, since others wait meanwhile.
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
    # The terminal library opens a file of that name, and a shell may print it.
    known = re.fullmatch(rb"[A-Za-z0-9][A-Za-z0-9+._-]*", kind)
    return int(rows), int(columns), kind.decode() if known else "dumb"


def connect(path: str) -> int:
    """Connects the user of this terminal to the shell that serves on the socket."""
    with socket.socket(socket.AF_UNIX) as link:
        with naming(path):
            link.connect(path)
        size = os.get_terminal_size(0)
        hello = "%d %d %s\n" % (size.lines, size.columns, os.environ.get("TERM", "dumb"))
        link.sendall(hello.encode())
        said = False
        # With a timeout: a Ctrl-C just before a wait without one would not be noticed.
        while not select.select([link], [], [], 0.5)[0]:
            if not said:
                print("waiting for the user before you to leave", flush=True)
            said = True
        _, received, _, _ = socket.recv_fds(link, 1, 1)
        if not received:
            raise ConnectionError("the server has ended")
        master = received[0]

    def pass_size_on(*_: object) -> None:
        window = os.get_terminal_size(0)
        set_size(master, window.lines, window.columns)

    signal.signal(signal.SIGWINCH, pass_size_on)
    pass_size_on()
    before = termios.tcgetattr(0)
    tty.setraw(0, termios.TCSADRAIN)
    with suppress(OSError):  # EIO: the other side has closed the terminal
        relay({0: master, master: 1})
    screen.leave(1)  # if the shell was killed
    termios.tcsetattr(0, termios.TCSADRAIN, before)
    return 0


@contextmanager
def naming(path: str) -> Iterator[None]:
    """Adds the path to errors, since those of sockets have none."""
    try:
        yield
    except OSError as error:
        error.filename = path
        raise


def relay(targets: Dict[int, int]) -> None:
    """Copies the input of each descriptor to its target, until one has ended."""
    while True:
        for source in select.select(list(targets), [], [])[0]:
            data = os.read(source, 4096)
            if not data:
                return
            while data:
                data = data[os.write(targets[source], data):]


def set_size(terminal: int, rows: int, columns: int) -> None:
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("4H", rows, columns, 0, 0))
