"""make_packages.py: the tables of the packages that it makes are secure, whatever the compiler and the script made of the
source."""

import re
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from packages import rules
from packages.sample_library import make_library
from packages.tables import read_package
from support import load_script

PACKAGE = load_script("packages/make_packages.py")

# The packages of another maker, whose data are in a folder that every user could make first.
DATA_OF_ANOTHER_MAKER = {"other", "other-newer", "other-access", "other-account", "other-firewall"}
# The type of an action that ends the installation with an error.
ERROR_ACTION = 19
# The packages that run no actions.
WITHOUT_ACTIONS = {"server-older"}
PACKAGES = {"client", "client-newer", "guide-client", "guide-server", "other", "other-newer", "other-access", "other-account",
            "other-client", "other-client-newer", "other-firewall", "server", "server-older", "server-watched"}

# The owner, the group and the whole access list: SYSTEM and the administrators only, nothing inherited from the parent
# folder.
PROTECTED = "O:BAG:SYD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)"

SEQUENCES = ("InstallUISequence", "InstallExecuteSequence")
OTHER_SEQUENCES = ("AdminUISequence", "AdminExecuteSequence", "AdvtExecuteSequence")


class PackagesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hx-packages-")
        cls.addClassCleanup(folder.cleanup)
        for file in (PACKAGE.PROGRAM, PACKAGE.TRACKING):
            (Path(folder.name) / file).write_bytes(f"not really {file}\n".encode())
        make_library(Path(folder.name), "x64")
        witness = (PACKAGE.FRAGMENTS / "server/witness.wxi").read_text(encoding="utf-8")
        calls = set(re.findall(r'BinaryKey="witness" DllEntry="(\w+)"', witness))
        make_library(Path(folder.name), "x64", PACKAGE.WITNESS, sorted(calls))
        made = Path(folder.name) / "made"
        with mock.patch.object(sys, "argv", ["make_packages.py", "x64", f"{folder.name}/hxsetup.dll", str(made)]):
            PACKAGE.main()
        cls.packages = {path.stem: read_package(path) for path in made.glob("*.msi")}
        cls.findings = {path.stem: rules.check(cls.packages[path.stem], path) for path in made.glob("*.msi")}

    def rows(self, name, table):
        return self.packages[name].keyed(table)

    def each(self):
        for name in sorted(PACKAGES - WITHOUT_ACTIONS):
            with self.subTest(name):
                yield name

    def test_each_is_made(self):
        self.assertEqual(set(self.packages), PACKAGES)
        for name in WITHOUT_ACTIONS:
            self.assertEqual(self.rows(name, "CustomAction"), {})

    def test_rules(self):
        for name in sorted(PACKAGES):
            with self.subTest(name):
                self.assertEqual(self.findings[name], [("warning", rules.UNUSED)] if name in WITHOUT_ACTIONS else [])

    def test_folder_above_the_data_of_another_maker(self):
        """Its access list sets the owner: a user who made the folder before would otherwise stay its owner and could change
        the list."""
        for name in sorted(self.packages):
            with self.subTest(name):
                self.assertEqual(self.rows(name, "MsiLockPermissionsEx"), {} if name not in DATA_OF_ANOTHER_MAKER else {
                    "MakerDataFolder": ["MakerDataFolder", "CreateFolder", PROTECTED, "NOT Installed"]})
                self.assertEqual(self.rows(name, "LockPermissions"), {})
                if name in DATA_OF_ANOTHER_MAKER:
                    component = self.rows(name, "CreateFolder")["MakerDataFolder"][0]
                    installed = [row["Component_"] for row in self.packages[name].rows("FeatureComponents")]
                    self.assertIn(component, installed)

    def test_refusal_of_a_run_without_rights(self):
        """It is the first action of both sequences, even of those that the compiler adds."""
        for name in self.each():
            self.assertEqual(self.rows(name, "CustomAction")["RefuseNoAdministrator"][0], ERROR_ACTION)
            for table in SEQUENCES:
                rows = self.rows(name, table)
                self.assertEqual(rows["RefuseNoAdministrator"], ["NOT AdminUser", 10])
                before = [action for action, (_, number) in rows.items() if 0 <= number <= 10]
                self.assertEqual(before, ["RefuseNoAdministrator"], table)

    def test_rights_are_the_users_own(self):
        for name in self.each():
            properties = self.rows(name, "Property")
            self.assertEqual(properties["MSIUSEREALADMINDETECTION"], ["1"])
            self.assertNotIn("AdminUser", properties)
            self.assertNotIn("MSIUSEREALADMINDETECTION", properties["SecureCustomProperties"][0].split(";"))

    def test_sequences_without_a_refusal(self):
        """An administrative installation and an advertisement run only the engine's own actions."""
        for name in self.each():
            own = set(self.rows(name, "CustomAction"))
            self.assertTrue(own)
            for table in OTHER_SEQUENCES:
                self.assertEqual(own & set(self.rows(name, table)), set(), table)

    def test_the_script_names_the_packages(self):
        self.assertEqual(set(re.findall(r"^  ([\w-]+)\.msi\b", PACKAGE.__doc__, re.MULTILINE)), PACKAGES)


if __name__ == "__main__":
    unittest.main()
