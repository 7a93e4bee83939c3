"""The commands, as data: a Word for each, and what it does.

A command takes a line or two here.  A new mode takes three: its tree of words, its entry in
MODES, and the command that enters it.
"""
import sys
from typing import TYPE_CHECKING, List, NamedTuple

import Keyline
import screen
from words import Handler, Tree, Word

if TYPE_CHECKING:
    from session import Session


def enter(mode: str) -> Handler:
    def change_mode(session: "Session", words: List[str]) -> None:
        session.mode = mode

    return change_mode


def leave(session: "Session", words: List[str]) -> None:
    session.leave()


def enter_interface(session: "Session", words: List[str]) -> None:
    session.interface = " ".join(words[1:])
    session.device.interfaces.setdefault(session.interface, {})
    session.mode = "interface"


def set_hostname(session: "Session", words: List[str]) -> None:
    session.device.hostname = words[1]


def setting(length: int) -> Handler:
    """Keeps what a command says, under the name that its first so many words make."""
    def keep(session: "Session", words: List[str]) -> None:
        session.settings()[" ".join(words[:length])] = " ".join(words[length:])

    return keep


def forget(session: "Session", words: List[str]) -> None:
    session.settings().pop(" ".join(words[1:]), None)


def show_history(session: "Session", words: List[str]) -> None:
    for number, line in enumerate(Keyline.history(session.mode), 1):
        print("%5d  %s" % (number, screen.visible(line)))


def show_configuration(session: "Session", words: List[str]) -> None:
    print("hostname " + session.device.hostname)
    for interface, settings in session.device.interfaces.items():
        print("interface " + interface)
        for name, value in settings.items():
            row = "  %s %s" % (name, value) if value else "  " + name
            print(screen.visible(row) if sys.stdout.isatty() else row)
        print("  exit")


def show_terminal(session: "Session", words: List[str]) -> None:
    keys = "give help" if Keyline.keyBindingsEnabled() else "stand for themselves"
    print("width %d, history of %d lines" % (session.columns(), session.history_size))
    print("TAB and ? " + keys)


def show_version(session: "Session", words: List[str]) -> None:
    print("Example shell of Keyline, Python " + sys.version.split()[0])


def set_width(session: "Session", words: List[str]) -> None:
    session.widths = {session.window(): int(words[2])}
    Keyline.TerminalWidthIs(int(words[2]))


def set_history_size(session: "Session", words: List[str]) -> None:
    session.history_size = int(words[3])
    Keyline.historyLimitIs(session.history_size)


def set_help_keys(session: "Session", words: List[str]) -> None:
    Keyline.keyBindingsEnabledIs(words[2] == "on")
    if words[2] == "off":
        print('TAB and ? stand for themselves now, until "terminal help-keys on"')


def show_log(session: "Session", words: List[str]) -> None:
    session.log.show()


def hide_log(session: "Session", words: List[str]) -> None:
    session.log.hide()


def test_log(session: "Session", words: List[str]) -> None:
    count = int(words[2]) if len(words) > 2 else 3
    rate = int(words[4]) if len(words) > 4 else 0
    session.log.write_test(count, rate)


NO: Tree = {
    "logging": Word("Log lines at the prompt", None, {
        "synchronous": Word("Keep them away from the line being typed", hide_log)}),
}

COMMON: Tree = {
    "exit": Word("Leave this mode; in exec mode, the shell", leave),
    "logging": Word("Log lines at the prompt", None, {
        "synchronous": Word("Show them above the line being typed", show_log),
        "test": Word("Write lines to the log", test_log, {
            "<1-1000000>": Word("How many; default 3", test_log, {
                "rate": Word("Not all at once", None, {
                    "<1-1000>": Word("Lines a second", test_log)})})})}),
    "no": Word("Undo a command", None, NO),
    "show": Word("Show what the shell knows", None, {
        "history": Word("Lines that can be recalled in this mode", show_history),
        "running-config": Word("The configuration, as commands", show_configuration),
        "terminal": Word("Settings of the terminal", show_terminal),
        "version": Word("What this is", show_version)}),
    "terminal": Word("Change settings of the terminal", None, {
        "help-keys": Word("Whether TAB and ? give help (Ctrl-V ? types a ? anyway)", None, {
            "off": Word("They stand for themselves", set_help_keys),
            "on": Word("They give help", set_help_keys)}),
        "history": Word("Lines that can be recalled", None, {
            "size": Word("How many", None, {
                "<0-1000000>": Word("Lines of all modes; 0 for none", set_history_size)})}),
        "width": Word("Width of a terminal that does not tell it itself", None, {
            "<20-500>": Word("Columns", set_width)})}),
}

EXEC: Tree = {
    "configure": Word("Change the configuration", enter("config")),
    **COMMON,
}

CONFIG: Tree = {
    "end": Word("Back to exec mode (also Ctrl-Z)", enter("exec")),
    "hostname": Word("Name the device", None, {
        "NAME": Word("Letters, digits and hyphens; a letter first", set_hostname)}),
    "interface": Word("Configure an interface", None, {
        "ethernet": Word("Ethernet port", None, {
            "<1-8>": Word("Its number", enter_interface)}),
        "loopback": Word("Loopback interface", None, {
            "<0-7>": Word("Its number", enter_interface)})}),
    **COMMON,
}

INTERFACE: Tree = {
    "description": Word("Describe the interface", None, {
        "LINE": Word("Any text; Ctrl-V ? types a question mark", setting(1))}),
    "end": CONFIG["end"],
    "interface": CONFIG["interface"],  # from one to another
    "ip": Word("Internet protocol", None, {
        "address": Word("Address of the interface", None, {
            "A.B.C.D/N": Word("Address and length of the prefix", setting(2))})}),
    "shutdown": Word("Switch the interface off", setting(1)),
    **COMMON,
    "no": Word("Undo a command", None, {
        **NO,
        "description": Word("Describe it no more", forget),
        "ip": Word("Internet protocol", None, {"address": Word("Take it away", forget)}),
        "shutdown": Word("Switch the interface on", forget)}),
}


class Mode(NamedTuple):
    prompt: str
    parent: str  # the mode that exit leads to, and whose history is seen here too
    commands: Tree


MODES = {
    "exec": Mode("%s> ", "", EXEC),
    "config": Mode("%s(config)# ", "exec", CONFIG),
    "interface": Mode("%s(config-if)# ", "config", INTERFACE),
}
