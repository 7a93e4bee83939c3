"""News of a log file while a line is typed: switching it on and off, and its delivery."""
import re
import select
import signal

import pytest

from log_file import append, wait_state
from reads import EOF

SCRIPT = """
import Keyline
for name in "log", "other": open(name, "w").close()

def news(descriptor, length):
    tell("news", os.read(descriptor, length).decode())

def on(): Keyline.loggingSyncEnabledIs("log", news)
def off(): Keyline.loggingSyncEnabledIs("log")
"""


# Switching on and off

SWITCHES = [  # arguments, and what the file "log" and the file "other" then have told
    ("'log'", None), ("'log', None", None), ("'nowhere'", None),
    ("'log', first", "first log"), ("'other', second", "first log"),
    ("'nowhere', 5", "first log"), ("'nowhere'", None),
    ("'other', second", "second other"), ("'log', first", "second other"),
    ("'', None", None), ("'log', second", "second log"),
]


@pytest.mark.smoke
def test_switching(start):
    """While it is on, another file or callable is ignored; off needs no right file name."""
    child = start(SCRIPT + """
def teller(name):
    return lambda number, length: tell("news", name + os.read(number, length).decode())
first, second = teller("first "), teller("second ")
for arguments in %r:
    tell("returned", eval("Keyline.loggingSyncEnabledIs(%%s)" %% arguments))
    read()
""" % ([arguments for arguments, told in SWITCHES],))
    for arguments, told in SWITCHES:
        child.expect_fact("returned", None)
        child.expect_prompt()
        for name in "log", "other":
            append(child, name + "\n", name=name)
        child.send("a<enter>")  # read after the news
        child.expect_line("a")
        if told:
            child.expect_fact("news", told + "\n")
        assert not any(name == "news" for name, value in child.facts), arguments
    child.expect_end()


@pytest.mark.parametrize("arguments, error, text", [
    ("", "TypeError", "at least 1 argument"), ("'log', news, 1", "TypeError", "at most 2"),
    ("5, news", "TypeError", "argument 1 must be str, not int"),
    ("b'log'", "TypeError", "bytes"), ("None, None", "TypeError", "str, not None"),
    ("'a\\0b', news", "ValueError", "null"),
    ("'\\ud800', None", "UnicodeEncodeError", "surrogates"),
    ("'log', callback=None", "TypeError", "takes no keyword arguments"),
])
def test_wrong_arguments_change_nothing(run, arguments, error, text):
    found = run(SCRIPT + """
on()
tell("raised", raises(lambda: Keyline.loggingSyncEnabledIs(%s)))
print("a line", file=open("log", "a"))
read()
""" % arguments)
    (name, message), end = found.results()
    assert name == error and text in message
    assert end == EOF and found.all("news") == ["a line\n"]


@pytest.mark.parametrize("prepare, mend, text", [
    ("os.unlink('log')", "open('log', 'w').close()", "No such file or directory"),
    ("os.unlink('log'); os.mkdir('log')", "os.rmdir('log'); open('log', 'w').close()",
     "Is a directory"),
    ("resource.setrlimit(resource.RLIMIT_NOFILE, (4, limit[1]))",
     "resource.setrlimit(resource.RLIMIT_NOFILE, limit)", "Too many open files"),
])
def test_file_that_cannot_be_watched(run, prepare, mend, text):
    """Only reported on standard error; it stays off, and a later call may try again."""
    found = run(SCRIPT + """
import resource
limit = resource.getrlimit(resource.RLIMIT_NOFILE)
%s
tell("returned", on())
%s
for again in range(2):
    print("a line", file=open("log", "a"))
    read()
    on()
""" % (prepare, mend))
    assert found.stderr.decode() == "create inotify event: %s\n" % text
    assert found.facts == [("returned", None), ("raised", EOF), ("news", "a line\n"),
                           ("raised", EOF)]


def test_reset_leaves_the_watched_file(start):
    """A new user at a new terminal sees its news."""
    child = start(SCRIPT + """
on()
read()
Keyline.resetInput()
sys.stdin = sys.stdout = os.fdopen(other_terminal, "r+b", buffering=0)
read()
""", other=True)
    child.enter("a")
    child.expect_prompt(child.other)
    append(child, "a line\n")
    child.expect_fact("news", "a line\n")
    child.send_other("b<enter>")
    child.expect_line("b")
    child.expect_end()


# Delivery

@pytest.mark.parametrize("held", ["stopped", "completing"])
def test_news_before_a_key_that_waits_too(start, held):
    child = start(SCRIPT + """
import select
def news(descriptor, length):
    keys = select.select([0], [], [], 0)[0]
    tell("news", (os.read(descriptor, length).decode(), keys))
def complete(key, line):
    tell("completing")
    wait_for("more")
on()
read(complete)
""")
    child.expect_prompt()
    if held == "stopped":
        child.signal(signal.SIGSTOP)
        wait_state(child, "T")
    else:
        child.send("<tab>")
        child.expect_fact("completing")
    append(child, "a line\n")
    child.send("x")
    child.wait("the key to arrive", lambda: select.select([child.slave], [], [], 0)[0])
    if held == "stopped":
        child.signal(signal.SIGCONT)
    else:
        child.go("more")
    child.expect_fact("news", ("a line\n", [0]))
    child.send("<enter>")
    child.expect_line("x")
    child.expect_end()


@pytest.mark.parametrize("value, drawn", [
    ("True", True), ("1", True), ("2", True), ("2**62", True), ("None", False),
    ("0", False), ("-5", False), ("False", False), ("-2**63", False),
])
def test_result_asks_for_a_redraw(start, value, drawn):
    """Drawn at the cursor, deliberately: code that prints must have left the row."""
    child = start(SCRIPT + """
def news(descriptor, length):
    tell("news", (type(descriptor).__name__, length, os.read(descriptor, 100).decode()))
    return %s
on()
read()
""" % value)
    child.type("abc<left>", "abc")
    child.expect_cursor(0, 5)
    append(child, "a line\n")
    child.expect_fact("news", ("int", 7, "a line\n"))
    if drawn:
        child.expect_shown("ab1> abc")
        child.expect_cursor(0, 10)
    else:
        child.send("x")
        child.expect_shown("abxc")
    child.send("<enter>")
    child.expect_line("abc" if drawn else "abxc")
    child.expect_end()


@pytest.mark.parametrize("reader, end", [
    ("readline", "<enter>"), ("simpleReadline", "<enter>"), ("readline", "<c-e><c-u><c-d>"),
    ("simpleReadline", "<c-e><c-u><c-d>"), ("readline", "<c-c>")])
@pytest.mark.parametrize("answer, error", [
    ("'text'", "TypeError"), ("1 / 0", "ZeroDivisionError"), ("10**30", "OverflowError"),
    ("sys.exit(3)", "SystemExit"),
])
def test_exception_stays_pending(start, reader, answer, error, end):
    """No redraw, nothing printed. Beside a line it makes the call an error, with it as the
    cause; an exception of the read itself replaces it.
    """
    child = start(SCRIPT + """
def news(descriptor, length):
    tell("news")
    return %s
def outcome(reader):
    try:
        tell("outcome", reader(next_prompt()))
    except BaseException as error:
        told = type(error).__name__, str(error), type(error.__cause__).__name__
        new_row()
        tell("outcome", told)
read()
on()
outcome(Keyline.%s)
outcome(Keyline.readline)
""" % (answer, reader))
    child.enter("")
    child.type("ab<left>", "ab")
    child.expect_cursor(0, 4)
    append(child, "a line\n")
    child.expect_fact("news")
    child.send("x")
    child.expect_shown("axb")
    child.send(end)
    told = child.expect_fact("outcome")
    if end == "<enter>":
        assert told[0] == "SystemError" and told[2] == error
        assert re.search(reader + r"> returned a result with an \w+ set", told[1])
    elif end == "<c-c>":
        assert told == ("KeyboardInterrupt", "Ctrl-C pressed", "NoneType")
    else:
        assert told == ("EOFError", reader + " returned NULL", "NoneType")
    child.expect_prompt()
    child.send("after<enter>")
    child.expect_fact("outcome", "after")
    child.expect_end()


@pytest.mark.parametrize("answer", ["10**6", "-10**6", "'text'", "10**30"])
def test_no_reference_is_kept(run, answer):
    """Deliberate for the callable, too: the shell keeps it alive while logging is on."""
    found = run(SCRIPT + """
def news(descriptor, length):
    seen.append(os.read(descriptor, length))
    return answer
def counts():
    return sys.getrefcount(news), sys.getrefcount(answer)
seen, answer = [], %s
before = counts()
on()
told = counts()
for number in range(20):
    print("a line", file=open("log", "a"))
    try:
        Keyline.readline("")
    except EOFError:
        pass
tell("counts", {before, told, counts()})
tell("seen", len(seen))
""" % answer)
    assert len(found.one("counts")) == 1 and found.one("seen") == 20


def test_news_after_an_exception(start):
    """In the same read the callable raises it, as soon as it does anything that may fail."""
    child = start(SCRIPT + """
def news(descriptor, length):
    global calls
    calls += 1
    return "text" + os.read(descriptor, length).decode()
calls = 0
on()
try:
    Keyline.readline(next_prompt())
except SystemError as error:
    while error.__cause__: error = error.__cause__
    tell("first", (type(error).__name__, calls))
""")
    child.expect_prompt()
    for shown in "a", "ab", "abc":
        append(child, "a line\n")
        child.send(shown[-1])
        child.expect_shown(shown)
    child.send("<enter>")
    child.expect_fact("first", ("TypeError", 3))
    child.expect_end()


@pytest.mark.parametrize("context", ["5", "'text'", "object()"])
def test_callable_is_checked_at_the_first_news(start, context):
    child = start(SCRIPT + "news = %s\non()\nread()\nread()" % context)
    child.enter("a")
    child.expect_prompt()
    append(child, "a line\n")
    child.expect_abort("PyCallable_Check( callback )", 678, "conlog_callback")


def test_interrupt_of_the_callable_in_a_simple_read(start):
    """There the shell's own handler is in force: its exception is the callable's."""
    child = start(SCRIPT + """
def news(descriptor, length):
    tell("news")
    while True: pass
read()
on()
try:
    Keyline.simpleReadline(next_prompt())
except SystemError as error:
    tell("cause", type(error.__cause__).__name__)
""")
    child.enter("")
    child.expect_prompt()
    append(child, "a line\n")
    child.expect_fact("news")
    child.signal(signal.SIGINT)
    child.send("ab<enter>")
    child.expect_fact("cause", "KeyboardInterrupt")
    child.expect_end()


def test_other_threads_run_during_the_callable(start):
    child = start(SCRIPT + """
def news(descriptor, length):
    tell("news")
    over.wait()
    tell("over")
def other():
    wait_for("work")
    tell("worked")
    over.set()
over = threading.Event()
beside(other)
on()
read()
""")
    child.expect_prompt()
    append(child, "a line\n")
    child.expect_fact("news")
    child.go("work")
    child.expect_fact("worked")
    child.expect_fact("over")
    child.send("a<enter>")
    child.expect_line("a")
    child.expect_end()
