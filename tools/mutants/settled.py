"""The mutants that no test can notice, each with its reason: settled.txt.

An entry has the changed line before and after, and why it stays:

    src/base/text.cpp
    - if (length <= kShort) {
    + if (length < kShort) {
    equivalent: a text of kShort characters takes the same way in both branches

"equivalent" means that the library does the same; "out of reach" that no test of these levels can see the difference. White
space does not count. Lines that begin with "#" are comments.

An entry is for one line only. If the same change can be made on several lines of the source, the entry says on which of them,
counted from the first: it begins with "src/base/text.cpp (2 of 5)".
"""

import re
from pathlib import Path
from typing import NamedTuple

from mutants.operators import line_of, places_of

LIST = Path(__file__).resolve().parent / "settled.txt"
KINDS = ("equivalent", "out of reach")


# How an entry begins.
PLACE = re.compile(r"(?P<source>\S+)(?: \((?P<which>[1-9][0-9]*) of (?P<of>[1-9][0-9]*)\))?")


class Malformed(Exception):
    """The list cannot be used; the text says where and why."""

    def __init__(self, number, text):
        super().__init__(f"{LIST.name}:{number}: {text}")


class Key(NamedTuple):
    """What an entry and a mutant are compared by: the lines before and after, and which one of the `of` lines of the source
    it is on which this change can be made, from 1 on."""
    source: str
    before: str
    after: str
    which: int
    of: int

    @property
    def place(self):
        """How an entry begins."""
        return self.source if self.of == 1 else f"{self.source} ({self.which} of {self.of})"


class Entry(NamedTuple):
    key: Key
    kind: str
    reason: str
    # The number of its first line in the list.
    number: int


def plain(text):
    return " ".join(text.split())


def lines_of(text, change):
    """The whole lines of a change, before and after it, in one line each."""
    first = text.rfind("\n", 0, change.start) + 1
    end = change.start + len(change.before)
    last = text.find("\n", end)
    last = len(text) if last < 0 else last
    return plain(text[first:last]), plain(text[first:change.start] + change.after + text[end:last])


def places_in(text):
    """The changes of a source, each with the numbers of the lines on which it can be made: {(before, after): [line, ...]}."""
    places = {}
    for change in (change for changes in places_of(text) for change in changes):
        numbers = places.setdefault(lines_of(text, change), [])
        number = line_of(text, change.start)
        # Two changes of one line can have the same result.
        if number not in numbers:
            numbers.append(number)
    return places


def key_of(source, text, change, places=None):
    """The key of a change of a source. `places` is places_in(text), if it is known."""
    before, after = lines_of(text, change)
    numbers = (places or places_in(text))[before, after]
    return Key(source, before, after, numbers.index(line_of(text, change.start)) + 1, len(numbers))


def read(content):
    """The entries of a list."""
    entries = []
    for number, block in blocks(content):
        if len(block) != 4 or block[1][:2] != "- " or block[2][:2] != "+ ":
            raise Malformed(number, "an entry is the name of a source, the line before (-) and after (+), and the reason")
        place = PLACE.fullmatch(block[0])
        if not place or int(place["which"] or 1) > int(place["of"] or 1):
            raise Malformed(number, "an entry begins with the name of a source, alone or as in \"src/base/text.cpp (2 of 5)\", "
                            f"not with \"{block[0]}\"")
        kind, _, reason = block[3].partition(": ")
        if kind not in KINDS or not reason:
            raise Malformed(number, f"the reason begins with \"{KINDS[0]}: \" or \"{KINDS[1]}: \"")
        key = Key(place["source"], plain(block[1][2:]), plain(block[2][2:]), int(place["which"] or 1), int(place["of"] or 1))
        entries.append(Entry(key, kind, reason, number))
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


def entry_of(entries, key):
    """The entry of a mutant, or None."""
    return next((entry for entry in entries if entry.key == key), None)


def lines_for(key, places):
    """The numbers of the lines that an entry could be for. `places(source)` is places_in() of a source; None if there is no
    such source."""
    return (places(key.source) or {}).get((key.before, key.after), [])


def gone(entries, places):
    """The entries whose line or change does not exist any more."""
    return [entry for entry in entries if not lines_for(entry.key, places)]


def check(entries, places):
    """Raises Malformed if an entry does not say for which one of several lines it is."""
    for key, _, _, number in entries:
        lines = lines_for(key, places)
        if len(lines) in (0, key.of):
            continue
        if len(lines) == 1:
            text = f"{key.source} has this line only once: begin the entry with \"{key.source}\""
        else:
            choices = ", ".join(f"\"{key._replace(which=which, of=len(lines)).place}\" for line {line}"
                                for which, line in enumerate(lines, start=1))
            text = f"{key.source} has this line {len(lines)} times, and the entry is for one of them: begin it with {choices}"
        raise Malformed(number, f"{text}\n  - {key.before}\n  + {key.after}")
