"""What ./hx bench arm64 counts: the list of typical runs and the committed table against the sources."""

import io
import re
import tempfile
import unittest
from contextlib import redirect_stdout
from pathlib import Path
from unittest import mock

from counting.counts import CALLS, Count, CountError, calls_line, read_summary, read_table, table_text
from support import TOOLS, load_script

ROOT = TOOLS.parent
TEST = re.compile(r"^TEST(?:_[FP])?\((\w+), (\w+)\)", re.MULTILINE)


class ListsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.module = load_script("counting/count_instructions.py")
        cls.actions = cls.module.actions(cls.module.ACTIONS.read_text(encoding="utf-8"))
        cls.table = read_table(cls.module.TABLE.read_text(encoding="utf-8"))

    def test_each_entry_point_has_a_typical_run(self):
        exported = re.findall(r"^CustomAction\d+$", (ROOT / "src/frame/entry_points.def").read_text(encoding="utf-8"), re.MULTILINE)
        self.assertEqual([action for action, _ in self.actions], exported)

    def test_each_typical_run_is_a_test(self):
        tests = {".".join(names) for file in (ROOT / "tests/actions").rglob("*_test.cpp")
                 for names in TEST.findall(file.read_text(encoding="utf-8"))}
        self.assertEqual([test for _, test in self.actions if test not in tests], [])

    def test_the_committed_table_has_each_message_and_each_entry_point(self):
        self.assertEqual(list(self.table["Messages"]), self.module.messages())
        self.assertEqual(list(self.table["Actions"]), [action for action, _ in self.actions])
        self.assertGreater(len(self.module.messages()), 60)

    def test_the_summary_is_that_of_the_counts(self):
        """Its ratios cannot be checked here: the table has no counts of the rivals."""
        lines = read_summary(self.module.TABLE.read_text(encoding="utf-8"))
        self.assertEqual(lines[-2:], [calls_line(table, self.table[table]) for table in CALLS])
        self.assertEqual([line.partition(":")[0] for line in lines[:-2]], [
            "The library's own messages, keys and names", "The library's own messages with wide texts", "A general mix",
            "All formats", "join", "flat/copy", "flat/utf-8", "to wide", "way"])

    def test_the_page_has_the_figures_of_the_table(self):
        page = (ROOT / "docs/benchmarks.md").read_text(encoding="utf-8")
        section, = re.findall(r"^## Instructions on ARM64\n(.*?)^## ", page, re.MULTILINE | re.DOTALL)
        stated = []
        for table in re.findall(r"(?:^\|.*\n)+", section, re.MULTILINE):
            head, _, *rows = [[cell.strip() for cell in line.strip("|\n").split("|")] for line in table.splitlines()]
            if head != ["Counted", "Which"]:
                stated += [f"{name}: " + ", ".join(f"{kind} {cell}" for kind, cell in zip(head[1:], cells) if cell != "-")
                           for name, *cells in rows]
        self.assertEqual(stated, read_summary(self.module.TABLE.read_text(encoding="utf-8")))

    def test_a_line_that_is_not_a_pair(self):
        self.assertEqual(self.module.actions("# comment\nCustomAction1 A.One\n\n"), [("CustomAction1", "A.One")])
        with self.assertRaisesRegex(CountError, "is an entry point and a test, not 'CustomAction1'"):
            self.module.actions("CustomAction1\n")


class CommandTest(unittest.TestCase):
    """The command, with counts that are given instead of counted."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-count-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.module = load_script("counting/count_instructions.py")
        self.module.TABLE = self.folder / "table.txt"
        self.module.lay_down = lambda _: None

    def command(self, first, second, *options):
        """Runs it with the counts of two runs: (its exit status, its output)."""
        output = io.StringIO()
        with mock.patch.object(self.module, "count_all", side_effect=[self.tables(first), self.tables(second)]), \
                redirect_stdout(output):
            try:
                status = self.module.main([str(self.folder), *options])
            except SystemExit as end:
                return end.code, output.getvalue()
        return status, output.getvalue()

    @staticmethod
    def tables(count):
        return {"Texts": {"%d": {"hx": Count(count, count), **{rival: Count(0, 900) for rival in ("snprintf", "stb", "fmt")}}}}

    def test_write_and_compare(self):
        self.assertEqual(self.command(100, 100)[0], 1)
        self.assertFalse(self.module.TABLE.exists())
        self.assertEqual(self.command(100, 100, "--write")[0], 0)
        self.assertEqual(self.module.TABLE.read_text(encoding="utf-8"), table_text(self.tables(100)))
        self.assertEqual(self.command(100, 100)[0], 0)
        status, output = self.command(103, 103)
        self.assertEqual(status, 1)
        self.assertIn("+3 (+3.0%)", output)
        self.assertEqual(output.splitlines()[-1], "Of the library's own counts, 1 differ from bench/counts/arm64.txt. If this is on "
                                                  "purpose, write them: ./hx bench arm64 --write")

    def test_what_write_says(self):
        differ, same = ("Of the library's own counts, 1 differ from bench/counts/arm64.txt.",
                        "The library's own counts, 1, are those of bench/counts/arm64.txt.")
        written = "bench/counts/arm64.txt is written again."
        for count, lines in ((100, [differ, written]), (100, [same]), (103, [differ, written]), (103, [same])):
            with self.subTest(lines):
                status, output = self.command(count, count, "--write")
                self.assertEqual((status, output.splitlines()[-len(lines):]), (0, lines))
                self.assertEqual(written in output, written in lines)
                self.assertEqual(self.module.TABLE.read_text(encoding="utf-8"), table_text(self.tables(count)))

    def test_write_writes_another_summary_too(self):
        self.command(100, 100, "--write")
        self.module.TABLE.write_text(self.module.TABLE.read_text(encoding="utf-8").replace("snprintf 9.00", "snprintf 9.01"),
                                     encoding="utf-8")
        status, output = self.command(100, 100, "--write")
        self.assertEqual((status, output.splitlines()[-2:]), (0, [
            "The library's own counts, 1, are those of bench/counts/arm64.txt. Its summary differs, because the rivals or Windows "
            "are not those with which it was written.", "bench/counts/arm64.txt is written again."]))
        self.assertEqual(self.module.TABLE.read_text(encoding="utf-8"), table_text(self.tables(100)))

    def test_two_runs_that_differ(self):
        status, output = self.command(100, 101, "--write")
        self.assertEqual(status, "hx: two runs did not count alike:\nTexts / %d / hx: Count(own=100, all=100) and "
                                 "Count(own=101, all=101)")
        self.assertEqual(output, "")
        self.assertFalse(self.module.TABLE.exists())


if __name__ == "__main__":
    unittest.main()
