"""run.py with made-up test programs: what runs, what runs again, what is printed and which artifacts are left."""

import contextlib
import io
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path
from unittest import mock

from support import TOOLS, load_script
from testing.planning import Request
from windows.windows_session import Windows

RUN = load_script("testing/run.py")
CRASH = "qemu: uncaught target signal 11 (Segmentation fault) - core dumped"


def program(status=0, *said, results=True, **cases):
    """One run of a test program, with the failure of each of its tests, or None. It prints `said` before the last test ends."""
    lines, text = [f"[==========] Running {len(cases)} tests from 1 test suite."], ""
    for name, failure in cases.items():
        inner = f'<failure message="{failure}" type=""/>' if failure else ""
        text += f'<testcase name="{name}" status="run" result="completed" classname="S">{inner}</testcase>'
        lines += [f"[ RUN      ] S.{name}", *([failure] if failure else []),
                  f"[  {'FAILED  ' if failure else '     OK '}] S.{name} (0 ms)"]
    lines[-1:-1] = said
    text = f'<testsuites><testsuite name="S">{text}</testsuite></testsuites>'
    return {"status": status, "lines": lines, "results": text if results else None}


class RunTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-run-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.folder = self.root / "build/.runs/1"
        self.folder.mkdir(parents=True)
        for path, text in (("tools/testing/check.py", "print('ok one\\n2 passed, 0 failed')"),
                           ("tools/explain/run-tests.py", "print('3 passed, 0 failed')"),
                           ("tools/kit/check-runs.py", "import sys\nprint(*sys.argv[1:])\nprint('1 passed, 0 failed')"),
                           ("tools/texts/observed-facts.py", "import sys\nprint(*sys.argv[1:])\nprint('1 passed, 0 failed')")):
            (self.root / path).parent.mkdir(parents=True, exist_ok=True)
            (self.root / path).write_text(f"#!/usr/bin/env python3\n{text}\n", encoding="utf-8")
            (self.root / path).chmod(0o755)
        (self.root / "tools/test_one.py").write_text(
            "import unittest\nclass One(unittest.TestCase):\n    def test(self):\n        pass\n", encoding="utf-8")

    def run_tests(self, story, request):
        """Runs the tests: (exit status, lines of the output, lines of the error output)."""
        (self.folder / "story.json").write_text(json.dumps(story), encoding="utf-8")
        output, errors = io.StringIO(), io.StringIO()
        with mock.patch.object(RUN, "ROOT", self.root), contextlib.redirect_stdout(output), \
                contextlib.redirect_stderr(errors), \
                mock.patch.object(RUN, "Windows", lambda *words: Windows(*words, serve=TOOLS / "testing/fake_windows.py")):
            status = RUN.Run(request, self.folder).run()
        return status, re.sub(r" in \d+:\d\d$", "", output.getvalue(), flags=re.MULTILINE).splitlines(), \
            re.sub(r" in \d+:\d\d$", "", errors.getvalue(), flags=re.MULTILINE).splitlines()

    def calls(self):
        return (self.folder / "calls.txt").read_text(encoding="utf-8").splitlines()

    def filters(self):
        """The filter of each program that ran; "" if it had none."""
        return [(match[1] if (match := re.search(r"--gtest_filter=([^' ]*)", call)) else "") for call in self.calls()]

    def test_one_level(self):
        status, output, errors = self.run_tests({"unit-x64": [program(A=None, B=None)],
                                                 "unit-x64-checked": [program(A=None, B=None)]}, Request("unit", None, "x64"))
        self.assertEqual((status, errors), (0, []))
        self.assertEqual(output, [
            "x64: hx: unit tests on x64, libraries of x64",
            "x64: hx: unit tests on x64, libraries of x64: 2/2",
            "x64: hx: unit tests on x64, libraries of x64-checked",
            "x64: hx: unit tests on x64, libraries of x64-checked: 2/2",
            "unit: 2 tests, run 4 times (x64, x64-checked)",
            "4 passed, 0 failed"])
        self.assertEqual(self.calls()[1], (
            r"x64, lane 0, 1800 s: 'HX_LIBRARY_DIR=Z:\run\x64-checked' 'HX_ARTIFACTS=Z:\run\artifacts\unit-x64-checked' "
            r"'HX_PACKAGES=Z:\run\packages\x64' HX_PROCESSOR=x64 wine64 'Z:\run\x64-tests\unit_tests.exe' "
            r"'--gtest_output=xml:Z:\run\artifacts\unit-x64-checked\results.xml'"))
        kept = self.root / "build/artifacts/unit-x64"
        self.assertEqual(sorted(path.name for path in kept.iterdir()), ["program.txt", "results.xml", "status"])
        self.assertIn("[       OK ] S.B (0 ms)\n", (kept / "program.txt").read_text())

    def test_artifacts_of_an_earlier_run_are_replaced_folder_by_folder(self):
        for name in ("unit-x64", "unit-x64-again", "unit-arm64-again", "actions-x64", "install-x64", "install-x64-again",
                     "install-arm64-lives-again", "install-arm64-formerly", "install-arm64-formerly-again"):
            (self.root / "build/artifacts" / name).mkdir(parents=True)
            (self.root / "build/artifacts" / name / "left.txt").write_text("left\n")
        self.run_tests({"unit-x64": [program(A=None)], "unit-x64-checked": [program(A=None)]}, Request("unit", None, "x64"))
        left = sorted(path.parent.name for path in (self.root / "build/artifacts").glob("*/left.txt"))
        self.assertEqual(left, ["actions-x64", "install-arm64-lives-again", "install-x64", "install-x64-again", "unit-arm64-again"])

    def test_chosen_tests_are_shown(self):
        _, output, _ = self.run_tests({"actions-x64": [program(A=None)]}, Request("actions", "S.A", "x64"))
        self.assertIn("x64: [       OK ] S.A (0 ms)", output)
        self.assertEqual(self.filters(), ["S.A"])

    def test_a_filter_that_no_test_matches(self):
        status, output, errors = self.run_tests({"actions-x64": [program()]}, Request("actions", "N*", "x64"))
        self.assertEqual((status, errors), (1, []))
        self.assertEqual(output[-2:], [
            'no test ran: at the level actions a filter is a GoogleTest filter of whole names, such as "Path*"', "0 passed, 0 failed"])

    def test_facts_of_the_actions(self):
        """A whole run must have seen all facts, a chosen one may have seen some, or none."""
        for names, count in ((None, 1), ("S.A", 0)):
            with self.subTest(names):
                _, output, _ = self.run_tests({"actions-x64": [program(A=None)]}, Request("actions", names, "x64"))
                self.assertEqual(output.count("checks of what the entry points did: 1"), count)
                shutil.rmtree(self.folder / "artifacts")
        (self.folder / "artifacts/actions-x64").mkdir(parents=True)
        (self.folder / "artifacts/actions-x64/facts.txt").write_text("")
        for names, options in ((None, []), ("S.A", ["--some"])):
            with self.subTest(names):
                self.run_tests({"actions-x64": [program(A=None)]}, Request("actions", names, "x64"))
                said = (self.root / "build/artifacts/facts-x64/output.txt").read_text().splitlines()[0]
                self.assertEqual(said.split(), [*options, str(self.folder / "artifacts/actions-x64")])

    def test_failures_on_x64_are_not_repeated(self):
        status, output, errors = self.run_tests({"actions-x64": [program(1, A="wrong", B=None)]},
                                                Request("actions", None, "x64"))
        self.assertEqual((status, errors), (1, ["hx: facts-x64", "hx: facts-x64: done"]))
        self.assertEqual(output[-3:], ["what failed:", "  actions-x64: S.A: wrong", "2 passed, 1 failed"])
        self.assertIn("x64: wrong", output)
        self.assertEqual(len(self.calls()), 1)

    def test_the_emulator_crashes(self):
        broken = program(139, results=False, A=None, B=None)
        del broken["lines"][-1]
        status, output, errors = self.run_tests({"actions-arm64": [broken, broken, program(A=None, B=None)]},
                                                Request("actions", None, "arm64"))
        self.assertEqual((status, errors), (0, ["hx: facts-arm64", "hx: facts-arm64: done"]))
        again = "arm64: hx: actions tests on arm64, libraries of arm64: the emulator crashed (status 139); running them again"
        self.assertEqual(output.count(again), 2)
        self.assertEqual(output[-5:], ["actions: 2 tests, run 2 times (arm64)",
                                       "checks of what the entry points did: 1", "passed only when they were run again: 1",
                                       "  actions-arm64: S.B", "3 passed, 0 failed"])

    def test_the_emulator_crashes_three_times(self):
        """Then the program runs again in a fresh Windows, like one that failed."""
        broken = program(139, results=False, A=None, B=None)
        del broken["lines"][-1]
        status, output, errors = self.run_tests({"actions-arm64": [broken] * 3, "actions-arm64-again": [program(A=None, B=None)]},
                                                Request("actions", None, "arm64"))
        self.assertEqual((status, len(self.calls())), (0, 4))
        self.assertEqual(errors, ["hx: facts-arm64", "hx: facts-arm64: done"])
        self.assertEqual(output[-3:], ["passed only when they were run again: 1", "  actions-arm64: S.B", "3 passed, 0 failed"])

    def test_the_emulator_always_crashes(self):
        broken = program(139, results=False, A=None)
        status, output, _ = self.run_tests({"actions-arm64": [broken] * 3, "actions-arm64-again": [broken] * 3},
                                           Request("actions", None, "arm64"))
        self.assertEqual((status, len(self.calls())), (1, 6))
        self.assertIn("has no results", output[-3])
        self.assertEqual(output[-2:], ["  actions-arm64: ended with status 139 before its last test", "1 passed, 2 failed"])

    def test_failures_on_arm64_run_again(self):
        status, output, errors = self.run_tests({
            "unit-arm64": [program(1, A="wrong", B=None, C="bad")], "unit-arm64-checked": [program(A=None)],
            "unit-arm64-again": [program(1, A=None, C="bad")]}, Request("unit", None, "arm64"))
        self.assertEqual((status, errors), (1, []))
        self.assertIn("arm64: hx: unit tests on arm64, libraries of arm64: failed; running again: S.A:S.C", output)
        self.assertEqual(output[-5:], ["passed only when they were run again: 1", "  unit-arm64: S.A",
                                       "what failed:", "  unit-arm64: S.C: bad", "3 passed, 1 failed"])
        self.assertEqual(self.filters(), ["", "", "S.A:S.C"])
        self.assertTrue((self.root / "build/artifacts/unit-arm64-again/results.xml").is_file())

    def test_failed_install_tests_run_again(self):
        status, output, _ = self.run_tests({"install-arm64": [program(1, A="wrong", B=None)],
                                            "install-arm64-again": [program(A=None)]}, Request("install", "S*", "arm64"))
        self.assertEqual((status, self.filters()), (0, ["S*", "S.A"]))
        self.assertIn("checks of the installer's runs: 1", output)
        said = (self.root / "build/artifacts/runs-arm64/output.txt").read_text().splitlines()[0]
        self.assertEqual(said, f"--some {self.folder}/artifacts/install-arm64 {self.folder}/artifacts/install-arm64-again")

    def test_failed_install_tests_run_again_on_x64_too(self):
        status, output, _ = self.run_tests({"install-x64": [program(1, A="wrong", B=None)], "install-x64-again": [program(A=None)]},
                                           Request("install", None, "x64"))
        self.assertEqual((status, self.filters()), (0, ["", "S.A"]))
        self.assertEqual(output[-3:], ["passed only when they were run again: 1", "  install-x64: S.A", "3 passed, 0 failed"])

    def test_what_comes_after_the_last_program_is_shown(self):
        _, output, _ = self.run_tests({"actions-arm64": [{**program(A=None), "late": CRASH}]}, Request("actions", None, "arm64"))
        self.assertIn(f"arm64: {CRASH}", output)

    def test_a_program_without_results_runs_again_with_its_own_filter(self):
        broken = {**program(1, results=False, A=None, B=None)}
        del broken["lines"][-1]
        status, output, _ = self.run_tests({"install-arm64": [broken], "install-arm64-again": [program(A=None, B=None)]},
                                           Request("install", "S*", "arm64"))
        self.assertEqual((status, self.filters()), (0, ["S*", "S*"]))
        self.assertEqual(output[-3:-1], ["passed only when they were run again: 1", "  install-arm64: S.B"])

    def test_a_second_run_without_results_is_a_failure(self):
        status, output, errors = self.run_tests({"install-arm64": [program(1, A="wrong")],
                                                 "install-arm64-again": [program(1, results=False, A=None)]},
                                                Request("install", None, "arm64"))
        self.assertEqual((status, output[-4:]), (1, [
            "what failed:",
            "  arm64: install tests on arm64, libraries of arm64: build/artifacts/install-arm64-again/results.xml: has no results",
            "  install-arm64: S.A: wrong", "1 passed, 2 failed"]))
        self.assertIn("has no results", errors[0])

    def test_a_second_run_without_results_stops_no_other_one(self):
        status, output, _ = self.run_tests({
            "unit-arm64": [program(1, A="wrong")], "unit-arm64-again": [program(1, results=False, A=None)],
            "unit-arm64-checked": [program(1, A="wrong")], "unit-arm64-checked-again": [program(A=None)]},
            Request("unit", None, "arm64"))
        self.assertEqual((status, output[-1]), (1, "1 passed, 2 failed"))
        self.assertIn("  unit-arm64-checked: S.A", output)

    def test_a_program_that_crashed_after_its_tests_stays_a_failure(self):
        status, output, _ = self.run_tests({"install-x64": [program(5, A="wrong")], "install-x64-again": [program(A=None)]},
                                           Request("install", None, "x64"))
        self.assertEqual((status, output[-3:]), (1, [
            "what failed:", "  install-x64: ended with status 5 after its tests", "2 passed, 1 failed"]))

    def test_a_second_run_that_has_seen_no_facts(self):
        for folder in ("actions-arm64", "actions-arm64-again"):
            (self.folder / "artifacts" / folder).mkdir(parents=True)
        (self.folder / "artifacts/actions-arm64/facts.txt").write_text("")
        self.run_tests({"actions-arm64": [program(1, A="wrong")], "actions-arm64-again": [program(A=None)]},
                       Request("actions", None, "arm64"))
        said = (self.root / "build/artifacts/facts-arm64/output.txt").read_text().splitlines()[0]
        self.assertEqual(said.split(), [str(self.folder / "artifacts/actions-arm64")])

    def test_a_windows_that_ends_is_a_failure(self):
        said = "x64: unit tests on x64, libraries of x64, S.A: Windows ended unexpectedly"
        status, output, errors = self.run_tests({"unit-x64": [{"ends": True, "lines": ["[ RUN      ] S.A", "the server died"]}]},
                                                Request("unit", None, "x64"))
        self.assertEqual((status, output[-3:]), (1, ["what failed:", f"  {said}", "0 passed, 1 failed"]))
        self.assertIn("x64: the server died", output)
        self.assertEqual(errors, [f"hx: {said}"])

    def test_an_error_of_the_tools_is_a_failure(self):
        with mock.patch.object(RUN.Run, "run_program", side_effect=KeyError("lost")):
            status, output, errors = self.run_tests({}, Request("unit", None, "x64"))
        self.assertEqual((status, output[-1], errors), (1, "0 passed, 1 failed", ["hx: x64: 'lost'"]))

    def test_everything(self):
        names = ["unit-x64", "unit-x64-checked", "actions-x64", "install-x64", "unit-arm64", "actions-arm64",
                 "install-arm64-lives"]
        status, output, errors = self.run_tests({name: [program(A=None)] for name in names}, Request())
        self.assertEqual(status, 0)
        self.assertEqual(sorted(errors), ["hx: checks", "hx: checks: done", "hx: explain", "hx: explain: done", "hx: facts-arm64", "hx: facts-arm64: done",
                                          "hx: facts-x64", "hx: facts-x64: done", "hx: runs-arm64", "hx: runs-arm64: done",
                                          "hx: runs-x64", "hx: runs-x64: done", "hx: tools", "hx: tools: done"])
        self.assertEqual(output[-9:], [
            "unit: 1 test, run 3 times (arm64, x64, x64-checked)",
            "actions: 1 test, run 2 times (arm64, x64)",
            "install: 1 test, run 2 times (arm64, x64)",
            "checks of files and libraries: 2",
            "tests of explain.html: 3",
            "checks of what the entry points did: 2",
            "checks of the installer's runs: 2",
            "tests of the tools: 1",
            "17 passed, 0 failed"])
        lanes = sorted(call.partition(":")[0] for call in self.calls())
        self.assertEqual(lanes, ["arm64, lane 1, 1800 s", *["arm64, lane 2, 1800 s"] * 2, *["x64, lane 0, 1800 s"] * 3,
                                 "x64, lane 3, 1800 s"])
        folders = (self.root / "build/artifacts/runs-arm64/output.txt").read_text().split()[:2]
        self.assertEqual([folder.rpartition("/")[2] for folder in folders], ["install-arm64-lives", "install-arm64-lives-again"])

    def test_the_rest_of_the_emulated_processor(self):
        names = ["unit-arm64-checked", "install-arm64-refused", "install-arm64-interrupted"]
        status, output, errors = self.run_tests({name: [program(A=None)] for name in names}, Request("emulated"))
        self.assertEqual((status, errors), (0, []))
        self.assertEqual(output[-3:], ["unit: 1 test, run 1 time (arm64-checked)", "install: 1 test, run 2 times (arm64)",
                                       "3 passed, 0 failed"])

    def test_the_page_is_tested_alone(self):
        script = self.root / "explain/tests/page/run.mjs"
        script.parent.mkdir(parents=True)
        script.write_text("console.log(process.argv.slice(2).join(' ')); console.log('4 passed, 0 failed');\n")
        with mock.patch.dict("os.environ", {"HX_PAGE_TOOLS": "/tools"}):
            status, output, errors = self.run_tests({}, Request("page", "print", "x64"))
        self.assertEqual((status, output, errors), (0, ["tests of explain.html in a browser: 4", "4 passed, 0 failed"],
                                                    ["hx: page", "hx: page: done"]))
        words = (self.root / "build/artifacts/page/output.txt").read_text().split("\n")[0].split()
        self.assertEqual(words, ["/tools", str(self.root / "build/artifacts"), str(self.folder / "artifacts/page"), "--only=x64", "print"])

    def test_checks_that_fail_are_shown(self):
        (self.root / "tools/testing/check.py").write_text(
            "#!/usr/bin/env python3\nprint('FAILED pages:\\n    gone\\n1 passed, 1 failed')\nraise SystemExit(1)\n")
        status, output, errors = self.run_tests({}, Request("images"))
        self.assertEqual((status, output[-3:]), (1, ["what failed:", "  checks: 1 failed, see build/artifacts/checks/output.txt",
                                                     "5 passed, 1 failed"]))
        self.assertIn("    gone", output)
        self.assertIn("hx: checks: failed", errors)


SETUP = """
hxRoot=$PWD hxCache=none testTools=none
say() { printf '%s\\n' "hx: $*" >&2; }
die() { say "$@"; exit 1; }
need_packages() { :; }; need_rights() { :; }; need_windows() { :; }; need_test_tools() { :; }
"""
# Its program never ends; it writes its process number to a file.
ENDLESS = """#!/bin/bash
read -r line
sleep 1000 &
echo $! >"$2/../../pid"
echo "a program runs"
wait
"""
# Its program prints what is in the run's folder.
LISTING = """#!/bin/bash
while read -r line; do
  (cd "$2" && ls -d */*.*)
  echo 0 >&"$3"
done
"""
NINJA = """#!/bin/bash
mkdir -p "$2"
touch "$2"/{hxsetup,hxinternals}.{dll,pdb} "$2"/{action,unit}_tests.exe
echo "${@:2}" >>build/ninja.txt
"""
# Follows NINJA: makes a fuzzer that never ends.
FUZZER = """
cat >"$2/hxfuzz" <<'END'
#!/bin/bash
sleep 1000 &
echo $! >"${HX_FUZZ_IMAGE%%/build/*}/build/pid"
wait
END
chmod +x "$2/hxfuzz"
"""


class FrontTest(unittest.TestCase):
    """A copy of hx and its tools for tests, with made-up versions of the set-up, the build and Windows."""

    serve = LISTING

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-front-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        (self.root / "bin").mkdir()
        for name in ("testing", "windows", "setup", "texts"):
            (self.root / "tools" / name).mkdir(parents=True)
        for path in [TOOLS.parent / "hx", *(TOOLS / "testing").glob("*.py"), TOOLS / "windows/windows_session.py",
                     *TOOLS.glob("*/commands.sh")]:
            copy = self.root / path.relative_to(TOOLS.parent)
            copy.parent.mkdir(exist_ok=True)
            copy.write_bytes(path.read_bytes())
            copy.chmod(0o755)
        for path, text in (("tools/setup/setup.sh", SETUP), ("tools/windows/serve.sh", self.serve), ("bin/ninja", NINJA),
                           ("bin/cmake", "#!/bin/sh\n"),
                           ("tools/texts/observed-facts.py", "print('1 passed, 0 failed')\n")):
            (self.root / path).write_text(text)
            (self.root / path).chmod(0o755)

    def start(self, *words):
        environment = {name: value for name, value in os.environ.items() if not name.startswith("HX_")}
        environment["PATH"] = f"{self.root}/bin:{environment['PATH']}"
        # The process that runs this test may ignore a signal, and a shell cannot undo that.
        front = subprocess.Popen(["env", "--default-signal", self.root / "hx", *words], env=environment, text=True,
                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.addCleanup(front.stdout.close)
        self.addCleanup(front.kill)
        return front


class BuildTest(FrontTest):
    """What the plan names is built and copied into the run's folder, and nothing left from another build."""

    def test_one_level(self):
        (self.root / "build/x64").mkdir(parents=True)
        for name in ("hxinternals.dll", "agent.exe"):
            (self.root / "build/x64" / name).write_text("left\n")
        output, _ = self.start("test", "actions", "S.*", "--only", "x64").communicate(timeout=60)
        self.assertEqual((self.root / "build/ninja.txt").read_text().splitlines(),
                         ["build/x64 --quiet hxsetup", "build/x64-tests --quiet action_tests"])
        listed = [line.removeprefix("x64: ") for line in output.splitlines() if "/" in line and "hx:" not in line]
        self.assertEqual(listed, ["x64-tests/action_tests.exe", "x64/hxsetup.dll", "x64/hxsetup.pdb"])
        # The made-up program leaves no results.
        self.assertEqual(output.splitlines()[-1], "0 passed, 1 failed")


class RemovedFolderTest(FrontTest):
    """The folder of a run is removed at its end, also if that fails at first; the exit status is that of the work."""

    def run_check(self, failing):
        """Runs ./hx check with an rm that fails so many times: (the exit status, the output)."""
        (self.root / "tools/testing/check.py").write_text("raise SystemExit(0)\n")
        (self.root / "bin/rm").write_text(
            f'#!/bin/sh\necho "$*" >>build/rm.txt\n[ "$(wc -l <build/rm.txt)" -gt {failing} ] || exit 1\nexec /bin/rm "$@"\n')
        (self.root / "bin/rm").chmod(0o755)
        front = self.start("check")
        output, _ = front.communicate(timeout=60)
        return front.returncode, output

    def left(self):
        return [path.name for path in (self.root / "build/.runs").iterdir() if path.is_dir()]

    def test_after_some_attempts(self):
        self.assertEqual(self.run_check(3), (0, ""))
        self.assertEqual((len((self.root / "build/rm.txt").read_text().splitlines()), self.left()), (4, []))

    def test_never(self):
        status, output = self.run_check(10000)
        name, = self.left()
        note = "hx: note: this could not be removed: {}build/.runs/" + name + "\n"
        self.assertEqual((status, output), (0, note.format(f"{self.root}/")))
        # The next run goes on, too.
        (self.root / "bin/rm").write_text(f'#!/bin/sh\ncase "$2" in *{name}) exit 1;; esac\nexec /bin/rm "$@"\n')
        front = self.start("check")
        self.assertEqual((front.communicate(timeout=60)[0], front.returncode, self.left()), (note.format(""), 0, [name]))


class InterruptedTest(FrontTest):
    """If hx ends, in any way, everything that it started ends too."""

    serve = ENDLESS
    words = ("test", "actions", "--only", "x64")
    # A line that is printed before the program runs.
    said = "x64: hx: actions tests on x64, libraries of x64\n"

    def wait_until(self, met, what):
        for _ in range(600):
            if met():
                return
            time.sleep(0.1)
        self.fail(f"not within 60 seconds: {what}")

    def interrupt(self, number):
        """Starts a run, sends hx the signal `number` while a program runs, and waits for its end: (its exit status, its
        output)."""
        front = self.start(*self.words)
        self.wait_until(lambda: (self.root / "build/pid").is_file() and (self.root / "build/pid").read_text().strip()
                        or front.poll() is not None, "a program runs")
        if front.poll() is not None:
            self.fail(front.stdout.read())
        self.sleeper = int((self.root / "build/pid").read_text())
        self.assertTrue(self.alive())
        front.send_signal(number)
        output, _ = front.communicate(timeout=60)
        return front.returncode, output

    def alive(self):
        try:
            return "Z" not in Path(f"/proc/{self.sleeper}/stat").read_text().rpartition(")")[2].split()[0]
        except OSError:
            return False

    def test_by_a_signal(self):
        for number, status in ((signal.SIGINT, 130), (signal.SIGTERM, 143), (signal.SIGHUP, 129)):
            with self.subTest(number):
                (self.root / "build/pid").unlink(missing_ok=True)
                got, output = self.interrupt(number)
                self.assertEqual((got, output.splitlines()[-1]), (status, "hx: interrupted"))
                self.assertIn(self.said, output)
                self.wait_until(lambda: not self.alive(), "the program ends")
                self.assertEqual([path for path in (self.root / "build/.runs").iterdir() if path.is_dir()], [])

    def test_if_hx_is_killed(self):
        self.interrupt(signal.SIGKILL)
        self.wait_until(lambda: not self.alive(), "the program ends")


class InterruptedFuzzTest(InterruptedTest):
    """The same for the fuzzer. It leaves nothing outside the folder of its run."""

    words = ("fuzz", "dates", "--merge")
    said = "hx: building fuzz: hxfuzz\n"

    def setUp(self):
        super().setUp()
        for path in (TOOLS / "fuzz").glob("*.py"):
            (self.root / "tools/fuzz" / path.name).write_bytes(path.read_bytes())
        (self.root / "bin/ninja").write_text(NINJA + FUZZER)
        (self.root / "tmp").mkdir()
        temporary = mock.patch.dict(os.environ, {"TMPDIR": f"{self.root}/tmp"})
        temporary.start()
        self.addCleanup(temporary.stop)

    def interrupt(self, number):
        result = super().interrupt(number)
        self.assertEqual(list((self.root / "tmp").iterdir()), [])
        return result


if __name__ == "__main__":
    unittest.main()
