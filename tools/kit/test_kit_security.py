"""kit_checks.py: finds mistakes by which a user could gain rights through a package, in copies of the fragments and the
models."""

import shutil
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from kit import kit_checks  # noqa: E402  after sys.path is set

MIGRATION = "packages/server_migration.wxi"
DATA = "packages/server_data_folder.wxi"
SERVER = "packages/server/server.wxs"
CLIENT = "packages/client/client.wxs"
OLDER = "packages/server/older.wxs"
LIBRARY = "packages/library.wxi"
GUIDE = "docs/authoring.md"

# Every package that runs actions.
PACKAGES = ("client/client.wxs", "other/client.wxs", "other/one.wxs", "other/other.wxs", "server/server.wxs", "gauge.wxs", "client.wxs",
            "server.wxs")
# One row of the refusal, in both sequences.
REFUSAL = '<Custom Action="RefuseNoAdministrator" Sequence="10">NOT AdminUser</Custom>'


class KitSecurityTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-kit-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name in ("packages", "docs/actions"):
            shutil.copytree(ROOT / name, self.root / name)
        for name in (GUIDE, "docs/actions.md", "src/frame/entry_points.def"):
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
                      kit_checks.check_update_folder, kit_checks.check_secure, kit_checks.check_administrator):
            self.assert_found(check)

    def test_string_that_follows_links(self):
        self.change(MIGRATION, "hxsetup -mobinl ", "hxsetup -mobin ")
        self.assert_found(kit_checks.check_strings, "server_migration.wxi: SetServerEntriesBack follows links: its string "
                          "needs the letter l")

    def test_string_whose_second_source_follows_links(self):
        self.change(MIGRATION, "-el &quot;[DIR_UPG_DATA].&quot;", "-ge &quot;[DIR_UPG_DATA].&quot;")
        self.assert_found(kit_checks.check_strings, "server_migration.wxi: SetMergeData follows links: its string needs the "
                          "letter l")

    def test_string_that_restores_its_letters(self):
        self.change(MIGRATION, "hxsetup -mobinl ", "hxsetup -moinglkg -lb ")
        self.assert_found(kit_checks.check_strings)

    def test_string_that_resets_its_letters(self):
        self.change(MIGRATION, "-el &quot;[DIR_UPG_DATA].&quot;", "-ze &quot;[DIR_UPG_DATA].&quot;")
        self.assert_found(kit_checks.check_strings, "server_migration.wxi: SetMergeData follows links: its string needs the "
                          "letter l")

    def test_string_that_deletes(self):
        """In a rollback, and before it."""
        self.change(MIGRATION, "hxsetup -mobinl ", "hxsetup -moinl ")
        self.change(MIGRATION, "hxsetup -mobl &quot;[DIR_EXDATA].", "hxsetup -mol &quot;[DIR_EXDATA].")
        self.assert_found(kit_checks.check_strings, *(f"server_migration.wxi: {setter} deletes what it replaces: its string needs "
                                                      "the letter b besides o" for setter in
                                                      ("SetAsideData", "SetServerEntriesBack")))

    def test_markers_that_a_rollback_deletes(self):
        self.change(MIGRATION, '<CustomAction Id="CustomAction17.Clear" BinaryKey="hxsetup" DllEntry="CustomAction17" '
                    'Execute="deferred"', '<CustomAction Id="CustomAction17.Clear" BinaryKey="hxsetup" '
                    'DllEntry="CustomAction17" Execute="rollback"')
        self.assert_found(kit_checks.check_strings, "server_migration.wxi: CustomAction17.Clear deletes files in a rollback, "
                          "when others may have replaced the folder by a link: leave it out")

    def test_path_of_unknown_source(self):
        self.change(MIGRATION, 'Property="CustomAction17.Judge" Value="[DIR_DATAFOLDER]"',
                    'Property="CustomAction17.Judge" Value="[PROP_FOLDER]"')
        self.change(SERVER, "[DIR_SERVER]dbcon.cmd", "[PROP_CONVERTER]")
        self.assert_found(kit_checks.check_paths, *(f"server/server.wxs: {action} runs as SYSTEM with {name}, but "
                                                    "PATH_SOURCES does not name its source" for action, name in
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

    def test_search_that_keeps_a_given_value(self):
        self.change(SERVER, '<Custom Action="ForgetServerFolderFound" Sequence="45">SERVERFOLDERFOUND</Custom>', "")
        self.assert_found(kit_checks.check_findings, "server.wxs: SERVERFOLDERFOUND is searched for, but not forgotten before "
                          "that in both sequences")

    def test_update_folder_that_users_can_make(self):
        self.change(CLIENT, '            <Directory Id="DIR_APPDATA" Name="Update"/>\n', "")
        self.change(CLIENT, '      <Directory Id="System64Folder">',
                    '      <Directory Id="CommonAppDataFolder"><Directory Id="DIR_APPDATA" Name="Ostrel"/></Directory>\n'
                    '      <Directory Id="System64Folder">')
        self.assert_found(kit_checks.check_update_folder, "client/client.wxs: DIR_APPDATA is not below DIR_CLIENT: a user could "
                          "make it first, and the update task reads it as SYSTEM")

    def assert_all_found(self, *texts):
        """Asserts that each package that runs actions has each of these findings, and that there are no others."""
        self.assert_found(kit_checks.check_administrator, *(f"{package}: {text}" for package in PACKAGES for text in texts))

    def test_every_package_is_checked(self):
        packages = [package.name for package in kit_checks.read_kit(self.root).packages]
        self.assertEqual(sorted(packages), sorted([*PACKAGES, "server/older.wxs"]))

    def test_package_without_the_library_fragment(self):
        """In packages/ and in the guide. Fragments that call the library do not compile without that fragment, but the
        package's own actions do."""
        self.change(CLIENT, "    <?include library.wxi?>\n", "")
        self.change(GUIDE, "    <?include library.wxi?>\n", "")
        self.assert_found(kit_checks.check_administrator, *(f"{package}: has no RefuseNoAdministrator: include library.wxi"
                                                            for package in ("client/client.wxs", "gauge.wxs", "client.wxs",
                                                                            "server.wxs")))

    def test_package_that_begins_to_run_actions(self):
        self.change(OLDER, "    <Feature ", '    <CustomAction Id="Own" Property="OWN" Value="1"/>\n    <Feature ')
        self.assert_found(kit_checks.check_administrator, "server/older.wxs: has no RefuseNoAdministrator: include library.wxi")

    def test_refusal_that_is_not_one(self):
        self.change(LIBRARY, 'Id="RefuseNoAdministrator" Error=', 'Id="RefuseNoAdministrator" Property="REFUSED" Value=')
        self.assert_all_found("RefuseNoAdministrator is not an action that only has an error")

    def test_refusal_that_an_action_skips(self):
        self.change(LIBRARY, 'Id="RefuseNoAdministrator" Error=', 'Id="RefuseNoAdministrator" Execute="firstSequence" Error=')
        self.assert_all_found("RefuseNoAdministrator is not an action that only has an error")

    def change_row(self, place, new):
        """Replaces the refusal's row in one sequence by `new`."""
        tag = {"UI": "InstallUISequence", "execute": "InstallExecuteSequence"}[place]
        self.change(LIBRARY, f"<{tag}>\n    {REFUSAL}", f"<{tag}>\n    {new}")

    def test_refusal_in_one_sequence_only(self):
        for place in ("UI", "execute"):
            with self.subTest(place):
                self.change_row(place, "<!-- nothing -->")
                self.assert_all_found(f"RefuseNoAdministrator is missing in the {place} sequence, not once at 10 with "
                                      "NOT AdminUser")
                shutil.copyfile(ROOT / LIBRARY, self.root / LIBRARY)

    def test_refusal_at_another_place(self):
        self.change_row("execute", REFUSAL.replace('"10"', '"9"'))
        self.assert_all_found("RefuseNoAdministrator is [(9, 'NOT AdminUser')] in the execute sequence, not once at 10 "
                              "with NOT AdminUser")

    def test_refusal_with_another_condition(self):
        for place in ("UI", "execute"):
            for condition in ("NOT Privileged", "NOT AdminUser AND NOT Installed", ""):
                with self.subTest(f"{place} {condition}"):
                    self.change_row(place, REFUSAL.replace("NOT AdminUser", condition))
                    self.assert_all_found(f"RefuseNoAdministrator is [(10, '{condition}')] in the {place} sequence, not "
                                          "once at 10 with NOT AdminUser")
                    shutil.copyfile(ROOT / LIBRARY, self.root / LIBRARY)

    def test_refusal_with_a_second_row(self):
        self.change(CLIENT, "    <Directory Id=\"TARGETDIR\"", '    <InstallUISequence><Custom Action="RefuseNoAdministrator" '
                    'Sequence="30">NOT Privileged</Custom></InstallUISequence>\n    <Directory Id="TARGETDIR"')
        self.assert_found(kit_checks.check_administrator,
                          "client/client.wxs: RefuseNoAdministrator is [(30, 'NOT Privileged'), (10, 'NOT AdminUser')] in the UI "
                          "sequence, not once at 10 with NOT AdminUser")

    def test_action_before_the_refusal(self):
        self.change(DATA, '<Custom Action="ForgetUpgradeProducts" Sequence="20">', '<Custom Action="ForgetUpgradeProducts" '
                    'Sequence="10">')
        self.assert_found(kit_checks.check_administrator, *(
            f"{package}: ForgetUpgradeProducts is at 10 of the {place} sequence, before RefuseNoAdministrator"
            for package in ("server/server.wxs", "server.wxs") for place in ("UI", "execute")))

    def test_engines_action_before_the_refusal(self):
        self.change(CLIENT, "    <Directory Id=\"TARGETDIR\"", '    <InstallUISequence><AppSearch Sequence="1"/>'
                    '</InstallUISequence>\n    <Directory Id="TARGETDIR"')
        self.assert_found(kit_checks.check_administrator,
                          "client/client.wxs: AppSearch is at 1 of the UI sequence, before RefuseNoAdministrator")

    def test_rights_that_the_engine_grants_in_a_repair(self):
        for old, new in ((' Value="1"/>', ' Value="0"/>'), ('<Property Id="MSIUSEREALADMINDETECTION" Value="1"/>', "")):
            self.change(LIBRARY, old, new)
            self.assert_all_found("MSIUSEREALADMINDETECTION is not 1, so in each repair AdminUser is set as if the user "
                                  "were an administrator")
            shutil.copyfile(ROOT / LIBRARY, self.root / LIBRARY)

    def test_rights_that_a_user_can_give(self):
        self.change(LIBRARY, 'Id="MSIUSEREALADMINDETECTION" Value="1"', 'Id="MSIUSEREALADMINDETECTION" Value="1" Secure="yes"')
        self.assert_all_found("MSIUSEREALADMINDETECTION is secure, so a user can give another value")

    def test_rights_that_a_package_sets(self):
        self.change(CLIENT, "    <Directory Id=\"TARGETDIR\"", '    <Property Id="AdminUser" Value="1"/>\n'
                    '    <CustomAction Id="Rights" Property="AdminUser" Value="1"/>\n'
                    '    <CustomAction Id="Detection" Property="MSIUSEREALADMINDETECTION" Value="{}"/>\n'
                    '    <Directory Id="TARGETDIR"')
        self.assert_found(kit_checks.check_administrator,
                          "client/client.wxs: AdminUser is declared, so it is set for every user",
                          "client/client.wxs: Rights sets AdminUser",
                          "client/client.wxs: Detection sets MSIUSEREALADMINDETECTION")

    def test_action_of_the_library_in_a_sequence_without_a_refusal(self):
        row = '<Custom Action="CustomAction30" Sequence="20"/>'
        for tag in ("AdminExecuteSequence", "AdminUISequence", "AdvertiseExecuteSequence", "AdvtExecuteSequence"):
            with self.subTest(tag):
                self.change("packages/installed_programs.wxi", "</Include>", f"  <{tag}>{row}</{tag}>\n</Include>")
                self.assert_found(kit_checks.check_administrator, "client/client.wxs: CustomAction30 calls the library in "
                                  f"{tag}, which does not refuse the run")
                shutil.copyfile(ROOT / "packages/installed_programs.wxi", self.root / "packages/installed_programs.wxi")


if __name__ == "__main__":
    unittest.main()
