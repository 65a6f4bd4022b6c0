"""lint-entry-points.py: the list, the functions and the page name the same entry points."""

import unittest

from support import TreeTest

LIST = "src/frame/entry_points.def"
PAGE = "docs/actions.md"
FIRST, SECOND = "docs/actions/first.md", "docs/actions/second.md"


def index(**pages):
    """The index; `pages` say where each entry point has its section."""
    rows = "".join(f"| [{name}](actions/{page}.md#{name.lower()}) | what it does |\n" for name, page in pages.items())
    return "# Actions\n\n| Entry point | Job |\n|---|---|\n" + rows


def section(name):
    return f"# Actions of a kind\n\n## {name}\n\nText.\n"


class EntryPointsTest(TreeTest):
    script = "lint/lint-entry-points.py"

    def setUp(self):
        super().setUp()
        self.write({
            LIST: "; CustomAction9 is a comment.\nEXPORTS\nCustomAction2\nCustomAction30\n",
            "src/frame/two.cpp": 'extern "C" UINT WINAPI CustomAction2(MSIHANDLE) {\n  return 0;\n}\n',
            "src/server/thirty.cpp": '// CustomAction7(x) {}\n'
                                      'extern "C" UINT WINAPI CustomAction30(MSIHANDLE session);\n'
                                      'extern "C" UINT WINAPI CustomAction30(MSIHANDLE session) {\n'
                                      '  Log("CustomAction8() {"); CustomAction2(session); return 0;\n}\n',
            PAGE: index(CustomAction2="first", CustomAction30="second"),
            FIRST: section("CustomAction2"),
            SECOND: section("CustomAction30"),
        })

    def test_agreement(self):
        self.assert_clean({})

    def test_missing_in_the_list(self):
        self.assert_found({LIST: "EXPORTS\nCustomAction2\n"},
                          f"CustomAction30: src/ defines it, but not: {LIST} lists")

    def test_missing_function(self):
        self.assert_found({"src/frame/two.cpp": 'extern "C" UINT WINAPI CustomAction2(MSIHANDLE);\n'},
                          f"CustomAction2: {LIST} lists it, but not: src/ defines")

    def test_missing_on_the_pages(self):
        self.assert_found({PAGE: index(CustomAction2="first"), SECOND: "# Nothing\n"},
                          f"CustomAction30: {LIST} lists it, but not: docs/actions has the heading of, "
                          f"{PAGE} has the summary row of")

    def test_missing_row(self):
        self.assert_found({PAGE: index(CustomAction2="first")},
                          f"CustomAction30: {LIST} lists it, but not: {PAGE} has the summary row of")

    def test_missing_heading(self):
        self.assert_found({SECOND: section("CustomAction30").replace("## ", "### ")},
                          f"CustomAction30: {LIST} lists it, but not: docs/actions has the heading of")

    def test_heading_in_a_code_block(self):
        self.assert_found({SECOND: "```\n## CustomAction30\n```\n"},
                          f"CustomAction30: {LIST} lists it, but not: docs/actions has the heading of")

    def test_row_with_another_link(self):
        text = index(CustomAction2="first", CustomAction30="second").replace("#customaction30", "#customaction2")
        self.assert_found({PAGE: text}, f"CustomAction30: {LIST} lists it, but not: {PAGE} has the summary row of",
                          "CustomAction30 with a link to actions/second.md#customaction2: ")

    def test_row_with_another_page(self):
        text = index(CustomAction2="first", CustomAction30="first")
        self.assert_found({PAGE: text}, f"CustomAction30: {LIST} lists it, but not: {PAGE} has the summary row of",
                          "CustomAction30 with a link to actions/first.md#customaction30: ")

    def test_two_sections(self):
        self.assert_found({FIRST: section("CustomAction2") + section("CustomAction30")},
                          "docs/actions has the heading of CustomAction30 2 times")

    def test_additional_function(self):
        self.assert_found({"src/client/four.cpp": "UINT CustomAction4(MSIHANDLE session) { return 0; }\n"},
                          f"CustomAction4: src/ defines it, but not: {LIST} lists, ")

    def test_named_twice(self):
        self.assert_found({LIST: "EXPORTS\nCustomAction2\nCustomAction30\nCustomAction2\n"},
                          f"{LIST} lists CustomAction2 2 times")

    def test_no_page(self):
        (self.root / PAGE).unlink()
        code, lines = self.lint()
        self.assertEqual(code, 1)
        self.assertIn(f"{PAGE} does not exist", lines)


if __name__ == "__main__":
    unittest.main()
