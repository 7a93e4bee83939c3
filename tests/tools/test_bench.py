"""bench/run writes what it found into the README."""
import os
import re
import sys
import xml.dom.minidom

import pytest

from script import ROOT

sys.path.insert(0, os.path.join(ROOT, "bench"))

import peers  # noqa: E402
import plot  # noqa: E402
import readme  # noqa: E402
from rows import IN_README, RATIOS, ROWS, title  # noqa: E402


def results():
    """The figures in the README, as a run that ended with them has them."""
    with open(os.path.join(ROOT, "README.md"), encoding="utf-8") as file:
        text = file.read().split(readme.BEGIN)[1].split(readme.END)[0]
    head, _, *lines = [line.strip("| \n").split(" | ")
                       for line in text.split("\n\n")[1].splitlines()]
    names = {title(row): row for row in ROWS}
    rows = {}
    for line in lines:
        row = rows[names[line[0]]] = {
            name: {"median": float(value.replace(",", ""))}
            for name, value in zip(head, line[1:]) if value != "-"}
        row["again"] = {"median": 1.03 * row["Keyline"]["median"]}
    rows["key"]["again"] = {"median": 1.2 * rows["key"]["Keyline"]["median"]}
    return text, {"rows": rows, "quick": False, "processors": 2, "virtual": True, "python": "3.9",
                  "growth": {"add": {"Keyline": [[100, 0.5], [1000, 0.6]]}}}


def test_the_readme_is_as_it_is_written(tmp_path):
    path = tmp_path / "README.md"
    path.write_text("before\n" + readme.BEGIN + "old\n" + readme.END + "after\n")
    text, found = results()
    readme.write(found, str(path))
    written = path.read_text()
    assert written.startswith("before\n" + readme.BEGIN)
    assert written.endswith(readme.END + "after\n")
    assert written.split("\n\n")[1].split(readme.END)[0] == text.split("\n\n")[1]
    words = " ".join(written.split("\n\n")[0].split())
    assert "differed by 3 % in the middle of the rows, by 20 % at the most" in words
    for name, _, _, what, _ in peers.PEERS:
        assert what is None or '"%s" is %s' % (name, what) in words
    assert max(map(len, re.split("\n", written.split("\n\n")[0]))) < 100


@pytest.mark.parametrize("change", [
    lambda found: found.update(quick=True), lambda found: found["rows"].pop(IN_README[3])])
def test_only_a_whole_run_is_written(tmp_path, change):
    path = tmp_path / "README.md"
    path.write_text(readme.BEGIN + "old\n" + readme.END)
    _, found = results()
    change(found)
    with pytest.raises(SystemExit, match="not of a whole run"):
        readme.write(found, str(path))
    assert path.read_text() == readme.BEGIN + "old\n" + readme.END


def test_the_plots_show_every_peer(tmp_path):
    _, found = results()
    plot.draw(found, str(tmp_path))
    drawn = xml.dom.minidom.parse(str(tmp_path / "peers.svg"))
    texts = {text.firstChild.data for text in drawn.getElementsByTagName("text")}
    assert {name for name, *_ in peers.PEERS} <= texts
    colours = {dot.getAttribute("fill") for dot in drawn.getElementsByTagName("circle")}
    assert colours == set(peers.COLOURS.values())
    assert xml.dom.minidom.parse(str(tmp_path / "growth.svg")).getElementsByTagName("path")


@pytest.mark.parametrize("nothing", [0, -0.09])
def test_what_base_needed_nothing_for_is_not_in_the_plot(tmp_path, nothing):
    _, found = results()
    names = ["start cpu", "enter"]
    assert set(names) <= set(RATIOS) & set(found["rows"])
    found["rows"]["start cpu"]["base"]["median"] = nothing
    plot.draw(found, str(tmp_path))
    drawn = xml.dom.minidom.parse(str(tmp_path / "peers.svg"))
    texts = {text.firstChild.data for text in drawn.getElementsByTagName("text")}
    assert [title(row) in texts for row in names] == [False, True]
