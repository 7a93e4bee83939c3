"""A process that runs for months does not grow, whatever is done in whatever order.

One child at one terminal reads lines, is interrupted, completes, is reset, and follows a log
file now and then, in a random order with a fixed seed. Its memory and its descriptors at the
end are those after the first hundredth.

What a reset loses is known and counted apart: the two streams on the shell's files are
forgotten and not closed, for closing would close the files. That is 2,000 bytes with the C
library of Debian 12: 480 for each stream, 1,040 for the buffer of the one that is written to;
now and then malloc gives 16 more for one of them.
The child finds these streams in the C library's list, and puts them away without their files.

KEYLINE_LIFE=full asks for the whole. By default it is a hundredth, and the first half of
that is what the process gets warm in.
"""
import os

FULL = {"lines": 1000000, "interrupt": 100000, "completion": 100000, "reset": 10000,
        "switch": 1000}
WHOLE = os.environ.get("KEYLINE_LIFE") == "full"
COUNTS = FULL if WHOLE else {kind: count // 100 for kind, count in FULL.items()}
WARM = {kind: count // (100 if WHOLE else 2) for kind, count in COUNTS.items()}
BURST = 40  # lines that are typed at once, at most
SLACK = 64 * 1024
LOST = 2048  # bytes for each reset, at most

# Run on both sides, so that the child knows what it is about to be given. Of the generator
# only what gives the same numbers in every version is used.
SCHEDULE = """
import random

def schedule(counts, burst):
    dice = random.Random(1)
    left = dict(counts)
    while any(left.values()):
        # A burst is one step: its kind has as many steps left as it has bursts.
        steps = [(kind, count if kind != "lines" else 2 * count / burst)
                 for kind, count in sorted(left.items()) if count]
        point = dice.random() * sum(weight for kind, weight in steps)
        for kind, weight in steps:
            point -= weight
            if point < 0:
                break
        size = min(left[kind], 1 + int(dice.random() * burst)) if kind == "lines" else 1
        left[kind] -= size
        yield kind, size, int(dice.random() * 1000)

def text(number):
    return "show interfaces %d " % number + "x" * (number % 60)

COMPLETIONS = [  # what is typed, and what then is read
    ("sh<tab><enter>", "show"), ("xab<tab>y<enter>", "xcdy"), ("sh?<enter>", "sh"),
    ("long <tab><enter>", "long " + "word " * 60), ("fail<tab>", LookupError)]

def meant(kind, size, number):
    "The keys of a step, and what its reads give."
    if kind == "lines":
        if number % 10 == 0:  # a line comes back from the history
            return "<up><enter>" * size, None
        lines = [text(number + index) for index in range(size)]
        return "".join(line + "<enter>" for line in lines), lines
    if kind == "interrupt":
        key = "CZ"[number % 2]
        return text(number)[:number % 80] + "<c-%s>" % key.lower(), ["Ctrl-%s pressed" % key]
    if kind == "completion":
        keys, line = COMPLETIONS[number % len(COMPLETIONS)]
        return keys, [line]
    return text(number) + "<enter>", [text(number)]
"""

CHILD = """
import Keyline
import gc
import re

class Stream(ctypes.Structure):  # where the C library has these parts of its FILE
    _fields_ = [("_flags", ctypes.c_int), ("_places", ctypes.c_void_p * 6),
                ("buffer", ctypes.c_void_p), ("_others", ctypes.c_void_p * 5),
                ("chain", ctypes.c_void_p), ("fileno", ctypes.c_int)]

HEAD = ctypes.sizeof(ctypes.c_size_t)  # that malloc adds
libc.malloc_usable_size.restype = ctypes.c_size_t
libc.malloc_usable_size.argtypes = libc.fclose.argtypes = [ctypes.c_void_p]
lost = {"streams": 0, "bytes": 0}
watching = False
told = b""

def measured():
    "Bytes handed out, private bytes, descriptors."
    # Of the private bytes those that were written to: what was only read of a file comes and
    # goes with the system's memory.
    gc.collect()
    with open("/proc/self/smaps_rollup") as file:
        dirty = re.search(r"Private_Dirty: +([0-9]+) kB", file.read()).group(1)
    return allocated(), int(dirty) * 1024, len(os.listdir("/proc/self/fd"))

def put_away_lost_streams():
    "Those of earlier initialisations, so that pages that they share can be compared."
    standard = {ctypes.c_void_p.in_dll(libc, name).value
                for name in ("stdin", "stdout", "stderr")}
    address, found = ctypes.c_void_p.in_dll(libc, "_IO_list_all").value, []
    while address:
        if address not in standard:
            found.append(address)
        address = Stream.from_address(address).chain
    for address in found[2:]:  # the newest come first, and are in use
        stream = Stream.from_address(address)
        lost["streams"] += 1
        lost["bytes"] += sum(libc.malloc_usable_size(part) + HEAD
                             for part in (address, stream.buffer) if part)
        stream.fileno = os.open("/dev/null", os.O_RDWR)  # the shell's file stays open
        libc.fclose(address)

def news(descriptor, length):
    global told
    told += os.read(descriptor, length)
    return number % 2

def switch():
    global watching
    watching = not watching
    if not watching:
        os.truncate("log", 0)
        Keyline.loggingSyncEnabledIs("log")
    else:
        Keyline.loggingSyncEnabledIs("log", news)

def complete(key, line):
    if line == "fail":
        raise LookupError(line)
    if key == b"?":
        return None
    return {"sh": "ow", "xab": "\\b\\bcd", "long ": "word " * 60}[line]

def outcome(prompt):
    try:
        line = Keyline.readline(prompt, complete, MODES[number % 3], "exec")
    except LookupError:
        return LookupError
    except KeyboardInterrupt as error:
        return str(error)
    Keyline.addHistory(line, MODES[number % 3], "exec")
    return line

def one_step(step, kind, size, number):
    global told
    if kind == "reset":
        Keyline.resetInput()
    elif kind == "switch":
        switch()
    # News comes while it is on, and not afterwards. An interrupt in it would
    # end the process, deliberately.
    told = logged = b""
    if kind == "switch" or number % 3 == 0 and kind != "interrupt":
        logged = b"%d\\n" % number
        os.write(log, logged)
    given = [outcome("%d> " % step if index == 0 else "> ") for index in range(size)]
    wanted = meant(kind, size, number)[1]
    if wanted is not None and given != wanted or told != (logged if watching else b""):
        tell("wrong", ((step, kind, size, number), given, told))
        os._exit(70)
    if kind == "reset":
        put_away_lost_streams()

MODES = ["exec", "config", "interface"]
Keyline.newHistoryMode("exec", "")
Keyline.historyLimitIs(50)  # what grows is not the history
log = os.open("log", os.O_WRONLY | os.O_CREAT | os.O_APPEND)
before = settings(), dispositions()
done = dict.fromkeys(COUNTS, 0)
figures = []

def mark():
    "Without the log watch, which has memory and descriptors of its own."
    on = watching
    if on:
        switch()
    figures.append(measured())
    if on:
        switch()

number = 0
for step, (kind, size, number) in enumerate(schedule(COUNTS, BURST)):
    one_step(step, kind, size, number)
    done[kind] += size
    if not figures and all(done[kind] >= WARM[kind] for kind in WARM):
        mark()
mark()
if (settings(), dispositions()) != before:
    tell("changed", (before, (settings(), dispositions())))
tell("figures", (done, figures, lost))
wait_for("end")
"""


class Tail:
    """The end of what the terminal gets: drawing all of it would take minutes."""

    def __init__(self):
        self.text = bytearray()

    def feed(self, data):
        self.text += data
        del self.text[:-4096]

    def has(self, text):
        if text not in self.text:
            return False
        self.text.clear()
        return True


def test_long_life(start, setup):
    shared = {}
    exec(SCHEDULE, shared)
    child = start("COUNTS, WARM, BURST = %r, %r, %r\n" % (COUNTS, WARM, BURST) + SCHEDULE + CHILD,
                  # So that its account is complete, and what was freed does not count.
                  env={"PYTHONMALLOC": "malloc",
                       "GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"})
    tail = Tail()
    child.sources[child.master] = tail.feed
    for step, (kind, size, number) in enumerate(shared["schedule"](COUNTS, BURST)):
        prompt = b"%d> " % step
        child.wait("the prompt of step %d, %s" % (step, kind),
                   lambda prompt=prompt: tail.has(prompt) or child.facts)
        assert not child.facts, child.facts
        child.send(shared["meant"](kind, size, number)[0], size=4096)
    done, (early, late), lost = child.expect_fact("figures")
    print(done, early, late, lost)
    assert done == COUNTS
    assert lost["streams"] == 2 * COUNTS["reset"]
    # A sanitizer has its own account, and reports leaks itself.
    if not setup.sanitizer_logs:
        assert lost["bytes"] <= LOST * COUNTS["reset"]
        # The heap takes pages in steps, which weigh more in a short run.
        pages = 0 if WHOLE else 3 * SLACK
        assert late[0] - early[0] <= SLACK, (early, late)
        assert late[1] - early[1] <= SLACK + pages, (early, late)
    assert late[2] == early[2], "descriptors"
    child.go("end")
    child.expect_end()
