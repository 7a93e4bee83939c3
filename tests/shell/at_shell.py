"""The example shell at the tests' terminal.

It is started as a user starts it, and becomes the child's process. What is expected of it is
all that is on the screen, to the last row.
"""
import os

from script import ROOT

SHELL = os.path.join(ROOT, "shell")
WELCOME = "? helps, TAB completes, exit leaves"

# A login starts with Ctrl-C as it is by default, whoever started the tests.
RUN = """
import os, signal, sys
signal.signal(signal.SIGINT, signal.SIG_DFL)
os.execv(sys.executable, [sys.executable, %r] + %r)
"""

RUN_CHANGED = """
import sys
sys.argv[:] = [%r]
sys.argv[1:] = []
space = {"__name__": "demo"}
with open(sys.argv[0] + "/__main__.py") as file:
    exec(compile(file.read(), file.name, "exec"), space)
exec(%r, space)
sys.exit(space["shell"].main("./demo"))
"""


def shell(*arguments):
    """The script that is the shell, with these arguments."""
    return RUN % (SHELL, list(arguments))


def changed_shell(statements):
    """The script that is the shell after statements, which may use its names."""
    return RUN_CHANGED % (SHELL, statements)


class ShellUser:
    """A user at a Terminal that runs the shell."""

    def __init__(self, terminal, *rows, cursor=None):
        self.terminal = terminal
        self.above = []
        self.expect(*(rows or (WELCOME, "demo> ")), cursor=cursor)

    def expect(self, *rows, cursor=None):
        """Waits until these rows stand below those that were expected before.

        All but those that were scrolled off the top; the cursor stands at the end of the last
        row or, if told so, that many rows above it in that column.
        """
        __tracebackhide__ = True
        rows = self.above + list(rows)
        up, column = cursor or (0, len(rows[-1]))
        wanted = [row.rstrip() for row in rows]
        display = self.terminal.display

        def equal():
            seen = display.rows()
            while seen and not seen[-1]:
                seen.pop()
            least = min(len(wanted), display.screen.lines)
            return (least <= len(seen) and seen == wanted[-len(seen):]
                    and display.cursor() == (len(seen) - 1 - up, column))

        self.terminal.wait("the screen to end with\n%s\nand the cursor in column %d" % (
            "\n".join("  |" + row for row in wanted[-display.screen.lines:]), column), equal)
        self.above = rows[:-1]

    def type(self, keys, *rows, cursor=None):
        """Types keys. These rows are then to stand where the row with the prompt stood.

        Keys before Ctrl-C and Ctrl-Z need a wait of their own: the terminal throws away what
        nobody has read yet.
        """
        __tracebackhide__ = True
        self.terminal.send(keys)
        self.expect(*rows, cursor=cursor)

    def drop(self, rows):
        """From now on, so many rows above count as part of what is to be expected next."""
        del self.above[len(self.above) - rows:]

    def leave(self, keys="<c-a><c-k>end<enter>exit<enter>"):
        """Drops the line and leaves the shell, which ends as it should."""
        __tracebackhide__ = True
        self.terminal.send(keys)
        self.terminal.expect_end("clean")
