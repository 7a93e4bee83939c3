"""Plays scenarios again and again, each time with another call that fails.

Arguments: module, log library, visits (how many of the calls from each place, 0: all),
repeats (how often for the leaks, 0: no look for them). Standard input: a JSON object, for
each scenario the list of calls that are to fail. Tells one JSON object: what the scenarios do
when nothing fails, and what each fault led to.
"""
import json
import os
import sys
import termios

import calling
import fixture
import interposer
import scenarios
from failures import FAILURES, label

TRIES = 20  # how often a call is waited for: the look for more keys needs keys that come fast


def note(scenario, repeats):
    """The scenario without a fault: all calls it makes, its outcome, and what it leaves behind."""
    calls = []
    fixture.as_before()
    with interposer.noted(calls):
        outcome = fixture.played(scenario)
    noted = {"calls": calls, "outcome": outcome, "made": calling.made}
    if repeats:
        noted["growth"] = fixture.growth(lambda: play(scenario), fixture.LONGER * repeats)
    return noted


def refuse(scenario, number):
    """What the scenario gives when that call of the module is not made."""
    fixture.as_before()
    with interposer.counting():
        return fixture.played(scenario, number)


def play(scenario, *planned):
    """Once more, with what is planned for it."""
    fixture.as_before()
    interposer.plan(*planned or [interposer.NONE])
    with interposer.counting():
        outcome = fixture.played(scenario)
    interposer.state.plan = interposer.NONE
    return outcome


def fault(scenario, call, visit, failure, repeats, usual):
    planned = interposer.FAIL, call, visit, *failure

    fixture.as_before()
    before = fixture.found()
    result = {"outcome": play(scenario, *planned), "fired": interposer.state.fired,
              "starved": interposer.state.starved, "kept": fixture.found() == before}
    result["again"] = play(scenario)
    result["last"] = fixture.last_read()
    if repeats:
        result["leak"] = fixture.leak(lambda: play(scenario, *planned), repeats, usual)
    return result


def noted_of(scenario, repeats):
    noted, status = fixture.forked(note, scenario, repeats if scenario.level == "used" else 0)
    assert status == 0, (scenario, status, fixture.stderr())
    noted["refused"] = [fixture.forked(refuse, scenario, number)[0]
                        for number in range(1, noted["made"] + 1)]
    fixture.stderr()
    return noted


def chosen(calls, wanted, visits):
    """The calls that are to fail, each with the number of its visit."""
    seen, wanted = {}, {interposer.Call._make(call) for call in wanted}
    for call in map(interposer.Call._make, calls):
        seen[call] = visit = seen.get(call, 0) + 1
        if call in wanted and (not visits or visit <= visits):
            yield call, visit


def faults_of(name, noted, wanted, visits, repeats, settings, tell):
    scenario = scenarios.SCENARIOS[name]
    if scenario.level != "used":  # what begins a process's life does not come again
        repeats = 0
    for call, visit in chosen(noted["calls"], wanted, visits):
        for failure in FAILURES.get(call.name, ()):
            for _ in range(TRIES if visit == 1 else 1):
                fixture.clean_terminal(settings)
                result, status = fixture.forked(fault, scenario, call, visit, failure,
                                              repeats if visit == 1 else 0,
                                              noted.get("growth"))
                errors = fixture.stderr()
                if result is None or result["fired"] or result["outcome"] != noted["outcome"]:
                    break
            tell({"scenario": name, "call": call, "visit": visit, "failure": label(failure),
                  "result": result, "status": status, "stderr": errors,
                  "terminal": fixture.clean_terminal(settings)})


def main():
    module, library, visits, repeats = sys.argv[1:5]
    wanted = json.load(sys.stdin)
    out = os.dup(1)
    fixture.set_up(module, library)
    settings = termios.tcgetattr(0)
    noted, told = {}, []
    for level in scenarios.LEVELS:
        fixture.as_before.level = level
        fixture.reach(level)
        for name in [name for name in wanted if scenarios.SCENARIOS[name].level == level]:
            fixture.clean_terminal(settings)
            noted[name] = noted_of(scenarios.SCENARIOS[name], int(repeats))
            faults_of(name, noted[name], wanted[name], int(visits), int(repeats), settings,
                      told.append)
    with open(out, "w") as file:
        json.dump({"noted": noted, "told": told}, file)


main()
