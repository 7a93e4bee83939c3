"""What is shown of the command language: help, completion, and where an error is."""
from typing import Callable, Optional

from . import screen
from .words import Language, Mistake, Tree

NO_HELP = "% No help after letters outside ASCII"
Completer = Callable[[bytes, str], Optional[str]]


def explain(prompt: str, line: str, error: Exception, columns: int) -> str:
    """Says what is wrong with the line that was just typed at the prompt.

    Points at the word, unless that is not in the last row of prompt and line.
    """
    text = screen.fold("% " + screen.visible(str(error) or type(error).__name__), columns)
    if not isinstance(error, Mistake):
        return text
    row = screen.bare(prompt) + line
    broken, column = screen.place(row[:len(row) - len(line) + error.start], columns)
    last, _ = screen.place(row, columns)  # after a full row the cursor was in the next one
    return " " * column + "^\n" + text if broken == last else text


def describe(language: Language, tree: Tree, line: str, columns: int) -> str:
    """What may follow, as a column of words and a column of their help."""
    _, found = language.choices(tree, line)
    width = max(screen.width(choice.name) for choice in found)
    return "".join(screen.fold(
        "  %s%s  %s" % (name, " " * (width - screen.width(name)), screen.visible(text)),
        columns, width + 4) for name, text, _ in found)


def completer(language: Language, tree: Callable[[], Tree], prompt: str) -> Completer:
    """Returns the callback for TAB and "?" in lines of that tree after that prompt."""
    def complete(key: bytes, line: str) -> Optional[str]:
        """What the editor is to append to the line, or None.

        It draws prompt and line again after any result, so they are cleared first.
        """
        if not line.isascii():  # it is only a prefix of the line
            screen.replace(NO_HELP + "\n")
            return None
        columns = screen.line_width()
        answer, text = None, ""
        shown = line + ("?" if key == b"?" else "")
        try:
            if key == b"?":
                text = describe(language, tree(), line, columns)
            else:
                answer, found = language.complete(tree(), line)
                if answer is None:
                    text = screen.fold("  " + "  ".join(name for name, _, _ in found), columns)
        except Exception as error:  # also of a kind's function: the line must not be lost
            text = explain(prompt, shown, error, columns)
        if text:
            text = screen.printed(prompt) + screen.visible(shown) + "\n" + text
        screen.replace(text)
        return answer

    return complete
