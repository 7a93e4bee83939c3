"""Each call that can fail fails once: nothing breaks, and the next read works.

The calls are those that the module, the editor in it and the log library make of the
interpreter, the C library and the system (inject/). After each fault the same is played
again, then a line is read that another thread types, so that a lock that is held would show;
the terminal's settings, the dispositions and the memory are looked at. By default each place
in the code fails in one scenario, and once more in those of ALL_PLACES; KEYLINE_FAULTS=full
fails every call of every scenario.

What a fault may change is one call of the scenario, in a way that the tables here give; all
others give what they always do, and all that was written to a log is told once, in order.
"""
import json

import pytest

from fault_injection import FULL, FaultInjection, injection, interposer, x86_64  # noqa: F401

pytestmark = x86_64

SCENARIOS = (
    "importing before_the_editor first_read first_simple_read first_reset "
    "first_bindings first_history from_a_pipe failing_completion line edited "
    "long_line pasted resized other_width end_of_input interrupted simple "
    "without_echo reset completed bindings history many_lines more_lines recalled "
    "log_news log_exchanged log_behind_a_link log_missing").split()
ALL_PLACES = ("first_read", "more_lines")  # what fails there meets another state
REPEATS = 10 if FULL else 6  # three times, for the leaks
INJECTED = ["raised", "MemoryError", "injected"]
THROUGH = [["through the scenario", "MemoryError", "injected"]]

# Where the process is to end, and why: (function, part of the place).
DEATHS = {
    ("PySys_GetObject", "init_readline"): "a missing sys.stdin or sys.stdout is not looked for",
    ("PySys_GetObject", "driver_stream"): "as above, where the compiler keeps it apart",
    ("PySys_GetObject", "py_resetInput"): "as above",
    ("malloc", "new_history_mode"): "the store does not check allocations",
    ("realloc", "new_history_mode"): "as above",
    ("realloc", "insert_mode"): "as above, where the compiler keeps it apart",
    ("strdup", "new_history_mode"): "as above",
    ("malloc", "hist_enter"): "as above",
    ("strdup", "hist_enter"): "as above",
}
# What one call of a scenario may give instead of its usual result, by function and part of the
# place.
OUTCOMES = {
    # The exception stays set, and the read that has a line finds it. In driver.cpp that is one
    # function, which compilers put into another under either name.
    ("PyLong_AsLongLong", "conlog_call"): "error set",
    ("PyObject_CallFunction", "conlog_call"): "error set",
    ("PyObject_CallMethod", "driver.cpp"): "error set",
    ("PyObject_AsFileDescriptor", "driver.cpp"): "error set",
    ("fdopen", "driver.cpp"): "error set",
    # The reader has no byte to give.
    ("read", "rl_read"): "end of input",
    # A terminal that cannot be made raw ends the read at once.
    ("tcsetattr", "tty_setty"): "end of input",
    # A buffer that cannot grow: the key that needs it is refused.
    ("realloc", "ch_enlargebufs"): "a key less",
    ("realloc", "hist_enlargebuf"): "a key less",
    # The key that a search gives back is lost, and pressed again; or there is no editor.
    ("realloc", "reallocarr"): "pressed again",
    # No word, no completion.
    ("malloc", "find_word_to_complete"): "not completed",
    # What is taken for no terminal is not edited.
    ("isatty", "tty_setup"): "unbound",
    ("tcgetattr", "tty_getty"): "unbound",
    # A command that cannot be added is refused in silence, and so is its binding.
    ("realloc", "map_addfunc"): "unbound",
    # No handler could be put into the kernel: Ctrl-C is Python's own business.
    ("sigaction", "rl_signal "): "uninterrupted",
}
# Where memory is missing, there is no editor that could read, or no line to give.
MEMORY = ("malloc", "calloc", "realloc", "strdup")
# Scenarios whose lines are not edited: the end of input gives what there is of a line.
UNEDITED = ("from_a_pipe", "without_echo")
# Scenarios in which a read takes what the one before it has left.
FOLLOWING = ("from_a_pipe", "pasted")
# The scenario "completed" without one of its answers.
NOT_COMPLETED = ("xabze\u00e9", "xcdz")
# Keys that the bindings would have taken.
UNBOUND = ("a?b", "a\t?b")
# After which the scenario has to end its line once more.
PRESSED_AGAIN = ("uninterrupted", "not completed", "pressed again")
# The call that put the settings or the handlers back did not do it.
UNRESTORED = {("sigaction", "sig_give_back"): True, ("sigaction", "rl_signal"): True,
              ("tcsetattr", "tty_setty"): True}
# A file could not be looked at, or its news not be put where the callable reads it: told later.
LATE = {"fstat", "pread", "pwrite", "lseek"}
CUT_OFF = "first"  # the line that "log_exchanged" truncates away, when nobody has looked before


def found(table, call, place):
    name = call[0].replace("_SizeT", "").lstrip("_")
    return next((value for (function, part), value in table.items()
                 if name == function and part in place), None)


def is_end(entry):
    return entry[:2] == ["raised", "EOFError"]


def may_give(entry, usual, kind, scenario):
    """Whether the call that the fault fell into may have given this."""
    gave = entry[0] == usual[0] == "gave"
    if kind == "error set":
        return entry[:2] == ["raised", "SystemError"] and "returned a result with an" in entry[2]
    if kind == "end of input" and scenario in UNEDITED:
        return is_end(entry) or gave and usual[1].startswith(entry[1])
    if kind in ("end of input", "pressed again"):
        return is_end(entry)
    if kind == "a key less":
        left = iter(usual[1])
        return gave and len(entry[1]) < len(usual[1]) and all(key in left for key in entry[1])
    if kind == "not completed":
        return gave and entry[1] in NOT_COMPLETED or scenario == "failing_completion" and (
            entry[0] == "gave")
    if kind == "unbound":
        return gave and scenario == "first_bindings" and entry[1] in UNBOUND
    if kind == "uninterrupted":
        return entry == (["gave", "ab"] if usual[2].startswith("Ctrl-Z") else
                         ["raised", "KeyboardInterrupt", ""])
    return False


def good_calls(calls, usual, kind, scenario):
    """Whether one call gave what it may, and all others what they always do."""
    changed = [number for number, both in enumerate(zip(calls, usual)) if both[0] != both[1]]
    if len(calls) != len(usual) or not changed:
        return calls == usual
    first = changed.pop(0)
    if not may_give(calls[first], usual[first], kind, scenario):
        return False
    if scenario in FOLLOWING:  # what it left is there for the next ones; another stream has none
        other_stream = kind == "error set"
        return all(is_end(calls[number]) or calls[number][0] == "gave" and (
            calls[number][1] == "" if other_stream else
            any(one[0] == "gave" and one[1].endswith(calls[number][1]) for one in usual))
            for number in changed)
    return not changed


def good_refusal(calls, noted):
    """Whether a call of the module raised: nothing else changed, but for its not being made."""
    usual = calls_of(noted["outcome"])
    return calls in [calls_of(one) for one in noted["refused"] if one] or calls == THROUGH or any(
        calls == usual[:number] + [INJECTED] + usual[number + 1:]
        for number in range(len(usual)))


def calls_of(outcome):
    return [entry for entry in outcome if isinstance(entry, list)]


def good_news(outcome, one, usual, kind):
    """Whether all lines that were written were told once, in order."""
    for number, entry in enumerate(outcome):
        if isinstance(entry, list):
            continue
        told, written = entry["told"].splitlines(), entry["written"].splitlines()
        calls, late = calls_of(outcome), one["call"][0] in LATE
        if "create inotify event: " in one["stderr"] or outcome[number - 1] == INJECTED:
            return not told  # it is not followed at all
        if "EACCES" in one["failure"] and told == written[:len(told)]:
            continue  # what may not be read is followed when that has changed
        if kind == "error set":
            left = iter(written)
            return all(line in left for line in told) and told[-1:] == written[-1:]
        if one["scenario"] == "log_exchanged" and (late or calls != calls_of(usual)):
            if CUT_OFF not in told:
                written.remove(CUT_OFF)
            if late:
                told, written = sorted(told), sorted(written)
        if told != written:
            return False
    return True


def good_outcome(outcome, noted, one, kind):
    usual = noted["outcome"]
    if outcome == usual:
        return True
    calls = calls_of(outcome)
    if not good_news(outcome, one, usual, kind):
        return False
    if kind == "a line less":
        return all(both[0] == both[1] or both[0][0] == both[1][0] == "gave"
                   for both in zip(calls, calls_of(usual)))
    return (good_calls(calls, calls_of(usual), kind, one["scenario"])
            or "MemoryError" in one["failure"] and good_refusal(calls, noted))


def wrong(one, noted, place):
    """What is not as it may be, in words; "" when all is."""
    call, result, usual = one["call"], one["result"], noted["outcome"]
    dies = found(DEATHS, call, place)
    if result is None:
        return "" if dies and one["status"] == -11 else (
            "status %d: %s" % (one["status"], one["stderr"][-300:]))
    if one["status"] or dies and one["visit"] == 1:
        return "alive, status %d" % one["status"]
    kind = found(OUTCOMES, call, place)
    if dies:
        kind = "a line less"  # and one that is perhaps never compared with another
    elif kind is None and call[0] in MEMORY:
        kind = "end of input"
    unrestored = found(UNRESTORED, call, place)
    if not result["fired"]:  # how often is waited depends on how fast keys come
        if one["visit"] == 1:
            return "not reached: %r, %s" % (result["outcome"], one["stderr"])
        kind = unrestored = None
    if result["starved"] and kind not in PRESSED_AGAIN and (
            one["scenario"] not in FOLLOWING or result["outcome"] == usual):
        return "a key was lost"
    if not (result["kept"] and one["terminal"] or unrestored):
        return "settings or dispositions"
    if one["scenario"] == "first_bindings" and kind in ("end of input", "pressed again"):
        # There was perhaps no editor yet to bind keys in.
        if calls_of(result["outcome"])[1:] == [["gave", UNBOUND[0]]]:
            kind = "unbound"
    if not good_outcome(result["outcome"], noted, one, kind):
        return "outcome %r instead of %r" % (
            [entry for entry in result["outcome"] if entry not in usual], usual)
    if result["again"] != usual and not (
            kind == "unbound" and good_outcome(result["again"], noted, one, kind)):
        return "afterwards %r" % result["again"]
    if result["last"] != ["gave", "last"]:
        return "the last read %r" % result["last"]
    if result.get("leak"):  # which the scenario without a fault does not
        return "%.1f bytes and %.1f descriptors lost by each" % tuple(result["leak"])
    return ""


@pytest.fixture(scope="session")
def plan(setup, interposer):
    """The calls that are to fail in each scenario: each place has one, some have all.

    Scenarios that begin a process's life come last, as nothing is repeated in them.
    """
    told = json.loads(FaultInjection(setup, interposer).play(
        "failing_calls.py", 1, 0, given={scenario: [] for scenario in SCENARIOS}))
    plan, taken = {}, set()
    for scenario in SCENARIOS[::-1]:
        calls = {tuple(call) for call in told["noted"][scenario]["calls"]}
        plan[scenario] = sorted(calls if FULL or scenario in ALL_PLACES else calls - taken)
        taken |= calls
    return plan


@pytest.mark.parametrize("scenario", SCENARIOS)
def test_each_call_fails(injection, setup, plan, scenario):
    calls, repeats = plan[scenario], REPEATS
    injection.name_places(calls)
    if setup.sanitizer_logs:  # it has its own account, and reports where a process is to end
        repeats = 0
        calls = [call for call in calls if not found(DEATHS, call, injection.place(call))]
    text = injection.play("failing_calls.py", 0 if FULL else 1, repeats, given={scenario: calls})
    played = json.loads(text)
    told = played["told"]
    problems = []
    for one in told:
        place = injection.place(one["call"])
        problem = wrong(one, played["noted"][scenario], place)
        if problem:
            problems.append("visit %d of %s [%s]: %s"
                            % (one["visit"], place, one["failure"], problem))
    print("%s: %d faults" % (scenario, len(told)))
    assert not problems, "%d of %d\n%s" % (len(problems), len(told), "\n".join(problems[:40]))
