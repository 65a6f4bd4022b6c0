"""planning.py: the targets that each level needs, and which programs run at the same time."""

import fnmatch
import re
import subprocess
import sys
import unittest

from support import TOOLS
from testing.planning import INTERRUPTED, LIVES, PART_FILTERS, REFUSED, Request, builds, lanes

UNIT_BUILD = ("hxinternals", "rigsubject")
INSTALL_BUILD = ("hxsetup", "hxinternals", "agent", "ostrack", "witness")
ALL_BUILD = ("hxsetup", "hxinternals", "rigsubject", "agent", "ostrack", "witness")

# The builds of one processor for each level; None is all levels.
BUILDS = {
    "images": {"": ("hxsetup",)},
    "unit": {"": UNIT_BUILD, "-tests": ("unit_tests",), "-checked": UNIT_BUILD},
    "actions": {"": ("hxsetup",), "-tests": ("action_tests",)},
    "install": {"": INSTALL_BUILD, "-tests": ("install_tests",)},
    "page": {},
    "tools": {"": INSTALL_BUILD, "-tests": ("tool_tests", "hxrun", "calls", "nothing")},
    None: {"": ALL_BUILD, "-tests": ("unit_tests", "action_tests", "install_tests"), "-checked": UNIT_BUILD},
}


def shown(request):
    """The lanes of a run: each a processor and the names of its programs."""
    return [(lane.number, lane.processor, [program.name for program in lane.programs]) for lane in lanes(request)]


class BuildsTest(unittest.TestCase):
    def test_each_level_builds_only_what_it_needs(self):
        for level, kinds in BUILDS.items():
            for only in (None, "x64", "arm64"):
                with self.subTest(level=level, only=only):
                    expected = [(processor + kind, targets) for processor in ([only] if only else ["x64", "arm64"])
                                for kind, targets in kinds.items() if level or processor + kind != "arm64-checked"]
                    self.assertEqual(builds(Request(level, None, only)), expected)
                    self.assertEqual(builds(Request(level, "Path*", only)), expected)

    def test_every_target_is_one_of_the_build(self):
        files = [TOOLS.parent / "cmake/library.cmake", TOOLS.parent / "tests/CMakeLists.txt",
                 TOOLS.parent / "hxrun/CMakeLists.txt"]
        text = "".join(file.read_text(encoding="utf-8") for file in files)
        for kinds in BUILDS.values():
            for target in sum(kinds.values(), ()):
                # The programs of the tests are named after their levels.
                name = target.removesuffix("_tests").replace("action", "actions").replace("tool", "tools")
                with self.subTest(target):
                    self.assertRegex(text, rf"hx_library\({target} |hx_stand_in\({target} |add_executable\({target} "
                                           rf"|foreach\((?:level|name) [\w ]*\b{name}\b")


    def test_the_level_of_the_corpus(self):
        for only in (None, "x64", "arm64"):
            with self.subTest(only):
                self.assertEqual(builds(Request("corpus", None, only)), [("x64-fuzz", ("hxinternals",)), ("fuzz", ("hxfuzz",))])
                self.assertEqual(shown(Request("corpus", None, only)), [])
        output = subprocess.run([sys.executable, TOOLS / "testing/planning.py", "--level", "corpus"], capture_output=True,
                                text=True, check=True).stdout
        # It needs no Windows.
        self.assertEqual(output, "build x64-fuzz hxinternals\nbuild fuzz hxfuzz\n")

    def test_the_rest_of_the_emulated_processor(self):
        for only in (None, "arm64"):
            with self.subTest(only):
                self.assertEqual(builds(Request("emulated", None, only)), [
                    ("arm64", INSTALL_BUILD), ("arm64-tests", ("unit_tests", "install_tests")), ("arm64-checked", UNIT_BUILD)])
                self.assertEqual(shown(Request("emulated", None, only)), [
                    (0, "arm64", ["unit-arm64-checked", "install-arm64-refused"]), (1, "arm64", ["install-arm64-interrupted"])])

    def test_a_run_of_everything_and_the_rest_run_each_test_with_each_library(self):
        """Of the emulated processor: what runs in the levels by their names."""
        def runs(*requests):
            return sorted((program.name.removesuffix("-" + program.part), program.part or "whole")
                          for request in requests for lane in lanes(request) for program in lane.programs if program.processor == "arm64")

        self.assertEqual(runs(Request(), Request("emulated")), sorted(
            [run for run in runs(Request("unit"), Request("actions"), Request("install")) if run[0] != "install-arm64"]
            + [("install-arm64", part) for part in PART_FILTERS]))

    def test_the_parts_of_the_install_tests_are_all_of_them(self):
        self.assertEqual(PART_FILTERS[LIVES], "-" + PART_FILTERS[REFUSED] + ":" + PART_FILTERS[INTERRUPTED])
        self.assertEqual(set(PART_FILTERS), {LIVES, REFUSED, INTERRUPTED})

    def test_each_part_has_suites(self):
        """A suite that gets another name is not silently moved to the run of everything."""
        suites = set(re.findall(r"^TEST_[FP]\((\w+),", "".join(
            file.read_text(encoding="utf-8") for file in (TOOLS.parent / "tests/install").glob("*.cpp")), re.MULTILINE))
        for pattern in (PART_FILTERS[REFUSED] + ":" + PART_FILTERS[INTERRUPTED]).split(":"):
            with self.subTest(pattern):
                self.assertTrue(fnmatch.filter(suites, pattern))

    def test_the_level_of_packages(self):
        programs = ("hxsetup", "agent", "ostrack", "witness")
        host = ("x64", (*programs, "ices"))
        emulated = [("arm64", programs), ("arm64-tests", ("trial",))]
        self.assertEqual(builds(Request("packages")), [host, ("x64-tests", ("trial",)), *emulated])
        self.assertEqual(builds(Request("packages", None, "x64")), [host, ("x64-tests", ("trial",))])
        # The evaluators run in the x64 Windows, whatever the package is for.
        self.assertEqual(builds(Request("packages", None, "arm64")), [("x64", ("ices",)), *emulated])
        self.assertEqual(shown(Request("packages")), [])

    def test_a_run_of_everything_has_no_suite(self):
        self.assertIsNone(Request().suite)
        self.assertEqual(builds(Request()), [build for only in ("x64", "arm64") for build in builds(Request(None, None, only))])


class LanesTest(unittest.TestCase):
    def test_a_whole_run(self):
        self.assertEqual(shown(Request()), [
            (0, "x64", ["unit-x64", "actions-x64", "install-x64"]),
            (1, "arm64", ["install-arm64-lives"]),
            (2, "arm64", ["unit-arm64", "actions-arm64"]),
            (3, "x64", ["unit-x64-checked"])])

    def test_one_processor(self):
        self.assertEqual(shown(Request(None, None, "x64")),
                         [(0, "x64", ["unit-x64", "actions-x64", "install-x64"]), (1, "x64", ["unit-x64-checked"])])
        self.assertEqual(shown(Request(None, None, "arm64")), [
            (0, "arm64", ["install-arm64-lives"]),
            (1, "arm64", ["unit-arm64", "actions-arm64"])])

    def test_one_level_has_one_windows_for_each_processor(self):
        self.assertEqual(shown(Request("unit")), [(0, "x64", ["unit-x64", "unit-x64-checked"]),
                                                  (1, "arm64", ["unit-arm64", "unit-arm64-checked"])])
        self.assertEqual(shown(Request("actions", "Close*")), [(0, "x64", ["actions-x64"]), (1, "arm64", ["actions-arm64"])])
        self.assertEqual(shown(Request("install", None, "arm64")), [(0, "arm64", ["install-arm64"])])
        self.assertEqual(shown(Request("tools")), [(0, "x64", ["tools-x64"]), (1, "arm64", ["tools-arm64"])])

    def test_the_images_need_no_windows(self):
        self.assertEqual(shown(Request("images")), [])

    def test_filters(self):
        def filters(request):
            return {program.name: program.filter for lane in lanes(request) for program in lane.programs}

        self.assertEqual(filters(Request("unit", "Path*", "x64")), {"unit-x64": "Path*", "unit-x64-checked": "Path*"})
        self.assertEqual({name: chosen for name, chosen in filters(Request()).items() if chosen},
                         {"install-arm64-lives": PART_FILTERS[LIVES]})
        self.assertEqual(filters(Request("emulated")), {
            "unit-arm64-checked": None, "install-arm64-refused": PART_FILTERS[REFUSED],
            "install-arm64-interrupted": PART_FILTERS[INTERRUPTED]})

    def test_programs(self):
        unit, checked = lanes(Request("unit", None, "arm64"))[0].programs
        self.assertEqual((unit.file, unit.preset), ("arm64-tests/unit_tests.exe", "arm64"))
        self.assertEqual((checked.file, checked.preset), ("arm64-tests/unit_tests.exe", "arm64-checked"))
        actions, = lanes(Request("actions", None, "x64"))[0].programs
        self.assertEqual(actions.file, "x64-tests/action_tests.exe")


class ScriptTest(unittest.TestCase):
    def plan(self, *words):
        return subprocess.run([sys.executable, TOOLS / "testing/planning.py", *words], capture_output=True, text=True,
                              check=True).stdout.splitlines()

    def test_images(self):
        self.assertEqual(self.plan("--level", "images"), ["build x64 hxsetup", "build arm64 hxsetup"])

    def test_install(self):
        self.assertEqual(self.plan("--level", "install", "--filter=Guide*", "--only", "x64"), [
            "windows x64", "build x64 hxsetup hxinternals agent ostrack witness", "build x64-tests install_tests",
            "packages x64"])

    def test_page(self):
        """It needs no build and no Windows, and runs only by its name."""
        self.assertEqual(self.plan("--level", "page"), ["page"])
        self.assertNotIn("page", Request().levels)

    def test_tools(self):
        self.assertNotIn("tools", Request().levels)
        self.assertEqual(self.plan("--level", "tools", "--only", "arm64"), [
            "windows arm64", "build arm64 hxsetup hxinternals agent ostrack witness", "build arm64-tests tool_tests hxrun calls nothing",
            "packages arm64"])

    def test_acceptance(self):
        """It runs only by its name, and needs what the archives contain."""
        self.assertNotIn("acceptance", Request().levels)
        self.assertEqual(self.plan("--level", "acceptance", "--only", "x64"), [
            "windows x64", "build x64 hxsetup hxinternals rigsubject agent ostrack witness",
            "build x64-tests accept unit_tests action_tests install_tests", "build x64-checked hxinternals rigsubject",
            "packages x64"])

    def test_everything(self):
        lines = self.plan()
        self.assertEqual([line for line in lines if not line.startswith("build")],
                         ["windows x64", "windows arm64", "packages x64", "packages arm64"])
        self.assertEqual(sum(line.startswith("build") for line in lines), 5)

    def test_the_rest_of_the_emulated_processor(self):
        self.assertEqual(self.plan("--level", "emulated"), [
            "windows arm64", "build arm64 hxsetup hxinternals agent ostrack witness",
            "build arm64-tests unit_tests install_tests", "build arm64-checked hxinternals rigsubject", "packages arm64"])


if __name__ == "__main__":
    unittest.main()
