"""Random calls of all methods, good and bad, against a model in plain Python.

The same sessions each time; fuzzing/methods.py makes up new ones.
"""
import os
import sys

import pytest

from script import environment

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "fuzzing"))

from methods import Runner, make_session, shorten, story  # noqa: E402

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
        pytest.fail(story(*shorten(runner, calls, failed)))


def test_a_difference_is_found_and_made_short(runner):
    """The model knows nothing of a line that comes to the history behind its back."""
    behind = ["history", "['x' for _ in [__import__('Keyline').addHistory('x', 'm', '')]][1:]"
              " and '' or ''", None]
    calls = make_session(1, 30) + [["keyBindingsEnabledIs", "True", None], behind]
    calls, failed = shorten(runner, calls, runner.run(calls))
    assert [call[0] for call in calls] == ["keyBindingsEnabledIs", "history"]
    assert failed == (1, "gave ('returned', 'list', ['x']), not ('returned', 'list', [])")
