"""conditions.py: what the engine can read is read, and everything else is refused with its place."""

import unittest

from packages.conditions import ConditionError, names_in

GOOD = {
    "": [],
    "  ": [],
    "1": [],
    "Installed": ["Installed"],
    "NOT Installed": ["Installed"],
    "not Installed and not REMOVE": ["Installed", "REMOVE"],
    'REMOVE="ALL"': ["REMOVE"],
    'REMOVE ~= "all" OR A~<>B': ["REMOVE", "A", "B"],
    "A AND (B OR NOT (C XOR D))": ["A", "B", "C", "D"],
    "A EQV B IMP C": ["A", "B", "C"],
    "VersionNT >= 603 AND VersionNT64": ["VersionNT", "VersionNT64"],
    "A > -5": ["A"],
    '"text" >< A AND A << "x" AND A >> "y" AND A <= 1': ["A", "A", "A", "A"],
    "%PATH AND $Main = 3 AND ?Main <> 3 AND &All = 3 AND !All = 2": ["%PATH", "$Main", "?Main", "&All", "!All"],
    "A.B_1": ["A.B_1"],
    "ANDROID OR NOTE": ["ANDROID", "NOTE"],
    "A=B": ["A", "B"],
    "NOT NOT A": ["A"],
}
MISSING = "a property, a number or a text in quotation marks is missing where "
BAD = {
    "A AND": MISSING + "the condition ends",
    "AND A": MISSING + "'AND' is there",
    "A AND OR B": MISSING + "'OR' is there",
    "NOT": MISSING + "the condition ends",
    "NOT NOT": MISSING + "the condition ends",
    "A =": MISSING + "the condition ends",
    "= A": MISSING + "'=' is there",
    "()": MISSING + "')' is there",
    "(A": "a closing bracket is missing where the condition ends",
    "(A B)": "a closing bracket is missing where 'B' is there",
    "A)": "AND or OR is missing where ')' is there",
    "A B": "AND or OR is missing where 'B' is there",
    "A NOT B": "before NOT, AND or OR is missing",
    "A = B = C": "AND or OR is missing where '=' is there",
    'A = "x': "the text after the last quotation mark does not end: add the missing quotation mark",
    "A == B": MISSING + "'=' is there",
    "A && B": "'&' is not part of any name, number or operator",
    "[A]": "'[' is not part of any name, number or operator",
    "A = 'x'": "\"'\" is not part of any name, number or operator",
    "5A": "'5' is not part of any name, number or operator",
}


class ConditionsTest(unittest.TestCase):
    def test_good(self):
        for text, names in GOOD.items():
            with self.subTest(text):
                self.assertEqual(names_in(text), names)

    def test_bad(self):
        for text, said in BAD.items():
            with self.subTest(text):
                with self.assertRaises(ConditionError) as caught:
                    names_in(text)
                self.assertEqual(str(caught.exception), said)


if __name__ == "__main__":
    unittest.main()
