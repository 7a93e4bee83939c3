"""Builds the wheel and the source archive: what pip and other front ends call.

pyproject.toml names this file. It needs nothing but the interpreter that it runs under and
what CMakeLists.txt needs, so a wheel needs no network; the line editor is built
in the folder KEYLINE_EDITOR_DIR, build/editor if it is not set. The same sources give the
same bytes, wherever and whenever: the files are in order and all of one date,
SOURCE_DATE_EPOCH or else the oldest that the format knows.
"""
import base64
import gzip
import hashlib
import io
import os
import pathlib
import re
import subprocess
import sys
import sysconfig
import tarfile
import tempfile
import time
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
OLDEST = 315532800  # the first of January 1980
LEFT_OUT = {"build", ".git", "__pycache__", ".pytest_cache", ".mypy_cache", "PKG-INFO"}


def version():
    """The version that CMakeLists.txt states."""
    text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"project\(Keyline VERSION ([0-9.]+)", text).group(1)


def date():
    """The date that every file gets, in seconds."""
    return max(OLDEST, int(os.environ.get("SOURCE_DATE_EPOCH") or OLDEST))


def metadata():
    """What installers and indexes are told."""
    return """Metadata-Version: 2.1
Name: Keyline
Version: %s
Summary: Line input for interactive command shells
Requires-Python: >=3.9
License-File: COPYING.libedit
Classifier: Operating System :: POSIX :: Linux
Classifier: Programming Language :: C++
Description-Content-Type: text/markdown

%s""" % (version(), (ROOT / "README.md").read_text(encoding="utf-8"))


def tag():
    """The interpreter, its binary interface and the machine that the module is for."""
    abi = "cp" + sysconfig.get_config_var("SOABI").split("-")[1]
    platform = re.sub("[-.]", "_", sysconfig.get_platform())
    if sys.maxsize < 1 << 32:  # the kernel's machine may have 64 bits, and pip knows these names
        platform = {"linux_x86_64": "linux_i686", "linux_aarch64": "linux_armv8l"}.get(
            platform, platform)
    return "cp%d%d-%s-%s" % (sys.version_info[0], sys.version_info[1], abi, platform)


def run(*command):
    """Runs a step of the build; what it says goes to the front end's standard error."""
    try:
        subprocess.run(command, check=True, stdout=sys.stderr.fileno())
    except FileNotFoundError:
        sys.exit("keyline: %s, which the build needs, is missing" % command[0])
    except subprocess.CalledProcessError as error:
        sys.exit("keyline: %s failed with status %d" % (command[0], error.returncode))


def installed(folder):
    """Builds in the folder for this interpreter; answers the prefix that it installed to."""
    build, prefix = os.path.join(folder, "build"), os.path.join(folder, "prefix")
    editor = os.environ.get("KEYLINE_EDITOR_DIR") or str(ROOT / "build" / "editor")
    run("cmake", "-S", str(ROOT), "-B", build, "-G", "Ninja", "-DKEYLINE_TESTS=OFF",
        "-DKEYLINE_PYTHON=" + sys.executable, "-DKEYLINE_INSTALL_DIR=platlib",
        "-DKEYLINE_EDITOR_DIR=" + os.path.abspath(editor))
    run("cmake", "--build", build)
    run("cmake", "--install", build, "--prefix", prefix, "--strip")
    return pathlib.Path(prefix)


def contents(prefix, information):
    """Name in the wheel -> bytes: the module beside its types, all else below the prefix."""
    data = information.replace(".dist-info", ".data/data/")
    files = {}
    for path in prefix.rglob("*"):
        name = path.relative_to(prefix).as_posix()
        name = name[len("platlib/"):] if name.startswith("platlib/") else data + name
        if path.is_file():
            files[name] = path.read_bytes()
    files[information + "/COPYING.libedit"] = files[data + "share/doc/keyline/COPYING.libedit"]
    files[information + "/METADATA"] = metadata().encode()
    files[information + "/WHEEL"] = (
        "Wheel-Version: 1.0\nGenerator: keyline\nRoot-Is-Purelib: false\nTag: %s\n"
        % tag()).encode()
    return files


def record(files, name):
    """The list of all files with their sums, itself without."""
    lines = []
    for path, data in sorted(files.items()):
        found = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        lines.append("%s,sha256=%s,%d\n" % (path, found, len(data)))
    return "".join(lines + [name + ",,\n"]).encode()


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    """Builds for the interpreter that this runs under; answers the wheel's name."""
    information = "keyline-%s.dist-info" % version()
    with tempfile.TemporaryDirectory(prefix="keyline-") as folder:
        files = contents(installed(folder), information)
    files[information + "/RECORD"] = record(files, information + "/RECORD")
    name = "keyline-%s-%s.whl" % (version(), tag())
    with zipfile.ZipFile(os.path.join(wheel_directory, name), "w") as wheel:
        for path, data in sorted(files.items()):
            entry = zipfile.ZipInfo(path, time.gmtime(date())[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o100755 if path.endswith(".so") else 0o100644) << 16
            wheel.writestr(entry, data)
    return name


def sources():
    """All files of the tree but what is built or what tools keep there."""
    for folder, folders, files in os.walk(ROOT):
        folders[:] = sorted(set(folders) - LEFT_OUT)
        for name in sorted(files):
            if not name.endswith((".pyc", ".whl")) and name not in LEFT_OUT:
                yield pathlib.Path(folder, name)


def build_sdist(sdist_directory, config_settings=None):
    """Packs the sources; answers the archive's name."""
    top = "keyline-" + version()
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w", format=tarfile.PAX_FORMAT) as archive:
        def add(name, data, mode):
            entry = tarfile.TarInfo(top + "/" + name)
            entry.size, entry.mode, entry.mtime = len(data), mode, date()
            archive.addfile(entry, io.BytesIO(data))

        add("PKG-INFO", metadata().encode(), 0o644)
        for path in sources():
            mode = 0o755 if os.access(path, os.X_OK) else 0o644
            add(path.relative_to(ROOT).as_posix(), path.read_bytes(), mode)
    name = top + ".tar.gz"
    with open(os.path.join(sdist_directory, name), "wb") as file:
        with gzip.GzipFile("", "wb", fileobj=file, mtime=date()) as zipped:
            zipped.write(packed.getvalue())
    return name
