"""What is measured of each peer: functions from a peer to values by the name of their row.

Times are in microseconds where the row does not say otherwise. A function that a peer is no
match for returns nothing. Growth is measured with the same functions; see growth.py.
"""
import time
import zlib


WIDTH = 40  # characters of a typed line; with the prompt it stays on one row
TEXT = b"abcdefghijklmnopqrstuvwxyz"
LETTERS = "\u00e4\u00f6\u00fc\u00df\u00e9\u00e8\u00f1\u00e7\u00e5\u00f8".encode()
UP, HOME, END = b"\x1b[A", b"\x01", b"\x05"
LEFT = b"\x02"
REVERSE, ABORT, KILL = b"\x12", b"\x07", b"\x15"
OLDEST, FOUND = b"needle", b"XYWXYWXYW"  # what the oldest line begins and ends with


def text(length):
    return (TEXT * (length // len(TEXT) + 1))[:length]


def pause(peer):
    """How long after the echo the next key comes."""
    return 0.01 if peer.slow else 0.005


def median(values):
    values = sorted(values)
    half = len(values) // 2
    return values[half] if len(values) % 2 else (values[half - 1] + values[half]) / 2


def type_line(session, peer):
    """A line of 40 keys, each handled alone, and Enter."""
    before, sent = session.cpu(), session.taken
    session.keys(text(WIDTH), pause(peer))
    typed, echoed = session.cpu(), session.taken
    time.sleep(pause(peer))
    wall = session.enter()
    return {"key": (typed - before) / 1000 / WIDTH, "key bytes": (echoed - sent) / WIDTH,
            "enter": wall / 1000, "enter cpu": (session.cpu() - typed) / 1000,
            "enter bytes": session.taken - echoed}


def complete(session, peer, key):
    """TAB to the completed word: its processor time, and the bytes sent."""
    session.keys(b"sho", pause(peer))
    before, sent = session.cpu(), session.taken
    session.burst(key, b"w")
    used, shown = session.cpu() - before, session.taken - sent
    session.key(KILL, pause(peer))
    return used / 1000, shown


def count_bytes(session, peer):
    """What some other keys send to the terminal."""
    values = {}
    for name, before, key in (("up bytes", b"", UP), ("erase bytes", text(WIDTH), b"\x7f"),
                              ("insert bytes", text(WIDTH) + HOME, b"x")):
        session.keys(before, 0)
        sent = session.taken
        session.key(key, pause(peer))
        values[name] = session.taken - sent
        session.keys(END + KILL if name == "insert bytes" else KILL)
    return values


def to_middle(session, length):
    """Types so many characters, in pieces that the terminal takes, and goes half back."""
    for at in range(0, length, 500):
        session.send(text(length)[at:at + 500])
        session.rest()
    session.send(b"\x1b%d" % (length // 2) + LEFT)
    session.rest()


def middle_bytes(session, peer, keys=10):
    """What a key in the middle of 60 characters sends, all of them in one row."""
    to_middle(session, 60)
    sent = session.taken
    session.keys(b"x" * keys, pause(peer))
    sent = session.taken - sent
    session.send(END + KILL)
    session.rest()
    return {"middle bytes": sent / keys}


def middle(peer, scale, length=10000, keys=30):
    """A key in the middle of a line of many rows, each handled alone."""
    if peer.slow or not peer.recalls:
        return {}
    with peer.at_prompt() as session:
        to_middle(session, length)
        session.keys(b"x", pause(peer))
        before = session.cpu()
        session.keys(b"x" * keys, pause(peer))
        return {"middle 10000": (session.cpu() - before) / 1000 / keys}


def paced(session, peer, number):
    """Keys that are each handled alone, as a user's are: a line and a completion."""
    values = type_line(session, peer)
    if peer.recalls and (number % 2 or peer.slow):
        values["tab"], values["tab bytes"] = complete(session, peer, b"\t")
    elif peer.recalls:
        values["tab alone"] = complete(session, peer, peer.completes_alone)[0]
    return values


def paste(peer, scale):
    """2,000 lines of 60 characters as fast as the terminal takes them, and all intact."""
    count = scale(40 if peer.slow else 2000, 20)
    lines = [b"%06d" % number + text(54) for number in range(count)]
    with peer.at_prompt() as session:
        typed = b"".join(line + b"\r" for line in lines) + b"#report\r"
        before, start = session.cpu(), time.perf_counter()
        fact = session.pour(typed)
        took = time.perf_counter() - start
        session.rest()
        used = session.cpu() - before
    whole = [count, 60 * count, zlib.adler32(b"".join(line + b"\n" for line in lines))]
    return {"paste": count / took, "paste cpu": used / 1000 / (61 * count),
            "paste intact": int(fact == whole)}


def letters(peer, scale):
    """Letters of two bytes, each typed alone, and pasted; of peers that read them at all."""
    line = LETTERS * 4
    with peer.at_prompt() as session:
        count = scale(20 if peer.slow else 1000, 10)
        before = session.cpu()
        fact = session.pour((line + b"\r") * count + b"#report\r")
        session.rest()
        if fact != read_whole(line, count):
            return {}
        values = {"letter paste": (session.cpu() - before) / 1000 / ((WIDTH + 1) * count)}
    with peer.at_prompt() as session:
        count, used = scale(10, 2), 0
        for _ in range(count):
            before = session.cpu()
            for at in range(0, len(line), 2):
                session.key(line[at:at + 2], pause(peer))
            used += session.cpu() - before
            session.enter()
    values["letter"] = used / 1000 / (count * WIDTH)
    return values


def read_whole(line, count):
    """What a peer reports that has read the line so often, with all its bytes."""
    return [count, len(line) * count, zlib.adler32((line + b"\n") * count)]


def one_line(peer, length):
    """One line of so many characters: its processor time in milliseconds, if intact."""
    if peer.slow and length > 10000:
        return None
    with peer.at_prompt() as session:
        before = session.cpu()
        fact = session.pour(text(length) + b"\r#report\r")
        session.rest()
        used = session.cpu() - before
    whole = [1, length, zlib.adler32(text(length) + b"\n")]
    return used / 1e6 if fact == whole else None


def long_lines(peer, scale):
    values = {"line 10000": one_line(peer, 10000), "line 100000": one_line(peer, 100000)}
    return {name: value for name, value in values.items() if value is not None}


def search(peer, lines, scale, **options):
    """Ctrl-R to the oldest line, in ms: for a word at once, and for the key that finds."""
    at_once, last = [], []
    with peer.at_prompt(lines=lines, **options) as session:
        for _ in range(scale(3)):
            for typed, rest, times in ((REVERSE, OLDEST, at_once),
                                       (REVERSE + OLDEST[:2], OLDEST[2:3], last)):
                for at in range(len(typed)):
                    session.key(typed[at:at + 1], pause(peer))
                start = time.perf_counter()
                session.send(rest)
                session.wait(FOUND)
                times.append(time.perf_counter() - start)
                session.rest()
                session.send(ABORT)
                session.rest()
                session.send(KILL)
                session.rest()
    return 1000 * median(at_once), 1000 * median(last)


def searches(peer, scale):
    values = {}
    if peer.recalls:
        for lines in (1000, 10000, 100000):
            if peer.slow and lines > 10000:
                continue
            names = "search %d" % lines, "search key %d" % lines
            values.update(zip(names, search(peer, lines, scale)))
    return values


def held_up(peer, scale, steps=1000, **options):
    """Up, so often at once that the oldest line is shown."""
    if not peer.recalls:
        return {}
    steps = steps if not peer.slow else 200
    with peer.at_prompt(lines=steps, **options) as session:
        before, start = session.cpu(), time.perf_counter()
        session.send(UP * steps)
        session.wait(FOUND)
        took = time.perf_counter() - start
        session.rest()
        used = session.cpu() - before
    return {"up": 1e6 * took / steps, "up cpu": used / 1000 / steps}


def add(peer, scale, lines=100000):
    if not peer.recalls or peer.kind == "c" and lines == 0:
        return {}
    with peer.start(lines=lines, timed=scale(10000)) as session:
        return {"add": session.fact()[0] / 1000}


def memory(peer, scale, lines=100000):
    """Private bytes per line of the history, of 12 to 35 characters."""
    if not peer.recalls:
        return {}
    sizes = []
    for count in (0, lines):
        with peer.at_prompt(lines=count) as session:
            sizes.append(session.private())
    return {"memory": 1024 * (sizes[1] - sizes[0]) / lines}


# Against the bare interpreter ------------------------------------------------------------


def start_once(peer):
    with peer.smallest() as session:
        session.wait(b">")
        took = time.perf_counter_ns() - session.started
        session.rest()
        return took / 1e6, session.cpu() / 1e6


def start(peer, bare):
    """Milliseconds to the first prompt over the bare interpreter's, taken in turn."""
    mine, its = start_once(peer), start_once(bare)
    return {"start": mine[0] - its[0], "start cpu": mine[1] - its[1]}


def mean_private(peer, count):
    """The mean private memory of so many idle sessions, in kilobytes."""
    sessions = []
    try:
        for _ in range(count):
            sessions.append(peer.smallest())
            sessions[-1].prompt()
        return sum(session.private() for session in sessions) / count
    finally:
        for session in sessions:
            session.close()


def wakeups(peers, seconds):
    """How often each peer, idle at its prompt, woke up in that time."""
    sessions = [peer.at_prompt() for peer in peers]
    try:
        time.sleep(0.5)
        before = [session.wakeups() for session in sessions]
        time.sleep(seconds)
        return {peer.name: session.wakeups() - count
                for peer, session, count in zip(peers, sessions, before)}
    finally:
        for session in sessions:
            session.close()


