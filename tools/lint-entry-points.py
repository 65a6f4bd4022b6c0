#!/usr/bin/env python3
"""Checks that the list of entry points, the functions in src/ and the page for package authors agree.

    tools/lint-entry-points.py [ROOT]

src/frame/entry_points.def, the functions CustomActionN that are defined in src/, and docs/actions.md (a
heading "## CustomActionN" and a row "| [CustomActionN](#customactionn) |" of its summary table) must name the
same entry points, each once. Prints a line for each finding; the exit code is 1 when there is one.
"""

import re
import sys
from collections import Counter
from pathlib import Path

from cpp_tokens import tokenize

LIST = "src/frame/entry_points.def"
PAGE = "docs/actions.md"
NAME = re.compile(r"CustomAction\d+")


def listed(root):
    entries = False
    for line in (root / LIST).read_text(encoding="utf-8").splitlines():
        words = line.split(";")[0].split()
        if words[:1] == ["EXPORTS"]:
            entries, words = True, words[1:]
        if entries and words:
            yield words[0]


def defined(root):
    """The functions with the name of an entry point that have a body."""
    for path in sorted((root / "src").rglob("*.cpp")):
        tokens = [t for t in tokenize(path.read_text(encoding="utf-8"))
                  if t.kind in ("word", "sign", "literal", "number")]
        for index, token in enumerate(tokens[:-1]):
            if not NAME.fullmatch(token.text) or tokens[index + 1].text != "(":
                continue
            depth = 0
            for end in range(index + 1, len(tokens)):
                depth += {"(": 1, ")": -1}.get(tokens[end].text, 0)
                if depth == 0:
                    if end + 1 < len(tokens) and tokens[end + 1].text == "{":
                        yield token.text
                    break


def page_lines(root):
    """The page's lines outside of code blocks."""
    fenced = False
    for line in (root / PAGE).read_text(encoding="utf-8").splitlines():
        if line.lstrip().startswith("```"):
            fenced = not fenced
        elif not fenced:
            yield line


def headings(root):
    return (match.group(1) for line in page_lines(root) if (match := re.match(r"## (CustomAction\d+)\b", line)))


def rows(root):
    for line in page_lines(root):
        match = re.match(r"\| \[(CustomAction\d+)\]\(#(\w+)\) \|", line)
        if match:
            # A link that leads elsewhere names no entry point.
            yield match.group(1) if match.group(2) == match.group(1).lower() else f"{match.group(1)}#{match.group(2)}"


SOURCES = [
    (f"{LIST} lists", listed),
    ("src/ defines", defined),
    (f"{PAGE} has the heading of", headings),
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
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).resolve().parent.parent)
    found = list(findings(root))
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
