"""The examples of docs/actions.md and of the pages in docs/actions/: what the fragments in packages/ have for each entry point, word by word, so that page
and fragments cannot say different things. For the scripts beside it, and their tests.

An example is between "<!-- generated: NAME -->" and "<!-- end of NAME -->", where NAME is an entry point or
"library", the fragment that puts the library into a package.
"""

import re
import textwrap

from lint.entry_points import action_pages

PART = re.compile(r"(<!-- generated: (\w+) -->\n)(.*?)(<!-- end of \2 -->\n)", re.DOTALL)

# The source of an element without others in it.
ELEMENT = r"[ \t]*<{tag}\s(?:[^<>]*\s)?{attribute}=\"{value}\"[^<>]*?(?:/>|>[^<>]*</{tag}>)\n"


def element(text, tag, attribute, value):
    """The source of an element, or "" if it is not there or has elements in it."""
    match = re.search(ELEMENT.format(tag=tag, attribute=attribute, value=re.escape(value)), text)
    return match[0] if match else ""


def rows_of(text, sequence, names):
    """The source of the rows that a sequence has for the actions."""
    match = re.search(rf"^([ \t]*)<{sequence}>\n(.*?)^\1</{sequence}>\n", text, re.DOTALL | re.MULTILINE)
    if not match:
        return ""
    rows = [row[0] for row in re.finditer(r"[ \t]*<Custom\s[^<>]*?(?:/>|>[^<>]*</Custom>)\n", match[2])
            if re.search(r'Action="([^"]*)"', row[0])[1] in names]
    return f"{match[1]}<{sequence}>\n{''.join(rows)}{match[1]}</{sequence}>\n" if rows else ""


def excerpt(fragment, entry, properties):
    """What a fragment has for an entry point: the properties among `properties` that it declares, the actions that call
    the entry point, each after those that set its data, and their places. "" without such an action."""
    text = re.sub(r"[ \t]*<!--.*?-->\n", "", fragment.text, flags=re.DOTALL)
    calls = [name for name, action in fragment.actions.items()
             if action.get("BinaryKey") == "hxsetup" and action.get("DllEntry") == entry]
    if not calls:
        return ""
    setters = {name: [setter for setter, action in fragment.actions.items() if action.get("Property") == name]
               for name in calls}
    names = [each for name in calls for each in (*setters[name], name)]
    parts = [element(text, "Property", "Id", name) for name in fragment.properties if name in properties]
    parts += [element(text, "CustomAction", "Id", name) for name in names]
    parts += [rows_of(text, sequence, names) for sequence in ("InstallUISequence", "InstallExecuteSequence")]
    return f"<!-- packages/{fragment.name} -->\n" + textwrap.dedent("".join(parts))


def example(kit, name):
    """The example of an entry point, or of the library, as the page has it."""
    if name == "library":
        text = kit.fragments["library.wxi"].text
        pieces = ["<!-- packages/library.wxi -->\n" + textwrap.dedent(element(text, "Binary", "Id", "hxsetup"))]
    else:
        section = kit.sections[name]
        pieces = [excerpt(fragment, name, section.reads | section.writes) for fragment in kit.fragments.values()]
    return "```xml\n" + "".join(pieces) + "```\n"


def examples_findings(kit, root, write):
    """What is wrong with the examples on the pages; with `write` they are written again."""
    return [finding for path in action_pages(root) for finding in page_findings(kit, root, path, write)]


def page_findings(kit, root, path, write):
    name_of_page = path.relative_to(root).as_posix()
    page = path.read_text(encoding="utf-8")
    wrong = [f"{name_of_page}: there is no entry point '{name}'" for _, name, _, _ in PART.findall(page)
             if name != "library" and name not in kit.sections]
    there = {name for _, name, _, _ in PART.findall(page)}
    wrong += [f"{name_of_page}: {name} has no example: end its section with <!-- generated: {name} --> and "
              f"<!-- end of {name} -->, and run tools/kit/action-table.py --write"
              for name in re.findall(r"^## (CustomAction\d+)$", page, re.MULTILINE) if there and name not in there]
    if wrong:
        return wrong
    new = PART.sub(lambda part: part[1] + example(kit, part[2]) + part[4], page)
    if new == page:
        return []
    if write:
        path.write_text(new, encoding="utf-8")
        return []
    return [f"{name_of_page}: the example '{old[1]}' is not what the fragments have: tools/kit/action-table.py --write"
            for old, after in zip(PART.findall(page), PART.findall(new)) if old != after]


def blocks(page):
    """The examples of the page, generated or not: each with the heading above it."""
    heading = None
    for match in re.finditer(r"^## ([^\n]*)$|```xml\n(.*?)```\n", page, re.MULTILINE | re.DOTALL):
        if match[1]:
            heading = match[1]
        else:
            yield heading, match[2]
