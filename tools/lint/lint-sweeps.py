#!/usr/bin/env python3
"""Checks that every entry point has a sweep: a test that makes each of its calls fail once.

    tools/lint/lint-sweeps.py [ROOT]

Each CustomActionN of src/frame/entry_points.def must be swept in tests/actions: FailEachCall(N, ...), or a function of
the tests that passes its number on to FailEachCall. The number is a literal, a choice between two, or the variable of
a loop over a list of numbers. A disabled test does not count. Prints a line for each finding; the exit code is 1 when
there is one.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.cpp_functions import arguments, calls, code, functions
from lint.entry_points import LIST, listed
from lint.lint_report import report

TESTS = "tests/actions"
SWEEP = "FailEachCall"


def numbers_of(texts, opening):
    """What stands for the entry point's number in the arguments of a sweep: numbers and names."""
    first = next(iter(arguments(texts, opening)), [])
    if first[:1] == ["["]:
        # Any piece of work: the entry point that it calls.
        return [text for place in calls(first, "CustomAction") for text in arguments(first, place)[0]]
    if "?" in first:
        first = first[first.index("?") + 1:]
    return first


def looped(texts, name, begin, end):
    """The numbers of the last loop `for (int NAME : {...})` between the places; none without such a loop."""
    found = []
    for place in calls(texts, "for", begin, end):
        head = ["(", "int", name, ":", "{"]
        if texts[place:place + len(head)] == head:
            found = [text for one in arguments(texts, place + len(head) - 1) for text in one]
    return found


def swept(files):
    """The numbers of the entry points that are swept, in a list of files' tokens."""
    sweepers, found = {SWEEP}, set()
    while True:
        known = set(sweepers)
        for texts in files:
            bodies = [one for one in functions(texts)
                      if not (one.name.startswith("TEST") and one.arguments[-1][0].startswith("DISABLED_"))]
            for body in bodies:
                for name in known:
                    for place in calls(texts, name, body.begin, body.end):
                        for text in numbers_of(texts, place):
                            if text.isdigit():
                                found.add(int(text))
                            elif ["int", text] in body.arguments[:1]:
                                sweepers.add(body.name)
                            else:
                                found.update(map(int, filter(str.isdigit, looped(texts, text, body.begin, place))))
        if known == sweepers:
            return found


def findings(root):
    if not (root / LIST).is_file():
        return
    folder = root / TESTS
    files = [code(path.read_text(encoding="utf-8")) for path in sorted([*folder.rglob("*.h"), *folder.rglob("*.cpp")])]
    found = swept(files)
    for name in listed(root):
        match = re.fullmatch(r"CustomAction(\d+)", name)
        if match and int(match.group(1)) not in found:
            yield (f"{LIST}: {name} has no sweep: add a test to {TESTS} that calls {SWEEP}({match.group(1)}), "
                   "or one that shows that none of its calls can fail")


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
