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

    def run_script(self, top, processor, *words, status=None):
        """Runs the script. On the emulated processor a process sometimes dies while it starts: there it runs again if it did
        not begin, or if its exit status is not `status`."""
        for _ in range(ATTEMPTS if processor == try_archive.EMULATED else 1):
            outcome = try_archive.run_script(top, processor, list(words), limit=TIME_LIMIT)
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
                self.assertRegex(outcome.verdict, r"\Apassed: \d+ tests\Z")
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
                self.assertRegex(outcome.verdict, r"\Afailed: 1 of \d+ tests(; the level install failed outside its tests)?\Z")
                self.assertIn(f"\n  install: {PACKAGED}\n", (outcome.report / "report.txt").read_text(encoding="utf-8"))
                self.assertEqual((outcome.report / "failed.txt").read_text(), f"install\t{PACKAGED}\n")

    @staticmethod
    def write_list(top):
        names = sorted(str(path.relative_to(top)) for path in top.rglob("*") if path.is_file())
        text = "".join(pack.dist.checksum_line((top / name).read_bytes(), name.replace("/", "\\")) for name in names
                       if name != pack.LIST)
        (top / pack.LIST).write_bytes(pack.windows_lines(text))

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
