"""What ./demo and ./check begin with: packages, interpreters, build folders.

A small machine is made for each test: programs that stand in for the system's own come first on
its PATH, and a source tree of a few lines is in the place of the project's.
"""
import hashlib
import os
import re
import shutil
import subprocess
import sys

import pytest

from script import ROOT


# Packages are lines in a file; each has a program of its name.
PROGRAMS = {
    "dpkg-query": """
        for name; do grep -qx -e "$name" "$MACHINE/installed" && echo "ii $name"; done; true""",
    "apt-cache": """
        [ -e "$MACHINE/updated" ] || exit 0
        for name; do
            case $name in policy) ;; rare) printf 'rare:\\n  Candidate: (none)\\n' ;;
            *) printf '%s:\\n  Candidate: 1.0\\n' "$name" ;; esac
        done""",
    "apt-get": """
        case " $* " in
        *" --print-uris "*) echo "'http://mirror/debian/dists/it/InRelease' it 0" ;;
        *" update "*) touch "$MACHINE/updated" ;;
        esac
        case " $* " in *" install "*) ;; *) exit 0 ;; esac
        for name; do
            case $name in -* | *::* | install) continue ;; esac
            echo "$name" >> "$MACHINE/installed"
            printf '#!/bin/sh\\n' > "$MACHINE/bin/$name"
            chmod +x "$MACHINE/bin/$name"
        done""",
    "sudo": """
        [ "$1" != -n ] || shift
        exec "$@" """,
}

SOURCES = """
cmake_minimum_required(VERSION 3.18)
project(Small LANGUAGES NONE)
find_program(LATER later PATHS ENV PATH NO_DEFAULT_PATH)
file(WRITE "${CMAKE_BINARY_DIR}/found" "${LATER}")
file(APPEND "${CMAKE_SOURCE_DIR}/configured" "once\\n")
add_custom_target(built)
"""


class Machine:
    """Where nothing is installed yet."""

    def __init__(self, folder):
        self.folder, self.root = folder, folder / "root"
        (folder / "bin").mkdir()
        (folder / "installed").touch()
        for name, text in PROGRAMS.items():
            self.program(name, text)
        shutil.copytree(os.path.join(ROOT, "tools"), self.root / "tools")
        (self.root / "CMakeLists.txt").write_text(SOURCES)
        (self.root / "tools" / "packages").write_text("# who, what\nbuild first\ncheck later\n")

    def program(self, name, text):
        """Puts a script of the shell on the PATH."""
        path = self.folder / "bin" / name
        path.write_text("#!/bin/sh\n" + text + "\n")
        path.chmod(0o755)

    def run(self, script, **changes):
        """The result of a script that has tools/house.sh read."""
        environment = dict(os.environ, MACHINE=str(self.folder),
                           PATH="%s:%s" % (self.folder / "bin", os.environ["PATH"]))
        environment.update(changes)
        return subprocess.run(["bash", "-uc", ". tools/house.sh\n" + script], cwd=self.root,
                              env=environment, stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def build(self, *groups):
        """Installs the groups and builds; answers what the configuration has found."""
        result = self.run('install_packages %s && build "$root/build/it" python built'
                          % " ".join(groups))
        assert result.returncode == 0, result.stdout + result.stderr
        return (self.root / "build" / "it" / "found").read_text()


@pytest.fixture
def machine(tmp_path):
    return Machine(tmp_path)


# --- Build folders -----------------------------------------------------------------------


@pytest.mark.parametrize("order", [("build", "build check"), ("build check", "build")])
def test_what_is_installed_later_is_found(machine, order):
    """The two commands pass in either order: what one installs, the other's folder knows."""
    for groups in order:
        found = machine.build(*groups.split())
    assert found == str(machine.folder / "bin" / "later")


def test_configured_once(machine):
    """With nothing new installed, nothing is configured again."""
    machine.build("build")
    machine.build("build")
    assert (machine.root / "configured").read_text() == "once\n"


# --- Packages ----------------------------------------------------------------------------


def install(machine, packages):
    """What installing a list of packages leaves installed, and what it says."""
    (machine.root / "tools" / "packages").write_text(packages)
    result = machine.run("install_packages build")
    return (machine.folder / "installed").read_text().split(), result.stderr


def test_the_first_of_several_that_there_is(machine):
    """One machine's sources have another's packages by other names, and no lists at first."""
    assert install(machine, "build rare|second|third\nbuild g++\n")[0] == ["g++", "second"]
    assert install(machine, "build first|second|third\n") == (["g++", "second"], "")


def test_package_that_no_source_has(machine):
    installed, said = install(machine, "build first\nbuild rare|rare\n")
    assert installed == []
    assert "no package source of this machine has rare or rare\n" in said
    assert "cannot install first rare (log: " in said


UNPACKING = {
    "apt-get": """
        case " $* " in *" update "*) touch "$MACHINE/updated" ;; *" download "*)
            [ -e "$MACHINE/updated" ] || exit 100
            echo "$*" >> "$MACHINE/fetched"
            for name; do
                case $name in -* | download) ;; *) echo "$name" > "${name}_1.0.deb" ;; esac
            done ;;
        esac""",
    "dpkg": """mkdir -p "$3/usr" && cp "$2" "$3/usr/$(cat "$2")" """,
}


def test_packages_that_are_only_unpacked(machine):
    """They are fetched once, and again when they are others; nothing is installed."""
    for name, text in UNPACKING.items():
        machine.program(name, text)
    unpacked = machine.root / "build" / "unpacked"
    for packages in "build a\nunpack b\nunpack c\nunpack rare|c\n", "unpack d\n":
        (machine.root / "tools" / "packages").write_text(packages)
        for said in True, False:
            result = machine.run("unpack_packages")
            assert (result.returncode, bool(result.stderr)) == (0, said), result.stderr
    assert os.listdir(unpacked / "usr") == ["d"]
    assert sorted(os.listdir(unpacked)) == ["packages", "usr"]
    fetched = (machine.folder / "fetched").read_text().splitlines()
    assert [line.split("download ")[1] for line in fetched] == ["b c", "d"]
    assert (machine.folder / "installed").read_text() == ""
    machine.program("apt-get", "exit 100")
    (machine.root / "tools" / "packages").write_text("unpack e\n")
    result = machine.run("unpack_packages")
    assert result.returncode == 1 and "cannot fetch e (log: " in result.stderr


# --- ./demo ------------------------------------------------------------------------------


def test_demo_says_what_it_does(machine):
    """Each step while it is done, with its time, the first time; the second time nothing."""
    (machine.root / "CMakeLists.txt").write_text(SOURCES.replace("(built)", "(Keyline)"))
    (machine.root / "tools" / "packages").write_text("build first\n")
    shutil.copy(os.path.join(ROOT, "demo"), machine.root)
    (machine.root / "shell").mkdir()
    (machine.root / "shell" / "__main__.py").write_text("print('it starts')\n")
    (machine.root / "lineedit").mkdir()
    editor = machine.root / "lineedit" / "build.sh"
    editor.write_text('#!/bin/sh\n[ "$1" = --ask ] || exec touch "$2-is-there"\n[ -e "$3-is-there" ]\n')
    editor.chmod(0o755)
    said = []
    for _ in range(2):
        result = machine.run("exec ./demo")
        assert (result.returncode, result.stdout) == (0, "it starts\n"), result.stderr
        said.append(re.sub(r"Python 3\.\d+ ", "Python ", re.sub(r"\d+ s\n", "N s\n", result.stderr)))
    assert said == ["installing with apt-get: first ... N s\n"
                    "fetching and building the line editor ... N s\n"
                    "building the module for Python ... N s\n", ""]


# --- Interpreters ------------------------------------------------------------------------

# The system's interpreter, which claims something about itself.
PRETENDING = """#!/bin/sh
CODE=$4 exec /usr/bin/python3 -I -S -c '
import os, sys, sysconfig
%s
sys.executable = "%s"
exec(os.environ["CODE"])'
"""
NEXT = "sys.version_info = (3, 15, 0)"
DEBUG = "sys.gettotalrefcount = 1"
FREE_THREADED = "sysconfig.get_config_vars()[\"Py_GIL_DISABLED\"] = 1"
FREE_THREADED_SENTENCE = "is free-threaded; the module needs an interpreter with the global lock"


def pretending(folder, name, how):
    """The path of an interpreter that claims that."""
    folder.mkdir(parents=True, exist_ok=True)
    path = folder / name
    path.write_text(PRETENDING % (how, path))
    path.chmod(0o755)
    return str(path)


def pythons(machine, script, **changes):
    """What a script prints on a machine that has no interpreters but the system's and its own."""
    return machine.run(script, HOME=str(machine.folder), PYENV_ROOT="", **dict(
        {"PATH": "%s:/usr/sbin:/sbin:/bin" % (machine.folder / "bin")}, **changes))


def test_every_interpreter_is_found(machine):
    """The next version beside the system's, and debug builds under their usual names."""
    system = "3.%d" % sys.version_info[1]
    mine = machine.folder / "bin"
    expected = {system: "/usr/bin/python3", "3.15": pretending(mine, "python3.15", NEXT),
                "3.15d": pretending(mine, "python3.15d", NEXT + "\n" + DEBUG),
                system + "d": pretending(
                    machine.folder / (".pyenv/versions/%s.1-debug/bin" % system),
                    "python" + system, DEBUG)}
    pretending(mine, "python3.14", FREE_THREADED)
    found = dict(line.split() for line in pythons(machine, "tools/pythons.sh").stdout.splitlines())
    assert found == expected
    first = pythons(machine, "tools/pythons.sh --default").stdout.split()[0]
    assert first == ("3.9" if system == "3.9" else "3.15")


def test_the_newest_does_not_displace_the_systems_own(machine):
    pretending(machine.folder / "bin", "python3.15", NEXT)
    said = pythons(machine, ". tools/stages.sh; find_interpreters > log; "
                            'echo "$system: $first ${others[*]}"').stdout
    system, tested = said.strip().split(": ")
    assert system == "3.%d" % sys.version_info[1]
    assert {system, "3.15"} == set(tested.split())


def test_a_free_threaded_interpreter_is_refused(machine, tmp_path):
    """Where it is looked for, and at configuration."""
    path = pretending(tmp_path, "python3.13t", FREE_THREADED)
    result = pythons(machine, "tools/pythons.sh --default", KEYLINE_PYTHON=path)
    assert result.returncode != 0 and FREE_THREADED_SENTENCE in result.stderr
    result = subprocess.run(["cmake", "-S", ROOT, "-B", tmp_path / "build", "-G", "Ninja",
                             "-DKEYLINE_PYTHON=" + path], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    assert result.returncode != 0
    assert FREE_THREADED_SENTENCE in " ".join(result.stderr.split())


# --- Style -------------------------------------------------------------------------------


@pytest.mark.parametrize("version, finds, status, said", [
    ("97.0.6", False, 0, "ok"),
    ("97.0.6", True, 1, "FAILED"),
    ("98.1.7", False, 0, "ok"),
    ("98.1.7", True, 0, "not looked at here: clang-format 98.1.7 disagrees,"
     " the reference is 97 (log:"),
])
def test_style_is_judged_by_the_reference(machine, version, finds, status, said):
    """A tool of another version may see it otherwise, which is told and no failure."""
    machine.program("clang-format-97" if version.startswith("97") else "clang-format", """
        [ "$1" != --version ] || { echo "Some clang-format version %s (1)"; exit; }
        exit %d""" % (version, finds))
    result = machine.run('. tools/stages.sh; reference[clang-format]=97; check() { "$(tool clang-format)" it; }; '
                         "style clang-format format 'the format' check; echo $? $failed",
                         PATH="%s:/bin" % (machine.folder / "bin"))
    line, *_, last = result.stdout.splitlines()
    assert re.fullmatch(r"the format +%s.*" % re.escape(said), line)
    assert last == "%d %d" % (status, status)
    assert (machine.root / "build/results/format/status").read_text() == "%d\n" % status


def test_style_without_the_tool(machine):
    bare = machine.folder / "bare"
    bare.mkdir()
    for name in ("bash", "dirname", "mkdir"):
        (bare / name).symlink_to(shutil.which(name))
    result = machine.run(". tools/stages.sh; style mypy types 'the types' false; echo $? $failed",
                         PATH=str(bare))
    assert re.fullmatch("the types +not looked at here: there is no mypy; the reference is 1.0\n"
                        "0 0\n", result.stdout), result.stderr


# --- What this machine cannot run --------------------------------------------------------


def test_what_a_machine_cannot_do_is_left_out_by_name(setup, tmp_path):
    """It is not skipped, for a skipped test counts as a failed one."""
    (tmp_path / "sitecustomize.py").write_text(
        "import platform\nplatform.machine = lambda: 'another'\n")
    stage = tmp_path / "results" / "stage"
    stage.mkdir(parents=True)
    (stage / "status").write_text("0\n")
    subprocess.run(
        [sys.executable, "-m", "pytest", os.path.join(ROOT, "tests", "faults", "test_races.py"),
         __file__, "-q", "-k", "test_races or test_configured_once", "-p", "no:cacheprovider",
         "--interpreter", setup.interpreter, "--junitxml", stage / "it.xml",
         "--left-out", stage / "left-out"],
        env=dict(os.environ, PYTHONPATH=str(tmp_path)), check=True, stdin=subprocess.DEVNULL)
    counted = subprocess.run([sys.executable, os.path.join(ROOT, "tools", "count_tests.py"),
                              tmp_path / "results"], check=True, stdout=subprocess.PIPE, text=True)
    left_out, total = counted.stdout.splitlines()
    number, names = re.fullmatch("left out here: ([0-9]+) tests, for the interposer is written for "
                                 "x86-64: (.*)", left_out).groups()
    assert int(number) > 10
    assert [name.rpartition("::")[2] for name in names.split(", ")] == [
        "test_at_every_call", "test_at_every_instruction"]
    assert total == "1 passed, 0 failed"


# --- The line editor's archive -----------------------------------------------------------

ARCHIVE = b"not the editor"
SUM = hashlib.sha256(ARCHIVE).hexdigest()
NAME = "libedit_3.1-20221030.orig.tar.gz"


class Mirror:
    """A place with source packages, and an apt that has it among its sources."""

    def __init__(self, folder):
        self.folder = folder
        for name in "sources.d", "lineedit", "got":
            (folder / name).mkdir()
        shutil.copy(os.path.join(ROOT, "lineedit", "fetch.sh"), folder / "lineedit")
        (folder / "lineedit" / "archive.sha256").write_text("%s  %s\n" % (SUM, NAME))
        (folder / "apt.conf").write_text(
            'Dir::Etc::sourcelist "%s/sources.list";\nDir::Etc::sourceparts "%s/sources.d";\n'
            % (folder, folder))

    def carry(self, suite, version, archive=ARCHIVE):
        """Has the suite carry this version of the package."""
        pool = self.folder / "mirror" / "pool" / suite
        pool.mkdir(parents=True)
        name = "libedit_%s" % version.rpartition("-")[0]
        files = {name + ".orig.tar.gz": archive, "libedit_%s.dsc" % version: b"control"}
        sums = []
        for each, content in files.items():
            (pool / each).write_bytes(content)
            sums.append(" %s %d %s" % (hashlib.sha256(content).hexdigest(), len(content), each))
        index = ("Package: libedit\nBinary: libedit2\nVersion: %s\nFormat: 3.0 (quilt)\n"
                 "Directory: pool/%s\nChecksums-Sha256:\n%s\n\n" % (version, suite, "\n".join(sums)))
        path = self.folder / "mirror" / "dists" / suite / "main" / "source"
        path.mkdir(parents=True)
        (path / "Sources").write_text(index)
        (path.parent.parent / "Release").write_text(
            "Suite: %s\nCodename: %s\nComponents: main\nSHA256:\n %s %d main/source/Sources\n" % (
                suite, suite, hashlib.sha256(index.encode()).hexdigest(), len(index)))

    def source(self, form, suite):
        """Makes it one of the machine's sources."""
        if form == "list":
            (self.folder / "sources.list").write_text(
                "deb [trusted=yes] file:%s/mirror %s main\n" % (self.folder, suite))
        else:
            (self.folder / "sources.d" / "it.sources").write_text(
                "# it\nTypes: deb\nURIs: file:%s/mirror\nSuites: %s\n other\nComponents: main\n"
                "Trusted: yes\n" % (self.folder, suite))

    def fetch(self, **changes):
        """The file that was got and what was said."""
        environment = dict(os.environ, APT_CONFIG=str(self.folder / "apt.conf"), **changes)
        result = subprocess.run([self.folder / "lineedit" / "fetch.sh", self.folder / "got"],
                                env=environment, stdin=subprocess.DEVNULL, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        assert (result.returncode == 0) == bool(result.stdout) == (not result.stderr)
        return result.stdout.rstrip("\n"), result.stderr


@pytest.fixture
def mirror(tmp_path):
    return Mirror(tmp_path)


FORMS = pytest.mark.parametrize("form", ["list", "sources"])


@FORMS
def test_archive_of_the_machines_suite(mirror, form):
    mirror.carry("trixie", "3.1-20221030-7")
    mirror.source(form, "trixie")
    assert mirror.fetch() == (str(mirror.folder / "got" / NAME), "")
    assert (mirror.folder / "got" / NAME).read_bytes() == ARCHIVE


@FORMS
def test_archive_of_another_suite(mirror, form):
    """The machine's own suite has a newer version: the pinned one is at the same place."""
    mirror.carry("trixie", "3.1-20250104-1", b"another")
    mirror.carry("bookworm", "3.1-20221030-2")
    mirror.source(form, "trixie")
    assert mirror.fetch() == (str(mirror.folder / "got" / NAME), "")


def test_archive_is_fetched_once(mirror):
    mirror.carry("bookworm", "3.1-20221030-2")
    mirror.source("list", "bookworm")
    first = mirror.fetch()
    shutil.rmtree(mirror.folder / "mirror")
    assert mirror.fetch() == first


def test_archive_that_another_build_has(mirror):
    """It is not fetched once more for the fuzzers or a package."""
    shared = mirror.folder / "build" / "editor" / "archive"
    shared.mkdir(parents=True)
    (shared / NAME).write_bytes(ARCHIVE)
    found, _ = mirror.fetch()
    assert os.path.samefile(found, shared / NAME)


def test_archive_that_nobody_carries(mirror):
    mirror.carry("trixie", "3.1-20250104-1", b"another")
    mirror.source("list", "trixie")
    _, said = mirror.fetch()
    for words in (NAME, "libedit 3.1-20221030", "no package source has it, only 3.1-20250104-1",
                  "file:%s/mirror trixie" % mirror.folder, "/mirror bookworm",
                  "Add a package source that has it", "KEYLINE_LIBEDIT_ARCHIVE=FILE"):
        assert words in said
    assert not (mirror.folder / "got" / "apt").exists()


def test_no_source_answers(mirror):
    mirror.source("list", "trixie")
    assert "no package source answered; is there a network?" in mirror.fetch()[1]


def test_archive_with_another_sum(mirror):
    mirror.carry("bookworm", "3.1-20221030-2", b"something else")
    mirror.source("list", "bookworm")
    assert "not %s as pinned" % SUM in mirror.fetch()[1]
    assert not (mirror.folder / "got" / NAME).exists()


def test_archive_from_a_file(mirror):
    """Nothing is fetched, and it is judged like one that was."""
    mine = mirror.folder / "mine"
    for content, got in ((ARCHIVE, str(mine)), (b"wrong", "")):
        mine.write_bytes(content)
        assert mirror.fetch(KEYLINE_LIBEDIT_ARCHIVE=str(mine))[0] == got
    assert mirror.fetch(KEYLINE_LIBEDIT_ARCHIVE=str(mine) + "-not")[1].endswith("no file\n")
