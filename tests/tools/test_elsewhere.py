"""tools/elsewhere leaves nothing behind, whatever ends it, and tells what it saw."""
import glob
import os
import select
import signal
import subprocess
import sys

import pytest

from script import DEADLINE, ROOT
from test_setup import Machine
from tool import tool

NAMESPACES = subprocess.run(["unshare", "--mount", "--pid", "--fork", "true"],
                            stderr=subprocess.DEVNULL, check=False).returncode == 0
in_namespaces = pytest.mark.only_where(NAMESPACES, "this user may make no namespaces")

# Stands in for debootstrap: has a mount and a process in its target when it says so.
MAKES = """
    target=$4
    mkdir -p "$target/etc"
    mount -t tmpfs tmpfs "$target/etc"
    tail -f /dev/null &
    echo "$target" > "$MACHINE/told"
    exec 3> "$MACHINE/alive"
    %s"""


@pytest.fixture
def machine(tmp_path):
    machine = Machine(tmp_path)
    (machine.root / "tools" / "packages").write_text("elsewhere first\n")
    (tmp_path / "places").mkdir()
    os.mkfifo(tmp_path / "alive")
    return machine


def begin(machine, then):
    """Starts the tool on a suite, with a debootstrap that ends with that command."""
    machine.program("debootstrap", MAKES % then)
    tools = "%s:%s" % (machine.folder / "bin", os.environ["PATH"])
    return subprocess.Popen(
        [machine.root / "tools" / "elsewhere", "it"], stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True,
        env=dict(os.environ, MACHINE=str(machine.folder), TMPDIR=str(machine.folder / "places"),
                 PATH=tools))


def left(machine):
    """What is left of its folder: mounts and files."""
    with open("/proc/self/mounts", encoding="utf-8") as file:
        mounted = [line for line in file if str(machine.folder) in line]
    return mounted + glob.glob(str(machine.folder / "places" / "*"))


@in_namespaces
@pytest.mark.parametrize("name", ["SIGINT", "SIGTERM", "SIGHUP", "SIGKILL"])
def test_ended_from_outside(machine, name):
    # As another user: then the kernel has cleared PDEATHSIG.
    process = begin(machine, "exec /usr/bin/python3 -c 'import os, signal; os.setuid(65534); "
                             "os.write(3, b\"\\n\"); signal.pause()'")
    with open(machine.folder / "alive", "rb") as alive:
        assert alive.readline() == b"\n"
        assert left(machine)
        process.send_signal(getattr(signal, name))
        assert select.select([alive], [], [], DEADLINE)[0], "there are still processes"
        assert alive.read() == b""  # closed by the last of them
    process.communicate(timeout=DEADLINE)
    assert process.returncode != 0
    assert left(machine) == []


@in_namespaces
def test_ended_by_a_failure(machine):
    process = begin(machine, "exit 7")
    with open(machine.folder / "alive", "rb") as alive:
        alive.read()
    said, errors = process.communicate(timeout=DEADLINE)
    assert (process.returncode, errors.partition(" ... ")[0]) == (
        1, "installing with apt-get: first")
    own = subprocess.run(["dpkg", "--print-architecture"], check=True, text=True,
                         stdout=subprocess.PIPE).stdout.strip()
    assert said.startswith("it, %s, as root, ./demo not run, ./check not run" % own)
    assert "it-%s-root: 7, see " % own in said
    assert left(machine) == []


# --- What is told ------------------------------------------------------------------------


class Tried:
    suite, architecture, user = "trixie", "i386", "root"


def result(demo, check, *options):
    made = tool("elsewhere").Result(Tried, "3.13", "14.2.0")
    made.options = options
    made.demo, made.check, made.when = demo, check, "2001-02-03"
    return made


def test_the_line_of_a_result():
    assert result(61.7, (4370, 0, 117, 700)).line() == (
        "trixie, i386, as root, Python 3.13, gcc 14.2.0, ./demo starts, 62 s, "
        "./check 4,370 passed, 0 failed, 12 min, left out 117, 2001-02-03")
    assert "./check --smoke: 88 passed, " in result(61.7, (88, 0, 0, 70), "--smoke").line()
    assert result(61.7, (4370, 0, 117, 700)).passed()
    assert not result(61.7, (4370, 1, 0, 700)).passed()
    assert not result(61.7, None).passed()
    assert not result(None, None).passed()


def test_the_prompt_of_the_shell_is_seen(start):
    """As it is shown at a terminal, and nothing before it."""
    elsewhere = tool("elsewhere")
    child = start("os.execv(sys.executable, [sys.executable, %r])" % os.path.join(ROOT, "shell"))
    child.wait_screen("the prompt", lambda rows: "demo>" in rows)
    raw = bytes(child.display.raw)
    ends = [end for end in range(len(raw) + 1) if elsewhere.at_prompt(raw[:end])]
    assert ends and b"demo> " in raw[:ends[0]]
    child.send("exit<enter>")
    child.expect_end()


def test_what_was_counted():
    sums = tool("elsewhere").sums
    assert sums("Python\nleft out here: 35 tests, for this\nleft out here: 41 tests, for that\n"
                "7 passed, 2 failed\n") == (7, 2, 76)
    assert sums("check: the build failed\n") == (0, 1, 0)


def test_what_did_not_pass_is_kept(monkeypatch, tmp_path):
    """The installation will be gone, and with it what the stages said."""
    elsewhere = tool("elsewhere")
    monkeypatch.setattr(elsewhere, "LOGS", tmp_path)
    place = elsewhere.Place("it", "i386", "user")
    place.folder = tmp_path / "place"
    stages = place.folder / "home" / "user" / "keyline" / "build" / "logs"
    stages.mkdir(parents=True)
    (stages / "cpp.log").write_text("a stage\n")
    place.log.write_text("9 passed, 0 failed\nleft out here: 9 tests, of ./demo\n")

    def run(_):
        with open(place.log, "a", encoding="utf-8") as log:
            log.write(said)
        if why:
            raise elsewhere.Failed(why)

    monkeypatch.setattr(place, "run", run)
    said, why = "left out here: 3 tests, for that\n5 passed, 0 failed\n", ""
    assert (place.check()[0][:3], place.check()[1]) == ((5, 0, 3), "")
    assert not (tmp_path / "it-i386-user").exists()
    for said, why, numbers in (("5 passed, 2 failed\n", "status 1", (5, 2, 0)),
                               ("5 passed, 0 failed\n", "no end", (5, 1, 0)),
                               ("no numbers\n", "no end", (0, 1, 0))):
        seen, told = place.check()
        assert (seen[:3], told) == (numbers, why)
        assert (tmp_path / "it-i386-user" / "cpp.log").read_text() == "a stage\n"


def test_the_table_has_the_newest_of_each():
    elsewhere = tool("elsewhere")
    text = "before\n\n" + elsewhere.HEADER + "| trixie | i386 | root | old |\n| sid | a | b | c |\n\nafter\n"
    row = ("| trixie | i386 | root | 3.13 | 14.2.0 | starts, 62 s | 4,370 passed, 0 failed, 12 min |"
           " 117 | 2001-02-03 |\n")
    made = [result(61.7, (4370, 0, 117, 700))]
    assert elsewhere.table(text, made) == (
        "before\n\n" + elsewhere.HEADER + row + "| sid | a | b | c |\n\nafter\n")
    with pytest.raises(elsewhere.Failed):
        elsewhere.table("no table\n", made)


def test_the_table_is_in_order(monkeypatch):
    """However they came to be known; what is not among all stands behind."""
    elsewhere = tool("elsewhere")
    monkeypatch.setattr(elsewhere, "TRIES", [("sid", "a", "root"), ("trixie", "i386", "root")])
    text = elsewhere.HEADER + "| other | a | root | old |\n\nafter\n"
    text = elsewhere.table(text, [result(61.7, (4370, 0, 117, 700))])
    rows = "| trixie | i386 | root | 3.13 |", "| other | a | root | old |"
    assert 0 < text.index(rows[0]) < text.index(rows[1])
    first = elsewhere.Result(elsewhere.Place("sid", "a", "root"))
    text = elsewhere.table(text, [first])
    assert text.index("| sid | a |") < text.index(rows[0]) < text.index(rows[1])
    assert text.endswith(" |\n\nafter\n")


# --- Several -----------------------------------------------------------------------------


def test_who_is_tried():
    elsewhere = tool("elsewhere")
    every = elsewhere.TRIES
    assert elsewhere.chosen([]) == every
    assert elsewhere.chosen(["bookworm-i386", "trixie"]) == [
        one for one in every if one[:2] == ("bookworm", "i386") or one[0] == "trixie"]
    assert elsewhere.chosen(["bookworm-amd64-user"]) == [("bookworm", "amd64", "user")]
    for wrong in "book", "bookworm-", "bookworm-amd64-nobody", "":
        with pytest.raises(elsewhere.Failed):
            elsewhere.chosen([wrong])


def test_all_goes_on_and_tells_each_at_once(monkeypatch, tmp_path, capsys):
    """What fails is no reason to stop; the table has what could be tried, and only that."""
    elsewhere = tool("elsewhere")
    readme = tmp_path / "README.md"
    readme.write_text(elsewhere.HEADER + "\n\n")
    monkeypatch.setattr(elsewhere, "README", readme)
    monkeypatch.setattr(elsewhere, "LOGS", tmp_path / "logs")
    monkeypatch.setattr(elsewhere, "need", lambda *_: None)
    monkeypatch.setattr(elsewhere.os, "geteuid", lambda: 0)
    monkeypatch.setattr(elsewhere, "emulated", lambda architecture: architecture == "arm64")
    monkeypatch.setattr(elsewhere, "TRIES", [
        ("one", "i386", "root"), ("two", "i386", "root"), ("two", "i386", "user"),
        ("three", "arm64", "root")])
    told = []

    def attempt(*one):
        told.append((one, capsys.readouterr().out, readme.read_text()))
        tried = elsewhere.Result(elsewhere.Place(*one[:3]))
        tried.options = one[3:]
        if len(told) == 1:
            tried.why = "no network"
        else:
            tried.demo, tried.check = 20, (100, 1 if len(told) == 2 else 0, 0, 60)
        return tried

    monkeypatch.setattr(elsewhere, "attempt", attempt)
    assert elsewhere.main(["all"]) == 1
    lines = [output for _, output, _ in told[1:]] + [capsys.readouterr().out]
    tables = [text for _, _, text in told[1:]] + [readme.read_text()]
    assert [one for one, _, _ in told] == elsewhere.TRIES[:3] + [
        ("three", "arm64", "root", "--smoke")]
    assert "one, i386, as root, ./demo not run" in lines[0] and "no network" in lines[0]
    assert "two, i386, as root, " in lines[1] and "100 passed, 1 failed" in lines[1]
    assert "two, i386, as user, " in lines[2]
    assert "three, arm64, " in lines[3] and lines[3].endswith("\n2 of 4 passed\n")
    assert "| one |" not in tables[3]
    assert "| two | i386 | root | " in tables[1] and "| user |" not in tables[1]
    assert "| two | i386 | user | " in tables[2]
    assert "--smoke: 100 passed, 0 failed" in tables[3]


@in_namespaces
def test_what_was_started_a_moment_ago_ends_too(tmp_path):
    """Also when nobody could note yet that it was."""
    script = """
import subprocess, sys
from tool import tool
elsewhere = tool("elsewhere")
with elsewhere.Place("it", elsewhere.call("dpkg", "--print-architecture").strip(), "root") as place:
    inside = subprocess.Popen([*place.in_namespaces(""), "tail", "-f", "/dev/null"])
print("ended", inside.wait())
"""
    path = "%s:%s" % (os.path.dirname(os.path.abspath(__file__)), ":".join(sys.path))
    said = subprocess.run(
        [sys.executable, "-c", script], stdout=subprocess.PIPE, text=True, timeout=DEADLINE,
        check=True, env=dict(os.environ, PYTHONPATH=path, TMPDIR=str(tmp_path))).stdout
    assert said.strip().startswith("ended")
    assert os.listdir(tmp_path) == []
