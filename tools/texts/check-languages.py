#!/usr/bin/env python3
"""Checks the texts of the fragments in each language: tools/texts/check-languages.py [FILE...]

A file of texts must have every text of the default language, and no other. Each text must name the properties, folders and
actions that the one of the default language names, and fit into its column. Without FILEs, checks those in packages/texts/.
Prints "FILE:LINE: what is wrong" for each finding; the exit code is 1 if there is one.
"""

import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))
from kit.texts import language_files, language_findings


def main():
    failed = False
    for name in sys.argv[1:] or language_files(ROOT):
        path = Path(name)
        if not path.is_file():
            sys.exit(f"tools/texts/check-languages.py: {name} is not a file: give a file of texts, such as one of packages/texts/")
        shown = path.relative_to(ROOT) if path.is_relative_to(ROOT) else path
        for line, finding in language_findings(ROOT, path):
            print(f"{shown}:{line}: {finding}")
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
