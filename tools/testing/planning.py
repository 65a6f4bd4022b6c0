#!/usr/bin/env python3
"""Plans a test run: the targets that it needs, and which programs run at the same time.

    tools/testing/planning.py [--level LEVEL] [--filter FILTER] [--only PROCESSOR]

Prints what ./hx must make before the run, one line each:

    windows PROCESSOR             a Windows of this processor
    build PRESET TARGET...        these targets of a preset of CMakePresets.json
    packages PROCESSOR            the installer packages, made from the libraries of this processor
    page                          the browser and the tools that test explain.html
"""

import argparse
import sys
from typing import NamedTuple, Optional

# The levels of a run without a level. The others are run only by name.
LEVELS = ("images", "unit", "actions", "install")
# Needs the logs that the install level has left.
PAGE = "page"
PROCESSORS = ("x64", "arm64")
# The processor whose programs run under emulation.
EMULATED = "arm64"
# The level with the tests of LEVELS that only a run by name does on the emulated processor, where they take long.
REST = "emulated"
# The processor of this machine, whose Windows some tools use whatever they work on.
HOST = "x64"

# The seconds that one test program may take; the slowest takes a fraction of this.
TEST_TIME_LIMIT = 1800

# The targets of the presets PROCESSOR, PROCESSOR-checked and PROCESSOR-tests that each level needs.
LIBRARY, CHECKED, TESTS = "", "-checked", "-tests"
# The preset of the library that the fuzzer loads, after its processor.
FUZZ = "-fuzz"
TARGETS = {
    "images": {LIBRARY: ("hxsetup",)},
    "unit": {LIBRARY: ("hxinternals", "rigsubject"), CHECKED: ("hxinternals", "rigsubject"), TESTS: ("unit_tests",)},
    "actions": {LIBRARY: ("hxsetup",), TESTS: ("action_tests",)},
    "install": {LIBRARY: ("hxsetup", "hxinternals", "agent", "ostrack", "witness"), TESTS: ("install_tests",)},
    PAGE: {},
    # The libraries of the benchmarks are only built: one of them has the objects of hxrun, and nothing else links it so.
    "tools": {LIBRARY: ("hxsetup", "hxinternals", "agent", "ostrack", "witness"),
              TESTS: ("tool_tests", "hxrun", "calls", "nothing")},
}
# The levels whose tests run packages.
PACKAGED = {"install", REST, "tools", "acceptance"}
PROGRAMS = {level: targets[TESTS][0] for level, targets in TARGETS.items() if TESTS in targets}
# After PROGRAMS, because this level has no program of its own.
TARGETS[REST] = {LIBRARY: TARGETS["install"][LIBRARY], CHECKED: TARGETS["unit"][CHECKED], TESTS: ("unit_tests", "install_tests")}


class Suite(NamedTuple):
    """A level whose tests are scripts: Python's unittest finds them in the folder `folder` of tools/ by the pattern `files`.
    They open each Windows that they need, if they need one. HX_RUN_FOLDER is the run's folder with the builds, HX_PROCESSORS the processors."""
    folder: str
    files: str
    # The targets that it needs, as in TARGETS.
    targets: dict
    # The targets of the x64 builds besides, even if only ARM64 is tested.
    host: dict
    # The presets of programs of this machine, with their targets.
    native: tuple = ()
    # False if no test opens a Windows.
    windows: bool = True


SUITES = {
    "packages": Suite("packages", "trial_*.py", {LIBRARY: ("hxsetup", "agent", "ostrack", "witness"), TESTS: ("trial",)},
                      {LIBRARY: ("ices",)}),
    "acceptance": Suite("acceptance", "trial_*.py", {
        LIBRARY: ("hxsetup", "hxinternals", "rigsubject", "agent", "ostrack", "witness"),
        CHECKED: ("hxinternals", "rigsubject"),
        TESTS: ("accept", "unit_tests", "action_tests", "install_tests")}, {}),
    "corpus": Suite("fuzz", "trial_*.py", {}, {FUZZ: ("hxinternals",)}, (("fuzz", ("hxfuzz",)),), False),
}

# The parts of the install tests on the emulated processor. The first one is a part of a run of everything. The others are
# the level REST: runs that are refused, that fail or that are interrupted. The engine and the package decide their course;
# what the library does in them, it does in the tests of other levels too.
LIVES, REFUSED, INTERRUPTED = "lives", "refused", "interrupted"
PART_FILTERS = {REFUSED: "Maintenance*:PackageRefusals*:ServerLinks*:ServerObstacles*:ServerRefusals*", INTERRUPTED: "ServerInterrupted*"}
PART_FILTERS[LIVES] = f"-{PART_FILTERS[REFUSED]}:{PART_FILTERS[INTERRUPTED]}"


class Request(NamedTuple):
    """The options of the command line; None for those that are not given."""
    level: Optional[str] = None
    filter: Optional[str] = None
    processor: Optional[str] = None

    @property
    def levels(self):
        return (self.level,) if self.level else LEVELS

    @property
    def suite(self):
        """The suite of the level, if it has one."""
        return SUITES.get(self.level)

    @property
    def running(self):
        """The levels that run in a Windows."""
        return tuple(level for level in self.levels if level in PROGRAMS or level == REST)

    @property
    def processors(self):
        if self.level == REST:
            return (EMULATED,)
        return (self.processor,) if self.processor else PROCESSORS


class Program(NamedTuple):
    """One run of a test program."""
    level: str
    processor: str
    # The preset of the libraries that it tests.
    preset: str
    # Its GoogleTest filter, or None for all its tests.
    filter: Optional[str] = None
    # The part of the level's tests that it runs, or "" for all.
    part: str = ""

    @property
    def name(self):
        """The name of its folder of artifacts."""
        return f"{self.level}-{self.preset}" + (f"-{self.part}" if self.part else "")

    @property
    def file(self):
        """The program, relative to the run's folder."""
        return f"{self.processor}{TESTS}/{PROGRAMS[self.level]}.exe"

    @property
    def title(self):
        return f"{self.level} tests on {self.processor}, libraries of {self.preset}"


class Lane(NamedTuple):
    """Programs that run one after the other, in one Windows. Lanes run at the same time."""
    number: int
    processor: str
    programs: tuple


def builds(request):
    """The presets in the order in which they are built: (preset, its targets)."""
    suite = request.suite
    wanted = [suite.targets] if suite else [TARGETS[level] for level in request.levels]
    found = []
    for processor in PROCESSORS:
        needs = wanted if processor in request.processors else []
        needs = [*needs, suite.host] if suite and processor == HOST else needs
        for kind in (LIBRARY, TESTS, CHECKED, FUZZ):
            targets = [target for targets in needs for target in targets.get(kind, ())]
            if targets and not (kind == CHECKED and processor == EMULATED and not request.level):
                found.append((processor + kind, tuple(dict.fromkeys(targets))))
    return [*found, *suite.native] if suite else found


def programs(request, processor, levels, kinds=(LIBRARY, CHECKED)):
    for level in levels:
        for kind in kinds:
            # The level's tests run with each build of the library that TARGETS names for it.
            if kind in TARGETS[level]:
                yield Program(level, processor, processor + kind, request.filter)


def installs(part):
    """The program with a part of the install tests on the emulated processor."""
    return Program("install", EMULATED, EMULATED, PART_FILTERS[part], part)


def lanes(request):
    """The lanes of a run: one for each processor. A run of everything, and the level REST, have two, because a Windows mostly
    uses only one processor of this machine. On a machine with two processors, lanes of even numbers share one and lanes of
    odd numbers the other: the order is the one in which both have about the same to do."""
    groups, last = [], []
    for processor in request.processors if request.running else ():
        if request.level == REST:
            groups += [(processor, [*programs(request, processor, ["unit"], [CHECKED]), installs(REFUSED)]),
                       (processor, [installs(INTERRUPTED)])]
        elif request.level:
            groups.append((processor, programs(request, processor, request.running)))
        elif processor == EMULATED:
            groups += [(processor, [installs(LIVES)]),
                       (processor, programs(request, processor, ["unit", "actions"], [LIBRARY]))]
        else:
            groups.append((processor, programs(request, processor, request.running, [LIBRARY])))
            last.append((processor, programs(request, processor, request.running, [CHECKED])))
    return [Lane(number, processor, tuple(group)) for number, (processor, group) in enumerate(groups + last)]


def add_arguments(parser):
    parser.add_argument("--level", choices=(*TARGETS, *SUITES))
    parser.add_argument("--filter")
    parser.add_argument("--only", choices=PROCESSORS)


def request_of(arguments):
    return Request(arguments.level, arguments.filter, arguments.only)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    add_arguments(parser)
    request = request_of(parser.parse_args())
    for processor in request.processors if request.running or (request.suite and request.suite.windows) else ():
        print("windows", processor)
    for preset, targets in builds(request):
        print("build", preset, *targets)
    for processor in request.processors if PACKAGED & set(request.levels) else ():
        print("packages", processor)
    if PAGE in request.levels:
        print("page")


if __name__ == "__main__":
    sys.exit(main())
