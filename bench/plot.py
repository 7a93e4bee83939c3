"""Draws the results: plot.py RESULTS.json FOLDER writes peers.svg and growth.svg there."""
import json
import math
import os
import sys
from xml.sax.saxutils import escape

import peers as peers_module
from growth import PANELS
from rows import RATIOS, title

# Of what is no peer, and of the peers.
COLOURS = {"processor": "#d55e00", "wall clock": "#0072b2",
           "median": "#d55e00", "99th percentile": "#0072b2", **peers_module.COLOURS}
FONT = 'font-family="sans-serif" font-size="%d"'


class Drawing:
    def __init__(self, width, height):
        self.width, self.height, self.parts = width, height, []

    def add(self, text, *values):
        self.parts.append(text % values)

    def line(self, x1, y1, x2, y2, colour="#cccccc"):
        self.add('<path d="M%.1f %.1fL%.1f %.1f" stroke="%s"/>', x1, y1, x2, y2, colour)

    def text(self, x, y, text, anchor="start", size=11):
        self.add('<text x="%.1f" y="%.1f" text-anchor="%s" ' + FONT + '>%s</text>',
                 x, y, anchor, size, escape(text))

    def dot(self, x, y, colour, radius=3.5):
        self.add('<circle cx="%.1f" cy="%.1f" r="%.1f" fill="%s"/>', x, y, radius, colour)

    def write(self, path):
        with open(path, "w", encoding="utf-8") as file:
            file.write('<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d">\n'
                       '<rect width="100%%" height="100%%" fill="#ffffff"/>\n%s\n</svg>\n'
                       % (self.width, self.height, "\n".join(self.parts)))


def number(value):
    for size, letter in ((1000000, "M"), (1000, "k")):
        if value >= size:
            return "%g%s" % (value / size, letter)
    return "%g" % value


def span(values):
    """The powers of ten around the values."""
    low = math.floor(math.log10(min(values)) + 1e-9)
    high = math.ceil(math.log10(max(values)) - 1e-9)
    return low, max(high, low + 1)


def scale(low, high, start, end):
    return lambda value: start + (math.log10(value) - low) / (high - low) * (end - start)


def peers(results):
    """A row for each measure, a dot for each peer: what it needs, as a multiple of base. Some are
    the difference of two times: where the noise made base nothing or less, there is no row.
    """
    rows = [(row, upward) for row, upward in RATIOS.items()
            if results["rows"].get(row, {}).get("base", {}).get("median", 0) > 0]
    names = [name for name in COLOURS
             if any(name in results["rows"][row] for row, _ in rows)]
    drawing = Drawing(860, 70 + 24 * len(rows))
    ratios = {row: {} for row, _ in rows}
    for row, upward in rows:
        values = results["rows"][row]
        for name in names:
            if values.get(name, {}).get("median", 0) > 0:
                ratio = values[name]["median"] / values["base"]["median"]
                ratios[row][name] = 1 / ratio if upward else ratio
    low, high = span([ratio for row in ratios.values() for ratio in row.values()])
    place = scale(low, high, 330, 830)
    bottom = 45 + 24 * len(rows)
    for power in range(low, high + 1):
        x = place(10 ** power)
        drawing.line(x, 30, x, bottom, "#000000" if power == 0 else "#dddddd")
        drawing.text(x, bottom + 16, "%g" % 10 ** power, "middle")
    for at, (row, upward) in enumerate(rows):
        y = 50 + 24 * at
        drawing.text(320, y + 4, title(row) + (", inverse" if upward else ""), "end")
        drawing.line(330, y, 830, y, "#eeeeee")
        for name, ratio in ratios[row].items():
            drawing.dot(place(ratio), y, COLOURS[name], 5 if name == "Keyline" else 3.5)
    for at, name in enumerate(names):
        drawing.dot(335 + 84 * at, 14, COLOURS[name])
        drawing.text(343 + 84 * at, 18, name)
    drawing.text(10, 18, "each as a multiple of base; less is better")
    return drawing


def panel(drawing, left, top, titles, series):
    width, height = 210, 150
    drawing.text(left, top - 22, titles[0], size=12)
    drawing.text(left, top - 8, titles[2], size=10)
    drawing.text(left + width, top + height + 28, titles[1], "end", 10)
    points = [point for line in series.values() for point in line if min(point) > 0]
    low_x, high_x = span([x for x, y in points])
    low_y, high_y = span([y for x, y in points])
    across = scale(low_x, high_x, left, left + width)
    down = scale(low_y, high_y, top + height, top)
    for power in range(low_x, high_x + 1):
        drawing.line(across(10 ** power), top, across(10 ** power), top + height)
        drawing.text(across(10 ** power), top + height + 14, number(10 ** power), "middle",
                     10)
    for power in range(low_y, high_y + 1):
        drawing.line(left, down(10 ** power), left + width, down(10 ** power))
        drawing.text(left - 4, down(10 ** power) + 3, number(10 ** power), "end", 10)
    for at, (name, line) in enumerate(series.items()):
        colour = COLOURS.get(name, "#000000")
        places = [(across(x), down(y)) for x, y in line if min(x, y) > 0]
        drawing.add('<path d="M%s" fill="none" stroke="%s" stroke-width="1.5"/>',
                    "L".join("%.1f %.1f" % place for place in places), colour)
        for x, y in places:
            drawing.dot(x, y, colour, 2.5)
        drawing.dot(left + 75 * at + 4, top + height + 40, colour, 3)
        drawing.text(left + 75 * at + 10, top + height + 44, name, size=10)


def growth(results):
    drawing = Drawing(4 * 270 + 10, 2 * 250 + 10)
    names = [name for name in PANELS if any(results["growth"].get(name, {}).values())]
    for at, name in enumerate(names):
        panel(drawing, 50 + 270 * (at % 4), 45 + 250 * (at // 4), PANELS[name],
              results["growth"][name])
    return drawing


def draw(results, folder):
    if results["rows"].get("key"):
        peers(results).write(os.path.join(folder, "peers.svg"))
    if results["growth"]:
        growth(results).write(os.path.join(folder, "growth.svg"))


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as results_file:
        draw(json.load(results_file), sys.argv[2])
