"""The command line of a shell's program, and its exit status."""
import argparse
import os
import signal
import sys
from typing import TYPE_CHECKING

from . import screen

if TYPE_CHECKING:
    from .shell import Shell


def main(shell: "Shell", program: str, description: str) -> int:
    """Runs the shell as the command line says; returns the exit status."""
    name = os.path.basename(program)
    parser = argparse.ArgumentParser(prog=name, description=description)
    parser.add_argument("file", nargs="?", help="commands to run; default: standard input")
    parser.add_argument("--watch", metavar="FILE", help="log file to show at the prompt")
    parser.add_argument("--history", metavar="FILE", help="file that keeps the history")
    parser.add_argument("--idle", metavar="SECONDS", type=float, help="idle timeout")
    sockets = parser.add_mutually_exclusive_group()
    sockets.add_argument("--serve", metavar="SOCKET", help="serve users, one at a time")
    sockets.add_argument("--connect", metavar="SOCKET", help="connect to a shell that serves")
    options = parser.parse_args()
    try:
        if options.connect:
            from . import users

            return users.connect(options.connect)
        if options.watch:
            open(options.watch).close()
            shell.log_file, shell.log_shown = options.watch, True
        if options.history:
            shell.history = options.history
        if options.idle is not None:
            shell.idle = options.idle
        if options.serve:
            from . import users

            how = "%s --connect %s" % (program, options.serve)
            return users.serve(options.serve, shell.run, how)
        if options.file:
            with open(options.file) as file:
                return shell.run(file)
        return shell.run()
    except OSError as error:
        sys.stderr.write("%s: %s\n" % (name, screen.visible(str(error))))
        return 1
    except KeyboardInterrupt:  # while waiting for another user to leave
        return 128 + signal.SIGINT
