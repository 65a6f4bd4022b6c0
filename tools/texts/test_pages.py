"""All pages: their links lead to a file of the project, and to a heading in it."""

import re
import unittest

from support import TOOLS, load_script

ROOT = TOOLS.parent
CHECK = load_script("texts/check-texts.py")


def pages():
    return [*sorted(ROOT.glob("*.md")), *sorted((ROOT / "docs").glob("*.md"))]


def links_of(text):
    """The links of a page, without what is in blocks of code and without other sites: each a file and a heading."""
    text = re.sub(r"^```.*?^```$", "", text, flags=re.DOTALL | re.MULTILINE)
    return {(file, heading) for file, heading in CHECK.LINK.findall(text) if not file.startswith(("http", "//"))}


class LinksTest(unittest.TestCase):
    def test_links(self):
        seen = 0
        for page in pages():
            for file, heading in sorted(links_of(page.read_text(encoding="utf-8"))):
                seen += 1
                with self.subTest(f"{page.name}: {file}#{heading}"):
                    target = page.parent / file if file else page
                    self.assertTrue(target.exists())
                    if heading:
                        self.assertIn(heading, CHECK.anchors_of(target.read_text(encoding="utf-8")))
        self.assertGreater(seen, 100)

    def test_each_page_is_named_somewhere(self):
        """A reader of the README comes to every page, by one link or by several."""
        reached, left = set(), [ROOT / "README.md"]
        while left:
            page = left.pop()
            if page in reached or page.suffix != ".md":
                continue
            reached.add(page)
            left += [(page.parent / file).resolve() for file, _ in links_of(page.read_text(encoding="utf-8")) if file]
        self.assertEqual(set(pages()) - reached, set())


if __name__ == "__main__":
    unittest.main()
