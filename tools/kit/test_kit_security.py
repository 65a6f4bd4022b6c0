"""kit_checks.py: what would let a user gain something by a package is found, in copies of the fragments and the models with
a mistake in them."""

import shutil
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from kit import kit_checks  # noqa: E402  after the path is set

MIGRATION = "packages/server_migration.wxi"
DATA = "packages/server_data_folder.wxi"
SERVER = "packages/server/server.wxs"
CLIENT = "packages/client/client.wxs"


class KitSecurityTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-kit-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        shutil.copytree(ROOT / "packages", self.root / "packages")
        for name in ("docs/actions.md", "src/frame/entry_points.def"):
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(ROOT / name, self.root / name)

    def change(self, path, old, new):
        path = self.root / path
        text = path.read_text(encoding="utf-8")
        self.assertIn(old, text)
        path.write_text(text.replace(old, new), encoding="utf-8")

    def found(self, check):
        return list(check(kit_checks.read_kit(self.root)))

    def assert_found(self, check, *expected):
        self.assertEqual(self.found(check), list(expected))

    def test_fragments_as_they_are(self):
        for check in (kit_checks.check_strings, kit_checks.check_paths, kit_checks.check_findings,
                      kit_checks.check_update_folder, kit_checks.check_secure):
            self.assert_found(check)

    def test_string_that_goes_through_links(self):
        self.change(MIGRATION, "hxsetup -mobinl ", "hxsetup -mobin ")
        self.assert_found(kit_checks.check_strings, "server_migration.wxi: SetServerEntriesBack goes through links: its string "
                          "needs the letter l")

    def test_string_whose_second_source_goes_through_links(self):
        self.change(MIGRATION, "-el &quot;[DIR_UPG_DATA].&quot;", "-ge &quot;[DIR_UPG_DATA].&quot;")
        self.assert_found(kit_checks.check_strings, "server_migration.wxi: SetMergeData goes through links: its string needs the "
                          "letter l")

    def test_string_that_comes_back_to_its_letters(self):
        self.change(MIGRATION, "hxsetup -mobinl ", "hxsetup -moinglkg -lb ")
        self.assert_found(kit_checks.check_strings)

    def test_string_that_forgets_its_letters(self):
        self.change(MIGRATION, "-el &quot;[DIR_UPG_DATA].&quot;", "-ze &quot;[DIR_UPG_DATA].&quot;")
        self.assert_found(kit_checks.check_strings, "server_migration.wxi: SetMergeData goes through links: its string needs the "
                          "letter l")

    def test_string_that_deletes(self):
        """In a rollback, and before it."""
        self.change(MIGRATION, "hxsetup -mobinl ", "hxsetup -moinl ")
        self.change(MIGRATION, "hxsetup -mobl &quot;[DIR_EXDATA].", "hxsetup -mol &quot;[DIR_EXDATA].")
        self.assert_found(kit_checks.check_strings, *(f"server_migration.wxi: {setter} deletes what it replaces: its string needs "
                                                      "the letter b beside o" for setter in
                                                      ("SetAsideData", "SetServerEntriesBack")))

    def test_markers_that_a_rollback_deletes(self):
        self.change(MIGRATION, '<CustomAction Id="CustomAction17.Clear" BinaryKey="hxsetup" DllEntry="CustomAction17" '
                    'Execute="deferred"', '<CustomAction Id="CustomAction17.Clear" BinaryKey="hxsetup" '
                    'DllEntry="CustomAction17" Execute="rollback"')
        self.assert_found(kit_checks.check_strings, "server_migration.wxi: CustomAction17.Clear deletes files in a rollback, "
                          "when others can have made the folder a link: leave it out")

    def test_path_from_nowhere(self):
        self.change(MIGRATION, 'Property="CustomAction17.Judge" Value="[DIR_DATAFOLDER]"',
                    'Property="CustomAction17.Judge" Value="[PROP_FOLDER]"')
        self.change(SERVER, "[DIR_SERVER]dbcon.cmd", "[PROP_CONVERTER]")
        self.assert_found(kit_checks.check_paths, *(f"server/server.wxs: {action} runs as SYSTEM with {name}, of which nothing "
                                                    "says where it comes from" for action, name in
                                                    (("ConvertDatabase", "PROP_CONVERTER"),
                                                     ("CustomAction17.Judge", "PROP_FOLDER"))))

    def test_finding_that_is_not_forgotten(self):
        self.change(DATA, '<Custom Action="ForgetDataPresent" Sequence="597">PROP_DFPRESENT</Custom>', "")
        self.assert_found(kit_checks.check_findings, "server/server.wxs: CustomAction22 finds PROP_DFPRESENT, which is not "
                          "forgotten before that in both sequences")

    def test_finding_that_is_forgotten_in_the_dialogs_only(self):
        self.change(DATA, 'Property="PROP_DFPRESENT" Value="{}"/>', 'Property="PROP_DFPRESENT" Value="{}" Execute="firstSequence"/>')
        self.assert_found(kit_checks.check_findings, "server/server.wxs: CustomAction22 finds PROP_DFPRESENT, which is not "
                          "forgotten before that in both sequences")

    def test_finding_that_a_user_can_give(self):
        self.change(DATA, '  <Property Id="PROP_UPGRADE" Secure="yes"/>', '  <Property Id="PROP_UPGRADE" Secure="yes"/>\n'
                    '  <Property Id="PROP_NODATA" Secure="yes"/>')
        self.assertIn("server/server.wxs: PROP_NODATA, which server_data_folder.wxi reads, is secure",
                      self.found(kit_checks.check_secure))

    def test_search_that_keeps_what_is_given(self):
        self.change(SERVER, '<Custom Action="ForgetServerFolderFound" Sequence="45">SERVERFOLDERFOUND</Custom>', "")
        self.assert_found(kit_checks.check_findings, "server.wxs: SERVERFOLDERFOUND is searched for, and not forgotten before "
                          "that in both sequences")

    def test_update_folder_that_users_can_make(self):
        self.change(CLIENT, '            <Directory Id="DIR_APPDATA" Name="Update"/>\n', "")
        self.change(CLIENT, '      <Directory Id="System64Folder">',
                    '      <Directory Id="CommonAppDataFolder"><Directory Id="DIR_APPDATA" Name="Ostrel"/></Directory>\n'
                    '      <Directory Id="System64Folder">')
        self.assert_found(kit_checks.check_update_folder, "client/client.wxs: DIR_APPDATA is not below DIR_CLIENT: a user could "
                          "make it first, and the update task reads it as SYSTEM")


if __name__ == "__main__":
    unittest.main()
