#!/usr/bin/env python3
"""Compares what the tests of the actions level saw each entry point do with the table tools/texts/entry_points.json.

    tools/texts/observed-facts.py [--some | --write] [--project ROOT] FOLDER...

Each FOLDER holds the artifacts of a run of the actions level (build/artifacts/actions-x64), with the file of facts that the
rig writes. A run of all tests must have seen exactly what the table has: codes, properties, notices, lines of the log.
--some is for a run of some tests, which may see less. --write writes the table again; then tools/texts/check-facts.py says
which pages must follow. entry_facts.py says what counts as a fact. Prints a line for each finding, and last "N passed, N
failed"; the exit code is 1 if there is a finding.
"""

import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from texts.entry_facts import differences, formats_of, read_facts, read_table, write_table


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--project", type=Path, default=Path(__file__).resolve().parents[2])
    group = parser.add_mutually_exclusive_group()
    group.add_argument("--some", action="store_true")
    group.add_argument("--write", action="store_true")
    parser.add_argument("folders", type=Path, nargs="+", metavar="FOLDER")
    arguments = parser.parse_args()

    seen, findings = read_facts(arguments.folders, formats_of(arguments.project))
    if arguments.write and not findings:
        write_table(arguments.project, seen)
    elif not arguments.write:
        wrong = list(differences(read_table(arguments.project), seen, not arguments.some))
        findings += wrong
        if wrong:
            findings.append("If the library is right, write the table again from a run of all tests: "
                            "tools/texts/observed-facts.py --write build/artifacts/actions-x64")
    for finding in findings:
        print(f"FAILED {finding}")
    print(f"{0 if findings else 1} passed, {1 if findings else 0} failed")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
