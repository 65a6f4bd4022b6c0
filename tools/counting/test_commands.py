"""./hx bench on a machine that cannot run ARM64 programs: what needs them says so before anything is built."""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from support import TOOLS

# It can make user namespaces, but not register an emulator in one; and no emulator is registered for the whole machine.
UNSHARE = """#!/bin/sh
for word; do [ "$word" != mount ] || exit 1; done
[ "$1" = --user ]
"""
FAILS = "#!/bin/sh\nexit 1\n"
# Says that it was called.
CALLED = "#!/bin/sh\necho called >>\"$HOME/called\"\nexit 1\n"
REFUSED = ("hx: this machine cannot run ARM64 programs: only Linux 6.7 and later lets users register an emulator (this is\n"
           "    6.1.0-made-up), and qemu-aarch64 is not registered. Register it as root (systemctl restart systemd-binfmt)")


class WithoutEmulatorTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-bench-")
        self.addCleanup(folder.cleanup)
        self.home = Path(folder.name)
        self.project = self.home / "project"
        for script in (*TOOLS.glob("*/commands.sh"), TOOLS / "setup/setup.sh", TOOLS / "setup/wine-x64.txt",
                       TOOLS / "setup/wine-arm64.txt", TOOLS.parent / "hx"):
            copy = self.project / script.relative_to(TOOLS.parent)
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(script, copy)
        (self.project / "tools/setup/packages.txt").write_text("", encoding="utf-8")
        (self.home / "bin").mkdir()
        for name, text in (("unshare", UNSHARE), ("grep", FAILS), ("uname", "#!/bin/sh\necho 6.1.0-made-up\n"), ("npm", FAILS),
                           ("mmdebstrap", FAILS), ("cmake", CALLED), ("ninja", CALLED)):
            (self.home / "bin" / name).write_text(text, encoding="utf-8")
            (self.home / "bin" / name).chmod(0o755)

    def hx(self, *words):
        """Runs hx: (its exit status, its error output)."""
        environment = {name: value for name, value in os.environ.items() if not name.startswith("HX_")}
        environment |= {"HOME": str(self.home), "XDG_CACHE_HOME": str(self.home / "cache"),
                        "PATH": f"{self.home}/bin:{environment['PATH']}"}
        result = subprocess.run([self.project / "hx", *words], capture_output=True, text=True, check=False, env=environment,
                                stdin=subprocess.DEVNULL, timeout=60)
        self.assertEqual(result.stdout, "")
        return result.returncode, result.stderr

    def test_full_and_arm64_are_refused_at_once(self):
        for part, advice in (("full", ", or\n    leave out the installations: ./hx bench"), ("arm64", "")):
            with self.subTest(part):
                self.assertEqual(self.hx("bench", part), (1, f"{REFUSED}{advice}\n"))
                self.assertFalse((self.home / "called").exists())
                self.assertFalse((self.home / "cache").exists())

    def test_the_rest_does_not_need_it(self):
        status, errors = self.hx("bench")
        self.assertEqual((status, errors.splitlines()[-1]),
                         (1, "hx: this failed: making a file tree with Wine for x64 (about 40 seconds, 1 GB)"))

    def test_the_tests_say_how_to_skip_them(self):
        (self.project / "tools/testing").mkdir(exist_ok=True)
        shutil.copy(TOOLS / "testing/planning.py", self.project / "tools/testing")
        self.assertEqual(self.hx("test", "unit", "--only", "arm64"),
                         (1, f"{REFUSED}, or\n    skip ARM64: ./hx test --only x64\n"))


if __name__ == "__main__":
    unittest.main()
