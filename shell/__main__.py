"""The example shell: a small network device to play with, and to copy from."""
import sys
import tempfile
import threading
import time
from ipaddress import IPv4Interface

from keyline_shell import (Refused, Shell, Word, ask, choose, colour, confirm, page, password,
                           progress, table, visible)

names = {"hostname": "demo"}
interfaces: dict[str, dict[str, str]] = {}  # the settings of each
log = tempfile.NamedTemporaryFile(prefix="demo-", suffix=".log")
shell = Shell(banner="? helps, TAB completes, exit leaves", log=log.name, idle=3600, warning=60)
shell.standard()
shell.kind("A.B.C.D/N", lambda text: str(IPv4Interface(text if "/" in text else "")))
shell.kind("INTERFACE", values=lambda: [name.replace(" ", "") for name in interfaces])
shell.add({"show": Word(next={"version": Word("What this is", lambda: print(
    "Example shell of Keyline, Python " + sys.version.split()[0]))})})
top = shell.mode("exec", lambda: colour(names["hostname"] + "> ", "bold"))
config = top.mode("config", lambda: colour(names["hostname"] + "(config)# ", "bold"),
                  "configure", "Change the configuration")
port = config.mode("interface", lambda: colour(names["hostname"] + "(config-if)# ", "bold"))


@config.command("hostname NAME", "Name the device", no=True)
def hostname(name: str = "demo") -> None:
    names["hostname"] = name


@port.command("interface (ethernet <1-8>|loopback <0-7>)")  # from one to another
@config.command("interface (ethernet <1-8>|loopback <0-7>)")
def interface(*number: int) -> None:
    """Configure an interface
    ethernet: Ethernet port
    loopback: Loopback interface
    <1-8>: Its number
    <0-7>: Its number"""
    port.enter(interfaces.setdefault(" ".join(shell.words[1:]), {}))


@port.command("description LINE", "Describe the interface\nno description: Describe it no more\n"
              "LINE: Any text; Ctrl-V ? types a question mark", no=True)
@port.command("ip address A.B.C.D/N", "Address of the interface\nip: Internet protocol\n"
              "A.B.C.D/N: Address and length of the prefix\nno address: Take it away", no=True)
@port.command("shutdown", "Switch the interface off\nno shutdown: Switch the interface on", True)
def setting(*value: str, no: bool = False) -> None:
    settings, words = port.values[0], shell.words[no:]
    name = " ".join(words[:len(words) - len(value)])
    settings[name] = "".join(value)
    if no:
        del settings[name]


@shell.command("show running-config", "The configuration, as commands")
def show_configuration() -> None:
    rows = ["hostname " + names["hostname"]]
    for name, settings in interfaces.items():
        rows += ["interface " + name] + ["  " + visible((key + " " + value).rstrip())
                                         for key, value in settings.items()] + ["  exit"]
    page(rows)


@config.command("list [INTERFACE]", "The interfaces that there are, or one of them")
def show_interfaces(wanted: str = "") -> None:
    page(table([(name, its.get("ip address", "none")) for name, its in interfaces.items()
                if wanted in ("", name.replace(" ", ""))], ("Interface", "Address")))


@config.command("probe [count <1-1000>]", "Test the cables; Ctrl-C ends it")
def probe(count: int = 50) -> None:
    for _ in progress(range(count), "testing"):
        time.sleep(0.05)


@config.command("setup", "Answer some questions")
def setup() -> None:
    speed = choose("Speed", {"slow": "9600 bit/s", "fast": "115200 bit/s"}, default="fast")
    if len(password(twice="Again: ")) < 4:
        raise Refused("A password has at least four letters")
    if confirm("Keep this, at %s speed" % speed):
        names["hostname"] = ask("Name of the device", names["hostname"])


@shell.command("logging test [<1-1000000> [rate <1-1000>]]", "Write lines to the log\n<1-1000000>: "
               "How many; default 3\nrate: Not all at once\n<1-1000>: Lines a second")
def test_log(count: int = 3, rate: int = 0) -> None:
    def write() -> None:
        with open(shell.log_file, "a", buffering=1 if rate else -1) as file:
            at = 0
            while shell.current and (at := at + 1) <= count:  # none when the session is over
                time.sleep(1 / rate if rate else 0)
                file.write(time.strftime("%b %d %H:%M:%S %%TEST-6: line ") + f"{at} of {count}\n")

    threading.Thread(target=write).start() if rate else write()


if __name__ == "__main__":
    with log:
        sys.exit(shell.main("./demo", "a small network device"))
