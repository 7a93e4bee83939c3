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


def shell(python, kind):
    return [python, os.path.join(PROGRAMS, "shell.py"), kind]


# All that is compared, in the order of the table. This is all there is to say of a peer, but for
# its kind in shell.py if that is new: name, kind, the plots' colour, the README's words, and the
# command for the folder of compiled programs and the interpreter.
PEERS = (
    ("floor", "floor", "#888888", "a C program that echoes bytes in raw mode",
     lambda build, python: [compiled(build, "floor", "floor.c")]),
    ("GNU C", "c", "#e69f00", "a C program on the distribution's GNU readline",
     lambda build, python: [compiled(build, "gnu", "editor.c", "-DGNU", "-lreadline")]),
    ("base", "standard", "#000000",
     "`input()` with the standard `readline` module under the same interpreter",
     lambda build, python: shell(python, "standard")),
    ("packaged C", "c", "#56b4e9", "a C program on the distribution's libedit",
     lambda build, python: [compiled(build, "packaged", "editor.c", "-ledit")]),
    ("toolkit", "toolkit", "#cc79a7", "prompt_toolkit",
     lambda build, python: shell(SYSTEM_PYTHON, "toolkit")),
    ("Keyline", "keyline", "#d55e00", None, lambda build, python: shell(python, "keyline")),
)
COLOURS = {name: colour for name, _, colour, _, _ in PEERS}


def all_peers(build, interpreter, folder, against):
    """The peers of the table, then the module's second copy and older builds of it."""
    def keyline(name, where):
        return Peer(name, "keyline", shell(interpreter, "keyline"), os.path.abspath(where))

    peers = [Peer(name, kind, command(build, interpreter),
                  folder if kind in ("standard", "keyline") else None)
             for name, kind, _, _, command in PEERS]
    return peers + [keyline("again", folder)] + [keyline(os.path.relpath(other), other)
                                                 for other in against]


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
