"""Runs the programs in inject/ under the interpreter under test, and names places.

The C part is compiled here; the programs tell one JSON object a line.
"""
import json
import os
import platform
import shutil
import subprocess
import sys
import tempfile

import pytest

from script import DEADLINE, environment

HERE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "inject")
FULL = os.environ.get("KEYLINE_FAULTS") == "full"

x86_64 = pytest.mark.only_where(platform.machine() == "x86_64" and sys.maxsize > 2 ** 32,
                                "the interposer is written for x86-64")


def compile_interposer(folder):
    """The shared object that every call of the module passes through."""
    path = str(folder / "interposer.so")
    sources = [os.path.join(HERE, name) for name in ("interposer.c", "session.c", "steps.c")]
    subprocess.run(["gcc", "-std=gnu11", "-Wall", "-Wextra", "-Werror", "-O1", "-shared",
                    "-fPIC", "-o", path] + sources, check=True)
    return path


class FaultInjection:
    """What a test plays scenarios with."""

    def __init__(self, setup, interposer):
        self.setup, self.interposer = setup, interposer
        self.objects = [setup.module(), os.path.join(setup.module_dir, "libVantor.so")]
        self.known = {}

    def play(self, program, *arguments, given=None):
        """What the program tells, as it is printed; `given` goes to it as JSON."""
        home = tempfile.mkdtemp(prefix="keyline-")
        # All of Python's memory is the C library's, so that its account is complete, and
        # what was freed is not kept for the next who asks.
        changes = {"KEYLINE_INTERPOSER": self.interposer, "PYTHONMALLOC": "malloc",
                   "GLIBC_TUNABLES": "glibc.malloc.tcache_count=0",
                   "PYTHONPATH": "%s:%s" % (self.setup.module_dir, HERE),
                   "KEYLINE_TEST_DEADLINE": str(min(DEADLINE, 10))}
        try:
            process = subprocess.run(
                [self.setup.interpreter, os.path.join(HERE, program)] + self.objects
                + [str(argument) for argument in arguments],
                cwd=home, env=environment(self.setup, home, changes), capture_output=True,
                input=json.dumps(given), text=True, start_new_session=True)
            errors = process.stderr
            if os.path.exists(os.path.join(home, "stderr")):
                with open(os.path.join(home, "stderr"), encoding="utf-8") as file:
                    errors += file.read()
        finally:
            shutil.rmtree(home, ignore_errors=True)
        assert process.returncode == 0, errors
        return process.stdout

    def name_places(self, calls):
        """Finds out in which function and line each of the calls is."""
        for number, path in enumerate(self.objects):
            offsets = sorted({call[2] for call in calls if call[1] == number})
            if not offsets:
                continue
            # The address is that behind the call.
            text = subprocess.run(
                ["addr2line", "-f", "-C", "-s", "-p", "-i", "-e", path]
                + [hex(offset - 1) for offset in offsets],
                check=True, capture_output=True, text=True).stdout
            found = []
            for line in text.splitlines():
                line = line.partition(" (discriminator")[0]
                if line.startswith(" (inlined by) "):
                    found[-1] += " < " + line[len(" (inlined by) "):]
                else:
                    found.append(line)
            for offset, place in zip(offsets, found):
                self.known[number, offset] = place.replace(" at ", " ")

    def place(self, call):
        """A call in words: the function called, and from where."""
        where = self.known.get((call[1], call[2]), "the end of a function")
        return "%s from %s" % (call[0], where)


@pytest.fixture(scope="session")
def interposer(tmp_path_factory):
    return compile_interposer(tmp_path_factory.mktemp("interposer"))


@pytest.fixture
def injection(setup, interposer):
    return FaultInjection(setup, interposer)
