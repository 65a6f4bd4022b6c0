#!/usr/bin/env python3
"""Adds up the results of a test run: test-summary.py FAILED ARTIFACTS

ARTIFACTS holds one folder for each program that ran, with its exit status in the file "status" and its
results: GoogleTest's results.xml, or an output.txt that ends as Python's unittest does or whose last line reads
"N passed, N failed". FAILED is not 0 where a program could not be run to its end. Prints the sum as its only line,
and before it, on the error output, what failed; the exit status is 0 where something ran and nothing failed. A program
that ended badly counts as a failure of its own.
"""
import pathlib
import re
import sys
import xml.etree.ElementTree


def print_failures(folder):
    """What GoogleTest's failed tests of one folder said, once more: their output may be far above."""
    try:
        cases = list(xml.etree.ElementTree.parse(folder / "results.xml").iter("testcase"))
    except (OSError, xml.etree.ElementTree.ParseError):
        return
    for case in cases:
        for failure in case.findall("failure"):
            print(f"{folder.name}: {case.get('classname')}.{case.get('name')}: {failure.get('message')}",
                  file=sys.stderr)


def results_of(folder):
    """The numbers of tests passed and failed in one folder; None where the program did not get that far."""
    report = folder / "results.xml"
    if report.exists():
        try:
            passed = failed = 0
            for case in xml.etree.ElementTree.parse(report).iter("testcase"):
                if case.find("failure") is not None:
                    failed += 1
                elif case.get("status") == "run" and case.get("result") != "skipped":
                    passed += 1
            return passed, failed
        except xml.etree.ElementTree.ParseError:
            return None
    output = folder / "output.txt"
    if output.exists():
        text = output.read_text(errors="replace")
        if match := re.search(r"^(\d+) passed, (\d+) failed\s*\Z", text, re.MULTILINE):
            return int(match[1]), int(match[2])
        if match := re.search(r"^Ran (\d+) tests? in .*\n\n(?:OK|FAILED \((.*)\))\s*\Z", text, re.MULTILINE):
            failed = sum(int(n) for n in re.findall(r"(?:failures|errors)=(\d+)", match[2] or ""))
            return int(match[1]) - failed, failed
    return None


def main():
    broken = int(sys.argv[1])
    total_passed, total_failed = 0, broken
    for status_file in sorted(pathlib.Path(sys.argv[2]).glob("*/status")):
        status = int(status_file.read_text())
        print_failures(status_file.parent)
        results = results_of(status_file.parent)
        passed, failed = results or (0, 0)
        if results is None or (status != 0 and failed == 0):
            print(f"{status_file.parent.name}: ended with status {status} before its last test", file=sys.stderr)
            failed += 1
        total_passed += passed
        total_failed += failed
    print(f"{total_passed} passed, {total_failed} failed")
    return 0 if total_passed > 0 and total_failed == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
