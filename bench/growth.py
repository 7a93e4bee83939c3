"""How cost grows with the history, the depth of the modes, the length of a line, the number
of sessions and the rate of log news. Functions return panels: points (x, y) by series.
"""
import os
import re
import select
import subprocess
import sys
import time

import measures

# Name: title, x, y. All axes are logarithmic.
PANELS = {
    "search": ("Ctrl-R to the oldest line", "lines of history", "ms"),
    "add": ("entering a line", "lines of history", "us"),
    "memory": ("private memory per line", "lines of history", "bytes"),
    "modes": ("a step of Up, lines of the root mode", "depth of the mode", "us"),
    "line": ("one line, processor time per character", "characters", "us"),
    "sessions": ("private memory of all sessions", "sessions", "MB"),
    "typing": ("processor time, 5 keys/s in each", "sessions", "% of one processor"),
    "log": ("echo of a key beside log news", "lines per second", "ms"),
}
RATE = 5  # keys a second of a fast typist


def medians(points):
    """Points by series from lists of values by (series, x)."""
    series = {}
    for (name, x), values in sorted(points.items()):
        series.setdefault(name, []).append((x, measures.median(values)))
    return series


def history(peers, sizes, rounds, scale):
    panels = {"search": {}, "add": {}, "memory": {}}
    for _ in range(rounds):
        for size in sizes:
            for peer in peers:
                at = peer.name, size
                panels["search"].setdefault(at, []).append(
                    measures.search(peer, size, scale)[0])
                panels["add"].setdefault(at, []).append(
                    measures.add(peer, scale, size)["add"])
                if size >= 10000:  # below that, the pages are larger than the lines
                    panels["memory"].setdefault(at, []).append(
                        measures.memory(peer, scale, size)["memory"])
    return {name: medians(points) for name, points in panels.items()}


def modes(keyline, depths, rounds, scale):
    points = {}
    for _ in range(rounds):
        for depth in depths:
            values = measures.held_up(keyline, scale, depth=depth)
            points.setdefault(("wall clock", depth), []).append(values["up"])
            points.setdefault(("processor", depth), []).append(values["up cpu"])
    return {"modes": medians(points)}


def lines(peers, lengths, rounds):
    points = {}
    for _ in range(rounds):
        for length in lengths:
            for peer in peers:
                used = measures.one_line(peer, length)
                if used is not None:
                    points.setdefault((peer.name, length), []).append(1000 * used / length)
    return {"line": medians(points)}


def type_in_all(running, seconds):
    """Types in all sessions, each RATE keys a second; their processor time per second."""
    before = sum(session.cpu() for session in running)
    start, typed = time.perf_counter(), 0
    masters = [session.master for session in running]
    while time.perf_counter() - start < seconds:
        due = int((time.perf_counter() - start) * RATE * len(running))
        while typed < due:
            os.write(masters[typed % len(masters)], b"x")
            typed += 1
        for master in select.select(masters, [], [], 0.001)[0]:
            os.read(master, 65536)
    took = time.perf_counter() - start
    for session in running:
        session.rest()
    return (sum(session.cpu() for session in running) - before) / 1e9 / took


def sessions(peers, counts, seconds):
    """Sessions side by side: their memory, and their time while someone types in each."""
    memory, typing = {}, {}
    for peer in peers:
        running = []
        try:
            for count in counts:
                while len(running) < count:
                    running.append(peer.at_prompt())
                private = sum(session.private() for session in running)
                memory.setdefault(peer.name, []).append((count, private / 1024))
                used = type_in_all(running, seconds)
                typing.setdefault(peer.name, []).append((count, 100 * used))
                for session in running:
                    session.send(measures.KILL)
                    session.rest()
        finally:
            for session in running:
                session.close()
    return {"sessions": memory, "typing": typing}


def slope(points):
    """The least squares' slope."""
    mean_x = sum(x for x, y in points) / len(points)
    mean_y = sum(y for x, y in points) / len(points)
    return (sum((x - mean_x) * (y - mean_y) for x, y in points)
            / (sum((x - mean_x) ** 2 for x, y in points) or 1))


def log(interpreter, folder, rates, seconds):
    """What log_flood.py tells: the median echo and the 99th percentile, at each rate."""
    program = os.path.join(os.path.dirname(os.path.abspath(__file__)), "log_flood.py")
    series = {"median": [], "99th percentile": []}
    for rate in rates:
        count = max(3, int(rate * seconds))
        told = subprocess.run(
            [interpreter, program, "--rate", str(rate), "--lines", str(count), folder],
            capture_output=True, text=True).stdout
        found = re.search(r"median ([0-9.]+) ms, 99th percentile ([0-9.]+) ms", told)
        if not found:
            sys.stderr.write("log news, %d a second: %s\n" % (rate, told))
            continue
        for name, value in zip(series, found.groups()):
            series[name].append((rate, max(0.01, float(value))))
    return {"log": series}
