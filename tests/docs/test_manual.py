"""The examples of the manual are run, and do what the text around them says."""
import contextlib
import functools
import glob
import os
import re
import subprocess
import textwrap
import time

import pytest

import manual
from log_file import append
from manual import expect_rows
from script import DEADLINE

RUN = {}  # the examples that have a test, by name


example = functools.partial(manual.example, RUN)


def test_every_example_is_run():
    assert set(RUN) == set(manual.EXAMPLES) - manual.RECIPES - manual.SHELLS


@pytest.mark.parametrize("page", manual.PAGES)
def test_displays_are_marked_and_shown_as_they_are_run(page):
    """What a reader copies from the page is what the tests run."""
    shown = manual.rendered(page)
    text = manual.source(page)
    displays = re.findall(r"(?m)^(.*)\n\.Bd -literal", text)
    assert all(re.match(r'\.\\" (example|synopsis|reports): ', row) for row in displays)
    marks = re.findall(r'(?m)^\.\\" example: (.*)$', text)
    for name in marks:
        text = manual.EXAMPLES[name].rstrip("\n")
        for indent in (5, 11):
            rows = textwrap.indent(text, " " * indent)
            if rows in shown:
                break
        else:
            raise AssertionError("%s is not shown as it is:\n%s" % (name, text))


# The examples of Keyline(3)

@pytest.mark.smoke
@example("shell")
def test_shell(start, text):
    child = start("sys.argv[1:] = ['log']\nopen('log', 'w').close()\n" + text)
    expect_rows(child, "exec>")
    child.send("?")
    expect_rows(child, "exec>", "configure", "exit", "show", "exec>")
    child.send("con<tab>")
    expect_rows(child, "show", "exec> configure")
    child.send("<enter>")
    expect_rows(child, "exec> configure", "config>")
    child.send("<up>")  # from the mode above
    expect_rows(child, "config> configure")
    child.send("<c-u>hostname lab<enter>")
    expect_rows(child, "config> hostname lab", "done: hostname lab", "config>")
    child.send("end<enter>")
    expect_rows(child, "config> end", "exec>")
    child.send("<up>")  # not from the mode below
    expect_rows(child, "config> end", "exec> configure")
    append(child, "ne\x1b[2Jws \u202e\n")
    expect_rows(child, "config> end", "ne\\x1b[2Jws \\u202e", "exec> configure")
    child.send("<c-c>")
    expect_rows(child, "exec> configure", "exec>")
    child.send("exit<enter>")
    child.expect_end()


@pytest.mark.parametrize("way", ["Ctrl-D", "hang-up"])
def test_shell_ends_with_its_input(start, way):
    child = start(manual.EXAMPLES["shell"])
    expect_rows(child, "exec>")
    if way == "Ctrl-D":
        child.send("<c-d>")
        child.expect_end()
    else:
        child.hang_up()
        child.expect_end()


@example("answers")
def test_answers(start, text):
    child = start(text)
    expect_rows(child, ">")
    child.send("sh<tab>")
    expect_rows(child, "> show")
    child.send(" teh<left>?")
    expect_rows(child, "> show the")
    child.send("<enter>")
    expect_rows(child, "> show the", "show the")
    child.expect_end()


@example("modes")
def test_modes(run, text):
    assert run(text).stdout.decode().splitlines() == [
        "['show version']", "['show version', 'hostname lab', 'mtu 1500']",
        "['show version', 'hostname lab', 'mtu 1500', 'neighbor 192.0.2.1']"]


@example("letters")
def test_letters(start, text):
    child = start(text)
    expect_rows(child, ">")
    child.send("B\u00fcro?")
    expect_rows(child, "> B\u00fcro", "no help here", "> B\u00fcro")
    child.send("<c-u>B\u00fc?")
    expect_rows(child, "> B\u00fc", "no help here, and Up brings back what is left", ">")
    child.send("<up>\u00e4r<enter>")
    expect_rows(child, "> B\u00e4r", "B\u00e4r")
    child.expect_end()


@example("marks")
def test_marks(start, text):
    child = start(text)
    expect_rows(child, ">")
    assert b"\x1b[?2004h" in child.display.raw
    child.send("a?<esc>[200~b?\tc<esc>[201~<enter>")
    expect_rows(child, "> ahelp!b?      c", "'ahelp!b?\\tc'")
    child.expect_end()
    assert child.display.raw.endswith(b"\x1b[?2004l")


@example("question")
def test_question(start, text):
    child = start(text + "\nread(lambda key, line: 'done')")
    expect_rows(child, "description:")
    child.send("why?<tab>x<enter>")
    expect_rows(child, "'why?\\tx'", "1>")
    child.send("?<enter>")
    child.expect_line("done")
    child.expect_end()


@example("method")
def test_method(start, text):
    child = start("open('messages.log', 'w').close()\n" + text)
    expect_rows(child, ">")
    append(child, "one\ntwo\n", name="messages.log")
    child.send("<enter>")  # read after the news
    expect_rows(child, ">", "2 lines came while you typed")
    child.expect_end()


@example("next user")
def test_next_user(start, text):
    assert "/dev/pts/7" in text
    child = start("""
text = %r.replace("/dev/pts/7", os.ttyname(other_terminal))
exec(text)
tell("kind", os.environ["TERM"])
""" % text, other=True)
    expect_rows(child, "first>")
    child.send("a<enter>")
    child.wait("the prompt of the next user", lambda: child.other.rows()[0] == "name>")
    child.send_other("tom<bs>ny<enter>")
    child.wait("the greeting", lambda: child.other.rows()[:2] == [
        "name> tony", "hello, tony"])
    child.expect_fact("kind", "vt100")
    child.expect_end()


@example("bold")
def test_bold(start, text):
    """The columns are counted without the sequences: the line wraps where it should."""
    child = start(text)
    expect_rows(child, "switch>")
    assert all(child.display.screen.buffer[0][column].bold for column in range(6))
    assert not child.display.screen.buffer[0][6].bold
    child.send("x" * 72)
    expect_rows(child, "switch> " + "x" * 72)
    child.send("yz<c-a>a")
    expect_rows(child, "switch> a" + "x" * 71, "xyz")
    child.send("<enter>")
    child.expect_end()


# The examples of keyline(7)

@example("editrc")
def test_editrc(start, tmp_path, text):
    (tmp_path / "settings").write_text(text)
    child = start("for number in range(2): read()",
                  env={"EDITRC": str(tmp_path / "settings")})
    for typed, line in (("<c-o>log<enter>", "show log"), ("ab<esc>0x<enter>", "b")):
        child.expect_prompt()
        child.send(typed)
        child.expect_line(line)
    child.expect_end()


@example("sane")
def test_sane(start, text):
    """At a plain shell, after a read in another process of it was killed."""
    child = start("""
import Keyline
reader = os.fork()
if reader == 0:
    Keyline.readline("ready> ")
tell("reader", reader)
os.waitpid(reader, 0)
os.environ["PS1"] = "\\nplain$ "
os.execv("/bin/sh", ["sh", "-i"])
""")
    reader = child.expect_fact("reader")
    expect_rows(child, "ready>")
    child.wait("raw mode", lambda: not child.settings()[3] & manual.COOKED)
    os.kill(reader, 9)
    expect_rows(child, "plain$")
    assert not child.settings()[3] & manual.COOKED
    child.send(text.rstrip("\n") + "<enter>")
    child.wait("the settings", lambda: child.settings()[3] & manual.COOKED
               == manual.COOKED)
    child.send("exit<enter>")
    child.end_stated = True  # with settings that are usual, not as found
    child.wait("the shell's end", lambda: child.status is not None)
    assert child.status == 0


# The examples of vantor(3)

@example("follow")
def test_follow(setup, tmp_path, text):
    """Also over a rotation; what was there before is not new."""
    manual.compile_c(text, tmp_path / "follow", "-L", setup.module_dir, "-lVantor",
                    "-Wl,-rpath," + setup.module_dir)
    log = tmp_path / "log"
    log.write_text("old\n")
    environment = dict(os.environ, **setup.sanitizer_environment())
    with subprocess.Popen([tmp_path / "follow", log], stdout=subprocess.PIPE, text=True,
                          env=environment) as process:
        try:
            watched(process)
            with open(log, "a", encoding="utf-8") as file:
                file.write("one\n")
            assert process.stdout.readline() == "one\n"
            log.rename(tmp_path / "log.1")
            log.write_text("two\n")
            assert process.stdout.readline() == "two\n"
        finally:
            process.kill()
    found = subprocess.run([tmp_path / "follow"], capture_output=True, text=True,
                           env=environment)
    assert found.returncode == 1
    assert found.stderr == "vantor_open: No such file or directory\n"


def watched(process):
    """Waits until the process sleeps in poll, which it does once the file is followed."""
    limit = time.monotonic() + DEADLINE
    path = "/proc/%d/fd" % process.pid
    while time.monotonic() < limit:
        links = []
        for link in glob.glob(path + "/*"):
            with contextlib.suppress(FileNotFoundError):  # it is closed again
                links.append(os.readlink(link))
        with open("/proc/%d/stat" % process.pid, encoding="utf-8") as file:
            sleeps = file.read().rpartition(")")[2].split()[0] == "S"
        if sleeps and any("inotify" in link for link in links):
            return
    raise AssertionError("the example does not follow")


@example("library")
def test_library(start, tmp_path, text):
    """The module takes it from LD_LIBRARY_PATH, and passes its integers on."""
    manual.compile_c(text, tmp_path / "libVantor.so", "-shared", "-fPIC")
    child = start("""
import Keyline
os.mkfifo("log")
news = lambda first, second: tell("news", (first, second))
Keyline.loggingSyncEnabledIs("log", news)
read()
Keyline.loggingSyncEnabledIs("log")
""", env={"LD_LIBRARY_PATH": str(tmp_path)})
    child.expect_prompt()
    append(child, "a\nbc\n")
    child.expect_fact("news", (1, 0))
    child.expect_fact("news", (2, 0))
    child.send("x<enter>")
    child.expect_line("x")
    child.expect_end()
