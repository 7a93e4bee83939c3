"""The command language of keyline_shell: patterns, values, kinds, help and mistakes."""
import pytest

from at_shell import ShellUser

pytestmark = pytest.mark.package

SHELL = """
from keyline_shell import *
shell = Shell()
top = shell.mode("exec", "> ")
%s
sys.exit(shell.run())
"""

# What each line gives: the arguments of the function, or the mistake.
COMMANDS = """
def show(name):
    def command(*values, **named):
        print(name, *(list(values) + sorted(named.items())))
    return command

@top.command("ping NAME [count <1-100>] [quiet]")
def ping(host, count=5, quiet=None):
    print("ping", repr(host), repr(count), repr(quiet))

@top.command("speed (slow|fast|<1-9>)", no=True)
def speed(which="default", no=False):
    print("speed", repr(which), no)

@top.command("set (all names|one NAME) [after <-5-5>]")
def set_(name=None, after=0):
    print("set", repr(name), repr(after))

@top.command("clock (in utc|here)")
def clock(where):
    print("clock", repr(where))

shell.kind("A", "a+")
shell.kind("B", lambda text: int(text, 2))
top.command("any [A] [B] [LINE]")(show("any"))
"""


def lines(run, commands, text, **options):
    return run(SHELL % commands, stdin=text.encode(), **options).stdout.decode().splitlines()


@pytest.mark.smoke
def test_values_go_to_the_function_in_order(run):
    found = lines(run, COMMANDS, """\
ping host
ping host count 7
ping host quiet
pi host c 100 q
speed slow
sp fa
speed 9
no speed
set all names
set one it
set all names after -3
set one it after 5
clock in utc
clock here
""")
    assert found == [
        "ping 'host' 5 False", "ping 'host' 7 False", "ping 'host' 5 True",
        "ping 'host' 100 True", "speed 'slow' False", "speed 'fast' False", "speed 9 False",
        "speed 'default' True", "set None 0", "set 'it' 0", "set None -3", "set 'it' 5",
        "clock 'in utc'", "clock 'here'"]


def test_a_function_of_any_number_gets_what_is_there(run):
    found = lines(run, COMMANDS, "any\nany aaa\nany 101\nany aa 11\nany aa 1 the  rest\nany rest\n")
    assert found == ["any", "any aaa", "any 5", "any aa 3", "any aa 1 the  rest", "any rest"]


@pytest.mark.parametrize("line, column, message", [
    ("ping host count 101", 16, 'Unknown word "101": expected <1-100>'),
    ("ping host count", 15, "Incomplete command: expected <1-100>"),
    ("ping host quiet count 1", 16, 'Unknown word "count": expected the end of the line'),
    ("ping 9", 5, 'Unknown word "9": expected NAME'),
    ("set one it after -6", 17, 'Unknown word "-6": expected <-5-5>'),
    ("no", 2, "Incomplete command: expected speed"),
    ("s slow", 0, 'Ambiguous word "s": speed or set'),
    ("ping host count <1-100>", 16, 'Unknown word "<1-100>": expected <1-100>'),
    ("any 3", 4, ""),
])
def test_mistakes(run, line, column, message):
    if not message:  # a line is anything
        assert lines(run, COMMANDS, line) == ["any 3"]
        return
    result = run(SHELL % COMMANDS, stdin=line.encode(), end="exception")
    assert result.stderr.decode().splitlines() == [
        "line 1: " + line, " " * (len("line 1: ") + column) + "^", "% " + message]


@pytest.mark.parametrize("pattern, parameters, error", [
    ("ping NAME", "", "TypeError"),
    ("ping", "host", "TypeError"),
    ("ping [NAME]", "host", "TypeError"),
    ("ping NOWHERE", "host", "ValueError"),
    ("ping (a|b", "host", "ValueError"),
    ("ping a]", "", "ValueError"),
    ("ping )", "", "ValueError"),
    ("", "", "ValueError"),
    ("[ping]", "", "ValueError"),
    ("x " + "[a] [b] [c] " * 5, "*all", "ValueError"),
])
def test_a_command_that_cannot_be_is_refused_when_it_is_made(run, pattern, parameters, error):
    found = run("""
from keyline_shell import Shell
shell = Shell()
top = shell.mode("exec", "> ")
tell("raised", raises(lambda: top.command(%r)(lambda %s: None)))
""" % (pattern, parameters)).one("raised")
    assert found[0] == error, found


def test_a_shell_that_cannot_be_is_refused(run):
    found = run("""
from keyline_shell import Shell
shell = Shell()
tell("none", raises(shell.run))
tell("kind", raises(lambda: shell.kind("name")))
top = shell.mode("exec", "> ")
for name in "", "exec", "a\\nb":
    tell("mode", raises(lambda: top.mode(name, "> ")))
tell("enter", raises(lambda: top.mode("low", "> ", "down NOWHERE")))
""")
    for name in "none", "kind", "mode", "enter":
        assert {error for error, text in found.all(name)} == {"ValueError"}, name
    assert len(found.all("mode")) == 3


def test_trees_and_patterns_are_one_language(run):
    found = lines(run, """
shell.add({"show": Word("All", None, {"version": Word("One", lambda: print("one"), {
    "<1-3>": Word("Row", lambda row: print("row", row + 1))})})})
top.command("show users")(lambda: print("users"))
shared = {"a": Word("A", lambda: print("a"))}
low = top.mode("low", "low> ", "down")
top.add({"x": Word("X", None, shared)})
low.add({"x": Word("X", None, shared)})
low.command("x b")(lambda: print("b"))
""", "show version\nsh v 2\nshow users\ndown\nx a\nx b\nend\nx a\nshow version\n")
    assert found == ["one", "row 3", "users", "a", "b", "a", "one"]


def test_what_a_pattern_adds_is_not_in_other_trees(run):
    result = run(SHELL % """
shared = {"a": Word("A", lambda: print("a"))}
low = top.mode("low", "low> ", "down")
top.add({"x": Word("X", None, shared)})
low.add({"x": Word("X", None, shared)})
low.command("x b")(lambda: print("b"))
""", stdin=b"x b", end="exception")
    assert b'Unknown word "b": expected a\n' in result.stderr


def test_no_line_is_an_unforeseen_error(run):
    """Lines of pieces that mean something, cut and joined anywhere, at Enter, TAB and "?"."""
    found = run("""
import random
from keyline_shell import *
from keyline_shell.help import describe, explain
shell = Shell()
top = shell.mode("exec", "> ")
%s
random.seed(7)
pieces = ["ping", "speed", "set", "all", "names", "no", "clock", "in utc", "any", "aa", "10", "count",
          "<1-100>", "NAME", "LINE", "-3", "<", ">", "-", "|", "[", "]", " ", "  ", "\\t", "\\n", "?",
          "\\x1b", "\u00fc", "\u6f22", "<cr>", "(", "quiet", "q", "1" * 30, "e", "exit"]
kinds = {}
for number in range(3000):
    line = "".join(random.choice(pieces) + random.choice(["", " "])
                   for at in range(random.randrange(7)))
    for what in (lambda: shell.language.parse(top.commands(), line),
                 lambda: shell.language.complete(top.commands(), line),
                 lambda: describe(shell.language, top.commands(), line, 40)):
        try:
            what()
            kinds["fits"] = kinds.get("fits", 0) + 1
        except Mistake as mistake:
            assert 0 <= mistake.start <= len(line) + 1
            explain("> ", line, mistake, random.choice([1, 2, 10, 80]))
            kinds["mistake"] = kinds.get("mistake", 0) + 1
tell("kinds", kinds)
""" % COMMANDS).one("kinds")
    assert found["fits"] > 500 and found["mistake"] > 500


HELP = """
there = {"eth0": "to the lab", "eth1": "", "lo": "inside", "bad name": "", "b\\x07d": ""}
shell.kind("INTERFACE", values=lambda: there)
shell.kind("HOST", "[a-z.]+", "Any host", values=lambda: ["alpha.lab", "beta.lab"])

@top.command("watch INTERFACE [at HOST]", no="watch")
def watch(interface="", host=""):
    '''Look at an interface

    INTERFACE: One that there is
    at: From where
    no watch: Look no more
    '''
    print("watching", interface, host)

@top.command("add NAME")
def add(name):
    there[name] = "new"
"""


def test_values_that_exist_now_are_helped_with_and_completed(start):
    user = ShellUser(start(SHELL % HELP), "> ")
    user.type("watch ?", "> watch ?", "  eth0  to the lab", "  eth1  One that there is",
              "  lo    inside", "> watch ")
    user.type("e<tab>", "> watch eth")
    user.type("<tab>", "> watch eth", "  eth0  eth1", "> watch eth")
    user.type("0<tab>", "> watch eth0 ")
    user.type("?", "> watch eth0 ?", "  at    From where", "  <cr>  run the command",
              "> watch eth0 ")
    user.type("at ?", "> watch eth0 at ?", "  alpha.lab  Any host", "  beta.lab   Any host",
              "  HOST       Any host", "> watch eth0 at ")
    user.type("be<tab>", "> watch eth0 at be", "  beta.lab  HOST", "> watch eth0 at be")
    user.type("ta.lab<enter>", "> watch eth0 at beta.lab", "watching eth0 beta.lab", "> ")
    user.type("watch e2<enter>", "> watch e2", "        ^",
              '% Unknown word "e2": expected INTERFACE', "> ")
    user.type("add e2<enter>", "> add e2", "> ")
    user.type("watch e2<tab>", "> watch e2 ")
    user.type("<c-u>no ?", "> no ?", "  watch  Look no more", "> no ")
    user.type("w<enter>", "> no w", "watching", "> ")
    user.leave("<c-d>")


def test_the_help_of_kinds_and_of_a_docstring(start):
    user = ShellUser(start(SHELL % """
@top.command("ping NAME [count <1-9>]", no=True)
def ping(host="", count=5):
    '''Send echoes
    count: How many
    <1-9>: So many'''
"""), "> ")
    user.type("?", "> ?", "  exit  Leave this mode; in exec mode, the shell",
              "  no    Undo a command", "  ping  Send echoes", "> ")
    user.type("ping ?", "> ping ?",
              "  NAME  Letters, digits and hyphens; a letter first", "> ping ")
    user.type("a ?", "> ping a ?", "  count  How many", "  <cr>   run the command", "> ping a ")
    user.type("c ?", "> ping a c ?", "  <1-9>  So many", "> ping a c ")
    user.leave("<c-u><c-d>")


def test_an_error_of_a_kind_does_not_lose_the_line(start):
    user = ShellUser(start(SHELL % """
def broken(): raise RuntimeError("no device")
shell.kind("PORT", values=broken)
top.command("open PORT")(lambda port: None)
"""), "> ")
    user.type("open ?", "> open ?", "% no device", "> open ")
    user.type("<tab>", "> open ", "% no device", "> open ")
    user.leave("<c-u><c-d>")


def test_a_command_may_refuse(start, run):
    commands = """
@top.command("drop NAME")
def drop(name): raise Refused("%s is in use\\x1b[2J" % name)
"""
    user = ShellUser(start(SHELL % commands), "> ")
    user.type("drop it<enter>", "> drop it", "% it is in use^[[2J", "> ")
    user.leave("exit<enter>")
    result = run(SHELL % commands, stdin=b"\ndrop it\ndrop that", end="exception")
    assert result.stderr == b"line 2: drop it\n% it is in use^[[2J\n"


def test_modes_have_parents_values_and_an_end(run):
    found = lines(run, """
config = top.mode("config", "c> ", "configure")
port = config.mode("port", lambda: "p%s> " % port.values, "port <1-8>")
@port.command("where")
def where(): print(port.prompt(), port.values, port.words)
@shell.command("history")
def history():
    import Keyline
    print(Keyline.history(shell.current.name))
""", "conf\nport 3\nwhere\nexit\nhistory\nport 4\nend\nhistory\n")
    assert found == ["p3>  (3,) ['port', '3']", "['conf', 'port 3', 'history']",
                     "['conf', 'history']"]


def test_the_exit_status_and_comments(run):
    """A file, too, is over with its end."""
    commands = """
shell.comment = "#"
@top.command("quit <0-255>")
def quit(status): shell.leave(status)
"""
    run(SHELL % commands, stdin=b"# quit 4\n\n  # more\nquit 3\nquit 4", end="status 3")
    run(SHELL % commands, stdin=b"")
    run("from keyline_shell import Shell\nshell = Shell()\nshell.mode('exec', '')\n"
        "sys.exit(shell.run(open(%r)))" % "/dev/null")
