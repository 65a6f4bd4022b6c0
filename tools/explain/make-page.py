#!/usr/bin/env python3
"""Makes what explain.html and `./hx explain` are made of, or checks that it is up to date.

    tools/explain/make-page.py [--write] [--project ROOT]

Without --write: checks that explain/knowledge.json is what its sources give (knowledge.py lists them), and that
docs/explain.html is what the knowledge and the modules of explain/ give (page.py). Prints "FAILED ..." for each finding, and
last "N passed, N failed"; the exit status is 1 if there is a finding. --write writes both files.
"""

import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from explain.knowledge import KNOWLEDGE, Knowledge, Missing, text_of
from explain.page import PAGE, Wrong, page_of

COMMAND = "tools/explain/make-page.py --write"


def read(path):
    return path.read_text(encoding="utf-8") if path.is_file() else ""


def stale(root, write):
    """Writes or compares both files; yields a finding for each that is not up to date."""
    knowledge = text_of(Knowledge(root).all())
    for name, text in ((KNOWLEDGE, lambda: knowledge), (PAGE, lambda: page_of(root, knowledge))):
        if write:
            (root / name).write_text(text(), encoding="utf-8")
        elif read(root / name) != text():
            yield f"{name} is not what its sources give: {COMMAND} writes it again"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--write", action="store_true")
    parser.add_argument("--project", type=Path, default=Path(__file__).resolve().parents[2])
    arguments = parser.parse_args()
    try:
        findings = list(stale(arguments.project, arguments.write))
    except (Missing, Wrong) as error:
        findings = [str(error)]
    for finding in findings:
        print(f"FAILED {finding}")
    print(f"{0 if findings else 2} passed, {len(findings)} failed")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
