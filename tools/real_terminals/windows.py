"""The terminals that are windows, on a virtual display."""
import atexit
import os
import subprocess
import time

from line import Lost, wait_until
from terminal import HERE, Terminal, joined, output_of, taken, trimmed


class Display:
    """The virtual display, started with the first window."""

    process = None

    @classmethod
    def environment(cls):
        if not cls.process:
            reading, writing = os.pipe()
            cls.process = subprocess.Popen(
                ["Xvfb", "-displayfd", str(writing), "-screen", "0", "2000x1500x24", "-noreset",
                 "-nolisten", "tcp", "+extension", "GLX"],
                pass_fds=[writing], stderr=subprocess.DEVNULL)
            os.close(writing)
            number = b""
            while not number.endswith(b"\n"):
                data = os.read(reading, 10)
                if not data:
                    raise Lost("the virtual display does not start")
                number += data
            os.close(reading)
            os.environ["DISPLAY"] = ":" + number.decode().strip()
            atexit.register(cls.stop)
        return {**os.environ, "LC_ALL": "C.UTF-8", "LIBGL_ALWAYS_SOFTWARE": "1",
                "GDK_BACKEND": "x11", "SHELL": "/bin/sh"}

    @classmethod
    def stop(cls):
        cls.process.terminate()
        cls.process.wait()


class Window(Terminal):
    """A terminal that is a window of the virtual display."""

    identity = None  # of the window

    def open(self, *command, **options):
        self.process = subprocess.Popen(
            command, env={**Display.environment(), "TMPDIR": self.folder}, cwd=self.folder,
            **{"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, **options})

    def window(self):
        if not self.identity:
            found = []

            def search():
                found[:] = subprocess.run(
                    ["xdotool", "search", "--onlyvisible", "--pid", str(self.process.pid)],
                    capture_output=True, check=False, text=True).stdout.split()
                return found

            wait_until("a window", search)
            self.identity = found[-1]
        return self.identity

    def set_size(self):
        output_of("xdotool", "windowsize", "--usehints", self.window(), str(self.columns),
                  str(self.height))

    def copied(self, which, *gesture):
        """The lines that a gesture of mouse or keys leaves in the selection."""
        def selection():
            return subprocess.run(["xclip", "-o", "-selection", which], capture_output=True,
                                  check=False, text=True).stdout

        subprocess.run(["xclip", "-i", "-selection", which], input=b"nothing", check=True)
        wait_until("the old selection to go", lambda: selection() == "nothing")
        output_of("xdotool", *gesture)
        wait_until("a selection", lambda: selection() not in ("", "nothing"))
        return trimmed(selection().split("\n"))


class Xterm(Window):
    name = program = package = "xterm"

    def start(self):
        self.open("xterm", "-fa", "Monospace", "-fs", "6", "-sl", "500", "-b", "0",
                  "-geometry", "%dx%d" % (self.columns, self.height),
                  "-xrm", "XTerm*on2Clicks: all", "-xrm", "XTerm*multiClickTime: 100",
                  "-e", *self.holder())

    def lines(self):
        lines = self.copied("primary", "mousemove", "--window", self.window(), "8", "8",
                            "click", "--repeat", "2", "--delay", "20", "1")
        time.sleep(0.15)  # the next click is not to count as a third one
        return lines


class Urxvt(Window):
    name = program = "urxvt"
    package = "rxvt-unicode"

    def start(self):
        self.open("urxvt", "-fn", "xft:Monospace:size=6", "-sl", "500", "-b", "0",
                  "-geometry", "%dx%d" % (self.columns, self.height), "--perl-lib", HERE,
                  "-pe", "dump.pl", "-e", *self.holder())

    def lines(self):
        path = os.path.join(self.folder, "dump")
        self.line.write("\x1b]777;dump;%s\a" % path)
        wait_until("a dump", lambda: os.path.exists(path))
        return joined(taken(path).split("\n")[:-1])


class Pixels(Window):
    """A window whose size is given in pixels."""

    padding = 0
    size_of_cell = None

    def cell(self):
        return self.line.cell()

    def set_size(self):
        if not self.size_of_cell:  # later it may be in the middle of a change
            self.size_of_cell = self.cell()
        width, height = self.size_of_cell
        output_of("xdotool", "windowsize", self.window(), str(self.columns * width + self.padding),
                  str(self.height * height + self.padding))

    def settle(self):
        asked = time.monotonic()

        def is_settled():
            nonlocal asked
            if self.line.window() == (self.columns, self.height):
                return True
            if time.monotonic() > asked + 2:  # a window that opens may miss it
                self.set_size()
                asked = time.monotonic()
            return False

        wait_until("%s to be %dx%d" % (self.name, self.columns, self.height), is_settled)


class Vte(Pixels):
    name = "vte"
    package = "gir1.2-vte-2.91"
    padding = 2

    @classmethod
    def is_missing(cls):
        return subprocess.run(
            ["/usr/bin/python3", "-c", "import gi; gi.require_version('Vte', '2.91')"],
            capture_output=True, check=False).returncode != 0

    def start(self):
        self.open("/usr/bin/python3", os.path.join(HERE, "vte_window.py"), str(self.columns),
                  str(self.height), *self.holder(), stdin=subprocess.PIPE,
                  stdout=subprocess.PIPE, text=True)

    def say(self, text):
        self.process.stdin.write(text + "\n")
        self.process.stdin.flush()

    def cell(self):
        self.say("cell")
        return tuple(int(number) for number in self.process.stdout.readline().split())

    def lines(self):
        self.say("dump")
        return joined(row.rstrip("\n") for row in iter(self.process.stdout.readline, "end\n"))


class Kitty(Pixels):
    name = program = package = "kitty"

    def start(self):
        self.control = "unix:" + os.path.join(self.folder, "kitty")
        self.open("kitty", "--config", "NONE", "--listen-on", self.control,
                  *(word for setting in (
                      "allow_remote_control=yes", "remember_window_size=no", "font_size=6",
                      "initial_window_width=%dc" % self.columns, "scrollback_lines=10000",
                      "initial_window_height=%dc" % self.height, "window_padding_width=0",
                      "placement_strategy=top-left", "update_check_interval=0",
                      "shell_integration=disabled", "confirm_os_window_close=0")
                      for word in ("-o", setting)), *self.holder())

    def lines(self):
        return trimmed(output_of("kitty", "@", "--to", self.control, "get-text", "--extent",
                                 "all").split("\n"))


class Alacritty(Pixels):
    name = program = package = "alacritty"

    def start(self):
        settings = self.settings(
            "alacritty.yml", "window: {dimensions: {columns: %d, lines: %d}}\n"
            "font: {size: 6}\nscrolling: {history: 10000}\n"
            "ipc_socket: false\nkey_bindings:\n- {key: F5, action: ToggleViMode}\n"
            % (self.columns, self.height))
        self.open("alacritty", "--config-file", settings, "-e", *self.holder())

    def lines(self):
        return self.copied("clipboard", "windowfocus", "--sync", self.window(),
                           "key", "F5", "g", "shift+v", "shift+g", "y", "F5")


class St(Window):
    name = "st"
    scrolls_back = False
    program = package = "stterm"

    def start(self):
        self.open("stterm", "-f", "Monospace:size=6", "-g", "%dx%d" % (self.columns, self.height),
                  "-o", os.path.join(self.folder, "dump"), "-e", *self.holder())

    def lines(self):
        area = output_of("xdotool", "getwindowgeometry", "--shell", self.window())
        size = dict(pair.split("=") for pair in area.split())
        return self.copied(
            "primary", "mousemove", "--window", self.window(), "3", "3", "mousedown", "1",
            "mousemove", "--window", self.window(), str(int(size["WIDTH"]) - 3),
            str(int(size["HEIGHT"]) - 3), "mouseup", "1")
