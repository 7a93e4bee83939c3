"""Sums up a run:  count_tests.py RESULTS

RESULTS has one folder per stage, with the exit status of the stage in `status` and the
JUnit files of its tests, if it ran any.  Prints "N passed, N failed" as the last line; the
exit status tells whether anything failed.  A stage that failed although its files show no
failed test (a crash, a style check) counts as one failure, and so does a skipped test:
there is no reason to skip one.  What a machine or a user cannot run is left out instead: the
stage's file `left-out` has a reason and a test a line, and these are printed first.
"""

import collections
import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def count(path):
    """The numbers of passed and of failed tests in a JUnit file."""
    passed = failed = 0
    for case in ElementTree.parse(path).iter("testcase"):
        bad = any(case.find(tag) is not None for tag in ("failure", "error", "skipped"))
        if bad or case.get("status") == "notrun":
            failed += 1
        else:
            passed += 1
    return passed, failed


def left_out(results):
    """A line for each reason: how many tests, and those without their parameters."""
    reasons = collections.defaultdict(list)
    for path in sorted(pathlib.Path(results).glob("*/left-out")):
        for line in path.read_text(encoding="utf-8").splitlines():
            reason, name = line.split("\t", 1)
            reasons[reason].append(name.partition("[")[0])
    for reason, names in reasons.items():
        yield "left out here: %d tests, for %s: %s" % (
            len(names), reason, ", ".join(dict.fromkeys(names)))


def main(results):
    passed = failed = 0
    for status in sorted(pathlib.Path(results).glob("*/status")):
        stage_failed = 0
        for path in sorted(status.parent.glob("*.xml")):
            try:
                file_passed, file_failed = count(path)
            except ElementTree.ParseError:
                file_passed, file_failed = 0, 1
            passed += file_passed
            stage_failed += file_failed
        if status.read_text().strip() != "0" and stage_failed == 0:
            stage_failed = 1
        if stage_failed:
            print(f"failed: {status.parent.name} ({stage_failed})")
        failed += stage_failed
    for line in left_out(results):
        print(line)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
