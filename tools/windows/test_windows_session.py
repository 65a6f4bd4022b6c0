"""A Windows that a script opens: its programs' output, their statuses, and its end."""

import os
import tempfile
import unittest
from pathlib import Path

from windows.windows_session import Ended, Windows

# Stands for serve.sh: each command is a piece of a shell script, which runs with standard output and the status.
SERVE = r"""#!/bin/bash
echo "$1 $2 $HX_LANE $HX_TIME_LIMIT" >"$2/given"
while read -r line; do
  eval "words=($line)"
  eval "${words[-1]}"
done
echo closed >>"$2/given"
echo late
"""


class WindowsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-windows-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.serve = self.folder / "serve"
        self.serve.write_text(SERVE)
        self.serve.chmod(0o755)
        self.lines = []

    def open(self):
        return Windows("x64", self.folder, 3, 900, serve=self.serve)

    def run_in(self, windows, script):
        """What a command returns, and what it shows; descriptor 9 takes its status."""
        self.lines.clear()
        status = windows.run({}, ["wine64", script.replace("&9", '&"$3"')], self.lines.append)
        return status, list(self.lines)

    def test_programs_one_after_the_other(self):
        with self.open() as windows:
            self.assertEqual(self.run_in(windows, "echo one; echo two >&2; echo 0 >&9"), (0, ["one", "two"]))
            self.assertEqual(self.run_in(windows, "printf 'three\\r\\nand half'; echo 139 >&9"), (139, ["three", "and half"]))
            self.assertEqual(self.run_in(windows, "echo 1 >&9"), (1, []))
        self.assertEqual((self.folder / "given").read_text(), f"x64 {self.folder} 3 900\nclosed\n")

    def test_all_output_comes_before_the_status(self):
        with self.open() as windows:
            status, lines = self.run_in(windows, "seq 1 50000; echo 0 >&9")
        self.assertEqual((status, lines), (0, [str(number) for number in range(1, 50001)]))

    def test_what_is_no_text(self):
        with self.open() as windows:
            self.assertEqual(self.run_in(windows, "printf 'a\\377b\\n'; echo 0 >&9"), (0, ["a\ufffdb"]))

    def test_variables_and_arguments_arrive_as_they_are(self):
        with self.open() as windows:
            words = {"HX_A": "Z:\\run\\a b", "HX_B": "$HOME 'x'"}
            windows.run(words, ["wine64", "*", 'printf "%s|" "${words[@]::4}"; echo; echo 0 >&"$3"'], self.lines.append)
        self.assertEqual(self.lines, ["HX_A=Z:\\run\\a b|HX_B=$HOME 'x'|wine64|*|"])

    def test_a_windows_that_ends(self):
        with self.open() as windows:
            with self.assertRaises(Ended):
                self.run_in(windows, "echo the server died; exit 1")
            self.assertEqual(self.lines, ["the server died"])
            with self.assertRaises(Ended):
                self.run_in(windows, "echo 0 >&9")

    def test_nothing_is_left_open(self):
        before = len(os.listdir("/proc/self/fd"))
        for _ in range(3):
            with self.open() as windows:
                self.run_in(windows, "echo 0 >&9")
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)


if __name__ == "__main__":
    unittest.main()
