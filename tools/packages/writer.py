"""Writes an .msi from the tables that the linker made of a source: adds what the linker's last step, which runs only on
Windows, would have added. For the scripts of this folder.

The same inputs make the same bytes: times are fixed, and the codes that must be new for every other content are made from
the content."""

import hashlib
import os
import re
import shutil
import struct
import subprocess
import tempfile
import uuid
from pathlib import Path

from images.image_facts import Program, parse_version_resource
from packages.tables import LINE_BREAK, Column, PackageError, Table, run

# The name of each processor in the summary of a package.
TEMPLATES = {"arm64": "Arm64", "x64": "x64"}

# The date of the packages and of the files in them; the engine only shows it.
DATE = "2024/01/01 00:00:00"
FILE_TIME = 1704067200

# Entries of the summary.
CODE_PAGE, TITLE, SUBJECT, AUTHOR, KEYWORDS, COMMENTS, TEMPLATE, REVISION = 1, 2, 3, 4, 5, 6, 7, 9
CREATED, SAVED, SCHEMA, SOURCE, CREATOR = 12, 13, 14, 15, 18
# Bits of the entry SOURCE: long file names if absent; compressed.
COMPRESSED = 2
# The first version of the engine that runs on ARM64.
ARM64_SCHEMA = 500

# The table that describes the columns of all tables.
VALIDATION = Table("_Validation", [
    Column("Table", "s", 32, False, True, category="Identifier", description="Name of the table"),
    Column("Column", "s", 32, False, True, category="Identifier", description="Name of the column"),
    Column("Nullable", "s", 4, False, False, values="Y;N", description="Whether the column may be empty"),
    Column("MinValue", "i", 4, True, False, -2147483647, 2147483647, description="The smallest number"),
    Column("MaxValue", "i", 4, True, False, -2147483647, 2147483647, description="The largest number"),
    Column("KeyTable", "s", 255, True, False, category="Identifier", description="The table of a foreign key"),
    Column("KeyColumn", "i", 2, True, False, 1, 32, description="The column of a foreign key"),
    Column("Category", "s", 32, True, False, category="Text", description="The kind of text"),
    Column("Set", "s", 255, True, False, category="Text", description="The values that are allowed"),
    Column("Description", "s", 255, True, False, category="Text", description="What the column is for"),
])


def guid_of(name):
    """The GUID for a name, always the same for the same name."""
    return "{" + str(uuid.uuid5(uuid.NAMESPACE_DNS, f"{name}.hxsetup")).upper() + "}"


def fail(place, text):
    raise PackageError(f"{place}: {text}" if place else text)


class Files:
    """Finds the files that a source names. `folders` are searched in this order."""

    def __init__(self, folders):
        self.folders = [Path(folder) for folder in folders]

    def find(self, name, place):
        name = name.replace("\\", "/").removeprefix("SourceDir/")
        for folder in self.folders:
            path = folder / name
            if path.is_file():
                return path
        searched = ", ".join(dict.fromkeys(str(folder) for folder in self.folders))
        return fail(place, f"the file {name} is missing (searched in {searched}). Make it, or correct its path in the source "
                           "or in the variable that names it")


# ---- facts about a file

def version_of(path):
    """The version and the language of a program from its resources, or (None, None)."""
    if path.read_bytes()[:2] != b"MZ":
        return None, None
    try:
        resource = Program(path).version_resource()
    except (RuntimeError, KeyError, struct.error):
        return None, None
    version, _, strings = parse_version_resource(resource) if resource else (None, None, {})
    return (".".join(map(str, version)), strings.get("Translation") or "0") if version else (None, None)


def hash_of(data):
    """The engine's hash of a file without a version: four numbers. An empty file has zeros."""
    return list(struct.unpack("<4i", hashlib.md5(data).digest())) if data else [0, 0, 0, 0]


# ---- the tables that the last step completes

def complete_files(database, files, digest):
    """Writes size, version, language, hash and number of each file. Returns the files of each disk, in the order of their
    numbers: {disk: [(key, content)]}."""
    table, more = database.tables.get("File"), database.linker.get("WixFile")
    if not table or not table.rows:
        return {}
    sources = {row["File_"]: (row["Source"], row["DiskId"] or 1, place)
               for row, place in zip(more.dicts(), more.places)}
    key, size, version, language, sequence = map(table.index, ("File", "FileSize", "Version", "Language", "Sequence"))
    keys = {row[key] for row in table.rows}
    disks, hashes = {}, []
    for row in sorted(table.rows, key=lambda row: sources[row[key]][1]):
        source, disk, place = sources[row[key]]
        path = files.find(source, place)
        data = path.read_bytes()
        digest.update(row[key].encode() + data)
        disks.setdefault(disk, []).append((row[key], data))
        row[size] = len(data)
        row[sequence] = sum(map(len, disks.values()))
        # A file may take over the version of another one, its companion.
        if row[version] not in keys:
            found, spoken = version_of(path)
            row[version], row[language] = found or row[version], row[language] or spoken
        if not row[version]:
            hashes.append([row[key], 0, *hash_of(data)])
    if hashes:
        database.tables["MsiFileHash"] = Table("MsiFileHash", [
            Column("File_", "s", 72, False, True, key_table="File", key_column=1, category="Identifier",
                   description="The file"),
            Column("Options", "i", 2, False, False, 0, 32767, description="Always 0"),
            *(Column(f"HashPart{number}", "i", 4, False, False, description="A part of the hash") for number in (1, 2, 3, 4)),
        ], hashes)
    return disks


def complete_media(database, disks):
    """Writes to each row of Media the number of its last file. Returns the cabinet of each disk."""
    table = database.tables.get("Media")
    if not disks:
        return {}
    number, last, cabinet = map(table.index, ("DiskId", "LastSequence", "Cabinet"))
    if "WixMediaTemplate" in database.linker:
        # The linker may split the files into several cabinets; one in the package serves as well.
        for row in table.rows:
            row[cabinet] = row[cabinet] or "#cab1.cab"
    cabinets, before = {}, 0
    for row, place in sorted(zip(table.rows, table.places), key=lambda pair: pair[0][number]):
        if row[number] in disks and not (row[cabinet] or "").startswith("#"):
            fail(place, f"the files of disk {row[number]} must be in the package: add EmbedCab=\"yes\" to its Media")
        before += len(disks.get(row[number], ()))
        row[last] = before
        cabinets[row[number]] = (row[cabinet] or "#")[1:]
    return cabinets


def read_streams(database, files, digest):
    """Replaces the files of the tables' streams by the streams' names. Returns {(table, key): content}."""
    streams = {}
    for table in database.tables.values():
        for number, column in enumerate(table.columns):
            for row, place in zip(table.rows, table.places) if column.kind == "v" else ():
                if row[number] is None:
                    continue
                data = files.find(row[number], place).read_bytes()
                key = ".".join(map(str, table.keys(row)))
                digest.update(f"{table.name}.{key}".encode() + data)
                streams[table.name, key] = data
                row[number] = f"{key}.ibd"
    return streams


def complete_codes(database, digest):
    """Makes the codes that the source leaves to the linker. Refuses those that it computes on Windows only."""
    components = database.tables.get("Component")
    for row, place in zip(components.dicts(), components.places) if components else ():
        if row["ComponentId"] == "*":
            fail(place, f"the component {row['Component']} leaves its GUID to the linker, which computes it on Windows only: "
                        "give it a GUID of its own, the same in all versions")
    for row in database.tables["Property"].rows:
        if row == ["ProductCode", "*"]:
            row[1] = guid_of(f"product {digest.hexdigest()}")


def complete_summary(database, processor, digest):
    summary = database.summary
    language = summary[TEMPLATE].partition(";")[2]
    summary[TEMPLATE] = f"{TEMPLATES[processor]};{language}"
    summary[CREATED] = summary[SAVED] = DATE
    summary[CREATOR] = "hxsetup"
    if summary.get(REVISION) == "*":
        summary[REVISION] = guid_of(f"package {digest.hexdigest()}")
    if processor == "arm64" and int(summary[SCHEMA]) < ARM64_SCHEMA:
        fail("", f"a package for ARM64 needs InstallerVersion=\"{ARM64_SCHEMA}\" in its Package")
    if not int(summary[SOURCE]) & COMPRESSED and "File" in database.tables:
        fail("", "the files must be in the package: add Compressed=\"yes\" to its Package")


# ---- the file

def encoding_of(codepage):
    """The name of a code page of Windows in Python."""
    return {0: "ascii", 65001: "utf-8"}.get(codepage, f"cp{codepage}")


def text_of(value):
    return "" if value is None else LINE_BREAK.join(re.split("\r\n|\r|\n", str(value)))


def check_texts(database):
    """Refuses a text that the package cannot contain."""
    encoding = encoding_of(database.codepage)
    for table in database.tables.values():
        for text in [value for row in table.rows for value in row if isinstance(value, str)]:
            if "\t" in text:
                fail("", f"the table {table.name} has a text with a tab, which cannot be written here: {text!r}")
            try:
                text.encode(encoding)
            except UnicodeEncodeError as error:
                fail("", f"the table {table.name} has the character {text[error.start]!r}, which the code page "
                         f"{database.codepage} of the package does not have: set another Codepage at the Product "
                         "(65001 has all characters)")
            except LookupError:
                fail("", f"the code page {database.codepage} of the package is unknown here: set another Codepage at the "
                         "Product (65001 has all characters)")


def write_archive(path, table):
    """Writes a table as a text archive. msibuild reads UTF-8, whatever the package's code page is."""
    head = [[column.name for column in table.columns], [column.type for column in table.columns],
            [table.name, *(column.name for column in table.columns if column.key)]]
    lines = head + [[text_of(value) for value in row] for row in table.rows]
    path.write_bytes("".join("\t".join(line) + "\r\n" for line in lines).encode())


def describe_tables(database):
    """The table _Validation for the package's tables."""
    rows = []
    for table in sorted([*database.tables.values(), VALIDATION], key=lambda table: table.name):
        for column in table.columns:
            rows.append([table.name, column.name, "Y" if column.nullable else "N", column.minimum, column.maximum,
                         column.key_table, column.key_column, column.category, column.values, column.description])
    return Table(VALIDATION.name, VALIDATION.columns, rows)


def write_cabinet(name, files, stage):
    """Writes the cabinet of one disk; the files in it have the keys as names."""
    folder = stage / f"{name}.files"
    folder.mkdir()
    for key, data in files:
        (folder / key).write_bytes(data)
        os.utime(folder / key, (FILE_TIME, FILE_TIME))
    environment = dict(os.environ, TZ="UTC", LC_ALL="C.UTF-8")
    subprocess.run(["gcab", "--create", "--zip", "--nopath", stage / name, *(folder / key for key, _ in files)], check=True,
                   env=environment, stdout=subprocess.DEVNULL)
    return stage / name


def write_tables(database, streams, cabinets, stage, package):
    """Writes all tables and streams to `package`."""
    tables = [*database.tables.values(), describe_tables(database)]
    summary = Table("_SummaryInformation", [Column("PropertyId", "i", 2, False, True), Column("Value", "l", 255, False, False)],
                    [[number, database.summary[number]] for number in sorted(database.summary)])
    archives = []
    if database.codepage:
        archives.append(stage / "_ForceCodepage.idt")
        archives[0].write_bytes(f"\r\n\r\n{database.codepage}\t_ForceCodepage\r\n".encode())
    for table in [*sorted(tables, key=lambda table: table.name), summary]:
        archives.append(stage / f"{table.name}.idt")
        write_archive(archives[-1], table)
    for (table, key), data in streams.items():
        (stage / table).mkdir(exist_ok=True)
        (stage / table / f"{key}.ibd").write_bytes(data)
    run("msibuild", package, "-i", *archives, cwd=stage)
    for name, path in cabinets.items():
        run("msibuild", package, "-a", name, path)


def write_package(database, processor, files, target, names=()):
    """Writes the .msi `target` from the linker's tables, and completes them. `files` finds the files. `names` makes codes
    different for other reasons than the content."""
    digest = hashlib.sha256(repr((processor, *names)).encode())
    disks = complete_files(database, files, digest)
    cabinets = complete_media(database, disks)
    streams = read_streams(database, files, digest)
    for name in sorted(database.tables):
        digest.update(repr((name, sorted(map(repr, database.tables[name].rows)))).encode())
    digest.update(repr(sorted(database.summary.items())).encode())
    check_texts(database)
    complete_codes(database, digest)
    complete_summary(database, processor, digest)
    with tempfile.TemporaryDirectory(prefix="hx-write-") as folder:
        stage = Path(folder)
        made = {cabinets[disk]: write_cabinet(cabinets[disk], content, stage) for disk, content in disks.items()}
        write_tables(database, streams, made, stage, stage / "package.msi")
        shutil.copyfile(stage / "package.msi", target)
