"""The recipes of keyline_recipes(7) are run, and its traps are where it says."""
import contextlib
import functools
import glob
import os
import re
import signal
import socket
import subprocess
import termios
import threading

import pytest

import manual
from log_file import append
from manual import expect_rows

pytestmark = pytest.mark.package

RUN = {}  # the examples that have a test, by name
example = functools.partial(manual.example, RUN)
PAGE = "keyline_recipes.7"


def test_every_recipe_is_run():
    assert set(RUN) == manual.RECIPES


# --- Remote login --------------------------------------------------------------------------

UNPACKED = os.path.join(manual.ROOT, "build", "unpacked")
USER, GROUP = os.getuid() or 1000, os.getgid() or 1000
# For root in a user namespace, where sshd records no logins.
AS_USER = [] if os.getuid() else [
    "unshare", "--user", "--map-user=%d" % USER, "--map-group=%d" % GROUP]


class Server:
    """A real sshd on a local port, with users of its own."""

    def __init__(self, setup, folder, forced):
        self.folder, self.key = str(folder), str(folder / "key")
        self.shell = self.file("switch", manual.EXAMPLES["login"].replace(
            "/usr/bin/python3", setup.interpreter), 0o755)
        for name in "host", "key":
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", folder / name],
                           check=True)
        program = UNPACKED + "/usr/sbin/sshd"
        assert os.path.exists(program), "./check fetches it"
        assert "/usr/local/sbin/switch" in forced
        config = "UsePAM no\nStrictModes no\nPidFile none\n" \
            "HostKey %s/host\nAuthorizedKeysFile %s/key.pub\nSetEnv PYTHONPATH=%s\n%s" % (
                folder, folder, setup.module_dir,
                forced.replace("/usr/local/sbin/switch", self.shell))
        for name in "session", "auth":  # where the server is several programs
            path = "%s/usr/lib/openssh/sshd-%s" % (UNPACKED, name)
            if os.path.exists(path):
                config = "Sshd%sPath %s\n" % (name.capitalize(), path) + config
        user = "%%s:x:%d:%d::%s:%%s\n" % (USER, GROUP, folder)
        libraries = {os.path.dirname(path) for path in glob.glob(UNPACKED + "/usr/lib/*/*.so*")}
        self.command = AS_USER + [program, "-i", "-f", self.file("config", config)]
        self.environment = dict(
            os.environ, LD_LIBRARY_PATH=":".join(libraries), LD_PRELOAD="libnss_wrapper.so",
            NSS_WRAPPER_PASSWD=self.file("passwd", user % ("operator", "/bin/sh")
                                         + user % ("guest", self.shell)),
            NSS_WRAPPER_GROUP=self.file("group", "users:x:%d:\n" % GROUP))
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.processes = []
        threading.Thread(target=self.serve, daemon=True).start()

    def file(self, name, text, mode=0o600):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, mode)
        return path

    def serve(self):
        with contextlib.suppress(OSError):
            while True:
                link, _ = self.socket.accept()
                with link, open(self.folder + "/log", "ab") as log:
                    self.processes.append(subprocess.Popen(
                        self.command, stdin=link, stdout=link, stderr=log, env=self.environment))

    def client(self, user, *command):
        """The ssh command of a user who logs in."""
        return ["ssh", "-F", "none", "-i", self.key, "-o", "IdentitiesOnly=yes",
                "-o", "IdentityAgent=none", "-o", "StrictHostKeyChecking=no",
                "-o", "UserKnownHostsFile=/dev/null", "-o", "LogLevel=ERROR",
                "-p", str(self.socket.getsockname()[1]), user + "@127.0.0.1"] + list(command)

    def shells(self):
        """The processes that run the shell."""
        found = []
        for path in glob.glob("/proc/[0-9]*/cmdline"):
            with contextlib.suppress(OSError), open(path, "rb") as file:
                if self.shell.encode() in file.read():
                    found.append(path)
        return found

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.socket.close()
        for process in self.processes:
            process.kill()
            process.wait()


@pytest.fixture
def ssh_server(setup, tmp_path):
    """ssh_server(settings): a Server with these settings, too."""
    opened = []

    def begin(forced):
        opened.append(Server(setup, tmp_path, forced))
        return opened[-1]

    yield begin
    for server in opened:
        server.close()


@pytest.mark.plain_only("the server starts the shell in an environment of its own")
@example("forced command")
def test_login(start, ssh_server, text):
    """Of one to whom the shell is the forced command, and of one whose login shell it is."""
    server = ssh_server(text)
    asking = [subprocess.Popen(server.client(user, "id"), stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
              for user in ("operator", "guest")]
    child = start("os.execvp('ssh', %r)" % (server.client("operator"),), rows=30, columns=90)
    child.wait_screen("the prompt", lambda rows: "switch>" in rows)
    child.send("one<enter>")
    expect_rows(child, "done: 'one' 90", "switch>")
    child.resize(30, 100)
    child.wait("the new size", lambda: answers(child, "100"))
    child.signal(signal.SIGKILL)  # the connection is gone
    child.wait("the shell's end", lambda: not server.shells(), outlived=True)
    child.end_stated = True
    for process in asking:
        assert process.communicate() == (b"commands are typed at the prompt\n", None)
        assert process.returncode == 1


RUN["login"] = test_login


def answers(child, columns):
    """Whether the shell, asked again, answers with that width."""
    prompts = child.display.raw.count(b"switch> ")
    child.send("now<enter>")
    child.wait("an answer", lambda: child.display.raw.count(b"switch> ") > prompts)
    return any(row == "done: 'now' " + columns for row in child.display.rows())


# --- Serial lines --------------------------------------------------------------------------

# As root, it would write to wtmp.
GETTY = """
if os.getuid() == 0:
    words = ["unshare", "-r", "-m", "sh", "-c",
             'mount --bind /dev/null /var/log/wtmp 2> /dev/null; exec "$@"', "sh"] + words
os.execvp(words[0], words)
"""


@pytest.mark.plain_only("the line's program is not of this project")
@example("serial")
def test_serial(setup, start, tmp_path, text):
    """At a terminal of no known size, which the program finds as its input."""
    path = tmp_path / "switch"
    path.write_text(manual.EXAMPLES["login"].replace("/usr/bin/python3", setup.interpreter))
    path.chmod(0o755)
    assert "ttyS0" in text
    child = start("""
import fcntl, struct
fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("4H", 0, 0, 0, 0))
words = %r
""" % (text.replace("/usr/local/sbin/switch", str(path)).replace("ttyS0", "-").split(),) + GETTY)
    child.wait_screen("the prompt", lambda rows: "switch>" in rows)
    child.send("x" * 80)
    expect_rows(child, "switch> " + "x" * 72, "x" * 8)
    child.send("<c-u>x<enter>")
    expect_rows(child, "switch> x", "done: 'x' 80", "switch>")
    child.send("<c-d>")
    child.end_stated = True  # with settings of the program that is in the place of login
    child.wait("the end", lambda: child.status is not None)
    assert child.status == 0


# --- Event loops, threads, time --------------------------------------------------------------


@example("asyncio")
def test_asyncio(start, text):
    child = start(text)
    expect_rows(child, ">")
    child.send("one<tab>!")
    expect_rows(child, "> one!")  # the completion is over
    child.send("<c-c>")
    expect_rows(child, "> one!again", ">")
    begun = waits(child)
    child.wait("the other task to run during the read", lambda: waits(child) > begun + 20)
    child.send("two<enter>")
    expect_rows(child, "two ['one'] True", ">")
    child.send("<c-d>")
    child.expect_end()


def waits(child):
    """How often the child's first thread has waited, which is that of the loop."""
    with open("/proc/%d/task/%d/status" % (child.process.pid, child.process.pid),
              encoding="ascii") as file:
        return int(re.search(r"^voluntary_ctxt_switches:\s*([0-9]+)$", file.read(), re.M)[1])


@example("threads")
def test_threads(start, text):
    child = start(text)
    expect_rows(child, "found Linux", ">")
    child.send("x<enter>")
    expect_rows(child, "found Linux", "> x", "x")
    child.expect_end()


@example("fork")
def test_fork(start, text):
    child = start(text)
    expect_rows(child, ">")
    child.send("7<enter>")
    expect_rows(child, "> 7", "42", ">")
    child.send("<c-c>")
    expect_rows(child, "42", "> again", ">")
    child.send("8<enter>")
    expect_rows(child, "> 8", "48", ">")
    child.send("<c-d>")
    child.expect_end()


@example("timeout")
def test_timeout(start, text):
    child = start(text)
    child.wait_screen("the end of the time, also before there is a prompt", lambda rows: (
        rows[0] in ("name> None", "None") and rows[1] == "name>"))
    child.send("ann<enter>")
    expect_rows(child, "name> ann", "ann")
    child.expect_end()


def test_no_alarm_ends_a_read(start):
    """Its handler has its turn when the user ends the line."""
    child = start("""
signal.signal(signal.SIGALRM, lambda *_: tell("rings"))
beside(lambda: (wait_for("go"), os.kill(os.getpid(), signal.SIGALRM), tell("sent")))
read()
""")
    child.expect_prompt()
    child.go("go")
    child.expect_fact("sent")
    child.send("x<tab>")  # which is read behind the signal
    child.expect_shown("x")
    assert child.facts == []
    child.send("<enter>")
    child.expect_fact("rings")
    child.expect_line("x")
    child.expect_end()


# --- Input that is no terminal -----------------------------------------------------------------


@example("pipe")
def test_pipe(run, text):
    found = run(text, stdin=b"one\nbanner END\nhello\n\nthere\nEND\ntwo")
    assert found.stdout == b"command: one\nbanner: ['hello', '', 'there']\ncommand: two\n"


def test_what_python_streams_buffer_is_lost(run):
    found = run("import Keyline; read(); tell('taken', sys.stdin.readline()); read()",
                stdin=b"one\ntwo\nthree\n")
    assert found.one("taken") == "two\n"
    assert found.results() == ["one", ("EOFError", "readline returned NULL")]


# --- Other programs at the terminal --------------------------------------------------------------


@example("programs")
def test_programs(start, text):
    child = start(text)
    expect_rows(child, ">")
    child.send("echo $((6 * 7))<enter>")
    expect_rows(child, "> echo $((6 * 7))", "42", "0", ">")
    child.send("echo ready; exec cat<enter>")
    expect_rows(child, "ready")
    child.send("<c-z>one<enter>")  # stops nothing
    expect_rows(child, "^Zone", "one")
    child.send("<c-c>")  # ends it alone
    expect_rows(child, "^C-2", ">")
    child.send("stty raw -echo; kill -9 $$<enter>")
    expect_rows(child, "-9", ">")
    child.send("echo there<enter>")
    expect_rows(child, "> echo there", "there", "0", ">")
    child.send("<c-d>")
    child.expect_end()


@example("password")
def test_password(start, text):
    child = start(text, other=True)
    expect_rows(child, "user:")
    child.send("ann<enter>ahead")
    child.wait_screen("the question", lambda rows: any(row.endswith("Password:") for row in rows))
    child.wait("the echo to be off", lambda: not child.settings()[3] & termios.ECHO)
    child.send("secret<enter>")
    child.wait_screen("the end", lambda rows: "ann 6 []" in rows)
    assert b"secret" not in child.display.raw
    child.expect_end()


def test_a_password_is_asked_for_at_the_terminal_of_the_process(start):
    child = start("""
import getpass
sys.stdin = open(other_terminal)
tell("password", getpass.getpass())
""", other=True)
    expect_rows(child, "Password:")
    child.wait("the echo to be off", lambda: not child.settings()[3] & termios.ECHO)
    child.send("secret<enter>")
    child.expect_fact("password", "secret")
    child.expect_end()


# --- Callables and colours -----------------------------------------------------------------------


@example("confirm")
def test_confirm(start, text):
    child = start(text)
    expect_rows(child, ">")
    child.send("x<enter>")
    expect_rows(child, "> x", "sure? [y/n]")
    child.send("?<tab><bs><bs>y<enter>")
    expect_rows(child, "sure? [y/n] y", "True")
    child.expect_end()


@example("log")
def test_log(start, text):
    """Ctrl-C that hits the callable is a Ctrl-C at the prompt, in the end."""
    child = start("""
sys.setswitchinterval(100)  # no other thread in the moment before the callable is over
class Stream:  # of a terminal that is slow
    def __init__(self, stream): self.stream = stream
    def __getattr__(self, name): return getattr(self.stream, name)
    def write(self, text):
        self.stream.write(text)
        if "news" in text:
            tell("within")
            wait_for("go")
sys.stdout = Stream(sys.stdout)
open("log", "w").close()
sys.argv[1:] = ["log"]
""" + text)
    expect_rows(child, ">")
    append(child, "news\n")
    child.expect_fact("within")
    child.send("<c-c>")
    child.expect_taken()
    child.go("go")
    expect_rows(child, "news", "> again", ">")
    child.send("<c-d>")
    child.expect_end()


@example("colours")
def test_colours(start, text):
    child = start(text)
    expect_rows(child, "switch>")
    assert child.display.screen.buffer[0][0].bold
    assert not child.display.screen.buffer[0][6].bold
    child.send("x" * 73)
    expect_rows(child, "switch> " + "x" * 72, "x")
    child.send("<enter>")
    child.expect_end()


def test_what_is_not_marked_is_shown(start):
    child = start("import Keyline; Keyline.readline('\\x1b[1mswitch> ')")
    expect_rows(child, "^[[1mswitch>")
    child.send("<enter>")
    child.expect_end()


# --- The standard module --------------------------------------------------------------------------


@pytest.mark.plain_only("the standard module keeps some memory to its end")
def test_what_loads_the_standard_module(setup, run):
    found = run("""
def loads(text):
    for name in "pdb", "doctest", "rlcompleter", "readline":
        sys.modules.pop(name, None)
    exec("import " + text, {"__name__": "__main__"})
    return "readline" in sys.modules
tell("loads", [loads(text) for text in (
    "code", "rlcompleter", "pdb", "doctest", "pdb; pdb.Pdb()",
    "doctest; doctest.DocTestRunner().run(doctest.DocTest([], {}, '', '', 0, ''))")])
""")
    early = setup.version == "3.13"
    assert found.one("loads") == [False, True, early, early, True, True]


SHELL = """
import keyline_shell
shell = keyline_shell.Shell()
top = shell.mode("exec", "router> ")
@top.command("greet NAME", help="Say hello")
def greet(name):
    print("hello", name)
shell.run()
"""


@example("debugger")
def test_debugger(start, text):
    """The shell and the debugger take turns, each with its own history."""
    child = start("""
with open("shell.py", "w") as file:
    file.write(%r)
words = %r
os.execv(sys.executable, [sys.executable] + words[1:])
""" % (SHELL, text.split()))
    expect_rows(child, "-> import keyline_shell", "(Pdb)")
    child.send("b 7<enter>c<enter>")
    expect_rows(child, "(Pdb) c", "router>")
    child.send("gr<tab>bob<enter>")
    expect_rows(child, "router> greet bob", "> %s/shell.py(7)greet()" % child.home,
                '-> print("hello", name)', "(Pdb)")
    child.send("p name<enter><up><up><enter>")
    expect_rows(child, "(Pdb) p name", "'bob'", "(Pdb) c", "hello bob", "router>")
    child.send("<up>")
    expect_rows(child, "hello bob", "router> greet bob")
    child.send("<c-u>exit<enter>")
    child.wait_screen("the program again", lambda rows: [row for row in rows if row][-2:] == [
        "-> import keyline_shell", "(Pdb)"] and "router> exit" in rows)
    child.send("<up><c-u>q<enter>")
    child.expect_end()


@example("others")
def test_others(start, text):
    commands = [line.split() for line in text.splitlines()]
    child = start("""
with open("program.py", "w") as file:
    file.write("import readline, sys; print(sys.argv, readline.__name__, input('> '))")
import subprocess
for words in %r:
    subprocess.run([sys.executable] + words[1:])
""" % (commands,))
    expect_rows(child, ">")
    child.send("x?<enter>")
    child.wait_screen("both", lambda rows: rows[1] == (
        "['program.py', 'first', 'second'] keyline_shell.readline x?") and ">>>" in rows)
    child.send("6 * 7<enter>")
    expect_rows(child, ">>> 6 * 7", "42", ">>>")
    child.send("<c-d>")
    child.expect_end()


@example("install")
def test_install(start, text):
    child = start(text)
    expect_rows(child, "(Cmd)")
    child.send("gr<tab> you<enter>")
    expect_rows(child, "(Cmd) greet you", "hello, you", "(Cmd)")
    child.send("<c-d>")
    child.expect_end()


@example("cmd")
def test_cmd(start, text):
    child = start(text)
    expect_rows(child, "switch>")
    child.send("po<tab>?")
    expect_rows(child, "switch> port ?", "Show a port.", "eth0  eth1", "switch> port")
    child.send("eth<tab>")
    expect_rows(child, "switch> port eth", "eth0  eth1", "switch> port eth")
    child.send("1<enter>")
    expect_rows(child, "switch> port eth1", "port eth1 is up", "switch>")
    child.send("<c-d>")
    child.expect_end()


def test_table_of_the_standard_functions(run):
    """It has all of them, and what replaces them exists."""
    page = manual.source(PAGE)
    methods = set(re.findall(r"Keyline\.([a-z]\w+)", page)) - {"readline"}
    table = manual.TABLES["readline"]
    names = {name for key in table for name in re.findall(r"\w+", key)} - {"input", "prompt"}
    found = run("""
import Keyline, keyline_shell.readline
tell("methods", [hasattr(Keyline, name) for name in %r])
tell("functions", [name for name, value in vars(keyline_shell.readline).items()
                   if callable(value) and value.__module__ == "keyline_shell.readline"])
""" % (sorted(methods),))
    assert methods and all(found.one("methods"))
    own = {"input", "install", "main", "get_history_length", "get_completer",
           "get_completer_delims", "get_completion_type"}
    assert names == {name for name in found.one("functions") if name[0] != "_"} - own
