"""How scenarios call the module: each call counted, each read with keys of its own."""
import ctypes
import os
import sys
import termios

import interposer

made = refused = 0  # how many calls the scenario has made, and which of them is not to be made


def begin(number=0):
    """Begins a scenario; the call with that number, from 1 on, is not made."""
    global made, refused
    made, refused, Log.current = 0, number, None


def do(function, *arguments):
    """One call: its result, or what it raised. One that is refused is not made."""
    global made
    made += 1
    if made == refused:
        return "raised", "MemoryError", "injected"
    try:
        return "gave", function(*arguments)
    except BaseException as error:  # KeyboardInterrupt is among the ordinary outcomes
        return "raised", type(error).__name__, str(error)


def script(pieces):
    """What the next read is given; without any, it finds what the one before it has left."""
    if pieces:
        try:
            termios.tcflush(0, termios.TCIFLUSH)
        except termios.error:  # there is no terminal any more
            pass
    interposer.feed(pieces)


def read(pieces, *arguments):
    import Keyline

    script(pieces)
    result = do(Keyline.readline, "> ", *arguments)
    Log.note(pieces)
    return result


def simple_read(pieces):
    import Keyline

    script(pieces)
    return do(Keyline.simpleReadline, "> ")


def bare_reset():
    """A reset without a set-up before it, which drops references that were not taken.

    Deliberate, and so they are given first: without them the streams would be gone soon.
    """
    import Keyline

    for stream in (sys.stdin, sys.stdout):
        ctypes.pythonapi.Py_IncRef(ctypes.py_object(stream))
    return do(Keyline.resetInput)


class Log:
    """A followed log file, what was written to it meanwhile, and what was told of it."""

    current = None

    def __init__(self, directory="log.d"):
        import Keyline

        self.module, self.told, self.written = Keyline, b"", b""
        os.makedirs(directory, exist_ok=True)
        self.name = os.path.join(directory, "log")
        self.put(b"old\n", os.O_TRUNC)
        self.callback = self.news  # borrowed by the module, as long as the file is followed
        self.opened = do(Keyline.loggingSyncEnabledIs, self.name, self.callback)
        self.written = b""
        Log.current = self
        self.append()

    def news(self, fd, size):
        self.told += os.read(fd, size)
        return 1

    def put(self, text, flags=0):
        fd = os.open(self.name, os.O_WRONLY | os.O_CREAT | os.O_APPEND | flags)
        os.write(fd, text)
        os.close(fd)
        self.written += text

    @classmethod
    def note(cls, pieces):
        """After a read: of its script, what it came to went to the log."""
        given = [piece for piece in pieces[:interposer.state.piece] if isinstance(piece, tuple)]
        if cls.current:
            cls.current.written += b"".join(text for kind, text in given if kind == interposer.LOG)

    def append(self):
        """Has the script's log text go to the file that is at the path now."""
        if interposer.state.log >= 0:
            os.close(interposer.state.log)
        interposer.state.log = os.open(self.name, os.O_WRONLY | os.O_APPEND)

    def close(self):
        os.close(interposer.state.log)
        interposer.state.log, Log.current = -1, None
        return [self.opened, {"told": self.told.decode(), "written": self.written.decode()},
                do(self.module.loggingSyncEnabledIs, self.name)]

    def end(self):
        """One more line, whose read cannot fail: with it comes whatever was not told before."""
        interposer.state.plan, interposer.state.noting = interposer.NONE, 0
        self.append()
        return [read([(interposer.LOG, b"end\n"), b"\r"])] + self.close()
