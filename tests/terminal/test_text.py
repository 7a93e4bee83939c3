"""Text outside ASCII: typed, in several locales, and read without editing."""
import unicodedata

import pytest

from log_file import append
from reads import EOF, READERS, eof, interrupt, no_echo

C_LOCALE = {"LC_ALL": None, "LANG": "C", "PYTHONCOERCECLOCALE": "0"}
TEXT = "Büro 漢字 e\u0301 \U0001f600"


def undecodable(data, start, reason):
    """What a line of such bytes raises."""
    return ("UnicodeDecodeError", "'utf-8' codec can't decode byte 0x%02x in position %d: %s"
            % (data[start], start, reason))


# Typed

@pytest.mark.smoke
@pytest.mark.parametrize("reader", READERS)
def test_typed(start, reader):
    child = start("%s; %s" % (reader, reader))
    child.send(TEXT + "<enter>")
    child.expect_line(TEXT)
    child.send(TEXT + "<enter>", size=1, pause=0.002)
    child.expect_line(TEXT)
    child.expect_end()


def test_news_and_resizes_between_the_bytes(start):
    child = start("""
import Keyline
def news(descriptor, length):
    os.read(descriptor, length)
    tell("news")
    return 1
open("log", "w").close()
Keyline.loggingSyncEnabledIs("log", news)
read()
""")
    child.expect_prompt()
    for number, byte in enumerate("漢字".encode()):
        child.send("<0x%02x>" % byte)
        child.expect_taken()
        if number % 2:
            child.resize(24, 70 - number)
        else:
            append(child, "a line\n")
            child.expect_fact("news")
    child.send("<enter>")
    child.expect_line("漢字")
    child.expect_end()


@pytest.mark.parametrize("how", ["typed", "sent"])
def test_interrupt_between_the_bytes(start, how):
    """Nothing of the half character is left for the next read."""
    child = start("read(); read()")
    child.expect_prompt()
    child.send("a<0xe6><0xbc>")
    child.expect_taken()
    interrupt(child, "C", how)
    child.enter("b<0xa2>c", "bc")
    child.expect_end()


def test_a_signal_between_the_bytes_that_the_shell_handles(start):
    child = start("""
signal.signal(signal.SIGTERM, lambda number, frame: None)
read()
""")
    child.expect_prompt()
    child.send("a<0xe6><0xbc>")
    child.expect_taken()
    child.signal(15)
    child.send("<0xa2>c<enter>")
    child.expect_line("a漢c")
    child.expect_end()


@pytest.mark.parametrize("keys, line", [
    ("a<0xc3>b<0xe2><0x82><c-a>c<enter>", "cab"), ("a<0xf4><0x90><0x80><0x80>b<enter>", "ab"),
    ("<0xed><0xa0><0x80><0xc0><0x80>b<enter>", "b"),
])
def test_refused(start, keys, line):
    child = start("read()")
    child.send(keys)
    child.expect_line(line)
    assert child.display.raw.count(b"\a") == 2 - keys.startswith("a<0xf4>")
    child.expect_end()


def test_end_of_input_between_the_bytes(start):
    """0xff is the end of the input also there."""
    child = start("read(); read()")
    child.send("a<0xe6><0xff>")
    child.expect_raised(*EOF)
    child.send("b<enter>")
    child.expect_line("b")
    child.expect_end()


def test_typed_in_the_locale_of_ascii(start):
    """It is refused, and runs nothing."""
    child = start("read()", env=C_LOCALE)
    child.send("one \U0001f600z<enter>")
    child.expect_line("one z")
    child.expect_end()


def test_typed_in_a_locale_of_bytes(start, single_byte_locale):
    """The line is handed out as the bytes that were typed, which are no UTF-8."""
    child = start("""
import Keyline
try: Keyline.readline(next_prompt())
except UnicodeDecodeError as error: tell("bytes", error.object)
""", env=single_byte_locale)
    child.send("B<0xfc>ro<left><left><0xdf><enter>")
    child.expect_fact("bytes", b"B\xfc\xdfro")
    child.expect_end()


# Not edited

UNEDITED = [
    ("Büro\n".encode(), "Büro"),
    (TEXT.encode() + b"\n", TEXT),
    ("\x80\x9f\u202e\n".encode(), "\x80\x9f\u202e"),
    (b"a\xe9\xc3b\n", undecodable(b"a\xe9\xc3b", 1, "invalid continuation byte")),
    (b"\xed\xa0\x80\n", undecodable(b"\xed\xa0\x80", 0, "invalid continuation byte")),
    (b"a\xc3\n", undecodable(b"a\xc3", 1, "unexpected end of data")),
]


@pytest.mark.parametrize("env", [None, C_LOCALE], ids=["UTF-8", "C"])
@pytest.mark.parametrize("reader", READERS)
def test_byte_for_byte_from_a_pipe(run, reader, env):
    """simpleReadline reads with the editor's own reader here."""
    given = b"".join(line for line, result in UNEDITED)
    found = run("for number in range(%d): %s" % (len(UNEDITED) + 1, reader), stdin=given,
                env=env)
    assert found.results() == [result for line, result in UNEDITED] + [eof(reader)]


def test_byte_for_byte_in_a_locale_of_bytes(run, single_byte_locale):
    found = run("for number in range(%d): read()" % len(UNEDITED), env=single_byte_locale,
                stdin=b"".join(line for line, result in UNEDITED))
    assert found.results() == [result for line, result in UNEDITED]


def test_all_bytes_that_a_line_can_have(run):
    data = bytes(set(range(1, 255)) - {10, 13})
    found = run("""
import Keyline
try: Keyline.readline("")
except UnicodeDecodeError as error: tell("bytes", error.object)
""", stdin=data + b"\n")
    assert found.one("bytes") == data


def test_byte_for_byte_without_editing(start):
    child = start("read(); read(); read()", change_settings=no_echo)
    child.send("Büro<enter>a<0xe9>b<enter>c<enter>")
    child.expect_line("Büro")
    child.expect_raised(*undecodable(b"a\xe9b", 1, "invalid continuation byte"))
    child.expect_line("c")
    child.expect_end()


# On the screen

def composed(text):
    """As the tests' screen has it: letters with their marks in one."""
    return unicodedata.normalize("NFC", text)


def test_shown_as_it_is_laid_out(start):
    child = start("read()")
    child.type(TEXT, composed(TEXT))
    child.expect_cursor(0, 3 + 14)
    child.send("<left><left><left>")  # on the letter with its mark
    child.expect_cursor(0, 3 + 10)
    child.send("<bs><bs>")
    child.expect_shown(composed("Büro 漢e\u0301 \U0001f600"))
    child.expect_cursor(0, 3 + 7)
    child.send("x<right><bs>")
    child.expect_shown("Büro 漢x \U0001f600")
    child.send("<enter>")
    child.expect_line("Büro 漢x \U0001f600")
    child.expect_end()


@pytest.mark.parametrize("letter", ["\x80", "\x9b", "\xad", "\u200d", "\u202e", "\ufeff"])
def test_control_and_format_characters_are_escaped(start, letter):
    """Quoted control characters, and those that change the writing direction."""
    child = start("read(); read()")
    child.expect_prompt()
    form = "\\U+%04X" % ord(letter)
    child.send("a<c-v>%sb" % letter)
    child.expect_shown("a%sb" % form)
    child.send("<left><bs>")
    child.expect_shown("ab")
    child.send("<c-v>%s<enter>" % letter)
    child.expect_line("a%sb" % letter)
    assert letter.encode() not in child.display.raw
    child.send("x<enter>")
    child.expect_line("x")
    child.expect_end()


def test_refused_without_a_trace(start):
    child = start("read()", env=C_LOCALE)
    child.type("one \U0001f600z", "one z")
    child.send("<enter>")
    child.expect_line("one z")
    child.expect_end()


def test_recalled_and_searched(start):
    child = start("""
import Keyline
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory("B\\u00fcro \\u6f22", "exec", "")
Keyline.addHistory("plain", "exec", "")
read(None, "exec", "")
""")
    child.type("<up><up>", "Büro 漢")
    child.send("<down><down><c-r>ü")
    child.expect_shown("Büro 漢", "bck:ü")
    child.send("ro 漢")
    child.expect_shown("Büro 漢", "bck:üro 漢")
    child.send("<esc>x<enter>")
    child.expect_line("Bxüro 漢")
    child.expect_end()


def test_pasted(start):
    child = start("read(lambda key, line: 'no'); read(); read()")
    child.expect_prompt()
    child.send("<esc>[200~a\t?ü<c-d><enter>two<enter>e\u0301<esc>[201~")
    child.expect_line("a\t?ü")
    child.expect_line("two")
    child.expect_prompt()
    child.wait("one beep", lambda: child.display.raw.count(b"\a") == 1)
    child.send("<enter>")
    child.expect_line("e\u0301")
    child.expect_end()
