"""The stub against the module: what methods take and return, and what a checker says."""
import ast
import os
import re
import subprocess
import sys

import pytest

from script import ROOT

HERE = os.path.dirname(os.path.abspath(__file__))
STUBS = os.path.join(ROOT, "Cli")

# For each method a call with each number of arguments that the stub allows, and those with
# None where it allows that. In this order: the editor keeps lines once it has started,
# history has one for either way to ask, log echo goes on and off, and each reset drops what
# a start has taken.
CALLS = [
    ("keyBindingsEnabledIs", "True"), ("keyBindingsEnabled", ""),
    ("newHistoryMode", "'exec', ''"), ("addHistory", "'show', 'exec', ''"),
    ("addHistory", "'lost', 'inner', 'nowhere'"), ("history", "'exec'"),
    ("addHistory", "'hide', '', ''"), ("history", ""), ("historyLimitIs", "100"),
    ("loggingSyncEnabledIs", "'log', news"), ("loggingSyncEnabledIs", "'log', None"),
    ("loggingSyncEnabledIs", "'log'"), ("TerminalWidthIs", "80"),
    ("readline", "'> '"), ("readline", "'> ', None"), ("readline", "'> ', complete"),
    ("readline", "'> ', complete, 'exec'"), ("simpleReadline", "'> '"),
    ("clearHistory", ""), ("resetInput", ""),
    ("keyBindingsEnabledIs", "False"), ("resetInput", "1, None"),
    ("readline", "'> ', complete, 'exec', ''"), ("resetInput", "'x'"),
]

# Tells values as the stub writes their types.
KINDS = """
import Keyline
open("log", "w").close()

def kind(value):
    if isinstance(value, list):
        return "List[%s]" % ", ".join(sorted({kind(element) for element in value}))
    return "None" if value is None else type(value).__name__

def complete(*arguments):
    tell("complete", [kind(argument) for argument in arguments])
    return answer

def news(*arguments):
    tell("news", [kind(argument) for argument in arguments])
    return answer
"""

# What is no value of a type: for each parameter of that type a call is refused.
WRONG = {"str": ["1", "b'x'", "None"], "bool": ["1", "None"], "int": ["'1'", "None"]}
RIGHT = {"str": "'x'", "bool": "True", "int": "1"}


def stub():
    """The stub's functions and the names that it gives to types, by name."""
    with open(os.path.join(STUBS, "Keyline.pyi"), encoding="utf-8") as file:
        body = ast.parse(file.read()).body
    functions = {node.name: node for node in body if isinstance(node, ast.FunctionDef)}
    aliases = {node.targets[0].id: node.value for node in body if isinstance(node, ast.Assign)}
    return functions, aliases


FUNCTIONS, ALIASES = stub()


def parameters(name):
    """The types of a function's arguments, and how many of them have to be given."""
    found = FUNCTIONS[name].args
    return ([ast.unparse(argument.annotation) for argument in found.posonlyargs],
            len(found.posonlyargs) - len(found.defaults))


def callback(name):
    """What a callable of that type is called with, and what it may answer."""
    arguments, answer = ALIASES[name].slice.elts
    return [ast.unparse(argument) for argument in arguments.elts], ast.unparse(answer)


def test_the_calls_are_all_that_the_stub_allows():
    for name in FUNCTIONS:
        given = {len(ast.parse("f(%s)" % call).body[0].value.args)
                 for called, call in CALLS if called == name}
        types, needed = parameters(name)
        if FUNCTIONS[name].args.vararg:
            assert len(given) > 1
        else:
            assert given == set(range(needed, len(types) + 1)), name


def test_every_method_and_no_other(run):
    found = run("import Keyline; tell('names', [n for n in vars(Keyline) if n[0] != '_'])")
    assert sorted(found.one("names")) == sorted(FUNCTIONS)


def test_results(start):
    """The docstrings of both readers say None, deliberately; the stub says what comes."""
    child = start(KINDS + """
for name, call in %r:
    tell("calling", name)
    tell("returned", kind(eval("Keyline.%%s(%%s)" %% (name, call))))
""" % (CALLS,))
    for name, call in CALLS:
        child.expect_fact("calling", name)
        if name in ("readline", "simpleReadline"):
            child.send("x<enter>")
        found = child.expect_fact("returned")
        assert found == ast.unparse(FUNCTIONS[name].returns), (name, call)
    child.expect_end()


def test_too_few_and_too_many_arguments(run):
    """Wherever the stub's numbers end, the module's do."""
    calls = []
    for name in FUNCTIONS:
        types, needed = parameters(name)
        right = [RIGHT.get(kind, "None") for kind in types]
        if needed:
            calls.append((name, ", ".join(right[:needed - 1])))
        if not FUNCTIONS[name].args.vararg:
            calls.append((name, ", ".join(right + ["None"])))
    found = run(KINDS + """
for name, call in %r:
    tell("raised", raises(lambda: eval("Keyline.%%s(%%s)" %% (name, call))))
""" % (calls,)).all("raised")
    assert len(found) == len(calls) > len(FUNCTIONS)
    for call, (error, text) in zip(calls, found):
        assert error == "TypeError" and "argument" in text and "given)" in text, call


def test_keywords_are_refused(run):
    found = run(KINDS + """
for name in %r:
    tell("raised", raises(lambda: getattr(Keyline, name)(x=1)))
""" % (list(FUNCTIONS),)).all("raised")
    assert [error for error, text in found] == ["TypeError"] * len(FUNCTIONS)
    assert all("takes no keyword arguments" in text for error, text in found)


def test_values_of_other_types(run):
    calls = []
    for name in FUNCTIONS:
        types, needed = parameters(name)
        for at, kind in enumerate(types):
            right = [RIGHT.get(other, "None") for other in types[:max(needed, at + 1)]]
            calls += [(name, ", ".join(right[:at] + [wrong] + right[at + 1:]))
                      for wrong in WRONG.get(kind, ())]
    found = run(KINDS + """
for name, call in %r:
    tell("raised", raises(lambda: eval("Keyline.%%s(%%s)" %% (name, call))))
""" % (calls,)).all("raised")
    assert len(found) == len(calls) > 30
    assert [call for call, raised in zip(calls, found)
            if raised is None or raised[0] != "TypeError"] == []


@pytest.mark.parametrize("answer", ["None", "'ow'"])
def test_what_the_completion_callback_gets_and_answers(start, answer):
    types, allowed = callback("_Completer")
    assert allowed == "Optional[str]"
    child = start(KINDS + "answer = %s\nread(complete)\n" % answer)
    child.expect_prompt()
    child.send("sh<tab>")
    child.expect_fact("complete", types)
    child.send("<enter>")
    child.expect_line("sh" + (ast.literal_eval(answer) or ""))
    child.expect_end()


@pytest.mark.parametrize("answer", ["None", "0", "1"])
def test_what_the_log_callback_gets_and_answers(start, answer):
    types, allowed = callback("_LogCallback")
    assert allowed == "Optional[int]"
    child = start(KINDS + "answer = %s\nKeyline.loggingSyncEnabledIs('log', news)\nread()\n"
                  % answer)
    child.expect_prompt()
    with open(os.path.join(child.home, "log"), "a", encoding="utf-8") as file:
        file.write("news\n")
    child.expect_fact("news", types)
    child.send("<enter>")
    child.expect_line("")
    child.expect_end()


def test_a_checker_takes_right_uses_and_refuses_wrong_ones(tmp_path):
    """Each line of the examples that ends in `# error: CODE` is refused so, and no other."""
    path = os.path.join(HERE, "types_examples.py")
    found = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--python-version", "3.9",
         "--config-file=", "--no-error-summary", "--hide-error-context",
         "--cache-dir", str(tmp_path), path],
        env=dict(os.environ, MYPYPATH=STUBS), capture_output=True, text=True)
    said = re.findall(r"^.*?:([0-9]+): error: .*\[([a-z-]+)\]$", found.stdout, re.M)
    with open(path, encoding="utf-8") as file:
        expected = [(str(number), line.split("# error: ")[1].strip())
                    for number, line in enumerate(file, 1) if "# error: " in line]
    assert said == expected, found.stdout + found.stderr
    assert found.returncode == 1
