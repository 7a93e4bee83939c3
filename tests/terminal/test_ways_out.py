"""Every way out of a read: the terminal's settings and the signals are as they were found.

Each read of each test checks that (child.py: attempt); here the ways and the settings vary.
"""
import termios

import pytest

from reads import EOF, SIMPLE_EOF


WAYS = {
    "line": ("ab<enter>", ("line", "ab")),
    "empty": ("<enter>", ("line", "")),
    "end of input": ("<c-d>", ("raised", EOF)),
    "bad byte": ("<0xff>", ("raised", EOF)),
    "Ctrl-C": ("ab<c-c>", ("raised", ("KeyboardInterrupt", "Ctrl-C pressed"))),
    "Ctrl-Z": ("ab<c-z>", ("raised", ("KeyboardInterrupt", "Ctrl-Z pressed"))),
    "exception": ("ab?", ("raised", ("LookupError", "ab"))),
    "bad answer": ("ab<c-a>.?", ("raised", ("TypeError", None))),
}
COMPLETER = """
def complete(key, line):
    if key == b"\\t":
        return "-done"
    if line.startswith("."):
        return 5
    raise LookupError(line)
"""


def unusual(settings):
    """No ^C shown and no flush on it, other flags and characters than usual."""
    settings[3] &= ~(termios.ECHOCTL | termios.ECHOKE)
    settings[3] |= termios.NOFLSH | termios.TOSTOP
    settings[0] &= ~(termios.IXON | termios.BRKINT)
    settings[0] |= termios.IXANY
    settings[6][termios.VKILL] = b"\x18"
    settings[6][termios.VWERASE] = b"\0"
    settings[6][termios.VMIN], settings[6][termios.VTIME] = b"\x03", b"\x07"


@pytest.mark.parametrize("change", [None, unusual], ids=["usual", "unusual"])
@pytest.mark.parametrize("completed", ["", "x<tab>"], ids=["plain", "completed"])
@pytest.mark.parametrize("way", WAYS)
def test_found_as_it_was_after(start, way, completed, change):
    """Also when a completion ran earlier in the same read, and on the reads after that."""
    typed, (kind, value) = WAYS[way]
    child = start(COMPLETER + "for number in range(3): read(complete)",
                  change_settings=change)
    for again in range(2):
        child.expect_prompt()
        if completed:
            child.send(completed)
            child.expect_shown("x-done", redrawn=True)
            child.send("<c-u>")
        child.expect_shown("")
        child.send(typed)
        told = child.expect_fact(kind)
        if value and value[-1] is None:
            assert told[0] == value[0]
        else:
            assert told == value
    child.enter("after<tab>", "after-done")
    child.expect_end()


@pytest.mark.parametrize("change", [None, unusual], ids=["usual", "unusual"])
@pytest.mark.parametrize("way", ["line", "empty", "end of input"])
def test_found_as_it_was_after_simple(start, way, change):
    typed, (kind, value) = WAYS[way]
    child = start("simple_read(); simple_read(); read(); simple_read()",
                  change_settings=change)
    for reader in ("simple", "simple", "", "simple"):
        child.expect_prompt()
        child.send(typed)
        child.expect_fact(kind, SIMPLE_EOF if value == EOF and reader else value)
    child.expect_end()


def test_editing_is_off_where_echo_was_off(start):
    """The line is read as it comes, keys and all, and nothing of it is shown."""
    def no_echo(settings):
        settings[3] &= ~termios.ECHO

    child = start("read()", change_settings=no_echo)
    child.enter("ab<c-a>c", "ab\x01c")
    child.expect_shown("")
    child.expect_end()


# Lines that are no text

def test_decoding_error(start, single_byte_locale):
    """Half of a character is left in a line of single-byte characters."""
    child = start("import locale; locale.setlocale(locale.LC_CTYPE, '')\n"
                  "read(lambda key, line: '\\u00e9'); read()", env=single_byte_locale)
    child.expect_prompt()
    child.send("a<tab><bs><enter>")
    name, message = child.expect_fact("raised")
    assert name == "UnicodeDecodeError" and "'utf-8' codec can't decode" in message
    child.enter("a")
    child.expect_end()


def test_decoding_error_of_simple(run):
    """The editor's own reader takes bytes as they come."""
    found = run("simple_read(); simple_read()", stdin=b"a\xf4\x90\x80\x80\nb\n")
    (name, message), line = found.results()
    assert name == "UnicodeDecodeError" and "'utf-8' codec can't decode" in message
    assert line == "b"


# Exceptions that a callback left

def test_callback_that_raises_ends_the_read(start):
    child = start("""
def complete(key, line):
    raise LookupError(line)
read(complete)
read()
""")
    child.expect_prompt()
    child.send("ab<tab>")
    child.expect_raised("LookupError", "ab")
    child.enter("next")
    child.expect_end()


def test_exception_of_a_simple_read_waits_for_a_normal_return(start):
    """An interrupted readline neither raises nor drops it; the next one loses its line."""
    child = start("""
def complete(key, line):
    raise LookupError(line)
read(complete)
simple_read(watched=False)
""" + "signal.signal(signal.SIGINT, signal.default_int_handler)\nread()\n" * 3)
    child.enter("")
    child.expect_prompt()
    child.send("ab<tab>")
    child.expect_raised(*SIMPLE_EOF)
    child.expect_prompt()
    child.send("x<c-c>")
    child.expect_raised("KeyboardInterrupt", "Ctrl-C pressed")
    child.expect_prompt()
    child.send("lost<enter>")
    child.expect_raised("LookupError", "ab")
    child.enter("kept")
    child.expect_end()
