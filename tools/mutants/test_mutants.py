"""./hx mutants: building a changed library, running its tests until one fails, and the report. Another program stands in for
Windows: it reads the libraries, and its tests fail if a number is not in their code."""

import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from mutants import mutants, settled
from mutants.library import Failed, Library
from mutants.operators import places_of
from mutants.tests import Killed, Suite, Tests, filter_of, nearness, rounds_of, suites_of
from windows.windows_session import Ended

FLAGS = "--target=x86_64-w64-windows-gnu -ffreestanding -fno-exceptions -fno-rtti -fdata-sections -g -gcodeview -Os -Werror -std=c++20"
# Builds both libraries of three sources, as the project's own build does.
NINJA = """rule compile
  command = clang++-19 {flags} -I{root}/src -MD -MF $out.d -o $out -c $in
  deps = gcc
  depfile = $out.d
rule link
  command = : && clang++-19 --target=x86_64-w64-windows-gnu -nostdlib -fuse-ld=lld-19 -shared -Wl,--entry,Entry $
    -Wl,--no-insert-timestamp -Wl,--export-all-symbols -Wl,--pdb=$name.pdb -o $out $in && :
build checked.obj: compile {root}/src/one/checked.cpp
build entry.obj: compile {root}/src/one/entry.cpp
build free.obj: compile {root}/src/two/free.cpp
build hxsetup.dll: link checked.obj entry.obj free.obj
  name = hxsetup
build hxinternals.dll: link checked.obj entry.obj free.obj
  name = hxinternals
"""
# A test expects the number of Checked in the library; it never ends without that of Endless. No test runs Unused.
SOURCES = {
    "src/one/checked.cpp": '#include "one/shared.h"\nextern "C" int Checked() {\n  return 0x5EED0041;\n}\n'
                           'extern "C" int Endless() {\n  return 0x5EED0051;\n}\n'
                           'extern "C" int Unused() {\n  return 0x5EED0061;\n}\n',
    "src/one/entry.cpp": '#include "one/shared.h"\nextern "C" int Entry(void*, unsigned, void*) {\n  return Shared(7);\n}\n',
    "src/one/shared.h": "#pragma once\ninline int Shared(int a) {\n  return a + 0x5EED0071;\n}\n",
    "src/two/free.cpp": 'extern "C" int Free() {\n  return 0x5EED0081;\n}\n',
}
LINES = {"unit": {"CheckedTest": {"src/one/checked.cpp": [3, 6]}, "FreeTest": {"src/two/free.cpp": [2]}}, "actions": {}}


class TreeTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-mutants-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name).resolve()


class BuiltTest(unittest.TestCase):
    """Has a small project that is built once."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hx-mutants-")
        cls.addClassCleanup(folder.cleanup)
        cls.root = Path(folder.name).resolve()
        cls.build = cls.root / "build/x64"
        cls.build.mkdir(parents=True)
        cls.write_sources()
        (cls.build / "build.ninja").write_text(NINJA.format(flags=FLAGS, root=cls.root), encoding="utf-8")
        subprocess.run(["ninja", "--quiet", "-C", cls.build], check=True)
        listed = subprocess.run(["ninja", "-C", cls.build, "-t", "compdb", "compile"], check=True, capture_output=True).stdout
        (cls.build / "compile_commands.json").write_bytes(listed)

    @classmethod
    def write_sources(cls):
        for name, text in SOURCES.items():
            path = cls.root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")

    def setUp(self):
        for name in ("build/mutants", "run", "work", "linked"):
            shutil.rmtree(self.root / name, ignore_errors=True)

    def library(self):
        return Library(self.build, self.root / "work", self.root)


class LibraryTest(BuiltTest):
    def linked(self, library, changed):
        """The code of both libraries as one, or None if they cannot be linked."""
        place = self.root / "linked"
        place.mkdir(exist_ok=True)
        if not library.link(changed, place):
            return None
        return b"".join((place / f"{name}.dll").read_bytes() for name in ("hxsetup", "hxinternals"))

    def test_the_unchanged_libraries(self):
        code = self.linked(self.library(), {})
        self.assertEqual(code.count(bytes.fromhex("4100ed5e")), 2)
        self.assertEqual(list((self.root / "linked").glob("*.pdb")), [])

    def test_a_changed_source(self):
        library = self.library()
        changed = library.mutate("src/one/checked.cpp", SOURCES["src/one/checked.cpp"].replace("0041", "0042"))
        self.assertEqual(list(changed), ["checked.obj"])
        code = self.linked(library, changed)
        self.assertEqual((code.count(bytes.fromhex("4100ed5e")), code.count(bytes.fromhex("4200ed5e"))), (0, 2))
        self.assertEqual(self.linked(library, {}).count(bytes.fromhex("4100ed5e")), 2)

    def test_a_changed_header_changes_what_includes_it(self):
        changed = self.library().mutate("src/one/shared.h", SOURCES["src/one/shared.h"].replace("+", "-"))
        self.assertEqual(list(changed), ["entry.obj"])

    def test_the_same_code(self):
        self.assertEqual(self.library().mutate("src/two/free.cpp", SOURCES["src/two/free.cpp"].replace("{\n", "{\n;\n;\n")), {})

    def test_what_does_not_compile(self):
        library = self.library()
        self.assertIsNone(library.mutate("src/two/free.cpp", "int Free() { return x; }\n"))
        # A warning is no reason to refuse a mutant.
        self.assertEqual(list(library.mutate("src/two/free.cpp", 'extern "C" int Free() { int a; return a; }\n')), ["free.obj"])

    def test_what_cannot_be_linked(self):
        library = self.library()
        changed = library.mutate("src/two/free.cpp", 'extern "C" int Missing(); extern "C" int Free() { return Missing(); }\n')
        self.assertIsNone(self.linked(library, changed))

    def test_a_source_that_does_not_compile_as_it_is(self):
        self.addCleanup(self.write_sources)
        (self.root / "src/two/free.cpp").write_text("x\n", encoding="utf-8")
        with self.assertRaisesRegex(Failed, "free.obj does not compile"):
            self.library().mutate("src/two/free.cpp", "int a;\n")


class SuitesTest(TreeTest):
    def test_suites_of_results(self):
        path = self.root / "results.xml"
        path.write_text('<testsuites><testsuite name="A/BTest" time="1.5"><testcase file="/t/unit/a/b_test.cpp"/>'
                        '</testsuite><testsuite name="Empty" time="0"/></testsuites>', encoding="utf-8")
        self.assertEqual(suites_of("unit", path), [("unit", "A/BTest", 1.5, "/t/unit/a/b_test.cpp")])

    def test_a_line_that_the_compiler_can_run_concerns_all_suites(self):
        text = """constexpr int Twice(int a) { return a * 2; }
            constexpr int kSize = 1; int Thrice(int a) { return a * 3; }
            struct S { static constexpr int Half(int a) { return a / 2; } int Rest(int a) { return a % 2; } };
            constexpr int Never(int a) { return a - 1; }"""
        first, second = Suite("unit", "A", 1.0, ""), Suite("actions", "B", 1.0, "")
        reach = mutants.Reach([first, second], {"unit": {"A": {"x.h": [1, 2, 3]}}, "actions": {"B": {}}})
        found = [(changes[0].before, len(reach.suites_for(mutants.mutant_of("x.h", text, changes[0]), text)))
                 for changes in places_of(text) if changes[0].name == "arithmetic"]
        self.assertEqual(found, [("*", 2), ("*", 1), ("/", 2), ("%", 1), ("-", 0)])

    def test_near_tests_come_first_and_long_ones_last(self):
        def suite(level, name, seconds, file):
            return Suite(level, name, seconds, f"/t/{level}/{file}")

        near, part = suite("unit", "Near", 1, "paths/path_text_long_test.cpp"), suite("actions", "Part", 2, "paths/path_test.cpp")
        module, far = suite("unit", "Module", 2.5, "paths/drive_test.cpp"), suite("unit", "Far", 0.5, "files/tree_test.cpp")
        long = suite("unit", "Long", 40, "paths/path_text_test.cpp")
        self.assertEqual([nearness("src/paths/path_text.cpp", each) for each in (near, long, part, module, far)], [0, 0, 1, 2, 3])
        self.assertEqual(rounds_of("src/paths/path_text.cpp", [far, long, module, near, part]), [[near, far], [part], [module], [long]])
        self.assertEqual(filter_of([near, far]), "Near.*:Far.*")


class FakeWindows:
    """Stands in for a Windows with the test programs of both levels."""

    # What becomes of the next Windows: an earlier run has left something that lets all tests fail.
    spoiled = 0
    opened = 0

    def __init__(self, processor, folder, number, limit, rest):
        assert (processor, limit) == ("x64", "") and number >= 0
        self.place = Path(folder)
        FakeWindows.opened += 1

    def __enter__(self):
        return self

    def __exit__(self, *_):
        FakeWindows.spoiled = 0

    def run(self, variables, command, show):
        filter = (self.place / "flags.txt").read_text(encoding="utf-8").splitlines()[0].removeprefix("--gtest_filter=")
        library = self.place / variables["HX_LIBRARY_DIR"].removeprefix("Z:\\run\\")
        code = (library / "hxinternals.dll").read_bytes()
        assert float(variables["HX_TIME_LIMIT"]) > 1 and command[0] == "wine64"
        if output := next((word for word in command if "xml" in word), None):
            suites = LINES["unit" if "unit" in command[1] else "actions"]
            (self.place / output.split("\\")[-1]).write_text("<testsuites>" + "".join(
                f'<testsuite name="{name}" time="0.1"><testcase file="/t/unit/one/x_test.cpp"/></testsuite>' for name in suites) +
                "</testsuites>", encoding="utf-8")
        if not re.search(r"CheckedTest|\*$", filter):
            return 0
        show("[ RUN      ] CheckedTest.Answers")
        if b"\x41\x00\xed\x5e" not in code or FakeWindows.spoiled:
            show("[  FAILED  ] CheckedTest.Answers, where GetParam() = 1 (12 ms)")
            return 1
        show("[ RUN      ] CheckedTest.Ends")
        return 124 if b"\x51\x00\xed\x5e" not in code else 0


class TestsTest(TreeTest):
    """Running tests, with programs that say what they are told."""

    def setUp(self):
        super().setUp()
        for name in ("unit_tests.exe", "action_tests.exe"):
            (self.root / name).write_text("program", encoding="utf-8")
        self.answers, self.given = [], []

    def opened(self):
        test = self

        class Windows(FakeWindows):
            def run(self, variables, command, show):
                test.given.append((variables, command, (self.place / "flags.txt").read_text(encoding="utf-8")))
                lines, status = test.answers.pop(0)
                for line in lines:
                    show(line)
                if status is None:
                    raise Ended("Windows ended unexpectedly")
                return status

        FakeWindows.opened = 0
        return Tests(self.root, self.root / "place", Windows)

    def test_what_is_run(self):
        self.answers = [([], 0)]
        with self.opened() as tests:
            self.assertIsNone(tests.run("actions", "A.*:B.*", 10))
        self.assertEqual(self.given, [({"HX_TIME_LIMIT": "55", "HX_LIBRARY_DIR": "Z:\\run\\guarded", "HX_ARTIFACTS": "Z:\\run"},
                                       ["wine64", "Z:\\run\\action_tests.exe", "--gtest_flagfile=Z:\\run\\flags.txt"],
                                       "--gtest_filter=A.*:B.*\n--gtest_fail_fast\n")])

    def test_a_failing_test(self):
        self.answers = [(["[ RUN      ] A.B/0", "x:3: Failure", "[  FAILED  ] A.B/0, where GetParam() = (1, 2) (3 ms)",
                          "[  FAILED  ] 1 test, listed below:", "[  FAILED  ] A.B/0"], 1), ([], 0)]
        with self.opened() as tests:
            self.assertEqual(tests.run("unit", "*", 1), Killed("A.B/0", "failed"))
            tests.run("unit", "*", 1)
        self.assertEqual(FakeWindows.opened, 1)

    def test_a_test_that_hangs_or_breaks_off_gets_a_new_windows(self):
        begun = ["[ RUN      ] A.B", "[       OK ] A.B (1 ms)", "[ RUN      ] A.C"]
        for status, how in ((124, "hung"), (5, "broke off"), (None, "broke off")):
            self.answers = [(begun, status), ([], 0)]
            with self.subTest(status), self.opened() as tests:
                self.assertEqual(tests.run("unit", "*", 1), Killed("A.C", how))
                tests.run("unit", "*", 1)
                self.assertEqual(FakeWindows.opened, 2)

    def test_a_damaged_program_is_restored(self):
        self.answers = [([], 0)] * 3
        with self.opened() as tests:
            tests.run("unit", "*", 1)
            (self.root / "place/unit_tests.exe").write_text("damaged", encoding="utf-8")
            (self.root / "place/action_tests.exe").unlink()
            tests.run("unit", "*", 1)
        self.assertEqual([(self.root / "place" / name).read_text(encoding="utf-8") for name in ("unit_tests.exe", "action_tests.exe")],
                         ["program"] * 2)

    def test_a_kill_is_confirmed_with_the_unchanged_library(self):
        failing = (["[  FAILED  ] A.B (1 ms)"], 1)
        round_of_a = [Suite("unit", "A", 1, "a_test.cpp")]
        self.answers = [failing, ([], 0)]
        with self.opened() as tests:
            self.assertEqual(tests.kill([round_of_a]), ("unit", Killed("A.B", "failed")))
        self.assertEqual([(variables["HX_LIBRARY_DIR"], flags.splitlines()[0]) for variables, _, flags in self.given],
                         [("Z:\\run\\guarded", "--gtest_filter=A.*"), ("Z:\\run\\guarded-unchanged", "--gtest_filter=A.B")])
        # The unchanged library fails, too: something is left of an earlier mutant, and a new Windows decides.
        self.answers = [failing, failing, ([], 0)]
        with self.opened() as tests:
            self.assertIsNone(tests.kill([round_of_a]))
            self.assertEqual(FakeWindows.opened, 2)
        self.answers = [failing, failing, failing, ([], 0)]
        with self.opened() as tests:
            self.assertEqual(tests.kill([round_of_a]), ("unit", Killed("A.B", "failed")))

    def test_a_run_that_hangs_or_breaks_off_counts_if_it_does_so_again(self):
        begun = ["[ RUN      ] A.B"]
        rounds = [[Suite("unit", "A", 1, "a_test.cpp"), Suite("unit", "B", 1, "b_test.cpp")]]
        for status, how in ((124, "hung"), (5, "broke off"), (None, "broke off")):
            with self.subTest(status):
                self.given.clear()
                self.answers = [(begun, status), ([], 0), (begun, status)]
                with self.opened() as tests:
                    self.assertEqual(tests.kill(rounds), ("unit", Killed("A.B", how)))
                self.assertEqual([(variables["HX_LIBRARY_DIR"], flags.splitlines()[0]) for variables, _, flags in self.given],
                                 [("Z:\\run\\guarded", "--gtest_filter=A.*:B.*"), ("Z:\\run\\guarded-unchanged", "--gtest_filter=A.*:B.*"),
                                  ("Z:\\run\\guarded", "--gtest_filter=A.*:B.*")])
                # The machine was the reason.
                self.answers = [(begun, status), ([], 0), ([], 0)]
                with self.opened() as tests:
                    self.assertIsNone(tests.kill(rounds))
                self.answers = [(begun, status), (begun, status), ([], 0)]
                with self.opened() as tests:
                    self.assertIsNone(tests.kill(rounds))
                self.assertEqual(self.answers, [])

    def test_the_second_run_of_a_mutant_is_not_one_of_the_tries(self):
        begun = ["[ RUN      ] A.B"]
        rounds = [[Suite("unit", "A", 1, "a_test.cpp")]]
        for last, result in (((begun, 124), ("unit", Killed("A.B", "hung"))), (([], 0), None)):
            with self.subTest(result):
                # The library as it is passes only in the third try.
                self.given.clear()
                self.answers = [(begun, 124)] * 5 + [([], 0), last]
                with self.opened() as tests:
                    self.assertEqual(tests.kill(rounds), result)
                self.assertEqual(self.answers, [])
                self.assertEqual([variables["HX_LIBRARY_DIR"].removeprefix("Z:\\run\\") for variables, _, _ in self.given],
                                 ["guarded", "guarded-unchanged"] * 3 + ["guarded"])

    def test_an_unchanged_library_that_never_passes_ends_the_run(self):
        for answer, how in ((([], None), " broke off"), ((["[ RUN      ] A.B"], 124), "A.B hung"),
                            ((["[  FAILED  ] A.B (1 ms)"], 1), "A.B failed")):
            self.answers = [answer] * 6
            with self.subTest(how), self.opened() as tests, \
                    self.assertRaisesRegex(Failed, f"^{how} with the library as it is, 3 times$"):
                tests.kill([[Suite("unit", "A", 1, "a_test.cpp")]])
            self.assertEqual(self.answers, [])


class RunTest(BuiltTest):
    """A whole run on the small project."""

    def setUp(self):
        super().setUp()
        self.folder = self.root / "run"
        (self.folder / "x64-tests").mkdir(parents=True)
        (self.folder / "x64").mkdir()
        for name in ("x64-tests/unit_tests.exe", "x64-tests/action_tests.exe", "x64/rigsubject.dll"):
            (self.folder / name).write_text(name, encoding="utf-8")
        self.list = self.root / "settled.txt"
        self.list.write_text("", encoding="utf-8")
        self.shown = []
        FakeWindows.spoiled = FakeWindows.opened = 0
        for patch in (mock.patch.object(settled, "LIST", self.list), mock.patch.object(mutants, "ROOT", self.root),
                      mock.patch.object(mutants, "Tests", lambda programs, place: Tests(programs, place, FakeWindows)),
                      mock.patch.object(mutants.resource, "setrlimit"),
                      mock.patch.object(mutants.Run, "lines_of_suites", lambda run: LINES)):
            patch.start()
            self.addCleanup(patch.stop)

    def run_all(self, count=100, seed=1, survivors=False):
        self.shown.clear()
        return mutants.Run(self.folder, count, seed, survivors, self.root, self.shown.append).run()

    def results(self, seed=1):
        """What became of each change: {(source, before, after): outcome}."""
        kept = json.loads((self.root / f"build/mutants/results-{seed}.json").read_text(encoding="utf-8"))["results"]
        return {key: result["outcome"] for key, result in kept.items()}

    def test_killed_hung_and_survived(self):
        self.assertEqual(self.run_all(), 1)
        text = "\n".join(self.shown)
        self.assertRegex(text, r"src/one/checked.cpp:3 .* \| failed CheckedTest.Answers")
        self.assertRegex(text, r"src/one/checked.cpp:6 .* \| hung CheckedTest.Ends")
        self.assertRegex(text, r"src/two/free.cpp:2 \((constant|value), seed 1\) survived:\n  - return 0x5EED0081;\n  \+ return ")
        self.assertNotIn("an entry of settled.txt begins", text)
        # Nothing runs these lines.
        self.assertNotIn("0061", text)
        self.assertNotIn("shared.h", text)
        self.assertEqual((self.root / "build/mutants/report.txt").read_text(encoding="utf-8").splitlines()[-1], self.shown[-1])

    def test_the_same_seed_takes_the_same_changes(self):
        def taken(seed):
            return [mutant[:3] + mutant[4:] for mutant in mutants.candidates(mutants.sources_of(mutants.files_of(self.root)), seed)]

        self.assertEqual(taken(5), taken(5))
        self.assertNotEqual(taken(5), taken(6))
        self.assertEqual(len(taken(5)), sum(len(places_of(text)) for text in SOURCES.values()))

    def test_a_run_that_was_interrupted_continues(self):
        with mock.patch.object(mutants.Run, "settle", side_effect=[{"outcome": "survived"}, KeyboardInterrupt]):
            with self.assertRaises(KeyboardInterrupt):
                self.run_all()
        first = self.results()
        self.assertEqual(list(first.values()), ["survived"])
        self.run_all()
        # The first result is kept, although a test would notice it.
        self.assertLessEqual(first.items(), self.results().items())
        self.assertGreater(len(self.results()), 1)

    def test_other_tests_begin_again_except_for_survivors(self):
        self.run_all()
        before = self.results()
        again = {key for key, outcome in before.items() if outcome == "survived"}
        self.assertTrue(again and again != set(before))
        (self.folder / "x64-tests/unit_tests.exe").write_text("newer tests", encoding="utf-8")
        with mock.patch.object(mutants.Run, "settle", return_value={"outcome": "killed", "level": "unit", "test": "New", "how": "failed"}):
            self.assertEqual(self.run_all(survivors=True), 0)
            self.assertEqual(self.results(), {key: "killed" if key in again else outcome for key, outcome in before.items()})
            self.assertIn(f"({len(before) - len(again)} of these results are from earlier tests: run it without --survivors to have "
                          "all of them from the present ones)", self.shown)
        # What earlier tests have noticed says nothing about the present ones.
        with mock.patch.object(mutants.Run, "settle", return_value={"outcome": "survived"}) as settle:
            self.run_all()
            self.assertEqual(settle.call_count, len(before) - len(again))
            self.assertEqual(self.results(), {key: "killed" if key in again else "survived" for key in before})
            self.assertNotIn("earlier tests", "\n".join(self.shown))
            self.run_all()
            self.assertEqual(settle.call_count, len(before) - len(again))

    def test_results_of_earlier_tests_stay_until_there_are_others(self):
        self.run_all()
        before = self.results()
        (self.folder / "x64-tests/unit_tests.exe").write_text("newer tests", encoding="utf-8")
        with mock.patch.object(mutants.Run, "settle", side_effect=[{"outcome": "survived"}, KeyboardInterrupt]), \
                self.assertRaises(KeyboardInterrupt):
            self.run_all()
        self.assertEqual(set(self.results()), set(before))

    def test_survivors_without_an_earlier_run(self):
        def said():
            return [line for line in self.shown if line.startswith("hx: --survivors")]

        self.run_all(count=2, survivors=True)
        self.assertEqual(said(), ["hx: --survivors: there is no earlier run of seed 1, so all 2 mutants run"])
        self.run_all(count=2, survivors=True)
        self.assertEqual(said(), [])
        self.run_all(count=3, survivors=True)
        self.assertEqual(said(), ["hx: --survivors: the earlier runs of seed 1 have only 2 mutants, so others run, too"])
        self.run_all(count=2, seed=2, survivors=True)
        self.assertEqual(said(), ["hx: --survivors: there is no earlier run of seed 2, so all 2 mutants run"])
        with mock.patch.object(mutants, "JUDGES", [self.list]):
            self.run_all(count=2, survivors=True)
        self.assertEqual(said(), ["hx: --survivors: src/, the build or tools/mutants has changed since the last run of seed 1, so all 2 "
                                  "mutants run"])
        self.run_all(count=2)
        self.assertEqual(said(), [])

    def change(self, name, text):
        """Writes a file of the project until the end of the test."""
        path = self.root / name
        before = path.stat() if path.exists() else None
        content = path.read_bytes() if before else None

        def restore():
            if not before:
                return path.unlink()
            path.write_bytes(content)
            os.utime(path, ns=(before.st_atime_ns, before.st_mtime_ns))

        self.addCleanup(restore)
        path.write_bytes(text.encode("utf-8", "surrogateescape"))
        if before:
            os.utime(path, ns=(before.st_atime_ns, before.st_mtime_ns))

    def test_what_the_results_belong_to(self):
        def begins_again():
            with mock.patch.object(mutants.Run, "settle", return_value={"outcome": "survived"}) as settle:
                self.run_all()
            self.assertIn(settle.call_count, (0, len(self.results())))
            return settle.call_count > 0

        self.assertTrue(begins_again())
        self.assertFalse(begins_again())
        build = self.build / "build.ninja"
        commands = self.build / "compile_commands.json"
        changes = (("src/two/names.def", "LIBRARY two.dll\n"), ("src/two/names.def", "LIBRARY three.dll\n"),
                   (str(commands.relative_to(self.root)), commands.read_text(encoding="utf-8").replace("-Os", "-O2")),
                   (str(build.relative_to(self.root)), build.read_text(encoding="utf-8").replace("--entry,Entry", "--entry,Free")))
        for name, text in changes:
            with self.subTest(name):
                self.change(name, text)
                self.assertTrue(begins_again())
                self.assertFalse(begins_again())
        # Not read: what an editor leaves.
        self.change("src/two/.free.cpp.swp", "x")
        self.change("src/two/.#free.cpp", "x")
        self.assertFalse(begins_again())

    def test_a_source_that_changes_during_the_run(self):
        settle = mutants.Run.settle
        for name, text in (("src/two/free.cpp", "int other;\n"), ("src/one/other.h", "int other;\n"),
                           ("src/two/names.def", "LIBRARY two.dll\n"), ("src/two/free.cpp", "not UTF-8: \udcff\n")):
            count = 0

            def edit(run, *arguments):
                nonlocal count
                count += 1
                if count == 2:
                    self.change(name, text)
                return settle(run, *arguments)

            with self.subTest(name, text=text):
                with mock.patch.object(mutants.Run, "settle", edit), self.assertRaisesRegex(
                        Failed, "^src/ has changed during the run, so its results are wrong from here on: start it again$"):
                    self.run_all()
                # The result before the change is kept, the one after it is not.
                self.assertEqual(len(self.results()), 1)
                self.doCleanups()
                self.setUp()

    def test_a_source_that_is_newer_than_the_build(self):
        header = self.root / "src/one/shared.h"
        self.change("src/one/shared.h", "int other;\n")
        for edit in (lambda: os.utime(header), header.unlink):
            edit()
            with self.assertRaisesRegex(Failed, "^src/ has changed since the libraries were built: start it again$"):
                self.run_all()
            self.assertFalse((self.root / "build/mutants/reach.json").exists())

    def test_two_runs_at_once(self):
        self.run_all(count=1)
        before = {path: path.read_bytes() for path in (self.root / "build/mutants").iterdir()}
        with mutants.only_run(self.root / "build/mutants"):
            with self.assertRaisesRegex(Failed, "^another run of mutants is at work in this folder: wait for its end$"):
                self.run_all()
        self.assertEqual({path: path.read_bytes() for path in (self.root / "build/mutants").iterdir()}, before)
        self.run_all()

    def settle_all(self):
        """Runs, and writes the two survivors to the list: one of each kind."""
        self.run_all()
        found = [index for index, line in enumerate(self.shown) if line.endswith("survived:")]
        self.assertEqual(len(found), 2)
        for at, kind in zip(found, settled.KINDS):
            with self.list.open("a", encoding="utf-8") as list:
                list.write(f"\n{self.shown[at].split(':')[0]}\n{self.shown[at + 1]}\n{self.shown[at + 2]}\n{kind}: nobody asks\n")

    def test_settled_survivors(self):
        self.settle_all()
        self.assertEqual(self.run_all(), 0)
        self.assertIn(" 1 equivalent, 1 out of reach, 0 survived", "\n".join(self.shown))

    def test_an_entry_whose_line_is_gone(self):
        self.settle_all()
        with self.list.open("a", encoding="utf-8") as list:
            list.write("\nsrc/two/free.cpp\n- return 5;\n+ return 6;\nequivalent: it was here once\n")
        self.assertEqual(self.run_all(), 1)
        text = "\n".join(self.shown)
        self.assertIn("settled.txt: src/two/free.cpp has no such line and change any more:\n  - return 5;\n  + return 6;", text)
        self.assertIn(" 1 equivalent, 1 out of reach, 0 survived", text)

    def test_an_entry_whose_mutant_a_test_notices(self):
        for kind in settled.KINDS:
            with self.subTest(kind):
                self.list.write_text("src/one/checked.cpp\n- return 0x5EED0041;\n+ return 0x5EED0042;\n" + kind + ": nobody asks\n",
                                     encoding="utf-8")
                killed = {"outcome": "killed", "level": "unit", "test": "CheckedTest.Answers", "how": "failed"}
                with mock.patch.object(mutants, "candidates", self.only("0x5EED0042")), \
                        mock.patch.object(mutants.Run, "settle", return_value=killed):
                    self.assertEqual(self.run_all(count=1), 1)
                at = self.shown.index("settled.txt: CheckedTest.Answers notices this mutant: remove the entry")
                self.assertEqual(self.shown[at + 1:at + 4],
                                 ["  src/one/checked.cpp:3", "  - return 0x5EED0041;", "  + return 0x5EED0042;"])
                self.assertIn("1 mutants of seed 1: 1 killed (0 of them hung), 0 equivalent, 0 out of reach, 0 survived", self.shown)
        # Without its entry it is a mutant like any other.
        self.list.write_text("", encoding="utf-8")
        with mock.patch.object(mutants, "candidates", self.only("0x5EED0042")):
            self.assertEqual(self.run_all(count=1), 0)

    def only(self, after):
        """Candidates that are only the change to a text."""
        def candidates(sources, seed):
            for source, text in sources.items():
                for place in places_of(text):
                    for change in place:
                        if change.after == after:
                            yield mutants.mutant_of(source, text, change)
        return candidates

    def test_an_entry_for_one_of_several_places(self):
        twice = 'extern "C" int Free() {\n  return 0x5EED0081;\n}\nextern "C" int Other() {\n  return 0x5EED0081;\n}\n'
        self.change("src/two/free.cpp", twice)
        entry = "\n- return 0x5EED0081;\n+ return 0x5EED0082;\nequivalent: nobody asks\n"
        lines = {"unit": {"FreeTest": {"src/two/free.cpp": [2, 5]}}, "actions": {}}
        with mock.patch.object(mutants, "candidates", self.only("0x5EED0082")), \
                mock.patch.object(mutants.Run, "lines_of_suites", lambda run: lines), \
                mock.patch.object(mutants.Run, "settle", return_value={"outcome": "survived"}):
            self.run_all(count=2)
            at = self.shown.index("src/two/free.cpp:5 (constant, seed 1) survived:")
            self.assertEqual(self.shown[at + 1:at + 4], ["  - return 0x5EED0081;", "  + return 0x5EED0082;",
                                                         "  (an entry of settled.txt begins with \"src/two/free.cpp (2 of 2)\")"])
            self.list.write_text("src/two/free.cpp (2 of 2)" + entry, encoding="utf-8")
            self.assertEqual(self.run_all(count=2), 1)
            self.assertIn("src/two/free.cpp:2 (constant, seed 1) survived:", self.shown)
            self.assertNotIn("src/two/free.cpp:5 (constant, seed 1) survived:", self.shown)
            self.assertIn(" 1 equivalent, 0 out of reach, 1 survived", "\n".join(self.shown))
            # An entry that does not say which is refused before anything runs.
            self.list.write_text("src/two/free.cpp" + entry, encoding="utf-8")
            with self.assertRaisesRegex(settled.Malformed, r'"src/two/free.cpp \(1 of 2\)"'):
                self.run_all(count=2)
            self.assertEqual(self.shown, [])

    def test_what_fails_as_it_is(self):
        FakeWindows.spoiled = 1
        with self.assertRaisesRegex(Failed, "CheckedTest.Answers failed with the library as it is; ./hx test unit says more"):
            self.run_all()


if __name__ == "__main__":
    unittest.main()
