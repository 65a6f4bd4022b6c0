"""What the library adds to an installation: taking its actions out of a package, the rounds, and the lines of calls.dll."""

import io
import subprocess
import tempfile
import unittest
from contextlib import redirect_stdout
from pathlib import Path
from unittest import mock

from support import load_script

TABLES = [
    "CREATE TABLE `CustomAction` (`Action` CHAR(72) NOT NULL, `Type` SHORT NOT NULL, `Source` CHAR(72), `Target` CHAR(255) "
    "PRIMARY KEY `Action`)",
    "CREATE TABLE `Property` (`Property` CHAR(72) NOT NULL, `Value` CHAR(255) PRIMARY KEY `Property`)",
    *(f"CREATE TABLE `{name}` (`Action` CHAR(72) NOT NULL, `Condition` CHAR(255), `Sequence` SHORT PRIMARY KEY `Action`)"
      for name in ("InstallExecuteSequence", "InstallUISequence")),
]


class FakeWindows:
    """Takes as many seconds for each run as `seconds` says: by package, or by package and step."""

    def __init__(self, clock, seconds, status=0):
        self.clock, self.seconds, self.status = clock, seconds, status
        self.runs = []

    def run(self, variables, words, show):
        kind = words[3].split("\\")[2]
        self.runs.append((kind, words[2]))
        self.clock[0] += self.seconds(kind, words[2], len(self.runs))
        show("what it says")
        return self.status


class InstallationsTest(unittest.TestCase):
    def setUp(self):
        self.module = load_script("counting/installations.py")
        self.clock = [0.0]
        self.module.time = mock.Mock(monotonic=lambda: self.clock[0])
        folder = tempfile.TemporaryDirectory(prefix="hx-count-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def package(self, *actions):
        """A package with actions (name, type), each in both sequences."""
        path = self.folder / "own.msi"
        rows = [f"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('{name}', {kind}, 'hxsetup', 'X')"
                for name, kind in actions]
        rows += [f"INSERT INTO `{table}` (`Action`, `Condition`, `Sequence`) VALUES ('{name}', '1', {number})"
                 for table in ("InstallExecuteSequence", "InstallUISequence")
                 for number, name in enumerate(["InstallFiles", *(name for name, _ in actions)])]
        subprocess.run(["msibuild", path, "-q", *TABLES, *rows], check=True, capture_output=True)
        return path

    def test_only_the_actions_of_a_library_are_taken_out(self):
        # Immediate, with an ignored result, deferred without impersonation, rollback; a property that is set, and a refusal.
        package = self.package(("CustomAction1", 1), ("CustomAction2", 65), ("CustomAction7", 3073), ("CustomAction9", 3329), ("SetData", 51),
                               ("Refuse", 19))
        target = self.folder / "without.msi"
        self.module.take_out_actions(package, target)
        tables = self.module.read_package(target).tables
        for name in ("InstallExecuteSequence", "InstallUISequence"):
            self.assertEqual(sorted(row["Action"] for row in tables[name].dicts()), ["InstallFiles", "Refuse", "SetData"])
        self.assertEqual(len(self.module.library_actions(package)), 8)

    def test_a_package_without_such_actions(self):
        with self.assertRaisesRegex(self.module.MeasureError, "own.msi runs no action of a library"):
            self.module.take_out_actions(self.package(("SetData", 51)), self.folder / "without.msi")

    def test_they_take_turns_and_the_first_round_does_not_count(self):
        seconds = {"with": 3, "empty": 2.5, "without": 2}
        windows = FakeWindows(self.clock, lambda kind, step, number: (100 if number <= 6 else seconds[kind])
                              * (1 if step == "/i" else 2))
        self.assertEqual(self.module.measure(windows, "client", 1),
                         {"installation": (seconds, 1.5, 1.25),
                          "removal": ({"with": 6, "empty": 5, "without": 4}, 1.5, 1.25)})
        self.assertEqual(windows.runs, [(kind, step) for kind in ("with", "empty", "without", "empty", "without", "with")
                                        for step in ("/i", "/x")])

    def test_a_ratio_is_that_of_a_round(self):
        # The medians of the seconds have other ratios.
        rounds = [dict(zip(self.module.KINDS, seconds)) for seconds in ((2, 3, 1), (30, 50, 10), (5, 6, 4))]
        self.assertEqual(self.module.result_of(rounds), ({"with": 5, "empty": 6, "without": 4}, 2, 3))

    def test_a_run_that_fails(self):
        with self.assertRaisesRegex(self.module.MeasureError,
                                    r"the installation of with/client.msi failed with status 67\nwhat it says"):
            self.module.measure(FakeWindows(self.clock, lambda *_: 1, 67), "client", 1)

    def test_an_installer_that_does_not_start_is_started_again(self):
        for failing, starts, passes, line, status in (
                (0, 1, True, "", 0), (1, 2, True, "ShellExecuteEx failed: ", 1), (2, 3, True, "", 91), (3, 3, False, "", 91), (1, 2, True, "", 139),
                (3, 3, False, "ShellExecuteEx failed: ", 1), (1, 1, False, "", 67)):
            with self.subTest(failing=failing, status=status):
                said = []

                class Windows:
                    def run(self, variables, words, show):
                        said.append(words)
                        show(line if len(said) <= failing else "")
                        return status if len(said) <= failing else 0

                if passes:
                    self.module.install(Windows(), "with", "client", "removal")
                else:
                    with self.assertRaisesRegex(self.module.MeasureError, f"^the removal of with/client.msi failed with status {status}\n"):
                        self.module.install(Windows(), "with", "client", "removal")
                self.assertEqual(len(said), starts)

    @staticmethod
    def lines(*runs):
        """What calls.dll writes for runs (entry point, calls)."""
        return "".join(f"{name} begins\n{name} {count}\n" for name, count in runs)

    def test_the_lines_of_the_counter(self):
        self.assertEqual(self.module.read_calls(self.lines(("CustomAction7", 12), ("CustomAction9", 5), ("CustomAction7", 3))),
                         {"CustomAction7": [12, 3], "CustomAction9": [5]})
        with self.assertRaisesRegex(self.module.MeasureError, "the calls could not be counted: fault: no library"):
            self.module.read_calls("CustomAction7 begins\nCustomAction7 12\nCustomAction9 begins\nfault: no library\n")

    def test_an_action_that_ends_before_it_is_counted(self):
        """The installer ignores it if the result of such an action is ignored."""
        for text in ("CustomAction28 begins\n", "CustomAction28 begins\n" + self.lines(("CustomAction7", 12)),
                     self.lines(("CustomAction28", 3)) + "CustomAction28 begins\n",
                     "CustomAction28 begins\nCustomAction28 begins\nCustomAction28 3\n"):
            with self.subTest(text), self.assertRaises(self.module.MeasureError) as raised:
                self.module.read_calls(text)
            self.assertEqual(str(raised.exception), "the calls could not be counted: CustomAction28 began, but did not end: it "
                                                    "crashed, or was ended")

    def test_a_count_of_an_action_that_did_not_begin(self):
        for text in ("CustomAction7 12\n", self.lines(("CustomAction7", 12)) + "CustomAction7 12\n",
                     "CustomAction28 begins\nCustomAction7 12\n"):
            with self.subTest(text), self.assertRaisesRegex(
                    self.module.MeasureError, "the calls could not be counted: CustomAction7 12, but it did not begin"):
                self.module.read_calls(text)

    def test_no_action_writes_a_line(self):
        with mock.patch.object(self.module, "install"), self.assertRaisesRegex(
                self.module.MeasureError, "the calls could not be counted: no action of the library wrote a line in the client's "
                                          "installation"):
            self.module.count_calls(None, self.folder, "client")

    def test_the_calls_are_counted_twice(self):
        calls = {"/i": (("CustomAction7", 12), ("CustomAction9", 5)), "/x": (("CustomAction7", 3),)}
        runs = []

        def install(windows, kind, model, step):
            runs.append((kind, model, step))
            (self.folder / "calls.txt").write_text(self.lines(*calls[self.module.STEPS[step]]), encoding="utf-8")
            if len(runs) == 3:
                calls["/x"] = other

        with mock.patch.object(self.module, "install", install):
            other = calls["/x"]
            self.assertEqual(self.module.count_calls(None, self.folder, "client"), {
                "installation": {"CustomAction7": [12], "CustomAction9": [5]}, "removal": {"CustomAction7": [3]}})
            self.assertEqual(runs, [("counted", "client", "installation"), ("counted", "client", "removal")] * 2)
            for other, counts in (([("CustomAction7", 4)], r"CustomAction7 made \[3\] and \[4\] calls"),
                                  ([("CustomAction7", 3)] * 2, r"CustomAction7 made \[3\] and \[3, 3\] calls"),
                                  ([("CustomAction7", 3), ("CustomAction8", 1)], r"CustomAction8 made \[\] and \[1\] calls")):
                runs.clear()
                calls["/x"] = (("CustomAction7", 3),)
                with self.assertRaisesRegex(self.module.MeasureError,
                                            f"two runs of the client's removal did not count alike: {counts}"):
                    self.module.count_calls(None, self.folder, "client")

    def test_what_is_printed(self):
        calls = {step: {"CustomAction7": [12, 3], "CustomAction9": [5]} for step in self.module.STEPS}
        result = self.module.Result({"with": 3.0, "empty": 2.5, "without": 2.0}, 1.5, 1.25)
        module = self.module
        with mock.patch.object(module, "make_packages"), mock.patch.object(module, "Windows", mock.MagicMock()), \
                mock.patch.object(module, "measure", return_value=dict.fromkeys(module.STEPS, result)), \
                mock.patch.object(module, "count_calls", return_value=calls), redirect_stdout(io.StringIO()) as output:
            self.assertEqual(module.main(["x64", str(self.folder)]), 0)
        self.assertEqual([line.split() for line in output.getvalue().splitlines()[-4:]], [
            ["x64", f"{model},", step, "3.00", "2.50", "2.00", "1.50", "1.25", "3", "20"]
            for model in ("client", "server") for step in ("installation", "removal")])


if __name__ == "__main__":
    unittest.main()
