"""try_package.py: what it prints of a trial, and what it refuses before it begins one. trial_packages.py runs real trials."""

import contextlib
import io
from unittest import mock

from packages import try_package
from packages.test_writer import SourceTest
from packages.writer import Files, write_package
from packages.compiler import compile_source

LOG = "=== Logging started ===\r\nMSI (s) (10:20): Hx Setup Log: one\r\nother\r\nHx Setup Log: two\r\n"


class TryTest(SourceTest):
    def setUp(self):
        super().setUp()
        self.package = self.folder / "sample.msi"
        self.logs = self.folder / "logs"
        (self.folder / "trial.exe").write_bytes(b"trial")

    def make_for(self, processor):
        write_package(compile_source(self.source(), [], {}), processor, Files([self.folder]), self.package)

    def run_try(self, *words, trials=(), logs=()):
        """Runs try_package.py; `trials` are the results of trial.exe, `logs` the logs that it writes. Returns the exit status,
        the output and the errors, and the calls."""
        calls, left = [], list(trials)

        def run_trial(processor, folder):
            calls.append((processor, (folder / "trial.txt").read_text(encoding="utf-8").splitlines(),
                          (folder / "package.msi").read_bytes() == self.package.read_bytes(),
                          (folder / "trial.exe").read_bytes()))
            for name, data in dict(logs).items():
                (folder / name).write_bytes(data)
            return left.pop(0)

        output, errors = io.StringIO(), io.StringIO()
        with mock.patch.object(try_package, "run_trial", run_trial), \
                mock.patch.object(try_package, "explained", lambda path: ["one", "two"]), contextlib.redirect_stdout(output), \
                contextlib.redirect_stderr(errors):
            status = try_package.main([str(self.package), "--programs", str(self.folder), "--logs", str(self.logs), *words])
        self.assertEqual(left, [])
        return status, output.getvalue(), errors.getvalue(), calls

    def test_whole_trial(self):
        self.make_for("arm64")
        lines = ["wine: a line of the emulator", "run install 0", "+ C:\\New\\", "~ C:\\Old = x", "run remove 3010", "- C:\\New\\",
                 "run rest 0", "~ C:\\Old = x"]
        status, output, errors, calls = self.run_try(
            "A=b c", "EMPTY=", trials=[(0, lines)],
            logs={"install.log": LOG.encode("cp1252"), "remove.log": b"\xff\xfe" + LOG.encode("utf-16-le")})
        said = "    MSI (s) (10:20): Hx Setup Log: one\n    Hx Setup Log: two\n"
        self.assertEqual((status, errors), (0, ""))
        self.assertEqual(output, "Installation succeeded (0)\n  the library wrote to the log:\n" + said +
                         "  changed:\n    + C:\\New\\\n    ~ C:\\Old = x\n"
                         "Removal succeeded; the machine must be restarted (3010)\n  the library wrote to the log:\n" + said +
                         "  changed:\n    - C:\\New\\\n"
                         "What the removal left\n"
                         "  the machine now, compared with the machine before the installation:\n    ~ C:\\Old = x\n"
                         f"The verbose logs are in {self.logs}; explain.html beside them explains them\n")
        code = try_package.read_package(self.package).properties()["ProductCode"]
        self.assertEqual(calls, [("arm64", ["Z:\\run\\package.msi", code, "Z:\\run", "A=b c", "EMPTY="], True, b"trial")])
        self.assertEqual((self.logs / "install.log").read_bytes(), LOG.encode())

    def test_failed_installation(self):
        self.make_for("x64")
        self.logs.mkdir()
        (self.logs / "remove.log").write_text("of an earlier trial")
        status, output, _, _ = self.run_try(trials=[(0, ["run install 1603"])], logs={"install.log": b""})
        self.assertEqual((status, output), (1,
            "Installation failed (1603)\n  the library wrote nothing to the log\n  nothing changed\n"
            "  what happened:\n    one\n    two\nThe product is not installed now, so there is nothing to remove.\n"
            f"The verbose logs are in {self.logs}; explain.html beside them explains them\n"))
        self.assertEqual(sorted(path.name for path in self.logs.glob("*.log")), ["install.log"])
        for name in ("explain.html", "troubleshooting.md", "actions/client.md"):
            self.assertTrue((self.logs / name).is_file(), name)

    def test_failed_removal(self):
        self.make_for("x64")
        status, output, _, _ = self.run_try(trials=[(0, ["run install 0", "run remove 1605", "run rest 0"])])
        self.assertEqual(status, 1)
        self.assertIn("Removal failed (1605)\n", output)
        self.assertIn("What the removal left\n  nothing\n", output)

    def test_trial_that_does_not_end(self):
        self.make_for("x64")
        again = "hx: the installation did not end within 300 seconds; starting again\n"
        status, _, errors, calls = self.run_try(trials=[(124, []), (0, ["run install 0", "run remove 0", "run rest 0"])])
        self.assertEqual((status, errors, len(calls)), (0, again, 2))
        status, _, errors, calls = self.run_try(trials=[(124, [])] * 3)
        self.assertEqual((status, errors, len(calls)), (1, again * 2 + "hx: the installation did not end within 300 seconds, 3 times\n", 3))

    def test_trial_that_fails(self):
        self.make_for("x64")
        status, _, errors, _ = self.run_try(trials=[(2, ["trial: cannot log to Z:\\run\\install.log"])])
        self.assertEqual((status, errors), (1, "hx: the trial ended with status 2:\ntrial: cannot log to Z:\\run\\install.log\n"))

    def test_refused(self):
        self.make_for("x64")
        for word, text in (("site=Hall", "site is not a public property: only names in capital letters reach the installation"),
                           ("A=b\nc", "the value of A has a line break"), ("ADDLOCAL", "'ADDLOCAL' is not NAME=VALUE")):
            with self.subTest(word):
                self.assertEqual(self.run_try(word), (1, "", f"hx: {text}\n", []))
        self.package.write_text("no package")
        self.assertEqual(self.run_try()[2], f"hx: {self.package} is not an installation package: it does not begin like an OLE "
                                            "compound file\n")

    def test_processor(self):
        for processor in ("x64", "arm64"):
            self.make_for(processor)
            output = io.StringIO()
            with contextlib.redirect_stdout(output):
                self.assertEqual(try_package.main([str(self.package), "--processor-only"]), 0)
            self.assertEqual(output.getvalue(), f"{processor}\n")
        for template, text in (("Intel;1033", "Intel"), (";1033", "no processor")):
            try_package.TEMPLATES["x64"], kept = template.partition(";")[0], try_package.TEMPLATES["x64"]
            self.make_for("x64")
            try_package.TEMPLATES["x64"] = kept
            self.assertEqual(self.run_try()[2], f"hx: {self.package} is for {text}: there is a Windows for arm64 and x64 only\n")


if __name__ == "__main__":
    import unittest
    unittest.main()
