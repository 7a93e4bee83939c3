"""One session: reads lines, gives help and runs commands."""
import os
import signal
import sys
from contextlib import ExitStack, contextmanager
from types import FrameType
from typing import Callable, Dict, Iterator, Optional, TextIO, Union

import Keyline

from . import screen
from .help import NO_HELP, completer, explain
from .history import History
from .reader import Ends, Idle, reader
from .shell import Mode, Shell
from .words import Mistake, Refused

Handler = Callable[[int, Optional[FrameType]], None]
IDLE = 124  # the exit status, as of timeout(1)


class Session:
    def __init__(self, shell: Shell) -> None:
        self.shell = shell
        self.open = False  # a command runs, which Ctrl-C ends
        self.ends: Optional[Ends] = None
        self.file: Optional[History] = None  # of the history
        self.last = ""  # line of the history

    def run(self, file: Optional[TextIO]) -> int:
        shell, before = self.shell, sys.stdin
        shell.current, shell.status, shell.limit = shell.top, 0, shell.history_size
        reader.over = ""
        if file:
            sys.stdin = file
        try:
            if sys.stdin.isatty():
                screen.look()
            if shell.log_shown:
                self.show_log()
            try:
                if sys.stdin.isatty():
                    with self.user():
                        self.loop()
                else:
                    with self.editor():
                        shell.status = self.commands()
            finally:
                shell.log.hide()
        finally:
            sys.stdin, shell.current = before, None
        ended = getattr(signal, reader.over, None)
        if ended:  # the default action
            os.kill(os.getpid(), ended)
        return shell.status

    @contextmanager
    def editor(self) -> Iterator[None]:
        """The editor on the streams of this session."""
        Keyline.keyBindingsEnabledIs(True)  # sets the editor up
        Keyline.historyLimitIs(self.shell.limit)
        try:
            yield
        finally:
            Keyline.resetInput()

    def show_log(self) -> None:
        """A missing log file does not end the session."""
        try:
            self.shell.log.show(self.shell.log_file)
        except OSError as error:
            print("% " + screen.visible(str(error)))

    # --- A user at a terminal ----------------------------------------------------------

    @contextmanager
    def user(self) -> Iterator[None]:
        """The session of a user at a terminal, from the banner to the good-bye."""
        with ExitStack() as stack:
            stack.callback(screen.leave, sys.stdout.fileno())
            self.signals(stack)
            if self.shell.banner:
                print(self.shell.banner)
            stack.enter_context(self.editor())
            if self.shell.history:
                self.recall()
            if self.shell.idle:
                idle = Idle(sys.stdin.fileno(), self.shell.idle, self.warning(), self.warn)
                stack.callback(idle.stop)
            yield
            if reader.over == "idle":
                print("%% No key for %g seconds: good-bye" % self.shell.idle, flush=True)
                self.shell.status = IDLE

    def signals(self, stack: ExitStack) -> None:
        """Installs the handlers for Ctrl-C and Ctrl-Z outside of a read, and for the end."""
        handlers: Dict[signal.Signals, Union[Handler, signal.Handlers]] = {
            # Programs that a command starts get Ctrl-C, and inherit that Ctrl-Z is ignored:
            # there is no job control to continue them.
            signal.SIGINT: self.on_key, signal.SIGTSTP: signal.SIG_IGN}
        ends = [number for number in (signal.SIGTERM, signal.SIGQUIT)
                if signal.getsignal(number) == signal.SIG_DFL]
        handlers.update(dict.fromkeys(ends, self.on_end))
        if signal.getsignal(signal.SIGHUP) == signal.SIG_DFL:
            # A hangup shows as the end of the input, so that the session ends in order.
            handlers[signal.SIGHUP] = self.on_key
        for number, handler in handlers.items():
            before = signal.signal(number, handler)
            stack.callback(signal.signal, number, before or signal.SIG_DFL)
        self.ends = Ends(ends)
        stack.callback(self.ends.stop)

    def on_key(self, number: int, frame: Optional[FrameType]) -> None:
        """Ends the command, once; between commands it does nothing."""
        if self.open:
            self.open = False
            raise KeyboardInterrupt

    def on_end(self, number: int, frame: Optional[FrameType]) -> None:
        reader.over = reader.over or signal.Signals(number).name
        self.on_key(number, frame)

    def warning(self) -> float:
        """How long before the timeout the user is warned: at most half of it."""
        return min(self.shell.warning, self.shell.idle / 2)

    def warn(self) -> None:
        self.shell.say("%% No key for %g seconds: the session ends in %g" % (
            self.shell.idle - self.warning(), self.warning()))

    def loop(self) -> None:
        try:
            while self.shell.current and not reader.over:
                mode = self.shell.current
                prompt = mode.prompt()
                line = self.read(mode, prompt)
                if line is not None:
                    self.one(mode, prompt, line)
                sys.stdout.flush()
        except OSError:
            if screen.terminal():
                raise
            drop_output()  # no terminal any more
            self.shell.leave()

    def read(self, mode: Mode, prompt: str) -> Optional[str]:
        """A line; None when there is none to run."""
        if self.ends:
            self.ends.again()
        try:
            with reader.waiting(editing=True):
                return self.line(mode, prompt)
        except EOFError:
            if not sys.stdin.isatty():  # no terminal any more
                self.shell.leave()
                return None
            print()
            self.shell.up()
        except UnicodeDecodeError as error:
            # The locale is not UTF-8; or help was typed after letters outside ASCII, where the
            # line passed to the callback is cut inside a character, and it was not called.
            screen.give_up("")
            print(NO_HELP)
            if error.start:
                Keyline.addHistory(error.object[:error.start].decode(), mode.name, parent(mode))
        except KeyboardInterrupt as interrupt:
            # Both keys raise the same exception; its text says which it was.
            stop = str(interrupt).startswith("Ctrl-Z")
            screen.give_up("" if reader.over else "^Z" if stop else "^C")
            if stop:
                self.shell.top.enter()
        return None

    def line(self, mode: Mode, prompt: str) -> str:
        complete = completer(self.shell.language, mode.commands, prompt)
        return Keyline.readline(screen.prompt(prompt), complete, mode.name, parent(mode))

    def one(self, mode: Mode, prompt: str, line: str) -> None:
        self.remember(mode, line)
        try:
            self.execute(mode, line)
        except KeyboardInterrupt as interrupt:
            print()
            if str(interrupt).startswith("Ctrl-Z"):
                self.shell.top.enter()
        except EOFError:  # a question without an answer
            print()
        except (Mistake, Refused, OSError) as error:
            print(explain(prompt, line, error, screen.line_width()), end="")

    def execute(self, mode: Mode, line: str) -> None:
        if not line.strip() or line.lstrip().startswith(self.shell.comment):
            return
        command = self.shell.language.parse(mode.commands(), line)
        self.shell.words = command.words
        try:
            self.open = True
            command.run(*command.values)
        finally:
            self.open = False

    # --- The history ---------------------------------------------------------------------

    def recall(self) -> None:
        """Loads the history of other sessions."""
        file = History(self.shell.history, self.shell.history_size)
        try:
            entries, problem = file.load()
        except OSError as error:
            self.complain(error)
            return
        self.file = file
        if problem:
            print("% " + screen.visible(problem))
        for mode in self.shell.modes.values():
            Keyline.newHistoryMode(mode.name, parent(mode))
        for name, line in entries:
            if name in self.shell.modes:
                Keyline.addHistory(line, name, parent(self.shell.modes[name]))
                self.last = line

    def remember(self, mode: Mode, line: str) -> None:
        Keyline.addHistory(line, mode.name, parent(mode))
        if self.file and line.strip() and line != self.last and self.shell.limit:
            self.last = line
            try:
                self.file.add(mode.name, line)
            except OSError as error:
                self.complain(error)

    def complain(self, error: OSError) -> None:
        """Says it once, and goes on without the history file."""
        self.file = None
        print("% The history is not saved: " + screen.visible(str(error)))

    # --- Without a terminal ----------------------------------------------------------------

    def commands(self) -> int:
        """Runs commands until an error; returns the exit status."""
        count = 0
        while self.shell.current:
            mode, line = self.shell.current, ""
            count += 1
            try:
                try:
                    line = self.line(mode, "")
                except EOFError:
                    break
                Keyline.addHistory(line, mode.name, parent(mode))
                self.execute(mode, line)
                sys.stdout.flush()
            except UnicodeDecodeError:
                return wrong("line %d: %% The line is not UTF-8\n" % count)
            except EOFError:
                return wrong("line %d: %s\n%% There is no answer\n" % (
                    count, screen.visible(line)))
            except KeyboardInterrupt:
                return 128 + signal.SIGINT
            except BrokenPipeError:  # nobody reads what is printed
                drop_output()
                return 128 + signal.SIGPIPE
            except (Mistake, Refused, OSError) as error:
                where = "line %d: " % count
                return wrong(where + screen.visible(line) + "\n"
                             + explain(where, line, error, sys.maxsize))
        return self.shell.status


def parent(mode: Mode) -> str:
    return mode.parent.name if mode.parent else ""


def drop_output() -> None:
    """Redirects standard output to /dev/null, so that flushing it does not fail."""
    null = os.open(os.devnull, os.O_WRONLY)
    os.dup2(null, sys.stdout.fileno())
    os.close(null)
    sys.stdout.flush()


def wrong(text: str) -> int:
    sys.stdout.flush()
    sys.stderr.write(text)
    return 1
