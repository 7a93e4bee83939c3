"""What a completion callback may do, and what may happen while it runs."""
import signal
import termios

import pytest

DONE = "def done(key, line): return '-done'\n"
BUSY = """
def busy():
    while True:
        sum(range(1000))
for number in range(3): beside(busy)
"""
WAITING = """
def complete(key, line):
    tell("asked", line)
    wait_for("answer")
    return "-done"
"""


@pytest.mark.parametrize("threads", ["", BUSY], ids=["alone", "busy"])
@pytest.mark.parametrize("number, how", [
    ("INT", "typed"), ("INT", "sent"), ("TSTP", "sent")])
def test_interrupt_while_the_callback_runs(start, number, how, threads):
    """The shell's own handler gets it; its exception ends the read; TAB works after it."""
    child = start(threads + DONE + """
def stopped(number, frame):
    raise LookupError("stopped")
def complete(key, line):
    tell("asked", line)
    while True:
        sum(range(100))
signal.signal(signal.SIGTSTP, stopped)
for number in range(2): read(complete)
read(done)
""")
    for again in range(2):
        child.expect_prompt()
        child.send("ab<tab>")
        child.expect_fact("asked", "ab")
        if how == "typed":
            child.send("<c-c>")
        else:
            child.signal(getattr(signal, "SIG" + number))
        child.expect_raised(*{"INT": ("KeyboardInterrupt", ""),
                              "TSTP": ("LookupError", "stopped")}[number])
    child.type("ab<tab>", "ab-done", redrawn=True)
    child.send("c")  # once it is shown, the module's handlers are surely back
    child.expect_shown("ab-donec", redrawn=True)
    child.send("<c-c>")
    child.expect_raised("KeyboardInterrupt", "Ctrl-C pressed")
    child.expect_end()


def test_dispositions_while_the_callback_runs(start):
    """For the two signals they are the shell's own, each time."""
    child = start("""
def two():
    return [row for row in dispositions()[0] if row[0] in ("SIGINT", "SIGTSTP")]
before = two()
def complete(key, line):
    tell("same", two() == before)
read(complete)
""")
    child.expect_prompt()
    child.send("<tab>??")
    for number in range(3):
        child.expect_fact("same", True)
    child.send("<enter>")
    child.expect_line("")
    child.expect_end()


@pytest.mark.parametrize("threads", ["", BUSY], ids=["alone", "busy"])
def test_keys_typed_while_the_callback_runs(start, threads):
    """They are read later, in order: text, another completion, the end of the line."""
    child = start(threads + WAITING + "read(complete)")
    child.expect_prompt()
    child.send("ab<tab>")
    child.expect_fact("asked", "ab")
    child.send("c<left>d<tab>e<enter>")
    child.go("answer")
    child.expect_fact("asked", "ab-donedc")
    child.go("answer")
    child.expect_line("ab-donedc-donee")
    child.expect_end()


def test_resize_while_the_callback_runs(start):
    child = start(WAITING + "read(complete)")
    child.expect_prompt()
    child.send("<tab>")
    child.expect_fact("asked", "")
    child.resize(24, 30)
    child.go("answer")
    child.send("x" * 50)
    child.expect_shown("-done" + "x" * 22, "x" * 28, redrawn=True)
    child.send("<enter>")
    child.expect_line("-done" + "x" * 50)
    child.expect_end()


def test_callback_that_prints(start):
    """Its rows begin at the left; prompt and line follow again."""
    child = start("""
def complete(key, line):
    print()
    for word in ("interface  a port", "ip         addresses"):
        print(word, flush=True)
read(complete)
""")
    child.expect_prompt()
    child.send("ab<left>?")
    child.wait_screen("the help", lambda rows: rows[:5] == [
        "1> ab", "interface  a port", "ip         addresses", "1> ab", ""])
    child.expect_cursor(0, 4)
    child.send("x<enter>")
    child.expect_line("axb")
    child.expect_end()


def test_callback_with_threads(start):
    """Others run while it waits for them; those that it starts and joins run as well."""
    child = start(BUSY + """
turn, turned = threading.Event(), threading.Event()
def other():
    while turn.wait():
        turn.clear()
        turned.set()
beside(other)
def complete(key, line):
    turn.set()
    tell("turned", turned.wait())
    turned.clear()
    sums = []
    threads = [threading.Thread(target=lambda: sums.append(sum(range(1000))))
               for number in range(3)]
    for thread in threads: thread.start()
    for thread in threads: thread.join()
    return "%d " % sum(sums)
read(complete)
""")
    child.expect_prompt()
    child.send("<tab>?<tab>")
    for number in range(3):
        child.expect_fact("turned", True)
    child.send("<enter>")
    child.expect_line("1498500 " * 3)
    child.expect_end()


def test_callback_that_calls_the_module(start):
    """The current read uses the history and the keys; both may change."""
    child = start("""
import Keyline
Keyline.keyBindingsEnabledIs(True)
Keyline.addHistory("old", "exec", "")
def complete(key, line):
    if key == b"?":
        Keyline.keyBindingsEnabledIs(False)
        tell("enabled", Keyline.keyBindingsEnabled())
        return None
    Keyline.newHistoryMode("sub", "exec")
    tell("added", Keyline.addHistory("new " + line, "exec", ""))
    tell("history", Keyline.history("sub"))
    Keyline.historyLimitIs(2)
    Keyline.TerminalWidthIs(100)
    Keyline.keyBindingsEnabledIs(True)
    return "-done"
read(complete, "exec", "")
read(complete, "exec", "")
""")
    child.expect_prompt()
    child.send("ab<up><tab>")
    child.expect_fact("added", True)
    child.expect_fact("history", ["old", "new old"])
    child.send("<tab>")
    child.expect_fact("added", True)
    child.expect_fact("history", ["new old", "new old-done"])
    child.send("<up>?")
    child.expect_fact("enabled", False)
    child.send("?<enter>")
    child.expect_line("new old?")
    child.type("x?<c-u><up>", "new old-done")
    child.send("<enter>")
    child.expect_line("new old-done")
    child.expect_end()


@pytest.mark.parametrize("then", ["", "    Keyline.keyBindingsEnabledIs(True)\n"],
                         ids=["alone", "and set up again"])
def test_reset_by_a_callback(start, then):
    """The current read may end in any way; the next one has a new editor."""
    child = start("""
import Keyline
def complete(key, line):
    Keyline.addHistory("old", "exec", "")
    Keyline.resetInput()
%s    tell("history", Keyline.history())
def done(key, line):
    return "-done"
read(complete)
read(done)
""" % then)
    child.expect_prompt()
    child.send("ab<tab>")
    child.expect_fact("history", [])
    child.send("c<enter>")
    child.expect_line("abc")
    child.enter("a<left>b<tab>", "ba-done")
    child.expect_end()


# References

# What the callback does, and whether the read goes on after it.
KINDS = {"none": ("None", True), "text": ("answer", True), "number": ("5", False),
         "raises": ("refuse(line)", False)}


@pytest.mark.parametrize("kind", KINDS)
def test_references_stay_where_they_were(setup, start, kind):
    """Of callback, answer, key, line and exceptions, and all memory of the interpreter.

    Sends bytes ahead of prompts: the terminal keeps them all, being raw from the start.
    """
    def no_lines(settings):
        settings[3] &= ~termios.ICANON

    expression, answered = KINDS[kind]
    count = 5000 if setup.sanitizer_logs else 100000
    child = start("""
import Keyline
class Refused(Exception):
    pass
answer = "\\bx"
calls, last = 0, None
def refuse(line):
    raise Refused(line)
def complete(key, line):
    global calls, last
    calls, last = calls + 1, line
    return %s
def run(count):
    global calls
    calls = 0
    while calls < count:
        try:
            Keyline.readline("1> ", complete)
        except (TypeError, Refused):
            pass
    return [sys.getallocatedblocks()] + [sys.getrefcount(thing) for thing in (
        complete, answer, b"\\t", last, None, 5, Refused, TypeError)]
before = run(100)
tell("warm")
after = run(%d)
tell("grown", [now - was for was, now in zip(before, after)])
""" % (expression, count), change_settings=no_lines)
    for times, fact in ((100, "warm"), (count, "grown")):
        child.send("x" + "<tab>" * times + "<enter>" if answered else "x<tab>" * times)
        grown = child.expect_fact(fact)
    assert max(grown) < 100, grown
    child.expect_end()


# During simpleReadline

def test_simple_read_before_any_callback(start):
    """The keys are bound and no readline call has said anything of a callback yet."""
    child = start("import Keyline; Keyline.keyBindingsEnabledIs(True); simple_read()")
    child.enter("scr<tab>?x", "scrx")
    child.expect_end()
    assert child.display.rows()[:2] == ["1> scrx", ""]


@pytest.mark.parametrize("name", ["SIGINT", "SIGTSTP"])
@pytest.mark.parametrize("handled", [False, True])
@pytest.mark.parametrize("interrupted", [False, True])
def test_simple_read_has_the_last_callback_and_the_modules_handlers(
        start, name, handled, interrupted):
    """The handlers come back although no landing is there: what was fatal is no more so.

    A function of the shell's own is called all the same. Where the read before was left
    for a landing, that is gone as well.
    """
    number = getattr(signal, name)
    handler = "lambda number, frame: tell('handled', number)" if handled else "signal.SIG_DFL"
    child = start(DONE + """
signal.signal(%d, %s)
read(done)
simple_read(watched=False)
read(done)
""" % (number, handler))
    for read in range(3):
        child.type("ab<tab>", "ab-done", redrawn=True)
        if read == 1 or read == 0 and interrupted:
            child.send("x")
            child.expect_shown("ab-donex", redrawn=True)
            child.signal(number)
            if read == 0:
                child.expect_raised("KeyboardInterrupt", "Ctrl-%s pressed"
                                    % ("C" if number == signal.SIGINT else "Z"))
                continue
            child.expect_shown("ab-donex")  # redrawn: the terminal is raw again
            child.send("<bs>")
        child.send("c<enter>")
        child.expect_line("ab-donec")
        if read == 1 and handled:
            child.expect_fact("handled", int(number))
    child.expect_end()


@pytest.mark.parametrize("second", ["read(fails)", "simple_read()"])
def test_full_slot(start, second):
    """The exception of a simple read waits for a normal end; a second one is fatal."""
    child = start("""
def fails(key, line):
    raise LookupError(line)
read(fails)
simple_read()
%s
""" % second)
    child.enter("")
    child.expect_prompt()
    child.send("ab<tab>")
    child.expect_raised("EOFError", "simpleReadline returned NULL")
    child.expect_prompt()
    child.send("cd<tab>")
    child.expect_abort("py_lhandler_ptype == NULL", 609, "complete_line")
