"""The patches of the line editor: what is in them, and what lineedit/README.md asks of them."""
import os
import re
import subprocess
import tarfile
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LINEEDIT = os.path.join(ROOT, "lineedit")
TESTS = os.path.join(ROOT, "tests")
NAME = re.compile(r"\d\d\d?-[a-z0-9]+(-[a-z0-9]+)*")
HUNK = re.compile(rb"@@ -(\d+)(?:,(\d+))? \+(\d+)(?:,(\d+))? @@")
WIDTH = 100  # columns of a head


class Patch:
    """A file of patches/: its head, and its hunks by the file that they change."""

    def __init__(self, name):
        self.name = name
        self.path = os.path.join(LINEEDIT, "patches", name + ".patch")

    @property
    def number(self):
        return int(self.name.split("-")[0])

    def text(self):
        with open(self.path, "rb") as file:
            return file.read()

    def head(self):
        return self.text().split(b"\n--- ")[0].decode().strip() + "\n"

    def body(self):
        text = self.text()
        return text[text.index(b"\n--- ") + 1:]

    def files(self):
        """By name: the hunks, each the line where it begins and the lines with their marks."""
        found = {}
        for part in re.split(rb"^--- ", self.body(), flags=re.M)[1:]:
            name = part.split(None, 1)[0].decode().split("/", 1)[1]
            hunks = found.setdefault(name, [])
            for line in part.split(b"\n")[2:-1]:
                at = HUNK.match(line)
                if at:  # a hunk without old lines stands behind the line that it names
                    hunks.append((int(at[1]) - (at[2] != b"0"), []))
                else:
                    hunks[-1][1].append(line)
        return found


def numbered(name):
    return int(name.split("-")[0])


def series():
    """The names of the patches in force, in order."""
    with open(os.path.join(LINEEDIT, "series"), encoding="utf-8") as file:
        lines = [line.strip() for line in file]
    return [line[:-len(".patch")] for line in lines if line and not line.startswith("#")]


def archive():
    """The path of the archive that the patches are for."""
    found = subprocess.run([os.path.join(LINEEDIT, "fetch.sh"),
                            os.path.join(ROOT, "build", "editor", "archive")],
                           stdout=subprocess.PIPE, check=False, text=True)
    if found.returncode != 0:
        raise SystemExit(1)  # it has said why
    return found.stdout.strip()


def sources(path):
    """The files of an archive: contents by name, without the folder that all of them are in."""
    with tarfile.open(path) as opened:
        return {member.name.split("/", 1)[1]: opened.extractfile(member).read()
                for member in opened if member.isfile()}


def diff(name, before, after):
    """What makes the one contents into the other, as a patch has it."""
    with tempfile.NamedTemporaryFile() as one, tempfile.NamedTemporaryFile() as other:
        for file, contents in ((one, before), (other, after)):
            file.write(contents)
            file.flush()
        return subprocess.run(["diff", "-U1", "--label", "a/" + name, "--label", "b/" + name,
                               one.name, other.name], stdout=subprocess.PIPE, check=False).stdout


# --- What is asked of the series ---------------------------------------------------------


def wrong_names():
    names = series()
    there = {name[:-len(".patch")] for name in os.listdir(os.path.join(LINEEDIT, "patches"))}
    for name in sorted(there.symmetric_difference(names)):
        yield "%s: not both in series and in patches/" % name
    for name in names:
        if not NAME.fullmatch(name):
            yield "%s: not a number and words" % name
    for before, name in zip(names, names[1:]):
        if numbered(before) >= numbered(name):
            yield "%s: stands behind %s" % (name, before)


def wrong_head(patch):
    head = patch.head()
    if len(re.findall(r"[.?](?=\s|$)", head)) < 2:
        yield "%s: its head does not say what the editor did and what it does now" % patch.name
    if max(map(len, head.splitlines())) > WIDTH:
        yield "%s: its head is wider than %d columns" % (patch.name, WIDTH)


def applied(hunks, lines, owner):
    """The lines with these hunks, and whose lines they took away; no lines when that fails.

    A line is a pair: its text, and the patch that wrote it or None.
    """
    after, at, whose = [], 0, set()
    for start, marked in hunks:
        after += lines[at:start]
        at = start
        for line in marked:
            if line[:1] == b"+":
                after.append((line[1:], owner))
            elif at == len(lines) or lines[at][0] != line[1:]:
                return None, whose
            else:
                if line[:1] == b" ":
                    after.append(lines[at])
                else:
                    whose.add(lines[at][1])
                at += 1
    return after + lines[at:], whose - {None}


def wrong_changes(names):
    """What the patches change: applied in their order, with each line's writer kept."""
    tree = {name: [(line, None) for line in contents.split(b"\n")]
            for name, contents in sources(archive()).items()}
    own = {"src/" + name for name in os.listdir(os.path.join(LINEEDIT, "src"))}
    for patch in map(Patch, names):
        body, whose = b"", set()
        for name, hunks in sorted(patch.files().items()):
            if name in own or name not in tree:
                yield "%s: changes %s, which is %s" % (
                    patch.name, name, "a file of ours" if name in own else "no file of the editor")
                continue
            after, took = applied(hunks, tree[name], patch.name)
            if after is None:
                yield "%s: does not apply to %s exactly where it says" % (patch.name, name)
                return
            body += diff(name, *(b"\n".join(line for line, _ in lines)
                                 for lines in (tree[name], after)))
            tree[name] = after
            whose |= took
        if body != patch.body():
            yield "%s: not as `tools/patch refresh` writes it" % patch.name
        for other in sorted(whose):
            yield "%s: changes lines of %s" % (patch.name, other)


def tests():
    """The text of all tests."""
    texts = []
    for folder, _, names in os.walk(TESTS):
        for name in names:
            if name.endswith((".cpp", ".py")):
                with open(os.path.join(folder, name), encoding="utf-8") as file:
                    texts.append(file.read())
    return "\n".join(texts)


def wrong_rows(names):
    """Each patch has its row below the heading for its number, and names tests that exist."""
    with open(os.path.join(LINEEDIT, "README.md"), encoding="utf-8") as file:
        readme = file.read()
    text, rows = tests(), []
    for section in readme.split("\n## ")[1:]:
        heading = section.split("\n")[0]
        group = re.search(r"\((\d+) to (\d+)\)$", heading)
        first, last = map(int, group.groups()) if group else (1, 0)
        for name, held_by in re.findall(r"^\| `(\d\d+-[^`]+)` \|.*\| ([^|]+) \|$", section, re.M):
            rows.append(name)
            if not first <= numbered(name) <= last:
                yield "%s: its row is below '%s'" % (name, heading)
            held = re.findall("`([^`]+)`", held_by)
            if not held and not (held_by == "see below" and "(`%s`" % name in readme):
                yield "%s: its row names no test" % name
            for test in held:
                if test.startswith("tests/"):
                    there = os.path.exists(os.path.join(ROOT, test))
                else:
                    there = re.search(r"\b%s" % re.escape(test.rstrip("…"))
                                      + (r"\b" if test[-1] != "…" else ""), text)
                if not there:
                    yield "%s: there is no test %s" % (name, test)
    if rows != names:
        for name in sorted(set(rows).symmetric_difference(names)) or ["lineedit/README.md"]:
            yield "%s: not one row for each patch in their order" % name


def wrong():
    """What the series does not hold of what lineedit/README.md asks, a sentence each."""
    found = list(wrong_names())
    if not found:
        names = series()
        for patch in map(Patch, names):
            found += wrong_head(patch)
        found += wrong_changes(names)
        found += wrong_rows(names)
    return found
