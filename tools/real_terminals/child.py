"""The program at the prompt: some rows of output, then a line, and lines again.

Usage: child.py PROGRAM PROMPT ROWS TEXT PLACE LOG.  PROGRAM is "keyline", "readline", or
"nobody", which shows the line with the cursor at its place and then hears nothing.  TEXT is
the line in the history that is also what a completion gives, LOG a file whose news are shown,
or nothing.
"""
import os
import signal
import sys
import tty

PROGRAM, PROMPT, ROWS, TEXT, PLACE, LOG = sys.argv[1:]
kept = []  # what the module only borrows


def keyline_reader():
    import Keyline  # pylint: disable=import-outside-toplevel
    from keyline_shell import screen  # pylint: disable=import-outside-toplevel

    def complete(_, line):
        screen.replace("")
        return TEXT[len(line):]

    def news(descriptor, length):
        return int(screen.replace(os.read(descriptor, length).decode()))

    screen.look()
    Keyline.keyBindingsEnabledIs(True)  # sets the editor up, and with it the history
    Keyline.newHistoryMode("lab", "")
    Keyline.addHistory(TEXT, "lab", "")
    if LOG:
        kept.append(news)
        Keyline.loggingSyncEnabledIs(LOG, news)
    return lambda: Keyline.readline(screen.prompt(PROMPT), complete, "lab")


def readline_reader():
    import readline  # pylint: disable=import-outside-toplevel

    readline.add_history(TEXT)
    readline.set_completer_delims("")
    readline.set_completer(lambda text, state: TEXT if state == 0 else None)
    readline.parse_and_bind("tab: complete")
    return lambda: input(PROMPT)


def nobody():
    columns = os.get_terminal_size().columns
    up = (len(PROMPT + TEXT) - 1) // columns - (len(PROMPT) + int(PLACE)) // columns
    column = (len(PROMPT) + int(PLACE)) % columns
    tty.setraw(0)
    os.write(1, (PROMPT + TEXT + "\r" + "\x1b[A" * up + "\x1b[C" * column).encode())
    while True:
        signal.pause()


for number in range(1, int(ROWS) + 1):
    print("row %d" % number, flush=True)
if PROGRAM == "nobody":
    nobody()
read = {"keyline": keyline_reader, "readline": readline_reader}[PROGRAM]()
while True:
    read()
