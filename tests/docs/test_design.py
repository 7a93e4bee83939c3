"""docs/design.md draws who includes whom and names every global: the code says the same."""
import glob
import os
import re
import subprocess

from script import ROOT

FOLDERS = ("Cli", "vantor", "lineedit/src", "fuzzing")
# Headers of the editor itself, which lie where it is built.
EDITORS = {"lineedit/src": {"config", "el", "fcns", "read", "editline/readline"},
           "fuzzing": {"config", "el", "fcns", "sig"}}


def read(name):
    with open(os.path.join(ROOT, name), encoding="utf-8") as file:
        return file.read()


def section(heading):
    return re.split(r"^## ", read("docs/design.md").split("## " + heading)[1], flags=re.M)[0]


# --- Who may include whom ----------------------------------------------------------------


def drawings():
    """By folder: the line on which each name stands."""
    found = {}
    for block in re.findall(r"(?:^    .*\n)+", section("Who may include whom"), re.M):
        lines, drawing = 0, {}
        for line in block.splitlines():
            number, *names = line.split() if line[4].isdigit() else [lines] + line.split()
            lines = int(number)
            for name in names:
                assert name not in drawing, name
                drawing[name] = lines
        folder, = {os.path.dirname(name) for name, line in drawing.items() if line > 0}
        found[folder] = drawing
    return found


def sources(folder):
    """By name: what the header and the source file of that name include, as names."""
    found = {}
    for path in glob.glob(os.path.join(ROOT, folder, "*")):
        name, kind = os.path.splitext(os.path.relpath(path, ROOT))
        if kind in (".h", ".c", ".cpp"):
            included = found.setdefault(name, set())
            for other in re.findall(r'^#\s*include "([^"]+)\.h"', read(name + kind), re.M):
                if other not in EDITORS.get(folder, ()):
                    included.add(os.path.normpath(os.path.join(folder, other)))
    return found


def test_every_folder_is_drawn():
    assert set(drawings()) == set(FOLDERS)


def test_the_drawing_has_every_file_and_no_other():
    for folder, drawing in drawings().items():
        assert {name for name, line in drawing.items() if line > 0} == set(sources(folder)), folder
        for name, line in drawing.items():
            assert line > 0 or os.path.exists(os.path.join(ROOT, name + ".h")), name


def test_each_file_sees_only_the_lines_before_it():
    wrong = []
    for folder, drawing in drawings().items():
        for name, included in sources(folder).items():
            wrong += [(name, other) for other in included - {name}
                      if drawing.get(other, drawing[name]) >= drawing[name]]
    assert wrong == []


# --- The globals -------------------------------------------------------------------------


def named_globals():
    found = set()
    rows = re.findall(r"^\| (`.*`) \| `([^`]*)` \|", section("Where the globals live"), re.M)
    for names, file in rows:
        found |= {(name, file) for name in re.findall("`([^`]+)`", names)}
    return found


def compiled_globals(setup):
    """The variables that can be written in the objects of each folder, with their source file."""
    objects = {"Cli": "%s/CMakeFiles/Keyline.dir/Cli/%s.o",
               "vantor": "%s/CMakeFiles/vantor.dir/vantor/%s.o",
               "lineedit/src": "%s/../editor/plain/src/%s.o"}
    found = set()
    for folder, where in objects.items():
        for path in glob.glob(os.path.join(ROOT, folder, "*.c*")):
            file = os.path.basename(path)
            name = "src/" + file[:-2] if file.endswith(".c") else file
            table = subprocess.run(["objdump", "-C", "-t", where % (setup.module_dir, name)],
                                   stdout=subprocess.PIPE, check=True, text=True).stdout
            for of, size, symbol in re.findall(
                    r"^\S+ .{7} (\S+)\t(\S+) +(?:\.hidden )?(.+)$", table, re.M):
                written = re.match(r"\.t?bss|\.t?data(?!\.rel\.ro)|\*COM\*", of)
                # A sanitizer's own begin so.
                if written and int(size, 16) and not symbol.startswith(("_", ".")):
                    # Within a function: NAME.1, FUNCTION.NAME or FUNCTION()::NAME.
                    found.add((re.split(r"\.|::", re.sub(r"\.\d+$", "", symbol))[-1], file))
    return found


def test_every_global_is_named(setup):
    assert compiled_globals(setup) == named_globals()
