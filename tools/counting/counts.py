"""What was counted: reading it, comparing it with the committed table, and printing it. For count_instructions.py.

A line of the counter (count.c) is "OWN ALL TABLE<tab>SUBJECT<tab>NAME": the instructions of the library itself, all
instructions between the marks, and what they belong to. The subject "hx" is the library; the others are its rivals.
"""

import math
import re
from typing import NamedTuple

OURS = "hx"
# The formatters that the library is compared with. The aim is to need fewer instructions than each of them.
FORMATTERS = ("snprintf", "stb", "fmt")
ACTIONS = "Actions"

LINE = re.compile(r"(\d+) (\d+) ([^\t]*)\t([^\t]*)\t(.*)")
ROW = re.compile(r" *(\d+)  (.*)")

HEAD = """\
# The instructions of the library itself on ARM64, by ./hx bench arm64. If a change of them is on purpose,
# ./hx bench arm64 --write writes this file again. docs/benchmarks.md says what is counted.
"""


class CountError(Exception):
    """The counts cannot be used; the text says why."""


class Count(NamedTuple):
    """The instructions of the library itself, and all."""

    own: int
    all: int


def read_counts(lines):
    """{table: {name: {subject: Count}}} of the counter's lines. A second case of the same name gets " (2)"."""
    tables = {}
    for line in lines:
        match = LINE.fullmatch(line)
        if not match:
            raise CountError(f"this is not a line of the counter: {line!r}")
        table, subject, name = match.group(3, 4, 5)
        rows = tables.setdefault(table, {})
        key, number = name, 1
        while subject in rows.get(key, {}):
            number += 1
            key = f"{name} ({number})"
        rows.setdefault(key, {})[subject] = Count(int(match[1]), int(match[2]))
    return tables


def read_actions(lines, wanted):
    """The same for a run of action tests: the first call of each entry point in its test. `wanted` are pairs (entry point,
    test)."""
    found, test = {}, None
    for line in lines:
        (table, rows), = read_counts([line]).items()
        (name, subjects), = rows.items()
        if table == "Test":
            test = name
        elif (name, test) in wanted and name not in found:
            found[name] = {OURS: Count(subjects[OURS].own, 0)}
    missing = [f"{action} in {test}" for action, test in wanted if action not in found]
    if missing:
        raise CountError(f"not called: {', '.join(missing)}")
    return {ACTIONS: {action: found[action] for action, _ in wanted}}


def differences_between(first, second):
    """A line for each case that two runs did not count alike."""
    one, other = flat(first), flat(second)
    return [f"{' / '.join(key)}: {one.get(key)} and {other.get(key)}" for key in one | other
            if one.get(key) != other.get(key)]


def flat(tables):
    return {(table, name, subject): count for table, rows in tables.items() for name, subjects in rows.items()
            for subject, count in subjects.items()}


def own_counts(tables):
    """{table: {name: instructions of the library itself}}."""
    return {table: {name: subjects[OURS].own for name, subjects in rows.items()} for table, rows in tables.items()}


def table_text(counts):
    """The text of the committed table."""
    parts = [HEAD]
    for table, rows in counts.items():
        parts.append(f"\n{table}\n" + "".join(f"{count:8}  {name}\n" for name, count in rows.items()))
    return "".join(parts)


def read_table(text):
    """own_counts of the committed table."""
    counts, rows = {}, None
    for number, line in enumerate(text.splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        row = ROW.fullmatch(line)
        if row and rows is not None:
            rows[row[2]] = int(row[1])
        elif not line.startswith(" "):
            rows = counts.setdefault(line, {})
        else:
            raise CountError(f"line {number} of the table is not 'COUNT  NAME': {line!r}")
    return counts


def change(before, now):
    """How a count differs from that of the table; "" if it does not."""
    if before is None:
        return "new"
    if before == now:
        return ""
    if before == 0:
        return f"{now - before:+}"
    return f"{now - before:+} ({(now - before) / before:+.1%})"


def geometric_mean(values):
    return math.exp(sum(map(math.log, values)) / len(values))


def ratio(subjects, rival):
    """How many times as many instructions the rival needs."""
    return subjects[rival].all / subjects[OURS].all


class Report:
    """The lines to print, and what they found."""

    def __init__(self, tables, committed):
        self.tables = tables
        self.committed = committed
        self.changed = 0
        self.lines = []
        for table, rows in tables.items():
            self.add_table(table, rows)
        self.add_missing()
        self.add_formatters()
        self.add_result()

    def add_table(self, table, rows):
        rivals = list(dict.fromkeys(subject for subjects in rows.values() for subject in subjects if subject != OURS))
        width = max(map(len, rows))
        self.lines += ["", table, f"  {'':{width}} {'own':>8}" + "".join(f" {rival:>9}" for rival in rivals)]
        before = self.committed.get(table, {})
        for name, subjects in rows.items():
            changed = change(before.get(name), subjects[OURS].own)
            self.changed += bool(changed)
            ratios = "".join(f" {ratio(subjects, rival):9.2f}" if rival in subjects else f" {'-':>9}" for rival in rivals)
            self.lines.append(f"  {name:{width}} {subjects[OURS].own:8}{ratios}{changed and '  ' + changed}")
        if rivals:
            means = [geometric_mean([ratio(s, rival) for s in rows.values() if rival in s]) for rival in rivals]
            self.lines.append(f"  {'geometric mean':{width}} {'':8}" + "".join(f" {mean:9.2f}" for mean in means))

    def add_missing(self):
        """Names what only the committed table has."""
        for table, rows in self.committed.items():
            for name in rows:
                if name not in self.tables.get(table, {}):
                    self.changed += 1
                    self.lines.append(f"gone: {table} / {name}")

    def add_formatters(self):
        """Says whether the aim of the format engine is met."""
        cases = [subjects for rows in self.tables.values() for subjects in rows.values()]
        means = {rival: [ratio(subjects, rival) for subjects in cases if rival in subjects] for rival in FORMATTERS}
        means = {rival: geometric_mean(ratios) for rival, ratios in means.items() if ratios}
        if not means:
            return
        shown = ", ".join(f"{rival} {mean:.2f}" for rival, mean in means.items())
        behind = [rival for rival, mean in means.items() if mean <= 1]
        aim = f"not met: not fewer than {' and '.join(behind)}" if behind else "met"
        self.lines += ["", f"All formats, geometric mean: {shown}. The aim, fewer instructions than each, is {aim}."]

    def add_result(self):
        count = sum(map(len, self.tables.values()))
        if self.changed:
            self.lines += [f"Of the library's own counts, {self.changed} differ from bench/counts/arm64.txt. If this is on "
                           "purpose, write them: ./hx bench arm64 --write"]
        else:
            self.lines += [f"The library's own counts, {count}, are those of bench/counts/arm64.txt."]
