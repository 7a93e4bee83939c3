"""What all terminals have in common: how one is started, resized and read.

lines() is what the terminal holds, as it is copied: the scrollback first, and rows that the
terminal takes for one line as one.
"""
import os
import shutil
import subprocess
import sys
import tempfile

from line import Line, wait_until

HERE = os.path.dirname(os.path.abspath(__file__))


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def joined(rows):
    """The lines that are dumped as rows with a mark before each: "+" if the next continues it."""
    lines = [""]
    for row in rows:
        lines[-1] += row[1:] if row[0] == "+" else row[1:].rstrip()
        if row[0] == ".":
            lines.append("")
    return trimmed(lines)


def trimmed(rows):
    """Without blanks at the ends of rows, and empty rows at the end."""
    rows = [row.rstrip() for row in rows]
    while rows and not rows[-1]:
        rows.pop()
    return rows


def taken(path):
    """What is in the file, which is removed."""
    with open(path, encoding="utf-8", errors="replace") as file:
        text = file.read()
    os.remove(path)
    return text


class Terminal:
    """One running terminal of a kind, with the holder inside."""

    name = program = package = ""
    detaches = False
    scrolls_back = True  # keeps what goes off the top

    def __init__(self, columns, rows):
        self.folder = tempfile.mkdtemp(prefix="terminal-")
        self.line = Line(self.folder)
        self.process = None
        self.columns, self.height = columns, rows
        try:
            self.start()
            self.line.accept()
            self.settle()
        except BaseException:
            self.close()
            raise

    @classmethod
    def is_missing(cls):
        return not shutil.which(cls.program)

    def start(self):
        raise NotImplementedError

    def settings(self, name, text):
        """The path of a file of settings with that text."""
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def holder(self):
        return [sys.executable, os.path.join(HERE, "holder.py"), self.line.path]

    def resize(self, columns, rows=None):
        """Changes the window's size; does not wait for anybody to notice."""
        self.columns, self.height = columns, rows or self.height
        self.set_size()

    def set_size(self):
        raise NotImplementedError

    def settle(self):
        """Waits until the program inside has heard of the size."""
        wanted = self.columns, self.height
        wait_until("%s to be %dx%d" % (self.name, *wanted), lambda: self.line.window() == wanted)

    def lines(self):
        raise NotImplementedError

    def close(self):
        self.line.close()
        if self.process:
            self.process.terminate()
            self.process.wait()
        shutil.rmtree(self.folder)
