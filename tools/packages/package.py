#!/usr/bin/env python3
"""Makes an author's package: the command ./hx package.

    tools/packages/package.py SOURCE.wxs --processor arm64|x64 --library DLL --out FILE [--define NAME=VALUE]...

The compilers find the fragments in packages/ of this project, after the folder of SOURCE; files are searched in the folder
of SOURCE. The variable LibraryFile is the DLL, unless a --define sets it. The finished package is checked by the rules of
rules.py. Nothing else is written, and nothing is written if the compilers refuse the source.
"""

import argparse
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from packages import rules
from packages.check_package import RULE
from packages.compiler import compile_source
from packages.findings import ERROR, Finding, line
from packages.tables import PACKAGE_SIGNATURE, PackageError, read_package
from packages.writer import TEMPLATES, Files, write_package

FRAGMENTS = Path(__file__).resolve().parents[2] / "packages"


def variables_of(defines):
    """The variables of the options --define."""
    variables = {}
    for text in defines:
        name, equals, value = text.partition("=")
        if not equals or not re.fullmatch(r"[A-Za-z_][\w.]*", name):
            raise PackageError(f"--define takes NAME=VALUE, not {text!r}")
        if name in variables:
            raise PackageError(f"--define gives {name} twice")
        variables[name] = value
    return variables


def make(source, processor, library, defines, target):
    """Makes the package. Returns what the rules of the fragments find in it."""
    if not source.is_file():
        raise PackageError(f"{source} {'is not a file' if source.exists() else 'does not exist'}: give the path of a .wxs")
    if target.is_file() and target.read_bytes()[:len(PACKAGE_SIGNATURE)] != PACKAGE_SIGNATURE:
        raise PackageError(f"{target} exists and is not a package, so it is not replaced: give another path with --out")
    variables = {"LibraryFile": str(library), **variables_of(defines)}
    tables = compile_source(source, [FRAGMENTS], variables)
    target.parent.mkdir(parents=True, exist_ok=True)
    write_package(tables, processor, Files([source.parent]), target)
    return rules.check(read_package(target), target)


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("source", type=Path)
    parser.add_argument("--processor", choices=sorted(TEMPLATES), required=True)
    parser.add_argument("--library", type=Path, required=True)
    parser.add_argument("--define", action="append", default=[])
    parser.add_argument("--out", type=Path, required=True)
    parsed = parser.parse_args(arguments)
    try:
        found = make(parsed.source, parsed.processor, parsed.library, parsed.define, parsed.out)
        properties = read_package(parsed.out).properties()
    except (PackageError, OSError) as error:
        print(f"hx: {error}\nhx: no package was made", file=sys.stderr)
        return 1
    print(f"{parsed.out}: {properties['ProductName']} {properties['ProductVersion']} for {parsed.processor}, "
          f"product code {properties['ProductCode']}")
    for severity, text in found:
        print(line(parsed.out.name, Finding(RULE, severity, text)))
    return int(any(severity == ERROR for severity, _ in found))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
