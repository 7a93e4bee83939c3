"""The table of keyline(7) that tells what becomes of the terminal when the process ends.

Each row is provoked in mid-line; then the settings are compared.
"""
import signal

import pytest

import manual
from log_file import append, wait_state

BEFORE = """
import Keyline
signal.signal(signal.SIGINT, signal.default_int_handler)
"""
CALLBACK = """
def complete(key, line):
    tell("called")
    %s
Keyline.readline(next_prompt(), complete)
"""
LOG = """
open("log", "w").close()
def news(descriptor, length):
    tell("called")
    %s
Keyline.loggingSyncEnabledIs("log", news)
Keyline.readline(next_prompt())
"""
THREAD = """
def other():
    wait_for("go")
    %s
beside(other)
Keyline.readline(next_prompt())
"""
WAIT = "wait_for('nothing')"
READ = "Keyline.readline(next_prompt())"
HANDLER = "def handler(*_): raise LookupError()\nsignal.signal(signal.SIGTERM, handler)\n"
WRONG_THREAD = THREAD % """\
ctypes.c_ulong.in_dll(ctypes.CDLL(Keyline.__file__), "readlineThreadId").value = 1
    tell("called")"""
SLOT = """
def complete(key, line):
    raise LookupError(line)
Keyline.readline(next_prompt(), complete)
try:
    Keyline.simpleReadline(next_prompt())
except EOFError:
    Keyline.readline(next_prompt(), complete)
"""
READER = """
beside(Keyline.readline, next_prompt())
wait_for("go")
"""


# What a user or another process does, each a function of the child

def sent(name):
    return lambda child: child.signal(getattr(signal, name))


def typed(keys):
    return lambda child: child.send(keys)


def go(child):
    child.go("go")


def called(then):
    """Calls the callable, by a key and by news; then acts while it runs."""
    def act(child):
        child.send("?")
        append(child, "news\n")
        child.expect_fact("called")
        then(child)
    return act


def noted(then):
    """Lets the other thread act, then acts."""
    def act(child):
        child.go("go")
        child.expect_fact("called")
        then(child)
    return act


def slot(child):
    """The first read ends; the callback fails in the second, and again in the third."""
    for prompt in range(2):
        child.send("<c-u><enter>" if prompt == 0 else "?")
        child.expect_prompt()
    child.send("ab")
    child.wait("the text", lambda: child.display.raw.endswith(b"3> ab"))
    child.send("?")


def news(child):
    append(child, "news\n")


def hang_up(child):
    child.hang_up()


def handled(child):
    child.signal(signal.SIGTERM)
    child.send("<enter>")


def signals(names):
    return [(READ, sent(name), name) for name in names]


ENDING = ("SIGTERM", "SIGHUP", "SIGQUIT")
FAULTS = ("SIGABRT", "SIGBUS", "SIGFPE", "SIGILL", "SIGSEGV", "SIGSYS", "SIGTRAP")
OTHERS = ("SIGALRM", "SIGUSR1", "SIGUSR2", "SIGXCPU", "SIGIO", "SIGPROF", "SIGVTALRM")
# The row: the ways to bring it about, each a script, an act and how the process ends.
ROWS = {
    "SIGTERM, SIGHUP, SIGQUIT": signals(ENDING),
    "the same, while a completion callback runs": [
        (CALLBACK % WAIT, called(sent(name)), name) for name in ENDING],
    "the same, while the log callable runs": [
        (LOG % WAIT, called(sent(name)), name) for name in ENDING],
    "SIGINT or SIGTSTP that nobody catches": [
        (READ, sent("SIGINT"), "SIGINT"), (READ, sent("SIGTSTP"), "SIGINT"),
        (READ, typed("<c-c>"), "SIGINT"), (READ, typed("<c-z>"), "SIGINT")],
    "a handler of the shell that raises": [
        (HANDLER + READ, handled, "exception")],
    "an exception of the completion callback": [
        (CALLBACK % "raise LookupError()", typed("?"), "exception")],
    "sys.exit() in the completion callback": [(CALLBACK % "sys.exit(3)", typed("?"), 3)],
    "an exception of the log callable": [
        (LOG % "raise LookupError()", called(typed("<enter>")), "exception")],
    "Ctrl-C or Ctrl-Z in the log callable": [
        (LOG % WAIT, called(typed(key)), "SIGABRT") for key in ("<c-c>", "<c-z>")],
    "an interrupt on another thread than recorded": [
        (WRONG_THREAD, noted(typed(key)), "SIGABRT") for key in ("<c-c>", "<c-z>")],
    "a log callable that cannot be called": [
        ("open('log', 'w').close()\nKeyline.loggingSyncEnabledIs('log', 5)\n" + READ, news,
         "SIGABRT")],
    "an exception over one that waits": [(SLOT, slot, "SIGABRT")],
    "SIGKILL": signals(["SIGKILL"]),
    ", ".join(FAULTS): signals(FAULTS),
    ", ".join(OTHERS): signals(OTHERS),
    "os._exit() in a callable or on another thread": [
        (CALLBACK % "os._exit(0)", typed("?"), 0), (LOG % "os._exit(0)", news, 0),
        (THREAD % "os._exit(0)", go, 0)],
    "os.abort(), a fatal error of the interpreter": [
        (CALLBACK % "os.abort()", typed("?"), "SIGABRT"),
        (CALLBACK % "ctypes.pythonapi.Py_FatalError(b'fatal')", typed("?"), "SIGABRT")],
    "another program in its place, by os.execv()": [
        (CALLBACK % "os.execv('/bin/true', ['true'])", typed("?"), 0),
        (THREAD % "os.execv('/bin/true', ['true'])", go, 0)],
    "the main thread ends while another one reads": [(READER, go, 0)],
    "any of these between two reads": [
        ("print(next_prompt() + 'ab', flush=True)\nwait_for('nothing')",
         sent(name), name) for name in ("SIGKILL", "SIGTERM", "SIGSEGV")],
    "the terminal is closed, SIGHUP by default": [(READ, hang_up, "SIGHUP")],
    "the terminal is closed, SIGHUP ignored": [
        ("signal.signal(signal.SIGHUP, signal.SIG_IGN)\nread()", hang_up, 0)],
}


def test_every_row_of_the_page_is_provoked():
    assert ["Em the end"] + list(ROWS) == list(manual.TABLES["deaths"])


def status(end):
    """The status of a Terminal's child that ended so."""
    if isinstance(end, int):
        return end
    return 1 if end == "exception" else -getattr(signal, end)


def quiet(setup):
    """The sanitizers take these signals unless told otherwise."""
    told = setup.sanitizer_environment().get("ASAN_OPTIONS")
    if not told:
        return None
    return {"ASAN_OPTIONS": told + "".join(":handle_%s=0" % name for name in (
        "abort", "sigbus", "sigfpe", "sigill", "segv", "sigtrap"))}


@pytest.mark.parametrize("label, way", [(label, index) for label in ROWS
                                        for index in range(len(ROWS[label]))])
def test_end(setup, start, label, way):
    script, act, end = ROWS[label][way]
    child = start(BEFORE + script, env=quiet(setup))
    child.end_stated = True
    child.expect_prompt()
    if "between" in label:
        child.wait("the text", lambda: b"ab" in child.display.raw)
    else:
        child.send("ab")
        child.expect_shown("ab")
        assert not child.settings()[3] & manual.COOKED
    act(child)
    child.wait("the end", lambda: child.status is not None)
    assert child.status == status(end)
    told = manual.TABLES["deaths"][label]
    if told == "gone":
        assert child.last_settings is None
    elif told == "left raw":
        assert not child.last_settings[3] & manual.COOKED
    else:
        assert told in ("given back", "as the shell had it")
        child.assert_settings_as_found()


def test_stopped(start):
    """The terminal stays raw meanwhile; continued, the line is drawn again and goes on."""
    child = start("read()")
    child.type("ab")
    child.signal(signal.SIGSTOP)
    wait_state(child, "T")
    assert not child.settings()[3] & manual.COOKED
    shown = len(child.display.raw)
    child.signal(signal.SIGCONT)
    child.wait("the line again", lambda: b"1> ab" in child.display.raw[shown:])
    child.send("c<enter>")
    child.expect_line("abc")
    child.expect_end()


@pytest.mark.parametrize("name", ["SIGPIPE", "SIGXFSZ"])
def test_signals_that_the_interpreter_ignores(start, name):
    child = start("read()")
    child.type("ab")
    child.signal(getattr(signal, name))
    child.send("c<enter>")
    child.expect_line("abc")
    child.expect_end()
