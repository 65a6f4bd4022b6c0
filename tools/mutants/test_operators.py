"""The lexer and the operators: which changes of a source there are, and which there are not."""

import unittest

from mutants.lexer import bodies_of, partners_of, tokens_of
from mutants.operators import line_of, neighbours, other_characters, places_of


def changes(text):
    """All changes of a source, as (before, after)."""
    return [(change.before, change.after) for place in places_of(text) for change in place]


def changes_in(body):
    """All changes of the body of a function."""
    return changes(f"int F(int a, int b) {{ {body} }}")


class LexerTest(unittest.TestCase):
    def words(self, text):
        return [token.text for token in tokens_of(text)]

    def test_comments_and_directives_are_left_out(self):
        self.assertEqual(self.words("a // b\n/* c\n d */ e\n#define F(x) \\\n  x + 1\n  # if g // h\ni # j"),
                         ["a", "e", "i", "#", "j"])

    def test_texts_and_characters(self):
        self.assertEqual([(token.kind, token.text) for token in tokens_of(r'''L"a\"b" 'c' '\'' u8"d" R"x(e)" f)x" "/*"''')],
                         [("text", r'L"a\"b"'), ("character", "'c'"), ("character", r"'\''"), ("text", 'u8"d"'),
                          ("text", 'R"x(e)" f)x"'), ("text", '"/*"')])

    def test_numbers(self):
        self.assertEqual([token.text for token in tokens_of("0x1F'FFu 1.5e+3 10ULL a1 1-2")],
                         ["0x1F'FFu", "1.5e+3", "10ULL", "a1", "1", "-", "2"])

    def test_long_signs(self):
        self.assertEqual(self.words("a<<=b>>c->d::e&&f<=>g...h"),
                         ["a", "<<=", "b", ">>", "c", "->", "d", "::", "e", "&&", "f", "<=>", "g", "...", "h"])

    def test_places_in_the_text(self):
        text = "a /* b */ == 'c'"
        self.assertEqual([text[token.start:token.end] for token in tokens_of(text)], ["a", "==", "'c'"])

    def test_brackets_that_do_not_match(self):
        for text, message in (("(a]", r"'\(' is closed by '\]'"), ("{(a)", "'{' is not closed")):
            with self.subTest(text), self.assertRaisesRegex(ValueError, message):
                partners_of(tokens_of(text))

    def test_bodies(self):
        text = """namespace n { struct S { int a = 1; S(int b) : a{b} { c(1); } void F() const noexcept { d(2); } };
            enum class E { kOne = 3 }; int table[] = {4, 5}; auto G() -> int { return 6; }
            constexpr auto h = [](int i) { return i + 7; }; }"""
        tokens = tokens_of(text)
        found = [text[tokens[first].start:tokens[last].end] for first, last in bodies_of(tokens, partners_of(tokens))]
        self.assertEqual(found, ["{ c(1); }", "{ d(2); }", "{ return 6; }", "{ return i + 7; }"])


class OperatorsTest(unittest.TestCase):
    def assert_changes(self, body, *expected):
        found = changes_in(body)
        for change in expected:
            self.assertIn(change, found)

    def test_comparisons(self):
        for before, afters in (("<", ["<=", ">="]), ("<=", ["<", ">"]), (">", [">=", "<="]), (">=", [">", "<"]),
                               ("==", ["!="]), ("!=", ["=="])):
            with self.subTest(before):
                self.assertEqual([after for sign, after in changes_in(f"x(a {before} b);") if sign == before], afters)

    def test_arithmetic(self):
        self.assert_changes("a += b - c * d / e % f;", ("+=", "-="), ("+=", "="), ("-", "+"), ("*", "/"), ("/", "*"), ("%", "/"))
        self.assert_changes("++a; b--;", ("++", "--"), ("--", "++"))
        self.assert_changes("x(-1);", ("-", ""))
        self.assertEqual([after for before, after in changes_in("x(a - b);") if before == "-"], ["+"])

    def test_logic(self):
        self.assert_changes("x(a && b || !c);", ("&&", "||"), ("||", "&&"), ("!", ""))

    def test_operands(self):
        self.assert_changes("x(a && b || !c);", ("a && b", "a"), ("a && b", "b"), ("a && b || !c", "a && b"), ("a && b || !c", "!c"))
        self.assert_changes("if (F(a, b) && (c || d) && e[f]) return g || h ? i : j;",
                            ("F(a, b) && (c || d)", "F(a, b)"), ("F(a, b) && (c || d)", "(c || d)"), ("c || d", "c"),
                            ("(c || d) && e[f]", "e[f]"), ("g || h", "h"))
        self.assert_changes("bool k = a.b() &&\n  c; d = [] { return e; }() || f;", ("a.b() &&\n  c", "a.b()"),
                            ("[] { return e; }() || f", "f"))

    def test_bits(self):
        self.assert_changes("a |= b & c | d << e ^ ~f;", ("|=", "&="), ("|=", "="), ("&", "|"), ("|", "&"), ("<<", ">>"),
                            ("^", "|"), ("~", ""))

    def test_what_only_looks_like_an_operator(self):
        found = changes_in("const T* p = static_cast<U*>(q); V& r = *s; t->u();")
        self.assertEqual({before for before, _ in found} & {"*", "&", "<", ">", "-", "->"}, set())

    def test_constants(self):
        self.assertEqual(neighbours("7"), ("8", "6"))
        self.assertEqual(neighbours("0"), ("1", "-1"))
        self.assertEqual(neighbours("0xFFu"), ("0x100u", "0xFEu"))
        self.assertEqual(neighbours("010"), ("011", "07"))
        self.assertEqual(neighbours("1'000ULL"), ("1001ULL", "999ULL"))
        self.assertEqual(neighbours("1.5"), ())
        self.assert_changes("x(kSize, true, ERROR_SUCCESS);", ("kSize", "(kSize + 1)"), ("kSize", "(kSize - 1)"),
                            ("true", "false"), ("ERROR_SUCCESS", "(ERROR_SUCCESS + 1)"))
        self.assertEqual(changes_in("x(Job::kText, y.kSize);")[1:], [])

    def test_characters(self):
        for literal, others in (("'a'", ("'b'", r"'\0'")), ("L'Z'", ("L'['", r"L'\0'")), ("'&'", (r"'\x27'", r"'\0'")),
                                ("'['", (r"'\x5C'", r"'\0'")), (r"'\\'", ("']'", r"'\0'")), (r"'\''", ("'('", r"'\0'")),
                                (r"'\n'", (r"'\xB'", r"'\0'")), (r"'\0'", (r"'\x1'",)), (r"'\x7E'", (r"'\x7F'", r"'\0'")),
                                ("'ab'", ())):
            with self.subTest(literal):
                self.assertEqual(other_characters(literal), others)
        self.assert_changes("x('a');", ("'a'", "'b'"), ("'a'", r"'\0'"))

    def test_enumerators(self):
        text = "enum class A : int { kOne, kTwo = 2, kThree };\nint F() { x(A::kTwo, n::B::kOne, B::kMore, C::kOnly, A::Call()); }"
        self.assertEqual([(before, after) for before, after in changes(text) if before.startswith("k")],
                         [("kTwo", "kOne"), ("kTwo", "kThree"), ("kOne", "kMore"), ("kMore", "kOne")])

    def test_conditions(self):
        self.assert_changes("if (a + b) return 1;", ("a + b", "!(a + b)"))
        self.assert_changes("if (T c = d(); c) x();", ("c", "!(c)"))
        self.assert_changes("while (a(b)) x();", ("a(b)", "!(a(b))"))
        self.assert_changes("for (int i = 0; i < a; ++i) x();", ("i < a", "!(i < a)"))
        self.assert_changes("x(a, b && c ? d : e);", ("b && c", "!(b && c)"))
        self.assertNotIn("a : b", [before for before, _ in changes_in("for (auto c : b) x();")])
        self.assertNotIn(("a", "!(a)"), changes_in("if constexpr (a) x();"))

    def test_statements(self):
        self.assert_changes("x(a); y = b; ++c;", ("x(a);", ";"), ("y = b;", ";"), ("++c;", ";"))
        self.assert_changes("if (a) x(); else y();", ("x();", ";"), ("y();", ";"))
        self.assert_changes("switch (a) { case 1: x(); break; default: y(); }", ("x();", ";"), ("break;", ";"), ("y();", ";"))
        self.assert_changes("for (;;) { if (a) continue; if (b) return; x([] { y(); }); }", ("continue;", ";"), ("return;", ";"),
                            ("x([] { y(); });", ";"), ("y();", ";"))
        removed = [before for before, after in changes_in("for (a = 0; a; ++a) x(); constexpr int b = 1;") if after == ";"]
        self.assertEqual(removed, ["x();"])

    def test_values(self):
        self.assert_changes("return a.b;", ("a.b", "{}"), ("a.b", "!(a.b)"), ("a.b", "(a.b) + 1"))
        self.assertEqual(changes_in("return true;"), [("true", "false")])

    def test_null_becomes_an_address_of_the_type_that_is_returned(self):
        for text, afters in (("const char* F(int a) { return nullptr; }", ["reinterpret_cast<const char*>(8)"]),
                             ("x(); inline n::T<A>* C::F() const { return nullptr; }", ["reinterpret_cast<n::T<A>*>(8)"]),
                             ("template <auto N, typename C>\nC* F() { return nullptr; }", ["reinterpret_cast<C*>(8)"]),
                             ("static T<A, B>* F() { return nullptr; }", ["reinterpret_cast<T<A, B>*>(8)"]),
                             ("static T** F() noexcept { if (a) { return nullptr; } }", ["reinterpret_cast<T**>(8)"]),
                             ("Owner F() { return nullptr; }", []), ("auto f = [](int a) { return nullptr; };", [])):
            with self.subTest(text):
                self.assertEqual([after for before, after in changes(text) if before == "nullptr"], afters)

    def test_only_bodies_are_changed(self):
        text = """// a + 1
            #define A 1 + 1
            constexpr int kSize = 1 + 1;
            struct S { int a = 2; };
            char Kind(char c = '3') { return g("5 + 6"); }"""
        self.assertEqual({before for before, _ in changes(text)}, {"g(\"5 + 6\")"})

    def test_a_change_is_applied_where_it_was_found(self):
        text = "int F(int a) {\n  // a < 1\n  return a < 1 && a < 1;\n}\n"
        found = [change for place in places_of(text) for change in place if (change.before, change.after) == ("<", "<=")]
        self.assertEqual([change.apply(text).splitlines()[2].strip() for change in found],
                         ["return a <= 1 && a < 1;", "return a < 1 && a <= 1;"])
        self.assertEqual({line_of(text, change.start) for change in found}, {3})


if __name__ == "__main__":
    unittest.main()
