"""tools/patch makes patches of a small editor, made up here, and checks its series."""
import hashlib
import io
import os
import shutil
import subprocess
import tarfile

import pytest

from script import ROOT

ONE = ["line %d" % number for number in range(1, 21)]
HEAD = "The editor did this. It does that now.\n"
README = """# An editor

## First things (01 to 09)

| Patch | did | does | Held by |
|---|---|---|---|
| `01-first` | this | that | `Shown`, `Firs…` |
| `04-other` | this | that | see below |

## The other one (`04-other`)

## More (10 to 19)

| Patch | did | does | Held by |
|---|---|---|---|
| `12-last` | this | that | `tests/test_it.py` |
"""


def body(name, old, new, at):
    """The body of a patch that exchanges one line, which is not the file's first or last."""
    return ("--- a/src/{0}\n+++ b/src/{0}\n@@ -{1},3 +{1},3 @@\n line {1}\n-{2}\n+{3}\n line {4}\n"
            .format(name, at - 1, old, new, at + 1))


class Project:
    """A tree with the tool, the editor's archive and three patches."""

    def __init__(self, folder):
        self.folder = str(folder)
        self.environment = dict(os.environ, KEYLINE_LIBEDIT_ARCHIVE=self.path("small.tar.gz"))
        for tool in ("tools/patch", "tools/series.py", "lineedit/fetch.sh"):
            os.makedirs(os.path.dirname(self.path(tool)), exist_ok=True)
            shutil.copy(os.path.join(ROOT, tool), self.path(tool))
        with tarfile.open(self.path("small.tar.gz"), "w:gz") as archive:
            for name in ("one.c", "two.c"):
                contents = "".join(line + "\n" for line in ONE).encode()
                member = tarfile.TarInfo("small-1/src/" + name)
                member.size = len(contents)
                archive.addfile(member, io.BytesIO(contents))
        with open(self.path("small.tar.gz"), "rb") as file:
            self.write("lineedit/archive.sha256", "%s  libedit_1.orig.tar.gz\n"
                       % hashlib.sha256(file.read()).hexdigest())
        self.write("lineedit/README.md", README)
        self.write("lineedit/series", "01-first.patch\n04-other.patch\n12-last.patch\n")
        for name, change in (("01-first", body("one.c", "line 5", "five", 5)),
                             ("04-other", body("one.c", "line 15", "fifteen", 15)),
                             ("12-last", body("two.c", "line 5", "five", 5))):
            self.write("lineedit/patches/%s.patch" % name, HEAD + "\n" + change)
        self.write("tests/some_test.cpp", "TEST(Small, FirstIsFirst) TEST(Small, Shown)\n")
        self.write("tests/test_it.py", "")
        os.mkdir(self.path("lineedit/src"))

    def path(self, name):
        return os.path.join(self.folder, name)

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def write(self, name, text):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def change(self, name, old, new):
        text = self.read(name)
        assert old in text
        self.write(name, text.replace(old, new))

    def run(self, *words):
        """What the tool says, and its status."""
        done = subprocess.run([self.path("tools/patch"), *words], env=self.environment,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False)
        return done.stdout, done.returncode

    def done(self, *words):
        said, status = self.run(*words)
        assert status == 0, said
        return said

    def refused(self, *words):
        said, status = self.run(*words)
        assert status == 1
        return said


@pytest.fixture
def project(tmp_path):
    return Project(tmp_path)


# --- Patches are made and changed --------------------------------------------------------


def test_a_new_patch(project):
    assert "build/patch/tree" in project.done("new", "05-middle")
    assert "five" in project.read("build/patch/tree/src/one.c")  # the patches before it
    assert "five" not in project.read("build/patch/tree/src/two.c")  # not the one behind it
    project.change("build/patch/tree/src/one.c", "line 10\n", "ten\n")
    assert "say in build/patch/why" in project.refused("refresh")
    project.write("build/patch/why", HEAD)
    assert project.done("refresh") == "written: lineedit/patches/05-middle.patch\n"
    assert project.read("lineedit/patches/05-middle.patch") == HEAD + "\n" + body(
        "one.c", "line 10", "ten", 10)
    assert project.read("lineedit/series").split() == [
        "01-first.patch", "04-other.patch", "05-middle.patch", "12-last.patch"]
    assert project.refused("check") == "05-middle: not one row for each patch in their order\n"
    project.change("lineedit/README.md", "see below |\n",
                   "see below |\n| `05-middle` | this | that | `Shown` |\n")
    assert project.done("check") == ""


def test_later_patches_move(project):
    project.done("edit", "01-first")
    project.change("build/patch/tree/src/one.c", "line 2\n", "line 2\nmore\nand more\n")
    project.done("refresh")
    assert "@@ -16,3 +16,3 @@" in project.read("lineedit/patches/04-other.patch")
    assert project.read("lineedit/patches/12-last.patch").endswith(
        body("two.c", "line 5", "five", 5))
    assert HEAD + "\n---" in project.read("lineedit/patches/01-first.patch")
    assert project.done("check") == ""


def test_a_patch_that_no_longer_applies_is_told_and_mended(project):
    project.done("edit", "01-first")
    project.change("build/patch/tree/src/one.c", "line 15\n", "LINE 15\n")
    assert "no longer applies: 04-other; edit" in project.refused("refresh")
    assert ".rej" in project.refused("edit", "04-other")
    assert "one.c.rej" in project.refused("refresh")
    os.remove(project.path("build/patch/tree/src/one.c.rej"))
    project.change("build/patch/tree/src/one.c", "line 18\n", "eighteen\n")
    project.done("refresh")
    assert project.done("check") == ""


def test_nothing_is_lost_that_is_open(project):
    project.done("edit", "01-first")
    assert "01-first is open" in project.refused("edit", "12-last")
    assert "01-first is open" in project.refused("new", "13-more")
    shutil.rmtree(project.path("build/patch"))
    project.done("edit", "12-last")


def test_without_an_open_tree_all_patches_are_written_anew(project):
    project.change("lineedit/patches/04-other.patch", "@@ -14,3 +14,3 @@", "@@ -9,3 +9,3 @@ main(")
    assert "04-other: does not apply to src/one.c exactly" in project.refused("check")
    assert project.done("refresh") == "written: lineedit/patches/04-other.patch\n"
    assert project.done("refresh") == ""
    assert project.done("check") == ""


@pytest.mark.parametrize("words, said", [
    (["new", "first"], "not a number and words"),
    (["new", "04-more"], "the number of 04-more is taken"),
    (["edit", "05-middle"], "there is no patch 05-middle"),
    (["new"], "Usage"),
    ([], "Usage"),
])
def test_what_is_refused(project, words, said):
    assert said in project.refused(*words)


@pytest.mark.parametrize("change, said", [
    (lambda tree: None, "changes nothing"),
    (lambda tree: os.remove(tree + "/two.c"), "two.c: a patch makes no file"),
    (lambda tree: shutil.copy(tree + "/two.c", tree + "/three.c"), "three.c: a patch makes no file"),
])
def test_what_is_no_patch(project, change, said):
    project.done("new", "05-middle")
    project.write("build/patch/why", HEAD)
    change(project.path("build/patch/tree/src"))
    assert said in project.refused("refresh")


# --- What is asked of the series ---------------------------------------------------------

OTHER = "lineedit/patches/04-other.patch"


@pytest.mark.parametrize("name, old, new, said", [
    ("lineedit/series", "04-other.patch\n", "", "04-other: not both in series and in patches/"),
    ("lineedit/series", "01-first.patch\n04-other.patch", "04-other.patch\n01-first.patch",
     "01-first: stands behind 04-other"),
    (OTHER, HEAD, "It does that now.\n", "04-other: its head does not say"),
    (OTHER, HEAD, HEAD.strip() + 100 * " x" + "\n", "04-other: its head is wider"),
    (OTHER, body("one.c", "line 15", "fifteen", 15), body("one.c", "line 16", "sixteen", 15),
     "04-other: does not apply to src/one.c exactly where it says"),
    (OTHER, body("one.c", "line 15", "fifteen", 15),
     body("one.c", "five", "FIVE", 5), "04-other: changes lines of 01-first"),
    (OTHER, " line 16\n", " line 16\n line 17\n", "04-other: not as `tools/patch refresh`"),
    (OTHER, "src/one.c", "src/three.c", "04-other: changes src/three.c, which is no file of the"),
    ("lineedit/README.md", "| `01-first`", "| `02-first`", "01-first: not one row for each patch"),
    ("lineedit/README.md", "12-last", "01-first", "01-first: its row is below 'More (10 to 19)'"),
    ("lineedit/README.md", "`Shown`", "`Hidden`", "01-first: there is no test Hidden"),
    ("lineedit/README.md", "`Firs…`", "`Firs`", "01-first: there is no test Firs"),
    ("lineedit/README.md", "test_it.py", "test_that.py", "12-last: there is no test tests/test_th"),
    ("lineedit/README.md", "(`04-other`)", "", "04-other: its row names no test"),
])
def test_what_the_rules_forbid(project, name, old, new, said):
    assert project.done("check") == ""
    if name == OTHER and "17" in new:
        project.change(name, "14,3 +14,3", "14,4 +14,4")
    project.change(name, old, new)
    assert said in project.refused("check")


def test_a_file_of_ours_is_not_patched(project):
    project.write("lineedit/src/one.c", "ours\n")
    assert "01-first: changes src/one.c, which is a file of ours" in project.refused("check")


# --- The series as it is -----------------------------------------------------------------


def test_the_series_keeps_the_rules():
    done = subprocess.run([os.path.join(ROOT, "tools", "patch"), "check"], check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    assert (done.stdout, done.returncode) == ("", 0)
