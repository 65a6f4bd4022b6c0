#!/usr/bin/env python3
"""Checks that the entry points, the fragments in packages/ and the pages agree, and writes the generated parts of pages.

    tools/kit/action-table.py [--write] [ROOT]

kit_checks.py has the checks. This script also checks that the generated parts of docs/authoring.md and the examples of
docs/actions.md match the fragments. A generated part is between "<!-- generated: NAME -->" and "<!-- end of NAME -->".
--write updates these parts, but keeps the last column of the tables of properties, which is written by hand. Prints a line
for each finding; the exit code is 1 if there is one.
"""

import re
import sys
import textwrap
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from kit.action_examples import examples_findings
from kit.installer_run import names_in, run_sequence
from kit.kit_checks import (ENGINE, LATER, NOT_SECURE, NOTHING, PAIRS, always_forgotten, findings, forgetters, is_library, kind_of,
                        read_kit, reads_data, used_in)
from kit.package_facts import PUBLIC, VARIABLE, named_in
from kit.package_runs import ANSWERS, SCENARIOS, STANDARD
from kit.texts import FOLDER, SELECTOR, selected

GUIDE = "docs/authoring.md"
PART = re.compile(r"(<!-- generated: (\w+) -->\n)(.*?)(<!-- end of \2 -->\n)", re.DOTALL)


def link(kit, name):
    return f"[{name}]({kit.pages.get(name, 'actions.md')}#{name.lower()})"


def number_of(name):
    return int(re.match(r"\D*(\d+)", name)[1])


def runs_as(action):
    """When an action runs, and with the rights of which user."""
    kind = kind_of(action)
    if kind in LATER:
        return f"{kind}, {'SYSTEM' if action.get('Impersonate') == 'no' else 'the user'}"
    return "immediate, once" if kind == "firstSequence" else "immediate"


def place_of(row):
    names = {-1: "after success", -2: "after a cancel", -3: "after a failure", -4: "when suspended"}
    return names.get(row.number) or f"{'UI ' * (row.place == 'UI')}{row.number}"


def partner_of(kit, fragment, name, action):
    """The partner of an action: the other one of a pair; for an action that undoes, the one that it undoes; for an action
    with data, the one that sets the data."""
    entry = action["DllEntry"]
    said = [f"pair of {other if entry == first else first}" for first, other in PAIRS if entry in (first, other)]
    setters = sorted(setter for setter, other in fragment.actions.items() if other.get("Property") == name)
    if reads_data(kit, action):
        said.append("data: " + ", ".join(f"`{setter}`" for setter in setters))
    return "; ".join(said)


def table(head, rows):
    return [f"| {' | '.join(head)} |", f"|{'---|' * len(head)}", *(f"| {' | '.join(row)} |" for row in rows)]


def variables_part(kit):
    """The compiler's variables that a package can or must define for the fragments."""
    readers, defaults, asked = {}, {}, set()
    for fragment in kit.fragments.values():
        defaults |= fragment.defines
        asked |= set(re.findall(r"<\?ifn?def var\.(\w+)\?>", fragment.text))
        names = set(VARIABLE.findall(fragment.text))
        # Also what the texts read that it shows.
        for name in names | {inner for name in names & set(kit.texts) for inner in VARIABLE.findall(kit.texts[name])}:
            readers.setdefault(name, []).append(f"`{fragment.name}`")
    for name, value in selected(kit.root).items():
        defaults[name], readers[name] = value, [f"`{FOLDER.rpartition('/')[2]}/{SELECTOR}`"]
        asked.add(name)
    return table(["Variable", "Without it", "Read by"],
                 [[f"`{name}`", f"`{defaults[name]}`" if name in defaults else "the compiler stops",
                   ", ".join(readers[name])] for name in sorted(set(readers) & asked)])


def actions_part(kit):
    rows = []
    for fragment in kit.fragments.values():
        for name, action in fragment.actions.items():
            if not is_library(action):
                continue
            placed = [row for row in fragment.rows if row.action == name]
            conditions = list(dict.fromkeys(row.condition for row in placed))
            rows.append([link(kit, action["DllEntry"]), f"`{name}`", f"`{fragment.name}`", runs_as(action),
                         "checked" if action.get("Return", "check") == "check" else "ignored",
                         ", ".join(place_of(row) for row in placed),
                         ", ".join(f"`{condition}`" if condition else "always" for condition in conditions),
                         partner_of(kit, fragment, name, action)])
    rows.sort(key=lambda row: (number_of(row[1]), row[1].strip("`")))
    return table(["Entry point", "Action", "Fragment", "Runs", "Result", "Place", "Condition", "Belongs to"], rows)


# A section of a head with what a package must add, and the first column of its lines.
ADDED = re.compile(r"^  WHAT (?:A|THE) PACKAGE MUST \w+\n\n(.*?)(?=^  \S|\Z)", re.DOTALL | re.MULTILINE)
TERM = re.compile(r"^    (\S+(?: \S+)*)(?: {2,}|$)", re.MULTILINE)
CODE = re.compile(r"[A-Z]\w*[A-Z]\w*(?:\.\w+)?|\w+\.\w+")


def added_by_package(fragment):
    """What a package must add for a fragment: the names in its head."""
    head = re.search(r"<!--(.*?)-->", fragment.text, re.DOTALL)
    terms = [term for section in ADDED.findall(head[1] if head else "") for part in TERM.findall(section)
             for term in part.split(", ")]
    return ", ".join(f"`{term}`" if CODE.fullmatch(term) else term for term in terms)


def fragments_part(kit):
    rows = []
    for fragment in kit.fragments.values():
        models = dict.fromkeys(model.name.partition("/")[0] for model in kit.models if fragment.name in model.fragments)
        entries = sorted(set(fragment.entry_points()), key=number_of)
        rows.append([f"`{fragment.name}`", fragment.purpose(), ", ".join(str(number_of(name)) for name in entries),
                     ", ".join(f"`{need}`" for need in fragment.needs()), added_by_package(fragment),
                     ", ".join(fragment.errors), ", ".join(models)])
    return table(["Fragment", "What for", "Entry points", "Needs", "You add", "Error texts", "Model"], rows)


def last_columns(part):
    """The last column of a part's table, for each property."""
    return {match[1]: match[2] for line in part.splitlines()
            if (match := re.match(r"\| `([\w.]+)` \|.*\| ([^|]*) \|$", line))}


def properties_of(kit):
    names = set()
    for fragment in kit.fragments.values():
        own = {action.get("Property") for action in fragment.actions.values()} | set(fragment.properties)
        names |= (used_in(kit, fragment) - ENGINE) | own | fragment.searched
    return names - {None, *(name for fragment in kit.fragments.values() for name in fragment.actions)}


def given_part(kit, old):
    """Who may set the public properties, and when. Keeps the last column of `old`, the present part."""
    meanings = last_columns(old)
    names = sorted(name for name in properties_of(kit) - ENGINE if PUBLIC.fullmatch(name))
    return table(["Property", "Who may set it", "What it can cause"],
                 [[f"`{name}`", givers_of(kit, name), meanings.get(name, "")] for name in names])


def givers_of(kit, name):
    files = [*kit.fragments.values(), *(model.files[0] for model in kit.models)]
    places = [row for file in files for row in forgetters(file, name) if row.place == "execute"]
    searched = any(name in file.searched for file in files)
    if name in NOT_SECURE:
        return "the package"
    if searched or any(name in always_forgotten(file) for file in files):
        numbers = sorted({row.number for row in places})
        then = "searched for" if searched else "found" if is_found(kit, files, name) else "set to the package's folder"
        return f"nobody: cleared at {', '.join(map(str, numbers))}, then {then}"
    first = [row.number for row in places if row.condition == f"Installed AND {name}"]
    if first:
        return f"an administrator, in a first installation and an upgrade; cleared at {first[0]} in other runs"
    declared = [file.properties[name] for file in files if name in file.properties]
    if any(attributes.get("Secure") == "yes" for attributes in declared):
        return "an administrator, in any run"
    makers = {action["DllEntry"] for file in files for action in file.actions.values() if is_library(action)
              and action["DllEntry"] in kit.sections and name in kit.sections[action["DllEntry"]].writes}
    return "nobody: an action makes it" if makers else "the package, and an administrator"


def is_found(kit, files, name):
    """True if an action gives the property a value; otherwise a folder of the package has that name."""
    actions = [action for file in files for action in file.actions.values()]
    return any(action.get("Property") == name and action.get("Value") != NOTHING for action in actions) or any(
        is_library(action) and action["DllEntry"] in kit.sections and name in kit.sections[action["DllEntry"]].writes
        for action in actions)


def properties_part(kit, old):
    """The properties of the kit. Keeps the last column of `old`, the present part."""
    meanings = last_columns(old)
    names = properties_of(kit)
    rows = [property_row(kit, name, meanings.get(name, "")) for name in names]
    rows.sort(key=lambda row: (not PUBLIC.fullmatch(row[0].strip("`")), row[0]))
    return table(["Property", "Default", "Secure", "Fragment", "Read by", "Set by", "Values"], rows)


def property_row(kit, name, meaning):
    declared = [(fragment, fragment.properties[name]) for fragment in kit.fragments.values()
                if name in fragment.properties]
    readers, makers = [], []
    for entry, section in sorted(kit.sections.items(), key=lambda item: number_of(item[0])):
        readers += [str(number_of(entry))] * (name in section.reads)
        makers += [str(number_of(entry))] * (name in section.writes)
    for fragment in kit.fragments.values():
        texts = [word for value in fragment.values() for word in named_in(value)]
        texts += [word for row in fragment.rows for word in names_in(row.condition)]
        readers += [f"`{fragment.name}`"] * (name in texts)
        makers += ["a search"] * (name in fragment.searched)
        makers += [f"`{setter}`" for setter, action in fragment.actions.items() if action.get("Property") == name]
    values = [attributes["Value"] for _, attributes in declared if "Value" in attributes]
    return [f"`{name}`", ", ".join(f"`{value}`" for value in values), secure_of(kit, name, declared),
            ", ".join(f"`{fragment.name}`" for fragment, _ in declared), ", ".join(readers),
            ", ".join(dict.fromkeys(makers)), meaning]


def secure_of(kit, name, declared):
    """The column "Secure": if the value that a user gives reaches the service's process, and if the log hides it."""
    if not PUBLIC.fullmatch(name):
        return "private"
    if name in ENGINE:
        return "the engine's"
    if name in NOT_SECURE:
        return f"no: {NOT_SECURE[name]}"
    if not declared and any(name in section.writes for section in kit.sections.values()):
        # An action of the library makes it, in the process that uses it.
        return "no"
    if not declared:
        own = [model.properties[name].get("Secure") == "yes" for model in kit.models if name in model.properties]
        return "yes, by the package" if own and all(own) else "the package's choice"
    marks = {mark for _, attributes in declared for mark in ("Secure", "Hidden") if attributes.get(mark) == "yes"}
    return ("yes" if "Secure" in marks else "no") + ", hidden" * ("Hidden" in marks)


def notices_part(kit):
    rows = []
    for number, sender in sorted(kit.notices.items()):
        for fragment in kit.fragments.values():
            if number in fragment.errors:
                element = fragment.root.find(f".//Error[@Id='{number}']")
                rows.append([number, link(kit, sender), f"`{fragment.name}`", element.text.strip()])
    return table(["Number", "Sent by", "Fragment", "Text"], rows)


MARKS = {"immediate": "now", "firstSequence": "now", "deferred": "script", "rollback": "undo", "commit": "commit"}


def mark_of(action):
    if action is None:
        return "engine"
    if action.get("Error"):
        return "refuse"
    return "set" if action.get("Property") and action.get("Value") is not None else MARKS[kind_of(action)]


def marks_of(model, scenario):
    """The mark of each action that runs in a scenario, in brackets if it runs only with the scenario's options."""
    rows = [row for row in model.rows if row.place == "execute"]
    plain, optional = ({(row.number, row.action)
                        for row, _ in run_sequence(rows, model.actions, properties, model.found, ANSWERS)}
                       for properties in ({**model.defaults(), **scenario.properties},
                                          {**model.defaults(), **scenario.properties, **scenario.options}))
    for key in sorted(plain | optional):
        mark = mark_of(model.actions.get(key[1]))
        yield key, mark if key in plain else f"({mark})"


def diagram_lines(model):
    scenarios = SCENARIOS[model.name]
    columns = [dict(marks_of(model, scenario)) for scenario in scenarios]
    own = {(row.number, row.action) for row in model.rows if row.place == "execute" and row.number > 0}
    lines = own | {(number, name) for name, number in STANDARD.items() if name not in {name for _, name in own}}
    yield f"{'':44}{''.join(f'{scenario.name:>10}' for scenario in scenarios)}"
    for number, name in sorted(lines):
        if (number, name) not in own:
            yield f"{number:>6} {f' {name} '.center(36 + 10 * len(scenarios), '-')}"
            continue
        yield f"{number:>6}  {name:36}{''.join(f'{column.get((number, name), chr(46)):>10}' for column in columns)}"


def dialog_lines(model):
    """The rows of the dialogs' sequence in short form, because most of them are in the other sequence too."""
    execute = {row[1:4] for row in model.rows if row.place == "execute"}
    rows = sorted(row for row in model.rows if row.place == "UI")
    alone = [f"{row.number} {row.action}" for row in rows if row[1:4] not in execute]
    both = [str(row.number) for row in rows if row[1:4] in execute]
    yield "InstallUISequence, with dialogs only"
    yield ""
    for head, words in ("only here", alone), ("as below", both):
        if words:
            yield from textwrap.wrap(f"{head}: {', '.join(words)}", 94, initial_indent="  ", subsequent_indent="    ")


def sequence_part(kit, name):
    """The diagram of a model: which action runs when."""
    model = next((model for model in kit.models if model.name == name), None)
    if model is None:
        return [f"packages/{name} is missing"]
    lines = ["```text"]
    lines += [*dialog_lines(model), "", "InstallExecuteSequence", "", *diagram_lines(model), "", ""]
    lines += ["When the run fails, from the top", ""]
    undo = {}
    for scenario in SCENARIOS[name]:
        for (number, action), mark in marks_of(model, scenario):
            if mark.strip("()") == "undo":
                undo.setdefault((-number, action), []).append(scenario.name)
    lines += [f"{-number:>6}  {action:36}    {', '.join(names)}" for (number, action), names in sorted(undo.items())]
    lines += [f"{place_of(row):>16}  {row.action:26}    {row.condition}" for row in model.rows if row.number < 0]
    return lines + ["```"]


PARTS = {
    "fragments": lambda kit, _: fragments_part(kit),
    "variables": lambda kit, _: variables_part(kit),
    "actions": lambda kit, _: actions_part(kit),
    "properties": properties_part,
    "given": given_part,
    "notices": lambda kit, _: notices_part(kit),
    "client": lambda kit, _: sequence_part(kit, "client/client.wxs"),
    "server": lambda kit, _: sequence_part(kit, "server/server.wxs"),
}


# The parts with a column that is written by hand, and its content in the words of a message.
SAID = {"properties": "the values of", "given": "what can be caused by"}


def generated(kit, page):
    """(the guide with up-to-date parts, the findings about the marks of the parts)."""
    wrong = [f"{GUIDE}: the generator has no part {name}" for _, name, *_ in PART.findall(page) if name not in PARTS]
    found = [name for _, name, *_ in PART.findall(page)]
    wrong += [f"{GUIDE}: has the part {name} {found.count(name)} times"
              for name in PARTS if found.count(name) != 1]

    def part(match):
        if match[2] not in PARTS:
            return match[0]
        return match[1] + "".join(line.rstrip() + "\n" for line in PARTS[match[2]](kit, match[3])) + match[4]

    return PART.sub(part, page), wrong


def guide_findings(kit, write):
    path = kit.root / GUIDE
    if not path.is_file():
        yield f"{GUIDE} does not exist"
        return
    page = path.read_text(encoding="utf-8")
    new, wrong = generated(kit, page)
    yield from wrong
    if write and new != page:
        path.write_text(new, encoding="utf-8")
    elif new != page:
        for (_, name, old, _), (*_, now, _) in zip(PART.findall(page), PART.findall(new)):
            if old != now:
                yield f"{GUIDE}: the part {name} is out of date: run tools/kit/action-table.py --write"
    for _, part, text, _ in PART.findall(new):
        for name in re.findall(r"^\| `([\w.]+)` \|.*\|  \|$", text, re.MULTILINE) if part in SAID else ():
            yield f"{GUIDE}: does not describe {SAID[part]} {name}"


def main():
    arguments = [argument for argument in sys.argv[1:] if argument not in ("--write", "--check")]
    root = Path(arguments[0] if arguments else Path(__file__).resolve().parents[2])
    kit = read_kit(root)
    write = "--write" in sys.argv
    found = [*findings(kit, SCENARIOS), *guide_findings(kit, write), *examples_findings(kit, root, write)]
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
