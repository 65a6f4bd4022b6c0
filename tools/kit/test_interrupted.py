"""After an upgrade of the server that was interrupted, the next attempt is refused at the place right after InstallInitialize,
where the engine rolls the interrupted run back. Nothing else refuses it before, and nothing changes the machine before."""

import re
import unittest

from support import TOOLS, load_script

CHECKS = load_script("kit/kit_checks.py")
RUNS = load_script("kit/package_runs.py")
RUN = load_script("kit/installer_run.py")

MODEL, REFUSAL = "server/server.wxs", "RefuseInterrupted"
NOTE = {"NOTEDSERVER": "P\\Vantor\\", "NOTEDASIDE": "P\\Vantor (previous)\\"}
# The actions that only read, and set properties.
FINDERS = {"CustomAction12", "CustomAction14", "CustomAction20", "CustomAction22", "CustomAction34", "CustomAction35"}
UPGRADE = {**RUNS.SERVER, **RUNS.SERVICE, "PROP_UPGRADE": "1", "DIR_SERVER": "P\\Vantor\\"}
# What the next attempt can find: the properties, and the refusal that comes first without a note.
FOUND = {
    "a server": (UPGRADE, None),
    "nothing": (RUNS.NO_SERVER, None),
    "a server of the earlier layout": ({**RUNS.NO_SERVER, "PROP_PRE75SERVER": "P\\Old\\"}, None),
    "no data where the setting names them": ({**UPGRADE, "DIR_EXDATA": "D\\Data\\"}, "RefuseMissingData"),
    "data in another place": ({**UPGRADE, "PROP_PREVVTDF": "P\\Vantor\\Data\\Store\\"}, "RefuseDeepData"),
    "no folders": ({**UPGRADE, "DIR_UPG": ""}, "RefuseNoFolders"),
    "a folder around it": ({**UPGRADE, "DIR_UPG": "P\\"}, "RefuseAsideFolder"),
    "a folder around the data": ({**UPGRADE, **RUNS.OUTSIDE, "DIR_UPG_DATA": "D\\"}, "RefuseAsideData"),
}


class InterruptedTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.model, = [model for model in CHECKS.read_kit(TOOLS.parent).models if model.name == MODEL]

    def run_of(self, place, properties):
        """The rows of a sequence that run until one of them refuses the run, which is the last one then."""
        rows = [row for row in self.model.rows if row.place == place]
        found = []
        # The engine finds the older products too, after the package has forgotten them.
        searched = self.model.found | {"PROP_UPGRADE_PRODUCTCODE"}
        for row, _ in RUN.run_sequence(rows, self.model.actions, {**self.model.defaults(), **properties}, searched, RUNS.ANSWERS):
            found.append(row)
            if self.model.actions.get(row.action, {}).get("Error"):
                break
        return found

    def last(self, place, properties):
        row = self.run_of(place, properties)[-1]
        return row.action if self.model.actions.get(row.action, {}).get("Error") else None

    def test_with_a_note(self):
        for name, (properties, _) in FOUND.items():
            with self.subTest(name):
                rows = self.run_of("execute", {**properties, **NOTE})
                self.assertEqual(rows[-1][1:3], (CHECKS.INITIALIZED, REFUSAL))
                called = {row.action for row in rows if CHECKS.is_library(self.model.actions.get(row.action, {}))}
                self.assertLessEqual(called, FINDERS)
                later = [row.action for row in rows if CHECKS.kind_of(self.model.actions.get(row.action, {})) in CHECKS.LATER]
                self.assertEqual(later, [])
                # The dialogs' sequence has no such place, and goes on to the other.
                self.assertIsNone(self.last("UI", {**properties, **NOTE}))

    def test_without_a_note(self):
        for name, (properties, refusal) in FOUND.items():
            with self.subTest(name):
                self.assertEqual(self.last("execute", properties), refusal)
                self.assertEqual(self.last("UI", properties), refusal)
        called = [row.action for row in self.run_of("execute", UPGRADE)]
        for action in ("CustomAction13", "NoteServer", "CustomAction15.Server", "ForgetNote"):
            self.assertIn(action, called)

    def test_a_repair_and_a_removal_are_not_refused(self):
        for more in ({"REINSTALL": "ALL"}, {"REMOVE": "ALL"}):
            properties = {**RUNS.SERVER, **RUNS.SERVICE, **RUNS.INSTALLED, **NOTE, **more}
            self.assertIsNone(self.last("execute", properties), more)

    def test_the_note_is_first_and_last(self):
        """It is written before the first folder is moved, its value Server last; and deleted before services start. In a
        rollback it is deleted last."""
        place = {row.action: row.number for row in self.model.rows if row.place == "execute"}
        notes = ["NoteAside", "NoteData", "NoteAsideData", "NoteServer"]
        self.assertEqual(sorted(notes, key=place.get)[-1], "NoteServer")
        self.assertLess(place["NoteServer"], place["CustomAction15.Server"])
        # The new data folder, directly before something is copied there.
        later = sorted(number for number in place.values() if number > place["NoteNewData"])
        self.assertEqual(place["CustomAction16.Data"], later[0])
        self.assertLess(max(number for action, number in place.items() if action.startswith(("CustomAction16", "CustomAction17",
                                                                                              "Convert"))), place["ForgetNote"])
        self.assertLess(place["ForgetNote"], 5900)
        # Nothing has the places of the folders then: they are freed, and checked.
        freed = ["ForgetOlderNote", "CheckNoNote", "CustomAction15.FreeServer", "CustomAction15.FreeData", "CheckServerFree",
                 "CheckDataFree", "ForgetNoteBack"]
        self.assertEqual(sorted(freed, key=place.get), freed)
        self.assertLess(place["ForgetNoteBack"], min(place[name] for name in notes))
        undone = [number for action, number in place.items() if self.model.actions.get(action, {}).get("Execute") == "rollback"]
        self.assertEqual(min(undone), place["ForgetNoteBack"])
        for name in (*notes, *freed[1:-1], "NoteNewData", "ForgetNote"):
            self.assertEqual(self.model.actions[name].get("Return"), "check", name)

    def test_a_rollback_writes_what_the_end_has_deleted(self):
        """Each value, and Server last, after which there is a note: a rollback runs backwards."""
        place = {row.action: (row.number, row.condition) for row in self.model.rows if row.place == "execute"}
        notes = ["NoteServer", "NoteAsideData", "NoteData", "NoteAside", "NoteNewData"]
        numbers = [place[f"{name}Again"][0] for name in notes]
        self.assertEqual(sorted(numbers), numbers)
        self.assertLess(numbers[-1], place["ForgetNote"][0])
        # Nothing moves a folder back before that.
        self.assertGreater(numbers[0], max(place[name][0] for name in place if name.startswith("CustomAction16")))
        for name in notes:
            again, noted = self.model.actions[f"{name}Again"], self.model.actions[name]
            changed = {"Id": f"{name}Again", "Execute": "rollback", "Return": "ignore"}
            if name == "NoteNewData":
                # Only if the key is missing.
                changed |= {"Program": "CommandProgram", "ExeCommand": again["ExeCommand"]}
                program, key = '"[System64Folder]reg.exe"', re.search(r'"HKLM[^"]*"', noted["ExeCommand"])[0]
                self.assertEqual(again["ExeCommand"], f'/d /c "{program} query {key} || {program} {noted["ExeCommand"]}"')
            self.assertEqual(again, {**noted, **changed})
            self.assertEqual(place[f"{name}Again"][1], place[name][1])

    def test_new_data_are_noted_if_they_are_copied_out_of_the_older_places(self):
        inside, outside = UPGRADE, {**UPGRADE, **RUNS.OUTSIDE}
        in_place = {**UPGRADE, "PROP_PREVVTDF": "P\\Vantor\\(no data)\\Data\\"}
        for name, properties, folder, is_noted in (
                ("inside", inside, "P\\Vantor\\Data\\", False), ("inside, moved", inside, "D\\New\\", True),
                ("outside", outside, "d\\data\\", False), ("outside, in it", outside, "D\\Data\\New\\", False),
                ("outside, moved", outside, "D\\New\\", True), ("outside, moved home", outside, "p\\vantor\\Data\\", False),
                ("in place", in_place, "D\\New\\", False)):
            with self.subTest(name):
                called = {row.action for row in self.run_of("execute", {**properties, "DIR_DATAFOLDER": folder})}
                self.assertEqual("CustomAction16.Data" in called, properties is not in_place)
                for action in ("NoteNewData", "NoteNewDataAgain", "SetUnlessNewData"):
                    self.assertEqual(action in called, is_noted, action)

    def test_another_folder_is_refused(self):
        known = {**UPGRADE, "PROP_UPGRADE_PRODUCTCODE": "{old}", "SERVERFOLDERFOUND": "P\\Vantor\\"}
        for name, more, refusal in (
                ("the same", {}, None), ("in other letters", {"DIR_SERVER": "p\\VANTOR\\"}, None),
                ("another", {"DIR_SERVER": "D\\Vantor\\"}, "RefuseOtherFolder"),
                ("with a note", {"DIR_SERVER": "D\\Vantor\\", **NOTE}, REFUSAL),
                ("not known", {"DIR_SERVER": "D\\Vantor\\", "PROP_UPGRADE_PRODUCTCODE": ""}, None),
                ("not remembered", {"DIR_SERVER": "D\\Vantor\\", "SERVERFOLDERFOUND": ""}, None),
                ("of the earlier layout", {"DIR_SERVER": "D\\Vantor\\", "PROP_PRE75SERVER": "P\\Old\\"}, None)):
            with self.subTest(name):
                self.assertEqual(self.last("execute", {**known, **more}), refusal)

    def test_the_page_has_the_lines_that_the_tests_type(self):
        page = (TOOLS.parent / "docs/server-upgrade.md").read_text(encoding="utf-8")
        section = re.search(r"^### An upgrade that was interrupted\n(.*?)^### ", page, re.MULTILINE | re.DOTALL)[1]
        lines = re.findall(r"^    (\S.*)$", section, re.MULTILINE)
        test = (TOOLS.parent / "tests/install/server_interrupted_test.cpp").read_text(encoding="utf-8")
        typed = re.findall(r'const char k\w+\[\] =\s+R"page\((.*?)\)page";', test)
        self.assertEqual(lines, typed)
        self.assertEqual(len(lines), 13)


if __name__ == "__main__":
    unittest.main()
