#!/usr/bin/env python3
"""Copies docs/explain.html beside logs, with the pages that it links: tools/explain/beside.py FOLDER"""

import re
import shutil
import sys
from pathlib import Path

DOCS = Path(__file__).resolve().parents[2] / "docs"
PAGE = "explain.html"
LINKED = re.compile(r"\b[\w/-]+\.md\b")


def linked(docs=DOCS):
    """The pages that explain.html links, as paths below the folder of the pages."""
    names = set(LINKED.findall((docs / PAGE).read_text(encoding="utf-8")))
    return sorted(name for name in names if (docs / name).is_file())


def copy_page(folder, docs=DOCS):
    """Copies the page and what it links; an earlier copy is replaced."""
    for name in (PAGE, *linked(docs)):
        target = Path(folder) / name
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(docs / name, target)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: tools/explain/beside.py FOLDER")
    copy_page(sys.argv[1])
