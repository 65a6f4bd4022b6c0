"""The runs of the model packages that the guide shows, and the engine's own actions in them. For the scripts of this
folder."""

from collections import namedtuple

# A run of a model package. `properties` are set before its sequence begins, or by actions whose work the walk does not
# follow. `options` are set too if the options of the package are used.
Scenario = namedtuple("Scenario", "name properties options")

INSTALLED = {"Installed": "1", "ProductCode": "{this}"}
REMOVED = {**INSTALLED, "REMOVE": "ALL"}
AUDIT = {"PROP_TASKUSER": "auditor", "PROP_TASKPASS": "secret", "PROP_RESETAUDIT": "1"}
# The folders that the package has, or that costing sets.
FOLDER = {"DIR_CLIENT": "P\\Ostrel\\"}
CLIENT = {"PROP_INSTALLEDCLIENT": "{this}", "CLIENTFOLDERFOUND": "P\\Ostrel\\"}
PLACES = {"ProductCode": "{this}", "ComputerName": "HERE", "DIR_PROGRAMS64": "P\\"}
ASIDE = {"DIR_UPG": "P\\Vantor (previous)\\", "DIR_UPG_DATA": "P\\Vantor (previous)\\Data\\"}
# The results of the finding actions without a server and with one.
NO_SERVER = {**PLACES, "PROP_PREVVTDF": "P\\Vantor\\(no data)\\Data\\", "DIR_EXSERVER": "P\\Vantor\\", **ASIDE}
SERVER = {**PLACES, "PROP_PREVVTDF": "P\\Vantor\\Data\\", "DIR_EXSERVER": "P\\Vantor\\",
          "SERVERFOLDERFOUND": "P\\Vantor\\", **ASIDE}
ACCOUNT = {"PROP_ACCOUNTNAME": "vantor", "PROP_ACCOUNTDOMAIN": "HERE", "PROP_ACCOUNTPASS": "secret"}
KEPT = {"ACCOUNTFOUND": "vantor", "ACCOUNTDOMAINFOUND": ".", "SERVICEFOUND": "HERE\\vantor"}
# The facts that come with a server's service: its product and its setting.
SERVICE = {"SERVICEFOUND": "LocalSystem", "PROP_INSTALLEDSERVER": "{this}", "DATAFOLDERFOUND": "P\\Vantor\\Data\\"}
OUTSIDE = {"DIR_EXDATA": "D\\Data\\", "PROP_PREVVTDF": "D\\Data\\", "DIR_UPG_DATA": "D\\Data 2026-11-15\\"}
# A product of another name.
OTHER = {"ProductCode": "{this}", "ComputerName": "HERE", "DIR_SERVER": "P\\Gauge\\", "DIR_DATAFOLDER": "D\\Gauge\\"}
OTHER_THERE = {**OTHER, "SERVICEFOUND": "LocalSystem", "PROP_INSTALLEDSERVER": "{this}"}

# The properties that are set only if these actions have run.
ANSWERS = {"CustomAction12": ("DIR_PROGRAMS64",),
           "CustomAction20": ("DIR_EXSERVER", "DIR_EXDATA", "DIR_UPG", "DIR_UPG_DATA"),
           "CustomAction22": ("PROP_UPGRADE", "PROP_REPLACING", "PROP_DFPRESENT"),
           "CustomAction23": ("PROP_ACCOUNTNAME", "PROP_ACCOUNTDOMAIN", "PROP_ACCOUNTPASS"),
           "CustomAction34": ("PROP_PREVVTDF",)}

SCENARIOS = {
    "client/client.wxs": [
        Scenario("install", {**FOLDER, "ProductCode": "{this}"}, AUDIT),
        Scenario("upgrade", {**CLIENT, "ProductCode": "{this}", "WIX_UPGRADE_DETECTED": "{old}",
                             "PROP_INSTALLEDCLIENT": "{old}"}, AUDIT),
        Scenario("repair", {**CLIENT, **INSTALLED, "REINSTALL": "ALL"}, AUDIT),
        Scenario("removal", {**CLIENT, **REMOVED}, AUDIT),
        Scenario("replaced", {**CLIENT, **REMOVED, "PROP_INSTALLEDCLIENT": "{new}"}, AUDIT),
    ],
    "server/server.wxs": [
        Scenario("install", NO_SERVER, ACCOUNT),
        Scenario("upgrade", {**SERVER, **SERVICE, "PROP_INSTALLEDSERVER": "{old}", "PROP_UPGRADE": "1",
                             "PROP_REPLACING": "1"}, {**OUTSIDE, **KEPT}),
        Scenario("repair", {**SERVER, **SERVICE, **INSTALLED, "REINSTALL": "ALL"}, KEPT),
        Scenario("removal", {**SERVER, **SERVICE, **REMOVED}, KEPT),
        Scenario("replaced", {**SERVER, **SERVICE, **REMOVED, "PROP_INSTALLEDSERVER": "{new}"}, KEPT),
    ],
    "other/other.wxs": [
        Scenario("install", OTHER, ACCOUNT),
        Scenario("upgrade", {**OTHER_THERE, "PROP_INSTALLEDSERVER": "{old}", "WIX_UPGRADE_DETECTED": "{old}"}, KEPT),
        Scenario("removal", {**OTHER_THERE, **REMOVED}, KEPT),
    ],
}

# The engine's own actions that the diagrams show, with the numbers that compilers give them.
STANDARD = {
    "AppSearch": 50, "LaunchConditions": 100, "CostInitialize": 800, "CostFinalize": 1000, "InstallValidate": 1400,
    "InstallInitialize": 1500, "StopServices": 1900, "DeleteServices": 2000, "RemoveFiles": 3500,
    "CreateFolders": 3700, "InstallFiles": 4000, "WriteRegistryValues": 5000, "InstallServices": 5800,
    "StartServices": 5900, "RegisterProduct": 6100, "InstallFinalize": 6600,
}
