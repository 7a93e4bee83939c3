"""One user at the shell: reads lines, helps with them, runs them."""
import os
import signal
import sys
from typing import Dict, Optional

import Keyline
import screen
import words
from commands import MODES
from log import Log


NO_HELP = "% Help is not there behind letters outside ASCII"


class Device:
    """What the commands configure; it stays from one user to the next."""

    def __init__(self) -> None:
        self.hostname = "demo"
        self.interfaces: Dict[str, Dict[str, str]] = {}


class Session:
    def __init__(self, device: Device, log: Log) -> None:
        self.device = device
        self.log = log
        self.mode = "exec"  # key of MODES and of the history; empty when the user has left
        self.interface = ""
        self.widths: Dict[int, int] = {}  # set for a window of so many columns
        self.history_size = 1024
        Keyline.historyLimitIs(self.history_size)

    def run(self) -> int:
        """Runs commands until the user leaves; without a terminal, until a mistake.

        Returns the exit status.
        """
        try:
            return self.read_and_run()
        finally:
            screen.leave(sys.stdout.fileno())

    def read_and_run(self) -> int:
        interactive = sys.stdin.isatty()
        if interactive:
            screen.look()
            print("? helps, TAB completes, exit leaves")
            # While a line is read, the module takes these two.  At other times they do
            # nothing: the commands are short, and no key must hit the loop between them.
            for number in signal.SIGINT, signal.SIGTSTP:
                signal.signal(number, signal.SIG_IGN)
        count = 0
        while self.mode:
            mode, parent = self.mode, MODES[self.mode].parent
            count += 1
            try:
                line = Keyline.readline(
                    screen.prompt(self.prompt()), self.on_key, mode, parent)
                Keyline.addHistory(line, mode, parent)
                self.execute(line)
            except EOFError:
                if not sys.stdin.isatty():  # a pipe, a file, or a terminal that is gone
                    break
                print()
                self.leave()
            except UnicodeDecodeError as error:
                # A locale of other characters, or help behind such, where the line was cut
                # within one: the callback was not called.
                if not interactive:
                    sys.stdout.flush()
                    sys.stderr.write("line %d: %% The line is no UTF-8\n" % count)
                    return 1
                screen.give_up("")
                print(NO_HELP)
                if error.start:
                    Keyline.addHistory(error.object[:error.start].decode(), mode, parent)
            except KeyboardInterrupt as interrupt:
                if not interactive:
                    return 130
                # Both keys end the read in the same way; the text tells which it was.
                stop = str(interrupt).startswith("Ctrl-Z")
                screen.give_up("^Z" if stop else "^C")
                if stop:
                    self.mode = "exec"
            except (words.Mistake, OSError) as error:
                if not interactive:
                    sys.stdout.flush()
                    where = "line %d: " % count
                    sys.stderr.write(
                        where + line + "\n" + explain(where + line, len(where), error))
                    return 1
                print(self.explain(line, error), end="")
            sys.stdout.flush()
        return 0

    def execute(self, line: str) -> None:
        if line.strip() and not line.lstrip().startswith("!"):  # which starts a comment
            run, in_full = words.parse(MODES[self.mode].commands, line)
            run(self, in_full)

    def on_key(self, key: bytes, line: str) -> Optional[str]:
        """Answers TAB and "?": what the editor is to append to the line, or None.

        The editor draws prompt and line again after any answer, so they go first.
        """
        if not line.isascii():  # then it is only the beginning of the line
            screen.replace(NO_HELP + "\n")
            return None
        commands, columns = MODES[self.mode].commands, self.columns()
        answer, text = None, ""
        shown = line + ("?" if key == b"?" else "")
        try:
            if key == b"?":
                text = words.describe(commands, line, columns)
            else:
                answer, text = words.complete(commands, line, columns)
        except words.Mistake as mistake:
            text = self.explain(shown, mistake)
        if text:
            text = self.prompt() + screen.visible(shown) + "\n" + text
        screen.replace(text)
        return answer

    def explain(self, line: str, error: Exception) -> str:
        return explain(self.prompt() + line, len(self.prompt()), error, self.columns())

    def prompt(self) -> str:
        return MODES[self.mode].prompt % self.device.hostname

    def window(self) -> int:
        try:
            return os.get_terminal_size(sys.stdout.fileno()).columns
        except OSError:  # no terminal
            return 0

    def columns(self) -> int:
        """Where lines wrap: a width that was set holds until the window changes."""
        window = self.window()
        return self.widths.get(window, window) or 80

    def settings(self) -> Dict[str, str]:
        """Those of the interface being configured."""
        return self.device.interfaces[self.interface]

    def leave(self) -> None:
        self.mode = MODES[self.mode].parent


def explain(row: str, start: int, error: Exception, columns: int = sys.maxsize) -> str:
    """Says what is wrong with a command that was printed, and starts there in that row.

    Points at the word, unless the row was broken into several and it is in an upper one.
    """
    text = screen.fold("% " + screen.visible(str(error)), columns)
    if not isinstance(error, words.Mistake):
        return text
    broken, column = divmod(screen.width(row[:start + error.start]), columns)
    last = screen.width(row) // columns  # with a full row, the cursor was in the next one
    return " " * column + "^\n" + text if broken == last else text
