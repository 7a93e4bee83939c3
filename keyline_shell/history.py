"""The history between two logins: a file that several sessions may use at once.

It begins with HEAD; then each row of the file has a mode, a tab and a line of the history.  A
session appends every line when it is entered, under a lock.  When the file is long, it is
replaced by one with the newest lines: a session that has opened the old one notices that, and
opens the new one.
"""
import fcntl
import os
import re
import stat
import time
from contextlib import contextmanager, suppress
from typing import IO, Iterator, List, Tuple

HEAD = b"keyline history 1\n"
MOST_BYTES = 1 << 26
PATIENCE = 2  # seconds


class Damaged(Exception):
    """The file was not written by this module."""


class History:
    def __init__(self, path: str, limit: int = 1024) -> None:
        self.path, self.limit = os.path.expanduser(path), limit

    def load(self) -> Tuple[List[Tuple[str, str]], str]:
        """(mode, line) of each line, oldest first; and a message to the user, or "".

        A damaged file is renamed.
        """
        with self.locked() as file:
            try:
                entries = self.entries(file)
            except Damaged:
                aside = self.set_aside()
                return [], "The history was damaged and is now in " + aside
            if len(entries) > 2 * self.limit:
                entries = entries[len(entries) - self.limit:]
                self.shorten(entries)
            return entries, ""

    def add(self, mode: str, line: str) -> None:
        with self.locked() as file:
            end = file.seek(0, os.SEEK_END)
            if end:
                file.seek(-1, os.SEEK_END)
                if file.read(1) != b"\n":  # an incomplete line of a session that was killed
                    file.seek(0)
                    end = file.read().rfind(b"\n") + 1
                    file.truncate(end)
            data = (b"" if end else HEAD) + _entry(mode, line)
            if file.write(data) != len(data):
                raise OSError("%s: no space for the history" % self.path)

    def entries(self, file: IO[bytes]) -> List[Tuple[str, str]]:
        if file.seek(0, os.SEEK_END) > MOST_BYTES:
            raise Damaged
        file.seek(0)
        data = file.read()
        if not data:
            return []
        data = data[:data.rfind(b"\n") + 1]
        if not data.startswith(HEAD):
            raise Damaged
        entries = []
        for row in data[len(HEAD):].split(b"\n")[:-1]:
            try:
                mode, tab, line = row.decode().partition("\t")
            except UnicodeDecodeError:
                raise Damaged from None
            if not tab or not mode or "\0" in line:
                raise Damaged
            entries.append((mode, re.sub(r"\\(.)", _unescaped, line)))
        return entries

    @contextmanager
    def locked(self) -> Iterator[IO[bytes]]:
        """The current file, locked; created if it does not exist."""
        while True:
            flags = os.O_RDWR | os.O_CREAT | os.O_APPEND | os.O_CLOEXEC
            fd = os.open(self.path, flags | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_NOCTTY, 0o600)
            with open(fd, "r+b", buffering=0) as file:
                status = os.fstat(fd)
                if not stat.S_ISREG(status.st_mode):
                    raise OSError("%s: not a regular file" % self.path)
                _lock(fd, self.path)
                if not self.is_still(status):
                    continue  # it was replaced while this waited for the lock
                if stat.S_IMODE(status.st_mode) != 0o600:
                    os.fchmod(fd, 0o600)
                yield file
                return

    def is_still(self, status: os.stat_result) -> bool:
        with suppress(FileNotFoundError):
            return os.path.samestat(os.stat(self.path, follow_symlinks=False), status)
        return False

    def set_aside(self) -> str:
        number = 0
        while True:
            number += 1
            aside = "%s.damaged%s" % (self.path, "" if number == 1 else "-%d" % number)
            if not os.path.lexists(aside):
                os.rename(self.path, aside)
                return aside

    def shorten(self, entries: List[Tuple[str, str]]) -> None:
        """Replaces the file. The caller has the lock."""
        new = self.path + ".new"
        with suppress(FileNotFoundError):
            os.unlink(new)
        flags = os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC
        with open(os.open(new, flags, 0o600), "wb") as file:
            file.write(HEAD + b"".join(_entry(*entry) for entry in entries))
            file.flush()
            os.fsync(file.fileno())
        os.rename(new, self.path)


def _lock(fd: int, path: str) -> None:
    """Waits for the lock: other sessions hold it for a moment only, unless stopped."""
    end = time.monotonic() + PATIENCE
    while True:
        try:
            return fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            if time.monotonic() > end:
                raise OSError("%s: another session keeps it locked" % path) from None
            time.sleep(0.01)


def _entry(mode: str, line: str) -> bytes:
    line = line.replace("\\", "\\\\").replace("\n", "\\n")
    return ("%s\t%s\n" % (mode, line)).encode()


def _unescaped(match: "re.Match[str]") -> str:
    return "\n" if match[1] == "n" else match[1]
