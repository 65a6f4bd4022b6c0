#!/usr/bin/env python3
"""Checks that VERSION and CHANGELOG.md agree about the version.

    tools/lint/lint-version.py [ROOT]

VERSION holds three numbers as an installer package can have them. The newest numbered heading of CHANGELOG.md is that
version; the numbers go down from there, and every heading has its date. Prints "FILE:LINE: what is wrong" for each
finding; the exit code is 1 when there is one.
"""

import datetime
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.lint_report import report

VERSION = "VERSION"
CHANGELOG = "CHANGELOG.md"
# What is changed after a release stands under this heading until the next one.
UNRELEASED = "## [Unreleased]"

# The engine's limits for the three numbers of ProductVersion.
LIMITS = (255, 255, 65535)


def numbers_of(text):
    """The three numbers of a version, or None."""
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
            yield f"{CHANGELOG}:{number}: {match[1]} does not stand below a newer version"
        if newest is None and match[1] != version.strip():
            yield f"{CHANGELOG}:{number}: the newest version is {match[1]}, and {VERSION} says {version.strip()}"
        newest = newest or match[1]
        last = numbers
    if newest is None:
        yield f"{CHANGELOG}:1: tells of no version"


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
