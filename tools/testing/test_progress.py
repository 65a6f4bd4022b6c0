"""progress.py: the progress of a run is read from the output of GoogleTest and shown in one line."""

import io
import time
import unittest
from unittest import mock

from testing.progress import Screen, TestStream, duration

OUTPUT = """\
Note: Google Test filter = S.*
[==========] Running 3 tests from 2 test suites.
[----------] Global test environment set-up.
[----------] 2 tests from S
[ RUN      ] S.Good
seen on the way
[       OK ] S.Good (12 ms)
between two tests
[ RUN      ] S.Bad/1
file.cpp:7: Failure

wrong
[  FAILED  ] S.Bad/1, where GetParam() = 7 (1 ms)
[----------] 2 tests from S (13 ms total)

[ RUN      ] T.Left
half a line[  SKIPPED ] T.Left (0 ms)
[==========] 3 tests from 2 test suites ran. (15 ms total)
[  PASSED  ] 1 test.
[  FAILED  ] 1 test, listed below:
[  FAILED  ] S.Bad/1, where GetParam() = 7
"""

WORTH_SHOWING = """\
between two tests
file.cpp:7: Failure

wrong
[  FAILED  ] S.Bad/1, where GetParam() = 7 (1 ms)
half a line[  SKIPPED ] T.Left (0 ms)
[==========] 3 tests from 2 test suites ran. (15 ms total)
[  PASSED  ] 1 test.
[  FAILED  ] 1 test, listed below:
[  FAILED  ] S.Bad/1, where GetParam() = 7
"""


class StreamTest(unittest.TestCase):
    def test_passing_tests_are_not_shown(self):
        stream = TestStream()
        self.assertEqual([shown for line in OUTPUT.splitlines() for shown in stream.feed(line)], WORTH_SHOWING.splitlines())
        self.assertEqual(stream.rest(), [])

    def test_a_test_is_shown_when_it_has_failed(self):
        stream = TestStream()
        shown = [stream.feed(line) for line in ("qemu: crash[ RUN      ] S.Bad", "file.cpp:7: Failure", "[  FAILED  ] S.Bad (1 ms)")]
        self.assertEqual(shown, [[], [], ["qemu: crash[ RUN      ] S.Bad", "file.cpp:7: Failure", "[  FAILED  ] S.Bad (1 ms)"]])

    def test_what_a_test_printed_in_which_the_program_broke_off(self):
        stream = TestStream()
        for line in ("[ RUN      ] S.Bad", "file.cpp:7: Failure", "qemu: uncaught target signal 11"):
            self.assertEqual(stream.feed(line), [])
        self.assertEqual(stream.rest(), ["file.cpp:7: Failure", "qemu: uncaught target signal 11"])
        self.assertEqual(stream.rest(), [])

    def test_progress(self):
        stream, seen = TestStream(), []
        for line in OUTPUT.splitlines():
            stream.feed(line)
            seen.append((str(stream), stream.running))
        self.assertEqual(list(dict.fromkeys(seen)), [
            ("starting", None), ("0/3", None), ("0/3", "S.Good"), ("1/3", None), ("1/3", "S.Bad/1"), ("2/3", None),
            ("2/3", "T.Left"), ("3/3", None)])
        self.assertEqual((stream.failed, stream.last), (["S.Bad/1"], "T.Left"))

    def test_output_of_another_process_in_the_same_line(self):
        stream = TestStream()
        for line in ("[ RUN      ] S.A", "[       OK ] S.A (0 ms)qemu: uncaught target signal 11"):
            stream.feed(line)
        self.assertEqual((stream.done, stream.running), (1, None))


class Terminal(io.StringIO):
    def isatty(self):
        return True


class ScreenTest(unittest.TestCase):
    def screen(self, output):
        self.now = 100.0
        return Screen(4, output, lambda: self.now)

    def test_the_state(self):
        screen = self.screen(io.StringIO())
        stream = TestStream()
        screen.start("a", "unit-x64", stream)
        screen.start("tools", "tools")
        self.now += 61
        self.assertEqual(screen.state(), "hx: 1:01, 0 of 4 done | unit-x64 starting | tools")
        stream.feed("[==========] Running 3 tests from 2 test suites.")
        screen.finish("tools")
        self.assertEqual(screen.state(), "hx: 1:01, 1 of 4 done | unit-x64 0/3")
        screen.leave("a")
        self.assertEqual(screen.state(), "hx: 1:01, 1 of 4 done")

    def test_a_terminal_has_one_line_for_it(self):
        output = Terminal()
        screen = self.screen(output)
        screen.start("a", "unit-x64", "1/3")
        screen.draw()
        screen.draw()
        screen.line("x64: wrong")
        state = "hx: 0:00, 0 of 4 done | unit-x64 1/3"
        self.assertEqual(output.getvalue(), f"{state}\r\x1b[K{state}\r\x1b[Kx64: wrong\n{state}")

    def test_it_is_not_longer_than_the_terminal_is_wide(self):
        output = Terminal()
        screen = self.screen(output)
        screen.start("a", "unit-x64" * 100)
        with mock.patch("shutil.get_terminal_size", return_value=mock.Mock(columns=80)):
            screen.draw()
        self.assertEqual(len(output.getvalue()), 79)

    def test_without_a_terminal_there_are_plain_lines(self):
        output = io.StringIO()
        screen = self.screen(output)
        screen.start("a", "unit-x64", "1/3")
        screen.line("x64: wrong")
        screen.draw()
        self.assertEqual(output.getvalue(), "x64: wrong\nhx: 0:00, 0 of 4 done | unit-x64 1/3\n")

    def test_it_is_drawn_until_it_is_stopped(self):
        output = Terminal()
        screen = Screen(4, output)
        screen.start("a", "unit-x64")
        with mock.patch("testing.progress.TERMINAL_PACE", 0.01):
            stop = screen.follow()
            for _ in range(1000):
                if output.getvalue().count("unit-x64") > 1:
                    break
                time.sleep(0.02)
            stop()
        drawn = output.getvalue()
        self.assertGreater(drawn.count("unit-x64"), 1)
        self.assertTrue(drawn.endswith("\r\x1b[K"))
        time.sleep(0.05)
        self.assertEqual(output.getvalue(), drawn)

    def test_duration(self):
        self.assertEqual([duration(seconds) for seconds in (0, 59.9, 60, 3601)], ["0:00", "0:59", "1:00", "60:01"])


if __name__ == "__main__":
    unittest.main()
