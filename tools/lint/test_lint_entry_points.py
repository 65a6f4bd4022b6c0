"""lint-entry-points.py: the list, the functions and the page name the same entry points."""

import unittest

from support import TreeTest

LIST = "src/frame/entry_points.def"
PAGE = "docs/actions.md"


def page(*names):
    rows = "".join(f"| [{name}](#{name.lower()}) | what it does |\n" for name in names)
    texts = "".join(f"\n## {name}\n\nText.\n" for name in names)
    return "# Actions\n\n| Entry point | Job |\n|---|---|\n" + rows + texts


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
            PAGE: page("CustomAction2", "CustomAction30"),
        })

    def test_agreement(self):
        self.assert_clean({})

    def test_missing_in_the_list(self):
        self.assert_found({LIST: "EXPORTS\nCustomAction2\n"},
                          f"CustomAction30: src/ defines it, but not: {LIST} lists")

    def test_missing_function(self):
        self.assert_found({"src/frame/two.cpp": 'extern "C" UINT WINAPI CustomAction2(MSIHANDLE);\n'},
                          f"CustomAction2: {LIST} lists it, but not: src/ defines")

    def test_missing_on_the_page(self):
        self.assert_found({PAGE: page("CustomAction2")},
                          f"CustomAction30: {LIST} lists it, but not: {PAGE} has the heading of, "
                          f"{PAGE} has the summary row of")

    def test_missing_row(self):
        text = page("CustomAction2", "CustomAction30").replace("| [CustomAction30]", "| CustomAction30 [")
        self.assert_found({PAGE: text}, f"CustomAction30: {LIST} lists it, but not: {PAGE} has the summary row of")

    def test_missing_heading(self):
        text = page("CustomAction2", "CustomAction30").replace("## CustomAction30", "### CustomAction30")
        self.assert_found({PAGE: text}, f"CustomAction30: {LIST} lists it, but not: {PAGE} has the heading of")

    def test_heading_in_a_code_block(self):
        text = page("CustomAction2", "CustomAction30").replace("## CustomAction30", "```\n## CustomAction30\n```")
        self.assert_found({PAGE: text}, f"CustomAction30: {LIST} lists it, but not: {PAGE} has the heading of")

    def test_row_with_another_link(self):
        text = page("CustomAction2", "CustomAction30").replace("#customaction30", "#customaction2")
        self.assert_found({PAGE: text}, f"CustomAction30: {LIST} lists it, but not: {PAGE} has the summary row of",
                          "CustomAction30#customaction2: ")

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
