#!/usr/bin/env python3
"""Writes the entry points as rows of a C++ table, for hxrun: tools/texts/entry-list.py OUTPUT

What they read and set is from tools/texts/entry_points.json; phase and job are from the table of docs/actions.md.
"""

import json
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from texts.entry_facts import read_table

ROW = re.compile(r"^\| \[(CustomAction\d+)\]\([^)]*\) \| (.+?) \| (.+?) \|$", re.MULTILINE)


def rows_of(page):
    """{entry point: (job, phase)} of the table in the page."""
    return {name: (job.replace("`", ""), phase) for name, job, phase in ROW.findall(page)}


def quoted(text):
    return json.dumps(text, ensure_ascii=True)


def table(facts, rows):
    if facts.keys() != rows.keys():
        raise ValueError(f"only in one of both: {sorted(facts.keys() ^ rows.keys())}")
    lines = []
    for name, seen in facts.items():
        job, phase = rows[name]
        reads, sets = (", ".join(quoted(one) for one in sorted(seen[kind])) for kind in ("reads", "sets"))
        lines.append(f"{{{quoted(name)}, {quoted(phase)}, {quoted(job)}, {{{reads}}}, {{{sets}}}}},\n")
    return "".join(lines)


def main(output):
    root = Path(__file__).resolve().parents[2]
    rows = rows_of((root / "docs/actions.md").read_text(encoding="utf-8"))
    Path(output).write_text(table(read_table(root), rows), encoding="ascii")


if __name__ == "__main__":
    main(*sys.argv[1:])
