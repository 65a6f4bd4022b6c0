"""The knowledge of explain.html: complete, and from the places where the facts are."""

import json
import shutil
import tempfile
import unittest
from pathlib import Path

from explain.knowledge import KNOWLEDGE, PAGE, Knowledge, Missing, items_of, names, sections_of, text_of
from support import TOOLS

ROOT = TOOLS.parent
COPIED = ("src", "packages", "docs", "tools/texts/entry_points.json", "VERSION")


class KnowledgeTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.knowledge = Knowledge(ROOT).all()

    def copy(self, *changes):
        """A copy of the project's facts with (file, old text, new text) changed."""
        folder = tempfile.TemporaryDirectory(prefix="hx-explain-")
        self.addCleanup(folder.cleanup)
        root = Path(folder.name)
        for name in COPIED:
            (root / name).parent.mkdir(parents=True, exist_ok=True)
            (shutil.copytree if (ROOT / name).is_dir() else shutil.copy)(ROOT / name, root / name)
        for name, old, new in changes:
            text = (root / name).read_text(encoding="utf-8")
            self.assertIn(old, text)
            (root / name).write_text(text.replace(old, new), encoding="utf-8")
        return root

    def test_every_line_that_an_entry_point_was_seen_to_write_has_an_entry(self):
        table = json.loads((ROOT / "tools/texts/entry_points.json").read_text(encoding="utf-8"))
        logged = {line for facts in table.values() for line in facts["log"]} - {self.knowledge["marks"]["path"]}
        self.assertEqual(logged, {entry["format"] for entry in self.knowledge["lines"]})
        for entry in self.knowledge["lines"]:
            for number in entry["actions"]:
                self.assertIn(entry["format"], table[f"CustomAction{number}"]["log"])

    def test_a_line_without_a_row_is_missing(self):
        row = next(line for line in (ROOT / PAGE).read_text(encoding="utf-8").splitlines() if "agent(s) stopped" in line)
        with self.assertRaisesRegex(Missing, r"the line 'agent restart:  %ld agent\(s\) stopped' has no row"):
            Knowledge(self.copy((PAGE, row + "\n", ""))).all()

    def test_a_line_that_only_the_table_has_is_missing(self):
        with self.assertRaisesRegex(Missing, "the line 'something else' has no row"):
            Knowledge(self.copy(("tools/texts/entry_points.json", '"no account to delete": []', '"something else": []'))).all()

    def test_a_row_of_another_line_is_refused(self):
        with self.assertRaisesRegex(Missing, "`Task installed well` is not a line of the library"):
            Knowledge(self.copy((PAGE, "| `Task installed` |", "| `Task installed well` |"))).all()

    def test_an_action_without_a_row_is_missing(self):
        row = next(line for line in (ROOT / PAGE).read_text(encoding="utf-8").splitlines() if line.startswith("| `CustomAction13` |"))
        with self.assertRaisesRegex(Missing, "CustomAction13 has no row"):
            Knowledge(self.copy((PAGE, row + "\n", ""))).all()

    def test_an_action_that_writes_lines_needs_advice_for_when_it_wrote_none(self):
        silent = {name for name, facts in self.knowledge["actions"].items() if "silent" in facts}
        self.assertEqual(silent - {name for name, facts in self.knowledge["actions"].items() if facts["logs"]}, {"CustomAction26"})
        text = (ROOT / PAGE).read_text(encoding="utf-8")
        row = next(line for line in text.splitlines() if line.startswith("| `CustomAction27` | the action did not run"))
        with self.assertRaisesRegex(Missing, "CustomAction27 writes lines, and has no row in docs/troubleshooting.md, below 'An action without a line'"):
            Knowledge(self.copy((PAGE, row + "\n", ""))).all()
        with self.assertRaisesRegex(Missing, "CustomAction99 is not an action of the library"):
            Knowledge(self.copy((PAGE, row, row.replace("CustomAction27", "CustomAction99")))).all()

    def test_a_changed_fact_changes_the_knowledge(self):
        changed = Knowledge(self.copy((PAGE, "| the task is registered | nothing |", "| the task is new | nothing |"))).all()
        self.assertEqual(changed["lines"][0]["meaning"], "the task is new")

    def test_references_are_replaced(self):
        text = text_of(self.knowledge)
        for words in ("as above", '"the same', '"as -', "see below", "The following"):
            self.assertFalse(words in text, words)
        codes = self.knowledge["codes"]["reaching-a-task"]["codes"]
        self.assertEqual(codes["-2"]["todo"], self.knowledge["codes"]["registering-a-task"]["codes"]["-2"]["todo"])

    def test_tables_of_codes_belong_to_their_lines(self):
        tables = {entry["format"]: entry["codes"] for entry in self.knowledge["lines"] if entry["codes"]}
        self.assertEqual(tables["Task install failed:  %ld"], "registering-a-task")
        self.assertEqual(tables["agent restart:  session %ld (%ls) failed:  %ld"], "reaching-a-task")
        self.assertEqual(tables["set ACL (%ld) for %s=%03lo on %p{O}"], "access-to-a-file-or-folder")
        self.assertEqual(set(tables.values()) - set(self.knowledge["codes"]), set())

    def test_every_refusal_has_advice_and_most_have_their_actions(self):
        self.assertTrue(all(entry["todo"] for entry in self.knowledge["refusals"]))
        actions = {action for entry in self.knowledge["refusals"] for action in entry["actions"]}
        self.assertIn("RefuseNoAdministrator", actions)
        self.assertGreaterEqual(len(actions), 15)

    def test_hidden_properties_and_deferred_actions_are_those_of_the_packages(self):
        self.assertEqual(self.knowledge["hidden"], ["PROP_ACCOUNTPASS", "PROP_TASKPASS"])
        self.assertEqual(self.knowledge["executes"]["CustomAction23.Rollback"], "rollback")
        self.assertNotIn("CustomAction3", self.knowledge["executes"])

    def test_the_names_of_errors(self):
        found = names()
        self.assertEqual({number: found[number] for number in ("124", "1603", "2224", "-2147024891", "-2147216619")},
                         {"124": "ERROR_INVALID_LEVEL", "1603": "ERROR_INSTALL_FAILURE", "2224": "NERR_UserExists",
                          "-2147024891": "E_ACCESSDENIED", "-2147216619": "SCHED_E_SERVICE_NOT_RUNNING"})

    def test_the_file_is_json_of_the_knowledge(self):
        self.assertEqual(json.loads(text_of(self.knowledge)), self.knowledge)
        self.assertEqual((ROOT / KNOWLEDGE).read_text(encoding="utf-8"), text_of(self.knowledge))


class PartsTest(unittest.TestCase):
    def test_sections_and_items(self):
        sections = sections_of("# A\none\ntwo\n\n```text\n# not a heading\n```\n\n| a |\n## B\nthree\n")
        self.assertEqual(list(sections), ["A", "B"])
        self.assertEqual(items_of(sections["A"]), [("text", "one two"), ("block", "# not a heading")])


if __name__ == "__main__":
    unittest.main()
