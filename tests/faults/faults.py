"""Plays acts again and again, each time with another call that fails.

Arguments: module, log library, visits (how many of the calls from each place, 0: all),
repeats (how often for the leaks, 0: no look for them). Standard input: a JSON object, for
each act the list of calls that are to fail. Tells one JSON object: what the acts do when
nothing fails, and what each fault led to.
"""
import json
import os
import sys
import termios

import acts
import between
import stage
from failures import FAILURES, label


def note(act):
    """The act without a fault: all calls it makes, and its outcome."""
    calls = []
    stage.as_before()
    with between.noted(calls):
        outcome = stage.played(act)
    return {"calls": calls, "outcome": outcome}


def fault(act, call, visit, failure, repeats):
    value, error, raises = failure

    def play(kind):
        stage.as_before()
        between.plan(kind, call, visit, value, error, raises)
        with between.counting():
            outcome = stage.played(act)
        between.state.plan = between.NONE
        return outcome

    stage.as_before()
    before = stage.found()
    result = {"outcome": play(between.FAIL), "fired": between.state.fired,
              "starved": between.state.starved, "kept": stage.found() == before}
    result["again"] = play(between.NONE)
    result["last"] = stage.last_read()
    if repeats:
        plain = stage.growth(lambda: play(between.NONE), repeats)
        failing = stage.growth(lambda: play(between.FAIL), repeats)
        result["growth"] = [one - other for one, other in zip(failing, plain)]
    return result


def chosen(calls, wanted, visits):
    """The calls that are to fail, each with the number of its visit."""
    seen, wanted = {}, {between.Call._make(call) for call in wanted}
    for call in map(between.Call._make, calls):
        seen[call] = visit = seen.get(call, 0) + 1
        if call in wanted and (not visits or visit <= visits):
            yield call, visit


def faults_of(name, noted, wanted, visits, repeats, settings, tell):
    act = acts.ACTS[name]
    if act.level != "used":  # what begins a process's life does not come again
        repeats = 0
    for call, visit in chosen(noted["calls"], wanted, visits):
        for failure in FAILURES.get(call.name, ()):
            stage.clean_terminal(settings)
            result, status = stage.forked(fault, act, call, visit, failure,
                                          repeats if visit == 1 else 0)
            errors = stage.stderr()
            tell({"act": name, "call": call, "visit": visit, "failure": label(failure),
                  "result": result, "status": status, "stderr": errors,
                  "terminal": stage.clean_terminal(settings)})


def main():
    module, library, visits, repeats = sys.argv[1:5]
    wanted = json.load(sys.stdin)
    out = os.fdopen(os.dup(1), "w", buffering=1)
    stage.set_up(module, library)
    settings = termios.tcgetattr(0)
    noted, told = {}, []
    for level in acts.LEVELS:
        stage.as_before.level = level
        stage.reach(level)
        for name in [name for name in wanted if acts.ACTS[name].level == level]:
            stage.clean_terminal(settings)
            noted[name], status = stage.forked(note, acts.ACTS[name])
            assert status == 0, (name, status, stage.stderr())
            faults_of(name, noted[name], wanted[name], int(visits), int(repeats), settings,
                      told.append)
    json.dump({"noted": noted, "told": told}, out)


main()
