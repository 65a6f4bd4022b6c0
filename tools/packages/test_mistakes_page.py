"""mistakes-page.py: the page has the table of the mistakes, and nothing in a message breaks it."""

from unittest import mock

from packages.mistakes import Mistake
from support import TreeTest

PAGE = "docs/package-mistakes.md"
PARTS = "before\n<!-- generated: mistakes -->\n{}<!-- end of mistakes -->\nafter\n"
TWO = [Mistake("forgot it", "a.wxs", [], "compile", ["Write <A B=\"[C]\"/> | or *."], "Write `A`."),
       Mistake("did it", "a.wxs", [], "check", ["One.", "Two."], "Leave it.")]
TABLE = """\
| The author | Found by | Message | What to do |
|---|---|---|---|
| forgot it | the compilers | Write &lt;A B="[C]"/> &#124; or &#42;. | Write `A`. |
| did it | the check | One.<br>Two. | Leave it. |
"""


class PageTest(TreeTest):
    script = "packages/mistakes-page.py"

    def setUp(self):
        super().setUp()
        patch = mock.patch.object(self.module, "MISTAKES", TWO)
        patch.start()
        self.addCleanup(patch.stop)

    def test_right(self):
        self.assert_clean({PAGE: PARTS.format(TABLE)})

    def test_out_of_date(self):
        self.assert_found({PAGE: PARTS.format(TABLE.replace("Two.", "Three."))},
                          f"{PAGE}: the table is out of date: run tools/packages/mistakes-page.py --write")

    def test_write(self):
        self.write({PAGE: PARTS.format("old\n")})
        self.assertEqual(list(self.module.findings(self.root, True)), [])
        self.assertEqual((self.root / PAGE).read_text(encoding="utf-8"), PARTS.format(TABLE))

    def test_page_without_the_part(self):
        self.assert_found({PAGE: "nothing\n"}, f"{PAGE}: has the generated part mistakes 0 times")
        self.assert_found({PAGE: PARTS.format("") * 2}, f"{PAGE}: has the generated part mistakes 2 times")

    def test_no_page(self):
        self.assert_found({}, f"{PAGE} does not exist")
