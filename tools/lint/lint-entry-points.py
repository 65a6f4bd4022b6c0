#!/usr/bin/env python3
"""Checks that the list of entry points, the functions in src/ and the pages for package authors agree.

    tools/lint/lint-entry-points.py [ROOT]

src/frame/entry_points.def, the functions CustomActionN that are defined in src/, the sections "## CustomActionN" of the
pages in docs/actions/, and the rows "| [CustomActionN](actions/PAGE.md#customactionn) |" of the summary table in
docs/actions.md must name the same entry points, each once. Prints a line for each finding; the exit code is 1 when there is one.
"""

import sys
from collections import Counter
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.entry_points import LIST, PAGE, SECTIONS, defined, headings, listed, rows
from lint.lint_report import report

SOURCES = [
    (f"{LIST} lists", listed),
    ("src/ defines", defined),
    (f"{SECTIONS} has the heading of", headings),
    (f"{PAGE} has the summary row of", rows),
]


def findings(root):
    names = []
    for says, read in SOURCES:
        try:
            counts = Counter(read(root))
        except FileNotFoundError as error:
            yield f"{Path(error.filename).relative_to(root)} does not exist"
            counts = Counter()
        yield from (f"{says} {name} {count} times" for name, count in sorted(counts.items()) if count > 1)
        names.append(set(counts))
    for name in sorted(set().union(*names)):
        missing = [says for (says, _), found in zip(SOURCES, names) if name not in found]
        if missing:
            present = [says for (says, _), found in zip(SOURCES, names) if name in found]
            yield f"{name}: {present[0]} it, but not: {', '.join(says for says in missing)}"


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
