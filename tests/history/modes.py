"""A tree of command modes with their lines, for the tests of the history."""

START = "import Keyline\nKeyline.keyBindingsEnabledIs(True)\n"

# Three levels with siblings, and a root of its own; the lines as they were entered.
PARENTS = {"exec": "", "config": "exec", "if": "config", "vlan": "config", "bash": ""}
LINES = [("show version", "exec"), ("show all", "vlan"), ("configure", "exec"),
         ("hostname a", "config"), ("show clock", "bash"), ("shutdown", "if"),
         ("show vlan", "vlan"), ("ls -l", "bash"), ("show config", "config"),
         ("interface 1", "config"), ("show interfaces", "exec"), ("speed 10", "if"),
         ("show speed", "if"), ("name red", "vlan"), ("show files", "bash")]
TREE = "".join(
    [START] + ["Keyline.newHistoryMode(%r, %r)\n" % pair for pair in PARENTS.items()]
    + ["Keyline.addHistory(%r, %r, '')\n" % line for line in LINES])
# How a read enters each: the last two are a mode that is not there, so that there is none,
# and a new one below another, without lines of its own.
READS = dict({mode: "read(None, %r, '')" % mode for mode in PARENTS},
             nobody="read(None, 'new', 'nobody')", below="read(None, 'below', 'if')")


def visible(mode):
    """The lines that a mode shows, newest first."""
    chain = list(PARENTS) if mode == "nobody" else []
    mode = "if" if mode == "below" else mode
    while mode in PARENTS:
        chain, mode = chain + [mode], PARENTS[mode]
    return [line for line, entered in reversed(LINES) if entered in chain]
