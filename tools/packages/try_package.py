#!/usr/bin/env python3
"""Tries a package in a fresh Windows of its processor: the command ./hx try.

    tools/packages/try_package.py PACKAGE.msi --programs FOLDER --logs FOLDER [NAME=VALUE]...

Installs the package with these properties and removes it again. Prints for each run the engine's result, what the actions
of the library said, and what the run changed on the machine; then what the removal left. The verbose logs, and the page that
explains them, are written to the folder of --logs; trial.exe for the package's processor is in the folder of --programs.

The exit status is 0 if the package was installed and removed, 1 if not.
"""

import argparse
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from explain.beside import PAGE, copy_page
from packages.tables import PackageError, read_package
from packages.writer import TEMPLATE, TEMPLATES
from windows.windows_session import Ended, Windows

# The seconds that the two runs may take together. Emulated processors are slow.
TIME_LIMIT = 300
# A run that takes longer never ends: under emulation a process of the engine dies now and then while it starts.
ATTEMPTS = 3
TIMED_OUT = 124

RUN = re.compile(r"run (install|remove|rest) (\d+)")
# Explains logs; the page does the same in a browser.
EXPLAIN = Path(__file__).resolve().parents[2] / "explain/explain.mjs"
TITLES = {"install": "Installation", "remove": "Removal", "rest": "What the removal left"}
PUBLIC = re.compile(r"[A-Z_][A-Z0-9_.]*")

# The results with which a run succeeded.
SUCCESS = {0: "succeeded", 1641: "succeeded; the machine would restart now", 3010: "succeeded; the machine must be restarted"}
FAILURE = {1602: "was cancelled", 1603: "failed",
           1618: "did not begin: another installation is running", 1619: "did not begin: the package could not be opened",
           1625: "did not begin: a policy forbids it", 1633: "did not begin: the package is for another processor",
           1638: "did not begin: another version of this product is installed"}


def result_text(code):
    return f"{SUCCESS.get(code) or FAILURE.get(code) or 'failed'} ({code})"


def processor_of(package, path):
    """The processor of a package by its summary."""
    name = package.summary.get(TEMPLATE, "").partition(";")[0]
    for processor, template in TEMPLATES.items():
        if name.lower() == template.lower():
            return processor
    raise PackageError(f"{path} is for {name or 'no processor'}: there is a Windows for {' and '.join(TEMPLATES)} only")


def check_properties(words):
    for word in words:
        name, equals, _ = word.partition("=")
        if not equals:
            raise PackageError(f"{word!r} is not NAME=VALUE")
        if not PUBLIC.fullmatch(name):
            raise PackageError(f"{name} is not a public property: only names in capital letters reach the installation")
        if "\n" in word:
            raise PackageError(f"the value of {name} has a line break")


def log_text(path):
    """A verbose log as text, whichever engine wrote it."""
    data = path.read_bytes() if path.is_file() else b""
    return data.decode("utf-16" if data[:2] == b"\xff\xfe" else "cp1252", errors="replace")


def said(path):
    """The lines of a log that the library wrote."""
    return [line.strip() for line in log_text(path).splitlines() if "Setup Log:" in line]


def parse(lines):
    """The runs in the output of trial.exe: {name: (result, changes)}."""
    runs, changes = {}, []
    for line in lines:
        if match := RUN.fullmatch(line):
            changes = []
            runs[match[1]] = int(match[2]), changes
        elif line[:2] in ("+ ", "- ", "~ "):
            changes.append(line)
    return runs


def explained(path):
    """What ./hx explain says of a log, line by line."""
    result = subprocess.run(["node", EXPLAIN, "--summary", path], capture_output=True, text=True, check=False)
    return (result.stdout or result.stderr).splitlines()


def show(title, lines, none):
    print(f"  {title}" if lines else f"  {none}")
    for line in lines:
        print(f"    {line}")


def report(runs, logs):
    """Prints the runs. Returns the exit status."""
    for name, title in TITLES.items():
        if name not in runs:
            continue
        code, changes = runs[name]
        if name == "rest":
            print(title)
            show("the machine now, compared with the machine before the installation:", changes, "nothing")
            continue
        print(f"{title} {result_text(code)}")
        show("the library wrote to the log:", said(logs / f"{name}.log"), "the library wrote nothing to the log")
        show("changed:", changes, "nothing changed")
        if code not in SUCCESS:
            show("what happened:", explained(logs / f"{name}.log"), "")
    if "remove" not in runs:
        print("The product is not installed now, so there is nothing to remove.")
    return int(any(name not in runs or runs[name][0] not in SUCCESS for name in ("install", "remove")))


def run_trial(processor, folder):
    """Runs trial.exe in a new Windows whose Z:\\run is `folder`. Returns its status and its output."""
    lines = []
    with Windows(processor, folder, "", TIME_LIMIT, lines.append) as windows:
        status = windows.run({}, ["wine64", r"Z:\run\trial.exe", r"Z:\run\trial.txt"], lines.append)
    return status, lines


def trial_of(package, path, processor, properties, programs, logs):
    """Runs one trial, and copies its logs to `logs`. Returns its status and the output of trial.exe."""
    with tempfile.TemporaryDirectory(prefix="hx-try-") as name:
        folder = Path(name)
        shutil.copyfile(path, folder / "package.msi")
        shutil.copyfile(programs / "trial.exe", folder / "trial.exe")
        words = [r"Z:\run\package.msi", package.properties()["ProductCode"], r"Z:\run", *properties]
        (folder / "trial.txt").write_text("".join(f"{word}\n" for word in words), encoding="utf-8")
        status, lines = run_trial(processor, folder)
        logs.mkdir(parents=True, exist_ok=True)
        for log in ("install.log", "remove.log"):
            (logs / log).unlink(missing_ok=True)
            if (folder / log).is_file():
                shutil.copyfile(folder / log, logs / log)
    copy_page(logs)
    return status, lines


def try_package(path, properties, programs, logs):
    """Tries the package. Returns the exit status."""
    package = read_package(path)
    processor = processor_of(package, path)
    check_properties(properties)
    if "ProductCode" not in package.properties():
        raise PackageError(f"{path} is not an installation package: it has no ProductCode")
    for attempt in range(1, ATTEMPTS + 1):
        status, lines = trial_of(package, path, processor, properties, programs, logs)
        if status != TIMED_OUT or attempt == ATTEMPTS:
            break
        print(f"hx: the installation did not end within {TIME_LIMIT} seconds; starting again", file=sys.stderr)
    if status == TIMED_OUT:
        raise PackageError(f"the installation did not end within {TIME_LIMIT} seconds, {ATTEMPTS} times")
    if status:
        raise PackageError(f"the trial ended with status {status}:\n" + "\n".join(lines[-5:]))
    failed = report(parse(lines), logs)
    print(f"The verbose logs are in {logs}; {PAGE} beside them explains them")
    return failed


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("package", type=Path)
    parser.add_argument("properties", nargs="*")
    parser.add_argument("--processor-only", action="store_true", help="print the package's processor and end")
    parser.add_argument("--programs", type=Path)
    parser.add_argument("--logs", type=Path)
    parsed = parser.parse_intermixed_args(arguments)
    try:
        if parsed.processor_only:
            check_properties(parsed.properties)
            print(processor_of(read_package(parsed.package), parsed.package))
            return 0
        return try_package(parsed.package, parsed.properties, parsed.programs, parsed.logs)
    except (PackageError, Ended, OSError) as error:
        print(f"hx: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
