"""The page beside logs has the pages that it links beside it."""

import tempfile
import unittest
from pathlib import Path

from explain.beside import DOCS, copy_page, linked


class BesideTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)

    def test_linked_pages_of_the_project(self):
        copy_page(self.folder)
        self.assertEqual((self.folder / "explain.html").read_bytes(), (DOCS / "explain.html").read_bytes())
        for name in ("troubleshooting.md", "server-upgrade.md", "actions/client.md"):
            self.assertEqual((self.folder / name).read_bytes(), (DOCS / name).read_bytes(), name)

    def test_only_what_is_linked_and_exists(self):
        docs = self.folder / "docs"
        (docs / "actions").mkdir(parents=True)
        (docs / "explain.html").write_text('"[a](one.md#b)" "actions/two.md" missing.md')
        for name in ("one.md", "actions/two.md", "other.md"):
            (docs / name).write_text(name)
        self.assertEqual(linked(docs), ["actions/two.md", "one.md"])
        copy_page(self.folder / "logs", docs)
        copied = sorted(str(path.relative_to(self.folder / "logs")) for path in (self.folder / "logs").rglob("*") if path.is_file())
        self.assertEqual(copied, ["actions/two.md", "explain.html", "one.md"])


if __name__ == "__main__":
    unittest.main()
