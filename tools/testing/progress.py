"""Follows the progress of a test run: reads it from the output of the programs and shows it to the user."""

import re
import shutil
import sys
import threading
import time

RUNNING = re.compile(r"\[==========\] Running (\d+) tests?")
STARTS = re.compile(r"\[ RUN      \] ([\w./]+)")
ENDS = re.compile(r"\[ *(OK|FAILED|SKIPPED) *\] ([\w./]+).*\(\d+ ms\)")
# What GoogleTest prints before, between and after the tests.
CHATTER = re.compile(r"\[ RUN      \]|\[       OK \]|\[----------\]|\[==========\] Running |Note: |$")

# Seconds between two updates: at a terminal, and if the output goes elsewhere.
TERMINAL_PACE, PLAIN_PACE = 0.5, 60


class TestStream:
    """The progress of a GoogleTest program, read from its output."""

    def __init__(self):
        # The number of tests; None before the program prints it.
        self.total = None
        self.done = 0
        # The test that is running, or None; and the last one that ended.
        self.running = self.last = None
        self.failed = []
        # The lines of the test that is running.
        self.held = []

    def feed(self, line):
        """Reads a line of the output. Returns the lines that a run of all tests should show now. The lines of a test are shown
        when it ends, and only if it did not pass."""
        if match := RUNNING.match(line):
            self.total = int(match[1])
        if match := STARTS.search(line):
            self.running = match[1]
            # Another process may have begun the line.
            self.held = [] if CHATTER.match(line) else [line]
            return []
        if match := ENDS.search(line):
            self.done += 1
            self.running, self.last = None, match[2]
            if match[1] == "FAILED":
                self.failed.append(match[2])
            lines = self.rest()
            return [] if match[1] == "OK" else [*lines, line]
        if self.running:
            self.held.append(line)
            return []
        return [] if CHATTER.match(line) else [line]

    def rest(self):
        """The lines of a test that has not ended, which are to be shown if the program broke off in it."""
        lines, self.held = self.held, []
        return lines

    def __str__(self):
        return f"{self.done}/{self.total}" if self.total is not None else "starting"


def duration(seconds):
    return f"{int(seconds) // 60}:{int(seconds) % 60:02}"


class Screen:
    """Prints lines from several threads. At a terminal, one line below them shows the progress of the run; elsewhere such a
    line is printed once a minute. `jobs` is the number of all jobs."""

    def __init__(self, jobs, output=None, clock=time.monotonic):
        self.output = output or sys.stdout
        self.terminal = self.output.isatty()
        self.jobs, self.finished = jobs, 0
        self.clock, self.began = clock, clock()
        # The job that each lane runs: its title, and its progress, which str() turns into text.
        self.running = {}
        self.drawn = False
        self.lock = threading.RLock()

    def state(self):
        """The run's state in one line."""
        with self.lock:
            parts = [f"hx: {duration(self.clock() - self.began)}, {self.finished} of {self.jobs} done"]
            parts += [f"{title} {stream}".rstrip() for title, stream in self.running.values()]
        return " | ".join(parts)

    def start(self, lane, title, stream=""):
        with self.lock:
            self.running[lane] = title, stream

    def finish(self, lane):
        with self.lock:
            del self.running[lane]
            self.finished += 1

    def leave(self, lane):
        """Removes the lane's job, whether it finished or not."""
        with self.lock:
            self.running.pop(lane, None)

    def erase(self):
        if self.drawn:
            self.output.write("\r\x1b[K")
            self.drawn = False

    def draw(self):
        """Shows the state; at a terminal it replaces the last one."""
        with self.lock:
            state = self.state()
            if self.terminal:
                self.erase()
                self.output.write(state[:shutil.get_terminal_size().columns - 1])
                self.drawn = True
            else:
                self.output.write(state + "\n")
            self.output.flush()

    def line(self, text):
        """Prints a line."""
        with self.lock:
            self.erase()
            self.output.write(text + "\n")
            self.output.flush()
            if self.terminal and self.running:
                self.draw()

    def say(self, text):
        """Prints a line of hx itself to the error output."""
        with self.lock:
            self.erase()
            self.output.flush()
            # One write, so that a process that ends meanwhile leaves no half line.
            sys.stderr.write(f"hx: {text}\n")
            sys.stderr.flush()

    def follow(self):
        """Shows the state again and again, until the returned function is called."""
        end = threading.Event()

        def look():
            while not end.wait(TERMINAL_PACE if self.terminal else PLAIN_PACE):
                self.draw()

        thread = threading.Thread(target=look, daemon=True)
        thread.start()

        def stop():
            end.set()
            thread.join()
            with self.lock:
                self.erase()
                self.output.flush()

        return stop
