"""lint-doc-comments.py: finds every kind of declaration without a doc comment, and none with one."""

import unittest

from support import TreeTest, load_script

lint = load_script("lint/lint-doc-comments.py")
HEAD = "// A header.\n#pragma once\n\n"

# Declarations, each with its name in the message if it is not documented.
DECLARATIONS = [
    ("int Count(const char* text);", "function Count"),
    ("inline int Count(const char* text) { return text ? 1 : 0; }", "function Count"),
    ("const char* Name(int a = Least(1, 2), int (*call)(int) = nullptr);", "function Name"),
    ("auto Name(int a) -> Pair<int, char>;", "function Name"),
    ("Pair<int, Pair<int, char>> Name();", "function Name"),
    ("struct Thing* MakeThing(int kind);", "function MakeThing"),
    ("struct Thing* MakeThing(int kind) { return nullptr; }", "function MakeThing"),
    ("enum Kind KindOf(struct Thing* thing);", "function KindOf"),
    ("template <typename T, auto F = Least<int, 3>>\nT Least(T a, T b);", "function Least"),
    ("template <typename T>\n  requires (sizeof(T) < 8)\nT Least(T a, T b) { return a; }", "function Least"),
    ("template <typename T>\n  requires Small<T>\nT Least(T a, T b);", "function Least"),
    ("[[nodiscard]] int Count();", "function Count"),
    ('__attribute__((naked, section(".x"))) void Bare();', "function Bare"),
    ('extern "C" int WINAPI Linked(int a);', "function Linked"),
    ("constexpr bool operator==(Id a, Id b) { return a.n == b.n; }", "function operator=="),
    ("constexpr int kSize = 4;", "'kSize'"),
    ("constexpr char kText[] = \"a;{\";", "'kText'"),
    ("inline constexpr Rows kRows[] = {{1, 2}, {3, 4}};", "'kRows'"),
    ("constexpr Pair kPair{1, 2};", "'kPair'"),
    ("extern int counter;", "'counter'"),
    ("template <int N>\ninline constexpr Place kArgument{N};", "'kArgument'"),
    ("constexpr auto kCall = [](int a) { return a; };", "'kCall'"),
    ("using Bytes = unsigned char*;", "alias Bytes"),
    ("template <typename T>\nusing Block = Unique<Traits<T>>;", "alias Block"),
    ("typedef unsigned char* Bytes;", "alias Bytes"),
    ("template <typename T>\nconcept Small = sizeof(T) <= 8;", "concept Small"),
    ("struct Empty {};", "type Empty"),
    ("class Empty final : public Base<int(char)>, private Other {};", "type Empty"),
    ("union Empty {};", "type Empty"),
    ("enum class Kind : unsigned {};", "type Kind"),
    ("struct alignas(16) Empty {};", "type Empty"),
    ('struct __declspec(uuid("00000000-0000-0000-0000-000000000000")) ITrigger : IUnknown {};', "type ITrigger"),
    ('MIDL_INTERFACE("00000000-0000-0000-0000-000000000000")\nITrigger : public IUnknown {};', "type ITrigger"),
    ("template <typename T>\nclass Box<T*> {};", "type Box"),
    ("#define HX_SIZE 4", "macro HX_SIZE"),
    ("#  define HX_CALL(a, b) \\\n  Call(a, \\\n       b)", "macro HX_CALL"),
    ("HX_DECLARE(Thing);", "function HX_DECLARE"),
    ("namespace short_name = a::b;", "namespace alias short_name"),
]

# The same inside "struct Thing { ... };".
MEMBERS = [
    ("int count;", "'count'"),
    ("int count = 0, other = 1;", "'count'"),
    ("unsigned flag : 3;", "'flag'"),
    ("char bytes[8];", "'bytes'"),
    ("char bytes[8]{};", "'bytes'"),
    ("Pair<int, char> pair = {1, 'a'};", "'pair'"),
    ("static constexpr int kSize = 4;", "'kSize'"),
    ("int (*call)(int a);", "'call'"),
    ("Object* (WINAPI* const Retain)(Object* object) = nullptr;", "'Retain'"),
    ("char (&bytes)[8];", "'bytes'"),
    ("explicit Thing(int a) : a_{a}, b_(a) { Start(); }", "method Thing"),
    ("Thing(const Thing& other, int count);", "method Thing"),
    ("Thing();", "method Thing"),
    ("int Count() const noexcept { return count_; }", "method Count"),
    ("virtual int Count() = 0;", "method Count"),
    ("explicit operator bool() const;", "method operatorbool"),
    ("int operator()(int a) const;", "method operator()"),
    ("int operator[](int a) const { return a; }", "method operator[]"),
    ("bool operator=(int a);", "method operator="),
    ("using Value = int;", "alias Value"),
    ("struct Inner {};", "type Inner"),
    ("enum Inner {};", "type Inner"),
    ("struct {} inner;", "type without a name"),
    ("template <typename T>\nT As() const;", "method As"),
]

EXEMPT = [
    "class Thing;", "struct Thing;", "enum class Kind : unsigned;", "template <typename T>\nclass Box;",
    "static_assert(sizeof(int) == 4);", "using namespace a;", "using a::b;", ";",
    "template <typename T>\nvoid Box<T>::Fill(T a) { a_ = a; }", "#undef HX_SIZE", "#include <windows.h>",
]

EXEMPT_MEMBERS = [
    "~Thing();", "virtual ~Thing() { Close(); }", "Thing(const Thing&) = delete;", "Thing() = default;",
    "Thing(const Thing& other) : a_(other.a_) {}", "Thing(Thing&& other);", "Thing& operator=(const Thing& other);",
    "Thing& operator=(Thing&&) { return *this; }", "friend class Other;",
    "friend int Count(Thing* thing) { return 1; }",
    "public:", "void SetUp() override;", "int Count() const override { return 1; }",
]


def found(text):
    return [what for _, what in lint.Header(text).read()]


class DocCommentsTest(unittest.TestCase):
    def assert_each(self, pairs, around=HEAD + "%s"):
        for code, what in pairs:
            with self.subTest(code):
                # Alone, and before a documented declaration, whose comment must not count.
                self.assertEqual(found(around % code), [f"{what} has no doc comment"])
                after = "\n/// Documented.\nint Following();"
                self.assertEqual(found(around % (code + after)), [f"{what} has no doc comment"])
                before = "/// Documented.\nint Preceding();\n"
                self.assertEqual(found(around % (before + code)), [f"{what} has no doc comment"])
                self.assertEqual(found(around % (before + "/// What\n/// it is.\n" + code + after)), [])
                self.assertEqual(found(around % ("/** What it is. */\n" + code)), [])
                self.assertEqual(found(around % ("// Not for readers.\n" + code)), [f"{what} has no doc comment"])
                self.assertEqual(found(around % ("/// Too far away.\n\n" + code)), [f"{what} has no doc comment"])

    def test_declarations(self):
        self.assert_each(DECLARATIONS)

    def test_declarations_in_namespaces_and_linkage(self):
        plain = [pair for pair in DECLARATIONS if not pair[0].startswith("#")]
        self.assert_each(plain, HEAD + "namespace a::b {\nnamespace {\n%s\n}\n}  // namespace\n")
        self.assert_each(plain, HEAD + 'extern "C" {\n%s\n}\n')

    def test_members(self):
        for key in ("struct Thing", "class Thing : public Base", "template <typename T>\nstruct Thing<T(int)>"):
            access = "public:\n" if "class T" in key else ""
            self.assert_each(MEMBERS, HEAD + "namespace a {\n/// A thing.\n" + key + " {\n" + access + "%s\n};\n}\n")

    def test_trailing_comments(self):
        for code, what in [("int count;", "'count'"), ("int Count();", "method Count"), ("struct { int a; } b;", None)]:
            text = HEAD + "/// A thing.\nstruct Thing {\n" + code + "  ///< what it is\n};\n"
            self.assertEqual(found(text), [] if what else ["'a' has no doc comment"])
            self.assertEqual(len(found(text.replace("///<", "//"))), 1 if what else 2)
            self.assertEqual(len(found(text.replace("///<", "///"))), 1 if what else 2)

    def test_doc_of_one_line_does_not_count_for_the_next(self):
        text = HEAD + "/// A thing.\nstruct Thing {\nint a;  ///< first\nint b;\nint c;  /// third\nint d;\n};\n"
        self.assertEqual(found(text), [f"'{name}' has no doc comment" for name in "bcd"])

    def test_enumerators(self):
        text = HEAD + ("/// Kinds.\nenum class Kind : int {\n  kA,\n  kB,  ///< b\n  /// c\n  kC = Value({1, 2}),\n"
                       "  kD = 4,\n  kE [[deprecated]]  ///< e\n};\n")
        self.assertEqual(found(text), ["enumerator kA has no doc comment", "enumerator kD has no doc comment"])
        text = HEAD + "/// Kinds.\nenum Kind { kA, kB };\n"
        self.assertEqual(found(text), ["enumerator kA has no doc comment", "enumerator kB has no doc comment"])

    def test_members_of_nested_and_unnamed_types(self):
        text = HEAD + ("/// A thing.\nstruct Thing {\n  /// Inner.\n  struct Inner {\n    int a;\n  } inner;\n"
                       "  union {\n    int b;\n    char c;  ///< c\n  };\n};\n"
                       "/// D.\ntypedef struct {\n  int d;\n} D;\n")
        self.assertEqual(found(text), ["'a' has no doc comment", "'b' has no doc comment", "'d' has no doc comment"])

    def test_private_parts(self):
        text = HEAD + ("/// A thing.\nclass Thing {\n  int hidden;\n  int (*call_)(int);\n public:\n  int shown;\n"
                       " private:\n  int again;\n"
                       "  void Work();\n  /// Inner.\n  struct Inner {\n    int deep;\n  };\n};\n")
        self.assertEqual(found(text), ["'shown' has no doc comment", "method Work has no doc comment"])

    def test_specialisation_of_a_documented_type(self):
        text = "template <typename T>\nclass Box;\n\ntemplate <typename R, typename... A>\nclass Box<R (*)(A...)> {};\n"
        self.assertEqual(found(HEAD + text), ["type Box has no doc comment"])
        self.assertEqual(found(HEAD + "/// A box.\n" + text), [])

    def test_exempt(self):
        for code in EXEMPT:
            with self.subTest(code):
                self.assertEqual(found(HEAD + code + "\n"), [])
                self.assertEqual(found(HEAD + code + "\nint Next();\n"), ["function Next has no doc comment"])

    def test_exempt_members(self):
        for code in EXEMPT_MEMBERS:
            with self.subTest(code):
                text = HEAD + "/// A thing.\nstruct Thing {\n" + code + "\nint next;\n};\n"
                self.assertEqual(found(text), ["'next' has no doc comment"])

    def test_the_header_itself(self):
        self.assertEqual(found("#pragma once\n"), ["the header does not begin with a comment that says what it is"])
        self.assertEqual(found("// A header.\n"), ["the header has no '#pragma once'"])

    def test_lines(self):
        findings = lint.Header(HEAD + "/* a\n b */\nint\nCount();\n").read()
        self.assertEqual(findings, [(6, "function Count has no doc comment")])


class DocCommentsTree(TreeTest):
    script = "lint/lint-doc-comments.py"

    def test_which_files(self):
        bare = HEAD + "int Count();\n"
        self.assert_found({"src/base/a.h": bare, "tests/rig/b.h": bare, "tests/unit/c.h": bare, "src/base/d.cpp": bare},
                          "src/base/a.h:4: function Count", "tests/rig/b.h:4: function Count")


if __name__ == "__main__":
    unittest.main()
