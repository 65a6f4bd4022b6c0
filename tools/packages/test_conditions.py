"""conditions.py: the grammar of the engine's conditions, their values, and what follows from what."""

import unittest

from packages.conditions import ConditionError, Fact, Logic, Not, Value, implies, is_met, names_of, parse

A, B, C, D = (Fact(Value("name", name)) for name in "ABCD")


def compared(operator, right):
    return Fact(Value("name", "A"), operator, right)


class ParserTest(unittest.TestCase):
    def test_values(self):
        self.assertEqual(parse("A"), A)
        self.assertEqual(parse('"A B"'), Fact(Value("text", "A B")))
        self.assertEqual(parse("-7"), Fact(Value("number", -7)))
        for name in ("%PATH", "$Part", "?Part", "&Feature.1", "!Feature", "_a.b9"):
            self.assertEqual(parse(name), Fact(Value("name", name)))

    def test_empty_is_true(self):
        for text in ("", "  ", None):
            self.assertEqual(is_met(parse(text), {}), True)

    def test_operators(self):
        for operator in ("=", "<>", "<", ">", "<=", ">=", "><", "<<", ">>"):
            for text in (operator, f"~{operator}"):
                self.assertEqual(parse(f'A{text}"x"'), compared(text, Value("text", "x")))
                self.assertEqual(parse(f"A {text} 3"), compared(text, Value("number", 3)))

    def test_text_has_no_escapes(self):
        self.assertEqual(parse('A = "\\"'), compared("=", Value("text", "\\")))
        self.assertEqual(parse('A = "[B]"'), compared("=", Value("text", "[B]")))
        self.assert_refused('A = "x""y"', "an operator is missing before y")

    def test_words_bind_in_their_order(self):
        """NOT binds most tightly, then AND, OR, XOR, EQV and IMP."""
        self.assertEqual(parse("NOT A AND B"), Logic("AND", Not(A), B))
        for loose, tight in zip(("IMP", "EQV", "XOR", "OR"), ("EQV", "XOR", "OR", "AND")):
            self.assertEqual(parse(f"A {loose} B {tight} C"), Logic(loose, A, Logic(tight, B, C)))
            self.assertEqual(parse(f"A {tight} B {loose} C"), Logic(loose, Logic(tight, A, B), C))
        self.assertEqual(parse("A or b and C"), Logic("OR", A, Logic("AND", Fact(Value("name", "b")), C)))

    def test_the_same_word_from_the_left(self):
        self.assertEqual(parse("A IMP B IMP C"), Logic("IMP", Logic("IMP", A, B), C))

    def test_brackets(self):
        self.assertEqual(parse("(A OR B) AND NOT (C OR (D))"), Logic("AND", Logic("OR", A, B), Not(Logic("OR", C, D))))

    def assert_refused(self, text, message):
        with self.assertRaises(ConditionError) as caught:
            parse(text)
        self.assertEqual(str(caught.exception), message)

    def test_what_is_not_a_condition(self):
        for text, message in {
                'A = "x': "a quotation mark is not closed", "A AND": "it ends too early", "NOT": "it ends too early",
                "A =": "it ends too early", "(A": "a bracket is not closed", "A)": "an operator is missing before )",
                "(A B)": "an operator is missing in brackets", "A B": "an operator is missing before B",
                "A == B": "= is in a wrong place", "A = B = C": "an operator is missing before =",
                "AND A": "AND is in a wrong place", '[A] = "1"': "a property is written without square brackets",
                "A != 1": "the operator for other values is <>", "A && B": "the word is AND", "A || B": "the word is OR",
                "A = 1.5": "1.5 is not a name, a number, a text in quotation marks or an operator",
                "A ~ B": "~ is not a name, a number, a text in quotation marks or an operator"}.items():
            with self.subTest(text):
                self.assert_refused(text, message)

    def test_names(self):
        self.assertEqual(names_of(parse('A AND NOT ($B = 3 OR "C" ~= D OR %E OR A)')), ["A", "D"])


class ValueTest(unittest.TestCase):
    def test_known(self):
        self.assertTrue(is_met(parse('A ~= "X" AND NOT B'), {"A": "x", "B": ""}))
        self.assertFalse(is_met(parse('A = "X"'), {"A": "x"}))
        self.assertTrue(is_met(parse('A >< "b" AND A << "a" AND A >> "c"'), {"A": "abc"}))
        self.assertTrue(is_met(parse("A >= 10"), {"A": "10"}))

    def test_unknown(self):
        self.assertIsNone(is_met(parse("A"), {}))
        self.assertIsNone(is_met(parse("NOT A"), {}))
        self.assertTrue(is_met(parse("A OR NOT B"), {"B": ""}))
        self.assertFalse(is_met(parse("A AND B"), {"B": ""}))
        self.assertTrue(is_met(parse("A IMP B"), {"B": "1"}))
        self.assertIsNone(is_met(parse("A XOR B"), {"B": "1"}))


class FollowsTest(unittest.TestCase):
    def follows(self, first, *others):
        return implies(parse(first), [parse(other) for other in others])

    def test_follows(self):
        for first, *others in (("A", "A"), ("A AND B", "A"), ("A", ""), ("A OR B", "A", "B"), ("A", "NOT B", "B"),
                               ('REMOVE ~= "ALL"', "Installed"), ('REMOVE = "ALL"', 'REMOVE ~= "ALL"'), ("REINSTALL", "Installed"),
                               ("NOT Installed", 'NOT (REMOVE ~= "ALL")'), ('A = "x"', "A"), ("A AND 0", "B")):
            with self.subTest((first, others)):
                self.assertTrue(self.follows(first, *others))

    def test_does_not_follow(self):
        for first, *others in (("A", "B"), ("A", "A AND B"), ("", "A"), ("A OR B", "A"), ("A", ), ("A", "0"),
                               ('NOT (REMOVE ~= "ALL")', "NOT Installed"), ("Installed", 'REMOVE ~= "ALL"'), ("A", 'A = "x"')):
            with self.subTest((first, others)):
                self.assertFalse(self.follows(first, *others))


if __name__ == "__main__":
    unittest.main()
