"""Compares what a terminal holds with what it should."""
import re
from typing import NamedTuple

from scenarios import width

WIDE = "\u4e16\u754c"  # the wide characters that there are


class Verdict(NamedTuple):
    lost: int = 0  # rows of output that are not there any more
    doubled: int = 0  # that are there again
    copies: int = 0  # of prompt and line, or pieces, beyond the one
    wrong: int = 0  # 1: the line, or the cursor in it, is not right
    broken: int = 0  # 1: the line is right, but not one line of its own when copied

    def __add__(self, other):
        return Verdict(*(a + b for a, b in zip(self, other)))

    def is_right(self):
        return not any(self)

    def __str__(self):
        return ", ".join("%s %d" % pair for pair in zip(self._fields, self) if pair[1]) or "right"


def after_output(lines, rows):
    """What stands below the last row of output that is there."""
    places = [at for at, line in enumerate(lines) if line in rows]
    return lines[places[-1] + 1:] if places else lines


def split_at_prompts(below, prompt):
    """What stands before the first prompt, and what from each prompt to the next.

    A copy that was left may have become one line with the next.
    """
    pieces = [[]]
    for line in below:
        first, *others = line.split(prompt.rstrip())
        if first or not others:
            pieces[-1].append(first)
        pieces += [[prompt.rstrip() + text] for text in others]
    return pieces


def filled(piece, columns):
    """The text of rows that should have been one line."""
    full = [line + " " * (-width(line) % columns) for line in piece[:-1]]
    return without_gaps("".join(full) + piece[-1]) if piece else ""


def without_gaps(text):
    """Without the gap before a wide character that goes to the next row."""
    return re.sub("[ \0](?=[%s])" % WIDE, "", text)


def unglued(lines, rows, columns):
    """The lines, but those with a row of output in them as the rows that they fill."""
    for line in lines:
        pieces = [line[at:at + columns].rstrip() for at in range(0, len(line), columns)] or [""]
        yield from pieces if set(pieces) & rows else [line]


def judge(lines, prompt, text, rows, columns):
    """lines is what the terminal holds, rows what was printed above."""
    loose = list(unglued(lines, set(rows), columns))
    lost = sum(row not in loose for row in rows)
    doubled = sum(max(0, loose.count(row) - 1) for row in rows)
    pieces = split_at_prompts(after_output(loose, rows), prompt)
    last = pieces.pop()
    right = filled(last, columns) == without_gaps((prompt + text).rstrip())
    return Verdict(lost, doubled, sum(any(piece) for piece in pieces), int(not right),
                   int(right and (len(last) != 1 or loose != lines)))
