#!/usr/bin/env python3
"""Runs one command in a fresh Windows:

    tools/windows/windows.py arm64|x64 [--folder FOLDER] -- [NAME=VALUE...] COMMAND...

The command is a program of Wine's file tree, usually "wine64 PROGRAM.EXE ARGUMENTS". Its exit status becomes the exit
status of this script. In the Windows, Z:\\hx is the project folder (read-only) and Z:\\run is FOLDER; all other changes are
lost when the command ends. session.sh describes HX_LANE and HX_TIME_LIMIT. windows_session.py runs several commands in one
Windows.
"""

import argparse
import os
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from windows.windows_session import SERVE, Ended, Windows

VARIABLE = re.compile(r"(\w+)=(.*)", re.DOTALL)


def show(line):
    print(line, flush=True)


def main(arguments, serve=SERVE):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("processor", choices=("arm64", "x64"))
    parser.add_argument("--folder", type=Path)
    parser.add_argument("command", nargs="+")
    parsed = parser.parse_args(arguments)
    words, variables = parsed.command, {}
    while words and (match := VARIABLE.fullmatch(words[0])):
        variables[match[1]] = match[2]
        words = words[1:]
    if not words:
        parser.error("a command is missing")
    if parsed.folder and not parsed.folder.is_dir():
        parser.error(f"{parsed.folder} is not a folder")
    folder = parsed.folder.resolve() if parsed.folder else ""
    try:
        with Windows(parsed.processor, folder, os.environ.get("HX_LANE", ""), os.environ.get("HX_TIME_LIMIT", ""),
                     show, serve=serve) as windows:
            return windows.run(variables, words, show)
    except Ended as error:
        sys.exit(f"hx: {error}")


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
