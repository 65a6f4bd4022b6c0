#!/usr/bin/env python3
"""Compares the actions that the engine ran with the pictures of the guide: check-runs.py [--some] FOLDER...

Each FOLDER has verbose logs of the install tests. If several folders have the same log, the last one counts. With --some,
for tests that were chosen by a filter, a missing log is skipped; otherwise it is a failure.

The pictures of docs/authoring.md are made by a walk through the sequences with the conditions of the fragments
(package_runs.py, installer_run.py). This script does the same walk for each run in RUNS. It compares the result with the
starts of actions in the run's log: all actions of the fragments and of the package, in their order among the engine's
actions that the pictures show. An action of the script occurs twice: where the sequence writes it into the script, and
where InstallExecute, InstallExecuteAgain or InstallFinalize runs it.

Prints the differences, and as the last line "N passed, N failed", where each run counts as one; the exit code is 1 if one
failed.
"""

import difflib
import re
import sys
from collections import namedtuple
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from kit.guide_examples import MODELS
from kit.installer_run import holds, run_sequence
from kit.kit_checks import LATER, kind_of
from kit.package_facts import Row, read_fragments
from kit.package_facts import read_packages as read_all_packages
from kit.package_runs import ANSWERS, KEPT, SCENARIOS, STANDARD

ROOT = Path(__file__).resolve().parents[2]

# One run of the engine. `package` is the name of a model in packages/ or of an example of the guide, `scenario` the one
# of the pictures, `log` the log's name without its extension. `options` is true if the scenario's options were used.
# `unlike` are the properties that differ from the scenario, because of the machine or the command line. `fails` is the
# action that ended the run. `given` are the properties of the command line for which the engine then searched.
Run = namedtuple("Run", "package scenario log options unlike fails given", defaults=(False, {}, None, {}))

CLIENT, SERVER, OTHER = "client/client.wxs", "server/server.wxs", "other/other.wxs"
GUIDE_CLIENT, GUIDE_SERVER = "client.wxs", "server.wxs"
CLIENT_LIFE = "ClientLivesTest.FromTheInstallationToTheRemoval."
CLIENT_FAILURE = "ClientLivesTest.AnUpgradeThatFailsLeavesWhatTheOlderVersionHad."
SERVER_LIFE = "ServerLivesTest.FromTheUpgradeToTheRemoval."
SERVER_FAILURE = "ServerLivesTest.AnUpgradeThatFailsLeavesTheOlderServer."
EVERY_PROPERTY = "LivesTest.UnattendedWithEveryProperty."
ACCOUNT_LIFE = "SecurityPackageTest.AServiceLivesAndGoesWithItsAccount."
REPLACED = "SecurityPackageTest.AnAccountOutlivesItsServiceAndAServerThatIsReplaced."
OUTSIDE_DATA = "ServerUpgradeTest.AnUpgradeGivesTheServicesAccountTheNewDataFolder."
NO_SERVER = "ServerUpgradeTest.WithoutAnOlderServerNothingIsMoved."
OTHER_LIFE = "OtherProductTest.LivesBesideClientAndServer."
GUIDE_SERVER_LIFE = "GuideServerTest.IsInstalledWithAnAccountOverItsDataAndRemoved."

# The older server of these tests has no service with a setting, and no "Product" in the registry.
NO_SERVICE = {"SERVICEFOUND": "", "PROP_INSTALLEDSERVER": "", "DATAFOLDERFOUND": ""}
# The maker's registry values were deleted; the client's folder is the one that costing finds.
NO_VALUES = {"CLIENTFOLDERFOUND": "", "PROP_INSTALLEDCLIENT": "", "DIR_CLIENT": "P\\Ostrel\\"}
# Folders are given without the backslash at their end.
GIVEN_FOLDER = {"DIR_DATAFOLDER": "D\\Data"}
DATA = {"PROP_PREVVTDF": "P\\Vantor\\Data\\"}
MADE = {"PROP_ACCOUNTNAME": "vantor", "PROP_ACCOUNTDOMAIN": "HERE", "PROP_ACCOUNTPASS": "secret"}

RUNS = [
    Run(CLIENT, "install", f"{CLIENT_LIFE}1-install"),
    Run(CLIENT, "repair", f"{CLIENT_LIFE}2-reinstall", unlike=NO_VALUES),
    # Other options for an installed client: a run without a repair, which only runs the package's actions.
    Run(CLIENT, "repair", f"{CLIENT_LIFE}3-install", True, {"REINSTALL": "", "PROP_RESETAUDIT": ""}),
    Run(CLIENT, "upgrade", f"{CLIENT_LIFE}4-install"),
    Run(CLIENT, "removal", f"{CLIENT_LIFE}5-remove"),
    Run(CLIENT, "install", f"Client{EVERY_PROPERTY}1-install", True),
    # The registry does not say which product was installed last; the command line names another one.
    Run(CLIENT, "removal", f"Client{EVERY_PROPERTY}2-remove", unlike={"PROP_INSTALLEDCLIENT": ""},
        given={"PROP_INSTALLEDCLIENT": "another"}),
    Run(CLIENT, "upgrade", f"{CLIENT_FAILURE}2-failing", fails="Fail"),
    Run(CLIENT, "repair", f"{CLIENT_FAILURE}3-reinstall", unlike=NO_VALUES),
    Run(CLIENT, "replaced", f"{CLIENT_FAILURE}4-remove"),
    Run(CLIENT, "upgrade", "AgentUpgradeTest.refused", fails="CustomAction1"),
    # There is an empty data folder.
    Run(SERVER, "install", f"{NO_SERVER}1-install", unlike=DATA),
    Run(SERVER, "removal", f"{NO_SERVER}2-remove"),
    # The data of a removed server exist, and its folder is known.
    Run(SERVER, "install", f"{NO_SERVER}3-install", unlike={**DATA, "SERVERFOLDERFOUND": "P\\Vantor\\",
                                                            "PROP_DFPRESENT": "1"}),
    Run(SERVER, "upgrade", f"{SERVER_LIFE}2-install", unlike=NO_SERVICE),
    # The maker's registry values were deleted before.
    Run(SERVER, "repair", f"{SERVER_LIFE}3-reinstall", unlike={"SERVERFOLDERFOUND": "", "PROP_INSTALLEDSERVER": ""}),
    Run(SERVER, "repair", f"{SERVER_LIFE}4-install"),
    Run(SERVER, "removal", f"{SERVER_LIFE}6-remove"),
    Run(SERVER, "install", f"Server{EVERY_PROPERTY}1-install", True, {**GIVEN_FOLDER, "DIR_SERVER": "M\\Vantor"}),
    Run(SERVER, "removal", f"Server{EVERY_PROPERTY}2-remove", True, {"PROP_INSTALLEDSERVER": ""},
        given={"PROP_INSTALLEDSERVER": "another"}),
    Run(SERVER, "upgrade", f"{OUTSIDE_DATA}2-install", True),
    Run(SERVER, "upgrade", f"{SERVER_FAILURE}2-install", unlike={**NO_SERVICE, **MADE}, fails="CustomAction17.Judge"),
    Run(SERVER, "repair", f"{ACCOUNT_LIFE}2-reinstall", True),
    Run(SERVER, "replaced", f"{REPLACED}3-remove", unlike={**KEPT, "SERVICEFOUND": "LocalSystem"}),
    Run(OTHER, "install", f"{OTHER_LIFE}3-install", True),
    Run(OTHER, "upgrade", f"{OTHER_LIFE}4-install", True),
    Run(OTHER, "removal", f"{OTHER_LIFE}5-remove", True),
    Run(GUIDE_CLIENT, "install", "GuideClientTest.IsInstalledAndRemoved.1-install"),
    Run(GUIDE_CLIENT, "removal", "GuideClientTest.IsInstalledAndRemoved.2-remove"),
    Run(GUIDE_SERVER, "install", f"{GUIDE_SERVER_LIFE}1-install", True, {**GIVEN_FOLDER, "PROP_DFPRESENT": "1"}),
    Run(GUIDE_SERVER, "removal", f"{GUIDE_SERVER_LIFE}2-remove", True),
]

# Actions that a test adds to its copy of a package.
ADDED = {"Fail": (Row("execute", 6440, "Fail", "NOT REMOVE", "a test"), {"Execute": "deferred"})}

# The actions that run the sequence's script; and the engine's own actions that are written into it.
RUNS_SCRIPT = ("InstallExecute", "InstallExecuteAgain", "InstallFinalize")
IN_SCRIPT = ("StopServices", "DeleteServices", "RemoveFiles", "CreateFolders", "InstallFiles", "WriteRegistryValues",
             "InstallServices", "StartServices", "RegisterProduct")

# The number of the rows of a sequence that run after a failure.
FAILURE = -3

START = re.compile(r"^Action start \d+:\d\d:\d\d: (\S+)\.\s*$", re.MULTILINE)


def read_packages(root=ROOT):
    """The packages of the runs by their names: the models, and the examples of the guide."""
    return {package.name: package for package in read_all_packages(root, read_fragments(root))}


def properties_of(run, package):
    """The properties that are set when the run begins."""
    scenarios = SCENARIOS[MODELS.get(run.package, run.package)]
    scenario = next(scenario for scenario in scenarios if scenario.name == run.scenario)
    return {**package.defaults(), **scenario.properties, **(scenario.options if run.options else {}), **run.unlike}


def started(log):
    """The actions that were started according to a log, in order."""
    data = log.read_bytes()
    text = data.decode("utf-16") if data.startswith(b"\xff\xfe") else data.decode("cp1252")
    return START.findall(text)


class Expectation:
    """The actions that a run starts: `events` up to its end or its failure, and those `after` a failure. `names` are the
    actions that are compared. An engine's action that is written into the script is compared only if it was `seen`,
    because a package has such an action only if it has its table."""

    def __init__(self, run, package, seen):
        actions = dict(package.actions)
        rows = [row for row in package.rows if row.place == "execute"]
        if run.fails in ADDED:
            row, actions[run.fails] = ADDED[run.fails]
            rows.append(row)
        own = {row.action for row in rows}
        rows += [Row("execute", number, name, "", "") for name, number in STANDARD.items()
                 if name not in own and (name not in IN_SCRIPT or name in seen)]
        self.actions = set(actions)
        self.fails = run.fails is not None
        self.names = {row.action for row in rows} | self.actions
        self.events, self.after = [], []
        self.run_rows(run, package, rows, actions)

    def run_rows(self, run, package, rows, actions):
        properties = properties_of(run, package)
        script, undo = [], []
        # If nothing else sets the folder, costing sets it.
        answers = ANSWERS | ({"CostFinalize": ("DIR_CLIENT",)} if "DIR_CLIENT" in run.unlike else {})
        for row, state in run_sequence(rows, actions, properties, package.found, answers, run.given):
            self.events.append(row.action)
            kind = kind_of(actions.get(row.action, {}))
            if kind == "rollback":
                undo.append(row.action)
            elif kind in LATER or row.action in IN_SCRIPT:
                script.append(row.action)
            elif row.action in RUNS_SCRIPT:
                if run.fails in script:
                    del script[script.index(run.fails) + 1:]
                self.events += script
                script = []
            if self.events[-1] == run.fails and run.fails not in script:
                self.after = way_back(rows, undo, state)
                return
        if run.fails:
            raise ValueError(f"{run.log}: {run.fails} does not run")

    def differences(self, told):
        """Compares the started actions `told` with the expected ones; returns the differences in lines."""
        told = [name for name in told if name in self.names]
        # After a failure the engine also undoes its own actions.
        told[len(self.events):] = [name for name in told[len(self.events):] if not self.fails or name in self.actions]
        return list(difflib.unified_diff(self.events + self.after, told, "what the guide's pictures say",
                                         "what the engine ran", n=2, lineterm=""))


def way_back(rows, undo, state):
    """The actions after a failure. This engine differs from Windows Installer in two ways. It runs the rows for a failure
    before the rollback, Windows Installer after it. It rolls back everything that the sequence has written into the script,
    Windows Installer only what the script has already passed."""
    return [row.action for row in rows if row.number == FAILURE and holds(row.condition, state)] + undo[::-1]


def check_run(run, package, log):
    """Compares a run with its log; returns the differences in lines."""
    told = started(log)
    if not told:
        return ["the log has no start of an action"]
    return Expectation(run, package, set(told)).differences(told)


def main():
    folders = [Path(argument) for argument in sys.argv[1:] if argument != "--some"]
    packages = read_packages()
    passed = failed = 0
    for run in RUNS:
        logs = [log for folder in folders if (log := folder / f"{run.log}.log").is_file()]
        if not logs and "--some" in sys.argv:
            continue
        lines = check_run(run, packages[run.package], logs[-1]) if logs else ["there is no log"]
        passed, failed = (passed, failed + 1) if lines else (passed + 1, failed)
        if lines:
            print(f"{run.log} ({run.package}, {run.scenario}):", *(f"    {line}" for line in lines), sep="\n")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
