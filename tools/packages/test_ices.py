"""ices.py without a Windows: reading what the program prints, starting it again, and merging the actions into a package."""

import subprocess
import tempfile
import unittest
from pathlib import Path

from packages import ices
from packages.findings import ERROR, FAILURE, INFORMATION, WARNING, Finding, line
from packages.planted import TABLES, make_small_package
from packages.tables import PackageError, read_package, run


class Started:
    """A Windows whose program prints these lines: a list for each start. Keeps the commands."""

    def __init__(self, *starts):
        self.starts = list(starts)
        self.commands = []

    def run(self, variables, command, show):
        self.commands.append(command[3:])
        self.variables = variables
        lines, status = self.starts.pop(0)
        for each in lines:
            show(each)
        return status


def run_actions(*starts, actions=("ICE02", "ICE04", "ICE08")):
    windows, report = Started(*starts), ices.Report()
    ices.run_actions(windows, "0.msi", actions, report)
    return report, windows.commands


class FindingsTest(unittest.TestCase):
    def test_messages(self):
        for message, finding in (
                ("ICE02\t1\ttext\thelp\tFile\tName\ta\tb", Finding("ICE02", ERROR, "text", "File", "Name", ("a", "b"))),
                ("ICE02\t2\ttext\thelp\tFile", Finding("ICE02", WARNING, "text", "File")),
                ("ICE02\t2\ttext\thelp\tFile\tName\ta\t\tc\t\t",
                 Finding("ICE02", WARNING, "text", "File", "Name", ("a", "", "c"))),
                ("ICE02\t3\ttext", Finding("ICE02", INFORMATION, "text")),
                ("ICE02\t0\ttext", Finding("ICE02", FAILURE, "text")),
                (r"ICE02" "\t1\t" r"a\\n\nb" "\t\tT\tC\t" r"C:\\x",
                 Finding("ICE02", ERROR, "a\\n\nb", "T", "C", (r"C:\x",))),
                ("Action start", None), ("", None), ("ICE02\t9\ttext", None)):
            with self.subTest(message):
                self.assertEqual(ices.finding_of(message), finding)

    def test_lines(self):
        self.assertEqual(line("a.msi", Finding("ICE02", ERROR, "text", "File", "Name", ("a", "b"))),
                         "a.msi : error LGHT0204 : ICE02: text (File.Name, row a/b)")
        self.assertEqual(line("a.msi", Finding("ICE02", WARNING, "text", "File")),
                         "a.msi : warning LGHT1076 : ICE02: text (File)")
        self.assertEqual(line("a.msi", Finding("validation", ERROR, "text")), "a.msi : error : validation: text")


class RunTest(unittest.TestCase):
    def test_findings_and_failures(self):
        report, commands = run_actions((["open 0",
                                         "run ICE02", "said ICE02\t3\tStarted",
                                         "said ICE02\t1\tWrong\t\tFile\tName\tx", "end ICE02 0",
                                         "run ICE04", "said ICE04\t0\tInternal Error 3", "end ICE04 0",
                                         "run ICE08", "end ICE08 1603", "done"], 0))
        self.assertEqual(report.findings, [Finding("ICE02", ERROR, "Wrong", "File", "Name", ("x",))])
        self.assertEqual((report.ran, report.not_run),
                         (["ICE02"], {"ICE04": "Internal Error 3", "ICE08": "it ended with status 1603"}))
        self.assertEqual(commands, [[str(ices.TIME_LIMIT), "ICE02", "ICE04", "ICE08"]])

    def test_an_action_that_does_not_end(self):
        report, commands = run_actions(
            (["open 0", "run ICE02", "end ICE02 0", "run ICE04", "said ICE04\t3\tSta", "", "late ICE04"], 3),
            (["open 0", "run ICE08", "end ICE08 0", "done"], 0))
        self.assertEqual((report.ran, report.not_run), (["ICE02", "ICE08"], {"ICE04": "it did not end in 10 seconds"}))
        self.assertEqual(commands[1][1:], ["ICE08"])

    def test_an_action_that_ends_the_program(self):
        report, _ = run_actions((["open 0", "run ICE02"], 5), (["open 0", "run ICE04"], 6),
                                (["open 0", "run ICE08", "end ICE08 0", "done"], 0))
        self.assertEqual((report.ran, report.not_run),
                         (["ICE08"], {"ICE02": "it ended the program that runs it (status 5)",
                                      "ICE04": "it ended the program that runs it (status 6)"}))

    def test_a_program_that_ends_between_actions(self):
        report, _ = run_actions((["open 0", "run ICE02", "end ICE02 0"], 5), (["open 0"], 5))
        self.assertEqual((report.ran, report.not_run),
                         (["ICE02"], dict.fromkeys(["ICE04", "ICE08"], "the program that runs them ended (status 5)")))

    def test_a_package_that_is_not_opened(self):
        report, _ = run_actions((["open 1620"], 2))
        self.assertEqual(report.not_run, dict.fromkeys(["ICE02", "ICE04", "ICE08"],
                                                       "the engine did not open the package (status 1620)"))

    def test_a_program_that_does_not_start(self):
        report, _ = run_actions((["wine: not found"], 127))
        self.assertEqual(report.not_run, dict.fromkeys(
            ["ICE02", "ICE04", "ICE08"], "the program that runs them did not start (status 127): wine: not found"))


class MergeTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.package, self.library, self.target = (self.folder / name for name in ("package.msi", "library.cub", "target.msi"))
        make_small_package(self.package, self.folder)

    def make_library(self, *more):
        script = self.folder / "Binary/script.vbs"
        script.parent.mkdir()
        script.write_bytes(b"Function ICE08()\r\n  x = Database.TablePersistent(\"File\")\r\nEnd Function\r\n")
        (self.folder / "Binary.idt").write_bytes(b"Name\tData\r\ns72\tv0\r\nBinary\tName\r\nice08.vbs\tscript.vbs\r\n")
        run("msibuild", self.library, "-q",
            "CREATE TABLE `CustomAction` (`Action` CHAR(72) NOT NULL, `Type` SHORT NOT NULL, `Source` CHAR(64), "
            "`Target` CHAR(255) PRIMARY KEY `Action`)",
            "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('ICE08', 6, 'ice08.vbs', 'ICE08')",
            "CREATE TABLE `_ICESequence` (`Action` CHAR(72) NOT NULL, `Condition` CHAR(255), `Sequence` SHORT "
            "PRIMARY KEY `Action`)",
            "INSERT INTO `_ICESequence` (`Action`, `Sequence`) VALUES ('ICE10', 10)",
            "INSERT INTO `_ICESequence` (`Action`, `Sequence`) VALUES ('ICE08', 80)",
            "CREATE TABLE `Property` (`Property` CHAR(72) NOT NULL, `Value` LONGCHAR NOT NULL PRIMARY KEY `Property`)",
            "INSERT INTO `Property` (`Property`, `Value`) VALUES ('ProductCode', '{0}')", *more)
        run("msibuild", self.library, "-i", self.folder / "Binary.idt", cwd=self.folder)

    def test_both_are_in_the_copy(self):
        run("msibuild", self.package, "-q",
            "INSERT INTO `CustomAction` (`Action`, `Type`, `ExtendedType`) VALUES ('Mine', 1, 1)")
        before = self.package.read_bytes()
        self.make_library()
        self.assertEqual(ices.merge(self.package, self.target, self.library), ["ICE10", "ICE08"])
        merged, own = read_package(self.target), read_package(self.package)
        self.assertEqual(merged.tables["CustomAction"].rows,
                         [["Mine", 1, None, None, 1], ["ICE08", 6, "ice08.vbs", "ICE08", None]])
        self.assertEqual([row[0] for row in merged.tables["Binary"].rows], ["ice08.vbs"])
        self.assertEqual(merged.properties(), own.properties())
        self.assertEqual(merged.tables["File"], own.tables["File"])
        self.assertEqual(self.package.read_bytes(), before)

    def test_a_row_that_both_have(self):
        """The package's own row stays."""
        run("msibuild", self.package, "-q", "INSERT INTO `CustomAction` (`Action`, `Type`) VALUES ('ICE08', 1)")
        self.make_library()
        ices.merge(self.package, self.target, self.library)
        self.assertEqual(read_package(self.target).tables["CustomAction"].rows, [["ICE08", 1, None, None, None]])

    def test_scripts_get_a_function_for_the_missing_method(self):
        self.make_library()
        ices.merge(self.package, self.target, self.library)
        script = subprocess.run(["msiinfo", "extract", self.target, "Binary.ice08.vbs"], capture_output=True,
                                check=True).stdout
        self.assertEqual(script, b"Function ICE08()\r\n  x = HasTable(\"File\")\r\nEnd Function\r\n" + ices.HAS_TABLE)

    def test_a_package_with_tables_of_the_library(self):
        self.make_library()
        run("msibuild", self.package, "-q",
            "CREATE TABLE `_ICESequence` (`Action` CHAR(72) NOT NULL PRIMARY KEY `Action`)")
        with self.assertRaisesRegex(PackageError, "has a table _ICESequence, as the validation actions do: remove it"):
            ices.merge(self.package, self.target, self.library)


class ListsTest(unittest.TestCase):
    def test_no_action_is_in_both(self):
        self.assertEqual(set(ices.WORKING) & set(ices.NOT_RUN), set())
        self.assertEqual(len(ices.WORKING), len(set(ices.WORKING)))

    def test_planted_tables_have_types(self):
        for name, text in TABLES.items():
            self.assertRegex(text, r"^(\w+ [slivSLIV]\d+\*? ?)+$", name)


if __name__ == "__main__":
    unittest.main()
