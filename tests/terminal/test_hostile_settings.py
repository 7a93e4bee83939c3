"""What the environment may hold: terminal types, locales, the user's editor settings."""
import os
import random
import subprocess

import pytest

C_PRESSED = ("KeyboardInterrupt", "Ctrl-C pressed")
LONG = "x" * 10000


# Terminal types

TERMS = {
    "none": {"TERM": None}, "empty": {"TERM": ""}, "unknown": {"TERM": "unknown"},
    "dumb": {"TERM": "dumb"}, "long": {"TERM": LONG}, "slash": {"TERM": "a/b"},
    "a file": {"TERM": "/etc/passwd"}, "upwards": {"TERM": "../../../etc/passwd"},
    "no text": {"TERM": "\x01\udcff%s%n"},
    "TERMINFO is a file": {"TERMINFO": "/etc/passwd"},
    "TERMINFO is not there": {"TERMINFO": "/none"},
    "TERMINFO is long": {"TERMINFO": "/" + LONG},
    "TERMINFO holds a description": {"TERMINFO": "hex:1a0102030405"},
    "TERMCAP holds another": {"TERMCAP": "xterm|rubbish:co#5:li#2:up=%s%s:"},
    "TERMCAP is a file": {"TERMCAP": "/etc/passwd", "TERM": "unknown"},
    "TERMCAP is long": {"TERMCAP": "unknown:" + LONG, "TERM": "unknown"},
}
EDITED = """
import Keyline
read(lambda key, line: "able")
read()
Keyline.resetInput()
read()
"""


def expect_edited(child):
    """A completion, a wrapped line, a redraw and a new set-up."""
    __tracebackhide__ = True
    for typed, line in [
            ("vari<tab>" + "x" * 100 + "<c-a>y<left><left><c-e>z",
             "yvariable" + "x" * 100 + "z"),
            ("b<c-l><c-a>a", "ab"), ("<c-k>c<bs>d", "d")]:
        child.enter(typed, line)
    child.expect_end()


@pytest.mark.parametrize("term", TERMS)
def test_terminal_type(start, term):
    """Known or not, the keys do the same."""
    expect_edited(start(EDITED, env=TERMS[term]))


# Wrong capabilities: too many parameters, of the wrong types, without an end.
DESCRIPTION = r"""rubbish|a description,
 am, cols#%(columns)s, lines#%(lines)s, cup=%%p1%%s%%s%%s%%s%%s, el=\E[%%s, ed=%%n%%s,
 cub=%%p1%%s, cuf=%%s%%p2%%s, cuu=%%s, cud=%%?%%t%%s, bel=%%d%%d, dch=%%p9%%d, ich=%%{9,
 dl=%%s, hpa=%%p1%%s%%s, clear=%%s, cuu1=\E[A, cub1=^H, cuf1=\E[C, smir=%%c, rmir=%%s,
 kcuu1=\r, kcud1=a, khome=\t, kend=\E,
"""


@pytest.mark.parametrize("lines, columns", [("24", "80"), ("0", "0"), ("32767", "32767"),
                                            ("1", "1")])
def test_terminal_description_of_rubbish(start, tmp_path, lines, columns):
    """With the keys of others in it: Enter ends the line, TAB completes, letters are typed."""
    (tmp_path / "source").write_text(DESCRIPTION % {"lines": lines, "columns": columns})
    subprocess.run(["tic", "-o", str(tmp_path), str(tmp_path / "source")], check=True,
                   capture_output=True)
    child = start(EDITED, env={"TERMINFO": str(tmp_path), "TERM": "rubbish"})
    expect_edited(child)
    assert b"using dumb terminal settings" not in child.display.raw


@pytest.mark.parametrize("kind", ["bytes", "cut short"])
def test_terminal_description_that_is_none(start, tmp_path, kind):
    for folder in ("r", "72"):  # by letter, or by its number
        (tmp_path / folder).mkdir()
        (tmp_path / folder / "rubbish").write_bytes(
            b"\x1a\x01" + (bytes(range(256)) * 10 if kind == "bytes" else b"\x08"))
    child = start(EDITED, env={"TERMINFO": str(tmp_path), "TERM": "rubbish"})
    expect_edited(child)
    assert b"using dumb terminal settings" in child.display.raw


# Locales. What makes no character there is refused, and is no command.

LOCALES = {
    "C": ({"LC_ALL": "C"}, "C"),
    "POSIX": ({"LC_ALL": "POSIX"}, "C"),
    "C by LANG, not taken for another": (
        {"LC_ALL": None, "LANG": "C", "PYTHONCOERCECLOCALE": "0"}, "C"),
    "C by LANG": ({"LC_ALL": None, "LANG": "C"}, "UTF-8"),
    "UTF-8": ({"LC_ALL": "C.UTF-8"}, "UTF-8"),
    "not there": ({"LC_ALL": "xx_XX.UTF-8"}, "C"),
    "no name": ({"LC_ALL": LONG}, "C"),
    "Latin": (None, "Latin"),
}


@pytest.mark.parametrize("name", LOCALES)
def test_locale(start, single_byte_locale, name):
    """Typed bytes, an answer and a history line with other characters than ASCII's."""
    env, kind = LOCALES[name]
    child = start("""
import Keyline
answer = lambda key, line: "\\u00e9\\u20ac"
for number in range(4): read(answer)
Keyline.addHistory("older", "exec", "")
Keyline.addHistory("h\\u00e9", "exec", "")
read(answer, "exec", "")
""", env=env or single_byte_locale)
    typed = "".join("<0x%02x>" % byte for byte in range(0x80, 0xff))
    text = "" if kind == "C" else "\u00e9\u20ac"
    for keys, line in [
            ("a" + typed + "b", None if kind == "Latin" else "ab"), ("ab<0x88>c<0x9f>", "abc"),
            ("a<0xc3><0xa9>b", "ab" if kind == "C" else "a\u00e9b"),
            # The line is cut before "bcd" for the second call.
            ("a<tab>bcd<tab>e", "a" + text + "bcd" + text + "e"),
            # A line that the locale has no characters for is passed, with a beep.
            ("<up><up>", "older") if kind == "C" else ("<up>", "h\u00e9")]:
        child.expect_prompt()
        child.send(keys + "<enter>")
        if line is None:
            assert child.expect_fact("raised")[0] == "UnicodeDecodeError"
        else:
            child.expect_line(line)
    child.expect_end()


# The user's settings for the editor

BIND = b"bind -s ^T ok\n"
RUBBISH = random.Random(7)
FILES = {  # with HUGE for a word that is, and what "ab" and Ctrl-T make
    "nothing": (b"", "ba"), "every byte": (bytes(range(256)) * 400, "ba"),
    "random bytes": (bytes(RUBBISH.choices(range(256), k=100000)), "ba"),
    "NUL": (bytes(100) + b"\n" + BIND, "ba"),
    "a huge word, then settings": (b"bind HUGE\n" + BIND, "abok"),
    "a huge line": (BIND[:-1] + b"HUGE", "ba"),
    "many words": (b"bind" + b" x" * 5000 + b"\n" + BIND, "abok"),
    "no last newline": (BIND[:-1], "abok"),
    "unknown commands": (b"none\n" * 1000 + BIND, "ba"),
    "an open quote": (b"bind -s ^T 'ok\n" + BIND, "ba"),
}


@pytest.mark.parametrize("kind, place", [(kind, "EDITRC") for kind in FILES]
                         + [("every byte", "HOME"), ("a huge line", "HOME")])
def test_settings_of_rubbish(setup, start, tmp_path, kind, place):
    """A line that is no setting ends the reading of them, in silence."""
    text, line = FILES[kind]
    # The word's buffer grows in small steps, each of which the sanitizer copies.
    huge = b"x" * (20000 if setup.sanitizer_logs else 1000000)
    (tmp_path / ".editrc").write_bytes(text.replace(b"HUGE", huge))
    child = start("import Keyline\nread()\nKeyline.resetInput()\nread()",
                  env={place: str(tmp_path / ("" if place == "HOME" else ".editrc"))})
    for again in range(2):
        child.enter("ab<c-t>", line)
    child.expect_end()


def make_loop(path):
    path.symlink_to(path)


def make_forbidden(path):
    path.write_bytes(BIND)
    path.chmod(0)


UNREADABLE = {
    "a directory": lambda path: path.mkdir(), "a loop": make_loop,
    "forbidden": make_forbidden, "not there": lambda path: None,
    "a pipe": os.mkfifo, "a device without end": lambda path: path.symlink_to("/dev/zero"),
}


@pytest.mark.parametrize("kind", UNREADABLE)
def test_settings_that_cannot_be_read(start, tmp_path, kind):
    path = tmp_path / "settings"
    UNREADABLE[kind](path)
    readable = kind == "forbidden" and os.access(path, os.R_OK)  # by the superuser
    child = start("read()", env={"EDITRC": str(path)})
    child.enter("ab<c-t>", "abok" if readable else "ba")
    child.expect_end()


@pytest.mark.parametrize("env", [{"EDITRC": LONG}, {"EDITRC": ""}, {"HOME": None},
                                 {"HOME": ""}, {"HOME": LONG}],
                         ids=["long", "empty", "no home", "empty home", "long home"])
def test_names_of_settings(start, env):
    child = start("read()", env=env)
    child.enter("ab<c-t>", "ba")
    child.expect_end()


@pytest.mark.parametrize("keys", ["Enter", "Enter for itself"])
def test_settings_that_take_the_keys_away(start, tmp_path, keys):
    """The completion keys stay, and so do the ways out that are no keys of the editor."""
    (tmp_path / "settings").write_text({
        "Enter": "bind -s ^M x\nbind -s ^J x\n",
        "Enter for itself": "bind -s ^M ^M\nbind -s ^J ^J\n"}[keys])
    child = start("import Keyline\nread(lambda key, line: 'able')\n"
                  "os.environ['EDITRC'] = ''\nKeyline.resetInput()\nread()",
                  env={"EDITRC": str(tmp_path / "settings")})
    child.expect_prompt()
    child.send("ab<enter><tab>")
    shown = {"Enter": "abxable", "Enter for itself": "abable"}[keys]
    child.expect_shown(shown, redrawn=True)
    child.send("c")  # and when it is shown, the signals are the module's again
    child.expect_shown(shown + "c", redrawn=True)
    child.send("<c-c>")
    child.expect_raised(*C_PRESSED)
    child.enter("after")
    child.expect_end()


COMMANDS = r"""
bind -s ^T|bind -r|bind ^|bind \\|bind -k|bind -k zz ed-insert|bind -e|bind "|bind
setty|setty -x|setty intr=|setty -d vmin=|setty -d -icrnl|setty -d +icanon|setty -q -isig
setty -x -opost|setty -x -echo|setty -d intr=^Q|setty -a none
settc|settc cm|settc li 100000|settc li 0|settc co -5|settc co 0|settc am no|settc ic %
echotc|echotc cm|echotc cm 5|echotc -v cm 5 5|echotc ic -5|telltc|telltc x
history|history load /etc/passwd|history clear|history size -1|history unique x
edit|edit maybe|"|'|\|:|a:|[:bind|(((((:bind|(a*)*(a*)*(a*)*b:bind
"""


def test_commands_of_the_settings(start, tmp_path):
    """Half commands and wrong ones leave nothing behind for the next set-up."""
    commands = [command for row in COMMANDS.split("\n") for command in row.split("|")
                if command]
    (tmp_path / "settings").write_text("")
    child = start("""
import Keyline
for number in range(%d):
    wait_for("next")
    read(lambda key, line: "x")
    Keyline.resetInput()
""" % len(commands), env={"EDITRC": str(tmp_path / "settings")})
    for command in commands:
        (tmp_path / "settings").write_text(command + "\n")
        child.go("next")
        child.enter("ab<c-t>", "ba")
        child.assert_settings_as_found()
    child.expect_end()


@pytest.mark.parametrize("count, listed", [(1000, True), (1020, False)])
def test_listing_of_a_long_key(start, tmp_path, count, listed):
    """There is room for 1,024 characters, quotes among them; the last one here takes 7."""
    key = "b" * count + "\uffff"
    (tmp_path / "settings").write_text("bind -s %s ok\nbind %s\n" % (key, key))
    child = start("read()", env={"EDITRC": str(tmp_path / "settings")})
    child.expect_prompt()
    assert (rb"\U+FFFF" in child.display.raw) == listed
    assert (b"Unbound extended key" in child.display.raw) != listed
    child.send("a<enter>")
    child.expect_line("a")
    child.expect_end()


@pytest.mark.parametrize("change", ["setty -x -echo", "setty -x -opost", "setty -d intr=^Q"])
@pytest.mark.parametrize("order", [1, -1])
def test_changes_to_the_terminal_with_editing_off(start, tmp_path, change, order):
    (tmp_path / "settings").write_text("\n".join([change, "edit off"][::order]) + "\n")
    child = start("read()", env={"EDITRC": str(tmp_path / "settings")})
    child.enter("ab")
    child.expect_end()
    child.assert_settings_as_found()
