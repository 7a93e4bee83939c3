"""The judge of tools/terminals sees each fault in what a terminal holds."""
import os
import sys

import pytest

from script import ROOT

sys.path.insert(0, os.path.join(ROOT, "tools", "real_terminals"))

import judge  # noqa: E402 pylint: disable=wrong-import-position

ROWS = ["row 1", "row 2", "row 3"]
LINE = "> abcdefghijklmn"


@pytest.mark.parametrize("lines, fault", [
    ([*ROWS, LINE], {}),
    ([*ROWS[:2], LINE], {"lost": 1}),
    (["row 1", "r> abcdefghijklmn"], {"lost": 2, "copies": 1}),
    ([*ROWS[:2], *ROWS, LINE], {"doubled": 2}),
    ([*ROWS, "> abcdefgh", LINE], {"copies": 1}),
    ([*ROWS, "mn", LINE], {"copies": 1}),
    ([*ROWS, "> abcdefgh" + LINE], {"copies": 1}),  # joined with the copy
    ([*ROWS, "> abcdefghXklmn"], {"wrong": 1}),
    ([*ROWS, LINE, "mn"], {"wrong": 1}),
    ([*ROWS], {"wrong": 1}),
    ([*ROWS, "> abcdefgh", "ijklmn"], {"broken": 1}),
    ([*ROWS, "> abcdefg", "hijklmn"], {"wrong": 1}),  # a blank in the row of ten
    (["row 1", "row 2     row 3", LINE], {"broken": 1}),  # output joined with output
])
def test_faults(lines, fault):
    verdict = judge.judge(lines, "> ", LINE[2:], ROWS, 10)
    assert verdict == judge.Verdict(**fault)
    assert verdict.is_right() == (not fault)


def test_gap_before_a_wide_character_is_the_terminals_own():
    for gap in ("", " ", "\0"):
        assert judge.judge(["> abcdefg" + gap + "\u4e16\u754c"], "> ",
                           "abcdefg\u4e16\u754c", [], 10).is_right()
    assert judge.judge(["> abcdefg", "\u4e16\u754c"], "> ", "abcdefg\u4e16\u754c", [],
                       10) == judge.Verdict(broken=1)
