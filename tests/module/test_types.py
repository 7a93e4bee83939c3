"""The stub against the module: what methods take and return, and what a checker says."""
import ast
import os
import re
import subprocess
import sys

import pytest

from stub import FOLDER, FUNCTIONS, callback, parameters

HERE = os.path.dirname(os.path.abspath(__file__))

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


@pytest.mark.parametrize("answer", ["None", "0", "1", "type('', (), {'__index__': lambda _: 1})()"])
def test_what_the_log_callback_gets_and_answers(start, answer):
    types, allowed = callback("_LogCallback")
    assert allowed == "Optional[SupportsIndex]"
    child = start(KINDS + "answer = %s\nKeyline.loggingSyncEnabledIs('log', news)\nread()\n"
                  % answer)
    child.expect_prompt()
    with open(os.path.join(child.home, "log"), "a", encoding="utf-8") as file:
        file.write("news\n")
    child.expect_fact("news", types)
    child.send("<enter>")
    child.expect_line("")
    child.expect_end()


@pytest.mark.plain_only("the checker is no child of the test")
@pytest.mark.once
def test_a_checker_takes_right_uses_and_refuses_wrong_ones(tmp_path):
    """Each line of the examples that ends in `# error: CODE` is refused so, and no other."""
    path = os.path.join(HERE, "types_examples.py")
    found = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--show-error-codes",
         "--config-file=", "--no-error-summary", "--hide-error-context",
         "--cache-dir", str(tmp_path), path],
        env=dict(os.environ, MYPYPATH=FOLDER), capture_output=True, text=True)
    said = re.findall(r"^.*?:([0-9]+): error: .*\[([a-z-]+)\]$", found.stdout, re.M)
    with open(path, encoding="utf-8") as file:
        expected = [(str(number), line.split("# error: ")[1].strip())
                    for number, line in enumerate(file, 1) if "# error: " in line]
    assert said == expected, found.stdout + found.stderr
    assert found.returncode == 1
