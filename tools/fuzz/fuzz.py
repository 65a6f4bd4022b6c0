#!/usr/bin/env python3
"""Fuzzes targets: tools/fuzz/fuzz.py FOLDER all|TARGET [--seconds N] [--planted | --merge | --input FILE]

FOLDER is the folder of this run. It has the fuzzer and the library, in a folder for each preset, and gets everything that the
run writes. ./hx fuzz checks the words, makes the folder, and removes it afterwards.
"""

import argparse
import shutil
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from fuzz import fuzzing
from fuzz.planted import BUGS, make_image
from testing.ending import end_with_front

# The end of what the fuzzer printed that is shown if it found something, in lines.
SHOWN = 40


def row(target, result, words):
    speed = f"{result.speed:,} a second, {result.processor_speed:,} a second of processor time" if result.speed else ""
    print(f"{target:12} {result.runs:>12,} runs {speed:>51} {result.edges:>6,} of {result.all_edges:,} edges  {words}", flush=True)


def show_found(target, result, tools):
    """Prints the end of the fuzzer's report and keeps the input."""
    fuzzing.FOUND.mkdir(parents=True, exist_ok=True)
    kept = fuzzing.FOUND / f"{target}-{result.input.name}"
    shutil.copyfile(result.input, kept)
    print("\n".join(fuzzing.name_places(result.output, tools.image).splitlines()[-SHOWN:]))
    print(f"The input is in {kept.relative_to(fuzzing.ROOT)}. To run it again:\n"
          f"    ./hx fuzz {target} --input {kept.relative_to(fuzzing.ROOT)}", flush=True)


def run_targets(targets, seconds, merges, folder, tools):
    """Fuzzes the targets one after the other. Returns 0 if nothing was found."""
    failed = 0
    for target in targets:
        own = folder / target
        seeds = fuzzing.CORPUS / target
        result = fuzzing.fuzz(tools, target, own, seeds=seeds if seeds.is_dir() else None, seconds=seconds)
        row(target, result, f"found: {result.message}" if result.input else "nothing found")
        if result.input:
            failed = 1
            show_found(target, result, tools)
        elif merges:
            before = len(fuzzing.corpus(target))
            folders = [own / "new", *([seeds] if seeds.is_dir() else [])]
            fuzzing.merge(tools, target, folders, own / "merged", own)
            fuzzing.replace_corpus(target, own / "merged")
            print(f"{'':12} its corpus has {len(fuzzing.corpus(target))} inputs now; it had {before}", flush=True)
    return failed


def prove_targets(targets, folder, tools):
    """Plants the bugs of each target one by one and fuzzes it. Returns 0 if the fuzzer finds them all."""
    failed = 0
    for target, index, bug in ((target, index, bug) for target in targets for index, bug in enumerate(BUGS[target])):
        own = folder / target / str(index)
        own.mkdir(parents=True)
        result = fuzzing.fuzz(tools._replace(image=make_image(bug, own)), target, own, runs=bug.runs, seed=1)
        found = bug.is_found(result)
        row(target, result, f"{bug.what}: {'found' if found else 'NOT FOUND'}")
        if found:
            shutil.copyfile(result.input, fuzzing.CORPUS / target / fuzzing.planted_name(index))
        else:
            failed = 1
            if result.input:
                print(f"{'':12} found instead: {result.message}", flush=True)
    return failed


def run_input(target, file, folder, tools):
    """Runs a target once and prints everything. Returns 0 if nothing is wrong."""
    result = fuzzing.replay(tools, target, [file], folder)
    print(fuzzing.name_places(result.output, tools.image))
    return 1 if result.input else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=Path)
    parser.add_argument("target", choices=("all", *fuzzing.TARGETS))
    parser.add_argument("--seconds", type=int, default=60)
    kind = parser.add_mutually_exclusive_group()
    kind.add_argument("--planted", action="store_true")
    kind.add_argument("--merge", action="store_true")
    kind.add_argument("--input", type=Path)
    words = parser.parse_args()
    targets = fuzzing.TARGETS if words.target == "all" else (words.target,)
    end_with_front()
    tools, folder = fuzzing.tools_of(words.folder), words.folder / "targets"
    if words.planted:
        return prove_targets(targets, folder, tools)
    if words.input:
        return run_input(words.target, words.input, folder, tools)
    return run_targets(targets, words.seconds, words.merge, folder, tools)


if __name__ == "__main__":
    sys.exit(main())
