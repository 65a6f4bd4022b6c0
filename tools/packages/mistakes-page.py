#!/usr/bin/env python3
"""Checks the table of docs/package-mistakes.md, which is made from mistakes.py.

    tools/packages/mistakes-page.py [--write] [ROOT]

The table is between the lines "<!-- generated: mistakes -->" and "<!-- end of mistakes -->". --write updates it. Prints a line
for a finding; the exit code is 1 if there is one.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from packages.mistakes import MISTAKES

PAGE = "docs/package-mistakes.md"
PART = re.compile(r"(<!-- generated: mistakes -->\n)(.*?)(<!-- end of mistakes -->\n)", re.DOTALL)

# By what a mistake is found, in the words of the page.
FOUND = {"compile": "the compilers", "check": "the check"}


def cell(text):
    """A text as it is in a cell of a table: nothing of it is taken for an element or for the end of the cell."""
    return " ".join(text.split()).replace("&", "&amp;").replace("<", "&lt;").replace("|", "&#124;").replace("*", "&#42;")


def table(mistakes):
    rows = ["| The author | Found by | Message | What to do |", "|---|---|---|---|"]
    rows += [f"| {cell(mistake.did)} | {FOUND[mistake.found]} | {'<br>'.join(map(cell, mistake.messages))} | {mistake.do} |"
             for mistake in mistakes]
    return "".join(f"{row}\n" for row in rows)


def findings(root, write):
    path = root / PAGE
    if not path.is_file():
        yield f"{PAGE} does not exist"
        return
    page = path.read_text(encoding="utf-8")
    if len(PART.findall(page)) != 1:
        yield f"{PAGE}: has the generated part mistakes {len(PART.findall(page))} times"
        return
    new = PART.sub(lambda match: match[1] + table(MISTAKES) + match[3], page)
    if write and new != page:
        path.write_text(new, encoding="utf-8")
    elif new != page:
        yield f"{PAGE}: the table is out of date: run tools/packages/mistakes-page.py --write"


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--write"]
    root = Path(arguments[0] if arguments else Path(__file__).resolve().parents[2])
    found = list(findings(root, "--write" in sys.argv))
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
