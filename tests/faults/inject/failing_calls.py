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

import scenarios as acts
import interposer as between
import calling
import fixture as stage
from failures import FAILURES, label

TRIES = 20  # how often a call is waited for: the look for more keys needs keys that come fast


def note(act, repeats):
    """The act without a fault: all calls it makes, its outcome, and what it leaves behind."""
    calls = []
    stage.as_before()
    with between.noted(calls):
        outcome = stage.played(act)
    noted = {"calls": calls, "outcome": outcome, "made": calling.made}
    if repeats:
        noted["growth"] = stage.growth(lambda: play(act), stage.LONGER * repeats)
    return noted


def refuse(act, number):
    """What the act gives when that call of the module is not made."""
    stage.as_before()
    with between.counting():
        return stage.played(act, number)


def play(act, *planned):
    """Once more, with what is planned for it."""
    stage.as_before()
    between.plan(*planned or [between.NONE])
    with between.counting():
        outcome = stage.played(act)
    between.state.plan = between.NONE
    return outcome


def fault(act, call, visit, failure, repeats, usual):
    planned = between.FAIL, call, visit, *failure

    stage.as_before()
    before = stage.found()
    result = {"outcome": play(act, *planned), "fired": between.state.fired,
              "starved": between.state.starved, "kept": stage.found() == before}
    result["again"] = play(act)
    result["last"] = stage.last_read()
    if repeats:
        result["leak"] = stage.leak(lambda: play(act, *planned), repeats, usual)
    return result


def noted_of(act, repeats):
    noted, status = stage.forked(note, act, repeats if act.level == "used" else 0)
    assert status == 0, (act, status, stage.stderr())
    noted["refused"] = [stage.forked(refuse, act, number)[0]
                        for number in range(1, noted["made"] + 1)]
    stage.stderr()
    return noted


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
            for _ in range(TRIES if visit == 1 else 1):
                stage.clean_terminal(settings)
                result, status = stage.forked(fault, act, call, visit, failure,
                                              repeats if visit == 1 else 0,
                                              noted.get("growth"))
                errors = stage.stderr()
                if result is None or result["fired"] or result["outcome"] != noted["outcome"]:
                    break
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
            noted[name] = noted_of(acts.ACTS[name], int(repeats))
            faults_of(name, noted[name], wanted[name], int(visits), int(repeats), settings,
                      told.append)
    json.dump({"noted": noted, "told": told}, out)


main()
