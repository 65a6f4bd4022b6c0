#!/usr/bin/env python3
"""Runs the tests of explain/ with Node's own runner: tools/explain/run-tests.py

Prints what the tests print, and as the last line "N passed, N failed"; the exit status is 0 if all passed.
"""

import re
import subprocess
import sys
from pathlib import Path

TESTS = Path(__file__).resolve().parents[2] / "explain/tests"


def counts(output):
    """(passed, failed) of the runner's summary; None if it broke off before."""
    found = [re.findall(rf"^\S {word} (\d+)$", output, re.MULTILINE) for word in ("pass", "fail")]
    return tuple(int(each[-1]) for each in found) if all(found) else None


def main():
    # The files by name: newer versions of Node take a folder for a program.
    files = sorted(TESTS.glob("*.test.mjs"))
    result = subprocess.run(["node", "--test", *files], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, errors="replace", check=False)
    print(result.stdout)
    passed, failed = counts(result.stdout) or (0, 1)
    print(f"{passed} passed, {max(failed, int(result.returncode != 0))} failed")
    return result.returncode


if __name__ == "__main__":
    sys.exit(main())
