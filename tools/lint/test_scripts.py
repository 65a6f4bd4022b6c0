"""The lints can be run as programs on any tree; every tool and every test is in a folder in which it is found."""

import os
import subprocess
import tempfile
import unittest

from support import TOOLS


class ScriptsTest(unittest.TestCase):
    def test_each_lint_runs(self):
        scripts = sorted(TOOLS.glob("lint/lint-*.py"))
        self.assertGreaterEqual(len(scripts), 5)
        with tempfile.TemporaryDirectory(prefix="hx-lint-") as root:
            subprocess.run(["git", "init", "-q", root], check=True)
            for script in scripts:
                with self.subTest(script.name):
                    self.assertTrue(os.access(script, os.X_OK))
                    result = subprocess.run([script, root], capture_output=True, text=True)
                    # In an empty tree, the lists of entry points, the layers and the version are missing.
                    fails = script.stem in ("lint-entry-points", "lint-layers", "lint-version")
                    self.assertEqual(result.returncode, 1 if fails else 0, result.stdout)
                    self.assertEqual(result.stderr, "")


class LayoutTest(unittest.TestCase):
    def test_every_file_is_in_a_folder(self):
        """The only exception is the module that all tests share."""
        self.assertEqual({path.name for path in TOOLS.iterdir() if path.is_file()}, {"support.py"})

    def test_every_test_is_found(self):
        """unittest finds tests only in folders that are packages, directly below tools/."""
        folders = {path.parent for path in TOOLS.rglob("test_*.py")}
        self.assertGreaterEqual(len(folders), 7)
        for folder in sorted(folders):
            with self.subTest(folder.name):
                self.assertEqual(folder.parent, TOOLS)
                self.assertTrue((folder / "__init__.py").is_file())


if __name__ == "__main__":
    unittest.main()
