"""Each page that gives a folder on another drive protects the folder above it, or leads to the page that does."""

import re
import unittest

from support import TOOLS

ROOT = TOOLS.parent

# A folder on another drive that a command line gives.
GIVEN = re.compile(r'\bDIR_[A-Z]+="?([D-Z]:\\[^"\n]*)')
# The commands that make the folder above such a one, with an owner and without the rights of the drive.
PROTECT = re.compile(r"    mkdir (\S+)\n    icacls \1 /setowner \*S-1-5-32-544\n"
                     r"    icacls \1 /inheritance:r /grant:r \*S-1-5-18:\(OI\)\(CI\)F \*S-1-5-32-544:\(OI\)\(CI\)F\n")


class GivenFoldersTest(unittest.TestCase):
    def test_folders_that_are_given_on_another_drive(self):
        commands = PROTECT.search((ROOT / "docs/security.md").read_text(encoding="utf-8"))
        self.assertIsNotNone(commands)
        given = set()
        for page in [*sorted(ROOT.glob("*.md")), *sorted((ROOT / "docs").glob("**/*.md"))]:
            text = page.read_text(encoding="utf-8")
            for folder in GIVEN.findall(text):
                given.add(page.name)
                with self.subTest(f"{page.name}: {folder}"):
                    self.assertTrue(commands[0] in text or "security.md#where-folders-may-be" in text)
                    self.assertTrue(folder.startswith(commands[1] + "\\"))
        self.assertLessEqual({"authoring.md", "security.md"}, given)


if __name__ == "__main__":
    unittest.main()
