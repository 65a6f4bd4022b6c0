#!/usr/bin/env python3
"""Measures what of src/ the tests run: tools/coverage/measure.py FOLDER [--processor PROCESSOR] [--level LEVEL]
[--filter FILTER] [--lines FILE] [--suites FILE]

FOLDER is the folder of a run, with the builds PROCESSOR-coverage and PROCESSOR-tests; ./hx coverage makes it and calls this
script. Prints a table, and writes an HTML report to build/coverage/PROCESSOR. A measurement of all tests is compared with
not-run.txt: each line and each branch that no test runs, and each source that is not measured, must be there, with its reason,
and nothing else. The exit status is 0 if it is so.

--lines writes the numbers of the lines that ran to a file, as JSON: {"src/FOLDER/NAME": [NUMBER, ...], ...}. --suites writes
them for each suite of tests: {"LEVEL": {"SUITE": {"src/FOLDER/NAME": [NUMBER, ...], ...}, ...}, ...}.
"""

import argparse
import json
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from coverage import not_run
from coverage.measurement import LEVELS, ROOT, Failed, Measurement, covered
from testing import planning
from windows.windows_session import Ended

LIST = Path(__file__).resolve().parent / "not-run.txt"
LIST_NAME = LIST.name
KINDS = ("lines", "branches", "mcdc")


def cell(sums):
    """"covered/count percent" of one kind; "-" if there is nothing of this kind."""
    count, done = sums["count"], sums["covered"]
    # Cut, not rounded: only what is whole reads 100.0 %.
    return f"{done}/{count} {done * 1000 // count / 10:5.1f} %" if count else "-"


def table(sums):
    """The lines of a table of LLVM's sums: one line for each file, and the total."""
    rows = [("", "lines", "branches", "MC/DC")]
    rows += [(name, *(cell(sums[name][kind]) for kind in KINDS)) for name in sorted(name for name in sums if name)]
    rows.append(("total", *(cell(sums[""][kind]) for kind in KINDS)))
    widths = [max(len(row[column]) for row in rows) for column in range(4)]
    return [f"{row[0]:<{widths[0]}}" + "".join(f"  {text:>{width}}" for text, width in zip(row[1:], widths[1:]))
            for row in rows]


def check(files, processor):
    """Compares what did not run with the list; prints each difference. Returns the exit status."""
    sources = {name: (ROOT / name).read_text(encoding="utf-8").splitlines() for name in files}
    try:
        entries = not_run.entries_for(processor, not_run.read(LIST.read_text(encoding="utf-8")))
    except not_run.Malformed as error:
        print(f"{LIST_NAME}:{error}")
        return 1
    names = [str(path.relative_to(ROOT)) for path in (ROOT / "src").glob("*/*.cpp")]
    findings = not_run.compare(not_run.unmeasured(files, names) + not_run.places(files, sources), entries)
    for finding in findings:
        print(finding)
    if findings:
        print(f"hx: {LIST_NAME} and what ran differ in {len(findings)} places")
        return 1
    print(f"hx: the tests run every line and every branch, except {len(entries)} places with a reason in {LIST_NAME}")
    return 0


def write_json(path, content):
    path.write_text(json.dumps(content) + "\n", encoding="utf-8")


def main(arguments=None):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=Path)
    parser.add_argument("--processor", choices=planning.PROCESSORS, default=planning.HOST)
    parser.add_argument("--level", choices=LEVELS)
    parser.add_argument("--filter")
    parser.add_argument("--lines", type=Path)
    parser.add_argument("--suites", type=Path)
    options = parser.parse_args(arguments)
    measurement = Measurement(options.folder.resolve(), options.processor)
    pages = ROOT / "build/coverage" / options.processor
    try:
        with measurement.open_windows() as windows:
            profiles = {level: measurement.run(windows, level, options.filter)
                        for level in ([options.level] if options.level else LEVELS)}
        sources = measurement.merge([profile for of_level in profiles.values() for profile in of_level])
        measured = measurement.read(sources)
        measurement.write_pages(sources, pages)
        if options.suites:
            write_json(options.suites, {level: measurement.lines_of_suites(of_level) for level, of_level in profiles.items()})
    except (Ended, Failed) as error:
        sys.exit(f"hx: {error}")
    if options.lines:
        write_json(options.lines, covered({name: counts.lines for name, counts in measured.files.items()}))
    for line in table(measured.sums):
        print(line)
    print(f"hx: the report is {(pages / 'index.html').relative_to(ROOT)}")
    return 0 if options.level else check(measured.files, options.processor)


if __name__ == "__main__":
    sys.exit(main())
