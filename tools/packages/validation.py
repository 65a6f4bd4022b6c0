"""Checks the rows of a package against what its table _Validation says of each column, as ICE03 does: values that are missing,
ranges, lengths, sets, references to other tables, and categories of text."""

import re

from packages.conditions import ConditionError, parse
from packages.findings import ERROR, Finding

RULE = "validation"

# The largest numbers of a column with 2 and with 4 bytes; the number below the smallest stands for an empty value.
LARGEST = {2: 0x7FFF, 4: 0x7FFFFFFF}

IDENTIFIER = re.compile(r"[A-Za-z_][A-Za-z0-9_.]*", re.ASCII)
GUID = re.compile(r"\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}", re.ASCII)
VERSION = re.compile(r"\d{1,5}(\.\d{1,5}){0,3}", re.ASCII)
LANGUAGES = re.compile(r"\d{1,5}(,\d{1,5})*", re.ASCII)
SHORT_NAME = re.compile(r"[^\\?|><:/*\"+,;=\[\]. \t]{1,8}(\.[^\\?|><:/*\"+,;=\[\]. \t]{0,3})?")
LONG_NAME = re.compile(r"[^\\?|><:/*\"]{1,255}")
WILD_SHORT_NAME = re.compile(r"[^\\|><:/\"+,;=\[\]. \t]{1,8}(\.[^\\|><:/\"+,;=\[\]. \t]{0,3})?")
WILD_LONG_NAME = re.compile(r"[^\\|><:/\"]{1,255}")
# A path begins with a drive, a server, a property or a folder's name.
PATH = re.compile(r"([A-Za-z]:\\?|\\\\|\[[^\]]+\]\\?)?[^?|><:/*\"\[\]]*(\[[^\]]+\][^?|><:/*\"\[\]]*)*")
DRIVE_PATH = re.compile(r"([A-Za-z]:\\|\\\\[^\\]|\[[^\]]+\]).*", re.DOTALL)
URL = re.compile(r"(https?|ftp|file)://\S+|\[[^\]]+\].*", re.IGNORECASE)

# What may be between the brackets of a formatted text: a property, an environment variable, a file, a component, one character
# after a backslash, an empty character. A template may also name a field of a record.
FIELD = re.compile(r"(?P<environment>%\S+)|(?P<file>[#!](?P<file_key>\S+))|(?P<component>\$(?P<component_key>\S+))|"
                   r"(?P<character>\\.)|(?P<empty>~)|(?P<number>\d+)|(?P<property>[^\s\[\]{}]+)", re.DOTALL)
BRACKETS = re.compile(r"\[(\\.|[^\[\]]*)\]", re.DOTALL)

# The parts of an access list: owner, group, and two lists of entries in brackets.
SDDL = re.compile(r"(O:(?P<owner>[^:;()]+?))?(G:(?P<group>[^:;()]+?))?(D:(P|AR|AI|NO_ACCESS_CONTROL)*(\([^()]*\))*)?"
                  r"(S:(P|AR|AI)*(\([^()]*\))*)?")
SDDL_ENTRIES = re.compile(r"\(([^()]*)\)")

# Tables in which a column names the table to which another column refers: (its column, the tables that it may name).
TABLE_NAMED_BY = {
    ("LockPermissions", "LockObject"): "Table",
    ("MsiLockPermissionsEx", "LockObject"): "Table",
    ("MsiDigitalSignature", "SignObject"): "Table",
}

# Where the source of a custom action is, by its type without the options: a table and what its row is.
SOURCE_BITS = 0x37
SOURCES = {**dict.fromkeys((1, 2, 5, 6), "Binary"), **dict.fromkeys((17, 18, 21, 22), "File"),
           **dict.fromkeys((33, 34, 35, 37, 38), "Directory")}
# The types whose source may be empty.
WITHOUT_SOURCE = (19, 34, 37, 38)


class Fault(Exception):
    """What is wrong with a value, and what to do."""


def require(condition, text):
    if not condition:
        raise Fault(text)


# ---- categories

def identifier(value, _):
    require(IDENTIFIER.fullmatch(value), "is not an identifier: begin with a letter or _, and use only letters, digits, _ and .")


def property_name(value, _):
    require(IDENTIFIER.fullmatch(value.removeprefix("%")), "is not the name of a property: begin with a letter or _, and use only "
            "letters, digits, _ and . (% before it makes it an environment variable)")


def upper_case(value, _):
    require(value == value.upper(), "has small letters: use capital letters only")


def lower_case(value, _):
    require(value == value.lower(), "has capital letters: use small letters only")


def guid(value, _):
    require(GUID.fullmatch(value), "is not a GUID: write it as {01234567-89AB-CDEF-0123-456789ABCDEF}, with capital letters")


def version(value, database):
    # A file can take over the version of another one.
    if value in database.keyed_values("File", 1):
        return
    require(VERSION.fullmatch(value) and all(int(part) <= 0xFFFF for part in value.split(".")),
            "is not a version: write up to four numbers from 0 to 65535 with dots between them")


def language(value, _):
    require(LANGUAGES.fullmatch(value) and all(int(part) <= 0xFFFF for part in value.split(",")),
            "is not a list of languages: write their numbers with commas between them, such as 1033,1031")


def name_of_file(short, long):
    def check(value, _):
        first, bar, second = value.partition("|")
        if not bar:
            require(short.fullmatch(value), "is not a short file name (8.3), and has none before it: write SHORT|LONG")
            return
        require(short.fullmatch(first), f"begins with '{first}', which is not a short file name (8.3)")
        require(long.fullmatch(second) and second.strip(" .") == second.strip(" "),
                f"has the long file name '{second}', which has characters that a file name cannot have")
    return check


file_name = name_of_file(SHORT_NAME, LONG_NAME)
wild_card_name = name_of_file(WILD_SHORT_NAME, WILD_LONG_NAME)


def path(value, _):
    require(PATH.fullmatch(value) and DRIVE_PATH.fullmatch(value),
            r"is not a complete path: begin with a drive (C:\), a server (\\SERVER) or a property ([FOLDER])")


def paths(value, database):
    for each in value.split(";"):
        require(each, "has an empty path: remove the extra semicolon")
        try:
            path(each, database)
        except Fault as fault:
            raise Fault(f"has the part '{each}', which {fault}") from None


def any_path(value, _):
    short, bar, long = value.partition("|")
    require(PATH.fullmatch(short) and (not bar or PATH.fullmatch(long)),
            "is not a path: it has characters that a path cannot have")


def default_folder(value, database):
    for part in value.split(":"):
        if part in (".", "SourceDir") or re.fullmatch(r"\[[A-Za-z_][\w.]*\]", part):
            continue
        file_name(part, database)


def registry_path(value, database):
    require(not value.startswith("\\"), "begins with a backslash: remove it")
    require(not value.endswith("\\"), "ends with a backslash: remove it")
    require("\\\\" not in value, "has two backslashes without a name between them: remove one")
    formatted(value, database)


def check_formatted(value, database, numbers):
    rest = BRACKETS.sub("", value)
    # Brackets in brackets are replaced from inside: "[[NAME]]" is the value of the property that NAME names.
    while (inner := BRACKETS.sub("", rest)) != rest:
        rest = inner
    require("[" not in rest, r"has a bracket that does not close: add ] or write [\[] for the bracket itself")
    for match in BRACKETS.finditer(value):
        field = FIELD.fullmatch(match[1])
        # Anything else stays as it is.
        if not field:
            continue
        if field["file_key"]:
            require(field["file_key"] in database.keyed_values("File", 1),
                    f"names the file {field['file_key']}, which is not in the table File")
        if field["component_key"]:
            require(field["component_key"] in database.keyed_values("Component", 1),
                    f"names the component {field['component_key']}, which is not in the table Component")
        if field["number"]:
            require(numbers, f"has the field {match[0]}, but no record fills it: name a property")


def formatted(value, database):
    check_formatted(value, database, numbers=False)


def template(value, database):
    check_formatted(value, database, numbers=True)


def condition(value, _):
    try:
        parse(value)
    except ConditionError as error:
        raise Fault(f"is not a condition: {error}") from None


def access_list(value, database):
    formatted(value, database)
    # What a property brings is not known.
    plain = BRACKETS.sub("SY", re.sub(r"\[\\(.)\]", r"\1", value))
    require(plain and SDDL.fullmatch(plain), "is not an access list in SDDL: write O:OWNER G:GROUP D:(ENTRY)(ENTRY) without blanks")
    for match in SDDL_ENTRIES.finditer(plain):
        parts = match[1].split(";")
        require(len(parts) in (6, 7) and parts[0] and parts[5],
                f"has the entry ({match[1]}), which does not have six parts: (TYPE;FLAGS;RIGHTS;OBJECT;INHERITED OBJECT;ACCOUNT)")


def cabinet(value, database):
    if value.startswith("#"):
        require(IDENTIFIER.fullmatch(value[1:]), "is not a cabinet in the package: write # and an identifier")
    elif "|" in value:
        file_name(value, database)
    else:
        require(LONG_NAME.fullmatch(value), "is not the name of a cabinet: it has characters that a file name cannot have")


def custom_source(value, _):
    require(IDENTIFIER.fullmatch(value) or GUID.fullmatch(value) or re.fullmatch(r"\[[^\[\]]+\]", value),
            "is not the source of an action: name a row of Binary, File, Directory or Property")


def shortcut(value, database):
    if "[" in value:
        formatted(value, database)
        return
    identifier(value, database)
    require(value in database.keyed_values("Feature", 1), "is not a feature: name a row of Feature, or a file as [#FILE]")


def url(value, _):
    require(URL.fullmatch(value), "is not an address: begin with http://, https://, ftp:// or file://")


def anything(_value, _database):
    pass


CATEGORIES = {
    "Text": anything, "Binary": anything, "Identifier": identifier, "Property": property_name, "UpperCase": upper_case,
    "LowerCase": lower_case, "Guid": guid, "Version": version, "Language": language, "Filename": file_name,
    "WildCardFilename": wild_card_name, "Path": path, "Paths": paths, "AnyPath": any_path, "DefaultDir": default_folder,
    "RegPath": registry_path, "Formatted": formatted, "KeyFormatted": formatted, "Template": template, "Condition": condition,
    "FormattedSDDLText": access_list, "Cabinet": cabinet, "CustomSource": custom_source, "Shortcut": shortcut, "URL": url,
    "Integer": anything, "DoubleInteger": anything, "TimeDate": anything,
}
# The categories of numbers.
NUMBERS = ("Integer", "DoubleInteger", "TimeDate")


# ---- references

class Tables:
    """The package's tables, with the values of their columns."""

    def __init__(self, database):
        self.tables = database.tables
        self.found = {}

    def keyed_values(self, table, column):
        """The values of a column, counted from 1; none if the package does not have the table."""
        if (table, column) not in self.found:
            rows = self.tables[table].rows if table in self.tables else ()
            self.found[table, column] = {row[column - 1] for row in rows}
        return self.found[table, column]

    def refers(self, table, number, keys, value):
        """Whether `value` is in the column `number` of the table. If the column is not the first of a key, the columns before it
        must have the same values as the first ones of the row, `keys`."""
        if number == 1:
            return value in self.keyed_values(table, 1)
        rows = self.tables[table].rows if table in self.tables else ()
        return any(row[:number] == [*keys[:number - 1], value] for row in rows)


def check_reference(table, column, row, value, tables):
    number = column.key_column or 1
    names = column.key_table.split(";")
    if any(tables.refers(name, number, row, value) for name in names):
        return
    missing = [name for name in names if name not in tables.tables]
    where = " or ".join(names)
    raise Fault(f"is not in the table {where}" + (", which the package does not have" if missing == names else "")
                + f": add its row to {where}, or name another one")


def check_named_table(table, column, record, tables):
    """A reference whose table is the value of another column."""
    named = record[TABLE_NAMED_BY[table.name, column.name]]
    require(named in tables.tables, f"is to be in the table {named}, which the package does not have")
    require(record[column.name] in tables.keyed_values(named, 1), f"is not in the table {named}: name one of its rows")


def check_source(record, tables):
    """The source of a custom action, which its type says how to read."""
    kind, source = record["Type"] & SOURCE_BITS, record["Source"]
    if source is None:
        require(kind in WITHOUT_SOURCE, "is empty: name where the action is")
        return
    table = SOURCES.get(kind)
    if table:
        require(source in tables.keyed_values(table, 1),
                f"is not in the table {table}, where an action of the type {record['Type']} has its source: name one of its rows")


# ---- rows

def allowed(column):
    return column.values.split(";") if column.values else []


def check_number(column, value):
    if str(value) in allowed(column):
        return
    limited = column.minimum is not None or column.maximum is not None
    if column.values and not limited:
        raise Fault(f"is not one of {', '.join(allowed(column))}")
    largest = LARGEST[column.size]
    least = -largest if column.minimum is None else column.minimum
    most = largest if column.maximum is None else column.maximum
    require(least <= value <= most, f"is not in the range from {least} to {most}"
            + (f" and not one of {', '.join(allowed(column))}" if column.values else ""))


def check_text(table, column, row, value, tables):
    if column.size and len(value) > column.size:
        raise Fault(f"has {len(value)} characters, but at most {column.size} are allowed")
    if value in allowed(column):
        return
    # A reference through a property is known only when the package runs.
    if column.key_table and not value.startswith("["):
        check_reference(table, column, row, value, tables)
    if column.category:
        for each in column.category.split(";"):
            require(each in CATEGORIES, f"has the category {each} in _Validation, which does not exist")
        faults = []
        for each in column.category.split(";"):
            try:
                CATEGORIES[each](value, tables)
                return
            except Fault as fault:
                faults.append(fault)
        raise faults[0]
    if column.values and not column.key_table:
        raise Fault(f"is not one of {', '.join(allowed(column))}")


def check_value(table, column, row, value, tables):
    if value is None or value == "":
        require(column.nullable, "is empty: it must have a value")
    elif column.kind == "i":
        check_number(column, value)
        if column.key_table:
            check_reference(table, column, row, value, tables)
    elif column.kind != "v":
        check_text(table, column, row, str(value), tables)


def shown(value):
    if isinstance(value, int):
        return str(value)
    text = value.replace("\n", " ").replace("\r", "")
    return f"'{text[:60]}'..." if len(text) > 60 else f"'{text}'"


def check_row(table, row, tables):
    """The faults of a row, each (column, value, text)."""
    record = dict(zip((column.name for column in table.columns), row))
    for column, value in zip(table.columns, row):
        try:
            check_value(table, column, row, value, tables)
            if (table.name, column.name) in TABLE_NAMED_BY and value is not None:
                check_named_table(table, column, record, tables)
            if (table.name, column.name) == ("CustomAction", "Source") and isinstance(record["Type"], int):
                check_source(record, tables)
        except Fault as fault:
            yield column, value, str(fault)


def check(database):
    """The findings in the tables of a package, as read by read_package or read_output."""
    findings, tables = [], Tables(database)
    if not database.described:
        findings.append(Finding(RULE, ERROR, "the package has no rows in _Validation, so that most of its values cannot be "
                                "checked: make it with ./hx package, or with candle and light", "_Validation"))
    for table in database.tables.values():
        for column in table.columns:
            if database.described and (table.name, column.name) not in database.described:
                findings.append(Finding(RULE, ERROR, "_Validation does not describe the column: add a row for it", table.name,
                                        column.name))
        for row in table.rows:
            keys = tuple("" if key is None else str(key) for key in table.keys(row))
            for column, value, text in check_row(table, row, tables):
                said = f"{shown(value)} {text}" if value not in (None, "") else f"the value {text}"
                findings.append(Finding(RULE, ERROR, said, table.name, column.name, keys))
    return findings
