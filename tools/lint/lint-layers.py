#!/usr/bin/env python3
"""Checks that every file in src/ includes only files of its own module or of a lower layer.

    tools/lint/lint-layers.py [ROOT]

Reads the layers from the picture in docs/architecture.md, which must name every folder of src/ with code.
Prints "FILE:LINE: what is wrong" for each finding; the exit code is 1 if there is one.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.lint_report import report

PAGE = "docs/architecture.md"
# Has lists of functions, no code.
OTHER_FOLDERS = {"imports"}

# A line of the picture: the layer's number, its modules, what it is.
LAYER = re.compile(r"^ {4}(\d+)  ([a-z]+(?:, [a-z]+)*)(?: {2,}\S.*)?$")
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]*)"')


def read_layers(page):
    """The number of each module's layer."""
    layers = {}
    for line in page.splitlines():
        match = LAYER.match(line)
        if match:
            layers.update({module: int(match.group(1)) for module in match.group(2).split(", ")})
    return layers


def complaint(source, layers, module, included):
    """What is wrong with an include of `included` in `module`; None if nothing is."""
    other, slash, _ = included.partition("/")
    if not slash or other not in layers:
        return f'"{included}" does not begin with a module: paths are relative to src/'
    if not (source / included).is_file():
        return f'"{included}" does not exist'
    if other != module and layers[other] >= layers[module]:
        return f'{module} must not include "{included}": {other} is not in a lower layer'
    return None


def findings(root):
    source = root / "src"
    page = root / PAGE
    layers = read_layers(page.read_text(encoding="utf-8")) if page.is_file() else {}
    if not layers:
        yield f"{PAGE}:1: has no picture of the layers"
        return
    for module in layers:
        if not (source / module).is_dir():
            yield f"{PAGE}:1: the module {module} does not exist"
    for path in sorted(source.rglob("*")):
        if path.suffix not in (".h", ".cpp", ".rc", ".inc"):
            continue
        parts = path.relative_to(source).parts
        where = path.relative_to(root)
        if len(parts) != 2 or parts[0] not in layers:
            if parts[0] not in OTHER_FOLDERS:
                yield f"{where}:1: is not in a module of {PAGE}"
            continue
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            match = INCLUDE.match(line)
            problem = complaint(source, layers, parts[0], match.group(1)) if match else None
            if problem:
                yield f"{where}:{number}: {problem}"


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
