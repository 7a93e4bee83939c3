"""What the manual holds: its pages, and the examples and tables that are marked in them.

A comment before a display or a list names it: `.\\" example: NAME`, `.\\" table: NAME`.
"""
import os
import re
import subprocess
import termios

import pytest

from script import ROOT

COOKED = termios.ICANON | termios.ECHO  # what the editor's raw mode takes away
FOLDER = os.path.join(ROOT, "docs", "manual")
PAGES = ("Keyline.3", "keyline.7", "keyline_recipes.7", "keyline_shell.3", "vantor.3")
ESCAPES = {r"\e": "\\", r"\&": "", r"\-": "-", r"\ ": " ", r"\(aq": "'", r"\(ga": "`",
           r"\(dq": '"'}


def source(page):
    with open(os.path.join(FOLDER, page), encoding="utf-8") as file:
        return file.read()


def plain(text):
    """Text of a page as the reader sees it."""
    return re.sub(r"\\(?:\(..|.)", lambda match: ESCAPES[match.group()], text)


def marked(kind, end, *pages):
    """Name -> the source from behind the mark's next line up to the end."""
    found = {}
    for page in pages or PAGES:
        for name, body in re.findall(
                r'(?ms)^\.\\" %s: ([^\n]+)\n\.B[dl][^\n]*\n(.*?)^\.%s$' % (kind, end),
                source(page)):
            assert name not in found, name
            found[name] = body
    return found


EXAMPLES = {name: plain(body) for name, body in marked("example", "Ed").items()}
RECIPES = set(marked("example", "Ed", "keyline_recipes.7"))  # have tests of their own,
SHELLS = set(marked("example", "Ed", "keyline_shell.3"))  # as have these
TABLES = {name: {plain(key): plain(text) for key, text in re.findall(
    r"(?m)^\.It (.*?)(?: Ta (.*))?$", body)}
          for name, body in marked("table", "El").items()}


def rendered(page):
    """The page as a terminal shows it, on rows so wide that no text is broken."""
    shown = subprocess.run(
        ["mandoc", "-T", "utf8", "-O", "width=1000", os.path.join(FOLDER, page)],
        check=True, capture_output=True, text=True).stdout
    return re.sub(".\b", "", shown)


def example(run, name):
    """Marks a test as that of the example, in run. It gets the example's text as `text`."""
    def mark(test):
        run[name] = test
        return pytest.mark.parametrize("text", [EXAMPLES.get(name, "")], ids=[name])(test)
    return mark


def compile_c(text, output, *options):
    """Compiles C text, with every warning an error."""
    path = str(output) + ".c"
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    subprocess.run(["gcc", "-std=gnu11", "-Wall", "-Wextra", "-Werror", "-I",
                    os.path.join(ROOT, "vantor"), path, "-o", str(output)] + list(options),
                   check=True)


def expect_rows(child, *rows):
    """Waits until the screen of a Terminal ends with these rows."""
    __tracebackhide__ = True

    def equal(shown):
        while shown and not shown[-1]:
            shown.pop()
        return shown[-len(rows):] == list(rows)

    child.wait_screen("the screen to end with %r" % (rows,), equal)
