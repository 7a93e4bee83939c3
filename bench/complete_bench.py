"""What one completion costs beside the callback itself, by the length of the line.

Run it with the interpreter that the module was built for:
    python3.9 bench/complete_bench.py [FOLDER-OF-THE-MODULE]
A child completes the same line again and again at a pseudo terminal, which this process
empties. From the end of one callback to the start of the next is the module's own work: the
key, the answer's edit, the whole redraw, the hand-over of the lock and of the signals. Ends
with 1 when the work at 5,000 characters takes more than 5 ms.
"""
import os
import select
import statistics
import sys
import sysconfig
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "tools"))

from pty_child import PtyChild  # noqa: E402

LENGTHS = (10, 1000, 5000, 20000)
ANSWERS = {"nothing": None, "text": "\bx"}
ROUNDS = 200
GOAL_LENGTH, GOAL = 5000, 0.005


def complete_lines(answer, descriptor):
    """Reads one line and writes the times to the descriptor: wall clock, processor."""
    import Keyline

    left = []
    work = []

    def complete(key, line):
        now = time.perf_counter(), time.thread_time()
        if left:
            work.append([after - before for before, after in zip(left[-1], now)])
        left.append((time.perf_counter(), time.thread_time()))
        return answer

    Keyline.readline("> ", complete)
    wall = statistics.median(times[0] for times in work)
    processor = statistics.mean(times[1] for times in work)
    os.write(descriptor, ("%r %r %d" % (wall, processor, len(work))).encode())


def empty(child, limit):
    """Takes what the child has written, waiting for at most limit seconds."""
    try:
        child.read(limit)
    except OSError:  # the child has ended
        pass


def type_keys(child, data):
    while data:
        child.read(0)
        if select.select([], [child.master], [], 0.01)[1]:
            data = data[os.write(child.master, data[:256]):]


def measure(folder, length, kind):
    reading, writing = os.pipe()
    child = PtyChild([sys.executable, __file__, "--child", kind, str(writing)],
                     dict(os.environ, TERM="xterm", LC_ALL="C.UTF-8", PYTHONPATH=folder),
                     pass_fds=[writing])
    os.close(writing)
    empty(child, 10)  # the prompt
    type_keys(child, b"a" * length + b"\t" * ROUNDS + b"\r")
    while not select.select([reading], [], [], 0)[0]:
        empty(child, 0.01)
    wall, processor, count = os.read(reading, 1000).split() or sys.exit("the child failed")
    child.child.wait()
    os.close(reading)
    os.close(child.master)
    assert int(count) == ROUNDS - 1
    return float(wall), float(processor)


def main():
    if sys.argv[1:2] == ["--child"]:
        complete_lines(ANSWERS[sys.argv[2]], int(sys.argv[3]))
        return 0
    version = sysconfig.get_python_version()
    folder = os.path.abspath(
        sys.argv[1] if sys.argv[1:] else os.path.join(HERE, "..", "build", version))
    missed = False
    print("characters  answer    wall ms (median)  processor ms (mean)")
    for length in LENGTHS:
        for kind in ANSWERS:
            wall, processor = measure(folder, length, kind)
            over = length == GOAL_LENGTH and processor > GOAL
            missed = missed or over
            print("%10d  %-8s  %16.3f  %19.3f%s" % (
                length, kind, 1000 * wall, 1000 * processor, "  MISSED" if over else ""))
    return int(missed)


if __name__ == "__main__":
    sys.exit(main())
