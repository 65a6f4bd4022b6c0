"""What explain.html and `./hx explain` know of the library: computed from the places where each fact is, written to
explain/knowledge.json.

  the lines, codes, notices, returns, refusals and numbers     docs/troubleshooting.md
  the formats of the lines                                     the sources, by tools/texts/check-texts.py
  what an entry point reads, sets, sends and logs              tools/texts/entry_points.json
  the job and the phase of an entry point                      docs/actions.md
  hidden properties, and which action refuses with which text  packages/
  the names of errors                                          the headers of Windows (mingw-w64)

Texts are those of the pages, with their marks for code and links. A link is relative to docs/.
"""

import html
import json
import re
from pathlib import Path

from support import load_script
from texts.entry_facts import TABLE, WIDE_LINE
from texts.page_links import anchors_of

KNOWLEDGE = "explain/knowledge.json"
PAGE = "docs/troubleshooting.md"
ACTIONS_PAGE = "docs/actions.md"
HEADERS = Path("/usr/share/mingw-w64/include")

LINES, RETURNS, SILENCE, REFUSALS = "The lines of the log", "What the actions return", "An action without a line", "Texts with which a package refuses"
UNSTARTED, ANSWERS, NUMBERS = "An action that did not run", "What msiexec answers", "Numbers of Windows"
DIRECTORY_NUMBERS = "Accounts and the directory"

# The column with the meaning and the column with the advice, by the title of a table's first column. The rows of other
# tables have their advice in the meaning.
MEANINGS = {"Line": ("Meaning", "What to do"), "Code": ("What failed", "What to do")}

REFERENCE = re.compile(r"as (-\d+)(?: \[above\]\(#([\w-]+)\))?")


class Missing(Exception):
    """A fact that the knowledge needs is not at its place; the text says which."""


def anchor_of(heading):
    return next(iter(anchors_of(f"# {heading}")))


def sections_of(text):
    """{heading: its lines} of a page, without the lines of the sections below it. Code blocks have no headings."""
    sections, lines, fenced = {}, [], False
    for line in text.splitlines():
        if line.startswith("```"):
            fenced = not fenced
        if line.startswith("#") and not fenced:
            lines = sections.setdefault(line.lstrip("#").strip(), [])
        else:
            lines.append(line)
    return sections


def items_of(lines):
    """The blocks and paragraphs of a section in their order: ("block" or "text", its text). Tables are left out."""
    items, current, block = [], [], None
    for line in [*lines, ""]:
        if line.startswith("```"):
            if block is None:
                block = []
            else:
                items.append(("block", "\n".join(block)))
                block = None
        elif block is not None:
            block.append(line)
        elif line.startswith("|"):
            continue
        elif line.strip():
            current.append(line.strip())
        elif current:
            items.append(("text", " ".join(current)))
            current = []
    return items


def introduction(lines):
    return " ".join(text for kind, text in items_of(lines) if kind == "text")


class Knowledge:
    """Computes the knowledge of a project."""

    def __init__(self, root):
        self.root = root
        self.texts = load_script("texts/check-texts.py")
        self.check = self.texts.Check(root, [])
        self.page = self.check.page
        self.sections = sections_of((root / PAGE).read_text(encoding="utf-8"))
        self.entry_points = json.loads((root / TABLE).read_text(encoding="utf-8"))

    def rows(self, title, *headings):
        return [row for row in self.page.tables.get(title, []) if not headings or row.heading in headings]

    def all(self):
        """The whole knowledge; raises Missing if a line or an action of the library has no entry."""
        return {
            "version": (self.root / "VERSION").read_text(encoding="utf-8").strip(),
            "marks": self.marks(),
            "lines": self.lines(),
            "codes": self.codes(),
            "numbers": self.numbers(),
            "names": names(),
            "notices": self.notices(),
            "refusals": self.refusals(),
            "actions": self.actions(),
            "executes": self.executes(),
            "engine": self.engine(),
            "hidden": self.hidden(),
        }

    def marks(self):
        shown = [text for text in self.texts.FIXED_TEXTS.values() if text.endswith("Setup Log: ")]
        return {"line": next(text for text in shown if text != WIDE_LINE), "path": WIDE_LINE}

    # ---- lines and codes

    def lines(self):
        found, before = [], {}
        patterns = {text: self.texts.pattern_of(text) for text in self.check.lines}
        for row in self.rows("Line"):
            written = row.code_text("Line")
            formats = [text for text, pattern in patterns.items() if pattern and written and pattern.fullmatch(written)]
            if len(formats) != 1:
                raise Missing(f"{PAGE}:{row.number}: {row.cells['Line']} is not a line of the library")
            meaning, todo = (self.whole(row, column, before) for column in MEANINGS["Line"])
            entry = {
                "format": formats[0], "shown": written, "words": self.words(formats[0], written),
                "actions": sorted((int(name.removeprefix("CustomAction"))
                                   for name in self.texts.actions_in(row.cells["Actions"]))),
                "meaning": meaning, "todo": todo, "section": row.heading, "anchor": anchor_of(row.heading),
                "codes": self.table_of(written, row),
            }
            found.append(entry)
        logged = {text for facts in self.entry_points.values() for text in facts["log"] if text != WIDE_LINE}
        known = {entry["format"] for entry in found}
        for text in sorted((logged | set(self.check.lines)) - known):
            raise Missing(f"the line '{text}' has no row in {PAGE}")
        return found

    def words(self, text, shown):
        """What the page calls each value that the format puts in, in order."""
        pattern, end = "", 0
        for match in self.texts.CONVERSION.finditer(text):
            pattern += re.escape(text[end:match.start()]) + self.texts.CONVERSIONS[match.group()].replace("(?:", "(", 1)
            if not self.texts.CONVERSIONS[match.group()].startswith("(?:"):
                pattern = pattern[:-len(self.texts.CONVERSIONS[match.group()])]
                pattern += f"({self.texts.CONVERSIONS[match.group()]})"
            end = match.end()
        return list(re.fullmatch(pattern + re.escape(text[end:]), shown).groups())

    def whole(self, row, column, before):
        """A cell's text. "as above" and "the same" are replaced by what they refer to in the row before."""
        text = row.cells[column]
        last = before.get((row.heading, column), "")
        if text.startswith("as above"):
            text = last + text.removeprefix("as above")
        elif text.startswith("the same"):
            text = last + text.removeprefix("the same")
        elif text.endswith(" as above"):
            text = text.removesuffix("as above") + last
        before[row.heading, column] = text
        return text

    def table_of(self, written, row):
        """The anchor of the table of codes that the line's number is from; "" if it is an error of Windows, or if the
        line has no such number."""
        for heading in self.texts.CODE_TABLES:
            if f"`{written}`" in introduction(self.sections.get(heading, [])):
                return anchor_of(heading)
        for heading in self.texts.CODE_TABLES:
            if f"](#{anchor_of(heading)})" in " ".join(row.cells.values()):
                return anchor_of(heading)
        return ""

    def codes(self):
        tables, before = {}, {}
        for row in self.rows("Code"):
            table = tables.setdefault(anchor_of(row.heading), {"title": row.heading, "codes": {}})
            columns = [column for column in row.cells if column != "Code"]
            what, todo = (self.whole(row, column, before) for column in columns)
            if columns[1] not in MEANINGS["Code"]:
                todo = ""
            table["codes"][row.cells["Code"]] = {"what": what, "todo": todo}
        for anchor, table in tables.items():
            for code in table["codes"].values():
                if match := REFERENCE.match(code["todo"]):
                    there = tables[match[2] or anchor]["codes"][match[1]]
                    code["todo"] = there["todo"] + code["todo"][match.end():]
        return tables

    def numbers(self):
        """The numbers of Windows that the page explains: {table: {number or pattern: text}}."""
        tables = {}
        for row in self.rows("Number", NUMBERS, DIRECTORY_NUMBERS):
            cells = [text for column, text in row.cells.items() if column != "Number"]
            text = cells[0] if len(cells) == 1 else f"{cells[0]}: {cells[1]}"
            for number in re.findall(r"0x[0-9A-Fa-f]{4}\.{4}|0x[0-9A-Fa-f]{8}|-?\d+", row.cells["Number"]):
                key = number
                if re.fullmatch(r"0x[0-9A-Fa-f]{8}", number):
                    key = str(int(number, 16) - (1 << 32))
                tables.setdefault(anchor_of(row.heading), {}).setdefault(key, text)
        return tables

    # ---- notices and refusals

    def notices(self):
        found = {}
        for row in self.rows("Notice"):
            number = row.cells["Notice"]
            items = items_of(self.sections[f"Notice {number}"])
            box, package = (text for kind, text in items if kind == "block")
            found[number] = {
                "actions": sorted(int(name.removeprefix("CustomAction"))
                                  for name in self.texts.actions_in(row.cells["Actions"])),
                "when": row.cells["When"], "follows": row.cells["What follows"], "box": box, "text": package,
                "todo": " ".join(text for kind, text in items if kind == "text"), "anchor": anchor_of(f"Notice {number}"),
            }
        return found

    def refusals(self):
        """The texts with which a package refuses a run, what the page advises, and the actions that show them."""
        actions = {}
        for content in self.texts.authoring(self.root, "*.wx[is]"):
            for element in re.findall(r"<CustomAction\b[^>]*>", content):
                name, text = (re.search(rf'\b{attribute}="([^"]*)"', element) for attribute in ("Id", "Error"))
                if name and text:
                    actions.setdefault(" ".join(html.unescape(text[1]).split()), []).append(name[1])
        items = items_of(self.sections[REFUSALS])
        found, waiting, last = [], [], ""
        for kind, text in items:
            if kind == "block":
                waiting.append({"text": text, "todo": last if last.endswith(":") else "",
                                "actions": sorted(set(actions.get(text, [])))})
                found.append(waiting[-1])
                if last and not last.endswith(":"):
                    waiting, last = [waiting[-1]], ""
            else:
                if not text.endswith(":"):
                    for entry in waiting:
                        if not entry["todo"]:
                            entry["todo"] = text
                        elif not entry["todo"].endswith(":"):
                            entry["todo"] += " " + text
                last = text
        for entry in found:
            entry["todo"] = re.sub(r"^The following texts report mistakes(.*):$", r"This is a mistake\1.", entry["todo"])
            if not entry["todo"]:
                raise Missing(f"{PAGE}: nothing says what to do after: {entry['text']}")
        return found

    # ---- actions, the engine

    def actions(self):
        jobs = {}
        for line in (self.root / ACTIONS_PAGE).read_text(encoding="utf-8").splitlines():
            if match := re.match(r"\| \[(CustomAction\d+)\]\(([^)]+)\) \| (.*) \| (.*) \|$", line):
                jobs[match[1]] = (match[2], match[3], match[4])
        found, last = {}, ""
        for row in self.rows("Action"):
            name = row.code_text("Action")
            if name not in self.entry_points or name not in jobs:
                raise Missing(f"{name} is not in {TABLE} and {ACTIONS_PAGE}")
            facts, (link, job, phase) = self.entry_points[name], jobs[name]
            note = [text for column, text in row.cells.items() if column not in ("Action", "Returns")][0]
            if note.endswith(": as above"):
                note = note.removesuffix("as above") + last.partition(": ")[2]
            last = note
            found[name] = {"returns": [int(code) for code in row.cells["Returns"].split(", ")], "note": note, "job": job,
                           "phase": phase, "link": link, "reads": sorted(facts["reads"]), "sets": facts["sets"],
                           "notices": facts["notices"], "logs": bool(facts["log"])}
        for name in self.entry_points.keys() - found.keys():
            raise Missing(f"{name} has no row in {PAGE}, below '{RETURNS}'")
        for row in self.rows("Without a line", SILENCE):
            name, before = row.code_text("Without a line"), {}
            if name not in found:
                raise Missing(f"{PAGE}:{row.number}: {name} is not an action of the library")
            found[name]["silent"] = {"why": self.whole(row, "Why", before), "todo": self.whole(row, "What to do", before),
                                     "anchor": anchor_of(SILENCE)}
        for name, facts in found.items():
            if facts["logs"] and "silent" not in facts:
                raise Missing(f"{name} writes lines, and has no row in {PAGE}, below '{SILENCE}'")
        return found

    def engine(self):
        """The errors of the engine and the exit codes of msiexec: {number: what it means, what to do}."""
        found, before = {}, {}
        # The list of causes to which the row of the library leads.
        causes = [match[1].replace("**", "") for line in self.sections[UNSTARTED]
                  if (match := re.match(r"\d+\. (\*\*.*?)(?:[:.] |[:.]$|$)", line))]
        if not causes:
            raise Missing(f"{PAGE}: below '{UNSTARTED}' is no list of causes")
        for row in self.rows("In the log", UNSTARTED):
            if re.fullmatch(r"`\d+`", row.cells["In the log"]):
                todo = f"Of the packages here: {self.whole(row, 'Of the packages here', before)}"
                if todo.endswith(": see below"):
                    todo = f"{todo.removesuffix(': see below')}. Possible causes: {'; '.join(causes)}"
                found[row.cells["In the log"].strip("`")] = {"means": row.cells["Means"], "todo": todo,
                                                             "anchor": anchor_of(UNSTARTED)}
        for row in self.rows("Number", ANSWERS):
            found[row.cells["Number"]] = {"means": row.cells["Means"], "todo": row.cells["What to do"],
                                          "anchor": anchor_of(ANSWERS)}
        return found

    def executes(self):
        """{action of the packages that is not immediate: in which script it runs}."""
        found = {}
        for content in self.texts.authoring(self.root, "*.wx[is]"):
            for element in re.findall(r"<CustomAction\b[^>]*>", content):
                name, value = (re.search(rf'\b{each}="([^"]*)"', element) for each in ("Id", "Execute"))
                if name and value and value[1] in ("deferred", "rollback", "commit"):
                    found[name[1]] = value[1]
        return dict(sorted(found.items()))

    def hidden(self):
        """The properties that the packages hide, because they can have a secret value."""
        found = set()
        for content in self.texts.authoring(self.root, "*.wx[is]"):
            for element in re.findall(r"<Property\b[^>]*>", content):
                if 'Hidden="yes"' in element:
                    found.add(re.search(r'\bId="([^"]*)"', element)[1])
        if not found:
            raise Missing("no package hides a property")
        return sorted(found)


# The errors that have a name: those of Windows, of the network's accounts, and the HRESULTs of these families.
LAST_ERROR = 1999
FAMILIES = ("E_", "CO_E_", "CLASS_E_", "REGDB_E_", "DISP_E_", "RPC_E_", "SCHED_E_", "E_ADS_")
WIN32 = re.compile(r"^#define (ERROR_\w+|RPC_S_\w+|EPT_S_\w+) __MSABI_LONG\((\d+)\)", re.MULTILINE)
HRESULT = re.compile(r"^#define (\w+) (?:_HRESULT_TYPEDEF_|_NDIS_ERROR_TYPEDEF_)\(0x([89A-Fa-f][0-9A-Fa-f]{7})L?\)", re.MULTILINE)
ACCOUNTS = re.compile(r"^#define (NERR_\w+) \(NERR_BASE ?\+ ?(\d+)\)", re.MULTILINE)
NERR_BASE = 2100


def names():
    """{number: the name of the error of Windows or HRESULT}. The first name of a number counts."""
    found = {}
    winerror = (HEADERS / "winerror.h").read_text(encoding="utf-8", errors="replace")
    for name, number in WIN32.findall(winerror):
        if 0 < int(number) <= LAST_ERROR:
            found.setdefault(number, name)
    for name, number in ACCOUNTS.findall((HEADERS / "lmerr.h").read_text(encoding="utf-8", errors="replace")):
        found.setdefault(str(NERR_BASE + int(number)), name)
    for header in ("winerror.h", "adserr.h"):
        text = winerror if header == "winerror.h" else (HEADERS / header).read_text(encoding="utf-8", errors="replace")
        for name, number in HRESULT.findall(text):
            if name.startswith(FAMILIES):
                found.setdefault(str(int(number, 16) - (1 << 32)), name)
    if found.get("5") != "ERROR_ACCESS_DENIED" or "-2147024891" not in found:
        raise Missing(f"the headers of Windows in {HEADERS} have no names of errors")
    return dict(sorted(found.items(), key=lambda item: int(item[0])))


def text_of(knowledge):
    """The knowledge as the file has it: an entry in a line, so that a change shows as few lines."""
    parts = []
    for key, value in knowledge.items():
        if isinstance(value, list) and value and not isinstance(value[0], str):
            rows = ",\n".join(f"  {json.dumps(entry, ensure_ascii=False)}" for entry in value)
            parts.append(f' "{key}": [\n{rows}\n ]')
        elif isinstance(value, dict) and key != "names" and any(isinstance(entry, dict) for entry in value.values()):
            rows = ",\n".join(f"  {json.dumps(name)}: {json.dumps(entry, ensure_ascii=False)}" for name, entry in value.items())
            parts.append(f' "{key}": {{\n{rows}\n }}')
        else:
            parts.append(f' "{key}": {json.dumps(value, ensure_ascii=False)}')
    return "{\n" + ",\n".join(parts) + "\n}\n"
