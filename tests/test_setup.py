"""What ./demo and ./check begin with: packages, interpreters, build folders.

A small machine is made for each test: programs that stand in for the system's own come first on
its PATH, and a source tree of a few lines is in the place of the project's.
"""
import os
import shutil
import subprocess

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# Packages are lines in a file; each has a program of its name.
PROGRAMS = {
    "dpkg-query": """
        for name; do grep -qx -e "$name" "$MACHINE/installed" && echo "ii $name"; done; true""",
    "apt-get": """
        case " $* " in *" install "*) ;; *) exit 0 ;; esac
        for name; do
            case $name in -* | *::* | install) continue ;; esac
            echo "$name" >> "$MACHINE/installed"
            printf '#!/bin/sh\\n' > "$MACHINE/bin/$name"
            chmod +x "$MACHINE/bin/$name"
        done""",
    "sudo": """
        [ "$1" != -n ] || shift
        exec "$@" """,
}

SOURCES = """
cmake_minimum_required(VERSION 3.18)
project(Small LANGUAGES NONE)
find_program(LATER later PATHS ENV PATH NO_DEFAULT_PATH)
file(WRITE "${CMAKE_BINARY_DIR}/found" "${LATER}")
file(APPEND "${CMAKE_SOURCE_DIR}/configured" "once\\n")
add_custom_target(built)
"""


class Machine:
    """Where nothing is installed yet."""

    def __init__(self, folder):
        self.folder, self.root = folder, folder / "root"
        (folder / "bin").mkdir()
        (folder / "installed").touch()
        for name, text in PROGRAMS.items():
            self.program(name, text)
        shutil.copytree(os.path.join(ROOT, "tools"), self.root / "tools")
        (self.root / "CMakeLists.txt").write_text(SOURCES)
        (self.root / "tools" / "packages").write_text("# who, what\nbuild first\ncheck later\n")

    def program(self, name, text):
        """Puts a script of the shell on the PATH."""
        path = self.folder / "bin" / name
        path.write_text("#!/bin/sh\n" + text + "\n")
        path.chmod(0o755)

    def run(self, script, **changes):
        """The result of a script that has tools/house.sh read."""
        environment = dict(os.environ, MACHINE=str(self.folder),
                           PATH="%s:%s" % (self.folder / "bin", os.environ["PATH"]))
        environment.update(changes)
        return subprocess.run(["bash", "-uc", ". tools/house.sh\n" + script], cwd=self.root,
                              env=environment, stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def build(self, *groups):
        """Installs the groups and builds; answers what the configuration has found."""
        result = self.run('install_packages %s && build "$root/build/it" python built'
                          % " ".join(groups))
        assert result.returncode == 0, result.stdout + result.stderr
        return (self.root / "build" / "it" / "found").read_text()


@pytest.fixture
def machine(tmp_path):
    return Machine(tmp_path)


# --- Build folders -----------------------------------------------------------------------


@pytest.mark.parametrize("order", [("build", "build check"), ("build check", "build")])
def test_what_is_installed_later_is_found(machine, order):
    """The two commands pass in either order: what one installs, the other's folder knows."""
    for groups in order:
        found = machine.build(*groups.split())
    assert found == str(machine.folder / "bin" / "later")


def test_configured_once(machine):
    """With nothing new installed, nothing is configured anew."""
    machine.build("build")
    machine.build("build")
    assert (machine.root / "configured").read_text() == "once\n"
