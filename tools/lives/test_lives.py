"""Random lives and kills: what they do, what they find, and that planted faults are found. ./hx lives runs them in a Windows."""

import contextlib
import io
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from lives import kills, lives, orders
from lives.model import GONE, Machine
from lives.packages import hash_of
from packages.tables import PackageError

NUMBERS = {"older": "0.9.0", "first": "1.0.0", "next": "1.0.1"}
FILES = ("program", "agent", "about.txt", "older-readme.txt", "dbcon.cmd", "vantor.inf")
CONTENTS = {(product, version, name): f"{product} {version} {name}" for product in ("client", "server", "other")
            for version in NUMBERS for name in FILES}
CODES = {f"{product}-{version}": f"{{code of {product}-{version}}}" for product in ("client", "server", "other")
         for version in ("older", "first", "next", "fails", "cancels")}
STAMPS = ["2026-11-15 13-07-55", "2026-11-15 13-07-59", "2026-11-16 01-00-00"]


def machine():
    return Machine(NUMBERS, CONTENTS)


def shown(entries):
    """Entries of the model as the program in the Windows shows them."""
    lines = []
    for name, value in sorted(entries.items()):
        for number, stamp in enumerate(STAMPS, 1):
            name = name.replace(f" #{number}\\", f" {stamp}\\")
        lines.append(f"- {name}" if value == GONE else f"+ {name}" + (f" = {value}" if value else ""))
    return lines


def output(steps, change=lambda number, result, entries: result):
    """What the program prints if the packages do what the model says. `change` may change it after a step: it is given the
    number of the step, the engine's result and the entries, which it may change, and returns the result."""
    model, lines = machine(), []
    for number, step in enumerate(steps, 1):
        name = orders.log_name(number, step)
        result = model.take(*step)
        entries = model.entries()
        result = change(number, result, entries)
        lines += [f"run {name} {result}"] if result is not None else []
        lines += [f"state {name}", *shown(entries), "end"]
    return lines


LIFE = [("server", "install", "older"), ("server", "use", ""), ("client", "install", "first"), ("server", "install", "first"),
        ("other", "install", "first"), ("server", "use", ""), ("server", "install", "next"), ("client", "fail", "next"),
        ("client", "repair", "first"), ("other", "cancel", "next"), ("client", "remove", "first")]


class OrdersTest(unittest.TestCase):
    def test_a_seed_repeats_an_order(self):
        first = [orders.order_of(7, number, machine()) for number in range(1, 30)]
        self.assertEqual(first, [orders.order_of(7, number, machine()) for number in range(1, 30)])
        self.assertNotEqual(first, [orders.order_of(8, number, machine()) for number in range(1, 30)])
        self.assertEqual({len(order) for order in first}, set(range(orders.LENGTHS[0], orders.LENGTHS[1] + 1)))

    def test_all_kinds_of_steps_of_all_products_are_taken(self):
        taken = {step[:2] for number in range(1, 51) for step in orders.order_of(1, number, machine())}
        kinds = {(product, kind) for product in ("client", "server", "other")
                 for kind in ("install", "repair", "remove", "fail", "cancel")}
        self.assertEqual(kinds - taken, set())
        self.assertIn(("server", "use"), taken)

    def test_instructions(self):
        steps = [("other", "install", "first"), ("server", "cancel", "next"), ("other", "remove", "first"),
                 ("client", "repair", "first")]
        lines = orders.instructions(steps, CODES, machine())
        self.assertEqual([line for line in lines if not line.startswith("name\t")], [
            "folder\tC:\\Lives stop",
            "setting\tSOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\tAppInit_DLLs\t",
            "start",
            'run\t01-other-install-first\t/i "Z:\\run\\other-first.msi" /qn PROP_ACCOUNTTYPE=1',
            "state\t01-other-install-first",
            "text\tC:\\Lives stop\\dbcon_cancelled.txt\tcancelled",
            "pause\t1100",
            'run\t02-server-cancel-next\t/i "Z:\\run\\server-cancels.msi" /qn',
            "state\t02-server-cancel-next",
            "run\t03-other-remove-first\t/x {code of other-first} /qn",
            "state\t03-other-remove-first",
            'run\t04-client-repair-first\t/i "Z:\\run\\client-first.msi" /qn REINSTALL=ALL REINSTALLMODE=amus',
            "state\t04-client-repair-first"])
        # A stopping package has the product code of the version that it is a copy of.
        self.assertNotIn("stops", "".join(lines[:9]))

    def test_instructions_of_a_server_that_is_put_back(self):
        steps = [("server", "install", "first"), ("server", "cancel", "next"), ("server", "restore", "")]
        self.assertEqual(orders.instructions(steps, CODES, machine())[-2:],
                         ["restore\t03-server-restore\tSOFTWARE\\Halvorstead\\Vantor\\Upgrade", "state\t03-server-restore"])

    def test_times_after_names_become_numbers(self):
        lines = ["+ C:\\Vantor 2026-11-15 13-07-59\\", "+ C:\\Vantor 2026-11-15 13-07-59\\a = 1/2",
                 "+ C:\\Vantor 2026-11-15 13-07-55\\", "- C:\\gone\\", "~ C:\\changed = 3/4", "~ service RpcSs = running"]
        self.assertEqual(orders.seen(lines), {"C:\\Vantor #2\\": "", "C:\\Vantor #2\\a": "1/2", "C:\\Vantor #1\\": "",
                                              "C:\\gone\\": GONE, "C:\\changed": "3/4"})

    def test_a_life_as_the_model_says(self):
        self.assertEqual(orders.judge(LIFE, machine(), output(LIFE)), (None, []))


class PlantedFaultsTest(unittest.TestCase):
    """Each must be found, at its step."""

    def assert_found(self, number, lines, change):
        self.assertEqual(orders.judge(LIFE, machine(), output(LIFE, change)), (number, lines))

    def test_a_package_that_leaves_a_file(self):
        def leave(number, result, entries):
            if number == 11:
                entries["C:\\Program Files\\Halvorstead\\Ostrel\\left.txt"] = "5/123"
            return result
        self.assert_found(11, ["unexpected: C:\\Program Files\\Halvorstead\\Ostrel\\left.txt = 5/123"], leave)

    def test_a_lost_file_and_a_changed_one(self):
        folder = "C:\\Program Files\\Halvorstead\\Vantor\\"

        def lose(number, result, entries):
            if number == 4:
                del entries[folder + "Data\\counts 1.dat"]
                entries[folder + "Data\\format.txt"] = "0/0"
            return result
        self.assert_found(4, [f"missing:    {folder}Data\\counts 1.dat = {hash_of(b'counts 1' + bytes([13, 10]))}",
                              f"different:  {folder}Data\\format.txt = 0/0, not {kills.CONVERTED}"], lose)

    def test_another_result(self):
        self.assert_found(8, ["result 0, not 1603"], lambda number, result, entries: 0 if number == 8 else result)

    def test_a_service_that_does_not_run(self):
        def stop(number, result, entries):
            if number >= 5:
                entries["service Gauge"] = "stopped"
            return result
        self.assert_found(5, ["different:  service Gauge = stopped, not running"], stop)

    def test_an_access_list_that_is_not_usual(self):
        def give(number, result, entries):
            if number == 3:
                entries["C:\\Program Files\\Halvorstead\\Ostrel\\"] = "D:(A;OICI;FA;;;WD)"
            return result
        self.assert_found(3, ["different:  C:\\Program Files\\Halvorstead\\Ostrel\\ = D:(A;OICI;FA;;;WD), not "], give)

    def test_a_model_that_is_wrong_in_one_entry(self):
        wrong = machine()
        wrong.products["client"].folder = "C:\\Program Files\\Halvorstead\\Ostrel 2\\"
        number, lines = orders.judge(LIFE, wrong, output(LIFE))
        self.assertEqual(number, 3)
        self.assertIn("missing:    C:\\Program Files\\Halvorstead\\Ostrel 2\\about.txt = client first about.txt", lines)
        self.assertIn("unexpected: C:\\Program Files\\Halvorstead\\Ostrel\\about.txt = client first about.txt", lines)

    def test_every_single_entry_counts(self):
        """The machine at the end of the longest part of the life: without any one of its entries the step differs."""
        model = machine()
        for step in LIFE[:7]:
            model.take(*step)
        for name in model.entries():
            def lose(number, result, entries, name=name):
                if number == 7:
                    del entries[name]
                return result
            number, lines = orders.judge(LIFE, machine(), output(LIFE, lose))
            self.assertEqual((number, [line.split(" = ")[0] for line in lines]), (7, [f"missing:    {name}"]))

    def test_a_program_that_ends_early(self):
        lines = output(LIFE)
        cut = lines[:lines.index("state 05-other-install-first")]
        self.assertEqual(orders.judge(LIFE, machine(), cut), (5, ["the state is missing"]))


class ModelTest(unittest.TestCase):
    def test_a_removal_leaves_what_the_pages_say(self):
        model = machine()
        for step in (("server", "install", "first"), ("server", "use", ""), ("server", "remove", "first"),
                     ("client", "install", "first"), ("client", "remove", "first"),
                     ("other", "install", "first"), ("other", "remove", "first")):
            self.assertIn(step, model.steps())
            model.take(*step)
        folder = "C:\\Program Files\\Halvorstead\\"
        self.assertEqual(sorted(model.entries()), sorted([
            folder, "C:\\Program Files\\Brackwell\\", folder + "Vantor\\", folder + "Vantor\\Data\\",
            folder + "Vantor\\Data\\format.txt", folder + "Vantor\\Data\\counts 1.dat", "HKLM\\SOFTWARE\\Halvorstead\\",
            "HKLM\\SOFTWARE\\Halvorstead\\Vantor\\", "HKLM\\SOFTWARE\\Halvorstead\\Vantor\\ServerFolder",
            "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\AppInit_DLLs",
            "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\LoadAppInit_DLLs", "service Schedule"]))

    def test_an_upgrade_that_was_cancelled_is_refused_until_the_older_server_is_back(self):
        model, server = machine(), "C:\\Program Files\\Halvorstead\\Vantor"
        note = "HKLM\\SOFTWARE\\Halvorstead\\Vantor\\Upgrade\\"
        for step in (("server", "install", "first"), ("server", "use", ""), ("server", "cancel", "next")):
            model.take(*step)
        entries = model.entries()
        self.assertEqual({name: value for name, value in entries.items() if name.startswith(note)},
                         {note: "", note + "Server": f'"{server}\\"', note + "Aside": f'"{server} (previous)\\"'})
        self.assertEqual(model.products["server"].steps(), [("install", "next"), ("cancel", "next"), ("restore", "")])
        for kind in ("install", "cancel"):
            self.assertEqual(model.take("server", kind, "next"), 1603)
            self.assertEqual(model.entries(), entries)
        model.take("server", "restore", "")
        back = model.entries()
        self.assertEqual([name for name in back if name.startswith(note)], [])
        self.assertEqual(back[server + "\\Data\\format.txt"], kills.UNCONVERTED)
        self.assertEqual(back[server + " (part)\\Data\\format.txt"], kills.CONVERTED)
        self.assertEqual(model.take("server", "install", "next"), 0)
        self.assertEqual(model.entries()[server + "\\Data\\format.txt"], kills.CONVERTED)

    def test_a_first_installation_that_was_cancelled_leaves_no_note(self):
        model = machine()
        model.take("server", "cancel", "next")
        self.assertEqual(model.products["server"].steps(), [("install", "next"), ("cancel", "next")])
        self.assertEqual(model.take("server", "install", "next"), 0)

    def test_meanings(self):
        steps = [("client", "install", "first"), ("client", "install", "first"), ("client", "fail", "next"),
                 ("client", "repair", "first"), ("client", "install", "next"), ("other", "install", "next"),
                 ("other", "install", "first")]
        self.assertEqual([meaning for _, meaning in machine().meanings(steps)],
                         ["install", "same version again", "fail", "repair", "upgrade", "install", "lower version"])

    def test_a_lower_version_is_refused_and_an_unknown_one_cannot_be_removed(self):
        model = machine()
        self.assertEqual(model.take("client", "remove", "first"), 1605)
        self.assertEqual(model.take("client", "install", "next"), 0)
        before = model.entries()
        self.assertEqual(model.take("client", "install", "first"), 1603)
        self.assertEqual(model.entries(), before)


class KillsTest(unittest.TestCase):
    INSIDE, OUTSIDE = kills.PLACES[:2]
    DATA = {"format.txt": kills.UNCONVERTED, "a\\": "", "a\\counts.dat": "9/9", "b.dat": "7/7"}
    NEW = {**DATA, "format.txt": kills.CONVERTED}
    DATED = "Data 2026-11-15"

    REFUSED = "Action start 1:02:03: RefuseInterrupted.\nAction ended 1:02:03: RefuseInterrupted. Return value 0.\n" \
              "Action ended 1:02:03: INSTALL. Return value 0.\n"

    @staticmethod
    def lines_of(trees, *words):
        lines = ["kill killed killed", *words]
        for name, tree in trees.items():
            lines += [f"tree {name}", *(f"+ {key}" + (f" = {value}" if value else "") for key, value in tree.items()), "end"]
        return lines

    def output(self, killed, killed_beside, again, result="0"):
        """What the program prints if another attempt finds no note."""
        trees = {"before": self.DATA, "killed-data": killed, "killed-beside": killed_beside, "again-data": again,
                 "again-beside": {}, "back-data": again, "back-beside": {}, "last-data": again, "last-beside": {}}
        return self.lines_of(trees, f"run again {result}", "restore back none", "run last 0", "restore end none")

    def refused(self, change=lambda trees, words: None):
        """What the program prints if another attempt is refused, and all data are kept. `change` may change its trees, and its
        other lines: {the words before the last one: the last word}."""
        kept, part = self.beside("Data", self.DATA), {"b.dat": "7/7"}
        trees = {"before": self.DATA, "killed-data": part, "killed-beside": kept, "again-data": part, "again-beside": kept,
                 "back-data": self.DATA, "back-beside": {}, "last-data": self.NEW, "last-beside": kept}
        words = {"run again": "1603", "restore back": "done", "run last": "0", "restore end": "none"}
        change(trees, words)
        return self.lines_of(trees, *(f"{key} {value}" for key, value in words.items()))

    def beside(self, folder, tree):
        return {f"{folder}\\": "", **{f"{folder}\\{name}": value for name, value in tree.items()}}

    def test_whole_data(self):
        for place, folder in ((self.INSIDE, "Data"), (self.OUTSIDE, self.DATED)):
            kept = self.beside(folder, self.DATA)
            for killed, beside in ((self.DATA, {}), ({}, kept), ({"b.dat": "7/7"}, kept), (self.NEW, kept), (self.NEW, {})):
                with self.subTest((place.name, killed)):
                    self.assertEqual(kills.judge(place, self.output(killed, beside, self.NEW)), [])

    def test_a_kill_that_loses_a_file(self):
        lost = {name: value for name, value in self.DATA.items() if name != "a\\counts.dat"}
        neither = "after the kill the data are whole in neither place"
        self.assertEqual(kills.judge(self.INSIDE, self.output(lost, self.beside("Data", lost), self.NEW)), [neither])
        self.assertEqual(kills.judge(self.INSIDE, self.output({}, {}, self.NEW)), [neither])
        # A folder with another name is not one of the two places.
        other = self.beside("Data 2026-11-15 13-07-55", self.DATA)
        self.assertEqual(kills.judge(self.OUTSIDE, self.output(lost, other, self.NEW)), [neither])
        # What was moved aside is never converted.
        self.assertEqual(kills.judge(self.OUTSIDE, self.output({}, self.beside(self.DATED, self.NEW), self.NEW)), [neither])

    def test_a_changed_file(self):
        changed = {**self.DATA, "b.dat": "7/8"}
        self.assertEqual(kills.judge(self.INSIDE, self.output(changed, {}, self.NEW)),
                         ["after the kill the data are whole in neither place"])

    def test_another_attempt_that_goes_wrong(self):
        whole = self.DATA, {}
        judge = kills.judge
        part = {name: value for name, value in self.NEW.items() if name != "b.dat"}
        self.assertEqual(judge(self.INSIDE, self.output(*whole, part)),
                         ["after another attempt the data folder is not whole: 1 of 4 entries differ, first b.dat"])
        self.assertEqual(judge(self.INSIDE, self.output(*whole, self.DATA)),
                         ["after another attempt the data folder is not whole: 0 of 4 entries differ; its format is wrong"])
        self.assertEqual(judge(self.INSIDE, self.output(*whole, {**self.NEW, "dbcon_failed.txt": "1/1"})),
                         ["after another attempt the data folder has more: dbcon_failed.txt"])
        self.assertEqual(judge(self.INSIDE, self.output(*whole, self.NEW, "1603")), ["another attempt ends with 1603"])
        lines = [line for line in self.output(*whole, self.NEW) if not line.startswith("restore end")]
        self.assertEqual(judge(self.INSIDE, lines), ["the program did not come to its end"])
        lines = [line.replace("restore back none", "restore back done") for line in self.output(*whole, self.NEW)]
        self.assertEqual(judge(self.INSIDE, lines), ["another attempt leaves a note"])
        self.assertEqual(judge(self.INSIDE, []), ["the data were not made"])

    def test_an_attempt_that_is_refused(self):
        lines = self.refused()
        self.assertEqual(kills.judge(self.INSIDE, lines, self.REFUSED), [])
        self.assertTrue(kills.is_refused(kills.parse(lines)[0]))
        self.assertFalse(kills.is_refused(kills.parse(self.output(self.DATA, {}, self.NEW, "1603"))[0]))

    def test_faults_of_an_attempt_that_is_refused(self):
        lost = {"format.txt": kills.UNCONVERTED}
        neither = "after the attempt that is refused the data are whole in neither place"
        changed = "the attempt that is refused changes the folders"
        differ = "is not whole: 2 of 4 entries differ, first a\\counts.dat"

        def lose_kept(trees, _):
            trees["again-beside"] = self.beside("Data", lost)
        faults = (
            (lambda trees, words: words.update({"run again": "1602"}),
             ["another attempt ends with 1602: RefuseInterrupted failed, not RefuseInterrupted"]),
            (lambda trees, words: trees["again-data"].update({"dbcon_failed.txt": "1/1"}) or
             trees.update({"killed-data": {"b.dat": "7/7"}}), [changed]),
            (lose_kept, [changed, neither]),
            (lambda trees, words: trees.update({"back-data": {"a\\": "", **lost}}),
             [f"the older data are not whole after they were put back: {differ[len('is not whole: '):]}"]),
            (lambda trees, words: trees.update({"back-data": self.NEW}),
             ["the older data are not whole after they were put back: 0 of 4 entries differ; its format is wrong"]),
            (lambda trees, words: words.update({"run last": "1603"}),
             ["the attempt after the older server was put back ends with 1603"]),
            (lambda trees, words: words.update({"restore end": "done"}), ["the last attempt leaves a note"]),
            (lambda trees, words: trees.update({"last-data": {**self.NEW, "b.dat": "7/8"}}),
             ["after the last attempt the data folder is not whole: 1 of 4 entries differ, first b.dat"]),
            (lambda trees, words: trees.update({"last-data": self.DATA}),
             ["after the last attempt the data folder is not whole: 0 of 4 entries differ; its format is wrong"]),
            (lambda trees, words: trees.update({"last-data": {**self.NEW, "more.dat": "1/1"}}),
             ["after the last attempt the data folder has more: more.dat"]),
        )
        for change, wrong in faults:
            with self.subTest(wrong):
                self.assertEqual(kills.judge(self.INSIDE, self.refused(change), self.REFUSED), wrong)

    def test_an_attempt_that_another_action_refuses(self):
        for log, failed in ((self.REFUSED.replace("RefuseInterrupted", "RefuseMissingData"), "RefuseMissingData"), ("", "no action")):
            self.assertEqual(kills.judge(self.INSIDE, self.refused(), log),
                             [f"another attempt ends with 1603: {failed} failed, not RefuseInterrupted"])

    def test_kills_are_spread_over_the_run(self):
        times = 1000, 3000, 4000
        found = [kills.moment(kills.random_of(1, number), number, times) for number in range(20)]
        moments = [delay + (1000 if path != "-" else 0) for delay, path in found]
        self.assertEqual(moments, sorted(moments))
        for part, low, high in ((moments[:4], 0, 1000), (moments[4:14], 1000, 3000), (moments[14:], 3000, 4000)):
            self.assertTrue(all(low <= moment <= high for moment in part), part)
        self.assertEqual(found, [kills.moment(kills.random_of(1, number), number, times) for number in range(20)])

    def test_phase(self):
        log = "Action start 6:19:53: InstallFiles.\nAction ended 6:19:53: InstallFiles. Return value 1.\n"
        self.assertEqual(kills.phase_of(""), "before the first action")
        self.assertEqual(kills.phase_of(log), "InstallFiles")
        self.assertEqual(kills.phase_of(log * 2), "InstallFiles (script)")


class CommandTest(unittest.TestCase):
    """The command, with a Windows that the test replaces."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-lives-test-")
        self.addCleanup(folder.cleanup)
        self.logs = Path(folder.name) / "logs"

    def run_main(self, *words, outputs):
        """Runs lives.py; `outputs` makes the output of a run from its instructions. Returns its status and what it prints."""
        rig = mock.Mock(codes=CODES, logs=self.logs, machine=machine)
        rig.run.side_effect = outputs
        printed, errors = io.StringIO(), io.StringIO()
        with mock.patch.object(lives, "Rig", lambda *_: rig), mock.patch.object(lives, "copy_page", lambda _: None), \
                mock.patch.object(lives, "explained", lambda _: ["what it means"]), contextlib.redirect_stdout(printed), \
                contextlib.redirect_stderr(errors):
            status = lives.main(["--builds", "x", "--logs", str(self.logs), *words])
        return status, printed.getvalue(), errors.getvalue()

    def test_orders_that_are_right(self):
        def outputs(_, name):
            return output(orders.order_of(5, int(name[-3:]), machine()))
        status, printed, _ = self.run_main("3", "0", "5", outputs=outputs)
        steps = sum(len(orders.order_of(5, number, machine())) for number in (1, 2, 3))
        self.assertEqual(status, 0)
        self.assertIn(f"3 orders, {steps} states compared, 0 orders differ\n", printed)
        self.assertTrue(printed.startswith("seed 5\norder 1: "))
        self.assertIn("seed 5: 0 wrong, in ", printed)

    def test_an_order_that_differs(self):
        steps = orders.order_of(5, 2, machine())
        name = orders.log_name(2, steps[1])

        def outputs(_, run):
            (self.logs / run).mkdir(parents=True)
            (self.logs / run / f"{name}.log").write_text("a log")
            return output(steps, lambda number, result, entries: entries.update({"C:\\left": "1/1"}) or result
                          if number == 2 else result)
        status, printed, _ = self.run_main("2-2", "0", "5", outputs=outputs)
        self.assertEqual(status, 1)
        self.assertIn(f"order 2: {orders.title(steps[0])}, {orders.title(steps[1])}: DIFFERS\n"
                      f"    unexpected: C:\\left = 1/1\n    the logs are in {self.logs / 'order-002'}\n"
                      "      what it means\n", printed)
        self.assertIn("1 orders, 2 states compared, 1 orders differ\n", printed)

    def test_kills(self):
        test = KillsTest()

        def outputs(instructions, name):
            if name == "measured":
                return ["watch measured 0 1000 3000 4000"]
            (self.logs / name).mkdir(parents=True)
            (self.logs / name / "killed.log").write_text("Action start 1:02:03: InstallFiles.\n")
            self.assertTrue(any(line.startswith("kill\t") for line in instructions))
            return test.output(test.DATA, {}, test.NEW if name == "kill-001" else test.DATA)
        status, printed, _ = self.run_main("0", "2", "9", outputs=outputs)
        self.assertEqual(status, 1)
        self.assertIn("kill 1: data outside; InstallFiles: the data are whole\n", printed)
        self.assertIn("InstallFiles: WRONG\n    after another attempt the data folder is not whole", printed)
        self.assertIn("2 kills, 0 with an attempt that was refused, 1 with a loss\n     2 InstallFiles\n", printed)

    def test_a_kill_whose_next_attempt_is_refused(self):
        test = KillsTest()

        def outputs(_, name):
            if name == "measured":
                return ["watch measured 0 1000 3000 4000"]
            (self.logs / name).mkdir(parents=True)
            (self.logs / name / "killed.log").write_text("Action start 1:02:03: InstallFiles.\n")
            (self.logs / name / "again.log").write_text(test.REFUSED if name == "kill-003" else "")
            return test.refused()
        status, printed, _ = self.run_main("0", "3-3", "9", outputs=outputs)
        self.assertIn("kill 3: data inside the server's folder; InstallFiles; refused, and put back: the data are whole\n", printed)
        self.assertIn("1 kills, 1 with an attempt that was refused, 0 with a loss\n", printed)
        self.assertEqual(status, 0)
        status, printed, _ = self.run_main("0", "6-6", "9", outputs=outputs)
        self.assertIn("WRONG\n    another attempt ends with 1603: no action failed, not RefuseInterrupted\n", printed)
        self.assertEqual(status, 1)

    def test_a_kill_that_comes_too_late_comes_earlier(self):
        test, delays = KillsTest(), []

        def outputs(instructions, name):
            if name == "measured":
                return ["watch measured 0 1000 3000 4000"]
            delays.append(int(next(line for line in instructions if line.startswith("kill\t")).split("\t")[2]))
            lines = test.output(test.DATA, {}, test.NEW)
            return lines if len(delays) == 3 else ["kill killed ended 0", *lines[1:]]
        status, printed, _ = self.run_main("0", "19-19", "9", outputs=outputs)
        self.assertEqual((status, len(delays)), (0, 3))
        self.assertEqual(delays[1:], [int(delay * lives.EARLIER) for delay in delays[:2]])
        self.assertIn("1 kills, 0 with an attempt that was refused, 0 with a loss\n     1 before the first action\n", printed)

    def test_an_upgrade_that_fails_without_a_kill(self):
        status, _, errors = self.run_main("0", "1", "9", outputs=lambda *_: ["watch measured 1603 -1 -1 400"])
        self.assertEqual((status, errors), (1, "hx: the upgrade with the data outside fails without a kill, with 1603: "
                                               "watch measured 1603 -1 -1 400\n"))

    def test_numbers(self):
        self.assertEqual(list(lives.numbers_of("3")), [1, 2, 3])
        self.assertEqual(list(lives.numbers_of("17-18")), [17, 18])
        self.assertEqual(list(lives.numbers_of("0")), [])

    def test_passwords_are_hidden(self):
        password = "bAAA0BAA!CAA=DAA$AAA"
        for text, hidden in ((f"a {password} b".encode(), b"a " + b"*" * 20 + b" b"),
                             (password.encode("utf-16-le"), b"*" * 40), (b"AAAA no password", b"AAAA no password")):
            self.assertEqual(lives.hide_passwords(text), hidden)

    def test_packages_that_cannot_be_made(self):
        with mock.patch.object(lives, "Rig", mock.Mock(side_effect=PackageError("no compiler"))), \
                contextlib.redirect_stdout(io.StringIO()), contextlib.redirect_stderr(io.StringIO()) as errors:
            self.assertEqual(lives.main(["--builds", "x", "--logs", "y", "1", "1"]), 1)
        self.assertEqual(errors.getvalue(), "hx: no compiler\n")


if __name__ == "__main__":
    unittest.main()
