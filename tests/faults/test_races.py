"""A signal, or the end of the terminal, at every point of a read.

The points are all calls that the module, the editor in it and the log library make of
anything else, the system's included: right before the call is made, and right after it has
returned; and every instruction of the module and the editor (inject/). By default each
call's place is visited once and with the signals that matter most there, and a sample of the
instructions; KEYLINE_FAULTS=full visits every call of the scenario with every signal, with
Python's own handlers and without, on the reading thread and on another, and all instructions.
"""
import json

import pytest

from fault_injection import FULL, injection, interposer, x86_64  # noqa: F401 - fixtures

pytestmark = x86_64

HUP, INT, QUIT, TERM, CONT, TSTP, WINCH = 1, 2, 3, 15, 18, 20, 28
NUMBERS = {"HUP": HUP, "INT": INT, "QUIT": QUIT, "TERM": TERM, "CONT": CONT, "TSTP": TSTP,
           "WINCH": WINCH}
CTRL_C = ["raised", "KeyboardInterrupt", "Ctrl-C pressed"]
CTRL_Z = ["raised", "KeyboardInterrupt", "Ctrl-Z pressed"]
LEFT_BY_THE_LOG_CALLABLE = "<built-in function readline> returned a result with an "
EVERYTHING = ["%s:%s:%s" % (name, handlers, thread) for name in NUMBERS
              for handlers in ("python", "default") for thread in ("own", "other")]
HANG_UPS = ["HANGUP:python:own", "HANGUP:default:own"]
FEW = ["INT:python:own", "TSTP:python:own"]
MOST = FEW + ["INT:python:other", "TSTP:python:other", "TERM:default:own",
              "HUP:default:own", "HUP:python:own", "WINCH:python:own", "CONT:python:own",
              "TSTP:default:own"]
WHEN = (None, None, "before", "after", "at")
AT = 4
SCENARIOS = {
    "line": MOST + HANG_UPS,
    "short_completion": FEW,
    "short_recall": FEW,
    "short_simple": FEW + ["TERM:python:own"],
    "short_log": FEW,
    "first_read": FEW,
}
# What the lock's check says when an interrupt ends a read while the log callable runs.
DURING_THE_LOG_CALLABLE = "acquireGil: Assertion `savedPyThreadState != NULL' failed."


def calls_of(outcome):
    """Without the texts of log news: an interrupt may come before there are any."""
    return [one for one in outcome if isinstance(one, list)]


def is_landing(outcome, plain, landing):
    """One call of the scenario was ended by the module's interrupt, the others were not."""
    outcome, plain = calls_of(outcome), calls_of(plain)
    return len(outcome) == len(plain) and landing in outcome and all(
        one in (other, landing) for one, other in zip(outcome, plain))


def is_python_interrupt(outcome, plain):
    """Python's own handler raised: in a call, behind it, or in a callback.

    What a log callable raises stays set, and the read that returns a line finds it.
    """
    if outcome[0] == "behind the scenario":
        return outcome[1] in (plain, None)
    return (outcome[0][:2] == ["through the scenario", "KeyboardInterrupt"]
            or ["raised", "KeyboardInterrupt", ""] in outcome
            or len(outcome) > 2 and outcome[0][0] == "raised"
            and outcome[0][2].startswith(LEFT_BY_THE_LOG_CALLABLE))


def wrong(scenario, sent, plain, told):
    """What is not as it may be, in words; "" when all is."""
    name, handlers, _ = sent.split(":")
    result, status = told["result"], told["status"]
    if status:
        fatal = handlers == "default" and -status == NUMBERS.get(name.replace("HANGUP", "HUP"))
        log_call = (scenario == "short_log" and name in ("INT", "TSTP") and status == -6
                    and DURING_THE_LOG_CALLABLE in told["stderr"])
        if fatal and name in ("INT", "TSTP", "CONT", "WINCH") or not (fatal or log_call):
            return "status %d, %s" % (status, told["stderr"])
        return "" if told["terminal"] else "the settings"
    if not result["fired"]:
        return ""
    outcome, handled = result["outcome"], result["handled"]
    if not result["kept"]:
        return "settings or dispositions"
    if name == "HANGUP":
        good = (len(calls_of(outcome)) == len(calls_of(plain)) and set(handled) <= {HUP, CONT}
                and all(one == other or one[:2] == ["raised", "EOFError"]
                        for one, other in zip(calls_of(outcome), calls_of(plain))))
    elif name == "INT":
        good = (is_landing(outcome, plain, CTRL_C) and not handled
                or is_python_interrupt(outcome, plain) and handled == [INT])
    elif name == "TSTP" and CTRL_Z in outcome:
        good = is_landing(outcome, plain, CTRL_Z) and not handled
    else:
        good = outcome == plain and handled == [NUMBERS[name]] * (handlers == "python")
    return "" if good else "outcome %r, handled %r" % (outcome, handled)


def check(injection, scenario, visits, stride, sent):
    """Plays all; how many points were reached."""
    text = injection.play("signals.py", scenario, visits, stride, *sent)
    first, *told = [json.loads(line) for line in text.splitlines()]
    assert first["status"] == 0, first
    points = [one for one in told if "point" in one]
    for one in points:
        if one["point"][2] == AT:  # a place is named by what is behind it
            one["point"][0] = ["an instruction", *one["point"][0][1:2], one["point"][0][2] + 1]
    injection.name_places([one["point"][0] for one in points])
    problems = []
    for one in points:
        problem = wrong(scenario, one["sent"], first["noted"]["outcome"], one)
        if problem:
            call, visit, kind = one["point"]
            problems.append("%s %s visit %d of %s: %s" % (
                one["sent"], WHEN[kind], visit, injection.place(call), problem))
    for one in told:
        if "last" in one and (one["last"] != ["gave", "last"] or not one["terminal"]):
            problems.append("%s: the read after all: %r" % (one["sent"], one))
    reached = sum(1 for one in points if one["status"] or one["result"]["fired"])
    for name in sent:
        print(scenario, name, sum(1 for one in points if one["sent"] == name
                             and (one["status"] or one["result"]["fired"])))
    assert not problems, "%d of %d\n%s" % (len(problems), reached, "\n".join(problems[:20]))
    assert reached > len(points) * 0.9 > 90


@pytest.mark.parametrize("scenario", SCENARIOS)
def test_at_every_call(injection, scenario):
    if not FULL:
        check(injection, scenario, 1, 0, SCENARIOS[scenario])
    elif scenario == "first_read":  # which needs a process of its own for each point
        check(injection, scenario, 1, 0, MOST)
    else:
        check(injection, scenario, 0, 0, EVERYTHING + HANG_UPS)


# Not where the log library runs, which holds back all signals, the steps' own too.
@pytest.mark.parametrize("scenario", ["line", "short_completion", "short_recall", "short_simple",
                                 "edited"])
@pytest.mark.plain_only("nine of ten instructions would be the sanitizer's")
def test_at_every_instruction(injection, scenario):
    """Of the module and its editor: each one that the read comes to, the first time."""
    sent = FEW
    if FULL:
        sent = FEW + ["INT:python:other", "TSTP:python:other", "HUP:python:own",
                      "WINCH:python:own", "CONT:python:own", "TERM:default:own"]
    check(injection, scenario, 1, 1 if FULL else 23, sent)
