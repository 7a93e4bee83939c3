"""Reading one line: what comes back, and what the calls do and leave behind."""
import pytest

from reads import EOF, READERS, eof


# Lines typed at a terminal

@pytest.mark.smoke
@pytest.mark.parametrize("reader", READERS)
def test_edited_line(start, reader):
    child = start(reader)
    child.type("hxy<bs><bs>elo<left>l<end> world", "hello world")
    child.expect_cursor(0, 14)
    child.send("<c-a><c-d><c-e>")
    child.expect_shown("ello world")
    child.send("<enter>")
    child.expect_line("ello world")
    child.expect_end()


@pytest.mark.parametrize("reader", READERS)
@pytest.mark.parametrize("typed, line", [
    ("<enter>", ""), ("a<enter>", "a"), ("a<c-j>", "a"), (" a <enter>", " a "),
    ("x" * 300 + "<enter>", "x" * 300), ("a<c-u>b<enter>", "b"), ("one two<m-b>x<enter>",
                                                                "one xtwo"),
])
def test_line_without_its_terminator(start, reader, typed, line):
    child = start(reader)
    child.expect_prompt()
    child.send(typed)
    child.expect_line(line)
    child.expect_end()


@pytest.mark.smoke
def test_completed_line(start):
    """The callback gets the key and the line; its answer goes to the end of the line."""
    child = start("""
def complete(key, line):
    tell("asked", (key, line))
    return "\\b\\bed" if key == b"?" else "e-x"
read(complete)
""")
    child.expect_prompt()
    child.send("complet<left><tab>")
    child.expect_fact("asked", (b"\t", "complet"))
    child.expect_shown("complete-x", redrawn=True)
    child.send("?")
    child.expect_fact("asked", (b"?", "complete-x"))
    child.expect_shown("completeed", redrawn=True)
    child.send("<enter>")
    child.expect_line("completeed")
    child.expect_end()


def test_prompt_is_utf8(start):
    child = start("import Keyline; attempt(Keyline.readline, '1> gr\\u00fc\\u00df ')")
    child.expect_prompt()
    child.expect_shown("grüß")
    child.send("a<enter>")
    child.expect_line("a")
    child.expect_end()


def test_bytes_above_ascii_are_dropped(start):
    """The reader keeps a byte's sign, so it never becomes text; 0xff ends the input."""
    child = start("read(); read(); read()")
    child.enter("a<0xe9>b", "ab")
    child.expect_prompt()
    child.send("<0xff>")
    child.expect_raised(*EOF)
    child.enter("after")
    child.expect_end()


def test_reading_adds_nothing_to_the_history(start):
    child = start("""
import Keyline
for number in range(3):
    read(None, "mode", "")
tell("history", Keyline.history())
""")
    for line in ("one", "two", "<up>three"):
        child.enter(line, line.replace("<up>", ""))
    child.expect_fact("history", [])
    child.expect_end()


def test_other_threads_run_while_the_user_types(start):
    child = start("""
def other():
    wait_for("work")
    tell("worked", sum(range(1000)))
beside(other)
read()
""")
    child.type("ab")
    child.go("work")
    child.expect_fact("worked", 499500)
    child.send("c<enter>")
    child.expect_line("abc")
    child.expect_end()


# The end of the input

@pytest.mark.parametrize("reader", READERS)
def test_end_of_input(start, reader):
    """Ctrl-D ends the input only in an empty line; the next read works."""
    child = start(reader + "\n" + reader)
    child.type("ab<c-d><c-a><c-d>", "b")
    child.send("<c-e><bs><c-d>")
    child.expect_raised(*eof(reader))
    child.enter("ab")
    child.expect_end()


@pytest.mark.parametrize("reader", READERS)
def test_hang_up(start, reader):
    """The shell outlives its terminal, and is told of the loss as the end of the input."""
    child = start("signal.signal(signal.SIGHUP, signal.SIG_IGN)\n" + reader + "\n" + reader)
    child.type("ab")
    child.hang_up()
    child.expect_raised(*eof(reader))
    child.expect_raised(*eof(reader))
    child.expect_end()


# Arguments

def test_a_failed_call_leaves_its_callback_behind(start):
    """Parsing resets the callback first, then stores what it parsed before it failed."""
    child = start("""
import Keyline
def complete(key, line):
    return "-done"
read(complete)
for arguments in ((), ("", complete, 5)):
    raises(Keyline.readline, *arguments)
    simple_read(watched=False)
""")
    child.enter("a<tab>", "a-done")
    child.enter("a<tab>", "a")
    child.enter("a<tab>", "a-done")
    child.expect_end()


@pytest.mark.smoke
@pytest.mark.parametrize("arguments", [
    "None, 'one', ''", "None, 'one'", "None, 'three', 'one'"])
def test_history_key_chooses_the_mode(start, arguments):
    child = start("""
import Keyline
Keyline.keyBindingsEnabledIs(True)  # starts the editor, with our history behind it
Keyline.addHistory("of one", "one", "")
Keyline.addHistory("of two", "two", "")
read(%s)
read()
""" % arguments)
    child.type("<up>", "of one")
    child.send("<enter>")
    child.expect_line("of one")
    # No key: the mode stays.
    child.type("<up>", "of one")
    child.send("<enter>")
    child.expect_line("of one")
    child.expect_end()


def test_unknown_parent_means_no_mode_and_the_line_is_read(start):
    child = start("""
import Keyline
Keyline.keyBindingsEnabledIs(True)  # starts the editor, with our history behind it
Keyline.addHistory("of one", "one", "")
Keyline.addHistory("of two", "two", "")
read(None, "one")
read(None, "new", "nobody")
read(None, "new", "one")
""")
    for seen in ("of one", "of two", "of one"):
        child.type("<up>", seen)
        child.send("<enter>")
        child.expect_line(seen)
    child.expect_end()


# simpleReadline

@pytest.mark.parametrize("first", ["simple_read()", "read()\nsimple_read()"])
def test_simple_read_completes_file_names_only_before_set_up(start, first):
    """Alone it has the editor's own defaults; the module's set-up takes them away."""
    child = start("open('unique-name', 'w').close()\nimport Keyline\n" + first + """
tell("enabled", Keyline.keyBindingsEnabled())
read()
""")
    alone = first == "simple_read()"
    if not alone:
        child.enter("")
    child.enter("uniq<tab>x", "unique-name x" if alone else "uniqx")
    child.expect_fact("enabled", not alone)
    child.enter("uniq<tab>", "uniq")
    child.expect_end()


def test_simple_read_keeps_the_callback_and_the_mode(start):
    child = start("""
import Keyline
complete = lambda key, line: "-done"
Keyline.keyBindingsEnabledIs(True)  # starts the editor, with our history behind it
Keyline.addHistory("of one", "one", "")
Keyline.addHistory("of two", "two", "")
read(complete, "one", "")
simple_read(watched=False)
""")
    child.enter("")
    child.type("<up><tab>", "of one-done", redrawn=True)
    child.send("<enter>")
    child.expect_line("of one-done")
    child.expect_end()


def test_simple_read_records_no_thread(start):
    child = start("""
import ctypes, Keyline
thread = ctypes.c_ulong.in_dll(ctypes.CDLL(Keyline.__file__), "readlineThreadId")
simple_read()
tell("recorded", thread.value)
read()
beside(simple_read).join()
tell("recorded", thread.value == threading.get_ident())
""")
    for line in ("one", "two", "three"):
        child.enter(line)
    child.expect_fact("recorded", 0)
    child.expect_fact("recorded", True)
    child.expect_end()


# Set-up

def test_application_name_counts_from_the_second_set_up_on(start):
    """Deliberate: the name is set after the first editor has been made."""
    child = start("""
import Keyline
with open(os.path.join(os.environ["HOME"], ".editrc"), "w") as file:
    file.write("OrvaneCli:bind -s ^T named\\nbind -s ^Y any\\n")
read()
Keyline.resetInput()
read()
""")
    for line in ("any", "namedany"):
        child.enter("<c-t><c-y>", line)
    child.expect_end()


# The lock

def test_completion_outside_a_read_is_refused_by_the_check(start):
    """The exported command, called by a stranger, without the lock and without a read."""
    child = start("""
import ctypes, Keyline
complete = lambda key, line: None
read(complete)
ctypes.CDLL(Keyline.__file__).complete_line(1, 9)
""")
    child.enter("")
    child.expect_abort("savedPyThreadState != NULL", 57, "acquireGil")
