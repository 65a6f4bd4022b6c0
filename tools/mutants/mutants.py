#!/usr/bin/env python3
"""Changes the library in small ways and says which changes no test notices:

    tools/mutants/mutants.py FOLDER [COUNT] [SEED] [--survivors]

FOLDER is the folder of a run with the test programs and the libraries that count what runs; ./hx mutants makes it and calls
this script. Takes COUNT random changes of lines that the tests run; the same SEED takes the same ones. Each result is kept in
build/mutants at once, so that a run that was interrupted continues where it was. The exit status is 0 if settled.txt has
exactly the right entries: the mutants that no test notices, and no other ones.
"""

import argparse
import functools
import hashlib
import json
import random
import resource
import shutil
import sys
import time
from pathlib import Path
from typing import NamedTuple

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from coverage.measurement import Failed as NotMeasured
from coverage.measurement import Measurement
from mutants import settled
from mutants.library import Failed, Library
from mutants.operators import line_of, places_of
from mutants.tests import PROGRAMS, Suite, Tests, rounds_of, suites_of
from testing import planning
from testing.progress import duration
from windows.windows_session import Ended

ROOT = Path(__file__).resolve().parents[2]
JUDGES = [Path(__file__).resolve().parents[1] / name
          for name in ("coverage/measurement.py", "images/guarded_constants.py", "mutants/library.py", "mutants/tests.py")]
COUNT, SEED = 100, 1
# The bytes of memory that a mutant may use: one that allocates without end must not take all of the machine's.
MEMORY = 6 << 30
# What can become of a mutant.
KILLED, SURVIVED = "killed", "survived"


class Mutant(NamedTuple):
    """A change of a source. `before` and `after` are the whole lines without indentation."""
    source: str
    line: int
    name: str
    change: object
    before: str
    after: str


def sources_of(root):
    """The text of each source, by its name from the project's folder."""
    return {str(path.relative_to(root)): path.read_text(encoding="utf-8")
            for path in sorted((root / "src").glob("*/*")) if path.suffix in (".cpp", ".h")}


def mutant_of(source, text, change):
    before, after = settled.lines_of(text, change)
    return Mutant(source, line_of(text, change.start), change.name, change, before, after)


def candidates(sources, seed):
    """A change of each place of the sources, in an order and with a choice that depend only on the seed and on the sources."""
    places = [(source, changes) for source, text in sorted(sources.items()) for changes in places_of(text)]
    chance = random.Random(seed)
    chance.shuffle(places)
    for source, changes in places:
        yield mutant_of(source, sources[source], chance.choice(changes))


class Reach:
    """What the tests run: the suites with their times, and the lines that each of them runs."""

    def __init__(self, suites, lines):
        self.suites, self.lines = suites, {level: {name: {source: set(numbers) for source, numbers in files.items()}
                                                   for name, files in each.items()} for level, each in lines.items()}

    def suites_for(self, source, line):
        """The suites whose tests run a line."""
        return [suite for suite in self.suites if line in self.lines[suite.level].get(suite.name, {}).get(source, ())]


def digest(*parts):
    """A text that differs if one of the files or texts differs."""
    whole = hashlib.sha256()
    for part in parts:
        whole.update(hashlib.sha256(part.read_bytes() if isinstance(part, Path) else part.encode()).digest())
    return whole.hexdigest()


def read_json(path):
    try:
        return json.loads(path.read_text(encoding="utf-8"))
    except (OSError, ValueError):
        return {}


def write_json(path, content):
    """Writes the file as a whole, even if the process is ended meanwhile."""
    new = path.with_suffix(".new")
    new.write_text(json.dumps(content, indent=1) + "\n", encoding="utf-8")
    new.replace(path)


class Run:
    """One run. `folder` is the folder of the run, `kept` the one whose content stays."""

    def __init__(self, folder, count, seed, survivors, root=ROOT, show=print):
        self.folder, self.count, self.seed, self.survivors = Path(folder), count, seed, survivors
        self.root, self.show = root, show
        self.kept = root / "build/mutants"
        self.kept.mkdir(parents=True, exist_ok=True)
        self.sources = sources_of(root)
        self.programs = self.folder / f"x64{planning.TESTS}"
        # What other scripts have measured or judged is not used again.
        self.of_sources = digest(*(name + text for name, text in self.sources.items()), *JUDGES)
        self.of_all = digest(self.of_sources, *(self.programs / program for program in PROGRAMS.values()))
        self.places_in = functools.cache(lambda source: settled.places_in(self.sources[source]) if source in self.sources else None)
        self.entries = settled.read(settled.LIST.read_text(encoding="utf-8"))
        settled.check(self.entries, self.places_in)
        self.skipped = {"does not compile": 0, "same code": 0}

    # ---- what is measured once

    def measure(self, tests):
        """The Reach of the tests; what was measured with the same sources and tests is used again."""
        file = self.kept / "reach.json"
        known = read_json(file)
        if known.get("of") != self.of_all:
            known = {"of": self.of_all}
        for part, measure in (("suites", lambda: self.time_suites(tests)), ("lines", self.lines_of_suites)):
            if part not in known:
                known[part] = measure()
                write_json(file, known)
        return Reach([Suite(*suite) for suite in known["suites"]], known["lines"])

    def time_suites(self, tests):
        """Runs all tests with the unchanged library, which must pass."""
        suites = []
        for level in PROGRAMS:
            self.show(f"hx: running the {level} tests with the library as it is")
            killed = tests.run(level, "*", planning.TEST_TIME_LIMIT / 4, ["--gtest_output=xml:Z:\\run\\results.xml"])
            if killed:
                raise Failed(f"{killed.test} {killed.how} with the library as it is; ./hx test {level} says more")
            suites += suites_of(level, tests.place / "results.xml")
        return suites

    def lines_of_suites(self):
        """The lines that each suite runs: {level: {suite: {source: [line, ...]}}}."""
        measurement = Measurement(self.folder, "x64", self.show)
        with measurement.open_windows() as windows:
            return {level: measurement.lines_of_suites(measurement.run(windows, level)) for level in PROGRAMS}

    # ---- mutants

    def run(self):
        """Runs everything; returns the exit status."""
        resource.setrlimit(resource.RLIMIT_DATA, (MEMORY, resource.getrlimit(resource.RLIMIT_DATA)[1]))
        library = Library(self.root / "build/x64", self.folder / "mutants", self.root)
        with Tests(self.programs, self.folder / "windows") as tests:
            for place in (tests.unchanged, tests.libraries):
                library.link({}, place)
                # The tests of the rig load it from there.
                shutil.copy(self.folder / "x64/rigsubject.dll", place)
            reach = self.measure(tests)
            results = self.results(library, tests, reach)
        return self.report(results)

    def results(self, library, tests, reach):
        """The results of all mutants of the run: those that an earlier run has kept, and those that were missing."""
        file = self.kept / f"results-{self.seed}.json"
        known = read_json(file)
        of = "of_sources" if self.survivors else "of_all"
        kept = known.get("results", {}) if known.get(of) == getattr(self, of) else {}
        if self.survivors:
            kept = {key: result for key, result in kept.items() if result["outcome"] != SURVIVED}
        results = []
        for mutant in candidates(self.sources, self.seed):
            if len(results) == self.count:
                break
            suites = reach.suites_for(mutant.source, mutant.line)
            if not suites:
                continue
            key = f"{mutant.source}:{mutant.change.start}:{mutant.change.before}:{mutant.change.after}"
            if key not in kept:
                began = time.monotonic()
                kept[key] = {**self.settle(mutant, library, tests, suites), "seconds": round(time.monotonic() - began, 1)}
                write_json(file, {"of_sources": self.of_sources, "of_all": self.of_all, "results": kept})
            result = kept[key]
            if result["outcome"] in self.skipped:
                self.skipped[result["outcome"]] += 1
                continue
            results.append((mutant, result))
            self.show(f"{len(results):4}/{self.count} {line_about(mutant, result)}")
        return results

    def settle(self, mutant, library, tests, suites):
        """What becomes of a mutant."""
        changed = library.mutate(mutant.source, mutant.change.apply(self.sources[mutant.source]))
        if changed is None or changed and not library.link(changed, tests.libraries):
            return {"outcome": "does not compile"}
        if not changed:
            return {"outcome": "same code"}
        noticed = tests.kill(rounds_of(mutant.source, suites))
        if not noticed:
            return {"outcome": SURVIVED}
        level, killed = noticed
        return {"outcome": KILLED, "level": level, "test": killed.test, "how": killed.how}

    # ---- the report

    def report(self, results):
        """Prints what became of the mutants, and writes the same to report.txt. Returns the exit status."""
        lines, survivors, wrong, listed = [], [], [], {kind: 0 for kind in settled.KINDS}
        for mutant, result in results:
            key = settled.key_of(mutant.source, self.sources[mutant.source], mutant.change, self.places_in(mutant.source))
            entry = settled.entry_of(self.entries, key)
            if result["outcome"] == SURVIVED and entry:
                listed[entry.kind] += 1
            elif result["outcome"] == SURVIVED:
                survivors.append((mutant, key))
            elif entry:
                wrong.append((mutant, result))
        killed = [result for _, result in results if result["outcome"] == KILLED]
        for mutant, key in survivors:
            lines += ["", f"{mutant.source}:{mutant.line} ({mutant.name}, seed {self.seed}) survived:",
                      f"  - {mutant.before}", f"  + {mutant.after}"]
            if key.of > 1:
                lines.append(f"  (an entry of {settled.LIST.name} begins with \"{key.place}\")")
        for mutant, result in wrong:
            lines += ["", f"{settled.LIST.name}: {result['test'] or 'a test'} notices this mutant: remove the entry",
                      f"  {mutant.source}:{mutant.line}", f"  - {mutant.before}", f"  + {mutant.after}"]
        gone = settled.gone(self.entries, self.places_in)
        for entry in gone:
            lines += ["", f"{settled.LIST.name}: {entry.key.source} has no such line and change any more:",
                      f"  - {entry.key.before}", f"  + {entry.key.after}"]
        lines += ["", f"{len(results)} mutants of seed {self.seed}: {len(killed)} killed "
                      f"({sum(result['how'] == 'hung' for result in killed)} of them hung), "
                      f"{listed['equivalent']} equivalent, {listed['out of reach']} out of reach, {len(survivors)} survived",
                  f"({self.skipped['does not compile']} more changes did not compile, and {self.skipped['same code']} made the same code)"]
        if len(results) < self.count:
            lines.append(f"there are only {len(results)} such changes, not {self.count}")
        for line in lines:
            self.show(line)
        all_lines = [line_about(*each) for each in results] + lines
        (self.kept / "report.txt").write_text("\n".join(all_lines) + "\n", encoding="utf-8")
        return 1 if survivors or wrong or gone else 0


def line_about(mutant, result):
    """One line about a mutant and what became of it."""
    how = f"{result['how']} {result['test']}" if result["outcome"] == KILLED else SURVIVED
    shown = [" ".join(text.split()) for text in (mutant.change.before, mutant.change.after)]
    shown = [text if len(text) <= 50 else text[:47] + "..." for text in shown]
    return f"{mutant.source}:{mutant.line} {shown[0]} -> {shown[1] or 'nothing'} | {how} ({duration(result['seconds'])})"


def main(arguments=None):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=Path)
    parser.add_argument("count", type=int, nargs="?", default=COUNT)
    parser.add_argument("seed", type=int, nargs="?", default=SEED)
    parser.add_argument("--survivors", action="store_true")
    options = parser.parse_args(arguments)
    try:
        return Run(options.folder.resolve(), options.count, options.seed, options.survivors,
                   show=lambda line: print(line, flush=True)).run()
    except (Ended, Failed, NotMeasured, settled.Malformed) as error:
        sys.exit(f"hx: {error}")


if __name__ == "__main__":
    sys.exit(main())
