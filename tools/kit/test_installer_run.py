"""installer_run.py: evaluates conditions and walks through a sequence as the engine does."""

import unittest
from collections import namedtuple

from support import load_script

MODULE = load_script("kit/installer_run.py")
Row = namedtuple("Row", "number action condition")

PROPERTIES = {"Installed": "1", "REMOVE": "all", "PATH": "C:\\Vantor\\", "FIVE": "5", "ZERO": "0"}
TRUE = [
    "", "Installed", "NOT MISSING", "ZERO", 'REMOVE ~= "ALL"', 'NOT (REMOVE = "ALL")', 'REMOVE <> "ALL"',
    "NOT MISSING OR MISSING AND MISSING", "MISSING AND MISSING OR Installed", "FIVE = 5", "FIVE >= 4", "FIVE <> 4",
    'PATH >> "\\"', 'PATH ~<< "c:\\vantor"', 'NOT (PATH << "c:")', 'PATH >< "Vantor"', "PATH ~= PATH",
    "PATH <> 5", "NOT (PATH = 5)", "Installed XOR MISSING", "MISSING IMP MISSING", "MISSING EQV MISSING",
    "not MISSING and Installed", "(NOT Installed OR REINSTALL OR REMOVE) AND NOT MISSING",
]
FALSE = ["MISSING", "NOT Installed", 'REMOVE = "ALL"', "NOT Installed OR MISSING", "Installed AND MISSING", "FIVE < 5",
         "0", 'MISSING >< "x"', "NOT NOT MISSING", "Installed IMP MISSING"]
BROKEN = ["$Component = 3", "NOT", "(Installed", "Installed REMOVE", "= 5", "FIVE =", "Installed )"]


class ConditionTest(unittest.TestCase):
    def test_true(self):
        for condition in TRUE:
            with self.subTest(condition):
                self.assertTrue(MODULE.holds(condition, PROPERTIES))

    def test_false(self):
        for condition in FALSE:
            with self.subTest(condition):
                self.assertFalse(MODULE.holds(condition, PROPERTIES))

    def test_broken(self):
        for condition in BROKEN:
            with self.subTest(condition):
                self.assertRaises(ValueError, MODULE.holds, condition, PROPERTIES)

    def test_names(self):
        self.assertEqual(MODULE.names_in('A AND NOT (B.C ~= "D") OR 5 = _E'), ["A", "B.C", "_E"])


class SequenceTest(unittest.TestCase):
    def run_rows(self, *rows, **properties):
        actions = {"Set": {"Property": "P", "Value": "<[A][B]>"}, "Clear": {"Property": "P", "Value": "{}"}, "Call": {}}
        return [(row.action, state.get("P"))
                for row, state in MODULE.run_sequence([Row(*row) for row in rows], actions, properties)]

    def test_order_and_values(self):
        rows = [(30, "Call", "P"), (-3, "Call", ""), (10, "Set", "A"), (20, "Call", 'P = "<1>"'), (40, "Clear", ""),
                (50, "Call", "P"), (60, "Engine", None)]
        self.assertEqual(self.run_rows(*rows, A="1"), [("Set", None), ("Call", "<1>"), ("Call", "<1>"),
                                                       ("Clear", "<1>"), ("Engine", "")])

    def test_property_that_is_searched_for(self):
        rows = [Row(40, "Set", "A"), Row(45, "Call", "A"), Row(55, "Call", "A"), Row(60, "Call", "B")]
        actions = {"Set": {"Property": "A", "Value": "{}"}, "Call": {}}
        run = MODULE.run_sequence(rows, actions, {"A": "1", "B": "2"}, {"A"})
        self.assertEqual([(row.number, state.get("A")) for row, state in run], [(55, "1"), (60, "1")])

    def test_property_that_is_given_until_the_search(self):
        rows = [Row(40, "Call", "A"), Row(55, "Call", "A")]
        run = MODULE.run_sequence(rows, {}, {"A": "1"}, {"A"}, given={"A": "2"})
        self.assertEqual([(row.number, state.get("A")) for row, state in run], [(40, "2"), (55, "1")])

    def test_property_that_an_action_sets(self):
        rows = [Row(60, "Set", "A"), Row(65, "Call", ""), Row(70, "Set", "A"), Row(75, "Other", "")]
        answers = {"Call": ["A", "B"], "Nobody": ["C"]}
        run = MODULE.run_sequence(rows, {}, {"A": "1", "C": "3"}, answers=answers)
        self.assertEqual([(row.number, state) for row, state in run], [(65, {}), (70, {"A": "1"}), (75, {"A": "1"})])

    def test_condition_fails(self):
        self.assertEqual(self.run_rows((10, "Set", "A"), (20, "Call", "P")), [])


if __name__ == "__main__":
    unittest.main()
