"""The shells in Python that are compared: shell.py KIND FACTS LINES TIMED [DEPTH].

KIND is keyline, standard (the readline module and input()) or toolkit (prompt_toolkit).
LINES lines are in the history at the first prompt; entering TIMED more is timed. What is
measured inside is written to the descriptor FACTS. The line "#report" asks for what was
read: the number of lines, their length and a sum.

For Keyline, DEPTH is how deep the mode lies that is read in, counted from the one that the
history's lines belong to; and "?" completes as TAB does, but its callback prints nothing.
"""
import os
import sys
import time

WORDS = "clear configure copy exit help hostname interface ping reload show write".split()


def history_line(number):
    """12 to 35 characters, no two in a row the same; the oldest has the word to find."""
    if number == 0:
        return "needle XYWXYWXYW"
    words = "show interface ethernet counters"
    return words[:6 + number % 24] + "%06d" % (number % 1000000)


def keyline(depth):
    import Keyline

    Keyline.keyBindingsEnabledIs(True)  # sets the editor up, or its first lines were lost
    Keyline.historyLimitIs(0x7fffffff)
    modes = ["mode %d" % number for number in range(depth)]
    for mode, parent in zip(modes, [""] + modes):
        Keyline.newHistoryMode(mode, parent)

    def complete(key, line):
        if key == b"\t":
            sys.stdout.write("\r")  # prompt and line are redrawn at the cursor
            sys.stdout.flush()
        word = line.rpartition(" ")[2]
        found = [name for name in WORDS if name.startswith(word)]
        return found[0][len(word):] + " " if len(found) == 1 else None

    here, above = modes[-1], modes[-2] if depth > 1 else ""

    def read():
        return Keyline.readline("> ", complete, here, above)

    def add(line):
        Keyline.addHistory(line, here, above)

    def fill(line):
        Keyline.addHistory(line, modes[0], "")

    return read, add, fill


def standard(depth):
    import readline

    found = []

    def complete(word, state):
        if state == 0:
            found[:] = [name + " " for name in WORDS if name.startswith(word)]
        return found[state] if state < len(found) else None

    readline.set_completer(complete)
    readline.parse_and_bind("tab: complete")
    return lambda: input("> "), None, readline.add_history  # input() enters the line itself


def toolkit(depth):
    from prompt_toolkit import PromptSession
    from prompt_toolkit.completion import WordCompleter
    from prompt_toolkit.history import InMemoryHistory

    history = InMemoryHistory()
    session = PromptSession("> ", history=history, completer=WordCompleter(WORDS),
                            complete_while_typing=False)
    return session.prompt, None, history.append_string


def fill_history(fill, count, timed, facts):
    for number in range(count):
        fill(history_line(number))
    if timed:
        lines = [history_line(number) for number in range(count, count + timed)]
        before = time.perf_counter_ns()
        for line in lines:
            fill(line)
        after = time.perf_counter_ns()
        os.write(facts, b"%f\n" % ((after - before) / timed))


def report(lines, facts):
    import zlib

    text = "".join(line + "\n" for line in lines).encode()
    told = len(lines), len(text) - len(lines), zlib.adler32(text)
    os.write(facts, b"%d %d %d\n" % told)


def main():
    kind, facts, count, timed = sys.argv[1], *map(int, sys.argv[2:5])
    depth = int(sys.argv[5]) if sys.argv[5:] else 1
    shells = {"keyline": keyline, "standard": standard, "toolkit": toolkit}
    read, add, fill = shells[kind](depth)
    fill_history(fill, count, timed, facts)
    lines = []
    while True:
        try:
            line = read()
        except EOFError:
            return
        if add:
            add(line)
        if line == "#report":
            report(lines, facts)
        else:
            lines.append(line)


main()
