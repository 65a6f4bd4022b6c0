#!/usr/bin/env python3
"""Checks that docs/troubleshooting.md has all that the library says, and nothing else.

    tools/texts/check-texts.py [--project ROOT] [FOLDER...]

Each FOLDER holds a built hxsetup.dll. The page is compared with the sources and with the texts in these
libraries: the lines of the log and the actions that write them, the notices with the texts of their message
boxes and of the packages' Error table, the return codes of the actions, and every code that a header names. A
text of the sources is a line of the log unless OTHER_TEXTS below says what else it is. Prints what is wrong,
and last "N passed, N failed"; the exit code is 1 when something is.
"""

import argparse
import html
import re
import sys
from pathlib import Path
from typing import NamedTuple

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from images.image_facts import Image
from kit.texts import DEFINE, default_texts, replace_variables
from texts.page_links import anchors_of, links_of
from texts.source_texts import Sources, strings_in

PAGE = "docs/troubleshooting.md"

# The layers below the log: their texts are patterns, names and marks of the format engine and the file operations, and
# their numbers, but for those of base, are measures.
SILENT_LAYERS = ("src/runtime/", "src/base/", "src/paths/", "src/format/", "src/files/")
LAYERS_WITHOUT_CODES = ("src/runtime/", "src/format/", "src/base/calendar")

# What is always in what a user sees, besides the line itself.
FIXED_TEXTS = {
    "Hx Setup Log: [1]": "Hx Setup Log: ",
    "JN Setup Log: [1]": "JN Setup Log: ",
    "Halvorstead Vantor Platform Component": "Halvorstead Vantor Platform Component",
}

# The texts of the upper floors that nobody reads in a log, by what they are. A single line of a group is one text.
OTHER_TEXTS = {
    "properties, which the log of the engine itself shows": r"""
        (PROP|DIR)_[A-Z0-9_]+
        CustomActionData|ProductCode|ProductName|REBOOT|VersionNT64""",
    "values of properties, and the text for one that is not set": r"""
        -1|1|yes|Force|vantor|VANTOR
        tcp|udp|all""",
    "registry keys and values": r"""
        (SOFTWARE|Software|SYSTEM|System)\\[\w\\% ]+
        AppInit_DLLs|LoadAppInit_DLLs|DisplayVersion|vtdf
        default|64-bit|32-bit""",
    "the agent's settings": r"""
        registry|options|logon|host|site|assetID|assetLocation|assetOwner
        ostrel\.ini
        %s\\%s""",
    "modules of Windows": r"""
        ACTIVEDS|ADVAPI32|KERNEL32|NETAPI32|NTDSAPI|OLE32|SETUPAPI|SHFOLDER|SHLWAPI\.DLL|WTSAPI32""",
    "functions of Windows": r"""
        ADsGetObject|Ds(GetSpn|Bind|WriteAccountSpn|UnBind|FreeSpnArray)W
        CoInitializeEx|GetSystemWindowsDirectoryW|InstallHinfSectionA|IsWow64Process|QueryFullProcessImageNameW
        CreateWellKnownSid|LookupAccountNameW|SetEntriesInAclW|SetNamedSecurityInfoW
        NetApiBufferFree|NetGetDCName|NetUser(Add|Del|GetInfo)|NetWkstaGetInfo
        SHDeleteKey|SHGetFolderPath[AW]|WTSEnumerate(Processes|Sessions)W|WTSFreeMemory|WTSQuerySessionInformationW""",
    "accounts, and rights of accounts": r"""
        SYSTEM|LocalSystem|LocalService|Builtin\\Users|user|\.
        SeDebugPrivilege|SeServiceLogonRight""",
    "services and windows": r"""
        Ostrel|Vantor|Schedule
        Audra(Class)?|Lendo(32)?|Warden(32)?|PVMain|Provo|Tollgate(32)?""",
    "the tasks' fields": r"""
        Ostrel\ (User\ Agent|Auto-update)\ Task|Quillfern|Halvorstead\ Client\ Installer
        LogonTrigger|UpdateTrigger|2016-01-01T0[02]:[03]0:00|PT0S|PT1H|PT5M|P1DT0S
        -X\ "|"|-auditmode""",
    "files and folders": r"""
        osua\.exe|osau\.exe|osau\.xml|ostrel32\.exe|vt\.exe|OSTRACK\.DLL|OSTRK64\.DLL
        dbcon_(completed|cancelled|failed|nospace)\.txt
        \\Ostrel\ Audit|C:\\Windows\\Installer\\|Program\ Files|\ \(x86\)
        Local\ Settings\0Application\ Data\0portable\.dir\0portable\.pky\0
        Ostrel\0portable\.dir\0|%08lX\.pky|\ %d\{z::\#F\}|\\
        pref|sprf""",
    "what accounts, passwords, rules and directory paths are made of": r"""
        WinNT://|@%s,-%d|%ls
        ABCDEFGHIJKLMNOPQRSTUVabcdefghijklmnopqrstuv0123456789!=\$-\+\.,~\^_
        1{22}2{22}4{10}8{10}""",
    "no text": "",
}

# The groups with the names that the library fixes, and the texts in them that are not names of anything outside of it.
NAME_GROUPS = ("registry keys and values", "the agent's settings", "services and windows", "the tasks' fields",
               "files and folders")
NOT_NAMES = re.compile(r"""default|64-bit|32-bit|%s\\%s|-X\ "|"|LogonTrigger|UpdateTrigger|2016-.*|P[1T].*
    |\ \(x86\)|Program\ Files|\ %d\{z::\#F\}|\\|pref|sprf""", re.VERBOSE)

# The page, and the heading on it, with the table of these names.
NAMES_PAGE = "docs/authoring.md"
NAMES_HEADING = "By the library"

# Negative numbers that are no failures.
OTHER_CODES = {
    "kAtLogon": "an interval",
    "kAccessInherit": "a flag",
    "kFamily9x": "a flag",
    "kNoAccount": "a kind of account",
}

# The tables of codes on the page, each under its own heading: the files, and the enumerations in them or "".
CODE_TABLES = {
    "Registering a task": [("src/client/task_registration.h", "TaskStep")],
    "Reaching a task": [("src/client/task_folder.h", "TaskAccessStep")],
    "Access to a file or folder": [("src/security/access_list.h", "")],
    "Accounts and the directory": [("src/security/network_management.h", ""), ("src/security/directory.h", ""),
                                   ("src/security/directory.cpp", "")],
    "The firewall's answers": [("src/security/firewall.h", ""), ("src/security/firewall_exceptions.cpp", "")],
    "The copy/move engine": [("src/files/tree_copy.h", "")],
    "Files and folders": [("src/base/status.h", "")],
}

# Their second argument is what goes to the log.
LOG_FUNCTIONS = ("LogSetupMessage", "LogSetupTextW")

RETURN_CODES = {"ERROR_INSTALL_FAILURE": 1603, "ERROR_INSTALL_USEREXIT": 1602}
OTHER_RETURN_CODE = re.compile(r"ERROR_INSTALL_\w+")

# What the page writes in the place of what the format engine puts in.
CONVERSIONS = {
    "%ld": r"(?:N|PID|SESSION|LENGTH)",
    "%08lX": r"HEX",
    "%03lo": r"MODE",
    "%ls": r"(?:ACCOUNT|DATA|DN|DOMAIN|NAME|TEXT|USER)",
    "%s": r"(?:ACCOUNT|COMMAND|VERSION|VIEW)",
    "%p{O}": r"PATH",
}
CONVERSION = re.compile(r"%[-+ #0-9.]*[a-z]*[A-Za-z](?:\{\w*\})?")

# A text of a library that is looked at: it has two words, and a terminator.
SENTENCE = re.compile(r"[A-Za-z]{2}\S* +\S*[A-Za-z]{2}")
SHORTEST_TEXT = 8
LINKER_TEXTS = {"LLD PDB."}


class Row(NamedTuple):
    """A row of a table: its cells by the column's title, and its line number."""

    heading: str
    cells: dict
    number: int

    def code_text(self, column):
        """The text of a cell that is only code; None for any other cell."""
        match = re.fullmatch(r"`([^`]+)`", self.cells[column])
        return match.group(1) if match else None


class Page:
    """The page's tables, by the title of their first column, and its blocks of text, by the heading above them."""

    def __init__(self, text):
        self.text = text
        self.tables = {}
        self.blocks = {}
        heading, titles, block = "", None, None
        for number, line in enumerate(text.splitlines(), 1):
            if line.startswith("```"):
                if block is None:
                    block = []
                else:
                    self.blocks.setdefault(heading, []).append("\n".join(block))
                    block = None
            elif block is not None:
                block.append(line)
            elif line.startswith("#"):
                heading, titles = line.lstrip("#").strip(), None
            elif line.startswith("|"):
                cells = [cell.strip() for cell in line.strip("|").split("|")]
                if titles is None:
                    titles = cells
                elif not re.fullmatch(r"[-| ]+", line):
                    row = Row(heading, dict(zip(titles, cells)), number)
                    self.tables.setdefault(titles[0], []).append(row)
            else:
                titles = None


def pattern_of(format_text):
    """What the page may write for a format; None when it has a conversion that the page knows no word for."""
    pattern, end = "", 0
    for match in CONVERSION.finditer(format_text):
        if match.group() not in CONVERSIONS:
            return None
        pattern += re.escape(format_text[end:match.start()]) + CONVERSIONS[match.group()]
        end = match.end()
    return re.compile(pattern + re.escape(format_text[end:]))


def actions_in(cell):
    """The entry points of a cell such as "5, 19"; empty for anything else."""
    return {f"CustomAction{number}" for number in cell.split(", ")} if re.fullmatch(r"\d+(, \d+)*", cell) else set()


def in_words(actions):
    return ", ".join(sorted((name.removeprefix("CustomAction") for name in actions), key=int)) or "nobody"


def authoring(root, pattern):
    """The text of each file of packages/, with the compiler's variables as the fragments and the default language define
    them."""
    defines = default_texts(root)
    for path in sorted((root / "packages").glob("*.wxi")):
        defines |= DEFINE.findall(path.read_text(encoding="utf-8"))
    for path in sorted((root / "packages").rglob(pattern)):
        yield replace_variables(path.read_text(encoding="utf-8"), defines)


def error_texts(root):
    """{number: text} of the Error table that the packages' fragments fill."""
    errors = {}
    for content in authoring(root, "*.wxi"):
        for number, text in re.findall(r'<Error Id="(\d+)">([^<]*)</Error>', content):
            errors[int(number)] = html.unescape(text).strip()
    return errors


def refusals(root):
    """The texts with which a package refuses an installation, in the order of their files."""
    texts = []
    for content in authoring(root, "*.wx[is]"):
        for text in re.findall(r'\b(?:Error|Message|DowngradeErrorMessage)="([^"]*)"', content):
            texts.append(" ".join(html.unescape(text).split()))
    return texts


def notices_of(sources):
    """{number: (text of the box, declaration)} of the notices."""
    notices = {}
    for declaration in sources.declarations:
        texts = [token.text for token in declaration.tokens]
        if texts[:3] == ["constexpr", "Notice", declaration.name]:
            number = int(texts[texts.index("{") + 1])
            notices[number] = (next(t.value for t in sources.texts if t.owner is declaration), declaration)
    return notices


# The heading above the texts of the packages' own refusals.
REFUSALS = "Texts with which a package refuses"


class Check:
    """The page against the sources and the libraries; each check returns what it found wrong."""

    def __init__(self, root, images, other_texts=None):
        self.root = root
        self.images = images
        self.sources = Sources(root)
        self.page = Page((root / PAGE).read_text(encoding="utf-8"))
        groups = OTHER_TEXTS if other_texts is None else other_texts
        self.other = {reason: re.compile("|".join(line.strip() for line in group.strip().splitlines()), re.VERBOSE)
                      for reason, group in groups.items()}
        self.notices = notices_of(self.sources)
        self.box_owners = {declaration for _, declaration in self.notices.values()}
        self.lines = {}  # each line's format: the texts in the sources
        for text in self.sources.texts:
            if (not text.file.startswith(SILENT_LAYERS) and text.owner not in self.box_owners
                    and text.value not in FIXED_TEXTS and not self.is_other(text.value)):
                self.lines.setdefault(text.value, []).append(text)

    def is_other(self, value):
        return any(pattern.fullmatch(value) for pattern in self.other.values())

    def check_classification(self):
        """Each text that goes to the log unchanged counts as a line, and each group has a text."""
        calls = [call for function in LOG_FUNCTIONS for call in self.sources.arguments(function, 1)]
        for declaration, argument in calls:
            for value, line in strings_in(argument):
                if self.is_other(value):
                    yield f"{declaration.file}:{line}: '{value}' goes to the log, and counts as something else"
        values = {t.value for t in self.sources.texts if not t.file.startswith(SILENT_LAYERS)}
        for reason, pattern in self.other.items():
            if not any(pattern.fullmatch(value) for value in values):
                yield f"'{reason}': no text of the sources is of this group"
        for text in FIXED_TEXTS:
            if text not in values:
                yield f"'{text}' is no text of the sources"

    def check_lines(self):
        """Each line is on the page, once, and each line of the page is one of the library."""
        rows = self.page.tables.get("Line", [])
        found = {}
        patterns = {}
        for line, texts in self.lines.items():
            patterns[line] = pattern_of(line)
            if patterns[line] is None:
                yield f"{texts[0].file}:{texts[0].line}: the page has no word for a conversion of '{line}'"
        for row in rows:
            written = row.code_text("Line")
            matching = [line for line, pattern in patterns.items() if written and pattern and
                        pattern.fullmatch(written)]
            if len(matching) != 1:
                yield f"{PAGE}:{row.number}: {row.cells['Line']} is no line of the library"
                continue
            if matching[0] in found:
                yield f"{PAGE}:{row.number}: {row.cells['Line']} is in line {found[matching[0]].number} already"
            found[matching[0]] = row
        for line, texts in self.lines.items():
            if line not in found:
                yield (f"{texts[0].file}:{texts[0].line}: '{line}' is not on the page "
                       "(a text that is no line of the log belongs to a group of tools/texts/check-texts.py)")
                continue
            writers = set().union(*(self.sources.entry_points_of(text.owner) for text in texts))
            if actions_in(found[line].cells.get("Actions", "")) != writers:
                yield f"{PAGE}:{found[line].number}: the line is written by {in_words(writers)}"

    def check_fixed_texts(self):
        """The marks before the lines, and the title of the boxes."""
        for shown in FIXED_TEXTS.values():
            if f"`{shown}`" not in self.page.text:
                yield f"{PAGE}: `{shown}` is missing"

    def check_notices(self):
        """Each notice: who sends it, the text of its box, and that of the packages' Error table, to the letter."""
        errors = error_texts(self.root)
        rows = {row.cells["Notice"]: row for row in self.page.tables.get("Notice", [])}
        blocks = {heading.removeprefix("Notice "): texts for heading, texts in self.page.blocks.items()
                  if heading.startswith("Notice ")}
        for number, (box, declaration) in self.notices.items():
            if number not in errors:
                yield f"packages: no fragment has a text for notice {number}"
            elif blocks.get(str(number)) != [box, errors[number]]:
                yield (f"{PAGE}: below 'Notice {number}' must stand the text of {declaration.file}:{declaration.line}, "
                       "and that of the packages' Error table")
            senders = self.sources.entry_points_of(declaration)
            row = rows.get(str(number))
            if row is None or actions_in(row.cells.get("Actions", "")) != senders:
                yield f"{PAGE}: notice {number}, sent by {in_words(senders)}, is not in the table so"
        for number in sorted((rows.keys() | blocks.keys()) - {str(number) for number in self.notices}):
            yield f"{PAGE}: there is no notice {number}"

    def check_refusals(self):
        """Each text with which a package refuses, to the letter, and no other."""
        texts, blocks = refusals(self.root), self.page.blocks.get(REFUSALS, [])
        yield from (f"{PAGE}: below '{REFUSALS}' is missing: {text}" for text in texts if text not in blocks)
        yield from (f"{PAGE}: no package says: {text}" for text in blocks if text not in texts)

    def check_names(self):
        """Each name that the library fixes is in the authors' table of them, with the actions that use it, and no
        other."""
        users = {}
        patterns = [pattern for reason, pattern in self.other.items() if reason in NAME_GROUPS]
        for text in self.sources.texts:
            if (not text.file.startswith(SILENT_LAYERS) and not NOT_NAMES.fullmatch(text.value)
                    and any(pattern.fullmatch(text.value) for pattern in patterns)):
                for name in filter(None, text.value.split("\0")):
                    users.setdefault(name, set()).update(self.sources.entry_points_of(text.owner))
        page = self.root / NAMES_PAGE
        rows = Page(page.read_text(encoding="utf-8")).tables.get("Name", []) if page.is_file() else []
        rows = [row for row in rows if row.heading == NAMES_HEADING]
        told = set()
        for row in rows:
            names = re.findall(r"`([^`]+)`", row.cells["Name"])
            yield from (f"{NAMES_PAGE}:{row.number}: '{name}' is not a name of the library" for name in names
                        if name not in users)
            told |= set(re.findall(r"`([^`]+)`", " ".join(row.cells.values())))
            written = set(re.findall(r"#customaction(\d+)\)", row.cells["Action"]))
            used = {name.removeprefix("CustomAction") for name in set().union(*(users.get(name, set()) for name in names))}
            if set(names) <= set(users) and written != used:
                yield (f"{NAMES_PAGE}:{row.number}: {row.cells['Name']} is of "
                       f"{', '.join(sorted(used, key=int)) or 'no action'}")
        yield from (f"{NAMES_PAGE}: the library's name '{name}' is not below '{NAMES_HEADING}'"
                    for name in sorted(set(users) - told))

    def check_codes(self):
        """Each code that the sources name is in its table, and the tables have no others."""
        wanted = {heading: {} for heading in CODE_TABLES}
        table_of = {place: heading for heading, places in CODE_TABLES.items() for place in places}
        for code in self.sources.codes:
            if code.file.startswith(LAYERS_WITHOUT_CODES) or code.name in OTHER_CODES:
                continue
            heading = table_of.get((code.file, code.enum))
            if heading is None:
                yield f"{code.file}:{code.line}: {code.name} is in no table of codes"
            else:
                wanted[heading].setdefault(code.value, code)
        found = {heading: {} for heading in CODE_TABLES}
        for row in self.page.tables.get("Code", []):
            written = row.cells["Code"]
            if row.heading not in found or not re.fullmatch(r"-\d+", written):
                yield f"{PAGE}:{row.number}: '{written}' is no code of '{row.heading}'"
                continue
            if int(written) in found[row.heading]:
                yield f"{PAGE}:{row.number}: {written} is in the table already"
            found[row.heading][int(written)] = row
        for heading, codes in wanted.items():
            for value in sorted(codes.keys() - found[heading].keys(), reverse=True):
                yield f"{codes[value].file}:{codes[value].line}: {value} is not in the table '{heading}'"
            for value in sorted(found[heading].keys() - codes.keys(), reverse=True):
                yield f"{PAGE}:{found[heading][value].number}: the library has no code {value} there"

    def check_return_codes(self):
        """Each action with what it can return."""
        rows = {}
        for row in self.page.tables.get("Action", []):
            name = row.code_text("Action")
            if name in rows or name not in self.sources.reach:
                yield f"{PAGE}:{row.number}: {row.cells['Action']} is not an action, or is here twice"
            else:
                rows[name] = row
        for name in self.sources.reach:
            words = self.sources.words_reached(name)
            codes = {0}
            for word in sorted(words):
                if word in RETURN_CODES:
                    codes.add(RETURN_CODES[word])
                elif OTHER_RETURN_CODE.fullmatch(word):
                    yield f"{name}: the page has no number for {word}"
            expected = ", ".join(str(code) for code in sorted(codes))
            if name not in rows:
                yield f"{PAGE}: {name} is not in the table of return codes"
            elif rows[name].cells.get("Returns") != expected:
                yield f"{PAGE}:{rows[name].number}: {name} returns {expected}"

    def check_images(self):
        """Each line and box is in each library, and no library has a text that the sources have not."""
        boxes = [box for box, _ in self.notices.values()]
        known = {part for text in self.sources.texts for part in text.value.split("\0")} | LINKER_TEXTS
        for image in self.images:
            data = b"\0".join(section_bytes(image))
            for text in [*self.lines, *boxes, *FIXED_TEXTS]:
                wide = text in FIXED_TEXTS and text.encode("utf-16-le") + b"\0\0" in data
                if text.encode() + b"\0" not in data and not wide:
                    yield f"{image.folder.name}: '{text}' is not in the library"
            for text in sorted(sentences(data)):
                # A byte of something else can be directly before a text.
                if not any(text == part or (len(part) >= SHORTEST_TEXT and text.endswith(part)) for part in known):
                    yield f"{image.folder.name}: the library has '{text}', which no source has"

    def check_links(self):
        """Each link of the page leads to a file, and to a heading in it."""
        folder = (self.root / PAGE).parent
        for name, anchor in sorted(links_of(self.page.text)):
            target = folder / name if name else self.root / PAGE
            if not target.is_file():
                yield f"{PAGE}: there is no {name}"
            elif anchor and anchor not in anchors_of(target.read_text(encoding="utf-8")):
                yield f"{PAGE}: {name} has no heading for #{anchor}"

    CHECKS = {
        "classification": check_classification,
        "lines": check_lines,
        "fixed-texts": check_fixed_texts,
        "notices": check_notices,
        "refusals": check_refusals,
        "names": check_names,
        "codes": check_codes,
        "return-codes": check_return_codes,
        "images": check_images,
        "links": check_links,
    }


def section_bytes(image):
    """What each section of constants and data holds."""
    for section in image.sections:
        if section.name in (".rdata", ".data"):
            yield image.bytes[section.raw_offset:section.raw_offset + section.size]


def sentences(data):
    """The texts of two words and more in `data`, 8-bit and wide."""
    for match in re.finditer(rb"([\t\n\x20-\x7e]{%d,})\0" % SHORTEST_TEXT, data):
        if SENTENCE.search(match.group(1).decode()):
            yield match.group(1).decode()
    for match in re.finditer(rb"((?:[\t\n\x20-\x7e]\0){%d,})\0\0" % SHORTEST_TEXT, data):
        if SENTENCE.search(match.group(1).decode("utf-16-le")):
            yield match.group(1).decode("utf-16-le")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--project", type=Path, default=Path(__file__).resolve().parents[2])
    parser.add_argument("folders", type=Path, nargs="*", metavar="FOLDER")
    arguments = parser.parse_args()

    check = Check(arguments.project, [Image(folder.resolve(), arguments.project) for folder in arguments.folders])
    passed = failed = 0
    for name, function in Check.CHECKS.items():
        findings = list(function(check))
        for finding in findings:
            print(f"FAILED {name}: {finding}")
        if findings:
            failed += 1
        else:
            print(f"ok {name}")
            passed += 1
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
