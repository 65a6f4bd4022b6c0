#!/usr/bin/env python3
"""Checks that every file in src/ includes only from its own floor or from lower ones.

    tools/lint/lint-floors.py [ROOT]

Prints "FILE:LINE: what is wrong" for each finding; the exit code is 1 when there is one.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.lint_report import report

# From the ground up. Floors of the same height never include each other.
HEIGHTS = {"runtime": 0, "util": 1, "format": 2, "frame": 3, "client": 4, "security": 4, "upgrade": 4}
# Holds no code: lists of functions.
OTHER_FOLDERS = {"imports"}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]*)"')


def complaint(source, floor, included):
    """What is wrong with an include of `included` on `floor`, or None."""
    other, slash, _ = included.partition("/")
    if not slash or other not in HEIGHTS:
        return f'"{included}" does not begin with a floor: paths are relative to src/'
    if not (source / included).is_file():
        return f'"{included}" does not exist'
    if other != floor and HEIGHTS[other] >= HEIGHTS[floor]:
        return f'{floor} must not include "{included}": {other} is not below it'
    return None


def findings(root):
    source = root / "src"
    for path in sorted(source.rglob("*")):
        if path.suffix not in (".h", ".cpp", ".rc", ".inc"):
            continue
        parts = path.relative_to(source).parts
        where = path.relative_to(root)
        if len(parts) < 2 or parts[0] not in HEIGHTS:
            if parts[0] not in OTHER_FOLDERS:
                yield f"{where}:1: lies on no floor"
            continue
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            match = INCLUDE.match(line)
            problem = complaint(source, parts[0], match.group(1)) if match else None
            if problem:
                yield f"{where}:{number}: {problem}"


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
