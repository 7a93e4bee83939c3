"""Which lines of the editor's sources are the project's own: for tools/coverage and tools/mutants."""
import glob
import os
import re
import subprocess
import tarfile


def pristine(folder):
    """The sources as they come, from where the editor was built: pairs of name and contents."""
    path = os.environ.get("KEYLINE_LIBEDIT_ARCHIVE") or glob.glob(
        os.path.join(folder, "archive", "*.tar.gz"))[0]
    with tarfile.open(path) as archive:
        for member in archive:
            if re.fullmatch(r"[^/]+/src/\w+\.c", member.name):
                yield os.path.basename(member.name), archive.extractfile(member).read()


def changes(contents, path):
    """Where a file differs from these contents: first line there, from 1, and how many lines.

    Of lines that are only left out it is the one before, and none.
    """
    found = subprocess.run(["diff", "-U0", "-", path], input=contents, stdout=subprocess.PIPE,
                           check=False).stdout.decode("utf-8", "replace")
    for start, count in re.findall(r"^@@ -\S+ \+(\d+)(?:,(\d+))? @@", found, re.M):
        yield int(start), int(count or 1)
