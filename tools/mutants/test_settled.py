"""settled.txt: its form, the mutants that it has, and that each of its entries is a change of a source."""

import unittest

from mutants import settled
from mutants.mutants import ROOT, sources_of
from mutants.operators import places_of

LIST = """# A comment.

src/a/b.cpp
- if (a  <  b) {
+ if (a <= b) {
equivalent: a and b are never equal

src/a/c.h
# Another one.
- x();
+ ;
out of reach: x only frees memory
"""
TEXT = "int F(int a, int b) {\n  if (a < b) {\n    G(a,\n      b);\n  }\n  return a;\n}\n"


def change_of(text, before, after):
    return next(change for place in places_of(text) for change in place if (change.before, change.after) == (before, after))


class SettledTest(unittest.TestCase):
    def test_entries(self):
        self.assertEqual(settled.read(LIST),
                         [("src/a/b.cpp", "if (a < b) {", "if (a <= b) {", "equivalent", "a and b are never equal"),
                          ("src/a/c.h", "x();", ";", "out of reach", "x only frees memory")])
        self.assertEqual(settled.read("# nothing\n"), [])

    def test_malformed(self):
        for content, text in (("src/a.cpp\n- a\n+ b\n", "1: an entry is"), ("\nsrc/a.cpp\n+ a\n- b\nequivalent: c\n", "2: an entry is"),
                              ("src/a.cpp\n- a\n+ b\nequal: c\n", "1: the reason begins with"),
                              ("src/a.cpp\n- a\n+ b\nequivalent: \n", "1: the reason begins with")):
            with self.subTest(content), self.assertRaisesRegex(settled.Malformed, text):
                settled.read(content)

    def test_the_lines_of_a_change(self):
        self.assertEqual(settled.lines_of(TEXT, change_of(TEXT, "<", "<=")), ("if (a < b) {", "if (a <= b) {"))
        self.assertEqual(settled.lines_of(TEXT, change_of(TEXT, "G(a,\n      b);", ";")), ("G(a, b);", ";"))

    def test_the_entry_of_a_mutant(self):
        entries = settled.read(LIST)
        self.assertEqual(settled.reason_of(entries, "src/a/b.cpp", "if (a < b) {", "if (a <= b) {"), entries[0])
        self.assertIsNone(settled.reason_of(entries, "src/a/b.cpp", "if (a < b) {", "if (a >= b) {"))
        self.assertIsNone(settled.reason_of(entries, "src/a/c.cpp", "if (a < b) {", "if (a <= b) {"))

    def test_an_entry_whose_line_is_gone(self):
        entries = settled.read(LIST)
        there = {"src/a/b.cpp": {("if (a < b) {", "if (a <= b) {")}, "src/a/c.h": {("y();", ";")}}
        self.assertEqual(settled.gone(entries, there.get), [entries[1]])
        del there["src/a/b.cpp"]
        self.assertEqual(settled.gone(entries, there.get), entries)

    def test_the_list_of_the_project(self):
        entries = settled.read(settled.LIST.read_text(encoding="utf-8"))
        self.assertEqual(len(entries), len({entry[:3] for entry in entries}), "an entry is there twice")
        sources = sources_of(ROOT)

        def changes_of(source):
            text = sources.get(source)
            return text and {settled.lines_of(text, change) for place in places_of(text) for change in place}

        self.assertEqual(settled.gone(entries, changes_of), [])


if __name__ == "__main__":
    unittest.main()
