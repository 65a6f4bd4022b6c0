"""summary.py and results.py: results are added up, failures are shown again, and repeated results replace the first ones."""

import contextlib
import io
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from testing.planning import Request
from testing.results import Misfit, failed, merge, note_repeated, repeated_in
from testing.summary import report


def suite(**cases):
    """The text of a results.xml. Each case is a test's name with the text of its failure, None if it passed, or "not run"."""
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


class RunFolderTest(unittest.TestCase):
    """Makes up the artifacts of a run."""

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

    def say(self, folder, text, status):
        """Makes the folder of a script."""
        (self.root / folder).mkdir()
        (self.root / folder / "output.txt").write_text(text)
        (self.root / folder / "status").write_text(f"{status}\n")

    def summary(self, broken=(), request=Request()):
        """Adds up the results: (the output, what it says of failures, the exit status)."""
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            status = report(self.root, broken, request)
        text, _, rest = output.getvalue().partition("what failed:\n")
        *failures, last = rest.splitlines(keepends=True) or [""]
        return text + last, "".join(failures), status

    def closing(self, broken=(), request=Request()):
        """The same, with only the last line in place of the output."""
        output, errors, status = self.summary(broken, request)
        return output.splitlines(keepends=True)[-1], errors, status


class ResultsTest(RunFolderTest):
    def test_results_are_added_up(self):
        self.write("unit-x64", suite(One=None, Two=None, Three="not run"), 0)
        self.write("unit-arm64", suite(One=None), 0)
        self.write("unit-x64-checked", suite(One="broken"))
        self.assertEqual(self.closing(), ("3 passed, 0 failed\n", "", 0))

    def test_failures_are_shown_and_counted(self):
        self.write("unit-x64", suite(One=None, Two="file.cpp:7&#x0A;wrong"), 1)
        self.assertEqual(self.closing(), ("1 passed, 1 failed\n", "  unit-x64: S.Two: file.cpp:7\n    wrong\n", 1))

    def test_a_program_that_ended_with_an_error_is_a_failure(self):
        self.write("unit-x64", suite(One=None), 3)
        self.write("unit-arm64", None, 0)
        said = ("  unit-arm64: ended with status 0 before its last test\n"
                "  unit-x64: ended with status 3 after its tests\n")
        self.assertEqual(self.closing(), ("1 passed, 2 failed\n", said, 1))

    def test_a_lane_that_broke_is_a_failure(self):
        self.write("unit-x64", suite(One=None), 0)
        self.assertEqual(self.closing(["x64: lost"]), ("1 passed, 1 failed\n", "  x64: lost\n", 1))

    def test_an_empty_run_is_not_a_success(self):
        self.assertEqual(self.summary(), ("no test ran\n0 passed, 0 failed\n", "", 1))

    def test_a_filter_that_no_test_matches(self):
        """The message says what a filter of that level is."""
        self.write("actions-x64", suite(), 0)
        self.assertEqual(self.summary(request=Request("actions", "Path")), (
            "actions: 0 tests, run 0 times (x64)\n"
            'no test ran: at the level actions a filter is a GoogleTest filter of whole names, such as "Path*"\n'
            "0 passed, 0 failed\n", "", 1))

    def test_a_filter_that_no_script_matches(self):
        for level, text in (("packages", "Ran 0 tests in 0.000s\n\nOK\n"), ("acceptance", "Ran 0 tests in 0.000s\n\nOK\n"),
                            ("corpus", "Ran 0 tests in 0.000s\n\nOK\n")):
            with self.subTest(level):
                self.say(level, f"\n{'-' * 70}\n{text}", 0)
                self.assertEqual(self.summary(request=Request(level, "A*:B*"))[0].splitlines()[-2:], [
                    f"no test ran: at the level {level} a filter is a part of a test's name, such as \"planted\", or with \"*\" a "
                    "pattern for the whole name, such as \"*Trial.test_p*\"",
                    "0 passed, 0 failed"])
                (self.root / level / "status").unlink()
        self.say("page", "0 passed, 0 failed\n", 0)
        self.assertEqual(self.summary(request=Request("page", "A*:B*")), (
            "tests of explain.html in a browser: 0\n"
            "no test ran: at the level page a filter is a part of a test's name, such as \"contrast\"\n"
            "0 passed, 0 failed\n", "", 1))

    def test_what_is_checked_after_a_filter_that_no_test_matches_is_no_test(self):
        """The checks of what the entry points did, of the installer's runs, and of hxrun.exe also run with a filter."""
        for level, script in (("actions", "facts-x64"), ("install", "runs-x64"), ("tools", "program")):
            with self.subTest(level):
                self.write(f"{level}-x64", suite(), 0)
                self.say(script, "1 passed, 0 failed\n", 0)
                output, errors, status = self.summary(request=Request(level, "None*"))
                self.assertEqual((output.splitlines()[-2:], errors, status), ([
                    f'no test ran: at the level {level} a filter is a GoogleTest filter of whole names, such as "Path*"',
                    "1 passed, 0 failed"], "", 1))
                (self.root / f"{level}-x64/status").unlink()
                (self.root / script / "status").unlink()

    def test_no_advice_about_a_filter_if_something_failed(self):
        self.write("actions-x64", None, 1)
        self.assertEqual(self.summary(request=Request("actions", "Path*"))[::2], ("0 passed, 1 failed\n", 1))

    def test_failed_tests(self):
        self.assertEqual(failed(self.write("a", suite(One="x", Two=None, Three="y"))), ["S.One", "S.Three"])
        self.assertEqual(failed(self.write("b", suite(One=None, Two="not run"))), [])
        self.assertIsNone(failed(self.write("c", "<testsuites><testsuite")))
        self.assertIsNone(failed(self.root / "none"))

    def test_repeated_results_replace_the_first_ones(self):
        first = self.write("unit-arm64", suite(One="x", Two=None, Three="y"), 1)
        again = self.write("unit-arm64-again", suite(One=None, Two="not run", Three="z"))
        merge(first, again)
        self.assertEqual(self.closing(), ("2 passed, 1 failed\n", "  unit-arm64: S.Three: z\n", 1))

    def test_repeated_results_replace_missing_ones(self):
        first = self.write("unit-arm64", None, 139)
        again = self.write("unit-arm64-again", suite(One=None))
        merge(first, again)
        (self.root / "unit-arm64" / "status").write_text("0\n")
        self.assertEqual(self.closing(), ("1 passed, 0 failed\n", "", 0))

    def test_results_that_do_not_match_are_refused(self):
        first = self.write("a", suite(One="x"), 1)
        other = self.write("b", suite(Two=None))
        with self.assertRaises(Misfit):
            merge(first, other)
        with self.assertRaises(Misfit):
            merge(first, self.root / "none")
        self.assertEqual(first.read_text(), suite(One="x"))

    def test_how_many_tests_there_are(self):
        for preset in ("x64", "x64-checked", "arm64", "arm64-checked"):
            self.write(f"unit-{preset}", suite(One=None, Two=None, Three="not run"), 0)
        self.write("actions-x64", suite(One=None, Two="wrong"), 1)
        self.write("install-x64", suite(One=None, Two=None), 0)
        self.write("install-arm64-servers", suite(One=None, Two="not run"), 0)
        self.write("install-arm64-others", suite(Two=None), 0)
        self.say("checks", "ok one\n12 passed, 0 failed\n", 0)
        self.say("tools", "....\nRan 4 tests in 0.1s\n\nOK\n", 0)
        self.say("runs-x64", "3 passed, 0 failed\n", 0)
        self.say("runs-arm64", "2 passed, 1 failed\n", 1)
        self.assertEqual(self.summary(), (
            "unit: 2 tests, run 8 times (arm64, arm64-checked, x64, x64-checked)\n"
            "actions: 2 tests, run 2 times (x64)\n"
            "install: 2 tests, run 4 times (arm64, x64)\n"
            "checks of files and libraries: 12\n"
            "checks of the installer's runs: 6\n"
            "tests of the tools: 4\n"
            "34 passed, 2 failed\n",
            "  actions-x64: S.Two: wrong\n  runs-arm64: 1 failed, see build/artifacts/runs-arm64/output.txt\n", 1))

    def test_a_script_that_broke_off_is_a_failure(self):
        self.write("unit-x64", suite(One=None), 0)
        self.say("checks", "ok one\n", 1)
        self.say("tools", f"..F.\n{'=' * 70}\nFAIL: test_a (b.C.test_a)\nRan 4 tests in 0.1s\n\nFAILED (failures=1)\n", 1)
        self.assertEqual(self.closing(), (
            "4 passed, 2 failed\n", "  checks: ended with status 1 before its last test\n  tools: test_a (b.C.test_a)\n", 1))


class UnittestTest(RunFolderTest):
    """The output of Python's unittest: how many tests passed and failed."""

    SKIPPED = """
class Some(unittest.TestCase):
    @unittest.skip("not here")
    def test_skipped(self):
        pass

    def test_other(self):
        assert """

    def outcome(self, tests):
        """Runs a module of tests: the last line of the report about it."""
        (self.root / "test_made_up.py").write_text(f"import unittest\n{tests}", encoding="utf-8")
        result = subprocess.run([sys.executable, "-m", "unittest", "discover", self.root], text=True, check=False,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.say("corpus", result.stdout, result.returncode)
        return self.closing()

    def test_a_test_whose_parts_fail_is_one_failure(self):
        self.assertEqual(self.outcome("""
class Corpus(unittest.TestCase):
    def test_each(self):
        'Says what it does.'
        for number in range(26):
            with self.subTest(number):
                self.assertEqual(number, 7)
        with self.subTest("another", path="a (b)"):
            raise KeyError("k")

    def test_quiet(self):
        for number in range(3):
            with self.subTest(number):
                self.fail()

    def test_right(self):
        pass

    def tearDown(self):
        self.assertNotIn("quiet", self.id())
"""), ("1 passed, 2 failed\n", "  corpus: test_each (test_made_up.Corpus.test_each)\n"
                                     "  corpus: test_quiet (test_made_up.Corpus.test_quiet)\n", 1))

    def test_what_fails_before_and_after_the_tests_is_a_failure_but_no_test(self):
        self.assertEqual(self.outcome("""
class Before(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        raise ValueError

    def test_never(self):
        pass

class Beyond(unittest.TestCase):
    @classmethod
    def tearDownClass(cls):
        raise ValueError

    def test_one(self):
        pass

    def test_two(self):
        pass
"""), ("2 passed, 2 failed\n", "  corpus: setUpClass (test_made_up.Before)\n"
                                     "  corpus: tearDownClass (test_made_up.Beyond)\n", 1))

    def test_other_failures(self):
        self.assertEqual(self.outcome("""
import missing_module
"""), ("0 passed, 1 failed\n", "  corpus: test_made_up (unittest.loader._FailedTest.test_made_up)\n", 1))

    def test_a_skipped_test_counts_as_nothing(self):
        self.assertEqual(self.outcome(self.SKIPPED + "True"), ("1 passed, 0 failed\n", "", 0))

    def test_a_skipped_test_beside_a_failing_one_counts_as_nothing(self):
        self.assertEqual(self.outcome(self.SKIPPED + "False"), (
            "0 passed, 1 failed\n", "  corpus: test_other (test_made_up.Some.test_other)\n", 1))

    def test_an_unexpected_success_is_a_failure(self):
        self.assertEqual(self.outcome("""
class Lucky(unittest.TestCase):
    @unittest.expectedFailure
    def test_lucky(self):
        pass

    def test_right(self):
        pass
"""), ("1 passed, 1 failed\n", "  corpus: test_lucky (test_made_up.Lucky.test_lucky)\n", 1))


class RepeatedTest(RunFolderTest):
    """Tests that passed only when they ran again are listed, and fail the run if there are too many."""

    def repeat(self, count, **cases):
        names = [f"T{number}" for number in range(count)]
        self.write("install-arm64", suite(**dict.fromkeys(names), **cases), 0)
        note_repeated(self.root / "install-arm64", [f"S.{name}" for name in names])

    def test_they_are_listed(self):
        self.repeat(2, Other=None)
        self.assertEqual(self.summary(), (
            "install: 3 tests, run 3 times (arm64)\n"
            "passed only when they were run again: 2\n"
            "  install-arm64: S.T0\n"
            "  install-arm64: S.T1\n"
            "3 passed, 0 failed\n", "", 0))

    def test_five_are_not_too_many(self):
        self.repeat(5)
        self.assertEqual(self.closing(), ("5 passed, 0 failed\n", "", 0))

    def test_six_fail_the_run(self):
        self.repeat(6)
        output, errors, status = self.summary()
        self.assertEqual((errors, status), ("", 1))
        self.assertEqual(output.splitlines()[1], "passed only when they were run again: 6")
        self.assertEqual(output.splitlines()[-2:], [
            "more than 5 of them count as one more failure: look for the cause",
            "6 passed, 1 failed"])

    def test_repeated_tests_of_several_programs_are_added(self):
        self.repeat(3)
        self.write("unit-arm64", suite(**dict.fromkeys(["A", "B", "C"])), 0)
        note_repeated(self.root / "unit-arm64", ["S.A", "S.B", "S.C"])
        self.assertEqual(self.closing(), ("6 passed, 1 failed\n", "", 1))

    def test_one_that_failed_again_is_a_failure_only(self):
        self.repeat(1, Bad="wrong")
        note_repeated(self.root / "install-arm64", ["S.Bad"])
        output, errors, status = self.summary()
        self.assertIn("passed only when they were run again: 1\n  install-arm64: S.T0\n1 passed", output)
        self.assertEqual((errors, status), ("  install-arm64: S.Bad: wrong\n", 1))

    def test_each_counts_once(self):
        self.repeat(1)
        note_repeated(self.root / "install-arm64", ["S.T0"])
        self.assertEqual(repeated_in(self.root / "install-arm64"), ["S.T0"])
        self.assertIn("run again: 1\n", self.summary()[0])


if __name__ == "__main__":
    unittest.main()
