"""The remarks of the validation that a package with the library's fragments gets on purpose, each with its reason. The command
that checks packages shows them as accepted."""

from typing import Callable, NamedTuple

# The tracking library's file.
TRACKING_FILE = "OSTRACK.DLL"


class Accepted(NamedTuple):
    """A remark of `rule` on `column` of `table`, if `holds(database, keys)` is true of the package and of the keys of the row."""
    rule: str
    table: str
    column: str
    holds: Callable
    reason: str


def only_tracking_library(database, keys):
    """Whether the component has the tracking library and no other file."""
    names = [row["FileName"].split("|")[-1].upper() for row in database.rows("File") if (row["Component_"],) == keys]
    return names == [TRACKING_FILE]


def replaces_all_files(database, keys):
    return keys == ("REINSTALLMODE",) and database.properties().get("REINSTALLMODE") == "amus"


def asks_for_real_rights(database, keys):
    """Whether AdminUser says whether the user is an administrator, and the row refuses everybody else."""
    return keys == ("RefuseNoAdministrator",) and database.properties().get("MSIUSEREALADMINDETECTION") == "1"


ACCEPTED = (
    Accepted("ICE09", "Component", "Component", only_tracking_library,
             "tracking_hook.wxi needs the tracking library in the system folder, and the library goes with the product"),
    Accepted("ICE40", "Property", "Property", replaces_all_files,
             "server_migration.wxi sets it, so that every file is copied: the engine decides what to copy while the older "
             "version's files are still there"),
    *(Accepted("ICE86", table, "Condition", asks_for_real_rights,
               "library.wxi sets MSIUSEREALADMINDETECTION, so that AdminUser says whether the user is an administrator; "
               "Privileged does not say that")
      for table in ("InstallExecuteSequence", "InstallUISequence")),
)


def reason_for(finding, database):
    """Why the finding is accepted, or None if it is not."""
    for each in ACCEPTED:
        if (each.rule, each.table, each.column) == (finding.rule, finding.table, finding.column) and \
                each.holds(database, finding.keys):
            return each.reason
    return None
