"""accepted.py: a remark is accepted only for what the fragments do on purpose."""

import unittest

from packages.accepted import ACCEPTED, reason_for
from packages.findings import WARNING, Finding
from packages.tables import Column, Database, Table


def table(name, columns, *rows):
    return Table(name, [Column(column, "s", 72, True, False) for column in columns.split()], [list(row) for row in rows])


def database_of(*tables):
    database = Database()
    database.tables = {each.name: each for each in tables}
    return database


def component(*files):
    return database_of(table("File", "File Component_ FileName", *((name, "Tracking", name) for name in files)))


def properties(**values):
    return database_of(table("Property", "Property Value", *values.items()))


def sequence(name):
    return Finding("ICE86", WARNING, "...", name, "Condition", ("RefuseNoAdministrator",))


SYSTEM = Finding("ICE09", WARNING, "...", "Component", "Component", ("Tracking",))
REPLACED = Finding("ICE40", WARNING, "...", "Property", "Property", ("REINSTALLMODE",))
RIGHTS = sequence("InstallExecuteSequence")


class AcceptedTest(unittest.TestCase):
    def accepts(self, finding, database):
        return reason_for(finding, database) is not None

    def test_what_the_fragments_do(self):
        for finding, database in ((SYSTEM, component("OSTRACK.DLL")), (SYSTEM, component("x|ostrack.dll")),
                                  (REPLACED, properties(REINSTALLMODE="amus")),
                                  (RIGHTS, properties(MSIUSEREALADMINDETECTION="1")),
                                  (sequence("InstallUISequence"), properties(MSIUSEREALADMINDETECTION="1"))):
            with self.subTest(finding):
                reasons = [each.reason for each in ACCEPTED if (each.rule, each.table) == (finding.rule, finding.table)]
                self.assertEqual([reason_for(finding, database)], reasons)

    def test_another_file_in_the_system_folder(self):
        self.assertFalse(self.accepts(SYSTEM, component("other.dll")))
        self.assertFalse(self.accepts(SYSTEM, component("OSTRACK.DLL", "other.dll")))
        self.assertFalse(self.accepts(SYSTEM, component()))
        self.assertFalse(self.accepts(SYSTEM._replace(keys=("Other",)), component("OSTRACK.DLL")))

    def test_another_mode(self):
        self.assertFalse(self.accepts(REPLACED, properties(REINSTALLMODE="omus")))
        self.assertFalse(self.accepts(REPLACED._replace(keys=("REINSTALL",)), properties(REINSTALLMODE="amus")))

    def test_rights_without_the_property(self):
        self.assertFalse(self.accepts(RIGHTS, properties(MSIUSEREALADMINDETECTION="0")))
        self.assertFalse(self.accepts(RIGHTS, properties(OTHER="1")))
        self.assertFalse(self.accepts(RIGHTS._replace(keys=("Mine",)), properties(MSIUSEREALADMINDETECTION="1")))
        self.assertFalse(self.accepts(sequence("AdminUISequence"), properties(MSIUSEREALADMINDETECTION="1")))

    def test_other_rules(self):
        self.assertFalse(self.accepts(REPLACED._replace(rule="ICE87"), properties(REINSTALLMODE="amus")))


if __name__ == "__main__":
    unittest.main()
