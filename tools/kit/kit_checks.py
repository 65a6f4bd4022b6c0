"""The checks between the library's entry points, the fragments and models in packages/, and the pages. For action-table.py.
Each check yields one line for each finding."""

import re
import xml.etree.ElementTree as ElementTree
from collections import namedtuple

from kit.installer_run import APP_SEARCH, names_in, run_sequence
from kit.package_facts import (LIBRARY_FRAGMENT, PUBLIC, VARIABLE, guard_variable, named_in, read_code_properties,
                               read_fragments, read_jobs, read_mentions, read_models, read_notices, read_packages,
                               read_sections, written_by)
from kit.package_runs import ANSWERS
from kit.texts import FOLDER, default_file, default_texts
from lint.entry_points import LIST, PAGE, heading_pages, listed

# Entry points that install and remove the same thing: a fragment calls both or neither.
PAIRS = [("CustomAction5", "CustomAction19"), ("CustomAction6", "CustomAction7"), ("CustomAction9", "CustomAction10"),
         ("CustomAction23", "CustomAction24"), ("CustomAction27", "CustomAction28"),
         ("CustomAction31", "CustomAction32")]

NOTICES = ["25000", "25001", "25003", "26000", "26001", "27000"]

# Properties that the engine or the compiler of a package sets or reads.
ENGINE = {"Installed", "REMOVE", "REINSTALL", "REINSTALLMODE", "REBOOT", "MSIRESTARTMANAGERCONTROL", "UILevel",
          "UPGRADINGPRODUCTCODE", "ProductCode", "ProductName", "ProductVersion", "System64Folder", "WindowsFolder",
          "LogonUser", "ComputerName", "Privileged", "AdminUser", "MSIUSEREALADMINDETECTION", "VersionNT64", "WIX_UPGRADE_DETECTED", "CustomActionData"}

# Public properties that must not be secure, each with its reason. The same holds for a property that each sequence forgets
# and finds itself. Any other public property that an action, a condition or a value reads must be secure: with dialogs it is
# set in the process of the user who installs, or comes from that user's command line, and must reach the service's process.
# Two kinds may be either: a folder of the package that no fragment declares; and a property that only actions of the
# library in the execute sequence set, where it is used.
NOT_SECURE = dict.fromkeys(["PROP_VERSION", "PROP_COMPONENT", "PROP_FIREWALLDATA", "DIR_UPG_HELPERDATA", "DIR_UPG_VRDF",
                            "DIR_UPG_VRDF_PREFS"], "belongs to the package")

# The pages that name an entry point that does not exist, on purpose.
NOT_EXPORTED = {"docs/package-mistakes.md": {"CustomAction18"}}

# The value with which an action forgets (clears) a property.
NOTHING = "{}"

# The actions of the copy/move engine. Its strings must have the letter KEEP_LINKS, and must not have OVERWRITE without
# PUT_ASIDE.
ENGINE_CALLS = ("CustomAction15", "CustomAction16")
KEEP_LINKS, OVERWRITE, PUT_ASIDE, DEFAULTS = "lobz"
TAKEN_BACK = {"g": KEEP_LINKS, "k": OVERWRITE}

# The update task reads a file in the first of these folders as SYSTEM: it must be below the second, which is protected.
READ_AS_SYSTEM, PROTECTED = "DIR_APPDATA", "DIR_CLIENT"

# The properties that the data and the command lines of actions with the rights of SYSTEM may contain as paths, each with its
# source, which is not a user. Such actions must not use other paths.
PATH_SOURCES = {
    "DIR_SERVER": "an administrator in a first installation; then the registry",
    "DIR_DATAFOLDER": "an administrator in a first installation; then the server's settings",
    "DIR_EXSERVER": "CustomAction20, in the same sequence",
    "DIR_EXDATA": "CustomAction20, in the same sequence",
    "DIR_UPG": "CustomAction20, in the same sequence",
    "DIR_UPG_DATA": "CustomAction20, in the same sequence",
    "AsideRest": "DIR_UPG and ServerAsideName, in the same sequence",
    "IfDataBack": "DIR_UPG_DATA and DIR_EXDATA, in the same sequence",
    "UnlessNewData": "DIR_DATAFOLDER, in the same sequence",
    "UnlessKept": "DIR_UPG and AsideRest, in the same sequence",
    "UpgradeNote": "the package",
    "ServerDataName": "the package",
    "System64Folder": "the engine",
}
# Other properties in such data, which are not paths.
NAMES_IN_DATA = {"ServiceAccount"}

# The names of the client, the server and their maker. In a fragment they are the values of variables, so that a product of
# another name does not use anything of theirs. Exceptions are the names that the library itself reads or writes.
PRODUCT = re.compile("Ostrel|Vantor|Halvorstead")
LIBRARY_TEXTS = {"SYSTEM\\CurrentControlSet\\Services\\Vantor\\Settings", "Notice25003"}

# The most characters that a column of the table of actions can have.
LONGEST_TARGET = 255

# The place where costing begins. A refusal before it must be in the dialogs' sequence too.
COST_INITIALIZE = 800

# The first place after InstallInitialize, which rolls back a run that was interrupted: the place of the refusal after such a
# run. The actions before it change nothing then (server_migration.wxi).
INITIALIZED = 1501

# The places directly after InstallFinalize: MajorUpgrade puts the removal of older versions at the first free one.
REMOVAL_PLACES = range(6601, 6604)

# The property that each of these actions reads: it must be set in each run that reaches the action.
LISTS = {"CustomAction5": "PROP_FIREWALLDATA", "CustomAction19": "PROP_FIREWALLDATA"}

# The kinds of actions that run later: they get only one text, their CustomActionData.
LATER = ("deferred", "rollback", "commit")

# How a package refuses a run without an administrator's rights: the action, its place in both sequences, its condition, the
# property that the condition reads, and the property without which the engine gives that property another value.
REFUSAL, REFUSAL_PLACE, REFUSAL_CONDITION = "RefuseNoAdministrator", 10, "NOT AdminUser"
RIGHTS, REAL_RIGHTS = "AdminUser", "MSIUSEREALADMINDETECTION"

# All input of the checks. `models` are the packages in packages/ that include a fragment, `packages` are all packages there
# and the examples of the guide. `texts` are those of the default language.
Kit = namedtuple("Kit", "root exported fragments models packages sections jobs notices pages texts")


def read_kit(root):
    fragments = read_fragments(root)
    return Kit(root, list(listed(root)), fragments, read_models(root, fragments), read_packages(root, fragments),
               read_sections(root), read_jobs(root), read_notices(root), dict(heading_pages(root)), default_texts(root))


def kind_of(action):
    return action.get("Execute", "immediate")


def is_library(action):
    return action.get("BinaryKey") == "hxsetup"


def reads_data(kit, action):
    """True if an action of the library gets its input as CustomActionData."""
    section = kit.sections.get(action.get("DllEntry"))
    return kind_of(action) in LATER and section is not None and "CustomActionData" in section.reads


def used_in(kit, authoring):
    """The properties that are read by a file's conditions and values, and by the entry points that it calls."""
    used = {name for row in authoring.rows for name in names_in(row.condition)}
    used |= {name for value in authoring.values() for name in named_in(value)}
    for name in authoring.entry_points():
        used |= kit.sections[name].reads if name in kit.sections else set()
    return used


def made_in(kit, authoring):
    """The properties to which a file gives a value: by a declaration, a search, an action, or a folder."""
    made = set(authoring.properties) | authoring.searched | authoring.folders
    made |= {action["Property"] for action in authoring.actions.values() if action.get("Property")}
    for name in authoring.entry_points():
        made |= kit.sections[name].writes if name in kit.sections else set()
    return made


def check_names(kit):
    """The list of exports, the fragments and the pages have the same entry points."""
    exported = set(kit.exported)
    called = {name for fragment in kit.fragments.values() for name in fragment.entry_points()}
    yield from (f"{name}: {LIST} lists it, but no fragment calls it" for name in kit.exported if name not in called)
    described = set(kit.pages) & set(kit.jobs)
    yield from (f"{name}: {LIST} lists it, but {PAGE} does not describe it" for name in kit.exported
                if name not in described)
    pages = sorted((kit.root / "docs").rglob("*.md")) + sorted((kit.root / "packages").rglob("*.wx?"))
    for path in pages:
        page = path.relative_to(kit.root).as_posix()
        yield from (f"{page}: {name} is not exported" for name in sorted(read_mentions(path) - exported - NOT_EXPORTED.get(page, set())))


def check_actions(kit):
    """Each action of a fragment is named after the entry point that it calls, and is in a sequence."""
    for fragment in kit.fragments.values():
        placed = {row.action for row in fragment.rows}
        for name, action in fragment.actions.items():
            if name not in placed:
                yield f"{fragment.name}: {name} is not in a sequence"
            match = re.fullmatch(r"(CustomAction\d+)(\.\w+)?", name)
            if is_library(action) and (not match or match[1] != action.get("DllEntry")):
                yield f"{fragment.name}: {name} calls {action.get('DllEntry')}"
            if is_library(action) and kind_of(action) in LATER and action.get("Impersonate") != "no":
                yield f"{fragment.name}: {name} is deferred, but would not run as SYSTEM"
        for place, number, action, *_ in fragment.rows:
            later = kind_of(fragment.actions.get(action, {})) in LATER
            if later and (place, 1500 < number < 6600) != ("execute", True):
                yield f"{fragment.name}: {action} is deferred, but is outside of the script"


def check_data(kit):
    """The data of an action that runs later are set before it, in the same sequence."""
    for fragment in kit.fragments.values():
        for name, action in fragment.actions.items():
            if not reads_data(kit, action):
                continue
            setters = {setter for setter, other in fragment.actions.items() if other.get("Property") == name}
            for row in fragment.rows:
                if row.action == name and not any(
                        other.action in setters and other.place == row.place and other.number < row.number
                        for other in fragment.rows):
                    yield f"{fragment.name}: nothing sets the data of {name} before {row.number}"


def check_pairs(kit):
    for fragment in kit.fragments.values():
        called = fragment.entry_points()
        for pair in PAIRS:
            if len(set(pair) & set(called)) == 1:
                half, other = pair if pair[0] in called else pair[::-1]
                yield f"{fragment.name}: calls {half}, but not {other}"


def check_notices(kit):
    """Each notice has one text, in the fragment of the action that sends it."""
    if sorted(kit.notices) != NOTICES:
        yield f"{PAGE}: the notices are {', '.join(sorted(kit.notices))}, not {', '.join(NOTICES)}"
    for number in NOTICES:
        found = [fragment.name for fragment in kit.fragments.values() for error in fragment.errors if error == number]
        sender = kit.notices.get(number)
        if len(found) != 1:
            yield f"error {number}: its text is in {len(found)} fragments{': ' * bool(found)}{', '.join(found)}"
        elif sender and sender not in kit.fragments[found[0]].entry_points():
            yield f"error {number}: its text is in {found[0]}, which does not call {sender}"
    for fragment in kit.fragments.values():
        yield from (f"{fragment.name}: nothing sends error {number}" for number in fragment.errors
                    if number not in NOTICES)


def check_secrets(kit):
    """Passwords are hidden, and are passed only to hidden properties and actions."""
    for file in [*kit.fragments.values(), *(model.files[0] for model in kit.models)]:
        for name, attributes in file.properties.items():
            if "PASS" in name.upper() and attributes.get("Hidden") != "yes":
                yield f"{file.name}: {name} is a password, but is not hidden"
    for model in kit.models:
        hidden = {name for name, attributes in model.properties.items() if attributes.get("Hidden") == "yes"}
        yield from (f"{model.name}: the service's password {name} is not hidden" for name in
                    sorted(model.passwords - hidden))
        for name, action in model.actions.items():
            for key in ("Value", "ExeCommand"):
                taken = set(named_in(action.get(key, ""))) & hidden
                covered = action.get("HideTarget") == "yes" and (key != "Value" or action.get("Property") in hidden)
                if taken and not covered:
                    yield f"{model.name}: {name} shows {', '.join(sorted(taken))}"


def check_models(kit):
    """Each fragment is in a model, with the fragments that it needs."""
    for name in kit.fragments:
        if not any(name in model.fragments for model in kit.models):
            yield f"{name}: no model package includes it"
    for model in kit.models:
        yield from (f"{model.name}: includes {name}, which does not exist" for name in model.unknown)
        for name in model.fragments:
            yield from (f"{model.name}: includes {name}, but not {need}" for need in kit.fragments[name].needs()
                        if need not in model.fragments)


def check_needs(kit):
    """A fragment's head names what it needs: other fragments, and properties of the package."""
    for fragment in kit.fragments.values():
        missing = used_in(kit, fragment) - made_in(kit, fragment) - ENGINE
        heads = fragment.head + "".join(kit.fragments[need].head for need in fragment.needs() if need in kit.fragments)
        for name in sorted(missing):
            makers = [other.name for other in kit.fragments.values() if name in made_in(kit, other)]
            if not set(makers) & set(fragment.needs()) and not re.search(rf"\b{name}\b", heads):
                yield (f"{fragment.name}: reads {name}{' of ' * bool(makers)}{' or '.join(makers)}, "
                       "but its head does not say so")


def all_fronts(kit, fragment):
    """The fragments that must come before one, directly or because of another."""
    found, left = set(), [*fragment.fronts()]
    while left:
        name = left.pop()
        if name in kit.fragments and name not in found:
            found.add(name)
            left += kit.fragments[name].fronts()
    return found


def variables_of(fragment):
    return sorted(set(VARIABLE.findall(fragment.text)))


def check_variables(kit):
    """A fragment's head names the compiler's variables that it reads and that no fragment before it defines."""
    for fragment in kit.fragments.values():
        before = {name for front in all_fronts(kit, fragment) for name in kit.fragments[front].defines} | set(kit.texts)
        for name in variables_of(fragment):
            if name in before or (name in fragment.defines and f"var.{name}?>" not in fragment.text):
                continue
            if not re.search(rf"\b{name}\b", fragment.head):
                yield f"{fragment.name}: reads the variable {name}, but its head does not say so"
            if name not in fragment.defines and ("ifndef", name) not in [guard[:2] for guard in fragment.guards]:
                yield f"{fragment.name}: reads the variable {name}, but no guard asks for it"


def check_guards(kit):
    """A fragment begins with a guard against a second copy of itself, and asks for those that it needs."""
    for fragment in kit.fragments.values():
        variable = guard_variable(fragment.name)
        beginning = (f"<?ifdef var.{variable}?><?error {fragment.name} is included twice. Include it once.?><?endif?>",
                     f'<?define {variable} = "yes"?>')
        lines = [line.strip() for line in fragment.text.partition("<Include>")[2].split("\n")]
        if tuple(line for line in lines if line)[:2] != beginning:
            yield f"{fragment.name}: does not begin with {' and '.join(beginning)}"
        for kind, name, message in fragment.guards:
            if not message.startswith(f"{fragment.name} "):
                yield f"{fragment.name}: the message of the guard for {name} does not begin with the fragment's name"
            need = re.search(r" needs (\w+\.wxi)\.", message)
            if need and (kind, name) != ("ifndef", guard_variable(need[1])):
                yield f"{fragment.name}: the guard that asks for {need[1]} tests {name}"
        if fragment.said_needs() != fragment.needs():
            yield (f"{fragment.name}: its head names {', '.join(fragment.said_needs()) or 'no fragment'}, "
                   f"but its guards ask for {', '.join(fragment.needs()) or 'none'}")
        if any(map(is_library, fragment.actions.values())) and LIBRARY_FRAGMENT not in fragment.fronts():
            yield f"{fragment.name}: calls the library, but does not ask for {LIBRARY_FRAGMENT}"


def refuses(kit, one, other):
    """True if two fragments cannot be in one package, because of their guards or the guards of fragments that they need."""
    for left, right in ((one, other), (other, one)):
        theirs = {guard_variable(name) for name in {right.name} | all_fronts(kit, right)}
        for name in {left.name} | all_fronts(kit, left):
            if theirs & {guard[1] for guard in kit.fragments[name].guards if guard[0] == "ifdef"} - {
                    guard_variable(name)}:
                return True
    return False


def check_places(kit):
    """No two actions have the same place in a sequence, neither in a model nor in fragments that can be in one package. No
    action has a place for the removal of older versions."""
    fragments = list(kit.fragments.values())
    for index, one in enumerate(fragments):
        for other in fragments[index + 1:]:
            shared = {row[:2] for row in one.rows} & {row[:2] for row in other.rows}
            if shared and not refuses(kit, one, other):
                yield (f"{one.name} and {other.name} both have the place "
                       f"{', '.join(str(number) for _, number in sorted(shared))}, but do not refuse each other")
        yield from (f"{one.name}: {row.action} has the place {row.number}, which is for RemoveExistingProducts" for row in one.rows
                    if row.number in REMOVAL_PLACES)
    for model in kit.models:
        places = {}
        for row in model.rows:
            places.setdefault(row[:2], []).append(row.action)
        yield from (f"{model.name}: {' and '.join(actions)} both have the place {number}"
                    for (_, number), actions in sorted(places.items()) if len(actions) > 1)


def check_product_names(kit):
    """See PRODUCT."""
    for fragment in kit.fragments.values():
        for element in ElementTree.fromstring(fragment.text).iter():
            texts = [value for key, value in element.attrib.items() if key not in ("Id", "Action")] + [element.text or ""]
            for text in texts:
                if PRODUCT.search(text) and text not in LIBRARY_TEXTS:
                    yield f"{fragment.name}: a name of the product is not a variable: {text.strip()}"
    for name, text in kit.texts.items():
        if PRODUCT.search(text) and name not in LIBRARY_TEXTS:
            yield f"{FOLDER}: a name of the product is not a variable: {text}"


# What shows a text to people: the element, and its attribute if the text is not inside of the element.
SHOWN = (("Error", None), ("ProgressText", None), ("CustomAction", "Error"))


def check_shown_texts(kit):
    """The fragments show only texts of the languages' files, and each of those is shown."""
    if not kit.texts:
        return
    file, read = default_file(kit.root).relative_to(kit.root), set()
    for fragment in kit.fragments.values():
        root = ElementTree.fromstring(fragment.text)
        shown = [element.get(attribute) if attribute else (element.text or "").strip()
                 for tag, attribute in SHOWN for element in root.iter(tag) if not attribute or attribute in element.attrib]
        for text in shown:
            match = VARIABLE.fullmatch(text)
            if match and match[1] in kit.texts:
                read.add(match[1])
            else:
                yield f"{fragment.name}: shows \"{text}\", which is not a text of {file}: write it there, and $(var.NAME) here"
    yield from (f"{file}: no fragment shows the text {name}" for name in kit.texts if name not in read)


def check_progress(kit):
    """Each action of a fragment has one text for the progress page, in that fragment."""
    for fragment in kit.fragments.values():
        for name in fragment.actions:
            count = fragment.progress.count(name)
            if count != 1:
                yield f"{fragment.name}: {name} has {count or 'no'} text{'s' * (count > 1)} for the progress page"
        yield from (f"{fragment.name}: a text for the progress page is of {name}, which is not an action of this fragment"
                    for name in dict.fromkeys(fragment.progress) if name not in fragment.actions)


def check_targets(kit):
    """The data and the error texts of actions fit into their column."""
    for file in [*kit.fragments.values(), *(model.files[0] for model in kit.models)]:
        for name, action in file.actions.items():
            yield from (f"{file.name}: {name} has {len(action[key])} characters, more than {LONGEST_TARGET}"
                        for key in ("Value", "ExeCommand", "Error") if len(action.get(key, "")) > LONGEST_TARGET)


def check_refusals(kit):
    """A refusal before costing is the same in both sequences. Every refusal comes before anything is changed."""
    for fragment in kit.fragments.values():
        rows = {row[:4] for row in fragment.rows}
        for row in sorted(rows):
            if not fragment.actions.get(row[2], {}).get("Error"):
                continue
            if row[0] == "execute" and row[1] > 1400 and row[1] != INITIALIZED:
                yield f"{fragment.name}: {row[2]} refuses at {row[1]}, when something may have changed"
            other = {"UI": "execute", "execute": "UI"}[row[0]]
            if row[1] < COST_INITIALIZE and (other, *row[1:]) not in rows:
                yield f"{fragment.name}: {row[2]} refuses in one sequence only"


def check_setters(kit):
    """A property that a model sets for an action of the library is set before each action that reads it."""
    for model in kit.models:
        own = model.files[0]
        for setter, action in own.actions.items():
            readers = {name for name, other in model.actions.items() if is_library(other)
                       and kind_of(other) not in LATER and other["DllEntry"] in kit.sections
                       and action.get("Property") in kit.sections[other["DllEntry"]].reads}
            for place, number, name, *_ in own.rows:
                late = [row for row in model.rows if name == setter and row.place == place and row.action in readers
                        and 0 < row.number < number]
                yield from (f"{model.name}: {setter} sets {action['Property']} at {number}, after {row.action} has "
                            f"read it at {row.number}" for row in late)


def check_secure(kit):
    """See NOT_SECURE."""
    for model in kit.models:
        for name in model.fragments:
            for used in sorted(used_in(kit, kit.fragments[name]) - ENGINE):
                if not PUBLIC.fullmatch(used) or is_free(kit, model, used) or is_elsewhere(kit, model, used):
                    continue
                secure = model.properties.get(used, {}).get("Secure") == "yes"
                if secure == (used in NOT_SECURE or used in always_forgotten(model)):
                    yield f"{model.name}: {used}, which {name} reads, is {'' if secure else 'not '}secure"


def forgetters(file, name):
    """The rows of a fragment or a model that clear a property."""
    actions = {action for action, attributes in file.actions.items()
               if attributes.get("Property") == name and attributes.get("Value") == NOTHING}
    return [row for row in file.rows if row.action in actions]


def always_forgotten(file):
    """The properties that each sequence clears in every run before something else in it sets them."""
    names = {action.get("Property") for action in file.actions.values() if action.get("Value") == NOTHING}
    return {name for name in names if {row.place for row in forgetters(file, name) if row.condition == name
                                       and kind_of(file.actions[row.action]) == "immediate"} == {"UI", "execute"}}


def is_elsewhere(kit, model, name):
    """True if a property is declared or set only by fragments that the model does not include: then nothing sets it."""
    return name not in model.properties and not any(name in made_in(kit, file) for file in model.files) and any(
        name in made_in(kit, fragment) for fragment in kit.fragments.values())


def check_findings(kit):
    """A property that is searched for is cleared before the search in both sequences. A property that actions find in each
    sequence is cleared by each."""
    for fragment in [*kit.fragments.values(), *(model.files[0] for model in kit.models)]:
        for name in sorted(fragment.found):
            early = {row.place for row in forgetters(fragment, name) if row.number < APP_SEARCH
                     and kind_of(fragment.actions[row.action]) == "firstSequence"}
            if early != {"UI", "execute"}:
                yield f"{fragment.name}: {name} is searched for, but not forgotten before that in both sequences"
    for model in kit.models:
        given = {name for name, attributes in model.properties.items() if attributes.get("Secure") == "yes"}
        for finder, action in sorted(model.actions.items()):
            places = {row.place for row in model.rows if row.action == finder}
            if not is_library(action) or kind_of(action) != "immediate" or places != {"UI", "execute"}:
                continue
            section = kit.sections.get(action["DllEntry"])
            for name in sorted((section.writes if section else set()) - given - set(NOT_SECURE)):
                if PUBLIC.fullmatch(name) and name not in always_forgotten(model):
                    yield f"{model.name}: {finder} finds {name}, which is not forgotten before that in both sequences"


def as_system(action):
    return kind_of(action) in LATER and action.get("Impersonate") == "no"


def check_paths(kit):
    """See PATH_SOURCES."""
    for model in kit.models:
        for name, action in model.actions.items():
            if not as_system(action):
                continue
            texts = [other["Value"] for other in model.actions.values()
                     if other.get("Property") == name and other.get("Value")]
            texts += [action.get(key, "") for key in ("ExeCommand",)]
            for used in sorted({used for text in texts for used in named_in(text)} - set(PATH_SOURCES) - NAMES_IN_DATA):
                yield f"{model.name}: {name} runs as SYSTEM with {used}, but PATH_SOURCES does not name its source"


# The action that deletes the markers of the conversion, in a folder that others can write to.
MARKER_CALL = "CustomAction17"


def check_strings(kit):
    """The strings of the copy/move engine follow no links and delete nothing. A rollback deletes no markers."""
    for fragment in [*kit.fragments.values(), *(model.files[0] for model in kit.models)]:
        for name, action in fragment.actions.items():
            if is_library(action) and action.get("DllEntry") == MARKER_CALL and kind_of(action) == "rollback":
                yield (f"{fragment.name}: {name} deletes files in a rollback, when others may have replaced the folder by a "
                       "link: leave it out")
        calls = {name for name, action in fragment.actions.items()
                 if is_library(action) and action.get("DllEntry") in ENGINE_CALLS and kind_of(action) in LATER}
        for setter, action in fragment.actions.items():
            if action.get("Property") not in calls or not action.get("Value"):
                continue
            words = re.findall(r'"[^"]*"|\S+', action["Value"])[1:-1]
            options = set()
            for word in words:
                if word.startswith("-"):
                    for letter in word[1:]:
                        options = (options | {letter}) - {TAKEN_BACK.get(letter)} if letter != DEFAULTS else set()
                    continue
                if KEEP_LINKS not in options:
                    yield f"{fragment.name}: {setter} follows links: its string needs the letter {KEEP_LINKS}"
                if OVERWRITE in options and PUT_ASIDE not in options:
                    yield (f"{fragment.name}: {setter} deletes what it replaces: its string needs the letter {PUT_ASIDE} "
                           f"besides {OVERWRITE}")


def check_update_folder(kit):
    """See READ_AS_SYSTEM."""
    for model in kit.models:
        if READ_AS_SYSTEM in model.folders and READ_AS_SYSTEM not in folders_below(model, PROTECTED):
            yield (f"{model.name}: {READ_AS_SYSTEM} is not below {PROTECTED}: a user could make it first, and the update "
                   "task reads it as SYSTEM")


def check_administrator(kit):
    """A package with actions refuses a run without an administrator's rights, before all of them. No action of the library is
    in a sequence without such a refusal."""
    for package in kit.packages:
        yield from (f"{package.name}: {action} calls the library in {sequence}, which does not refuse the run"
                    for sequence, action in package.others if is_library(package.actions.get(action, {})))
        if package.actions:
            yield from (f"{package.name}: {text}" for text in refusal_findings(package))


def refusal_findings(package):
    action = package.actions.get(REFUSAL)
    if not action:
        yield f"has no {REFUSAL}: include {LIBRARY_FRAGMENT}"
        return
    if set(action) != {"Id", "Error"}:
        yield f"{REFUSAL} is not an action that only has an error"
    for place in ("UI", "execute"):
        rows = [row for row in package.rows if row.place == place]
        own = [row[1:4:2] for row in rows if row.action == REFUSAL]
        if own != [(REFUSAL_PLACE, REFUSAL_CONDITION)]:
            yield (f"{REFUSAL} is {own or 'missing'} in the {place} sequence, not once at {REFUSAL_PLACE} with "
                   f"{REFUSAL_CONDITION}")
        yield from (f"{row.action} is at {row.number} of the {place} sequence, before {REFUSAL}" for row in rows
                    if 0 <= row.number <= REFUSAL_PLACE and row.action != REFUSAL)
    attributes = package.properties.get(REAL_RIGHTS, {})
    if attributes.get("Value") != "1":
        yield f"{REAL_RIGHTS} is not 1, so in each repair {RIGHTS} is set as if the user were an administrator"
    if attributes.get("Secure") == "yes":
        yield f"{REAL_RIGHTS} is secure, so a user can give another value"
    if RIGHTS in package.properties:
        yield f"{RIGHTS} is declared, so it is set for every user"
    yield from (f"{name} sets {action['Property']}" for name, action in package.actions.items()
                if action.get("Property") in (RIGHTS, REAL_RIGHTS))


def folders_below(model, name):
    return {element.get("Id") for folder in model.files[0].root.iter("Directory") if folder.get("Id") == name
            for element in folder.iter("Directory") if element is not folder}


def is_free(kit, model, name):
    """True if a public property may be secure or not; see NOT_SECURE."""
    if name in model.folders and name not in model.properties:
        return True
    writers = {action for action, attributes in model.actions.items() if is_library(attributes)
               and attributes["DllEntry"] in kit.sections and name in kit.sections[attributes["DllEntry"]].writes}
    early = {row.action for row in model.rows if row.place == "UI"}
    return bool(writers) and name not in NOT_SECURE and not writers & early


def check_searches(kit):
    """A model writes the registry values that its fragments search for in later runs. Checks only keys that variables name;
    other keys belong to the system."""
    for model in kit.models:
        written = set(model.registry) | written_by(model.actions)
        for name in model.fragments:
            searches = next(file.searches for file in model.files if file.name == name)
            yield from (f"{model.name}: does not write {value} of {key}, which {name} searches for"
                        for key, value in sorted(searches - written)
                        if key in model.variables.values())


def check_runs(kit, scenarios):
    """No run schedules an action that runs later without its data."""
    for model in kit.models:
        for scenario in scenarios.get(model.name, []):
            for properties in (scenario.properties, {**scenario.properties, **scenario.options}):
                yield from (f"{model.name}: {line}" for line in data_findings(kit, model, scenario, properties))


def data_findings(kit, model, scenario, properties):
    rows = [row for row in model.rows if row.place == "execute"]
    for row, state in run_sequence(rows, model.actions, {**model.defaults(), **properties}, model.found, ANSWERS):
        action = model.actions.get(row.action, {})
        if action.get("Error"):
            yield f"{scenario.name}: {row.action} ends the run"
        if is_library(action) and reads_data(kit, action) and not state.get(row.action):
            yield f"{scenario.name}: {row.action} runs without its data"
        name = LISTS.get(action.get("DllEntry")) if is_library(action) else None
        if name and name in kit.sections[action["DllEntry"]].reads and not state.get(name):
            yield f"{scenario.name}: {row.action} runs without {name}"


def check_sources(kit):
    """The rows Reads and Writes of the page name the same properties as the sources."""
    page = {name for section in kit.sections.values() for name in section.reads | section.writes
            if name.startswith(("PROP_", "DIR_"))}
    code = read_code_properties(kit.root)
    yield from (f"{PAGE}: no row Reads or Writes names {name}, but src/ does" for name in sorted(code - page))
    yield from (f"{PAGE}: a row Reads or Writes names {name}, but src/ does not" for name in sorted(page - code))


CHECKS = [check_names, check_actions, check_data, check_pairs, check_notices, check_secrets, check_models, check_needs,
          check_variables, check_guards, check_places, check_product_names, check_shown_texts, check_progress,
          check_targets, check_refusals, check_setters,
          check_secure, check_searches, check_sources, check_findings, check_paths, check_strings, check_update_folder,
          check_administrator]


def findings(kit, scenarios):
    for check in CHECKS:
        yield from check(kit)
    yield from check_runs(kit, scenarios)


__all__ = ["ENGINE", "LATER", "NOT_SECURE", "PAIRS", "Kit", "always_forgotten", "findings", "forgetters", "is_library", "kind_of", "made_in",
           "read_kit", "reads_data", "used_in"]
