"""action-table.py and kit_checks.py: find each disagreement between entry points, fragments, models and pages, and keep
the generated parts of the guide equal to the fragments."""

import contextlib
import io
import re
import sys
import unittest
from unittest import mock

from support import TreeTest

LIST = "src/frame/entry_points.def"
PAGE = "docs/actions.md"
GUIDE = "docs/authoring.md"
CLIENT = "packages/client/client.wxs"
SERVER = "packages/server/server.wxs"
LIBRARY = "packages/library.wxi"
NOTICES = "packages/notices.wxi"
SERVICE = "packages/service.wxi"
TASK = "packages/task.wxi"

# Each entry point, with the properties that its section says it reads and writes.
SECTIONS = {
    1: ("`PROP_SILENCE`", "nothing"), 5: ("`PROP_LIST` and `PROP_SILENCE`", "rules"),
    15: ("`CustomActionData`", "files"), 16: ("`CustomActionData`", "files"),
    19: ("`PROP_LIST`", "rules"), 23: ("`PROP_NAME`", "`PROP_USERPASS`"),
    24: ("`PROP_NAME`", "the account"), 27: ("`DIR_CLIENT`", "the task"), 28: ("nothing", "the task"),
}
NOTICE_SENDERS = {25000: 5, 25001: 5, 25003: 1, 26000: 15, 26001: 16, 27000: 23}


def page(sections=None, senders=None):
    sections, senders = sections or SECTIONS, senders or NOTICE_SENDERS
    rows = "".join(f"| [CustomAction{n}](#customaction{n}) | does {n} | immediate |\n" for n in sections)
    notices = "".join(f"| {number} | [CustomAction{n}](#customaction{n}) | when |\n" for number, n in senders.items())
    texts = "".join(f"\n## CustomAction{n}\n\n| | |\n|---|---|\n| Reads | {reads} |\n| Writes | {writes} |\n"
                    for n, (reads, writes) in sections.items())
    return f"# Actions\n\n| Entry point | Job | Phase |\n|---|---|---|\n{rows}\n{notices}{texts}"


def call(name, entry=None, execute=None):
    later = f' Execute="{execute}" Impersonate="no"' if execute else ""
    return f'<CustomAction Id="{name}" BinaryKey="hxsetup" DllEntry="{entry or name.partition(".")[0]}"{later}/>\n'


def guards(name, *needs):
    """The guards at the beginning of a fragment."""
    lines = [f"<?ifdef var.Fragment{name.capitalize()}?><?error {name}.wxi is included twice. Include it once.?><?endif?>",
             f'<?define Fragment{name.capitalize()} = "yes"?>']
    lines += [f"<?ifndef var.Fragment{need.capitalize()}?><?error {name}.wxi needs {need}.wxi. Include {need}.wxi before "
              "it.?><?endif?>" for need in needs]
    return "".join(line + "\n" for line in lines)


def fragment(name, needs, head, content):
    return f"<!--\n  {head}\n-->\n<Include>\n{guards(name, *needs)}{content}</Include>\n"


def with_progress(text):
    """A fragment with a text for the progress page for each of its actions."""
    text = re.sub(r"<UI id=.progress.>.*?</UI>\n", "", text, flags=re.DOTALL)
    rows = "".join(f'<ProgressText Action="{name}">Text.</ProgressText>\n'
                   for name in dict.fromkeys(re.findall(r'<CustomAction Id="([^"]*)"', text)))
    return text.replace("</Include>", f'<UI id="progress">\n{rows}</UI>\n</Include>') if rows else text


def model(*names, content=""):
    includes = "".join(f"<?include {name}.wxi?>\n" for name in ("library", *names))
    return (f'<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi"><Product>\n{includes}{content}'
            '<Directory Id="TARGETDIR"><Directory Id="DIR_CLIENT"/></Directory></Product></Wix>\n')


LIBRARY_TEXT = fragment(
    "library", [], "The library.",
    '<Property Id="MSIUSEREALADMINDETECTION" Value="1"/>\n<CustomAction Id="RefuseNoAdministrator" Error="Refused."/>\n'
    + "".join(f'<{tag}><Custom Action="RefuseNoAdministrator" Sequence="10">NOT AdminUser</Custom></{tag}>\n'
              for tag in ("InstallUISequence", "InstallExecuteSequence")))
SERVICE_TEXT = fragment(
    "service", ["library", "notices"],
    "CustomAction1, CustomAction5: the service. The fragment notices.wxi must be included too.",
    '<Property Id="PROP_LIST" Secure="yes"/>\n<Property Id="PROP_NAME" Value="vt" Secure="yes"/>\n'
    '<Property Id="PROP_USERPASS" Secure="yes" Hidden="yes"/>\n<UI>'
    + "".join(f'<Error Id="{number}">Text {number}.</Error>' for number in NOTICE_SENDERS) + "</UI>\n"
    + call("CustomAction1") + call("CustomAction5") + call("CustomAction19") + call("CustomAction23")
    + call("CustomAction24") + '<CustomAction Id="SetMove" Property="CustomAction15.Move" Value="move"/>\n'
    + call("CustomAction15.Move", execute="deferred")
    + '<CustomAction Id="SetBack" Property="CustomAction16.Back" Value="back"/>\n'
    + call("CustomAction16.Back", execute="rollback")
    + """<InstallExecuteSequence>
      <Custom Action="CustomAction1" Sequence="1380">NOT REMOVE</Custom>
      <Custom Action="SetMove" Sequence="1510">PROP_NAME</Custom>
      <Custom Action="SetBack" Sequence="1520"/>
      <Custom Action="CustomAction16.Back" Sequence="2000"/>
      <Custom Action="CustomAction15.Move" Sequence="2010">PROP_NAME</Custom>
      <Custom Action="CustomAction23" Sequence="4910">NOT Installed</Custom>
      <Custom Action="CustomAction5" Sequence="6615">NOT (REMOVE ~= "ALL")</Custom>
      <Custom Action="CustomAction19" Sequence="6640">REMOVE ~= "ALL"</Custom>
      <Custom Action="CustomAction24" OnExit="error"/>
    </InstallExecuteSequence>
""")
TASK_TEXT = fragment(
    "task", ["library"],
    "CustomAction27, CustomAction28: the task. DIR_CLIENT is the folder of its program.",
    call("CustomAction27") + call("CustomAction28", execute="deferred")
    + """<InstallUISequence><Custom Action="CustomAction27" Sequence="700"/></InstallUISequence>
    <InstallExecuteSequence>
      <Custom Action="CustomAction28" Sequence="6460">REMOVE</Custom>
      <Custom Action="CustomAction27" Sequence="6620">NOT REMOVE</Custom>
    </InstallExecuteSequence>
""")


class KitTest(TreeTest):
    script = "kit/action-table.py"
    writes_progress = True

    def setUp(self):
        super().setUp()
        self.write({
            LIST: "EXPORTS\n" + "".join(f"CustomAction{n}\n" for n in SECTIONS),
            "src/client/all.cpp": 'Read(L"PROP_SILENCE", "PROP_LIST", "PROP_NAME", "PROP_USERPASS", "DIR_CLIENT");\n',
            PAGE: page(),
            LIBRARY: LIBRARY_TEXT,
            NOTICES: fragment("notices", [], "PROP_SILENCE: whether notices are sent.",
                              '<Property Id="PROP_SILENCE" Secure="yes"/>\n'),
            SERVICE: SERVICE_TEXT,
            TASK: TASK_TEXT,
            CLIENT: model("notices", "service", "task"),
            SERVER: model("notices"),
            GUIDE: "".join(f"<!-- generated: {name} -->\n<!-- end of {name} -->\nText.\n\n"
                           for name in self.module.PARTS),
        })
        self.regenerate()
        self.write({GUIDE: re.sub(r"^(\| `\w+` \|.*)\|  \|$", r"\1| meaning |", self.guide(), flags=re.MULTILINE)})

    def write(self, files):
        """Writes files. Fragments get their texts for the progress page, but not in the tests of these texts."""
        if not self.writes_progress:
            super().write(files)
            return
        super().write({path: with_progress(text) if re.fullmatch(r"packages/\w+\.wxi", path) else text
                       for path, text in files.items()})

    def guide(self):
        return (self.root / GUIDE).read_text(encoding="utf-8")

    def regenerate(self):
        output = io.StringIO()
        with mock.patch.object(sys, "argv", [self.script, "--write", str(self.root)]), \
                contextlib.redirect_stdout(output):
            self.module.main()
        return output.getvalue().splitlines()

    def assert_broken(self, path, old, new, *expected):
        """Asserts what is found if `old` is replaced in a file, besides the parts of the guide that this makes out of
        date."""
        text = (self.root / path).read_text(encoding="utf-8")
        self.assertIn(old, text)
        self.write({path: text.replace(old, new)})
        found = [line for line in self.regenerate() if not line.startswith(f"{GUIDE}: does not describe")]
        self.assertEqual(len(found), len(expected), found)
        for line, beginning in zip(found, expected):
            self.assertTrue(line.startswith(beginning), f"{line!r} does not begin with {beginning!r}")


class FragmentsTest(KitTest):
    """The table of the fragments says what a package adds for each."""

    def added(self, head):
        text = SERVICE_TEXT.replace("<!--\n", "<!--\n" + head, 1) if head else SERVICE_TEXT
        self.assertEqual(text != SERVICE_TEXT, bool(head))
        self.write({SERVICE: text})
        self.regenerate()
        row, = re.findall(rf"^\| `{SERVICE.rpartition('/')[2]}` \|(.*)\|$", self.guide(), re.MULTILINE)
        return row.split("|")[3].strip()

    def test_nothing(self):
        self.assertEqual(self.added(""), "")

    def test_names(self):
        self.assertEqual(self.added("""\
  WHAT A PACKAGE MUST SET

    PROP_ONE, PropTwo
                  two names, in a line of their own
    "Three"       a value of the registry:  two blanks in it are no column
    file.inf      a file

  WHAT THE PACKAGE MUST SCHEDULE

    the end       words

  WHAT IT SETS

    PROP_FOUR     of the fragment

"""), '`PROP_ONE`, `PropTwo`, "Three", `file.inf`, the end')


class ChecksTest(KitTest):
    def test_agreement(self):
        self.assert_clean({})

    def test_entry_point_without_a_fragment(self):
        self.assert_broken(LIST, "CustomAction28\n", "CustomAction28\nCustomAction29\n",
                           f"CustomAction29: {LIST} lists it, but no fragment calls it",
                           f"CustomAction29: {LIST} lists it, but {PAGE} does not describe it")

    def test_unknown_entry_point_in_a_fragment(self):
        self.assert_broken(TASK, "the task.", "the task, after CustomAction99.",
                           "packages/task.wxi: CustomAction99 is not exported")

    def test_unknown_entry_point_that_a_fragment_calls(self):
        self.assert_broken(LIST, "CustomAction1\n", "", "docs/actions.md: CustomAction1 is not exported",
                           f"{GUIDE}: CustomAction1 is not exported",
                           "packages/service.wxi: CustomAction1 is not exported")

    def test_unknown_entry_point_on_a_page(self):
        self.write({"docs/other.md": "See CustomAction98.\n"})
        self.assertEqual(self.lint(), (1, ["docs/other.md: CustomAction98 is not exported"]))

    def test_unknown_entry_point_in_a_model(self):
        self.assert_broken(SERVER, "<Product>", "<Product><!-- CustomAction97 -->",
                           "packages/server/server.wxs: CustomAction97 is not exported")

    def test_other_entry_point(self):
        self.assert_broken(SERVICE, 'DllEntry="CustomAction15"', 'DllEntry="CustomAction16"',
                           f"CustomAction15: {LIST} lists it, but no",
                           "service.wxi: CustomAction15.Move calls CustomAction16",
                           "error 26000: its text is in service.wxi, which does not call CustomAction15")

    def test_name_that_only_begins_alike(self):
        self.assert_broken(TASK, "CustomAction28", "CustomAction2",
                           f"CustomAction28: {LIST} lists it, but no",
                           "packages/task.wxi: CustomAction2 is not exported",
                           "task.wxi: calls CustomAction27, but not CustomAction28")

    def test_text_of_the_progress_page(self):
        self.writes_progress = False
        row = '<ProgressText Action="CustomAction28">Text.</ProgressText>\n'
        self.assert_broken(TASK, row, "", "task.wxi: CustomAction28 has no text for the progress page")
        self.assert_broken(TASK, "</UI>", f"{row}{row}</UI>", "task.wxi: CustomAction28 has 2 texts for the progress page")
        self.assert_broken(TASK, f"{row}{row}</UI>", f"{row}{row.replace('28', '1')}</UI>",
                           "task.wxi: a text for the progress page is of CustomAction1, which is not an action of this fragment")

    TEXTS = {
        "packages/texts/texts.wxi": '<Include><?ifndef var.TextsFile?><?define TextsFile = "one.wxi"?><?endif?></Include>\n',
        "packages/texts/one.wxi": "<Include>\n" + "".join(
            f'<?ifndef var.{name}?><?define {name} = "{text}"?><?endif?>\n' for name, text in (
                ("RefuseRights", "Refused, \"[ProductName]\" & more."), ("Text", "A text."), ("ProgressText", "Text."))) + "</Include>\n",
    }

    def write_texts(self):
        """A project whose fragments show only texts of variables."""
        self.writes_progress = False
        self.write(self.TEXTS)
        for path, old, new in ((LIBRARY, 'Error="Refused."', 'Error="$(var.RefuseRights)"'),
                               (SERVICE, r">Text \d+\.<", ">$(var.Text)<"),
                               *((path, r">Text\.<", ">$(var.ProgressText)<") for path in (LIBRARY, SERVICE, TASK))):
            self.write({path: re.sub(old, new, (self.root / path).read_text(encoding="utf-8"))})
        self.regenerate()
        self.assert_clean({})

    def test_texts_in_variables(self):
        self.write_texts()
        self.assertIn("| 25000 | [CustomAction5](actions.md#customaction5) | `service.wxi` | A text. |", self.guide())
        self.assertIn("| `TextsFile` | `one.wxi` | `texts/texts.wxi` |", self.guide())

    def test_text_that_is_not_in_a_variable(self):
        wrong = "which is not a text of packages/texts/one.wxi: write it there, and $(var.NAME) here"
        for path, old, new, shown in (
                (LIBRARY, "$(var.RefuseRights)", "Refused.", "Refused."),
                (TASK, '"CustomAction28">$(var.ProgressText)', '"CustomAction28">No.', "No."),
                (SERVICE, '"25000">$(var.Text)', '"25000">No: $(var.Text)', "No: $(var.Text)"),
                (SERVICE, '"25000">$(var.Text)', '"25000">$(var.Fragment)', "$(var.Fragment)")):
            self.write_texts()
            found = f'{path.rpartition("/")[2]}: shows "{shown}", {wrong}'
            text = (self.root / path).read_text(encoding="utf-8")
            self.write({path: text.replace(old, new)})
            self.assertIn(found, self.regenerate())
            self.write({LIBRARY: with_progress(LIBRARY_TEXT), SERVICE: with_progress(SERVICE_TEXT), TASK: with_progress(TASK_TEXT)})

    def test_text_that_no_fragment_shows(self):
        self.write_texts()
        self.assert_broken(LIBRARY, "$(var.RefuseRights)", "$(var.Text)",
                           "packages/texts/one.wxi: no fragment shows the text RefuseRights")

    def test_name_of_a_product_in_a_text(self):
        self.write_texts()
        self.assert_broken("packages/texts/one.wxi", "A text.", "A text of Vantor.",
                           "packages/texts: a name of the product is not a variable: A text of Vantor.")

    def test_not_in_a_sequence(self):
        self.assert_broken(TASK, '<Custom Action="CustomAction28" Sequence="6460">REMOVE</Custom>', "",
                           "task.wxi: CustomAction28 is not in a sequence")

    def test_deferred_with_the_users_rights(self):
        self.assert_broken(TASK, ' Impersonate="no"', "",
                           "task.wxi: CustomAction28 is deferred, but would not run as SYSTEM")

    def test_deferred_outside_of_the_script(self):
        self.assert_broken(TASK, '"6460"', '"6605"', "task.wxi: CustomAction28 is deferred, but is outside")

    def test_deferred_in_the_dialogs_sequence(self):
        self.assert_broken(TASK, '<Custom Action="CustomAction27" Sequence="700"/>',
                           '<Custom Action="CustomAction28" Sequence="1600"/>',
                           "task.wxi: CustomAction28 is deferred, but is outside")

    def test_no_data(self):
        self.assert_broken(SERVICE, 'Property="CustomAction15.Move"', 'Property="Other"',
                           "service.wxi: nothing sets the data of CustomAction15.Move before 2010",
                           *[f"client/client.wxs: {run}: CustomAction15.Move runs without its data"
                             for run in ("install", "upgrade", "repair", "removal", "replaced") for _ in range(2)])

    def test_data_too_late(self):
        self.assert_broken(SERVICE, 'Action="SetBack" Sequence="1520"', 'Action="SetBack" Sequence="2001"',
                           "service.wxi: nothing sets the data of CustomAction16.Back before 2000",
                           *["client/client.wxs: "] * 10)

    def test_data_under_another_condition(self):
        """In a removal nothing sets the data."""
        self.assert_broken(SERVICE, 'Sequence="1510">PROP_NAME', 'Sequence="1510">NOT REMOVE',
                           *[f"client/client.wxs: {run}: CustomAction15.Move runs without its data"
                             for run in ("removal", "replaced") for _ in range(2)])

    def test_data_in_the_other_sequence(self):
        self.assert_broken(SERVICE, '<Custom Action="SetBack" Sequence="1520"/>',
                           '</InstallExecuteSequence><InstallUISequence><Custom Action="SetBack" Sequence="1520"/>'
                           "</InstallUISequence><InstallExecuteSequence>",
                           "service.wxi: nothing sets the data of CustomAction16.Back before 2000",
                           *["client/client.wxs: "] * 10)

    def test_data_without_an_option_only(self):
        self.assert_broken(SERVICE, 'Sequence="1510">PROP_NAME', 'Sequence="1510">NOT PROP_RESETAUDIT',
                           "service.wxi: reads PROP_RESETAUDIT",
                           "client/client.wxs: PROP_RESETAUDIT, which service.wxi reads, is not secure",
                           *[f"client/client.wxs: {run}: CustomAction15.Move runs without its data"
                             for run in ("install", "upgrade", "repair", "removal", "replaced")])

    def test_run_that_is_refused(self):
        self.write({CLIENT: model("notices", "service", "task", content='<CustomAction Id="Refuse" Error="No."/>'
                                  '<InstallExecuteSequence><Custom Action="Refuse" Sequence="90">REINSTALL</Custom>'
                                  "</InstallExecuteSequence>")})
        self.assertEqual(self.regenerate(), ["client/client.wxs: repair: Refuse ends the run"] * 2)

    def test_half_a_pair(self):
        self.assert_broken(SERVICE, call("CustomAction19"), "", f"CustomAction19: {LIST} lists it, but no",
                           "service.wxi: calls CustomAction5, but not CustomAction19")

    def test_the_other_half(self):
        self.assert_broken(TASK, call("CustomAction27"), "", f"CustomAction27: {LIST} lists it, but no",
                           "task.wxi: calls CustomAction28, but not CustomAction27")

    def test_error_text_missing(self):
        self.assert_broken(SERVICE, '<Error Id="26001">Text 26001.</Error>', "",
                           "error 26001: its text is in 0 fragments")

    def test_error_text_twice(self):
        self.assert_broken(TASK, "</Include>\n", '<UI><Error Id="25003">Again.</Error></UI></Include>\n',
                           "error 25003: its text is in 2 fragments: service.wxi, task.wxi")

    def test_error_text_that_nothing_sends(self):
        self.assert_broken(TASK, "</Include>\n", '<UI><Error Id="25002">More.</Error></UI></Include>\n',
                           "task.wxi: nothing sends error 25002")

    def test_notices_of_the_page(self):
        self.write({PAGE: page(senders={**NOTICE_SENDERS, 28000: 1})})
        found = self.regenerate()
        self.assertEqual(len(found), 1, found)
        self.assertIn("28000", found[0])

    def test_password_that_is_not_hidden(self):
        self.assert_broken(SERVICE, ' Hidden="yes"', "", "service.wxi: PROP_USERPASS is a password, but is not hidden")

    def test_services_password(self):
        self.write({CLIENT: model("notices", "service", "task", content='<ServiceInstall Password="[PROP_NAME]"/>')})
        self.assertEqual(self.regenerate(), ["client/client.wxs: the service's password PROP_NAME is not hidden"])

    def test_password_that_is_passed_on(self):
        self.assert_broken(SERVICE, 'Value="back"', 'Value="back [PROP_USERPASS]"',
                           "client/client.wxs: SetBack shows PROP_USERPASS",
                           "client/client.wxs: CustomAction16.Back runs as SYSTEM with PROP_USERPASS, but")

    def test_password_that_is_passed_on_covered(self):
        self.assert_broken(SERVICE, 'Value="back"', 'Value="back [PROP_USERPASS]" HideTarget="yes"',
                           "client/client.wxs: SetBack shows PROP_USERPASS",
                           "client/client.wxs: CustomAction16.Back runs as SYSTEM with PROP_USERPASS, but")
        text = (self.root / SERVICE).read_text(encoding="utf-8")
        self.write({SERVICE: text.replace("<UI>", '<Property Id="CustomAction16.Back" Hidden="yes"/><UI>')})
        self.assertEqual([line for line in self.regenerate() if "shows" in line], [])

    def test_fragment_in_no_model(self):
        self.assert_broken(CLIENT, "<?include task.wxi?>\n", "", "task.wxi: no model package includes it")

    def test_missing_fragment(self):
        self.assert_broken(SERVER, "<?include notices.wxi?>", "<?include notice.wxi?>",
                           "server/server.wxs: includes notice.wxi, which does not exist")

    def test_needed_fragment_not_included(self):
        self.write({CLIENT: model("service", "task")})
        found = self.regenerate()
        self.assertEqual(found[0], "client/client.wxs: includes service.wxi, but not notices.wxi")

    def test_need_that_the_head_does_not_name(self):
        self.assert_broken(SERVICE, "The fragment notices.wxi must be included too.", "",
                           "service.wxi: its head names no fragment, but its guards ask for notices.wxi")

    def test_need_that_no_guard_asks_for(self):
        text = guards("service", "library", "notices").split("\n")[-2]
        self.assert_broken(SERVICE, text, "",
                           "service.wxi: reads PROP_SILENCE of notices.wxi, but its head does not say so",
                           "service.wxi: its head names notices.wxi, but its guards ask for none")

    def test_guard_that_tests_another_fragment(self):
        self.assert_broken(SERVICE, "<?ifndef var.FragmentNotices?>", "<?ifndef var.FragmentTask?>",
                           "service.wxi: the guard that asks for notices.wxi tests FragmentTask")

    def test_guard_of_another_fragment(self):
        self.assert_broken(TASK, "<?error task.wxi needs", "<?error tasks.wxi needs",
                           "task.wxi: the message of the guard for FragmentLibrary does not begin with")

    def test_no_guard_against_a_second_copy(self):
        first = guards("task").split("\n")[0]
        self.assert_broken(TASK, first, "", "task.wxi: does not begin with <?ifdef var.FragmentTask?>")

    def test_library_that_no_guard_asks_for(self):
        self.assert_broken(TASK, guards("task", "library").split("\n")[2], "",
                           "task.wxi: calls the library, but does not ask for library.wxi")

    def test_one_place_for_two_fragments(self):
        refusal = "<?ifdef var.FragmentService?><?error task.wxi and service.wxi meet.?><?endif?>\n"
        self.assert_broken(TASK, '"6620"', '"6615"',
                           "service.wxi and task.wxi both have the place 6615, but do not refuse each other",
                           "client/client.wxs: CustomAction5 and CustomAction27 both have the place 6615")
        text = (self.root / TASK).read_text(encoding="utf-8").replace("<Include>\n" + guards("task", "library"),
                                                                      "<Include>\n" + guards("task", "library") + refusal)
        self.write({TASK: text})
        self.assertEqual(self.regenerate(), ["client/client.wxs: CustomAction5 and CustomAction27 both have the place 6615"])

    def test_place_of_the_removal(self):
        for number in ("6601", "6603"):
            self.write({TASK: TASK_TEXT})
            self.assert_broken(TASK, '"6620"', f'"{number}"',
                               f"task.wxi: CustomAction27 has the place {number}, which is for RemoveExistingProducts")
        self.write({TASK: TASK_TEXT})
        self.assert_broken(TASK, '"6620"', '"6604"')

    def test_place_of_a_model_in_a_fragment(self):
        self.write({CLIENT: model("notices", "service", "task", content='<CustomAction Id="Own" Property="P" Value="1"/>'
                                  '<InstallExecuteSequence><Custom Action="Own" Sequence="6460"/>'
                                  "</InstallExecuteSequence>")})
        self.assertEqual(self.regenerate(), ["client/client.wxs: Own and CustomAction28 both have the place 6460"])

    def test_name_of_the_product(self):
        for name in ("Ostrel", "Vantor server", "SOFTWARE\\Halvorstead"):
            self.write({TASK: TASK_TEXT})
            self.assert_broken(TASK, "</Include>", f'<CustomAction Id="Set" Property="Name" Value="{name}"/>'
                               '<InstallExecuteSequence><Custom Action="Set" Sequence="19"/></InstallExecuteSequence>'
                               "</Include>", f"task.wxi: a name of the product is not a variable: {name}")

    def test_name_of_the_product_in_a_variable(self):
        self.assert_broken(TASK, "</Include>", '<?ifndef var.Name?><?define Name = "Vantor"?><?endif?>\n'
                           '<CustomAction Id="Set" Property="Own" Value="$(var.Name)"/>'
                           '<InstallExecuteSequence><Custom Action="Set" Sequence="19"/></InstallExecuteSequence>'
                           "</Include>", "task.wxi: reads the variable Name, but its head does not say so")

    def test_text_that_is_too_long(self):
        refusal = '<CustomAction Id="Refuse" Error="{}"/><InstallExecuteSequence><Custom Action="Refuse" Sequence="1010">' \
                  "NOT PROP_LIST</Custom></InstallExecuteSequence></Include>"
        self.assert_broken(SERVICE, "</Include>", refusal.format("x" * 256),
                           "service.wxi: Refuse has 256 characters, more than 255",
                           *["client/client.wxs: "] * 10)
        self.write({SERVICE: SERVICE_TEXT})
        self.assert_broken(SERVICE, "</Include>", refusal.format("x" * 255), *["client/client.wxs: "] * 10)

    def test_refusal_in_one_sequence_only(self):
        refusal = '<CustomAction Id="Refuse" Error="No."/><{0}><Custom Action="Refuse" Sequence="{1}">PROP_LIST = "no"' \
                  "</Custom></{0}></Include>"
        for sequence, number, expected in (
                ("InstallExecuteSequence", 700, ["service.wxi: Refuse refuses in one sequence only"]),
                ("InstallUISequence", 701, ["service.wxi: Refuse refuses in one sequence only"]),
                ("InstallExecuteSequence", 1010, []),
                ("InstallExecuteSequence", 1450, ["service.wxi: Refuse refuses at 1450, when something may have changed"]),
                ("InstallExecuteSequence", 1501, []),
                ("InstallExecuteSequence", 1502, ["service.wxi: Refuse refuses at 1502, when something may have changed"])):
            self.write({SERVICE: SERVICE_TEXT})
            self.assert_broken(SERVICE, "</Include>", refusal.format(sequence, number), *expected)

    def test_setter_after_its_reader(self):
        def package(number):
            return model("notices", "service", "task", content=(
                '<CustomAction Id="SetList" Property="PROP_LIST" Value="a/b"/><InstallExecuteSequence>'
                f'<Custom Action="SetList" Sequence="{number}"/></InstallExecuteSequence>'))
        for number, readers in ((6614, []), (6616, [("CustomAction5", 6615)]),
                                (6641, [("CustomAction5", 6615), ("CustomAction19", 6640)])):
            self.write({CLIENT: package(number)})
            self.assertEqual(sorted(self.regenerate()), sorted(
                f"client/client.wxs: SetList sets PROP_LIST at {number}, after {name} has read it at {place}"
                for name, place in readers))

    def test_list_that_is_not_set(self):
        sections = {**SECTIONS, 5: ("`PROP_FIREWALLDATA` and `PROP_SILENCE`", "rules"), 19: ("`PROP_FIREWALLDATA`", "rules")}
        self.write({PAGE: page(sections), SERVICE: SERVICE_TEXT.replace('"PROP_LIST" Secure="yes"', '"PROP_FIREWALLDATA"'),
                    "src/client/all.cpp": '"PROP_SILENCE", "PROP_FIREWALLDATA", "PROP_NAME", "PROP_USERPASS", "DIR_CLIENT"\n'})
        found = [line for line in self.regenerate() if not line.startswith(GUIDE)]
        self.assertEqual(found, [f"client/client.wxs: {run}: {action} runs without PROP_FIREWALLDATA" for run, action in
                                 (("install", "CustomAction5"), ("upgrade", "CustomAction5"), ("repair", "CustomAction5"),
                                  ("removal", "CustomAction19"), ("replaced", "CustomAction19")) for _ in range(2)])

    def test_property_that_nothing_sets(self):
        self.assert_broken(TASK, "REMOVE</Custom>", "NOT Wanted</Custom>",
                           "task.wxi: reads Wanted, but its head does not say so")

    def test_variable_that_the_head_does_not_name(self):
        self.assert_broken(TASK, "</Include>\n", '<Binary SourceFile="$(var.Library)"/></Include>\n',
                           "task.wxi: reads the variable Library, but its head does not say so",
                           "task.wxi: reads the variable Library, but no guard asks for it")
        self.assert_broken(TASK, "the task.", "the task. The variable Library names a file.",
                           "task.wxi: reads the variable Library, but no guard asks for it")
        self.assert_broken(TASK, "</Include>\n", "<?ifndef var.Library?><?error task.wxi needs the variable Library.?>"
                           "<?endif?></Include>\n")

    def test_not_secure(self):
        self.assert_broken(SERVICE, 'Id="PROP_LIST" Secure="yes"', 'Id="PROP_LIST"',
                           "client/client.wxs: PROP_LIST, which service.wxi reads, is not secure")

    def test_secure_by_the_package(self):
        self.assert_broken(SERVICE, '<Property Id="PROP_LIST" Secure="yes"/>', "",
                           "service.wxi: reads PROP_LIST, but its head does not say so",
                           "client/client.wxs: PROP_LIST, which service.wxi reads, is not secure")
        self.write({CLIENT: model("notices", "service", "task", content='<Property Id="PROP_LIST" Secure="yes"/>')})
        self.assertEqual([line for line in self.regenerate() if "client.wxs" in line], [])

    def test_secure_that_must_not_be(self):
        sections = {**SECTIONS, 27: ("`PROP_COMPONENT`, `DIR_CLIENT`", "the task")}
        self.write({PAGE: page(sections), "src/client/more.cpp": '"PROP_COMPONENT"\n'})
        self.assert_broken(TASK, "</Include>\n", '<Property Id="PROP_COMPONENT" Value="V" Secure="yes"/></Include>\n',
                           "client/client.wxs: PROP_COMPONENT, which task.wxi reads, is secure")

    def test_secure_is_free_where_the_property_is_made(self):
        """An action of the execute sequence sets it; one of the dialogs' sequence would set it in another process."""
        self.assert_broken(SERVICE, '"PROP_USERPASS" Secure="yes"', '"PROP_USERPASS"')
        text = (self.root / SERVICE).read_text(encoding="utf-8").replace("NOT Installed", "PROP_USERPASS")
        self.write({SERVICE: text})
        self.assertEqual([line for line in self.regenerate() if "client.wxs" in line], [])
        self.assert_broken(SERVICE, "</Include>", '<InstallUISequence><Custom Action="CustomAction23" Sequence="19"/>'
                           "</InstallUISequence></Include>",
                           "client/client.wxs: PROP_USERPASS, which service.wxi reads, is not secure",
                           "client/client.wxs: CustomAction23 finds PROP_USERPASS, which is not forgotten")

    def test_search_for_a_value_that_nothing_writes(self):
        key = "SOFTWARE\\Halvorstead\\Ostrel"
        search = (f'<?define OldKey = "{key}"?><Property Id="PROP_OLD" Secure="yes">'
                  '<RegistrySearch Id="S" Key="$(var.OldKey)" Name="Old"/></Property>'
                  '<Property Id="PROP_SYSTEM"><RegistrySearch Id="T" Key="SOFTWARE\\Other" Name="Old"/></Property>')
        self.assert_broken(TASK, "</Include>\n", f"{search}</Include>\n",
                           f"client/client.wxs: does not write Old of {key}, which task.wxi searches for",
                           "task.wxi: PROP_OLD is searched for, but not forgotten before that in both sequences",
                           "task.wxi: PROP_SYSTEM is searched for, but not forgotten before that in both sequences")
        self.write({CLIENT: model("notices", "service", "task", content=f'<RegistryValue Key="{key}" Name="Old"/>')})
        self.assertEqual([line for line in self.regenerate() if "client.wxs" in line], [])
        # An action writes it with the system's program.
        for name, missing in (("Old", []), ("Older", [f"client/client.wxs: does not write Old of {key}, which task.wxi searches for"])):
            action = (f'<CustomAction Id="Note" Property="Program" Execute="deferred" Impersonate="no" Return="check" '
                      f'ExeCommand="add &quot;HKLM\\{key}&quot; /v {name} /d 1 /f"/>')
            self.write({CLIENT: model("notices", "service", "task", content=action)})
            self.assertEqual([line for line in self.regenerate() if "does not write" in line], missing)

    def test_property_that_the_page_does_not_name(self):
        self.write({"src/client/more.cpp": 'Read("PROP_MORE");\n'})
        self.assertEqual(self.regenerate(), [f"{PAGE}: no row Reads or Writes names PROP_MORE, but src/ does"])

    def test_property_that_only_the_page_names(self):
        self.write({"src/client/all.cpp": 'Read(L"PROP_SILENCE", "PROP_LIST", "PROP_NAME", "PROP_USERPASS");\n'})
        self.assertEqual(self.regenerate(), [f"{PAGE}: a row Reads or Writes names DIR_CLIENT, but src/ does not"])


class GuideTest(KitTest):
    def test_out_of_date(self):
        self.assert_found({TASK: TASK_TEXT.replace("6460", "6461")},
                          f"{GUIDE}: the part actions is out of date", f"{GUIDE}: the part client is out of date")
        self.assertEqual(self.regenerate(), [])
        self.assert_clean({})

    def test_changed_by_hand(self):
        self.assert_found({GUIDE: self.guide().replace("does", "did").replace("6460", "6462")},
                          f"{GUIDE}: the part actions is out of date", f"{GUIDE}: the part client is out of date")

    def test_part_missing(self):
        self.assert_found({GUIDE: self.guide().replace("<!-- generated: notices -->", "")},
                          f"{GUIDE}: has the part notices 0 times")

    def test_unknown_part(self):
        self.assert_found({GUIDE: self.guide() + "<!-- generated: other -->\n<!-- end of other -->\n"},
                          f"{GUIDE}: the generator has no part other")

    def test_no_guide(self):
        (self.root / GUIDE).unlink()
        self.assertEqual(self.lint(), (1, [f"{GUIDE} does not exist"]))

    def test_values_by_hand(self):
        self.assertIn("| meaning |", self.guide())
        row = next(line for line in self.guide().splitlines() if line.startswith("| `PROP_LIST` |"))
        self.assertEqual(row, "| `PROP_LIST` |  | yes | `service.wxi` | 5, 19 |  | meaning |")
        self.assert_found({GUIDE: self.guide().replace(row, row.replace("meaning", ""))},
                          f"{GUIDE}: does not describe the values of PROP_LIST")

    def test_new_property(self):
        self.assert_broken(TASK, "</Include>\n", '<Property Id="PROP_NEW" Value="9" Secure="yes"/></Include>\n')
        self.assertIn("| `PROP_NEW` | `9` | yes | `task.wxi` |  |  |  |", self.guide())
        self.assertIn("| `PROP_NAME` | `vt` | yes | `service.wxi` | 23, 24, `service.wxi` |  | meaning |", self.guide())
        self.assertIn("| `PROP_NEW` | an administrator, in any run |  |", self.guide())
        self.assertEqual(self.lint(), (1, [f"{GUIDE}: does not describe the values of PROP_NEW",
                                           f"{GUIDE}: does not describe what can be caused by PROP_NEW"]))

    def test_rows(self):
        guide = self.guide()
        self.assertIn("| [CustomAction15](actions.md#customaction15) | `CustomAction15.Move` | `service.wxi` | "
                      "deferred, SYSTEM | checked | 2010 | `PROP_NAME` | data: `SetMove` |", guide)
        self.assertIn("| `CustomAction27` | `task.wxi` | immediate | checked | UI 700, 6620 | always, `NOT REMOVE` | "
                      "pair of CustomAction28 |", guide)
        self.assertIn("| `CustomAction24` | `service.wxi` | immediate | checked | after a failure | always |", guide)
        self.assertIn("| `service.wxi` | The service. | 1, 5, 15, 16, 19, 23, 24 | `notices.wxi` |", guide)
        self.assertIn("| 26000 | [CustomAction15](actions.md#customaction15) | `service.wxi` | Text 26000. |", guide)

    def test_pictures(self):
        lines = [line.split() for line in self.guide().splitlines()]
        self.assertIn(["1510", "SetMove", *["set"] * 5], lines)
        self.assertIn(["2000", "CustomAction16.Back", *["undo"] * 5], lines)
        self.assertIn(["4910", "CustomAction23", "now", "now", ".", ".", "."], lines)
        self.assertIn(["6460", "CustomAction28", ".", ".", ".", "script", "script"], lines)
        self.assertIn(["only", "here:", "700", "CustomAction27"], lines)
        self.assertIn(["2000", "CustomAction16.Back", "install,", "upgrade,", "repair,", "removal,", "replaced"], lines)
        self.assertIn(["after", "a", "failure", "CustomAction24"], lines)

    def test_options(self):
        """An action that runs only with the options of a package is in brackets."""
        self.assert_broken(TASK, "NOT REMOVE</Custom>", "PROP_RESETAUDIT</Custom>",
                           "task.wxi: reads PROP_RESETAUDIT",
                           "client/client.wxs: PROP_RESETAUDIT, which task.wxi reads, is not secure")
        lines = [line.split() for line in self.guide().splitlines()]
        self.assertIn(["6620", "CustomAction27", *["(now)"] * 5], lines)


if __name__ == "__main__":
    unittest.main()
