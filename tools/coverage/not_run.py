"""The list of what of src/ no test runs, and its comparison with a measurement.

The list, not-run.txt, has groups of entries with a blank line between them. A group begins with its reason, in lines that
begin with "#". Each entry is one line:

    FILE :: never run :: LINE
    FILE :: never true: CONDITION :: LINE
    FILE :: never false: CONDITION :: LINE
    FILE :: not measured

LINE and CONDITION are texts of the source, each run of blanks as one blank. Numbers of lines are not part of an entry, so
that a change elsewhere in the file does not matter. Two places with the same texts need two entries. A condition that was
never evaluated needs none, because the line or the branch before it does. "[x64] " or "[arm64] "
before an entry means that it is for this processor only. A file is not measured if it has nothing that the compiler counts.
"""

import collections
import re
from typing import NamedTuple, Optional

SEPARATOR = " :: "
RUN, TRUE, FALSE, UNMEASURED = "never run", "never true: ", "never false: ", "not measured"
ENTRY = re.compile(r"(?:\[(?P<processor>x64|arm64)\] )?(?P<file>src/\S+) :: "
                   r"(?:(?P<unmeasured>not measured)|(?P<what>never run|never (?:true|false): .+?) :: (?P<line>.+))")
# Lines that have only brackets, a comment or a directive: the lines around them say the same.
SILENT = re.compile(r"[\s{}()\[\];,]*(?://.*)?|\s*#.*")


class Malformed(Exception):
    """A list that cannot be read: "NUMBER: what is wrong"."""


class Key(NamedTuple):
    """What an entry and a place are compared by."""
    file: str
    what: str
    line: str


class Place(NamedTuple):
    """Something that did not run."""
    key: Key
    number: int


class Entry(NamedTuple):
    key: Key
    # None for both.
    processor: Optional[str]
    reason: str


def plain(text):
    """A text of the source with each run of blanks as one blank."""
    return " ".join(text.split())


def read(text):
    """The entries of a list."""
    entries, reason, seen = [], [], False
    for number, row in enumerate(text.splitlines(), 1):
        if row.startswith("#"):
            if seen:
                raise Malformed(f"{number}: a reason follows an entry: put a blank line before it")
            reason.append(row[1:].strip())
        elif not row.strip():
            reason, seen = [], False
        else:
            match = ENTRY.fullmatch(row)
            if not match:
                raise Malformed(f"{number}: this is not 'FILE :: never ... :: LINE': {row}")
            if not " ".join(reason).strip():
                raise Malformed(f"{number}: this entry has no reason: put it in a line with # before it")
            seen = True
            key = Key(match["file"], match["unmeasured"] or match["what"], match["line"] or "")
            entries.append(Entry(key, match["processor"], " ".join(reason)))
    return entries


def condition(branch, source):
    """The text of a condition."""
    first, last = branch.line - 1, branch.end_line - 1
    if first == last:
        return plain(source[first][branch.column - 1:branch.end_column - 1])
    return plain(" ".join([source[first][branch.column - 1:], *source[first + 1:last], source[last][:branch.end_column - 1]]))


def places(files, sources):
    """The places that did not run, in their order. `files` has the Counts of each file, `sources` its lines."""
    found = []
    for name in sorted(files):
        counts, source = files[name], sources[name]
        for number, count in sorted(counts.lines.items()):
            text = source[number - 1]
            if count == 0 and not SILENT.fullmatch(text):
                found.append(Place(Key(name, RUN, plain(text)), number))
        for branch, (true, false) in sorted(counts.branches.items()):
            # Without either the condition was never evaluated, or the compiler knows its value.
            if bool(true) == bool(false):
                continue
            what = TRUE if false else FALSE
            found.append(Place(Key(name, what + condition(branch, source), plain(source[branch.line - 1])), branch.line))
    return found


def unmeasured(files, names):
    """The sources of which nothing was measured, as places. `names` are those of all sources."""
    return [Place(Key(name, UNMEASURED, ""), 1) for name in sorted(names) if name not in files]


def entries_for(processor, entries):
    """The entries that count on a processor."""
    return [entry for entry in entries if entry.processor in (None, processor)]


def compare(found, entries):
    """The differences between what did not run and the entries, each as a line of text."""
    listed = collections.Counter(entry.key for entry in entries)
    findings = []
    for place in found:
        if listed[place.key]:
            listed[place.key] -= 1
        elif place.key.what == UNMEASURED:
            findings.append(f"{place.key.file}: {UNMEASURED}: compile it with the counters (coverageOptions in "
                            "cmake/library.cmake), or list it with its reason")
        else:
            file, what, line = place.key
            findings.append(f"{file}:{place.number}: {what}{SEPARATOR}{line}: test it, or list it with its reason")
    for key, count in listed.items():
        findings += [f"{SEPARATOR.join(filter(None, key))}: this entry of the list ran, or is not there any more: remove it"] * count
    return findings
