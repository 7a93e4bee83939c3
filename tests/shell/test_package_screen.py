"""What keyline_shell prints: colours, carets, text above the line, pages, tables, progress."""
import re
import subprocess

import pytest

from at_shell import ShellUser
from characters import columns as width_of
from script import environment

pytestmark = pytest.mark.package

SHELL = """
from keyline_shell import *
from keyline_shell import screen
shell = Shell()
top = shell.mode("exec", %s)
top.command("show (one|two)")(lambda which: None)
%s
sys.exit(shell.run())
"""


# --- Prompts -----------------------------------------------------------------------------

PROMPTS = [
    ('"> "', ["> "]),
    ('colour("lab", "green", "bold") + "> "', ["lab> "]),
    ('lambda: "\\x1b[31mlab\\x1b[0m> "', ["lab> "]),
    ('"\\x01\\x1b[1m\\x02lab\\x01\\x1b[0m\\x02> "', ["lab> "]),
    ('"[a line\\n of three]\\n> "', ["[a line", " of three]", "> "]),
    ('lambda: "one\\n" + colour("two", "red") + "> "', ["one", "two> "]),
    ('"b\u00fcro\u6f22> "', ["b\u00fcro\u6f22> "]),
]


@pytest.mark.smoke
@pytest.mark.parametrize("prompt, rows", PROMPTS)
def test_mistakes_are_pointed_at_behind_any_prompt(start, prompt, rows):
    above, row = rows[:-1], rows[-1]
    there = sum(map(width_of, row))
    user = ShellUser(start(SHELL % (prompt, "")), *rows, cursor=(0, there))
    wrong = " " * there + "     ^", '% Unknown word "x": expected one, two'
    user.terminal.send("show x<enter>")
    user.above = []
    user.expect(*above, row + "show x", *wrong, *above, row, cursor=(0, there))
    user.terminal.send("show x?")
    user.above = []
    user.expect(*above, row + "show x", *wrong, *above, row + "show x?", *wrong, *above,
                row + "show x", cursor=(0, there + len("show x")))
    user.leave("<c-u><c-d>")


COLOURED = ['lambda: colour("lab> ", "red")', 'colour("lab> ", "red")',
            '"\\x1b[31mlab> \\x1b[0m"', '"\\x01\\x1b[31m\\x02lab> \\x01\\x1b[0m\\x02"']


@pytest.mark.parametrize("prompt", COLOURED)
@pytest.mark.parametrize("variables", [{"TERM": "dumb"}, {"NO_COLOR": "1"}, {"TERM": None}, {}])
def test_colours_at_a_terminal_that_wants_them(start, prompt, variables):
    user = ShellUser(start(SHELL % (prompt, ""), env=variables), "lab> ")
    user.type("?", *(["lab>"] if variables.get("TERM", "") != "" else []), "lab> ?",
              "  exit  Leave this mode; in exec mode, the shell",
              "  show  ", "lab> ")
    found = user.terminal.display.raw.count(b"\x1b[31m")
    assert found == (0 if variables else 3)
    user.leave("<c-d>")


def test_no_colours_in_a_pipe(run):
    found = run("from keyline_shell import *\nprint(colour('a', 'red', 'bold'))").stdout
    assert found == b"a\n"


# --- Widths --------------------------------------------------------------------------------


@pytest.mark.parametrize("text, columns, place", [
    ("", 80, (0, 0)), ("abc", 80, (0, 3)), ("abc", 3, (1, 0)), ("abcd", 3, (1, 1)),
    ("a\tb", 80, (0, 9)), ("\t", 5, (1, 0)), ("ab\u6f22", 3, (1, 2)), ("\u6f22", 80, (0, 2)),
    ("e\u0301", 80, (0, 1)), ("\x07", 80, (0, 2)), ("a\nbc", 80, (1, 2)),
    ("\u1112\u1161", 80, (0, 2)),
])
def test_where_text_ends(run, text, columns, place):
    assert run("from keyline_shell import screen\ntell('place', screen.place(%r, %d))" % (
        text, columns)).one("place") == place


def test_characters_are_as_wide_as_the_library_of_the_terminal_says(run):
    """Of the scripts that there are; not of what is shown as something else."""
    letters = [chr(code) for start, end in ((0x20, 0x250), (0x300, 0x530), (0x5d0, 0x600),
                                            (0xe00, 0xe80), (0x1100, 0x1200), (0x3040, 0x3100),
                                            (0x4e00, 0x4f00), (0xac00, 0xad00), (0x1f600, 0x1f640))
               for code in range(start, end)]
    found = run("""
from keyline_shell import screen
tell("widths", [screen.width("a" + letter + "b") - 2 for letter in %r])
tell("shown", [screen.visible(letter) == letter for letter in %r])
""" % (letters, letters))
    wrong = [(letter, width) for letter, width, shown in zip(
        letters, found.one("widths"), found.one("shown")) if shown and width != width_of(letter)]
    assert wrong == []


# --- Text above the line ---------------------------------------------------------------------

SAYING = """
import threading
@top.command("later")
def later():
    def work():
        for number in range(3):
            wait_for("say")
            shell.say("news %d\\x1b[2J" % number)
    threading.Thread(target=work, daemon=True).start()
"""


@pytest.mark.parametrize("line", ["a line half typed", "a longer one " * 10])
def test_threads_print_above_the_line(start, line):
    user = ShellUser(start(SHELL % ('"> "', SAYING)), "> ")
    user.type("later<enter>", "> later", "> ")
    typed = "> " + line
    rows = [typed[at:at + 80] for at in range(0, len(typed), 80)]
    user.type(line, *rows)
    user.drop(len(rows) - 1)
    for number in range(3):
        user.terminal.go("say")
        user.expect("news %d^[[2J" % number, *rows)
        user.drop(len(rows) - 1)
    user.leave("<c-u><c-d>")


def test_threads_print_while_the_log_is_on(start):
    """Where prompt and line stood they stay, and are drawn again below."""
    user = ShellUser(start("open('log', 'w').close()\n" + SHELL % ('"> "', SAYING + """
shell.log_file, shell.log_shown = "log", True
""")), "> ")
    user.type("later<enter>", "> later", "> ")
    user.type("half typed", "> half typed")
    user.terminal.go("say")
    user.expect("> half typed", "news 0^[[2J", "> half typed")
    with open(user.terminal.home + "/log", "a", encoding="utf-8") as file:
        file.write("logged\n")
    user.expect("logged", "> half typed")
    user.leave("<c-u><c-d>")


def test_help_prints_while_threads_do(start):
    """Its text appears when it is done; neither waits for the other."""
    user = ShellUser(start(SHELL % ('"> "', """
import threading
def values():
    threading.Thread(target=shell.say, args=["from a thread"]).start()
    shell.say("from help")
    return ["eth0"]
shell.kind("PORT", values=values)
top.command("port PORT")(lambda port: None)
""")), "> ")
    user.terminal.send("port ?")
    user.terminal.wait_screen("all three", lambda rows: (
        {"from help", "from a thread", "  eth0"} <= set(rows)
        and [row for row in rows if row][-1] == "> port"))
    user.leave("<c-u><c-d>")


def test_printing_threads_leave_no_files(start, tmp_path):
    user = ShellUser(start(SHELL % ('"> "', SAYING), env={"TMPDIR": str(tmp_path)}), "> ")
    user.type("later<enter>", "> later", "> ")
    user.terminal.go("say")
    user.expect("news 0^[[2J", "> ")
    assert len(list(tmp_path.iterdir())) == 1
    user.leave("<c-d>")
    assert list(tmp_path.iterdir()) == []


def test_printing_between_two_reads(run):
    assert run(SHELL % ('"> "', "top.command('say')(lambda: shell.say('so\\x07'))"),
               stdin=b"say\n").stdout == b"so^G\n"


# --- Pages -----------------------------------------------------------------------------------

PAGES = """
@top.command("count <1-1000>")
def count(most): print(page("row %d" % number for number in range(1, most + 1)))
"""


def counted(first, last):
    return ["row %d" % number for number in range(first, last + 1)]


@pytest.mark.smoke
def test_a_page_at_a_time(start):
    user = ShellUser(start(SHELL % ('"> "', PAGES), rows=6), "> ")
    user.type("count 5<enter>", "> count 5", *counted(1, 5), "True", "> ")
    user.above = []
    user.type("count 20<enter>", *counted(1, 5), "--More--")
    user.above = []
    user.type("<enter>", *counted(2, 6), "--More--")
    user.above = []
    user.type("x<up> ", *counted(7, 11), "--More--")
    user.above = []
    user.type("q", *counted(8, 11), "False", "> ")
    user.leave("<c-d>")


def test_the_window_counts_as_it_is_at_each_page(start):
    user = ShellUser(start(SHELL % ('"> "', PAGES), rows=6), "> ")
    user.type("count 100<enter>", *counted(1, 5), "--More--")
    user.above = []
    user.terminal.resize(11, 80)
    user.terminal.send(" ")
    user.expect(*counted(6, 15), "--More--")
    user.above = []
    user.type("<c-c>", *counted(7, 15), "--More--^C", "> ")
    user.leave("<c-d>")


def test_long_rows_count_as_many(start):
    user = ShellUser(start(SHELL % ('"> "', """
top.command("long")(lambda: page(["x" * 25, "y" * 20, "z", "end"]))
"""), rows=5, columns=20), "> ")
    user.type("long<enter>", "x" * 20, "x" * 5, "y" * 20, "z", "--More--")
    user.above = []
    user.type(" ", "x" * 5, "y" * 20, "z", "end", "> ")
    user.leave("<c-d>")


def test_keys_typed_ahead_go_to_the_next_read(start):
    user = ShellUser(start(SHELL % ('"> "', PAGES), rows=6), "> ")
    user.type("count 20<enter>", *counted(1, 5), "--More--")
    user.above = []
    user.type("qcount 1<enter>", "row 4", "row 5", "False", "> count 1", "row 1", "True", "> ")
    user.leave("<c-d>")


def test_a_terminal_lost_at_a_page(start):
    user = ShellUser(start(SHELL % ('"> "', PAGES), rows=6), "> ")
    user.type("count 20<enter>", *counted(1, 5), "--More--")
    user.terminal.hang_up()
    user.terminal.expect_end("clean")


def test_a_closed_pipe_ends_the_program(setup, tmp_path):
    script = tmp_path / "script.py"
    script.write_text("import sys\n" + SHELL % ('"> "', PAGES))
    found = subprocess.run(
        ["bash", "-c", 'printf "count 1000\\n%.0s" {1..500} | "$1" "$2" | head -n 1;'
         ' echo "${PIPESTATUS[1]}"', "-", setup.interpreter, str(script)],
        env=environment(setup, str(tmp_path), None), capture_output=True, text=True)
    assert found.stdout == "row 1\n141\n" and found.stderr == ""


def test_no_page_without_a_terminal(run):
    result = run(SHELL % ('"> "', PAGES), stdin=b"count 300\n")
    assert result.stdout.decode().splitlines() == counted(1, 300) + ["True"]


# --- Columns, tables, progress -----------------------------------------------------------------


def test_tables_and_columns(run):
    found = run("""
from keyline_shell import columns, table
tell("table", table([("eth0", 1000, "up"), ("b\\u00fcro\\u6f22", 10, ""), ("lo\\x1b[2J", 0)],
                    ("Name", "Speed", "State")))
tell("bare", table([(1, "a"), (10, None)]))
tell("empty", table([]))
tell("columns", columns(["one", "three", "seventeen", "\\u6f22\\u6f22", "x\\ny"], 24))
tell("narrow", columns(["one", "three"], 3))
tell("none", columns([]))
""")
    assert found.one("table") == ["Name     Speed  State", "eth0      1000  up",
                                  "b\u00fcro\u6f22      10", "lo^[[2J      0"]
    assert found.one("bare") == [" 1  a", "10  None"]
    assert found.one("empty") == [] and found.one("none") == []
    assert found.one("columns") == ["one        \u6f22\u6f22", "three      x y", "seventeen"]
    assert found.one("narrow") == ["one", "three"]


def test_progress_of_a_loop(start, run):
    commands = """
@top.command("work")
def work():
    for number in progress(range(4), "lab\\x07"):
        wait_for("on")
    print("done")
"""
    user = ShellUser(start(SHELL % ('"> "', commands)), "> ")
    user.type("work<enter>", "> work", "lab^G: 0 of 4, 0 %")
    user.above = []
    for number in range(4):
        user.terminal.go("on")
    user.expect("> work", "done", "> ")
    user.type("work<enter>", "> work", "lab^G: 0 of 4, 0 %")
    user.terminal.send("<c-c>")
    user.expect("lab^G: 0 of 4, 0 %^C", "> ")
    user.leave("<c-d>")
    found = run("from keyline_shell import progress\n"
                "tell('sum', sum(progress(iter([1, 2]), 'x')))")
    assert found.one("sum") == 3 and found.stdout == b""


def test_a_progress_tells_at_most_ten_times_a_second(start):
    user = ShellUser(start(SHELL % ('"> "', """
now = [0.0]
@top.command("work")
def work():
    for number in progress(iter(range(1000)), "at", clock=lambda: now[0]):
        now[0] += 0.01
""")), "> ")
    user.type("work<enter>", "> work", "> ")
    assert 80 < len(re.findall(rb"at: \d+", user.terminal.display.raw)) <= 100
    user.leave("<c-d>")
