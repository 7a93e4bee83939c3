"""Plays an act again and again, each time with a signal at another point of it.

Arguments: module, log library, act, visits (how many of the calls from each place, 0: all),
stride (0, or that every stride-th instruction is a point instead), then what is sent:
SIGNAL:HANDLERS:THREAD, such as INT:python:other. HANDLERS is "python" or "default", THREAD
"own" or "other"; SIGNAL may be HANGUP, the end of the terminal. Tells one JSON object a
line: first the act without a signal, then one for each point.
"""
import json
import os
import signal
import sys
import termios
import threading

import scenarios as acts
import interposer as between
import fixture as stage

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


def play(act):
    """The act's outcome; an interrupt may also come right behind it."""
    outcome = None
    try:
        with between.counting():
            outcome = stage.played(act)
        signal.pthread_kill(threading.get_ident(), 0)  # Python looks for signals there
    except KeyboardInterrupt:
        outcome = ["behind the act", outcome]
    finally:
        between.state.on = 0
    return outcome


def note(act, how):
    """The act without a signal: its calls, or its instructions, and its outcome."""
    places = []
    stage.as_before()
    with how(places):
        outcome = stage.played(act)
    return {"places": places, "outcome": outcome}


def strike(act, point, sending):
    call, visit, kind = point
    number, _, whom = sending
    stage.as_before()
    del handled[:]
    before = stage.found()
    between.plan(kind, call, visit, signo=number, whom=whom)
    outcome = play(act)
    between.unplan()
    return {"outcome": outcome, "fired": between.state.fired, "handled": list(handled),
            "starved": between.state.starved, "kept": stage.found() == before}


def strike_all(act, points, sending, tell):
    """One after the other, in this process, for as long as it lives."""
    stage.as_before()
    take_signals("python" if sending[1] == "python" else "default")
    if sending[2]:
        between.library.between_start_bystander()
    for point in points:
        tell(strike(act, point, sending))
    stage.as_before()  # keys that an interrupt left are not for the next read
    return stage.last_read()


def hang_up(act, point, sending, tell):
    """At a terminal of its own, which is taken away."""
    os.setsid()
    master, slave = os.openpty()
    os.set_blocking(master, False)
    os.dup2(slave, 0)
    os.dup2(slave, 1)
    stage.lead(slave)
    os.close(slave)
    between.state.master, between.state.slave = master, 0
    stage.as_before()
    take_signals(sending[1])
    call, visit, kind = point
    between.plan(kind, call, visit, signo=between.HANG_UP)
    outcome = play(act)
    tell({"outcome": outcome, "fired": between.state.fired, "handled": list(handled),
          "starved": 0, "kept": True})


def points_of(calls, visits):
    seen = {}
    for call in map(between.Call._make, calls):
        seen[call] = visit = seen.get(call, 0) + 1
        if not visits or visit <= visits:
            yield call, visit, between.BEFORE
            if "jmp" not in call.name:
                yield call, visit, between.AFTER


def race(act, points, sending, settings, tell):
    """All points; a child that dies has told of those before, the next goes on behind."""
    ends = sending[0] == between.HANG_UP
    while points:
        stage.clean_terminal(settings)
        told = []
        # What begins a process's life is seen once in it.
        some = points[:1] if ends or stage.as_before.level != "used" else points
        last, status = stage.forked_telling(hang_up if ends else strike_all, told.append, act,
                                            some[0] if ends else some, sending)
        terminal, errors = stage.clean_terminal(settings), stage.stderr()
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
    act = acts.ACTS[name]
    stage.set_up(module, library)
    stage.as_before.level = act.level
    settings = termios.tcgetattr(0)
    stage.reach(act.level)
    steps = int(stride)
    noted, status = stage.forked(note, act, between.stepped if steps else between.noted)
    print(json.dumps({"noted": noted, "status": status, "stderr": stage.stderr(),
                      "objects": between.OBJECTS}), file=out)
    if status != 0:
        return
    points = list(points_of(noted["places"], int(visits)))
    if steps:
        points = [(between.Call._make(place), 1, between.AT)
                  for place in noted["places"][::steps]]
    for text in sys.argv[6:]:
        which, handlers, thread = text.split(":")
        number = (between.HANG_UP if which == "HANGUP"
                  else int(getattr(signal, "SIG" + which)))
        race(act, points, (number, handlers, thread == "other"), settings,
             lambda result: print(json.dumps(dict(result, sent=text)), file=out))


main()
