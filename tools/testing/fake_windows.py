#!/usr/bin/env python3
"""Replaces tools/windows/serve.sh in tests: fake_windows.py PROCESSOR FOLDER DESCRIPTOR

FOLDER/story.json says what each run of a test program does, by the name of the program's folder of artifacts: its "status",
the "lines" that it prints, the lines that are printed when Windows ends ("late"), and its "results" (the text of
results.xml, or null). With "ends": true Windows ends during the run.
The commands are written to FOLDER/calls.txt.
"""

import json
import os
import shlex
import sys
from pathlib import Path

processor, folder, statuses = sys.argv[1], Path(sys.argv[2]), int(sys.argv[3])
seen, late = {}, ""
for line in sys.stdin:
    with (folder / "calls.txt").open("a", encoding="utf-8") as calls:
        print(f"{processor}, lane {os.environ['HX_LANE']}, {os.environ['HX_TIME_LIMIT']} s: {line}", end="", file=calls)
    words = shlex.split(line)
    name = dict(word.split("=", 1) for word in words if word.startswith("HX_"))["HX_ARTIFACTS"].rpartition("\\")[2]
    seen[name] = seen.get(name, 0) + 1
    run = json.loads((folder / "story.json").read_text(encoding="utf-8"))[name][seen[name] - 1]
    print(*run.get("lines", []), sep="\r\n", flush=True)
    if run.get("ends"):
        sys.exit(1)
    if run.get("results"):
        (folder / "artifacts" / name / "results.xml").write_text(run["results"], encoding="utf-8")
    late = run.get("late", "")
    os.write(statuses, f"{run['status']}\n".encode())
if late:
    print(late)
