"""The window: its size, changes of it while a line is shown, and the width that is set."""
import random
import termios

import pytest

from reads import interrupt


@pytest.mark.parametrize("size", [(0, 0), (0, 80), (24, 0), (1, 1), (2, 5)])
def test_windows_of_odd_size(start, size):
    child = start("read(lambda key, line: 'able'); read()", rows=size[0], columns=size[1])
    for number in range(2):
        # A window of one row shows no more of the prompt than that.
        child.wait("the read to begin",
                   lambda: not termios.tcgetattr(child.master)[3] & termios.ICANON)
        child.send("variab<bs><bs><tab>" if number == 0 else "x" * 200)
        child.send("<enter>")
        child.expect_line("variable" if number == 0 else "x" * 200)
    child.expect_end()


def test_no_size_means_the_usual_size(start):
    """A serial line reports 0x0; the line wraps at 80."""
    child = start("read()", rows=0, columns=0)
    child.type("x" * 100, "x" * 77, "x" * 23)
    child.send("<c-a>y<enter>")
    child.expect_line("y" + "x" * 100)
    child.expect_end()


NUMBERS = "0123456789" * 12


def wrapped(prompt, text, wide):
    """The rows of a prompt and a text, as expect_shown wants them."""
    text = "%d> %s" % (prompt, text)
    rows = [text[at:at + wide] for at in range(0, len(text), wide)]
    return [rows[0][3:]] + rows[1:]


@pytest.mark.parametrize("columns, width, wide", [
    (80, 100, 100), (80, 60, 60), (0, 100, 100), (120, 0, 80), (120, -5, 80)])
def test_width_makes_the_editor_wrap(start, columns, width, wide):
    """For a terminal of unknown size. Widths that make no sense become 80."""
    child = start("import Keyline; read(); Keyline.TerminalWidthIs(%d); read()" % width,
                  columns=columns)
    child.enter("")
    child.expect_prompt()
    child.display.screen.resize(24, wide)
    child.send(NUMBERS)
    child.expect_shown(*wrapped(2, NUMBERS, wide))
    # Back up over the wrap: the editor still knows where its rows are.
    child.send("<c-a>x")
    child.expect_shown(*wrapped(2, "x" + NUMBERS, wide))
    child.send("<enter>")
    child.expect_line("x" + NUMBERS)
    child.expect_end()


def test_width_before_the_first_read_has_no_effect(start):
    child = start("import Keyline; Keyline.TerminalWidthIs(40); read()")
    child.type(NUMBERS, *wrapped(1, NUMBERS, 80))
    child.send("<enter>")
    child.expect_line(NUMBERS)
    child.expect_end()


def test_width_holds_until_the_window_changes(start):
    child = start("import Keyline; read(); Keyline.TerminalWidthIs(40)\n" + "read()\n" * 3)
    for number, wide in enumerate((80, 40, 40, 60)):
        child.expect_prompt()
        if wide == 60:
            child.resize(24, 60)
        else:
            child.display.screen.resize(24, wide)
        child.send(NUMBERS)
        child.expect_shown(*wrapped(number + 1, NUMBERS, wide))
        child.send("<enter>")
        child.expect_line(NUMBERS)
    child.expect_end()


def test_width_keeps_the_number_of_rows(start):
    """A line of more rows than the window has is shown as if no width had been set."""
    screens = []
    for change in ("pass", "Keyline.TerminalWidthIs(40)"):
        child = start("import Keyline; read(); %s; read()" % change, rows=4, columns=40)
        child.enter("")
        child.expect_prompt()
        child.send(NUMBERS * 2 + "<c-a>x")
        child.expect_taken()
        child.send("<enter>")
        child.expect_line("x" + NUMBERS * 2)
        child.expect_end()
        screens.append(bytes(child.display.raw))
    assert screens[0] == screens[1]


@pytest.mark.parametrize("arguments, error, text", [
    ("", "TypeError", "function takes exactly 1 argument (0 given)"),
    ("1, 2", "TypeError", "function takes exactly 1 argument (2 given)"),
    ("'80'", "TypeError", "int"),
    ("80.0", "TypeError", "int"),
    ("None", "TypeError", "int"),
    ("2 ** 31", "OverflowError", "int"),
])
def test_width_errors_name_no_function(run, arguments, error, text):
    """Deliberate: only this method's argument format carries no name."""
    found = run("import Keyline; tell('raised', raises(Keyline.TerminalWidthIs, %s))"
                % arguments if arguments else
                "import Keyline; tell('raised', raises(Keyline.TerminalWidthIs))")
    name, message = found.one("raised")
    assert name == error
    assert text in message
    assert "TerminalWidthIs" not in message


@pytest.mark.parametrize("width", [100, 1, 0, -5, 2 ** 31 - 1])
def test_any_width_is_accepted_before_there_is_an_editor(run, width):
    assert run("import Keyline; tell('got', Keyline.TerminalWidthIs(%d))"
               % width).one("got") is None


@pytest.mark.parametrize("landed", [False, True], ids=["fresh", "after a landing"])
def test_each_resize_counts(start, landed):
    """Several in one read; each time the editor moves over the rows of the newest width."""
    child = start("import Keyline\nread()\nKeyline.resetInput()\nread()\n")
    child.expect_prompt()
    if landed:
        child.send("ab")
        interrupt(child, "C", "sent")
    else:
        child.send("<enter>")
        child.expect_line("")
    child.expect_prompt()
    for columns in (40, 100, 61, 30, 80):
        child.resize(24, columns)
        child.send("<c-u>" + NUMBERS)
        child.expect_shown(*wrapped(2, NUMBERS, columns))
        child.send("<c-a>x<c-e>y")
        child.expect_shown(*wrapped(2, "x" + NUMBERS + "y", columns))
    child.send("<enter>")
    child.expect_line("x" + NUMBERS + "y")
    child.expect_end()


def test_resizes_of_a_wrapped_line(start):
    """The line keeps its text and the cursor its place, whatever the window does."""
    child = start("read()")
    child.expect_prompt()
    line = NUMBERS
    child.send(line + "<c-a>" + "<right>" * 15)
    child.expect_cursor(0, 18)
    for rows, columns in ((24, 40), (10, 20), (5, 132), (24, 7), (2, 80), (24, 80)):
        child.resize(rows, columns)
        child.send("<left>x")  # the cursor stays behind the first fifteen characters
        line = line[:14] + "x" + line[14:]
        # What the terminal made of the old rows is its own affair.
        child.send("<c-l>")
        child.expect_shown(*wrapped(1, line, columns))
        child.expect_cursor(18 // columns, 18 % columns)
    child.send("<enter>")
    child.expect_line(line)
    child.expect_end()


def test_storm_of_resizes(start):
    """Sizes change faster than they can be drawn; keys go on being taken."""
    child = start("read()\nread()")
    child.expect_prompt()
    chance = random.Random(4)
    typed = ""
    for again in range(300):
        child.resize(chance.randint(1, 40), chance.randint(1, 140))
        letter = chance.choice("abcdefgh ")
        typed += letter
        child.send(letter)
    child.resize(24, 80)
    child.send("<enter>")
    child.expect_line(typed)
    child.type("x" * 100, "x" * 77, "x" * 23)
    child.send("<enter>")
    child.expect_line("x" * 100)
    child.expect_end()


def test_resize_where_the_terminal_clears_only_rows(start, tmp_path):
    """Without the means to clear all that is below, the prompt's row is cleared alone."""
    (tmp_path / "settings").write_text("settc cd ''\n")
    child = start("read()", env={"EDITRC": str(tmp_path / "settings")})
    child.type("abc")
    before = len(child.display.raw)
    child.resize(24, 40)
    child.wait("the line redrawn", lambda: b"1> abc" in child.display.raw[before:])
    assert b"\r\x1b[K" in child.display.raw[before:]
    assert b"\x1b[J" not in child.display.raw
    child.send("<left>x<enter>")
    child.expect_line("abxc")
    child.expect_end()


def test_resize_with_editing_off(start, tmp_path):
    """The line is the terminal's own: nothing is drawn."""
    (tmp_path / "settings").write_text("edit off\n")
    child = start("read()\nread()", env={"EDITRC": str(tmp_path / "settings")})
    for line in ("ab", "cd"):
        child.expect_prompt()
        child.resize(24, 40 if line == "ab" else 100)
        child.send(line + "<enter>")
        child.expect_line(line)
    child.expect_end()
    assert child.display.raw == b"1> ab\r\n2> cd\r\n"
