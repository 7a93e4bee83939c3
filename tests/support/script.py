"""What all children share, and scripts without a terminal, which are quicker."""
import ast
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import threading

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DEADLINE = float(os.environ.get("KEYLINE_TEST_DEADLINE", "30"))
CHILD = os.path.join(os.path.dirname(os.path.abspath(__file__)), "child.py")
RESULTS = ("line", "raised")  # the facts that a read ends with; one queue


class Failure(AssertionError):
    """A wait or a check that failed; its text says what was seen."""


def ended(status):
    """How a process ended, in words, from a Popen-style return code."""
    if status is None:
        return "still running"
    if status < 0:
        return signal.Signals(-status).name
    return {0: "clean", 1: "exception"}.get(status, "status %d" % status)


def environment(setup, home, changes):
    """The child's whole environment."""
    result = {
        "PATH": os.environ["PATH"], "HOME": home, "TERM": "xterm", "LC_ALL": "C.UTF-8",
        "PYTHONPATH": setup.python_path(), "PYTHONDONTWRITEBYTECODE": "1",
    }
    result.update(setup.sanitizer_environment())
    result.update(changes or {})
    return {name: value for name, value in result.items() if value is not None}


def write_script(text):
    """A new home with the script in it; answers both paths."""
    home = tempfile.mkdtemp(prefix="keyline-")
    path = os.path.join(home, "script.py")
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    return home, path


class Result:
    """What a script without a terminal did."""

    def __init__(self, facts, stdout, stderr, end):
        self.facts, self.stdout, self.stderr, self.end = facts, stdout, stderr, end

    def all(self, name):
        return [value for fact, value in self.facts if fact == name]

    def one(self, name):
        values = self.all(name)
        assert len(values) == 1, (name, self.facts, self.stderr)
        return values[0]

    def results(self):
        """What the reads gave: lines as str, exceptions as (type, message)."""
        return [value for fact, value in self.facts if fact in RESULTS]


def run_script(setup, script, stdin=b"", env=None, end="clean"):
    """Runs script without a terminal; stdin is bytes for a pipe, or an open file."""
    __tracebackhide__ = True
    home, path = write_script(script)
    here, link = socket.socketpair()
    fed = isinstance(stdin, bytes)
    process = subprocess.Popen(
        [setup.interpreter, CHILD, path, str(link.fileno()), "-", "-"],
        stdin=subprocess.PIPE if fed else stdin, stdout=subprocess.PIPE,
        stderr=subprocess.PIPE, env=environment(setup, home, env), cwd=home,
        pass_fds=[link.fileno()], start_new_session=True)
    link.close()
    here.sendall(b"start\n")
    told = bytearray()
    listener = threading.Thread(target=lambda: told.extend(here.makefile("rb").read()))
    listener.start()
    try:
        stdout, stderr = process.communicate(stdin if fed else None, timeout=DEADLINE)
    finally:
        process.kill()
        process.wait()
        listener.join()
        here.close()
        shutil.rmtree(home, ignore_errors=True)
    facts = [ast.literal_eval(line) for line in told.decode().splitlines()]
    result = Result(facts, stdout, stderr, ended(process.returncode))
    if result.end != end or result.all("changed"):
        raise Failure("the script ended as %s, not %s\nfacts: %r\nstdout: %r\nstderr:\n%s"
                      % (result.end, end, facts, stdout, stderr.decode("utf-8", "replace")))
    return result
