"""The command language: abbreviations, help and completion over a tree of words.

A keyword is in lower case and may be abbreviated.  <1-8> stands for a number, and a name in
capitals for another value that the user types; its kind says what matches.  Nothing here
uses a terminal.
"""
import inspect
import re
from dataclasses import dataclass, field, replace
from os.path import commonprefix
from typing import (Any, Callable, Dict, Iterable, List, Mapping, NamedTuple, Optional, Tuple,
                    Union)

Handler = Callable[..., object]  # gets the values that were typed, in order: numbers as int
Tree = Dict[str, "Word"]
Values = Callable[[], Union[Iterable[str], Mapping[str, str]]]
MOST_PATHS = 4096  # of one pattern


@dataclass
class Word:
    help: str = ""
    run: Optional[Handler] = None  # None when the command may not end here
    next: Tree = field(default_factory=dict)


class Refused(Exception):
    """Raised by a command that refuses to run; its text is shown."""


class Mistake(Exception):
    """A syntax error, and where in the line it is."""

    def __init__(self, start: int, message: str) -> None:
        super().__init__(message)
        self.start = start


class Kind:
    """What may be typed for a name in capitals.

    fits: a regular expression, or a function of the word that returns its value, or raises
    ValueError.  values: a function that returns the current values, perhaps with their help;
    without fits no others are accepted.
    """

    def __init__(self, fits: Union[str, Callable[[str], object], None] = None, help: str = "",
                 values: Optional[Values] = None) -> None:
        self.fits, self.help, self.values = fits, help, values

    def value(self, typed: str) -> object:
        if self.fits is None:
            if self.values and typed not in self.known():
                raise ValueError(typed)
        elif callable(self.fits):
            return self.fits(typed)
        elif not re.fullmatch(self.fits, typed):
            raise ValueError(typed)
        return typed

    def known(self) -> Dict[str, str]:
        """The current values that can be typed, with their help."""
        found = self.values() if self.values else ()
        pairs = found.items() if isinstance(found, Mapping) else ((name, "") for name in found)
        return {name: text for name, text in pairs if re.fullmatch(r"\S+", name)
                and name.isprintable()}


KINDS = {
    "LINE": Kind(help="The rest of the line"),
    "NAME": Kind("[A-Za-z][A-Za-z0-9-]*", "Letters, digits and hyphens; a letter first"),
    "WORD": Kind(help="A word"),
}


class Choice(NamedTuple):
    name: str
    help: str
    whole: bool  # it can be typed as it is


class Command(NamedTuple):
    run: Handler
    values: List[object]
    words: List[str]  # in full


def is_keyword(name: str) -> bool:
    return name[0].islower() or name[0].isdigit()


def listed(tree: Tree) -> str:
    return ", ".join(sorted(tree)) or "the end of the line"


def combine(one: Tree, other: Tree) -> Tree:
    """A tree with the words of both; where they differ, the other one wins."""
    both = dict(one)
    for name, word in other.items():
        if name in one:
            word = Word(word.help or one[name].help, word.run or one[name].run,
                        combine(one[name].next, word.next))
        both[name] = word
    return both


class Language:
    """The kinds, and the parser of lines."""

    def __init__(self) -> None:
        self.kinds: Dict[str, Kind] = dict(KINDS)

    def value(self, name: str, typed: str) -> object:
        """The value of a typed word for that kind or number range, or ValueError."""
        bounds = re.fullmatch(r"<(-?[0-9]+)-(-?[0-9]+)>", name)
        if not bounds:
            return self.kinds[name].value(typed)
        if not re.fullmatch("-?[0-9]{1,18}", typed):
            raise ValueError(typed)
        low, high, number = int(bounds[1]), int(bounds[2]), int(typed)
        if not low <= number <= high:
            raise ValueError(typed)
        return number

    def meant(self, tree: Tree, typed: str) -> List[Tuple[str, object]]:
        """The words of the tree that typed matches, with its value; keywords win."""
        word = typed.lower()
        if word in tree and is_keyword(word):
            return [(word, word)]
        found: List[Tuple[str, object]] = [
            (name, name) for name in tree if is_keyword(name) and name.startswith(word)]
        if not found:
            for name in tree:
                if not is_keyword(name):
                    try:
                        found.append((name, self.value(name, typed)))
                    except ValueError:
                        pass
        for name in "LINE", "WORD":  # only if nothing else matches
            if len(found) > 1:
                found = [one for one in found if one[0] != name]
        return found

    def follow(self, tree: Tree, line: str) -> Tuple[Word, List[object], List[str]]:
        """Parses the line; returns its last word, the values, and all words in full."""
        word, values, words = Word(next=tree), [], []  # type: Word, List[object], List[str]
        for match in re.finditer(r"\S+", line):
            typed, start = match.group(), match.start()
            found = self.meant(word.next, typed)
            if len(found) > 1:
                names = " or ".join(name for name, _ in found)
                raise Mistake(start, 'Ambiguous word "%s": %s' % (typed, names))
            if not found:
                expected = listed(word.next)
                raise Mistake(start, 'Unknown word "%s": expected %s' % (typed, expected))
            name, value = found[0]
            word = word.next[name]
            if name == "LINE":
                rest = line[start:].rstrip()
                return replace(word, next={"LINE": word}), values + [rest], words + [rest]
            if not is_keyword(name):
                values.append(value)
            words.append(name if is_keyword(name) else typed)
        return word, values, words

    def parse(self, tree: Tree, line: str) -> Command:
        word, values, words = self.follow(tree, line)
        if word.run is None:
            raise Mistake(len(line.rstrip()) + 1,
                          "Incomplete command: expected " + listed(word.next))
        return Command(word.run, values, words)

    def choices(self, tree: Tree, line: str) -> Tuple[str, List[Choice]]:
        """The last, perhaps incomplete word of the line, and what matches there."""
        typed = re.split(r"\s", line)[-1]
        word, _, _ = self.follow(tree, line[:len(line) - len(typed)])
        found: List[Choice] = []
        for name, after in sorted(word.next.items()):
            if is_keyword(name):
                if name.startswith(typed.lower()):
                    found.append(Choice(name, after.help, True))
                continue
            kind = self.kinds.get(name)
            known = kind.known() if kind else {}
            help = after.help or (kind.help if kind else "")
            found += [Choice(value, text or help, True)
                      for value, text in sorted(known.items()) if value.startswith(typed)]
            if not known or kind and kind.fits is not None:
                found.append(Choice(name, help, False))
        if not typed and word.run:
            found.append(Choice("<cr>", "run the command", False))
        if not found:
            self.follow(tree, line)  # raises what is wrong with the last word
        return typed, found

    def complete(self, tree: Tree, line: str) -> Tuple[Optional[str], List[Choice]]:
        """What the editor is to append to the line, or None; and the choices."""
        typed, found = self.choices(tree, line)
        if found and all(choice.whole for choice in found):
            names = [choice.name for choice in found]
            # Backspaces first: the word typed may be in capitals.
            if len(names) == 1:
                return "\b" * len(typed) + names[0] + " ", found
            common = commonprefix(names)
            if len(common) > len(typed):
                return "\b" * len(typed) + common, found
        return None, found

    # --- From patterns and functions to trees ------------------------------------------

    def tree(self, pattern: str, function: Handler, help: Optional[str] = None,
             no: Union[bool, str] = False) -> Tree:
        """The tree of a command: `ping NAME [count <1-100>]`, `shutdown`, `set (on|off)`.

        The values that are typed are passed to the function in order; one that is left out
        has the function's default, or is not passed to a function with *args.  The help is
        the docstring's first row, and its rows `WORD: text` are for words of the pattern.
        no: `no` and the leading keywords, or a pattern, run the function with its defaults,
        and no=True if it has that parameter; `no WORD: text` is help for it.
        """
        paths, slots = _Pattern(pattern).expand()
        for path in paths:
            for name, *_ in path:
                if not is_keyword(name) and name not in self.kinds and name[0] != "<":
                    raise ValueError("%s: unknown kind %s" % (pattern, name))
        signature = inspect.signature(function).parameters
        names = [name for name in signature if name != "no"]
        if any(one.kind is one.VAR_POSITIONAL for one in signature.values()):
            names = []
        elif len(names) != len(slots):
            raise TypeError("%s: %d values, but %d parameters" % (
                pattern, len(slots), len(names)))
        texts = _Texts(inspect.getdoc(function) or "" if help is None else help)
        made: Tree = {}
        for path in paths:
            made = combine(made, texts.along(path, _runner(function, names, slots, path)))
        if no:
            leading = pattern if no is True else no
            keywords = re.match(r"(?:[a-z0-9][^\s\[\]()|]*\s*)*", leading)
            words = ["no"] + (keywords.group().split() if keywords else [])
            extra = {"no": True} if "no" in signature else {}
            inspect.signature(function).bind(**extra)  # all else has a default
            path = [Step(word, None, None) for word in words]
            undo = texts.along(path, lambda: function(**extra), undone=True)
            undo["no"].help = undo["no"].help or "Undo a command"
            made = combine(made, undo)
        return made


class Step(NamedTuple):
    name: str
    slot: Optional[int]  # the index of its value among the function's parameters
    value: Optional[object]  # None for a value that is typed


Path = List[Step]


class _Pattern:
    """A parser: [optional], (one|of|these), words."""

    def __init__(self, text: str) -> None:
        self.text = text
        self.tokens = re.findall(r"[][()|]|[^][()|\s]+", text)
        self.slots: List[bool] = []  # whether each is a flag, False when it is left out

    def expand(self) -> Tuple[List[Path], List[bool]]:
        """All sequences of words that are the command."""
        paths = self.alternatives("")
        if self.tokens or not all(paths):
            raise ValueError("%s: invalid pattern" % self.text)
        return paths, self.slots

    def slot(self, flag: bool = False) -> int:
        self.slots.append(flag)
        return len(self.slots) - 1

    def alternatives(self, end: str) -> List[Path]:
        """Up to that end. A choice of single words is one value, as is one of keywords."""
        begun = len(self.slots)
        branches = [self.sequence()]
        while self.tokens and self.tokens[0] == "|":
            self.tokens.pop(0)
            branches.append(self.sequence())
        if end:
            if not self.tokens or self.tokens.pop(0) != end:
                raise ValueError("%s: %s is missing" % (self.text, end))
        paths = [path for branch in branches for path in branch]
        if len(branches) == 1:
            return paths
        if len(self.slots) == begun or all(len(path) == 1 for path in paths):
            del self.slots[begun:]
            slot = self.slot()
            return [[Step(path[0].name, slot,
                          " ".join(step.name for step in path) if is_keyword(path[0].name)
                          else None)] + path[1:] for path in paths]
        return paths

    def sequence(self) -> List[Path]:
        paths: List[Path] = [[]]
        while self.tokens and self.tokens[0] not in ("|", ")", "]"):
            token = self.tokens.pop(0)
            if token == "(":
                after = self.alternatives(")")
            elif token == "[":
                begun = len(self.slots)
                after = self.alternatives("]")
                if len(self.slots) == begun:
                    slot = self.slot(flag=True)
                    after = [[path[0]._replace(slot=slot, value=True)] + path[1:]
                             for path in after if path]
                after = after + [[]]
            elif is_keyword(token):
                after = [[Step(token, None, None)]]
            else:
                after = [[Step(token, self.slot(), None)]]
            paths = [path + more for path in paths for more in after]
            if len(paths) > MOST_PATHS:
                raise ValueError("%s: too many alternatives" % self.text)
        return paths


class _Texts:
    """The help for the words of a pattern."""

    def __init__(self, text: str) -> None:
        self.first = text.split("\n")[0].strip()
        self.words: Dict[str, str] = dict(re.findall(
            r"(?m)^\s*((?:no )?\S+): +(.*\S)", "\n".join(text.split("\n")[1:])))

    def along(self, path: Path, run: Handler, undone: bool = False) -> Tree:
        """The tree of one path; the last of its leading keywords has the first row."""
        leading = 0
        while leading + 1 < len(path) and all(
                is_keyword(step.name) and step.slot is None for step in path[:leading + 2]):
            leading += 1
        tree: Tree = {}
        for at in range(len(path) - 1, -1, -1):
            name = path[at].name
            text = self.words.get(name, self.first if at == leading else "")
            if undone:
                text = self.words.get("no " + name, text)
            tree = {name: Word(text, run if at == len(path) - 1 else None, tree)}
        return tree


def _runner(function: Handler, names: List[str], slots: List[bool], path: Path) -> Handler:
    """Runs the function with the values of this path."""
    flags = {name: False for name, flag in zip(names, slots) if flag}

    def run(*chosen: object) -> object:
        left, values = list(chosen), []
        for step in path:
            value = step.value if is_keyword(step.name) else left.pop(0)
            if step.slot is not None:
                values.append((step.slot, value))
        if not names:
            return function(*(value for _, value in values))
        named: Dict[str, Any] = dict(flags)
        return function(**dict(named, **{names[slot]: value for slot, value in values}))

    if not names:
        return run
    inspect.signature(function).bind(**flags, **{
        names[step.slot]: None for step in path
        if step.slot is not None and not slots[step.slot]})
    return run
