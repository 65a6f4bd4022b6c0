"""What ./hx bench arm64 counts: the list of typical runs and the committed table against the sources."""

import io
import re
import tempfile
import unittest
from contextlib import redirect_stdout
from pathlib import Path
from unittest import mock

from counting.counts import Count, CountError, own_counts, read_table, table_text
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
        self.assertEqual(self.module.TABLE.read_text(encoding="utf-8"), table_text(own_counts(self.tables(100))))
        self.assertEqual(self.command(100, 100)[0], 0)
        status, output = self.command(103, 103)
        self.assertEqual(status, 1)
        self.assertIn("+3 (+3.0%)", output)

    def test_two_runs_that_differ(self):
        status, output = self.command(100, 101, "--write")
        self.assertEqual(status, "hx: two runs did not count alike:\nTexts / %d / hx: Count(own=100, all=100) and "
                                 "Count(own=101, all=101)")
        self.assertEqual(output, "")
        self.assertFalse(self.module.TABLE.exists())


if __name__ == "__main__":
    unittest.main()
