"""Runs the unit and the actions tests with a changed library, until one fails."""

import os
import re
import shutil
import sys
import xml.etree.ElementTree
from pathlib import Path
from typing import NamedTuple

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from mutants.library import Failed
from windows.windows_session import Ended, Windows

PROGRAMS = {"unit": "unit_tests.exe", "actions": "action_tests.exe"}
# The folders of the changed libraries and of the unchanged ones; their names say to the tests that their constants are
# guarded.
LIBRARIES, UNCHANGED = "guarded", "guarded-unchanged"
# The seconds of tests that are run at first, and those of a suite that is run last.
FIRST_SECONDS, LONG_SECONDS = 4, 3
# How much longer than usual tests may take before they are ended.
PATIENCE, GRACE_SECONDS = 4, 15
ENDED_BY_TIME = 124
# How often a changed library is run at most until it is clear whether the tests notice it.
TRIES = 3
BEGUN = re.compile(r"\[ RUN      \] (\S+)")
FAILED = re.compile(r"\[  FAILED  \] ([^\s,]+)(?:, where .*)? \(\d+ ms\)")


class Suite(NamedTuple):
    """A suite of tests: its level, its name, the seconds that it takes, and the source of its tests."""
    level: str
    name: str
    seconds: float
    file: str


class Killed(NamedTuple):
    """How a mutant was noticed: the test, and "failed", "hung" or "broke off"."""
    test: str
    how: str


def suites_of(level, results):
    """The suites of a level, by a file of results in XML."""
    suites = []
    for element in xml.etree.ElementTree.parse(results).iter("testsuite"):
        cases = element.findall("testcase")
        if cases:
            suites.append(Suite(level, element.get("name"), float(element.get("time")), cases[0].get("file")))
    return suites


def nearness(source, suite):
    """How near the tests of a suite are to a source, by their names: 0 is the nearest."""
    source, test = Path(source), Path(suite.file)
    if test.stem.startswith(source.stem):
        return 0
    if source.stem.startswith(test.stem.removesuffix("_test")):
        return 1
    return 2 if test.parent.name == source.parent.name else 3


def rounds_of(source, suites):
    """The suites for a mutant of a source in the order in which they are run: lists of suites of one level. First the near
    ones, last those that take long."""
    ordered = sorted(suites, key=lambda suite: (nearness(source, suite), suite.seconds))
    first, taken = [], 0.0
    for suite in ordered:
        if taken + suite.seconds <= FIRST_SECONDS:
            first.append(suite)
            taken += suite.seconds
    rest = [suite for suite in ordered if suite not in first]
    parts = [first, [suite for suite in rest if suite.seconds < LONG_SECONDS],
             [suite for suite in rest if suite.seconds >= LONG_SECONDS]]
    rounds = [[suite for suite in part if suite.level == level] for part in parts for level in PROGRAMS]
    return [part for part in rounds if part]


def filter_of(suites):
    return ":".join(f"{suite.name}.*" for suite in suites)


class Tests:
    """Runs tests in a Windows, and opens a new one if it is needed. `folder` has the test programs, whose copies the Windows
    works with, because a mutant may damage what it sees."""

    def __init__(self, folder, place, open_windows=Windows):
        self.folder, self.place = Path(folder), Path(place)
        self.libraries, self.unchanged = self.place / LIBRARIES, self.place / UNCHANGED
        for path in (self.libraries, self.unchanged):
            path.mkdir(parents=True, exist_ok=True)
        self.open_windows, self.windows = open_windows, None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        if self.windows:
            self.windows.__exit__(None, None, None)
            self.windows = None

    def restore(self):
        """Copies the test programs again if something has changed them."""
        for program in PROGRAMS.values():
            right, own = (self.folder / program).stat(), self.place / program
            if not own.is_file() or (own.stat().st_size, own.stat().st_mtime_ns) != (right.st_size, right.st_mtime_ns):
                shutil.copy2(self.folder / program, own)

    def run(self, level, filter, seconds, more=(), libraries=LIBRARIES):
        """Runs tests of a level until one fails. Returns None, or how the library was noticed. `seconds` is how long they
        usually take."""
        self.restore()
        if not self.windows:
            self.windows = self.open_windows("x64", self.place, os.getpid() % 1000, "", lambda line: None)
            self.windows.__enter__()
        (self.place / "flags.txt").write_text(f"--gtest_filter={filter}\n--gtest_fail_fast\n", encoding="utf-8")
        lines = []
        try:
            status = self.windows.run(
                {"HX_TIME_LIMIT": str(int(seconds * PATIENCE + GRACE_SECONDS)), "HX_LIBRARY_DIR": f"Z:\\run\\{libraries}",
                 "HX_ARTIFACTS": "Z:\\run"},
                ["wine64", f"Z:\\run\\{PROGRAMS[level]}", "--gtest_flagfile=Z:\\run\\flags.txt", *more], lines.append)
        except Ended:
            self.close()
            return Killed(last(BEGUN, lines), "broke off")
        if status == 0:
            return None
        if test := last(FAILED, lines):
            return Killed(test, "failed")
        # What a program leaves that does not end by itself could disturb the next one.
        self.close()
        return Killed(last(BEGUN, lines), "hung" if status == ENDED_BY_TIME else "broke off")

    def kill(self, rounds):
        """Runs the rounds of tests until one fails: None, or (the level, how the library was noticed)."""
        for suites in rounds:
            level = suites[0].level
            if killed := self.notice(level, filter_of(suites), sum(suite.seconds for suite in suites)):
                return level, killed
        return None

    def notice(self, level, filter, seconds):
        """None, or how tests of a level notice the changed library. They must pass with the library as it is: a failing test
        by itself, and all of them after a run that hung or broke off. Such a run does not say why, and the machine can be the
        reason, so it counts only if the changed library does not pass directly after that either."""
        for _ in range(TRIES):
            killed = self.run(level, filter, seconds)
            if not killed:
                return None
            failed = killed.how == "failed"
            unchanged = self.run(level, killed.test if failed else filter, seconds, libraries=UNCHANGED)
            if not unchanged:
                return killed if failed else self.run(level, filter, seconds)
            # An earlier mutant may have left something: a new Windows decides.
            self.close()
        raise Failed(f"{unchanged.test} {unchanged.how} with the library as it is, {TRIES} times")


def last(pattern, lines):
    """The name of the last test that a line names; "" if none does."""
    return next((match[1] for match in map(pattern.match, reversed(lines)) if match), "")
