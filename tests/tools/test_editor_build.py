"""lineedit/build.sh itself: which compiler and flags it takes, and when it builds again.

It is run on a library of a few lines in the place of the line editor, whose archive, sum and
series are made here. What it made is read from the object files.
"""
import hashlib
import io
import os
import re
import shutil
import subprocess
import tarfile

import pytest

from script import ROOT

USUAL = ("CC", "CXX", "CPPFLAGS", "CFLAGS", "CXXFLAGS", "LDFLAGS")

# What the editor's own configure and make do, as far as the script relies on it.
CONFIGURE = r"""#!/bin/sh
echo configured >> "$COUNT"
for setting; do
    case $setting in CC=*|CFLAGS=*|LDFLAGS=*|CPPFLAGS=*) echo "$setting" ;; esac
done > src/Makefile
: > config.h
cat >> src/Makefile <<'RULES'
all:
	$(CC) $(CFLAGS) -c edit.c more.c
	mkdir -p .libs
	ar rc .libs/libedit.a edit.o more.o
RULES
"""
# A part that objects share under one name, as a compiler makes them for some machines, and a
# setting to be told in the object.
SHARED = r"""
#ifdef ALONE
static const char shared_part[] = {1};
#else
__asm__(".section .rodata.shared,\"aG\",%progbits,shared_part,comdat\n"
        ".weak shared_part\n.hidden shared_part\n.type shared_part, %object\n"
        "shared_part:\n.byte 1\n.size shared_part, 1\n.text\n");
extern const char shared_part[] __attribute__((visibility("hidden")));
#endif
#ifndef TOLD
#define TOLD nothing
#endif
#define TEXT(x) TEXT_OF(x)
#define TEXT_OF(x) #x
"""
FILES = {
    "configure": CONFIGURE,
    "src/histedit.h": "", "src/editline/readline.h": "",
    "src/shared.h": SHARED,
    "src/edit.c": '#include "shared.h"\n#include <sys/types.h>\n#include <time.h>\n'
                  '_Static_assert(sizeof(off_t) == 8 && _FILE_OFFSET_BITS == 64\n'
                  '    && _TIME_BITS == 64, "the flags");\n'
                  'const char told[] = "told=" TEXT(TOLD);\n'
                  '__attribute__((visibility("hidden"))) int inner(int n) { return n + 1; }\n'
                  'int edit(int n) { return inner(n) + shared_part[0]; }\n',
    "src/more.c": '#include "shared.h"\n__attribute__((visibility("hidden"))) int inner(int);\n'
                  'int more(int n) { return inner(n) + shared_part[0]; }\n',
}
USER = '#include "shared.h"\nint edit(int); int more(int);\n' \
       'int main(void) { return edit(1) + more(2) + shared_part[0] - 8; }\n'


class Project:
    """A copy of the script with a library of its own."""

    def __init__(self, folder):
        self.folder, self.out = folder, folder / "out"
        here = folder / "lineedit"
        here.mkdir()
        for name in ("build.sh", "fetch.sh", "join.sh", "links.sh"):
            shutil.copy(os.path.join(ROOT, "lineedit", name), here)
        (here / "patches").mkdir()
        (here / "src").mkdir()
        (here / "series").write_text("")
        self.script = here / "build.sh"
        self.archive = folder / "libedit_1.0.orig.tar.gz"
        with tarfile.open(self.archive, "w:gz") as archive:
            for name, text in FILES.items():
                member = tarfile.TarInfo("library/" + name)
                member.size, member.mode = len(text), 0o755
                archive.addfile(member, io.BytesIO(text.encode()))
        digest = hashlib.sha256(self.archive.read_bytes()).hexdigest()
        (here / "archive.sha256").write_text("%s  %s\n" % (digest, self.archive.name))
        (folder / "user.c").write_text(USER)
        (folder / "shared.h").write_text(SHARED)
        self.count = folder / "count"

    def build(self, flavour="plain", **settings):
        """How often the library was built for it: 1, or 0 when it was there already."""
        environment = {name: value for name, value in os.environ.items() if name not in USUAL}
        before = self.built()
        subprocess.run(
            ["bash", self.script, flavour, self.out], check=True, timeout=120,
            stderr=subprocess.PIPE, text=True,
            env=dict(environment, KEYLINE_LIBEDIT_ARCHIVE=str(self.archive),
                     COUNT=str(self.count), **settings))
        return self.built() - before

    def built(self):
        return len(self.count.read_text().split()) if self.count.exists() else 0

    def library(self, private=False):
        return self.out / "plain" / "lib" / ("private" if private else ".") / "libedit.a"

    def compilers(self):
        """The first words of what made its objects."""
        text = subprocess.run(["readelf", "-p", ".comment", self.library()], check=True,
                              capture_output=True, text=True).stdout
        return set(re.findall(r"\] +(GCC|.*clang)", text))

    def told(self):
        return re.findall(rb"told=(\w+)", self.library().read_bytes())

    def link(self, *flags, private=False):
        """Links a program with it and answers how that ended."""
        program = self.folder / "user"
        subprocess.run(["cc", *flags, "-o", program, self.folder / "user.c",
                        self.library(private)], check=True, timeout=60)
        return subprocess.run([program], check=False, timeout=60).returncode


@pytest.fixture
def project(tmp_path):
    return Project(tmp_path)


def names(path, kind):
    text = subprocess.run(["nm", path], check=True, capture_output=True, text=True).stdout
    return {line.split()[-1] for line in text.splitlines() if " %s " % kind in line}


def test_the_compiler(project, tmp_path):
    """The one that CC names, and cc without it; another file is another compiler."""
    assert project.build() == 1
    assert project.compilers() == {"GCC"}
    other = tmp_path / "other"
    other.write_text('#!/bin/sh\nexec cc -DTOLD=other "$@"\n')
    other.chmod(0o755)
    assert project.build(CC=str(other)) == 1
    assert project.told() == [b"other"]
    assert project.build(CC=str(other)) == 0
    assert project.build() == 1
    assert project.told() == [b"nothing"]


def test_the_other_compiler(project):
    assert project.build(CC="clang") == 1
    assert [name.split()[-1] for name in project.compilers()] == ["clang"]
    assert project.link() == 0
    assert project.build(CC="clang -DTOLD=words") == 1
    assert project.told() == [b"words"]


@pytest.mark.parametrize("name", ["CPPFLAGS", "CFLAGS"])
def test_flags(project, name):
    """Each is used, and the next run sees that it changed."""
    assert project.build() == 1
    assert project.build(**{name: "-DTOLD=first"}) == 1
    assert project.told() == [b"first"]
    assert project.build(**{name: " -DTOLD=first  "}) == 0
    assert project.build(**{name: "-DTOLD=second"}) == 1
    assert project.told() == [b"second"]
    assert project.build(**{name: ""}) == 1
    assert project.told() == [b"nothing"]


def test_flags_of_the_linker(project):
    assert project.build() == 1
    assert project.build(LDFLAGS="-Wl,-z,now") == 1
    assert project.build(LDFLAGS="-Wl,-z,now") == 0


def test_flags_win(project):
    """They come behind those of the flavour; a definition is not made twice."""
    assert project.build(CFLAGS="-fPIE -Werror -UTOLD -O3 -march=native -D_FORTIFY_SOURCE=1") == 1
    log = (project.out / "plain" / "build.log").read_text()
    settings = (project.out / "plain" / "src" / "src" / "Makefile").read_text()
    assert settings.index("-O2") < settings.index("-O3")
    assert settings.index("-fPIE") < settings.index("-fPIC")
    assert settings.count("-D_FORTIFY_SOURCE") == 1
    assert "warning" not in log


def test_a_fuzzer_has_its_own(project):
    """Its compiler is the only one that can, and does not know everybody's flags."""
    assert project.build("fuzz", CC="/none", CFLAGS="-Wno-such-flag -Werror") == 1
    assert project.build("fuzz") == 0


@pytest.mark.parametrize("flags", ["", "-O3 -flto -DALONE"])
def test_what_is_shared_and_what_is_inner(project, flags):
    """Inner names stay inside, and parts that others share by name may be theirs as well."""
    assert project.build(CFLAGS=flags) == 1
    library = project.library()
    assert {"edit", "more"} <= names(library, "T")
    assert not {"inner", "shared_part"} & (
        names(library, "T") | names(library, "V") | names(library, "W"))
    assert "inner" in names(project.library(private=True), "T")
    assert project.link() == 0
    assert project.link(private=True) == 0
    assert project.link("-O3", "-flto", "-DALONE") == 0


def test_no_compiler(project):
    with pytest.raises(subprocess.CalledProcessError):
        project.build(CC="/no/such/compiler")


# A compiler that calls itself so, and fails with some of the ways to link.
COMPILER = r"""#!/bin/sh
lto= lld=
for word; do
    case $word in
    --version) echo 'Some %s'; exit ;;
    -flto) lto=-lto ;;
    -fuse-ld=lld) lld=-lld ;;
    esac
done
case " %s " in
*" with$lto$lld "*) printf 'noise\n%%.0s' 1 2 3 4 5 6 7 8 9; echo 'ld: error: none'; exit 1 ;;
esac
for option; do # the linker need not be here
    shift
    case $option in -fuse-ld=*) ;; *) set -- "$@" "$option" ;; esac
done
exec cc "$@"
"""
CLANG = "clang version 21.1"
FOR_LTO = ("the linker does not know what clang writes for -flto: install the package lld-21 and "
           "put -fuse-ld=lld in LDFLAGS")
NOT_HERE = "LDFLAGS has -fuse-ld=lld, which is not here: install the package lld"
LEAVE_OUT = "lld does not know what %s writes for -flto: leave -fuse-ld=lld out of LDFLAGS"
LINKERS = pytest.mark.parametrize("name, fails, linker, sentence", [
    (CLANG, "with-lto", "", FOR_LTO),
    (CLANG, "with-lto with-lld with-lto-lld", "-fuse-ld=lld", NOT_HERE + "-21"),
    ("compiler 16", "with-lld with-lto-lld", "-fuse-ld=lld", NOT_HERE),
    ("compiler 16", "with-lto-lld", "-fuse-ld=lld", LEAVE_OUT),
    ("compiler 16", "with-lto", "", "ld: error: none"),
], ids=["other_is_needed", "other_is_not_there", "none_is_there", "other_is_wrong", "unknown"])


def refusing(folder, name, fails, sentence):
    """The compiler's file, and what is told of it."""
    compiler = folder / "compiler"
    compiler.write_text(COMPILER % (name, fails))
    compiler.chmod(0o755)
    return str(compiler), "%s makes no program with these flags: %s" % (
        compiler, sentence.replace("%s", str(compiler)))


@LINKERS
def test_a_linker_that_does_not_do(project, tmp_path, name, fails, linker, sentence):
    """It is told in one sentence what to install, before anything is built."""
    compiler, told = refusing(tmp_path, name, fails, sentence)
    with pytest.raises(subprocess.CalledProcessError) as failed:
        project.build(CC=compiler, CFLAGS="-O3 -flto", LDFLAGS=linker)
    assert failed.value.stderr == "lineedit/build.sh: %s\n" % told
    assert project.built() == 0


@LINKERS
def test_a_linker_that_the_module_cannot_use(tmp_path, name, fails, linker, sentence):
    """For those who call CMake themselves, before it tries the compiler in its own way."""
    compiler, told = refusing(tmp_path, name, fails, sentence)
    environment = {name: value for name, value in os.environ.items() if name not in USUAL}
    result = subprocess.run(
        ["cmake", "-S", ROOT, "-B", tmp_path / "build"], check=False, timeout=60, text=True,
        stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        env=dict(environment, CC=compiler, CXX=compiler, CXXFLAGS="-O3 -flto", LDFLAGS=linker))
    assert result.returncode == 1
    assert " ".join(result.stderr.split()).partition("(message): ")[2] == told
    assert "-- " not in result.stdout.replace("-- Configuring incomplete", "")
