#!/usr/bin/env python3
"""Makes and describes the data of a server for the demonstration.

    tools/demonstration/server-tree.py make|show|names FOLDER

make   fills FOLDER with an older server's data, the same in every run: a few thousand files in nested folders, among
       them long names, names outside ASCII, names like short (8.3) names, empty files and empty folders.
show   prints one line about FOLDER: the number of files, folders and bytes, and a fingerprint of all names and
       contents. A conversion changes format.txt; its first line is printed instead.
names  prints one line about the names in FOLDER.
"""

import hashlib
import re
import sys
from pathlib import Path

SITES = ["Berlin", "M\u00fcnchen", "S\u00e3o Paulo", "\u041c\u043e\u0441\u043a\u0432\u0430", "\u6771\u4eac",
         "Reykjav\u00edk", "PROGRA~1", "DOCUME~2.OLD", "site with 'quotes' & %signs%", "site." + "long" * 24]
YEARS = range(2009, 2025)
METERS = 16
LONG_NAME = "a report whose name is as long as people make them when nobody stops them " * 2


def make(folder):
    reports = folder / "Helper Data" / "Reports"
    (reports / "Preferences").mkdir(parents=True)
    (reports / "Preferences" / "user.prefs").write_bytes(bytes(range(256)) * 16)
    (folder / "format.txt").write_bytes(b"1\r\n")
    (folder / "Empty Folder").mkdir()
    deep = folder / "deep"
    for level in range(20):
        deep = deep / f"level {level}"
    deep.mkdir(parents=True)
    (deep / "leaf.txt").write_text("the deepest file\n", encoding="utf-8")
    for site in SITES:
        for year in YEARS:
            place = folder / "Sites" / site / str(year)
            place.mkdir(parents=True)
            for meter in range(METERS):
                name = f"METER~{meter % 10}.DAT" if meter < 10 else f"Z\u00e4hler {meter} \u2116.csv"
                (place / name).write_text(f"{site};{year};{meter}\n" * (1 + meter * 20), encoding="utf-8")
            (place / f"{LONG_NAME}{year}.txt").write_bytes(b"")


def show(folder):
    if not folder.is_dir():
        print("(no such folder)")
        return
    digest = hashlib.sha256()
    files = folders = size = 0
    form = "-"
    for path in sorted(folder.rglob("*")):
        name = path.relative_to(folder).as_posix()
        if path.is_dir():
            folders += 1
            digest.update(f"{name}/\n".encode())
        else:
            data = path.read_bytes()
            files += 1
            size += len(data)
            if name == "format.txt":
                form = data.decode().strip()
                data = b""
            digest.update(f"{name}\n{len(data)}\n".encode() + data)
    print(f"{files:,} files in {folders} folders, {size:,} bytes, format {form}, fingerprint {digest.hexdigest()[:12]}")


def names(folder):
    every = [path.relative_to(folder) for path in folder.rglob("*")]
    foreign = sum(not path.name.isascii() for path in every)
    short = sum(re.fullmatch(r"[A-Z]{1,6}~\d(\.[A-Z]{0,3})?", path.name) is not None for path in every)
    longest = max(len(path.name) for path in every)
    levels = max(len(path.parts) for path in every)
    print(f"names: {foreign:,} outside ASCII, {short:,} like short (8.3) names, the longest with "
          f"{longest} characters; at most {levels} levels")


def main():
    commands = {"make": make, "show": show, "names": names}
    if len(sys.argv) != 3 or sys.argv[1] not in commands:
        sys.exit(__doc__)
    commands[sys.argv[1]](Path(sys.argv[2]))


main()
