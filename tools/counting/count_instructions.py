#!/usr/bin/env python3
"""Counts the instructions of the ARM64 library: tools/counting/count_instructions.py FOLDER [--write]

FOLDER has the libraries, action_tests.exe and the programs bench_*.exe, all for ARM64. Runs them in an emulated Windows,
with a plugin of the emulator (count.c) that counts what lies between marks of the programs. Everything is counted twice,
and both runs must be equal. Prints the counts, and how they differ from the committed table bench/counts/arm64.txt;
--write writes the table. The exit status is 1 if they differ.
"""

import argparse
import re
import shutil
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from counting.counts import (CountError, Report, differences_between, read_actions, read_counts, read_summary, read_table,
                             table_text)
from support import load_script
from windows.windows_session import Ended, Windows

ROOT = Path(__file__).resolve().parents[2]
TABLE = ROOT / "bench/counts/arm64.txt"
ACTIONS = ROOT / "bench/counts/actions.txt"
EMULATOR = "/usr/bin/qemu-aarch64"

# Everything that the emulator needs is in this folder below Z:\run, which is /run in the file tree of the Windows.
EMULATOR_FOLDER = "emulator"
LOADER = "ld-linux-x86-64.so.2"


def messages():
    """The formats of the library's lines of the log, as check-texts.py finds them in the sources."""
    return sorted(load_script("texts/check-texts.py").Check(ROOT, []).lines)


def actions(text):
    """The pairs (entry point, test) of the list of typical runs."""
    pairs = [tuple(line.split()) for line in text.splitlines() if line and not line.startswith("#")]
    for pair in pairs:
        if len(pair) != 2:
            raise CountError(f"a line of {ACTIONS.name} is an entry point and a test, not '{' '.join(pair)}'")
    return pairs


def lay_down(folder):
    """Puts the emulator, what it loads and the plugin into `folder`, because the file tree has only ARM64 programs."""
    target = folder / EMULATOR_FOLDER
    target.mkdir(exist_ok=True)
    loaded = subprocess.run(["ldd", EMULATOR], capture_output=True, text=True, check=True).stdout
    for path in [EMULATOR, *re.findall(r"(/\S+) \(0x", loaded)]:
        shutil.copy(path, target)
    if not (target / LOADER).exists():
        raise CountError(f"{EMULATOR} is not loaded by {LOADER}")
    subprocess.run(["clang-19", "-O2", "-shared", "-fPIC", "-o", target / "count.so", ROOT / "tools/counting/count.c"],
                   check=True)


def run(windows, folder, program, variables, *arguments):
    """Runs a program of `folder` under the counting emulator; returns the counter's lines."""
    counts = folder / "counts.txt"
    counts.unlink(missing_ok=True)
    output = []
    inside = f"/run/{EMULATOR_FOLDER}"
    # Without this variable Wine's loader starts itself again, and the second process would have no plugin.
    variables = {"WINELOADERNOEXEC": "1", "HX_COUNT": "1", "HX_LIBRARY_DIR": "Z:\\run", "HX_ARTIFACTS": "Z:\\run", **variables}
    status = windows.run(variables, [f"{inside}/{LOADER}", "--library-path", inside, f"{inside}/qemu-aarch64", "-plugin",
                                     f"{inside}/count.so,out=/run/{counts.name}", "/usr/lib/wine/wine64",
                                     f"Z:\\run\\{program}", *arguments], output.append)
    if status != 0:
        raise CountError("\n".join([f"{program} failed with status {status}:", *output]))
    return counts.read_text(encoding="utf-8").splitlines()


def count_all(folder, show):
    """Counts everything once, in a fresh Windows."""
    wanted = actions(ACTIONS.read_text(encoding="utf-8"))
    (folder / "messages.txt").write_text("".join(f"{line}\n" for line in messages()), encoding="utf-8")
    with Windows("arm64", folder, "", 300, show) as windows:
        tables = read_counts(run(windows, folder, "bench_format.exe", {}))
        tables |= read_counts(run(windows, folder, "bench_messages.exe", {"HX_MESSAGES": "Z:\\run\\messages.txt"}))
        tables |= read_counts(run(windows, folder, "bench_path.exe", {}))
        tests = ":".join(dict.fromkeys(test for _, test in wanted))
        tables |= read_actions(run(windows, folder, "action_tests.exe", {}, f"--gtest_filter={tests}"), wanted)
    return tables


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=Path)
    parser.add_argument("--write", action="store_true")
    parsed = parser.parse_args(arguments)
    try:
        lay_down(parsed.folder)
        tables = count_all(parsed.folder, print)
        if different := differences_between(tables, count_all(parsed.folder, print)):
            raise CountError("\n".join(["two runs did not count alike:", *different]))
        before = TABLE.read_text(encoding="utf-8") if TABLE.exists() else ""
        report = Report(tables, read_table(before), read_summary(before), parsed.write)
    except (CountError, Ended) as error:
        sys.exit(f"hx: {error}")
    print("\n".join(report.lines))
    if parsed.write:
        if (text := table_text(tables)) != before:
            TABLE.write_text(text, encoding="utf-8")
            print("bench/counts/arm64.txt is written again.")
        return 0
    return 1 if report.changed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
