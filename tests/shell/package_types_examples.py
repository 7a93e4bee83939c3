"""Uses of keyline_shell for a type checker to judge; never run. See test_package_types.py."""
from ipaddress import IPv4Address
from typing import List

from keyline_shell import (Kind, Mode, Refused, Shell, Tree, Word, ask, choose, colour, columns,
                           confirm, page, password, progress, table, users, visible)

shell = Shell(banner="hello", history="~/.history", log="log", idle=60, warning=5)
top: Mode = shell.mode("exec", "> ")
low: Mode = top.mode("low", lambda: colour("low> ", "bold"), "down", "Go down")


@top.command("ping NAME [count <1-100>]")
def ping(host: str, count: int = 5) -> int:
    for number in progress(range(count), host):
        count += number.bit_length()
    return count


@shell.command("speed (slow|fast)", "How fast", no=True)
@low.command("speed (slow|fast)", "How fast", no=True)
def speed(which: str = "slow", no: bool = False) -> None:
    if not which:
        raise Refused("not so")


def right() -> List[str]:
    shell.kind("A.B.C.D", IPv4Address, values=lambda: ["192.0.2.1"])
    shell.kind("PORT", values=lambda: {"eth0": "up"})
    shell.kind("HEX", "[0-9a-f]+", "A number")
    tree: Tree = {"x": Word("X", None, {"<1-3>": Word("N", lambda number: number + 1)})}
    shell.add(tree)
    low.add(tree)
    shell.language.kinds["MORE"] = Kind(values=lambda: ("a", "b"))
    status: int = shell.run() + ping("a", 3) + shell.main("./lab") + users.serve("s", shell.run)
    if page(table([(1, "a"), (2, None)], ("Number", "Name"))) and confirm("sure?", True):
        page("text")
    return columns([ask("Name", "x"), choose("Speed", ["a"]), choose("Speed", {"a": "b"}),
                    password(twice="Again: "), visible("x"), str(status)])


def wrong() -> None:
    Shell("exec")  # error: misc
    Shell(idle="60")  # error: arg-type
    shell.mode("exec")  # error: call-arg
    shell.mode("exec", 1)  # error: arg-type
    ping(1)  # error: arg-type
    ping("a", "b")  # error: arg-type
    speed("slow").upper()  # error: attr-defined
    shell.kind("PORT", values=["eth0"])  # error: arg-type
    shell.add({"x": "y"})  # error: dict-item
    confirm("sure?", "yes")  # error: arg-type
    choose("Speed", 3)  # error: arg-type
    table([1])  # error: list-item
    progress(3, "x")  # error: arg-type
    shell.say(b"x")  # error: arg-type
    shell.leave("3")  # error: arg-type
    shell.run("file")  # error: arg-type
    shell.nothing()  # error: attr-defined
