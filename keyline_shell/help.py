"""What is shown of the command language: help, completion, and where a mistake is."""
from typing import Callable, Optional

from . import screen
from .words import Language, Mistake, Tree

NO_HELP = "% Help is not there behind letters outside ASCII"
Completer = Callable[[bytes, str], Optional[str]]


def explain(prompt: str, line: str, error: Exception, columns: int) -> str:
    """Says what is wrong with a line that stands there behind a prompt.

    Points at the word, unless prompt and line take several rows and it is in an upper one.
    """
    text = screen.fold("% " + screen.visible(str(error) or type(error).__name__), columns)
    if not isinstance(error, Mistake):
        return text
    row = screen.bare(prompt) + line
    broken, column = screen.place(row[:len(row) - len(line) + error.start], columns)
    last, _ = screen.place(row, columns)  # with a full row, the cursor was in the next one
    return " " * column + "^\n" + text if broken == last else text


def describe(language: Language, tree: Tree, line: str, columns: int) -> str:
    """What may follow, as a column of words and a column of meanings."""
    _, found = language.choices(tree, line)
    width = max(screen.width(choice.name) for choice in found)
    return "".join(screen.fold(
        "  %s%s  %s" % (name, " " * (width - screen.width(name)), screen.visible(text)),
        columns, width + 4) for name, text, _ in found)


def completer(language: Language, tree: Callable[[], Tree], prompt: str) -> Completer:
    """Answers TAB and "?" for lines of that tree behind that prompt."""
    def complete(key: bytes, line: str) -> Optional[str]:
        """What the editor is to append to the line, or None.

        It draws prompt and line again after any answer, so they go first.
        """
        if not line.isascii():  # then it is only the beginning of the line
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
        except Exception as error:  # of a kind's own, too: it is no reason to lose the line
            text = explain(prompt, shown, error, columns)
        if text:
            text = screen.printed(prompt) + screen.visible(shown) + "\n" + text
        screen.replace(text)
        return answer

    return complete
