"""Writes the results into the README, in the place of those before: what was compared, how near
two copies of Keyline came, and the table.
"""
import statistics
import textwrap

from peers import PEERS
from rows import IN_README, ROWS, shown, title

BEGIN = "<!-- Written by bench/run, from here -->\n"
END = "<!-- to here. -->\n"


def medians(results, row):
    return {name: found["median"] for name, found in results["rows"].get(row, {}).items()}


def ratio(row, values):
    """Of the figures as they are shown, so that a reader finds the same."""
    mine, its = (round(values.get(name, 0), ROWS[row][2]) for name in ("Keyline", "base"))
    return "%.2f" % (mine / its) if its else "-"


def table(results):
    names = [name for name, *_ in PEERS]
    lines = [["", *names, "Keyline / base"], ["---"] * (len(names) + 2)]
    for row in IN_README:
        values = medians(results, row)
        lines.append([title(row), *(shown(row, values.get(name)) for name in names),
                      ratio(row, values)])
    return "".join("| %s |\n" % " | ".join(line) for line in lines).replace("|  |", "| |").replace(
        "| --- ", "|---").replace("--- |", "---|")


def noise(results):
    """How far the two copies are apart, in percent: in the middle of the rows, and at most."""
    found = []
    for row in IN_README:
        values = medians(results, row)
        if values.get("Keyline") and values.get("again"):
            found.append(100 * abs(values["again"] / values["Keyline"] - 1))
    return statistics.median(found), max(found)


def block(results):
    words = ['"%s" is %s' % (name, what) for name, _, _, what, _ in PEERS if what]
    text = ("Medians of one interleaved run of `bench/run` with Python %s on %d processors%s, kept "
            "from going to sleep. %s and %s. The run has a second copy of Keyline: the two "
            "differed by %.0f %% in the middle of the rows, by %.0f %% at the most." % (
                results["python"], results["processors"],
                " of a virtual machine" if results["virtual"] else "",
                ", ".join(words[:-1]), words[-1], *noise(results)))
    return "\n".join(textwrap.wrap(text, 99, break_on_hyphens=False)) + "\n\n" + table(results)


def write(results, path):
    """Nothing but the results of a whole run gets there."""
    missing = [row for row in IN_README if not results["rows"].get(row)]
    if results["quick"] or missing:
        raise SystemExit("not of a whole run: %s" % (", ".join(missing) or "quick"))
    with open(path, encoding="utf-8") as file:
        before, rest = file.read().split(BEGIN)
    after = rest.split(END)[1]
    with open(path, "w", encoding="utf-8") as file:
        file.write(before + BEGIN + block(results) + END + after)
