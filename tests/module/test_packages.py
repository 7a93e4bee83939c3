"""The packages, each installed in a clean place and tried there.

They cost most of a minute, so they are no part of other runs: KEYLINE_TEST_PACKAGES=1 in
the environment asks for them. They need all that is built for the interpreter under test
and, in the folder beside it, for the system's. One process runs them best: each place is
made once.
"""
import copy
import glob
import os
import re
import subprocess
import sys
import tarfile

import pytest

from log_file import append
from script import ROOT

__test__ = bool(os.environ.get("KEYLINE_TEST_PACKAGES"))

EDITOR = os.environ.get("KEYLINE_EDITOR_DIR", os.path.join(ROOT, "build", "editor"))
SYSTEM = "/usr/bin/python3"
PIP = ["-m", "pip", "--disable-pip-version-check", "--no-cache-dir"]
MANUAL = sorted(glob.glob(os.path.join(ROOT, "docs", "manual", "*.[1-9]")))

SCRIPT = """
import Keyline
open("log", "w").close()

def complete(key, line):
    tell("asked", (key, line))
    return "ow"

def news(descriptor, length):
    sys.stdout.write("\\r\\x1b[J" + os.read(descriptor, length).decode())
    sys.stdout.flush()
    return 1

Keyline.loggingSyncEnabledIs("log", news)
read(complete, "exec")
Keyline.addHistory("show", "exec", "")
read(complete, "exec")
"""

USES = """
import Keyline
line: str = Keyline.readline("> ")
lines: int = Keyline.history()
Keyline.simpleReadline(b"> ")
from keyline_shell import Shell
status: str = Shell().run()
"""


def call(*command, **options):
    """Runs a program; answers what it printed. Its failure is told with all its output."""
    changes = {"KEYLINE_EDITOR_DIR": EDITOR, "PIP_CONFIG_FILE": "/dev/null",
               "PIP_NO_INDEX": "1", "PYTHONDONTWRITEBYTECODE": "1"}
    changes.update(options.pop("env", {}))
    result = subprocess.run(command, env=dict(os.environ, **changes), text=True,
                            stdin=subprocess.DEVNULL, capture_output=True, **options)
    assert result.returncode == 0, "%s\n%s%s" % (command, result.stdout, result.stderr)
    return result.stdout


def read(*path):
    """A file's bytes."""
    with open(os.path.join(*path), "rb") as file:
        return file.read()


@pytest.fixture(scope="module")
def packages(request, tmp_path_factory):
    """A folder with the wheel for the interpreter under test and the Debian package."""
    folder = str(tmp_path_factory.mktemp("packages"))
    call(request.config.getoption("--interpreter"), *PIP, "wheel", "--no-deps",
         "--wheel-dir", folder, ROOT)
    call(os.path.join(ROOT, "tools", "package"), "deb", folder)
    return folder


# The ways to install. Each takes an empty environment's folder, its interpreter's Setup and
# the folder of the packages; it answers the prefix and the folder of documents.

def by_cmake(place, given, packages):
    call("cmake", "--install", given.module_dir, "--prefix", place)
    return place, place + "/share/doc/keyline"


def install(place, given, what):
    """With the pip that the interpreter has, into the environment, which has none."""
    found = call(given.interpreter, "-c",
                 "import os, pip; print(os.path.dirname(os.path.dirname(pip.__file__)))")
    call(place + "/bin/python", *PIP, "install", what, env={"PYTHONPATH": found.strip()})


def by_pip(place, given, packages):
    install(place, given, ROOT)
    return place, place + "/share/doc/keyline"


def by_wheel(place, given, packages):
    wheel, = glob.glob(packages + "/*.whl")
    install(place, given, wheel)
    return place, place + "/share/doc/keyline"


def by_deb(place, given, packages):
    """Unpacked, not installed: the environment's path leads to the package's folder."""
    package, = glob.glob(packages + "/python3-keyline_*.deb")
    call("dpkg-deb", "-x", package, place + "-unpacked")
    with open(os.path.join(site_packages(place, given.version), "unpacked.pth"), "w",
              encoding="utf-8") as file:
        file.write(place + "-unpacked/usr/lib/python3/dist-packages\n")
    return place + "-unpacked/usr", place + "-unpacked/usr/share/doc/python3-keyline"


def site_packages(place, version):
    return os.path.join(place, "lib", "python" + version, "site-packages")


WAYS = {  # how, and for the system's interpreter or for the one under test
    "cmake": (by_cmake, False), "cmake-system": (by_cmake, True), "wheel": (by_wheel, False),
    "pip-system": (by_pip, True), "deb": (by_deb, True),
}
EACH_WAY = pytest.mark.parametrize("setup", WAYS, indirect=True, scope="module")


@pytest.fixture(scope="module")
def setup(setup, request, tmp_path_factory):
    """What the children run with: an environment of their own with the package in it."""
    if not hasattr(request, "param"):
        return setup
    way, system = WAYS[request.param]
    given = type(setup)(SYSTEM, None, None) if system else setup
    if system:  # the build folders lie side by side, each with its version as its name
        given.module_dir = os.path.join(os.path.dirname(setup.module_dir), given.version)
    place = str(tmp_path_factory.mktemp(request.param) / "environment")
    call(given.interpreter, "-m", "venv", "--without-pip", place)
    made = copy.copy(given)
    made.interpreter = os.path.join(place, "bin", "python")
    made.prefix, made.documents = way(place, given, request.getfixturevalue("packages"))
    made.module_dir = (made.prefix + "/lib/python3/dist-packages" if way is by_deb
                       else site_packages(made.prefix, given.version))
    return made


@pytest.fixture
def begin(start):
    """start, with nothing but the environment to find the module by."""
    return lambda script: start(script, env={"PYTHONPATH": None})


@EACH_WAY
def test_a_line_is_read_and_completed_and_log_news_shown(begin, setup):
    child = begin(SCRIPT)
    child.expect_prompt()
    child.send("sh<tab>")
    child.expect_fact("asked", (b"\t", "sh"))
    child.send(" all")
    child.wait_screen("the completed line", lambda rows: rows[0] == "1> sh1> show all")
    append(child, "link down\n")
    child.wait_screen("the news above the line",
                      lambda rows: rows[:2] == ["link down", "1> show all"])
    child.send("<enter>")
    child.expect_line("show all")
    child.enter("<up>", "show")
    child.expect_end()


@EACH_WAY
def test_the_module_and_its_library_are_the_packages(begin, setup):
    child = begin("""
import Keyline
tell("module", Keyline.__file__)
with open("/proc/self/maps") as file:
    tell("libraries", sorted({line.split()[-1] for line in file if "Vantor" in line}))
""")
    assert child.expect_fact("module") == setup.module()
    child.expect_fact("libraries", [os.path.join(setup.module_dir, "libVantor.so")])
    child.expect_end()


@EACH_WAY
def test_the_shell_package_lies_beside_the_module(begin, setup):
    """All its files, and nothing that an interpreter has made of them."""
    child = begin("import keyline_shell; tell('package', keyline_shell.__file__)")
    folder = os.path.join(setup.module_dir, "keyline_shell")
    assert child.expect_fact("package") == folder + "/__init__.py"
    child.expect_end()
    files = {name for name in os.listdir(ROOT + "/keyline_shell") if name != "__pycache__"}
    assert "py.typed" in files and set(os.listdir(folder)) - {"__pycache__"} == files
    for name in files:
        assert read(folder, name) == read(ROOT, "keyline_shell", name)


@EACH_WAY
def test_the_header_and_the_documents(setup):
    """The manual as pages and as HTML, README and CHANGES."""
    assert read(setup.prefix, "include", "vantor.h") == read(ROOT, "vantor", "vantor.h")
    for name in "README.md", "CHANGES":
        assert read(setup.documents, name) == read(ROOT, name)
    assert MANUAL
    for page in MANUAL:
        found, = glob.glob("%s/share/man/man%s/%s*" % (
            setup.prefix, page[-1], os.path.basename(page)))
        shown = call("mandoc", "-T", "utf8", found)
        assert shown == call("mandoc", "-T", "utf8", page) and "Keyline" in shown
        html = read(setup.documents, "html", os.path.basename(page) + ".html").decode()
        assert "</html>" in html and "Keyline" in html


@EACH_WAY
def test_the_editors_licence(setup):
    """As it is in the editor's archive."""
    archive = (os.environ.get("KEYLINE_LIBEDIT_ARCHIVE")
               or glob.glob(EDITOR + "/archive/*.orig.tar.gz")[0])
    with tarfile.open(archive) as tar:
        text, = [tar.extractfile(member).read().decode() for member in tar
                 if re.fullmatch("[^/]*/COPYING", member.name)]
    if os.path.exists(setup.documents + "/copyright"):
        text = re.sub("^", " ", re.sub("^$", ".", text.rstrip("\n"), flags=re.M), flags=re.M)
        assert text in read(setup.documents, "copyright").decode()
    else:
        assert read(setup.documents, "COPYING.libedit").decode() == text


@EACH_WAY
def test_checkers_find_the_types(setup, tmp_path, tmp_path_factory):
    uses = tmp_path / "uses.py"
    uses.write_text(USES)
    found = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--show-error-codes", "--config-file=",
         "--no-error-summary",
         "--cache-dir", str(tmp_path_factory.getbasetemp() / "mypy"),
         "--python-executable", setup.interpreter, str(uses)], capture_output=True, text=True, cwd=str(tmp_path))
    said = re.findall("^[^:]*:([0-9]+): error: .*\\[([a-z-]+)\\]$", found.stdout, re.M)
    assert said == [("4", "assignment"), ("5", "arg-type"), ("7", "assignment")], found.stdout + found.stderr


# The packages themselves

def test_the_same_sources_give_the_same_wheel(packages, setup, tmp_path):
    """Also from the packed sources, in another folder, later, under other settings."""
    backend = "import sys, keyline_wheel; keyline_wheel.build_%s(sys.argv[1])"
    call(setup.interpreter, "-c", backend % "sdist", tmp_path, cwd=ROOT + "/tools")
    archive, = tmp_path.glob("*.tar.gz")
    call("tar", "-xzf", archive, "-C", tmp_path)
    copied, = tmp_path.glob("*/tools")
    call(setup.interpreter, "-c", backend % "wheel", tmp_path, cwd=copied, umask=0o077,
         env={"TZ": "Asia/Tokyo", "LC_ALL": "C"})
    wheel, = tmp_path.glob("*.whl")
    first, = glob.glob(packages + "/*.whl")
    assert os.path.basename(first) == wheel.name
    assert read(first) == wheel.read_bytes()


def test_lintian_reports_nothing(packages):
    changes, = glob.glob(packages + "/*.changes")
    version = re.match(r"([0-9]+)\.([0-9]+)", call("lintian", "--print-version"))
    older = tuple(map(int, version.groups())) < (2, 105)  # than the suite
    ignored = ["--suppress-tags", "bad-distribution-in-changes-file"] if older else []
    assert call("lintian", "--allow-root", *ignored, "--fail-on", "warning", changes) == ""


def test_the_versions_agree(packages):
    """CMakeLists.txt says it; the Debian package has its own place for it."""
    version = re.search(rb"VERSION ([0-9.]+) LANGUAGES", read(ROOT, "CMakeLists.txt"))[1]
    package, = glob.glob(packages + "/python3-keyline_*.deb")
    wheel, = glob.glob(packages + "/*.whl")
    assert call("dpkg-deb", "--field", package, "Version").encode().strip() == version
    assert os.path.basename(wheel).split("-")[1].encode() == version
