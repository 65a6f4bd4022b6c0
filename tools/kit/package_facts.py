"""Reads the installer authoring in packages/, and the facts about the entry points in docs/actions.md. For the scripts of
this folder.

A fragment is a file packages/NAME.wxi that authors include. A model is a package packages/FOLDER/NAME.wxs that includes
fragments. A fragment in a model's own folder (a witness for tests) counts as neither.
"""

import re
import tempfile
import xml.etree.ElementTree as ElementTree
from collections import namedtuple
from pathlib import Path

from kit.guide_examples import all_examples
from kit.texts import DEFINE, VARIABLE, default_texts, replace_variables
from lint.entry_points import NAME, page_lines

# The facts about an entry point in docs/actions.md: the names in the rows "Reads" and "Writes" of its section.
Section = namedtuple("Section", "reads writes")

# One row of a sequence: `place` is "UI" or "execute", `file` the name of its file.
Row = namedtuple("Row", "place number action condition file")

EXIT_NUMBERS = {"success": -1, "cancel": -2, "error": -3, "suspend": -4}
SEQUENCES = {"InstallUISequence": "UI", "InstallExecuteSequence": "execute"}

# The sequences of an administrative installation and of an advertisement, by the compilers' names and the tables'.
OTHER_SEQUENCES = ("AdminUISequence", "AdminExecuteSequence", "AdvertiseExecuteSequence", "AdvtExecuteSequence")

# The place where MajorUpgrade removes older versions, by its attribute Schedule.
REMOVAL = {"afterInstallValidate": 1401, "afterInstallInitialize": 1501, "afterInstallFinalize": 6601}

PUBLIC = re.compile(r"[A-Z][A-Z0-9_.]*")

# The beginning of a sentence of a head that describes entry points.
NAMED = re.compile(r"(CustomAction\d+(, )?)+: ")

# A guard, which stops the compiler if a variable is or is not defined.
GUARD = re.compile(r"<\?(ifdef|ifndef) var\.(\w+)\?><\?error ([^?]*)\?><\?endif\?>")

# The one fragment that every package includes.
LIBRARY_FRAGMENT = "library.wxi"

# The properties that the page names.
PROPERTY = re.compile(r"(PROP|DIR)_[A-Z0-9_]+|REBOOT|ProductName|ProductCode|CustomActionData")


class Authoring:
    """One file of authoring: a fragment, or a model without the files that it includes. `text` is the text of the file. All
    other facts are read after the compiler's variables are replaced: by `variables`, or else by the values that the file
    itself `defines`.

    `guards`      its guards, each ("ifdef" or "ifndef", variable, message)
    `head`        the comment before the first element
    `actions`     the attributes of each action by its name
    `rows`        the rows of its sequences
    `others`      the rows of the OTHER_SEQUENCES, each (sequence, action)
    `properties`  the attributes of each declared property by its name
    `searched`    the properties that a search sets
    `found`       those of them that AppSearch sets
    `errors`      the numbers of its error texts
    `progress`    the actions with a text for the progress page, each as often as it has one
    `folders`     its directories
    `passwords`   the properties with the passwords of its services
    `includes`    the files that it includes
    `searches`    the registry values that it searches for, each (key, name)
    `registry`    the registry values that it writes, by (key, name)"""

    def __init__(self, path, variables=None):
        self.name = path.name
        self.path = path
        self.text = path.read_text(encoding="utf-8")
        self.defines = dict(DEFINE.findall(self.text))
        self.guards = GUARD.findall(self.text)
        known = {**self.defines, **(variables or {})}
        self.root = ElementTree.fromstring(replace_variables(self.text, known))
        for element in self.root.iter():
            element.tag = element.tag.rpartition("}")[2]
        comment = re.search(r"<!--(.*?)-->", self.text, re.DOTALL)
        self.head = re.sub(r"[ \t]+", " ", comment[1]).strip() if comment else ""
        self.actions = {element.get("Id"): program_named(element.attrib) for element in self.root.iter("CustomAction")}
        self.properties = {element.get("Id"): element.attrib for element in self.root.iter("Property")}
        self.searched = {element.get("Id") for element in self.root.iter("Property") if len(element)}
        self.found = set(self.searched)
        self.searched |= {element.get("Property") for element in self.root.iter("UpgradeVersion")}
        self.errors = [element.get("Id") for element in self.root.iter("Error")]
        self.progress = [element.get("Action") for element in self.root.iter("ProgressText")]
        self.folders = {element.get("Id") for element in self.root.iter("Directory")}
        self.passwords = {name for element in self.root.iter("ServiceInstall")
                          for name in named_in(element.get("Password", ""))}
        self.searches = {(element.get("Key"), element.get("Name")) for element in self.root.iter("RegistrySearch")}
        self.registry = {(element.get("Key"), element.get("Name")): element.get("Value")
                         for element in self.root.iter("RegistryValue")}
        self.includes = re.findall(r"<\?include\s+(\S+?)\s*\?>", self.text)
        self.rows = list(self.read_rows())
        self.others = [(tag, element.get("Action", element.tag)) for tag in OTHER_SEQUENCES
                       for sequence in self.root.iter(tag) for element in sequence]

    def read_rows(self):
        for tag, place in SEQUENCES.items():
            for sequence in self.root.iter(tag):
                for element in sequence:
                    number = element.get("Sequence")
                    number = int(number) if number else EXIT_NUMBERS[element.get("OnExit")]
                    action = element.get("Action", element.tag)
                    yield Row(place, number, action, (element.text or "").strip(), self.name)
        upgrade = self.root.find(".//MajorUpgrade")
        if upgrade is not None:
            number = REMOVAL[upgrade.get("Schedule", "afterInstallValidate")]
            yield Row("execute", number, "RemoveExistingProducts", "", self.name)
            self.searched |= {"WIX_UPGRADE_DETECTED"}

    def purpose(self):
        """The first sentence of the head, and the sentences of its first paragraph that begin with an entry point."""
        first, *others = sentences(self.head.split("\n\n")[0])
        said = [NAMED.sub("", sentence) for sentence in [first] + [other for other in others if NAMED.match(other)]]
        return " ".join(text[:1].upper() + text[1:] for text in said)

    def said_needs(self):
        """The fragments that must be included too, according to its head."""
        return sorted({name for sentence in sentences(self.head) if "must be included too" in sentence
                       for name in re.findall(r"\w+\.wxi", sentence)} - {self.name})

    def fronts(self):
        """The fragments that must come before it, according to its guards."""
        return sorted(match[1] for kind, _, message in self.guards
                      if kind == "ifndef" and (match := re.search(r" needs (\w+\.wxi)\.", message)))

    def needs(self):
        """The fragments that its guards ask for, without the one that every package includes."""
        return [name for name in self.fronts() if name != LIBRARY_FRAGMENT]

    def values(self):
        """All formatted texts of the actions."""
        texts = [action[key] for action in self.actions.values() for key in ("Value", "ExeCommand", "Error") if action.get(key)]
        return texts + [f"[{action['Program']}]" for action in self.actions.values() if action.get("Program")]

    def entry_points(self):
        return [action["DllEntry"] for action in self.actions.values() if action.get("BinaryKey") == "hxsetup"]


class Model:
    """A package with everything that it includes: `files` are its own file and the fragments. `variables` are the variables
    that the fragments define, with the package's values."""

    def __init__(self, root, path, fragments, name=None):
        self.name = name or path.relative_to(root / "packages").as_posix()
        defaults = {name: value for each in fragments.values() for name, value in each.defines.items()}
        self.variables = {**default_texts(root), **defaults, **Authoring(path).defines}
        own = Authoring(path, self.variables)
        self.fragments = [name for name in own.includes if name in fragments]
        self.unknown = [name for name in own.includes
                        if name not in fragments and not (root / "packages" / name).is_file()]
        self.files = [own] + [Authoring(fragments[name].path, self.variables) for name in self.fragments]
        self.actions = {name: action for file in self.files for name, action in file.actions.items()}
        self.rows = [row for file in self.files for row in file.rows]
        self.others = [row for file in self.files for row in file.others]
        self.found = {name for file in self.files for name in file.found}
        self.properties = {}
        for file in reversed(self.files):
            for name, attributes in file.properties.items():
                self.properties[name] = {**self.properties.get(name, {}), **attributes}
        self.folders = own.folders
        self.passwords = own.passwords
        self.registry = own.registry

    def defaults(self):
        """The properties that are set when a run begins: the defaults, and those that an administrator's run has."""
        return {"AdminUser": "1"} | {name: attributes["Value"] for name, attributes in self.properties.items() if "Value" in attributes}


def sentences(text):
    """The sentences of a comment."""
    return re.split(r"(?<=\.)\s+(?=\S)", " ".join(text.split()))


def program_named(action):
    """The attributes of an action. "Property" names what it sets; if it runs a program instead, "Program" names the property
    with its path."""
    if "ExeCommand" not in action or "Property" not in action:
        return action
    return {"Program" if key == "Property" else key: value for key, value in action.items()}


# A value that an action writes with the system's program: its key and its name.
WRITES = re.compile(r'add "HKLM\\(.+?)" /v (\w+) /d ')


def written_by(actions):
    """The registry values that actions write with the system's program: {(key, name)}."""
    return {match.groups() for action in actions.values() if (match := WRITES.match(action.get("ExeCommand", "")))}


def named_in(text):
    """The properties that a formatted text names in brackets."""
    return re.findall(r"\[([A-Za-z_][\w.]*)\]", text)


def guard_variable(name):
    """The variable that a fragment defines when it is included."""
    return "Fragment" + "".join(word.capitalize() for word in name.removesuffix(".wxi").split("_"))


def read_fragments(root):
    """The fragments by their names, each read with the variables that all of them define."""
    paths = sorted((root / "packages").glob("*.wxi"))
    variables = {**default_texts(root), **{name: value for path in paths for name, value in Authoring(path).defines.items()}}
    return {path.name: Authoring(path, variables) for path in paths}


def read_models(root, fragments):
    """The models that include a fragment."""
    return [model for model in read_all_models(root, fragments) if model.fragments or model.unknown]


def read_all_models(root, fragments):
    return [Model(root, path, fragments) for path in sorted((root / "packages").glob("*/*.wxs"))]


def read_packages(root, fragments):
    """Every package: those in packages/, and the examples of the guide, if it exists."""
    packages = read_all_models(root, fragments)
    guide = root / "docs/authoring.md"
    with tempfile.TemporaryDirectory(prefix="hx-packages-") as folder:
        for name, text in (all_examples(guide) if guide.is_file() else {}).items():
            source = Path(folder) / name
            source.write_text(text, encoding="utf-8")
            packages.append(Model(root, source, fragments, name))
    return packages


def read_sections(root):
    """The facts about each entry point on the page."""
    sections, name = {}, None
    for line in page_lines(root):
        if line.startswith("## "):
            match = re.match(r"## (CustomAction\d+)\b", line)
            name = match[1] if match else None
            if name:
                sections[name] = Section(set(), set())
        match = re.match(r"\| (Reads|Writes|Notice) \| (.*) \|$", line)
        if name and match:
            names = {word for word in re.findall(r"\w+", match[2]) if PROPERTY.fullmatch(word)}
            if match[1] == "Writes":
                sections[name].writes.update(names)
            else:
                sections[name].reads.update(names)
    return sections


def read_jobs(root):
    """The job of each entry point, from the index's summary table."""
    return {match[1]: match[2] for line in page_lines(root)
            if (match := re.match(r"\| \[(CustomAction\d+)\]\([\w/.]*#\w+\) \| (.*?) \|", line))}


def read_notices(root):
    """The numbers in the index's table of notices, each with the entry point that sends it."""
    return {match[1]: match[2] for line in page_lines(root)
            if (match := re.match(r"\| (\d{5}) \| \[(CustomAction\d+)\]", line))}


def read_code_properties(root):
    """The properties that src/ reads and writes by name."""
    return {name for path in (root / "src").rglob("*.cpp")
            for name in re.findall(r'"((?:PROP|DIR)_[A-Z0-9_]+)"', path.read_text(encoding="utf-8"))}


def read_mentions(path):
    """The entry points that a file names anywhere."""
    return set(NAME.findall(path.read_text(encoding="utf-8")))
