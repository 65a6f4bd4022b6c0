"""Reads the results of a GoogleTest program, and replaces some by those of a second run."""

import xml.etree.ElementTree
from typing import NamedTuple

# Files in a program's folder of artifacts: its results, its exit status, and the tests that had to run again, one per line.
RESULTS, STATUS, REPEATED = "results.xml", "status", "again.txt"


class Misfit(Exception):
    """Two results that cannot be merged; the text says why."""


class Case(NamedTuple):
    name: str
    # The text of each failure.
    failures: tuple
    skipped: bool


def tree_of(path):
    """The results in a file as an element tree; None if the program did not write them completely."""
    try:
        return xml.etree.ElementTree.parse(path)
    except (OSError, xml.etree.ElementTree.ParseError):
        return None


def key(case):
    return f"{case.get('classname')}.{case.get('name')}"


def cases_of(path):
    """The tests that ran; None if the program did not write its results completely."""
    tree = tree_of(path)
    if tree is None:
        return None
    return [Case(key(case), tuple(failure.get("message") for failure in case.findall("failure")),
                 case.get("result") == "skipped")
            for case in tree.iter("testcase") if case.get("status") == "run"]


def failed(path):
    """The names of the tests that failed; None if the program did not write its results completely."""
    cases = cases_of(path)
    return None if cases is None else [case.name for case in cases if case.failures]


def merge(path, repeated):
    """Replaces results in the file `path` by those of the tests that ran in the file `repeated`. Raises Misfit if
    `repeated` has no results, or has a test that `path` does not have."""
    newer = tree_of(repeated)
    if newer is None:
        raise Misfit(f"{repeated}: has no results")
    tree = tree_of(path)
    if tree is None:
        newer.write(path, encoding="utf-8", xml_declaration=True)
        return
    cases = {key(case): case for case in newer.iter("testcase") if case.get("status") == "run"}
    for suite in tree.iter("testsuite"):
        for place, case in enumerate(list(suite)):
            if case.tag == "testcase" and key(case) in cases:
                suite[place] = cases.pop(key(case))
    if cases:
        raise Misfit(f"{repeated}: has tests that {path} does not have: {sorted(cases)}")
    tree.write(path, encoding="utf-8", xml_declaration=True)


def note_repeated(folder, names):
    """Records in a program's folder that these tests had to run again."""
    with (folder / REPEATED).open("a", encoding="utf-8") as file:
        file.writelines(f"{name}\n" for name in names)


def repeated_in(folder):
    """The tests that had to run again by a program's folder, each once."""
    path = folder / REPEATED
    return list(dict.fromkeys(path.read_text(encoding="utf-8").splitlines())) if path.is_file() else []
