#!/usr/bin/env python3
"""What a GoogleTest program is to run once more, and what becomes of its results.

repeated-tests.py failed RESULTS          prints a filter for the tests that failed: an empty line where none did, "*" where
                                          RESULTS is missing or broken off
repeated-tests.py merge RESULTS REPEATED  puts the results of the tests in REPEATED in the place of the older ones in RESULTS
"""
import pathlib
import sys
import xml.etree.ElementTree


def cases_of(path):
    """The results in a file as an element tree; None where the program did not get to their end."""
    try:
        return xml.etree.ElementTree.parse(path)
    except (OSError, xml.etree.ElementTree.ParseError):
        return None


def key(case):
    return case.get("classname"), case.get("name")


def failed(results):
    tree = cases_of(results)
    if tree is None:
        return "*"
    return ":".join(".".join(key(case)) for case in tree.iter("testcase") if case.find("failure") is not None)


def merge(results, repeated):
    newer = cases_of(repeated)
    if newer is None:
        raise SystemExit(f"{repeated}: no results")
    tree = cases_of(results)
    if tree is None:
        newer.write(results, encoding="utf-8", xml_declaration=True)
        return
    cases = {key(case): case for case in newer.iter("testcase") if case.get("status") == "run"}
    for suite in tree.iter("testsuite"):
        for place, case in enumerate(list(suite)):
            if case.tag == "testcase" and key(case) in cases:
                suite[place] = cases.pop(key(case))
    if cases:
        raise SystemExit(f"{repeated}: tests that {results} does not have: {sorted(cases)}")
    tree.write(results, encoding="utf-8", xml_declaration=True)


def main():
    if len(sys.argv) == 3 and sys.argv[1] == "failed":
        print(failed(pathlib.Path(sys.argv[2])))
    elif len(sys.argv) == 4 and sys.argv[1] == "merge":
        merge(pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3]))
    else:
        raise SystemExit(__doc__)


if __name__ == "__main__":
    main()
