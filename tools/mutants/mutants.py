#!/usr/bin/env python3
"""Changes the library in small ways and says which changes no test notices:

    tools/mutants/mutants.py FOLDER [COUNT] [SEED] [--survivors]

FOLDER is the folder of a run with the test programs and the libraries that count what runs; ./hx mutants makes it and calls
this script. Takes COUNT random changes of lines that the tests run; the same SEED takes the same ones. Each result is kept in
build/mutants at once, so that a run that was interrupted continues where it was. The exit status is 0 if settled.txt has
exactly the right entries: the mutants that no test notices, and no other ones.
"""

import argparse
import contextlib
import fcntl
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
from mutants.lexer import is_constant
from mutants.library import Failed, Library
from mutants.operators import line_of, places_of
from mutants.tests import PROGRAMS, Suite, Tests, rounds_of, suites_of
from testing import planning
from testing.progress import duration
from windows.windows_session import Ended

ROOT = Path(__file__).resolve().parents[2]
JUDGES = [Path(__file__).resolve().parents[1] / name
          for name in ("coverage/measurement.py", "images/guarded_constants.py", "mutants/lexer.py", "mutants/library.py",
                       "mutants/mutants.py", "mutants/tests.py")]
# The files of src/ that the libraries are made of.
SUFFIXES = (".cpp", ".h", ".def", ".rc")
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


def files_of(root):
    """The text of each file of src/ that the libraries are made of, by its name from the project's folder."""
    return {str(path.relative_to(root)): path.read_text(encoding="utf-8")
            for path in sorted((root / "src").rglob("*")) if path.suffix in SUFFIXES and not path.name.startswith(".")}


def sources_of(files):
    """Those of the files that are changed."""
    return {name: text for name, text in files.items() if name.endswith((".cpp", ".h"))}


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

    def suites_for(self, mutant, text):
        """The suites whose tests can notice a change of the source `text`: those that run its line. If the compiler can run it,
        all suites, if one of them runs it."""
        running = [suite for suite in self.suites
                   if mutant.line in self.lines[suite.level].get(suite.name, {}).get(mutant.source, ())]
        return self.suites if running and is_constant(text, mutant.change.start) else running


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


@contextlib.contextmanager
def only_run(folder):
    """Keeps other runs away from the folder in which results are kept."""
    with (folder / ".lock").open("w") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise Failed("another run of mutants is at work in this folder: wait for its end") from None
        yield


class Run:
    """One run. `folder` is the folder of the run, `kept` the one whose content stays."""

    def __init__(self, folder, count, seed, survivors, root=ROOT, show=print):
        self.folder, self.count, self.seed, self.survivors = Path(folder), count, seed, survivors
        self.root, self.show = root, show
        self.kept = root / "build/mutants"
        self.kept.mkdir(parents=True, exist_ok=True)
        self.files = files_of(root)
        self.sources = sources_of(self.files)
        self.programs = self.folder / f"x64{planning.TESTS}"
        # What results belong to: what was changed and how it was built and judged, and the tests.
        self.of_sources = None
        self.of_tests = digest(*(self.programs / program for program in PROGRAMS.values()))
        self.places_in = functools.cache(lambda source: settled.places_in(self.sources[source]) if source in self.sources else None)
        self.entries = settled.read(settled.LIST.read_text(encoding="utf-8"))
        settled.check(self.entries, self.places_in)
        self.skipped = {"does not compile": 0, "same code": 0}

    # ---- what is measured once

    def measure(self, tests):
        """The Reach of the tests; what was measured with the same sources and tests is used again."""
        file, of = self.kept / "reach.json", digest(self.of_sources, self.of_tests)
        known = read_json(file)
        if known.get("of") != of:
            known = {"of": of}
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
        with only_run(self.kept):
            return self.run_alone()

    def run_alone(self):
        resource.setrlimit(resource.RLIMIT_DATA, (MEMORY, resource.getrlimit(resource.RLIMIT_DATA)[1]))
        library = Library(self.root / "build/x64", self.folder / "mutants", self.root)
        if library.is_older_than_sources():
            raise Failed("src/ has changed since the libraries were built: start it again")
        self.of_sources = digest(*(name + text for name, text in self.files.items()), json.dumps(library.commands()), *JUDGES)
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
        kept = known.get("results", {}) if known.get("of_sources") == self.of_sources else {}
        if self.survivors:
            self.say_what_else_runs(known, kept)
        again = {key for key, result in kept.items()
                 if (result["outcome"] == SURVIVED if self.survivors else result["tests"] != self.of_tests)}
        results = []
        for mutant in candidates(self.sources, self.seed):
            if len(results) == self.count:
                break
            suites = reach.suites_for(mutant, self.sources[mutant.source])
            if not suites:
                continue
            key = f"{mutant.source}:{mutant.change.start}:{mutant.change.before}:{mutant.change.after}"
            if key not in kept or key in again:
                began = time.monotonic()
                result = self.settle(mutant, library, tests, suites)
                if self.has_changed():
                    raise Failed("src/ has changed during the run, so its results are wrong from here on: start it again")
                kept[key] = {**result, "seconds": round(time.monotonic() - began, 1), "tests": self.of_tests}
                write_json(file, {"of_sources": self.of_sources, "results": kept})
            result = kept[key]
            if result["outcome"] in self.skipped:
                self.skipped[result["outcome"]] += 1
                continue
            results.append((mutant, result))
            self.show(f"{len(results):4}/{self.count} {line_about(mutant, result)}")
        return results

    def has_changed(self):
        """True if src/ is not what it was when the run began."""
        try:
            return files_of(self.root) != self.files
        except (OSError, ValueError):
            # Somebody is writing a file.
            return True

    def say_what_else_runs(self, known, kept):
        """Says it if not only survivors run. `known` is what was read, `kept` the results of it that are of these sources."""
        there = sum(result["outcome"] not in self.skipped for result in kept.values())
        if not known.get("results"):
            self.show(f"hx: --survivors: there is no earlier run of seed {self.seed}, so all {self.count} mutants run")
        elif not kept:
            self.show("hx: --survivors: src/, the build or tools/mutants has changed since the last run of seed "
                      f"{self.seed}, so all {self.count} mutants run")
        elif there < self.count:
            self.show(f"hx: --survivors: the earlier runs of seed {self.seed} have only {there} mutants, so others run, too")

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
        earlier = sum(result["tests"] != self.of_tests for _, result in results)
        if earlier:
            lines.append(f"({earlier} of these results are from earlier tests: run it without --survivors to have all of them from "
                         "the present ones)")
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
