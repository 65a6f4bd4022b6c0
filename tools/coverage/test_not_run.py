"""The list of what no test runs: entries, and the differences from a measurement."""

import unittest

from coverage.measurement import Branch, Counts
from coverage.not_run import Key, Malformed, compare, entries_for, places, read

SOURCE = """\
int Half(int number) {
  // Rounds down.
  if (number < 0 ||
      number > 9)
    return -1;
  if (number == 8) { return   4; }

#if FAST
  return number / 2;
}
""".splitlines()
NAME = "src/base/half.cpp"
# What a test of 5 runs: each line but the fifth, and no condition both ways.
BRANCHES = {Branch(3, 7, 3, 17): (0, 1), Branch(4, 7, 4, 17): (0, 1), Branch(6, 7, 6, 18): (0, 1)}
COUNTS = Counts({1: 1, 2: 1, 3: 1, 4: 1, 5: 0, 6: 1, 7: 1, 8: 0, 9: 1, 10: 0}, BRANCHES)
LIST = """\
# The reason,
#   in two lines.
src/base/half.cpp :: never run :: return -1;
src/base/half.cpp :: never true: number < 0 :: if (number < 0 ||
src/base/half.cpp :: never true: number > 9 :: number > 9)

# Another reason.
src/base/half.cpp :: never true: number == 8 :: if (number == 8) { return 4; }
"""


def found(counts=COUNTS):
    return places({NAME: counts}, {NAME: SOURCE})


class ListTest(unittest.TestCase):
    def test_entries_have_the_reason_of_their_group(self):
        entries = read(LIST)
        self.assertEqual([entry.reason for entry in entries], ["The reason, in two lines."] * 3 + ["Another reason."])
        self.assertEqual(entries[1].key, Key(NAME, "never true: number < 0", "if (number < 0 ||"))
        self.assertEqual({entry.processor for entry in entries}, {None})

    def test_entries_of_one_processor(self):
        (entry,) = read("# R\n[arm64] src/a.cpp :: never run :: x :: y(a :: b);\n")
        self.assertEqual((entry.processor, entry.key), ("arm64", Key("src/a.cpp", "never run", "x :: y(a :: b);")))

    def test_entries_of_files(self):
        (entry,) = read("# R\nsrc/a.cpp :: not measured\n")
        self.assertEqual((entry.processor, entry.key), (None, Key("src/a.cpp", "not measured", "")))

    def test_what_cannot_be_read(self):
        for text, problem in (
                ("src/a.cpp :: never run :: x;\n", "1: this entry has no reason: put it in a line with # before it"),
                ("#\nsrc/a.cpp :: never run :: x;\n", "2: this entry has no reason: put it in a line with # before it"),
                ("# R\n\nsrc/a.cpp :: never run :: x;\n", "3: this entry has no reason: put it in a line with # before it"),
                ("# R\nsrc/a.cpp :: never run :: x;\n# S\n", "3: a reason follows an entry: put a blank line before it"),
                ("# R\nsrc/a.cpp :: not run :: x;\n", "2: this is not 'FILE :: never ... :: LINE': src/a.cpp :: not run :: x;"),
                ("# R\nsrc/a.cpp :: never true :: x;\n",
                 "2: this is not 'FILE :: never ... :: LINE': src/a.cpp :: never true :: x;"),
                ("# R\nsrc/a.cpp :: not measured :: x;\n",
                 "2: this is not 'FILE :: never ... :: LINE': src/a.cpp :: not measured :: x;"),
                ("# R\ntests/a.cpp :: never run :: x;\n",
                 "2: this is not 'FILE :: never ... :: LINE': tests/a.cpp :: never run :: x;")):
            with self.subTest(text), self.assertRaises(Malformed) as caught:
                read(text)
            self.assertEqual(str(caught.exception), problem)


class ComparisonTest(unittest.TestCase):
    def test_lines_and_branches_that_did_not_run(self):
        self.assertEqual([(place.number, place.key.what, place.key.line) for place in found()], [
            (5, "never run", "return -1;"),
            (3, "never true: number < 0", "if (number < 0 ||"),
            (4, "never true: number > 9", "number > 9)"),
            (6, "never true: number == 8", "if (number == 8) { return 4; }")])

    def test_brackets_comments_and_directives_say_nothing(self):
        counts = Counts({number: 0 for number in (2, 7, 8, 10)}, {})
        self.assertEqual(found(counts), [])

    def test_conditions_that_were_not_evaluated_say_nothing(self):
        self.assertEqual(found(Counts({}, {Branch(3, 7, 3, 17): (0, 0)})), [])

    def test_conditions_that_were_both_say_nothing(self):
        self.assertEqual(found(Counts({}, {Branch(3, 7, 3, 17): (2, 1)})), [])

    def test_a_condition_over_several_lines(self):
        (place,) = found(Counts({}, {Branch(3, 7, 4, 17): (1, 0)}))
        self.assertEqual(place.key, Key(NAME, "never false: number < 0 || number > 9", "if (number < 0 ||"))

    def test_a_whole_list_has_no_differences(self):
        self.assertEqual(compare(found(), read(LIST)), [])

    def test_numbers_of_lines_do_not_matter(self):
        moved = Counts({line + 1: count for line, count in COUNTS.lines.items()},
                       {Branch(line + 1, column, end + 1, end_column): count
                        for (line, column, end, end_column), count in BRANCHES.items()})
        self.assertEqual(compare(places({NAME: moved}, {NAME: ["", *SOURCE]}), read(LIST)), [])

    def test_a_line_without_an_entry(self):
        shorter = LIST.replace("src/base/half.cpp :: never run :: return -1;\n", "")
        self.assertEqual(compare(found(), read(shorter)),
                         ["src/base/half.cpp:5: never run :: return -1;: test it, or list it with its reason"])

    def test_a_branch_without_an_entry(self):
        shorter = LIST.replace("src/base/half.cpp :: never true: number > 9 :: number > 9)\n", "")
        self.assertEqual(compare(found(), read(shorter)),
                         ["src/base/half.cpp:4: never true: number > 9 :: number > 9): test it, or list it with its reason"])

    def test_an_entry_that_ran(self):
        counts = COUNTS._replace(lines={**COUNTS.lines, 5: 1})
        self.assertEqual(compare(found(counts), read(LIST)),
                         ["src/base/half.cpp :: never run :: return -1;: this entry of the list ran, or is not there any "
                          "more: remove it"])

    def test_an_entry_whose_line_is_gone(self):
        entry = "src/base/gone.cpp :: never false: a :: if (a) {"
        self.assertEqual(compare(found(), read(LIST + entry + "\n")),
                         [f"{entry}: this entry of the list ran, or is not there any more: remove it"])

    def test_the_same_text_twice_needs_two_entries(self):
        counts = Counts({1: 0, 2: 0}, {})
        twice = places({NAME: counts}, {NAME: ["return 1;", "  return 1;"]})
        entry = "src/base/half.cpp :: never run :: return 1;\n"
        for entries, differences in ((0, 2), (1, 1), (2, 0), (3, 1)):
            with self.subTest(entries):
                self.assertEqual(len(compare(twice, read("# R\n" + entry * entries))), differences)

    def test_an_entry_of_another_processor_does_not_count(self):
        of_arm = LIST.replace("src/base/half.cpp :: never run", "[arm64] src/base/half.cpp :: never run")
        self.assertEqual(compare(found(), entries_for("arm64", read(of_arm))), [])
        self.assertEqual(compare(found(), entries_for("x64", read(of_arm))),
                         ["src/base/half.cpp:5: never run :: return -1;: test it, or list it with its reason"])


if __name__ == "__main__":
    unittest.main()
