"""A run's results are added up, its failures are shown again, and what is repeated takes the first results' place."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from support import TOOLS


def suite(**cases):
    """The text of a results.xml: a test's name and its failure's text, None where it passed, "not run"."""
    lines = []
    for name, failure in cases.items():
        if failure == "not run":
            lines.append(f'<testcase name="{name}" status="notrun" result="suppressed" classname="S"/>')
        elif failure:
            lines.append(f'<testcase name="{name}" status="run" result="completed" classname="S">'
                         f'<failure message="{failure}" type=""></failure></testcase>')
        else:
            lines.append(f'<testcase name="{name}" status="run" result="completed" classname="S"/>')
    return '<testsuites><testsuite name="S">' + "".join(lines) + "</testsuite></testsuites>"


class ResultsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-results-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def write(self, folder, results, status=None):
        (self.root / folder).mkdir()
        if results is not None:
            (self.root / folder / "results.xml").write_text(results)
        if status is not None:
            (self.root / folder / "status").write_text(f"{status}\n")
        return self.root / folder / "results.xml"

    def run_script(self, name, *arguments):
        return subprocess.run([sys.executable, TOOLS / "testing" / name, *map(str, arguments)], capture_output=True, text=True)

    def summary(self, broken=0):
        result = self.run_script("test-summary.py", broken, self.root)
        return result.stdout, result.stderr, result.returncode

    def test_results_are_added_up(self):
        self.write("a", suite(One=None, Two=None, Three="not run"), 0)
        self.write("b", suite(One=None), 0)
        self.write("no-status", suite(One="broken"))
        self.assertEqual(self.summary(), ("3 passed, 0 failed\n", "", 0))

    def test_failures_are_shown_and_counted(self):
        self.write("a", suite(One=None, Two="file.cpp:7&#x0A;wrong"), 1)
        self.assertEqual(self.summary(), ("1 passed, 1 failed\n", "a: S.Two: file.cpp:7\nwrong\n", 1))

    def test_a_program_that_ended_badly_is_a_failure(self):
        self.write("a", suite(One=None), 3)
        self.write("b", None, 0)
        said = "a: ended with status 3 before its last test\nb: ended with status 0 before its last test\n"
        self.assertEqual(self.summary(), ("1 passed, 2 failed\n", said, 1))

    def test_a_lane_that_broke_is_a_failure(self):
        self.write("a", suite(One=None), 0)
        self.assertEqual(self.summary(1), ("1 passed, 1 failed\n", "", 1))

    def test_nothing_is_no_success(self):
        self.assertEqual(self.summary(), ("0 passed, 0 failed\n", "", 1))

    def test_failed_tests_are_a_filter(self):
        results = self.write("a", suite(One="x", Two=None, Three="y"))
        self.assertEqual(self.run_script("repeated-tests.py", "failed", results).stdout, "S.One:S.Three\n")
        results = self.write("b", suite(One=None))
        self.assertEqual(self.run_script("repeated-tests.py", "failed", results).stdout, "\n")
        results = self.write("c", "<testsuites><testsuite")
        self.assertEqual(self.run_script("repeated-tests.py", "failed", results).stdout, "*\n")
        self.assertEqual(self.run_script("repeated-tests.py", "failed", self.root / "none").stdout, "*\n")

    def test_repeated_results_take_their_place(self):
        first = self.write("a", suite(One="x", Two=None, Three="y"), 1)
        again = self.write("a-again", suite(One=None, Two="not run", Three="z"))
        result = self.run_script("repeated-tests.py", "merge", first, again)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(self.summary(), ("2 passed, 1 failed\n", "a: S.Three: z\n", 1))

    def test_repeated_results_stand_for_none(self):
        first = self.write("a", None, 139)
        again = self.write("a-again", suite(One=None))
        self.assertEqual(self.run_script("repeated-tests.py", "merge", first, again).returncode, 0)
        (self.root / "a" / "status").write_text("0\n")
        self.assertEqual(self.summary(), ("1 passed, 0 failed\n", "", 0))

    def test_what_does_not_fit_is_refused(self):
        first = self.write("a", suite(One="x"), 1)
        other = self.write("b", suite(Two=None))
        self.assertEqual(self.run_script("repeated-tests.py", "merge", first, other).returncode, 1)
        self.assertEqual(self.run_script("repeated-tests.py", "merge", first, self.root / "none").returncode, 1)
        self.assertEqual(first.read_text(), suite(One="x"))


if __name__ == "__main__":
    unittest.main()
