#!/usr/bin/python3
"""Counts the rows of a paste that the terminal's own echo spoils, side by side.

Usage: bench/echoed_rows.py [--lines N] [--rounds N] [--against FOLDER]

What arrives between two reads is echoed by the terminal, by the user's settings, and shown
again by the next read. Lines of 60 characters are pasted in several ways; a row is spoiled
when it is neither empty nor the prompt with a line, and a line is missing when no row shows
it behind the prompt. Prints the median of the rounds, and the range. FOLDER is an older
build of the module.
"""
import argparse
import os
import select
import subprocess
import time

import pyte

import measures
import peers as peers_module
from session import COLUMNS

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build", "bench")
# Bytes of a piece, seconds between two.
WAYS = {"at once": (4096, 0), "1,024 bytes, 2 ms": (1024, 0.002),
        "a line, 0.3 ms": (61, 0.0003), "7 bytes, 0.1 ms": (7, 0.0001)}


def paste(session, data, size, pause):
    """All output until the child has read everything."""
    output, data, due = [], memoryview(data), 0
    os.set_blocking(session.master, False)
    while not select.select([session.facts], [], [], 0)[0]:
        ready = data and time.perf_counter() >= due
        readable, writable, _ = select.select(
            [session.master, session.facts], [session.master] if ready else [], [],
            0 if data else 1)
        if session.master in readable:
            output.append(os.read(session.master, 65536))
        if writable:
            try:
                data = data[os.write(session.master, data[:size]):]
                due = time.perf_counter() + pause
            except BlockingIOError:
                pass
    os.set_blocking(session.master, True)
    session.send(b"")
    session.rest()
    return b"".join(output) + session.output


def spoiled_and_missing(peer, count, size, pause):
    lines = [b"%06d" % number + measures.text(54) for number in range(count)]
    with peer.at_prompt() as session:
        output = paste(session, b"".join(line + b"\r" for line in lines) + b"#report\r",
                       size, pause)
        if session.fact()[0] != count:
            raise SystemExit("%s lost lines" % peer.name)
    screen = pyte.Screen(COLUMNS, 3 * count + 50)  # nothing scrolls away
    pyte.ByteStream(screen).feed(output)
    rows = [row.rstrip() for row in screen.display]
    wanted = {"> " + line.decode() for line in lines}
    spoiled = [row for row in rows if row not in wanted | {"", ">", "> #report"}]
    return len(spoiled), len(wanted - set(rows))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--lines", type=int, default=1000)
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--against", action="append", default=[], metavar="FOLDER")
    options = parser.parse_args()
    python = subprocess.run([os.path.join(ROOT, "tools", "pythons.sh"), "--default"],
                            capture_output=True, text=True, check=True).stdout.split()[-1]
    os.makedirs(BUILD, exist_ok=True)
    peers = [peer for peer in peers_module.all_peers(
        BUILD, python, peers_module.default_folder(ROOT, python), options.against)
        if peer.name not in ("floor", "toolkit", "again")]
    print("%d lines; rows spoiled, lines missing: median (least to most)" % options.lines)
    for way, (size, pause) in WAYS.items():
        counts = {peer: [] for peer in peers}
        for _ in range(options.rounds):
            for peer in peers:
                counts[peer].append(spoiled_and_missing(peer, options.lines, size, pause))
        for peer, found in counts.items():
            print("%-20s %-12s" % (way, peer.name[-12:]) + "".join(
                "%8g (%d to %d)" % (measures.median(values), min(values), max(values))
                for values in zip(*found)))


main()
