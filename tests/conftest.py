"""What every test gets: interpreter and module under test, and a way to start children."""
import functools
import glob
import os
import signal
import subprocess
import sys
import tempfile

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "support"), os.path.join(os.path.dirname(HERE), "tools")]

# pylint: disable=wrong-import-position
from script import ROOT, run_script
from terminal import Terminal

# With 32 bits, what only the stack of a waiting thread points to is a leak to the sanitizer. The
# quarantines are small, so that what was freed does not look like growth.
ASAN_OPTIONS = ("detect_leaks=%d:allocator_may_return_null=1:exitcode=99:quarantine_size_mb=1:"
                "thread_local_quarantine_size_kb=16:" % (sys.maxsize > 1 << 32))
SANITIZER = ("LD_PRELOAD", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS")
SUPPRESSIONS = os.path.join(ROOT, "tests", "support", "valgrind.supp")


# A job in the background is started with some signals ignored, and so would its children be.
for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM, signal.SIGTSTP):
    if signal.getsignal(number) == signal.SIG_IGN:
        signal.signal(number, signal.default_int_handler if number == signal.SIGINT
                      else signal.SIG_DFL)


def pytest_addoption(parser):
    parser.addoption("--interpreter", metavar="PATH", default=sys.executable,
                     help="the interpreter that runs the children")
    parser.addoption("--module-dir", metavar="DIR",
                     help="where the built module lies; default build/<version>")
    parser.addoption("--sanitized", action="store_true",
                     help="the module was built with the address sanitizer")
    parser.addoption("--left-out", metavar="FILE",
                     help="where to list what this machine or user cannot run")
    parser.addoption("--valgrind", action="store_true",
                     help="run the children under memcheck; KEYLINE_TEST_DEADLINE=300 gives"
                     " them the time for it")


# The children's interpreter then. Python takes each block from the C library, so that memcheck
# sees it. The C library does not free its own memory at the end: where other threads still run,
# it unloads the libraries as well, and all that they hold counts as lost.
# lax-ioctls: memcheck does not know the ioctl of openpty, and would say so.
VALGRIND = """#!/bin/sh
export PYTHONMALLOC=malloc
exec valgrind -q --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite \\
    --run-libc-freeres=no --sim-hints=lax-ioctls --num-callers=30 \\
    --suppressions=%s --log-file=%s/report.%%p %s "$@"
"""


def under_valgrind(interpreter, logs):
    """The path of a program that runs the interpreter under memcheck."""
    path = os.path.join(logs, "interpreter")
    with open(path, "w", encoding="utf-8") as file:
        file.write(VALGRIND % (SUPPRESSIONS, logs, interpreter))
    os.chmod(path, 0o755)
    return path


@functools.lru_cache(maxsize=None)
def sanitizer_library():
    return subprocess.run(["gcc", "-print-file-name=libasan.so"], check=True,
                          capture_output=True, text=True).stdout.strip()


class Setup:
    """The interpreter and the module under test."""

    def __init__(self, interpreter, module_dir, sanitizer_logs, under=False):
        self.interpreter = interpreter
        self.version = subprocess.run(
            [interpreter, "-c", "import sys; print('%d.%d' % sys.version_info[:2])"],
            check=True, capture_output=True, text=True).stdout.strip()
        self.module_dir = os.path.abspath(
            module_dir or os.path.join(ROOT, "build", self.version))
        # As where it is installed: no child compiles the package for itself.
        subprocess.run([interpreter, "-m", "compileall", "-q", os.path.join(ROOT, "keyline_shell")],
                       env={**os.environ, "PYTHONPYCACHEPREFIX": ""}, stdout=subprocess.DEVNULL)
        self.sanitizer_logs = sanitizer_logs
        self.under_valgrind = under
        if under:
            self.interpreter = under_valgrind(interpreter, sanitizer_logs)
        # From 3.11 on values lie where the checker does not look, unless it is told to.
        newer = tuple(map(int, self.version.split("."))) >= (3, 11)
        self.looks_early = bool(sanitizer_logs) and not under and (newer or self.loses_memory())

    def python_path(self):
        """Where the children look for modules."""
        early = [os.path.join(ROOT, "tests", "support", "leaks")] if self.looks_early else []
        return ":".join([self.module_dir] + early)

    def loses_memory(self):
        """Whether the sanitizer finds leaks of the interpreter when it does nothing at all."""
        result = subprocess.run([self.interpreter, "-c", "pass"], check=False,
                                env=dict(os.environ, **self.sanitizer_environment()))
        return result.returncode != 0 and bool(self.sanitizer_reports())

    def module(self):
        """The path of the shared object."""
        found = glob.glob(os.path.join(self.module_dir, "Keyline*.so"))
        assert len(found) == 1, "no module in %s: %r" % (self.module_dir, found)
        return found[0]

    def sanitizer_environment(self):
        if not self.sanitizer_logs or self.under_valgrind:
            return {name: os.environ[name] for name in SANITIZER if name in os.environ}
        logs = "log_path=%s/report" % self.sanitizer_logs
        return {
            "LD_PRELOAD": sanitizer_library(),
            "PYTHONMALLOC": "malloc",
            "ASAN_OPTIONS": ASAN_OPTIONS + logs,
            "UBSAN_OPTIONS": "print_stacktrace=1:" + logs,
        }

    def sanitizer_reports(self):
        """The text of every report so far; removes them."""
        texts = []
        for path in sorted(glob.glob("%s/report*" % self.sanitizer_logs)
                           if self.sanitizer_logs else []):
            with open(path, encoding="utf-8", errors="replace") as file:
                texts.append(file.read())
            os.unlink(path)
        return [text for text in texts if text]  # memcheck leaves an empty one for no error


@pytest.fixture(scope="session")
def setup(request, tmp_path_factory):
    sanitized = request.config.getoption("--sanitized")
    valgrind = request.config.getoption("--valgrind")
    logs = str(tmp_path_factory.mktemp("sanitizer")) if sanitized or valgrind else None
    return Setup(request.config.getoption("--interpreter"),
                 request.config.getoption("--module-dir"), logs, valgrind)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    if call.when == "call":
        item.passed = outcome.get_result().passed


@pytest.fixture(autouse=True)
def no_sanitizer_reports(setup):
    yield
    reports = setup.sanitizer_reports()
    assert not reports, "\n".join(reports)


@pytest.fixture
def start(request, setup):
    """start(script, ...): a Terminal; see there. Every test states how its children end."""
    opened = []

    def begin(script, **options):
        opened.append(Terminal(setup, script, **options))
        return opened[-1]

    yield begin
    stated = all(child.end_stated for child in opened)
    for child in opened:
        child.close()
    failed = not getattr(request.node, "passed", False)
    assert stated or failed, "the test did not say how its child ends"


@pytest.fixture
def run(setup):
    """run(script, stdin=..., end=...): a script without a terminal; see run_script."""
    return lambda script, **options: run_script(setup, script, **options)


@pytest.fixture
def single_byte_locale(tmp_path):
    """The environment of a locale in which each byte is a character."""
    (tmp_path / "charmap").write_text(
        "<code_set_name> ISO-8859-1\n<comment_char> %\n<escape_char> /\n<mb_cur_min> 1\n"
        "<mb_cur_max> 1\nCHARMAP\n"
        + "".join("<U%04X> /x%02x a\n" % (code, code) for code in range(256))
        + "END CHARMAP\n")
    (tmp_path / "source").write_text(
        "comment_char %\nescape_char /\nLC_CTYPE\nupper <U0041>..<U005A>\n"
        "lower <U0061>..<U007A>\ndigit <U0030>..<U0039>\n"
        "print <U0020>..<U007E>;<U00A0>..<U00FF>\nEND LC_CTYPE\n")
    # It warns of each category that the source leaves out, and says so in its status.
    subprocess.run(["localedef", "-c", "-f", "./charmap", "-i", "./source",
                    "./single.ISO-8859-1"], cwd=tmp_path, capture_output=True)
    assert os.path.exists(tmp_path / "single.ISO-8859-1" / "LC_CTYPE")
    return {"LC_ALL": None, "LC_CTYPE": "single.ISO-8859-1", "LOCPATH": str(tmp_path)}


def mounts():
    """Whether this user may mount a file system."""
    with tempfile.TemporaryDirectory() as folder:
        if subprocess.run(["mount", "-t", "tmpfs", "none", folder],
                          stderr=subprocess.DEVNULL).returncode != 0:
            return False
        subprocess.run(["umount", folder], check=True)
        return True


def makes_pid_namespaces():
    """Whether this user may make a process the first of a PID namespace."""
    return subprocess.run(["unshare", "--pid", "--fork", "true"],
                          stderr=subprocess.DEVNULL).returncode == 0


def serves_logins():
    """Whether sshd can run here: for root that takes a user namespace."""
    return os.getuid() != 0 or subprocess.run(
        ["unshare", "--user", "--map-user=1000", "true"], stderr=subprocess.DEVNULL).returncode == 0


@pytest.hookimpl(trylast=True)  # of what is left when -k and -m have chosen
def pytest_collection_modifyitems(config, items):
    """Leaves out what is not for this build, and what this machine or user cannot run."""
    markers = []
    if config.getoption("--sanitized") or config.getoption("--valgrind"):
        markers.append("plain_only")
    else:
        markers.append("sanitized_only")
    if config.getoption("--valgrind"):
        markers.append("not_memcheck")
    left_out = [item for item in items if any(map(item.get_closest_marker, markers))]
    lacking = {}
    for item in items:
        for marker in item.iter_markers("only_where"):
            if not marker.args[0]:
                lacking[item] = marker.args[1]
    for name, able, reason in (
            ("small_disk", mounts, "this user may mount nothing"),
            ("first_process", makes_pid_namespaces,
             "this user may make no PID namespace"),
            ("ssh_server", serves_logins, "this user may make no user namespace"),
            ("others", lambda: os.getuid() == 0, "this user is not root")):
        needing = [item for item in items if name in getattr(item, "fixturenames", ())]
        if needing and not able():
            lacking.update(dict.fromkeys(needing, reason))
    left_out += [item for item in lacking if item not in left_out]
    config.hook.pytest_deselected(items=left_out)
    items[:] = [item for item in items if item not in left_out]
    told = [(reason, item.nodeid) for item, reason in lacking.items()]
    config.left_out = told
    if hasattr(config, "workeroutput"):
        config.workeroutput["left_out"] = told


@pytest.hookimpl(optionalhook=True)
def pytest_testnodedown(node, error):
    """A worker of pytest-xdist has ended: all have the same list."""
    node.config.left_out = getattr(node, "workeroutput", {}).get("left_out", [])


def pytest_terminal_summary(terminalreporter, config):
    """Names each test that this machine or user cannot run."""
    told = getattr(config, "left_out", [])
    for reason, name in told:
        terminalreporter.write_line("left out, for %s: %s" % (reason, name))
    if config.getoption("--left-out"):
        with open(config.getoption("--left-out"), "w", encoding="utf-8") as file:
            file.writelines("%s\t%s\n" % one for one in told)
