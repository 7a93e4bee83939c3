"""What docs/contributing.md names is there, and its example is a test that passes."""
import os
import re

from script import ROOT

with open(os.path.join(ROOT, "docs", "contributing.md"), encoding="utf-8") as page:
    TEXT = page.read()


def test_its_example_passes(start):
    program, = re.findall("```python\n(.*?)```", TEXT, re.S)
    names = {}
    exec(program, names)
    example, = (found for name, found in names.items() if name.startswith("test_"))
    example(start)


def test_what_it_names_is_there():
    named = set(re.findall(r"`([\w./]+/[\w./]*)", TEXT)) | set(re.findall(r"\]\(([^)]+)\)", TEXT))
    named |= set(re.findall(r"^    (?:python3 -m pytest )?((?:tools|tests)/\S+)", TEXT, re.M))
    assert len(named) > 30
    assert [name for name in named - {"build/logs"}
            if not os.path.exists(os.path.join(ROOT, name))
            and not os.path.exists(os.path.join(ROOT, "docs", name))] == []


def test_the_patch_it_changes_is_there():
    name, = re.findall(r"tools/patch edit (\S+)", TEXT)
    assert os.path.exists(os.path.join(ROOT, "lineedit", "patches", name + ".patch"))
