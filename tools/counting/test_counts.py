"""Reading, comparing and printing counts."""

import re
import unittest

from counting.counts import (ROWS, Count, CountError, Report, differences_between, own_counts, read_actions, read_counts,
                             read_summary, read_table, summary, table_text)
from support import TOOLS

LINES = ["100 110 Texts\thx\t%d", "0 220 Texts\tsnprintf\t%d", "0 55 Texts\tstb\t%d", "0 110 Texts\tfmt\t%d",
         "200 200 Texts\thx\t%s  of %s", "0 400 Texts\tsnprintf\t%s  of %s",
         "0 800 Texts\tstb\t%s  of %s", "0 800 Texts\tfmt\t%s  of %s",
         "7 30 Paths\thx\tjoin: C:\\", "0 15 Paths\tstandard\tjoin: C:\\"]
# A second path, the same operations in another order, a message with a colon, and actions, an even number of them.
MORE = ["8 10 Paths\thx\tway: C:\\", "0 30 Paths\tstandard\tway: C:\\", "9 10 Paths\thx\tway: D:\\", "0 20 Paths\tstandard\tway: D:\\",
        "9 10 Paths\thx\tjoin: D:\\", "0 80 Paths\tstandard\tjoin: D:\\",
        "16000 20000 Messages\thx\tno: %s", "1600 2000 Messages\thx\tnone", "3210 4000 Messages\thx\tpath: %s",
        "4 0 Actions\thx\tA", "1004 0 Actions\thx\tB", "10 0 Actions\thx\tC", "8 0 Actions\thx\tD",
        "500 500 More texts (stb has no such directive)\thx\t%ls", "0 250 More texts (stb has no such directive)\tsnprintf\t%ls"]
SUMMARY = ["Texts: snprintf 2.00 (2.00), stb 1.41 (0.50), fmt 2.00 (1.00)",
           "More texts: snprintf 0.50 (0.50)",
           "All formats: snprintf 1.26 (0.50), stb 1.41 (0.50), fmt 2.00 (1.00)",
           "join: standard 2.00 (0.50)", "way: standard 2.45 (2.00)",
           "a message: least 100, median 201, greatest 1,000",
           "a typical run of an action: least 4, median 9, greatest 1,004"]


def tables():
    return read_counts(LINES)


class ReadingTest(unittest.TestCase):
    def test_each_line_is_one_count(self):
        self.assertEqual(tables()["Texts"]["%d"], {"hx": Count(100, 110), "snprintf": Count(0, 220), "stb": Count(0, 55),
                                                   "fmt": Count(0, 110)})
        self.assertEqual(list(tables()), ["Texts", "Paths"])

    def test_a_second_case_of_a_name(self):
        rows = read_counts(["1 1 T\thx\t%s", "2 2 T\tfmt\t%s", "3 3 T\thx\t%s", "4 4 T\tfmt\t%s", "5 5 T\thx\t%s"])["T"]
        self.assertEqual(rows, {"%s": {"hx": Count(1, 1), "fmt": Count(2, 2)}, "%s (2)": {"hx": Count(3, 3), "fmt": Count(4, 4)},
                                "%s (3)": {"hx": Count(5, 5)}})

    def test_other_lines_are_refused(self):
        for line in ("", "1 Texts\thx\t%d", "1 2 Texts hx %d", "-1 2 Texts\thx\t%d"):
            with self.subTest(line), self.assertRaisesRegex(CountError, "this is not a line of the counter"):
                read_counts([line])

    def test_the_first_call_of_an_entry_point_in_its_test(self):
        lines = ["0 0 Test\thx\tA.One", "5 50 Actions\thx\tCustomAction7", "6 60 Actions\thx\tCustomAction7",
                 "0 0 Test\thx\tA.Two", "8 80 Actions\thx\tCustomAction7", "9 90 Actions\thx\tCustomAction28"]
        wanted = [("CustomAction28", "A.Two"), ("CustomAction7", "A.One")]
        self.assertEqual(read_actions(lines, wanted), {"Actions": {"CustomAction28": {"hx": Count(9, 0)},
                                                                   "CustomAction7": {"hx": Count(5, 0)}}})

    def test_an_entry_point_that_its_test_does_not_call(self):
        with self.assertRaisesRegex(CountError, "not called: CustomAction8 in A.One"):
            read_actions(["0 0 Test\thx\tA.One", "5 50 Actions\thx\tCustomAction7"],
                         [("CustomAction7", "A.One"), ("CustomAction8", "A.One")])


class TwoRunsTest(unittest.TestCase):
    def test_equal(self):
        self.assertEqual(differences_between(tables(), tables()), [])

    def test_each_difference_is_named(self):
        other = read_counts(["101" + LINES[0][3:], *LINES[1:-1]])
        self.assertEqual(differences_between(tables(), other), [
            "Texts / %d / hx: Count(own=100, all=110) and Count(own=101, all=110)",
            "Paths / join: C:\\ / standard: Count(own=0, all=15) and None"])

    def test_windows_may_need_a_thousandth_more(self):
        def counted(own, whole):
            return read_counts([f"{own} {whole} Texts\thx\t%d"])

        self.assertEqual(differences_between(counted(100, 22000), counted(100, 22022)), [])
        self.assertEqual(differences_between(counted(100, 22000), counted(100, 21978)), [])
        self.assertEqual(len(differences_between(counted(100, 22000), counted(100, 22023))), 1)
        self.assertEqual(len(differences_between(counted(100, 22000), counted(101, 22000))), 1)
        self.assertEqual(len(differences_between(counted(100, 999), counted(100, 1000))), 1)


class TableTest(unittest.TestCase):
    def test_the_text(self):
        text = table_text(tables())
        self.assertTrue(text.startswith("# The instructions of the library itself on ARM64"))
        self.assertEqual(text.split("\n\n", 1)[1],
                         "Texts\n     100  %d\n     200  %s  of %s\n\nPaths\n       7  join: C:\\\n")

    def test_it_is_read_as_it_was_written(self):
        counted = read_counts(LINES + MORE)
        self.assertEqual(read_table(table_text(counted)), own_counts(counted))
        self.assertEqual(read_summary(table_text(counted)), SUMMARY)
        self.assertEqual(read_summary("# A table without a summary.\n\nTexts\n     100  %d\n"), [])

    def test_a_damaged_table(self):
        for text in ("  12  no heading\n", "Texts\n  x  %d\n", "Texts\n  12\n"):
            with self.subTest(text), self.assertRaisesRegex(CountError, r"line \d of the table is not 'COUNT  NAME'"):
                read_table(text)


class SummaryTest(unittest.TestCase):
    def test_each_group_of_formats_each_operation_of_paths_and_one_call(self):
        # The means of the ratios and the least of them. A number of instructions is that of one call; the counts of messages
        # are those of sixteen.
        self.assertEqual(summary(read_counts(LINES + MORE)), SUMMARY)

    def test_the_rows_of_a_message(self):
        rows, = re.findall(r"^constexpr unsigned kRows = (\d+);", (TOOLS.parent / "bench/values.h").read_text(encoding="utf-8"),
                           re.MULTILINE)
        self.assertEqual(ROWS, int(rows))


class ReportTest(unittest.TestCase):
    def report(self, **changes):
        """The report against a table that differs by `changes` of the counts of "%d" (None: not in it) and of others."""
        committed = own_counts(tables())
        for name, count in changes.items():
            if count is None:
                del committed["Texts"]["%d"]
            elif name == "d":
                committed["Texts"]["%d"] = count
            else:
                committed["Texts"][name] = count
        return Report(tables(), committed, summary(tables()))

    def row(self, report, name):
        line, = [line for line in report.lines if line.startswith(f"  {name} ")]
        return line.split()

    def test_nothing_differs(self):
        report = self.report()
        self.assertEqual(report.changed, 0)
        self.assertEqual(report.lines[-1], "The library's own counts, 3, are those of bench/counts/arm64.txt.")
        self.assertEqual(self.row(report, "%d"), ["%d", "100", "2.00", "0.50", "1.00"])

    def test_a_planted_difference_is_reported(self):
        for count, words in ((99, ["+1", "(+1.0%)"]), (125, ["-25", "(-20.0%)"]), (0, ["+100"]), (None, ["new"])):
            with self.subTest(count):
                report = self.report(d=count)
                self.assertEqual(report.changed, 1)
                self.assertEqual(self.row(report, "%d"), ["%d", "100", "2.00", "0.50", "1.00", *words])
                self.assertEqual(report.lines[-1], "Of the library's own counts, 1 differ from bench/counts/arm64.txt. If this is "
                                                   "on purpose, write them: ./hx bench arm64 --write")

    def test_a_case_that_is_gone(self):
        report = self.report(old=5)
        self.assertEqual(report.changed, 1)
        self.assertIn("gone: Texts / old", report.lines)

    def test_the_summary_and_the_aim(self):
        report = self.report()
        self.assertEqual(report.lines[-7:-1], [
            "", "In short: the geometric mean of the ratios and, in brackets, the worst case; and the library's own instructions of "
                "one call",
            *(f"  {line}" for line in summary(tables())),
            "The aim, fewer instructions for all formats than each of snprintf, stb and fmt, is met."])

    def test_the_aim_is_not_met(self):
        lines = [line.replace("800", "200") if "\tstb\t" in line else line for line in LINES]
        counted = read_counts(lines)
        report = Report(counted, own_counts(counted), summary(counted))
        self.assertIn("  All formats: snprintf 2.00 (2.00), stb 0.71 (0.50), fmt 2.00 (1.00)", report.lines)
        self.assertEqual(report.lines[-2], "The aim, fewer instructions for all formats than each of snprintf, stb and fmt, is not "
                                           "met: not fewer than stb.")

    def test_another_summary_is_said_but_fails_nothing(self):
        """The rivals are not the library's code."""
        report = Report(tables(), own_counts(tables()), ["Texts: snprintf 2.01 (2.00)"])
        self.assertEqual(report.changed, 0)
        self.assertEqual(report.lines[-1], "The library's own counts, 3, are those of bench/counts/arm64.txt. Its summary "
                                           "differs, because the rivals or Windows are not those with which it was written.")

    def test_no_advice_to_write_what_is_written(self):
        committed = own_counts(tables())
        committed["Texts"]["%d"] = 99
        report = Report(tables(), committed, summary(tables()), writes=True)
        self.assertEqual(report.lines[-1], "Of the library's own counts, 1 differ from bench/counts/arm64.txt.")


if __name__ == "__main__":
    unittest.main()
