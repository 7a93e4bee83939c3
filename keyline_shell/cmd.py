"""Help on "?", completion on TAB and a history for a program that uses cmd.Cmd.

    class Program(keyline_shell.cmd.Cmd):        # instead of cmd.Cmd, or before it

Its commands do_NAME(), their help and complete_NAME() are all that is needed.  A Cmd that
another one starts names the class whose history it sees, too:

    class Inner(keyline_shell.cmd.Cmd):
        history_parent = "Program"

Ctrl-C and Ctrl-Z at the prompt drop the line.  In a command Ctrl-C is the program's.
"""
import cmd
import inspect
import io
import os
from contextlib import redirect_stdout
from typing import Callable, Iterable, List, Optional, Tuple

import Keyline

from . import screen

NO_HELP = "*** No help after letters outside ASCII"
DELIMITERS = " \t\n`~!@#$%^&*()-=+[{]}\\|;:'\",<>/?"


class Cmd(cmd.Cmd):
    history_mode = ""  # key of the history; the class's name if empty
    history_parent = ""  # whose lines are recalled here, too
    completion_delimiters = DELIMITERS  # between the words that are completed

    def cmdloop(self, intro: Optional[str] = None) -> None:
        if not self.use_rawinput:  # it reads from its own stream
            super().cmdloop(intro)
            return
        screen.look()
        self.preloop()
        self.intro = self.intro if intro is None else intro
        if self.intro:
            self.stdout.write(str(self.intro) + "\n")
        stop = False
        try:
            while not stop:
                line = self.cmdqueue.pop(0) if self.cmdqueue else self._read()
                line = self.precmd(line)
                stop = self.postcmd(self.onecmd(line), line)
            self.postloop()
        finally:
            screen.leave(1)

    def _read(self) -> str:
        """The next line; "EOF" at the end of the input, as in the base class."""
        mode = self.history_mode or type(self).__name__
        Keyline.keyBindingsEnabledIs(True)  # sets the editor up, before the history is used
        while True:
            self.stdout.flush()
            try:
                line = Keyline.readline(
                    screen.prompt(self.prompt), self._on_key, mode, self.history_parent)
            except EOFError:
                return "EOF"
            except UnicodeDecodeError as error:
                screen.give_up("")
                print(NO_HELP)
                Keyline.addHistory(error.object[:error.start].decode(), mode, self.history_parent)
            except KeyboardInterrupt as interrupt:
                screen.give_up("^Z" if str(interrupt).startswith("Ctrl-Z") else "^C")
            else:
                Keyline.addHistory(line, mode, self.history_parent)
                return line

    def _on_key(self, key: bytes, line: str) -> Optional[str]:
        """Answers TAB and "?" at the prompt."""
        if not line.isascii():  # it is only a prefix of the line
            screen.replace(NO_HELP + "\n")
            return None
        answer, shown = None, ""
        try:
            word, matches = self._matches(line)
            if key == b"?":
                shown = self._help(line, matches)
                line += "?"
            else:
                answer = _completed(word, matches)
                shown = "" if answer else _rows(screen.columns(matches))
        except Exception as error:  # of the program, which a key must not end
            shown = "*** %s\n" % screen.visible(str(error))
        if shown:
            shown = screen.printed(self.prompt) + screen.visible(line) + "\n" + shown
        screen.replace(shown)
        return answer

    def _matches(self, line: str) -> Tuple[str, List[str]]:
        """The last word of the line, and its completions."""
        begin = max(line.rfind(letter) for letter in self.completion_delimiters) + 1
        stripped = line.lstrip()
        indent = len(line) - len(stripped)
        function: Callable[..., List[str]] = self.completenames
        if begin > indent:
            name = self.parseline(stripped)[0] or ""
            function = getattr(self, "complete_" + name, self.completedefault)
        found = function(line[begin:], stripped, begin - indent, len(stripped))
        return line[begin:], sorted(set(found or ()))

    def _help(self, line: str, matches: List[str]) -> str:
        """What is shown for "?": the commands that match, or the help of the one typed."""
        name, rest, _ = self.parseline(line)
        if name and (rest or line[-1].isspace()):
            return self._help_of(name) + _rows(screen.columns(matches))
        names = [match for match in matches if match != "EOF"]
        if not names:
            return "*** Unknown syntax: %s\n" % line.strip()
        width = max(map(len, names))
        return _rows("  %-*s  %s" % (width, one, self._help_of(one).split("\n")[0])
                     for one in names)

    def _help_of(self, name: str) -> str:
        """The output of the command help for a command; empty if it has no help."""
        before, self.stdout = self.stdout, io.StringIO()
        try:
            with redirect_stdout(self.stdout):
                self.do_help(name)
            text = inspect.cleandoc(self.stdout.getvalue()) + "\n"
        finally:
            self.stdout = before
        return "" if text.rstrip() == self.nohelp % name else text


def _completed(word: str, matches: List[str]) -> str:
    """What TAB adds to the line: all that the matches have in common."""
    common = os.path.commonprefix(matches)
    if len(matches) == 1 and not common.endswith(" "):
        common += " "
    if common.startswith(word):
        return common[len(word):]
    return "\b" * len(word) + common if common else ""


def _rows(lines: Iterable[str]) -> str:
    return "".join(line.rstrip() + "\n" for line in lines)
