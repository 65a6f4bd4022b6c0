"""A small correct package, and faults to plant in it. For the tests of the checks.

The package is made by SQL statements, not compiled, so that a test can have any table in any state."""

import shutil
from pathlib import Path

from packages.findings import ERROR, WARNING
from packages.tables import run

# The columns of the tables, each with its type as in a text archive; "*" marks a key.
SEQUENCE = "Action s72* Condition S255 Sequence I2"
TABLES = {
    "AdminExecuteSequence": SEQUENCE,
    "AdminUISequence": SEQUENCE,
    "AdvtExecuteSequence": SEQUENCE,
    "AdvtUISequence": SEQUENCE,
    "AppSearch": "Property s72* Signature_ s72*",
    "BBControl": "Billboard_ s50* BBControl s50* Type s50 X i2 Y i2 Width i2 Height i2 Attributes I4 Text L50",
    "Billboard": "Billboard s50* Feature_ s38 Action S50 Ordering I2",
    "BindImage": "File_ s72* Path S255",
    "Class": "CLSID s38* Context s32* Component_ s72* ProgId_Default S255 Description L255 AppId_ S38 FileTypeMask S255 "
             "Icon_ S72 IconIndex I2 DefInprocHandler S32 Argument S255 Feature_ s38 Attributes I2",
    "Component": "Component s72* ComponentId S38 Directory_ s72 Attributes i2 Condition S255 KeyPath S72",
    "Control": "Dialog_ s72* Control s50* Type s20 X i2 Y i2 Width i2 Height i2 Attributes I4 Property S72 Text L0 "
               "Control_Next S50 Help L50",
    "ControlEvent": "Dialog_ s72* Control_ s50* Event s50* Argument s255* Condition S255* Ordering I2",
    "CustomAction": "Action s72* Type i2 Source S72 Target S255 ExtendedType I4",
    "Dialog": "Dialog s72* HCentering i2 VCentering i2 Width i2 Height i2 Attributes I4 Title L128 Control_First s50 "
              "Control_Default S50 Control_Cancel S50",
    "Directory": "Directory s72* Directory_Parent S72 DefaultDir l255",
    "Environment": "Environment s72* Name l255 Value L255 Component_ s72",
    "Extension": "Extension s255* Component_ s72* ProgId_ S255 MIME_ S64 Feature_ s38",
    "Feature": "Feature s38* Feature_Parent S38 Title L64 Description L255 Display I2 Level i2 Directory_ S72 Attributes i2",
    "FeatureComponents": "Feature_ s38* Component_ s72*",
    "File": "File s72* Component_ s72 FileName l255 FileSize i4 Version S72 Language S20 Attributes I2 Sequence i4",
    "FileSFPCatalog": "File_ s72* SFPCatalog_ s255*",
    "Font": "File_ s72* FontTitle S128",
    "Icon": "Name s72* Data v0",
    "IniFile": "IniFile s72* FileName l255 DirProperty S72 Section l96 Key l128 Value l255 Action i2 Component_ s72",
    "InstallExecuteSequence": SEQUENCE,
    "InstallUISequence": SEQUENCE,
    "IsolatedComponent": "Component_Shared s72* Component_Application s72*",
    "LaunchCondition": "Condition s255* Description l255",
    "LockPermissions": "LockObject s72* Table s255* Domain S255* User s255* Permission I4",
    "Media": "DiskId i2* LastSequence i4 DiskPrompt L64 Cabinet S255 VolumeLabel S32 Source S72",
    "ModuleDependency": "ModuleID s72* ModuleLanguage i2* RequiredID s72* RequiredLanguage i2* RequiredVersion S32",
    "ModuleSignature": "ModuleID s72* Language i2* Version s32",
    "MoveFile": "FileKey s72* Component_ s72 SourceName L255 DestName L255 SourceFolder S72 DestFolder s72 Options i2",
    "MsiAssembly": "Component_ s72* Feature_ s38 File_Manifest S72 File_Application S72 Attributes I2",
    "MsiLockPermissionsEx": "MsiLockPermissionsEx s72* LockObject s72 Table s32 SDDLText s0 Condition S255",
    "MsiServiceConfig": "MsiServiceConfig s72* Name s255 Event i4 ConfigType i4 Argument S0 Component_ s72",
    "ODBCDataSource": "DataSource s72* Component_ s72 Description s255 DriverDescription s255 Registration i2",
    "ProgId": "ProgId s255* ProgId_Parent S255 Class_ S38 Description L255 Icon_ S72 IconIndex I2",
    "Property": "Property s72* Value l0",
    "PublishComponent": "ComponentId s38* Qualifier s255* Component_ s72* AppData L255 Feature_ s38",
    "RadioButton": "Property s72* Order i2* Value s64 X i2 Y i2 Width i2 Height i2 Text L64 Help L50",
    "Registry": "Registry s72* Root i2 Key l255 Name L255 Value L0 Component_ s72",
    "Shortcut": "Shortcut s72* Directory_ s72 Name l128 Component_ s72 Target s72 Arguments S255 Description L255 Hotkey I2 "
                "Icon_ S72 IconIndex I2 ShowCmd I2 WkDir S72",
    "TextStyle": "TextStyle s72* FaceName s32 Size i2 Color I4 StyleBits I2",
    "Upgrade": "UpgradeCode s38* VersionMin S20* VersionMax S20* Language S255* Attributes i4* Remove S255 ActionProperty s72",
    "_Validation": "Table s32* Column s32* Nullable s4 MinValue I4 MaxValue I4 KeyTable S255 KeyColumn I2 Category S32 "
                   "Set S255 Description S255",
}


def code(number):
    """A GUID."""
    return f"{{{number:08X}-1111-2222-3333-444455556666}}"


PRODUCT, UPGRADE, MAIN, OTHER, THIRD, FREE = map(code, range(1, 7))

SUMMARY = {1: 1252, 2: "Installation Database", 3: "Small", 4: "Maker", 5: "Installer", 6: "Small", 7: "x64;1033", 9: code(9),
           12: "2024/01/01 00:00:00", 13: "2024/01/01 00:00:00", 14: 500, 15: 2, 18: "hxsetup", 19: 2}


def sequence(text):
    """The rows of a sequence: "ACTION NUMBER, ..."."""
    return [(action, None, int(number)) for action, number in (each.split() for each in text.split(", "))]


COSTING = "CostInitialize 800, FileCost 900, CostFinalize 1000"
ROWS = {
    "AdminExecuteSequence": sequence(f"{COSTING}, InstallValidate 1400, InstallInitialize 1500, InstallAdminPackage 3900, "
                                     "InstallFiles 4000, InstallFinalize 6600"),
    "AdminUISequence": sequence(f"{COSTING}, ExecuteAction 1300"),
    "AdvtExecuteSequence": sequence("CostInitialize 800, CostFinalize 1000, InstallValidate 1400, InstallInitialize 1500, "
                                    "PublishFeatures 6300, PublishProduct 6400, InstallFinalize 6600"),
    "Component": [("Main", MAIN, "APPFOLDER", 256, None, "main.exe"), ("Other", OTHER, "APPFOLDER", 256, None, "other.txt")],
    "CustomAction": [],
    "Directory": [("TARGETDIR", None, "SourceDir"), ("ProgramFiles64Folder", "TARGETDIR", "."),
                  ("APPFOLDER", "ProgramFiles64Folder", "small|Small program"), ("System64Folder", "TARGETDIR", "."),
                  ("ProgramMenuFolder", "TARGETDIR", ".")],
    "Feature": [("All", None, "All", "All of it", 1, 1, "APPFOLDER", 0)],
    "FeatureComponents": [("All", "Main"), ("All", "Other")],
    "File": [("main.exe", "Main", "main.exe", 10, "1.0.0.0", "1033", 512, 1),
             ("other.txt", "Other", "other.txt", 10, None, None, 512, 2)],
    "InstallExecuteSequence": sequence(
        f"FindRelatedProducts 25, LaunchConditions 100, ValidateProductID 700, {COSTING}, InstallValidate 1400, "
        "RemoveExistingProducts 1450, InstallInitialize 1500, ProcessComponents 1600, UnpublishFeatures 1800, "
        "RemoveRegistryValues 2600, RemoveFiles 3500, InstallFiles 4000, WriteRegistryValues 5000, RegisterUser 6000, "
        "RegisterProduct 6100, PublishFeatures 6300, PublishProduct 6400, InstallFinalize 6600"),
    "InstallUISequence": sequence(f"FindRelatedProducts 25, LaunchConditions 100, ValidateProductID 700, {COSTING}, "
                                  "ExecuteAction 1300"),
    "LaunchCondition": [("VersionNT64", "A 64-bit Windows is needed.")],
    "Media": [(1, 2, None, "#files.cab", None, None)],
    "Property": [("ALLUSERS", "1"), ("Manufacturer", "Maker"), ("ProductCode", PRODUCT), ("ProductLanguage", "1033"),
                 ("ProductName", "Small"), ("ProductVersion", "1.0.0"), ("SecureCustomProperties", "OLDER"),
                 ("UpgradeCode", UPGRADE)],
    "Registry": [],
    "Upgrade": [(UPGRADE, "0.0.1", "1.0.0", None, 0, None, "OLDER")],
    "_Validation": [("Component", "Directory_", "N", None, None, "Directory", 1, "Identifier"),
                    ("Directory", "Directory", "N", None, None, None, None, "Identifier"),
                    ("InstallExecuteSequence", "Condition", "Y", None, None, None, None, "Condition"),
                    ("LaunchCondition", "Condition", "N", None, None, None, None, "Condition"),
                    ("Registry", "Value", "Y", None, None, None, None, "Formatted")],
}

# The types of a text archive in SQL, by their letter; those of texts and numbers with a size.
SQL_TYPES = {"s": "CHAR({})", "l": "CHAR({})", "i2": "SHORT", "i4": "LONG", "s0": "LONGCHAR", "l0": "LONGCHAR",
             "v0": "OBJECT"}


def create(table):
    """The statement that makes an empty table."""
    words = TABLES[table].split()
    columns, keys = [], []
    for name, kind in zip(words[::2], words[1::2]):
        if kind.endswith("*"):
            keys.append(f"`{name}`")
            kind = kind[:-1]
        sql = SQL_TYPES.get(kind.lower()) or SQL_TYPES[kind[0].lower()].format(kind[1:])
        columns.append(f"`{name}` {sql}" + (" NOT NULL" if kind[0].islower() else "")
                       + (" LOCALIZABLE" if kind[0].lower() == "l" else ""))
    return f"CREATE TABLE `{table}` ({', '.join(columns)} PRIMARY KEY {', '.join(keys)})"


def insert(table, row):
    """The statement that adds a row; its last values may be missing."""
    values = [(name, value) for name, value in zip(TABLES[table].split()[::2], row) if value is not None]
    names = ", ".join(f"`{name}`" for name, _ in values)
    return f"INSERT INTO `{table}` ({names}) VALUES ({', '.join(literal(value) for _, value in values)})"


def literal(value):
    return str(value) if isinstance(value, int) else f"'{value}'"


class Change:
    """A change of the small package: statements in their order."""

    def __init__(self, *parts):
        self.parts = parts

    def statements(self):
        present = set(ROWS)
        for part in self.parts:
            if isinstance(part, str):
                yield part
                continue
            table, *rows = part
            if table not in present:
                present.add(table)
                yield create(table)
            yield from (insert(table, row) for row in rows)


def delete(table, key):
    name = TABLES[table].split()[0]
    return f"DELETE FROM `{table}` WHERE `{name}` = {literal(key)}"


def update(table, key, **values):
    name = TABLES[table].split()[0]
    changes = ", ".join(f"`{column}` = {literal(value)}" for column, value in values.items())
    return f"UPDATE `{table}` SET {changes} WHERE `{name}` = {literal(key)}"


def write_summary(package, summary, folder):
    """Replaces the package's summary."""
    archive = Path(folder) / "_SummaryInformation.idt"
    lines = ["PropertyId\tValue", "i2\tl255", "_SummaryInformation\tPropertyId"]
    archive.write_text("".join(f"{line}\r\n" for line in lines + [f"{number}\t{value}" for number, value in summary.items()]),
                       encoding="utf-8", newline="")
    run("msibuild", package, "-i", archive)


def make_small_package(package, folder):
    """Writes the small package. `folder` is for files that are needed meanwhile."""
    statements = [each for table, rows in ROWS.items() for each in (create(table), *(insert(table, row) for row in rows))]
    run("msibuild", package, "-q", *statements)
    write_summary(package, SUMMARY, folder)


def plant(package, target, change, folder):
    """Copies `package`, the small package or one with more tables, to `target` and makes the change there: a Change, or a
    dictionary with values of the summary."""
    shutil.copyfile(package, target)
    if isinstance(change, dict):
        write_summary(target, {**SUMMARY, **change}, folder)
    else:
        run("msibuild", target, "-q", *change.statements())


# ---- the faults

DIALOG = (("Dialog", ("MyDialog", 50, 50, 200, 200, 3, "Title", "Ok")),
          ("Control", ("MyDialog", "Ok", "PushButton", 0, 0, 50, 20, 3, None, "Ok", "Ok")))
SHORTCUT = ("Short", "ProgramMenuFolder", "short|Shortcut")
SECOND_FEATURE = ("Feature", ("Second", None, "Second", "More", 1, 1, "APPFOLDER", 0))

# For each validation action the fault that it must find: the kind of the finding, its place, and the change.
FAULTS = {
    "ICE02": (ERROR, "Component.KeyPath, row Main",
              Change(update("Component", "Main", KeyPath="other.txt"))),
    "ICE04": (ERROR, "File.Sequence, row other.txt",
              Change(update("Media", 1, LastSequence=1))),
    "ICE05": (ERROR, "Property",
              Change(delete("Property", "ProductName"))),
    "ICE06": (WARNING, "Property",
              Change(("_Validation", ("Property", "Nowhere", "Y", None, None, None, None, "Text")))),
    "ICE07": (WARNING, "Font.File_, row main.exe",
              Change(("Font", ("main.exe", "Font")))),
    "ICE08": (ERROR, "Component.ComponentId, row Other",
              Change(update("Component", "Other", ComponentId=MAIN))),
    "ICE09": (WARNING, "Component.Component, row Other",
              Change(update("Component", "Other", Directory_="System64Folder"))),
    "ICE10": (ERROR, "Feature.Attributes, row Child",
              Change(update("Feature", "All", Attributes=4),
                     ("Feature", ("Child", "All", "Child", "More", 1, 1, "APPFOLDER", 8)))),
    "ICE12": (ERROR, "InstallExecuteSequence.Sequence, row SetFolder",
              Change(("CustomAction", ("SetFolder", 35, "APPFOLDER", "x")),
                     ("InstallExecuteSequence", ("SetFolder", None, 500)))),
    "ICE13": (ERROR, "InstallExecuteSequence.Action, row MyDialog",
              Change(*DIALOG, ("InstallExecuteSequence", ("MyDialog", None, 1200)))),
    "ICE14": (ERROR, "Feature.Feature_Parent, row Child",
              Change(("Feature", ("Child", "Child", "Child", "More", 1, 1, "APPFOLDER", 0)))),
    "ICE17": (ERROR, "Control.Text, row MyDialog/Picture",
              Change(*DIALOG, ("Control", ("MyDialog", "Picture", "Bitmap", 0, 0, 50, 20, 3, None, "Nowhere", "Ok")))),
    "ICE18": (ERROR, "Component.Directory_, row Other",
              Change("UPDATE `Component` SET `KeyPath` = '' WHERE `Component` = 'Other'", delete("File", "other.txt"))),
    "ICE20": (ERROR, "Dialog",
              Change(*DIALOG)),
    "ICE21": (ERROR, "Component.Component, row Other",
              Change("DELETE FROM `FeatureComponents` WHERE `Component_` = 'Other'")),
    "ICE22": (ERROR, "PublishComponent.Component_, row {00000006-1111-2222-3333-444455556666}/word/Main",
              Change(("PublishComponent", (FREE, "word", "Main", None, "Nowhere")))),
    "ICE23": (ERROR, "Dialog.Control_First, row MyDialog",
              Change(*DIALOG, update("Dialog", "MyDialog", Control_First="Nowhere"))),
    "ICE24": (ERROR, "Property.Value, row ProductVersion",
              Change(update("Property", "ProductVersion", Value="1.0.0.x"))),
    "ICE25": (WARNING, "ModuleDependency.ModuleID, row Mine/1033/Another/1033",
              Change(("ModuleSignature", ("Mine", 1033, "1.0")), ("ModuleDependency", ("Mine", 1033, "Another", 1033)))),
    "ICE28": (ERROR, "InstallExecuteSequence.Sequence, row ForceReboot",
              Change(("InstallExecuteSequence", ("ForceReboot", None, 6200)))),
    "ICE30": (ERROR, "File.File, row third.txt",
              Change(("File", ("third.txt", "Main", "other.txt", 10, None, None, 512, 2)))),
    "ICE31": (ERROR, "Control.Text, row MyDialog/Ok",
              Change(*DIALOG, "UPDATE `Control` SET `Text` = '{\\Nowhere}Ok' WHERE `Control` = 'Ok'",
                     ("TextStyle", ("Fine", "Arial", 8)))),
    "ICE33": (WARNING, "Registry.Registry, row Server",
              Change(("Registry", ("Server", 0, f"CLSID\\{FREE}\\InprocServer32", None, "x.dll", "Main")))),
    "ICE34": (ERROR, "Control.Property, row MyDialog/Choice",
              Change(*DIALOG, ("Control", ("MyDialog", "Choice", "RadioButtonGroup", 0, 0, 50, 20, 3, "CHOICE", None, "Ok")),
                     ("RadioButton", ("CHOICE", 1, "a", 0, 0, 10, 10, "A")))),
    "ICE39": (ERROR, "_SummaryInfo.7",
              {7: "x64;1033;more"}),
    "ICE40": (WARNING, "Property.Property, row REINSTALLMODE",
              Change(("Property", ("REINSTALLMODE", "amus")))),
    "ICE41": (ERROR, "Extension.Extension, row xyz/Main",
              Change(("Extension", ("xyz", "Main", None, None, "Nowhere")))),
    "ICE42": (ERROR, "Class.CLSID, row {00000006-1111-2222-3333-444455556666}/InprocServer32/Main",
              Change(("Class", (FREE, "InprocServer32", "Main", None, None, None, None, None, None, "1", "argument", "All")))),
    "ICE44": (ERROR, "ControlEvent.Event, row MyDialog/Ok/NewDialog/Nowhere/1",
              Change(*DIALOG, ("ControlEvent", ("MyDialog", "Ok", "NewDialog", "Nowhere", "1", 1)))),
    "ICE45": (ERROR, "Feature.Attributes, row All",
              Change(update("Feature", "All", Attributes=8192))),
    "ICE48": (WARNING, "Directory.Directory, row APPFOLDER",
              Change(("Property", ("APPFOLDER", "C:\\Small")))),
    "ICE50": (WARNING, "Shortcut.Icon_, row Short",
              Change(("Shortcut", (*SHORTCUT, "Main", "All", None, None, None, "icon.txt")), ("Icon",))),
    "ICE51": (ERROR, "Font.File_, row main.exe",
              Change(("Font", ("main.exe",)))),
    "ICE52": (WARNING, "AppSearch.Property, row Private/Signature",
              Change(("AppSearch", ("Private", "Signature")))),
    "ICE53": (ERROR, "Registry.Registry, row Products",
              Change(("Registry", ("Products", 2, "Software\\Microsoft\\Windows\\CurrentVersion\\Installer\\Products", None, "x",
                                  "Main")))),
    "ICE54": (WARNING, "Component.KeyPath, row Other",
              Change(update("File", "other.txt", Version="main.exe"))),
    "ICE55": (ERROR, "LockPermissions.LockObject, row Nowhere/File//Everyone",
              Change(("LockPermissions", ("Nowhere", "File", None, "Everyone", 268435456)))),
    "ICE59": (ERROR, "Shortcut.Shortcut, row Short",
              Change(("Shortcut", (*SHORTCUT, "Main", "Second")), SECOND_FEATURE)),
    "ICE60": (WARNING, "File.Version, row main.exe",
              Change("UPDATE `File` SET `Language` = '' WHERE `File` = 'main.exe'")),
    "ICE61": (ERROR, "Upgrade.ActionProperty, row {00000002-1111-2222-3333-444455556666}/0.0.1/1.0.0//0",
              Change(update("Upgrade", UPGRADE, ActionProperty="older"))),
    "ICE62": (ERROR, "IsolatedComponent.Component_Shared, row Other/Main",
              Change(("IsolatedComponent", ("Other", "Main")))),
    "ICE63": (WARNING, "InstallExecuteSequence.Action, row RemoveExistingProducts",
              Change(update("InstallExecuteSequence", "RemoveExistingProducts", Sequence=1700))),
    "ICE65": (ERROR, "Environment.Value, row Path",
              Change(("Environment", ("Path", "=-PATH", "a;[~];b", "Main")))),
    "ICE67": (WARNING, "Shortcut.Target, row Short",
              Change(("Shortcut", (*SHORTCUT, "Other", "[#main.exe]")), update("Component", "Main", Attributes=258))),
    "ICE68": (ERROR, "CustomAction.Type, row Wrong",
              Change(("CustomAction", ("Wrong", 9, "x", "y")))),
    "ICE69": (ERROR, "Registry.Value, row Place",
              Change(("Registry", ("Place", 2, "Software\\Small", "Place", "[$Other]", "Main")), SECOND_FEATURE,
                     "DELETE FROM `FeatureComponents` WHERE `Component_` = 'Other'",
                     ("FeatureComponents", ("Second", "Other")))),
    "ICE70": (ERROR, "Registry.Value, row Number",
              Change(("Registry", ("Number", 2, "Software\\Small", "Number", "#12q", "Main")))),
    "ICE71": (ERROR, "Media.DiskId, row 2",
              Change(delete("Media", 1), ("Media", (2, 2, None, "#files.cab")))),
    "ICE72": (ERROR, "AdvtExecuteSequence.Action, row Mine",
              Change(("CustomAction", ("Mine", 1, "x", "y")), ("AdvtExecuteSequence", ("Mine", None, 1600)))),
    "ICE74": (ERROR, "Property.Property, row FASTOEM",
              Change(("Property", ("FASTOEM", "1")))),
    "ICE75": (ERROR, "InstallExecuteSequence.Sequence, row Run",
              Change(("CustomAction", ("Run", 18, "main.exe", "x")), ("InstallExecuteSequence", ("Run", None, 500)))),
    "ICE76": (ERROR, "BindImage.File_, row main.exe",
              Change(("BindImage", ("main.exe",)), ("FileSFPCatalog", ("main.exe", "x.cat")))),
    "ICE77": (ERROR, "InstallExecuteSequence.Sequence, row Later",
              Change(("CustomAction", ("Later", 1025, "x", "y")), ("InstallExecuteSequence", ("Later", None, 500)))),
    "ICE78": (ERROR, "AdvtUISequence.Action, row CostFinalize",
              Change(("AdvtUISequence", ("CostFinalize", None, 1000)))),
    "ICE79": (ERROR, "InstallExecuteSequence.Condition, row RegisterUser",
              Change(update("InstallExecuteSequence", "RegisterUser", Condition="$Nowhere=3"))),
    "ICE80": (ERROR, "Component.Attributes, row Main",
              {7: "Intel;1033"}),
    "ICE83": (ERROR, "InstallExecuteSequence",
              Change(("MsiAssembly", ("Main", "All", None, None, 0)))),
    "ICE84": (WARNING, "InstallExecuteSequence.Action, row CostFinalize",
              Change(update("InstallExecuteSequence", "CostFinalize", Condition="1"))),
    "ICE85": (ERROR, "MoveFile.SourceName, row Move",
              Change(("MoveFile", ("Move", "Main", "a*b|bad\\name", None, "APPFOLDER", "APPFOLDER", 0)))),
    "ICE86": (WARNING, "LaunchCondition.Condition, row AdminUser",
              Change(("LaunchCondition", ("AdminUser", "An administrator is needed.")))),
    "ICE87": (WARNING, "Property.Property, row ADDLOCAL",
              Change(("Property", ("ADDLOCAL", "All")))),
    "ICE88": (WARNING, "IniFile.DirProperty, row Ini",
              Change(("IniFile", ("Ini", "x.ini", "NOWHERE", "s", "k", "v", 0, "Main")))),
    "ICE89": (ERROR, "ProgId.ProgId_Parent, row Small.Document",
              Change(("ProgId", ("Small.Document", "Nowhere", None, "Document")))),
    "ICE92": (ERROR, "Component.Component, row Other",
              Change("UPDATE `Component` SET `ComponentId` = '', `Attributes` = 272 WHERE `Component` = 'Other'")),
    "ICE93": (WARNING, "CustomAction.Action, row InstallFiles",
              Change(("CustomAction", ("InstallFiles", 1, "x", "y")))),
    "ICE94": (WARNING, "Shortcut.Shortcut, row Short",
              Change(("Shortcut", (*SHORTCUT, "Main", "[#main.exe]")),
                     ("MsiAssembly", ("Main", "All", "main.exe", None, 0)))),
    "ICE95": (WARNING, "BBControl.X, row Board/Words",
              Change(*DIALOG, ("Billboard", ("Board", "All", "InstallFiles", 1)),
                     ("BBControl", ("Board", "Words", "Text", 500, 500, 900, 900, 3, "Words")))),
    "ICE96": (WARNING, "AdvtExecuteSequence",
              Change(delete("AdvtExecuteSequence", "PublishProduct"))),
    "ICE97": (ERROR, "IsolatedComponent.Component_Application, row Other/Main",
              Change(("IsolatedComponent", ("Other", "Main"), ("Other", "Third")),
                     ("Component", ("Third", THIRD, "APPFOLDER", 256)))),
    "ICE98": (ERROR, "ODBCDataSource.Description, row Source",
              Change(("ODBCDataSource", ("Source", "Main", 300 * "x", "Driver", 0)))),
    "ICE99": (ERROR, "Directory.Directory, row ALLUSERS",
              Change(("Directory", ("ALLUSERS", "TARGETDIR", "x")))),
    "ICE101": (ERROR, "Feature.Feature, row " + 45 * "x",
              Change(("Feature", (45 * "x", None, "Long", "Long name", 1, 1, "APPFOLDER", 0)))),
    "ICE102": (ERROR, "MsiServiceConfig.ConfigType, row Config",
              Change(("MsiServiceConfig", ("Config", "Small", 1, 9, "1", "Main")))),
    "ICE104": (ERROR, "MsiLockPermissionsEx",
              Change(("LockPermissions", ("APPFOLDER", "CreateFolder", None, "Everyone", 268435456)),
                       ("MsiLockPermissionsEx", ("Lock", "APPFOLDER", "CreateFolder", "D:(A;;GA;;;BA)")))),
    "ICE105": (WARNING, "Directory.Directory",
              Change(delete("Property", "ALLUSERS"), ("Property", ("MSIINSTALLPERUSER", "1"), ("ALLUSERS", "2")),
                     ("Registry", ("Machine", 2, "Software\\Small", "x", "y", "Main")))),
}
