"""Text above the line being edited: lines of a log file, and messages of other threads."""
import _thread
import os
import signal
import sys
import threading
from contextlib import suppress

import Keyline

from . import screen
from .reader import reader

NEWS = "news"  # the name of this object's own file
KEYS = {signal.SIGINT, signal.SIGTSTP}


class Redraw:
    """What the log callable returns: whether prompt and line are drawn again.

    The module asks for its value after the call, where signals end the line as at any other
    time, and not the process.  So they are unblocked there.
    """

    def __init__(self, value: int) -> None:
        self.value = value

    def __index__(self) -> int:
        try:
            signal.pthread_sigmask(signal.SIG_UNBLOCK, KEYS)
        except KeyboardInterrupt:  # a handler of the shell's own, in simpleReadline()
            _thread.start_new_thread(os.kill, (os.getpid(), signal.SIGINT))
        return self.value


class Log:
    def __init__(self) -> None:
        self.path = ""  # of the file being watched
        self.folder = ""  # of that file, if it is this object's own
        self.lock = threading.Lock()  # of say()
        # The module only borrows the callable.  A bound method is a new object each time, so
        # this keeps a reference to one as long as the log may be shown.
        self.callable = self.on_news

    def show(self, path: str) -> None:
        """From now on, new lines of the file appear above the line being edited."""
        with open(path, "rb"):  # raises what the module would only print
            self.hide()
            Keyline.loggingSyncEnabledIs(path, self.callable)
            self.path = path

    def hide(self) -> None:
        if self.path:
            Keyline.loggingSyncEnabledIs(self.path)
        if self.folder:
            with suppress(OSError):
                os.unlink(os.path.join(self.folder, NEWS))
                os.rmdir(self.folder)
        self.path = self.folder = ""

    def say(self, text: str) -> None:
        """Shows text, made visible, in rows of its own; any thread may call it at any time."""
        text = screen.visible(text.rstrip("\n") + "\n")
        if reader.editing and reader.thread == threading.get_ident():
            # Called by a callable of the editor, which is locked until that returns.
            threading.Thread(target=self.say, args=[text], daemon=True).start()
            return
        with self.lock:
            thread = reader.thread
            if thread is None or not reader.editing:  # a command's output, question or page
                sys.stdout.write(text if thread is None else "\n" + text)
                sys.stdout.flush()
            elif self.path and not self.folder:
                # The editor watches one file only.  So prompt and line stay, and are drawn again
                # below the text.
                sys.stdout.write("\n" + ("" if screen.plain else screen.ERASE) + text)
                sys.stdout.flush()
                signal.pthread_kill(thread, signal.SIGCONT)
            else:
                self.write(text)
                signal.pthread_kill(thread, signal.SIGWINCH)  # makes it check the file

    def write(self, text: str) -> None:
        if not self.folder:
            import tempfile  # which takes long to load

            folder = tempfile.mkdtemp(prefix="keyline-")
            path = os.path.join(folder, NEWS)
            open(path, "w").close()
            self.show(path)
            self.folder = folder
        with open(self.path, "a", encoding=sys.stdout.encoding,
                  errors="backslashreplace") as file:
            file.write(text)

    def on_news(self, descriptor: int, length: int) -> "Redraw":
        """Prints new lines; has prompt and line drawn again below them.

        Called while the user types.  Ctrl-C or Ctrl-Z during the call would abort the process,
        so they are blocked until the result is looked at.  They still abort it before the first
        statement.
        """
        signal.pthread_sigmask(signal.SIG_BLOCK, KEYS)
        try:
            return Redraw(self.print_news(descriptor, length))
        except BaseException:
            signal.pthread_sigmask(signal.SIG_UNBLOCK, KEYS)
            raise

    def print_news(self, descriptor: int, length: int) -> int:
        """Raises nothing: nothing would catch it."""
        text = os.read(descriptor, length).decode(sys.stdout.encoding, "backslashreplace")
        if not text.endswith("\n"):  # part of a very long line, or an unfinished one
            text += "\n"
        with suppress(OSError):  # no terminal any more
            return int(screen.replace(screen.visible(text)))
        return 0
