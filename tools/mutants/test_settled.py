"""settled.txt: its form, the mutants that it has, and that each of its entries is a change of a source."""

import unittest

from mutants import settled
from mutants.mutants import ROOT, files_of, sources_of
from mutants.operators import places_of
from mutants.settled import Key

LIST = """# A comment.

src/a/b.cpp
- if (a  <  b) {
+ if (a <= b) {
equivalent: a and b are never equal

src/a/c.h (2 of 5)
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
                         [(Key("src/a/b.cpp", "if (a < b) {", "if (a <= b) {", 1, 1), "equivalent", "a and b are never equal", 3),
                          (Key("src/a/c.h", "x();", ";", 2, 5), "out of reach", "x only frees memory", 8)])
        self.assertEqual(settled.read("# nothing\n"), [])

    def test_malformed(self):
        for content, text in (("src/a.cpp\n- a\n+ b\n", "1: an entry is"), ("\nsrc/a.cpp\n+ a\n- b\nequivalent: c\n", "2: an entry is"),
                              ("src/a.cpp\n- a\n+ b\nequal: c\n", "1: the reason begins with"),
                              ("src/a.cpp\n- a\n+ b\nequivalent: \n", "1: the reason begins with"),
                              *((f"src/a.cpp {which}\n- a\n+ b\nequivalent: c\n", '1: an entry begins with the name of a source, '
                                 'alone or as in "src/base/text.cpp \\(2 of 5\\)", not with "src/a.cpp ')
                                for which in ("(2. of 5)", "(2)", "(0 of 2)", "(3 of 2)", "2 of 5"))):
            with self.subTest(content), self.assertRaisesRegex(settled.Malformed, "^settled.txt:.*" + text):
                settled.read(content)

    def test_the_lines_of_a_change(self):
        self.assertEqual(settled.lines_of(TEXT, change_of(TEXT, "<", "<=")), ("if (a < b) {", "if (a <= b) {"))
        self.assertEqual(settled.lines_of(TEXT, change_of(TEXT, "G(a,\n      b);", ";")), ("G(a, b);", ";"))

    def test_the_lines_on_which_a_change_can_be_made(self):
        text = TEXT + TEXT.replace("return a", "return a < a")
        places = settled.places_in(text)
        self.assertEqual(places["if (a < b) {", "if (a <= b) {"], [2, 9])
        self.assertEqual(places["G(a, b);", ";"], [3, 10])
        self.assertEqual(places["return a < a;", "return a <= a;"], [13])
        # Two changes with the same line before and after: one place.
        self.assertEqual(settled.places_in("bool F(bool a) {\n  return a && a;\n}\n")["return a && a;", "return a;"], [2])

    def test_the_key_of_a_change(self):
        changes = [change for place in places_of(TEXT + TEXT) for change in place if change.after == "<="]
        self.assertEqual([settled.key_of("src/a.cpp", TEXT + TEXT, change) for change in changes],
                         [Key("src/a.cpp", "if (a < b) {", "if (a <= b) {", which, 2) for which in (1, 2)])
        self.assertEqual(settled.key_of("src/a.cpp", TEXT, change_of(TEXT, "<", "<=")),
                         Key("src/a.cpp", "if (a < b) {", "if (a <= b) {", 1, 1))
        self.assertEqual([Key("src/a.cpp", "", "", which, of).place for which, of in ((1, 1), (1, 2))],
                         ["src/a.cpp", "src/a.cpp (1 of 2)"])

    def test_the_entry_of_a_mutant(self):
        entries = settled.read(LIST)
        first, second = Key("src/a/b.cpp", "if (a < b) {", "if (a <= b) {", 1, 1), Key("src/a/c.h", "x();", ";", 2, 5)
        self.assertEqual([settled.entry_of(entries, key) for key in (first, second)], entries)
        for key in (first._replace(after="if (a >= b) {"), first._replace(source="src/a/c.cpp"), first._replace(of=2),
                    second._replace(which=3), second._replace(of=6), second._replace(which=1, of=1)):
            self.assertIsNone(settled.entry_of(entries, key))

    def test_an_entry_whose_line_is_gone(self):
        entries = settled.read(LIST)
        there = {"src/a/b.cpp": {("if (a < b) {", "if (a <= b) {"): [3]}, "src/a/c.h": {("y();", ";"): [1, 2, 3, 4, 5]}}
        self.assertEqual(settled.gone(entries, there.get), [entries[1]])
        settled.check(entries, there.get)
        del there["src/a/b.cpp"]
        self.assertEqual(settled.gone(entries, there.get), entries)

    def test_an_entry_that_does_not_say_which_line_it_is_for(self):
        def assert_refused(name, numbers, text):
            entries = settled.read(f"\n{name}\n- x(); // a\n+ ; // a\nequivalent: b\n")
            with self.subTest(name, numbers=numbers), self.assertRaises(settled.Malformed) as caught:
                settled.check(entries, lambda source: {("x(); // a", "; // a"): numbers})
            self.assertEqual(str(caught.exception), f"settled.txt:2: {text}\n  - x(); // a\n  + ; // a")

        several = 'src/a.cpp has this line 3 times, and the entry is for one of them: begin it with "src/a.cpp (1 of 3)" for line 4, ' \
            '"src/a.cpp (2 of 3)" for line 9, "src/a.cpp (3 of 3)" for line 12'
        for name in ("src/a.cpp", "src/a.cpp (2 of 2)", "src/a.cpp (4 of 4)"):
            assert_refused(name, [4, 9, 12], several)
        assert_refused("src/a.cpp (1 of 2)", [4], 'src/a.cpp has this line only once: begin the entry with "src/a.cpp"')
        for name, numbers in (("src/a.cpp", [4]), ("src/a.cpp (3 of 3)", [4, 9, 12])):
            entries = settled.read(f"{name}\n- x();\n+ ;\nequivalent: b\n")
            settled.check(entries, lambda source, numbers=numbers: {("x();", ";"): numbers})

    def test_the_list_of_the_project(self):
        entries = settled.read(settled.LIST.read_text(encoding="utf-8"))
        self.assertEqual(len(entries), len({entry.key for entry in entries}), "an entry is there twice")
        sources = sources_of(files_of(ROOT))
        places = {entry.key.source: settled.places_in(sources[entry.key.source]) for entry in entries if entry.key.source in sources}
        settled.check(entries, places.get)
        self.assertEqual(settled.gone(entries, places.get), [])


if __name__ == "__main__":
    unittest.main()
