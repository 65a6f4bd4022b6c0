#!/usr/bin/env python3
"""Converts the authoring of packages/ to the language of version 4 and later of the compilers.

    tools/kit/authoring_v4.py [FOLDER]

Without FOLDER it checks that all authoring in packages/ and the examples of docs/authoring.md can be converted, that the
results have no construct of version 3, and that docs/authoring-v4.md has the same table of changes as this script. It prints
"FILE:LINE: what is wrong" for each finding; the exit code is 1 if there is one. With FOLDER it writes the results there, as
a release has them in packages-v4/.

An XML parser finds the places that change. All other text stays: comments, preprocessor instructions, the order of lines
and attributes. The script refuses what it does not know: an element, an attribute, the place of an element, a text in an
element, a preprocessor instruction, a variable. If you add one to packages/, find out what version 4 and later make of it.
If nothing changes, add it to ELEMENTS. Otherwise add it to CHANGES, with a test, and to the page.
"""

import re
import sys
from pathlib import Path
from typing import NamedTuple
from xml.parsers import expat

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from kit.guide_examples import all_examples

ROOT = Path(__file__).resolve().parents[2]
PAGE = "docs/authoring-v4.md"
GUIDE = "docs/authoring.md"
SOURCES = "packages"
# The folder of the results in a release, and the one of the guide's examples in it.
FOLDER = "packages-v4"
EXAMPLES = "guide"

OLD_NAMESPACE = "http://schemas.microsoft.com/wix/2006/wi"
NEW_NAMESPACE = "http://wixtoolset.org/schemas/v4/wxs"


class Element(NamedTuple):
    """An element of version 3."""
    # The elements in which it may be.
    parents: str
    # Its attributes whose name, values and meaning are the same in version 4 and later.
    same: str


TOP = "Product Include"
SEQUENCES = "InstallExecuteSequence InstallUISequence"
ELEMENTS = {
    "Wix": Element("", ""),
    "Include": Element("", ""),
    "Product": Element("Wix", "Name Manufacturer Version Language Codepage UpgradeCode"),
    "Package": Element("Product", "InstallerVersion Compressed"),
    "Media": Element(TOP, "Id Cabinet EmbedCab"),
    "MajorUpgrade": Element(TOP, "DowngradeErrorMessage Schedule"),
    "Upgrade": Element(TOP, "Id"),
    "UpgradeVersion": Element("Upgrade", "Property Minimum IncludeMinimum Maximum IncludeMaximum OnlyDetect"),
    "Property": Element(TOP, "Id Value Secure Hidden"),
    "RegistrySearch": Element("Property", "Id Root Key Name Type"),
    "Binary": Element(TOP, "Id SourceFile"),
    "CustomAction": Element(TOP, "Id DllEntry Return Execute Impersonate Property Value Error Directory ExeCommand "
                                 "HideTarget"),
    "InstallExecuteSequence": Element(TOP, ""),
    "InstallUISequence": Element(TOP, ""),
    "Custom": Element(SEQUENCES, "Action Sequence OnExit"),
    "InstallExecute": Element("InstallExecuteSequence", "Sequence"),
    "InstallExecuteAgain": Element("InstallExecuteSequence", "Sequence"),
    "InstallServices": Element("InstallExecuteSequence", "Sequence"),
    "RemoveExistingProducts": Element("InstallExecuteSequence", "Sequence"),
    "UI": Element(TOP, ""),
    "Error": Element("UI", "Id"),
    "ProgressText": Element("UI", "Action Template"),
    "Condition": Element("Product PermissionEx", ""),
    "Directory": Element("Product Directory", "Id Name"),
    "Component": Element("Directory", "Id Guid Permanent KeyPath"),
    "File": Element("Component", "Id Name Source KeyPath"),
    "RegistryValue": Element("Component", "Root Key Name Type Value KeyPath"),
    "ServiceInstall": Element("Component", "Id Name DisplayName Description Type Start ErrorControl Account Password Vital"),
    "ServiceControl": Element("Component", "Id Name Start Stop Remove Wait"),
    "CreateFolder": Element("Component", ""),
    "PermissionEx": Element("CreateFolder", "Sddl"),
    "Feature": Element("Product", "Id Title Level"),
    "ComponentRef": Element("Feature", "Id"),
}

# Each construct of version 3 that changes, with its form in version 4 and later; "" if it is left out. In the notation of
# XPath: ELEMENT, PARENT/ELEMENT, ELEMENT/@ATTRIBUTE, ELEMENT/@ATTRIBUTE="VALUE", ELEMENT/text(), ELEMENT[not(@xmlns)].
CHANGES = {
    'Wix/@xmlns="http://schemas.microsoft.com/wix/2006/wi"': 'Wix/@xmlns="http://wixtoolset.org/schemas/v4/wxs"',
    "Include[not(@xmlns)]": 'Include/@xmlns="http://wixtoolset.org/schemas/v4/wxs"',
    "Product": "Package",
    "Product/@Id": "Package/@ProductCode",
    "Product/Package": "Package",
    "Package/@InstallScope": "Package/@Scope",
    "Package/@Description": "SummaryInformation/@Description",
    "Product/Condition": "Package/Launch",
    "Product/Condition/@Message": "Launch/@Message",
    "Product/Condition/text()": "Launch/@Condition",
    'RegistrySearch/@Win64="yes"': 'RegistrySearch/@Bitness="always64"',
    "CustomAction/@BinaryKey": "CustomAction/@BinaryRef",
    "Custom/text()": "Custom/@Condition",
    "InstallExecute/text()": "InstallExecute/@Condition",
    "InstallExecuteAgain/text()": "InstallExecuteAgain/@Condition",
    "InstallServices/text()": "InstallServices/@Condition",
    "RemoveExistingProducts/text()": "RemoveExistingProducts/@Condition",
    "Error/text()": "Error/@Message",
    "ProgressText/text()": "ProgressText/@Message",
    'Directory/@Id="TARGETDIR"': "",
    'Directory/@Id="CommonAppDataFolder"': 'StandardDirectory/@Id="CommonAppDataFolder"',
    'Directory/@Id="ProgramFiles64Folder"': 'StandardDirectory/@Id="ProgramFiles64Folder"',
    'Directory/@Id="System64Folder"': 'StandardDirectory/@Id="System64Folder"',
    'Component/@Win64="yes"': 'Component/@Bitness="always64"',
    "PermissionEx/Condition": "PermissionEx/@Condition",
    "<?error ... -dNAME=VALUE?>": "<?error ... -d NAME=VALUE?>",
}

# The instructions of the preprocessor that are the same in both.
INSTRUCTIONS = {"define", "undef", "ifdef", "ifndef", "if", "elseif", "else", "endif", "include", "error", "warning",
                "foreach", "endforeach"}
# Those that print a message, and the option of the compiler in it.
MESSAGES = {"error", "warning"}
OPTION = re.compile(r"(?<!\S)-d(?=\w+=)")
NEW_OPTION = "-d "
# All that the preprocessor and the linker replace, except $(var.NAME), the $(NAME) of a loop, and !(loc.NAME).
OTHER_VARIABLE = re.compile(r"\$\((?!var\.\w+\)|\w+\))[^)]*\)?|!\((?!loc\.\w+\))[^)]*\)?")

ATTRIBUTE = re.compile(rb"\s+([\w:.-]+)\s*=\s*(\"[^\"]*\"|'[^']*')")
COMMENT = re.compile(rb"<!--.*?-->", re.DOTALL)


class Unknown(Exception):
    """A construct that cannot be converted; the text says where it is and what to do."""


class Attribute(NamedTuple):
    name: str
    # As written, with references to entities.
    value: str
    # Positions in bytes: of the name, and after the closing quotation mark.
    start: int
    end: int


class Node:
    """An element, with its positions in bytes: of its start tag, after it, of its end tag, after it. The last three are
    equal if the element is one tag."""

    def __init__(self, name, parent, line, start, open_end, attributes):
        self.name, self.parent, self.line = name, parent, line
        self.start, self.open_end, self.close, self.end = start, open_end, open_end, open_end
        self.attributes = attributes
        self.children = []

    def attribute(self, name):
        return next((each for each in self.attributes if each.name == name), None)

    def value(self, name):
        attribute = self.attribute(name)
        return attribute.value if attribute else None

    def walk(self):
        yield self
        for child in self.children:
            yield from child.walk()


class Instruction(NamedTuple):
    name: str
    line: int
    start: int
    end: int


class Document:
    """A parsed text: `data` (its bytes), `root`, `instructions`."""

    def __init__(self, text, name):
        self.name, self.data = name, text.encode()
        self.root, self.instructions, self.open = None, [], []
        parser = expat.ParserCreate()
        parser.StartElementHandler = lambda element, _: self.start_element(parser, element)
        parser.EndElementHandler = lambda _: self.end_element(parser)
        parser.ProcessingInstructionHandler = lambda target, _: self.instruction(parser, target)
        parser.StartDoctypeDeclHandler = lambda *_: self.refuse(parser.CurrentLineNumber, "<!DOCTYPE>")
        try:
            parser.Parse(self.data, True)
        except expat.ExpatError as error:
            raise Unknown(f"{name}:{error.lineno}: this is not XML: {expat.ErrorString(error.code)}") from None

    def start_element(self, parser, element):
        start = parser.CurrentByteIndex
        position, attributes = start + 1 + len(element.encode()), []
        while match := ATTRIBUTE.match(self.data, position):
            attributes.append(Attribute(match[1].decode(), match[2][1:-1].decode(), match.start(1), match.end()))
            position = match.end()
        parent = self.open[-1] if self.open else None
        node = Node(element, parent, parser.CurrentLineNumber, start, self.data.index(b">", position) + 1, attributes)
        if parent:
            parent.children.append(node)
        self.root = self.root or node
        self.open.append(node)

    def end_element(self, parser):
        node = self.open.pop()
        if not self.data[:node.open_end].endswith(b"/>"):
            node.close = parser.CurrentByteIndex
            node.end = self.data.index(b">", node.close) + 1

    def instruction(self, parser, target):
        start = parser.CurrentByteIndex
        self.instructions.append(Instruction(target, parser.CurrentLineNumber, start, self.data.index(b"?>", start) + 2))

    def refuse(self, line, what):
        """For what is not in the tables."""
        raise Unknown(f"{self.name}:{line}: {what} is not in the tables of tools/kit/authoring_v4.py. Find out what "
                      "version 4 and later make of it. Then add it to ELEMENTS if nothing changes, or to CHANGES and to "
                      f"{PAGE}.")

    def wrong(self, node, text):
        """For what is known, and cannot be converted."""
        raise Unknown(f"{self.name}:{node.line}: {text}")

    def text(self, node):
        """What is in an element that has no elements in it; "" if only white space."""
        return "" if node.children else self.data[node.open_end:node.close].decode().strip()

    def own_text(self, node):
        """The text of an element, without its comments, instructions and elements."""
        own, position = b"", node.open_end
        for child in node.children:
            own += self.data[position:child.start]
            position = child.end
        own += self.data[position:node.close]
        return re.sub(r"<\?.*?\?>", "", COMMENT.sub(b"", own).decode(), flags=re.DOTALL).strip()

    def forms(self):
        """(line, form) of each construct that CHANGES could name."""
        for node in self.root.walk():
            names = [node.name] + ([f"{node.parent.name}/{node.name}"] if node.parent else [])
            for name in names:
                yield node.line, name
                yield from ((node.line, form) for each in node.attributes
                            for form in (f"{name}/@{each.name}", f'{name}/@{each.name}="{each.value}"'))
                if self.own_text(node):
                    yield node.line, f"{name}/text()"
            if not node.parent and not node.attribute("xmlns"):
                yield node.line, f"{node.name}[not(@xmlns)]"
        for each in self.instructions:
            if each.name in MESSAGES and OPTION.search(self.data[each.start:each.end].decode()):
                yield each.line, "<?error ... -dNAME=VALUE?>"


def name_of(form):
    """(the element of a form, its attribute or "")."""
    element, _, attribute = form.partition("/@")
    return element.rpartition("/")[2], attribute.partition("=")[0]


def change_of(node, suffix=""):
    """The new form of a construct of an element; None if the construct does not change."""
    parent = node.parent.name if node.parent else ""
    forms = (f"{parent}/{node.name}{suffix}", f"{node.name}{suffix}")
    return next((CHANGES[form] for form in forms if form in CHANGES), None)


def attribute_change(node, attribute):
    by_value = change_of(node, f'/@{attribute.name}="{attribute.value}"')
    return by_value if by_value is not None else change_of(node, f"/@{attribute.name}")


class Converter:
    """Collects the edits of one text."""

    def __init__(self, document):
        self.document, self.data, self.edits = document, document.data, []

    def replace(self, start, end, text):
        self.edits.append((start, end, text.encode()))

    def result(self):
        data, end = self.data, len(self.data)
        for start, stop, text in sorted(self.edits, key=lambda edit: edit[:2], reverse=True):
            assert stop <= end, "two edits overlap"
            data, end = data[:start] + text + data[stop:], start
        return data.decode()

    def refuse(self, node, what):
        self.document.refuse(node.line, what)

    def line_of(self, start, end):
        """The whole lines from `start` to `end` if nothing else is on them, or just that range."""
        begin, stop = self.data.rfind(b"\n", 0, start) + 1, self.data.find(b"\n", end)
        alone = not self.data[begin:start].strip() and stop >= 0 and not self.data[end:stop].strip()
        return (begin, stop + 1) if alone else (start, end)

    def moves_text(self, node):
        return change_of(node, "/text()") is not None and bool(self.data[node.open_end:node.close].strip())

    def rename(self, node, name):
        has_end = node.close != node.end and not self.moves_text(node)
        for position in [node.start + 1] + ([node.close + 2] if has_end else []):
            self.replace(position, position + len(node.name.encode()), name)

    def convert(self):
        for each in self.document.instructions:
            if each.name not in INSTRUCTIONS:
                self.document.refuse(each.line, f"the instruction <?{each.name}?>")
            text = self.data[each.start:each.end].decode()
            if each.name in MESSAGES and OPTION.search(text):
                self.replace(each.start, each.end, OPTION.sub(NEW_OPTION, text))
        blank = COMMENT.sub(lambda match: re.sub(rb"[^\n]", b" ", match[0]), self.data).decode()
        if match := OTHER_VARIABLE.search(blank):
            self.document.refuse(blank.count("\n", 0, match.start()) + 1, f"the variable {match[0]}")
        self.namespace(self.document.root)
        self.visit(self.document.root)
        return self.result()

    def namespace(self, root):
        found = root.value("xmlns")
        if root.name == "Include" and found is None:
            position = root.start + 1 + len(root.name)
            self.replace(position, position, f' xmlns="{NEW_NAMESPACE}"')
        elif root.name == "Include" or found != OLD_NAMESPACE:
            self.refuse(root, f"{root.name} with the namespace {found or 'none'}")

    def check(self, node):
        """Refuses what is not known."""
        known = ELEMENTS.get(node.name)
        parent = node.parent.name if node.parent else ""
        if not known:
            self.refuse(node, node.name)
        if parent not in known.parents.split() and (parent or known.parents):
            self.refuse(node, f"{node.name} in {parent or 'no element'}")
        for attribute in node.attributes:
            if attribute.name == "xmlns" and not node.parent:
                continue
            if attribute.name not in known.same.split() and attribute_change(node, attribute) is None:
                wrong = f"{node.name}/@{attribute.name}"
                by_value = any(form.startswith(f"{wrong}=") for form in CHANGES)
                self.refuse(node, f'{wrong}="{attribute.value}"' if by_value else wrong)
        in_attribute = change_of(node, "/text()") is not None or change_of(node) == "PermissionEx/@Condition"
        if self.document.own_text(node) and not in_attribute:
            self.refuse(node, f"a text in {node.name}")

    def visit(self, node):
        self.check(node)
        if node.name == "Product":
            self.product(node)
            self.attributes(node)
        elif node.name == "Directory":
            self.directory(node)
        elif node.name == "Condition" and node.parent.name == "PermissionEx":
            self.condition_of_permissions(node)
        # product() has converted the inner Package.
        elif node.name != "Package":
            if change_of(node):
                self.rename(node, name_of(change_of(node))[0])
            self.attributes(node)
            self.move_text(node)
        for child in node.children:
            self.visit(child)

    def attributes(self, node):
        for attribute in node.attributes:
            new = attribute_change(node, attribute)
            if new is None:
                continue
            name = name_of(new)[1]
            value = re.search(r'="(.*)"$', new)
            self.replace(attribute.start, attribute.start + len(attribute.name.encode()), name)
            if value:
                self.replace(attribute.end - 1 - len(attribute.value.encode()), attribute.end - 1, value[1])

    def quoted(self, node, name):
        """The text of an element as the value of the attribute `name`, in quotation marks."""
        raw = self.document.text(node)
        if "<" in raw:
            self.document.wrong(node, f"the text of {node.name} has a comment, an instruction or CDATA in it, which an "
                                      "attribute cannot have. Move it out of the element.")
        if name == "Message" and (re.search(r"[\n\t]", raw) or raw != self.data[node.open_end:node.close].decode()):
            self.document.wrong(node, f"the text of {node.name} has line breaks, tabs, or blanks at an end, which an "
                                      "attribute loses. Write it in one line.")
        raw = re.sub(r"\s*\n\s*", " ", raw)
        mark = "'" if '"' in raw and "'" not in raw else '"'
        return mark + (raw.replace('"', "&quot;") if mark == '"' else raw) + mark

    def move_text(self, node):
        if not self.moves_text(node):
            return
        name = name_of(change_of(node, "/text()"))[1]
        self.replace(node.open_end - 1, node.end, f" {name}={self.quoted(node, name)}/>")

    def condition_of_permissions(self, node):
        parent = node.parent
        rest = self.data[parent.open_end:node.start] + self.data[node.end:parent.close]
        if rest.strip() or not self.document.text(node):
            self.document.wrong(node, "PermissionEx must have nothing in it but one condition with a text, because it "
                                      "becomes one tag. Leave the rest out.")
        self.replace(parent.open_end - 1, parent.end, f" Condition={self.quoted(node, 'Condition')}/>")

    def directory(self, node):
        new = CHANGES.get(f'Directory/@Id="{node.value("Id")}"')
        in_root = node.parent.name == "Directory" and node.parent.value("Id") == "TARGETDIR"
        if new is None:
            if not node.attribute("Name"):
                self.refuse(node, f"the standard directory {node.value('Id')}")
            return
        if new:
            if [each.name for each in node.attributes] != ["Id"]:
                self.document.wrong(node, f"{node.value('Id')} has attributes that StandardDirectory does not have. Leave "
                                          "them out.")
            if not in_root:
                self.document.wrong(node, f"{node.value('Id')} is not directly in TARGETDIR, but StandardDirectory must be "
                                          "directly in Package. Move it.")
            self.rename(node, name_of(new)[0])
            return
        if node.parent.name != "Product" or {child.name for child in node.children} - {"Directory"}:
            self.document.wrong(node, "TARGETDIR must be in Product and have only directories in it, because version 4 and "
                                      "later leave it out. Move what else it has into a directory with a name.")
        self.replace(*self.line_of(node.start, node.open_end), "")
        if node.close != node.end:
            self.replace(*self.line_of(node.close, node.end), "")

    def product(self, node):
        """Makes one element of Product and the Package in it."""
        inner = [child for child in node.children if child.name == "Package"]
        if len(inner) != 1 or inner[0].close != inner[0].end:
            self.document.wrong(node, "Product must have exactly one Package, of one tag, because the two become one "
                                      "element")
        inner = inner[0]
        self.rename(node, CHANGES["Product"])
        moved, description = [], None
        for attribute in inner.attributes:
            new, raw = attribute_change(inner, attribute), self.data[attribute.start:attribute.end].decode()
            element, name = name_of(new) if new else (CHANGES["Product/Package"], attribute.name)
            raw = name + raw[len(attribute.name):]
            if element == CHANGES["Product/Package"]:
                moved.append(raw)
            else:
                description = f"<{element} {raw}/>"
        if moved:
            column = node.attributes[0].start - self.data.rfind(b"\n", 0, node.attributes[0].start) - 1
            self.replace(node.attributes[-1].end, node.attributes[-1].end, "\n" + " " * column + " ".join(moved))
        begin, end = self.line_of(inner.start, inner.end)
        self.move_comment(node, begin)
        if description:
            self.replace(inner.start, inner.end, description)
        else:
            self.replace(begin, end, "")

    def move_comment(self, node, end):
        """A comment before the inner Package speaks of its attributes, so it goes to the place before Product."""
        begin = node.open_end + 1
        block = self.data[begin:end]
        if self.data[node.open_end:begin] != b"\n" or not block.strip() or COMMENT.sub(b"", block).strip():
            return
        margin = self.data.rfind(b"\n", 0, node.start) + 1
        indent = len(block) - len(block.lstrip(b" ")) - (node.start - margin)
        lines = [line[indent:] if not line[:indent].strip() else line for line in block.decode().splitlines(keepends=True)]
        self.replace(begin, end, "")
        self.replace(margin, margin, "".join(lines))


def convert(text, name):
    """`text`, authoring of version 3, in the language of version 4 and later. `name` is the file's name for messages. Raises
    Unknown for a construct that is not in the tables."""
    return Converter(Document(text, name)).convert()


def known_forms():
    """The elements and the attributes of version 4 and later that a result may have."""
    names = set()
    for element, (_, same) in ELEMENTS.items():
        new = CHANGES.get(element, element)
        names |= {new} | {f"{new}/@{attribute}" for attribute in same.split()}
    for new in CHANGES.values():
        element, attribute = name_of(new)
        names |= {element, f"{element}/@{attribute}"} if attribute else {element}
    return names - {"Condition", ""}


def findings(text, name):
    """What a result has of version 3, or of neither: "FILE:LINE: what is wrong" for each."""
    document, known = Document(text, name), known_forms()
    for line, form in dict.fromkeys(document.forms()):
        if form in CHANGES:
            new = CHANGES[form]
            then = f"Version 4 and later have {new}." if new else "Leave it out."
            yield f"{name}:{line}: {form} is of version 3. {then}"
    for node in document.root.walk():
        names = [node.name] + [f"{node.name}/@{each.name}" for each in node.attributes if each.name != "xmlns"]
        yield from (f"{name}:{node.line}: {form} is not known in version 4 and later" for form in names
                    if form not in known and form not in CHANGES)
        if document.own_text(node):
            yield f"{name}:{node.line}: {node.name} has a text, which version 4 and later do not have"
    if document.root.value("xmlns") != NEW_NAMESPACE:
        yield f"{name}:{document.root.line}: {document.root.name} does not have the namespace {NEW_NAMESPACE}"


def page_changes(page):
    """The rows of the page's table of changes: each construct of version 3 with its new form."""
    return {old: new if new != "left out" else "" for old, new in
            re.findall(r"^\| `([^`]+)` \| (?:`(?=[^`]+` \|))?([^`|]+?)`? \|", page, re.MULTILINE)}


def page_findings(page):
    rows = page_changes(page)
    for old in dict.fromkeys([*CHANGES, *rows]):
        if old not in rows:
            yield f"{PAGE}:1: no row of the table of changes has {old}"
        elif old not in CHANGES:
            yield f"{PAGE}:1: {old} in the table of changes is not in CHANGES of tools/kit/authoring_v4.py"
        elif rows[old] != CHANGES[old]:
            yield f"{PAGE}:1: {old} becomes {CHANGES[old] or 'nothing'}, but the row has {rows[old]}"


def sources(project, names=None):
    """The authoring of a project, each text by its path in FOLDER; with `names` only these files of the project, and the
    examples of the guide. {path in FOLDER: (path in the project, text)}"""
    names = names if names is not None else [str(path.relative_to(project)) for path in (project / SOURCES).rglob("*.*")]
    found = {name.removeprefix(f"{SOURCES}/"): (name, (project / name).read_text(encoding="utf-8"))
             for name in sorted(names) if re.fullmatch(rf"{SOURCES}/.+\.wx[a-z]", name)}
    for path, (name, _) in found.items():
        if not path.endswith((".wxi", ".wxs")):
            raise Unknown(f"{name}:1: tools/kit/authoring_v4.py cannot convert a file of this kind. Teach it to do that.")
    guide = project / GUIDE
    return found | {f"{EXAMPLES}/{name}": (GUIDE, text) for name, text in all_examples(guide).items()}


def authoring(project, names=None):
    """The texts for version 4 and later, by their paths in FOLDER. See sources()."""
    return {path: convert(text, name) for path, (name, text) in sources(project, names).items()}


def all_findings(project):
    try:
        texts = sources(project)
    except Unknown as error:
        yield str(error)
        return
    for path, (name, text) in texts.items():
        try:
            yield from findings(convert(text, name), f"{FOLDER}/{path}")
        except Unknown as error:
            yield str(error)
    yield from page_findings((project / PAGE).read_text(encoding="utf-8"))


def main():
    if len(sys.argv) > 2 or sys.argv[1:2] and sys.argv[1].startswith("-"):
        sys.exit(__doc__)
    if len(sys.argv) == 2:
        try:
            texts = authoring(ROOT)
        except Unknown as error:
            sys.exit(str(error))
        for path, text in texts.items():
            target = Path(sys.argv[1]) / path
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_text(text, encoding="utf-8", newline="")
        return 0
    found = list(all_findings(ROOT))
    print(*found, sep="\n", end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
