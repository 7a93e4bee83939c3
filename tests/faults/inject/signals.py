"""Plays a scenario again and again, each time with a signal at another point of it.

Arguments: module, log library, scenario, visits (how many of the calls from each place, 0: all),
stride (0, or that every stride-th instruction is a point instead), then what is sent:
SIGNAL:HANDLERS:THREAD, such as INT:python:other. HANDLERS is "python" or "default", THREAD
"own" or "other"; SIGNAL may be HANGUP, the end of the terminal. Tells one JSON object a
line: first the scenario without a signal, then one for each point.
"""
import json
import os
import signal
import sys
import termios
import threading

import fixture
import interposer
import scenarios

SIGNALS = (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM, signal.SIGCONT,
           signal.SIGTSTP, signal.SIGWINCH)
handled = []


def handle(number, frame):
    handled.append(int(number))


def interrupt(number, frame):
    handled.append(int(number))
    raise KeyboardInterrupt


def take_signals(handlers):
    """Python's own handlers for all, or what a process starts with."""
    for number in SIGNALS:
        signal.signal(number, handle if handlers == "python" else signal.SIG_DFL)
    signal.signal(signal.SIGINT, interrupt)


def play(scenario):
    """The scenario's outcome; an interrupt may also come right behind it."""
    outcome = None
    try:
        with interposer.counting():
            outcome = fixture.played(scenario)
        signal.pthread_kill(threading.get_ident(), 0)  # Python looks for signals there
    except KeyboardInterrupt:
        outcome = ["behind the scenario", outcome]
    finally:
        interposer.state.on = 0
    return outcome


def note(scenario, how):
    """The scenario without a signal: its calls, or its instructions, and its outcome."""
    places = []
    fixture.as_before()
    with how(places):
        outcome = fixture.played(scenario)
    return {"places": places, "outcome": outcome}


def send_at(scenario, point, sending):
    call, visit, kind = point
    number, _, whom = sending
    fixture.as_before()
    del handled[:]
    before = fixture.found()
    interposer.plan(kind, call, visit, signo=number, whom=whom)
    outcome = play(scenario)
    interposer.unplan()
    return {"outcome": outcome, "fired": interposer.state.fired, "handled": list(handled),
            "starved": interposer.state.starved, "kept": fixture.found() == before}


def send_at_all(scenario, points, sending, tell):
    """One after the other, in this process, for as long as it lives."""
    fixture.as_before()
    take_signals("python" if sending[1] == "python" else "default")
    if sending[2]:
        interposer.library.interposer_start_bystander()
    for point in points:
        tell(send_at(scenario, point, sending))
    fixture.as_before()  # keys that an interrupt left are not for the next read
    return fixture.last_read()


def hang_up(scenario, point, sending, tell):
    """At a terminal of its own, which is taken away."""
    os.setsid()
    master, slave = os.openpty()
    os.set_blocking(master, False)
    os.dup2(slave, 0)
    os.dup2(slave, 1)
    fixture.set_controlling_terminal(slave)
    os.close(slave)
    interposer.state.master, interposer.state.slave = master, 0
    fixture.as_before()
    take_signals(sending[1])
    call, visit, kind = point
    interposer.plan(kind, call, visit, signo=interposer.HANG_UP)
    outcome = play(scenario)
    tell({"outcome": outcome, "fired": interposer.state.fired, "handled": list(handled),
          "starved": 0, "kept": True})


def points_of(calls, visits):
    seen = {}
    for call in map(interposer.Call._make, calls):
        seen[call] = visit = seen.get(call, 0) + 1
        if not visits or visit <= visits:
            yield call, visit, interposer.BEFORE
            if "jmp" not in call.name:
                yield call, visit, interposer.AFTER


def race(scenario, points, sending, settings, tell):
    """All points. When a child dies, the next one goes on behind the points it has told of."""
    ends = sending[0] == interposer.HANG_UP
    while points:
        fixture.clean_terminal(settings)
        told = []
        # What begins a process's life is seen once in it.
        some = points[:1] if ends or fixture.as_before.level != "used" else points
        last, status = fixture.forked_telling(
            hang_up if ends else send_at_all, told.append, scenario,
            some[0] if ends else some, sending)
        terminal, errors = fixture.clean_terminal(settings), fixture.stderr()
        for point, result in zip(some, told):
            tell({"point": point, "result": result, "status": 0})
        if len(told) < len(some):
            tell({"point": some[len(told)], "result": None, "status": status,
                  "terminal": terminal, "stderr": errors})
        elif not ends:
            tell({"last": last, "status": status, "terminal": terminal})
        points = points[len(told) + (len(told) < len(some)):]


def main():
    module, library, name, visits, stride = sys.argv[1:6]
    out = os.fdopen(os.dup(1), "w", buffering=1)
    scenario = scenarios.SCENARIOS[name]
    fixture.set_up(module, library)
    fixture.as_before.level = scenario.level
    settings = termios.tcgetattr(0)
    fixture.reach(scenario.level)
    steps = int(stride)
    how = interposer.stepped if steps else interposer.noted
    noted, status = fixture.forked(note, scenario, how)
    print(json.dumps({"noted": noted, "status": status, "stderr": fixture.stderr(),
                      "objects": interposer.OBJECTS}), file=out)
    if status != 0:
        return
    points = list(points_of(noted["places"], int(visits)))
    if steps:
        points = [(interposer.Call._make(place), 1, interposer.AT)
                  for place in noted["places"][::steps]]
    for text in sys.argv[6:]:
        which, handlers, thread = text.split(":")
        number = (interposer.HANG_UP if which == "HANGUP"
                  else int(getattr(signal, "SIG" + which)))
        race(scenario, points, (number, handlers, thread == "other"), settings,
             lambda result: print(json.dumps(dict(result, sent=text)), file=out))


main()
