"""observed-facts.py: what the tests saw the entry points do, and the table of it."""

import contextlib
import io
import json
import unittest
from unittest import mock

from support import TreeTest

MARK = "Hx Setup Log: "
SOURCE = r'''
extern "C" UINT WINAPI CustomAction1(MSIHANDLE session) {
  LogSetupMessage(session, "failure %ld (0x%08lX) adding account", status, status);
  LogSetupMessage(session, "failure %ld (0x%08lX) adding %ls", status, status, name);
  LogSetupMessage(session, "account was not created by installer (%ls)", name);
  LogSetupMessage(session, "done");
  return 0;
}
'''
FACTS = {
    "CustomAction1": {"returns": [0, 1603], "reads": {"PROP_A": "", "PROP_B": "32 bytes", "PROP_C": "128 characters"},
                      "sets": ["PROP_D"], "notices": [25003], "boxes": ["One\nTwo"],
                      "log": {"JN Setup Log: ": [], "done": [], "failure %ld (0x%08lX) adding account": [-1, -36]}},
    "CustomAction12": {"returns": [0], "reads": {}, "sets": [], "notices": [], "boxes": [], "log": {}},
}
LINES = [
    ("CustomAction12", "returns", "0"), ("CustomAction1", "returns", "1603"), ("CustomAction1", "returns", "0"),
    ("CustomAction1", "reads", "PROP_C 128W"), ("CustomAction1", "reads", "PROP_A"), ("CustomAction1", "reads", "PROP_B 32A"),
    ("CustomAction1", "sets", "PROP_D"), ("CustomAction1", "notice", "25003"), ("CustomAction1", "notice", ""),
    ("CustomAction1", "box", r"One\nTwo"), ("CustomAction1", "log", MARK + "done"),
    ("CustomAction1", "log", MARK + "failure -36 (0xFFFFFFDC) adding account"), ("CustomAction1", "log", ""),
    ("CustomAction1", "log", MARK + "failure -1 (0xFFFFFFFF) adding account"), ("CustomAction1", "log", MARK),
    ("CustomAction1", "log", MARK + "failure 2224 (0x000008B0) adding account"),
    ("CustomAction1", "log", MARK + "failure -2147024891 (0x80070005) adding account"),
    ("CustomAction1", "log", r"JN Setup Log: C:\\Folder\\osua.exe"),
]


class FactsTest(TreeTest):
    script = "texts/observed-facts.py"

    def setUp(self):
        super().setUp()
        self.write({"src/client/one.cpp": SOURCE, "tools/texts/entry_points.json": json.dumps(FACTS)})
        self.say(LINES)

    def say(self, lines, folder="run"):
        self.write({f"{folder}/facts.txt": "".join("\t".join(line) + "\n" for line in lines)})

    def compare(self, *options, folders=("run",)):
        arguments = [self.script, "--project", str(self.root), *options, *(str(self.root / folder) for folder in folders)]
        output = io.StringIO()
        with mock.patch("sys.argv", arguments), contextlib.redirect_stdout(output):
            code = self.module.main()
        *found, last = output.getvalue().splitlines()
        self.assertEqual(last, "0 passed, 1 failed" if code else "1 passed, 0 failed")
        return [line.removeprefix("FAILED ") for line in found if not line.startswith("FAILED If the library is right")]

    def test_agreement(self):
        self.assertEqual(self.compare(), [])

    def test_written(self):
        self.write({"tools/texts/entry_points.json": "{}"})
        self.assertEqual(self.compare("--write"), [])
        text = (self.root / "tools/texts/entry_points.json").read_text(encoding="utf-8")
        self.assertEqual(json.loads(text), FACTS)
        self.assertIn('  "returns": [0, 1603],\n', text)
        self.assertIn('   "failure %ld (0x%08lX) adding account": [-1, -36]\n', text)

    def test_each_kind_more(self):
        for kind, text, says in (
                ("returns", "1602", "returns: '1602'"), ("reads", "PROP_E", "reads: 'PROP_E'"),
                ("sets", "PROP_E", "sets: 'PROP_E'"), ("notice", "25000", "notices: '25000'"), ("box", "Three", "boxes: 'Three'"),
                ("log", MARK + "account was not created by installer (someone)",
                 "log: 'account was not created by installer (%ls)'"),
                ("log", MARK + "failure -50 (0xFFFFFFCE) adding account",
                 "log: 'failure %ld (0x%08lX) adding account with -50'")):
            with self.subTest(kind):
                self.say([*LINES, ("CustomAction1", kind, text)])
                expected = [f"CustomAction1: {says} was seen, and is not in tools/texts/entry_points.json"]
                self.assertEqual(self.compare(), expected)
                self.assertEqual(self.compare("--some"), expected)

    def test_each_kind_less(self):
        for index, says in ((1, "returns: '1603'"), (4, "reads: 'PROP_A'"), (6, "sets: 'PROP_D'"), (7, "notices: '25003'"),
                            (9, "boxes: 'One\nTwo'"), (10, "log: 'done'"),
                            (11, "log: 'failure %ld (0x%08lX) adding account with -36'")):
            with self.subTest(says):
                self.say(LINES[:index] + LINES[index + 1:])
                self.assertEqual("\n".join(self.compare()),
                                 f"CustomAction1: {says} is in tools/texts/entry_points.json, and no test saw it")
                self.assertEqual(self.compare("--some"), [])

    def test_another_buffer(self):
        self.say([("CustomAction1", "reads", "PROP_B 64A") if line[2] == "PROP_B 32A" else line for line in LINES])
        self.assertEqual(self.compare(), [
            "CustomAction1: reads: 'PROP_B (64 bytes)' was seen, and is not in tools/texts/entry_points.json",
            "CustomAction1: reads: 'PROP_B (32 bytes)' is in tools/texts/entry_points.json, and no test saw it"])

    def test_an_entry_point_that_nobody_ran(self):
        self.say([line for line in LINES if line[0] != "CustomAction12"])
        self.assertEqual(self.compare(), [
            "CustomAction12: returns: '0' is in tools/texts/entry_points.json, and no test saw it"])

    def test_two_runs_count_together(self):
        self.say(LINES[:5])
        self.say(LINES[5:], "again")
        self.assertEqual(self.compare(folders=("run", "again")), [])

    def test_a_line_that_is_cut(self):
        """A line's text ends after 255 bytes: the conversion at its end took the rest."""
        start = "account was not created by installer ("
        self.say([*LINES, ("CustomAction1", "log", MARK + start + "n" * (255 - len(start)))])
        self.assertEqual(self.compare("--some"), ["CustomAction1: log: 'account was not created by installer (%ls)' was seen, "
                                                  "and is not in tools/texts/entry_points.json"])

    def test_lines_that_nobody_knows(self):
        self.say([*LINES, ("CustomAction1", "log", MARK + "surprise"), ("CustomAction1", "log", "done")])
        self.assertEqual(self.compare(), ["CustomAction1: the line 'Hx Setup Log: surprise' has no format in src/",
                                          "CustomAction1: the line 'done' has no mark"])

    def test_no_facts(self):
        self.assertEqual(self.compare("--some", folders=("nowhere",)),
                         [f"{self.root / 'nowhere'}/facts.txt is not there: run ./hx test actions"])


if __name__ == "__main__":
    unittest.main()
