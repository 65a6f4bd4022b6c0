"""Adds up the results of a test run.

The artifacts have one folder for each program that ran, with its exit status in the file "status" and its results. These
are GoogleTest's results.xml, or an output.txt that ends like that of Python's unittest or with a line "N passed, N failed".
The folder of a test program is named LEVEL-PRESET or LEVEL-PRESET-PART; the folder of a script is named after the script.
"""

import re
from typing import NamedTuple

from testing.planning import PAGE, PROGRAMS, SUITES
from testing.results import RESULTS, STATUS, cases_of, repeated_in

# The run fails if more tests than these pass only when they run again. The emulator sometimes spoils a few, and a busy
# machine one.
MOST_REPEATED = 5

FOLDER = re.compile(rf"({'|'.join(PROGRAMS)})-((?:x64|arm64)(?:-checked)?)(?:-\w+)?")
# What the scripts count, by the beginning of the names of their folders.
SCRIPTS = {"checks": "checks of files and libraries", "tools": "tests of the tools", "program": "checks of hxrun.exe",
           "explain": "tests of explain.html", "page": "tests of explain.html in a browser", "packages": "tests of packages",
           "runs": "checks of the installer's runs", "facts": "checks of what the entry points did"}

# Where Python's unittest says what failed: the test or the fixture, which is named again for each of its parts that fails.
FAILURE = re.compile(r"^={70}\n(?:FAIL|ERROR|UNEXPECTED SUCCESS): (\S+ \(\S+?\))", re.MULTILINE)
# Fixtures, which are not counted as tests that ran.
FIXTURES = ("setUpClass ", "tearDownClass ", "setUpModule ", "tearDownModule ")

# What a filter is, by what runs the tests.
GOOGLETEST_FILTER = 'a GoogleTest filter of whole names, such as "Path*"'
UNITTEST_FILTER = ('a part of a test\'s name, such as "planted", or with "*" a pattern for the whole name, such as '
                   '"*Trial.test_p*"')
PAGE_FILTER = 'a part of a test\'s name, such as "contrast"'


def filter_of(level):
    """What a filter of a level is."""
    return PAGE_FILTER if level == PAGE else UNITTEST_FILTER if level in SUITES else GOOGLETEST_FILTER


class Outcome(NamedTuple):
    passed: int
    failed: int
    # What failed, as far as the output names it.
    names: tuple = ()


def output_outcome(path):
    """The counts at the end of a script's output; None if it broke off before."""
    text = path.read_text(errors="replace") if path.is_file() else ""
    if match := re.search(r"^(\d+) passed, (\d+) failed\s*\Z", text, re.MULTILINE):
        return Outcome(int(match[1]), int(match[2]))
    if match := re.search(r"^Ran (\d+) tests? in .*\n\n(?:OK|FAILED)(?: \((.*)\))?\s*\Z", text, re.MULTILINE):
        failed = tuple(dict.fromkeys(FAILURE.findall(text)))
        tests = [name for name in failed if not name.startswith(FIXTURES)]
        skipped = re.search(r"skipped=(\d+)", match[2] or "")
        return Outcome(max(0, int(match[1]) - len(tests) - int(skipped[1] if skipped else 0)), len(failed), failed)
    return None


class Sum:
    """The results of a run, folder by folder."""

    def __init__(self, artifacts, broken, request):
        self.request = request
        self.passed, self.failed = 0, len(broken)
        # What failed, one text each; those of a test program may have several lines.
        self.failures = list(broken)
        # For each level: the names of its tests, the number of all runs of them, and the libraries that they ran with.
        self.tests, self.runs, self.presets = {}, {}, {}
        # The number of checks that the scripts ran, by kind.
        self.scripts = {}
        # "PROGRAM: TEST" of the tests that passed only when they ran again.
        self.repeated = []
        for status in sorted(artifacts.glob(f"*/{STATUS}")):
            self.add(status.parent, int(status.read_text()))
        if len(self.repeated) > MOST_REPEATED:
            self.failed += 1

    def add(self, folder, status):
        cases = cases_of(folder / RESULTS)
        if cases is not None:
            outcome = self.add_cases(folder, [case for case in cases if case.failures or not case.skipped])
        elif (folder / RESULTS).exists():
            outcome = None
        else:
            outcome = output_outcome(folder / "output.txt")
            if outcome:
                what = SCRIPTS.get(folder.name.partition("-")[0], folder.name)
                self.scripts[what] = self.scripts.get(what, 0) + outcome.passed + outcome.failed
                self.add_failures(folder.name, outcome)
        passed, failed = (outcome.passed, outcome.failed) if outcome else (0, 0)
        if outcome is None or (status != 0 and failed == 0):
            self.failures.append(f"{folder.name}: ended with status {status} {'after its tests' if outcome else 'before its last test'}")
            failed += 1
        self.passed += passed
        self.failed += failed

    def add_failures(self, script, outcome):
        """Notes what of a script failed."""
        self.failures += [f"{script}: {name}" for name in outcome.names]
        if outcome.failed > len(outcome.names):
            self.failures.append(f"{script}: {outcome.failed} failed, see build/artifacts/{script}/output.txt")

    def add_cases(self, folder, cases):
        for case in cases:
            self.failures += [f"{folder.name}: {case.name}: {failure}" for failure in case.failures]
        level, preset = FOLDER.fullmatch(folder.name).groups()
        self.tests.setdefault(level, set()).update(case.name for case in cases)
        self.runs[level] = self.runs.get(level, 0) + len(cases)
        self.presets.setdefault(level, {})[preset] = None
        failed = {case.name for case in cases if case.failures}
        self.repeated += [f"{folder.name}: {name}" for name in repeated_in(folder) if name not in failed]
        return Outcome(len(cases) - len(failed), len(failed))

    @property
    def empty(self):
        """Whether no test ran. The checks after the tests of a program are not tests."""
        if self.failed:
            return False
        programs = self.request.level in PROGRAMS
        return not (sum(self.runs.values()) if programs else self.passed)

    def lines(self):
        """The lines that say what ran and how it ended; the last one is the sum."""
        for level in sorted(self.tests, key=[*PROGRAMS].index):
            yield (f"{level}: {counted(len(self.tests[level]), 'test')}, run {counted(self.runs[level], 'time')} "
                   f"({', '.join(self.presets[level])})")
        for what, count in self.scripts.items():
            yield f"{what}: {count}"
        if self.repeated:
            yield f"passed only when they were run again: {len(self.repeated)}"
            yield from (f"  {name}" for name in self.repeated)
        if len(self.repeated) > MOST_REPEATED:
            yield f"more than {MOST_REPEATED} of them count as one more failure: look for the cause"
        if self.failures:
            # Repeated here, because the output of what failed may be far above.
            yield "what failed:"
            yield from ("  " + failure.replace("\n", "\n    ") for failure in self.failures)
        if self.empty:
            level = self.request.level
            yield "no test ran" + (f": at the level {level} a filter is {filter_of(level)}" if self.request.filter else "")
        yield f"{self.passed} passed, {self.failed} failed"


def counted(number, noun):
    return f"{number} {noun}{'s' * (number != 1)}"


def report(artifacts, broken, request):
    """Prints what ran and what failed, with the sum as the last line. `broken` has a text for each job that could not be run
    to the end; each counts as one failure, and so does a program that ended with an error. Returns the exit status: 0 if a
    test ran and nothing failed."""
    result = Sum(artifacts, broken, request)
    print("\n".join(result.lines()), flush=True)
    return 1 if result.failed or result.empty else 0
