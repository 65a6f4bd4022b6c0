#!/usr/bin/env python3
"""Runs the tests: tools/testing/run.py FOLDER [--level LEVEL] [--filter FILTER] [--only PROCESSOR]

FOLDER is the folder of this run. It has one folder for each preset, with the libraries and the test programs, and packages/,
as planning.py says. ./hx test makes it and calls this script. The artifacts of the programs are copied to build/artifacts.
The last line reads "N passed, N failed"; the exit status is 0 if something ran and nothing failed.
"""

import argparse
import os
import shutil
import subprocess
import sys
import threading
import time
import traceback
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from testing import planning, repeating, summary
from testing.ending import end_with_front
from testing.progress import Screen, TestStream, duration
from testing.results import RESULTS, STATUS, Misfit, failed, merge, note_repeated
from windows.windows_session import Ended, Windows

ROOT = Path(__file__).resolve().parents[2]
# The file with everything that a program printed, in its folder of artifacts.
OUTPUT = "program.txt"
# The file with what the entry points did, in the folder of artifacts of action tests. It is made for the first fact.
FACTS = "facts.txt"


def windows_path(*parts):
    """The Windows path of an entry of the run's folder."""
    return "\\".join(["Z:", "run", *"/".join(parts).split("/")])


class Run:
    """One run of tests."""

    def __init__(self, request, folder):
        self.request, self.folder = request, folder
        self.lanes = planning.lanes(request)
        self.artifacts = folder / "artifacts"
        self.artifacts.mkdir(exist_ok=True)
        self.checks = self.check_jobs()
        self.screen = Screen(sum(len(lane.programs) for lane in self.lanes) + len(self.checks))
        # A text for each job or lane that could not be run to the end.
        self.broken = []
        # The progress of each program by its name.
        self.streams = {}

    # ---- programs in a Windows

    def show(self, lane, line):
        self.screen.line(f"{lane.processor}: {line}")

    def run_program(self, windows, lane, program, again=False):
        """Runs a test program, and again as long as repeating.py says so. Writes its results and its status to its folder
        of artifacts; those of a second run (`again`) to a separate folder. Returns the folder."""
        folder = self.artifacts / (program.name + "-again" * again)
        folder.mkdir(exist_ok=True)
        options = [f"--gtest_filter={program.filter}"] if program.filter else []
        whole = not self.request.filter
        self.show(lane, f"hx: {program.title}" + " again" * again)
        for attempt in range(1, repeating.ATTEMPTS + 1):
            began = time.monotonic()
            stream = self.streams[program.name] = TestStream()
            self.screen.start(lane, program.name, stream)
            with (folder / OUTPUT).open("a", encoding="utf-8") as log:
                def take(line):
                    log.write(line + "\n")
                    # A run without a filter shows only tests that do not pass and unexpected lines, one with a filter every line.
                    lines = stream.feed(line)
                    for shown in lines if whole else [line]:
                        self.show(lane, shown)

                try:
                    status = windows.run(
                        {"HX_LIBRARY_DIR": windows_path(program.preset), "HX_ARTIFACTS": windows_path("artifacts", folder.name),
                         "HX_PACKAGES": windows_path("packages", program.processor), "HX_PROCESSOR": program.processor},
                        ["wine64", windows_path(program.file), *options,
                         f"--gtest_output=xml:{windows_path('artifacts', folder.name, RESULTS)}"], take)
                except Ended as error:
                    raise Ended(f"{program.title}, {stream.running or 'between two tests'}: {error}") from error
                finally:
                    for shown in stream.rest() if whole else []:
                        self.show(lane, shown)
            self.show(lane, f"hx: {program.title}: {stream} in {duration(time.monotonic() - began)}")
            if not repeating.starts_again(program.processor, status, attempt):
                break
            note_repeated(self.artifacts / program.name, repeating.broken_off(stream))
            self.show(lane, f"hx: {program.title}: the emulator crashed (status {status}); running them again")
        (folder / STATUS).write_text(f"{status}\n", encoding="utf-8")
        return folder

    def run_lane(self, lane):
        with self.open_windows(lane) as windows:
            for program in lane.programs:
                self.run_program(windows, lane, program)
                self.screen.finish(lane)

    def open_windows(self, lane):
        return Windows(lane.processor, self.folder, lane.number, planning.TEST_TIME_LIMIT,
                       lambda line: self.show(lane, line))

    def repeat(self, lane, program):
        """Runs the tests of a program again that repeating.py names, in a new Windows. The results of this run count."""
        folder = self.artifacts / program.name
        if not (folder / STATUS).is_file():
            return  # The lane ended before this program, which already counts as a failure.
        first = int((folder / STATUS).read_text())
        failures = failed(folder / RESULTS)
        second = repeating.second_run(program, failures, self.streams[program.name])
        if second is None:
            return
        names, counted = second
        self.show(lane, f"hx: {program.title}: failed; running again: {names}")
        note_repeated(folder, counted)
        with self.open_windows(lane) as windows:
            again = self.run_program(windows, lane, program._replace(filter=names), again=True)
        status = (again / STATUS).read_text()
        # The results of the two runs are counted together.
        (again / STATUS).unlink()
        try:
            merge(folder / RESULTS, again / RESULTS)
        except Misfit as error:
            raise Misfit(f"{program.title}: {str(error).replace(str(self.artifacts), 'build/artifacts')}") from error
        # Except for a program that wrote its results and crashed then.
        if failures is None or first in (0, 1):
            (folder / STATUS).write_text(status, encoding="utf-8")

    def guarded(self, work, lane, *arguments):
        """Calls work(lane, *arguments). If it raises an exception, that counts as one more failure."""
        try:
            work(lane, *arguments)
        except Exception as error:
            if not isinstance(error, (Ended, Misfit, OSError)):
                self.screen.line(traceback.format_exc().rstrip("\n"))
            self.broken.append(f"{getattr(lane, 'processor', lane)}: {error}")
            self.screen.say(self.broken[-1])
        finally:
            self.screen.leave(lane)

    # ---- checks of files

    def check_jobs(self):
        """The checks that need no Windows: (name, command)."""
        if suite := self.request.suite:
            options = ["-k", self.request.filter] if self.request.filter else []
            return [(self.request.level, [sys.executable, "-m", "unittest", "discover", *options, "-p", suite.files, "-t",
                                          ROOT / "tools", "-s", ROOT / "tools" / suite.folder])]
        if planning.PAGE in self.request.levels:
            words = [f"--only={self.request.processor}"] * bool(self.request.processor) + [self.request.filter] * bool(self.request.filter)
            return [("page", ["node", ROOT / "explain/tests/page/run.mjs", os.environ["HX_PAGE_TOOLS"], ROOT / "build/artifacts",
                              self.artifacts / "page", *words])]
        if "tools" in self.request.levels:
            folders = [self.folder / f"{processor}{planning.TESTS}" for processor in self.request.processors]
            return [("program", [sys.executable, ROOT / "tools/images/check-images.py", "--program", *folders])]
        if "images" not in self.request.levels:
            return []
        folders = [self.folder / processor for processor in self.request.processors]
        return [("checks", [ROOT / "tools/testing/check.py", *folders]),
                ("tools", [sys.executable, "-m", "unittest", "discover", ROOT / "tools"]),
                ("explain", [sys.executable, ROOT / "tools/explain/run-tests.py"])]

    def run_script(self, name, command):
        """Runs a script that prints its results; shows them if something failed."""
        folder = self.artifacts / name
        folder.mkdir(exist_ok=True)
        began = time.monotonic()
        self.screen.say(name)
        self.screen.start(name, name)
        with (folder / "output.txt").open("w", encoding="utf-8") as output:
            environment = {**os.environ, "HX_RUN_FOLDER": str(self.folder), "HX_PROCESSORS": " ".join(self.request.processors)}
            status = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                                    cwd=ROOT, env=environment, check=False).returncode
        (folder / STATUS).write_text(f"{status}\n", encoding="utf-8")
        self.screen.finish(name)
        if status != 0:
            for line in (folder / "output.txt").read_text(encoding="utf-8", errors="replace").splitlines():
                self.screen.line(line)
        self.screen.say(f"{name}: {'failed' if status else 'done'} in {duration(time.monotonic() - began)}")

    def check_runs(self):
        """Compares what Windows Installer ran in the install tests with what the guide says. The logs of a second run
        replace those of the first. With a filter only some tests have left logs."""
        for processor in self.request.processors:
            names = [program.name for lane in self.lanes for program in lane.programs
                     if program.processor == processor and program.level == "install"]
            folders = [self.artifacts / (name + again) for again in ("", "-again") for name in names]
            self.screen.jobs += 1
            self.run_script(f"runs-{processor}", [sys.executable, ROOT / "tools/kit/check-runs.py",
                                                  *["--some"] * bool(self.request.filter), *folders])

    def check_facts(self):
        """What the entry points did in the actions level against the table of it. With a filter only a part was seen, or
        nothing."""
        for lane in self.lanes:
            for program in lane.programs:
                if program.level == "actions":
                    folders = [self.artifacts / (program.name + again) for again in ("", "-again")]
                    options = ["--some"] if self.request.filter else []
                    # A second run of tests that call no entry point has seen nothing.
                    seen = [folder for folder in folders if (folder / FACTS).exists()]
                    if options and not seen:
                        continue
                    folders = seen or folders[:1]
                    self.screen.jobs += 1
                    self.run_script(f"facts-{program.preset}",
                                    [sys.executable, ROOT / "tools/texts/observed-facts.py", *options, *folders])

    # ---- the whole

    def keep_artifacts(self):
        """Copies the artifacts to build/artifacts, folder by folder. What an earlier run has left of second runs, and of parts
        that there are no more, goes: others read these folders."""
        kept = ROOT / "build/artifacts"
        kept.mkdir(parents=True, exist_ok=True)
        for lane in self.lanes:
            for program in lane.programs:
                shutil.rmtree(kept / f"{program.name}-again", ignore_errors=True)
        for folder in kept.glob("install-*"):
            part = folder.name.removesuffix("-again").split("-")[2:]
            if part and part[0] not in planning.PART_FILTERS:
                shutil.rmtree(folder)
        for folder in sorted(path for path in self.artifacts.iterdir() if path.is_dir()):
            shutil.rmtree(kept / folder.name, ignore_errors=True)
            shutil.copytree(folder, kept / folder.name, symlinks=True)

    def run(self):
        """Runs everything; returns the exit status."""
        stop = self.screen.follow()
        # A Windows ends with the thread that opened it, so each lane has one thread.
        work = [(self.run_script, *job) for job in self.checks] + [(self.run_lane, lane) for lane in self.lanes]
        threads = [threading.Thread(target=self.guarded, args=each, daemon=True) for each in work]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        for lane in self.lanes:
            for program in lane.programs:
                self.guarded(self.repeat, lane, program)
        if "install" in self.request.levels:
            self.check_runs()
        if "actions" in self.request.levels:
            self.check_facts()
        stop()
        self.keep_artifacts()
        return summary.report(self.artifacts, self.broken, self.request)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=Path)
    planning.add_arguments(parser)
    arguments = parser.parse_args()
    end_with_front()
    return Run(planning.request_of(arguments), arguments.folder.resolve()).run()


if __name__ == "__main__":
    sys.exit(main())
