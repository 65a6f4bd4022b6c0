"""Runs test programs with libraries that count what runs, and reads the counts with LLVM's tools.

The build folder PROCESSOR-coverage of a run has these libraries. The rig adds up their counters (tests/rig/coverage.h).
"""

import concurrent.futures
import json
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path
from typing import NamedTuple

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from testing import planning, repeating
from testing.progress import TestStream, duration
from windows.windows_session import Windows

ROOT = Path(__file__).resolve().parents[2]
SOURCES = "src/"
# The levels that are measured.
LEVELS = ("unit", "actions")
# The libraries that are measured. Both are made of the same objects.
LIBRARIES = ("hxsetup", "hxinternals")


class Failed(Exception):
    """The measurement could not be made; the text says why."""


class Branch(NamedTuple):
    """A condition, by its place in the file: lines and columns from 1, the end is the column after it."""
    line: int
    column: int
    end_line: int
    end_column: int


class Counts(NamedTuple):
    """The counts of one file."""
    # How often each line with code ran, by its number.
    lines: dict
    # How often each Branch was (true, false).
    branches: dict


class Measured(NamedTuple):
    """What one or more runs have measured."""
    # The Counts of each file of src/.
    files: dict
    # LLVM's own sums of each file and, under "", of all: {"lines": {"count": , "covered": }, ...}.
    sums: dict


def preset_of(processor):
    return f"{processor}-coverage"


def tool(name, *arguments):
    """The output of an LLVM tool, which runs in the project's folder because the libraries name their sources from there."""
    result = subprocess.run([f"{name}-19", *map(str, arguments)], cwd=ROOT, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    if result.returncode != 0:
        raise Failed(f"{name} failed: {result.stderr.decode(errors='replace').strip()}")
    return result.stdout.decode()


def own_name(path):
    """The name of a source from the project's folder; None for one that is not in src/."""
    path = path.removeprefix("./")
    if Path(path).is_absolute() and Path(path).is_relative_to(ROOT):
        path = str(Path(path).relative_to(ROOT))
    return path if path.startswith(SOURCES) else None


def read_lines(text):
    """How often each line ran, from an export in the form lcov: {file: {line: count}}."""
    found, lines = {}, None
    for row in text.splitlines():
        kind, _, rest = row.partition(":")
        if kind == "SF":
            lines = found.setdefault(own_name(rest), {})
        elif kind == "DA":
            line, count = map(int, rest.split(",")[:2])
            lines[line] = lines.get(line, 0) + count
    found.pop(None, None)
    return found


def read_branches(exported):
    """The counts of the conditions, from an export as JSON: {file: {Branch: (true, false)}}. A condition of a template is
    there once for each instance; its counts are added up."""
    found = {}
    for file in exported["data"][0]["files"]:
        branches = found.setdefault(own_name(file["filename"]), {})
        places = [*file["branches"], *(branch for expansion in file.get("expansions", ()) for branch in expansion["branches"])]
        for line, column, end_line, end_column, true, false, *_ in places:
            place = Branch(line, column, end_line, end_column)
            before = branches.get(place, (0, 0))
            branches[place] = before[0] + true, before[1] + false
    found.pop(None, None)
    return found


def read_sums(exported):
    data = exported["data"][0]
    sums = {own_name(file["filename"]): file["summary"] for file in data["files"]}
    sums.pop(None, None)
    return {"": data["totals"], **sums}


class Measurement:
    """Measures test programs. `folder` is the folder of a run with the builds."""

    def __init__(self, folder, processor, show=print):
        self.folder, self.processor, self.show = Path(folder), processor, show
        self.libraries = [self.folder / preset_of(processor) / f"{name}.dll" for name in LIBRARIES]

    def open_windows(self):
        return Windows(self.processor, self.folder, 0, planning.TEST_TIME_LIMIT, self.show)

    def run(self, windows, level, filter=None):
        """Runs the test program of a level, with a GoogleTest filter or all its tests. Returns the raw profiles of LIBRARIES,
        some for each suite of tests. Raises Failed if a test failed."""
        place = self.folder / "coverage" / level
        folder = f"Z:\\run\\coverage\\{level}"
        began = time.monotonic()
        for attempt in range(1, repeating.ATTEMPTS + 1):
            shutil.rmtree(place, ignore_errors=True)
            place.mkdir(parents=True)
            stream, seen = TestStream(), []

            def take(line, stream=stream, seen=seen):
                seen += stream.feed(line)

            status = windows.run(
                {"HX_LIBRARY_DIR": f"Z:\\run\\{preset_of(self.processor)}", "HX_ARTIFACTS": folder, "HX_COVERAGE": folder,
                 "HX_PROCESSOR": self.processor},
                ["wine64", f"Z:\\run\\{self.processor}{planning.TESTS}\\{planning.PROGRAMS[level]}.exe",
                 *([f"--gtest_filter={filter}"] if filter else [])], take)
            if not repeating.starts_again(self.processor, status, attempt):
                break
            self.show(f"hx: {level} tests on {self.processor}: the emulator crashed (status {status}); running them again")
        if status != 0:
            raise Failed("\n".join([*seen, *stream.rest(), f"the {level} tests ended with status {status}"]))
        self.show(f"hx: {level} tests on {self.processor}: {stream} in {duration(time.monotonic() - began)}")
        # The rig's own tests load other libraries with the same objects; those are not what is tested.
        return sorted(profile for profile in place.glob("*.profraw") if profile.name.split(".")[1] in LIBRARIES)

    def merge(self, profiles, name="all"):
        """Merges raw profiles. Returns what llvm-cov reads: the libraries and the merged profile."""
        if not profiles:
            raise Failed("nothing was counted: no test that ran has loaded the library")
        merged = self.folder / "coverage" / f"{name}.profdata"
        tool("llvm-profdata", "merge", "-sparse", "-o", merged, *profiles)
        return [self.libraries[0], "-object", self.libraries[1], f"-instr-profile={merged}"]

    def read(self, sources):
        """What was measured; `sources` is what merge() has returned."""
        exported = json.loads(tool("llvm-cov", "export", *sources))
        lines = read_lines(tool("llvm-cov", "export", "--format=lcov", *sources))
        branches = read_branches(exported)
        return Measured({name: Counts(lines[name], branches.get(name, {})) for name in sorted(lines)}, read_sums(exported))

    def lines_of_suites(self, profiles):
        """The numbers of the lines that the tests of each suite ran: {suite: {file: [line, ...]}}."""
        suites = {}
        for profile in profiles:
            suites.setdefault(suite_of(profile), []).append(profile)

        def lines_of(suite):
            sources = self.merge(suites[suite], suite.replace("/", "+"))
            return covered(read_lines(tool("llvm-cov", "export", "--format=lcov", "--skip-branches", "--skip-functions", *sources)))

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            return dict(zip(suites, pool.map(lines_of, suites)))

    @staticmethod
    def write_pages(sources, place):
        """Writes the HTML report into a folder."""
        shutil.rmtree(place, ignore_errors=True)
        tool("llvm-cov", "show", *sources, "--format=html", "--show-branches=count", "--show-mcdc",
             "--show-instantiations=false", f"--output-dir={place}")


def suite_of(profile):
    """The name of the suite whose tests have made a raw profile (tests/rig/coverage.h)."""
    return profile.name.split(".")[0].replace("+", "/")


def covered(lines):
    """The numbers of the lines that ran: {file: [line, ...]}, by the counts {file: {line: count}}."""
    ran = {name: sorted(line for line, count in counts.items() if count) for name, counts in lines.items()}
    return {name: numbers for name, numbers in sorted(ran.items()) if numbers}
