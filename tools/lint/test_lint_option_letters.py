"""lint-option-letters.py: the test of the option letters knows every letter and every bit."""

import unittest

from support import TreeTest

OPTIONS = "src/files/tree_copy.h"
SOURCE = "src/files/tree_copy.cpp"
TEST = "tests/unit/files/tree_copy_options_test.cpp"

ENUM = "enum TreeOptions : DWORD {\n  kTreeMove = 1,  ///< move, {not} copy\n  kTreeOverwrite = 2,\n};\n"
LETTERS = ("constexpr OptionLetter kOptionLetters[] = {\n  {L'm', kTreeMove, 0}, {L'c', 0, kTreeMove},\n"
           "  {L'o', kTreeOverwrite | kTreeMove, 0}, {L'z', 0, ~DWORD{0}},\n};\n")
TABLE = "constexpr Letter kLetters[] = {\n  {L'm', 1, 0}, {L'c', 0, 1}, {L'o', 3, 0}, {L'z', 0, 3}, {L'Z', 0, 0},\n};\n"
HEAD = "//   m, c   move; copy\n//   o      overwrite\n//   z      reset\n"
MODEL = "case L'm':\ncase L'c':\ncase L'o':\ncase L'z':\n"
RANDOM = 'static const wchar_t kLetters[] = L"mmcozX";\n'
BITS = "if (Calls(groups)) bits |= kTreeMove;\nif (Calls(groups)) bits |= kTreeOverwrite;\n"


def missing_elsewhere(letter):
    """The findings about a new letter in the places besides the table of the test."""
    return [f"{place}: {letter} of {SOURCE} is missing"
            for place in (OPTIONS, "tests/unit/files/tree_model.h", "tests/unit/files/tree_copy_model_test.cpp")]


class OptionLettersTest(TreeTest):
    script = "lint/lint-option-letters.py"

    def setUp(self):
        super().setUp()
        self.write({OPTIONS: HEAD + ENUM, SOURCE: LETTERS, TEST: BITS + TABLE, "tests/unit/files/tree_model.h": MODEL,
                    "tests/unit/files/tree_copy_model_test.cpp": RANDOM})

    def test_agreement(self):
        self.assert_clean({})

    def test_new_letter(self):
        self.assert_found({SOURCE: LETTERS.replace("{L'z'", "{L'q', kTreeMove, 0}, {L'z'")},
                          f"{TEST}: L'q' of {SOURCE} is missing from kLetters", *missing_elsewhere("L'q'"))

    def test_letter_that_only_another_place_does_not_have(self):
        self.assert_found({OPTIONS: HEAD.replace("m, c", "m") + ENUM}, f"{OPTIONS}: L'c' of {SOURCE} is missing")
        self.write({OPTIONS: HEAD + ENUM})
        self.assert_found({"tests/unit/files/tree_model.h": MODEL.replace("case L'o':", "")},
                          f"tests/unit/files/tree_model.h: L'o' of {SOURCE} is missing")
        self.write({"tests/unit/files/tree_model.h": MODEL})
        self.assert_found({"tests/unit/files/tree_copy_model_test.cpp": RANDOM.replace("z", "")},
                          f"tests/unit/files/tree_copy_model_test.cpp: L'z' of {SOURCE} is missing")

    def test_letter_without_a_row(self):
        self.assert_found({TEST: BITS + TABLE.replace("{L'c', 0, 1}, ", "// {L'c', 0, 1},\n")},
                          f"{TEST}: L'c' of {SOURCE} is missing from kLetters")

    def test_letter_that_is_gone(self):
        self.assert_found({SOURCE: LETTERS.replace(", {L'c', 0, kTreeMove}", "")},
                          f"{TEST}: L'c' sets or clears bits, but {SOURCE} does not have it")

    def test_other_bits(self):
        self.assert_found({SOURCE: LETTERS.replace("{L'c', 0, kTreeMove}", "{L'c', 0, kTreeOverwrite}")},
                          f"{TEST}: L'c' sets 0 and clears 1, but in {SOURCE} it sets 0 and clears 2")

    def test_letter_without_effect_that_gets_one(self):
        self.assert_found({SOURCE: LETTERS.replace("{L'm'", "{L'Z', kTreeMove, 0}, {L'm'")},
                          f"{TEST}: L'Z' sets 0 and clears 0, but in {SOURCE} it sets 1 and clears 0",
                          *missing_elsewhere("L'Z'"))

    def test_new_bit(self):
        self.assert_found({OPTIONS: HEAD + ENUM.replace("};", "  kTreeSparse = 4,\n};")},
                          f"{TEST}: L'z' sets 0 and clears 3, but in {SOURCE} it sets 0 and clears 7",
                          f"{TEST}: no test says what kTreeSparse does")

    def test_bit_in_a_comment(self):
        self.assert_found({TEST: BITS.replace("bits |= kTreeOverwrite", "// kTreeOverwrite") + TABLE},
                          f"{TEST}: no test says what kTreeOverwrite does")

    def test_letter_twice(self):
        self.assert_found({SOURCE: LETTERS.replace("{L'z'", "{L'm', 0, 0}, {L'z'")},
                          f"{SOURCE}: L'm' is twice in kOptionLetters")

    def test_unreadable_entry(self):
        self.assert_found({SOURCE: LETTERS.replace("kTreeOverwrite | kTreeMove", "Both()")},
                          f'{SOURCE}: this script cannot read "Both ( )"')

    def test_missing_table(self):
        self.assert_found({SOURCE: "int nothing;\n"}, f'{SOURCE} has no "kOptionLetters [ ] ="')

    def test_missing_file(self):
        (self.root / TEST).unlink()
        self.assert_found({}, f"{TEST} does not exist")


if __name__ == "__main__":
    unittest.main()
