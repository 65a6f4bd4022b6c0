"""The texts that the fragments show to people, and their languages. For the scripts of this folder and of texts/.

packages/texts/ has a file for each language: variables of the compiler, one a line. Each fragment includes SELECTOR, which
includes the file of the package's language.
"""

import re
from pathlib import Path
from typing import NamedTuple
from xml.sax.saxutils import escape

FOLDER = "packages/texts"
SELECTOR = "texts.wxi"

# A variable of the compiler, and a definition of one. The compiler takes the text as it is: it replaces no entities.
VARIABLE = re.compile(r"\$\(var\.(\w+)\)")
DEFINE = re.compile(r'<\?define (\w+) = "((?:(?!\?>).)*)"\?>')

# The whole line of a text. A text that is defined already is kept.
LINE = re.compile(r'\s*<\?ifndef var\.(\w+)\?><\?define (\w+) = "((?:(?!\?>).)*)"\?><\?endif\?>')

# The lines around texts that the compiler takes only if a variable is defined.
SECTION = re.compile(r"\s*<\?ifdef var\.(\w+)\?>")
END = re.compile(r"\s*<\?endif\?>")

# The beginning of the name of a refusal's text. Such a text is in a column that has no more characters than this.
REFUSAL = "Refuse"
LONGEST_REFUSAL = 255

# What a text must name in each language: properties and variables in brackets, names of properties, of values and of actions.
NAMES = re.compile(r"\$\(var\.\w+\)|\[\w+\]|\b(?:DIR|PROP)_\w+|\b(?:ServerAsideName|ServerDataName|LocalSystem|vtdf)\b|"
                   r"\bCustomAction\d+(?:\.\w+)?")


class Text(NamedTuple):
    name: str
    text: str
    line: int


def replace_variables(source, variables):
    """A source with the compiler's variables replaced, also inside of their values. Unknown ones stay."""
    return VARIABLE.sub(lambda match: escape(value_of(match, variables), {'"': "&quot;"}), source)


def value_of(match, variables):
    if match[1] not in variables:
        return match[0]
    return VARIABLE.sub(lambda inner: value_of(inner, variables), variables[match[1]])


def read_texts(path):
    """The texts of a language's file, in order; a name can be there more than once."""
    lines = Path(path).read_text(encoding="utf-8").splitlines()
    return [Text(*match.groups(), number) for number, line in enumerate(lines, 1) for match in DEFINE.finditer(line)]


def selected(root):
    """What SELECTOR defines if a package does not: {"TextsFile": name}; empty if the project has no texts."""
    selector = root / FOLDER / SELECTOR
    return dict(DEFINE.findall(selector.read_text(encoding="utf-8"))) if selector.is_file() else {}


def default_file(root):
    """The file of the language that a package has if it names none; None if the project has no texts."""
    names = selected(root)
    return root / FOLDER / names["TextsFile"] if names else None


def default_texts(root):
    """{name: text} of that file."""
    path = default_file(root)
    return {text.name: text.text for text in read_texts(path)} if path else {}


def language_files(root):
    """The files of all languages in the project."""
    return [path for path in sorted((root / FOLDER).glob("*.wxi")) if path.name != SELECTOR]


def language_findings(root, path):
    """What is wrong with a language's file, compared with that of the default language: (line, finding)."""
    default = default_file(root)
    wanted, seen, inside = default_texts(root), {}, []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        match = LINE.fullmatch(line)
        if section := SECTION.fullmatch(line):
            inside.append(section[1])
        elif END.fullmatch(line) and inside:
            inside.pop()
        elif match and match[1] == match[2]:
            yield from ((number, f"the text {match[2]} reads {name}: put it between <?ifdef var.{name}?> and <?endif?>")
                        for name in VARIABLE.findall(match[3]) if name not in inside)
        elif DEFINE.search(line):
            yield number, ("is not the line of one text: write <?ifndef var.NAME?><?define NAME = \"TEXT\"?><?endif?> with the "
                           "same NAME in both places")
    for name, text, number in read_texts(path):
        if name in seen:
            yield number, f"the text {name} is already in line {seen[name]}"
        elif name not in wanted:
            yield number, f"the text {name} is unknown: {default.name} does not have it"
        else:
            yield from ((number, f"the text {name} {finding}") for finding in text_findings(name, text, wanted[name], path, default))
        seen.setdefault(name, number)
    yield from ((1, f"the text {name} is missing") for name in wanted if name not in seen)


def text_findings(name, text, wanted, path, default):
    if not text.strip() or text != text.strip():
        yield "is empty, or begins or ends with a blank"
    if name.startswith(REFUSAL) and len(text) > LONGEST_REFUSAL:
        yield f"has {len(text)} characters, more than {LONGEST_REFUSAL}"
    if text == wanted and path.resolve() != default.resolve():
        yield f"is the one of {default.name}: translate it"
    expected, found = set(NAMES.findall(wanted)), set(NAMES.findall(text))
    yield from (f"does not name {each}, as that of {default.name} does" for each in sorted(expected - found))
    yield from (f"names {each}, and that of {default.name} does not" for each in sorted(found - expected))
