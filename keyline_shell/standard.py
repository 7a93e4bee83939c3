"""Commands that most shells have."""
from typing import TYPE_CHECKING

import Keyline

from . import screen
from .words import Tree, Word

if TYPE_CHECKING:
    from .shell import Shell


def standard(shell: "Shell") -> Tree:
    """The commands of every mode; those of the log only if there is one."""
    def show_history() -> None:
        lines = Keyline.history(shell.current.name if shell.current else "")
        screen.page("%5d  %s" % (number, screen.visible(line))
                    for number, line in enumerate(lines, 1))

    def show_terminal() -> None:
        keys = "give help" if Keyline.keyBindingsEnabled() else "insert themselves"
        print("width %d, history of %d lines" % (screen.line_width(), shell.limit))
        print("TAB and ? " + keys)

    def set_history_size(size: int) -> None:
        shell.limit = size
        Keyline.historyLimitIs(size)

    def help_on() -> None:
        Keyline.keyBindingsEnabledIs(True)

    def help_off() -> None:
        Keyline.keyBindingsEnabledIs(False)
        print('TAB and ? insert themselves now, until "terminal help-keys on"')

    tree: Tree = {
        "show": Word("Show what the shell knows", None, {
            "history": Word("Lines that can be recalled in this mode", show_history),
            "terminal": Word("Settings of the terminal", show_terminal)}),
        "terminal": Word("Change settings of the terminal", None, {
            "help-keys": Word("Whether TAB and ? give help (Ctrl-V ? types a ? anyway)", None, {
                "off": Word("They insert themselves", help_off),
                "on": Word("They give help", help_on)}),
            "history": Word("Lines that can be recalled", None, {
                "size": Word("How many", None, {
                    "<0-1000000>": Word("Lines of all modes; 0 for none", set_history_size)})}),
            "width": Word("Width of a terminal that does not report it", None, {
                "<20-500>": Word("Columns", screen.width_is)})}),
    }
    if shell.log_file:
        tree["logging"] = Word("Log lines at the prompt", None, {
            "synchronous": Word("Show them above the line being typed",
                                lambda: shell.log.show(shell.log_file))})
        tree["no"] = Word("Undo a command", None, {
            "logging": Word("Log lines at the prompt", None, {
                "synchronous": Word("Do not show them at the prompt",
                                    shell.log.hide)})})
    return tree
