"""The example shell as its user sees it: help, completion, mistakes, history, keys."""
import os
import re
import signal

import pytest

from at_shell import WELCOME, ShellUser, changed_shell, shell

EXEC = "configure, exit, logging, no, show, terminal"
SHOW = [
    "  history         Lines that can be recalled in this mode",
    "  running-config  The configuration, as commands",
    "  terminal        Settings of the terminal",
    "  version         What this is",
]
VERSION = "  version  What this is"
UNKNOWN_SHOW = '%% Unknown word "%s": expected history, running-config, terminal, version'


@pytest.fixture
def user(start):
    return ShellUser(start(shell()))


# --- Help ------------------------------------------------------------------------------


@pytest.mark.smoke
def test_help_is_a_column_of_words_and_one_of_meanings(user):
    user.type(
        "?", "demo> ?",
        "  configure  Change the configuration",
        "  exit       Leave this mode; in exec mode, the shell",
        "  logging    Log lines at the prompt",
        "  no         Undo a command",
        "  show       Show what the shell knows",
        "  terminal   Change settings of the terminal",
        "demo> ")
    user.type("show ?", "demo> show ?", *SHOW, "demo> show ")
    user.leave()


def test_help_after_half_a_word_a_number_and_a_whole_command(user):
    user.type("t?", "demo> t?", "  terminal  Change settings of the terminal", "demo> t")
    user.type("erm width ?", "demo> term width ?", "  <20-500>  Columns", "demo> term width ")
    user.type("60?", "demo> term width 60?", "  <20-500>  Columns", "demo> term width 60")
    user.type(" ?", "demo> term width 60 ?", "  <cr>  run the command",
              "demo> term width 60 ")
    user.leave()


def test_help_leaves_the_cursor_where_it_is(user):
    there = 0, len("demo> sho")
    user.type("show v<left><left><left>?", "demo> show v?", VERSION, "demo> show v",
              cursor=there)
    user.type("?", "demo> show v?", VERSION, "demo> show v", cursor=there)
    user.leave()


def test_help_points_at_a_wrong_word(user):
    wrong = "           ^", UNKNOWN_SHOW % "x"
    user.type("show x ?", "demo> show x ?", *wrong, "demo> show x ")
    user.type("<bs>?", "demo> show x?", *wrong, "demo> show x")
    user.leave()


def test_each_mode_has_its_own_words(user):
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("h?", "demo(config)# h?", "  hostname  Name the device", "demo(config)# h")
    user.type("<bs>int loop 0<enter>", "demo(config)# int loop 0", "demo(config-if)# ")
    user.type("no ?", "demo(config-if)# no ?",
              "  description  Describe it no more",
              "  ip           Internet protocol",
              "  logging      Log lines at the prompt",
              "  shutdown     Switch the interface on",
              "demo(config-if)# no ")
    user.leave()


# --- Completion ------------------------------------------------------------------------


@pytest.mark.smoke
def test_tab_completes_a_unique_word_in_place(user):
    user.type("sh<tab>", "demo> show ")
    user.type("v<tab>", "demo> show version ")
    user.type("<c-a><c-k>TERM<tab>", "demo> terminal ")
    user.leave()


def test_tab_lists_when_several_words_fit(user):
    user.type("term h<tab>", "demo> term h", "  help-keys  history", "demo> term h")
    user.type("i<tab>s<tab><tab>", "demo> term history size ", "  <0-1000000>",
              "demo> term history size ")
    user.type("9 <tab>", "demo> term history size 9 ", "  <cr>", "demo> term history size 9 ")
    user.leave()


def test_tab_adds_what_several_words_have_in_common(start):
    user = ShellUser(start(changed_shell(
        "top.command('copy-file')(shell.up)\n"
        "top.command('copy-log')(shell.up)")))
    user.type("COP<tab>", "demo> copy-")
    user.type("<tab>", "demo> copy-", "  copy-file  copy-log", "demo> copy-")
    user.leave()


def test_tab_points_at_a_wrong_word(user):
    user.type("shw<tab>", "demo> shw", "      ^", '% Unknown word "shw": expected ' + EXEC,
              "demo> shw")
    user.leave()


def test_help_and_completion_at_the_bottom_of_the_screen_in_a_line_of_several_rows(start):
    user = ShellUser(start(shell(), rows=9, columns=40))
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("int eth 1<enter>", "demo(config)# int eth 1", "demo(config-if)# ")
    line = "demo(config-if)# description " + "one two three " * 5
    rows = [line[:40], line[40:80], line[80:]]
    user.type("description " + "one two three " * 5, *rows)
    user.drop(2)
    user.type("?", *rows[:2], rows[2] + "?", "  LINE  Any text; Ctrl-V ? types a",
              "        question mark", "  <cr>  run the command", *rows)
    user.drop(2)
    user.type("<c-a><right><right><tab>", *rows, "  LINE  <cr>", *rows,
              cursor=(2, len("demo(config-if)# de")))
    user.leave()


def test_completion_in_place_at_the_bottom_of_the_screen(start):
    user = ShellUser(start(shell(), rows=6, columns=30), WELCOME[:30], WELCOME[30:], "demo> ")
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("hostname " + "a" * 16 + "<enter>", "demo(config)# hostname aaaaaaa",
              "aaaaaaaaa", "aaaaaaaaaaaaaaaa(config)# ")
    user.type("terminal hist<tab>", "aaaaaaaaaaaaaaaa(config)# term", "inal history ")
    user.drop(1)
    user.type("si<tab>", "aaaaaaaaaaaaaaaa(config)# term", "inal history size ")
    user.leave()


# --- Commands --------------------------------------------------------------------------


@pytest.mark.smoke
def test_unique_abbreviations_are_accepted(user, setup):
    user.terminal.send("sh ver<enter>")
    user.terminal.wait_screen("the version", lambda rows: (
        rows[2].startswith("Example shell of Keyline, Python " + setup.version)))
    user.expect("demo> sh ver", user.terminal.display.rows()[2], "demo> ")
    user.leave()


def test_unknown_ambiguous_and_incomplete_commands_are_told_apart(user):
    user.type("shw ver<enter>", "demo> shw ver", "      ^",
              '% Unknown word "shw": expected ' + EXEC, "demo> ")
    user.type("show vex<enter>", "demo> show vex", "           ^", UNKNOWN_SHOW % "vex",
              "demo> ")
    user.type("term h size 3<enter>", "demo> term h size 3", "           ^",
              '% Ambiguous word "h": help-keys or history', "demo> ")
    user.type("  show<enter>", "demo>   show", "            ^",
              "% Incomplete command: expected history, running-config, terminal, version",
              "demo> ")
    user.type("exit now<enter>", "demo> exit now", "           ^",
              '% Unknown word "now": expected the end of the line', "demo> ")
    user.leave()


def test_numbers_and_addresses_are_checked(user):
    for width in "19", "501", "1e2", "1" * 20:
        user.type("term wid %s<enter>" % width, "demo> term wid " + width, "               ^",
                  '%% Unknown word "%s": expected <20-500>' % width, "demo> ")
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("int eth 8<enter>", "demo(config)# int eth 8", "demo(config-if)# ")
    for address in "1.2.3.4", "1.2.3.256/8", "1.2.3.4/33", "1.2.3/8":
        user.type("ip add %s<enter>" % address, "demo(config-if)# ip add " + address,
                  " " * 24 + "^", '%% Unknown word "%s": expected A.B.C.D/N' % address,
                  "demo(config-if)# ")
    user.type("ip add 255.0.19.1/32<enter>", "demo(config-if)# ip add 255.0.19.1/32",
              "demo(config-if)# ")
    user.leave()


def test_a_mistake_in_a_line_of_several_rows(start):
    user = ShellUser(start(shell(), columns=20), WELCOME[:20], WELCOME[20:], "demo> ")
    user.type("terminal history xy<enter>", "demo> terminal histo", "ry xy", "   ^",
              '% Unknown word "xy":', "  expected size", "demo> ")
    user.type("terminal history<enter>", "demo> terminal histo", "ry", "  ^",
              "% Incomplete", "  command: expected", "  size", "demo> ")
    user.type("terminal history x?", "demo> terminal histo", "ry x?", "   ^",
              '% Unknown word "x":', "  expected size", "demo> terminal histo", "ry x")
    user.leave()


def test_a_mistake_in_a_line_that_fills_its_row(start):
    user = ShellUser(start(shell(), columns=20), WELCOME[:20], WELCOME[20:], "demo> ")
    user.type("terminal xxxxx<enter>", "demo> terminal xxxxx", "% Unknown word",
              '  "xxxxx": expected', "  help-keys,", "  history, width", "demo> ")
    user.type("      terminal<enter>", "demo>       terminal", "^", "% Incomplete",
              "  command: expected", "  help-keys,", "  history, width", "demo> ")
    user.leave()


def test_a_mistake_in_an_upper_row_is_named_but_not_pointed_at(start):
    user = ShellUser(start(shell(), columns=20), WELCOME[:20], WELCOME[20:], "demo> ")
    user.type("exit xy zzzzzzzzzzzz<enter>", "demo> exit xy zzzzzz", "zzzzzz",
              '% Unknown word "xy":', "  expected the end", "  of the line", "demo> ")
    user.leave()


def test_help_is_folded_between_words(start):
    user = ShellUser(start(shell(), columns=40))
    user.type("exi?", "demo> exi?", "  exit  Leave this mode; in exec mode,",
              "        the shell", "demo> exi")
    user.type("<c-a><c-k>conf<enter>", "demo> conf", "demo(config)# ")
    user.type("int eth 1<enter>", "demo(config)# int eth 1", "demo(config-if)# ")
    user.type("<tab>", "demo(config-if)# ",
              "  description  end  exit  interface  ip",
              "  logging  no  show  shutdown  terminal", "demo(config-if)# ")
    user.type("x<enter>", "demo(config-if)# x", " " * 17 + "^",
              '% Unknown word "x": expected', "  description, end, exit, interface, ip,",
              "  logging, no, show, shutdown, terminal", "demo(config-if)# ")
    user.leave()


def test_a_word_is_not_broken_where_it_has_a_hyphen(start):
    user = ShellUser(start(shell(), columns=50))
    user.type("show<enter>", "demo> show", "          ^",
              "% Incomplete command: expected history,", "  running-config, terminal, version",
              "demo> ")
    user.leave()


def test_configuration_is_shown_as_commands(user):
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("host sw-1<enter>", "demo(config)# host sw-1", "sw-1(config)# ")
    user.type("int eth 3<enter>", "sw-1(config)# int eth 3", "sw-1(config-if)# ")
    user.type("desc up  or down<enter>", "sw-1(config-if)# desc up  or down",
              "sw-1(config-if)# ")
    user.type("shut<enter>", "sw-1(config-if)# shut", "sw-1(config-if)# ")
    user.type("ip addr 10.1.2.3/24<enter>", "sw-1(config-if)# ip addr 10.1.2.3/24",
              "sw-1(config-if)# ")
    user.type("no shut<enter>", "sw-1(config-if)# no shut", "sw-1(config-if)# ")
    user.type("end<enter>", "sw-1(config-if)# end", "sw-1> ")
    user.type("sh run<enter>", "sw-1> sh run", "hostname sw-1", "interface ethernet 3",
              "  description up  or down", "  ip address 10.1.2.3/24", "  exit", "sw-1> ")
    user.leave()


def test_from_one_interface_to_another(user):
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("int eth 1<enter>", "demo(config)# int eth 1", "demo(config-if)# ")
    user.type("int loop 7<enter>", "demo(config-if)# int loop 7", "demo(config-if)# ")
    user.type("shut<enter>", "demo(config-if)# shut", "demo(config-if)# ")
    user.type("show run<enter>", "demo(config-if)# show run", "hostname demo",
              "interface ethernet 1", "  exit", "interface loopback 7", "  shutdown", "  exit",
              "demo(config-if)# ")
    user.leave()


def test_terminal_width_of_a_terminal_that_does_not_tell_it(start):
    terminal = start(shell(), rows=0, columns=0)
    terminal.display.screen.resize(24, 40)
    user = ShellUser(terminal)
    user.type("terminal width 40<enter>", "demo> terminal width 40", "demo> ")
    user.type("show terminal and now it wraps as it should",
              "demo> show terminal and now it wraps as ", "it should")
    user.drop(1)
    user.type("<c-a>", "demo> show terminal and now it wraps as ", "it should",
              cursor=(1, len("demo> ")))
    user.drop(1)
    user.type("<c-e><c-w><c-w><c-w><c-w><c-w><c-w><c-w>", "demo> show terminal ")
    user.type("<enter>", "demo> show terminal ", "width 40, history of 1024 lines",
              "TAB and ? give help", "demo> ")
    user.leave()


def test_a_mode_and_a_command_cost_three_lines(start):
    user = ShellUser(start(changed_shell("""
router = config.mode("router", "demo(config-router)# ", "router", "Routing")
@router.command("area", "An area")
def area(): print(shell.words)
""")))
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("ro<tab><enter>", "demo(config)# router", "demo(config-router)# ")
    user.type("a?", "demo(config-router)# a?", "  area  An area", "demo(config-router)# a")
    user.type("<tab><enter>", "demo(config-router)# area", "['area']",
              "demo(config-router)# ")
    user.type("<up><up>", "demo(config-router)# router")
    user.type("<c-c>", "demo(config-router)# router^C", "demo(config-router)# ")
    user.type("exit<enter>", "demo(config-router)# exit", "demo(config)# ")
    user.leave()


# --- History ---------------------------------------------------------------------------


@pytest.mark.smoke
def test_history_is_that_of_the_mode_and_those_above_it(user):
    user.type("configure<enter>", "demo> configure", "demo(config)# ")
    user.type("int eth 1<enter>", "demo(config)# int eth 1", "demo(config-if)# ")
    user.type("shutdown<enter>", "demo(config-if)# shutdown", "demo(config-if)# ")
    user.type("<up><up>", "demo(config-if)# int eth 1")
    user.type("<up>", "demo(config-if)# configure")
    user.type("<c-c>", "demo(config-if)# configure^C", "demo(config-if)# ")
    user.type("sho hi<enter>", "demo(config-if)# sho hi", "    1  configure",
              "    2  int eth 1", "    3  shutdown", "    4  sho hi", "demo(config-if)# ")
    user.type("end<enter>", "demo(config-if)# end", "demo> ")
    user.type("<up>", "demo> configure")
    user.type("<up>", "demo> configure")
    user.type("<c-c>", "demo> configure^C", "demo> ")
    user.type("show history<enter>", "demo> show history", "    1  configure",
              "    2  show history", "demo> ")
    user.leave()


def test_history_size(user):
    for line in "one", "two", "three":
        user.type("! %s<enter>" % line, "demo> ! " + line, "demo> ")
    user.type("term hist size 2<enter>", "demo> term hist size 2", "demo> ")
    user.type("sh hist<enter>", "demo> sh hist", "    1  term hist size 2", "    2  sh hist",
              "demo> ")
    user.type("term hist size 0<enter>", "demo> term hist size 0", "demo> ")
    user.type("<up>", "demo> ")
    user.type("sh hist<enter>", "demo> sh hist", "demo> ")
    user.leave()


# --- Keys ------------------------------------------------------------------------------


def test_a_literal_question_mark_by_quoting_it(user):
    user.type("!<c-v>?<enter>", "demo> !?", "demo> ")
    user.type("<up>", "demo> !?")
    user.leave()


def test_control_characters_are_shown_as_such(user):
    user.type("!<c-v><c-g>x<enter>", "demo> !^Gx", "demo> ")
    user.type("sh hist<enter>", "demo> sh hist", "    1  !^Gx", "    2  sh hist", "demo> ")
    user.type("exit <c-v><c-g> x<enter>", "demo> exit ^G x", "           ^",
              '% Unknown word "^G": expected the end of the line', "demo> ")
    user.type("exit <c-v><c-_> x<enter>", "demo> exit ^_ x", " " * 14 + "^",
              '% Unknown word "x": expected the end of the line', "demo> ")
    user.type("!<c-v><c-g> <bs><bs><bs>show <c-v><c-g>?", "demo> show ^G?",
              "           ^", UNKNOWN_SHOW % "^G", "demo> show ^G")
    user.leave()


NO_HELP = "% No help after letters outside ASCII"


def test_no_help_behind_letters_outside_ascii(user):
    """Where the line would be cut within a letter the read ends: Up brings its beginning."""
    user.type("! B\u00fcro x?", NO_HELP, "demo> ! B\u00fcro x")
    user.type("<tab>", NO_HELP, "demo> ! B\u00fcro x")
    user.type("<c-u>! B\u00fc?", "demo> ! B\u00fc", NO_HELP, "demo> ")
    user.type("<up>", "demo> ! B")
    user.type("<c-u>\u00fc<tab>", "demo> \u00fc", NO_HELP, "demo> ")
    user.type("<up><enter>", "demo> ! B", "demo> ")
    user.leave()


def test_a_description_outside_ascii(user):
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("int eth 1<enter>", "demo(config)# int eth 1", "demo(config-if)# ")
    user.type("desc B\u00fcro<enter>", "demo(config-if)# desc B\u00fcro", "demo(config-if)# ")
    user.type("show run<enter>", "demo(config-if)# show run", "hostname demo",
              "interface ethernet 1", "  description B\u00fcro", "  exit", "demo(config-if)# ")
    user.leave()


def test_a_mistake_behind_letters_of_other_widths(user):
    """It is pointed at where it stands."""
    user.type("show \u00fc<enter>", "demo> show \u00fc", "           ^", UNKNOWN_SHOW % "\u00fc",
              "demo> ")
    user.type("exit <c-v>\u009b x<enter>", "demo> exit \\U+009B x", "           ^",
              '% Unknown word "\\U+009B": expected the end of the line', "demo> ")
    user.leave()


def test_help_keys_off_and_on(user):
    user.type("term help off<enter>", "demo> term help off",
              'TAB and ? insert themselves now, until "terminal help-keys on"', "demo> ")
    user.type("! what?<enter>", "demo> ! what?", "demo> ")
    user.type("sh ter<enter>", "demo> sh ter", "width 80, history of 1024 lines",
              "TAB and ? insert themselves", "demo> ")
    user.type("term help on<enter>", "demo> term help on", "demo> ")
    user.type("sh v?", "demo> sh v?", VERSION, "demo> sh v")
    user.type("<tab>", "demo> sh version ")
    user.leave()


def test_ctrl_c_drops_the_line(user):
    user.type("show", "demo> show")
    user.type("<c-c>", "demo> show^C", "demo> ")
    user.type("<up>", "demo> ")
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("<c-c>", "demo(config)# ^C", "demo(config)# ")
    user.leave()


def test_ctrl_c_in_an_upper_row_goes_on_below_the_line(start):
    user = ShellUser(start(shell(), columns=40))
    user.type("! " + "word " * 20, "demo> ! word word word word word word wo",
              "rd word word word word word word word wo", "rd word word word word word ")
    user.drop(2)
    user.type("<c-a>", "demo> ! word word word word word word wo",
              "rd word word word word word word word wo", "rd word word word word word ",
              cursor=(2, len("demo> ")))
    user.drop(2)
    user.type("<c-c>", "demo> ^C", "demo> ")
    user.leave()


def test_ctrl_z_leads_back_to_exec_mode(user):
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("int eth 1<enter>", "demo(config)# int eth 1", "demo(config-if)# ")
    user.type("shut", "demo(config-if)# shut")
    user.type("<c-z>", "demo(config-if)# shut^Z", "demo> ")
    user.type("<c-z>", "demo> ^Z", "demo> ")
    user.leave()


def test_ctrl_d_leaves_a_mode_and_at_last_the_shell(user):
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    user.type("int eth 1<enter>", "demo(config)# int eth 1", "demo(config-if)# ")
    user.type("<c-d>", "demo(config-if)# ^D", "demo(config)# ")
    user.type("<c-d>", "demo(config)# ^D", "demo> ")
    user.leave("<c-d>")


def test_a_lost_terminal_ends_the_shell_in_good_order(start, tmp_path):
    user = ShellUser(start(shell(), env={"TMPDIR": str(tmp_path)}))
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    assert len(os.listdir(tmp_path)) == 1
    user.terminal.send("hostname half")
    user.terminal.expect_taken()
    user.terminal.hang_up()
    user.terminal.expect_end("clean")
    assert os.listdir(tmp_path) == []


def test_a_plain_terminal(start):
    user = ShellUser(start(shell(), env={"TERM": "dumb"}))
    user.type("show v<tab>", "demo> show v", "demo> show version ")
    user.type("?", "demo> show version", "demo> show version ?", "  <cr>  run the command",
              "demo> show version ")
    assert b"\x1b" not in user.terminal.display.raw
    user.leave("<bs>" * 20 + "exit<enter>")


# --- Without a terminal ----------------------------------------------------------------


@pytest.mark.smoke
def test_commands_from_a_pipe(run):
    result = run(shell(), stdin=b"conf\n\n! a comment\nint eth 2\n desc what?\tthen\nend\n"
                                b"sh run\nsh hist")
    assert result.stdout.decode().splitlines() == [
        "hostname demo", "interface ethernet 2", "  description what?\tthen", "  exit",
        "    1  conf", "    2  sh run", "    3  sh hist"]
    assert result.stderr == b""


def test_a_mistake_in_a_pipe_ends_it_with_its_line(run):
    result = run(shell(), stdin=b"conf\nhost sw\n\nint eth 9\nend\nshow run\n",
                 end="exception")
    assert result.stdout == b""
    assert result.stderr.decode().splitlines() == [
        "line 4: int eth 9", "                ^", '% Unknown word "9": expected <1-8>']


def test_a_line_that_is_no_utf8_in_a_pipe_ends_it(run):
    result = run(shell(), stdin=b"conf\n! B\xc3\xbcro\n! B\xfcro\nend\n", end="exception")
    assert result.stdout == b""
    assert result.stderr.decode() == "line 3: % The line is not UTF-8\n"


def test_commands_from_a_file(run, tmp_path):
    path = tmp_path / "commands"
    path.write_text("conf\nhost sw\nend\nsh run\nexit\nwhat is this\n")
    assert run(shell(str(path))).stdout == b"hostname sw\n"
    with open(path) as file:
        assert run(shell(), stdin=file).stdout == b"hostname sw\n"
    path.write_text("show version\nshow")
    result = run(shell(str(path)), end="exception")
    assert result.stdout.startswith(b"Example shell")
    assert result.stderr.decode().splitlines() == [
        "line 2: show", "            ^",
        "% Incomplete command: expected history, running-config, terminal, version"]


def test_shown_configuration_can_be_fed_back(run):
    shown = run(shell(), stdin=b"conf\nhost a\nint eth 1\nip addr 1.2.3.4/5\nshut\nexit\n"
                               b"int loop 0\nend\nsh run\n").stdout
    assert shown.count(b"\n") == 7
    assert run(shell(), stdin=b"conf\n" + shown + b"end\nshow run\n").stdout == shown


def test_wrong_arguments(run):
    result = run(shell("--serve", "a", "--connect", "b"), end="status 2")
    assert b"not allowed with" in result.stderr
    result = run(shell("no-such-file"), end="exception")
    assert result.stderr == b"demo: [Errno 2] No such file or directory: 'no-such-file'\n"
    result = run(shell("--watch", "no-such-log"), end="exception")
    assert result.stderr == b"demo: [Errno 2] No such file or directory: 'no-such-log'\n"


# --- What is pasted --------------------------------------------------------------------


PASTE, PASTE_END = "<esc>[200~", "<esc>[201~"


def brackets_pastes(terminal):
    """Whether bracketed paste is on."""
    raw = bytes(terminal.display.raw)
    return raw.rfind(b"\x1b[?2004h") > raw.rfind(b"\x1b[?2004l")


def test_what_is_pasted_is_text(user):
    assert brackets_pastes(user.terminal)
    user.type(PASTE + "! why?" + PASTE_END, "demo> ! why?")
    user.type("<enter>" + PASTE + "! a<tab>b<enter>! two<enter>! three?" + PASTE_END,
              "demo> ! why?", "demo> ! a       b", "demo> ! two", "demo> ! three?")
    user.type("<c-u>t?", "demo> t?", "  terminal  Change settings of the terminal", "demo> t")
    user.leave()
    assert not brackets_pastes(user.terminal)


@pytest.mark.parametrize("way", ["SIGTERM", "SIGQUIT", "Ctrl-D", "exit"])
def test_every_way_out_switches_bracketed_paste_off(user, way):
    user.type(PASTE + "! a", "demo> ! a")  # without its end
    if way in ("Ctrl-D", "exit"):
        user.type(PASTE_END, "demo> ! a")
        user.leave("<c-u><c-d>" if way == "Ctrl-D" else "<c-u>exit<enter>")
    else:
        user.terminal.signal(getattr(signal, way))
        user.terminal.expect_end(way)
    assert not brackets_pastes(user.terminal)


def test_a_paste_without_end_is_over_with_ctrl_c(user):
    user.type(PASTE + "! a<c-d>?", "demo> ! a?")
    user.type("<c-c>", "demo> ! a?^C", "demo> ")
    user.type("t?", "demo> t?", "  terminal  Change settings of the terminal", "demo> t")
    user.leave()


def test_a_dumb_terminal_gets_no_escape_sequences(start):
    user = ShellUser(start(shell(), env={"TERM": "dumb"}))
    user.leave()
    assert b"\x1b" not in user.terminal.display.raw


# What others wrote

HIDDEN = "\x1b[2J\x07\x9b\u202e\u200b\u2028\ue000"
SHOWN = "^[[2J^G\\U+009B\\U+202E\\U+200B\\U+2028\\U+E000"


def test_what_is_visible(run):
    """Of every character there is: none that a terminal acts on, or shows as none, is left."""
    found = run("""
import unicodedata
from keyline_shell import visible
for letter in map(chr, range(sys.maxunicode + 1)):
    shown = visible(letter)
    bad = unicodedata.category(letter) in ("Cc", "Cf", "Cs", "Co", "Cn", "Zl", "Zp")
    assert (shown != letter) == (bad and letter not in "\\t\\n"), ascii(letter)
    assert shown == letter or shown.isascii() and shown.isprintable()
tell("shown", [visible(text) for text in %r])
""" % (["a\tb é ä\u0308 漢 \U0001f642\n", HIDDEN],)).one("shown")
    assert found == ["a\tb é ä\u0308 漢 \U0001f642\n", SHOWN]


FILLED = """interfaces["ethernet 1"] = {"description": %r}""" % ("a" + HIDDEN + "z")


def test_what_users_wrote_is_shown_made_visible(run, tmp_path):
    """The configuration and mistakes; also what the name of a file brings."""
    result = run(changed_shell(FILLED), stdin=b"sh run\nconf x\x1b[2J\x07z", end="exception")
    shown, said = result.stdout.decode(), result.stderr.decode()
    assert shown.split("\n")[:4] == [
        "hostname demo", "interface ethernet 1", "  description a" + SHOWN + "z", "  exit"]
    assert said.split("\n")[0] == "line 2: conf x^[[2J^Gz"
    result = run(shell(str(tmp_path / ("no" + HIDDEN))), end="exception")
    for output in shown, said, result.stderr.decode():
        assert all(letter == "\n" or letter.isprintable() for letter in output)


def test_what_is_recalled_is_shown_made_visible(start):
    """At a terminal, where lines can come from a file, not from keys."""
    child = start(changed_shell("""
import Keyline
from keyline_shell import session
def recall(self): Keyline.addHistory(%r, "exec", "")
shell.history, session.Session.recall = "there", recall
""" % ("zz" + HIDDEN)))
    user = ShellUser(child)
    before = len(child.display.raw)
    child.send("sh hist<enter>")
    child.wait("the history", lambda: child.display.raw[before:].count(b"demo> ") == 1)
    shown = bytes(child.display.raw[before:]).decode()
    assert "    1  zz" + SHOWN + "\r\n" in shown
    assert not any(letter in shown for letter in "\x9b\u202e\u200b\u2028\ue000")
    user.above = []
    child.send("exit<enter>")
    child.expect_end()


# --- The other commands ----------------------------------------------------------------------


def configuring(user):
    user.type("conf<enter>", "demo> conf", "demo(config)# ")
    return user


def test_interfaces_as_a_table_and_by_name(user):
    configuring(user)
    user.type("list<enter>", "demo(config)# list", "Interface  Address", "demo(config)# ")
    user.type("int eth 1<enter>ip add 10.0.0.1/8<enter>int loop 0<enter>exit<enter>",
              "demo(config)# int eth 1", "demo(config-if)# ip add 10.0.0.1/8",
              "demo(config-if)# int loop 0", "demo(config-if)# exit", "demo(config)# ")
    user.type("list ?", "demo(config)# list ?", "  ethernet1", "  loopback0",
              "  <cr>       run the command", "demo(config)# list ")
    user.type("l<tab><enter>", "demo(config)# list loopback0", "Interface   Address",
              "loopback 0  none", "demo(config)# ")
    user.type("list<enter>", "demo(config)# list", "Interface   Address",
              "ethernet 1  10.0.0.1/8", "loopback 0  none", "demo(config)# ")
    user.type("list ether2<enter>", "demo(config)# list ether2", " " * 19 + "^",
              '% Unknown word "ether2": expected INTERFACE', "demo(config)# ")
    user.leave()


def test_progress_and_its_end_by_ctrl_c(user):
    configuring(user)
    user.type("probe count 1<enter>", "demo(config)# probe count 1", "demo(config)# ")
    user.type("probe count 1000<enter>", "demo(config)# probe count 1000",
              "testing: 0 of 1000, 0 %", cursor=(0, len("testing: 0 of 1000, 0 %")))
    user.terminal.send("<c-c>")
    user.terminal.wait_screen("the end", lambda rows: [
        row for row in rows if row][-1] == "demo(config)#")
    assert re.search(r"^testing: \d+ of 1000, \d+ %\^C$", "\n".join(user.terminal.display.rows()),
                     re.M)
    user.terminal.send("end<enter>exit<enter>")
    user.terminal.expect_end("clean")


def test_questions(user):
    configuring(user)
    user.type("setup<enter>slow<enter>abc<enter>abc<enter>", "demo(config)# setup",
              "Speed [fast]: slow", "Password:", "Again:",
              "% A password has at least four letters", "demo(config)# ")
    user.type("setup<enter><enter>abcd<enter>abcd<enter>n<enter>", "demo(config)# setup",
              "Speed [fast]:", "Password:", "Again:", "Keep this, at fast speed [y/n] n",
              "demo(config)# ")
    user.type("setup<enter><enter>abcd<enter>abcd<enter>y<enter>lab<enter>", "demo(config)# setup",
              "Speed [fast]:", "Password:", "Again:", "Keep this, at fast speed [y/n] y",
              "Name of the device [demo]: lab", "lab(config)# ")
    user.leave()


def test_no_hostname_is_the_first_one(user):
    configuring(user)
    user.type("host lab<enter>no host<enter>", "demo(config)# host lab", "lab(config)# no host",
              "demo(config)# ")
    user.leave()


def test_options_for_history_and_idle_time(start, tmp_path):
    path = tmp_path / "history"
    user = ShellUser(start(shell("--history", str(path))))
    user.type("! one<enter>", "demo> ! one", "demo> ")
    user.leave()
    child = start(shell("--history", str(path), "--idle", "3"))
    user = ShellUser(child)
    user.terminal.send("<up>")
    child.wait_screen("the line", lambda rows: "demo> exit" in rows)
    child.expect_end("status 124")
    assert [row for row in child.display.rows() if row.startswith("%")] == [
        "% No key for 1.5 seconds: the session ends in 1.5", "% No key for 3 seconds: good-bye"]
