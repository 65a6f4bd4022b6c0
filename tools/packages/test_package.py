"""package.py: what it refuses, and that it never replaces a file that is not a package."""

import contextlib
import io
import unittest

from packages import package
from packages.sample_library import make_library
from packages.test_writer import SourceTest


class PackageTest(SourceTest):
    def run_package(self, *words, out="own.msi"):
        """Runs package.py on the source: (exit status, output, errors)."""
        library = make_library(self.folder / "library", "x64")
        output, errors = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(errors):
            status = package.main([str(self.source()), "--processor", "x64", "--library", str(library), "--out",
                                   str(self.folder / out), *words])
        return status, output.getvalue(), errors.getvalue()

    def assert_refused(self, text, *words, out="own.msi"):
        status, output, errors = self.run_package(*words, out=out)
        self.assertEqual((status, output), (1, ""))
        self.assertTrue(errors.startswith("hx: ") and errors.endswith("\nhx: no package was made\n"), errors)
        self.assertIn(text, errors)
        self.assertEqual(len(errors.splitlines()), 2)

    def test_made(self):
        before = sorted(path.name for path in self.folder.iterdir())
        status, output, errors = self.run_package(out="new/own.msi")
        self.assertEqual((status, errors), (0, ""))
        self.assertRegex(output, r"new/own.msi: Sample 1.2.3 for x64, product code \{[-0-9A-F]{36}\}\n"
                                 r"own.msi : warning : hxsetup: The package does not use the library")
        self.assertEqual(sorted({path.name for path in self.folder.iterdir()} - {"library", "new", "sample.wxs"}), before)
        self.assertEqual(self.run_package(out="new/own.msi")[0], 0, "a package is replaced")

    def test_never_replaces_another_file(self):
        for name in ("sample.wxs", "one.txt"):
            self.source()
            before = (self.folder / name).read_bytes()
            self.assert_refused("exists and is not a package, so it is not replaced: give another path with --out", out=name)
            self.assertEqual((self.folder / name).read_bytes(), before)

    def test_folder_that_cannot_be_made(self):
        self.assert_refused("one.txt", out="one.txt/own.msi")

    def test_defines(self):
        for word, text in (("A", "--define takes NAME=VALUE, not 'A'"), ("1=2", "--define takes NAME=VALUE, not '1=2'")):
            self.assert_refused(text, "--define", word)
        self.assert_refused("--define gives A twice", "--define", "A=1", "--define", "A=2")


if __name__ == "__main__":
    unittest.main()
