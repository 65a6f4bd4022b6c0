"""The results of a GoogleTest program: reading them, and putting those of a second run in their place."""

import xml.etree.ElementTree
from typing import NamedTuple

# In a program's folder of artifacts: its results, its exit status, and the tests that had to run again, one a line.
RESULTS, STATUS, REPEATED = "results.xml", "status", "again.txt"


class Misfit(Exception):
    """Why two results do not go together."""


class Case(NamedTuple):
    name: str
    # What each failure says.
    failures: tuple
    skipped: bool


def tree_of(path):
    """The results in a file as an element tree; None if the program did not get to their end."""
    try:
        return xml.etree.ElementTree.parse(path)
    except (OSError, xml.etree.ElementTree.ParseError):
        return None


def key(case):
    return f"{case.get('classname')}.{case.get('name')}"


def cases_of(path):
    """The tests that ran, or None if the program did not get to the end of its results."""
    tree = tree_of(path)
    if tree is None:
        return None
    return [Case(key(case), tuple(failure.get("message") for failure in case.findall("failure")),
                 case.get("result") == "skipped")
            for case in tree.iter("testcase") if case.get("status") == "run"]


def failed(path):
    """The names of the tests that failed; None if the program did not get to the end of its results."""
    cases = cases_of(path)
    return None if cases is None else [case.name for case in cases if case.failures]


def merge(path, repeated):
    """Puts the results of the tests that ran in the file `repeated` in the place of the older ones in the file `path`.
    Raises Misfit if `repeated` has no results, or a test that `path` does not have."""
    newer = tree_of(repeated)
    if newer is None:
        raise Misfit(f"{repeated}: no results")
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
        raise Misfit(f"{repeated}: tests that {path} does not have: {sorted(cases)}")
    tree.write(path, encoding="utf-8", xml_declaration=True)


def note_repeated(folder, names):
    """Notes in a program's folder that these tests had to run again."""
    with (folder / REPEATED).open("a", encoding="utf-8") as file:
        file.writelines(f"{name}\n" for name in names)


def repeated_in(folder):
    """The tests of a program's folder that had to run again, each once."""
    path = folder / REPEATED
    return list(dict.fromkeys(path.read_text(encoding="utf-8").splitlines())) if path.is_file() else []
