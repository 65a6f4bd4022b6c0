"""check.py (./hx check): all checks of files, and those of the libraries if they are not older than their sources."""

import contextlib
import io
import os
import re
import tempfile
import unittest
from pathlib import Path

from support import TOOLS, load_script

CHECK = load_script("testing/check.py")
SCRIPTS = ("explain/make-page.py", "texts/check-facts.py", "texts/check-texts.py", "kit/action-table.py",
           "kit/authoring_v4.py", "packages/mistakes-page.py", "texts/check-languages.py", "texts/check-pages.py",
           "lint/lint-words.py")


class CheckTest(unittest.TestCase):
    """Runs the checks of a made-up project; each is a script that prints its arguments."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-check-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for script in (*SCRIPTS, "images/check-images.py", "lint/lint_report.py"):
            self.script(script, "")
        (self.root / "src/frame").mkdir(parents=True)
        (self.root / "src/frame/session.cpp").write_text("\n")

    def script(self, path, text):
        path = self.root / "tools" / path
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(f"#!/usr/bin/env python3\n{text}\n")
        path.chmod(0o755)

    def library(self, processor, age):
        """A library that is `age` seconds older than the sources."""
        path = self.root / "build" / processor / "hxsetup.dll"
        path.parent.mkdir(parents=True)
        path.write_bytes(b"MZ")
        moment = (self.root / "src/frame/session.cpp").stat().st_mtime - age
        os.utime(path, (moment, moment))
        return path.parent

    def run_checks(self, folders=()):
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            sums = CHECK.run(self.root, list(folders))
        return sums, sorted(re.sub(r" \(.*\)$", "", output.getvalue(), flags=re.MULTILINE).splitlines())

    def test_each_check_runs(self):
        self.assertEqual(self.run_checks(), ((9, 0), [
            "ok action-table", "ok authoring-v4", "ok explain", "ok facts", "ok languages", "ok lint-words", "ok mistakes-page",
            "ok pages", "ok texts"]))

    def test_libraries_are_checked_too(self):
        self.script("images/check-images.py", "import sys\nprint(f'{len(sys.argv) - 1} passed, 0 failed')")
        sums, lines = self.run_checks([self.library("x64", 0), self.library("arm64", 0)])
        self.assertEqual((sums, lines[4]), ((11, 0), "ok images"))

    def test_findings_are_shown(self):
        self.script("lint/lint-words.py", "print('a.h:1: wrong')\nraise SystemExit(1)")
        self.script("texts/check-texts.py",
                    "print('ok names')\nprint('FAILED codes: gone')\nprint('1 passed, 1 failed')\nraise SystemExit(1)")
        sums, lines = self.run_checks()
        self.assertEqual(sums, (8, 2))
        self.assertEqual(lines, ["    FAILED codes: gone", "    a.h:1: wrong", "FAILED lint-words:", "FAILED texts:",
                                 "ok action-table", "ok authoring-v4", "ok explain", "ok facts", "ok languages",
                                 "ok mistakes-page", "ok pages"])

    def test_a_check_that_breaks_off_has_failed(self):
        self.script("texts/check-texts.py", "raise ValueError('lost')")
        self.script("kit/action-table.py", "print('3 passed, 0 failed')\nraise SystemExit(1)")
        sums, lines = self.run_checks()
        self.assertEqual(sums, (10, 2))
        self.assertIn("    ValueError: lost", lines)

    def test_libraries_that_are_newer_than_their_sources(self):
        folders = [self.library("x64", 0), self.library("arm64", -5)]
        self.assertEqual(CHECK.built_folders(self.root), (folders, []))

    def test_libraries_that_are_older_or_missing(self):
        self.library("x64", 1)
        self.assertEqual(CHECK.built_folders(self.root), ([], [
            "build/x64/hxsetup.dll is older than its sources and was not checked (./hx build makes it)",
            "build/arm64/hxsetup.dll does not exist and was not checked (./hx build makes it)"]))

    def test_a_change_of_the_version_makes_them_old(self):
        self.library("x64", 1)
        self.library("arm64", 1)
        (self.root / "src/frame/session.cpp").unlink()
        self.assertEqual(len(CHECK.built_folders(self.root)[0]), 2)
        (self.root / "VERSION").write_text("1.2.3\n")
        self.assertEqual(CHECK.built_folders(self.root)[0], [])


class ProjectTest(unittest.TestCase):
    def test_no_check_is_forgotten(self):
        """Each script that checks this project is run, except check-runs.py, which needs the logs of the install tests."""
        scripts = {path.relative_to(TOOLS) for path in [*TOOLS.glob("*/check-*.py"), *TOOLS.glob("*/lint-*.py")]}
        run = {check.command[0].relative_to(TOOLS) for check in CHECK.checks(TOOLS.parent, [Path("build/x64")])}
        self.assertEqual(scripts - run, {Path("kit/check-runs.py")})
        self.assertEqual(run - scripts, {Path("kit/action-table.py"), Path("kit/authoring_v4.py"),
                                         Path("packages/mistakes-page.py"), Path("explain/make-page.py")})
        for check in CHECK.checks(TOOLS.parent, []):
            self.assertTrue(os.access(check.command[0], os.X_OK), check.name)

    def test_they_need_no_library(self):
        self.assertEqual([check.name for check in CHECK.checks(TOOLS.parent, [])][:6],
                         ["texts", "action-table", "authoring-v4", "languages", "facts", "explain"])
        self.assertEqual(CHECK.checks(TOOLS.parent, [Path("build/x64")])[0].name, "images")


if __name__ == "__main__":
    unittest.main()
