#!/usr/bin/env python3
"""Compares the facts that the pages state with the places where they are true: the sources, the fragments, and the table of
what the tests saw the entry points do.

    tools/texts/check-facts.py [ROOT]

page_facts.py says what is compared; stated_facts.py is the table of the facts that are in sentences. Prints a line for each
finding; the exit code is 1 if there is one.
"""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.lint_report import report
from texts import page_facts


def findings(root):
    return page_facts.findings(page_facts.Project(root), page_facts.read_pages(root))


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
