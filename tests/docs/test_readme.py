"""The README's program does what it says, and its picture is what the shell shows."""
import glob
import os
import re
import xml.dom.minidom

import pyte
import pytest

from script import ROOT, environment
from tool import tool


def read(name):
    with open(os.path.join(ROOT, name), encoding="utf-8") as file:
        return file.read()


def all_tests():
    """The text of all tests."""
    return "\n".join(read(path) for end in ("cpp", "py")
                     for path in glob.glob(os.path.join(ROOT, "tests", "*", "*." + end)))


@pytest.fixture
def user(start):
    """A user of the only program in the README."""
    program, = re.findall("```python\n(.*?)```", read("README.md"), re.S)
    return start(program)


def expect(user, *rows):
    """Waits until these are all the rows, and the cursor is at the end of the last one."""
    there = len(rows) - 1, len(rows[-1])
    user.wait_screen("\n".join(rows), lambda shown: (
        "\n".join(shown).rstrip() == "\n".join(row.rstrip() for row in rows).rstrip()
        and user.display.cursor() == there))


# --- The program -------------------------------------------------------------------------


@pytest.mark.smoke
def test_the_program(user):
    rows = ["switch> "]
    expect(user, *rows)
    user.send("?")
    rows = ["switch> ?", "  configure  Change the settings",
            "  exit       Leave this mode; in exec mode, the shell",
            "  show       ", "switch> "]
    expect(user, *rows)
    user.send("sh<tab>s<tab><enter>")
    rows[-1:] = ["switch> show settings", "Name  Value", "mtu    1500", "switch> "]
    expect(user, *rows)
    user.send("con<enter>mt 9001<enter>")
    rows[-1:] = ["switch> con", "switch(config)# mt 9001", "                   ^",
                 '% Unknown word "9001": expected <68-9000>', "switch(config)# "]
    expect(user, *rows)
    user.send("<up><bs><bs><bs><bs>9000<enter>sh s<enter>")
    rows[-1:] = ["switch(config)# mt 9000", "switch(config)# sh s", "Name  Value",
                 "mtu    9000", "switch(config)# "]
    expect(user, *rows)
    user.send("no mtu<enter>sh s<enter>")
    rows[-1:] = ["switch(config)# no mtu", "switch(config)# sh s", "Name  Value", "mtu    1500",
                 "switch(config)# "]
    expect(user, *rows)
    user.send("half")
    expect(user, *rows[:-1], "switch(config)# half")
    user.send("<c-z>")
    rows[-1:] = ["switch(config)# half^Z", "switch> "]
    expect(user, *rows)
    user.send("<c-d>")
    user.expect_end("clean")


def test_the_program_in_a_pipe(run):
    program, = re.findall("```python\n(.*?)```", read("README.md"), re.S)
    assert program.rstrip().count("\n") <= 16
    assert run(program, stdin=b"conf\nmtu 1400\nshow settings\n").stdout == (
        b"Name  Value\nmtu    1400\n")


# --- The picture -------------------------------------------------------------------------


@pytest.mark.parametrize("name, drawing", [("session", "picture"), ("log", "moving")])
def test_the_pictures_are_what_the_shell_shows(setup, tmp_path, name, drawing):
    """Drawn under any interpreter, and at any time, they are the same to the last byte."""
    draw = getattr(tool("picture"), drawing)
    drawn = draw(setup.interpreter, environment(setup, str(tmp_path), None))
    assert drawn == read("docs/%s.svg" % name), "tools/picture draws it again"


def test_the_moving_picture_shows_one_frame_at_a_time():
    """At any time; and the last one where nothing moves."""
    frames = xml.dom.minidom.parseString(read("docs/log.svg")).getElementsByTagName("g")
    assert [frame.getAttribute("visibility") for frame in frames] == (
        ["hidden"] * (len(frames) - 1) + ["visible"])
    spans = []
    for frame in frames:
        moves, = frame.getElementsByTagName("animate")
        times = [float(time) for time in moves.getAttribute("keyTimes").split(";")] + [1.0]
        values = moves.getAttribute("values").split(";")
        at = values.index("visible")
        assert values.count("visible") == 1 and len(times) == len(values) + 1
        spans.append((times[at], times[at + 1]))
    assert spans[0][0] == 0 and spans[-1][1] == 1 and len(spans) > 10
    assert all(before[1] == after[0] for before, after in zip(spans, spans[1:]))


def test_the_picture_has_every_row_of_the_screen_with_its_look():
    screen = pyte.Screen(20, 5)
    pyte.Stream(screen).feed(
        "plain \x1b[31mred\x1b[1m bold\x1b[0m\r\n\r\n   a <b> &  c\x1b[38;5;21mb\x1b[0m\r\n")
    picture = tool("picture")
    drawn = xml.dom.minidom.parseString(picture.draw(screen, {2: "a note"}))
    found = [(int(text.getAttribute("x")), int(text.getAttribute("y")),
              text.firstChild.data.replace("\xa0", " "), text.getAttribute("fill"),
              text.getAttribute("font-weight"))
             for text in drawn.getElementsByTagName("text")]
    red, rows = picture.COLOURS["red"], sorted({row for _, row, *_ in found})
    assert found == [
        (12, rows[0], "plain", picture.TEXT, ""),
        (60, rows[0], "red", red, ""),
        (92, rows[0], "bold", red, "bold"),
        (36, rows[1], "a <b> &  c", picture.TEXT, ""),
        (116, rows[1], "b", "#0000ff", ""),
        (172, rows[1], "a note", picture.NOTE, "")]
    assert rows[1] - rows[0] == 2 * picture.HEIGHT


# --- What it names -----------------------------------------------------------------------


def test_what_the_readme_names_is_there():
    text = read("README.md")
    named = re.findall(r"\]\(([^)]+)\)", text) + re.findall(r"^\| `([^`]+)`", text, re.M)
    assert named
    assert [name for name in named if not os.path.exists(os.path.join(ROOT, name))] == []


def test_what_the_page_of_the_tests_names_is_there():
    text, tests = read("tests/README.md"), os.path.join(ROOT, "tests")
    folders = {entry.name for entry in os.scandir(tests) if entry.is_dir()} - {"__pycache__"}
    assert set(re.findall(r"`(\w+)/`", text.partition("## ")[0])) == folders
    for name in re.findall(r"`((?:\w+/)+\w+\.\w+)`", text):
        assert os.path.exists(os.path.join(tests, name)) or os.path.exists(os.path.join(ROOT, name))
    for name in re.findall(r"\btests/\S+\.\w+", text):
        assert os.path.exists(os.path.join(ROOT, name)), name
    for name in re.findall(r"gtest_filter='\w+\.(\w+)'", text) + re.findall(r"-k (\w+)", text):
        assert re.search(r"%s[()]" % name, all_tests()), name


def test_what_holds_the_security_is_there():
    """Each sentence of the page names what holds it, and that is there."""
    rows = re.findall(r"^\| ([A-Z].*) \| ([^|]+) \|$", read("docs/security.md"), re.M)
    assert len(rows) > 25
    text = all_tests()
    for sentence, held_by in rows:
        names = re.findall("`([^`]+)`", held_by)
        assert names or held_by == "by design", sentence
        for name in names:
            if name.startswith(("tests/", "./")):
                assert os.path.exists(os.path.join(ROOT, name)), name
            elif "(3)" in name:
                assert os.path.exists(os.path.join(ROOT, "docs/manual", name.replace("(", ".")[:-1]))
            else:
                assert re.search(r"\b%s\b" % name, text), name


def test_what_holds_the_patches_is_there():
    """Each patch has its row, in which tests are named, also by how their names begin."""
    rows = re.findall(r"^\| `(\d\d+-[^`]+)` \|.*\| ([^|]+) \|$", read("lineedit/README.md"), re.M)
    patches = {name[:-len(".patch")] for name in os.listdir(os.path.join(ROOT, "lineedit/patches"))}
    assert {patch for patch, _ in rows} == patches
    text = all_tests()
    for patch, held_by in rows:
        names = re.findall("`([^`]+)`", held_by)
        assert names or held_by in ("see below", "the fuzzer's corpus"), patch
        for name in names:
            if name.startswith("tests/"):
                assert os.path.exists(os.path.join(ROOT, name)), (patch, name)
            else:
                there = r"\b%s\b" % name if name[-1] != "…" else r"\b" + name[:-1]
                assert re.search(there, text), (patch, name)
