#!/usr/bin/env python3
"""Compares what the installer's engine ran with what the guide's pictures say: check-runs.py [--some] FOLDER...

FOLDER holds the verbose logs of the install tests; where there are several, a log counts that a later one has. With
--some, for tests that were chosen by a filter, a log that is missing is passed over; otherwise it is a failure.

The pictures of docs/authoring.md are made by going through the sequences with the conditions of the fragments
(package_runs.py, installer_run.py). This goes through them in the same way for each run in RUNS, and compares all
actions of the fragments and of the package, in their order among the engine's own actions that the pictures show, with
the starts of actions in the run's log. An action of the script is there twice: where the sequence writes it, and where
InstallExecute, InstallExecuteAgain or InstallFinalize runs it.

Prints what differs, and last "N passed, N failed", a run counting as one; the exit code is 1 where one has failed.
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

# One run of the engine. `package` is a model's name in packages/, or of an example of the guide; `scenario` the one of
# the pictures; `log` the log's name without its ending; `options` whether the scenario's options were used. `unlike` is
# in what the machine or the command line was not as in the scenario: properties. `fails` is the action that ended the
# run. `given` is what the command line gave of what the engine then searched for.
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
# What the registry had of the maker was deleted; the folder of the client is the one that costing finds.
NO_VALUES = {"CLIENTFOLDERFOUND": "", "PROP_INSTALLEDCLIENT": "", "DIR_CLIENT": "P\\Ostrel\\"}
# Folders are given without the backslash at their end.
GIVEN_FOLDER = {"DIR_DATAFOLDER": "D\\Data"}
DATA = {"PROP_PREVVTDF": "P\\Vantor\\Data\\"}
MADE = {"PROP_ACCOUNTNAME": "vantor", "PROP_ACCOUNTDOMAIN": "HERE", "PROP_ACCOUNTPASS": "secret"}

RUNS = [
    Run(CLIENT, "install", f"{CLIENT_LIFE}1-install"),
    Run(CLIENT, "repair", f"{CLIENT_LIFE}2-reinstall", unlike=NO_VALUES),
    # Other options for an installed client: a run that asks for no repair, and has nothing to do but its actions.
    Run(CLIENT, "repair", f"{CLIENT_LIFE}3-install", True, {"REINSTALL": "", "PROP_RESETAUDIT": ""}),
    Run(CLIENT, "upgrade", f"{CLIENT_LIFE}4-install"),
    Run(CLIENT, "removal", f"{CLIENT_LIFE}5-remove"),
    Run(CLIENT, "install", f"Client{EVERY_PROPERTY}1-install", True),
    # The registry does not say which product was installed last, and the command line says that it is another.
    Run(CLIENT, "removal", f"Client{EVERY_PROPERTY}2-remove", unlike={"PROP_INSTALLEDCLIENT": ""},
        given={"PROP_INSTALLEDCLIENT": "another"}),
    Run(CLIENT, "upgrade", f"{CLIENT_FAILURE}2-failing", fails="Fail"),
    Run(CLIENT, "repair", f"{CLIENT_FAILURE}3-reinstall", unlike=NO_VALUES),
    Run(CLIENT, "replaced", f"{CLIENT_FAILURE}4-remove"),
    Run(CLIENT, "upgrade", "AgentUpgradeTest.refused", fails="CustomAction1"),
    # There is an empty data folder.
    Run(SERVER, "install", f"{NO_SERVER}1-install", unlike=DATA),
    Run(SERVER, "removal", f"{NO_SERVER}2-remove"),
    # The data of a server that was removed are there, and where it was is known.
    Run(SERVER, "install", f"{NO_SERVER}3-install", unlike={**DATA, "SERVERFOLDERFOUND": "P\\Vantor\\",
                                                            "PROP_DFPRESENT": "1"}),
    Run(SERVER, "upgrade", f"{SERVER_LIFE}2-install", unlike=NO_SERVICE),
    # What the registry had of the maker was deleted before.
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

# Actions that a test has put into its copy of a package.
ADDED = {"Fail": (Row("execute", 6440, "Fail", "NOT REMOVE", "a test"), {"Execute": "deferred"})}

# Where the sequence's script is run; and what of the engine's own actions is written into it.
RUNS_SCRIPT = ("InstallExecute", "InstallExecuteAgain", "InstallFinalize")
IN_SCRIPT = ("StopServices", "DeleteServices", "RemoveFiles", "CreateFolders", "InstallFiles", "WriteRegistryValues",
             "InstallServices", "StartServices", "RegisterProduct")

# The number in a sequence that stands for its end by a failure.
FAILURE = -3

START = re.compile(r"^Action start \d+:\d\d:\d\d: (\S+)\.\s*$", re.MULTILINE)


def read_packages(root=ROOT):
    """The packages of the runs by their names: the models, and the examples of the guide."""
    return {package.name: package for package in read_all_packages(root, read_fragments(root))}


def properties_of(run, package):
    """What is set when the run begins."""
    scenarios = SCENARIOS[MODELS.get(run.package, run.package)]
    scenario = next(scenario for scenario in scenarios if scenario.name == run.scenario)
    return {**package.defaults(), **scenario.properties, **(scenario.options if run.options else {}), **run.unlike}


def started(log):
    """The actions that a log says were started, in order."""
    data = log.read_bytes()
    text = data.decode("utf-16") if data.startswith(b"\xff\xfe") else data.decode("cp1252")
    return START.findall(text)


class Expectation:
    """What a run starts: `events` up to its end or its failure, and what comes `after` a failure. `names` are the
    actions that are looked at; those of the engine that are written into the script only where they were `seen`, since
    a package has them for the tables that it has."""

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
        # A folder that nothing else names is the one that costing gives it.
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
        """How the actions that were started differ from what is expected, in lines; none where they do not."""
        told = [name for name in told if name in self.names]
        # Behind a failure the engine also undoes what is its own.
        told[len(self.events):] = [name for name in told[len(self.events):] if not self.fails or name in self.actions]
        return list(difflib.unified_diff(self.events + self.after, told, "what the guide's pictures say",
                                         "what the engine ran", n=2, lineterm=""))


def way_back(rows, undo, state):
    """What comes behind a failure. Two things are this engine's own: it comes to the failed sequence's end before it
    rolls back, where Windows Installer does it behind; and it rolls back all that the sequence has written into the
    script, where Windows Installer rolls back what the script has come past."""
    return [row.action for row in rows if row.number == FAILURE and holds(row.condition, state)] + undo[::-1]


def check_run(run, package, log):
    """The lines that tell how a run differs; none where it does not."""
    told = started(log)
    if not told:
        return ["the log tells of no action"]
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
