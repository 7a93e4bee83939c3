"""Ctrl-C and Ctrl-Z at any instant, thousands of times, while keys arrive.

Signals are sent at random instants while lines, history walks, pastes and completions go on;
each read gives its line or its interrupt, the terminal is as it was found after every one,
and the process grows by nothing. KEYLINE_STORM is the number of signals of each kind. Those
that come faster than they are served are one, so there are more of them where few got through.
"""
import os
import random
import select
import signal
import time

import pytest

COUNT = int(os.environ.get("KEYLINE_STORM", "1500"))
PIECES = ["a", "show ver", "<up>", "<down>", "<tab>", "?", "<enter>", "<c-r>sh", "<c-w>", "<c-a>",
          "<c-e>", "x" * 50, "<bs>", "<0xe9>"]

CHILD = """
import Keyline

stopping = []
beside(lambda: (wait_for("stop"), stopping.append(True)))
late = [0]  # what came before the read took its signals over, or after

def count(number, frame):
    late[0] += 1

signal.signal(signal.SIGINT, count)
signal.signal(signal.SIGTSTP, count)

def work():
    while not stopping:
        sum(range(2000))
        threading.Event().wait(0.001)

workers = [beside(work) for number in range(THREADS - 1)]

def resident():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * 4

def complete(key, line):
    return "zz" if key == b"\\t" else None

Keyline.historyLimitIs(50)  # what grows is not the history
results = {}
before = settings(), dispositions()
early = None
while not stopping:
    try:
        line = Keyline.readline("> ", complete, "mode", "")
        Keyline.addHistory(line, "mode", "")
        name = "line"
    except KeyboardInterrupt as error:
        name = str(error)
    results[name] = results.get(name, 0) + 1
    if name != "line" and results[name] == ENOUGH:
        tell("enough", name)
    if (settings(), dispositions()) != before:
        tell("changed", (before, (settings(), dispositions())))
    if early is None and sum(results.values()) == 500:
        early = resident()
for worker in workers:
    worker.join()  # or it loses at the end what it has in hand
tell("results", (results, late[0], early, resident()))
wait_for("end")
"""


@pytest.mark.parametrize("threads", [1, 4])
def test_storm(start, setup, threads):
    # One more than is asked for below.
    child = start("THREADS = %d\nENOUGH = %d\n" % (threads, COUNT // 20 + 1) + CHILD)
    seed = int(os.environ.get("KEYLINE_SEED", random.randrange(1 << 30)))
    print("seed", seed)
    dice = random.Random(seed)
    child.wait("the first prompt", lambda: b"> " in child.display.raw)
    for sent in range(40 * COUNT):
        enough = [fact for fact in child.facts if fact[0] == "enough"]
        if sent >= 2 * COUNT and len(enough) == 2:
            break
        for _ in range(dice.randrange(3)):
            if select.select([], [child.master], [], 0)[1]:
                child.send(dice.choice(PIECES))
        # The instant is the random input here: nothing is waited for.
        until = time.monotonic() + dice.random() * 0.0008
        while time.monotonic() < until:
            child._pump(0)
        child.signal([signal.SIGINT, signal.SIGTSTP][sent % 2])
    child.go("stop")

    def told():
        """A slow child may leave keys unread at its end, and the terminal takes no more."""
        if any(fact[0] == "results" for fact in child.facts):
            return True
        if select.select([], [child.master], [], 0)[1]:
            child.send("<enter>")
        return False

    child.wait("the storm's end", told)
    results, late, early, resident = child.expect_fact("results")
    print(results, late, early, resident)
    assert set(results) <= {"line", "Ctrl-C pressed", "Ctrl-Z pressed"}
    assert results["Ctrl-C pressed"] > COUNT / 20 and results["Ctrl-Z pressed"] > COUNT / 20
    for _ in range(2):
        child.expect_fact("enough")
    # A sanitizer keeps what was freed for a while; leaks are its own to report.
    if not setup.sanitizer_logs:
        assert resident - early <= 512, (early, resident)
    child.go("end")
    child.expect_end()
