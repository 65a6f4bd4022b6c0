#!/usr/bin/env python3
"""Measures what the library adds to an installation: tools/counting/installations.py arm64|x64 FOLDER [--rounds N]

FOLDER has hxsetup.dll, the stand-ins of the packages, calls.dll and nothing.dll, all for the processor. Makes the model
packages of client and server four times: as they are ("with"), with nothing.dll in the library's place ("empty"), without
the library's actions ("without"), and with calls.dll in its place ("counted"). Installs and removes the first three in turns,
N times each, and prints the medians of the ratios; then the last twice, and prints how many calls of Windows the library made,
which must be the same both times.
"""

import argparse
import re
import shutil
import statistics
import sys
import time
from pathlib import Path
from typing import NamedTuple

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from packages.make_packages import OLDER_VERSION, PROGRAM, TRACKING, WITNESS, make_package
from packages.tables import PackageError, read_package, run
from testing.planning import EMULATED
from windows.windows_session import Ended, Windows

ROUNDS = 5
# The models, their sources and their names.
MODELS = {"client": ("client/client.wxs", "Ostrel"), "server": ("server/server.wxs", "Vantor server")}
# Nobody answers notices. Without the library's actions nothing finds the server's folder.
PROPERTIES = {"client": ["PROP_SILENCE=-1"], "server": ["PROP_SILENCE=-1", "DIR_SERVER=C:\\Halvorstead\\Vantor"]}
STEPS = {"installation": "/i", "removal": "/x"}

# The packages that take turns, and what is in the library's place in the others.
KINDS = ("with", "empty", "without")
IN_ITS_PLACE = {"counted": "calls.dll", "empty": "nothing.dll"}

# The kind of an action that is a function of a library in the package.
KIND_MASK, LIBRARY_ACTION = 0x3F, 1
CALLS = re.compile(r"(CustomAction\d+) (\d+|begins)")

# The seconds that an installer may take; the slowest takes a tenth of this.
TIME_LIMIT = 120
# In how many Windows one measurement may fail under emulation, which sometimes crashes, or loses a process.
ATTEMPTS = 5


class MeasureError(Exception):
    """Nothing can be measured; the text says why."""


class InstallerError(MeasureError):
    """An installer or an action failed, perhaps because of the emulator."""


class Result(NamedTuple):
    """The medians of the seconds of each kind, and of the ratios of "with" and of "empty" to "without" in a round."""

    seconds: dict
    ratio: float
    empty: float


def library_actions(package):
    """(table, action) of each row with which a package runs an action of a library."""
    tables = read_package(package).tables
    actions = {row["Action"] for row in tables["CustomAction"].dicts() if row["Type"] & KIND_MASK == LIBRARY_ACTION}
    return [(name, row["Action"]) for name, table in tables.items() if name.endswith("Sequence")
            for row in table.dicts() if row["Action"] in actions]


def take_out_actions(package, target):
    """Copies a package without the rows of its sequences that run actions of a library."""
    shutil.copy(package, target)
    rows = library_actions(target)
    if not rows:
        raise MeasureError(f"{package.name} runs no action of a library")
    run("msibuild", str(target), "-q", *(f"DELETE FROM `{table}` WHERE `Action` = '{action}'" for table, action in rows))
    if left := library_actions(target):
        raise MeasureError(f"{target} still runs {left[0][1]}")


def make_packages(processor, folder):
    """Makes a folder for each kind, with one package for a model."""
    for name in (*KINDS, "counted", "library"):
        (folder / name).mkdir(exist_ok=True)
    shutil.copy(folder / "hxsetup.dll", folder / "library")
    for kind, library in IN_ITS_PLACE.items():
        for name in (PROGRAM, TRACKING, WITNESS):
            shutil.copy(folder / name, folder / kind)
        shutil.copy(folder / library, folder / kind / "hxsetup.dll")
    for model, (source, name) in MODELS.items():
        for kind in ("with", *IN_ITS_PLACE):
            library = (folder if kind == "with" else folder / kind) / "hxsetup.dll"
            make_package(source, processor, library, name, OLDER_VERSION, folder / kind / f"{model}.msi")
        take_out_actions(folder / "with" / f"{model}.msi", folder / "without" / f"{model}.msi")


def install(windows, kind, model, step):
    """Installs or removes one of the packages; returns the seconds that it took."""
    lines = []
    begin = time.monotonic()
    status = windows.run({}, ["wine64", "msiexec", STEPS[step], f"Z:\\run\\{kind}\\{model}.msi", "/qn", *PROPERTIES[model]],
                         lines.append)
    if status != 0:
        raise InstallerError("\n".join([f"the {step} of {kind}/{model}.msi failed with status {status}", *lines]))
    return time.monotonic() - begin


def result_of(rounds):
    """The result of rounds; each is {kind: seconds}."""
    return Result({kind: statistics.median(taken[kind] for taken in rounds) for kind in KINDS},
                  statistics.median(taken["with"] / taken["without"] for taken in rounds),
                  statistics.median(taken["empty"] / taken["without"] for taken in rounds))


class Machine:
    """Where the packages in a folder are installed."""

    def __init__(self, processor, folder):
        self.processor, self.folder = processor, folder

    def run(self, work):
        """Returns work(windows) in a fresh Windows. Under emulation the work begins again in another one after an
        InstallerError."""
        for attempt in range(1, ATTEMPTS + 1):
            try:
                with Windows(self.processor, self.folder, "", TIME_LIMIT, print) as windows:
                    return work(windows)
            except (InstallerError, Ended) as error:
                if self.processor != EMULATED or attempt == ATTEMPTS:
                    raise
                print(f"hx: {error}\nhx: perhaps because of the emulator; going on in another Windows", file=sys.stderr)


def one_round(windows, model, number):
    """{kind: {step: seconds}}; the number says which kind begins."""
    first = number % len(KINDS)
    return {kind: {step: install(windows, kind, model, step) for step in STEPS} for kind in KINDS[first:] + KINDS[:first]}


def measure(machine, model, rounds):
    """{step: Result}. The first round in a Windows, in which everything is read from the disk, does not count."""
    found = []

    def work(windows):
        one_round(windows, model, 0)
        while len(found) < rounds:
            found.append(one_round(windows, model, len(found) + 1))

    machine.run(work)
    return {step: result_of([{kind: taken[kind][step] for kind in KINDS} for taken in found]) for step in STEPS}


def read_calls(text):
    """{entry point: [calls of each run]} of the lines of calls.dll. Each run has two: that it begins, and its calls."""
    found, begun = {}, []
    for line in text.splitlines():
        match = CALLS.fullmatch(line)
        if not match:
            raise MeasureError(f"the calls could not be counted: {line}")
        name, calls = match.groups()
        if calls == "begins":
            begun.append(name)
        elif name not in begun:
            raise MeasureError(f"the calls could not be counted: {line}, but it did not begin")
        else:
            begun.remove(name)
            found.setdefault(name, []).append(int(calls))
    if begun:
        raise InstallerError(f"the calls could not be counted: {begun[0]} began, but did not end: it crashed, or was ended")
    return found


def count_calls(machine, model):
    """{step: {entry point: [calls of each run]}}, counted twice."""

    def count():
        return machine.run(lambda windows: count_calls_once(windows, machine.folder, model))

    first, second = count(), count()
    if first != second and machine.processor == EMULATED:
        # The engine ignores it if the process of some actions is lost. Two counts of three must be the same.
        third = count()
        first, second = (third, first if third == first else second)
    for step in STEPS:
        for name in sorted(first[step].keys() | second[step].keys()):
            counts = first[step].get(name, []), second[step].get(name, [])
            if counts[0] != counts[1]:
                raise MeasureError(f"two runs of the {model}'s {step} did not count alike: {name} made {counts[0]} and "
                                   f"{counts[1]} calls")
    return first


def count_calls_once(windows, folder, model):
    """{step: {entry point: [calls of each run]}}."""
    found = {}
    for step in STEPS:
        calls = folder / "calls.txt"
        calls.unlink(missing_ok=True)
        install(windows, "counted", model, step)
        if not calls.is_file():
            raise InstallerError(f"the calls could not be counted: no action of the library wrote a line in the {model}'s {step}")
        found[step] = read_calls(calls.read_text(encoding="utf-8"))
    return found


def table(processor, model, results, calls):
    """The lines of one model."""
    for step, result in results.items():
        runs = [count for counts in calls[step].values() for count in counts]
        seconds = " ".join(f"{result.seconds[kind]:8.2f}" for kind in KINDS)
        yield (f"  {processor:6} {model}, {step:13} {seconds} {result.ratio:8.2f} {result.empty:8.2f} {len(runs):8} "
               f"{sum(runs):8}")


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("processor", choices=("arm64", "x64"))
    parser.add_argument("folder", type=Path)
    parser.add_argument("--rounds", type=int, default=ROUNDS)
    parsed = parser.parse_args(arguments)
    try:
        make_packages(parsed.processor, parsed.folder)
        print(f"\nWhat the library adds to an installation, on {parsed.processor}: seconds with its actions, with empty ones, and "
              "without;\nthe ratios of the first two to the third; the runs of its actions, and their calls of Windows")
        print(f"  {'':6} {'':21}", *(f"{title:>8}" for title in (*KINDS, "ratio", "empty", "actions", "calls")))
        machine = Machine(parsed.processor, parsed.folder)
        for model in MODELS:
            results = measure(machine, model, parsed.rounds)
            print("\n".join(table(parsed.processor, model, results, count_calls(machine, model))), flush=True)
    except (MeasureError, PackageError, Ended) as error:
        sys.exit(f"hx: {error}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
