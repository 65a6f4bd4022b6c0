"""What was counted: reading it, comparing it with the committed table, and printing it. For count_instructions.py.

A line of the counter (count.c) is "OWN ALL TABLE<tab>SUBJECT<tab>NAME": the instructions of the library itself, all
instructions between the marks, and what they belong to. The subject "hx" is the library; the others are its rivals.
"""

import math
import re
import statistics
from typing import NamedTuple

OURS = "hx"
# The formatters that the library is compared with. The aim is to need fewer instructions than each of them.
FORMATTERS = ("snprintf", "stb", "fmt")
MESSAGES, PATHS, ACTIONS = "Messages", "Paths", "Actions"

# The rows of values with which a format is counted (kRows of bench/values.h). Its count is the sum.
ROWS = 16
# How the summary names one call of a table without rivals, and how many calls a count of that table is.
CALLS = {MESSAGES: ("a message", ROWS), ACTIONS: ("a typical run of an action", 1)}

LINE = re.compile(r"(\d+) (\d+) ([^\t]*)\t([^\t]*)\t(.*)")
ROW = re.compile(r" *(\d+)  (.*)")

HEAD = """\
# The instructions of the library itself on ARM64, by ./hx bench arm64. If a change of them is on purpose,
# ./hx bench arm64 --write writes this file again. docs/benchmarks.md says what is counted.
#
# In short: the geometric mean of the ratios and, in brackets, the worst case; and the library's own instructions of
# one call. docs/benchmarks.md has these figures.
"""
SUMMARY_LINE = "#   "


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
    """A line for each case that two runs did not count alike. Windows itself may need a few instructions more in one of them."""
    one, other = flat(first), flat(second)
    return [f"{' / '.join(key)}: {one.get(key)} and {other.get(key)}" for key in one | other
            if not alike(one.get(key), other.get(key))]


def alike(one, other):
    """True if two counts of a case are the same, but for a thousandth of what Windows needs in it."""
    return one is not None and other is not None and one.own == other.own and abs(one.all - other.all) <= one.all // 1000


def flat(tables):
    return {(table, name, subject): count for table, rows in tables.items() for name, subjects in rows.items()
            for subject, count in subjects.items()}


def own_counts(tables):
    """{table: {name: instructions of the library itself}}."""
    return {table: {name: subjects[OURS].own for name, subjects in rows.items()} for table, rows in tables.items()}


def table_text(tables):
    """The text of the committed table: the summary, and the counts of the library itself."""
    parts = [HEAD, *(f"{SUMMARY_LINE}{line}\n" for line in summary(tables))]
    for table, rows in own_counts(tables).items():
        parts.append(f"\n{table}\n" + "".join(f"{count:8}  {name}\n" for name, count in rows.items()))
    return "".join(parts)


def read_summary(text):
    """The lines of the summary in the committed table."""
    return [line.removeprefix(SUMMARY_LINE) for line in text.splitlines() if line.startswith(SUMMARY_LINE)]


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


def ratios_line(name, cases):
    """A line of the summary: for each rival the geometric mean of its ratios and the least of them."""
    ratios = {}
    for subjects in cases:
        for rival in subjects:
            if rival != OURS:
                ratios.setdefault(rival, []).append(ratio(subjects, rival))
    return f"{name}: " + ", ".join(f"{rival} {geometric_mean(each):.2f} ({min(each):.2f})" for rival, each in ratios.items())


def calls_line(table, counts):
    """A line of the summary: the own instructions of one call. `counts` are those of the table, {name: instructions}."""
    name, number = CALLS[table]
    calls = [count / number for count in counts.values()]
    return f"{name}: least {min(calls):,.0f}, median {statistics.median(calls):,.0f}, greatest {max(calls):,.0f}"


def summary(tables):
    """A line "NAME: KIND FIGURE, ..." for each group of formats and for all of them, for each operation of paths, and for one
    call of what has no rivals."""
    formats = {table: rows for table, rows in tables.items() if table != PATHS and table not in CALLS}
    # A note in brackets is not part of a group's name.
    lines = [ratios_line(table.partition(" (")[0], rows.values()) for table, rows in formats.items()]
    if formats:
        lines.append(ratios_line("All formats", [subjects for rows in formats.values() for subjects in rows.values()]))
    operations = {}
    for name, subjects in tables.get(PATHS, {}).items():
        operations.setdefault(name.partition(": ")[0], []).append(subjects)
    lines += [ratios_line(operation, cases) for operation, cases in operations.items()]
    own = own_counts(tables)
    return lines + [calls_line(table, own[table]) for table in CALLS if table in own]


class Report:
    """The lines to print, and what they found. `committed` and `before` are the counts and the summary of the committed table.
    If the command `writes` the table, it does not advise to do so."""

    def __init__(self, tables, committed, before, writes=False):
        self.tables = tables
        self.committed = committed
        self.before = before
        self.writes = writes
        self.changed = 0
        self.lines = []
        for table, rows in tables.items():
            self.add_table(table, rows)
        self.add_missing()
        self.summary = summary(tables)
        self.lines += ["", "In short: the geometric mean of the ratios and, in brackets, the worst case; and the library's own "
                           "instructions of one call", *(f"  {line}" for line in self.summary)]
        self.add_aim()
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

    def add_missing(self):
        """Names what only the committed table has."""
        for table, rows in self.committed.items():
            for name in rows:
                if name not in self.tables.get(table, {}):
                    self.changed += 1
                    self.lines.append(f"gone: {table} / {name}")

    def add_aim(self):
        """Says whether the aim of the format engine is met."""
        cases = [subjects for rows in self.tables.values() for subjects in rows.values()]
        means = {rival: [ratio(subjects, rival) for subjects in cases if rival in subjects] for rival in FORMATTERS}
        means = {rival: geometric_mean(ratios) for rival, ratios in means.items() if ratios}
        if not means:
            return
        behind = [rival for rival, mean in means.items() if mean <= 1]
        aim = f"not met: not fewer than {' and '.join(behind)}" if behind else "met"
        self.lines.append(f"The aim, fewer instructions for all formats than each of snprintf, stb and fmt, is {aim}.")

    def add_result(self):
        if self.changed:
            advice = "" if self.writes else " If this is on purpose, write them: ./hx bench arm64 --write"
            self.lines.append(f"Of the library's own counts, {self.changed} differ from bench/counts/arm64.txt.{advice}")
            return
        other = "" if self.summary == self.before else \
            " Its summary differs, because the rivals or Windows are not those with which it was written."
        count = sum(map(len, self.tables.values()))
        self.lines.append(f"The library's own counts, {count}, are those of bench/counts/arm64.txt.{other}")
