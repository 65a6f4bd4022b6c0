"""repeating.py: install tests that failed run a second time; on ARM64 all that failed, because the emulator may have spoilt them."""

import unittest

from testing.planning import Program
from testing.progress import TestStream
from testing.repeating import BEFORE_THE_FIRST, broken_off, second_run, starts_again

UNIT = Program("unit", "arm64", "arm64")
INSTALL = Program("install", "arm64", "arm64", "-Server*", "others")
X64 = [Program("unit", "x64", "x64"), Program("actions", "x64", "x64"), Program("unit", "x64", "x64-checked")]


def stream(*lines):
    result = TestStream()
    for line in lines:
        result.feed(line)
    return result


WHOLE = stream("[==========] Running 1 test from 1 test suite.", "[ RUN      ] S.A", "[       OK ] S.A (0 ms)")


class StartsAgainTest(unittest.TestCase):
    def test_twice_after_a_crash_of_the_emulator(self):
        self.assertEqual([starts_again("arm64", 139, attempt) for attempt in (1, 2, 3)], [True, True, False])

    def test_not_after_a_crash_of_the_program(self):
        for status in (0, 1, 5, 124):
            self.assertFalse(starts_again("arm64", status, 1))

    def test_never_on_x64(self):
        self.assertFalse(starts_again("x64", 139, 1))


class BrokenOffTest(unittest.TestCase):
    BEGINNING = ("[==========] Running 3 tests from 1 test suite.", "[ RUN      ] S.A", "[  FAILED  ] S.A (1 ms)")

    def test_the_failed_ones_and_the_one_in_which_it_ended(self):
        self.assertEqual(broken_off(stream(*self.BEGINNING, "[ RUN      ] S.B")), ["S.A", "S.B"])

    def test_between_two_tests(self):
        self.assertEqual(broken_off(stream(*self.BEGINNING)), ["S.A"])
        self.assertEqual(broken_off(stream(*self.BEGINNING, "[ RUN      ] S.B", "[       OK ] S.B (1 ms)")), ["S.A", "S.B"])

    def test_before_the_first(self):
        self.assertEqual(broken_off(stream()), [BEFORE_THE_FIRST])
        self.assertEqual(broken_off(stream(self.BEGINNING[0])), [BEFORE_THE_FIRST])

    def test_after_the_last(self):
        self.assertEqual(broken_off(WHOLE), [])


class SecondRunTest(unittest.TestCase):
    def test_on_x64_only_install_tests(self):
        for program in X64:
            self.assertIsNone(second_run(program, ["S.A"], WHOLE))
            self.assertIsNone(second_run(program, None, WHOLE))
        self.assertEqual(second_run(Program("install", "x64", "x64"), ["S.A"], WHOLE), ("S.A", ["S.A"]))

    def test_nothing_failed(self):
        for program in (UNIT, INSTALL):
            self.assertIsNone(second_run(program, [], WHOLE))

    def test_on_arm64_all_that_failed(self):
        for program in (UNIT, INSTALL):
            self.assertEqual(second_run(program, ["S.A", "S.C"], WHOLE), ("S.A:S.C", ["S.A", "S.C"]))

    def test_a_program_without_results_runs_all_its_tests(self):
        ended = stream(*BrokenOffTest.BEGINNING, "[ RUN      ] S.B")
        self.assertEqual(second_run(UNIT, None, ended), ("*", ["S.A", "S.B"]))

    def test_a_program_without_results_keeps_its_filter(self):
        self.assertEqual(second_run(INSTALL, None, stream()), ("-Server*", [BEFORE_THE_FIRST]))


if __name__ == "__main__":
    unittest.main()
