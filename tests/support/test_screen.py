"""The tests' own screen does what terminals do."""
import pytest

from screen import Display

CASES = {
    "a wide character is not cut": ("abc\u6f22", ["abc ", "\u6f22  "], (1, 2)),
    "half of one is overwritten": ("\u6f22\rb", ["b   ", "    "], (0, 1)),
    "its other half": ("\u6f22\x08b", [" b  ", "    "], (0, 2)),
    "half of one is pushed out": ("ab\u6f22\r\x1b[@", [" ab ", "    "], (0, 0)),
    "half of one is erased": ("a\u6f22\x08\x1b[K", ["a   ", "    "], (0, 2)),
    "half of one is deleted": ("\u6f22ab\r\x1b[P", [" ab ", "    "], (0, 0)),
    "marks": ("\u6f22\u0301e\u0301", ["\u6f22\u0301\u00e9 ", "    "], (0, 3)),
    "what is pushed out is gone": ("abcd\r\x1b[@\x1b[P", ["abc ", "    "], (0, 0)),
    "inserted in insert mode": ("ab\r\x1b[4h\u6f22\x1b[4l", ["\u6f22ab", "    "], (0, 2)),
    "saved once": ("a\x1b7b\x1b7\r\x1b8c\r\x1b8d", ["abd ", "    "], (0, 3)),
    "scrolled": ("a\r\nb\r\nc", ["b   ", "c   "], (1, 1)),
}


@pytest.mark.parametrize("case", CASES)
def test_what_is_shown(case):
    text, rows, cursor = CASES[case]
    display = Display(2, 4)
    display.feed(text.encode())
    assert (display.cells(), display.cursor()) == (rows, cursor)


SIZES = {
    "lower under the cursor": ((2, 4), ["b   ", "cd  "], (1, 2)),
    "lower": ((3, 4), ["a   ", "b   ", "cd  "], (2, 2)),
    "higher": ((5, 4), ["a   ", "b   ", "cd  ", "    ", "    "], (2, 2)),
    "narrower": ((4, 1), ["a", "b", "c", " "], (2, 0)),
    "wider": ((4, 6), ["a     ", "b     ", "cd    ", "      "], (2, 2)),
}


@pytest.mark.parametrize("size", SIZES)
def test_another_size(size):
    to, rows, cursor = SIZES[size]
    display = Display(4, 4)
    display.feed(b"a\r\nb\r\ncd")
    display.screen.resize(*to)
    assert (display.cells(), display.cursor()) == (rows, cursor)


def test_a_wide_character_is_cut_to_nothing():
    display = Display(1, 4)
    display.feed("ab\u6f22".encode())
    display.screen.resize(1, 3)
    assert display.cells() == ["ab "]


def test_questions_are_answered_when_asked_for():
    display, answers = Display(2, 4), []
    display.feed(b"ab\x1b[6n")
    display.screen.answer = answers.append
    display.feed(b"\x1b[6n")
    assert answers == [b"\x1b[1;3R"]
