"""What the library adds to an installation: taking its actions out of a package, the rounds, and the lines of calls.dll."""

import io
import subprocess
import tempfile
import unittest
from contextlib import redirect_stderr, redirect_stdout
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
    """Stands for all Windows of a test. Takes as many seconds for each run as `seconds` says: by package, step, and number in
    this Windows. The runs with the numbers `failing`, counted through all Windows, fail."""

    def __init__(self, clock, seconds, failing=()):
        self.clock, self.seconds, self.failing = clock, seconds, failing
        # (package, step) of each run, by Windows.
        self.runs = []

    def __call__(self, processor, folder, number, limit, show):
        return self

    def __enter__(self):
        self.runs.append([])
        return self

    def __exit__(self, *_):
        pass

    def run(self, variables, words, show):
        kind = words[3].split("\\")[2]
        self.runs[-1].append((kind, words[2]))
        self.clock[0] += self.seconds(kind, words[2], len(self.runs[-1]))
        show("what it says")
        return 67 if sum(map(len, self.runs)) in self.failing else 0


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

    SECONDS = {"with": 3, "empty": 2.5, "without": 2}
    ROUND = [(kind, step) for kind in ("with", "empty", "without") for step in ("/i", "/x")]

    def measure(self, processor, rounds, failing=()):
        """Measures with such failing installers; the first round in a Windows is slow: (the result or the error, the runs in each
        Windows, what is said)."""
        windows = FakeWindows(self.clock, lambda kind, step, number: (100 if number <= 6 else self.SECONDS[kind])
                              * (1 if step == "/i" else 2), failing)
        with mock.patch.object(self.module, "Windows", windows), redirect_stderr(io.StringIO()) as said:
            try:
                result = self.module.measure(self.module.Machine(processor, self.folder), "client", rounds)
            except self.module.MeasureError as error:
                result = str(error)
        return result, windows.runs, said.getvalue()

    def test_they_take_turns_and_the_first_round_does_not_count(self):
        self.assertEqual(self.measure("x64", 1), (
            {"installation": (self.SECONDS, 1.5, 1.25), "removal": ({"with": 6, "empty": 5, "without": 4}, 1.5, 1.25)},
            [[*self.ROUND, *self.ROUND[2:], *self.ROUND[:2]]], ""))

    FAILED = "the installation of with/client.msi failed with status 67\nwhat it says"

    def test_a_run_that_fails(self):
        self.assertEqual(self.measure("x64", 1, {1}), (self.FAILED, [self.ROUND[:1]], ""))

    def test_under_emulation_the_round_begins_again_in_another_windows(self):
        result, runs, said = self.measure("arm64", 2, {17})
        self.assertEqual(result["installation"], (self.SECONDS, 1.5, 1.25))
        second, third = [*self.ROUND[2:], *self.ROUND[:2]], [*self.ROUND[4:], *self.ROUND[:4]]
        self.assertEqual(runs, [[*self.ROUND, *second, *third[:5]], [*self.ROUND, *third]])
        self.assertEqual(said, "hx: the installation of empty/client.msi failed with status 67\nwhat it says\n"
                               "hx: perhaps because of the emulator; going on in another Windows\n")

    def test_at_most_five_windows(self):
        result, runs, said = self.measure("arm64", 1, range(1, 100))
        self.assertEqual((result, runs, said.count("going on")), (self.FAILED, [self.ROUND[:1]] * 5, 4))

    def test_a_windows_that_ends(self):
        def work(windows):
            raise self.module.Ended("Windows ended unexpectedly")

        with mock.patch.object(self.module, "Windows", FakeWindows(self.clock, None)), redirect_stderr(io.StringIO()) as said:
            for processor, others in (("x64", 0), ("arm64", 4)):
                with self.assertRaises(self.module.Ended):
                    self.module.Machine(processor, self.folder).run(work)
                self.assertEqual(said.getvalue().count("hx: Windows ended unexpectedly\n"), others)

    def test_a_ratio_is_that_of_a_round(self):
        # The medians of the seconds have other ratios.
        rounds = [dict(zip(self.module.KINDS, seconds)) for seconds in ((2, 3, 1), (30, 50, 10), (5, 6, 4))]
        self.assertEqual(self.module.result_of(rounds), ({"with": 5, "empty": 6, "without": 4}, 2, 3))

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
        with mock.patch.object(self.module, "install"), mock.patch.object(self.module, "Windows", mock.MagicMock()), self.assertRaisesRegex(
                self.module.MeasureError, "the calls could not be counted: no action of the library wrote a line in the client's "
                                          "installation"):
            self.module.count_calls(self.module.Machine("x64", self.folder), "client")

    def test_the_calls_are_counted_twice(self):
        calls = {"/i": (("CustomAction7", 12), ("CustomAction9", 5)), "/x": (("CustomAction7", 3),)}
        runs = []

        def install(windows, kind, model, step):
            runs.append((kind, model, step))
            (self.folder / "calls.txt").write_text(self.lines(*calls[self.module.STEPS[step]]), encoding="utf-8")
            if len(runs) == 3:
                calls["/x"] = other

        machine = self.module.Machine("x64", self.folder)
        with mock.patch.object(self.module, "install", install), mock.patch.object(self.module, "Windows", mock.MagicMock()):
            other = calls["/x"]
            self.assertEqual(self.module.count_calls(machine, "client"), {
                "installation": {"CustomAction7": [12], "CustomAction9": [5]}, "removal": {"CustomAction7": [3]}})
            self.assertEqual(runs, [("counted", "client", "installation"), ("counted", "client", "removal")] * 2)
            for other, counts in (([("CustomAction7", 4)], r"CustomAction7 made \[3\] and \[4\] calls"),
                                  ([("CustomAction7", 3)] * 2, r"CustomAction7 made \[3\] and \[3, 3\] calls"),
                                  ([("CustomAction7", 3), ("CustomAction8", 1)], r"CustomAction8 made \[\] and \[1\] calls")):
                runs.clear()
                calls["/x"] = (("CustomAction7", 3),)
                with self.assertRaisesRegex(self.module.MeasureError,
                                            f"two runs of the client's removal did not count alike: {counts}"):
                    self.module.count_calls(machine, "client")

    def test_under_emulation_two_counts_of_three_must_be_the_same(self):
        lost = {"installation": {}, "removal": {"CustomAction7": [3]}}
        whole = {"installation": {"CustomAction9": [5]}, "removal": {"CustomAction7": [3]}}
        for counts, processor, passes in (([whole, whole], "arm64", True), ([lost, whole, whole], "arm64", True), ([whole, lost, whole], "arm64", True),
                                          ([lost, whole, {**lost, "removal": {}}], "arm64", False), ([lost, whole], "x64", False)):
            with self.subTest(counts=counts, processor=processor), \
                    mock.patch.object(self.module, "count_calls_once", side_effect=counts) as count, \
                    mock.patch.object(self.module, "Windows", mock.MagicMock()):
                machine = self.module.Machine(processor, self.folder)
                if passes:
                    self.assertEqual(self.module.count_calls(machine, "client"), whole)
                else:
                    with self.assertRaisesRegex(self.module.MeasureError, "did not count alike"):
                        self.module.count_calls(machine, "client")
                self.assertEqual(count.call_count, len(counts))

    def test_under_emulation_an_action_that_was_lost_is_counted_in_another_windows(self):
        texts = ["CustomAction28 begins\n", self.lines(("CustomAction28", 3)), self.lines(("CustomAction28", 3))] * 2

        def install(windows, kind, model, step):
            (self.folder / "calls.txt").write_text(texts.pop(0), encoding="utf-8")

        with mock.patch.object(self.module, "install", install), mock.patch.object(self.module, "Windows", mock.MagicMock()), \
                redirect_stderr(io.StringIO()) as said:
            self.assertEqual(self.module.count_calls(self.module.Machine("arm64", self.folder), "client"),
                             dict.fromkeys(self.module.STEPS, {"CustomAction28": [3]}))
        self.assertEqual((texts, said.getvalue().count("CustomAction28 began, but did not end")), ([], 2))

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
