"""The rules for packages that use the library, for an .msi of any author. Which fragments a package uses is known by the
names of its actions. What a fragment has and needs is read from its file in packages/: its elements, its guards and its
head. For the scripts of this folder."""

import functools
import re
import tempfile
from pathlib import Path

from images.image_facts import Program, parse_version_resource
from kit.kit_checks import (LISTS, NOT_SECURE, NOTHING, PAIRS, PROTECTED, READ_AS_SYSTEM, REAL_RIGHTS, REFUSAL,
                            REFUSAL_CONDITION, REFUSAL_PLACE, RIGHTS)
from kit.package_facts import LIBRARY_FRAGMENT, OTHER_SEQUENCES
from packages.conditions import ConditionError, implies, parse
from packages.fragments import (AS_SYSTEM, DIALOGS, DLL, EXECUTE, IN_FILES, KIND, LATER, NAMED, REFUSES, ROLLBACK, SETS,
                                WHOLE, pattern_of, read_fragments)
from packages.tables import PackageError, run

EXITS = {-1: "success", -2: "cancel", -3: "error", -4: "suspend"}
BEGIN, END = "InstallInitialize", "InstallFinalize"
# Their numbers and those of costing in a package that does not say them, as all compilers give them.
NUMBERS = {"AppSearch": 50, "CostInitialize": 800, "CostFinalize": 1000, BEGIN: 1500, END: 6600}

MACHINES = {"Arm64": ("IMAGE_FILE_MACHINE_ARM64", "arm64"), "x64": ("IMAGE_FILE_MACHINE_AMD64", "x64")}
PROCESSORS = {machine: label for machine, label in MACHINES.values()} | {"IMAGE_FILE_MACHINE_I386": "x86"}
TEMPLATE = 7

LOCAL_MACHINE = 2
COMPONENT_64_BIT = 0x100
# A row of Upgrade that only finds, and removes nothing.
ONLY_DETECT = 2

# The columns with conditions: the table, the column, and the column that names what the condition is of.
CONDITIONS = [(table, "Condition", "Action") for table in (EXECUTE, DIALOGS, *OTHER_SEQUENCES)] + [
    ("LaunchCondition", "Condition", "Description"), ("Condition", "Condition", "Feature_"),
    ("Component", "Condition", "Component"), ("ControlCondition", "Condition", "Control_"),
    ("ControlEvent", "Condition", "Control_"), ("MsiLockPermissionsEx", "Condition", "LockObject")]

# Attributes of ServiceInstall and their columns.
SERVICE_COLUMNS = {"Account": "StartName", "Password": "Password"}


# The library's file name in its version resource; the name of an entry point, and how many of them no other DLL has.
LIBRARY_FILE = "hxsetup.dll"
ENTRY_POINT = re.compile(r"CustomAction\d+")
MANY_ENTRY_POINTS = 10


class Package:
    """What the rules read of a package.

    `actions`     the rows of CustomAction, by their names
    `sequences`   {table: {action: (number, condition)}}
    `properties`  {name: value}
    `used`        the fragments that it uses
    `owner`       {action: the fragment that has it}
    `variables`   the compiler's variables that it was made with, as far as its tables show them"""

    def __init__(self, database, path, fragments):
        self.database, self.path, self.fragments = database, Path(path), fragments
        self.actions = {row["Action"]: row for row in database.rows("CustomAction")}
        self.sequences = {table: {row["Action"]: (row["Sequence"], row["Condition"]) for row in database.rows(table)
                                  if row["Sequence"] is not None} for table in (EXECUTE, DIALOGS, *OTHER_SEQUENCES)}
        self.variables = {}
        self.properties = database.properties()
        self.used = [fragment for fragment in self.fragments.values() if self.uses(fragment)]
        self.owner = {name: fragment for fragment in self.used for name in fragment.actions}
        self.find_variables()

    def uses(self, fragment):
        """A fragment is used if one of its actions is in the package: one that calls the library, or one that is the same. A
        fragment without actions is used if all of its secure properties are there."""
        if fragment.actions:
            return any(name in self.actions and (same_action(action, self.actions[name]) or action.type & WHOLE == DLL and
                                                 self.actions[name]["Type"] & WHOLE == DLL)
                       for name, action in fragment.actions.items())
        secure = {name for name, attributes in fragment.properties.items() if attributes.get("Secure") == "yes"}
        return bool(secure) and secure <= self.listed("SecureCustomProperties")

    def find_variables(self):
        keys = {row["Signature_"]: row["Key"] for row in self.database.rows("RegLocator")}
        for fragment in self.used:
            pairs = [(pattern, keys.get(search)) for search, (_, pattern, _) in fragment.searches.items()]
            pairs += [(action.target, self.actions[name]["Target"]) for name, action in fragment.actions.items()
                      if name in self.actions]
            pairs += [(pattern_of(attributes["Value"]), self.properties.get(name))
                      for name, attributes in fragment.properties.items() if attributes.get("Value")]
            for pattern, text in pairs:
                match = pattern.fullmatch(text) if text is not None else None
                for name, value in match.groupdict().items() if match else ():
                    self.variables.setdefault(name, value)

    def listed(self, name):
        """The names in a property that lists properties."""
        return set(filter(None, (self.properties.get(name) or "").split(";")))

    def number(self, action, table=EXECUTE):
        return self.sequences[table].get(action, (NUMBERS.get(action), None))[0]

    def calls(self):
        """The actions that call a DLL in the package: their rows."""
        return [row for row in self.actions.values() if row["Type"] & KIND == DLL and not row["Type"] & IN_FILES]

    @functools.cached_property
    def libraries(self):
        """The names in the table Binary that are the library: the fragments' name, and any other name of the same DLL."""
        names = {binary for fragment in self.fragments.values() for binary in fragment.binaries}
        called = {row["Source"] for row in self.calls()}
        return names | {row["Name"] for row in self.database.rows("Binary")
                        if row["Name"] in called - names and is_library(self.program(row["Name"]))}

    @functools.lru_cache(maxsize=None)
    def program(self, name):
        """A DLL of the table Binary; None if it is not one."""
        return read_program(self.path, name)

    def library_calls(self):
        return {row["Action"]: row for row in self.calls() if row["Source"] in self.libraries}

    def is_later(self, action):
        return bool(self.actions[action]["Type"] & LATER) if action in self.actions else False

    def setters(self, name):
        """The actions that give a property a value."""
        return [action for action, row in self.actions.items()
                if row["Type"] & WHOLE == SETS and row["Source"] == name and row["Target"] not in (None, NOTHING)]


# ---- the rules: each yields (severity, text)

def error(text):
    return "error", text


def warning(text):
    return "warning", text


def join(names):
    names = list(names)
    return " and ".join([", ".join(names[:-1]), names[-1]] if len(names) > 1 else names)


def rule_library(package):
    """The DLL is of the package's processor and has each entry point that an action names."""
    template = (package.database.summary.get(TEMPLATE) or "").split(";")[0]
    machine, processor = MACHINES.get(template, (None, None))
    if machine is None:
        yield error(f"The package is for the processor {template or 'Intel'}: the library is for x64 and Arm64 only. Compile "
                    "with -arch x64 or -arch arm64.")
    binaries = {row["Name"] for row in package.database.rows("Binary")}
    named = package.libraries
    calls = {}
    for row in package.calls():
        calls.setdefault(row["Source"], []).append(row)
    for name in sorted({*calls, *(named & binaries)}):
        if name not in binaries:
            said = f"Include {LIBRARY_FRAGMENT}." if name in named else "Add a Binary element of this name."
            yield error(f"The table Binary has no {name}, which {join(row['Action'] for row in calls[name])} "
                        f"{'calls' if len(calls[name]) == 1 else 'call'}. {said}")
            continue
        program = package.program(name)
        found = program and program.file_header.get("Machine", "").split(" ")[0]
        if not found:
            yield error(f"{name} in the table Binary is not a DLL of Windows. "
                        + ("Give the variable LibraryFile the path of hxsetup.dll." if name in named else "Name another file."))
            continue
        if name in named and machine and found != machine:
            yield error(f"{name} in the table Binary is for {PROCESSORS.get(found, found)}, but the package is for {processor}. Give the "
                        f"variable LibraryFile the path of {processor}/hxsetup.dll.")
        exported = {export.get("Name") for export in program.facts.all("Export")}
        for row in calls.get(name, ()):
            if row["Target"] not in exported:
                yield error(f"The action {row['Action']} calls {row['Target']}, which {name} in the table Binary does not "
                            "export. "
                            + ("docs/actions.md lists the entry points." if name in named else "Look for a misspelt name."))


def is_library(program):
    """Whether a DLL is the library, by the name in its version resource or, without one, by its entry points."""
    if not program:
        return False
    resource = program.version_resource()
    if resource:
        return parse_version_resource(resource)[2].get("OriginalFilename", "").lower() == LIBRARY_FILE
    exports = [export.get("Name") or "" for export in program.facts.all("Export")]
    return len([name for name in exports if ENTRY_POINT.fullmatch(name)]) >= MANY_ENTRY_POINTS


def read_program(package, name):
    """A DLL of the table Binary; None if it is not one."""
    data = run("msiinfo", "extract", Path(package).resolve(), f"Binary.{name}")
    with tempfile.NamedTemporaryFile(prefix="hx-binary-", suffix=".dll") as file:
        file.write(data)
        file.flush()
        try:
            return Program(Path(file.name)) if data[:2] == b"MZ" else None
        except FileNotFoundError:
            raise PackageError("llvm-readobj-19 is missing; ./hx setup installs it") from None
        except RuntimeError:
            return None


def rule_fragments(package):
    """Each fragment that is used is there as a whole, after those that it needs."""
    used = {fragment.name for fragment in package.used}
    missing = {}
    for fragment in package.used:
        for need in fragment.fronts:
            if need not in used:
                missing.setdefault(need, []).append(fragment.name)
    for need, names in missing.items():
        yield error(f"{need} is missing, and {join(names)} {'needs' if len(names) == 1 else 'need'} it. Include it before "
                    f"{'this one' if len(names) == 1 else 'these'}.")
    for fragment in package.used:
        absent = [name for name in fragment.actions if name not in package.actions]
        if absent:
            there = [name for name in fragment.actions if name in package.actions]
            yield error(f"{fragment.name}: the package has {join(there)}, but not {join(absent)}. Include the whole fragment "
                        "instead of writing its actions.")
        for name, action in fragment.actions.items():
            row = package.actions.get(name)
            if row and not same_action(action, row):
                yield error(f"{fragment.name}: the action {name} is not as the fragment has it. Include the fragment unchanged.")
        yield from places_of(package, fragment, absent)


def same_action(action, row):
    """True if an action is as in its fragment. The texts of refusals may be in another language."""
    return row["Type"] == action.type and (action.type == REFUSES or (
        row["Source"] == action.source and action.target.fullmatch(row["Target"] or "")))


def places_of(package, fragment, absent):
    for (table, action), (number, condition) in fragment.rows.items():
        if action in absent:
            continue
        there = package.sequences[table].get(action)
        if there is None:
            yield error(f"{fragment.name}: {action} is not in {table}, where the fragment has it at {number}. Include the "
                        "fragment unchanged.")
        elif there[0] != number:
            yield error(f"{fragment.name}: {action} is at {there[0]} of {table}, and the fragment has it at {number}. Leave it "
                        "at the fragment's place.")
        elif action in fragment.actions and " ".join((there[1] or "").split()) != " ".join(condition.split()):
            yield error(f"{fragment.name}: {action} has another condition in {table} than in the fragment. Include the "
                        "fragment unchanged.")


def rule_properties(package):
    """The properties of the fragments are there, secure and hidden as they declare it; those of the package are not."""
    secure, hidden = package.listed("SecureCustomProperties"), package.listed("MsiHiddenProperties")
    for fragment in package.used:
        for name, attributes in fragment.properties.items():
            if attributes.get("Value") and not package.properties.get(name):
                yield error(f"{fragment.name}: the property {name} has no value in the table Property. Include the fragment "
                            "unchanged.")
            if attributes.get("Secure") == "yes" and name not in secure:
                yield error(f"{fragment.name}: {name} is not in SecureCustomProperties, so the value that a user gives is lost "
                            'between the dialogs and the installation. Give the property Secure="yes".')
            if attributes.get("Hidden") == "yes" and name not in hidden:
                yield error(f"{fragment.name}: {name} is not in MsiHiddenProperties, so its value gets into the log. Give the "
                            'property Hidden="yes".')
    if package.used:
        for name in sorted(secure & set(NOT_SECURE)):
            yield error(f"{name} is in SecureCustomProperties, so a command line can replace the package's value. Leave out "
                        'Secure="yes".')


def rule_texts(package):
    """The texts of the fragments are there."""
    texts = {str(row["Error"]) for row in package.database.rows("Error") if row["Message"]}
    progress = {row["Action"] for row in package.database.rows("ActionText") if row["Description"]}
    for fragment in package.used:
        for number in fragment.texts:
            if number not in texts:
                yield error(f"{fragment.name}: the table Error has no text {number}, so its notice is empty. Include the "
                            "fragment unchanged, or add the text in the package's language.")
        missing = [name for name in fragment.progress if name in package.actions and name not in progress]
        if missing:
            yield error(f"{fragment.name}: the table ActionText has no text for {join(missing)}. Include the fragment "
                        "unchanged, or add the texts in the package's language.")


def rule_registry(package):
    """The values that later runs search for are searched for and written."""
    searches = {row["Signature_"]: row for row in package.database.rows("RegLocator")}
    found = {(row["Property"], row["Signature_"]) for row in package.database.rows("AppSearch")}
    for fragment in package.used:
        for search, (name, _, value) in fragment.searches.items():
            if search not in searches or (name, search) not in found:
                yield error(f"{fragment.name}: the package does not search for {name}. Include the fragment unchanged.")
            elif search in fragment.written and not others_key(package, fragment):
                yield from value_findings(package, fragment, searches[search]["Key"], value)


def value_findings(package, fragment, key, name):
    rows = [row for row in package.database.rows("Registry") if row["Root"] == LOCAL_MACHINE and row["Name"] == name
            and row["Key"].lower() == key.lower()]
    if not rows:
        yield error(f'{fragment.name}: the package does not write the value "{name}" of the key HKLM\\{key}, which later runs '
                    "read. Add the RegistryValue to a component that all versions have, as the head of the fragment says.")
        return
    components = {row["Component"]: row for row in package.database.rows("Component")}
    installed = {row["Component_"] for row in package.database.rows("FeatureComponents")}
    for row in rows:
        component = components.get(row["Component_"], {"Attributes": COMPONENT_64_BIT})
        if row["Value"] not in fragment.values:
            yield error(f'{fragment.name}: the value "{name}" of the key HKLM\\{key} is {row["Value"] or "empty"}. It must be '
                        f"{' or '.join(sorted(fragment.values))}, as the head of the fragment says.")
        if not component["Attributes"] & COMPONENT_64_BIT:
            yield error(f"{fragment.name}: the component {row['Component_']} writes the value \"{name}\" for 32-bit programs, and "
                        'no later run finds it. Give the Component Win64="yes".')
        if row["Component_"] not in installed:
            yield error(f"{fragment.name}: the component {row['Component_']} with the value \"{name}\" is in no feature. Add a "
                        "ComponentRef.")


def provided(package, name, number):
    """True if the package gives a property a value before `number` of the execute sequence. What a fragment sets itself does
    not count: it passes on what was there before."""
    if package.properties.get(name):
        return True
    if number > package.number("CostFinalize") and name in package.database.keyed("Directory"):
        return True
    if number > package.number("AppSearch") and name in {row["Property"] for row in package.database.rows("AppSearch")}:
        return True
    places = package.sequences[EXECUTE]
    return any(0 < places[action][0] < number for action in package.setters(name)
               if action in places and action not in package.owner)


def rule_names(package):
    """The package sets what each fragment needs, in time."""
    for fragment in package.used:
        refused = {}
        for name, reason in fragment.required.items():
            if not provided(package, name, reason[1]):
                refused.setdefault(reason, []).append(name)
        for (refusal, number), names in refused.items():
            if number > package.number("CostFinalize"):
                what = f"The package has no folder {join(names)}. Give a Directory {'this Id' if len(names) == 1 else 'each Id'}"
            else:
                what = f"Nothing sets {join(names)} before {number}. Set {'it' if len(names) == 1 else 'them'}"
            yield error(f"{fragment.name}: {refusal} refuses each installation. {what}, as the head of the fragment says.")


def rule_folders(package):
    """The folders and files that the fragments use are in the package."""
    directories = {row["Directory"]: row["Directory_Parent"] for row in package.database.rows("Directory")}
    place = {row["Component"]: row["Directory_"] for row in package.database.rows("Component")}
    files = {(place.get(row["Component_"]), row["FileName"].split("|")[-1].lower()) for row in package.database.rows("File")}
    created = {row["Directory_"] for row in package.database.rows("CreateFolder")}
    for fragment in package.used:
        wanted = list(fragment.programs)
        wanted += [(folder, [package.variables.get(name, fragment.defaults.get(name))])
                   for name, folder in fragment.named_files]
        for folder, names in wanted:
            missing = [name for name in names if name and (folder, name.lower()) not in files]
            if missing and not (folder not in directories and is_required(package, folder)):
                yield error(f"{fragment.name}: the package does not install {join(missing)} in {folder}. Add "
                            f"{'the File' if len(missing) == 1 else 'the Files'} to a component in this Directory.")
        for folder in fragment.created:
            if folder not in created:
                yield error(f"{fragment.name}: no component makes the folder {folder}. Add a Component with CreateFolder to "
                            "this Directory.")
    if {READ_AS_SYSTEM, PROTECTED} <= set(directories) and any(READ_AS_SYSTEM in fragment.folders for fragment in package.used):
        parent = directories[READ_AS_SYSTEM]
        while parent and parent != PROTECTED:
            above = directories.get(parent)
            parent = above if above != parent else None
        if not parent:
            yield warning(f"The Directory {READ_AS_SYSTEM} is not below {PROTECTED}: a user could make it first, and the update "
                          f"task reads it as SYSTEM. Put it below {PROTECTED}.")


def is_required(package, name):
    """True if a fragment refuses each run without this property: another rule reports it."""
    return any(name in fragment.required for fragment in package.used)


def rule_services(package):
    """The service has the names and the account that the fragments use."""
    services = package.database.rows("ServiceInstall")
    for fragment in package.used:
        if fragment.service:
            yield from service_findings(package, fragment, services)
        for action, condition in fragment.only_if.items():
            there = package.sequences[EXECUTE].get(action)
            if there and not is_implied(there[1], [condition]):
                yield error(f"{fragment.name}: {action} must run only if {condition}. Write <{action}>{condition}</{action}> "
                            f"into InstallExecuteSequence.")
        for action, number in fragment.before.items():
            there = package.sequences[EXECUTE].get(action)
            if there is None:
                yield error(f"{fragment.name}: {action} must be in {EXECUTE} before {number}, and is missing. Schedule it there; "
                            "a ServiceControl in the server's component brings StopServices.")
            elif there[0] >= number:
                yield error(f"{fragment.name}: {action} must be in {EXECUTE} before {number}, and is at {there[0]}. Give it a "
                            "lower number.")
        for first, last in fragment.conversion:
            if not any(first < number < last and package.is_later(action) and action not in fragment.actions
                       for action, (number, _) in package.sequences[EXECUTE].items()):
                yield error(f"{fragment.name}: no deferred action of the package is between {first} and {last}, where the data "
                            "are converted, so each run with data is rolled back. Schedule the conversion there.")


def service_findings(package, fragment, services):
    name = package.variables.get("ServiceName")
    rows = [row for row in services if not name or row["Name"].lower() == name.lower()]
    if not services:
        yield error(f"{fragment.name}: the package installs no service. Add a ServiceInstall with "
                    + join(f'{key}="{value}"' for key, value in fragment.service.items()) + ".")
    elif not rows:
        yield error(f"{fragment.name}: no ServiceInstall of the package is for the service {name}, for which it makes the "
                    f"account. Define {next(filter(None, (each.named_together for each in package.used)), 'ServiceName')} for "
                    f"{join(row['Name'] for row in services)} before the fragments.")
    for row in rows:
        wrong = [f'{key}="{value}"' for key, value in fragment.service.items() if row[SERVICE_COLUMNS[key]] != value]
        if wrong:
            yield error(f"{fragment.name}: the service {row['Name']} does not get the account that is made for it. Give its "
                        f"ServiceInstall {join(wrong)}.")


def is_implied(condition, others):
    """True if one of the others is met whenever the condition is; also if one of them cannot be read, which another rule
    reports."""
    try:
        return implies(parse(condition), [parse(other) for other in others])
    except ConditionError:
        return True


def rule_product(package):
    """A product of another name does not use the names of the client or the server."""
    for fragment in package.used:
        variable, key = others_key(package, fragment) or (None, None)
        if variable and fragment.defaults.get(variable):
            name = key.rpartition("\\")[2]
            yield error(f"{fragment.name}: the product {package.properties.get('ProductName')} uses the registry key of {name}, "
                        f"{key}, and takes {name}'s installation for its own. Define {variable} before the fragments "
                        '(docs/authoring.md, "What is fixed").')


def others_key(package, fragment):
    """The variable and the key if a fragment uses the registry key of the client or the server for a product that is neither:
    one of another maker, without that name."""
    for search in fragment.written:
        variable, = fragment.searches[search][1].groupindex
        key = next((each.defaults[variable] for each in package.used if variable in each.defaults), "")
        if package.variables.get(variable) == key and key.count("\\") > 1:
            maker, name = key.split("\\")[-2:]
            if maker != package.properties.get("Manufacturer") and name not in (package.properties.get("ProductName") or ""):
                return variable, key
    return None


def rule_data(package):
    """Actions that run later are in the script, after the actions that set their data."""
    begin, end = package.number(BEGIN), package.number(END)
    calls = package.library_calls()
    with_data = {entry for fragment in package.fragments.values() for entry in fragment.calls_with_data}
    for name, row in package.actions.items():
        if not row["Type"] & LATER:
            continue
        own = name in calls and name not in package.owner
        if own and not row["Type"] & AS_SYSTEM:
            yield warning(f"The action {name} is deferred, but does not run as SYSTEM, so it may not have the rights for its "
                          'work. Give it Impersonate="no".')
        for table in (DIALOGS, *OTHER_SEQUENCES):
            if name in package.sequences[table]:
                yield error(f"The action {name} is deferred, but is in {table}, which has no script. Schedule it in {EXECUTE}.")
        if name not in package.sequences[EXECUTE]:
            continue
        number, condition = package.sequences[EXECUTE][name]
        if not begin < number < end:
            yield error(f"The action {name} is deferred, but is at {number}. Put it between {BEGIN} ({begin}) and {END} ({end}).")
        needs = name in calls and row["Target"] in with_data
        setters = package.setters(name)
        if needs or setters:
            yield from setter_findings(package, name, setters, number, condition)
        if own and row["Type"] & ROLLBACK:
            yield from rollback_findings(package, name, row["Target"], number)


def setter_findings(package, name, setters, number, condition):
    """What is wrong with the actions that set the data of one that runs later."""
    places = package.sequences[EXECUTE]
    if not setters:
        yield error(f"Nothing sets the data of the action {name}. Add an action that sets the property {name}, and schedule it "
                    f"before {number}.")
        return
    early = [setter for setter in setters if setter in places and 0 < places[setter][0] < number]
    for setter in setters:
        if package.is_later(setter):
            yield error(f"The action {setter} sets the data of {name}, but is deferred itself. Make it immediate.")
        elif not early and setter not in places:
            yield error(f"The action {setter} sets the data of {name}, but is not in {EXECUTE}. Schedule it there, before {number}.")
        elif not early:
            yield error(f"The action {setter} sets the data of {name} at {places[setter][0]}, after the engine has read them at "
                        f"{number}. Give it a lower number than {number}.")
    if early and name not in package.owner and not is_implied(condition, [places[setter][1] for setter in early]):
        yield error(f"The action {name} can run without its data: its condition is {condition or 'empty'}, and that of "
                    f"{join(early)} does not include it. Give both the same condition.")


def rollback_findings(package, name, entry, number):
    """A rollback action of the package comes before the actions that it can undo: those with its own entry point, or with
    the other one of its pair."""
    entries = {entry, *(one for pair in PAIRS for one in pair if entry in pair)}
    undone = [package.sequences[EXECUTE][other][0] for other, row in package.library_calls().items()
              if row["Target"] in entries and other not in package.owner and other in package.sequences[EXECUTE]
              and row["Type"] & LATER and not row["Type"] & ROLLBACK]
    if undone and max(undone) < number:
        yield error(f"The rollback action {name} is at {number}, after what it undoes ({max(undone)}). A failure of that one would "
                    "not be undone: give the rollback action a lower number.")


def rule_lists(package):
    """A property that immediate actions read is set before all of them, in each run that reaches one."""
    places, readers = package.sequences[EXECUTE], {}
    for name, row in package.library_calls().items():
        if row["Target"] in LISTS and name in places:
            readers.setdefault(LISTS[row["Target"]], []).append(name)
    for name, actions in readers.items():
        if package.properties.get(name):
            if NAMED.search(package.properties[name]):
                yield error(f"The property {name} has {NAMED.search(package.properties[name])[0]} in its value, and the engine "
                            "does not replace that in the table Property. Set the property in an action.")
            continue
        first = min(places[action][0] for action in actions)
        placed = {setter: places[setter] for setter in package.setters(name) if setter in places}
        early = [condition for number, condition in placed.values() if 0 < number < first]
        bare = [action for action in actions if not is_implied(places[action][1], early)]
        said = f"Set {name} before {first}, in the installation and in the removal."
        reads = f"{join(f'{action} at {places[action][0]}' for action in actions)} read{'s' * (len(actions) == 1)} {name}"
        if not placed:
            yield error(f"{reads}, and nothing sets it. {said}")
        elif not early:
            yield error(f"{reads}, but {join(f'{setter} sets it at {number}' for setter, (number, _) in placed.items())}. {said}")
        elif bare:
            yield error(f"{join(bare)} can run without {name}: the condition of {join(placed)} does not include "
                        f"{'its condition' if len(bare) == 1 else 'their conditions'}. {said}")


def rule_places(package):
    """No two actions have one place, if a fragment has one of them. An end of a sequence has one action."""
    for table, rows in package.sequences.items():
        places = {}
        for action, (number, _) in rows.items():
            places.setdefault(number, []).append(action)
        for number, actions in sorted(places.items()):
            if len(actions) > 1 and number in EXITS:
                yield error(f'{table} has {len(actions)} actions with OnExit="{EXITS[number]}": {join(sorted(actions))}. The engine '
                            "runs one of them. Leave out your own.")
            elif len(actions) > 1 and any(action in package.owner for action in actions):
                own = [action for action in actions if action not in package.owner]
                yield error(f"{table} has {join(sorted(actions))} at one place, {number}. Give "
                            f"{join(own) if own else 'one of them'} another number.")


def rule_removal(package):
    """Older versions are removed after the new one is installed, if a fragment needs that."""
    needing = [fragment.name for fragment in package.used if fragment.removal]
    if not needing:
        return
    there, end = package.sequences[EXECUTE].get("RemoveExistingProducts"), package.number(END)
    said = f'{join(needing)} need{"s" * (len(needing) == 1)} it after {END} ({end})'
    if not there or not any(not row["Attributes"] & ONLY_DETECT for row in package.database.rows("Upgrade")):
        yield error(f'The package does not remove older versions: {said}. Add a MajorUpgrade with Schedule="afterInstallFinalize".')
    elif there[0] < end:
        yield error(f"RemoveExistingProducts is at {there[0]}: {said}, or what the older version installed is deleted first. Give "
                    'MajorUpgrade Schedule="afterInstallFinalize".')


def rule_conditions(package):
    """The conditions can be read."""
    for table, column, named in CONDITIONS:
        for row in package.database.rows(table):
            try:
                parse(row.get(column) or "")
            except ConditionError as wrong:
                yield error(f"{table}: the condition of {row[named]} cannot be read: {wrong}. It is {row[column]}")


def rule_per_machine(package):
    value = package.properties.get("ALLUSERS")
    if value != "1":
        yield error(f"The package is installed per user{f' (ALLUSERS is {value})' if value else ''}: its actions work on the "
                    'machine. Give the Package element InstallScope="perMachine".')


def rule_administrator(package):
    """A run without an administrator's rights is refused, before any other action."""
    if LIBRARY_FRAGMENT not in {fragment.name for fragment in package.used}:
        return  # rule_fragments reports it.
    for table in (DIALOGS, EXECUTE):
        rows = package.sequences[table]
        if rows.get(REFUSAL) != (REFUSAL_PLACE, REFUSAL_CONDITION):
            yield error(f"{REFUSAL} is not at {REFUSAL_PLACE} of {table} with the condition {REFUSAL_CONDITION}, so a user without "
                        f"rights is not refused. Include {LIBRARY_FRAGMENT} unchanged.")
        for action, (number, _) in rows.items():
            if 0 <= number <= REFUSAL_PLACE and action != REFUSAL:
                yield error(f"{action} is at {number} of {table}, before a user without rights is refused. Give it a number after "
                            f"{REFUSAL_PLACE}.")
    for table in OTHER_SEQUENCES:
        for action in package.library_calls():
            if action in package.sequences[table]:
                yield error(f"{action} is in {table}, which does not refuse a user without rights. Leave it out there.")
    if package.properties.get(REAL_RIGHTS) != "1":
        yield error(f"{REAL_RIGHTS} is not 1, so each repair runs as if the user were an administrator. Include "
                    f"{LIBRARY_FRAGMENT} unchanged.")
    if RIGHTS in package.properties:
        yield error(f"The property {RIGHTS} is declared, so each user passes for an administrator. Leave it out.")
    for name in sorted({REAL_RIGHTS, RIGHTS} & package.listed("SecureCustomProperties")):
        yield error(f'{name} is in SecureCustomProperties, so a user can set it. Leave out Secure="yes".')
    for name in (RIGHTS, REAL_RIGHTS):
        yield from (error(f"The action {action} sets {name}, which only the engine and {LIBRARY_FRAGMENT} may do. Leave it out.")
                    for action in package.setters(name))


RULES = [rule_library, rule_fragments, rule_per_machine, rule_administrator, rule_properties, rule_names, rule_registry,
         rule_product, rule_folders, rule_services, rule_data, rule_lists, rule_places, rule_removal, rule_texts,
         rule_conditions]

UNUSED = ("The package does not use the library: it has no action of the fragments and none that calls hxsetup.dll. Nothing "
          "was checked of it.")


def check(database, package_path):
    """The findings in a package, each ("error" or "warning", text). `package_path` is the .msi with its streams."""
    try:
        return list(findings_of(Package(database, package_path, read_fragments())))
    except (KeyError, IndexError, TypeError, ValueError) as error:
        raise PackageError(f"{package_path} is damaged, or made by a compiler that leaves out columns ({type(error).__name__} "
                           f"{error}): make it again") from None


def findings_of(package):
    if not any(fragment.actions for fragment in package.used) and not package.library_calls():
        return [warning(UNUSED)]
    return [finding for rule in RULES for finding in rule(package)]
