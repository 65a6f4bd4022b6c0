"""rules.py: each rule finds each package that breaks it, and nothing in the project's packages. The mistakes of new authors
are in test_mistakes.py."""

import copy
import re
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from kit.kit_checks import reads_data, read_kit
from kit.guide_examples import examples
from packages import rules
from packages.compiler import CompilerError, compile_source
from packages.fragments import read_fragments
from packages.sample_library import ROOT, make_library
from packages.tables import Column, PackageError, Table, read_package
from support import load_script

PACKAGE = load_script("packages/make_packages.py")

CLIENT, SERVER, OTHER = "client/client.wxs", "server/server.wxs", "other/other.wxs"
EXECUTE, DIALOGS = "InstallExecuteSequence", "InstallUISequence"
DEFERRED = 1 + 64 + 1024 + 2048
SETS = 51


class FragmentTest(unittest.TestCase):
    """What is read from the files of the fragments. A head in other words may be no longer understood: then either the
    pattern in fragments.py or the words must change."""

    def facts(self, name):
        return {fragment.name: getattr(fragment, name) for fragment in read_fragments().values() if getattr(fragment, name)}

    def test_removal(self):
        self.assertEqual(set(self.facts("removal")), {"client_upgrade.wxi", "server_migration.wxi", "server_replaced.wxi",
                                                      "service_account.wxi"})

    def test_service(self):
        self.assertEqual(self.facts("service"), {"service_account.wxi": {"Account": "[ServiceAccount]",
                                                                         "Password": "[PROP_ACCOUNTPASS]"}})
        self.assertEqual(self.facts("only_if"), {"service_account.wxi": {"InstallServices": "NOT SERVICEFOUND"}})
        self.assertEqual(self.facts("before"), {"server_migration.wxi": {"StopServices": 2010}})

    def test_conversion(self):
        self.assertEqual(self.facts("conversion"), {"server_migration.wxi": [(4125, 4190)]})

    def test_files_and_folders(self):
        self.assertEqual(self.facts("created"), {"server_migration.wxi": ["DIR_DATAFOLDER"]})
        self.assertEqual(self.facts("programs"), {
            "client_tasks.wxi": [("DIR_CLIENT", ["osua.exe", "osau.exe", "ostrel32.exe"])],
            "tracking_hook.wxi": [("System64Folder", ["OSTRACK.DLL"])]})
        self.assertEqual(self.facts("named_files"), {"service_configuration.wxi": [("SetupFile", "DIR_SERVER")]})

    def test_values(self):
        written = {name: self.facts("values")[name] for name in self.facts("written")}
        self.assertEqual(written, {"client_upgrade.wxi": {"[ProductCode]", "[DIR_CLIENT]"},
                                   "server_replaced.wxi": {"[ProductCode]"},
                                   "service_account.wxi": {"[ProductCode]", "[AccountNoted]", "[AccountNotedDomain]"}})

    def test_required(self):
        self.assertEqual({name: list(required) for name, required in self.facts("required").items()}, {
            "client_upgrade.wxi": ["DIR_CLIENT"], "server_access.wxi": ["DIR_SERVER", "DIR_DATAFOLDER"],
            "server_data_folder.wxi": ["DIR_SERVER", "ServerDataName"], "service_configuration.wxi": ["DIR_SERVER"],
            "server_migration.wxi": ["ServerAsideName", "DIR_UPG_HELPERDATA", "DIR_UPG_VRDF", "DIR_UPG_VRDF_PREFS"]})

    def test_entry_points_with_data(self):
        """Those that the fragments call with data are all that read data, by the page."""
        kit = read_kit(ROOT)
        expected = {name for name in kit.exported if reads_data(kit, {"DllEntry": name, "Execute": "deferred"})}
        self.assertEqual({name for names in self.facts("calls_with_data").values() for name in names}, expected)

    def test_no_two_fragments_have_an_action_of_one_name(self):
        """One action tells which fragment a package uses."""
        names = [name for fragment in read_fragments().values() for name in fragment.actions]
        self.assertEqual(len(names), len(set(names)))

    def test_variables_that_belong_together(self):
        self.assertEqual(self.facts("named_together"),
                         {"server_replaced.wxi": "ServiceName, ServerKey, ServerName and AccountId"})


class RulesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hx-rules-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder, cls.packages = Path(folder.name), {}
        library = make_library(cls.folder / "x64", "x64")
        for name in (PACKAGE.PROGRAM, PACKAGE.TRACKING):
            (library.parent / name).write_bytes(b"a program")
        for name in (CLIENT, SERVER, OTHER):
            path = cls.folder / f"{name.replace('/', '-')}.msi"
            PACKAGE.make_package(name, "x64", library, name, "1.0.0", path)
            cls.packages[name] = path, read_package(path)
        cls.guide = {}
        for name, text in examples().items():
            PACKAGE.make_example(name, text, "x64", library, cls.folder / f"{name}.msi")
            cls.guide[name] = cls.folder / f"{name}.msi"

    def package(self, name):
        """(a copy of the tables of a right package, its path)."""
        path, database = self.packages[name]
        return copy.deepcopy(database), path

    def found(self, name, change):
        """The findings in a package after `change`, which gets its tables."""
        database, path = self.package(name)
        change(Tables(database))
        return rules.check(database, path)

    def assert_found(self, name, change, *texts, severity="error"):
        self.assertEqual(self.found(name, change), [(severity, text) for text in texts])

    def test_right_packages(self):
        for name in self.packages:
            self.assert_found(name, lambda tables: None)
        for name, path in self.guide.items():
            self.assertEqual(rules.check(read_package(path), path), [], name)

    def test_a_package_that_does_not_use_the_library(self):
        def change(tables):
            for name in list(tables.database.tables):
                if name not in ("Property", "Component", "Directory", "File", "Feature"):
                    del tables.database.tables[name]
            tables.drop("Property", "ALLUSERS")
        self.assert_found(CLIENT, change, rules.UNUSED, severity="warning")

    def test_an_action_of_another_author_with_the_name_of_a_fragments(self):
        def change(tables):
            for name in ("CustomAction", "Binary", EXECUTE, DIALOGS):
                del tables.database.tables[name].rows[:]
            tables.drop("Property", "SecureCustomProperties")
            tables.add("CustomAction", "NoteAccount", SETS, "X", "1", None)
        self.assert_found(OTHER, change, rules.UNUSED, severity="warning")

    # ---- the library

    def test_library_under_another_name(self):
        """The same DLL as another Binary is the library, too: its calls are checked."""
        def change(tables):
            for row in tables.database.tables["Binary"].rows:
                row[0] = "HxLib"
            for row in tables.database.tables["CustomAction"].rows:
                row[2] = "HxLib" if row[2] == "hxsetup" else row[2]
            tables.change("CustomAction", "CustomAction29", Target="CustomAction92")
        real = rules.read_program
        with mock.patch.object(rules, "read_program", lambda path, _: real(path, "hxsetup")):
            found = [text for _, text in self.found(CLIENT, change)]
        self.assertIn("The action CustomAction29 calls CustomAction92, which HxLib in the table Binary does not export. "
                      "docs/actions.md lists the entry points.", found)

    def test_other_dlls_are_not_the_library(self):
        for exports, expected in ((["CustomAction1"], False), ([f"CustomAction{number}" for number in range(1, 12)], True)):
            path = make_library(self.folder / f"exports-{len(exports)}", "x64", "other.dll", exports)
            self.assertEqual(rules.is_library(rules.Program(path)), expected)
        self.assertFalse(rules.is_library(None))

    def test_damaged_tables(self):
        with self.assertRaisesRegex(PackageError, "is damaged, or made by a compiler that leaves out columns"):
            self.found(CLIENT, lambda tables: tables.database.tables["ActionText"].columns.pop(1))

    def test_processor(self):
        def template(text):
            return lambda tables: tables.database.summary.update({7: text})
        self.assert_found(CLIENT, template("Arm64;1033"),
                          "hxsetup in the table Binary is for x64, but the package is for arm64. Give the variable LibraryFile "
                          "the path of arm64/hxsetup.dll.")
        for text, name in (("Intel;1033", "Intel"), (";1033", "Intel"), ("Intel64;1033", "Intel64")):
            self.assert_found(CLIENT, template(text),
                              f"The package is for the processor {name}: the library is for x64 and Arm64 only. Compile with "
                              "-arch x64 or -arch arm64.")

    def test_entry_points(self):
        self.assert_found(CLIENT, lambda tables: tables.change("CustomAction", "CustomAction29", Target="CustomAction92"),
                          "The action CustomAction29 calls CustomAction92, which hxsetup in the table Binary does not export. "
                          "docs/actions.md lists the entry points.",
                          "client_close.wxi: the action CustomAction29 is not as the fragment has it. Include the fragment "
                          "unchanged.")

    def test_command_of_a_fragment(self):
        """Another command, and another program."""
        changed = "server_migration.wxi: the action {} is not as the fragment has it. Include the fragment unchanged."
        self.assert_found(SERVER, lambda tables: tables.change("CustomAction", "NoteServer", Target="add HKLM\\Key"),
                          changed.format("NoteServer"))
        self.assert_found(SERVER, lambda tables: tables.change("CustomAction", "ForgetNote", Source="OtherProgram"),
                          changed.format("ForgetNote"))

    def test_key_of_the_note(self):
        """All packages have the same key. A package cannot name another one."""
        key = "SOFTWARE\\Halvorstead\\Vantor\\Upgrade"
        text = (ROOT / "packages/server/server.wxs").read_text(encoding="utf-8")
        (self.folder / "note").mkdir()
        (self.folder / "note/server.wxs").write_text(
            text.replace("<?include library.wxi?>", '<?define NoteKey = "SOFTWARE\\Own"?><?include library.wxi?>'), encoding="utf-8")
        folders = [ROOT / "packages", ROOT / "packages/server"]
        variables = {**{name: "x" for name in ("Processor", "LibraryFile", "ProgramFile")}, "Version": "1.2.3",
                     "ProductCode": "{11111111-2222-3333-4444-555555555555}"}
        with self.assertRaisesRegex(CompilerError, "The variable 'NoteKey' .* was previously declared"):
            compile_source(self.folder / "note/server.wxs", folders, variables)
        database = compile_source(folders[1] / "server.wxs", folders, variables)
        keys = [row["Key"] for row in database.rows("RegLocator") if row["Name"] in ("Server", "Aside", "Data", "AsideData")]
        self.assertEqual(keys, [key] * 4)
        commands = {row["Action"]: row["Target"] for row in database.rows("CustomAction")
                    if row["Source"] in ("RegistryProgram", "CommandProgram") and "HKLM" in row["Target"]}
        notes = {"NoteNewData", "NoteAside", "NoteData", "NoteAsideData", "NoteServer"}
        self.assertEqual(set(commands), {"ForgetOlderNote", "ForgetNote", *notes, *(f"{name}Again" for name in notes)})
        for command in commands.values():
            self.assertIn(f'"HKLM\\{key}"', command)
        targets = {row["Action"]: row["Target"] for row in database.rows("CustomAction")}
        for name in ("CheckNoNote", "ForgetNoteBack", "SetUnlessNewData"):
            self.assertIn('"[UpgradeNote]"', targets[name])
        self.assertEqual(database.properties()["UpgradeNote"], f"HKLM\\{key}")

    def test_binary_is_missing(self):
        calls = "CustomAction5, CustomAction19, CustomAction23, CustomAction23.Rollback"
        found = self.found(OTHER, lambda tables: tables.drop("Binary", "hxsetup"))
        self.assertRegex(found[0][1], "^The table Binary has no hxsetup, which .*CustomAction24.* call. Include library.wxi.$")
        for name in calls.split(", "):
            self.assertIn(name, found[0][1])
        self.assertEqual(len(found), 1)

    def test_binary_is_not_a_dll(self):
        for data in (b"MZ and no more", b"text", b""):
            package = self.folder / "text.msi"
            PACKAGE.make_package(CLIENT, "x64", self.stand_in("hxsetup.dll", data), "x", "1.0.0", package)
            self.assertEqual(rules.check(read_package(package), package), [(
                "error", "hxsetup in the table Binary is not a DLL of Windows. Give the variable LibraryFile the path of "
                         "hxsetup.dll.")])

    def stand_in(self, name, data):
        folder = self.folder / "stand-in"
        folder.mkdir(exist_ok=True)
        for file in (PACKAGE.PROGRAM, PACKAGE.TRACKING):
            (folder / file).write_bytes(b"a program")
        (folder / name).write_bytes(data)
        return folder / name

    # ---- the fragments

    def test_fragment_that_is_needed(self):
        def change(tables):
            value = tables.row("Property", "SecureCustomProperties")["Value"].replace("PROP_SILENCE;", "").replace(
                ";PROP_SILENCE", "")
            tables.change("Property", "SecureCustomProperties", Value=value)
        self.assert_found(OTHER, change, "notices.wxi is missing, and firewall.wxi and service_account.wxi need it. Include it "
                                         "before these.")

    def test_part_of_a_fragment(self):
        """An author who writes an action instead of including its fragment."""
        def change(tables):
            for name in ("CustomAction", EXECUTE):
                tables.drop(name, "CustomAction37")
        self.assert_found(SERVER, change, "service_configuration.wxi: the package has SetSetupInstall, CustomAction36.Install, "
                          "SetSetupRollback, CustomAction36.Rollback, SetSetupRemoveBack, CustomAction36.RemoveBack, "
                          "SetSetupRemove, CustomAction36.Remove and RefuseNoSetupFolder, but not CustomAction37. Include the "
                          "whole fragment instead of writing its actions.")

    def test_changed_action(self):
        changed = "server_access.wxi: the action SetDataAccess is not as the fragment has it. Include the fragment unchanged."
        for change in ({"Target": "x"}, {"Source": "CustomAction25.Other"}, {"Type": SETS + 256}):
            found = self.found(SERVER, lambda tables: tables.change("CustomAction", "SetDataAccess", **change))
            self.assertIn(("error", changed), found)

    def test_refusal_in_another_language(self):
        self.assert_found(SERVER, lambda tables: tables.change("CustomAction", "RefuseDataName", Target="Nein."))

    def test_places_of_a_fragment(self):
        self.assert_found(CLIENT, lambda tables: tables.drop(EXECUTE, "CustomAction38"),
                          "client_restart.wxi: CustomAction38 is not in InstallExecuteSequence, where the fragment has it at "
                          "6670. Include the fragment unchanged.")
        self.assert_found(CLIENT, lambda tables: tables.change(EXECUTE, "CustomAction38", Sequence=6605),
                          "client_restart.wxi: CustomAction38 is at 6605 of InstallExecuteSequence, and the fragment has it at "
                          "6670. Leave it at the fragment's place.")
        self.assert_found(CLIENT, lambda tables: tables.change(EXECUTE, "CustomAction38", Condition="Installed"),
                          "client_restart.wxi: CustomAction38 has another condition in InstallExecuteSequence than in the "
                          "fragment. Include the fragment unchanged.")

    # ---- properties and texts

    def test_secure_and_hidden(self):
        def without(listing, name):
            def change(tables):
                value = [each for each in tables.row("Property", listing)["Value"].split(";") if each != name]
                tables.change("Property", listing, Value=";".join(value) or None)
            return change
        self.assert_found(CLIENT, without("SecureCustomProperties", "PROP_CLEAN"),
                          "client_settings.wxi: PROP_CLEAN is not in SecureCustomProperties, so the value that a user gives is "
                          'lost between the dialogs and the installation. Give the property Secure="yes".')
        self.assert_found(CLIENT, without("MsiHiddenProperties", "PROP_TASKPASS"),
                          "client_tasks.wxi: PROP_TASKPASS is not in MsiHiddenProperties, so its value gets into the log. Give "
                          'the property Hidden="yes".')
        self.assert_found(SERVER, lambda tables: tables.change(
            "Property", "SecureCustomProperties",
            Value=tables.row("Property", "SecureCustomProperties")["Value"] + ";PROP_FIREWALLDATA"),
            "PROP_FIREWALLDATA is in SecureCustomProperties, so a command line can replace the package's value. Leave out "
            'Secure="yes".')

    def test_default(self):
        self.assert_found(CLIENT, lambda tables: tables.drop("Property", "PROP_CLEAN"),
                          "client_settings.wxi: the property PROP_CLEAN has no value in the table Property. Include the fragment "
                          "unchanged.")

    def test_error_texts(self):
        for change in (lambda tables: tables.drop("Error", 25001), lambda tables: tables.change("Error", 25001, Message=None)):
            self.assert_found(OTHER, change, "firewall.wxi: the table Error has no text 25001, so its notice is empty. Include the "
                                             "fragment unchanged, or add the text in the package's language.")

    def test_progress_texts(self):
        """Only if the fragment has them."""
        fragment = read_fragments()["audit_file.wxi"]
        before, fragment.progress = fragment.progress, ["CustomAction11"]
        try:
            self.assert_found(CLIENT, lambda tables: tables.clear("ActionText"),
                              *(f"{each.name}: the table ActionText has no text for {rules.join(each.progress)}. Include the "
                                "fragment unchanged, or add the texts in the package's language."
                                for each in read_fragments().values() if each.progress and self.is_used(CLIENT, each)))

            def change(tables):
                tables.database.tables["ActionText"] = Table("ActionText", [
                    Column("Action", "s", 72, False, True), Column("Description", "l", 0, True, False)])
                for each in read_fragments().values():
                    for action in each.progress:
                        tables.add("ActionText", action, "Working")
            self.assert_found(CLIENT, change)
        finally:
            fragment.progress = before

    def is_used(self, name, fragment):
        path, database = self.packages[name]
        return fragment in rules.Package(database, path, read_fragments()).used

    # ---- what the package must have

    def test_per_machine(self):
        self.assert_found(CLIENT, lambda tables: tables.change("Property", "ALLUSERS", Value="2"),
                          "The package is installed per user (ALLUSERS is 2): its actions work on the machine. Give the Package "
                          'element InstallScope="perMachine".')

    def test_folders(self):
        def change(tables):
            tables.drop("Directory", "DIR_DATAFOLDER")
        self.assert_found(OTHER, change, "server_access.wxi: RefuseNoAccessFolders refuses each installation. The package has no "
                                         "folder DIR_DATAFOLDER. Give a Directory this Id, as the head of the fragment says.")

    def test_folder_that_is_set_too_late(self):
        def change(tables):
            for table in (EXECUTE, DIALOGS):
                for name, number in (("KeepServerFolder", 630), ("NewServerFolder", 631)):
                    tables.change(table, name, Sequence=number + 1)
        found = self.found(SERVER, change)
        self.assertIn(("error", "server_data_folder.wxi: RefuseServerFolder refuses each installation. Nothing sets DIR_SERVER "
                                "before 626. Set it, as the head of the fragment says."), found)

    def test_registry(self):
        values = self.packages[SERVER][1].rows("Registry")
        product, = (row["Registry"] for row in values if row["Name"] == "Product")
        folder, = (row["Registry"] for row in values if row["Name"] == "AccountDomain")
        missing = ('{}: the package does not write the value "{}" of the key HKLM\\SOFTWARE\\Halvorstead\\Vantor, which later '
                   "runs read. Add the RegistryValue to a component that all versions have, as the head of the fragment says.")
        self.assert_found(SERVER, lambda tables: tables.drop("Registry", product),
                          missing.format("server_replaced.wxi", "Product"))
        self.assert_found(SERVER, lambda tables: tables.drop("Registry", folder),
                          missing.format("service_account.wxi", "AccountDomain"))
        self.assert_found(SERVER, lambda tables: tables.change("Registry", product, Root=1),
                          missing.format("server_replaced.wxi", "Product"))
        self.assert_found(SERVER, lambda tables: tables.change("Registry", product, Value="1"),
                          'server_replaced.wxi: the value "Product" of the key HKLM\\SOFTWARE\\Halvorstead\\Vantor is 1. It must '
                          "be [ProductCode], as the head of the fragment says.")

    def test_component_of_a_value(self):
        found = self.found(CLIENT, lambda tables: tables.change("Component", "Client", Attributes=4))
        self.assertEqual(found, [
            ("error", f'client_upgrade.wxi: the component Client writes the value "{name}" for 32-bit programs, and no later run '
                      'finds it. Give the Component Win64="yes".') for name in ("Product", "Folder")])
        found = self.found(CLIENT, lambda tables: tables.drop("FeatureComponents", "Client", "Component_"))
        self.assertEqual(found, [
            ("error", f'client_upgrade.wxi: the component Client with the value "{name}" is in no feature. Add a ComponentRef.')
            for name in ("Product", "Folder")])

    def test_search(self):
        for table in ("RegLocator", "AppSearch"):
            column = "Signature_"
            self.assert_found(SERVER, lambda tables: tables.drop(table, "AccountSearch", column),
                              "service_account.wxi: the package does not search for ACCOUNTFOUND. Include the fragment unchanged.")

    def test_product_of_another_name(self):
        def change(tables):
            tables.change("Property", "Manufacturer", Value="Brackwell")
            tables.change("Property", "ProductName", Value="Gauge")
        self.assert_found(SERVER, change, "server_replaced.wxi: the product Gauge uses the registry key of Vantor, "
                          "SOFTWARE\\Halvorstead\\Vantor, and takes Vantor's installation for its own. Define ServerKey before the "
                          'fragments (docs/authoring.md, "What is fixed").')

    def test_files(self):
        self.assert_found(CLIENT, lambda tables: tables.drop("File", "AutoUpdateFile"),
                          "client_tasks.wxi: the package does not install osau.exe in DIR_CLIENT. Add the File to a component in "
                          "this Directory.")
        self.assert_found(CLIENT, lambda tables: tables.change("Component", "Tracking", Directory_="DIR_CLIENT"),
                          "tracking_hook.wxi: the package does not install OSTRACK.DLL in System64Folder. Add the File to a "
                          "component in this Directory.")
        self.assert_found(SERVER, lambda tables: tables.drop("File", "SetupInformationFile"),
                          "service_configuration.wxi: the package does not install vantor.inf in DIR_SERVER. Add the File to a "
                          "component in this Directory.")

    def test_setup_file_of_another_name(self):
        """The file that the package's variable SetupFile names."""
        def change(tables):
            for name in ("SetSetupInstall", "SetSetupRollback", "SetSetupRemove", "SetSetupRemoveBack"):
                target = tables.row("CustomAction", name)["Target"]
                tables.change("CustomAction", name, Target=target.replace("vantor.inf", "gauge.inf"))
        self.assert_found(SERVER, change, "service_configuration.wxi: the package does not install gauge.inf in DIR_SERVER. Add "
                                          "the File to a component in this Directory.")

    def test_folder_that_must_exist(self):
        self.assert_found(SERVER, lambda tables: tables.clear("CreateFolder"),
                          "server_migration.wxi: no component makes the folder DIR_DATAFOLDER. Add a Component with CreateFolder "
                          "to this Directory.")

    def test_folder_that_the_update_reads(self):
        self.assert_found(CLIENT, lambda tables: tables.change("Directory", "DIR_APPDATA", Directory_Parent="TARGETDIR"),
                          "The Directory DIR_APPDATA is not below DIR_CLIENT: a user could make it first, and the update task reads "
                          "it as SYSTEM. Put it below DIR_CLIENT.", severity="warning")

    def test_services(self):
        self.assert_found(OTHER, lambda tables: tables.change("ServiceInstall", "GaugeService", Password=None),
                          "service_account.wxi: the service Gauge does not get the account that is made for it. Give its "
                          'ServiceInstall Password="[PROP_ACCOUNTPASS]".')
        self.assert_found(OTHER, lambda tables: tables.clear("ServiceInstall"),
                          'service_account.wxi: the package installs no service. Add a ServiceInstall with '
                          'Account="[ServiceAccount]" and Password="[PROP_ACCOUNTPASS]".')
        self.assert_found(OTHER, lambda tables: tables.change("ServiceInstall", "GaugeService", Name="Meter"),
                          "service_account.wxi: no ServiceInstall of the package is for the service Gauge, for which it makes the "
                          "account. Define ServiceName, ServerKey, ServerName and AccountId for Meter before the fragments.")
        self.assert_found(OTHER, lambda tables: tables.change(EXECUTE, "InstallServices", Condition="VersionNT64"),
                          "service_account.wxi: InstallServices must run only if NOT SERVICEFOUND. Write <InstallServices>NOT "
                          "SERVICEFOUND</InstallServices> into InstallExecuteSequence.")
        self.assert_found(OTHER, lambda tables: tables.change(EXECUTE, "InstallServices", Condition="A AND NOT SERVICEFOUND"))

    def test_services_are_stopped_in_time(self):
        early = "server_migration.wxi: StopServices must be in InstallExecuteSequence before 2010, and is {}. Give it a lower number."
        self.assert_found(SERVER, lambda tables: tables.change(EXECUTE, "StopServices", Sequence=2015), early.format("at 2015"))
        self.assert_found(SERVER, lambda tables: tables.drop(EXECUTE, "StopServices"),
                          "server_migration.wxi: StopServices must be in InstallExecuteSequence before 2010, and is missing. Schedule "
                          "it there; a ServiceControl in the server's component brings StopServices.")

    def test_conversion(self):
        self.assert_found(SERVER, lambda tables: tables.change(EXECUTE, "ConvertDatabase", Sequence=4195),
                          "server_migration.wxi: no deferred action of the package is between 4125 and 4190, where the data are "
                          "converted, so each run with data is rolled back. Schedule the conversion there.")

    # ---- data and places

    def call(self, setter=5795, number=5830, condition=None, setters=None, kind=DEFERRED, data=SETS):
        """Adds a call of the library to a package, with its data; None is an action in no sequence."""
        def change(tables):
            tables.add("CustomAction", "CustomAction25.Logs", kind, "hxsetup", "CustomAction25", None)
            tables.add("CustomAction", "SetLogs", data, "CustomAction25.Logs", "[LogonUser]*[DIR_SERVER]", None)
            if setter:
                tables.add(EXECUTE, "SetLogs", setters, setter)
            tables.add(EXECUTE, "CustomAction25.Logs", condition, number)
        return change

    def test_data(self):
        self.assert_found(SERVER, self.call())
        self.assert_found(SERVER, self.call(setter=5831),
                          "The action SetLogs sets the data of CustomAction25.Logs at 5831, after the engine has read them at 5830. "
                          "Give it a lower number than 5830.")
        self.assert_found(SERVER, self.call(setter=None),
                          "The action SetLogs sets the data of CustomAction25.Logs, but is not in InstallExecuteSequence. Schedule "
                          "it there, before 5830.")
        self.assert_found(SERVER, self.call(data=SETS + 1024),
                          "The action SetLogs sets the data of CustomAction25.Logs, but is deferred itself. Make it immediate.")

    def test_data_that_two_actions_set(self):
        """One that is too late, or in no sequence, does no harm if another one has set the data in each run that needs them."""
        def change(condition, number):
            def add(tables):
                self.call(condition='NOT (REMOVE ~= "ALL")', setters='NOT (REMOVE ~= "ALL")')(tables)
                tables.change(EXECUTE, "SetLogs", Condition=condition)
                tables.add("CustomAction", "SetLogsAgain", SETS, "CustomAction25.Logs", "[LogonUser]*[DIR_SERVER]", None)
                if number:
                    tables.add(EXECUTE, "SetLogsAgain", "Installed", number)
            return add
        for number in (None, 5796, 5840):
            self.assert_found(SERVER, change('NOT (REMOVE ~= "ALL")', number))
        self.assert_found(SERVER, change("NOT Installed", 5796))
        self.assert_found(SERVER, change("NOT Installed", 5840),
                          'The action CustomAction25.Logs can run without its data: its condition is NOT (REMOVE ~= "ALL"), and that '
                          "of SetLogs does not include it. Give both the same condition.")

    def test_data_that_nothing_sets(self):
        def change(tables):
            self.call()(tables)
            tables.change("CustomAction", "SetLogs", Source="OTHER")
        self.assert_found(SERVER, change, "Nothing sets the data of the action CustomAction25.Logs. Add an action that sets the "
                                          "property CustomAction25.Logs, and schedule it before 5830.")

    def test_conditions_of_action_and_data(self):
        self.assert_found(SERVER, self.call(condition='NOT (REMOVE ~= "ALL")', setters='NOT (REMOVE = "ALL")'))
        self.assert_found(SERVER, self.call(condition='NOT Installed', setters='NOT (REMOVE ~= "ALL")'))
        self.assert_found(SERVER, self.call(condition='NOT (REMOVE ~= "ALL")', setters="NOT Installed"),
                          'The action CustomAction25.Logs can run without its data: its condition is NOT (REMOVE ~= "ALL"), and that '
                          "of SetLogs does not include it. Give both the same condition.")

    def test_script(self):
        for number in (1490, 6610):
            self.assert_found(SERVER, self.call(setter=1470, number=number),
                              f"The action CustomAction25.Logs is deferred, but is at {number}. Put it between InstallInitialize "
                              "(1500) and InstallFinalize (6600).")

        def change(tables):
            self.call()(tables)
            tables.add(DIALOGS, "CustomAction25.Logs", None, 1250)
        self.assert_found(SERVER, change, "The action CustomAction25.Logs is deferred, but is in InstallUISequence, which has no "
                                          "script. Schedule it in InstallExecuteSequence.")

    def test_rights_of_a_deferred_action(self):
        self.assert_found(SERVER, self.call(kind=DEFERRED - 2048),
                          "The action CustomAction25.Logs is deferred, but does not run as SYSTEM, so it may not have the rights for "
                          'its work. Give it Impersonate="no".', severity="warning")

    def test_rollback(self):
        def change(number):
            def add(tables):
                for name, kind, place in (("Install", DEFERRED, 4460), ("Back", DEFERRED + 256, number)):
                    tables.add("CustomAction", f"CustomAction36.Own{name}", kind, "hxsetup", "CustomAction36", None)
                    tables.add("CustomAction", f"SetOwn{name}", SETS, f"CustomAction36.Own{name}", "Own", None)
                    tables.add(EXECUTE, f"CustomAction36.Own{name}", None, place)
                    tables.add(EXECUTE, f"SetOwn{name}", None, 1600 + len(name))
            return add
        self.assert_found(SERVER, change(4459))
        self.assert_found(SERVER, change(4461), "The rollback action CustomAction36.OwnBack is at 4461, after what it undoes (4460). "
                          "A failure of that one would not be undone: give the rollback action a lower number.")

    def test_firewall(self):
        reads = "CustomAction5 at 6620 and CustomAction19 at 6590 read PROP_FIREWALLDATA, "
        said = "Set PROP_FIREWALLDATA before 6590, in the installation and in the removal."
        self.assert_found(OTHER, lambda tables: tables.change(EXECUTE, "SetFirewallData", Sequence=6595),
                          f"{reads}but SetFirewallData sets it at 6595. {said}")
        self.assert_found(OTHER, lambda tables: tables.change(EXECUTE, "SetFirewallData", Condition='NOT (REMOVE ~= "ALL")'),
                          "CustomAction19 can run without PROP_FIREWALLDATA: the condition of SetFirewallData does not include its "
                          f"condition. {said}")
        self.assert_found(OTHER, lambda tables: tables.drop(EXECUTE, "SetFirewallData"), f"{reads}and nothing sets it. {said}")

    def test_firewall_by_a_declared_property(self):
        def change(value):
            def declare(tables):
                tables.drop(EXECUTE, "SetFirewallData")
                tables.drop("CustomAction", "SetFirewallData")
                tables.add("Property", "PROP_FIREWALLDATA", value)
            return declare
        self.assert_found(OTHER, change("Gauge/C:\\Gauge\\gauge.exe"))
        self.assert_found(OTHER, change("Gauge/[DIR_SERVER]gauge.exe"),
                          "The property PROP_FIREWALLDATA has [DIR_SERVER] in its value, and the engine does not replace that in the "
                          "table Property. Set the property in an action.")

    def test_two_actions_at_one_place(self):
        def change(tables):
            tables.add("CustomAction", "Own", SETS, "OWN", "1", None)
            tables.add(EXECUTE, "Own", None, 6620)
        self.assert_found(CLIENT, change, "InstallExecuteSequence has CustomAction27 and Own at one place, 6620. Give Own another "
                                          "number.")

    def test_two_actions_of_the_package_at_one_place(self):
        """The engine decides; the library does not care."""
        def change(tables):
            for name in ("One", "Two"):
                tables.add("CustomAction", name, SETS, "OWN", "1", None)
                tables.add(EXECUTE, name, None, 6690)
        self.assert_found(CLIENT, change)

    def test_ends_of_a_sequence(self):
        for number, name in ((-2, "cancel"), (-3, "error")):
            with self.subTest(name):
                def change(tables):
                    tables.add("CustomAction", "Own", SETS, "OWN", "1", None)
                    tables.add(EXECUTE, "Own", None, number)
                theirs = {-2: "CustomAction24.Cancelled", -3: "CustomAction24.Failed"}[number]
                self.assert_found(SERVER, change, f'InstallExecuteSequence has 2 actions with OnExit="{name}": {theirs} and Own. The '
                                                  "engine runs one of them. Leave out your own.")

    def test_removal(self):
        needing = "server_migration.wxi, server_replaced.wxi and service_account.wxi need it after InstallFinalize (6600)"
        none = f'The package does not remove older versions: {needing}. Add a MajorUpgrade with Schedule="afterInstallFinalize".'
        self.assert_found(SERVER, lambda tables: tables.change(EXECUTE, "RemoveExistingProducts", Sequence=1450),
                          f"RemoveExistingProducts is at 1450: {needing}, or what the older version installed is deleted first. Give "
                          'MajorUpgrade Schedule="afterInstallFinalize".')
        self.assert_found(SERVER, lambda tables: tables.drop(EXECUTE, "RemoveExistingProducts"), none)
        self.assert_found(SERVER, lambda tables: tables.drop("Upgrade", "PROP_UPGRADE_PRODUCTCODE", "ActionProperty"), none)

    def test_conditions(self):
        self.assert_found(SERVER, lambda tables: tables.change(EXECUTE, "ConvertDatabase", Condition="ConvertData AND"),
                          "InstallExecuteSequence: the condition of ConvertDatabase cannot be read: it ends too early. It is "
                          "ConvertData AND")
        self.assert_found(SERVER, lambda tables: tables.change("LaunchCondition", "NOT PROP_NEWERSERVER", Condition="A != 1"),
                          "LaunchCondition: the condition of A newer version of the Vantor server is installed. cannot be read: the "
                          "operator for other values is <>. It is A != 1")
        self.assert_found(SERVER, lambda tables: tables.change("Component", "Converter", Condition="(A"),
                          "Component: the condition of Converter cannot be read: a bracket is not closed. It is (A")

    # ---- the rights

    def test_refusal(self):
        lost = ("RefuseNoAdministrator is not at 10 of InstallUISequence with the condition NOT AdminUser, so a user without rights "
                "is not refused. Include library.wxi unchanged.")
        for change in (lambda tables: tables.change(DIALOGS, "RefuseNoAdministrator", Sequence=15),
                       lambda tables: tables.drop(DIALOGS, "RefuseNoAdministrator"),
                       lambda tables: tables.change(DIALOGS, "RefuseNoAdministrator", Condition="NOT Privileged")):
            self.assertIn(("error", lost), self.found(CLIENT, change))

    def test_action_before_the_refusal(self):
        self.assert_found(CLIENT, lambda tables: tables.change(EXECUTE, "AppSearch", Sequence=5),
                          "AppSearch is at 5 of InstallExecuteSequence, before a user without rights is refused. Give it a number "
                          "after 10.")

    def test_sequences_without_a_refusal(self):
        self.assert_found(CLIENT, lambda tables: tables.add("AdvtExecuteSequence", "CustomAction8", None, 1600),
                          "CustomAction8 is in AdvtExecuteSequence, which does not refuse a user without rights. Leave it out there.",
                          "The action CustomAction8 is deferred, but is in AdvtExecuteSequence, which has no script. Schedule it in "
                          "InstallExecuteSequence.")

    def test_rights_are_the_users_own(self):
        def change(tables):
            tables.change("Property", "MSIUSEREALADMINDETECTION", Value="0")
        self.assert_found(CLIENT, change, "MSIUSEREALADMINDETECTION is not 1, so each repair runs as if the user were an "
                                          "administrator. Include library.wxi unchanged.")
        self.assert_found(CLIENT, lambda tables: tables.add("Property", "AdminUser", "1"),
                          "The property AdminUser is declared, so each user passes for an administrator. Leave it out.")
        self.assert_found(CLIENT, lambda tables: tables.change(
            "Property", "SecureCustomProperties",
            Value=tables.row("Property", "SecureCustomProperties")["Value"] + ";MSIUSEREALADMINDETECTION"),
            'MSIUSEREALADMINDETECTION is in SecureCustomProperties, so a user can set it. Leave out Secure="yes".')
        self.assert_found(CLIENT, lambda tables: tables.add("CustomAction", "Own", SETS, "AdminUser", "1", None),
                          "The action Own sets AdminUser, which only the engine and library.wxi may do. Leave it out.")

    def test_each_finding_is_one_line(self):
        """Every message of the rules names something and ends a sentence, or shows a text at its end."""
        text = (Path(rules.__file__)).read_text(encoding="utf-8")
        self.assertNotRegex(text, r'(error|warning)\(.*\\n')
        self.assertGreater(len(re.findall(r"yield (?:error|warning)\(", text)), 40)


class Tables:
    """Changes the tables of a package."""

    def __init__(self, database):
        self.database = database

    def rows(self, table, key, column=None):
        table = self.database.tables[table]
        number = table.index(column) if column else 0
        found = [row for row in table.rows if row[number] == key]
        if not found:
            raise AssertionError(f"{table.name} has no row {key}")
        return table, found

    def row(self, table, key):
        found, rows = self.rows(table, key)
        return dict(zip([column.name for column in found.columns], rows[0]))

    def change(self, table, key, **values):
        table, rows = self.rows(table, key)
        for row in rows:
            for name, value in values.items():
                row[table.index(name)] = value

    def drop(self, table, key, column=None):
        table, rows = self.rows(table, key, column)
        table.rows = [row for row in table.rows if row not in rows]

    def clear(self, table):
        if table in self.database.tables:
            self.database.tables[table].rows = []

    def add(self, table, *values):
        if len(values) != len(self.database.tables[table].columns):
            raise AssertionError(f"{table} has other columns")
        self.database.tables[table].rows.append(list(values))


if __name__ == "__main__":
    unittest.main()
