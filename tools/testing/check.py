#!/usr/bin/env python3
"""Runs all checks of files: tools/testing/check.py [FOLDER...]

Checks the rules of the source tree, the links of the pages, the texts of the sources against the pages, the languages of the
fragments' texts, and the entry points, the fragments and the pages against each other. Compares the facts that the pages
state with the places where they are true, and explain.html with what it is made of. Compiles nothing. Also checks the
libraries in each FOLDER; without
FOLDERs, the libraries in build/ that are not older than their sources. Prints what each check finds and, as the last line,
"N passed, N failed"; the exit status is 0 if nothing failed.
"""

import argparse
import concurrent.futures
import os
import re
import subprocess
import sys
import time
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parents[2]
LIBRARY = "hxsetup.dll"
PROCESSORS = ("x64", "arm64")
# The inputs of a library.
SOURCES = ("src", "cmake", "CMakeLists.txt", "CMakePresets.json", "VERSION")


class Check(NamedTuple):
    name: str
    command: list


class Outcome(NamedTuple):
    passed: int
    failed: int
    # The lines that are printed if something failed.
    output: str
    seconds: float


def newest_source(root):
    """The time of the last change of the library's sources, in seconds since 1970."""
    files = [file for name in SOURCES for file in (root / name, *(root / name).rglob("*"))]
    return max((file.stat().st_mtime for file in files if file.is_file()), default=0)


def built_folders(root):
    """(the folders of build/ whose libraries can be checked, a line for each that cannot)."""
    folders, notes, newest = [], [], newest_source(root)
    for processor in PROCESSORS:
        library = root / "build" / processor / LIBRARY
        if not library.is_file():
            notes.append(f"build/{processor}/{LIBRARY} does not exist and was not checked (./hx build makes it)")
        elif library.stat().st_mtime < newest:
            notes.append(f"build/{processor}/{LIBRARY} is older than its sources and was not checked (./hx build makes it)")
        else:
            folders.append(library.parent)
    return folders, notes


def checks(root, folders):
    """The checks of a project and of the libraries in `folders`, the longest first."""
    tools = root / "tools"
    found = [Check("images", [tools / "images/check-images.py", *folders])] if folders else []
    found += [Check("texts", [tools / "texts/check-texts.py", *folders]),
              Check("action-table", [tools / "kit/action-table.py"]),
              Check("authoring-v4", [tools / "kit/authoring_v4.py"]),
              Check("languages", [tools / "texts/check-languages.py"]),
              Check("facts", [tools / "texts/check-facts.py"]),
              Check("explain", [tools / "explain/make-page.py"]),
              Check("pages", [tools / "texts/check-pages.py"]),
              Check("mistakes-page", [tools / "packages/mistakes-page.py"])]
    return found + [Check(script.stem, [script]) for script in sorted((tools / "lint").glob("lint-*.py"))]


def outcome_of(check, root):
    """Runs a script. A script that prints no counts is one check itself."""
    began = time.monotonic()
    result = subprocess.run(check.command, cwd=root, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, errors="replace", check=False)
    passed, failed = (0, 1) if result.returncode else (1, 0)
    if match := re.search(r"^(\d+) passed, (\d+) failed\n\Z", result.stdout, re.MULTILINE):
        passed, failed = int(match[1]), max(int(match[2]), failed)
    # Of a script that prints counts, only its findings.
    wrong = [line for line in result.stdout.splitlines() if not match or line.startswith("FAILED")]
    return Outcome(passed, failed, "\n".join(wrong or result.stdout.splitlines()), time.monotonic() - began)


def run(root, folders):
    """Runs all checks, as many at once as this machine has processors. Prints their results as they end. Returns the numbers
    of checks that passed and that failed."""
    passed = failed = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        running = {pool.submit(outcome_of, check, root): check for check in checks(root, folders)}
        for future in concurrent.futures.as_completed(running):
            name, outcome = running[future].name, future.result()
            passed += outcome.passed
            failed += outcome.failed
            if outcome.failed:
                print(f"FAILED {name}:", *(f"    {line}" for line in outcome.output.splitlines()), sep="\n")
            else:
                print(f"ok {name} ({outcome.passed}, {outcome.seconds:.1f} s)")
            sys.stdout.flush()
    return passed, failed


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folders", type=Path, nargs="*", metavar="FOLDER")
    folders = [folder.resolve() for folder in parser.parse_args().folders]
    notes = []
    if not folders:
        folders, notes = built_folders(ROOT)
    passed, failed = run(ROOT, folders)
    for note in notes:
        print(f"note: {note}")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
