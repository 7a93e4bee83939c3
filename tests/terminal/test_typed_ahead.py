"""Keys typed ahead of a prompt, and long pastes: whole, in order, and shown once.

All tests here send keys ahead of a prompt, that is what they are about.
"""
import termios
import zlib

import pytest

LETTERS = "abcdefghijklmnopqrstuvwxyz"


def text(length):
    return (LETTERS * (length // len(LETTERS) + 1))[:length]


# A shell that writes nothing between two lines but what is put in. Facts are told at the end
# alone: they are written, too.
QUIET = """
import Keyline
Keyline.readline("1> ")
wait_for("write")
%s
wait_for("read")
line = Keyline.readline("2> ")
tell("line", line)
"""


@pytest.mark.smoke
@pytest.mark.parametrize("keys, line", [
    ("abc", "abc"), ("a<tab>b", "ab"), ("ab<left>c", "acb"), ("x<c-a>", "x")])
def test_echo_before_the_prompt_is_cleared(start, keys, line):
    """However long it is: the terminal echoes a TAB, ^A and ^[[D in its own way."""
    child = start(QUIET % "")
    child.wait_screen("the prompt", lambda screen: screen[0] == "1>")
    child.send("<enter>")
    child.wait("the read's end", lambda: child.settings()[3] & termios.ICANON)
    child.send(keys)
    child.wait_screen("the echo", lambda screen: screen[1] != "")
    child.go("write")
    child.go("read")
    child.wait_screen("one row", lambda screen: screen[:3] == ["1>", "2> " + line, ""])
    child.send("<enter>")
    child.expect_line(line)
    child.expect_end()


@pytest.mark.parametrize("first", ["keys", "text"])
def test_echo_beside_text_stays(start, first):
    """Which came first is not known: the shell's own text is never cleared."""
    child = start(QUIET % "os.write(1, b'Name of user: ')")
    child.wait_screen("the prompt", lambda screen: screen[0] == "1>")
    child.send("<enter>")
    child.wait("the read's end", lambda: child.settings()[3] & termios.ICANON)
    for what in ("keys", "text") if first == "keys" else ("text", "keys"):
        if what == "keys":
            child.send("abc")
            child.wait_screen("the echo", lambda screen: "abc" in screen[1])
        else:
            child.go("write")
            child.wait_screen("the text", lambda screen: "Name of user:" in screen[1])
    child.go("read")
    row = "abcName of user: 2> abc" if first == "keys" else "Name of user: abc2> abc"
    child.wait_screen("one row", lambda screen: screen[:3] == ["1>", row, ""])
    child.send("<enter>")
    child.expect_line("abc")
    child.expect_end()


def test_echo_of_whole_lines_stays(start):
    """What has left the row cannot be taken back."""
    child = start("wait_for('read'); read(); read()")
    child.send("ab<enter>cd")
    child.wait_screen("the echo", lambda screen: screen[:2] == ["ab", "cd"])
    child.go("read")
    child.expect_line("ab")
    child.wait_screen("the second line", lambda screen: "2> cd" in screen)
    child.send("<enter>")
    child.expect_line("cd")
    child.wait_screen("each line once more",
                      lambda screen: screen[:4] == ["ab", "cd1> ab", "2> cd", ""])
    child.expect_end()


def test_keys_behind_enter_were_not_echoed(start):
    child = start("read(); os.write(1, b'note: '); read()")
    child.expect_prompt()
    child.send("<enter>abc")
    child.expect_line("")
    child.enter("", "abc")
    child.wait_screen("the note", lambda screen: screen[:2] == ["1>", "note: 2> abc"])
    child.expect_end()


def test_echo_on_another_terminal_than_the_output(start):
    child = start("""
sys.stdin = open(other_terminal, "r", closefd=False)
os.write(1, b"note: ")
wait_for("read")
read()
""", other=True)
    child.send_other("abc")
    child.wait("the echo", lambda: child.other.rows()[0] == "abc")
    child.go("read")
    child.expect_prompt()
    child.send_other("<enter>")
    child.expect_line("abc")
    child.wait_screen("the note", lambda screen: screen[0] == "note: 1> abc")
    child.expect_end()


COUNTED = """
import zlib
Keyline.historyLimitIs(0)
lines, sum = 0, 0
wait_for("read")
while True:
    line = Keyline.readline("%d> " % (lines + 1), None, "exec", "")
    if line == "#":
        break
    lines, sum = lines + 1, zlib.adler32(line.encode() + b"\\n", sum)
tell("read", (lines, sum))
"""


def adler(lines):
    return zlib.adler32("".join(line + "\n" for line in lines).encode(), 0)


@pytest.mark.once
@pytest.mark.parametrize("size, pause", [(4096, 0), (700, 0.002), (61, 0.0005), (7, 0.0001)],
                         ids=["at once", "bursts", "lines", "pieces"])
def test_ten_thousand_lines(start, size, pause):
    """The pauses are part of the input: a paste comes in pieces over a remote login."""
    count = {4096: 10000, 7: 300}.get(size, 2000)
    lines = ["%06d" % number + text(54) for number in range(count)]
    child = start("import Keyline" + COUNTED)
    child.go("read")
    child.send("".join(line + "\r" for line in lines) + "#\r", size, pause)
    child.expect_fact("read", (count, adler(lines)))
    child.expect_end()


@pytest.mark.once
@pytest.mark.parametrize("size, pause", [(4096, 0), (700, 0.002)], ids=["at once", "bursts"])
def test_a_hundred_thousand_characters(start, size, pause):
    """One line, and other lines typed right behind it."""
    lines = [text(100000), "one", "two " * 30, "", "three"]
    child = start("import Keyline" + COUNTED)
    child.go("read")
    child.expect_prompt()  # a terminal that is not raw keeps 4,095 characters of a line
    child.send("\r".join(lines) + "\r#\r", size, pause)
    child.expect_fact("read", (len(lines), adler(lines)))
    child.expect_end()
