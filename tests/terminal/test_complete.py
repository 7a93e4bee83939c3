"""The completion keys: what the callback gets, what its answer does, what the user sees.

A completion draws prompt and line again where the cursor stands, without going to the start
of the row, deliberately: code that prints must have left the row. Both cases are tested.
"""
import pytest

# Answers what the test says, in turn; with leave set it goes to a row of its own before.
ANSWERING = """
answers, leave = iter(%r), %r
def complete(key, line):
    tell("asked", (key, line))
    if leave:
        os.write(1, b"\\r\\n")
    return next(answers)
"""
DONE = "def done(key, line): return '-done'\n"
LEAVES = pytest.mark.parametrize("leave", [False, True], ids=["silent", "leaves the row"])
# The line, the answer, the line after it.
ANSWERS = {
    "none": ("show", None, "show"),
    "none, no line": ("", None, ""),
    "empty": ("show", "", "show"),
    "text": ("sho", "w version ", "show version "),
    "text, no line": ("", "show", "show"),
    "fewer backspaces": ("show", "\b\b\b", "s"),
    "as many backspaces": ("show", "\b" * 4, ""),
    "more backspaces": ("show", "\b" * 9, ""),
    "backspaces, no line": ("", "\b\b", ""),
    "backspaces and text": ("show ab", "\b\bxy", "show xy"),
    "more backspaces and text": ("ab", "\b" * 5 + "xyz", "xyz"),
    "backspaces further on": ("ab", "\bx\b\by", "ax\b\by"),
    "text behind a NUL": ("x", "a\0b", "xa"),
}
CURSORS = {"end": "", "middle": "<left>", "start": "<c-a>"}


def draw(cells, place, text, columns):
    """Puts text into cells, place counted on over the rows; answers the place behind it.

    Behind a text that fills its last row the editor goes to the next by a blank and a return.
    """
    cells.update(enumerate(text, place))
    place += len(text)
    if len(text) % columns == 0:
        cells[place] = " "
        place = place // columns * columns
    return place


def expect_redrawn(child, typed, back, after, leave, stays=False, columns=80):
    """From the prompt's row on: the line as typed, and prompt and line drawn again.

    Where the cursor stays inside a line that was drawn in mid-row, the editor counts from
    another place than the user does, so only the text is looked at.
    """
    prompt, shown, cells = "%d> " % child.prompt, after.replace("\b", "^H"), {}
    place = draw(cells, 0, prompt + typed, columns) - back
    if leave:
        place = (place // columns + 1) * columns
    cursor = draw(cells, place, prompt + shown, columns) - (back if stays else 0)
    flat = "".join(cells.get(index, " ") for index in range(max(cells) + 1)).rstrip()
    rows = [flat[index:index + columns].rstrip() for index in range(0, len(flat), columns)]
    there = child.start_row + cursor // columns, cursor % columns

    def seen():
        found = child.display.rows()[child.start_row:]
        return (found[:len(rows)] == rows and not any(found[len(rows):])
                and (stays and back and not leave or child.display.cursor() == there))

    child.wait("the rows %r, the cursor at %r" % (rows, there), seen)


def expect_prompt(child):
    child.expect_prompt()
    child.start_row = child.display.cursor()[0]


@pytest.mark.smoke
@LEAVES
@pytest.mark.parametrize("case", ANSWERS)
def test_answer(start, case, leave):
    """The callback gets key and whole line; its answer changes the end, wherever the cursor is."""
    line, answer, after = ANSWERS[case]
    child = start(ANSWERING % ([answer] * 6, leave)
                  + "for number in range(6): read(complete)")
    for key, code in (("<tab>", b"\t"), ("?", b"?")):
        for name, move in CURSORS.items():
            expect_prompt(child)
            child.send(line + move + key)
            child.expect_fact("asked", (code, line))
            back = min(len(line), {"end": 0, "middle": 1, "start": len(line)}[name])
            # Where nothing is changed the cursor stays where it was.
            expect_redrawn(child, line, back, after, leave, stays=not answer)
            child.send("<enter>")
            child.expect_line(after)
    child.expect_end()


WRAPPED = {
    "text": (50, "-done"), "many backspaces": (50, "\b" * 35), "more": (50, "\b" * 60),
    "over the margin": (12, "w" * 60), "fifteen rows": (300, "-done"),
    "backspaces and text": (50, "\b" * 30 + "y" * 70), "up to the margin": (97, ""),
}


@LEAVES
@pytest.mark.parametrize("typed, answer", list(WRAPPED.values()), ids=list(WRAPPED))
def test_answer_to_a_wrapped_line(start, typed, answer, leave):
    after = "x" * max(0, typed - answer.count("\b")) + answer.lstrip("\b")
    child = start(ANSWERING % ([answer], leave) + "read(complete)", rows=60, columns=20)
    expect_prompt(child)
    child.send("x" * typed + "<tab>")
    child.expect_fact("asked", (b"\t", "x" * typed))
    expect_redrawn(child, "x" * typed, 0, after, leave, columns=20)
    child.send("<enter>")
    child.expect_line(after)
    child.expect_end()


@pytest.mark.parametrize("end", [r"\x01\x1b[0m\x02 ", r" \x01\x1b[0m\x02"],
                         ids=["before the blank", "behind the blank"])
def test_coloured_prompt(start, end):
    """What is between the ignore marks has no width: the line wraps in the right column."""
    child = start(ANSWERING % (["-done"], True) + """
import Keyline
for number in "12":
    prompt = "\\x01\\x1b[31m\\x02" + number + ">%s"
    attempt(Keyline.readline, prompt, complete)
""" % end)
    child.prompt = 1  # other bytes than usual, but the same on the screen
    child.expect_shown("")
    child.expect_cursor(0, 3)
    child.send("x" * 100 + "<tab>")
    child.expect_fact("asked", (b"\t", "x" * 100))
    child.expect_shown("x" * 77, "x" * 23 + "-done", redrawn=True)
    child.expect_cursor(1, 28)
    cells = child.display.screen.buffer
    places = (0, 0), (0, 3), (2, 0), (2, 3), (3, 0)
    assert [cells[row][column].fg for row, column in places] == [
        "red", "default", "red", "default", "default"]
    child.send("<c-a>y")
    child.expect_shown("y" + "x" * 76, "x" * 24 + "-done", redrawn=True)
    child.expect_cursor(0, 4)
    child.send("<enter>")
    child.expect_line("y" + "x" * 100 + "-done")
    child.prompt = 2
    child.expect_shown("")
    child.send("<enter>")
    child.expect_line("")
    child.expect_end()


@pytest.mark.parametrize("reader", ["read()", "read(None)", "read(None, 'exec', '')"])
def test_no_callback(start, reader):
    """Nothing is inserted, completed from the files that are there, or drawn."""
    child = start(reader)
    child.type("scr<tab>?<left><tab>?<end>x", "scrx")
    child.send("<enter>")
    child.expect_line("scrx")
    child.expect_end()
    assert child.display.raw == b"1> scr\b" + b"rx\r\n"


# Answers and callbacks that end the read

FAILURES = {
    "number": ("lambda key, line: 5", "TypeError", "bad argument type"),
    "bool": ("lambda key, line: False", "TypeError", "bad argument type"),
    "bytes": ("lambda key, line: b'x'", "TypeError", "bad argument type"),
    "list": ("lambda key, line: ['x']", "TypeError", "bad argument type"),
    "surrogate": ("lambda key, line: 'x\\ud800'", "UnicodeEncodeError", "surrogates not"),
    "not callable": ("5", "TypeError", "'int' object is not callable"),
    "no parameters": ("lambda: ''", "TypeError", "2 were given"),
    "three parameters": ("lambda line, pos, key: ''", "TypeError", "missing 1 required"),
    "raises": ("lambda key, line: [][0]", "IndexError", "list index out of range"),
    "exits": ("lambda key, line: sys.exit('gone')", "SystemExit", "gone"),
    "ends input": ("lambda key, line: next(iter(()))", "StopIteration", ""),
}


@pytest.mark.parametrize("key", ["<tab>", "?"])
@pytest.mark.parametrize("case", FAILURES)
def test_failure(start, case, key):
    """No drawing: the read ends, its line is lost, and the next one completes again."""
    callback, name, message = FAILURES[case]
    child = start(DONE + "failing = " + callback
                  + "\nread(failing); read(done); read(failing)")
    child.expect_prompt()
    child.send("ab<left>" + key)
    told = child.expect_fact("raised")
    assert told[0] == name and message in told[1]
    child.type("cd" + key, "cd-done", redrawn=True)
    child.send("<enter>")
    child.expect_line("cd-done")
    child.expect_prompt()
    child.send(key)
    assert child.expect_fact("raised") == told
    child.expect_end()
    assert child.display.rows()[:4] == ["1> ab", "2> cd2> cd-done", "3>", ""]


def test_exception_is_kept_whole(start):
    """The same object, with its cause and its traceback down to the callback."""
    child = start("""
import Keyline, traceback
class Refused(Exception):
    pass
problem = Refused("no", 5)
def helper(line):
    raise problem from KeyError(line)
def complete(key, line):
    helper(line)
for number in range(2):
    try:
        Keyline.readline(next_prompt(), complete)
    except Refused as error:
        os.write(1, b"\\n")
        tell("same", error is problem and error.args == ("no", 5))
        tell("cause", repr(error.__cause__))
        tell("trace", [(entry.name, entry.line)
                       for entry in traceback.extract_tb(error.__traceback__)])
        problem.__traceback__ = None
""")
    for number in range(2):
        child.expect_prompt()
        child.send("ab?")
        child.expect_fact("same", True)
        child.expect_fact("cause", "KeyError('ab')")
        child.expect_fact("trace", [
            ("<module>", "Keyline.readline(next_prompt(), complete)"),
            ("complete", "helper(line)"),
            ("helper", "raise problem from KeyError(line)")])
    child.expect_end()


# Lines that are long, and lines that are no ASCII

@pytest.mark.parametrize("length", [10, 1000, 5000, 20000])
def test_long_line(start, length):
    """Completed from its start, then cut at its end: the callback gets it whole."""
    line = "".join(chr(ord("a") + index % 26) for index in range(length))
    child = start("""
answers = iter(["-done", "\b" * 7 + "!", None])
def complete(key, line):
    tell("asked", line)
    os.write(1, b"\\r\\n")
    return next(answers)
read(complete)
""")
    child.expect_prompt()
    child.send(line + "<tab>")
    child.expect_fact("asked", line)
    child.send("<c-a><tab>")
    child.expect_fact("asked", line + "-done")
    child.send("<tab>")
    child.expect_fact("asked", line[:-2] + "!")
    child.wait_screen("the end of the line",
                      lambda rows: "".join(rows).endswith(line[-8:-2] + "!"))
    child.send("<enter>")
    child.expect_line(line[:-2] + "!")
    child.expect_end()


# Lines, and their prefixes that are as many bytes long as the lines have characters.
PREFIXES = [("éé", "é"), ("€€€", "€"), ("a€€€", "a€"), ("🐍🐍🐍🐍", "🐍"), ("日本語", "日"),
            ("abüßcd", "abüß"), ("café au lait", "café au lai")]
CUT = ["é", "né", "abcé", "a€", "€€", "🐍", "abéüß"]


@pytest.mark.parametrize("way", ["callback", "history"])
@pytest.mark.parametrize("text, prefix", PREFIXES)
def test_other_characters(start, text, prefix, way):
    """Shown and returned whole; the callback gets as many bytes as there are characters."""
    child = start("""
import Keyline
text = %r
answers = iter([text] if %r == "callback" else [])
def complete(key, line):
    tell("asked", line)
    return next(answers, None)
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory(text, "exec", "")
read(complete, "exec", "")
""" % (text, way))
    child.expect_prompt()
    if way == "callback":
        child.send("<tab>")
        child.expect_fact("asked", "")
    else:
        child.send("<up>")
    child.expect_shown(text, redrawn=True)
    child.send("?")
    child.expect_fact("asked", prefix)
    child.send("<enter>")
    child.expect_line(text)
    child.expect_end()


@pytest.mark.parametrize("way", ["callback", "history"])
@pytest.mark.parametrize("text", CUT)
def test_cut_inside_a_character(start, text, way):
    """Then the call itself fails, and the next read works."""
    child = start(DONE + """
import Keyline
def complete(key, line):
    return %r
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory(%r, "exec", "")
read(complete, "exec", "")
read(done)
""" % (text, text))
    child.expect_prompt()
    child.send(("<tab>" if way == "callback" else "<up>") + "<tab>")
    name, message = child.expect_fact("raised")
    assert name == "UnicodeDecodeError"
    assert "'utf-8' codec can't decode" in message and "unexpected end of data" in message
    child.enter("<up><c-u>ab<tab>", "ab-done")
    child.expect_end()
