"""What the example shell prints takes the place of prompt and line, of whatever size."""
import pytest

from at_shell import WELCOME, ShellUser, shell
from log_file import append

pytestmark = pytest.mark.package

COLUMNS = 40
PROMPT = "demo(config-if)# "
HELP = ["  LINE  Any text; Ctrl-V ? types a", "        question mark",
        "  <cr>  run the command"]
SCREENS = {"in the middle": 60, "at the bottom": 12}


def rows_of(text):
    return [text[at:at + COLUMNS] for at in range(0, len(text), COLUMNS)]


class LongLine:
    """A user who has typed a line of so many rows, the last of them not quite full."""

    def __init__(self, start, count, height, **options):
        self.terminal = start("open('log', 'w').close()\n" + shell("--watch", "log"),
                              rows=height, columns=COLUMNS, **options)
        self.user = ShellUser(self.terminal)
        self.user.type("conf<enter>", "demo> conf", "demo(config)# ")
        self.user.type("int eth 1<enter>", "demo(config)# int eth 1", PROMPT)
        self.line = (PROMPT + "desc " + "one two three four " * 40)[:COLUMNS * count - 9] + " "
        self.rows = rows_of(self.line)
        self.cursor = 0, len(self.rows[-1])
        self.expect_typed(self.line[len(PROMPT):])

    def expect_typed(self, keys):
        self.user.type(keys, *self.rows, cursor=self.cursor)
        self.user.drop(len(self.rows) - 1)

    def put_cursor(self, where):
        if where == "start":
            self.cursor = len(self.rows) - 1, len(PROMPT)
            self.expect_typed("<c-a>")
        elif where == "middle":
            place = len(self.line) - 20 * (len(self.rows) - 1)
            self.cursor = len(self.rows) - 1 - place // COLUMNS, place % COLUMNS
            self.expect_typed("<left>" * (len(self.line) - place))

    def expect_printed(self, *printed):
        """These rows, and prompt and line below them; no other row has stayed."""
        self.user.expect(*printed, *self.rows, cursor=self.cursor)
        self.user.drop(len(self.rows) - 1)

    def log(self, *rows):
        append(self.terminal, "".join(row + "\n" for row in rows))
        self.expect_printed(*rows)


@pytest.mark.parametrize("where", ["start", "middle", "end"])
@pytest.mark.parametrize("height", SCREENS.values(), ids=list(SCREENS))
@pytest.mark.parametrize("count", [1, 2, 3, 4, 5, 7, 10])
def test_help_completion_and_log_lines(start, count, height, where):
    line = LongLine(start, count, height)
    line.put_cursor(where)
    line.log("one line")
    line.terminal.send("?")
    asked = rows_of(line.line + "?")
    line.expect_printed(*asked, *HELP)
    line.terminal.send("<tab>")
    line.expect_printed(*line.rows, "  LINE  <cr>")
    line.log("two", "lines " * 6, "")
    line.log("x" * COLUMNS)
    line.user.leave()


def test_a_line_of_more_rows_than_the_window(start):
    line = LongLine(start, 9, 6)
    line.log("one line")
    line.terminal.send("?")
    line.expect_printed(*rows_of(line.line + "?"), *HELP)
    line.user.leave()


@pytest.mark.parametrize("height", SCREENS.values(), ids=list(SCREENS))
@pytest.mark.parametrize("where", ["start", "middle", "end"])
def test_a_line_given_up_ends_where_the_cursor_is(start, where, height):
    line = LongLine(start, 5, height)
    line.put_cursor(where)
    up, column = line.cursor
    above = line.rows[:len(line.rows) - 1 - up]
    last = line.rows[len(above)][:column]
    line.user.type("<c-c>", *above, last + "^C", PROMPT)
    line.user.leave()


@pytest.mark.parametrize("kind", ["dumb", "ansi", "sun", "no-such-type", None])
def test_a_terminal_that_cannot_go_back(start, kind):
    """Nothing that stands there is cleared: what is printed begins on a new row."""
    told = ['No entry for terminal type "no-such-type";', "using dumb terminal settings."]
    user = ShellUser(start(shell(), env={"TERM": kind}), WELCOME,
                     *(told if kind == "no-such-type" else []), "demo> ")
    user.type("show v?", "demo> show v", "demo> show v?", "  version  What this is",
              "demo> show v")
    assert b"\x1b8" not in user.terminal.display.raw
    user.leave("<bs>" * 6 + "exit<enter>")
