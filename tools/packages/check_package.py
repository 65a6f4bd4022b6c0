#!/usr/bin/env python3
"""Checks a package of any author: the command ./hx check-package.

    tools/packages/check_package.py PACKAGE.msi [--host PROGRAM]

Checks the rules of the fragments (rules.py), the table _Validation (validation.py) and runs the validation actions (ices.py)
with PROGRAM (default: build/x64/ices.exe). Prints each finding in the form of the linker, then the findings that packages
with the fragments get on purpose, the actions that were not run, and the counts. The exit status is 1 if there is an error.
"""

import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from packages import ices, rules, validation
from packages.accepted import reason_for
from packages.findings import ERROR, FAILURE, WARNING, Finding, line
from packages.tables import PackageError, read_package

# The name of the rules of the fragments in a finding.
RULE = "hxsetup"


def gather(package, path, report):
    """All findings: (those that count, those that are accepted with the reason of each)."""
    found = [Finding(RULE, severity, text) for severity, text in rules.check(package, path)]
    found += [*validation.check(package), *report.findings]
    reasons = [(finding, reason_for(finding, package)) for finding in found]
    return [finding for finding, reason in reasons if not reason], [pair for pair in reasons if pair[1]]


def show(name, found, accepted, report):
    """Prints everything. Returns the exit status."""
    for kind in (FAILURE, ERROR, WARNING):
        for finding in found:
            if finding.kind == kind:
                print(line(name, finding))
    for finding, reason in accepted:
        print(f"accepted: {finding.rule} ({finding.place}): {reason}")
    by_reason = {}
    for action, reason in report.not_run.items():
        by_reason.setdefault(reason, []).append(action)
    for reason, actions in by_reason.items():
        print(f"not run: {' '.join(actions)}: {reason}")
    errors = sum(finding.kind in (ERROR, FAILURE) for finding in found)
    print(f"{errors} errors, {len(found) - errors} warnings, {len(accepted)} accepted; validation actions: {len(report.ran)} "
          f"run, {len(report.not_run)} not run")
    return int(errors > 0)


def check(path, program):
    package = read_package(path)
    report, = ices.check([path], program=program)
    return show(path.name, *gather(package, path, report), report)


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("package", type=Path)
    parser.add_argument("--host", type=Path, default=ices.PROGRAM)
    parsed = parser.parse_args(arguments)
    try:
        return check(parsed.package, parsed.host)
    except (PackageError, OSError) as error:
        print(f"hx: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
