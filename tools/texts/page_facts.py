"""Compares the facts that the pages state with the places where they are true. For check-facts.py.

  sections    each section of an entry point in docs/actions/: its rows Phase, Reads, Writes, Log, Returns and Notice
              against entry_points.json, which the tests of the actions level fill, and against the fragments
  index       the tables of docs/actions.md against the same
  spans       each code span of any page is a name or text of the project, a line of its log, a file, or in other_spans.txt
  codes       the tables of codes of any page: which codes, and which words belong to each (stated_facts.py)
  options     the tables of the engine's letters, and command lines of the engine, against src/files/tree_copy.cpp
  windows     the tables of windows that are closed, against src/client/closing_tools.cpp
  numbers     numbers of places in a sequence against the fragments and models, and numbers of notices
  known       each number from 31 on in the sentences of any page: what no check explains is listed in stated_facts.py
  measures    each time limit and size in the prose of any page, against the constants (stated_facts.py)
  statements  sentences with a fact of the sources in them (stated_facts.py)

Each check yields lines "PAGE: what is wrong".
"""

import functools
import html
import re

from kit.kit_checks import LATER, kind_of, read_kit
from kit.package_runs import STANDARD
from lint.entry_points import SECTIONS
from texts import stated_facts
from texts.entry_facts import CONVERSION, OWN_CODE, TABLE, WIDE_LINE, Formats, read_table
from texts.source_texts import Sources, is_string, value_of

INDEX = "docs/actions.md"
TROUBLESHOOTING = "docs/troubleshooting.md"
SPANS = "tools/texts/other_spans.txt"
# The pages that say nothing about the library in use: what they measure is of their own.
UNMEASURED = {"docs/benchmarks.md", "docs/demonstration.md", "docs/release.md", "docs/testing.md", "README.md"}

# The page of each module's entry points.
MODULE_PAGES = {"frame": "installer", "client": "client", "security": "security", "server": "server"}
PROPERTY = re.compile(r"(PROP|DIR)_[A-Z0-9_]+|REBOOT|ProductName|ProductCode|CustomActionData|VersionNT64")
# What a deferred action can read.
DEFERRED = {"CustomActionData", "ProductCode", "UserSID"}
NOTICE_PROPERTIES = {"PROP_SILENCE", "ProductName"}
PHASES = re.compile(r"immediate|deferred|rollback")
SPAN = re.compile(r"`([^`\n]+)`")
NUMBERS = {**STANDARD, "FindRelatedProducts": 25}

# What a page writes in the place of a conversion of the format engine: a word in capitals, or an example.
SHOWN = {"d": r"(?:N|P|S|L|PID|SESSION|LENGTH|-?\d+)", "o": r"(?:MODE|[0-7]{3})", "X": r"(?:N|H|HEX|[0-9A-F]{8})"}


def plain(text):
    """A page without its blocks of code and generated parts, which have checks of their own. Lines stay in their places."""
    return re.sub(r"(?ms)^[ \t]*```.*?^[ \t]*```$", lambda match: "\n" * match[0].count("\n"), text)


def flat(text):
    return re.sub(r"\s+", " ", plain(text))


def shown_pattern(format_text):
    pattern, end = "", 0
    for match in CONVERSION.finditer(format_text):
        pattern += re.escape(format_text[end:match.start()]) + SHOWN.get(match[0][-1], ".*")
        end = match.end()
    return re.compile(pattern + re.escape(format_text[end:]))


def cells_of(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


def tables_of(text):
    """(heading, titles, [(line number, cells)]) of each table of a page."""
    heading, table = "", None
    for number, line in enumerate(plain(text).splitlines(), 1):
        if line.startswith("#"):
            heading = line.lstrip("#").strip()
        if not line.lstrip().startswith("|"):
            if table:
                yield table
            table = None
        elif table is None:
            table = (heading, cells_of(line), [])
        elif not re.fullmatch(r"[-| ]+", line):
            table[2].append((number, cells_of(line)))
    if table:
        yield table


def constants_of(root):
    """{name: set of its values} of the constants and enumerators in src/ that are numbers."""
    found = {}
    for path in sorted((root / "src").rglob("*")):
        if path.suffix in (".h", ".cpp"):
            text = path.read_text(encoding="utf-8")
            for name, value in re.findall(r"\b(k[A-Z]\w*) = (?:WM_USER \+ )?(-?(?:0x[0-9A-Fa-f]+|\d+))(?=[;,\s}])", text):
                base = 1024 if f"{name} = WM_USER + " in text else 0
                found.setdefault(name, set()).add(base + int(value, 0))
    return found


def modules_of(root):
    """{entry point: its module in src/}."""
    found = {}
    for path in sorted((root / "src").glob("*/*.cpp")):
        text = path.read_text(encoding="utf-8")
        for name in re.findall(r'^(?:extern "C" )?UINT WINAPI (CustomAction\d+)\(', text, re.MULTILINE):
            found[name] = path.parent.name
    return found


def spans_listed(root):
    file = root / SPANS
    return [line for line in file.read_text(encoding="utf-8").splitlines() if line and not line.startswith("# ")]


# What could be a line of the log: words with blanks between them.
WORDS = re.compile(r"[A-Za-z]+(?: [A-Za-z()]+)+[^\\.]*")


@functools.lru_cache(maxsize=2)
def project_text(root):
    """The texts of the project's files except the pages, those without the tests' files, and the names of all files."""
    parts, sources, names = [], [], set()
    folders = ("src", "packages", "tests", "tools", "cmake", "bench", "hxrun", "fuzz", "docs", "explain", ".ci")
    files = [file for folder in folders for file in sorted((root / folder).rglob("*"))] + sorted(root.glob("*"))
    for file in files:
        if not file.is_file() or "__pycache__" in file.parts:
            continue
        name = file.relative_to(root).as_posix()
        names.update(name[match.start():] for match in re.finditer(r"(?:^|(?<=/))", name))
        # What lists or falsifies texts of the pages, or is made of them, is no source of them.
        if file.suffix in (".md", ".html") or name.startswith("explain/") or name in (SPANS, "tools/texts/test_falsified.py", "tools/texts/stated_facts.py"):
            continue
        try:
            parts.append(file.read_text(encoding="utf-8"))
        except UnicodeDecodeError:
            continue
        if not name.startswith(("tests/actions/", "tests/unit/")):
            sources.append(parts[-1])

    def plain_forms(text):
        return text + text.replace("\\\\", "\\").replace('\\"', '"') + html.unescape(text)
    return plain_forms("\n".join(parts)), plain_forms("\n".join(sources)), names


class Project:
    """All that the checks read but the pages, once."""

    def __init__(self, root):
        self.root = root
        self.kit = read_kit(root)
        self.table = read_table(root)
        self.sources = Sources(root)
        self.formats = {format_text: shown_pattern(format_text) for format_text in Formats(self.sources).patterns}
        self.constants = constants_of(root)
        self.modules = modules_of(root)
        self.notices = {str(number) for facts in self.table.values() for number in facts["notices"]}
        # {name of an action: numbers of its places}, those of the engine's own actions too.
        self.places = {name: {number} for name, number in NUMBERS.items()}
        files = [*self.kit.fragments.values(), *(file for model in self.kit.packages for file in model.files)]
        for file in files:
            for row in file.rows:
                self.places.setdefault(row.action, set()).add(row.number)
        self.known_spans = {}
        self.kinds = {}  # {entry point: how the fragments run it}
        for fragment in self.kit.fragments.values():
            for action in fragment.actions.values():
                if action.get("BinaryKey") == "hxsetup":
                    self.kinds.setdefault(action["DllEntry"], set()).add(kind_of(action))

    def places_of(self, name):
        """The places of an action, or of all actions that call an entry point: "CustomAction25" is "CustomAction25.Data" too."""
        return {place for full, some in self.places.items() if full == name or full.startswith(name + ".") for place in some}

    def is_known(self, span):
        """Whether a code span is a text of the project, a line of the log, or a file."""
        if span not in self.known_spans:
            text, sources, names = project_text(self.root)
            # A test that still quotes an old line of the log does not make that line right.
            line = span.removeprefix("Hx Setup Log: ")
            text = sources if WORDS.fullmatch(line) else text
            self.known_spans[span] = line in text or span.rstrip("/") in names or any(
                len(CONVERSION.sub("", form)) > 8 and pattern.fullmatch(span) for form, pattern in self.formats.items())
        return self.known_spans[span]

    def value(self, name):
        values = self.constants.get(name, set())
        if len(values) != 1:
            raise KeyError(f"src/ has {len(values) or 'no'} values of {name}")
        return next(iter(values))

    def rendered(self, template):
        """A text with "{expression}" replaced by its value; names in it are constants of src/."""
        def value(match):
            names = {name: self.value(name) for name in re.findall(r"\bk[A-Z]\w*", match[1])}
            result = eval(match[1], {"__builtins__": {}}, {**names, **stated_facts.FUNCTIONS})
            return result if isinstance(result, str) else f"{result:g}" if isinstance(result, float) else str(result)
        return re.sub(r"\{([^{}]+)\}", value, template)


def read_pages(root):
    """{name: text} of the pages."""
    pages = [root / "README.md", *sorted((root / "docs").rglob("*.md"))]
    return {page.relative_to(root).as_posix(): page.read_text(encoding="utf-8") for page in pages if page.is_file()}


# ---- sections of the entry points

def sections_of(pages):
    """(entry point, page, text) of each section of an entry point."""
    for page, text in pages.items():
        if page.startswith(SECTIONS + "/"):
            for part in re.split(r"(?m)^(?=## )", text)[1:]:
                if match := re.match(r"## (CustomAction\d+)\n", part):
                    yield match[1], page, part


def rows_of_section(part):
    """{title: text} of the section's table of facts."""
    return dict(re.findall(r"(?m)^\| (Phase|Reads|Writes|Log|Returns|Notice) \| (.*) \|$", plain(part)))


def lines_of_section(part, row):
    """What a section quotes as lines of the log: in its row Log, and in the first column of its tables of lines."""
    quoted = SPAN.findall(row)
    for _, titles, rows in tables_of(part):
        if titles[0] in ("Line", "Log line", "Line in the log"):
            quoted += [span for _, cells in rows for span in SPAN.findall(cells[0])]
    return quoted


def in_order(values):
    return ", ".join(str(value) for value in sorted(values, key=str)) or "nothing"


def check_sections(project, pages):
    sections = {name: (page, part) for name, page, part in sections_of(pages)}
    for name in project.table:
        if name not in sections:
            yield f"{INDEX}: {name} has no section in {SECTIONS}/"
    for name, (page, part) in sections.items():
        facts = project.table.get(name)
        if facts is None:
            yield f"{page}: {name} is not in {TABLE}: no test runs it"
            continue
        if page != f"{SECTIONS}/{MODULE_PAGES.get(project.modules.get(name))}.md":
            yield f"{page}: {name} is of the module {project.modules.get(name)}, which has another page"
        for finding in section_findings(project, name, part, sections):
            yield f"{page}: {name}: {finding}"


def section_findings(project, name, part, sections):
    facts, rows = project.table[name], rows_of_section(part)
    for title in ("Phase", "Reads", "Writes", "Log", "Returns"):
        if title not in rows:
            yield f"its table has no row {title}"
            return
    returned = {int(number) for number in re.findall(r"\b\d+\b", rows["Returns"])}
    if returned != set(facts["returns"]):
        yield f"Returns says {in_order(returned)}, and the tests saw {in_order(facts['returns'])}"
    read = dict(re.findall(r"`(\w+)`(?: \((\d+ (?:bytes|characters))\))?", rows["Reads"]))
    read = {name: size for name, size in read.items() if PROPERTY.fullmatch(name)}
    yield from differing("Reads", read.items(), facts["reads"].items(),
                         lambda fact: f"`{fact[0]}`" + (f" ({fact[1]})" if fact[1] else ""))
    written = {word for word in SPAN.findall(rows["Writes"]) if PROPERTY.fullmatch(word)}
    yield from differing("Writes", written, facts["sets"], "`{}`".format)
    sent = set(re.findall(r"\b2\d{4}\b", rows.get("Notice", "")))
    yield from differing("Notice", sent, map(str, facts["notices"]), str)
    yield from line_findings(project, name, part, rows["Log"], sections)
    yield from phase_findings(project, name, rows["Phase"])
    text = prose(part)
    for code in sorted(set(re.findall(r"\b16\d\d\b", text)) - {str(code) for code in facts["returns"]}):
        yield f"it speaks of {code}, which it does not return"
    own = {str(code) for codes in facts["log"].values() for code in codes}
    for code in sorted(set(re.findall(r"(?<![\w-])-1?\d{1,2}\b", text)) - own - set(stated_facts.OTHER_CODES.get(name, ()))):
        yield f"it speaks of {code}, which no line of it has"


def differing(title, said, true, in_words):
    said, true = set(said), set(true)
    yield from (f"{title} says {in_words(fact)}, which no test saw" for fact in sorted(said - true))
    yield from (f"{title} does not say {in_words(fact)}" for fact in sorted(true - said))


def line_findings(project, name, part, row, sections):
    facts, said = project.table[name]["log"], set()
    stale = sorted(text for text in facts if text != WIDE_LINE and text not in project.formats)
    if stale:
        yield from (f"{TABLE} has the line '{text}', which no source has: write the table again (tools/texts/observed-facts.py "
                    "--write, after a run of all actions tests)" for text in stale)
        return
    for line in lines_of_section(part, row):
        fitting = [text for text in facts if text != WIDE_LINE and project.formats[text].fullmatch(line)]
        if not fitting:
            yield f"`{line}` is not a line that it writes"
        said.update(fitting)
    for other in re.findall(r"those of \[(CustomAction\d+)\]", row):
        if other in sections:
            other_row = rows_of_section(sections[other][1]).get("Log", "")
            said |= {text for line in lines_of_section(sections[other][1], other_row) for text in facts
                     if text != WIDE_LINE and project.formats[text].fullmatch(line)}
    if (row == "nothing") != (not facts):
        yield f"Log says '{row}', and the tests saw {len(facts)} lines"
    yield from (f"the line '{text}' is missing" for text in sorted(facts.keys() - said - {WIDE_LINE}))
    if WIDE_LINE in facts and WIDE_LINE.strip() not in part:
        yield f"the lines with '{WIDE_LINE}' are missing"


def phase_findings(project, name, row):
    said, reads = set(PHASES.findall(row)), set(project.table[name]["reads"])
    kinds = {kind if kind in LATER else "immediate" for kind in project.kinds.get(name, set())}
    if "CustomActionData" in reads:
        wanted, allowed = {"deferred"}, {"deferred", "rollback"}
    elif reads - DEFERRED - NOTICE_PROPERTIES:
        wanted, allowed = {"immediate"}, {"immediate"} | (kinds & {"rollback"})
    else:
        wanted = {"immediate"} | ({"deferred"} if kinds & set(LATER) else set())
        allowed = {"immediate", "deferred", "rollback"}
    if not wanted <= said <= allowed:
        yield (f"Phase says {in_order(said)}; what it reads ({in_order(reads)}) and the fragments ({in_order(kinds)}) "
               f"make it {in_order(wanted)}")
    if "rollback" in said and "rollback" not in kinds:
        yield "Phase says rollback, and no fragment runs it so"
    own = {row.number for fragment in project.kit.fragments.values() for row in fragment.rows if row.place == "execute"
           and row.number > 0 and fragment.actions.get(row.action, {}).get("DllEntry") == name
           and kind_of(fragment.actions[row.action]) != "rollback" and "Removal" not in row.action}
    for word, other in re.findall(r"\b(before|after) `?\[?(\w+)", row):
        for number in sorted(project.places.get(other, ())):
            wrong = [place for place in own if (place < number) != (word == "before")]
            if wrong and len(project.places[other]) == 1:
                yield f"Phase says {word} {other} ({number}), and a fragment has it at {in_order(wrong)}"


def check_index(project, pages):
    text = pages.get(INDEX, "")
    rows = {name: set(PHASES.findall(rows_of_section(part).get("Phase", ""))) for name, _, part in sections_of(pages)}
    stops = {name for name, facts in project.table.items() if facts["returns"] != [0]}
    said = re.search(r"Only (.*?) can stop an installation", flat(text))
    if not said or set(re.findall(r"\[(CustomAction\d+)\]", said[1])) != stops:
        yield f"{INDEX}: 'Only ... can stop an installation' must name {in_order(stops)}"
    for heading, titles, lines in tables_of(text):
        for _, cells in lines:
            if titles == ["Entry point", "Job", "Phase"] and (match := re.match(r"\[(CustomAction\d+)\]", cells[0])):
                if set(cells[2].split(" or ")) != rows.get(match[1], set()):
                    yield f"{INDEX}: {match[1]} is {cells[2]} here, and {in_order(rows.get(match[1], set()))} in its section"
            if titles == ["Number", "Sent by", "When"] and cells[0] == lines[0][1][0]:
                yield from differing(f"{INDEX}: the table of notices", [cells[0] for _, cells in lines], project.notices, str)
            if titles == ["Number", "Sent by", "When"]:
                senders = {name for name, facts in project.table.items() if str(cells[0]) in map(str, facts["notices"])}
                if set(re.findall(r"\[(CustomAction\d+)\]", cells[1])) != senders:
                    yield f"{INDEX}: notice {cells[0]} is sent by {in_order(senders)}"
    for heading, titles, lines in tables_of(pages.get(TROUBLESHOOTING, "")):
        if titles[:2] == ["Action", "Returns"]:
            for _, cells in lines:
                name = cells[0].strip("`")
                words = re.match(r"([\w ]+?)(, no line)?[.:]", cells[2])
                if name not in project.table or not words:
                    yield f"{TROUBLESHOOTING}: the row of {cells[0]} does not begin with a phase"
                    continue
                if set(words[1].split(" or ")) != rows.get(name, set()):
                    yield (f"{TROUBLESHOOTING}: {name} is {words[1]} here, and {in_order(rows.get(name, set()))} in its "
                           "section")
                if bool(words[2]) == bool(project.table[name]["log"]):
                    yield f"{TROUBLESHOOTING}: {name} writes {in_order(project.table[name]['log'])}"


# ---- code spans

def check_spans(project, pages):
    listed, used = set(spans_listed(project.root)), set()
    for page, content in pages.items():
        for span in sorted(set(SPAN.findall(plain(content)))):
            if span in listed:
                used.add(span)
            elif not project.is_known(span):
                yield (f"{page}: `{span}` is neither a text of the project, nor a line of the log, nor a file; if it is right, "
                       f"it belongs into {SPANS}")
    yield from (f"{SPANS}: `{span}` is on no page any more: take the line away" for span in sorted(listed - used))


# ---- codes

def codes_in(cell):
    return [int(number) for number in re.findall(r"(?<![\w-])-\d+\b", cell)]


def check_codes(project, pages):
    for (page, heading, title), (families, whole) in stated_facts.CODE_TABLES.items():
        words = {}
        for family in families:
            for name, pattern in stated_facts.CODE_WORDS[family].items():
                words[project.value(name)] = pattern
        found = set()
        tables = [rows for head, titles, rows in tables_of(pages.get(page, "")) if head == heading and titles[0] == title]
        if not tables:
            yield f"{page}: there is no table of codes with the column '{title}' below '{heading}' (stated_facts.py)"
        for number, cells in (row for rows in tables for row in rows):
            codes = [code for code in codes_in(cells[0]) if OWN_CODE.fullmatch(str(code))]
            found.update(codes)
            at = 0
            for code in codes:
                if code not in words:
                    yield f"{page}:{number}: {code} is no code of {in_order(families)}"
                    continue
                match = re.compile(words[code], re.IGNORECASE).search(cells[1], at)
                if not match:
                    yield f"{page}:{number}: of {code} it must say: {words[code]} (stated_facts.py)"
                    break
                at = match.end()
        if whole and tables:
            yield from (f"{page}: {code} is not in the table below '{heading}'" for code in sorted(words.keys() - found))


# ---- options of the engine

def option_letters(project):
    """[(letter, flag that it sets or "", flag that it clears or "", "~" for all)] of the engine's table."""
    text = (project.root / "src/files/tree_copy.cpp").read_text(encoding="utf-8")
    return [(letter, sets.strip("0"), "~" if "~" in clears else clears.strip("0"))
            for letter, sets, clears in re.findall(r"\{L'(\w)', (\w+), ([^}]*(?:\{0\})?)\}", text)]


def check_options(project, pages):
    letters = option_letters(project)
    known = {letter for letter, _, _ in letters}
    sets = {flag: letter for letter, flag, _ in letters if flag}
    clears = {flag: letter for letter, _, flag in letters if flag}
    for page, text in pages.items():
        for heading, titles, rows in tables_of(text):
            if titles[:2] == ["Letter", "Meaning"]:
                yield from (f"{page}: {finding}" for finding in option_findings(rows, sets, clears))
        for group in re.findall(r"hxsetup ((?:-\w+|\"[^\"]*\"| )+)", plain(text)):
            for word in re.findall(r"(?:^| )-(\w+)", group):
                yield from (f"{page}: '{letter}' in -{word} is no letter of the engine" for letter in word
                            if letter not in known)
        yield from (f"{page}: {finding}" for finding in string_findings(project, text))


def option_findings(rows, sets, clears):
    told = {}
    for _, cells in rows:
        letter = cells[0].strip("`")
        told[letter] = cells
    flags = {letter: flag for flag, letter in sets.items()}
    yield from (f"the letter '{letter}' is not in the table of letters" for letter in sorted(flags.keys() - told.keys()))
    for letter, cells in told.items():
        undone = re.match(r"`?(\w)`?: (.*)", cells[2])
        if letter == clears.get("~"):
            if not re.search(stated_facts.OPTION_WORDS["~"], cells[1]) or cells[2]:
                yield f"'{letter}' undoes everything"
            continue
        if letter not in flags:
            yield f"'{letter}' sets no option"
            continue
        flag = flags[letter]
        means, means_not = stated_facts.OPTION_WORDS[flag]
        if not re.search(means, cells[1]):
            yield f"of '{letter}' ({flag}) it must say: {means} (stated_facts.py)"
        wanted = clears.get(flag)
        if wanted is None:
            if not re.fullmatch(rf"(only )?`?{clears['~']}`?( only)?", cells[2]):
                yield f"only '{clears['~']}' undoes '{letter}'"
        elif not undone or undone[1] != wanted or not re.match(means_not, undone[2]):
            yield f"'{letter}' ({flag}) is undone by '{wanted}': {means_not} (stated_facts.py)"


def string_findings(project, text):
    """A page's examples of what the package passes to the engine: the letters are those of the fragments."""
    values = {}
    for fragment in project.kit.fragments.values():
        for action in fragment.actions.values():
            if action.get("Property") and action.get("Value"):
                values.setdefault(action["Property"], set()).add(tuple(re.findall(r"(?:^| )-(\w+)", action["Value"])))
    for action, string in re.findall(r"\| `(CustomAction1[56]\.\w+)` \| `(hxsetup [^`]*)` \|", text):
        if tuple(re.findall(r" -(\w+)", string)) not in values.get(action, set()):
            yield f"the string of {action} has other letters than {in_order(' '.join(each) for each in values.get(action, ()))}"


# ---- windows

def check_windows(project, pages):
    declaration = next(each for each in project.sources.by_name["kTools"] if each.file == "src/client/closing_tools.cpp")
    words = [token for token in declaration.tokens if is_string(token) or token.text == "nullptr"]
    title = next(text.value for text in project.sources.texts if text.owner.name == "kNetworkToolTitle")
    values = [value_of(token.text) if is_string(token) else title for token in words]
    tools = list(zip(values[::2], values[1::2]))
    for page in (f"{SECTIONS}/client.md", "docs/client-upgrade.md"):
        told = [[cell.strip("`") for cell in cells[:2]] for _, titles, rows in tables_of(pages.get(page, ""))
                if len(titles) > 2 and titles[1] == "Title" for _, cells in rows if cells[0].startswith("`")]
        if [tuple(cells) for cells in told] != tools:
            yield f"{page}: the windows, in this order, are {', '.join('/'.join(tool) for tool in tools)}"


# ---- numbers

def check_numbers(project, pages):
    numbers = {number for places in project.places.values() for number in places if number > 0}
    for page, text in pages.items():
        if page in UNMEASURED:
            continue
        content = flat(text)
        for name, number in re.findall(r"`([\w.]+)`(?:\]\([^)]*\))? \((\d{2,4})\)", content):
            if (places := project.places_of(name)) and int(number) not in places:
                yield f"{page}: {name} is at {in_order(places)}, not at {number}"
        for number, name in re.findall(r"\b(\d{2,4}) \(`([\w.]+)`\)", content):
            if (places := project.places_of(name)) and int(number) not in places:
                yield f"{page}: {name} is at {in_order(places)}, not at {number}"
        yield from (f"{page}: {finding}" for finding in place_findings(project, numbers, page, content))
        for number in sorted(set(re.findall(r"(?<![\w.,-])2[5-7]\d{3}\b(?![.,]\d)", content)) - project.notices):
            yield f"{page}: there is no notice {number}"
        for _, titles, rows in tables_of(text):
            if "Sequence" in titles and "Action" in titles:
                for line, cells in rows:
                    yield from (f"{page}:{line}: {finding}" for finding in step_findings(
                        project, numbers, cells[titles.index("Sequence")], cells[titles.index("Action")]))


def census_numbers(content):
    """The numbers from 31 on in a page's sentences. Smaller ones are steps, counts and days as well."""
    found = re.findall(r"(?<![\w.,])\d[\d,]*(?:\.\d+)?\b(?!\.\w)", content)
    return {number for number in found if float(number.replace(",", "")) > 30}


def hexadecimal_findings(content):
    """-2147024891 (0x80070005): the same number twice."""
    for number, digits in re.findall(r"(-\d+)(?: \(| \| )(0x[0-9A-F]{8})\b", content):
        if int(number) + (1 << 32) != int(digits, 0):
            yield f"{number} is 0x{int(number) + (1 << 32):08X}, not {digits}"


def check_known_numbers(project, pages):
    """Each number of a page is one that a check or a table of stated_facts.py knows."""
    codes = {str(-project.value(name)) for words in stated_facts.CODE_WORDS.values() for name in words}
    codes |= {str(code) for facts in project.table.values() for code in facts["returns"]} | project.notices
    places = {str(number) for some in project.places.values() for number in some}
    for page, text in pages.items():
        if page in UNMEASURED:
            continue
        texts = [template for template, _ in stated_facts.MEASURES.get(page, ())]
        texts += [template for other, template in stated_facts.STATEMENTS if other == page]
        stated = {number for template in texts for number in census_numbers(project.rendered(template))}
        others = set(stated_facts.OTHER_NUMBERS.get(page, "").split())
        found = census_numbers(prose(text))
        yield from (f"{page}: {finding}" for finding in hexadecimal_findings(flat(text)))
        for number in sorted(found - stated - others - codes - places - set(stated_facts.WINDOWS_NUMBERS.split())):
            yield f"{page}: {number} is no number that stated_facts.py has for this page"
        yield from (f"{page}: {number} is not on the page any more (OTHER_NUMBERS of stated_facts.py)"
                    for number in sorted(others - found))


def place_findings(project, numbers, page, content):
    """"at 610", "before 625": the number is a place in a sequence, or stated_facts.py says what else it is."""
    found = re.findall(r"\b(?:[Aa]t|before|after|from|between \d{3,4} and|between) (\d{3,4})\b"
                       r"(?![\w-]| (?:bytes|characters|ms|hours|s\b))", content)
    for number in sorted(set(found)):
        if int(number) not in numbers and number not in stated_facts.OTHER_PLACES.get(page, ()):
            yield f"{number} is no action's place in a sequence"
    yield from (f"{number} is not on the page any more (OTHER_PLACES of stated_facts.py)"
                for number in stated_facts.OTHER_PLACES.get(page, ()) if number not in found)


def step_findings(project, numbers, sequence, action):
    said = [int(number) for number in re.findall(r"\b\d{2,4}\b", sequence)]
    yield from (f"{number} is no action's place in a sequence" for number in said if number not in numbers)
    for name in SPAN.findall(action):
        places = project.places_of(name)
        inside = len(said) == 2 and " to " in sequence
        if places and not (any(said[0] <= place <= said[1] for place in places) if inside else places & set(said)):
            yield f"{name} is at {in_order(places)}, not at {sequence}"
    if len(said) == len(names := SPAN.findall(action)) and " to " not in sequence:
        for number, name in zip(said, names):
            places = project.places_of(name)
            if places and number not in places:
                yield f"{name} is at {in_order(places)}, not at {number}"


# ---- measures and statements

MEASURE = re.compile(r"(?<![\w.,-])((?:\d[\d,]*(?:\.\d+)?|five|ten|twelve|half a|half|every half) (?:zero |hexadecimal )?"
                     r"(?:s|seconds?|bytes?|characters?|ms|hours?|minutes?|bits)\b)")


def prose(text):
    """A page without what other checks compare: blocks, generated parts, code spans, and the rows of what is read."""
    text = re.sub(r"(?s)<!-- generated.*?<!-- end", "", plain(text))
    text = re.sub(r"(?m)^\| Reads \|.*$", "", text)
    return re.sub(r"`[^`]*`", "`", text).replace("\n", " ")


def check_measures(project, pages):
    for page, text in pages.items():
        if page in UNMEASURED:
            continue
        found = MEASURE.findall(prose(text))
        stated = {}
        for template, count in stated_facts.MEASURES.get(page, ()):
            try:
                measure = project.rendered(template)
            except KeyError as error:
                yield f"{page}: '{template}' of stated_facts.py: {error.args[0]}"
                continue
            stated[measure] = stated.get(measure, 0) + count
        for measure in sorted(set(found) - set(stated)):
            yield f"{page}: '{measure}' is no time limit or size that stated_facts.py has for this page"
        for measure, count in stated.items():
            if measure not in found or found.count(measure) != count:
                yield (f"{page}: '{measure}' must be on the page {count} times, and is {found.count(measure)} times "
                       "(stated_facts.py)")


def steps_of(text):
    """{place: number of its step} and the numbers of all steps, of the page's table of steps."""
    places, numbers = {}, []
    for _, titles, rows in tables_of(text):
        if titles[:3] == ["", "Sequence", "Action"]:
            for _, cells in rows:
                if cells[0].isdigit():
                    numbers.append(int(cells[0]))
                    for place in re.findall(r"\b\d{2,4}\b", cells[1]):
                        places.setdefault(place, cells[0])
    return places, numbers


def check_statements(project, pages):
    steps = {}
    for page, text in pages.items():
        steps[page], numbers = steps_of(text)
        if numbers != list(range(1, len(numbers) + 1)):
            yield f"{page}: the steps must be numbered 1, 2, 3 ..., and are {in_order(numbers)}"
    for page, template in stated_facts.STATEMENTS:
        try:
            wanted = re.sub(r"<step (\d+)>", lambda match, own=steps.get(page, {}): own[match[1]], project.rendered(template))
        except KeyError as error:
            yield f"{page}: '{template}' of stated_facts.py: {error.args[0]}"
            continue
        if re.sub(r"\s+", " ", wanted) not in re.sub(r"\s+", " ", pages.get(page, "")):
            yield f"{page}: must say '{wanted}' (STATEMENTS of stated_facts.py)"


CHECKS = {"sections": check_sections, "index": check_index, "spans": check_spans, "codes": check_codes,
          "options": check_options, "windows": check_windows, "numbers": check_numbers, "known numbers": check_known_numbers, "measures": check_measures,
          "statements": check_statements}


def findings(project, pages):
    for check in CHECKS.values():
        yield from check(project, pages)


__all__ = ["CHECKS", "Project", "findings", "read_pages"]
