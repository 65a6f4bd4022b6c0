#!/usr/bin/env python3
"""Checks the links of all pages.

    tools/texts/check-pages.py [ROOT]

Each link of a page leads to a file of the project, and to a heading in it; and a reader of README.md comes to every page,
by one link or by several. Prints a line for each finding; the exit code is 1 if there is one.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.lint_report import report
from texts.page_links import anchors_of, links_of

START = "README.md"


def pages(root):
    return [*sorted(root.glob("*.md")), *sorted((root / "docs").rglob("*.md"))]


def own_links(text):
    """(file, heading) of each link of a page that is not in a block of code and does not lead to another site."""
    text = re.sub(r"^```.*?^```$", "", text, flags=re.DOTALL | re.MULTILINE)
    return sorted({(file, heading) for file, heading in links_of(text) if not file.startswith(("http", "//"))})


def reached(root):
    """The pages to which the first one leads."""
    found, left = set(), [root / START]
    while left:
        page = left.pop()
        if page in found or page.suffix != ".md" or not page.is_file():
            continue
        found.add(page)
        left += [(page.parent / file).resolve() for file, _ in own_links(page.read_text(encoding="utf-8")) if file]
    return found


def findings(root):
    root = root.resolve()
    if not (root / START).is_file():
        yield f"{START} does not exist"
    for page in pages(root):
        where = page.relative_to(root)
        for file, heading in own_links(page.read_text(encoding="utf-8")):
            target = page.parent / file if file else page
            if not target.exists():
                yield f"{where}: there is no {file}"
            elif heading and heading not in anchors_of(target.read_text(encoding="utf-8")):
                yield f"{where}: {file or 'the page'} has no heading for #{heading}"
    for page in sorted(set(pages(root)) - reached(root)):
        yield f"{page.relative_to(root)}: no link leads here from {START}"


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
