"""check-runs.py: compares the actions in a log with those of the sequences, one by one."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from types import SimpleNamespace
from unittest import mock

from support import TOOLS, load_script

MODULE = load_script("kit/check-runs.py")
PACKAGES = MODULE.read_packages()

ACTIONS = {
    "Set": {"Property": "Flag", "Value": "1"},
    "Now": {"DllEntry": "CustomAction1"},
    "Never": {},
    "Script": {"Execute": "deferred"},
    "Undo": {"Execute": "rollback"},
    "Second": {"Execute": "rollback"},
    "Late": {"Execute": "deferred"},
    "Failed": {},
}
ROWS = [(10, "Set", ""), (20, "Now", "Flag"), (30, "Never", "Missing"), (1600, "Undo", ""), (1610, "Script", ""),
        (1620, "Second", "Flag"), (5800, "InstallServices", ""), (6000, "Late", ""), (6610, "Never", "Installed"),
        (-3, "Failed", "Flag"), (-2, "Never", "")]
HEAD = ["Set", "Now", "AppSearch", "LaunchConditions", "CostInitialize", "CostFinalize", "InstallValidate",
        "InstallInitialize"]
SCHEDULED = ["Undo", "Script", "Second", "InstallServices", "Late", "InstallFinalize"]
WHOLE = HEAD + SCHEDULED + ["Script", "InstallServices", "Late"]
FAILING = HEAD + SCHEDULED + ["Script", "InstallServices", "Late"] + ["Failed", "Second", "Undo"]


def package():
    rows = [MODULE.Row("execute", *row, "p.wxi") for row in ROWS] + [MODULE.Row("UI", 5, "Never", "", "p.wxi")]
    return SimpleNamespace(actions=ACTIONS, rows=rows, found=set(), defaults=lambda: {})


def log_text(actions):
    return "".join(f"Action 9:48:23: {name}. \r\nAction start 9:48:23: {name}.\r\nHx Setup Log: a line\r\n"
                   f"Action ended 9:48:23: {name}. Return value 1.\r\n" for name in actions)


class CheckRunsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-runs-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def check(self, actions, fails=None, encoding="cp1252"):
        log = self.root / "run.log"
        log.write_bytes(log_text(actions).encode(encoding))
        run = MODULE.Run(MODULE.CLIENT, "install", "run", fails=fails)
        return MODULE.check_run(run, package(), log)

    def changed(self, *arguments, **options):
        lines = self.check(*arguments, **options)
        return [line for line in lines if line[0] in "+-" and line[:3] not in ("---", "+++")]

    def test_a_run_as_expected(self):
        self.assertEqual(self.check(WHOLE), [])

    def test_both_forms_of_logs(self):
        self.assertEqual(self.check(WHOLE, encoding="utf-16"), [])
        self.assertEqual(self.changed(WHOLE[1:], encoding="utf-16"), ["-Set"])

    def test_unknown_actions_are_ignored(self):
        self.assertEqual(self.check(["INSTALL", *WHOLE, "PublishProduct"]), [])

    def test_an_action_is_missing(self):
        for place, name in enumerate(WHOLE):
            if name != "InstallServices":
                with self.subTest(f"{place}: {name}"):
                    self.assertIn(f"-{name}", self.changed(WHOLE[:place] + WHOLE[place + 1:]))

    def test_an_additional_action(self):
        self.assertEqual(self.changed(["Never", *WHOLE]), ["+Never"])
        self.assertEqual(self.changed([*WHOLE, "Undo"]), ["+Undo"])

    def test_another_order(self):
        for place in range(len(WHOLE) - 1):
            with self.subTest(WHOLE[place]):
                actions = WHOLE[:place] + [WHOLE[place + 1], WHOLE[place]] + WHOLE[place + 2:]
                self.assertNotEqual(self.changed(actions), [])

    def test_the_engines_script_is_compared_if_it_is_there(self):
        actions = [*WHOLE[:-4], "RemoveFiles", *WHOLE[-4:]]
        self.assertNotEqual(self.changed(actions), [])

    def test_a_failure_in_the_script(self):
        self.assertEqual(self.check(FAILING, fails="Late"), [])
        # The engine undoes its own actions, in its own order.
        self.assertEqual(self.check([*FAILING[:-2], "InstallServices", "Second", "InstallServices", "Undo"],
                                    fails="Late"), [])
        self.assertEqual(self.changed(FAILING[:-1], fails="Late"), ["-Undo"])
        self.assertNotEqual(self.changed([*FAILING[:-2], "Undo", "Second"], fails="Late"), [])
        self.assertEqual(self.changed(WHOLE, fails="Late"), ["-Failed", "-Second", "-Undo"])

    def test_nothing_runs_after_a_failure(self):
        self.assertEqual(self.check([*HEAD, *SCHEDULED, "Script", "Failed", "Second", "Undo"], fails="Script"), [])
        late = [*HEAD, *SCHEDULED, "Script", "Late", "Failed", "Second", "Undo"]
        self.assertEqual(self.changed(late, fails="Script"), ["+Late"])
        self.assertEqual(self.check(["Set", "Now", "Failed"], fails="Now"), [])
        self.assertEqual(self.changed(["Set", "Now", "Script", "Failed"], fails="Now"), ["+Script"])

    def test_an_impossible_failure(self):
        self.assertRaises(ValueError, self.check, WHOLE, fails="Never")

    def test_an_empty_log(self):
        self.assertEqual(self.check([]), ["the log has no start of an action"])


class ProgramTest(unittest.TestCase):
    """The whole program, with logs made from the expected actions."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-runs-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.again = self.root / "again"
        self.again.mkdir()

    def actions_of(self, run):
        expected = MODULE.Expectation(run, PACKAGES[run.package], set(MODULE.IN_SCRIPT))
        return expected.events + expected.after

    def write(self, run, actions, folder=None):
        ((folder or self.root) / f"{run.log}.log").write_text(log_text(actions), encoding="cp1252")

    def run_program(self, *options):
        result = subprocess.run([sys.executable, TOOLS / "kit/check-runs.py", *options, self.root, self.again],
                                capture_output=True, text=True, check=False)
        self.assertEqual(result.stderr, "")
        return result.returncode, result.stdout.splitlines()

    def test_all_runs(self):
        for run in MODULE.RUNS:
            self.write(run, self.actions_of(run))
        self.assertEqual(self.run_program(), (0, [f"{len(MODULE.RUNS)} passed, 0 failed"]))
        run = MODULE.RUNS[0]
        self.write(run, self.actions_of(run)[1:])
        code, lines = self.run_program()
        self.assertEqual((code, lines[-1]), (1, f"{len(MODULE.RUNS) - 1} passed, 1 failed"))
        self.assertIn(run.log, lines[0])
        self.write(run, self.actions_of(run), self.again)
        self.assertEqual(self.run_program()[0], 0)

    def test_logs_are_missing(self):
        run = MODULE.RUNS[0]
        self.write(run, self.actions_of(run))
        self.assertEqual(self.run_program("--some"), (0, ["1 passed, 0 failed"]))
        code, lines = self.run_program()
        self.assertEqual((code, lines[-1]), (1, f"1 passed, {len(MODULE.RUNS) - 1} failed"))


class TableTest(unittest.TestCase):
    """The table RUNS."""

    def test_each_picture_is_run(self):
        for name, scenarios in MODULE.SCENARIOS.items():
            run = {(each.scenario, each.options) for each in MODULE.RUNS if each.package == name and not each.fails}
            self.assertEqual({scenario.name for scenario in scenarios}, {scenario for scenario, _ in run})
            self.assertTrue(any(options for _, options in run))

    def test_logs_are_there_once(self):
        logs = [run.log for run in MODULE.RUNS]
        self.assertEqual(len(logs), len(set(logs)))

    def test_logs_are_those_of_tests(self):
        sources = "".join(path.read_text(encoding="utf-8") for path in (TOOLS.parent / "tests/install").glob("*.cpp"))
        for run in MODULE.RUNS:
            suite, test, *_ = run.log.split(".")
            with self.subTest(run.log):
                named = f'"{run.log}"' in sources
                self.assertTrue(named or f"TEST_F({suite}, {test})" in sources)

    def test_another_condition_is_found(self):
        run = MODULE.RUNS[0]
        seen = set(MODULE.IN_SCRIPT)
        told = MODULE.Expectation(run, PACKAGES[run.package], seen).events
        rows = [row._replace(condition="Installed") if row.action == "CustomAction31" else row
                for row in PACKAGES[run.package].rows]
        with mock.patch.object(PACKAGES[run.package], "rows", rows):
            lines = MODULE.Expectation(run, PACKAGES[run.package], seen).differences(told)
        self.assertEqual([line for line in lines if line[0] in "+-"][2:], ["+CustomAction31"])


if __name__ == "__main__":
    unittest.main()
