"""windows_session.py: the output and the statuses of programs in a Windows, and its end. windows.py: a single command."""

import contextlib
import io
import os
import subprocess
import tempfile
import unittest
from pathlib import Path

from support import load_script
from windows.windows_session import Ended, Windows

# Replaces serve.sh: evaluates the last word of each command as a shell script, which prints the output and writes the status
# to the descriptor $3.
SERVE = r"""#!/bin/bash
echo "$1 $2 $HX_LANE $HX_TIME_LIMIT" >"$2/given"
while read -r line; do
  eval "words=($line)"
  eval "${words[-1]}"
done
echo closed >>"$2/given"
echo late
"""


class ServedTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-windows-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.serve = self.folder / "serve"
        self.serve.write_text(SERVE)
        self.serve.chmod(0o755)


class WindowsTest(ServedTest):
    def setUp(self):
        super().setUp()
        self.lines, self.rest = [], []

    def open(self):
        return Windows("x64", self.folder, 3, 900, self.rest.append, serve=self.serve)

    def run_in(self, windows, script):
        """Runs a script as a command: (its result, the lines that it shows). The script writes its status to descriptor
        9."""
        self.lines.clear()
        status = windows.run({}, ["wine64", script.replace("&9", '&"$3"')], self.lines.append)
        return status, list(self.lines)

    def test_programs_one_after_the_other(self):
        with self.open() as windows:
            self.assertEqual(self.run_in(windows, "echo one; echo two >&2; echo 0 >&9"), (0, ["one", "two"]))
            self.assertEqual(self.run_in(windows, "printf 'three\\r\\nand half'; echo 139 >&9"), (139, ["three", "and half"]))
            self.assertEqual(self.run_in(windows, "echo 1 >&9"), (1, []))
        self.assertEqual((self.folder / "given").read_text(), f"x64 {self.folder} 3 900\nclosed\n")
        self.assertEqual(self.rest, ["late"])

    def test_all_output_comes_before_the_status(self):
        with self.open() as windows:
            status, lines = self.run_in(windows, "seq 1 50000; echo 0 >&9")
        self.assertEqual((status, lines), (0, [str(number) for number in range(1, 50001)]))

    def test_output_that_is_not_text(self):
        with self.open() as windows:
            self.assertEqual(self.run_in(windows, "printf 'a\\377b\\n'; echo 0 >&9"), (0, ["a\ufffdb"]))

    def test_variables_and_arguments_arrive_unchanged(self):
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


class SessionTest(unittest.TestCase):
    """session.sh, with scripts in place of Wine in a tree with nothing but a shell."""

    # Writes down what is run; the services start when the server has started so many times.
    WINE = """#!/bin/dash
echo "${{0##*/}} $*" >>/run/calls
[ "$*" != "net start" ] || [ "$(/bin/grep -c "wineserver -p" /run/calls)" -ge {starts} ]
"""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-session-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.tree = self.root / "tree"
        for name in ("bin", "usr/bin", "proc", "dev", "sys", "tmp", "run", "windows"):
            (self.tree / name).mkdir(parents=True)
        (self.root / "pristine/prefix").mkdir(parents=True)
        (self.root / "run").mkdir()
        needed = [Path("/bin/dash"), Path("/bin/grep")]
        for program in list(needed):
            listed = subprocess.run(["ldd", program], capture_output=True, text=True, check=True).stdout
            needed += [Path(word) for word in listed.split() if word.startswith("/")]
        for path in set(needed):
            copy = self.tree / path.relative_to("/")
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_bytes(path.read_bytes())
            copy.chmod(0o755)

    def serve(self, processor, starts):
        """Starts such a Windows, whose services start only then, and runs a command: (exit status, errors, the calls)."""
        for name in ("wine64", "wineserver"):
            (self.tree / "usr/bin" / name).write_text(self.WINE.format(starts=starts))
            (self.tree / "usr/bin" / name).chmod(0o755)
        result = subprocess.run(
            ["bash", "-c", 'exec "$@" 3>/dev/null', "bash", Path(__file__).parent / "session.sh", processor, self.tree,
             self.root / "pristine", "--serve"],
            input="wine64 cmd\n", capture_output=True, text=True, check=False, timeout=60,
            env={"PATH": os.environ["PATH"], "HX_RUN_FOLDER": str(self.root / "run"), "HX_LANE": "0"})
        return result.returncode, result.stderr, (self.root / "run/calls").read_text().splitlines()

    AGAIN = "hx: Wine for arm64, or its services, did not start; starting again\n"

    def test_an_emulated_one_starts_again_without_services(self):
        self.assertEqual(self.serve("arm64", 3), (0, self.AGAIN * 2, [
            *["wineserver -p", "wine64 net start", "wineserver -k"] * 2, "wineserver -p", "wine64 net start", "wine64 cmd"]))

    def test_it_does_not_start_a_fourth_time(self):
        self.assertEqual(self.serve("arm64", 4), (1, self.AGAIN * 2 + "hx: Wine for arm64, or its services, did not start three times\n", [
            *["wineserver -p", "wine64 net start", "wineserver -k"] * 2, "wineserver -p", "wine64 net start"]))

    def test_no_other_one_is_asked(self):
        self.assertEqual(self.serve("x64", 4), (0, "", ["wineserver -p", "wine64 cmd"]))


class OneCommandTest(ServedTest):
    def command(self, *arguments):
        """(exit status, output, errors)."""
        output, errors = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(errors):
            try:
                status = load_script("windows/windows.py").main(list(arguments), serve=self.serve)
            except SystemExit as end:
                status = end.code
        return status, output.getvalue(), errors.getvalue()

    def test_its_output_and_status(self):
        said = self.command("x64", "--folder", str(self.folder), "--", "HX_A=1=2", "wine64", "A=B",
                            'echo "${words[@]::3}"; echo 67 >&"$3"')
        self.assertEqual(said, (67, "HX_A=1=2 wine64 A=B\nlate\n", ""))

    def test_a_windows_that_does_not_start(self):
        self.serve.write_text("#!/bin/sh\necho no right to\n")
        self.assertEqual(self.command("x64", "--", "wine64"), ("hx: Windows ended unexpectedly", "no right to\n", ""))

    def test_wrong_arguments(self):
        for arguments, text in ((["x86", "--", "wine64"], "invalid choice: 'x86'"), (["x64"], "command"),
                                (["x64", "--", "HX_A=1"], "a command is missing"),
                                (["x64", "--folder", f"{self.folder}/none", "--", "wine64"], "/none is not a folder")):
            with self.subTest(arguments):
                status, output, errors = self.command(*arguments)
                self.assertEqual((status, output), (2, ""))
                self.assertIn(text, errors)


if __name__ == "__main__":
    unittest.main()
