"""The keys that keyline(7) lists do what it says: each row of its tables is typed.

A "|" typed after a key shows where the cursor is; the line that is read is compared.
"""
import re

import pytest

import manual

HISTORY = ["show version", "configure", "show log", "ping"]
SCRIPT = """
import Keyline
Keyline.keyBindingsEnabledIs(True)
for line in %r:
    Keyline.addHistory(line, "exec", "")
def complete(key, line):
    tell("asked", (key, line))
for number in range(%d):
    read(complete, "exec", "")
"""

EMACS = {
    "Enter": [("ab<left>", "ab")],
    "Ctrl-J": [("ab<left><c-j>", "ab")],
    "Ctrl-A, Home": [("ab<c-a>|", "|ab"), ("ab<home>|", "|ab")],
    "Ctrl-E, End": [("ab<c-a><c-e>|", "ab|"), ("ab<c-a><end>|", "ab|")],
    "Ctrl-B, cursor left": [("ab<c-b>|", "a|b"), ("ab<left>|", "a|b")],
    "Ctrl-F, cursor right": [("ab<c-a><c-f>|", "a|b"), ("ab<c-a><right>|", "a|b")],
    "Meta-B, Ctrl-left": [("a b-c,de<m-b>|", "a b-c,|de"), ("a b-c<m-b>|", "a |b-c"),
                          ("ab cd<esc>[1;5D|", "ab |cd")],
    "Meta-F, Ctrl-right": [("ab cd<c-a><m-f>|", "ab| cd"),
                           ("ab cd<c-a><esc>[1;5C|", "ab| cd")],
    "Backspace, Ctrl-H": [("abc<left><bs>", "ac"), ("abc<left><c-h>", "ac")],
    "Delete": [("abc<left><del>|", "ab|")],
    "Ctrl-D": [("abc<left><c-d>|", "ab|"), ("ab<c-d>|", "ab|")],
    "Meta-Backspace": [("ab cd<esc><bs>|", "ab |")],
    "Meta-D": [("ab cd<c-a><m-d>|", "| cd")],
    "Ctrl-K": [("abcd<left><left><c-k>|", "ab|")],
    "Ctrl-U": [("abcd<left><left><c-u>|", "|")],
    "Ctrl-Y": [("ab cd<c-w>x<c-y>|", "ab xcd|"), ("ab cd<m-b><m-d><c-y>|", "ab cd|"),
               ("abcd<left><left><c-k><c-a><c-y>|", "cd|ab"), ("ab<c-u>x<c-y>|", "xab|")],
    "Ctrl-T": [("ab<c-t>|", "ba|"), ("abc<left><c-t>|", "acb|")],
    "Ctrl-V, Insert": [("<c-v><c-a>|", "\x01|"), ("<esc>[2~<c-a>|", "\x01|")],
    "Ctrl-P, cursor up": [("<c-p>|", "ping|"), ("<up><up>|", "show log|")],
    "Ctrl-N, cursor down": [("<up><up><c-n>|", "ping|"), ("<up><up><down>|", "ping|")],
    "Meta-P": [("sh<m-p>", "show log"), ("sh<m-p><m-p>", "show version")],
    "Meta-N": [("sh<m-p><m-p><m-n>", "show log")],
    "Meta-U": [("one two<m-b><m-u>|", "one TWO|")],
    "Meta-L": [("one TWO<m-b><m-l>|", "one two|")],
    "Meta-C": [("one tWO<m-b><m-c>|", "one Two|")],
    "Meta-4, any digit": [("<m-4>x", "xxxx"), ("abc<m-2><c-b>|", "a|bc")],
    "Meta-X": [("<m-x>bind -s ^O hello<enter><c-o>", "hello")],
    "Ctrl-L": [("a row above", "a row above"), ("ab<left><c-l>|", "a|b")],
}
# A "!" stands for Escape, which ends insert mode.
VI = {
    "i, a, I, A": [("abc!i|", "ab|c"), ("abc!a|", "abc|"), ("abc!I|", "|abc"),
                   ("abc!0A|", "abc|")],
    "h, l, space": [("abc!hi|", "a|bc"), ("abc!0li|", "a|bc"), ("abc!0 i|", "a|bc")],
    "0, ^, $": [("abc!0i|", "|abc"), ("abc!^i|", "|abc"), ("abc!0$a|", "abc|")],
    "w, e, b": [("ab,cd!0wi|", "ab|,cd"), ("ab,cd!0ea|", "ab|,cd"),
                ("ab,cd!bi|", "ab,|cd")],
    "W, E, B": [("ab,cd ef!0Wi|", "ab,cd |ef"), ("ab,cd ef!0Ea|", "ab,cd| ef"),
                ("ab,cd!Bi|", "|ab,cd")],
    "f, F, t, T": [("abcd!0fci|", "ab|cd"), ("abcd!Fbi|", "a|bcd"), ("abcd!0tci|", "a|bcd"),
                   ("abcd!Tbi|", "ab|cd")],
    ";, comma": [("abcbd!0fb;i|", "abc|bd"), ("abcbd!0fb;,i|", "a|bcbd")],
    "x, X": [("abc!hx", "ac"), ("abc!hX", "bc")],
    "d, c, y": [("ab cd!0dw", "cd"), ("ab cd!dd", ""), ("ab cd!0cwx", "x cd"),
                ("ab!ccx", "x"), ("ab cd!0yw$p", "ab cdab "), ("ab!yyp", "abab")],
    "D, C": [("abcd!0lD", "a"), ("abcd!0lCx", "ax")],
    "s, S": [("abc!0sx", "xbc"), ("abc!Sx", "x")],
    "r, R": [("abc!0rx", "xbc"), ("abc!0Rxy", "xyc")],
    "p, P": [("ab!0xp", "ba"), ("ab!xP", "ba")],
    "~": [("abc!0~", "Abc")],
    "u, U": [("abc!0xu", "abc"), ("<up>!0xxU", "ping")],
    ".": [("abcd!0x.", "cd")],
    "k, j, -, +": [("!k", "ping"), ("!kk", "show log"), ("!kkj", "ping"),
                   ("!--", "show log"), ("!--+", "ping")],
    "/, n, N": [("!/show<enter>", "show log"), ("!/show<enter>n", "show version"),
                ("!/show<enter>nN", "show log")],
    "#": [("abc!#", "#abc")],
}
ENDS = ("Ctrl-J", "#")  # of the line, without Enter


def check(child, table, label, cases):
    assert label in manual.TABLES[table], "the page does not have it"
    for typed, line in cases:
        child.expect_prompt()
        child.send(typed + ("" if label in ENDS else "<enter>"))
        child.expect_line(line)


@pytest.mark.parametrize("table, cases", [("emacs keys", EMACS), ("vi keys", VI)],
                         ids=["emacs", "vi"])
def test_every_key_of_the_page_is_typed(table, cases):
    assert list(cases) == list(manual.TABLES[table])
    for label, texts in cases.items():
        assert len(texts) >= 1 + label.count(", ") or label == "Meta-4, any digit"


@pytest.mark.parametrize("label", EMACS)
def test_emacs_key(start, label):
    child = start(SCRIPT % (HISTORY, len(EMACS[label])))
    check(child, "emacs keys", label, EMACS[label])
    if label == "Ctrl-L":
        assert child.display.rows()[0] == "2> a|b"
    child.expect_end()


@pytest.mark.parametrize("label", VI)
def test_vi_key(start, tmp_path, label):
    (tmp_path / "settings").write_text("bind -v\n")
    child = start(SCRIPT % (HISTORY, len(VI[label])),
                  env={"EDITRC": str(tmp_path / "settings")})
    check(child, "vi keys", label, [(typed.replace("!", "<esc>"), line)
                                    for typed, line in VI[label]])
    child.expect_end()


# What the text says around the tables

VI_INSERT = [("ab<bs>c", "ac"), ("<c-v><esc>", "\x1b"), ("abcd<c-w>", ""),
             ("ab<c-d>c", "abc"), ("abcd!i<c-u>", "d"),
             ("a<c-a><c-k>b", "a\x01\x0bb"), ("abc<left>i|", "a|bc"),
             ("abc<home>i|", "|abc")]


@pytest.mark.parametrize("typed, line", VI_INSERT)
def test_vi_insert_mode(start, tmp_path, typed, line):
    (tmp_path / "settings").write_text("bind -v\n")
    child = start("read()", env={"EDITRC": str(tmp_path / "settings")})
    child.enter(typed.replace("!", "<esc>"), line)
    child.expect_end()


@pytest.mark.parametrize("settings", ["", "bind -v\n"], ids=["emacs", "vi"])
def test_keys_of_the_shell(start, tmp_path, settings):
    """With emacs and vi keys, in insert mode; the first four are those that the module binds."""
    with open(manual.ROOT + "/Cli/keys.cpp", encoding="utf-8") as file:
        bound = re.findall(r'"bind (\S+) ', file.read())
    labels = list(manual.TABLES["keys of the shell"])
    assert labels == ["TAB" if key == "^I" else key.replace("^", "Ctrl-") for key in bound
                      ] + ["Ctrl-C", "Ctrl-Z", "Ctrl-D"]
    (tmp_path / "settings").write_text(settings)
    child = start(SCRIPT % (HISTORY, 6), env={"EDITRC": str(tmp_path / "settings")})
    for typed, line in (("ab<tab>", "ab"), ("ab?", "ab"), ("<c-r>sho<c-r>", "show version"),
                        ("ab cd<c-w>", "ab ")):
        child.enter(typed, line)
    child.expect_fact("asked", (b"\t", "ab"))
    child.expect_fact("asked", (b"?", "ab"))
    for key, error in (("<c-c>", ("KeyboardInterrupt", "Ctrl-C pressed")),
                       ("<c-d>", ("EOFError", "readline returned NULL"))):
        child.expect_prompt()
        child.send(key)
        child.expect_raised(*error)
    child.expect_end()


def test_search(start):
    """Escape keeps what was found, Ctrl-G goes back, a beep says that there is none."""
    child = start(SCRIPT % (HISTORY, 2))
    child.type("<c-r>conf", "configure", "bck:conf")
    child.send("x")
    child.expect_shown("configure", "bck?confx")
    assert b"\a" in child.display.raw
    child.send("<bs><esc>|")
    child.expect_shown("|configure")
    child.send("<enter>")
    child.expect_line("|configure")
    child.type("text<c-r>conf", "configure", "bck:conf")
    child.send("<c-g>")
    child.expect_shown("text")
    child.send("<enter>")
    child.expect_line("text")
    child.expect_end()
