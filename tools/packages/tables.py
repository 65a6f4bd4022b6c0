"""The tables of a package, read from an .msi, or from what the linker writes for one. For the scripts of this folder."""

import os
import subprocess
import tempfile
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass, field
from pathlib import Path
from typing import Optional

OUTPUTS = "{http://schemas.microsoft.com/wix/2006/outputs}"
OBJECTS = "{http://schemas.microsoft.com/wix/2006/objects}"
DEFINITIONS = "{http://schemas.microsoft.com/wix/2006/tables}"

# The first bytes of an .msi, an OLE compound file.
PACKAGE_SIGNATURE = b"\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1"

# What replaces a line break inside a field of a text archive of a table. msibuild knows no replacement of a tab.
LINE_BREAK = "\x11\x19"

# The letters of a column's type in a text archive: of one that must have a value. A capital letter may be empty.
LETTERS = {"string": "s", "localized": "l", "preserved": "s", "number": "i", "object": "v"}

# The numbers of the validation categories of a linker's definition, by their names in the table _Validation.
CATEGORIES = {name.lower(): name for name in (
    "Text", "UpperCase", "LowerCase", "Integer", "DoubleInteger", "TimeDate", "Identifier", "Property", "Filename",
    "WildCardFilename", "Path", "Paths", "AnyPath", "DefaultDir", "RegPath", "Formatted", "FormattedSDDLText", "Template",
    "Condition", "Guid", "Version", "Language", "Binary", "CustomSource", "Cabinet", "Shortcut")}
CATEGORIES["formattedsddl"] = "FormattedSDDLText"

# The tables that describe the others, not the product.
SYSTEM_TABLES = ("_Validation", "_SummaryInformation", "_ForceCodepage")


class PackageError(Exception):
    """Something that makes a package unusable; its text says what to do."""


@dataclass
class Column:
    """`kind` is "s" (text), "l" (text in the package's language), "i" (number) or "v" (stream); `size` is the number of
    characters of a text (0: any) or of bytes of a number. The rest is what _Validation says of it; None if it says nothing."""
    name: str
    kind: str
    size: int
    nullable: bool
    key: bool
    minimum: Optional[int] = None
    maximum: Optional[int] = None
    key_table: Optional[str] = None
    key_column: Optional[int] = None
    category: Optional[str] = None
    values: Optional[str] = None
    description: Optional[str] = None

    @property
    def type(self):
        """Its type in a text archive."""
        return (self.kind.upper() if self.nullable else self.kind) + str(self.size)


@dataclass
class Table:
    """`rows` are lists with a value for each column: None if it is empty, otherwise an int or a text. The value of a stream
    is its name."""
    name: str
    columns: list
    rows: list = field(default_factory=list)
    # From the linker only: where each row is in the source, "FILE:LINE" or "".
    places: list = field(default_factory=list)

    def index(self, column):
        """The number of a column, by its name."""
        return next(number for number, each in enumerate(self.columns) if each.name == column)

    def dicts(self):
        """The rows as dictionaries by the names of the columns."""
        names = [column.name for column in self.columns]
        return [dict(zip(names, row)) for row in self.rows]

    def keys(self, row):
        return tuple(value for column, value in zip(self.columns, row) if column.key)


class Database:
    """`tables` by their names, without those that describe the others; `summary`, the values of the summary by their numbers;
    `codepage`, the number of its code page (0: none); `described`, the names of the tables and columns that _Validation
    describes, each (table, column)."""

    def __init__(self):
        self.tables = {}
        self.summary = {}
        self.codepage = 0
        self.described = set()

    def rows(self, name):
        """The rows of a table as dictionaries; none if the package does not have the table."""
        return self.tables[name].dicts() if name in self.tables else []

    def keyed(self, name):
        """The rows of a table by their first column, each a list of the others; none if the package does not have the table."""
        return {row[0]: row[1:] for row in self.tables[name].rows} if name in self.tables else {}

    def properties(self):
        return {row["Property"]: row["Value"] for row in self.rows("Property")}


def run(*command, cwd=None):
    """Runs a tool of msitools and returns its output as bytes."""
    result = subprocess.run([str(part) for part in command], cwd=cwd, capture_output=True, check=False,
                            env=dict(os.environ, TZ="UTC", LC_ALL="C.UTF-8"))
    if result.returncode != 0:
        # msibuild warns of each empty number in a key.
        lines = (result.stderr or result.stdout).decode(errors="replace").splitlines()
        said = [line for line in lines if line.strip() and "WARNING **" not in line] or lines
        text = "\n".join(said)
        raise PackageError(f"{Path(command[0]).name} failed ({result.returncode}): {text}")
    return result.stdout


# ---- an .msi

def parse_archive(data):
    """The head (names of columns, types, keys) and the rows of a text archive. msiinfo writes it in UTF-8, whatever the
    package's code page is."""
    lines = data.decode(errors="replace").split("\r\n")
    names, types, keys = (line.split("\t") for line in lines[:3])
    rows = []
    for line in lines[3:-1] if not lines[-1] else lines[3:]:
        fields = line.split("\t")
        # msiinfo writes a line break inside a field as it is.
        if rows and (len(fields) < len(names) and len(rows[-1]) + len(fields) - 1 <= len(names)):
            rows[-1][-1] += "\r\n" + fields[0]
            rows[-1] += fields[1:]
        else:
            rows.append(fields)
    return names, types, keys[1:], rows


def value_of(column, text):
    if not text and column.kind != "v":
        return None
    return int(text) if column.kind == "i" else text


def read_package(path):
    """The tables of an .msi."""
    path = Path(path).resolve()
    if not path.is_file():
        raise PackageError(f"{path} {'is not a file' if path.exists() else 'does not exist'}")
    if path.read_bytes()[:len(PACKAGE_SIGNATURE)] != PACKAGE_SIGNATURE:
        raise PackageError(f"{path} is not an installation package: it does not begin like an OLE compound file")
    try:
        names = run("msiinfo", "tables", path).decode().split()
    except PackageError as error:
        raise PackageError(f"{path} is not an installation package: {error}") from None
    if "Property" not in names:
        raise PackageError(f"{path} is not an installation package: it has no table Property")
    try:
        return parse_package(path, names)
    except (KeyError, IndexError, TypeError, ValueError) as error:
        raise PackageError(f"{path} is damaged ({type(error).__name__} {error}): make it again") from None


def parse_package(path, names):
    """The tables of an .msi that has the tables `names`."""
    database = Database()
    with tempfile.TemporaryDirectory(prefix="hx-tables-") as folder:
        # msiinfo writes the streams of a table to the current folder.
        archives = {name: run("msiinfo", "export", path, name, cwd=folder) for name in names}
    head = archives.pop("_ForceCodepage", b"").split()
    database.codepage = int(head[0]) if head and head[0].isdigit() else 0
    for name, data in archives.items():
        columns, types, keys, rows = parse_archive(data)
        described = [Column(column, kind[0].lower(), int(kind[1:]), kind[0].isupper(), column in keys)
                     for column, kind in zip(columns, types)]
        database.tables[name] = Table(name, described,
                                      [[value_of(column, text) for column, text in zip(described, row)] for row in rows])
    summary = database.tables.pop("_SummaryInformation", None)
    database.summary = {row[0]: row[1] for row in summary.rows} if summary else {}
    describe(database, database.tables.pop("_Validation", None))
    return database


def describe(database, validation):
    """Adds to the columns what _Validation says of them."""
    for row in validation.dicts() if validation else ():
        database.described.add((row["Table"], row["Column"]))
        table = database.tables.get(row["Table"])
        for column in table.columns if table else ():
            if column.name == row["Column"]:
                column.nullable = row["Nullable"] == "Y"
                column.minimum, column.maximum = row["MinValue"], row["MaxValue"]
                column.key_table, column.key_column = row["KeyTable"], row["KeyColumn"]
                column.category, column.values, column.description = row["Category"], row["Set"], row["Description"]


# ---- what the linker writes

def number(text):
    return None if text is None else int(text)


def read_definition(element):
    """A table without rows, from a linker's definition."""
    columns = []
    for each in element.findall(f"{DEFINITIONS}columnDefinition"):
        category = each.get("category")
        columns.append(Column(each.get("name"), LETTERS[each.get("type")], int(each.get("length")),
                              each.get("nullable") == "yes", each.get("primaryKey") == "yes",
                              number(each.get("minValue")), number(each.get("maxValue")), each.get("keyTable"),
                              number(each.get("keyColumn")), category and CATEGORIES[category.lower()], each.get("set"),
                              each.get("description")))
    return Table(element.get("name"), columns)


def read_output(path):
    """The tables that the linker writes for a package, and in `linker` those that only the linker uses."""
    root = ElementTree.parse(path).getroot()
    database = Database()
    database.codepage = int(root.get("codepage", "0"))
    database.linker = {}
    for definition in root.iter(f"{DEFINITIONS}tableDefinition"):
        table = read_definition(definition)
        (database.linker if definition.get("unreal") == "yes" else database.tables)[table.name] = table
    for element in root.iter(f"{OBJECTS}table"):
        name = element.get("name")
        table = database.tables.get(name) or database.linker[name]
        for row in element.iter(f"{OBJECTS}row"):
            table.rows.append([number(cell.text) if column.kind == "i" else cell.text
                               for column, cell in zip(table.columns, row)])
            # The last of the places: the source, after the files that include it.
            table.places.append(row.get("sourceLineNumber", "").split("|")[0].replace("*", ":"))
    summary = database.tables.pop("_SummaryInformation")
    database.summary = {row[0]: row[1] for row in summary.rows}
    return database
