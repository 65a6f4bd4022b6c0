"""What each entry point is seen to do, and the table of it, entry_points.json. For observed-facts.py, which compares the
table with what a run of the actions level saw, and for page_facts.py, which compares the pages with the table.

The rig writes the facts (tests/rig/facts.h): while an entry point runs, every call that it makes passes through the rig.
The runs of a sweep, in which one call fails after the other, count like all others, for each kind of fact:

  returns   a failure of Windows is a reason for a code, whether the test or the sweep makes it
  reads     a read that fails is a read: the property's name and the buffer were given. A property that is asked for only
            after a failure (ProductName, if no record can be made) is a fact too
  sets      a property that could not be set would have been: the page says what the entry point writes
  notices   as sent. A message whose number is empty does not count: there the sweep made the setting of the number fail
  boxes     a box appears only if something has failed
  log       as it arrives. A line that is empty, or is nothing but the mark, does not count: there the setting of the text failed.
            A line is kept as its format, with the library's own codes (-1 to -199) that were seen in it

The world of a test may answer what no Windows answers, but the library does not know that: what it does then is what it
does. One processor suffices, because both libraries are of the same sources; each that runs is compared.
"""

import json
import re
from pathlib import Path

from texts.source_texts import Sources

TABLE = "tools/texts/entry_points.json"
FACTS = "facts.txt"
KINDS = ("returns", "reads", "sets", "notices", "boxes", "log")
MARKS = {"Hx Setup Log: ": False, "JN Setup Log: ": True}
# The key of a line that has no format: a wide text.
WIDE_LINE = "JN Setup Log: "
UNITS = {"A": "bytes", "W": "characters"}
OWN_CODE = re.compile(r"-1?\d{1,2}")
LOG_TEXT_LENGTH = 255

CONVERSION = re.compile(r"%[-+ #0-9.]*[a-z]*[A-Za-z](?:\{\w*\})?")
NUMBERS = {"d": r"(-?\d+)", "o": r"([0-7]+)", "X": r"([0-9A-F]+)"}

# The modules whose texts never are lines of the log.
SILENT = ("src/runtime/", "src/base/", "src/paths/", "src/format/", "src/files/")


def value_pattern(format_text):
    """What a format can become in a log."""
    pattern, end = "", 0
    for match in CONVERSION.finditer(format_text):
        pattern += re.escape(format_text[end:match.start()]) + NUMBERS.get(match[0][-1], "(.*)")
        end = match.end()
    return re.compile(pattern + re.escape(format_text[end:]), re.DOTALL)


class Formats:
    """The texts of the sources that can be lines of the log."""

    def __init__(self, sources):
        self.patterns = {text.value: value_pattern(text.value) for text in sources.texts
                         if not text.file.startswith(SILENT) and text.value not in MARKS}

    def of(self, line):
        """(format, values) of a line's text: of those that fit, the one with the fewest characters put in. None if none
        fits."""
        found = []
        for format_text, pattern in self.patterns.items():
            match = pattern.fullmatch(line)
            if match:
                found.append((sum(len(value) for value in match.groups()), format_text, match.groups()))
            elif len(line.encode()) >= LOG_TEXT_LENGTH and len(start := CONVERSION.split(format_text)[0]) > 8 and (
                    line.startswith(start)):
                found.append((len(line) - len(start), format_text, ()))
        return min(found)[1:] if found else None


def unescaped(text):
    return re.sub(r"\\(.)", lambda match: {"t": "\t", "n": "\n"}.get(match[1], match[1]), text)


def read_facts(folders, formats):
    """({entry point: {kind: facts}}, findings) of the files of facts in these folders."""
    seen, wrong = {}, []
    for folder in folders:
        file = Path(folder) / FACTS
        if not file.is_file():
            wrong.append(f"{file} is not there: run ./hx test actions")
            continue
        for line in file.read_text(encoding="utf-8").split("\n"):
            # The last line of a program that broke off may be cut.
            if line.count("\t") == 2:
                add_fact(seen, wrong, formats, *line.split("\t"))
    return {name: finished(facts) for name, facts in seen.items()}, sorted(set(wrong))


def add_fact(seen, wrong, formats, name, kind, text):
    facts = seen.setdefault(name, {"returns": set(), "reads": {}, "sets": set(), "notices": set(), "boxes": set(), "log": {}})
    text = unescaped(text)
    if kind == "returns":
        facts["returns"].add(int(text))
    elif kind == "reads":
        words = text.split(" ")
        size = f"{words[1][:-1]} {UNITS[words[1][-1]]}" if len(words) == 2 else ""
        facts["reads"].setdefault(words[0], set()).add(size)
    elif kind == "sets":
        facts["sets"].add(text)
    elif kind == "notice" and text:
        facts["notices"].add(int(text) if text.isdigit() else text)
    elif kind == "box":
        facts["boxes"].add(text)
    elif kind == "log":
        add_line(facts["log"], wrong, formats, name, text)


def add_line(log, wrong, formats, name, text):
    mark = next((mark for mark in MARKS if text.startswith(mark)), None)
    if not text or text in MARKS and not MARKS[text]:
        return
    if mark is None:
        wrong.append(f"{name}: the line '{text}' has no mark")
    elif MARKS[mark]:
        log.setdefault(WIDE_LINE, set())
    elif found := formats.of(text[len(mark):]):
        format_text, values = found
        log.setdefault(format_text, set()).update(int(value) for value in values if OWN_CODE.fullmatch(value))
    else:
        wrong.append(f"{name}: the line '{text}' has no format in src/")


def finished(facts):
    """The facts of an entry point as the table has them: sorted lists; a property with the size of its buffer, or ""."""
    return {"returns": sorted(facts["returns"]),
            "reads": {name: ", ".join(sorted(sizes - {""})) if sizes != {""} else ""
                      for name, sizes in sorted(facts["reads"].items())},
            "sets": sorted(facts["sets"]), "notices": sorted(facts["notices"], key=str), "boxes": sorted(facts["boxes"]),
            "log": {line: sorted(codes, reverse=True) for line, codes in sorted(facts["log"].items())}}


def number_of(name):
    return int(re.sub(r"\D", "", name))


def read_table(root):
    return json.loads((root / TABLE).read_text(encoding="utf-8"))


def write_table(root, seen):
    """Writes what was seen as the table: sorted, an entry point after the other, so that a change shows as few lines."""
    table = {name: seen[name] for name in sorted(seen, key=number_of)}
    entries = []
    for name, facts in table.items():
        lines = [f'  "{kind}": {in_lines(facts[kind])}' for kind in KINDS]
        entries.append(f' "{name}": {{\n' + ",\n".join(lines) + "\n }")
    (root / TABLE).write_text("{\n" + ",\n".join(entries) + "\n}\n", encoding="utf-8")


def in_lines(facts):
    """The facts of a kind as JSON: numbers and names in one line, texts in a line each."""
    if not facts or not any(isinstance(fact, str) and " " in fact for fact in facts):
        return json.dumps(facts, ensure_ascii=False)
    if isinstance(facts, dict):
        lines = [f"   {json.dumps(key, ensure_ascii=False)}: {json.dumps(value)}" for key, value in facts.items()]
        return "{\n" + ",\n".join(lines) + "\n  }"
    return "[\n" + ",\n".join(f"   {json.dumps(fact, ensure_ascii=False)}" for fact in facts) + "\n  ]"


def flat(facts):
    """(kind, fact) of each fact of an entry point."""
    for kind in KINDS:
        for fact in facts.get(kind, ()):
            if kind == "reads":
                size = facts[kind][fact]
                yield kind, f"{fact} ({size})" if size else fact
            elif kind == "log":
                yield kind, fact
                yield from ((kind, f"{fact} with {code}") for code in facts[kind][fact])
            else:
                yield kind, str(fact)


def differences(table, seen, whole):
    """What a run saw and the table does not have; after a whole run also what the table has and the run did not see."""
    for name in sorted(table.keys() | seen.keys(), key=number_of):
        had, has = set(flat(table.get(name, {}))), set(flat(seen.get(name, {})))
        yield from (f"{name}: {kind}: '{fact}' was seen, and is not in {TABLE}" for kind, fact in sorted(has - had))
        if whole:
            yield from (f"{name}: {kind}: '{fact}' is in {TABLE}, and no test saw it" for kind, fact in sorted(had - has))


def formats_of(root):
    return Formats(Sources(root))
