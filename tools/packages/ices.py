"""Runs the validation actions (ICEs) of darice.cub, the reference validation, on packages, in the Windows for x64.

Wine's engine runs most of them as Windows does. WORKING names those for which a test plants a fault that they must find;
only these are run. NOT_RUN says why each of the others is not."""

import re
import shutil
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

from packages.compiler import folder_of_compilers
from packages.findings import ERROR, FAILURE, INFORMATION, WARNING, Finding
from packages.tables import Column, PackageError, Table, parse_archive, run, value_of
from packages.writer import write_archive
from windows.windows_session import SERVE, Ended, Windows

ROOT = Path(__file__).resolve().parents[2]
PROGRAM = ROOT / "build/x64/ices.exe"
WINDOWS = "x64-with-x86"

# The seconds that one action may take; it takes some hundredths.
TIME_LIMIT = 10
# The seconds that all actions of one package may take.
RUN_LIMIT = 300

# The tables of the library of actions that describe it and not its actions.
NOT_MERGED = ("_SummaryInformation", "_ForceCodepage", "Property")
# Those of them that a package has too.
SHARED = ("Binary", "CustomAction", "_Validation")

KINDS = {"0": FAILURE, "1": ERROR, "2": WARNING, "3": INFORMATION}

# The name with which the program begins the lines of its output.
WORD = re.compile(r"(open|run|said|end|late|done)(?: (.*))?")

# The entry of the summary that names the processor, in a text archive.
ARM64_TEMPLATE = re.compile(rb"(^7\t)Arm64;", re.MULTILINE | re.IGNORECASE)

# Wine's script object of a database does not have this method. This function takes its place: 1 if the table exists.
PERSISTENT = re.compile(rb"\bDatabase\.TablePersistent\b")
HAS_TABLE = b"""
Function HasTable(Name)
  Dim Tables
  HasTable = 2
  Set Tables = Database.OpenView("SELECT `Name` FROM `_Tables` WHERE `Name` = '" & Name & "'")
  Tables.Execute
  If Not Tables.Fetch Is Nothing Then HasTable = 1
End Function
""".replace(b"\n", b"\r\n")

WORKING = ("ICE02 ICE04 ICE05 ICE06 ICE07 ICE08 ICE09 ICE10 ICE12 ICE13 ICE14 ICE17 ICE18 ICE20 ICE21 ICE22 ICE23 "
           "ICE24 ICE25 ICE28 ICE30 ICE31 ICE33 ICE34 ICE39 ICE40 ICE41 ICE42 ICE44 ICE45 ICE48 ICE50 ICE51 ICE52 "
           "ICE53 ICE54 ICE55 ICE59 ICE60 ICE61 ICE62 ICE63 ICE65 ICE67 ICE68 ICE69 ICE70 ICE71 ICE72 ICE74 ICE75 "
           "ICE76 ICE77 ICE78 ICE79 ICE80 ICE83 ICE84 ICE85 ICE86 ICE87 ICE88 ICE89 ICE92 ICE93 ICE94 ICE95 ICE96 "
           "ICE97 ICE98 ICE99 ICE101 ICE102 ICE104 ICE105").split()

ENGINE = "Wine's engine cannot run it"
ENDLESS = "it does not end on Wine's engine"
WRONG = "it reports faults of correct packages on Wine's engine"
UNPROVEN = "no planted fault shows that it works on Wine's engine"

NOT_RUN = {
    "ICE01": "it checks nothing",
    "ICE03": "its rules are checked without it, from the table _Validation",
    **dict.fromkeys("ICE15 ICE19 ICE26 ICE27 ICE29 ICE35 ICE36 ICE43 ICE56 ICE57".split(), ENGINE),
    **dict.fromkeys("ICE38 ICE64 ICE90 ICE91".split(), ENDLESS),
    **dict.fromkeys("ICE66 ICE73 ICE82".split(), WRONG),
    **dict.fromkeys("ICE11 ICE16 ICE32 ICE46 ICE47 ICE49 ICE58 ICE81 ICE100 ICE103".split(), UNPROVEN),
}


@dataclass
class Report:
    """What the actions said of one package: their findings, the actions that have run, and those that have not, each with
    the reason."""
    findings: list = field(default_factory=list)
    ran: list = field(default_factory=list)
    not_run: dict = field(default_factory=dict)


# ---- the package with the actions

def read_table(path, name, folder):
    """A table of a database; its streams are written to `folder`."""
    names, types, keys, rows = parse_archive(run("msiinfo", "export", path, name, cwd=folder))
    columns = [Column(column, kind[0].lower(), int(kind[1:]), kind[0].isupper(), column in keys)
               for column, kind in zip(names, types)]
    return Table(name, columns, [[value_of(column, text) for column, text in zip(columns, row)] for row in rows])


def merge(package, target, library):
    """Copies `package` to `target` and adds the tables of `library`, an .msi or .cub with validation actions. Returns the
    names of the actions in their order."""
    package, target, library = Path(package).resolve(), Path(target).resolve(), Path(library).resolve()
    shutil.copyfile(package, target)
    present = run("msiinfo", "tables", package).decode().split()
    with tempfile.TemporaryDirectory(prefix="hx-ices-") as folder:
        archives, order = [], []
        for name in run("msiinfo", "tables", library).decode().split():
            if name in NOT_MERGED:
                continue
            table = read_table(library, name, folder)
            if name == "_ICESequence":
                number = table.index("Sequence")
                order = [row[0] for row in sorted(table.rows, key=lambda row: row[number] or 0)]
            if name in present:
                if name not in SHARED:
                    raise PackageError(f"{package} has a table {name}, as the validation actions do: remove it")
                own = read_table(package, name, folder)
                keys = {own.keys(row) for row in own.rows}
                # A package's table can have more columns than the actions' one.
                own.rows += [row + [None] * (len(own.columns) - len(row)) for row in table.rows
                             if table.keys(row) not in keys]
                table = own
            archives.append(Path(folder) / f"{name}.idt")
            write_archive(archives[-1], table)
        for script in (Path(folder) / "Binary").glob("*.vbs"):
            script.write_bytes(PERSISTENT.sub(b"HasTable", script.read_bytes()) + HAS_TABLE)
        summary = run("msiinfo", "export", package, "_SummaryInformation", cwd=folder)
        # The engine for x64 opens no package for ARM64. The actions read only that it is for 64-bit processors.
        archives.append(Path(folder) / "_SummaryInformation.idt")
        archives[-1].write_bytes(ARM64_TEMPLATE.sub(rb"\1x64;", summary))
        run("msibuild", target, "-i", *archives, cwd=folder)
    return order


# ---- what the program prints

def unescaped(text):
    return re.sub(r"\\(.)", lambda match: "\n" if match[1] == "n" else match[1], text)


def finding_of(message):
    """The finding in a message of an action, or None if the message is something else."""
    rule, kind, text, _, table, column, *keys = (unescaped(message).split("\t") + [""] * 6)[:max(6, message.count("\t") + 1)]
    if kind not in KINDS:
        return None
    while keys and not keys[-1]:
        keys.pop()
    return Finding(rule, KINDS[kind], text, table, column, tuple(keys))


class Reader:
    """Reads the lines of one start of the program for the actions `wanted`, into `report`."""

    def __init__(self, report):
        self.report = report
        self.opened = None
        self.current = None
        self.finished = False
        self.other = []

    def __call__(self, line):
        match = WORD.fullmatch(line)
        if not match:
            if line:
                self.other.append(line)
            return
        word, rest = match[1], match[2] or ""
        if word == "open":
            self.opened = int(rest)
        elif word == "run":
            self.current = rest
        elif word == "said":
            self.take(finding_of(rest))
        elif word == "end":
            name, status = rest.split()
            self.end("" if status == "0" else f"it ended with status {status}")
        elif word == "late":
            self.end(f"it did not end in {TIME_LIMIT} seconds")
        elif word == "done":
            self.finished = True

    def take(self, finding):
        if finding and finding.kind == FAILURE:
            self.report.not_run[self.current] = finding.text
        elif finding and finding.kind != INFORMATION:
            self.report.findings.append(finding)

    def end(self, reason):
        """Ends the action that runs. It has run only if it has not said that it failed."""
        if reason:
            self.report.not_run[self.current] = reason
        elif self.current not in self.report.not_run:
            self.report.ran.append(self.current)
        self.current = None


def run_actions(windows, file, actions, report):
    """Runs the actions on the package `file` in the Windows' folder. Starts the program again if an action ends it."""
    left = list(actions)
    while left:
        reader = Reader(report)
        status = windows.run({"WINEDLLPATH": "/windows/libraries"},
                             ["wine64", r"Z:\run\ices.exe", rf"Z:\run\{file}", str(TIME_LIMIT), *left], reader)
        if reader.finished:
            return
        done = set(report.ran) | set(report.not_run)
        if reader.current:
            report.not_run[reader.current] = f"it ended the program that runs it (status {status})"
        elif reader.opened != 0:
            reason = f"the engine did not open the package (status {reader.opened})" if reader.opened else \
                f"the program that runs them did not start (status {status}): {' '.join(reader.other[:3])}"
            report.not_run.update(dict.fromkeys(left, reason))
        elif not done & set(left):
            report.not_run.update(dict.fromkeys(left, f"the program that runs them ended (status {status})"))
        left = [action for action in left if action not in report.ran and action not in report.not_run]


def check(packages, actions=None, program=PROGRAM, serve=SERVE):
    """Runs the actions, or those named by `actions`, on the packages. Returns a report for each. If the actions cannot be run
    on this machine, each report says so for each of them."""
    reports = [Report() for _ in packages]
    with tempfile.TemporaryDirectory(prefix="hx-ices-") as folder:
        library = folder_of_compilers() / "darice.cub"
        wanted = []
        for number, package in enumerate(packages):
            order = merge(package, Path(folder) / f"{number}.msi", library)
            wanted.append([name for name in order if name in (WORKING if actions is None else actions)])
            if actions is None:
                reports[number].not_run = {name: NOT_RUN[name] for name in order if name not in WORKING}
        said = []
        try:
            if not Path(program).is_file():
                raise PackageError(f"{program} is missing: ./hx build makes it")
            shutil.copyfile(program, Path(folder) / "ices.exe")
            with Windows(WINDOWS, folder, 0, RUN_LIMIT, said.append, serve=serve) as windows:
                # A Windows that does not start says why here.
                windows.run({}, ["wine64", "--version"], said.append)
                for number, (names, report) in enumerate(zip(wanted, reports)):
                    run_actions(windows, f"{number}.msi", names, report)
        except (Ended, PackageError) as error:
            reason = f"this machine cannot run it: {' '.join(said[-3:]) if isinstance(error, Ended) and said else error}"
            for names, report in zip(wanted, reports):
                report.not_run.update({name: reason for name in names if name not in report.ran})
    return reports
