#!/usr/bin/python3
"""Looks for calls of the module's methods that do something else than the model:

    fuzzing/methods.py --interpreter PYTHON --module-dir DIR [--sanitized]
        [--seconds S] [--seed N] [--sessions N] [--calls N]

A session is a process that makes random calls, good and bad, at a terminal of its own. Its
seed decides everything. A session that differs from the model, or dies, is told with its
seed and the shortest list of calls that still shows it; the status is then 1.
"""
import argparse
import json
import os
import random
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "tools"))

from pty_child import open_terminal, start_at  # noqa: E402

# ---- sessions ----

MODES = ["''", "'exec'", "'config'", "'if'", "'vlan'", "'exec '", "'\\xe9t\\xe9'",
         "'\\U0001f40d'", "'\\x01'", "Name('exec')"]
LINES = ["'show'", "'show clock'", "'show vlan'", "'a'", "'b'", "'c'", "''", "' '",
         "' \\t\\n\\v\\f\\r'", "'\\xa0'", "' x '", "'ends \\n'", "'in\\nside'", "'\\u3000'",
         "'\\xe9t\\xe9'", "'\\U0001f40d\\u0301'", "'\\x1b[A\\x7f\\x01'", "Name('n')"]
BAD = ["None", "1", "b'x'", "bytearray(b'x')", "'\\udc80'", "'a\\0b'", "'\\0'", "1.5", "[]",
       "object()", "Index(3)", "10**30", "-1"]
NUMBERS = ["0", "1", "2", "3", "5", "10", "17", "1024", "-1", "2**31-1", "2**31", "2**32",
           "2**32+3", "-2**31", "-2**31-1", "10**30", "-10**30", "True", "Index(4)",
           "Index(-1)", "Index(ValueError('no index'))", "1.5", "'1'", "None", "b'1'"]
WIDTHS = ["80", "10", "3", "2", "1", "200", "1000"]
CALLBACKS = ["None", "None", "none", "empty", "more", "back", "far", "inner", "number",
             "data", "lone", "fails", "leaves", "five", "log"]
FILES = ["'one.log'", "'two.log'", "'missing'", "'.'", "''", "'/dev/null'", "'x'*300",
         "'x/'*3000"]
PROMPTS = ["'> '", "''", "'\\xe9> '", "'\\n'", "'p'*200", "'\\x1b[1m> '", "'\\1\\2> '"]


def mode(chance):
    if chance.random() < 0.3:
        return "'k%d'" % chance.randrange(60)
    return chance.choice(MODES)


def line(chance):
    kind = chance.random()
    if kind < 0.3:
        return "'line %d'" % chance.randrange(2000)
    if kind < 0.32:
        return "'%s' * %d" % (chance.choice("x y"), chance.choice([100, 1023, 1024, 3000]))
    return chance.choice(LINES)


def arguments(chance, name):
    """Good arguments of a method, as text."""
    if name == "readline":
        count = chance.choice([1, 2, 3, 4, 4, 4, 4])
        return [chance.choice(PROMPTS), chance.choice(CALLBACKS), mode(chance),
                mode(chance)][:count]
    if name == "loggingSyncEnabledIs":
        return [chance.choice(FILES), chance.choice(["log", "log", "None"])][
            :chance.choice([1, 2, 2])]
    if name == "append":
        return [chance.choice(FILES[:2]), "b'news %d\\n'*%d" % (
            chance.randrange(100), chance.choice([1, 2, 30]))]
    choices = {
        "simpleReadline": [chance.choice(PROMPTS)],
        "history": [mode(chance)][:chance.randrange(2)],
        "newHistoryMode": [mode(chance), mode(chance)],
        "addHistory": [line(chance), mode(chance), mode(chance)],
        "keyBindingsEnabledIs": [chance.choice(["True", "False"])],
        "historyLimitIs": [chance.choice(NUMBERS)],
        "TerminalWidthIs": [chance.choice(WIDTHS + NUMBERS)],
        "resetInput": ["1", "'x'"][:chance.randrange(3)],
    }
    return choices.get(name, [])


def spoil(chance, given, name):
    """Makes arguments bad, in most cases."""
    kind = chance.randrange(4)
    if kind == 0 and given:
        place = chance.randrange(len(given))
        # What stands for a callback must outlive the call.
        if not (place == 1 and name in ("readline", "loggingSyncEnabledIs")):
            given[place] = chance.choice(BAD)
    elif kind == 1:
        del given[chance.randrange(len(given) + 1):]
    elif kind == 2:
        given += ["log"] * chance.choice([1, 1, 5])
    elif name not in ("readline", "loggingSyncEnabledIs"):
        given = [chance.choice(BAD) for _ in given]
    if kind == 2 and chance.random() < 0.3:
        given = ["key=1"]
    return given


def keys(chance):
    """What is typed in a read: see Model.read."""
    typed = "".join(chance.choice("abc xyz") for _ in range(chance.choice([0, 0, 3, 90])))
    ups = chance.choice([0, 0, 1, 2, 5, 40])
    return [typed, ups, chance.choice([0, 0, 1, 3]) if ups else 0,
            chance.choice(["", "", "\t", "?"]), chance.choice(["\r", "\r", "\n", "\x04\r"])]


WEIGHTS = {
    "addHistory": 40, "newHistoryMode": 12, "history": 15, "readline": 6,
    "simpleReadline": 2, "clearHistory": 1, "keyBindingsEnabledIs": 3,
    "keyBindingsEnabled": 2, "historyLimitIs": 3, "TerminalWidthIs": 2,
    "loggingSyncEnabledIs": 3, "resetInput": 1, "append": 3,
}


def make_session(seed, count):
    """The calls of a seed: name, arguments as text, keys for a read."""
    chance = random.Random(seed)
    # Some sessions are of few methods, and go deeper there.
    weights = {name: weight * chance.choice([0, 1, 1, 3]) for name, weight in WEIGHTS.items()}
    weights["history"] += 1
    names = chance.choices(list(weights), list(weights.values()), k=count)
    calls = []
    for name in names:
        given = arguments(chance, name)
        if name != "append" and chance.random() < 0.08:
            given = spoil(chance, given, name)
        typed = keys(chance) if name in ("readline", "simpleReadline") else None
        calls.append([name, ", ".join(given), typed])
    return calls


# ---- the child ----


class Runner:
    """Runs sessions in children of a process at a terminal."""

    def __init__(self, interpreter, environment):
        self.master, slave = open_terminal()
        self.link, link = socket.socketpair()
        self.errors = tempfile.TemporaryFile()
        self.process = start_at(
            slave, [interpreter, os.path.join(HERE, "methods_child.py"), str(link.fileno()),
                    str(self.master)], environment, controlling=False, stderr=self.errors,
            pass_fds=[link.fileno(), self.master])
        os.close(slave)
        link.close()
        self.answers = self.link.makefile("rb")
        self.over, over = os.pipe()
        self.drain = threading.Thread(target=self.drop_output, daemon=True)
        self.end_drain = over
        self.drain.start()

    def drop_output(self):
        while self.over not in select.select([self.master, self.over], [], [])[0]:
            try:
                os.read(self.master, 65536)
            except OSError:
                return

    def run(self, calls):
        """None, or the number of the call that failed and how."""
        self.link.sendall(json.dumps(calls).encode() + b"\n")
        answer = self.answers.readline()
        if not answer:
            raise RuntimeError("the child is gone:\n" + self.stderr())
        answer = json.loads(answer)
        return (answer["number"], answer["difference"]) if answer["difference"] else None

    def stderr(self):
        self.errors.seek(0)
        return self.errors.read().decode("utf-8", "replace")[-4000:]

    def close(self):
        self.link.shutdown(socket.SHUT_RDWR)
        self.process.wait()
        os.write(self.end_drain, b"x")
        self.drain.join()
        for fd in (self.master, self.over, self.end_drain):
            os.close(fd)
        self.answers.close()
        self.link.close()
        self.errors.close()


def shorten(runner, calls, failed):
    """Removes calls while the session still fails."""
    calls, size = calls[:failed[0] + 1], len(calls)
    while True:
        size = max(1, min(size, len(calls)) // 2)
        at, shorter = 0, False
        while at < len(calls):
            fewer = calls[:at] + calls[at + size:]
            again = runner.run(fewer)
            if again:
                calls, failed, shorter = fewer[:again[0] + 1], again, True
            else:
                at += size
        if size == 1 and not shorter:
            break
    return calls, failed


def report(calls, failed):
    lines = ["%s(%s)%s" % (name, given, "  # keys: %r" % (typed,) if typed else "")
             for name, given, typed in calls]
    return "\n".join(lines + [failed[1]])


# ---- the command ----


def sanitizer_environment():
    library = subprocess.run(["gcc", "-print-file-name=libasan.so"], check=True,
                             stdout=subprocess.PIPE, universal_newlines=True).stdout.strip()
    return {"LD_PRELOAD": library, "PYTHONMALLOC": "malloc",
            "ASAN_OPTIONS": "detect_leaks=0:allocator_may_return_null=1:exitcode=99",
            "UBSAN_OPTIONS": "print_stacktrace=1:halt_on_error=1:exitcode=98"}


def again(options, seed):
    """The command that replays a session."""
    words = [os.path.abspath(__file__), "--interpreter", options.interpreter, "--module-dir",
             os.path.abspath(options.module_dir), "--calls", str(options.calls), "--seed",
             str(seed), "--sessions", "1"]
    return " ".join(words + ["--sanitized"] * options.sanitized)


def main():
    # Its folder and its child go with it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--interpreter", default=sys.executable)
    parser.add_argument("--module-dir", required=True)
    parser.add_argument("--sanitized", action="store_true")
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--seed", type=int)
    parser.add_argument("--sessions", type=int, help="at most that many")
    parser.add_argument("--calls", type=int, default=400, help="in a session")
    options = parser.parse_args()
    home = tempfile.mkdtemp(prefix="keyline-")
    environment = {"PATH": os.environ["PATH"], "HOME": home, "TERM": "xterm",
                   "LC_ALL": "C.UTF-8", "PYTHONDONTWRITEBYTECODE": "1", "TMPDIR": home,
                   "PYTHONPATH": os.path.abspath(options.module_dir)}
    if options.sanitized:
        environment.update(sanitizer_environment())
    runner = Runner(options.interpreter, environment)
    seed = random.randrange(1 << 32) if options.seed is None else options.seed
    begun, done, findings = time.monotonic(), 0, 0
    try:
        while time.monotonic() - begun < options.seconds and done != options.sessions:
            calls = make_session(seed + done, options.calls)
            failed = runner.run(calls)
            if failed:
                findings += 1
                print("seed %d: %s" % (seed + done, again(options, seed + done)))
                print(report(*shorten(runner, calls, failed)), flush=True)
                print(runner.stderr() if options.sanitized else "", flush=True)
            done += 1
    finally:
        runner.close()
        shutil.rmtree(home, ignore_errors=True)
    took = time.monotonic() - begun
    print("%d sessions of %d calls, %d findings, %.0f calls a second, first seed %d" % (
        done, options.calls, findings, done * options.calls / took, seed))
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
