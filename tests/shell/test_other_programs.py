"""Programs that were written for input() and the standard module readline, on Keyline."""
import os

import pytest

from manual import expect_rows

# The program becomes the child's process, started as a user starts it.
RUN = """
signal.signal(signal.SIGINT, signal.SIG_DFL)
with open("program.py", "w") as file:
    file.write(%r)
os.execv(sys.executable, [sys.executable, "-m", "keyline_shell.readline"] + %r)
"""
SAID = "keyline_shell.readline: "


@pytest.fixture
def run_program(start):
    """run_program(text, ...): a Terminal; program.py holds the text."""
    return lambda text, *arguments, **options: start(
        RUN % (text, list(arguments or ["program.py"])), **options)


# --- Programs of the standard library ----------------------------------------------------


@pytest.mark.smoke
def test_pdb(run_program):
    child = run_program("def add(a, b):\n    c = a + b\n    return c\n\nprint(add(1, 2))\n",
                        "-m", "pdb", "program.py")
    expect_rows(child, "-> def add(a, b):", "(Pdb)")
    child.send("b 3<enter>")
    expect_rows(child, "Breakpoint 1 at %s/program.py:3" % child.home, "(Pdb)")
    child.send("c<enter>")
    expect_rows(child, "-> return c", "(Pdb)")
    child.send("wh<tab>")
    expect_rows(child, "-> return c", "(Pdb) wh")
    child.send("<tab>")
    expect_rows(child, "(Pdb) wh", "whatis  where", "(Pdb) wh")
    child.send("e<tab><c-u>p c<enter>")
    expect_rows(child, "(Pdb) p c", "3", "(Pdb)")
    child.send("half")
    expect_rows(child, "(Pdb) half")
    child.send("<c-c>")
    expect_rows(child, "(Pdb) half^C--KeyboardInterrupt--", "(Pdb)")
    child.send("interact<enter>for x in 1, 2:<enter>  print(c + x)<enter><enter>")
    expect_rows(child, ">>> for x in 1, 2:", "...   print(c + x)", "...", "4", "5", ">>>")
    child.send("<up><up><enter>")  # the debugger's lines and these are one history
    expect_rows(child, ">>> for x in 1, 2:", "...")
    child.send("<c-c>")
    expect_rows(child, "... ^C", "KeyboardInterrupt", ">>>")
    child.send("<c-d>")
    child.wait_screen("the debugger", lambda rows: [row for row in rows if row][-1] == "(Pdb)")
    child.send("q<enter>")
    child.expect_end()


@pytest.mark.smoke
def test_the_console_with_rlcompleter(run_program):
    child = run_program("""
import code, readline, rlcompleter
apple = apricot = 1
readline.set_completer(rlcompleter.Completer(globals()).complete)
readline.parse_and_bind("tab: complete")
code.interact("hello", local=globals(), exitmsg="bye")
""")
    expect_rows(child, "hello", ">>>")
    child.send("print(apr<tab>, ap<tab><tab>")
    expect_rows(child, ">>> print(apricot, ap", "apple    apricot", ">>> print(apricot, ap")
    child.send("<c-u>if apple:<enter><tab>'is it?'<enter><enter>")  # TAB at the start indents
    expect_rows(child, ">>> if apple:", "...     'is it?'", "...", "'is it?'", ">>>")
    child.send("<esc>[200~for x in 1, 2:<enter><tab>print(x + 1)<enter><enter><esc>[201~")
    expect_rows(child, ">>> for x in 1, 2:", "...     print(x + 1)", "...", "2", "3", ">>>")
    child.send("<c-d>")
    child.expect_end()
    assert b"\r\nbye\r\n" in child.display.raw
    assert child.display.raw.rindex(b"\x1b[?2004l") > child.display.raw.rindex(b"\x1b[?2004h")


# Of interpreters that have it; the others run what it does.
SQLITE = """
import code, sqlite3, sys, readline
class Console(code.InteractiveConsole):
    def runsource(self, source, filename="", symbol=""):
        if not sqlite3.complete_statement(source):
            return True
        for row in cursor.execute(source):
            print(row)
        return False
cursor = sqlite3.connect(":memory:").cursor()
sys.ps1, sys.ps2 = "sqlite> ", "    ... "
Console().interact("", exitmsg="")
"""


@pytest.mark.smoke
def test_the_shell_of_sqlite(setup, run_program):
    version = tuple(map(int, setup.version.split(".")))
    child = run_program(SQLITE, *["-m", "sqlite3"] if version >= (3, 12) else [])
    child.wait_screen("the prompt", lambda rows: "sqlite>" in rows)
    if version >= (3, 15):  # it completes: with TAB "?" is handed over, for the line's end
        child.send("sel<tab>1,<enter>'a?b'<enter>;<enter>")
        expect_rows(child, "sqlite> SELECT 1,", "    ... 'a?b'", "    ... ;", "(1, 'a?b')", "sqlite>")
    else:  # "?" is text, at the cursor
        child.send("select 1,<enter>'ab'<left><left>?<enter>;<enter>")
        expect_rows(child, "sqlite> select 1,", "    ... 'a?b'", "    ... ;", "(1, 'a?b')", "sqlite>")
    child.send("<c-d>")
    child.expect_end()


# --- Programs with a completer and a history of their own --------------------------------


CONTROL = """
import readline

def complete(text, state):
    line, begin = readline.get_line_buffer(), readline.get_begidx()
    assert line[begin:readline.get_endidx()] == text
    words = ["web:one", "web:two"] if begin else ["start", "status", "stop"]
    matches = [word + " " for word in words if word.startswith(text)]
    return matches[state] if state < len(matches) else None

try:
    readline.read_history_file("history")
except FileNotFoundError:
    pass
readline.set_history_length(2)
readline.set_completer_delims(readline.get_completer_delims().replace(":", ""))
readline.set_completer(complete)
readline.parse_and_bind("tab: complete")
try:
    while True:
        print(repr(input("ctl> ")))
except EOFError:
    readline.write_history_file("history")
"""


def test_a_control_program(run_program):
    child = run_program(CONTROL)
    expect_rows(child, "ctl>")
    child.send("sto<tab>we<tab><tab>")
    expect_rows(child, "ctl> stop web:", "web:one   web:two", "ctl> stop web:")
    child.send("t<tab>?<enter>")
    expect_rows(child, "ctl> stop web:two ?", "'stop web:two ?'", "ctl>")
    child.send("<up><enter>status<enter>help<enter>")
    expect_rows(child, "'help'", "ctl>")
    child.send("<c-d>")
    child.expect_end()
    with open(os.path.join(child.home, "history"), encoding="utf-8") as file:
        assert file.read() == "status\nhelp\n"


def test_a_cmd_program_and_its_history_file(run_program):
    child = run_program("""
import cmd, readline
class Program(cmd.Cmd):
    prompt = "\\x1b[1mdo>\\x1b[0m "
    def do_greet(self, text): print("hello,", text)
    def do_great(self, text): pass
    def do_EOF(self, text): return True
    def complete_greet(self, text, line, begin, end):
        assert (line[begin:end], begin) == (text, 6), (line, begin, end)
        return [name for name in ("anna", "otto") if name.startswith(text)]
readline.add_history("greet everybody")
Program().cmdloop("welcome")
""")
    expect_rows(child, "welcome", "do>")
    child.send("gre<tab><tab>")
    expect_rows(child, "do> gre", "great  greet", "do> gre")
    child.send("e<tab> o<tab><enter>")
    expect_rows(child, "do> greet otto", "hello, otto", "do>")
    child.send("<up><up><enter>")
    expect_rows(child, "do> greet everybody", "hello, everybody", "do>")
    child.send("x" * 76 + "<c-a>y")  # the colours of the prompt take no column
    expect_rows(child, "do> y" + "x" * 75, "x")
    child.send("<c-u>?greet<enter>")
    expect_rows(child, "do> ?greet", "*** No help on greet", "do>")
    child.send("<c-d>")
    child.expect_end()


OWN = """
import keyline_shell.cmd

class Program(keyline_shell.cmd.Cmd):
    prompt = "\\x1b[1mdo>\\x1b[0m "
    def do_greet(self, name):
        \"\"\"Say hello.

        A name may follow.
        \"\"\"
        print("hello,", name)
    def do_great(self, text):
        Inner().cmdloop()
    def do_EOF(self, text):
        print("bye")
        return True
    def complete_greet(self, text, line, begin, end):
        assert (line[begin:end], begin) == (text, 6), (line, begin, end)
        return [name for name in ("anna", "olga", "otto") if name.startswith(text)]

class Inner(Program):
    prompt = "in> "
    history_parent = "Program"
    def complete_great(self, *_):
        raise ValueError("broken")

Program().cmdloop("welcome")
"""
HELP = '  help   List available commands with "help" or detailed help with "help cmd".'


def test_a_cmd_program_with_help_and_completion(run_program):
    child = run_program(OWN)
    expect_rows(child, "welcome", "do>")
    child.send("?")
    expect_rows(child, "do> ?", "  great", "  greet  Say hello.", HELP, "do>")
    child.send("gre?")
    expect_rows(child, "do> gre?", "  great", "  greet  Say hello.", "do> gre")
    child.send("<tab>")
    expect_rows(child, "do> gre", "great  greet", "do> gre")
    child.send("e<tab>?")
    expect_rows(child, "do> greet ?", "Say hello.", "", "A name may follow.",
                "anna  olga  otto", "do> greet")
    child.send("o<tab>t<tab><enter>")
    expect_rows(child, "do> greet otto", "hello, otto", "do>")
    child.send("what?")
    expect_rows(child, "do> what?", "*** Unknown syntax: what", "do> what")
    child.send("\u00fc?")  # which cuts it within the letter
    expect_rows(child, "do> what\u00fc", "*** No help after letters outside ASCII", "do>")
    child.send("<up>\u00fcr<tab>")
    expect_rows(child, "*** No help after letters outside ASCII", "do> what\u00fcr")
    child.send("<c-c>")
    expect_rows(child, "do> what\u00fcr^C", "do>")
    child.send("great<enter>")
    expect_rows(child, "do> great", "in>")
    child.send("great <tab>")
    expect_rows(child, "in> great", "*** broken", "in> great")
    child.send("<c-u>greet you<enter><up><up><up>")  # also the lines of the program around it
    expect_rows(child, "hello, you", "in> what")
    child.send("<c-z>")
    expect_rows(child, "in> what^Z", "in>")
    child.send("<c-d>")
    expect_rows(child, "in> ^Dbye", "do>")
    child.send("<up>")  # and not those of the program within it
    expect_rows(child, "in> ^Dbye", "do> great")
    child.send("<c-u><c-d>")
    child.expect_end()


def test_a_cmd_program_without_a_terminal(run):
    found = run(OWN, stdin=b"greet you\n\ngreat\ngreet me")
    assert found.stdout == b"welcome\nhello, you\nhello, you\nhello, me\nbye\nbye\n"


def test_many_completions_are_counted_first(run_program):
    child = run_program("""
import readline
words = ["n%03d" % number for number in range(101)] + ["other"]
readline.set_completer(lambda text, state: [
    word for word in words if word.startswith(text)][state])
input("> ")
""", rows=60)
    expect_rows(child, ">")
    child.send("<tab><tab>")
    expect_rows(child, "102 possibilities; TAB shows them", ">")
    child.send("<tab>")
    child.wait_screen("the list", lambda rows: any("n000" in row and "other" not in row for row in
                                                   rows) and any("other" in row for row in rows))
    child.send("n00<tab><tab>")
    expect_rows(child, "> n00", "n000  n001  n002  n003  n004  n005  n006  n007  n008  n009",
                "> n00")
    child.send("<enter>")
    child.expect_end()


def test_matches_shown_by_the_program(run_program):
    """What it draws again itself is not there twice."""
    child = run_program("""
import readline
readline.parse_and_bind("set show-all-if-ambiguous on")
readline.set_completer(lambda text, state: ["alpha", "alps", None][state])
def show(word, matches, longest):
    print("\\n%s: %s, %d" % (word, ", ".join(matches), longest))
    print("> " + readline.get_line_buffer(), end="", flush=True)
    readline.redisplay()
readline.set_completion_display_matches_hook(show)
input("> ")
""")
    expect_rows(child, ">")
    child.send("alp<tab>")
    expect_rows(child, "> alp", "alp: alpha, alps, 5", "> alp")
    child.send("<enter>")
    child.expect_end()


# --- input() ------------------------------------------------------------------------------


def test_signal_handlers_of_the_program(start):
    child = start("""
from keyline_shell import readline
readline.install()
signal.signal(signal.SIGINT, lambda *_: tell("interrupted"))
tell("read", input("two\\nrows> "))
signal.signal(signal.SIGINT, signal.SIG_IGN)
tell("read", input("> "))
signal.signal(signal.SIGINT, signal.default_int_handler)
signal.signal(signal.SIGTSTP, lambda *_: tell("stopped"))
try:
    input("last> ")
except KeyboardInterrupt:
    tell("raised", readline.get_current_history_length())
""")
    expect_rows(child, "two", "rows>")
    child.send("a")
    expect_rows(child, "two", "rows> a")
    child.send("<c-c>")
    child.expect_fact("interrupted")
    expect_rows(child, "two", "rows> a^C", "rows>")
    child.send("b<enter>")
    child.expect_fact("read", "b")
    expect_rows(child, "rows> b", ">")
    child.send("<c-c>")
    expect_rows(child, "> ^C", ">")
    child.send("c<enter>")
    child.expect_fact("read", "c")
    expect_rows(child, "> c", "last>")
    child.send("<c-z>")
    child.expect_fact("stopped")
    expect_rows(child, "last> ^Z", "last>")
    child.send("<c-c>")
    child.expect_fact("raised", 2)
    child.expect_end()


@pytest.mark.plain_only("bash keeps some memory to its end")
def test_a_program_is_stopped_and_goes_on(start):
    """A shell with job control is its parent."""
    child = start("""
with open("program.py", "w") as file:
    file.write("print(repr(input('> ')))")
os.environ["PS1"] = "shell$ "
os.execv("/bin/bash", ["bash", "--norc", "--noprofile", "-i"])
""")
    expect_rows(child, "shell$")
    child.send(child.setup.interpreter + " -m keyline_shell.readline program.py<enter>")
    child.wait_screen("the prompt", lambda rows: ">" in rows)
    child.send("half")
    child.wait_screen("the line", lambda rows: "> half" in rows)
    child.send("<c-z>")
    child.wait_screen("the shell", lambda rows: any("Stopped" in row for row in rows))
    child.send("fg<enter>whole<enter>")
    expect_rows(child, "'whole'", "shell$")
    child.send("exit<enter>")
    child.expect_end()


def test_a_history_that_is_there_stays_and_a_long_one_is_kept(start):
    """A shell of its own may be read beside it."""
    child = start("""
import Keyline
from keyline_shell import readline
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory("the shell's", "exec", "")
for number in range(1100):
    readline.add_history("line %d" % number)
readline.input("> ")
tell("shell", Keyline.history("exec"))
tell("oldest", Keyline.history("readline")[0])
Keyline.resetInput()  # at the end of its session
readline.input("next> ")
""")
    expect_rows(child, ">")
    child.send("<up>")
    expect_rows(child, "> line 1099")
    child.send("<enter>")
    child.expect_fact("shell", ["the shell's"])
    child.expect_fact("oldest", "line 0")
    expect_rows(child, "next>")
    child.send("<up><up>")
    expect_rows(child, "next> line 1098")
    child.send("<enter>")
    child.expect_end()


def test_threads_wait_for_each_other_and_a_read_within_a_read_is_refused(start):
    child = start("""
from keyline_shell import readline
readline.install()
def complete(text, state):
    tell("within", raises(input))
    return None
readline.set_completer(complete)
threads = [beside(lambda: tell("read", input("> "))) for _ in range(2)]
for thread in threads:
    thread.join()
""")
    expect_rows(child, ">")
    child.send("<tab>")
    child.expect_fact("within", ("RuntimeError", "can't re-enter readline"))
    for line in "one", "two":
        child.send(line + "<enter>")
        child.expect_fact("read", line)
    child.expect_end()


def test_without_a_terminal_it_is_the_builtin(run):
    found = run("""
from keyline_shell import readline
readline.install()
import readline as standard
tell("same", standard is readline)
tell("read", input("> "))
tell("raised", raises(input))
tell("count", readline.get_current_history_length())
""", stdin=b"one\n")
    assert found.one("same")
    assert found.one("read") == "one"
    assert found.one("raised") == ("EOFError", "EOF when reading a line")
    assert found.one("count") == 0
    assert found.stdout == b"> "


# --- What is missing ---------------------------------------------------------------------


def test_what_cannot_be_had_is_said_once(run_program):
    child = run_program("""
import readline
for line in "tab: complete", "set editing-mode emacs", "# nothing", "C-x: undo", "C-y: redo":
    readline.parse_and_bind(line)
readline.read_init_file()
readline.set_startup_hook(lambda: readline.insert_text("ready"))
for number in range(2):
    print(repr(input("> ")))
""")
    expect_rows(child, SAID + "keys are bound in the editor settings, see keyline(7)",
                SAID + "a line cannot start with text: Up recalls it", ">")
    child.send("<up>/<tab><enter>")  # no file's name: it is text
    expect_rows(child, "> ready/", "'ready/\\t'", ">")
    child.send("<up><up>?<enter>")
    expect_rows(child, "> ready/        ?", "'ready/\\t?'")
    child.expect_end()


def test_the_line_is_not_known_on_another_thread(start):
    child = start("""
from keyline_shell import readline
readline.install()
def look():
    wait_for("go")
    for number in range(2):
        tell("line", readline.get_line_buffer())
        readline.redisplay()
beside(look)
input("> ")
""")
    expect_rows(child, ">")
    child.send("x")
    expect_rows(child, "> x")
    child.go("go")
    child.expect_fact("line", "")
    child.expect_fact("line", "")
    child.send("<enter>")
    child.expect_end()
    for what in "known", "redrawn":
        assert child.display.raw.count(b"%s the line is %s only" % (
            SAID[:-1].encode(), what.encode())) == 1


def test_completion_behind_letters_outside_ascii(run_program):
    child = run_program("""
import readline
readline.set_completer(lambda text, state: ["never", None][state])
for number in range(3):
    print(repr(input("> ")))
""")
    expect_rows(child, ">")
    child.send("\u00fcber?<tab><enter>")
    expect_rows(child, SAID + "no completion after letters outside ASCII",
                "> \u00fcber?", "'\u00fcber?'", ">")
    child.send("gr\u00f6\u00dfe?")
    expect_rows(child, "> gr\u00f6\u00dfe",
                "no completion here; Up brings back what is left of the line", ">")
    child.send("<up>\u00df<enter>")
    expect_rows(child, "> gr\u00f6\u00df", "'gr\u00f6\u00df'", ">")
    child.send("<up><up><enter>")  # what was left is no line of the program's
    expect_rows(child, "> \u00fcber?", "'\u00fcber?'")
    child.expect_end()


@pytest.mark.parametrize("utf8, line, recalled", [
    ("0", "\xfcber?\tx", "\xfcber?\tx"), ("1", "\udcfcber?\tx", "?ber?\tx")])
def test_letters_of_another_locale(run_program, single_byte_locale, utf8, line, recalled):
    """They are read, and nothing is completed, whatever the interpreter takes them for."""
    child = run_program("""
import readline
readline.set_completer(lambda text, state: ["never", None][state])
for number in range(2):
    print(ascii(input("> ")))
""", env=dict(single_byte_locale, PYTHONUTF8=utf8))
    expect_rows(child, ">")
    child.send("<0xfc>ber?<tab>x<enter>")
    child.wait("the line", lambda: ascii(line).encode() in child.display.raw)
    child.send("<up><enter>")
    child.expect_end()
    assert child.display.raw.rstrip().endswith(ascii(recalled).encode())


# --- Histories, as the standard module has them ------------------------------------------


def test_histories(run):
    """Values that the standard module gives, too."""
    found = run(r"""
from keyline_shell import readline
def all(): return [readline.get_history_item(number) for number in range(6)]
def held(): return open("file", "rb").read()
for line in "one", "two", "two", "", "drei \u00fc":
    readline.add_history(line)
tell("all", all())
tell("wrong", [raises(readline.remove_history_item, 9), raises(readline.remove_history_item, -1),
               raises(readline.replace_history_item, 9, "x"), raises(readline.add_history, 1)[0],
               raises(readline.append_history_file, 1, "none")[0],
               raises(readline.read_history_file, "none")[0],
               raises(readline.set_completer, 1)])
readline.remove_history_item(1)
readline.replace_history_item(0, "eins")
tell("all", all())
os.umask(0)
open("file.%d" % os.getpid(), "w").close()
readline.write_history_file("file")
tell("rights", oct(os.stat("file").st_mode))
os.chmod("file", 0o640)
os.symlink("file", "link")
readline.append_history_file(1, "link")
readline.set_history_length(3)
readline.append_history_file(2, "link")
tell("held", held())
readline.set_history_length(2)
readline.write_history_file("link")
tell("held", held())
tell("rights", oct(os.stat("file").st_mode))
tell("link", os.path.islink("link"))
tell("files", sorted(os.listdir(".")))
open("file", "wb").write(b"a\n\nb\xff\nc\n")
readline.clear_history()
readline.read_history_file("file")
tell("all", all())
readline.write_history_file("/dev/null")
readline.set_history_length(-1)
readline.write_history_file()
tell("home", open(os.environ["HOME"] + "/.history", "rb").read())
""")
    assert found.all("all") == [
        [None, "one", "two", "two", "", "drei \u00fc"],
        [None, "eins", "two", "", "drei \u00fc", None],
        [None, "a", "b\udcff", "c", None, None]]
    assert found.one("wrong") == [
        ("ValueError", "No history item at position 9"),
        ("ValueError", "History index cannot be negative"),
        ("ValueError", "No history item at position 9"), "TypeError", "FileNotFoundError",
        "FileNotFoundError", ("TypeError", "set_completer(func): argument not callable")]
    letters = "drei \u00fc\n".encode()
    assert found.all("held") == [letters + b"\n" + letters, b"\n" + letters]
    assert found.all("rights") == ["0o100600", "0o100640"]
    assert found.one("link")
    assert found.one("files") == ["file", "link", "script.py"]
    assert found.one("home") == b"a\nb\xff\nc\n"


# --- How it is started -------------------------------------------------------------------


@pytest.mark.parametrize("arguments,said", [
    (["none.py"], SAID + "no such file: none.py"),
    (["-m", "no.such"], SAID + "no module named no.such"),
    ([], "usage: python3 -m keyline_shell.readline PROGRAM [ARGUMENT...]")])
def test_nothing_to_run(run, arguments, said):
    found = run("""
from keyline_shell import readline
readline.main(%r)
""" % (arguments,), end="exception")
    assert found.stderr.decode().splitlines()[0] == said


def test_what_a_program_finds(run):
    """Its arguments, its folder first where it imports from, its name; a folder runs as well."""
    found = run("""
os.mkdir("folder")
for path in "folder/beside.py", "folder/__main__.py", "folder/program.py":
    with open(path, "w") as file:
        file.write("import sys; print(__name__, sys.argv[1:], sys.path[0])\\n"
                   + "import beside\\n" * (path != "folder/beside.py"))
from keyline_shell import readline
for what in ["folder/program.py", "1"], ["folder", "2"]:
    sys.modules.pop("beside", None)
    readline.main(what)
    sys.path[0] = "elsewhere"
tell("home", os.path.realpath("folder"))
""")
    folder = found.one("home")
    assert found.stdout.decode().splitlines() == [
        "__main__ ['1'] " + folder, "beside ['1'] " + folder,
        "__main__ ['2'] folder", "beside ['2'] folder"]
