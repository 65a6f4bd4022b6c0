"""The mistakes that authors of packages make, each with the message that it gets. The tests try each one, and
mistakes-page.py writes them to docs/package-mistakes.md. For the scripts of this folder."""

from collections import namedtuple

# A mistake. `did` says what the author did. `edits` make it of a right source, each (old text, new text); `source` is the
# name of an example of docs/authoring.md, or a model in packages/. `found` says by what it is found: "compile" (the compilers
# and what completes their work) or "check" (the rules of rules.py). `messages` are the messages, complete but for the places.
# `do` says on the page what to do. `more` are further differences from the right package: "processor", of the library (x64 if
# absent, like the package); "variables", of the command line instead of the usual ones; "without", the files that are missing.
Mistake = namedtuple("Mistake", "did source edits found messages do more", defaults=({},))

CLIENT, SERVER, OTHER, GAUGE = "client.wxs", "server.wxs", "other/client.wxs", "other/other.wxs"


def include(*names):
    """Lines that include fragments, as the examples have them."""
    return "".join(f"    <?include {name}.wxi?>\n" for name in names)


def without(text):
    return (text, "")


END_OF_FRAGMENTS = include("client_tasks", "client_restart")
ALL = ("library", "notices", "client_upgrade", "client_close", "client_tasks", "client_restart")
FIREWALL_ROW = '      <Custom Action="SetFirewallData" Sequence="1540"/>\n'
FIREWALL_DATA = ('    <CustomAction Id="SetFirewallData" Property="PROP_FIREWALLDATA" '
                 'Value="Vantor server/[DIR_SERVER]vt.exe"/>\n')

NAMES = """\
    <Property Id="ServerAsideName" Value="Vantor (previous)"/>
    <Property Id="DIR_UPG_HELPERDATA" Value="Helper Data"/>
    <Property Id="DIR_UPG_VRDF" Value="Reports"/>
    <Property Id="DIR_UPG_VRDF_PREFS" Value="Preferences"/>
"""

MISTAKES = [
    Mistake("forgot library.wxi", CLIENT, [without(include("library"))], "compile",
            ["client_upgrade.wxi needs library.wxi. Include library.wxi before it."],
            "Include `library.wxi` first."),
    Mistake("forgot client_upgrade.wxi", CLIENT, [without(include("client_upgrade"))], "compile",
            ["client_close.wxi needs client_upgrade.wxi. Include client_upgrade.wxi before it."],
            "Include `client_upgrade.wxi` before the other fragments of the client: they read what it finds."),
    Mistake("forgot notices.wxi", CLIENT, [without(include("notices"))], "compile",
            ["client_close.wxi needs notices.wxi. Include notices.wxi before it."],
            "Include `notices.wxi` after `library.wxi`."),
    Mistake("put fragments of the client and of the server into one package", CLIENT,
            [(END_OF_FRAGMENTS, END_OF_FRAGMENTS + include("server_replaced", "firewall"))], "compile",
            ["server_replaced.wxi and client_upgrade.wxi use the same places of the sequences. Make two packages, one for "
             "the client and one for the server."],
            "Make two packages."),
    Mistake("has no folder DIR_CLIENT", CLIENT,
            [('<Directory Id="DIR_CLIENT"', '<Directory Id="ProgramFolder"')], "check",
            ["client_upgrade.wxi: RefuseNoClientFolder refuses each installation. The package has no folder DIR_CLIENT. Give "
             "a Directory this Id, as the head of the fragment says."],
            "Name the `Directory` with the client's programs `DIR_CLIENT`."),
    Mistake("left Schedule out of MajorUpgrade", CLIENT, [without(' Schedule="afterInstallFinalize"')], "check",
            ['RemoveExistingProducts is at 1401: client_upgrade.wxi needs it after InstallFinalize (6600), or what the older '
             'version installed is deleted first. Give MajorUpgrade Schedule="afterInstallFinalize".'],
            'Write `Schedule="afterInstallFinalize"` into `MajorUpgrade`.'),
    Mistake("called an entry point that does not exist", CLIENT, [('    <Feature ', """\
    <CustomAction Id="CustomAction18" BinaryKey="hxsetup" DllEntry="CustomAction18" Return="ignore"/>
    <InstallExecuteSequence>
      <Custom Action="CustomAction18" Sequence="6690"/>
    </InstallExecuteSequence>
    <Feature """)], "check",
            ["The action CustomAction18 calls CustomAction18, which hxsetup in the table Binary does not export. "
             "docs/actions.md lists the entry points."],
            "Look the number up in [actions.md](actions.md). Better include the fragment that calls the entry point."),
    Mistake("made a package that is installed per user", CLIENT, [without(' InstallScope="perMachine"')], "check",
            ['The package is installed per user: its actions work on the machine. Give the Package element '
             'InstallScope="perMachine".'],
            'Write `InstallScope="perMachine"` into `Package`.'),
    Mistake("set the data of an action after it", SERVER, [("    <Feature ", """\
    <CustomAction Id="SetLogAccess" Property="CustomAction25.Logs" Value="[LogonUser]*[DIR_SERVER]"/>
    <CustomAction Id="CustomAction25.Logs" BinaryKey="hxsetup" DllEntry="CustomAction25" Execute="deferred"
                  Impersonate="no" Return="ignore"/>
    <InstallExecuteSequence>
      <Custom Action="SetLogAccess" Sequence="5840">NOT (REMOVE ~= "ALL")</Custom>
      <Custom Action="CustomAction25.Logs" Sequence="5830">NOT (REMOVE ~= "ALL")</Custom>
    </InstallExecuteSequence>
    <Feature """)], "check",
            ["The action SetLogAccess sets the data of CustomAction25.Logs at 5840, after the engine has read them at 5830. "
             "Give it a lower number than 5830."],
            "Give the action that sets the data a lower number than the action that reads them, and both the same condition."),
    Mistake("scheduled an action After another one, where there is no room", SERVER,
            [('Action="SetFirewallData" Sequence="1540"', 'Action="SetFirewallData" After="InstallFinalize"')], "compile",
            ["The InstallExecuteSequence table contains an action 'SetFirewallData' which cannot have a unique sequence "
             "number because it is scheduled before or after action 'InstallFinalize'.  There is not enough room before or "
             "after this action to assign a unique sequence number.  Please schedule one of the actions differently so that "
             "it will be in a position with more sequence numbers available.  Please note that sequence numbers must be an "
             "integer in the range 1 - 32767 (inclusive). Write Sequence=\"NUMBER\" instead of After or Before, with a "
             "number that no action of the fragments has (docs/authoring.md, \"The sequences\")."],
            "Write a number. The pictures in [authoring.md](authoring.md#the-sequences) show the numbers that are taken."),
    Mistake("put the DLL for ARM64 into a package for x64", CLIENT, [], "check",
            ["hxsetup in the table Binary is for arm64, but the package is for x64. Give the variable LibraryFile the path "
             "of x64/hxsetup.dll."],
            "Give `LibraryFile` the DLL of the folder with the processor's name.", {"processor": "arm64"}),
    Mistake("used the firewall without its data", SERVER, [without(FIREWALL_DATA), without(FIREWALL_ROW)], "check",
            ["CustomAction5 at 6620 and CustomAction19 at 6590 read PROP_FIREWALLDATA, and nothing sets it. Set "
             "PROP_FIREWALLDATA before 6590, in the installation and in the removal."],
            "Set `PROP_FIREWALLDATA` in an action, as the [server of the guide](authoring.md#a-server-package-step-by-step) "
            "does."),
    Mistake("set the firewall's data in the installation only", SERVER,
            [(FIREWALL_ROW, FIREWALL_ROW.replace("/>", ">NOT Installed</Custom>"))], "check",
            ["CustomAction5 and CustomAction19 can run without PROP_FIREWALLDATA: the condition of SetFirewallData does not "
             "include their conditions. Set PROP_FIREWALLDATA before 6590, in the installation and in the removal."],
            "Leave the condition of the action that sets `PROP_FIREWALLDATA` empty."),
    Mistake("used the account without Account in ServiceInstall", SERVER,
            [(' Account="[ServiceAccount]" Password="[PROP_ACCOUNTPASS]"', "")], "check",
            ['service_account.wxi: the service Vantor does not get the account that is made for it. Give its ServiceInstall '
             'Account="[ServiceAccount]" and Password="[PROP_ACCOUNTPASS]".'],
            "Give `ServiceInstall` the attributes in the message."),
    Mistake("used the migration without its names", SERVER,
            [without(NAMES)], "check",
            ["server_migration.wxi: RefuseAsideName refuses each installation. Nothing sets ServerAsideName before 653. Set "
             "it, as the head of the fragment says.",
             "server_migration.wxi: RefuseHelperNames refuses each installation. Nothing sets DIR_UPG_HELPERDATA, "
             "DIR_UPG_VRDF and DIR_UPG_VRDF_PREFS before 654. Set them, as the head of the fragment says."],
            "Declare all the properties that the head of [server_migration.wxi](../packages/server_migration.wxi) names."),
    Mistake('has an OnExit="error" of its own besides service_account.wxi', SERVER, [
        ("    <InstallExecuteSequence>\n", '    <CustomAction Id="NoteFailure" Property="Failed" Value="1"/>\n'
         '    <InstallExecuteSequence>\n      <Custom Action="NoteFailure" OnExit="error"/>\n')], "compile",
            ["The InstallExecuteSequence table contains actions 'NoteFailure' and 'CustomAction24.Failed' which both have "
             "the same sequence number -3.  Please change the sequence number for one of these actions to avoid an ICE "
             "warning. The other one is in service_account.wxi. A sequence has one place for each end of a run (OnExit): "
             "leave out your own action."],
            "Leave out your own action, or run it from the program that starts the installation."),
    Mistake("used the tracking hook without its library", CLIENT,
            [(END_OF_FRAGMENTS, END_OF_FRAGMENTS + include("tracking_hook"))], "check",
            ["tracking_hook.wxi: the package does not install OSTRACK.DLL in System64Folder. Add the File to a component in "
             "this Directory."],
            "Add the tracking library to a component in `System64Folder`."),
    Mistake("included a fragment twice", CLIENT,
            [(END_OF_FRAGMENTS, END_OF_FRAGMENTS + include("client_close"))], "compile",
            ["client_close.wxi is included twice. Include it once."],
            "Leave out the second line."),
    Mistake("scheduled an action of a fragment once more", CLIENT,
            [("    <InstallExecuteSequence>\n", "    <InstallExecuteSequence>\n"
              '      <Custom Action="CustomAction27" After="InstallFinalize"/>\n')], "compile",
            ["Duplicate symbol 'WixAction:InstallExecuteSequence/CustomAction27' found. This typically means that an Id is "
             "duplicated. Check to make sure all your identifiers of a given type (File, Component, Feature) are unique. The "
             "other one is in client.wxs. A fragment schedules its actions itself: leave out the line of your package."],
            "Leave out your own line: the fragment has put the action into its place. To call the entry point again, see "
            "[data of deferred actions](authoring.md#data-of-deferred-actions)."),
    Mistake("declared a property of a fragment again", CLIENT,
            [('    <CustomAction Id="WeeklyUpdate"', '    <Property Id="PROP_UPDATEINTERVAL" Value="7"/>\n'
              '    <CustomAction Id="WeeklyUpdate"')], "compile",
            ["Duplicate symbol 'Property:PROP_UPDATEINTERVAL' found. This typically means that an Id is duplicated. Check to "
             "make sure all your identifiers of a given type (File, Component, Feature) are unique. The other one is in "
             "client.wxs. A fragment declares its properties itself: leave out the element of your package. For another "
             "value, set the property in an action (docs/authoring.md, \"A client package, step by step\")."],
            "Leave out your own element. To change a default, see piece 3 of [the "
            "client](authoring.md#a-client-package-step-by-step)."),
    Mistake("included a fragment inside a Directory", CLIENT,
            [without(include("client_restart")), ('      <Directory Id="ProgramFiles64Folder">\n',
             '      <Directory Id="ProgramFiles64Folder">\n' + include("client_restart"))], "compile",
            ["The Directory element contains an unexpected child element 'Property'. Include fragments directly below "
             "Product, not inside of another element."],
            "Move the `<?include?>` lines directly below `Product`."),
    Mistake("used a variable that has no value", CLIENT, [('Version="1.0.0"', 'Version="$(var.ClientVersion)"')], "compile",
            ["Undefined preprocessor variable '$(var.ClientVersion)'. Give it a value: --define NAME=VALUE, or <?define NAME "
             "= \"VALUE\"?> before its use."],
            "Define the variable, or give it on the command line."),
    Mistake("gave the compiler no LibraryFile", CLIENT, [], "compile",
            ["library.wxi needs the variable LibraryFile. Give the compiler the path of the hxsetup.dll of the package's "
             "processor: -dLibraryFile=PATH (hx package: --define LibraryFile=PATH)"],
            "Give the compiler the path of `hxsetup.dll` in the variable `LibraryFile`.", {"variables": {}}),
    Mistake("misspelt the name of a fragment", CLIENT,
            [(include("client_tasks"), include("client_task"))], "compile",
            ["The system cannot find the file 'client_task.wxi' with type 'include'. The fragments are in packages/ of the "
             "project and of the release; look for a misspelt name."],
            "Compare the name with the table of [the fragments](authoring.md#the-fragments)."),
    Mistake("gave a path where there is no DLL", CLIENT, [], "compile",
            ["the file hxsetup.dll is missing (searched in FOLDER). Make it, or correct its path in the source or in the "
             "variable that names it"],
            "Build the library, or correct the path in `LibraryFile`. The line in the message is the one that uses the "
            "variable.", {"without": ["hxsetup.dll"]}),
    Mistake("included the fragments in the wrong order", CLIENT, [(include(*ALL), include(*reversed(ALL)))], "compile",
            ["client_restart.wxi needs library.wxi. Include library.wxi before it."],
            "Include each fragment after those that it needs; `library.wxi` comes first."),
    Mistake("gave a server another name, but only in its service and its program", SERVER,
            [('Id="VantorService" Name="Vantor"', 'Id="VantorService" Name="Gauge"')], "check",
            ["service_account.wxi: no ServiceInstall of the package is for the service Vantor, for which it makes the "
             "account. Define ServiceName, ServerKey, ServerName and AccountId for Gauge before the fragments."],
            "Define the [variables of a server](authoring.md#by-the-fragments). The fragments for the data of Vantor do not "
            "compile with them: leave these out."),
    Mistake("gave a client another name, but no key", OTHER,
            [without('    <?define ClientKey = "SOFTWARE\\Brackwell\\Probe"?>\n'),
             ('Key="$(var.ClientKey)" Name="Product"', 'Key="SOFTWARE\\Brackwell\\Probe" Name="Product"'),
             ('Key="$(var.ClientKey)" Name="Folder"', 'Key="SOFTWARE\\Brackwell\\Probe" Name="Folder"')], "check",
            ["client_upgrade.wxi: the product Brackwell Probe uses the registry key of Ostrel, "
             "SOFTWARE\\Halvorstead\\Ostrel, and takes Ostrel's installation for its own. Define ClientKey before the "
             "fragments (docs/authoring.md, \"What is fixed\")."],
            "Define `ClientKey` before the fragments, and use it in the component's `RegistryValue` elements."),
    Mistake("defined only some of the variables for a server of another name", GAUGE,
            [without('    <?define ServerKey = "SOFTWARE\\Brackwell\\Gauge"?>\n')], "compile",
            ["server_replaced.wxi needs the variable ServerKey, because the package defines ServiceName. Define the key of "
             "the server's values, such as SOFTWARE\\Maker\\Server."],
            "Define all four [variables of a server](authoring.md#by-the-fragments)."),
    Mistake("used a fragment of the client Ostrel in a product of another name", OTHER,
            [(include("client_upgrade"), include("client_upgrade", "client_tasks"))], "compile",
            ["client_tasks.wxi is for the client Ostrel only: it makes and deletes the tasks of that client. Leave it out of "
             "a package that defines ClientKey."],
            "Leave the fragment out: [What is fixed](authoring.md#what-is-fixed) says which fragments are for one product "
            "only."),
    Mistake("gave a component that has only a folder no key path", SERVER, [(' Permanent="yes" KeyPath="yes">', ' Permanent="yes">')],
            "compile",
            ["The component 'DataFolder' does not have an explicit key path specified.  If the ordering of the elements under "
             "the Component element changes, the key path will also change.  To prevent accidental changes, the key path should "
             "be set to 'yes' in one of the following locations: Component/@KeyPath, File/@KeyPath, ODBCDataSource/@KeyPath, or "
             "Registry/@KeyPath. Write KeyPath=\"yes\" at one File or RegistryValue of the component, or at the Component itself "
             "if it has only folders."],
            "Write `KeyPath=\"yes\"` at the `Component`."),
    Mistake("looked for older versions, but did not remove them", SERVER,
            [without('      <RemoveExistingProducts Sequence="6601">NOT (REMOVE ~= "ALL")</RemoveExistingProducts>\n')], "compile",
            ["Unresolved reference to symbol 'WixAction:InstallExecuteSequence/RemoveExistingProducts' in section 'Product:*'. "
             "The package looks for older versions, but does not remove them: schedule RemoveExistingProducts in "
             "InstallExecuteSequence, after InstallFinalize (6600), or use MajorUpgrade."],
            "Schedule `RemoveExistingProducts`, as the server's example does."),
    Mistake("migrated a server whose service nothing stops", SERVER,
            [('<ServiceControl Id="VantorControl" Name="Vantor" Start="install" Stop="both" Remove="uninstall"\n'
              '                              Wait="yes"/>\n', '')], "check",
            ["server_migration.wxi: StopServices must be in InstallExecuteSequence before 2010, and is missing. Schedule it "
             "there; a ServiceControl in the server's component brings StopServices."],
            "Add a `ServiceControl` with `Stop=\"both\"` for the service."),
]
