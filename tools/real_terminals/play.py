"""Plays one scenario with one program in one terminal."""
import os
import signal
from contextlib import contextmanager

from judge import judge
from line import wait_until

HERE = os.path.dirname(os.path.abspath(__file__))
NEWS = ["news one", "news two"]


class Program:
    """What reads the lines."""

    def __init__(self, name, python, *folders):
        self.name, self.python = name, python
        self.path = os.pathsep.join(folders)

    def fits(self, scenario):
        return scenario.how != "news" or self.name == "keyline"

    def start(self, line, scenario, log):
        environment = {
            "PATH": os.environ["PATH"], "HOME": "/nonexistent", "LC_ALL": "C.UTF-8",
            "TERM": line.environment["TERM"], "PYTHONPATH": self.path, "INPUTRC": "/dev/null",
            "PYTHONDONTWRITEBYTECODE": "1"}
        line.start_child(
            [self.python, os.path.join(HERE, "child.py"), self.name, scenario.prompt,
             str(scenario.rows), scenario.line(), str(scenario.place()),
             log if scenario.how == "news" else ""],
            environment)
        line.expect(b"row %d\r\n" % scenario.rows, scenario.prompt.strip()[-1:].encode())


def fits(kind, scenario):
    return kind.detaches or not any(step.startswith("attach") for step in scenario.steps)


def type_text(line, text):
    """A few keys at a time: some are drawn alone, some together."""
    for at in range(0, len(text), 3):
        line.keys(text[at:at + 3])
        line.rest()


def bring_line(line, scenario, log):
    """Brings the scenario's line to the prompt, and the cursor to its place."""
    text = scenario.line()
    if scenario.how == "recalled":
        line.keys("\x10")
    elif scenario.how == "searched":
        type_text(line, "\x12" + text[:7])
        line.keys("\x05")
    elif scenario.how == "completed":
        type_text(line, text[:7])
        line.keys("\t")
    else:
        type_text(line, text)
    line.rest()
    if scenario.how == "news":
        with open(log, "a", encoding="utf-8") as file:
            file.write("".join(row + "\n" for row in NEWS))
        line.expect(NEWS[-1].encode())
    if scenario.place() < len(text):
        line.keys("\x01" + "\x06" * scenario.place())
        line.rest()


def all_rest(terminal):
    terminal.settle()
    terminal.line.rest()


def drag(terminal, first, last, slowly):
    step = 1 if last > first else -1
    for width in range(first + step, last + step, step):
        terminal.resize(width)
        if slowly:
            all_rest(terminal)


def while_stopped(terminal, width):
    line = terminal.line
    line.child.send_signal(signal.SIGSTOP)
    wait_until("the child to stop", lambda: line.state() == b"T")
    if width:
        terminal.resize(width)
        all_rest(terminal)
    line.child.send_signal(signal.SIGCONT)
    wait_until("the child to go on", lambda: line.state() != b"T")


def take_step(terminal, step):
    verb, *words = step.split()
    numbers = [int(word) for word in words if word.isdigit()]
    if verb == "burst":
        for width in numbers:
            terminal.resize(width)
    elif verb == "drag":
        drag(terminal, *numbers, "slowly" in words)
    elif verb == "stop":
        while_stopped(terminal, *numbers or [None])
    elif verb == "attach":
        terminal.detach()
        terminal.reattach(*numbers)
    else:
        terminal.resize(*(int(number) for number in verb.split("x")))
    all_rest(terminal)


def rows_of_output(scenario):
    return ["row %d" % number for number in range(1, scenario.rows + 1)]


def look(terminal, scenario, rows, text):
    """The verdict on what the terminal holds now, and that."""
    lines = terminal.lines()
    if not terminal.scrolls_back:
        there = [row for row in rows if row in lines]
        rows = rows[rows.index(there[0]):] if there else rows
    above = rows + NEWS if scenario.how == "news" else rows
    return judge(lines, scenario.prompt, text, above, terminal.columns), lines


def rows_that_stay(kind, nobody, scenario):
    """The rows of output that the terminal itself keeps, when the program draws nothing."""
    with opened(kind, nobody, scenario) as (terminal, _):
        for step in scenario.steps:
            take_step(terminal, step)
        lines = terminal.lines()
        return [row for row in rows_of_output(scenario) if row in lines]


@contextmanager
def opened(kind, program, scenario):
    """A terminal with the program in it, at its prompt, and the log file."""
    terminal = kind(*scenario.size)
    try:
        log = os.path.join(terminal.folder, "log")
        with open(log, "w", encoding="utf-8"):
            pass
        program.start(terminal.line, scenario, log)
        yield terminal, log
    finally:
        terminal.close()


def play(kind, program, scenario, rows):
    """The verdict at the end, the one before the last key, and what the terminal held.

    rows are those of the output that are to be there still.
    """
    with opened(kind, program, scenario) as (terminal, log):
        line, text, place = terminal.line, scenario.line(), scenario.place()
        bring_line(line, scenario, log)
        for step in scenario.steps:
            take_step(terminal, step)
        before, _ = look(terminal, scenario, rows, text)
        line.keys("Z")
        line.rest()
        after, lines = look(terminal, scenario, rows, text[:place] + "Z" + text[place:])
        return after, before, lines
