"""The command language: abbreviations, help and completion over a tree of words.

A keyword is in small letters and may be abbreviated.  <1-8> stands for a number and a name
in capitals for something else that the user chooses; KINDS says what fits it.
"""
import os
import re
from typing import TYPE_CHECKING, Callable, Dict, List, NamedTuple, Optional, Tuple

import screen

if TYPE_CHECKING:
    from session import Session

Handler = Callable[["Session", List[str]], None]  # gets the command's words in full
Tree = Dict[str, "Word"]

BYTE = "(25[0-5]|2[0-4][0-9]|1?[0-9]?[0-9])"
KINDS = {
    "LINE": ".+",  # all the rest of the line
    "NAME": "[A-Za-z][A-Za-z0-9-]*",
    "A.B.C.D/N": r"(%s\.){3}%s/(3[0-2]|[12]?[0-9])" % (BYTE, BYTE),
}


class Word(NamedTuple):
    help: str
    run: Optional[Handler] = None  # None when the command may not end here
    next: Dict[str, "Word"] = {}


class Mistake(Exception):
    """A command that cannot be understood, and where in the line that starts."""

    def __init__(self, start: int, message: str) -> None:
        super().__init__(message)
        self.start = start


def is_keyword(name: str) -> bool:
    return name[0].islower()


def accepts(name: str, typed: str) -> bool:
    if name.startswith("<"):
        low, high = name[1:-1].split("-")
        return bool(re.fullmatch("[0-9]{1,9}", typed)) and \
            int(low) <= int(typed) <= int(high)
    return bool(re.fullmatch(KINDS[name], typed))


def meant(tree: Tree, typed: str) -> List[str]:
    """The words of the tree that typed may stand for; keywords come first."""
    word = typed.lower()
    if word in tree:
        return [word]
    return [name for name in tree if is_keyword(name) and name.startswith(word)] or [
        name for name in tree if not is_keyword(name) and accepts(name, typed)]


def listed(tree: Tree) -> str:
    return ", ".join(sorted(tree)) or "the end of the line"


def follow(tree: Tree, line: str) -> Tuple[Word, List[str]]:
    """Goes along the line; returns the word at its end, and all its words in full."""
    word = Word("", None, tree)
    words: List[str] = []
    for match in re.finditer(r"\S+", line):
        typed, start = match.group(), match.start()
        names = meant(word.next, typed)
        if len(names) > 1:
            raise Mistake(start, 'Ambiguous word "%s": %s' % (typed, " or ".join(names)))
        if not names:
            expected = listed(word.next)
            raise Mistake(start, 'Unknown word "%s": expected %s' % (typed, expected))
        word = word.next[names[0]]
        if names == ["LINE"]:
            return word._replace(next={"LINE": word}), words + [line[start:].rstrip()]
        words.append(names[0] if is_keyword(names[0]) else typed)
    return word, words


def parse(tree: Tree, line: str) -> Tuple[Handler, List[str]]:
    """The handler of the line's command, and the line's words in full."""
    word, words = follow(tree, line)
    if word.run is None:
        raise Mistake(
            len(line.rstrip()) + 1, "Incomplete command: expected " + listed(word.next))
    return word.run, words


def choices(tree: Tree, line: str) -> Tuple[str, Dict[str, str]]:
    """The last word of the line as far as it is typed; what fits there, with its help."""
    typed = re.split(r"\s", line)[-1]
    start = len(line) - len(typed)
    word, _ = follow(tree, line[:start])
    found = {name: after.help for name, after in sorted(word.next.items())
             if name.startswith(typed.lower()) or not is_keyword(name)}
    if not typed and word.run:
        found["<cr>"] = "run the command"
    if not found:
        follow(tree, line)  # raises what is wrong with the last word
    return typed, found


def describe(tree: Tree, line: str, columns: int) -> str:
    """What may follow, as a column of words and a column of meanings."""
    _, found = choices(tree, line)
    width = max(len(name) for name in found)
    return "".join(screen.fold("  %-*s  %s" % (width, name, text), columns, width + 4)
                   for name, text in found.items())


def complete(tree: Tree, line: str, columns: int) -> Tuple[Optional[str], str]:
    """What the editor is to append to the line, if anything; else a list of what fits."""
    typed, found = choices(tree, line)
    names = list(found)
    # Backspaces first: the word typed may be in capitals.
    if len(names) == 1 and is_keyword(names[0]):
        return "\b" * len(typed) + names[0] + " ", ""
    common = os.path.commonprefix(names)
    if len(common) > len(typed) and is_keyword(common):
        return "\b" * len(typed) + common, ""
    return None, screen.fold("  " + "  ".join(names), columns)
