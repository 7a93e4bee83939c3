#!/usr/bin/env python3
"""How many presses of Ctrl-C the example shell outlives while log lines come.

    bench/log_interrupts.py MODULE-DIR PYTHON [PRESSES]

At 10, 100 and 1,000 lines a second, with the shell's callable as it is and with one that holds
nothing back. By contract an interrupt that hits the callable ends the process. Prints the mean
number of presses until then, or that there was no end.
"""
import os
import random
import subprocess
import sys
import tempfile
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "tools"))

from pty_child import PtyChild  # noqa: E402

SHELL = os.path.join(ROOT, "shell")
PLAIN = "from keyline_shell import log; log.Log.on_news = log.Log.print_news; "
RUN = ("import runpy, sys; %s"
       "sys.argv[1:] = ['--watch', %r]; runpy.run_path(%r, run_name='__main__')")


def presses_until_the_end(module_dir, python, changes, rate, most):
    """The number of presses, and whether the last one ended the shell."""
    with tempfile.NamedTemporaryFile("a") as log:
        shell = PtyChild(
            [python, "-c", RUN % (changes, log.name, SHELL)],
            dict(os.environ, PYTHONPATH=module_dir, TERM="xterm", EDITRC="/dev/null"),
            stderr=subprocess.DEVNULL)
        over = threading.Event()

        def write():
            while not over.wait(1 / rate):
                print("a line of the log", file=log, flush=True)

        writer = threading.Thread(target=write)
        pressed, seen = 0, b""
        try:
            while b"demo> " not in seen:
                seen += shell.read(None)
            writer.start()
            while pressed < most:
                time.sleep(random.uniform(0, 0.004))  # at any moment
                shell.write(b"\x03")
                pressed += 1
                shown, limit = b"", time.monotonic() + 5
                while b"^C" not in shown and time.monotonic() < limit:
                    shown += shell.read(0.01)
            ended = False
        except OSError:  # which is how the terminal ends
            ended = True
        over.set()
        writer.join()
        os.close(shell.master)
        shell.child.wait()
        return pressed, ended


def main():
    module_dir, python = map(os.path.abspath, sys.argv[1:3])
    most = int(sys.argv[3]) if len(sys.argv) > 3 else 3000
    print("lines/s  held back  presses  ends  presses to an end")
    for rate in (10, 100, 1000):
        for name, changes in (("no", PLAIN), ("yes", "")):
            pressed = ends = 0
            while pressed < most:
                count, ended = presses_until_the_end(
                    module_dir, python, changes, rate, most - pressed)
                pressed, ends = pressed + count, ends + ended
            print("%7d  %-9s  %7d  %4d  %s" % (
                rate, name, pressed, ends, "%d" % (pressed / ends) if ends else "-"), flush=True)


main()
