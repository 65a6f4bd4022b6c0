"""The validation actions in a Windows: each must find the fault that is planted for it, and nothing in a correct package."""

import concurrent.futures
import shutil
import tempfile
import unittest
from pathlib import Path

from packages import ices
from packages.planted import FAULTS, Change, make_small_package, plant
from packages.tables import run
from windows.windows_session import Windows


class IcesTrial(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hx-trial-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.shared = cls.folder / "shared"
        cls.shared.mkdir()
        cls.small, cls.merged = cls.folder / "small.msi", cls.folder / "merged.msi"
        make_small_package(cls.small, cls.folder)
        cls.order = ices.merge(cls.small, cls.merged, ices.folder_of_compilers() / "darice.cub")
        shutil.copyfile(ices.PROGRAM, cls.shared / "ices.exe")
        cls.windows = cls.enterClassContext(Windows(ices.WINDOWS, cls.shared, 0, ices.RUN_LIMIT, print))

    def run_on(self, change, actions):
        """What the actions say of the small package with this change."""
        if change:
            plant(self.merged, self.shared / "planted.msi", change, self.folder)
        else:
            shutil.copyfile(self.merged, self.shared / "planted.msi")
        report = ices.Report()
        ices.run_actions(self.windows, "planted.msi", actions, report)
        return report

    def test_correct_package(self):
        self.assertEqual(self.run_on(None, ices.WORKING), ices.Report([], ices.WORKING, {}))

    def reports_of(self, actions):
        """What each action says of the package with its fault, in a Windows of its own."""
        reports = {}
        with tempfile.TemporaryDirectory(prefix="hx-trial-") as folder:
            shutil.copyfile(ices.PROGRAM, Path(folder) / "ices.exe")
            with Windows(ices.WINDOWS, folder, 0, ices.RUN_LIMIT, print) as windows:
                for action in actions:
                    plant(self.merged, Path(folder) / "planted.msi", FAULTS[action][2], folder)
                    reports[action] = ices.Report()
                    ices.run_actions(windows, "planted.msi", [action], reports[action])
        return reports

    def test_planted_faults(self):
        self.assertEqual(list(FAULTS), ices.WORKING)
        # Two Windows at the same time: most of the time is spent waiting for starts.
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            first, second = pool.map(self.reports_of, (ices.WORKING[::2], ices.WORKING[1::2]))
        for action, report in {**first, **second}.items():
            with self.subTest(action):
                kind, place, _ = FAULTS[action]
                self.assertEqual(report.ran + list(report.not_run), [action])
                # It reports the fault and fails when it looks for the next.
                self.assertEqual(bool(report.not_run), action == "ICE69")
                self.assertIn((action, kind, place), [(each.rule, each.kind, each.place) for each in report.findings])

    def test_actions_that_are_not_run(self):
        """Every action of the library is run, or has a reason why not."""
        self.assertEqual(set(self.order), set(ices.WORKING) | set(ices.NOT_RUN))
        self.assertEqual(set(ices.WORKING) & set(ices.NOT_RUN), set())

    def test_an_action_that_fails_has_not_run(self):
        report = self.run_on(None, ["ICE29"])
        self.assertEqual((report.findings, report.ran), ([], []))
        self.assertRegex(report.not_run["ICE29"], r"^ICE Internal Error \d+\. API Returned: 1615\.$")

    def test_an_action_that_does_not_end(self):
        """The others run nevertheless."""
        limit, ices.TIME_LIMIT = ices.TIME_LIMIT, 2
        try:
            report = self.run_on(FAULTS["ICE08"][2], ["ICE64", "ICE08"])
        finally:
            ices.TIME_LIMIT = limit
        self.assertEqual((report.ran, list(report.not_run)), (["ICE08"], ["ICE64"]))
        self.assertEqual([each.rule for each in report.findings], ["ICE08"])
        self.assertEqual(report.not_run["ICE64"], "it did not end in 2 seconds")

    def test_an_action_that_does_not_exist(self):
        report = self.run_on(None, ["ICE999", "ICE08"])
        self.assertEqual((report.ran, report.not_run), (["ICE08"], {"ICE999": "it ended with status 1626"}))

    def test_a_package_that_cannot_be_opened(self):
        (self.shared / "wrong.msi").write_bytes(b"no package")
        report = ices.Report()
        ices.run_actions(self.windows, "wrong.msi", ["ICE02", "ICE08"], report)
        self.assertEqual((report.findings, report.ran, list(report.not_run)), ([], [], ["ICE02", "ICE08"]))
        self.assertEqual(set(report.not_run.values()), {"the engine did not open the package (status 1627)"})

    def test_text_outside_ascii(self):
        package = self.folder / "greek.msi"
        make_small_package(package, self.folder)
        archive = self.folder / "_ForceCodepage.idt"
        archive.write_bytes(b"\r\n\r\n65001\t_ForceCodepage\r\n")
        run("msibuild", package, "-i", archive)
        change = Change(("Property", ("ΠΡΟΓΡΑΜΜΑ", "ä \\ 名前")), ("CustomAction", ("Ärger", 9, "x", "y")))
        plant(package, self.folder / "planted.msi", change, self.folder)
        report = ices.check([self.folder / "planted.msi"], ["ICE68"])[0]
        self.assertEqual([(each.text, each.keys) for each in report.findings],
                         [("Invalid custom action type for action 'Ärger'.", ("Ärger",))])


class WithoutWindowsTrial(unittest.TestCase):
    """A machine that cannot run the actions says so for each of them."""

    def check(self, **more):
        with tempfile.TemporaryDirectory(prefix="hx-trial-") as folder:
            make_small_package(Path(folder) / "small.msi", folder)
            serve = Path(folder) / "serve"
            serve.write_text("#!/bin/sh\necho 'hx: no network'\nexit 1\n")
            serve.chmod(0o755)
            return ices.check([Path(folder) / "small.msi"], **{"serve": serve, **more})[0]

    def test_no_windows(self):
        report = self.check()
        self.assertEqual((report.findings, report.ran), ([], []))
        self.assertEqual(report.not_run, {**ices.NOT_RUN,
                                          **dict.fromkeys(ices.WORKING, "this machine cannot run it: hx: no network")})

    def test_no_program(self):
        report = self.check(program=Path("nowhere/ices.exe"))
        self.assertEqual(report.not_run["ICE02"], "this machine cannot run it: nowhere/ices.exe is missing: ./hx build makes it")


if __name__ == "__main__":
    unittest.main()
