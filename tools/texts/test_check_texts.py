"""check-texts.py: what the sources say, and what it finds when page, sources and libraries differ."""

import tempfile
import unittest
import unittest.mock
from pathlib import Path
from types import SimpleNamespace

from support import TOOLS, load_script

check_texts = load_script("texts/check-texts.py")

OTHER_TEXTS = {
    "properties": r"PROP_\w+|ProductName",
    "files and folders": r"a\ file\.txt|Sub\0b\.txt\0",
}

SOURCES = {
    "src/frame/session.cpp": r"""
        #include "frame/session.h"
        int LogSetupMessage(MSIHANDLE session, const char* format, ...) {
          MsiRecordSetStringA(record, 0, "Hx Setup Log: [1]");  // "no text"
          return 0;
        }
        void LogSetupTextW(MSIHANDLE session, const wchar_t* text) { Put(L"JN Setup Log: [1]"); }
        """,
    "src/frame/session.h": r"""
        #pragma once
        extern "C" {
        /// Logs "a text".
        int LogSetupMessage(MSIHANDLE session, const char* format, ...);
        void LogSetupTextW(MSIHANDLE session, const wchar_t* text);
        }
        """,
    "src/frame/notice.cpp": r"""
        namespace {
        constexpr char kTitle[] = "Halvorstead Vantor Platform Component";
        }
        """,
    "src/client/job.h": r"""
        enum JobStep : int {
          kStepOpen = -2,  ///< one
          kStepRead = -3,
        };
        extern "C" {
        int RunJob(MSIHANDLE session);
        }
        """,
    "src/client/job.cpp": r"""
        #include "client/job.h"
        namespace {
        void Report(MSIHANDLE session, int status) {
          LogSetupMessage(session, "job failed:  %ld (%ls)", status, L"PROP_A");
        }
        }  // namespace
        int RunJob(MSIHANDLE session) {
          Report(session, kStepOpen);
          return 0;
        }
        """,
    "src/client/one.cpp": r"""
        #include "client/job.h"
        namespace {
        constexpr Notice kOver = {25000, kType,
                                  "The job is over.\n"
                                  "Look.", 0};
        struct Shape {
          const char* failure;
        };
        constexpr Shape kShape = {"shape %ld " "failed"};
        void Report(MSIHANDLE session) { SendNotice(session, &kOver); }
        }  // namespace
        extern "C" UINT WINAPI CustomAction1(MSIHANDLE session) {
          const Shape& shape = kShape;
          if (RunJob(session)) LogSetupMessage(session, shape.failure, 5);
          Report(session);
          return ERROR_INSTALL_FAILURE;
        }
        """,
    "src/client/two.cpp": r"""
        extern "C" UINT WINAPI CustomAction2(MSIHANDLE session) {
          HeapStringW name(ReadPropertyW(session, L"PROP_B"));
          object->Report(session);
          Open("a file.txt");
          OpenAll("Sub\0b.txt\0");
          return RunJob(session);
        }
        """,
    "packages/job.wxi": r"""
        <Include><UI><Error Id="25000">All &quot;is&quot; over.</Error></UI><CustomAction Id="Refuse" Error="Not &quot;here&quot;:
            nothing was changed."/>
        </Include>
        """,
    "docs/authoring.md": """# Guide

## By the library

| Name | What it is | Action |
|---|---|---|
| `a file.txt` | a file | [2](actions.md#customaction2) |
| `Sub` | a folder, with `b.txt` | [2](actions.md#customaction2) |

## Elsewhere

| Name |
|---|
| `c.txt` |
""",
    "src/base/names.cpp": r"""
        constexpr char kPattern[] = "not of the log";
        """,
}

PAGE = """# Page

`Hx Setup Log: `, `JN Setup Log: `, `Halvorstead Vantor Platform Component`, [codes](#the-jobs-codes)

| Line | Actions | Meaning |
|---|---|---|
| `job failed:  N (NAME)` | 1, 2 | it failed |
| `shape N failed` | 1 | it failed |

## The job's codes

| Code | Meaning |
|---|---|
| -2 | one |
| -3 | two |

| Notice | Actions |
|---|---|
| 25000 | 1 |

## Notice 25000

```text
The job is over.
Look.
```

```text
All "is" over.
```

## Texts with which a package refuses

```text
Not "here": nothing was changed.
```

| Action | Returns |
|---|---|
| `CustomAction1` | 0, 1603 |
| `CustomAction2` | 0 |
"""

LIBRARY_TEXTS = ["job failed:  %ld (%ls)", "shape %ld failed", "The job is over.\nLook.", "Hx Setup Log: [1]",
                 "Halvorstead Vantor Platform Component", "not of the log", "a file.txt"]
WIDE_TEXTS = ["JN Setup Log: [1]", "PROP_A"]


class TextsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-texts-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.sources = dict(SOURCES)
        self.page = PAGE
        self.texts = list(LIBRARY_TEXTS)
        self.wide_texts = list(WIDE_TEXTS)
        tables = {"The job's codes": [("src/client/job.h", "JobStep")]}
        self.addCleanup(setattr, check_texts, "CODE_TABLES", check_texts.CODE_TABLES)
        check_texts.CODE_TABLES = tables

    def edit(self, file, old, new):
        """Replaces a text of a source that must be there once."""
        self.assertEqual(self.sources[file].count(old), 1)
        self.sources[file] = self.sources[file].replace(old, new)

    def edit_page(self, old, new):
        self.assertEqual(self.page.count(old), 1)
        self.page = self.page.replace(old, new)

    def image(self):
        data = b"\x01\x90" + b"".join(text.encode() + b"\0" for text in self.texts) + b"\0\xff\0"
        data += b"".join(text.encode("utf-16-le") + b"\0\0" for text in self.wide_texts)
        section = SimpleNamespace(name=".rdata", raw_offset=4, size=len(data))
        code = SimpleNamespace(name=".text", raw_offset=4 + len(data), size=24)
        return SimpleNamespace(folder=Path("x64"), sections=[section, code],
                               bytes=b"MZ\0\0" + data + b"it is code, no text at\0\0")

    def findings(self):
        for path, text in {**self.sources, check_texts.PAGE: self.page}.items():
            path = self.root / path
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
        check = check_texts.Check(self.root, [self.image()], OTHER_TEXTS)
        return [f"{name}: {finding}" for name, function in check.CHECKS.items() for finding in function(check)]

    def assert_found(self, *expected):
        """It finds exactly these; each is a part of a finding, in order."""
        findings = self.findings()
        self.assertEqual(len(findings), len(expected), findings)
        for finding, text in zip(findings, expected):
            self.assertIn(text, finding)

    def test_all_is_well(self):
        self.assert_found()

    # The lines.

    def test_line_that_the_page_lacks(self):
        self.edit_page("| `shape N failed` | 1 | it failed |\n", "")
        self.assert_found("'shape %ld failed' is not on the page")

    def test_line_with_another_blank(self):
        self.edit_page("`job failed:  N", "`job failed: N")
        self.assert_found("`job failed: N (NAME)` is no line", "'job failed:  %ld (%ls)' is not on the page")

    def test_line_that_the_library_lacks(self):
        self.edit_page("| `shape", "| `job started` | 1 | it began |\n| `shape")
        self.assert_found("`job started` is no line of the library")

    def test_line_that_is_twice_on_the_page(self):
        self.edit_page("| `shape", "| `job failed:  N (USER)` | 1, 2 | it failed |\n| `shape")
        self.assert_found("`job failed:  N (USER)` is in line 7 already")

    def test_line_that_is_no_code(self):
        self.edit_page("`shape N failed`", "shape N failed")
        self.assert_found("shape N failed is no line", "'shape %ld failed' is not on the page")

    def test_word_of_another_conversion(self):
        self.edit_page("N (NAME)", "NAME (N)")
        self.assert_found("is no line of the library", "is not on the page")

    def test_new_line_in_a_source(self):
        self.edit("src/client/two.cpp", "Open(", 'LogSetupMessage(session, "opening");\n          Open(')
        self.texts.append("opening")
        self.assert_found("src/client/two.cpp:5: 'opening' is not on the page")

    def test_new_text_that_is_no_line(self):
        self.edit("src/client/two.cpp", "a file.txt", "b file.txt")
        self.texts[-1] = "b file.txt"
        self.assert_found("'b file.txt' is not on the page", "'a file.txt' is not a name of the library")

    def test_group_without_a_text(self):
        with unittest.mock.patch.dict(OTHER_TEXTS, {"nothing": "Gone"}):
            self.assert_found("'nothing': no text of the sources is of this group")

    def test_line_that_counts_as_something_else(self):
        self.edit("src/client/two.cpp", "Open(", 'LogSetupTextW(session, L"PROP_C");\n          Open(')
        self.assert_found("'PROP_C' goes to the log, and counts as something else")

    def test_conversion_without_a_word(self):
        self.edit("src/client/one.cpp", "shape %ld ", "shape %lu ")
        self.texts[1] = "shape %lu failed"
        self.assert_found("no word for a conversion of 'shape %lu failed'", "`shape N failed` is no line",
                          "'shape %lu failed' is not on the page")

    # Who writes them.

    def test_writers(self):
        self.edit_page("| 1, 2 | it failed", "| 1 | it failed")
        self.assert_found("the line is written by 1, 2")

    def test_new_writer(self):
        self.edit("src/client/two.cpp", "return RunJob(session)", "return 0")
        self.assert_found("the line is written by 1")

    # The marks, the title, the notices.

    def test_fixed_texts(self):
        self.edit_page("`JN Setup Log: `", "JN Setup Log")
        self.assert_found("`JN Setup Log: ` is missing")

    def test_text_of_a_box(self):
        self.edit_page("over.\nLook", "over. Look")
        self.assert_found("below 'Notice 25000' must stand the text of src/client/one.cpp:4")

    def test_text_of_a_package(self):
        self.edit("packages/job.wxi", "over.", "over")
        self.assert_found("below 'Notice 25000' must stand")

    def test_notice_without_a_text_of_a_package(self):
        self.edit("packages/job.wxi", "25000", "25001")
        self.assert_found("no fragment has a text for notice 25000")

    def test_text_of_a_refusal(self):
        self.edit("packages/job.wxi", "nothing was", "nothing is")
        self.assert_found('is missing: Not "here": nothing is changed.', 'no package says: Not "here": nothing was changed.')

    def test_number_of_a_notice(self):
        self.edit_page("| 25000 |", "| 25001 |")
        self.assert_found("notice 25000, sent by 1, is not in the table", "there is no notice 25001")

    def test_sender_of_a_notice(self):
        self.edit("src/client/one.cpp", "          Report(session);\n", "")
        self.assert_found("notice 25000, sent by nobody")

    def test_text_of_a_refusal_in_a_variable(self):
        self.edit("packages/job.wxi", 'Error="Not &quot;here&quot;:\n            nothing was changed."',
                  'Error="$(var.Text)"')
        self.sources["packages/texts/texts.wxi"] = '<Include><?ifndef var.TextsFile?><?define TextsFile = "one.wxi"?><?endif?></Include>'
        for file, text in (("one", 'Not "$(var.Where)": nothing was changed.'), ("two", "Nichts wurde geändert.")):
            self.sources[f"packages/texts/{file}.wxi"] = f'<Include>\n<?define Text = "{text}"?>\n</Include>'
        self.sources["packages/names.wxi"] = '<Include><?define Where = "here"?></Include>'
        self.assert_found()
        self.sources["packages/texts/one.wxi"] = "<Include/>"
        self.assert_found("is missing: $(var.Text)", "no package says: Not")

    # The names that the library fixes.

    def test_name_missing_in_the_guide(self):
        self.edit("docs/authoring.md", "| `a file.txt` | a file | [2](actions.md#customaction2) |\n", "")
        self.assert_found("the library's name 'a file.txt' is not below 'By the library'")

    def test_name_of_a_list_missing_in_the_guide(self):
        self.edit("docs/authoring.md", "`b.txt`", "b.txt")
        self.assert_found("the library's name 'b.txt' is not below")

    def test_name_missing_in_the_library(self):
        self.edit("docs/authoring.md", "| `Sub` |", "| `Sub`, `Sup` |")
        self.assert_found("docs/authoring.md:8: 'Sup' is not a name of the library")

    def test_action_of_a_name(self):
        self.edit("docs/authoring.md", "a file | [2](actions.md#customaction2)", "a file | [1](actions.md#customaction1)")
        self.assert_found("docs/authoring.md:7: `a file.txt` is of 2")

    def test_no_guide(self):
        del self.sources["docs/authoring.md"]
        self.assert_found("'Sub' is not below", "'a file.txt' is not below", "'b.txt' is not below")

    # The codes.

    def test_code_that_the_page_lacks(self):
        self.edit_page("| -3 | two |\n", "")
        self.assert_found("src/client/job.h:4: -3 is not in the table 'The job's codes'")

    def test_code_that_the_library_lacks(self):
        self.edit_page("| -3 | two |", "| -3 | two |\n| -4 | three |")
        self.assert_found("the library has no code -4 there")

    def test_code_twice_and_no_code(self):
        self.edit_page("| -3 | two |", "| -3 | two |\n| -3 | three |\n| -2, -3 | four |")
        self.assert_found("-3 is in the table already", "'-2, -3' is no code of")

    def test_code_without_a_table(self):
        self.sources["src/base/status.h"] = ("constexpr int kStatusLost = -43;\n"
                                             "constexpr DWORD kGone = static_cast<DWORD>(-1);\n"
                                             "constexpr HRESULT kOff = static_cast<HRESULT>(0x800706D9);\n"
                                             "constexpr int kSmall = 7;\n")
        self.assert_found("src/base/status.h:1: kStatusLost is in no table", "src/base/status.h:2: kGone",
                          "src/base/status.h:3: kOff")

    # The return codes.

    def test_return_code(self):
        self.edit("src/client/one.cpp", "return ERROR_INSTALL_FAILURE", "return ERROR_SUCCESS")
        self.assert_found("CustomAction1 returns 0")

    def test_return_code_of_a_callee(self):
        self.edit("src/client/job.cpp", "return 0", "return ERROR_INSTALL_USEREXIT")
        self.assert_found("CustomAction1 returns 0, 1602, 1603", "CustomAction2 returns 0, 1602")

    def test_return_code_without_a_number(self):
        self.edit("src/client/two.cpp", "return RunJob(session)", "return RunJob(session) + ERROR_INSTALL_SUSPEND")
        self.assert_found("CustomAction2: the page has no number for ERROR_INSTALL_SUSPEND")

    def test_action_that_the_page_lacks(self):
        self.edit_page("| `CustomAction2` | 0 |\n", "| `CustomAction3` | 0 |\n")
        self.assert_found("`CustomAction3` is not an action", "CustomAction2 is not in the table")

    # The libraries.

    def test_line_that_no_library_has(self):
        self.texts[0] = "job failed: %ld (%ls)"
        self.assert_found("'job failed:  %ld (%ls)' is not in the library",
                          "the library has 'job failed: %ld (%ls)', which no source has")

    def test_text_that_no_source_has(self):
        self.texts.append("task was lost")
        self.wide_texts.append("wide as well")
        self.assert_found("the library has 'task was lost'", "the library has 'wide as well'")

    def test_byte_in_front_of_a_text(self):
        self.texts[5] = "(not of the log"
        self.assert_found()

    # The links.

    def test_links(self):
        self.edit_page("(#the-jobs-codes)", "(#codes), [more](gone.md), [this](troubleshooting.md#page)")
        self.assert_found("has no heading for #codes", "there is no gone.md")


class ProjectTest(unittest.TestCase):
    """What is found in the project's own sources."""

    def test_every_entry_point_is_known(self):
        root = TOOLS.parent
        exported = {line.strip() for line in (root / "src/frame/entry_points.def").read_text().splitlines()
                    if line.startswith("CustomAction")}
        self.assertEqual(set(check_texts.Sources(root).reach), exported)


if __name__ == "__main__":
    unittest.main()
