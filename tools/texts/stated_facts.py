"""The facts that pages state in sentences and tables of their own: where each is true, and what the page must say. Read by
page_facts.py. A finding that names this file means: the page is wrong, or it says the same in other words, and then the line
here follows.

In a text, "{expression}" is a value: its names are constants and enumerators of src/, by which the text follows the source.
"<step 1380>" in a statement is the number of the step at 1380 in the page's table of steps.
"""

FUNCTIONS = {
    "grouped": "{:,}".format,
    "word": lambda number: {5: "five", 10: "ten", 12: "twelve"}[number],
}

# ---- time limits and sizes: {page: [(text, how many times)]}. A text without an expression is a fact of Windows, of the
# page's own example, or of the tests.

MEASURES = {
    "docs/actions.md": [
        ("{kLogLineSize - 1} bytes", 1),
        ("{kSettingSize} bytes", 1),            # the example of a buffer
        ("{kLastNameSize - 1} bytes", 1),
        ("{128 - 1} bytes", 1),                 # kShortPropertySize of notice.cpp and closing_tools.cpp; seen as buffers, too
    ],
    "docs/actions/client.md": [
        ("every half second", 1),
        ("{word(kLongestWait // 1000)} seconds", 1),
        ("half a second", 1),
        ("{kSettingSize} characters", 2),
        ("{grouped(72 * 3600 * 1000)} ms", 1),
        ("72 hours", 2),                        # the older Task Scheduler's own limit
        ("32 bits", 2),
        ("{grouped(2 ** 31 - 1)} ms", 1),
        ("{word(kEmptyHeadSize)} zero bytes", 1),
        ("{kIntervalSize} bytes", 1),
        ("16 bits", 1),
        ("{kExitWait // 1000} seconds", 2),
        ("{kSettingSize - 1} bytes", 1),
        ("{kSettingSize} bytes", 2),
    ],
    "docs/actions/security.md": [
        ("1,024 characters", 1),                # the firewall's limit
        ("{kDomainNameSize - 1} characters", 1),
        ("{kPasswordLength} characters", 1),
    ],
    "docs/actions/server.md": [
        ("{kLastNameSize - 1} bytes", 1),
        ("{kLargestDataFolderText} bytes", 1),
        ("{kDataFolderText} bytes", 1),
    ],
    "docs/architecture.md": [("{kLogLineSize - 1} bytes", 1)],
    "docs/authoring.md": [("255 characters", 1)],  # the column Target of the table CustomAction
    "docs/before-you-adopt.md": [("{kPasswordLength} characters", 1), ("five bytes", 1), ("36 bits", 1)],
    "docs/client-upgrade.md": [
        ("{kLongestWait // 1000} s", 7),
        ("{(kLongestWait + kPollInterval) / 1000} s", 7),
        ("{(3 * kLongestWait + 2 * kPollInterval) // 1000} s", 2),
        ("{(3 * (kLongestWait + kPollInterval)) / 1000} s", 2),
        ("every half second", 1),
        ("{(7 * kLongestWait + 2 * (3 * kLongestWait + 2 * kPollInterval) + kPollInterval) / 1000} seconds", 1),
        ("{grouped(72 * 3600 * 1000)} ms", 1),
        ("{kShortSize - 1} characters", 1),
        ("{kLongestWait // 1000} seconds", 1),
        ("half a second", 1),
        ("30 seconds", 1),                      # the service manager's own limit
        ("127 bytes", 1),
        ("{word(kEmptyHeadSize)} zero bytes", 1),
        ("16 bits", 2),
        ("{kIntervalSize} bytes", 2),
        ("32 bits", 2),
        ("{kAccountSize - 1} characters", 2),
        ("{kShortSize - 1} bytes", 2),
        ("72 hours", 3),
        ("{grouped(2 ** 31 - 1)} ms", 1),
        ("{kExitWait // 1000} seconds", 3),
    ],
    "docs/hxrun.md": [("247 characters", 1)],       # Windows' limit for the path of a folder
    "docs/security.md": [("36 bits", 1), ("{word(kEmptyHeadSize)} zero bytes", 1), ("{kPasswordLength} characters", 1)],
    "docs/server-upgrade.md": [("260 characters", 2)],
    "docs/service-account.md": [("{kPasswordLength} characters", 1), ("20 characters", 1)],
    "docs/troubleshooting.md": [
        ("{kLogLineSize - 1} bytes", 1),
        ("{kIntervalSize} bytes", 1),
        ("{kExitWait // 1000} seconds", 1),
        ("16 bits", 1),
        ("{kPasswordLength} characters", 1),
        ("20 characters", 1),                   # the longest name of an account
        ("{word(kEmptyHeadSize)} bytes", 1),
    ],
}

# Numbers after "at", "before" and the like that are not places in a sequence.
OTHER_PLACES = {
    "docs/authoring.md": ["5890"],  # an action of the reader's own test
    "docs/package-mistakes.md": ["1401", "5830", "5840"],  # of the packages with the mistakes
}

# Numbers from 31 on in the sentences of a page that nothing else explains: {page: numbers}.
OTHER_NUMBERS = {
    "docs/acceptance.md": "2016 2025 256",   # names of Windows Server, and of a hash
    "docs/actions.md": "200",                # the client service's control
    "docs/actions/server.md": "1970",        # the first year of a time stamp
    "docs/authoring-v4.md": "65001",         # the code page of UTF-8
    "docs/authoring.md": "38 200 5890",
    "docs/before-you-adopt.md": "64,000,000,000 2016",
    "docs/hxrun.md": "38 183 247 259 32769",  # a folder's number and an error mode, in a trace; an error and limits of Windows
    "docs/server-upgrade.md": "2026",        # the day of an example
    "docs/troubleshooting.md": "37 38 200 400 700",
}

# Numbers of Windows and of its installer: errors, exit codes, HRESULTs, parts of names.
WINDOWS_NUMBERS = """
32 49.7 64 87 123 124 128 544 545 1053 1057 1060 1069 1072 1073 1601 1605 1618 1619 1627 1633 1638 1641 1722 1723 1920 1923 1925
2202 2224 2245 3010 4390 8344 2147023143 2147023174 2147024809 2147024882 2147024891 2147024894 2147216619 2147417850
2147467259 2147467263
"""

# Codes that the section of an entry point speaks of besides those in its lines of the log.
OTHER_CODES = {
    "CustomAction6": ["-1"],  # what a large number counts as
    # CustomAction31 has the same table of codes.
    "CustomAction27": ["-19", "-20", "-21", "-22", "-23", "-24", "-25", "-31"],
}

# ---- codes: which words belong to each, in the order of the codes where a row has several

CODE_WORDS = {
    "TaskStep": {
        "kStepService": r"task service", "kStepConnect": r"connect", "kStepFolder": r"root folder",
        "kStepDefinition": r"definition", "kStepRegistrationInfo": r"registration information", "kStepAuthor": r"author",
        "kStepSettings": r"getting (its|the) settings", "kStepStartWhenAvailable": r"start when available",
        "kStepHardTerminate": r"hard termination|(ended|ending) by force", "kStepStartOnBatteries": r"start(s|ing)? on batteries",
        "kStepStopOnBatteries": r"(stop|continues|running) on batteries", "kStepTimeLimit": r"time limit",
        "kStepTriggers": r"getting .*triggers", "kStepLogonTrigger": r"(?<!no )(?<!not a )logon trigger",
        "kStepLogonInterface": r"interface|(no|not a) logon trigger", "kStepLogonUser": r"\buser\b",
        "kStepIdleSettings": r"(?<!of the )idle settings", "kStepIdleWait": r"\bwait\b",
        "kStepDailyTrigger": r"(?<!no )(?<!not a )daily trigger",
        "kStepDailyInterface": r"interface|(no|not a) daily trigger", "kStepDaysInterval": r"interval|days between",
        "kStepPrincipal": r"principal", "kStepRunLevel": r"run level", "kStepActions": r"\bactions\b",
        "kStepAction": r"(an|a new) action|(mak|creat)ing one", "kStepExecInterface": r"interface|runs no program",
        "kStepPath": r"program's path", "kStepArguments": r"arguments", "kStepRegister": r"registration itself|registering the definition",
        "kStepMultipleInstances": r"instances?", "kStepDemandStart": r"start on demand|start(ed)? by hand",
    },
    "TaskAccessStep": {
        "kAccessService": r"task service", "kAccessConnect": r"connect", "kAccessRoot": r"root folder",
        "kAccessFolder": r"folder \"Quillfern\"|task folder", "kAccessTask": r"finding the task|no such task",
        "kAccessUse": r"running it.*state",
    },
    "access": {"kAccessNoFunction": r"missing", "kAccessNoAccount": r"\baccount\b", "kAccessMissingArgument": r"\bpath\b",
               "kAccessNoPath": r"memory"},
    "accounts": {"kStatusNotCreated": r"function of Windows"},
    "firewall": {"kFirewallNoCollection": r"its rules", "kFirewallNoKey": r"name of the rule"},
    "engine": {
        "kTreeTargetExists": r"move without o|move that (is|must) not (to )?overwrite", "kTreeNotRenamed": r"renamed",
        "kTreeNotDeleted": r"deleted", "kTreeNotMoved": r"^the move", "kTreeNotCopied": r"copy of a file",
        "kTreeNoSource": r"no source|source does not exist", "kTreeSourceIsFolder": r"folder without r|found a folder",
        "kTreeFolderNotCreated": r"target folder",
    },
    "engine's status": {"kStatusNotFound": r"listed", "kStatusMissingArgument": r"fewer than three", "kStatusNoMemory": r"memory"},
    "status": {
        "kStatusNotCreated": r"folder could not be", "kStatusOperationFailed": r"a move, a copy or a deletion",
        "kStatusNotFound": r"no such file or folder", "kStatusWrongKind": r"a file where a folder",
        "kStatusMissingArgument": r"argument", "kStatusNoMemory": r"memory",
    },
}

# (page, heading, title of the first column): (which codes, whether all of them must be there).
CODE_TABLES = {
    ("docs/actions/client.md", "CustomAction27", "Code"): (["TaskStep"], True),
    ("docs/actions/security.md", "CustomAction25", "Value"): (["access"], True),
    ("docs/client-upgrade.md", "Registering: `Task install failed:  N`", "Code"): (["TaskStep"], True),
    ("docs/client-upgrade.md", "Running, checking and deleting", "Code"): (["TaskAccessStep"], True),
    ("docs/server-upgrade.md", "What the engine answers", "Code"): (["engine", "engine's status"], True),
    ("docs/troubleshooting.md", "Registering a task", "Code"): (["TaskStep"], True),
    ("docs/troubleshooting.md", "Reaching a task", "Code"): (["TaskAccessStep"], True),
    ("docs/troubleshooting.md", "Access to a file or folder", "Code"): (["access"], True),
    ("docs/troubleshooting.md", "Accounts and the directory", "Code"): (["accounts"], True),
    ("docs/troubleshooting.md", "The firewall's answers", "Code"): (["firewall"], True),
    ("docs/troubleshooting.md", "The copy/move engine", "Code"): (["engine"], True),
    ("docs/troubleshooting.md", "Files and folders", "Code"): (["status"], True),
}

# ---- the engine's options: what a letter means, and what the letter means that undoes it. "~" is the letter that undoes all.

OPTION_WORDS = {
    "kTreeMove": (r"^move", r"copy"),
    "kTreeOverwrite": (r"overwrite|in place of an existing target", r"keep"),
    "kTreeKeepAside": (r"rename", r""),
    "kTreeIgnoreErrors": (r"go on|continue", r"stop"),
    "kTreeRecurse": (r"copy folders", r"files only"),
    "kTreeCreateTarget": (r"target folder before each source", r"do not"),
    "kTreeKeepLinks": (r"do not (go through|follow) links", r"go through|follow"),
    "~": r"everything|all letters",
}

# ---- sentences: (page, text). Blanks and line ends count as one blank.

_ENGINE_DANGERS = [
    "the target is deleted, and nothing takes its place: {kTreeNotMoved}, {kTreeNoSource} | the target is renamed: "
    "{kTreeNotMoved}, {kTreeNoSource} |",
    "it is deleted: {kTreeNotMoved}, {kTreeNoSource} | it is renamed: {kTreeNotMoved}, {kTreeNoSource} |",
    "**both are deleted**: {kTreeNotMoved}, {kTreeNoSource} |",
    "codes below are those of a move ({kTreeNotMoved}) and of a copy ({kTreeNoSource})",
    "a move then fails with {kTreeTargetExists}",
    "a move fails ({kTreeTargetExists})",
    "{kTreeNotMoved} for a move, {kTreeNoSource} or {kTreeNotCopied} for a copy, {kTreeFolderNotCreated} for a folder to be made",
    "do not copy it ({kTreeNotCopied}), copy nothing into it ({kTreeNotCopied})",
]

_CLIENT_STEPS = [
    "actions of steps <step 3490> and <step 6380> to <step 6480> are deferred",
    "except for steps <step 1380>, <step 1490>, <step 6609>, <step 6640> and <step 6660>, which log nothing",
    "In step <step 6601> the old package runs its own sequence",
    "steps <step 1380>, <step 1490>, <step 3490>, <step 6480> and <step 6670>",
    "After step <step 6600> nothing is rolled back",
    "(step <step 6660>) `CustomAction29`",
    "| <step 1380>: a tool does not close |",
    "| <step 1380>: the service does not stop |",
    "| <step 1400>: the engine's checks |",
    "| <step 1900> to <step 6600>: the script |",
    "| <step 6405> or later, in a first installation |",
    "| <step 6609> | continues, and logs nothing | the audit file as it was |",
    "| after <step 3490> or <step 6480>, in a removal",
    "| <step 6601>: the old product cannot be removed |",
    "| <step 6620>, <step 6630>: a task is not registered |",
    "| <step 6650>: the audit |",
    "| <step 6670>: an agent is not ended or started |",
]
_SERVER_STEPS = [
    "Steps <step 2010> to <step 4190> are deferred",
    "| <step 2010>: the older server's folder cannot be moved aside |",
    "| <step 2020>: the outside data cannot be moved aside |",
    "| <step 4000>: the new files cannot be installed |",
    "| <step 4110>: some data cannot be copied |",
    "| <step 4150>, <step 4190>: the conversion failed, data inside |",
    "| <step 4190>: the conversion was cancelled |",
    "| <step 6601>: the older product cannot be removed |",
    "`CustomAction13` runs in step <step 1480>",
]

STATEMENTS = [
    *(("docs/client-upgrade.md", text) for text in _CLIENT_STEPS),
    *(("docs/server-upgrade.md", text) for text in _SERVER_STEPS),
    ("docs/client-upgrade.md", "`7`, `+7`, `0x07`, `7 days`, `7.9` | 7 |"),
    ("docs/client-upgrade.md", "| `0x0A`, `0x0a` | 10 |"),
    ("docs/client-upgrade.md", "| `{2 ** 32 + 7}` (2^32 + 7) | 7 |"),
    ("docs/client-upgrade.md", "| `{2 ** 31}` (2^31), `{2 ** 32 - 1}` | no update task"),
    ("docs/client-upgrade.md", "| `{1 - 2 ** 32}` | 1 |"),
    ("docs/client-upgrade.md", "| `{2 ** 16 + 1}` | the task gets 1 | | `{2 ** 16}` | the task gets 0"),
    ("docs/client-upgrade.md", "({kStepDaysInterval} or {kStepRegister}) |"),
    ("docs/client-upgrade.md", "0 to {kHoursADay - 1}: `26` is {26 % kHoursADay}, `7pm` is 7, `-5` is 0, and `{2 ** 32 - 1}` "
                               "counts as -1, which is {-1 % kHoursADay}."),
    ("docs/client-upgrade.md", "modulo {kHoursADay} | 0 |"),
    ("docs/client-upgrade.md", "missing, 0, 2 | 1, 1, 3 | unchanged"),
    ("docs/client-upgrade.md", "at 2:30, local time"),
    ("docs/client-upgrade.md", "-1, -14 and -26 are not used"),
    ("docs/troubleshooting.md", "-1, -14 and -26 are not used"),
    *(("docs/actions/server.md", text) for text in _ENGINE_DANGERS),
    ("docs/actions/client.md", "the message {kShutdownMessage}, then `WM_ENDSESSION`, then `WM_COMMAND` {kShutdownCommand}"),
    ("docs/actions/client.md", "its own control {kServiceControl}"),
    ("docs/actions/client.md", "the hour is always 0 to {kHoursADay - 1}: `26` gives {26 % kHoursADay}, and `{2 ** 32 - 1}`, which "
                               "counts as -1, gives {-1 % kHoursADay}."),
    ("docs/actions/client.md", "`-5` counts as 0."),
    ("docs/actions/client.md", "from 2000-01-01 on"),
    ("docs/actions/client.md", "at 2:30 with up to a day's random delay, for an hour at most"),
    ("docs/actions/client.md", "`7`, `+7`, `0x07` and `7 days` are 7; `0X5` and ` 7` are 0."),
    ("docs/actions/client.md", "`{2 ** 32 + 7}` is 7, `{2 ** 31}` is negative."),
    ("docs/actions/client.md", "unreadable or not greater than 0 |"),
    ("docs/actions/client.md", "| 0, or none | settings file |"),
    ("docs/actions/client.md", "| 1 | user's registry |"),
    ("docs/actions/client.md", "| 2 | service's registry |"),
    ("docs/actions/client.md", "| `yes` or `1`, in these letters | the settings are deleted |"),
    ("docs/actions/client.md", "an NT before 3.5, the service is left alone"),
    ("docs/actions/client.md", "adds `OSTRK64.DLL` in the 64-bit view of the registry and then `OSTRACK.DLL` in the 32-bit view"),
    ("docs/actions/client.md", "in the default, the 64-bit and the 32-bit registry view, in this order"),
    ("docs/actions/client.md", "{kAccessService} to {kAccessFolder} as for [deleting]"),
    ("docs/actions/security.md", "first character `0`: an account of the domain"),
    ("docs/actions/security.md", "`1`: of the computer; anything else"),
    ("docs/actions/security.md", "MODE is the sum of 400 (read), 200 (write) and 100 (execute)"),
    ("docs/actions/security.md", "N is 0 if the path has its new entry"),
    ("docs/actions/security.md", "an error of the network (2224: there is an account of that name)"),
    ("docs/actions/security.md", "The number is 128 (files that the section names are looked for in the folder of the INF file)"),
    ("docs/actions/server.md", "| there | there or not | 0 |"),
    ("docs/actions/server.md", "| missing | there | 1602: the user cancelled |"),
    ("docs/actions/server.md", "| missing | missing | 1603 |"),
    ("docs/actions/server.md", "`PROP_UPGRADE` and `PROP_REPLACING` become `1`, and that is all"),
    ("docs/actions/server.md", "does not begin with `0`, nothing happens"),
    ("docs/actions/server.md", "`PROP_DFPRESENT` becomes `1`."),
    ("docs/actions/server.md", "`DIR_SERVER` holds the file \"vt.exe\", `PROP_UPGRADE` becomes `1`."),
    ("docs/actions/server.md", "is set, `PROP_REPLACING` becomes `1`."),
    ("docs/actions/server.md", "the target is renamed with the source in it: {kTreeNotMoved}, {kTreeNoSource} |"),
    ("docs/actions.md", "`PROP_SILENCE` is exactly `-1`"),
    ("docs/actions.md", "An action returns 0 unless its own section says otherwise"),
    ("docs/actions/client.md", "modulo {kHoursADay}"),
    ("docs/actions/client.md", "{kAccessService} no task service, {kAccessConnect} not connected to it, {kAccessRoot} no root "
                               "folder, {kAccessFolder} no task folder"),
    ("docs/actions/client.md", "{kAccessTask}: no such task, {kAccessUse}: its state cannot be read"),
    ("docs/actions/client.md", "{kAccessTask} no such task, {kAccessUse} running it was refused"),
    ("docs/actions/security.md", "| TCP | {kTcpRuleTexts} | {kTcpRuleTexts + kGroupText} | {kTcpRuleTexts + kDescriptionText} |"),
    ("docs/actions/security.md", "| UDP | {kUdpRuleTexts} | {kUdpRuleTexts + kGroupText} | {kUdpRuleTexts + kDescriptionText} |"),
    ("docs/actions/security.md", "`@PATH,-{kTcpRuleTexts}` or `@PATH,-{kUdpRuleTexts}`"),
    ("docs/actions/security.md", "The password has {kPasswordLength} characters"),
    ("docs/authoring.md", "the strings {kTcpRuleTexts} to {kTcpRuleTexts + kDescriptionText} and {kUdpRuleTexts} to "
                          "{kUdpRuleTexts + kDescriptionText}"),
    ("docs/client-upgrade.md", "message {kShutdownMessage}; then `WM_ENDSESSION`; then `WM_COMMAND` {kShutdownCommand}"),
    ("docs/client-upgrade.md", "sends the service its control {kServiceControl}"),
    ("docs/client-upgrade.md", "last at most {(6 * kLongestWait + 2 * (3 * kLongestWait + 2 * kPollInterval) + kLongestWait + kPollInterval) / 1000} seconds"),
    ("docs/client-upgrade.md", "the log says `failed:  {kAccessFolder}` for each session, or {kAccessTask}"),
    ("docs/client-upgrade.md", "| codes {kAccessService} to {kAccessUse}."),
    ("docs/client-upgrade.md", "the codes {kStepService} to {kStepDemandStart}."),
    ("docs/security.md", "have its letter `l`: links"),
    ("docs/server-upgrade.md", "({kTreeNotMoved} for a move, {kTreeNoSource} for a copy)"),
    ("docs/server-upgrade.md", "both are deleted** ({kTreeNotMoved}, {kTreeNoSource})"),
    ("docs/server-upgrade.md", "({kTreeNotMoved}, {kTreeNotCopied}, {kTreeNoSource}, {kTreeFolderNotCreated})"),
    ("docs/server-upgrade.md", "a move then finds it there ({kTreeTargetExists})"),
    ("docs/server-upgrade.md", "the renaming fails ({kTreeNotRenamed})"),
    ("docs/server-upgrade.md", "but stop a deletion ({kTreeNotDeleted})"),
    ("docs/service-account.md", "| {kAccessNoAccount} (0xFFFFFFDC) | the account is not known"),
    ("docs/service-account.md", "| {kAccessMissingArgument}, {kAccessNoPath}, {kAccessNoFunction} | no account or path; out of memory"),
    ("docs/troubleshooting.md", "{kAccessFolder} is no fault: there is no folder and so no task"),
    ("docs/troubleshooting.md", "{kAccessService} to {kAccessRoot}: start the service"),
]
