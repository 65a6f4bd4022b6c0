"""setup.sh fetches Wine's 32-bit libraries in the version of the tree, keeps only the named ones, and leaves nothing else."""

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

from support import TOOLS

# Stands for the tools: notes its arguments, and does what the test says.
FAKE = """#!/bin/bash
printf '%s\\n' "$*" >>"$HX_CALLS"
case ${0##*/} in
  apt-get) [[ $* != *" update" ]] || exit "$HX_UPDATE"; touch libwine_1_i386.deb; exit "$HX_DOWNLOAD" ;;
  dpkg-deb) cd "$HX_PACKAGE"; exec tar -c ./usr ;;
  llvm-strip-19) cp "$2" "$4" ;;
esac
"""


class X86LibrariesTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        for name in ("apt-get", "dpkg-deb", "llvm-strip-19"):
            path = self.folder / "bin" / name
            path.parent.mkdir(exist_ok=True)
            path.write_text(FAKE)
            path.chmod(0o755)
        for path, content in (("wine/tree/etc/apt/sources.list", "deb http://mirror suite main\n"),
                              ("wine/tree/usr/i686-w64-mingw32/lib/zlib1.dll", "z" * 100),
                              ("package/usr/lib/i386-linux-gnu/wine/i386-windows/msi.dll", "msi"),
                              ("package/usr/lib/i386-linux-gnu/wine/i386-windows/other.dll", "other")):
            (self.folder / path).parent.mkdir(parents=True, exist_ok=True)
            (self.folder / path).write_text(content)
        (self.folder / "made").mkdir()

    def make(self, update=0, download=0, names=("msi.dll",)):
        environment = {**os.environ, "PATH": f"{self.folder}/bin:{os.environ['PATH']}", "HX_CALLS": f"{self.folder}/calls",
                       "HX_PACKAGE": f"{self.folder}/package", "HX_UPDATE": str(update), "HX_DOWNLOAD": str(download)}
        return subprocess.run(["bash", "-euo", "pipefail", "-c", 'source "$0"; make_x86_libraries "$@"', TOOLS / "setup/setup.sh",
                               self.folder / "made", self.folder / "wine", "10.0~1", *names],
                              env=environment, capture_output=True, text=True, check=False)

    def test_what_is_kept(self):
        result = self.make()
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        kept = {str(path.relative_to(self.folder / "made")): path.read_bytes()
                for path in (self.folder / "made").rglob("*") if path.is_file()}
        mark = b"Wine builtin DLL" + bytes(16)
        self.assertEqual(kept, {"i386-windows/msi.dll": b"msi", "i386-windows/zlib1.dll": b"z" * 64 + mark + b"z" * 4})

    def test_version_and_lists(self):
        """The lists are those of the tree, and this machine's are not changed."""
        self.make()
        update, download = (line for line in (self.folder / "calls").read_text().splitlines() if "-o Dir=" in line)
        for line in update, download:
            self.assertIn(f"-o Dir={self.folder}/made/apt ", line)
            self.assertIn("-o APT::Architecture=i386 ", line)
        self.assertTrue(download.endswith(" download libwine=10.0~1"))

    def test_a_list_that_cannot_be_read(self):
        self.assertEqual(self.make(update=100).returncode, 0)

    def test_a_version_that_is_gone(self):
        result = self.make(download=100)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout.splitlines(), [
            "libwine 10.0~1 for i386 could not be fetched. If the network works, Debian now has another version:",
            "./hx clean --cache removes the tree for x64, and the next command makes one of that version."])

    def test_a_library_that_the_package_does_not_have(self):
        self.assertNotEqual(self.make(names=("none.dll",)).returncode, 0)


if __name__ == "__main__":
    unittest.main()
