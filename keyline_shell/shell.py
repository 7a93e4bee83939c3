"""The shell as its author defines it: modes, commands, and settings."""
from typing import Any, Callable, Dict, List, Optional, TextIO, Tuple, TypeVar, Union

from .log import Log
from .standard import standard
from .words import Kind, Language, Tree, Values, Word, combine

Function = TypeVar("Function", bound=Callable[..., object])
Prompt = Union[str, Callable[[], str]]


class Mode:
    """Commands that are known in this mode.  Its lines are recalled in the modes below, too."""

    def __init__(self, shell: "Shell", name: str, prompt: Prompt,
                 parent: Optional["Mode"]) -> None:
        if not name.isprintable() or not name or name in shell.modes:
            raise ValueError("invalid or duplicate mode name %r" % name)
        self.shell, self.name, self.text, self.parent = shell, name, prompt, parent
        self.tree: Tree = {}
        self.values: Tuple[Any, ...] = ()  # arguments of the command that entered it
        self.words: List[str] = []  # all words of that command, in full
        shell.modes[name] = self

    def command(self, pattern: str, help: Optional[str] = None,
                no: Union[bool, str] = False) -> Callable[[Function], Function]:
        """Makes a function a command of this mode; see Language.tree."""
        def make(function: Function) -> Function:
            self.add(self.shell.language.tree(pattern, function, help, no))
            return function

        return make

    def add(self, tree: Tree) -> None:
        """Adds commands, as a tree."""
        self.tree = combine(self.tree, tree)

    def mode(self, name: str, prompt: Prompt, enter: str = "", help: str = "") -> "Mode":
        """A mode below this one, and the command that enters it."""
        return self.shell.mode(name, prompt, self, enter, help)

    def enter(self, *values: object) -> None:
        self.values, self.words = values, list(self.shell.words)
        self.shell.current = self

    def prompt(self) -> str:
        return self.text if isinstance(self.text, str) else self.text()

    def commands(self) -> Tree:
        """All commands of this mode."""
        shell, top = self.shell, self.shell.top
        tree: Tree = {"exit": Word("Leave this mode; in %s mode, the shell" % top.name,
                                   shell.up)}
        if self.parent:
            tree["end"] = Word("Back to %s mode (also Ctrl-Z)" % top.name, top.enter)
        return combine(combine(tree, shell.tree), self.tree)


class Shell:
    """All modes, and one session after another.

    banner: printed at the start, to a user.  history: a file that keeps the history between
    sessions.  log: a file whose new lines can be shown above the line being typed.  idle: the
    session ends after so many seconds without a key; warning: so many seconds before that the
    user is warned.
    """

    def __init__(self, *, banner: str = "", history: str = "", history_size: int = 1024,
                 log: str = "", idle: float = 0, warning: float = 0, comment: str = "!") -> None:
        self.banner, self.history, self.history_size = banner, history, history_size
        self.log_file, self.log_shown = log, False  # from the beginning of each session
        self.idle, self.warning, self.comment = idle, warning, comment
        self.language = Language()
        self.tree: Tree = {}  # of every mode
        self.modes: Dict[str, Mode] = {}
        self.current: Optional[Mode] = None  # none when the session is over
        self.words: List[str] = []  # of the command that runs, in full
        self.status = 0  # what run returns
        self.limit = history_size  # of this session
        self.log = Log()

    @property
    def top(self) -> Mode:
        return next(iter(self.modes.values()))

    def mode(self, name: str, prompt: Prompt, parent: Optional[Mode] = None, enter: str = "",
             help: str = "") -> Mode:
        """Adds a mode.  Sessions begin in the first one."""
        if enter and parent is None:
            parent = self.top
        made = Mode(self, name, prompt, parent)
        if enter and parent:
            parent.add(self.language.tree(enter, made.enter, help))
        return made

    def kind(self, name: str, fits: Union[str, Callable[[str], object], None] = None,
             help: str = "", values: Optional[Values] = None) -> None:
        """What may stand for a name in capitals; see Kind."""
        if not name[:1].isupper():
            raise ValueError("%s: the name of a kind begins with a capital" % name)
        self.language.kinds[name] = Kind(fits, help, values)

    def command(self, pattern: str, help: Optional[str] = None,
                no: Union[bool, str] = False) -> Callable[[Function], Function]:
        """Makes a function a command of every mode; see Language.tree."""
        def make(function: Function) -> Function:
            self.add(self.language.tree(pattern, function, help, no))
            return function

        return make

    def add(self, tree: Tree) -> None:
        self.tree = combine(self.tree, tree)

    def standard(self) -> None:
        """Adds commands that most shells have: history, terminal settings, the log."""
        self.add(standard(self))

    def up(self) -> None:
        """Leaves the mode; leaving the top one ends the session."""
        if self.current:
            self.current = self.current.parent

    def leave(self, status: int = 0) -> None:
        """Ends the session when the command is over."""
        self.current, self.status = None, status

    def say(self, text: str) -> None:
        """Shows text above the line being edited; for other threads."""
        self.log.say(text)

    def run(self, file: Optional[TextIO] = None) -> int:
        """A session with the user of sys.stdin, or of the commands there or in the file.

        Returns the exit status.
        """
        from .session import Session

        if not self.modes:
            raise ValueError("a shell needs a mode")
        return Session(self).run(file)

    def main(self, program: str, description: str = "") -> int:
        """Runs as the command line of the program says; see --help.

        Returns the exit status.  Errors with files are printed, not raised.
        """
        from .command_line import main

        return main(self, program, description)
