"""measurement.py and measure.py: what they ask of the test programs and of LLVM's tools, and what they make of the answers."""

import contextlib
import io
import json
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from coverage import measure, measurement
from coverage.measurement import ROOT, Branch, Counts, Failed, Measurement, covered, read_branches, read_lines, read_sums, suite_of

LCOV = """\
SF:./src/base/a.cpp
FN:1,A
DA:1,3
DA:2,0
BRDA:1,0,0,3
end_of_record
SF:/usr/share/mingw-w64/include/windows.h
DA:1,5
end_of_record
SF:{root}/src/base/b.h
DA:7,1
end_of_record
"""


def sums(covered_count, count):
    return {kind: {"covered": covered_count, "count": count} for kind in ("lines", "branches", "mcdc")}


EXPORT = {"data": [{
    "totals": sums(7, 9),
    "files": [
        {"filename": "./src/base/a.cpp", "summary": sums(1, 2),
         "branches": [[1, 5, 1, 9, 3, 0, 0, 0, 4], [1, 5, 1, 9, 0, 2, 0, 0, 4], [2, 5, 2, 6, 0, 0, 0, 0, 4]],
         "expansions": [{"branches": [[4, 1, 4, 2, 1, 1, 0, 0, 4]]}]},
        {"filename": "/usr/share/mingw-w64/include/windows.h", "summary": sums(5, 5),
         "branches": [[9, 1, 9, 2, 1, 1, 0, 0, 4]]}]}]}


class ExportTest(unittest.TestCase):
    def test_lines_of_src(self):
        self.assertEqual(read_lines(LCOV.format(root=ROOT)), {"src/base/a.cpp": {1: 3, 2: 0}, "src/base/b.h": {7: 1}})

    def test_lines_of_one_file_in_two_records_are_added_up(self):
        self.assertEqual(read_lines("SF:src/a.h\nDA:1,2\nend_of_record\nSF:./src/a.h\nDA:1,3\nDA:2,0\n"),
                         {"src/a.h": {1: 5, 2: 0}})

    def test_branches_of_src_with_their_instances_added_up(self):
        self.assertEqual(read_branches(EXPORT), {"src/base/a.cpp": {
            Branch(1, 5, 1, 9): (3, 2), Branch(2, 5, 2, 6): (0, 0), Branch(4, 1, 4, 2): (1, 1)}})

    def test_sums(self):
        self.assertEqual(read_sums(EXPORT), {"": sums(7, 9), "src/base/a.cpp": sums(1, 2)})

    def test_the_lines_that_ran(self):
        self.assertEqual(covered({"src/b.cpp": {3: 1, 2: 9, 1: 0}, "src/a.cpp": {5: 1}, "src/c.cpp": {1: 0}}),
                         {"src/a.cpp": [5], "src/b.cpp": [2, 3]})
        self.assertEqual(list(covered({"src/b.cpp": {1: 1}, "src/a.cpp": {1: 1}})), ["src/a.cpp", "src/b.cpp"])

    def test_the_suite_of_a_profile(self):
        self.assertEqual(suite_of(Path("x/Letters+DateLetterTest.hxinternals.profraw")), "Letters/DateLetterTest")


class TableTest(unittest.TestCase):
    def test_only_what_is_whole_is_100_percent(self):
        self.assertEqual([measure.cell({"covered": covered_count, "count": 3000}) for covered_count in (3000, 2999, 0)],
                         ["3000/3000 100.0 %", "2999/3000  99.9 %", "0/3000   0.0 %"])
        self.assertEqual(measure.cell({"covered": 0, "count": 0}), "-")

    def test_a_line_for_each_file_and_the_total(self):
        self.assertEqual(measure.table({"": sums(10, 20), "src/b.cpp": sums(2, 2), "src/a.cpp": sums(0, 0)}), [
            "                   lines       branches          MC/DC",
            "src/a.cpp              -              -              -",
            "src/b.cpp    2/2 100.0 %    2/2 100.0 %    2/2 100.0 %",
            "total      10/20  50.0 %  10/20  50.0 %  10/20  50.0 %"])


class FakeWindows:
    """Runs a "program" that ends with `status` and writes profiles with these names. `crashes` runs before that end as the
    emulator's own crash does."""

    def __init__(self, folder, status, profiles, crashes=0):
        self.folder, self.status, self.profiles, self.crashes = folder, status, profiles, crashes
        self.calls = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        pass

    def run(self, variables, words, show):
        self.calls.append((variables, words))
        show("[  FAILED  ] A.B")
        place = self.folder / variables["HX_COVERAGE"].removeprefix("Z:\\run\\").replace("\\", "/")
        if len(self.calls) <= self.crashes:
            (place / "Crashed.hxsetup.profraw").write_text("raw", encoding="utf-8")
            return 139
        for name in self.profiles:
            (place / name).write_text("raw", encoding="utf-8")
        return self.status


class RunTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-coverage-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.measurement = Measurement(self.folder, "x64", show=lambda line: None)

    def test_a_program_is_run_with_the_counting_libraries(self):
        windows = FakeWindows(self.folder, 0, ["B.hxinternals.profraw", "A.hxinternals.profraw", "results.xml"])
        profiles = self.measurement.run(windows, "unit", "A*")
        self.assertEqual([profile.name for profile in profiles], ["A.hxinternals.profraw", "B.hxinternals.profraw"])
        self.assertEqual(windows.calls, [(
            {"HX_LIBRARY_DIR": r"Z:\run\x64-coverage", "HX_ARTIFACTS": r"Z:\run\coverage\unit",
             "HX_COVERAGE": r"Z:\run\coverage\unit", "HX_PROCESSOR": "x64"},
            ["wine64", r"Z:\run\x64-tests\unit_tests.exe", "--gtest_filter=A*"])])

    def test_profiles_of_an_earlier_run_do_not_count(self):
        self.measurement.run(FakeWindows(self.folder, 0, ["Old.hxsetup.profraw"]), "actions")
        profiles = self.measurement.run(FakeWindows(self.folder, 0, ["New.hxsetup.profraw"]), "actions")
        self.assertEqual([profile.name for profile in profiles], ["New.hxsetup.profraw"])

    def test_a_failing_test_is_no_measurement(self):
        with self.assertRaises(Failed) as caught:
            self.measurement.run(FakeWindows(self.folder, 1, ["A.hxsetup.profraw"]), "actions")
        self.assertEqual(str(caught.exception), "[  FAILED  ] A.B\nthe actions tests ended with status 1")

    def test_the_programs_run_again_after_a_crash_of_the_emulator(self):
        said = []
        emulated = Measurement(self.folder, "arm64", show=said.append)
        windows = FakeWindows(self.folder, 0, ["A.hxsetup.profraw"], crashes=2)
        self.assertEqual([profile.name for profile in emulated.run(windows, "unit")], ["A.hxsetup.profraw"])
        self.assertEqual(said[:2], ["hx: unit tests on arm64: the emulator crashed (status 139); running them again"] * 2)
        for measured, crashes in ((emulated, 3), (self.measurement, 1)):
            with self.assertRaisesRegex(Failed, "the unit tests ended with status 139"):
                measured.run(FakeWindows(self.folder, 0, ["A.hxsetup.profraw"], crashes), "unit")

    def test_other_libraries_do_not_count(self):
        # The rig's subject and the empty library have objects in common with what is tested.
        windows = FakeWindows(self.folder, 0, ["RigTest.rigsubject.profraw", "Test.empty.profraw", "A+B.hxsetup.profraw",
                                               "A.hxinternals.profraw", "RigTest.hxinternals.profraw"])
        self.assertEqual([profile.name for profile in self.measurement.run(windows, "unit")],
                         ["A+B.hxsetup.profraw", "A.hxinternals.profraw", "RigTest.hxinternals.profraw"])

    def test_without_counts_there_is_no_measurement(self):
        with self.assertRaisesRegex(Failed, "no test that ran has loaded the library"):
            self.measurement.merge([])

    def test_lines_of_each_suite(self):
        profiles = [self.folder / name for name in ("A.hxsetup.profraw", "I+B.hxsetup.profraw", "A.hxinternals.profraw")]
        merged = {}

        def tool(name, *words):
            if name == "llvm-profdata":
                merged[str(words[3])] = [path.name for path in words[4:]]
                return ""
            return LCOV.format(root=ROOT) if words[-1].endswith("/A.profdata") else "SF:src/a.h\nDA:4,1\n"

        with mock.patch.object(measurement, "tool", tool):
            self.assertEqual(self.measurement.lines_of_suites(profiles),
                             {"A": {"src/base/a.cpp": [1], "src/base/b.h": [7]}, "I/B": {"src/a.h": [4]}})
        place = f"{self.folder}/coverage"
        self.assertEqual(merged, {f"{place}/A.profdata": ["A.hxsetup.profraw", "A.hxinternals.profraw"],
                                  f"{place}/I+B.profdata": ["I+B.hxsetup.profraw"]})

    def test_a_tool_that_fails_says_why(self):
        with self.assertRaisesRegex(Failed, "llvm-profdata failed: .*none.profraw"):
            self.measurement.merge([self.folder / "none.profraw"])


class WholeTest(unittest.TestCase):
    """A whole run, with made-up programs and tools, on real sources."""

    NAME = "src/base/heap.cpp"

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-coverage-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        source = (ROOT / self.NAME).read_text(encoding="utf-8").splitlines()
        # The first line that is code.
        self.line = next(number for number, line in enumerate(source, 1) if line.startswith("void"))
        self.text = " ".join(source[self.line - 1].split())
        self.list = self.folder / "not-run.txt"

    def run_main(self, listed, count, *options, status=0):
        """Runs measure.py: (its exit status, its output)."""
        self.list.write_text(listed, encoding="utf-8")
        windows = FakeWindows(self.folder, status, ["A.hxsetup.profraw"])

        def tool(name, *words):
            if name == "llvm-profdata" or "show" in words:
                return ""
            if "--format=lcov" in words:
                return f"SF:{self.NAME}\nDA:{self.line},{count}\n"
            return json.dumps({"data": [{"totals": sums(1, 2), "files": [
                {"filename": self.NAME, "summary": sums(1, 2), "branches": []}]}]})

        output = io.StringIO()
        with (mock.patch.object(measurement, "tool", tool), mock.patch.object(measure, "LIST", self.list),
              mock.patch.object(Measurement, "open_windows", lambda _: windows), mock.patch.object(measure, "ROOT", self.folder),
              contextlib.redirect_stdout(output)):
            (self.folder / self.NAME).parent.mkdir(parents=True, exist_ok=True)
            (self.folder / self.NAME).write_bytes((ROOT / self.NAME).read_bytes())
            result = measure.main([str(self.folder), *options])
        self.assertEqual([words[1] for _, words in windows.calls],
                         [rf"Z:\run\x64-tests\{program}.exe" for program in
                          (("unit_tests", "action_tests") if "--level" not in options else ("unit_tests",))])
        return result, output.getvalue().splitlines()

    @property
    def entry(self):
        return f"{self.NAME} :: never run :: {self.text}"

    def test_everything_runs(self):
        status, lines = self.run_main("", 1)
        self.assertEqual((status, lines[-1]),
                         (0, "hx: the tests run every line and every branch, except 0 places with a reason in not-run.txt"))

    def test_a_line_that_does_not_run_fails(self):
        status, lines = self.run_main("", 0)
        self.assertEqual((status, lines[-2:]),
                         (1, [f"{self.NAME}:{self.line}: never run :: {self.text}: test it, or list it with its reason",
                              "hx: not-run.txt and what ran differ in 1 places"]))

    def test_a_line_that_does_not_run_may_be_listed(self):
        status, lines = self.run_main(f"# No test can run it.\n{self.entry}\n", 0)
        self.assertEqual((status, lines[-1]),
                         (0, "hx: the tests run every line and every branch, except 1 places with a reason in not-run.txt"))

    def test_only_entries_of_the_processor_count(self):
        status, lines = self.run_main(f"# R\n[x64] {self.entry}\n[arm64] {self.entry}\n", 0)
        self.assertEqual((status, lines[-1]),
                         (0, "hx: the tests run every line and every branch, except 1 places with a reason in not-run.txt"))

    def test_a_listed_line_that_runs_fails(self):
        status, lines = self.run_main(f"# No test can run it.\n{self.entry}\n", 1)
        self.assertEqual((status, lines[-2:]),
                         (1, [f"{self.entry}: this entry of the list ran, or is not there any more: remove it",
                              "hx: not-run.txt and what ran differ in 1 places"]))

    def test_a_source_that_is_not_measured_fails(self):
        other = self.folder / "src/base/other.cpp"
        other.parent.mkdir(parents=True)
        other.write_text("int x;\n", encoding="utf-8")
        status, lines = self.run_main("", 1)
        self.assertEqual((status, lines[-2:]),
                         (1, ["src/base/other.cpp: not measured: compile it with the counters (coverageOptions in "
                              "cmake/library.cmake), or list it with its reason",
                              "hx: not-run.txt and what ran differ in 1 places"]))
        self.assertEqual(self.run_main("# It has no code.\nsrc/base/other.cpp :: not measured\n", 1)[0], 0)
        other.unlink()
        status, lines = self.run_main("# It has no code.\nsrc/base/other.cpp :: not measured\n", 1)
        self.assertEqual((status, lines[-2]), (1, "src/base/other.cpp :: not measured: this entry of the list ran, or is not there "
                                                  "any more: remove it"))

    def test_a_malformed_list_fails(self):
        status, lines = self.run_main(f"{self.entry}\n", 0)
        self.assertEqual((status, lines[-1]), (1, "not-run.txt:1: this entry has no reason: put it in a line with # before it"))

    def test_one_level_is_not_compared(self):
        status, lines = self.run_main("", 0, "--level", "unit", "--lines", str(self.folder / "lines.json"),
                                      "--suites", str(self.folder / "suites.json"))
        self.assertEqual((status, lines[-1]), (0, "hx: the report is build/coverage/x64/index.html"))
        self.assertEqual(json.loads((self.folder / "lines.json").read_text(encoding="utf-8")), {})
        self.assertEqual(json.loads((self.folder / "suites.json").read_text(encoding="utf-8")), {"unit": {"A": {}}})

    def test_a_failing_test_ends_the_run(self):
        with self.assertRaisesRegex(SystemExit, "the unit tests ended with status 3"):
            self.run_main("", 1, status=3)


if __name__ == "__main__":
    unittest.main()
