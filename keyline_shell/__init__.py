"""Ready-made parts for an interactive command shell on Keyline; see keyline_shell(3).

    shell.py, session.py     modes and commands, and one user's session
    words.py, help.py        the command language: trees of words, help, completion, errors
    screen.py                what is printed, also while a line is typed
    ask.py, keys.py          questions, and reading keys without the editor
    reader.py, log.py        which thread reads, and timeouts; text above the line
    history.py, users.py     the history between sessions; one user after another
    standard.py              commands that most shells have
    readline.py, cmd.py      programs that were written for other modules
"""
from .ask import ask, choose, confirm, password
from .screen import colour, columns, page, progress, table, visible
from .shell import Mode, Shell
from .words import Kind, Mistake, Refused, Tree, Word

__all__ = ["Kind", "Mistake", "Mode", "Refused", "Shell", "Tree", "Word", "ask", "choose",
           "colour", "columns", "confirm", "page", "password", "progress", "table", "users",
           "visible"]
