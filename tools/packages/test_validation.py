"""validation.py: each rule finds the values that break it, and only those."""

import tempfile
import unittest
from pathlib import Path

from packages.findings import ERROR, Finding
from packages.planted import make_small_package
from packages.tables import Column, Database, Table, read_package
from packages.validation import CATEGORIES, RULE, check

COMPONENTS = Table("Component", [Column("Component", "s", 72, False, True, category="Identifier"),
                                 Column("Condition", "s", 255, True, False, category="Condition")],
                   [["Main", None], ["Other", "VersionNT64"]])
FILES = Table("File", [Column("File", "s", 72, False, True, category="Identifier")], [["main.exe"]])
FEATURES = Table("Feature", [Column("Feature", "s", 38, False, True, category="Identifier")], [["All"]])
CONTROLS = Table("Control", [Column("Dialog_", "s", 72, False, True), Column("Control", "s", 50, False, True)],
                 [["First", "Ok"], ["Second", "Cancel"]])

KEY = Column("Key", "s", 72, False, True, category="Identifier")


def database_of(*tables):
    database = Database()
    database.tables = {table.name: table for table in tables}
    database.described = {(table.name, column.name) for table in tables for column in table.columns}
    return database


def column(kind="s", size=255, nullable=True, **more):
    return Column("Value", kind, size, nullable, False, **more)


def found(table, *others):
    """The findings in a table: (column, keys, text)."""
    findings = check(database_of(table, *others))
    assert all((each.rule, each.kind, each.table) == (RULE, ERROR, table.name) for each in findings), findings
    return [(each.column, each.keys, each.text) for each in findings]


# For each category: values that it allows, and values that it does not, with the end of the finding.
CATEGORY_TEXTS = {
    "Text": (["", "anything [ at | all"], {}),
    "Binary": (["x"], {}),
    "Identifier": (["a", "_1.b", "Long_Name.3"], dict.fromkeys(
        ["1a", ".a", "a-b", "a b", "ä", "[a]"],
        "is not an identifier: begin with a letter or _, and use only letters, digits, _ and .")),
    "Property": (["ONE", "%TEMP", "two.1"], dict.fromkeys(
        ["%", "%%A", "1A", "A B"], "is not the name of a property: begin with a letter or _, and use only letters, digits, _ "
        "and . (% before it makes it an environment variable)")),
    "UpperCase": (["ABC_1", "Ä"], {"ABc": "has small letters: use capital letters only"}),
    "LowerCase": (["abc_1"], {"abC": "has capital letters: use small letters only"}),
    "Guid": (["{01234567-89AB-CDEF-0123-456789ABCDEF}"], dict.fromkeys(
        ["{01234567-89ab-CDEF-0123-456789ABCDEF}", "01234567-89AB-CDEF-0123-456789ABCDEF", "{0123456789ABCDEF0123456789ABCDEF}",
         "{01234567-89AB-CDEF-0123-456789ABCDE}", "*"],
        "is not a GUID: write it as {01234567-89AB-CDEF-0123-456789ABCDEF}, with capital letters")),
    "Version": (["1", "1.2.3.65535", "main.exe"], dict.fromkeys(
        ["1.2.3.4.5", "1.2.65536", "1.", "1.x", "none.exe"],
        "is not a version: write up to four numbers from 0 to 65535 with dots between them")),
    "Language": (["0", "1033", "1033,1031"], dict.fromkeys(
        ["en", "1033;1031", "1033,", "99999"],
        "is not a list of languages: write their numbers with commas between them, such as 1033,1031")),
    "Filename": (["a", "readme.txt", "README~1.TXT|Read me first.text", "x|x"], {
        "Read me.txt": "is not a short file name (8.3), and has none before it: write SHORT|LONG",
        "ninechars": "is not a short file name (8.3), and has none before it: write SHORT|LONG",
        "a.text": "is not a short file name (8.3), and has none before it: write SHORT|LONG",
        "too_long_.txt|b": "begins with 'too_long_.txt', which is not a short file name (8.3)",
        "a|b?c": "has the long file name 'b?c', which has characters that a file name cannot have",
        "a|": "has the long file name '', which has characters that a file name cannot have",
        "a|b|c": "has the long file name 'b|c', which has characters that a file name cannot have",
        "*.txt": "is not a short file name (8.3), and has none before it: write SHORT|LONG"}),
    "WildCardFilename": (["*.*", "a?.txt", "A~1|All of *"], {
        "a long *.txt": "is not a short file name (8.3), and has none before it: write SHORT|LONG",
        "a\\b": "is not a short file name (8.3), and has none before it: write SHORT|LONG"}),
    "Path": ([r"C:\Temp\a b", r"\\server\share", r"[FOLDER]sub\x", "[FOLDER]"], dict.fromkeys(
        ["relative", r"C:x?y", r"\rooted", r"C:\a|b", "[FOLDER]a*"],
        r"is not a complete path: begin with a drive (C:\), a server (\\SERVER) or a property ([FOLDER])")),
    "Paths": ([r"C:\a;[B]\c"], {
        r"C:\a;": "has an empty path: remove the extra semicolon",
        r"C:\a;b": r"has the part 'b', which is not a complete path: begin with a drive (C:\), a server (\\SERVER) or a "
                   "property ([FOLDER])"}),
    "AnyPath": ([r"sub\folder", "a|A folder", r"C:\x", "[FOLDER]x"], dict.fromkeys(
        ["a?b", "a|b*", "x<y"], "is not a path: it has characters that a path cannot have")),
    "DefaultDir": (["SourceDir", ".", "short|Long name", "a:b|B c", ".:src", "[FOLDER]"], {
        "Long name": "is not a short file name (8.3), and has none before it: write SHORT|LONG",
        "a:": "is not a short file name (8.3), and has none before it: write SHORT|LONG",
        "a|b\\c": "has the long file name 'b\\c', which has characters that a file name cannot have"}),
    "RegPath": ([r"Software\Maker\[NAME]", "x"], {
        r"\Software": "begins with a backslash: remove it",
        "Software\\": "ends with a backslash: remove it",
        r"a\\b": "has two backslashes without a name between them: remove one",
        r"a\[b": r"has a bracket that does not close: add ] or write [\[] for the bracket itself"}),
    "Formatted": (["plain", "[ONE][TWO]", "[[ONE]]", "[%PATH]", "[#main.exe]", "[!main.exe]", "[$Main]", r"[\[]x[\]]", "[~]a", "]",
                   "{a[B]c}", "[a b]", "[]"], {
        "[ONE": r"has a bracket that does not close: add ] or write [\[] for the bracket itself",
        "[[ONE]": r"has a bracket that does not close: add ] or write [\[] for the bracket itself",
        "[#none.exe]": "names the file none.exe, which is not in the table File",
        "[!none.exe]": "names the file none.exe, which is not in the table File",
        "a[$None]b": "names the component None, which is not in the table Component",
        "a [1] b": "has the field [1], but no record fills it: name a property"}),
    "KeyFormatted": (["[ONE]"], {"[ONE": r"has a bracket that does not close: add ] or write [\[] for the bracket itself"}),
    "Template": (["Copy [1] to [2], [ONE]"], {
        "[ONE": r"has a bracket that does not close: add ] or write [\[] for the bracket itself",
        "[#none.exe]": "names the file none.exe, which is not in the table File"}),
    "Condition": (["NOT Installed", "1"], {
        "A AND": "is not a condition: it ends too early"}),
    "FormattedSDDLText": (["O:BAG:SYD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)", "D:(A;;GA;;;[SID])", "O:S-1-5-32-544", "D:P",
                           "D:NO_ACCESS_CONTROL"], {
        "Everyone": "is not an access list in SDDL: write O:OWNER G:GROUP D:(ENTRY)(ENTRY) without blanks",
        "D:(A;;GA;;;SY) (A;;GA;;;BA)": "is not an access list in SDDL: write O:OWNER G:GROUP D:(ENTRY)(ENTRY) without blanks",
        "D:(A;;GA;;;[$None])": "names the component None, which is not in the table Component",
        "D:(A;;GA;SY)": "has the entry (A;;GA;SY), which does not have six parts: (TYPE;FLAGS;RIGHTS;OBJECT;INHERITED "
                        "OBJECT;ACCOUNT)",
        "D:(A;;GA;;;)": "has the entry (A;;GA;;;), which does not have six parts: (TYPE;FLAGS;RIGHTS;OBJECT;INHERITED "
                        "OBJECT;ACCOUNT)"}),
    "Cabinet": (["#files.cab", "files.cab", "a long name.cab", "a.cab|A long name.cab"], {
        "#my files": "is not a cabinet in the package: write # and an identifier",
        "a long name.cab|x.cab": "begins with 'a long name.cab', which is not a short file name (8.3)",
        "a?.cab": "is not the name of a cabinet: it has characters that a file name cannot have"}),
    "CustomSource": (["Library", "{01234567-89AB-CDEF-0123-456789ABCDEF}", "[NAME]"], dict.fromkeys(
        ["a b", "1a"], "is not the source of an action: name a row of Binary, File, Directory or Property")),
    "Shortcut": (["All", "[#main.exe]", r"[FOLDER]x.exe"], {
        "None": "is not a feature: name a row of Feature, or a file as [#FILE]",
        "a b": "is not an identifier: begin with a letter or _, and use only letters, digits, _ and .",
        "[#none]": "names the file none, which is not in the table File"}),
    "URL": (["https://example.com/x", "file:///x", "[HELP]"], dict.fromkeys(
        ["example.com", "mailto:x"], "is not an address: begin with http://, https://, ftp:// or file://")),
}


class CategoriesTest(unittest.TestCase):
    def texts(self, category, value):
        table = Table("Mine", [KEY, column(size=0, category=category)], [["row", value]])
        return [text for _, _, text in found(table, COMPONENTS, FILES, FEATURES)]

    def test_each_category(self):
        for category, (good, bad) in CATEGORY_TEXTS.items():
            for value in good:
                with self.subTest(category, good=value):
                    self.assertEqual(self.texts(category, value), [])
            for value, text in bad.items():
                with self.subTest(category, bad=value):
                    self.assertEqual(self.texts(category, value), [f"'{value}' {text}"])

    def test_all_categories_are_tested(self):
        numbers = {"Integer", "DoubleInteger", "TimeDate"}
        self.assertEqual(set(CATEGORY_TEXTS) | numbers, set(CATEGORIES))

    def test_one_of_two_categories_is_enough(self):
        self.assertEqual(self.texts("Guid;Identifier", "name"), [])
        self.assertEqual(len(self.texts("Guid;Identifier", "a b")), 1)

    def test_unknown_category(self):
        self.assertEqual(self.texts("Colour", "red"), ["'red' has the category Colour in _Validation, which does not exist"])


class RulesTest(unittest.TestCase):
    def value(self, description, value, *others):
        """What is found in a table with one value."""
        return found(Table("Mine", [KEY, description], [["row", value]]), *others)

    def assert_good(self, description, *values, others=()):
        for value in values:
            with self.subTest(value):
                self.assertEqual(self.value(description, value, *others), [])

    def assert_bad(self, description, value, text, others=()):
        with self.subTest(value):
            self.assertEqual(self.value(description, value, *others), [("Value", ("row",), text)])

    def test_missing_values(self):
        self.assert_good(column(), None, "")
        self.assert_bad(column(nullable=False), None, "the value is empty: it must have a value")
        self.assert_bad(column(nullable=False), "", "the value is empty: it must have a value")
        self.assert_bad(column("i", 2, nullable=False), None, "the value is empty: it must have a value")
        self.assert_bad(column("v", 0, nullable=False), "", "the value is empty: it must have a value")
        self.assert_good(column("v", 0, nullable=False), "Mine.row")

    def test_ranges(self):
        limited = column("i", 2, minimum=0, maximum=10)
        self.assert_good(limited, 0, 10)
        self.assert_bad(limited, -1, "-1 is not in the range from 0 to 10")
        self.assert_bad(limited, 11, "11 is not in the range from 0 to 10")
        self.assert_good(column("i", 2, minimum=1), 32767)
        self.assert_bad(column("i", 2, minimum=1), 0, "0 is not in the range from 1 to 32767")
        self.assert_bad(column("i", 4, maximum=5), 6, "6 is not in the range from -2147483647 to 5")
        # The number below the smallest stands for an empty value.
        self.assert_good(column("i", 2), -32767, 32767)
        self.assert_bad(column("i", 2), 32768, "32768 is not in the range from -32767 to 32767")
        self.assert_bad(column("i", 2), -32768, "-32768 is not in the range from -32767 to 32767")
        self.assert_good(column("i", 4), 2147483647)

    def test_lengths(self):
        self.assert_good(column(size=5), "12345")
        self.assert_bad(column(size=5), "123456", "'123456' has 6 characters, but at most 5 are allowed")
        self.assert_good(column(size=0), "x" * 5000)
        self.assert_bad(column(size=80), "x" * 100, f"'{'x' * 60}'... has 100 characters, but at most 80 are allowed")

    def test_sets(self):
        self.assert_good(column(values="Y;N"), "Y", "N")
        self.assert_bad(column(values="Y;N"), "y", "'y' is not one of Y, N")
        self.assert_good(column("i", 2, values="1;2;4"), 4)
        self.assert_bad(column("i", 2, values="1;2;4"), 3, "3 is not one of 1, 2, 4")
        # A value of the set is good even outside the range.
        self.assert_good(column("i", 2, minimum=0, maximum=3, values="-1"), -1, 3)
        self.assert_bad(column("i", 2, minimum=0, maximum=3, values="-1"), 4, "4 is not in the range from 0 to 3 and not one of -1")
        # As is one that the category does not allow.
        self.assert_good(column(category="Identifier", values="*"), "*", "name")

    def test_references(self):
        self.assert_good(column(key_table="Component", key_column=1, category="Identifier"), "Main", "Other",
                         others=[COMPONENTS])
        self.assert_bad(column(key_table="Component", key_column=1), "None",
                        "'None' is not in the table Component: add its row to Component, or name another one", [COMPONENTS])
        self.assert_bad(column(key_table="Component", key_column=1), "Main",
                        "'Main' is not in the table Component, which the package does not have: add its row to Component, or "
                        "name another one")

    def test_references_to_one_of_several_tables(self):
        either = column(key_table="Component;File", key_column=1)
        self.assert_good(either, "Main", "main.exe", others=[COMPONENTS, FILES])
        self.assert_good(either, "main.exe", others=[FILES])
        self.assert_bad(either, "None", "'None' is not in the table Component or File: add its row to Component or File, or name "
                                        "another one", [COMPONENTS, FILES])

    def test_references_to_the_second_key(self):
        """The columns before it must be those of the row."""
        def table(dialog, control):
            return Table("Event", [Column("Dialog_", "s", 72, False, True),
                                   Column("Control_", "s", 50, False, True, key_table="Control", key_column=2)],
                         [[dialog, control]])
        self.assertEqual(found(table("First", "Ok"), CONTROLS), [])
        self.assertEqual(found(table("First", "Cancel"), CONTROLS),
                         [("Control_", ("First", "Cancel"),
                           "'Cancel' is not in the table Control: add its row to Control, or name another one")])

    def test_references_of_numbers(self):
        media = Table("Media", [Column("DiskId", "i", 2, False, True)], [[1]])
        self.assert_good(column("i", 2, key_table="Media", key_column=1), 1, others=[media])
        self.assert_bad(column("i", 2, key_table="Media", key_column=1), 2,
                        "2 is not in the table Media: add its row to Media, or name another one", [media])

    def test_references_to_the_own_table(self):
        folders = Table("Directory", [Column("Directory", "s", 72, False, True),
                                      Column("Directory_Parent", "s", 72, True, False, key_table="Directory", key_column=1)],
                        [["TARGETDIR", None], ["Sub", "TARGETDIR"], ["Lost", "None"]])
        self.assertEqual([keys for _, keys, _ in found(folders)], [("Lost",)])

    def test_reference_through_a_property(self):
        self.assert_good(column(key_table="Component", key_column=1), "[NAME]", others=[COMPONENTS])

    def test_value_of_the_set_instead_of_a_reference(self):
        self.assert_good(column(key_table="Component", key_column=1, values="*"), "*", "Main", others=[COMPONENTS])
        self.assert_bad(column(key_table="Component", key_column=1, values="*"), "None",
                        "'None' is not in the table Component: add its row to Component, or name another one", [COMPONENTS])

    def test_table_named_by_another_column(self):
        def locks(kind, name):
            return Table("LockPermissions", [Column("LockObject", "s", 72, False, True), Column("Table", "s", 32, False, True)],
                         [[name, kind]])
        self.assertEqual(found(locks("File", "main.exe"), FILES), [])
        self.assertEqual(found(locks("File", "none.exe"), FILES),
                         [("LockObject", ("none.exe", "File"), "'none.exe' is not in the table File: name one of its rows")])
        self.assertEqual(found(locks("Registry", "x"), FILES),
                         [("LockObject", ("x", "Registry"),
                           "'x' is to be in the table Registry, which the package does not have")])

    def test_sources_of_actions(self):
        def actions(kind, source):
            return Table("CustomAction", [Column("Action", "s", 72, False, True), Column("Type", "i", 2, False, False),
                                          Column("Source", "s", 72, True, False, category="CustomSource")],
                         [["Mine", kind, source]])
        library = Table("Binary", [Column("Name", "s", 72, False, True)], [["library"]])
        folders = Table("Directory", [Column("Directory", "s", 72, False, True)], [["FOLDER"]])
        for kind, source in ((1, "library"), (3073 + 64, "library"), (18, "main.exe"), (34, "FOLDER"), (35, "FOLDER"),
                             (51, "ANY_PROPERTY"), (50, "ANY_PROPERTY"), (19, None), (34, None)):
            with self.subTest(kind):
                self.assertEqual(found(actions(kind, source), library, folders, FILES), [])
        for kind, source, table in ((1, "main.exe", "Binary"), (3073, "None", "Binary"), (18, "library", "File"),
                                    (34, "None", "Directory"), (35, "None", "Directory")):
            with self.subTest(kind, source=source):
                self.assertEqual(found(actions(kind, source), library, folders, FILES),
                                 [("Source", ("Mine",), f"'{source}' is not in the table {table}, where an action of the type "
                                                        f"{kind} has its source: name one of its rows")])
        self.assertEqual(found(actions(1, None), library),
                         [("Source", ("Mine",), "the value is empty: name where the action is")])

    def test_column_without_a_description(self):
        database = database_of(FILES)
        database.tables["Mine"] = Table("Mine", [KEY, column()], [["row", "x"]])
        database.described.add(("Mine", "Key"))
        self.assertEqual(check(database), [Finding(RULE, ERROR, "_Validation does not describe the column: add a row for it",
                                                   "Mine", "Value")])

    def test_package_without_descriptions(self):
        database = database_of(FILES)
        database.described = set()
        self.assertEqual([(each.table, each.text[:40]) for each in check(database)],
                         [("_Validation", "the package has no rows in _Validation, ")])


class PackageTest(unittest.TestCase):
    def test_an_msi(self):
        """The rows of _Validation in a file: those of the small package, whose other columns have none."""
        with tempfile.TemporaryDirectory() as folder:
            package = Path(folder) / "small.msi"
            make_small_package(package, folder)
            database = read_package(package)
        described = {("Component", "Directory_"), ("Directory", "Directory"), ("InstallExecuteSequence", "Condition"),
                     ("LaunchCondition", "Condition"), ("Registry", "Value")}
        self.assertEqual(database.described, described)
        findings = check(database)
        self.assertTrue(all(each.text == "_Validation does not describe the column: add a row for it" for each in findings))
        self.assertEqual(described & {(each.table, each.column) for each in findings}, set())


if __name__ == "__main__":
    unittest.main()
