"""What is compared: the programs, how they are started, and what each is good for."""
import os
import subprocess

from session import Session

HERE = os.path.dirname(os.path.abspath(__file__))
PROGRAMS = os.path.join(HERE, "programs")
SYSTEM_PYTHON = "/usr/bin/python3"  # what the distribution packages is for this one

# All with the same search path: what a module costs beyond the interpreter.
BARE = "import os; os.write(1, b'> '); os.read(0, 1)"
SMALLEST = {"keyline": "import Keyline; Keyline.readline('> ')",
            "standard": "import readline; input('> ')"}


class Peer:
    """One program; kind is its name in shell.py, or "floor", "c" or "bare"."""

    def __init__(self, name, kind, command, folder=None):
        self.name, self.kind, self.command, self.folder = name, kind, command, folder
        self.slow = kind == "toolkit"  # takes fewer keys, further apart
        self.recalls = kind != "floor"
        # The key that completes and whose callback prints nothing, see shell.py.
        self.completes_alone = b"?" if kind == "keyline" else b"\t"
        self.environment = {
            "PATH": os.environ["PATH"], "HOME": "/nonexistent", "TERM": "xterm",
            "LC_ALL": "C.UTF-8", "PYTHONPATH": folder or "", "PYTHONDONTWRITEBYTECODE": "1",
            "PYTHONHASHSEED": "0", "PROMPT_TOOLKIT_NO_CPR": "1",
        }

    def start(self, lines=0, timed=0, depth=None, wrap=()):
        """A session of it, with so many lines in the history."""
        return Session(self.command + [None, str(lines), str(timed)]
                       + ([] if depth is None else [str(depth)]), self.environment, wrap)

    def at_prompt(self, **options):
        session = self.start(**options)
        try:
            session.prompt()
        except BaseException:
            session.close()
            raise
        return session

    def smallest(self):
        """A session of the least that reads one line."""
        return Session([self.command[0], "-c", SMALLEST.get(self.kind, BARE)],
                       self.environment)


def compiled(build, name, source, *options):
    path = os.path.join(build, name)
    subprocess.run(["gcc", "-O2", "-Wall", "-Wextra", "-Werror", "-o", path,
                    os.path.join(PROGRAMS, source), *options], check=True)
    return path


def all_peers(build, interpreter, folder, against):
    """The peers in the order of the table, the module's copies and older builds last."""
    def shell(python, kind):
        return [python, os.path.join(PROGRAMS, "shell.py"), kind]

    def keyline(name, where):
        return Peer(name, "keyline", shell(interpreter, "keyline"), os.path.abspath(where))

    peers = [
        Peer("floor", "floor", [compiled(build, "floor", "floor.c")]),
        Peer("GNU C", "c", [compiled(build, "gnu", "editor.c", "-DGNU", "-lreadline")]),
        Peer("base", "standard", shell(interpreter, "standard"), folder),
        Peer("packaged C", "c", [compiled(build, "packaged", "editor.c", "-ledit")]),
        Peer("toolkit", "toolkit", shell(SYSTEM_PYTHON, "toolkit")),
        keyline("Keyline", folder),
        keyline("again", folder),
    ]
    return peers + [keyline(os.path.relpath(other), other) for other in against]


def bare(interpreter, folder):
    """The interpreter alone: it shows a prompt and reads no line."""
    return Peer("bare", "bare", [interpreter], folder)


def what_standard_is(interpreter):
    """The library that the interpreter's readline module is linked to, in words."""
    text = subprocess.run(
        [interpreter, "-c", "import readline; print(readline.__file__, readline.__doc__)"],
        check=True, capture_output=True, text=True).stdout
    linked = subprocess.run(["ldd", text.split()[0]], capture_output=True, text=True).stdout
    names = [line.split()[0] for line in linked.splitlines()
             if "edit" in line or "readline" in line]
    return "%s, linked with %s" % (text.split(None, 1)[1].strip(), ", ".join(names))


def default_folder(root, interpreter):
    version = subprocess.run(
        [interpreter, "-c", "import sysconfig; print(sysconfig.get_python_version())"],
        check=True, capture_output=True, text=True).stdout.strip()
    return os.path.join(root, "build", version)
