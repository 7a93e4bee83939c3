"""The terminals inside another one: tmux and GNU screen."""
import os
import subprocess
import threading

from pty_child import open_terminal, set_window, start_at
from terminal import Terminal, output_of, taken, trimmed


class InPty(Terminal):
    """A terminal that is itself on a pseudo terminal, which is made here."""

    detaches = True
    master = None

    def attach(self, command):
        self.master, slave = open_terminal(self.height, self.columns)
        self.process = start_at(slave, command, {
            **os.environ, "TERM": "xterm-256color", "LC_ALL": "C.UTF-8", "SHELL": "/bin/sh",
            "SCREENDIR": self.folder})
        os.close(slave)
        threading.Thread(target=drain, args=[self.master], daemon=True).start()

    def set_size(self):
        set_window(self.master, self.height, self.columns)

    def detach(self):
        raise NotImplementedError


def drain(descriptor):
    try:
        while os.read(descriptor, 65536):
            pass
    except OSError:
        os.close(descriptor)


class Tmux(InPty):
    name = program = package = "tmux"

    def start(self):
        self.socket = os.path.join(self.folder, "tmux")
        self.attach(["tmux", "-S", self.socket, "-f", "/dev/null", "new-session",
                     *self.holder(), ";", "set", "status", "off"])

    def tmux(self, *command):
        return output_of("tmux", "-S", self.socket, *command)

    def lines(self):
        return trimmed(self.tmux("capture-pane", "-pJ", "-S", "-").split("\n"))

    def detach(self):
        self.tmux("detach-client")
        self.process.wait()

    def reattach(self, columns, rows=None):
        self.columns, self.height = columns, rows or self.height
        self.attach(["tmux", "-S", self.socket, "attach"])

    def close(self):
        subprocess.run(["tmux", "-S", self.socket, "kill-server"],
                       capture_output=True, check=False)
        super().close()


class Screen(InPty):
    name = program = package = "screen"

    def start(self):
        settings = self.settings(
            "screenrc", "startup_message off\ndefscrollback 500\nmsgwait 0\nmsgminwait 0\n"
            "defutf8 on\ncompacthist off\nbufferfile %s/buffer\n" % self.folder)
        self.attach(["screen", "-U", "-c", settings, "-S", "lab", *self.holder()])

    def screen(self, *command):
        output_of("env", "SCREENDIR=" + self.folder, "screen", "-S", "lab", "-p", "0",
                  *command)

    def lines(self):
        path = os.path.join(self.folder, "buffer")
        self.screen("-X", "eval", "copy", 'stuff "g0 G$ "', "writebuf")
        self.screen("-Q", "number")  # it answers when it has done that
        return trimmed(taken(path).split("\n"))

    def detach(self):
        output_of("env", "SCREENDIR=" + self.folder, "screen", "-d", "lab")
        self.process.wait()

    def reattach(self, columns, rows=None):
        self.columns, self.height = columns, rows or self.height
        self.attach(["screen", "-r", "lab"])

    def close(self):
        subprocess.run(["env", "SCREENDIR=" + self.folder, "screen", "-S", "lab", "-X", "quit"],
                       capture_output=True, check=False)
        super().close()
