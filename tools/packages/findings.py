"""What the checks of a package find."""

from typing import NamedTuple

FAILURE, ERROR, WARNING, INFORMATION = "failure", "error", "warning", "information"

# The numbers with which the linker prints the findings of validation actions.
NUMBERS = {FAILURE: "LGHT0216", ERROR: "LGHT0204", WARNING: "LGHT1076", INFORMATION: "LGHT1076"}


class Finding(NamedTuple):
    """`rule` is the validation action ("ICE02") or another name of the broken rule. `keys` are the keys of the row; "" and ()
    if the finding is not about a table, a column or a row."""
    rule: str
    kind: str
    text: str
    table: str = ""
    column: str = ""
    keys: tuple = ()

    @property
    def place(self):
        """Where in the package it is: "Component.KeyPath, row Main"."""
        column = f"{self.table}.{self.column}" if self.column else self.table
        return f"{column}, row {'/'.join(self.keys)}" if self.keys else column


def line(package, finding):
    """The line that the linker would print. Rules that it does not know have no number."""
    number = f" {NUMBERS[finding.kind]}" if finding.rule.startswith("ICE") else ""
    place = f" ({finding.place})" if finding.place else ""
    return f"{package} : {finding.kind}{number} : {finding.rule}: {finding.text}{place}"
