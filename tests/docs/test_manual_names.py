"""What the manual says of names, arguments and messages is what the code has."""
import ast
import glob
import os
import re
import subprocess

import pytest

import manual
from manual import expect_rows
from stub import FUNCTIONS


@pytest.mark.parametrize("page", manual.PAGES)
def test_pages_are_in_order(page):
    """mandoc warns of nothing."""
    found = subprocess.run(["mandoc", "-T", "lint", "-W", "warning",
                            os.path.join(manual.FOLDER, page)],
                           capture_output=True, text=True)
    assert found.stdout + found.stderr == ""


def test_pages_name_each_other_and_are_all_there():
    named = set()
    for page in manual.PAGES:
        named |= set(re.findall(r"(?m)^\.Xr (\S+) (\d)", manual.source(page)))
    assert {"%s.%s" % name for name in named} == set(manual.PAGES)
    assert set(os.listdir(manual.FOLDER)) == set(manual.PAGES)


# Names

def test_signatures_are_those_of_the_stub():
    body, = re.findall(r'(?ms)^\.\\" synopsis:.*?\n\.Bd -literal\n(.*?)^\.Ed',
                       manual.source("Keyline.3"))
    shown = [ast.unparse(ast.parse("def %s: ..." % text))
             for text in re.split(r"\n(?! )", manual.plain(body).rstrip("\n"))]
    assert shown == [re.sub("_(Completer|LogCallback)", r"\1", ast.unparse(part))
                     for part in FUNCTIONS.values()]


def test_each_method_has_a_section_with_its_arguments():
    found = dict(re.findall(r"(?m)^\.Ss (\w+)\((.*)\)$", manual.source("Keyline.3")))
    assert found == {name: ", ".join(argument.arg for argument in
                                     part.args.posonlyargs + part.args.args)
                     or ("..." if part.args.vararg else "")
                     for name, part in FUNCTIONS.items()}


def test_c_names_are_those_of_the_header(setup, tmp_path):
    """A declaration that differs from the header's does not compile beside it."""
    page = manual.source("vantor.3")
    calls = re.findall(r"(?m)^\.Ft (.*)\n\.Fn (\w+) (.*)$", page)
    text = "#include <vantor.h>\n" + "".join(
        "%s%s(%s);\n" % (kind + " ", name, ", ".join(re.findall('"(.*?)"', arguments)))
        for kind, name, arguments in calls)
    text += "".join(line + "\n" for line in re.findall(r"(?m)^\.Fd (.*)$", page))
    text += "".join(line + "\n" for line in re.findall(r"(?m)^\.Vt (typedef .*)$", page))
    manual.compile_c(text, tmp_path / "declarations", "-c")
    exported = subprocess.run(
        ["nm", "-D", "--defined-only", os.path.join(setup.module_dir, "libVantor.so")],
        check=True, capture_output=True, text=True).stdout
    assert {name for kind, name, arguments in calls} == set(
        re.findall(r" T (vantor_\w+)", exported))


# Messages

def read_sources(pattern):
    texts = []
    for path in sorted(glob.glob(os.path.join(manual.ROOT, pattern))):
        with open(path, encoding="utf-8") as file:
            texts.append(file.read())
    return "\n".join(texts)


def shown_text(*pages):
    return re.sub(r"\s+", " ", " ".join(manual.rendered(page) for page in pages))


def test_every_exception_of_the_module_is_told():
    code = read_sources("Cli/*.cpp")
    found = re.findall(r'(?:PyErr_SetString\(\s*\w+,|interrupt_raise\()\s*"([^"]*)"', code)
    others = re.findall(r"PyErr_SetString\(\s*\w+,\s*([^\"\s].*?)\)", code)
    assert len(found) == 7 and sorted(others) == ["message", "parent_key"]
    shown = shown_text("Keyline.3")
    assert [text for text in found if text not in shown] == []


def test_every_check_of_the_module_is_told():
    """With the source path, line and function that the reports have."""
    code = read_sources("Cli/*.cpp")
    found = re.findall(r'KEYLINE_CHECK\((.+?),\s*"([^"]*)",\s*(\d+),\s*"(\w+)"\)', code,
                       re.S)
    assert len(found) == code.count("KEYLINE_CHECK(")
    assert sorted(manual.TABLES["checks"]) == sorted(
        "Cli/Keyline:%s: %s: Assertion `%s' failed." % (line, function, expression)
        for condition, expression, line, function in found)


def test_every_other_message_is_told():
    """What the module prints itself, and what its editor was taught to say."""
    code = read_sources("Cli/*.cpp")
    printed = re.findall(r'\b(?:printf|perror)\("([^"]*)"', code)
    calls = re.findall(r"\b(?:\w*printf|perror|f?puts|fwrite|write|PySys_Write\w+)\(", code)
    for call in ("snprintf(", "write("):  # the report of a check, told above
        calls.remove(call)
    calls.remove("snprintf(")  # and of a descriptor
    said, = re.findall(r'"%s: (Keyline cannot .*)\\n"', code)
    assert said.replace("%d", "N") in shown_text("keyline.7")
    assert len(printed) == len(calls) == 3
    patched = re.findall(r'(?m)^\+.*el_errfile, *"([^"]*)"',
                         read_sources("lineedit/patches/*"))
    assert patched
    shown = shown_text("keyline.7")
    for text in printed + patched:
        if text.startswith("%ls: "):  # a command's name, of which the page tells
            continue
        text = text.replace("\\n", "").replace("%s:%d", "Cli/Keyline:%d").split("%d")[0]
        assert text in shown
    for line in re.findall(r'"Cli/Keyline",\s*(\d+)', read_sources("Cli/interrupt.cpp")):
        assert "pthread_self Cli/Keyline:" + line in shown


def test_messages_of_the_editor(start, tmp_path):
    """Those of an unknown terminal and of wrong settings, as the page has them."""
    (tmp_path / "settings").write_text("bind ^T name\n")
    child = start("read()", env={"EDITRC": str(tmp_path / "settings"), "TERM": "name"})
    child.expect_prompt()
    shown = shown_text("keyline.7")
    rows = " ".join(child.display.rows())
    for text in ("bind: Invalid command `name'.",
                 'No entry for terminal type "name"; using dumb terminal settings.'):
        assert text in shown and text in re.sub(r"\s+", " ", rows)
    child.send("a<enter>")
    child.expect_line("a")
    child.expect_end()


def test_message_of_raw_mode(start):
    """The input was a terminal when the editor was set up, and is none any more."""
    child = start("""
import Keyline
Keyline.keyBindingsEnabledIs(True)
reading, writing = os.pipe()
os.write(writing, b"a line\\n")
os.dup2(reading, 0)
tell("line", Keyline.readline("> "))
""")
    child.expect_fact("line", "a line")
    expect_rows(child, "Could not set rawmode.", "> a line")
    child.expect_end()


def test_without_a_terminal_type(start):
    """No control sequences, and the keys do the same."""
    child = start("read()", env={"TERM": None})
    child.type("abc<left>x<c-a>y", "yabxc")
    child.send("<enter>")
    child.expect_line("yabxc")
    child.expect_end()
    assert b"\x1b" not in child.display.raw
