#!/usr/bin/env python3
"""Runs the script of acceptance archives in the Windows here: tools/acceptance/try_archive.py LOGS ARCHIVE...

Runs every test of each archive. Copies the report of each to LOGS/PROCESSOR. The exit status is 0 if all passed. On the
emulated processor the tests that failed run once more, in a new Windows, and that run counts.
"""

import shutil
import sys
import tempfile
import zipfile
from pathlib import Path
from typing import NamedTuple

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from windows.windows_session import Ended, Windows

# The seconds that a whole run may take here. Emulated processors are slow.
TIME_LIMIT = 4 * 3600
EMULATED = "arm64"


class Outcome(NamedTuple):
    """What a run of the script left."""
    # The script's exit status.
    status: int
    # What it printed.
    lines: list
    # The folder of the report, or None if it wrote none.
    report: Path

    @property
    def verdict(self):
        """The first line of the report."""
        return (self.report / "report.txt").read_text(encoding="utf-8").splitlines()[0] if self.report else ""


def processor_of(archive):
    return archive.stem.rpartition("-")[2]


def extract(archive, folder):
    """Extracts an archive into `folder`; returns its top folder."""
    with zipfile.ZipFile(archive) as packed:
        packed.extractall(folder)
    return folder / archive.stem


def run_script(top, processor, words, show=lambda line: None, number=0, limit=TIME_LIMIT, script="accept.cmd"):
    """Runs a script of an extracted archive in a new Windows of `processor`."""
    lines = []

    def take(line):
        lines.append(line)
        show(line)

    before = set(top.glob("report*"))
    with Windows(processor, top.parent, number, limit, take) as windows:
        status = windows.run({}, ["wine64", "cmd", "/d", "/c", f"Z:\\run\\{top.name}\\{script}", *words], take)
    reports = sorted(set(top.glob("report*")) - before)
    return Outcome(status, lines, reports[0] if reports else None)


def failed_filter(report):
    """A filter for the tests that failed, of all levels."""
    rows = (report / "failed.txt").read_text(encoding="utf-8").splitlines()
    return ":".join(dict.fromkeys(row.partition("\t")[2] for row in rows))


def try_archive(archive, logs, show):
    """Runs everything of an archive, and says how it ended: its last outcome."""
    processor = processor_of(archive)
    with tempfile.TemporaryDirectory(prefix="hx-acceptance-") as name:
        top = extract(archive, Path(name))
        outcome = run_script(top, processor, ["/yes"], show)
        reports = [outcome.report]
        if processor == EMULATED and outcome.status == 1 and outcome.report and (names := failed_filter(outcome.report)):
            show(f"perhaps because of the emulator; running again: {names}")
            outcome = run_script(top, processor, ["/yes", "/filter", names], show)
            reports.append(outcome.report)
        target = logs / processor
        shutil.rmtree(target, ignore_errors=True)
        for report in filter(None, reports):
            shutil.copytree(report, target / report.name)
    return outcome


def main(arguments):
    if len(arguments) < 2:
        sys.exit(__doc__)
    failed = 0
    for archive in map(Path, arguments[1:]):
        processor = processor_of(archive)
        try:
            outcome = try_archive(archive, Path(arguments[0]), lambda line: print(f"{processor}: {line}", flush=True))
        except Ended as error:
            sys.exit(f"hx: {processor}: {error}")
        failed += outcome.status != 0
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main(sys.argv[1:])
