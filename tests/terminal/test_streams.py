"""The streams that a line is read from: pipes, files, other terminals, unusable ones."""
import pytest

from reads import EOF, READERS, eof


@pytest.mark.parametrize("kind", ["pipe", "file"])
@pytest.mark.parametrize("reader", READERS)
@pytest.mark.parametrize("given, lines", [
    (b"", []),
    (b"one\ntwo\n", ["one", "two"]),
    (b"one\ntwo", ["one", "two"]),
    (b"\n\n", ["", ""]),
    (b"one\rtwo\n", ["one", "two"]),
    (b" a\tb? \n", [" a\tb? "]),
    (b"\x01\x02\x03\x1a\n", ["\x01\x02\x03\x1a"]),
    (b"ab\0cd\nef\n", ["ab", "ef"]),
    (b"\0" + b"y" * 40 + b"\nef\n", ["", "ef"]),
    (b"z" * 5000 + b"\nef\n", ["z" * 5000, "ef"]),
], ids=["nothing", "lines", "no last newline", "empty", "return", "blanks", "control",
        "nul", "leading nul", "long"])
def test_lines_without_a_terminal(run, tmp_path, kind, reader, given, lines):
    script = "for number in range(%d): %s" % (len(lines) + 2, reader)
    if kind == "file":
        path = tmp_path / "input"
        path.write_bytes(given)
        with open(path, "rb") as file:
            found = run(script, stdin=file)
    else:
        found = run(script, stdin=given)
    assert found.results() == lines + [eof(reader)] * 2
    assert b"> " not in found.stdout


def test_the_end_that_a_byte_is_in_a_pipe(run):
    """As at a terminal: 0xff ends a read, what came before it is still a line."""
    found = run("for number in range(3): read()", stdin=b"cd\xffef\n")
    assert found.results() == ["cd", "ef", EOF]


@pytest.mark.parametrize("reader", READERS)
def test_one_byte_at_a_time(run, tmp_path, reader):
    """What follows the line stays in the file, for the next reader of the descriptor."""
    path = tmp_path / "input"
    path.write_bytes(b"first\nrest\n")
    with open(path, "rb") as file:
        found = run(reader + "\ntell('rest', os.read(0, 100))", stdin=file)
    assert found.results() == ["first"]
    assert found.one("rest") == b"rest\n"


def test_output_that_is_no_terminal(start):
    """Nobody could see any editing: the terminal's own stays in force."""
    child = start("os.dup2(output_pipe, 1); read(lambda key, line: 'no'); read()",
                  pipe=True)
    child.send("ab\tx<bs>c<enter>")
    child.expect_line("ab\tc")
    child.send("<c-d>")
    child.expect_raised(*EOF)
    child.expect_end()
    assert child.piped == b"\n"  # from the script, after the exception


# Other streams than the first ones

def test_input_and_output_on_different_terminals(start):
    child = start("""
sys.stdout = open(other_terminal, "w", closefd=False)
before = termios.tcgetattr(other_terminal)
read(lambda key, line: "able")
read()
tell("same", termios.tcgetattr(other_terminal) == before)
""", other=True)
    child.expect_prompt(child.other)
    child.send("vari<tab>")
    child.expect_shown("variable", display=child.other, redrawn=True)
    child.send("<enter>")
    child.expect_line("variable")
    child.expect_prompt(child.other)
    child.send("<c-c>")
    child.expect_raised("KeyboardInterrupt", "Ctrl-C pressed")
    child.expect_fact("same", True)
    child.expect_end()
    assert b">" not in child.display.raw and b"vari" not in child.display.raw


def test_a_new_user_on_a_new_terminal(start):
    """After a reset the streams of the moment count; the old terminal is left alone."""
    child = start("""
import Keyline
read()
Keyline.resetInput()
sys.stdin = open(other_terminal, "r", closefd=False)
sys.stdout = open(other_terminal, "w", closefd=False)
before = termios.tcgetattr(other_terminal)
read(lambda key, line: "able")
tell("same", termios.tcgetattr(other_terminal) == before)
""", other=True)
    child.enter("first")
    child.expect_prompt(child.other)
    shown = bytes(child.display.raw)
    child.send_other("vari<tab>")
    child.expect_shown("variable", display=child.other, redrawn=True)
    child.send_other("<enter>")
    child.expect_line("variable")
    child.expect_fact("same", True)
    child.expect_end()
    assert bytes(child.display.raw) == shown


def test_streams_are_those_of_the_first_read(start):
    """Replacing sys.stdin and sys.stdout without a reset changes nothing."""
    child = start("""
read()
sys.stdin = open(other_terminal, "r", closefd=False)
sys.stdout = open(other_terminal, "w", closefd=False)
read()
""", other=True)
    for line in ("one", "two"):
        child.enter(line)
    child.expect_end()
    assert not child.other.raw


def test_keys_typed_ahead_of_a_reset_are_not_lost(start):
    """Sends bytes ahead of a prompt: they wait in the terminal for the new editor."""
    child = start("""
import Keyline
read()
wait_for("reset")
Keyline.resetInput()
read()
""")
    child.enter("one")
    child.send("two<enter>")
    child.wait("the echo of the typed-ahead line", lambda: b"two" in child.display.raw)
    child.go("reset")
    child.expect_line("two")
    child.expect_end()


# The first is of a kind that the interpreter's collector knows: the reference that a set-up
# takes, and only a reset drops, would else look like a leak to the sanitizers.
BAD_STREAMS = [
    ("type('Nothing', (), {})()", "AttributeError"),
    ("__import__('io').StringIO('text')", "UnsupportedOperation"),
    ("Stream(flush_error=ValueError('flush'))", "ValueError"),
    ("Stream(number='7')", "TypeError"),
    ("Stream(number=-1)", "ValueError"),
    ("Stream(number=999)", "OSError"),
    ("Stream(number=os.open('/dev/null', os.O_WRONLY if name == 'stdin' else os.O_RDONLY))",
     "OSError"),
    ("None", "AttributeError"),
]
STREAM = """
class Stream:
    def __init__(self, number=0, flush_error=None):
        self.number, self.flush_error, self.flushed = number, flush_error, 0
    def flush(self):
        self.flushed += 1
        if self.flush_error:
            raise self.flush_error
    def fileno(self):
        return self.number
"""


@pytest.mark.parametrize("name", ["stdin", "stdout"])
@pytest.mark.parametrize("stream, error", BAD_STREAMS)
def test_stream_that_cannot_be_wrapped(start, name, stream, error):
    """The editor uses the process's own stream, the exception stays set, and it is set up.

    The interpreter complains of a result with an exception set; ours is at its root.
    """
    child = start(STREAM + """
import Keyline
name = %r
setattr(sys, name, %s)
try:
    Keyline.readline(next_prompt())
except BaseException as error:
    while error.__cause__ or error.__context__:
        error = error.__cause__ or error.__context__
    tell("root", type(error).__name__)
setattr(sys, name, getattr(sys, "__" + name + "__"))
tell("enabled", Keyline.keyBindingsEnabled())
read(lambda key, line: "able")
""" % (name, stream))
    child.expect_prompt()
    child.send("lost<enter>")
    child.expect_fact("root", error)
    child.expect_fact("enabled", True)
    child.type("vari<tab>", "variable", redrawn=True)
    child.send("<enter>")
    child.expect_line("variable")
    child.expect_end()


def test_both_streams_are_flushed_once_at_set_up(start):
    """The input too, deliberately."""
    child = start(STREAM + """
sys.stdin, sys.stdout = Stream(0), Stream(1)
read()
read()
tell("flushed", (sys.stdin.flushed, sys.stdout.flushed))
""")
    for number in range(2):
        child.enter("")
    child.expect_fact("flushed", (1, 1))
    child.expect_end()
