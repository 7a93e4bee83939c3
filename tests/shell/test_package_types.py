"""What a type checker says of uses of keyline_shell, and of the package and the example."""
import importlib.metadata
import os
import re
import subprocess
import sys

import pytest

from script import ROOT

pytestmark = [pytest.mark.once, pytest.mark.plain_only("the checker is no child of the test")]

# Older ones see errors that are none, newer ones know no Python 3.9. Keyline's own stub is clear
# enough for all of them.
JUDGES = pytest.mark.only_where(
    importlib.metadata.version("mypy").startswith("1."), "mypy is not one of 1.x")
HERE = os.path.dirname(os.path.abspath(__file__))


@pytest.fixture(scope="module")
def checked(tmp_path_factory):
    """What the checker finds in a file or folder, strictly."""
    cache = str(tmp_path_factory.mktemp("mypy"))
    return lambda path: check(cache, path)


def check(cache, path):
    return subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--python-version", "3.9", "--config-file=",
         "--no-error-summary", "--hide-error-context", "--cache-dir", cache, path],
        env=dict(os.environ, MYPYPATH=os.path.join(ROOT, "Cli") + ":" + ROOT),
        capture_output=True, text=True)


@JUDGES
def test_a_checker_takes_right_uses_and_refuses_wrong_ones(checked):
    """Each line of the examples that ends in `# error: CODE` is refused so, and no other."""
    path = os.path.join(HERE, "package_types_examples.py")
    found = checked(path)
    said = re.findall(r"^.*?:([0-9]+): error: .*\[([a-z-]+)\]$", found.stdout, re.M)
    with open(path, encoding="utf-8") as file:
        expected = [(str(number), line.split("# error: ")[1].strip())
                    for number, line in enumerate(file, 1) if "# error: " in line]
    assert said == expected, found.stdout + found.stderr


@JUDGES
@pytest.mark.parametrize("path", ["keyline_shell", "shell/__main__.py"])
def test_the_package_and_the_example_are_typed(checked, path):
    found = checked(os.path.join(ROOT, path))
    assert found.stdout + found.stderr == "" and found.returncode == 0


def test_the_example_is_short():
    with open(os.path.join(ROOT, "shell", "__main__.py"), encoding="utf-8") as file:
        assert len(file.readlines()) <= 100
    assert sorted(set(os.listdir(os.path.join(ROOT, "shell"))) - {"__pycache__"}) == [
        "__main__.py"]
