#!/usr/bin/env python3
"""Checks that VERSION and CHANGELOG.md have the same version.

    tools/lint/lint-version.py [ROOT]

VERSION must have three numbers that are valid in an installer package. The newest numbered heading of CHANGELOG.md must be
that version; the versions of the headings below must descend, and every heading must have its date. Prints "FILE:LINE:
what is wrong" for each finding; the exit code is 1 if there is one.
"""

import datetime
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.lint_report import report

VERSION = "VERSION"
CHANGELOG = "CHANGELOG.md"
# The heading of the changes since the last release.
UNRELEASED = "## [Unreleased]"

# Windows Installer's limits of the three numbers of ProductVersion.
LIMITS = (255, 255, 65535)


def numbers_of(text):
    """The three numbers of a version; None if it has others."""
    if not re.fullmatch(r"(0|[1-9]\d*)(\.(0|[1-9]\d*)){2}", text):
        return None
    numbers = tuple(map(int, text.split(".")))
    return numbers if all(number <= limit for number, limit in zip(numbers, LIMITS)) else None


def is_date(text):
    try:
        return datetime.date.fromisoformat(text).isoformat() == text
    except ValueError:
        return False


def headings(lines):
    """(number of the line, its text) of every heading of a version."""
    return [(number, line) for number, line in enumerate(lines, 1) if line.startswith("## ")]


def findings(root):
    version = (root / VERSION).read_text(encoding="utf-8") if (root / VERSION).is_file() else ""
    if not version.endswith("\n") or numbers_of(version[:-1]) is None:
        yield f"{VERSION}:1: must be one line with three numbers, at most {'.'.join(map(str, LIMITS))}"
    if not (root / CHANGELOG).is_file():
        yield f"{CHANGELOG}:1: does not exist"
        return
    newest = None
    last = None
    for number, line in headings((root / CHANGELOG).read_text(encoding="utf-8").splitlines()):
        if line == UNRELEASED and last is None:
            continue
        match = re.fullmatch(r"## \[(\S+)\] - (\S+)", line)
        numbers = numbers_of(match[1]) if match else None
        if numbers is None or not is_date(match[2]):
            yield f"{CHANGELOG}:{number}: must read '## [VERSION] - YYYY-MM-DD'"
            continue
        if last is not None and numbers >= last:
            yield f"{CHANGELOG}:{number}: {match[1]} is not below a newer version"
        if newest is None and match[1] != version.strip():
            yield f"{CHANGELOG}:{number}: the newest version is {match[1]}, but {VERSION} has {version.strip()}"
        newest = newest or match[1]
        last = numbers
    if newest is None:
        yield f"{CHANGELOG}:1: has no heading of a version"


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
