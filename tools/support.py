"""Shared by the tests of the tools: loading a script as a module, and running one on a small tree of files."""

import contextlib
import importlib.util
import io
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

TOOLS = Path(__file__).resolve().parent


def load_script(name):
    """Loads the script tools/`name` as a module."""
    sys.path.insert(0, str(TOOLS))
    try:
        spec = importlib.util.spec_from_file_location(Path(name).stem.replace("-", "_"), TOOLS / name)
        module = importlib.util.module_from_spec(spec)
        spec.loader.exec_module(module)
        return module
    finally:
        sys.path.pop(0)


class TreeTest(unittest.TestCase):
    """A test of a script that checks a tree of files."""

    script = None

    @classmethod
    def setUpClass(cls):
        cls.module = load_script(cls.script)

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-lint-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def write(self, files):
        for path, text in files.items():
            path = self.root / path
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")

    def lint(self):
        """Runs the script on the tree: (exit code, lines of its output)."""
        output = io.StringIO()
        with mock.patch.object(sys, "argv", [self.script, str(self.root)]), contextlib.redirect_stdout(output):
            code = self.module.main()
        return code, output.getvalue().splitlines()

    def assert_clean(self, files):
        self.write(files)
        self.assertEqual(self.lint(), (0, []))

    def assert_found(self, files, *expected):
        """Asserts that the script finds exactly these; each is the beginning of a line."""
        self.write(files)
        code, lines = self.lint()
        self.assertEqual(code, 1)
        self.assertEqual(len(lines), len(expected), lines)
        for line, text in zip(lines, expected):
            self.assertTrue(line.startswith(text), f"{line!r} does not begin with {text!r}")
