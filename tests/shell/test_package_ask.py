"""The questions of keyline_shell, with answers, Ctrl-C, Ctrl-D, Ctrl-Z, and from a pipe."""
import os
import termios

import pytest

from at_shell import ShellUser

pytestmark = pytest.mark.package

SHELL = """
from keyline_shell import *
shell = Shell()
top = shell.mode("exec", "> ")
low = top.mode("low", "low> ", "down")

@shell.command("erase [now]")
def erase(now):
    print("erased" if confirm("Erase it?", default=None if now else False) else "kept")

@shell.command("speed")
def speed():
    print("at", choose("Speed", {"slow": "9600", "fast": "115200", "fastest": ""}, "slow"))

@shell.command("contact")
def contact():
    print("to", repr(ask("Contact", "nobody")), repr(ask("Place")))

@shell.command("secret [twice]")
def secret(twice):
    print("so", repr(password(twice="Again: " if twice else "")))

@shell.command("lines")
def lines():
    import Keyline
    print(Keyline.history(shell.current.name), Keyline.keyBindingsEnabled())

sys.exit(shell.run())
"""


@pytest.fixture
def user(start):
    return ShellUser(start(SHELL), "> ")


# --- At a terminal -------------------------------------------------------------------------


@pytest.mark.smoke
def test_yes_or_no(user):
    user.type("erase<enter>", "> erase", "Erase it? [y/N] ")
    user.type("<enter>", "Erase it? [y/N]", "kept", "> ")
    user.type("erase<enter>Yes<enter>", "> erase", "Erase it? [y/N] Yes", "erased", "> ")
    user.type("erase now<enter><enter>", "> erase now", "Erase it? [y/n]",
              "% Answer yes or no", "Erase it? [y/n] ")
    user.type("perhaps<enter>n<enter>", "Erase it? [y/n] perhaps", "% Answer yes or no",
              "Erase it? [y/n] n", "kept", "> ")
    user.leave("<c-d>")


@pytest.mark.smoke
def test_a_choice_with_help_and_completion(user):
    user.type("speed<enter>", "> speed", "Speed [slow]: ")
    user.type("?", "Speed [slow]: ?", "  fast     115200", "  fastest", "  slow     9600",
              "Speed [slow]: ")
    user.type("f<tab>", "Speed [slow]: fast")
    user.type("<tab>", "Speed [slow]: fast", "  fast  fastest", "Speed [slow]: fast")
    user.type("<enter>", "Speed [slow]: fast", "at fast", "> ")
    user.type("speed<enter><enter>", "> speed", "Speed [slow]:", "at slow", "> ")
    user.type("speed<enter>f<enter>", "> speed", "Speed [slow]: f",
              "% Answer one of: fast, fastest", "Speed [slow]: ")
    user.type("x<enter>S<enter>", "Speed [slow]: x", "% Answer one of: slow, fast, fastest",
              "Speed [slow]: S", "at slow", "> ")
    user.leave("<c-d>")


def test_a_line_with_a_default_in_which_keys_stand_for_themselves(user):
    user.type("contact<enter><enter>", "> contact", "Contact [nobody]:", "Place: ")
    user.type("where?<enter>", "Place: where?", "to 'nobody' 'where?'", "> ")
    user.type("contact<enter> me <enter><enter>", "> contact", "Contact [nobody]:  me", "Place:",
              "to 'me' ''", "> ")
    user.type("lines<enter>", "> lines", "['contact', 'lines'] True", "> ")
    user.leave("<c-d>")


def test_answers_are_in_no_history(user):
    user.type("contact<enter>", "> contact", "Contact [nobody]: ")
    user.type("<up>", "Contact [nobody]: ")
    user.type("someone<enter>", "Contact [nobody]: someone", "Place: ")
    user.type("<up>", "Place: ")
    user.type("<enter>", "Place:", "to 'someone' ''", "> ")
    user.type("secret<enter>word<enter>", "> secret", "Password:", "so 'word'", "> ")
    user.type("erase<enter>y<enter>", "> erase", "Erase it? [y/N] y", "erased", "> ")
    user.type("lines<enter>", "> lines", "['contact', 'secret', 'erase', 'lines'] True", "> ")
    user.type("<up><up>", "> erase")
    user.leave("<c-u><c-d>")


@pytest.mark.smoke
def test_a_password_is_not_shown(user):
    user.type("secret<enter>", "> secret", "Password: ")
    assert not user.terminal.settings()[3] & termios.ECHO
    user.type("s\u00fc\u00dfx<bs>!", "Password: ")
    user.terminal.expect_taken()
    user.type("<enter>", "Password:", "so 's\u00fc\u00df!'", "> ")
    user.type("secret<enter>wrong<c-u>right<enter>", "> secret", "Password:", "so 'right'", "> ")
    user.type("secret twice<enter>one<enter>two<enter>", "> secret twice", "Password:", "Again:",
              "% They differ", "Password: ")
    user.type("two<enter>two<enter>", "Password:", "Again:", "so 'two'", "> ")
    assert b"right" not in user.terminal.display.raw.replace(b"so 'right'", b"")
    user.leave("<c-d>")
    user.terminal.assert_settings_as_found()


def test_a_password_is_not_shown_wherever_the_output_goes(start):
    child = start("sys.stdout = open('out', 'w')\n" + SHELL)
    child.send("secret<enter>")
    out = child.home + "/out"

    def asked():
        if not os.path.exists(out):
            return False
        with open(out, encoding="utf-8") as file:
            return file.read().endswith("Password: ")

    child.wait("the question", asked)
    child.send("hidden<enter>exit<enter>")
    child.expect_end("clean")
    with open(out, encoding="utf-8") as file:
        assert file.read().count("hidden") == 1  # as the command prints it
    assert b"hidden" not in child.display.raw


QUESTIONS = [("erase", "Erase it? [y/N] "), ("speed", "Speed [slow]: "),
             ("contact", "Contact [nobody]: "), ("secret", "Password: ")]


@pytest.mark.parametrize("command, question", QUESTIONS)
@pytest.mark.parametrize("key", ["<c-c>", "<c-d>", "<c-z>"])
def test_keys_that_end_the_command(user, command, question, key):
    user.type("down<enter>", "> down", "low> ")
    user.type(command + "<enter>", "low> " + command, question)
    user.terminal.expect_taken()
    mark = {"<c-c>": "^C", "<c-z>": "^Z", "<c-d>": "^D"}[key]
    if command == "secret" and key == "<c-d>":  # which is not shown
        mark = ""
    user.type(key, (question + mark).rstrip(), "> " if key == "<c-z>" else "low> ")
    user.type("lines<enter>", ("> " if key == "<c-z>" else "low> ") + "lines",
              "%s True" % ("['down', 'lines']" if key == "<c-z>" else
                           ["down", command, "lines"]),
              "> " if key == "<c-z>" else "low> ")
    user.leave("<c-d>" if key == "<c-z>" else "<c-d><c-d>")
    user.terminal.assert_settings_as_found()


@pytest.mark.parametrize("command, question", QUESTIONS)
def test_a_terminal_lost_at_a_question(user, command, question):
    user.type(command + "<enter>", "> " + command, question)
    user.terminal.hang_up()
    user.terminal.expect_end("clean")


def test_help_behind_letters_outside_ascii_asks_again(user):
    user.type("speed<enter>", "> speed", "Speed [slow]: ")
    user.type("\u00fc?", "Speed [slow]: \u00fc",
              "% No help after letters outside ASCII", "Speed [slow]: ")
    user.leave("<c-c><c-d>")


# --- From a pipe -----------------------------------------------------------------------------


@pytest.mark.smoke
def test_answers_come_from_the_same_pipe(run):
    found = run(SHELL, stdin=b"erase\nyes\nerase\n\nspeed\nfastest\ncontact\nme\nhere?\n"
                             b"secret twice\nword\nword\nlines\n").stdout.decode().splitlines()
    assert found == ["erased", "kept", "at fastest", "to 'me' 'here?'", "so 'word'",
                     "['erase', 'speed', 'contact', 'secret twice', 'lines'] True"]


@pytest.mark.parametrize("lines, problem", [
    (b"erase\nperhaps\n", "line 1: erase\n% Answer yes or no\n"),
    (b"speed\nf\n", "line 1: speed\n% Answer one of: fast, fastest\n"),
    (b"secret twice\na\nb\n", "line 1: secret twice\n% They differ\n"),
    (b"contact\nme", "line 1: contact\n% There is no answer\n"),
    (b"secret", "line 1: secret\n% There is no answer\n"),
    (b"contact\nB\xfcro\n", "line 1: contact\n% The line is not UTF-8\n"),
])
def test_a_wrong_answer_in_a_pipe_ends_it(run, lines, problem):
    assert run(SHELL, stdin=lines, end="exception").stderr.decode() == problem
