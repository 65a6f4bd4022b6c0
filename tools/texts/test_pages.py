"""The links of all pages are checked, and a page that no link leads to is found."""

from support import TreeTest

PAGES = {"README.md": "# Start\n\n[guide](docs/guide.md#first-steps)\n[site](https://example.com/gone.md)\n",
         "docs/guide.md": "# Guide\n\n## First steps\n\n[back](../README.md), [here](#guide), [file](list.txt)\n",
         "docs/list.txt": "one\n"}


class PagesTest(TreeTest):
    script = "texts/check-pages.py"

    def test_links_that_lead_somewhere(self):
        self.assert_clean(PAGES)

    def test_blocks_of_code_have_no_links(self):
        self.assert_clean({**PAGES, "docs/guide.md": PAGES["docs/guide.md"] + "\n```\n[x](gone.md)\n```\n"})

    def test_a_file_that_is_not_there(self):
        self.assert_found({**PAGES, "docs/guide.md": "# Guide\n## First steps\n[x](gone.md) [y](gone.md#z)\n"},
                          "docs/guide.md: there is no gone.md", "docs/guide.md: there is no gone.md")

    def test_a_heading_that_is_not_there(self):
        self.assert_found({**PAGES, "docs/guide.md": "# Guide\n[x](../README.md#end) [y](#end)\n"},
                          "README.md: docs/guide.md has no heading for #first-steps",
                          "docs/guide.md: the page has no heading for #end",
                          "docs/guide.md: ../README.md has no heading for #end")

    def test_a_page_that_nothing_leads_to(self):
        self.assert_found({**PAGES, "docs/lost.md": "[guide](guide.md)\n", "CHANGELOG.md": "# Changes\n"},
                          "CHANGELOG.md: no link leads here from README.md",
                          "docs/lost.md: no link leads here from README.md")

    def test_no_first_page(self):
        self.assert_found({}, "README.md does not exist")
