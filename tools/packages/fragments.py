"""What the fragments in packages/ have and need, read from their files: from the elements, the guards and the heads. For the
scripts of this folder."""

import functools
import re
from collections import namedtuple
from pathlib import Path

from kit.kit_checks import ENGINE
from kit.package_facts import VARIABLE, Authoring, written_by
from packages.conditions import is_met, names_of, parse

FRAGMENTS = Path(__file__).resolve().parents[2] / "packages"

# Types of actions: the bits that select what an action is, parts of them, their values, and other bits.
WHOLE, KIND, IN_FILES = 0x3F, 0x07, 0x30
DLL, REFUSES, RUNS_IN, RUNS, SETS = 1, 19, 34, 50, 51
IGNORED, ONCE, ROLLBACK, COMMIT, LATER, AS_SYSTEM, HIDDEN = 0x40, 0x100, 0x100, 0x200, 0x400, 0x800, 0x2000
PHASES = {"immediate": 0, "firstSequence": ONCE, "deferred": LATER, "rollback": LATER + ROLLBACK, "commit": LATER + COMMIT}

EXECUTE, DIALOGS = "InstallExecuteSequence", "InstallUISequence"
TABLES = {"execute": EXECUTE, "UI": DIALOGS}

# Terms of conditions that are known in a first installation without a command line.
FIRST_INSTALLATION = {"Installed": "", "REMOVE": "", "REINSTALL": ""}

# A property in a formatted text.
NAMED = re.compile(r"\[\w+\]")
# A variable in what is read of a fragment: the sign keeps it from being replaced.
OPEN = re.compile("«(\\w+)»")

# What the heads say that a package must have, each with its pattern in a head whose blanks are single.
REMOVAL_AT_END = re.compile(r"(?:RemoveExistingProducts|MajorUpgrade|removal of older versions) "
                            r'(?:after InstallFinalize|with Schedule="afterInstallFinalize")')
SERVICE = re.compile(r'ServiceInstall with ((?:(?:and )?\w+="[^"]*" ?)+)')
ATTRIBUTE = re.compile(r'(\w+)="([^"]*)"')
ONLY_IF = re.compile(r"\b(\w+) only if (NOT \w+):")
BEFORE = re.compile(r"\b(\w+) before (\d+):")
CONVERSION = re.compile(r"between (\d+) and (\d+), deferred")
CREATED = re.compile(r"a component with CreateFolder in (\w+):")
PROGRAMS = re.compile(r"\b(\w+) the folder of the programs, with (.*?) in it\b")
LIBRARY_FILE = re.compile(r"\b(\S+\.DLL) for the package's processor, in (\w+):")
NAMED_FILE = re.compile(r"the file that the variable (\w+) names .*?, in the folder (\w+),")
TOGETHER = re.compile(r"Define (\w+(?:, \w+)* and \w+), or none of them\.")
FOLDER = re.compile(r"\bDIR_\w+")

# One action of a fragment: the number of its type, its source, and the pattern of its target.
Action = namedtuple("Action", "type source target")


def pattern_of(text):
    """A pattern for a text of a fragment: a variable stands for any text, and is a group of its name."""
    parts, seen, last = [], set(), 0
    for match in OPEN.finditer(text):
        parts += [re.escape(text[last:match.start()]), f"(?P={match[1]})" if match[1] in seen else f"(?P<{match[1]}>.*)"]
        seen.add(match[1])
        last = match.end()
    return re.compile("".join(parts) + re.escape(text[last:]), re.DOTALL)


def type_of(action):
    """The number of an action's type, from its attributes."""
    kind = next((kind for name, kind in (("Error", REFUSES), ("Program", RUNS), ("Directory", RUNS_IN), ("Property", SETS))
                 if action.get(name)), DLL)
    phase = PHASES[action.get("Execute", "immediate")]
    return kind + phase + AS_SYSTEM * (action.get("Impersonate") == "no") + IGNORED * (action.get("Return") == "ignore") + (
        HIDDEN * (action.get("HideTarget") == "yes"))


def first_of(action, names):
    """The first of these attributes that an action has."""
    return next((action[name] for name in names.split() if action.get(name)), None)


class Fragment:
    """What a fragment has and needs. `name` is its file's name.

    `actions`, `rows`    {name: Action}, and {(table, action): (number, condition)}; patterns have the variables
    `fronts`             the fragments that must come before it
    `calls_with_data`    the entry points that it calls with data
    `searches`           {name of a search: (property, key, name)}; `key` is a pattern
    `written`            the searches whose key is a variable, and whose value no action of the fragment writes: the package does
    `texts`, `progress`  the numbers of its Error texts, the actions with a text for the progress
    `defaults`           the variables that it defines, with the values
    `named_together`     the variables of which a package defines all or none, as a text
    `binaries`           its rows of the table Binary
    `required`           the properties that the package must give it: {name: (action that refuses a run without it, number)}
    The rest is what its head says: see the patterns above."""

    def __init__(self, path):
        self.name, text = path.name, path.read_text(encoding="utf-8")
        file = Authoring(path, {name: f"«{name}»" for name in VARIABLE.findall(text)})
        self.defaults = file.defines
        self.actions = {name: Action(type_of(action), first_of(action, "BinaryKey Program Directory Property"),
                                     pattern_of(first_of(action, "Error Value DllEntry ExeCommand")))
                        for name, action in file.actions.items()}
        self.rows = {(TABLES[row.place], row.action): (row.number, row.condition) for row in file.rows}
        self.fronts = file.fronts()
        data = {action.source for action in self.actions.values() if action.type & WHOLE == SETS}
        self.calls_with_data = {action["DllEntry"] for name, action in file.actions.items()
                                if action.get("DllEntry") and name in data}
        self.properties = file.properties
        self.searches = {search.get("Id"): (element.get("Id"), pattern_of(search.get("Key")), search.get("Name"))
                         for element in file.root.iter("Property") for search in element.iter("RegistrySearch")}
        self.written = {search.get("Id") for search in file.root.iter("RegistrySearch") if OPEN.fullmatch(search.get("Key"))
                        and (search.get("Key"), search.get("Name")) not in written_by(file.actions)}
        self.texts = file.errors
        self.progress = [element.get("Action") for element in file.root.iter("ProgressText")]
        self.named_together = next((match[1] for guard in file.guards if (match := TOGETHER.search(guard[2]))), "")
        self.binaries = [element.get("Id") for element in file.root.iter("Binary")]
        self.read_head(" ".join(file.head.split()))
        self.required = self.read_required()

    def read_head(self, head):
        """Reads what the head says; its blanks are single."""
        self.removal = bool(REMOVAL_AT_END.search(head))
        service = SERVICE.search(head)
        self.service = dict(ATTRIBUTE.findall(service[1])) if service else {}
        self.only_if = dict(ONLY_IF.findall(head))
        self.before = {name: int(number) for name, number in BEFORE.findall(head)}
        self.conversion = [(int(first), int(last)) for first, last in CONVERSION.findall(head)]
        self.created = CREATED.findall(head)
        self.programs = [(folder, re.findall(r"[\w-]+\.\w+", names)) for folder, names in PROGRAMS.findall(head)]
        self.programs += [(folder, [name]) for name, folder in LIBRARY_FILE.findall(head)]
        self.named_files = NAMED_FILE.findall(head)
        self.folders = set(FOLDER.findall(head))
        self.values = {*NAMED.findall(head), "[ProductCode]"} - set(self.service.values())

    def read_required(self):
        """The properties without which each first installation is refused: {name: (refusal, number)}."""
        found = {}
        for (table, action), (number, condition) in self.rows.items():
            if table == EXECUTE and action in self.actions and self.actions[action].type == REFUSES:
                tree = parse(condition)
                for name in names_of(tree):
                    if name not in ENGINE and is_met(tree, {**FIRST_INSTALLATION, name: ""}):
                        found.setdefault(name, (action, number))
        return found


@functools.cache
def read_fragments(folder=FRAGMENTS):
    """The fragments by the names of their files."""
    return {path.name: Fragment(path) for path in sorted(Path(folder).glob("*.wxi"))}
