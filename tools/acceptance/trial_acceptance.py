"""The acceptance archives and their script, in the Windows of each processor, with a few tests of each level. Part of ./hx
test acceptance."""

import os
import shutil
import tempfile
import unittest
from pathlib import Path

from acceptance import pack, try_archive

RUN_FOLDER = Path(os.environ["HX_RUN_FOLDER"])
PROCESSORS = os.environ["HX_PROCESSORS"].split()
# One or two tests of each level; the one of the install level needs no package.
UNIT, ACTIONS, INSTALL = "PathDiskTest.*", "AuditFileTest.*", "SecurityPackageTest.APasswordIsHiddenEverywhere"
FILTER = f"{UNIT}:{ACTIONS}:{INSTALL}"
# A test that runs a package.
PACKAGED = "SettingsTest.MissingKeysChangeNothing"
TIME_LIMIT = 600
ATTEMPTS = 3
# How the script's output begins, whatever it does.
BEGINNINGS = ("hxsetup ", "usage: ", "accept.cmd ")


class AcceptanceTrial(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hx-acceptance-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.archives = {processor: pack.make_archive(RUN_FOLDER, cls.folder / "archives", processor)
                        for processor in PROCESSORS}

    def fresh(self, processor):
        """The top folder of a newly extracted archive."""
        return try_archive.extract(self.archives[processor], Path(tempfile.mkdtemp(dir=self.folder)))

    def run_script(self, top, processor, *words, status=None, script="accept.cmd"):
        """Runs the script. On the emulated processor a process sometimes dies while it starts: there it runs again if it did
        not begin, or if its exit status is not `status`."""
        for _ in range(ATTEMPTS if processor == try_archive.EMULATED else 1):
            outcome = try_archive.run_script(top, processor, list(words), limit=TIME_LIMIT, script=script)
            if outcome.lines and outcome.lines[0].startswith(BEGINNINGS) and status in (None, outcome.status):
                break
        return outcome

    def assert_refused(self, outcome, text):
        self.assertIn(text, "\n".join(outcome.lines))
        self.assertEqual((outcome.status, outcome.report), (2, None))

    def test_it_passes(self):
        for processor in PROCESSORS:
            with self.subTest(processor):
                top = self.fresh(processor)
                outcome = self.run_script(top, processor, "/yes", "/filter", f"{FILTER}:{PACKAGED}", status=0)
                self.assertEqual(outcome.status, 0, "\n".join(outcome.lines))
                self.assertRegex(outcome.verdict, r"\Apassed: \d+ tests; only tests that match ")
                self.assertTrue(outcome.verdict.endswith(f"{FILTER}:{PACKAGED}"))
                text = (outcome.report / "report.txt").read_text(encoding="utf-8")
                self.assertRegex(text, r"\n  engine: Wine's \(\d+\.")
                self.assertIn(f"\n  archive for: {processor}\n", text)
                for level in ("unit", "unit-checked", "actions", "install"):
                    self.assertRegex(text, rf"\n  {level}: [1-9]\d* passed, 0 failed, 0 left out, in \d+ seconds?\n")
                self.assertIn("\nWHERE THE ENGINES DIFFER\n", text)
                self.assertIn("never seen yet", text)
                self.assertTrue((outcome.report / "unit/results.xml").is_file())
                self.assertIn("[  PASSED  ]", (outcome.report / "unit/output.txt").read_text(errors="replace"))
                self.assertTrue(list((outcome.report / "install").glob("SettingsTest.MissingKeysChangeNothing.*.log")))
                # A second run has a folder of its own.
                outcome = self.run_script(top, processor, "/no-install", "/filter", UNIT, status=0)
                self.assertEqual(outcome.status, 0, "\n".join(outcome.lines))
                self.assertNotEqual(outcome.report.name, "report")

    def test_a_failing_test_is_named(self):
        for processor in PROCESSORS:
            with self.subTest(processor):
                top = self.fresh(processor)
                # The package that the test installs is another one, so only the list of files must agree.
                shutil.copy(top / "packages/guide-client.msi", top / "packages/client.msi")
                self.write_list(top)
                outcome = self.run_script(top, processor, "/yes", "/filter", f"{FILTER}:{PACKAGED}", status=1)
                self.assertEqual(outcome.status, 1)
                self.assertRegex(outcome.verdict, r"\Afailed: 1 of \d+ tests(; the level install failed outside its tests)?; only ")
                self.assertIn(f"\n  install: {PACKAGED}\n", (outcome.report / "report.txt").read_text(encoding="utf-8"))
                self.assertEqual((outcome.report / "failed.txt").read_text(), f"install\t{PACKAGED}\n")

    @staticmethod
    def write_list(top):
        names = sorted(str(path.relative_to(top)) for path in top.rglob("*") if path.is_file())
        text = "".join(pack.dist.checksum_line((top / name).read_bytes(), name.replace("/", "\\")) for name in names
                       if name != pack.LIST)
        (top / pack.LIST).write_bytes(pack.windows_lines(text))

    def test_folders_with_signs(self):
        processor = PROCESSORS[0]
        top = self.fresh(processor)
        top = top.rename(top.with_name("a folder & (its) signs!"))
        # A person types the path at a prompt, which takes it as a script does: "cmd /c" would take its quotation marks away.
        # No "%" in the name: Wine's cmd loses it in %~dp0.
        starter = top.with_name("starter")
        starter.mkdir()
        report = r"Z:\run\starter\report & (its) signs!"
        (starter / "start.cmd").write_bytes(pack.windows_lines(
            f'@"Z:\\run\\{top.name}\\accept.cmd" /no-install /filter {UNIT} /report "{report}"\n'))
        outcome = self.run_script(starter, processor, script="start.cmd", status=0)
        self.assertEqual((outcome.status, outcome.report and outcome.report.name), (0, "report & (its) signs!"),
                         "\n".join(outcome.lines))
        self.assertIn(f'The report and all logs: "{report}"', outcome.lines)
        # The same folder is not taken twice.
        outcome = self.run_script(starter, processor, script="start.cmd", status=2)
        self.assert_refused(outcome, f'refused: "{report}" exists: name a new folder for the report.')

    def test_a_report_on_the_network_is_refused(self):
        processor = PROCESSORS[0]
        outcome = self.run_script(self.fresh(processor), processor, "/yes", "/report", "\\\\server\\share\\report", status=2)
        self.assert_refused(outcome, "refused: this folder or that of the report is on the network")

    def test_a_level_that_cannot_be_started_fails_the_run(self):
        processor = PROCESSORS[0]
        top = self.fresh(processor)
        (top / "bin/action_tests.exe").write_bytes(b"no program")
        self.write_list(top)
        outcome = self.run_script(top, processor, "/no-install", "/filter", UNIT, status=1)
        self.assertEqual(outcome.status, 1)
        self.assertRegex(outcome.verdict, r"\Afailed: 0 of \d+ tests; the level actions could not be started; without the ")

    def test_a_setting_that_an_interrupted_run_has_left_is_restored(self):
        processor = PROCESSORS[0]
        top = self.fresh(processor)
        key = r"HKLM\Software\Microsoft\Windows NT\CurrentVersion\Windows"
        name = "RequireSignedAppInit_DLLs"
        (top / "left.cmd").write_bytes(pack.windows_lines(
            f'@reg add "{key}" /v {name} /t REG_DWORD /d 1 /f >nul\n'
            f'@reg add "{key}" /v "{name} before the tests of hxsetup" /t REG_SZ /d 0 /f >nul\n'
            '@call "%~dp0accept.cmd" %*\n'
            f'@reg query "{key}" /v {name}\n'))
        self.write_list(top)
        outcome = self.run_script(top, processor, "/no-install", "/filter", UNIT, script="left.cmd")
        self.assertEqual(sum(f"restored the setting {name}," in line for line in outcome.lines), 1, "\n".join(outcome.lines))
        self.assertIn("0x0", outcome.lines[-1] or outcome.lines[-2])

    def test_a_damaged_archive_is_refused(self):
        processor = PROCESSORS[0]
        top = self.fresh(processor)
        library = top / "libraries/hxsetup.dll"
        library.write_bytes(library.read_bytes()[:-1] + b"?")
        (top / "packages/client.msi").unlink()
        outcome = self.run_script(top, processor, "/yes", "/filter", FILTER)
        self.assert_refused(outcome, "Missing or changed: libraries\\hxsetup.dll, packages\\client.msi")
        (top / "bin/accept.exe").unlink()
        self.assert_refused(self.run_script(top, processor, "/yes"), "the archive is not complete")

    def test_another_processor_is_refused(self):
        if len(PROCESSORS) < 2:
            self.skipTest("needs both processors")
        self.assert_refused(self.run_script(self.fresh("arm64"), "x64", "/yes"),
                            "refused: this archive is for arm64, and this machine is x64: use the archive for x64.")

    def test_words(self):
        processor = PROCESSORS[0]
        top = self.fresh(processor)
        outcome = self.run_script(top, processor, "/quick", status=2)
        self.assert_refused(outcome, 'accept.cmd does not take "/quick". accept.cmd /help lists what it takes.')
        outcome = self.run_script(top, processor, "/help")
        self.assertEqual((outcome.status, outcome.report, outcome.lines[0]),
                         (0, None, "usage: accept.cmd [/yes] [/no-install] [/in-use] [/filter FILTER] [/report FOLDER]"))
        # Nobody answers here, so nothing is run.
        self.assert_refused(self.run_script(top, processor), "Nothing was run and nothing was changed.")
        # Without a test there is no verdict.
        outcome = self.run_script(top, processor, "/no-install", "/filter", "NoSuchTest.*")
        self.assertEqual((outcome.status, outcome.verdict), (2, "not run: no test was run"))
        self.assertFalse((outcome.report / "install").exists())


if __name__ == "__main__":
    unittest.main()
