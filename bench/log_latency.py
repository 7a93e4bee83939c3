"""From the write of a log line to the shell's callable, against a bare program.

Run it with the interpreter that the module was built for:
    python3.9 bench/log_latency.py [--lines N] [FOLDER-OF-THE-MODULE]
One log line at a time, in turn to a shell at its prompt and to a program in C that does no
more than wait on inotify and read (log_latency.c). Both are asleep when their line comes.
Prints the medians and their ratio; ends with 1 when it is above 3.
"""
import argparse
import os
import statistics
import struct
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "tools"))

from pty_child import PtyChild, is_asleep  # noqa: E402

LIMIT = 3

SHELL = """
import os, struct, sys, time
import Keyline

def news(descriptor, length):
    now = time.monotonic_ns()
    os.read(descriptor, length)
    os.write(int(sys.argv[2]), struct.pack("q", now))

Keyline.loggingSyncEnabledIs(sys.argv[1], news)
Keyline.readline("> ")
"""


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--lines", type=int, default=2000)
    parser.add_argument("folder", nargs="?", default=os.path.join(
        os.path.dirname(HERE), "build", "%d.%d" % sys.version_info[:2]))
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="log-latency-") as folder:
        logs = {name: os.path.join(folder, name) for name in ("shell", "bare")}
        for path in logs.values():
            open(path, "w").close()
        program = os.path.join(folder, "log_latency")
        subprocess.run(["gcc", "-O2", "-Wall", "-Wextra", "-o", program,
                        os.path.join(HERE, "log_latency.c")], check=True)
        sys.exit(compare(options, program, logs))


def compare(options, program, logs):
    reading, writing = os.pipe()
    shell = PtyChild([sys.executable, "-c", SHELL, logs["shell"], str(writing)],
                     dict(os.environ, PYTHONPATH=options.folder), pass_fds=[writing])
    bare = subprocess.Popen([program, logs["bare"]], stdout=subprocess.PIPE)
    answers = {"shell": reading, "bare": bare.stdout.fileno()}
    taken = {"shell": [], "bare": []}
    shell.read(None)  # the prompt
    threading.Thread(target=drain, args=(shell,), daemon=True).start()
    try:
        files = {name: os.open(logs[name], os.O_WRONLY | os.O_APPEND) for name in logs}
        for number in range(options.lines + 100):
            for name in ("shell", "bare") if number % 2 else ("bare", "shell"):
                wait_for_sleep(shell.pid if name == "shell" else bare.pid)
                before = time.monotonic_ns()
                os.write(files[name], b"a line of the log, %d\n" % number)
                after, = struct.unpack("q", os.read(answers[name], 8))
                if number >= 100:
                    taken[name].append((after - before) / 1000)
    finally:
        shell.child.kill()
        bare.kill()
        shell.child.wait()
        bare.wait()
    for name, words in ("shell", "shell's callable"), ("bare", "bare program"):
        print("to the %-17s median %6.1f us, 99th percentile %7.1f us" % (
            words, statistics.median(taken[name]),
            sorted(taken[name])[len(taken[name]) * 99 // 100]))
    ratio = statistics.median(taken["shell"]) / statistics.median(taken["bare"])
    print("ratio of the medians     %.2f, limit %d, %d lines each" % (
        ratio, LIMIT, options.lines))
    return int(ratio > LIMIT)


def drain(child):
    try:
        while child.read(None):
            pass
    except OSError:  # the child has ended
        pass


def wait_for_sleep(pid):
    """Waits until the process sleeps, which a line then has to end."""
    while True:
        time.sleep(0.001)
        if is_asleep(pid):
            return


if __name__ == "__main__":
    sys.exit(main())
