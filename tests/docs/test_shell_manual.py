"""The examples of keyline_shell(3) are run, and what it says of names and messages is so."""
import functools
import os
import re
import stat

import pytest

import manual

pytestmark = pytest.mark.package

RUN = {}  # the examples that have a test, by name
example = functools.partial(manual.example, RUN)
PAGE = "keyline_shell.3"


def test_every_example_is_run():
    assert set(RUN) == manual.SHELLS


class User:
    """Types, and compares the last rows of the screen."""

    def __init__(self, child, *rows):
        self.child = child
        manual.expect_rows(child, *rows)

    def type(self, keys, *rows):
        __tracebackhide__ = True
        self.child.send(keys)
        if rows:
            manual.expect_rows(self.child, *(row.rstrip() for row in rows))


# --- The shell of the synopsis -----------------------------------------------------------------


def lab(start, text, **options):
    return User(start("open('lab.log', 'a').close()\n" + text, **options),
                "The lab. ? helps, exit leaves.", "lab>")


def test_the_synopsis_is_short():
    text = manual.EXAMPLES["lab"]
    assert text.rstrip().count("\n") + 1 <= 60
    for part in ("history=", "idle=", "log=", "confirm(", "password(", "page(", "values=",
                 "progress("):
        assert part in text
    assert len(re.findall(r"\.mode\(", text)) == 4


@pytest.mark.smoke
@example("lab")
def test_lab(start, text):
    """Four modes, help, completion, abbreviations, mistakes, questions, log, history."""
    user = lab(start, text)
    user.type("?", "lab> ?", "  configure  Change it",
              "  exit       Leave this mode; in exec mode, the shell",
              "  logging    Log lines at the prompt", "  no         Undo a command",
              "  ping       Send echoes; Ctrl-C ends it", "  reload     Start again",
              "  show       Show what the shell knows",
              "  terminal   Change settings of the terminal", "lab>")
    user.type("sh po<enter>", "lab> sh po", "Port  State", "eth0  up", "eth1  down", "lo    up",
              "lab>")
    user.type("ping a cou 2<enter>", "2 sent to a", "lab>")
    user.type("ping a c 200<enter>", "lab> ping a c 200", "              ^",
              '% Unknown word "200": expected <1-100>', "lab>")
    user.type("conf<enter>port e<tab>", "lab(config)# port eth")
    user.type("1 <enter>no sh<enter>", "lab(config)# port eth1", "lab(eth1)# no sh", "lab(eth1)#")
    user.type("<up><up>", "lab(eth1)# port eth1")
    user.type("<c-z>", "lab(eth1)# port eth1^Z", "lab>")
    user.type("sh p eth1<enter>", "lab> sh p eth1", "Port  State", "eth1  up", "lab>")
    user.type("conf<enter>router<enter>ar 7<enter>no area<enter>", "lab(router)# ar 7", "area 7",
              "lab(router)# no area", "area 0", "lab(router)#")
    user.type("logging sync<enter>show", "lab(router)# logging sync", "lab(router)# show")
    with open(user.child.home + "/lab.log", "a", encoding="utf-8") as file:
        file.write("eth0 down\n")
    manual.expect_rows(user.child, "eth0 down", "lab(router)# show")
    user.type("<c-c>", "lab(router)# show^C", "lab(router)#")
    user.type("end<enter>ping b c 100<enter>", "pinging b: 0 of 100, 0 %")
    user.type("<c-c>", "lab>")
    user.type("reload<enter>wrong<enter>", "lab> reload", "Password:",
              "% This is not the password", "lab>")
    user.type("reload<enter>lab<enter>", "Password:", "Really? [y/N]")
    user.type("y<enter>")
    user.child.expect_end("status 3")
    path = user.child.home + "/.lab_history"
    assert stat.S_IMODE(os.stat(path).st_mode) == 0o600
    with open(path, encoding="utf-8") as file:
        assert file.read().endswith("exec\treload\n")


def test_lab_pages_what_is_long(start):
    text = manual.EXAMPLES["lab"].replace("lo\": \"up\"}", "lo\": \"up\"}\n"
                                          "ports.update(('p%d' % n, 'up') for n in range(50))")
    user = lab(start, text, rows=10)
    user.type("show ports<enter>", "p4    up", "--More--")
    user.type("q", "p4    up", "lab>")
    user.child.send("exit<enter>")
    user.child.expect_end()


def test_lab_logs_idle_users_out(start):
    text = manual.EXAMPLES["lab"].replace("idle=600, warning=60", "idle=0.6, warning=0.3")
    child = start("open('lab.log', 'a').close()\n" + text)
    child.expect_end("status 124")
    assert [row for row in child.display.rows() if "%" in row] == [
        "% No key for 0.3 seconds: the session ends in 0.3",
        "% No key for 0.6 seconds: good-bye"]


def test_lab_in_a_pipe(run):
    text = manual.EXAMPLES["lab"]
    assert run(text, stdin=b"show ports lo\nreload\nlab\nyes\nshow ports\n",
               end="status 3").stdout == b"Port  State\nlo    up\n"
    found = run(text, stdin=b"\nconf\nport eth9\n", end="exception")
    assert found.stderr.decode().splitlines() == [
        "line 3: port eth9", "             ^", '% Unknown word "eth9": expected PORT']


# --- The other examples ------------------------------------------------------------------------


@example("patterns")
def test_patterns(run, text):
    found = run(text, stdin=b"copy a\ncopy a to b\nco a q\nspeed slow\nspeed 7\nno speed\n")
    assert found.stdout.decode().splitlines() == [
        "a backup False", "a b False", "a backup True", "'slow'", "7", "'fast'"]


@example("tree")
def test_tree(run, text):
    assert run(text, stdin=b"show users\nsh p 3\n").stdout == b"nobody\nport 3\n"


@example("say")
def test_say(start, text):
    user = User(start(text), ">")
    user.type("alarm 3<enter>half", "> half")
    manual.expect_rows(user.child, "> alarm 3", "it is time", "> half")
    user.child.send("<c-u><c-d>")
    user.child.expect_end()


# --- Names and messages ------------------------------------------------------------------------


def shown():
    return re.sub(r"\s+", " ", manual.rendered(PAGE))


def test_every_name_of_the_package_is_told(run):
    found = run("import keyline_shell; tell('names', keyline_shell.__all__)").one("names")
    assert [name for name in found if not re.search(r"\b%s\b" % name, shown())] == []
    assert len(found) > 15


def test_calls_are_as_the_package_has_them(run):
    """Each signature on the page is that of the function, but for annotations."""
    page = shown()
    calls = re.findall(r"(?:^|[ @])((?:shell|mode)\.\w+|[A-Za-z]\w*)\(((?:[^()]|\(\))*)\)",
                       page)
    wanted = ["shell.run", "shell.main", "shell.standard", "shell.say", "shell.kind", "Shell",
              "mode.mode", "mode.enter", "mode.command", "ask", "confirm", "choose", "password",
              "table", "colour"]
    found = run("""
import inspect, keyline_shell
from keyline_shell import *
shell = Shell()
mode = shell.mode("a", "b")
for name in %r:
    parameters = inspect.signature(eval(name)).parameters.values()
    tell(name, ", ".join(str(one.replace(annotation=one.empty)) for one in parameters))
""" % (wanted,)).facts
    for name, call in found:
        told = [arguments.replace('"', "'") for called, arguments in calls if called == name]
        assert call.replace("*, ", "") in told, (name, call)


def test_every_message_is_told():
    """What the package itself says behind a percent sign."""
    code = ""
    for name in ("session", "help", "history"):
        path = os.path.join(manual.ROOT, "keyline_shell", name + ".py")
        with open(path, encoding="utf-8") as file:
            code += file.read()
    begins = "No key for|The history (?:was|is) |No help|There is no answer"
    said = re.findall(r'["%% ]((?:%s)[^"%%\\]*)' % begins, code)
    assert len(said) > 4
    page = shown()
    for text in said:
        assert text.strip() in page, text
