"""Questions that a command asks.

Ctrl-C ends the command, and so do Ctrl-D and the end of the input.  Without a terminal an
answer is the next line of the input, and an invalid one ends the session.  Answers are not in
the history.
"""
import sys
from typing import Dict, Iterable, List, Mapping, Optional, Union

import Keyline

from . import keys, screen
from .help import NO_HELP, Completer, completer
from .reader import reader
from .words import Kind, Language, Refused, Word

MODE = "?"  # of the history: there is nothing in it


def _read(prompt: str, complete: Optional[Completer] = None) -> str:
    while True:
        try:
            with reader.waiting(editing=True):
                return Keyline.readline(screen.prompt(prompt), complete, MODE, "")
        except KeyboardInterrupt as interrupt:
            screen.mark(interrupt)
            raise
        except UnicodeDecodeError:
            if not screen.terminal():
                raise Refused("The line is not UTF-8") from None
            screen.give_up("")
            print(NO_HELP)


def _again(problem: str) -> None:
    """Tells the user; without one, an invalid answer is an error."""
    if not screen.terminal():
        raise Refused(problem)
    print("%% %s" % problem)


def ask(question: str, default: str = "") -> str:
    """A line, in which TAB and "?" insert themselves; an empty one is the default."""
    helps = Keyline.keyBindingsEnabled()
    Keyline.keyBindingsEnabledIs(False)
    try:
        shown = " [%s]" % screen.visible(default) if default else ""
        return _read("%s%s: " % (question, shown)).strip() or default
    finally:
        Keyline.keyBindingsEnabledIs(helps)


def confirm(question: str, default: Optional[bool] = None) -> bool:
    """Yes or no, also abbreviated."""
    shown = {None: "y/n", True: "Y/n", False: "y/N"}[default]
    while True:
        answer = _read("%s [%s] " % (question, shown)).strip().lower()
        if not answer and default is not None:
            return default
        if answer and ("yes".startswith(answer) or "no".startswith(answer)):
            return answer[0] == "y"
        _again("Answer yes or no")


def choose(question: str, choices: Union[Iterable[str], Mapping[str, str]],
           default: str = "") -> str:
    """One of these, also abbreviated, with TAB and "?"; a mapping gives their help."""
    texts: Dict[str, str] = dict(choices) if isinstance(choices, Mapping) else dict.fromkeys(
        choices, "")
    language = Language()
    language.kinds["CHOICE"] = Kind(values=lambda: texts)
    tree = {"CHOICE": Word("", lambda choice: choice)}
    prompt = "%s%s: " % (question, " [%s]" % default if default else "")
    while True:
        answer = _read(prompt, completer(language, lambda: tree, prompt)).strip() or default
        found: List[str] = [answer] if answer in texts else [
            name for name in texts if answer and name.lower().startswith(answer.lower())]
        if len(found) == 1:
            return found[0]
        _again("Answer one of: " + ", ".join(found or texts))


def password(question: str = "Password: ", twice: str = "") -> str:
    """A line that is not echoed; with twice, that question follows until both are equal."""
    while True:
        first = _hidden(question)
        if not twice or _hidden(twice) == first:
            return first
        _again("They differ")


def _hidden(question: str) -> str:
    if not sys.stdin.isatty():  # wherever the output goes
        return _read(question)
    try:
        typed = keys.read_hidden(sys.stdin.fileno(), question)
    except KeyboardInterrupt as interrupt:
        screen.mark(interrupt)
        raise
    print(flush=True)
    return typed
