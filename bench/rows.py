"""The rows of the table, in order: name, unit, digits after the point."""
ROWS = {
    "key": ("processor time per key, paced", "us", 1),
    "calls alone": ("system calls per key, alone", "", 1),
    "calls burst": ("system calls per key, in a burst", "", 1),
    "calls line": ("system calls per line of 10 keys", "", 1),
    "instructions alone": ("instructions per key, alone", "", 0),
    "instructions": ("instructions per key, in a burst", "", 0),
    "instructions middle": ("instructions per key in the middle of 60", "", 0),
    "middle 10000": ("key in the middle of 10,000, processor time", "us", 1),
    "paste": ("paste of lines of 60", "lines/s", 0),
    "paste cpu": ("paste, processor time per character", "us", 3),
    "paste intact": ("paste, all lines intact", "", 0),
    "letter": ("processor time per letter of two bytes, paced", "us", 1),
    "letter paste": ("paste of such letters, processor time each", "us", 3),
    "line 10000": ("one line of 10,000, processor time", "ms", 1),
    "line 100000": ("one line of 100,000, processor time", "ms", 1),
    "exponent": ("the same, growth: length to the power of", "", 2),
    "tab": ("TAB to the completed word, processor time", "us", 1),
    "tab alone": ("the same, the callback prints nothing", "us", 1),
    "search 1000": ("Ctrl-R, a word, to the oldest of 1,000", "ms", 3),
    "search 10000": ("Ctrl-R, a word, to the oldest of 10,000", "ms", 3),
    "search 100000": ("Ctrl-R, a word, to the oldest of 100,000", "ms", 2),
    "search key 1000": ("the key that finds it, of 1,000", "ms", 3),
    "search key 10000": ("the key that finds it, of 10,000", "ms", 3),
    "search key 100000": ("the key that finds it, of 100,000", "ms", 2),
    "up": ("held Up through 1,000, a step", "us", 2),
    "up cpu": ("held Up, processor time of a step", "us", 2),
    "add": ("entering a line at 100,000", "us", 3),
    "memory": ("private memory per stored line", "bytes", 1),
    "start": ("start to prompt over the interpreter", "ms", 2),
    "start cpu": ("start to prompt over the interpreter, processor time", "ms", 2),
    "idle": ("idle session over the interpreter", "kB", 0),
    "enter": ("Enter to next prompt", "us", 1),
    "enter cpu": ("Enter to next prompt, processor time", "us", 1),
    "wakeups": ("wake-ups of an idle session", "", 0),
    "key bytes": ("bytes sent for a key at the end", "", 1),
    "insert bytes": ("bytes sent for a key before 40 others", "", 0),
    "middle bytes": ("bytes sent for a key in the middle of 60", "", 1),
    "erase bytes": ("bytes sent for a key that erases", "", 0),
    "up bytes": ("bytes sent for Up", "", 0),
    "tab bytes": ("bytes sent for TAB", "", 0),
    "enter bytes": ("bytes sent for Enter and the prompt", "", 0),
}

# What the README shows.
IN_README = (
    "key", "calls line", "instructions", "paste", "paste cpu", "line 10000", "tab", "search 1000",
    "search 10000", "search 100000", "up cpu", "add", "memory", "start cpu", "idle", "enter",
    "enter cpu", "wakeups")

# What the plot compares with base; True where more is better.
RATIOS = {"key": False, "calls line": False, "paste": True, "paste cpu": False,
          "line 100000": False, "middle 10000": False, "tab": False, "search 10000": False,
          "up": False, "add": False, "memory": False, "start cpu": False, "idle": False,
          "enter": False, "enter cpu": False}


def title(row):
    name, unit, _ = ROWS[row]
    return name + (", " + unit if unit else "")


def shown(row, value):
    return "-" if value is None else "{:,.{digits}f}".format(value, digits=ROWS[row][2])
