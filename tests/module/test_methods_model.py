"""Random calls of all methods, good and bad, against a model in plain Python.

The same sessions each time; fuzzing/methods.py makes up new ones.
"""
import os
import subprocess
import sys

import pytest

from script import DEADLINE, ROOT, environment

sys.path.insert(0, os.path.join(ROOT, "fuzzing"))

import methods  # noqa: E402
from methods import Runner, make_session, report, shorten  # noqa: E402

SESSIONS, CALLS = 12, 250


@pytest.fixture(scope="module")
def runner(setup, tmp_path_factory):
    home = str(tmp_path_factory.mktemp("methods"))
    child = Runner(setup.interpreter, environment(setup, home, {"TMPDIR": home}))
    yield child
    child.close()


@pytest.mark.parametrize("seed", range(SESSIONS))
def test_methods_do_what_the_model_does(runner, seed):
    calls = make_session(seed, CALLS)
    failed = runner.run(calls)
    if failed:
        pytest.fail(report(*shorten(runner, calls, failed)))


def test_a_difference_is_found_and_minimized(runner):
    """The model knows nothing of a line that comes to the history behind its back."""
    behind = ["history", "['x' for _ in [__import__('Keyline').addHistory('x', 'm', '')]][1:]"
              " and '' or ''", None]
    calls = make_session(1, 30) + [["keyBindingsEnabledIs", "True", None], behind]
    calls, failed = shorten(runner, calls, runner.run(calls))
    assert [call[0] for call in calls] == ["keyBindingsEnabledIs", "history"]
    assert failed == (1, "gave ('returned', 'list', ['x']), not ('returned', 'list', [])")


def test_what_fails_from_the_start_is_minimized(tmp_path):
    """A module that is not there differs before the first call."""
    result = subprocess.run(
        [sys.executable, methods.__file__, "--module-dir", str(tmp_path), "--sessions", "1"],
        capture_output=True, text=True, timeout=DEADLINE)
    assert result.returncode == 1
    assert "ModuleNotFoundError: No module named 'Keyline'" in result.stdout


# The module, but for a history that forgets.
FORGETS = """
import glob, importlib.util, sys
path, = glob.glob(%r + "/Keyline.*.so")
spec = importlib.util.spec_from_file_location("Keyline", path)
module = importlib.util.module_from_spec(spec)
spec.loader.exec_module(module)
module.history = lambda *given, _whole=module.history, **named: _whole(*given, **named)[-1:]
sys.modules["Keyline"] = module
"""


@pytest.mark.plain_only("the command gets no sanitizer's library")
def test_command_reports_a_finding_and_how_to_replay_it(setup, tmp_path):
    (tmp_path / "Keyline.py").write_text(FORGETS % setup.module_dir)
    first = subprocess.run(
        [sys.executable, methods.__file__, "--interpreter", setup.interpreter, "--module-dir",
         str(tmp_path), "--seed", "7", "--sessions", "1"], capture_output=True, text=True)
    head, *told, end = first.stdout.splitlines()
    assert first.returncode == 1
    assert end.startswith("1 sessions of 400 calls, 1 findings, ")
    assert "history('') gives ['line 1765'], not ['b', 'line 1765']" in told
    seed, again = head.split(": ", 1)
    assert seed == "seed 7"
    second = subprocess.run(again.split(), capture_output=True, text=True)
    assert second.returncode == 1
    assert second.stdout.splitlines()[:-1] == [head, *told]


@pytest.mark.plain_only("the command gets no sanitizer's library")
def test_command_without_a_finding(setup):
    result = subprocess.run(
        [sys.executable, methods.__file__, "--interpreter", setup.interpreter, "--module-dir",
         setup.module_dir, "--calls", "60", "--seed", "1", "--sessions", "1"],
        capture_output=True, text=True)
    assert result.returncode == 0
    assert result.stdout.startswith("1 sessions of 60 calls, 0 findings, ")
    assert result.stderr == ""
