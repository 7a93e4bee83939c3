"""The example shell: a small network device to play with, and to copy from.

    __main__.py, users.py    how it is started, and by whom it is used
    session.py               the loop: read a line, run it, say what is wrong with it
    commands.py, words.py    the commands as data; abbreviations, help and completion
    log.py, screen.py        log lines at the prompt; printing while a line is typed
"""
import argparse
import os
import signal
import sys
import tempfile
import threading

import screen
import users
from log import Log
from session import Device, Session


def leave_when_ended() -> None:
    """Leaves the terminal before these signals end the process, as they do by themselves.

    The main thread would see to them only when it has read a line.
    """
    numbers = {signal.SIGTERM, signal.SIGQUIT}
    signal.pthread_sigmask(signal.SIG_BLOCK, numbers)

    def wait() -> None:
        number = signal.sigwait(numbers)
        screen.leave(1)
        signal.pthread_sigmask(signal.SIG_UNBLOCK, numbers)
        os.kill(os.getpid(), number)

    threading.Thread(target=wait, daemon=True).start()


def main() -> int:
    parser = argparse.ArgumentParser(prog="demo", description="a small network device")
    parser.add_argument("file", nargs="?", help="commands to run; default: standard input")
    parser.add_argument("--watch", metavar="FILE", help="log file to show at the prompt")
    sockets = parser.add_mutually_exclusive_group()
    sockets.add_argument("--serve", metavar="SOCKET", help="let users come, one at a time")
    sockets.add_argument("--connect", metavar="SOCKET", help="be a user of such a shell")
    options = parser.parse_args()

    if options.connect:
        return users.connect(options.connect)
    if options.file:
        sys.stdin = open(options.file)
    # A lost terminal shows as the end of input, so that the shell ends in good order.
    signal.signal(signal.SIGHUP, lambda *_: None)
    if not options.serve:  # a served user's terminal is the companion's
        leave_when_ended()

    with tempfile.TemporaryDirectory(prefix="demo-") as folder:
        path = options.watch or os.path.join(folder, "messages.log")
        open(path, "r" if options.watch else "w").close()
        log, device = Log(path), Device()

        def session() -> int:
            if options.watch:
                log.show()
            try:
                return Session(device, log).run()
            finally:
                log.hide()
                log.stop_test()

        return users.serve(options.serve, session) if options.serve else session()


if __name__ == "__main__":
    try:
        sys.exit(main())
    except OSError as error:
        sys.exit("demo: %s" % error)
    except KeyboardInterrupt:  # a user who is tired of waiting for another one
        sys.exit(130)
