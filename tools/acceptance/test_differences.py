"""The table of differences between the engines: that a test depends on each row, so that none is only a statement."""

import re
import unittest

from support import TOOLS

INSTALL = TOOLS.parent / "tests/install"


class DifferencesTest(unittest.TestCase):
    def test_each_row_is_used(self):
        header = (INSTALL / "engine.h").read_text(encoding="utf-8")
        rows = set(re.findall(r"^  (k\w+),$", header, re.MULTILINE)) - {"kCount"}
        self.assertGreater(len(rows), 10)
        used = set()
        for path in sorted(INSTALL.iterdir()):
            if path.name != "engine.h":
                used |= set(re.findall(r"\bDiffers::(k\w+)", path.read_text(encoding="utf-8")))
        self.assertEqual(rows - used, set())

    def test_only_one_place_knows_how_to_tell_the_engines_apart(self):
        found = {str(path.relative_to(TOOLS.parent)) for path in (TOOLS.parent / "tests").rglob("*.cpp")
                 if "wine_get_version" in path.read_text(encoding="utf-8")}
        # The second one is a program that has no install tests in it, and prints the version too.
        self.assertEqual(found, {"tests/machine/state.cpp", "tests/acceptance/facts.cpp"})


if __name__ == "__main__":
    unittest.main()
