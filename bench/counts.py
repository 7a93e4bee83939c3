"""Counts: system calls and instructions, each as the difference of two sessions that differ
in nothing but the keys typed. They are the same on a busy machine.

System calls are counted by the kernel (perf), or by strace where perf may not: that makes
each call so slow that a program which watches the clock sees no burst of keys any more.
"""
import os
import re
import subprocess

import measures

SHORT, LONG = 10, 40  # keys of a line
MORE = 15  # keys in the middle of one that still fits a row


def perf_works(path):
    try:
        subprocess.run(["perf", "stat", "-x,", "-e", "raw_syscalls:sys_enter", "-o", path,
                        "true"], check=True, stderr=subprocess.DEVNULL)
    except (OSError, subprocess.CalledProcessError):
        return False
    return read_perf(path) > 0


def read_perf(path):
    with open(path, encoding="utf-8") as file:
        found = re.search(r"^(\d+),,raw_syscalls", file.read(), re.M)
    return int(found.group(1)) if found else 0


def read_strace(path):
    with open(path, encoding="utf-8") as file:
        return sum(1 for line in file if "(" in line)


def type_session(peer, wrap, lines, keys, alone):
    """A session of so many lines of so many keys, each alone or all at once."""
    with peer.at_prompt(wrap=wrap) as session:
        for _ in range(lines):
            line = measures.text(keys)
            if alone:
                session.keys(line, measures.pause(peer))
            else:
                session.burst(line, line[-1:])
            session.enter()
        session.end()


def type_in_middle(peer, wrap, lines, keys):
    """Lines of 60, and so many keys in the middle of each, each alone."""
    with peer.at_prompt(wrap=wrap) as session:
        for _ in range(lines):
            measures.to_middle(session, 60)
            session.keys(b"x" * keys, measures.pause(peer))
            session.send(measures.END)
            session.rest()
            session.enter()
        session.end()


def system_calls(peer, scale, build):
    """Calls for a key alone, for one of a burst, and for a line of 10 keys, each alone."""
    path = os.path.join(build, "calls." + re.sub(r"\W", "-", peer.name))
    if perf_works(path):
        wrap = ["perf", "stat", "-x,", "-e", "raw_syscalls:sys_enter", "-o", path, "--"]
        read = read_perf
    else:
        wrap, read = ["strace", "-f", "-o", path], read_strace
    lines = scale(10, 2)
    count = {}
    for times, keys, alone in ((1, SHORT, True), (2, SHORT, True), (1, LONG, True),
                               (1, SHORT, False), (1, LONG, False)):
        type_session(peer, wrap, times * lines, keys, alone)
        count[times, keys, alone] = read(path)
    more = lines * (LONG - SHORT)
    return {
        "calls alone": (count[1, LONG, True] - count[1, SHORT, True]) / more,
        "calls burst": (count[1, LONG, False] - count[1, SHORT, False]) / more,
        "calls line": (count[2, SHORT, True] - count[1, SHORT, True]) / lines,
    }


def instructions(peer, scale, build):
    """Instructions of the program itself for a key of a line typed at once, and alone."""
    if peer.slow:
        return {}
    path = os.path.join(build, "callgrind." + re.sub(r"\W", "-", peer.name))
    wrap = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
            "--log-file=" + path]
    lines = scale(10, 2)
    values = {}
    for name, alone in (("instructions", False), ("instructions alone", True)):
        count = []
        for keys in (SHORT, LONG):
            type_session(peer, wrap, lines, keys, alone)
            count.append(read_callgrind(path))
        values[name] = (count[1] - count[0]) / (lines * (LONG - SHORT))
    if peer.recalls:
        count = []
        for keys in (0, MORE):
            type_in_middle(peer, wrap, lines, keys)
            count.append(read_callgrind(path))
        values["instructions middle"] = (count[1] - count[0]) / (lines * MORE)
    return values


def read_callgrind(path):
    with open(path, encoding="utf-8") as file:
        return int(re.search(r"Collected : (\d+)", file.read()).group(1))
