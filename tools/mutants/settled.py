"""The mutants that no test can notice, each with its reason: settled.txt.

An entry has the changed line before and after, and why it stays:

    src/base/text.cpp
    - if (length <= kShort) {
    + if (length < kShort) {
    equivalent: a text of kShort characters takes the same way in both branches

"equivalent" means that the library does the same; "out of reach" that no test of these levels can see the difference. White
space does not count. Lines that begin with "#" are comments.
"""

from pathlib import Path
from typing import NamedTuple

LIST = Path(__file__).resolve().parent / "settled.txt"
KINDS = ("equivalent", "out of reach")


class Malformed(Exception):
    """The list cannot be read; the text says where and why."""


class Entry(NamedTuple):
    source: str
    before: str
    after: str
    kind: str
    reason: str


def plain(text):
    return " ".join(text.split())


def lines_of(text, change):
    """The whole lines of a change, before and after it, in one line each."""
    first = text.rfind("\n", 0, change.start) + 1
    end = change.start + len(change.before)
    last = text.find("\n", end)
    last = len(text) if last < 0 else last
    return plain(text[first:last]), plain(text[first:change.start] + change.after + text[end:last])


def read(content):
    """The entries of a list."""
    entries = []
    for number, block in blocks(content):
        if len(block) != 4 or block[1][:2] != "- " or block[2][:2] != "+ ":
            raise Malformed(f"{number}: an entry is the name of a source, the line before (-) and after (+), and the reason")
        kind, _, reason = block[3].partition(": ")
        if kind not in KINDS or not reason:
            raise Malformed(f"{number}: the reason begins with \"{KINDS[0]}: \" or \"{KINDS[1]}: \"")
        entries.append(Entry(block[0], plain(block[1][2:]), plain(block[2][2:]), kind, reason))
    return entries


def blocks(content):
    """The entries as lists of lines, each with the number of its first line."""
    block, first = [], 0
    for number, line in enumerate([*content.splitlines(), ""], start=1):
        line = line.strip()
        if line.startswith("#"):
            continue
        if line:
            first = first if block else number
            block.append(line)
        elif block:
            yield first, block
            block = []


def reason_of(entries, source, before, after):
    """The entry of a mutant, or None."""
    return next((entry for entry in entries if entry[:3] == (source, before, after)), None)


def gone(entries, changes_of):
    """The entries whose line or change does not exist any more. `changes_of(source)` is the set of the changes of a source,
    as the lines before and after; None if there is no such source."""
    missing = []
    for entry in entries:
        changes = changes_of(entry.source)
        if changes is None or (entry.before, entry.after) not in changes:
            missing.append(entry)
    return missing
