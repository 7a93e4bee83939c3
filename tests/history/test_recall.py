"""Old lines at the prompt: the user finds what the current mode shows, and nothing else."""
import pytest

from modes import PARENTS, READS, START, TREE, visible

MODES = pytest.mark.parametrize("mode", list(PARENTS) + ["nobody", "below"])


def browse(child, mode, up, down, half="ha"):
    """Up through all lines and against the end, down again to the line half typed."""
    lines = visible(mode)
    child.send(half + "<left>")
    child.expect_shown(half)
    for line in lines + lines[-1:]:
        child.send(up)
        child.expect_shown(line)
    for line in lines[-2::-1] + [half, half]:
        child.send(down)
        child.expect_shown(line)
    child.send("<c-e>lf<enter>")
    child.expect_line(half + "lf")


@pytest.mark.smoke
@MODES
def test_up_and_down(start, mode):
    """Only what the mode shows, and the line half typed comes back; without a key too."""
    child = start(TREE + READS[mode] + "\nread()")
    for up, down in (("<up>", "<down>"), ("<c-p>", "<c-n>")):
        child.expect_prompt()
        browse(child, mode, up, down)
    child.expect_end()


@MODES
def test_incremental_search(start, mode):
    child = start(TREE + READS[mode])
    child.expect_prompt()
    child.send("<c-r>show")
    found = [line for line in visible(mode) if "show" in line]
    for index, line in enumerate(found):
        if index:
            child.send("<c-r>")
        child.expect_shown(line, "bck:show")
    child.send("<c-r>")  # nothing older: it stays, and says so
    child.expect_shown(found[-1], "bck?show")
    child.send("<enter>")
    child.expect_line(found[-1])
    child.expect_end()


@MODES
def test_search_for_the_start_of_the_line(start, mode):
    """The editor's own search: lines that begin like the one typed, which comes back."""
    child = start(TREE + READS[mode])
    child.type("show")
    found = [line for line in visible(mode) if line.startswith("show") and line != "show"]
    for line in found:
        child.send("<m-p>")
        child.expect_shown(line)
    for line in found[-2::-1] + ["show"]:
        child.send("<m-n>")
        child.expect_shown(line)
    child.send("<enter>")
    child.expect_line("show")
    child.expect_end()


@MODES
def test_vi_commands(start, tmp_path, mode):
    """k, j, + and -, a search with / and n and N, G for the oldest line."""
    (tmp_path / "editrc").write_text("bind -v\n")
    child = start(TREE + READS[mode] + "\nread()\nread()",
                  env={"EDITRC": str(tmp_path / "editrc")})
    lines = visible(mode)
    for up, down in (("k", "j"), ("-", "+")):
        child.expect_prompt()
        child.send("ha<esc>")
        for line in lines:
            child.send(up)
            child.expect_shown(line)
        for line in lines[-2::-1] + ["ha"]:
            child.send(down)
            child.expect_shown(line)
        child.send("<enter>")
        child.expect_line("ha")
    child.type("<esc>G", lines[-1])
    child.send("ddi<esc>/o <enter>")
    found = [line for line in lines if "o " in line] or [""]
    for line in found:
        child.expect_shown(line)
        child.send("n")
    for line in found[-2::-1]:
        child.send("N")
        child.expect_shown(line)
    child.send("<enter>")
    child.expect_line(found[0])
    child.expect_end()


def test_long_lines_come_back_whole(start):
    """Both the one that was half typed and those browsed, past all sizes of a buffer."""
    child = start(START + """
for number in (500, 1024, 1500, 5000):
    Keyline.addHistory(str(number) * (number // len(str(number))), "exec", "")
read(None, "exec", ""); read()
""")
    for steps in (0, 3):
        child.expect_prompt()
        child.send("x" * 1500 + "<up>" * 6 + "<down>" * (steps or 6) + "<enter>")
        child.expect_line("x" * 1500 if not steps else "5000" * 1250)
    child.expect_end()


def test_limit_at_the_prompt(start):
    child = start(START + """
for limit in (2, 0, 5):
    Keyline.historyLimitIs(limit)
    for line in ("one", "two", "three"): Keyline.addHistory(line, "exec", "")
    read(None, "exec", "")
""")
    for lines in (["three", "two"], [], ["three", "two", "one"]):
        child.expect_prompt()
        child.send("x")
        for line in lines + lines[-1:]:
            child.send("<up>")
            child.expect_shown(line)
        child.send("<up>" + "<down>" * 9 + "y<enter>")
        child.expect_line("xy")
    child.expect_end()


def test_a_thousand_resets(start):
    """Editors come and go, the store stays: modes, limit, and lines as they are added."""
    child = start(TREE + """
Keyline.historyLimitIs(3)
for number in range(1000):
    Keyline.resetInput()
    Keyline.keyBindingsEnabledIs(True)
    assert Keyline.history() == []
    for name in "abcd": Keyline.addHistory(name + str(number), "if", "nobody")
    assert Keyline.history("vlan") == [] and len(Keyline.history("if")) == 3
Keyline.addHistory("of config", "config", "nobody")
read(None, "if")
read(None, "config")
""")
    for lines in (["of config", "d999", "c999"], ["of config"]):
        child.expect_prompt()
        for line in lines:
            child.send("<up>")
            child.expect_shown(line)
        child.send("<enter>")
        child.expect_line(lines[-1])
    child.expect_end()
