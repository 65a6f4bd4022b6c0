#!/usr/bin/env python3
"""Makes the installer packages of one processor: tools/kit/package.py arm64|x64 [LIBRARY [FOLDER]]

LIBRARY is the hxsetup.dll of the packages (default: build/PROCESSOR/hxsetup.dll). Its folder must also have the stand-ins
agent.exe (for the programs) and ostrack.dll (for the tracking library), and witness.dll, which reports the state of the
machine to tests and demonstration. The packages are written to FOLDER (default: build/packages/PROCESSOR):
  client.msi          the client package, with the version in the file VERSION
  client-newer.msi    the same with the next higher build number, to upgrade from the first
  server-older.msi    an older server package, which the next one upgrades
  server.msi          the server package, also with the version of the library
  server-watched.msi  the same as a separate product, with the witness in it
  other.msi           a server package of another maker, with other names, and with the version of the library
  other-newer.msi     the same with the next higher build number, to upgrade from the first
  other-firewall.msi  the same as a separate product, with only one fragment and those that it needs
  other-account.msi
  other-access.msi
  other-client.msi    a client package of that maker, with another name
  other-client-newer.msi  the same with the next higher build number, to upgrade from the first
  guide-client.msi    the examples of docs/authoring.md, with the stand-ins for the programs
  guide-server.msi

The authoring in packages/ is in the language of the common compilers. wixl, which compiles it here, supports only a part of
it. This script adds to the compiled package what wixl leaves out and corrects what it does otherwise, so that the package
matches its source.

The same inputs make the same bytes: product codes are derived from the products' names, and times are fixed.
"""

import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import uuid
import xml.etree.ElementTree as ElementTree
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from kit.guide_examples import FILES, examples

ROOT = Path(__file__).resolve().parents[2]
NAMESPACE = "{http://schemas.microsoft.com/wix/2006/wi}"

# The name of the processor in a package's template, and its name in the text of a version.
TEMPLATES = {"arm64": "Arm64", "x64": "x64"}
LABELS = {"arm64": "ARM64", "x64": "x64"}

# The stand-in for the programs as built; the one for the tracking library; the witness; and the stand-in for the programs
# with the package's version appended.
PROGRAM = "agent.exe"
TRACKING = "ostrack.dll"
WITNESS = "witness.dll"
VERSION_PROGRAM = "program.exe"

# The packages with only one fragment, and the variables that select it.
ONE_FRAGMENT = {"firewall": ["WithFirewall"], "account": ["WithAccount"], "access": ["WithAccount", "WithAccess"]}

# The version of the packages that are upgraded; lower than every version of the library.
OLDER_VERSION = "0.9.0"

# The date of the packages and of the files in them; the engine only shows it.
DATE = "2024/01/01 00:00:00"
FILE_TIME = 1704067200

# Types of actions: an entry point of a library in the package, an error that ends the installation, a command line with
# its working folder, the setting of a property. Then the numbers that the attributes Return, Execute and Impersonate add.
LIBRARY_ACTION = 1
ERROR_ACTION = 19
COMMAND_ACTION = 34
PROPERTY_ACTION = 51
RETURN = {"check": 0, "ignore": 64}
EXECUTE = {"immediate": 0, "firstSequence": 256, "deferred": 1024, "rollback": 1024 + 256, "commit": 1024 + 512}
NO_IMPERSONATION = 2048

# The attribute of a component that stays when the product is removed.
PERMANENT = 16

# Where MajorUpgrade's attribute Schedule puts the removal of the old version: directly after the action that it names.
REMOVAL_SEQUENCE = {"afterInstallValidate": 1401, "afterInstallInitialize": 1501, "afterInstallFinalize": 6601}

# The numbers in a sequence that stand for its end, by the attribute OnExit.
EXIT_SEQUENCE = {"success": -1, "cancel": -2, "error": -3, "suspend": -4}


def fail(text):
    sys.exit(f"tools/kit/package.py: {text}")


def run(*command, cwd=None):
    """Runs a tool and returns its output. Exits with a message if the tool prints an error or fails."""
    environment = dict(os.environ, TZ="UTC", LC_ALL="C.UTF-8")
    result = subprocess.run(command, cwd=cwd, env=environment, text=True, capture_output=True, check=False)
    if result.returncode != 0 or result.stderr.strip():
        fail(f"{' '.join(map(str, command))} (status {result.returncode}):\n{result.stderr.strip()}")
    return result.stdout


def guid_of(name):
    """The GUID for a name, always the same for the same name."""
    return "{" + str(uuid.uuid5(uuid.NAMESPACE_DNS, f"{name}.hxsetup")).upper() + "}"


def query(package, sql):
    run("msibuild", package, "-q", sql)


def export(package, table):
    """The rows of a table, each a list of its fields."""
    # msiinfo writes the streams of a table to the current folder.
    lines = run("msiinfo", "export", package.resolve(), table, cwd=package.parent).splitlines()
    return [line.split("\t") for line in lines[3:]]


def import_table(package, stage, table, head, rows):
    """Replaces a table by `rows`, each a key and a text; `head` are the lines that describe its columns."""
    lines = [*head, *(f"{number}\t{text}" for number, text in rows)]
    path = stage / f"{table}.idt"
    path.write_bytes("".join(line + "\r\n" for line in lines).encode("cp1252"))
    run("msibuild", package, "-i", path)


def compile_authoring(source, variables, stage, package):
    """Compiles `source` into `package`. Returns its parsed text, with all variables and includes replaced."""
    defines = [part for name, value in variables.items() for part in ("-D", f"{name}={value}")]
    text = run("wixl", "-a", "x64", "-E", "-I", ROOT / "packages", *defines, source)
    # wixl does not support the attributes Secure, Hidden, Permanent and Schedule, nor the table of error texts.
    known = re.sub(r' (Secure|Hidden|Permanent)="yes"', "", text)
    known = re.sub(r'(<MajorUpgrade [^>]*) Schedule="\w+"', r"\1", known)
    # The column of an action's working folder is the one of an action's property, and wixl supports only the latter.
    known = re.sub(r'(<CustomAction Id="[^"]*" )Directory=', r"\1Property=", known)
    # wixl does not support actions that show an error; their text is in the column of a property's value.
    known = re.sub(r'(<CustomAction Id="([^"]*)"\s+)Error=', r'\1Property="\2" Value=', known)
    known = re.sub(r'OnExit="(\w+)"', lambda exit: f'Sequence="{EXIT_SEQUENCE[exit[1]]}"', known)
    # wixl supports only the permissions of the older table.
    known = re.sub(r"<PermissionEx [^>]*>.*?</PermissionEx>", "", known, flags=re.DOTALL)
    known = re.sub(r"<UI>\s*(<Error [^>]*>[^<]*</Error>\s*)*</UI>", "", known)
    compiled = stage / "source.wxs"
    compiled.write_text(known, encoding="utf-8")
    # wixl takes files only from the current folder.
    run("wixl", "-a", "x64", "-o", package, compiled.name, cwd=stage)
    return ElementTree.fromstring(text)


def set_property_list(package, tree, attribute, listing):
    """Writes the names of the properties marked with `attribute`, and those that the compiler has put there itself, to the
    property `listing`."""
    names = [element.get("Id") for element in tree.iter(f"{NAMESPACE}Property") if element.get(attribute) == "yes"]
    for name, value, *_ in export(package, "Property"):
        if name == listing:
            names = value.split(";") + names
            query(package, f"DELETE FROM `Property` WHERE `Property` = '{listing}'")
    if names:
        query(package, "INSERT INTO `Property` (`Property`, `Value`) "
                       f"VALUES ('{listing}', '{';'.join(sorted(set(names)))}')")


def set_action_types(package, tree):
    """Sets the types of the actions from their attributes: wixl does not support firstSequence, and marks every action as
    one without impersonation."""
    for element in tree.iter(f"{NAMESPACE}CustomAction"):
        kind = EXECUTE[element.get("Execute", "immediate")] + RETURN[element.get("Return", "check")]
        kind += NO_IMPERSONATION if element.get("Impersonate") == "no" else 0
        if element.get("DllEntry"):
            kind += LIBRARY_ACTION
        elif element.get("Error"):
            kind = ERROR_ACTION
            query(package, f"UPDATE `CustomAction` SET `Source` = '' WHERE `Action` = '{element.get('Id')}'")
        elif element.get("Directory") and element.get("ExeCommand"):
            kind += COMMAND_ACTION
        elif element.get("Property"):
            kind += PROPERTY_ACTION
        else:
            fail(f"{element.get('Id')}: this kind of action is not supported")
        query(package, f"UPDATE `CustomAction` SET `Type` = {kind} WHERE `Action` = '{element.get('Id')}'")


def set_permanent_components(package, tree):
    """Marks the components that stay when the product is removed."""
    for name, _, _, attributes, *_ in export(package, "Component"):
        element = tree.find(f".//{NAMESPACE}Component[@Id='{name}']")
        if element.get("Permanent") == "yes":
            query(package, f"UPDATE `Component` SET `Attributes` = {int(attributes) | PERMANENT} "
                           f"WHERE `Component` = '{name}'")


def set_permissions(package, stage, tree):
    """Writes the table of the folders' access lists, each with its condition."""
    rows = []
    for folder in tree.iter(f"{NAMESPACE}Directory"):
        for element in folder.findall(f"{NAMESPACE}Component/{NAMESPACE}CreateFolder/{NAMESPACE}PermissionEx"):
            condition = element.findtext(f"{NAMESPACE}Condition", "").strip()
            rows.append((f"{folder.get('Id')}Access",
                         f"{folder.get('Id')}\tCreateFolder\t{element.get('Sddl')}\t{condition}"))
    if rows:
        import_table(package, stage, "MsiLockPermissionsEx",
                     ["MsiLockPermissionsEx\tLockObject\tTable\tSDDLText\tCondition", "s72\ts72\ts32\ts0\tS255",
                      "MsiLockPermissionsEx\tMsiLockPermissionsEx"], rows)


def set_error_texts(package, stage, tree):
    """Writes the table of the error texts, which records name by number."""
    texts = sorted((int(element.get("Id")), element.text.strip()) for element in tree.iter(f"{NAMESPACE}Error"))
    import_table(package, stage, "Error", ["Error\tMessage", "i2\tL0", "Error\tError"], texts)


def set_summary(package, stage, template, title, contents):
    """Writes the summary of the package, above all its processor: wixl supports only x64."""
    rows = {1: 1252, 2: "Installation Database", 3: title, 4: "Halvorstead", 5: "Installer", 6: title,
            7: f"{template};1033", 9: guid_of(f"package {contents}"), 12: DATE, 13: DATE, 14: 500, 15: 2,
            18: "hxsetup", 19: 2}
    import_table(package, stage, "_SummaryInformation",
                 ["PropertyId\tValue", "i2\tl255", "_SummaryInformation\tPropertyId"], rows.items())


def complete(package, stage, tree):
    """Adds to the compiled package what the compiler left out of its source, and corrects what it did otherwise."""
    set_property_list(package, tree, "Secure", "SecureCustomProperties")
    set_property_list(package, tree, "Hidden", "MsiHiddenProperties")
    set_action_types(package, tree)
    set_permanent_components(package, tree)
    set_permissions(package, stage, tree)
    set_error_texts(package, stage, tree)
    upgrade = tree.find(f".//{NAMESPACE}MajorUpgrade")
    if upgrade is not None:
        sequence = REMOVAL_SEQUENCE[upgrade.get("Schedule", "afterInstallValidate")]
        query(package, f"UPDATE `InstallExecuteSequence` SET `Sequence` = {sequence} "
                       "WHERE `Action` = 'RemoveExistingProducts'")


def copy_files(files, stage):
    """Writes files, given as names with contents, all with the same time."""
    for name, content in files.items():
        copy = stage / name
        copy.write_bytes(content)
        os.utime(copy, (FILE_TIME, FILE_TIME))


def make_package(source, processor, library, name, version, target, kind="", **more):
    """Makes the package `target` from `source` in packages/. It can contain the files in files/ next to the source, and the
    stand-ins next to the library. A package with a `kind` is another product than the one without. `more` are variables for
    the compiler."""
    label = LABELS[processor]
    source = ROOT / "packages" / source
    with tempfile.TemporaryDirectory() as folder:
        stage = Path(folder)
        beside = [library.parent / name for name in (PROGRAM, TRACKING, WITNESS)]
        inputs = [library, *beside, *sorted((source.parent / "files").glob("*"))]
        files = {path.name: path.read_bytes() for path in inputs}
        # Different for each version, so that an upgrade has files to replace.
        files[VERSION_PROGRAM] = files[PROGRAM] + f"\n{name} {version}\n".encode()
        digest = hashlib.sha256(f"{processor} {version}".encode())
        for file, content in files.items():
            digest.update(file.encode() + content)
        copy_files(files, stage)
        package = stage / "package.msi"
        tree = compile_authoring(source, {
            "Version": version,
            "DisplayVersion": f"{version} ({label})",
            "ProductCode": guid_of(f"{source.stem} {version} {processor}{kind and f' {kind}'}"),
            "Processor": label,
            "LibraryFile": library.name,
            "AgentFile": PROGRAM,
            "ProgramFile": VERSION_PROGRAM,
            "TrackingFile": TRACKING,
            **more,
        }, stage, package)
        digest.update(ElementTree.tostring(tree))
        complete(package, stage, tree)
        set_summary(package, stage, TEMPLATES[processor], f"{name} {version} for {label}", digest.hexdigest())
        shutil.copyfile(package, target)


def make_example(name, text, processor, library, target):
    """Makes the package `target` from an example of the guide. Its text is complete except for the programs: each of them is
    the stand-in next to the library."""
    with tempfile.TemporaryDirectory() as folder:
        stage = Path(folder)
        stand_in = (library.parent / PROGRAM).read_bytes()
        scripts = ROOT / "packages/server/files"
        files = {file: stand_in if file.endswith(".exe") else (scripts / file).read_bytes() for file in FILES[name]}
        files[library.name] = library.read_bytes()
        copy_files(files, stage)
        # A compiler replaces "*" by a new product code.
        code = guid_of(f"guide {name} {processor}")
        text, count = re.subn(r'(<Product Id=)"\*"', rf'\1"{code}"', text)
        if count != 1:
            fail(f"the example {name} does not leave its product code to the compiler")
        source, package = stage / f"guide-{name}", stage / "package.msi"
        source.write_text(text, encoding="utf-8")
        tree = compile_authoring(source, {"LibraryFile": library.name}, stage, package)
        complete(package, stage, tree)
        product = tree.find(f"{NAMESPACE}Product")
        digest = hashlib.sha256(b"".join([processor.encode(), text.encode(), *files.values()]))
        set_summary(package, stage, TEMPLATES[processor],
                    f"{product.get('Name')} {product.get('Version')} for {LABELS[processor]}", digest.hexdigest())
        shutil.copyfile(package, target)


def main():
    if not 2 <= len(sys.argv) <= 4 or sys.argv[1] not in TEMPLATES:
        sys.exit(__doc__)
    processor = sys.argv[1]
    library = Path(sys.argv[2] if len(sys.argv) > 2 else ROOT / f"build/{processor}/hxsetup.dll")
    folder = Path(sys.argv[3] if len(sys.argv) > 3 else ROOT / f"build/packages/{processor}")
    for path in (library, *(library.parent / name for name in (PROGRAM, TRACKING, WITNESS))):
        if not path.is_file():
            fail(f"{path} is missing: build it first")
    version = (ROOT / "VERSION").read_text(encoding="utf-8").strip()
    major, minor, build = map(int, version.split("."))
    if (major, minor, build) <= tuple(map(int, OLDER_VERSION.split("."))):
        fail(f"VERSION is {version}, not higher than that of the older packages, {OLDER_VERSION}")
    folder.mkdir(parents=True, exist_ok=True)
    newer = f"{major}.{minor}.{build + 1}"
    make_package("client/client.wxs", processor, library, "Ostrel", version, folder / "client.msi")
    make_package("client/client.wxs", processor, library, "Ostrel", newer, folder / "client-newer.msi")
    make_package("server/older.wxs", processor, library, "Vantor server", OLDER_VERSION, folder / "server-older.msi")
    make_package("server/server.wxs", processor, library, "Vantor server", version, folder / "server.msi")
    make_package("server/server.wxs", processor, library, "Vantor server", version, folder / "server-watched.msi",
                 "watched", WitnessFile=WITNESS)
    make_package("other/other.wxs", processor, library, "Brackwell Gauge", version, folder / "other.msi")
    make_package("other/other.wxs", processor, library, "Brackwell Gauge", newer, folder / "other-newer.msi")
    for kind, names in ONE_FRAGMENT.items():
        make_package("other/one.wxs", processor, library, "Brackwell Gauge", version, folder / f"other-{kind}.msi", kind,
                     **{name: "yes" for name in names})
    make_package("other/client.wxs", processor, library, "Brackwell Probe", version, folder / "other-client.msi", "probe")
    make_package("other/client.wxs", processor, library, "Brackwell Probe", newer, folder / "other-client-newer.msi", "probe")
    for name, text in examples().items():
        make_example(name, text, processor, library, folder / f"guide-{Path(name).stem}.msi")


if __name__ == "__main__":
    main()
