"""The symbols that the shared object exports, and those that it imports."""
import subprocess

import pytest

EXPORTS = {
    "PyInit_Keyline": "T", "complete_line": "T", "history_saved_invokers": "D",
    "maps": "D", "readlineThreadId": "D",
}


def lines(*command):
    return subprocess.run(command, check=True, capture_output=True,
                          text=True).stdout.splitlines()


def dynamic_symbols(setup, which):
    """Name -> type letter; versions are cut off the names."""
    found = (line.split() for line in lines("nm", "-D", which, setup.module()))
    return {words[-1].split("@")[0]: words[-2] for words in found}


def test_exactly_the_five(setup):
    """Initialised or zeroed data are one here; C names, so that the shell can find them."""
    found = dynamic_symbols(setup, "--defined-only")
    assert {name: "D" if letter in "BDR" else letter for name, letter in found.items()
            if not name.startswith(("__asan", "__ubsan"))} == EXPORTS


def test_the_tables_have_their_size(setup):
    """Five keymaps, one thread id."""
    sizes = {line.split()[-1]: int(line.split()[1], 16)
             for line in lines("nm", "-D", "-S", "--defined-only", setup.module())
             if len(line.split()) == 4}
    with open(setup.module(), "rb") as file:
        pointer = {1: 4, 2: 8}[file.read(5)[4]]  # by the class in an object's head
    assert sizes["maps"] == 5 * pointer
    assert sizes["readlineThreadId"] == pointer
    assert sizes["history_saved_invokers"] > 0


def test_no_editor_symbol_is_undefined(setup):
    """An undefined editor name would be found in whatever library was loaded first."""
    wanted = set(dynamic_symbols(setup, "--undefined-only"))
    editor = {name for name in wanted
              if name.startswith(("rl_", "el_", "history", "add_history", "tok_", "hist_"))
              or name in ("readline", "clear_history", "get_history", "stifle_history")}
    assert not editor
    assert {"vantor_open", "vantor_close", "vantor_inotify_fd",
            "vantor_process_event"} <= wanted


def test_no_cplusplus_runtime(setup):
    needed = [line.split("[")[1].rstrip("]")
              for line in lines("readelf", "-d", setup.module()) if "(NEEDED)" in line]
    assert "libVantor.so" in needed
    assert not [name for name in needed
                if name.startswith(("libstdc++", "libgcc_s", "libedit", "libreadline"))]
    assert not [name for name in dynamic_symbols(setup, "--undefined-only")
                if name.startswith(("_Z", "__cxa_", "__gxx", "_Unwind"))
                and name not in ("__cxa_finalize", "__cxa_atexit")]


@pytest.mark.parametrize("when", ["before", "after"])
def test_beside_the_systems_editors(start, when):
    """Both are loaded with their symbols global, and neither disturbs the other."""
    load = """
import ctypes
edit = ctypes.CDLL("libedit.so.2", ctypes.RTLD_GLOBAL)
other = ctypes.CDLL("libreadline.so.8", ctypes.RTLD_GLOBAL)
"""
    child = start((load if when == "before" else "") + """
import Keyline
Keyline.newHistoryMode("mode", "")
read(lambda key, line: "able", "mode")
""" + (load if when == "after" else "") + """
Keyline.addHistory("variable", "mode", "")
read(None, "mode")
read()
for library in (edit, other):
    library.rl_initialize()
    tell("elsewhere", ctypes.c_char_p.in_dll(library, "rl_readline_name").value)
    tell("entries", library.where_history())
""")
    child.enter("vari<tab>", "variable")
    child.type("<up>", "variable")
    child.send("s<enter>")
    child.expect_line("variables")
    child.expect_prompt()
    child.send("<c-c>")
    child.expect_raised("KeyboardInterrupt", "Ctrl-C pressed")
    for library in ("edit", "readline"):
        assert child.expect_fact("elsewhere") != b"OrvaneCli"
        child.expect_fact("entries", 0)
    child.expect_end()


def test_the_thread_id_can_be_read(start):
    child = start("""
import ctypes, threading, Keyline
library = ctypes.CDLL(Keyline.__file__)
thread = ctypes.c_ulong.in_dll(library, "readlineThreadId")
tell("before", thread.value)
read()
tell("after", thread.value == threading.get_ident())
""")
    child.expect_fact("before", 0)
    child.enter("")
    child.expect_fact("after", True)
    child.expect_end()
