"""A test of the checks of the pages: false statements that each must be found.

Each row of FALSIFIED is a statement of a page and a false one in its place. All checks of the pages run on the page with the
false statement, and one of them must name the page. A statement that is no longer on its page fails the test: the page says
it in other words now, so take a text of the same kind from it, and falsify that.
"""

import re
import shutil
import tempfile
import unittest
from pathlib import Path

from support import TOOLS, load_script

ROOT = TOOLS.parent
FACTS = load_script("texts/page_facts.py")
TEXTS = load_script("texts/check-texts.py")
PAGES = load_script("texts/check-pages.py")
EXAMPLES = load_script("kit/action_examples.py")
TABLE = load_script("kit/action-table.py")

CLIENT, SECURITY, SERVER = "docs/actions/client.md", "docs/actions/security.md", "docs/actions/server.md"
INDEX, TROUBLE, GUIDE = "docs/actions.md", "docs/troubleshooting.md", "docs/authoring.md"
CLIENTS, SERVERS, ACCOUNT = "docs/client-upgrade.md", "docs/server-upgrade.md", "docs/service-account.md"

FALSIFIED = {
    "return codes": [
        (CLIENT, "| Returns | 0, or 1603 if a tool", "| Returns | 0, or 1602 if a tool"),
        (SERVER, "| Returns | 0, 1602 or 1603, as", "| Returns | 0 or 1603, as"),
        (SERVER, "| Returns | 0, or 1603 if the data", "| Returns | 0, or 1601 if the data"),
        (SECURITY, "| Returns | 0 |", "| Returns | 0, or 1603 without an account |"),
        ("docs/actions/installer.md", "| Returns | 0 |", "| Returns | 5, the level before |"),
        (TROUBLE, "| `CustomAction15` | 0, 1603 |", "| `CustomAction15` | 0 |"),
    ],
    "who can stop an installation": [
        (INDEX, "Only [CustomAction1](actions/client.md#customaction1), ", "Only "),
        (INDEX, "[CustomAction15](actions/server.md#customaction15) and [CustomAction17](actions/server.md#customaction17) can stop",
         "[CustomAction15](actions/server.md#customaction15) and [CustomAction16](actions/server.md#customaction16) can stop"),
        (INDEX, "[CustomAction17](actions/server.md#customaction17) can stop", "[CustomAction23](actions/security.md#customaction23) can stop"),
    ],
    "properties read and written": [
        (CLIENT, "| Reads | `PROP_CLEAN` (256 bytes) |", "| Reads | `PROP_CLEAR` (256 bytes) |"),
        (CLIENT, "| Writes | `PROP_HOSTNAME` |", "| Writes | nothing |"),
        (SERVER, "| Writes | `DIR_EXADMIN`, `DIR_UPG` |", "| Writes | `DIR_EXADMIN` |"),
        (SERVER, "`PROP_PRE75SERVER`, `DIR_SERVER` |", "`DIR_SERVER` |"),
        (SECURITY, "| Reads | `PROP_COMPONENT`, the", "| Reads | `PROP_SERVICENAME`, the"),
        (CLIENT, "| Reads | `ProductCode`, `PROP_VERSION` |", "| Reads | `ProductName`, `PROP_VERSION` |"),
    ],
    "buffer sizes": [
        (CLIENT, "| Reads | `PROP_HOSTNAME` (256 bytes);", "| Reads | `PROP_HOSTNAME` (128 bytes);"),
        (CLIENT, "`PROP_UPDATEINTERVAL` (64 bytes),", "`PROP_UPDATEINTERVAL` (46 bytes),"),
        (SECURITY, "`ProductName` (2 bytes) |", "`ProductName` (128 bytes) |"),
        (INDEX, "its text is cut after 255 bytes", "its text is cut after 256 bytes"),
        (INDEX, "A name of more than 127 bytes", "A name of more than 255 bytes"),
        (SERVER, "of more than 512 bytes (in", "of more than 1024 bytes (in"),
        (CLIENTS, "must be shorter than 64 bytes", "must be shorter than 32 bytes"),
    ],
    "time limits": [
        (CLIENT, "waits for its end, for 10 seconds", "waits for its end, for 99 seconds"),
        (CLIENT, "for five seconds, and", "for ten seconds, and"),
        (CLIENTS, "waits up to 10 seconds for its end", "waits up to 15 seconds for its end"),
        (CLIENTS, "| 16 s | 16.5 s |", "| 15 s | 16.5 s |"),
        (CLIENTS, "last at most 67.5 seconds", "last at most 60 seconds"),
        (TROUBLE, "was still there 10 seconds later", "was still there 5 seconds later"),
    ],
    "lines of the log": [
        (CLIENT, "| `Task check OK` |", "| `Task check passed` |"),
        (CLIENT, "`agent restart:  pid P did not exit`", "`agent restart:  pid P has not ended`"),
        (SECURITY, "| `no service account, using LocalSystem` |", "| `no service account, using LocalService` |"),
        (SECURITY, "| `service has no failure actions` |", "| `service failure actions kept` |"),
        (CLIENT, "`Task uninstall failed:  N` if", "`Task removal failed:  N` if"),
        (CLIENTS, "`agent restart:  N agent(s) stopped`", "`agent restart:  N agents stopped`"),
        (ACCOUNT, "`could not grant right to logon as service`", "`could not grant right to log on as a service`"),
        (ACCOUNT, "| `set ACL for ACCOUNT` |", "| `ACL for ACCOUNT is set` |"),
        (TROUBLE, "| `removing simple firewall rule` |", "| `deleting simple firewall rule` |"),
        (CLIENT, "| Log | nothing |", "| Log | `Task installed` |"),
    ],
    "notices": [
        (INDEX, "| 26000 | [CustomAction15]", "| 26000 | [CustomAction16]"),
        (SERVER, "| Notice | 26001 if", "| Notice | 26000 if"),
        (CLIENT, "| Notice | 25003,", "| Notice | 25002,"),
        (CLIENTS, "### The notice 25003", "### The notice 25004"),
        (ACCOUNT, "it was not created; notice 27000", "it was not created; notice 27001"),
        (TROUBLE, "| 25001 | 5 |", "| 25001 | 19 |"),
    ],
    "letters of the engine's options": [
        (SERVER, "| `b` | with `o`: rename", "| `a` | with `o`: rename"),
        (SERVER, "| `m` | move | `c`: copy", "| `m` | move | `k`: copy"),
        (SERVER, "| `r` | copy folders,", "| `r` | copy files only,"),
        (SERVER, "| `e`: stop at the first error", "| `e`: go on after the first error"),
        (SERVERS, "| l | do not follow links", "| l | follow links"),
        (SERVERS, "| n | create the target folder before each source;", "| n | create the source's folder before each source;"),
        (SERVERS, "`hxsetup -mobl \"C:", "`hxsetup -mol \"C:"),
        ("docs/security.md", "have its letter `l`", "have its letter `g`"),
    ],
    "status codes": [
        (SERVER, "do not copy it (-7)", "do not copy it (-8)"),
        (SERVER, "takes its place: -6, -16 |", "takes its place: -6, -15 |"),
        (SERVERS, "| -7 | a copy of a file", "| -17 | a copy of a file"),
        (SERVERS, "| -15 | a move without o", "| -16 | a move without o"),
        (CLIENT, "| -24, -25 | the principal, its run level |", "| -25, -24 | the principal, its run level |"),
        (CLIENTS, "| -27, -28, -29 |", "| -26, -28, -29 |"),
        (SECURITY, "| -108 | out of memory", "| -107 | out of memory"),
        (TROUBLE, "| -17 | the trigger is no", "| -16 | the trigger is no"),
        (ACCOUNT, "| -36 (0xFFFFFFDC)", "| -35 (0xFFFFFFDC)"),
    ],
    "sequence numbers": [
        (SECURITY, "`InstallServices` (5800)", "`InstallServices` (5700)"),
        ("docs/security.md", "at 6576 (`ForgetPassword`)", "at 6577 (`ForgetPassword`)"),
        ("docs/security.md", "`CustomAction25` (5810)", "`CustomAction25` (5820)"),
        (CLIENTS, "| 3 | 1380 | `CustomAction1` |", "| 3 | 1390 | `CustomAction1` |"),
        (CLIENTS, "| 18 | 6620 |", "| 18 | 6630 |"),
        (SERVERS, "| 16 | 4110 |", "| 16 | 4125 |"),
        (SERVERS, "`InstallExecute` (2050)", "`InstallExecute` (2010)"),
        (GUIDE, "sets at 610 |", "sets at 611 |"),
    ],
    "steps": [
        (CLIENTS, "| 15: the old product cannot", "| 16: the old product cannot"),
        (CLIENTS, "| 20 | 6640, 6650 |", "| 21 | 6640, 6650 |"),
        (SERVERS, "`CustomAction13` runs in step 10", "`CustomAction13` runs in step 11"),
    ],
    "conditions": [
        (CLIENT, '"1490">NOT ClientIsReplaced<', '"1490">ClientIsReplaced<'),
        (GUIDE, "| 4110 | `UpgradeData OR UpgradeInside` |", "| 4110 | `UpgradeData` |"),
        (CLIENTS, "Test `ClientIsReplaced`", "Test `ClientWasReplaced`"),
    ],
    "phases": [
        (CLIENT, "| Phase | immediate, before `PROP_HOSTNAME`", "| Phase | deferred, before `PROP_HOSTNAME`"),
        (SERVER, "| Phase | deferred, after `InstallFiles`", "| Phase | deferred, before `InstallFiles`"),
        (CLIENT, "| Phase | immediate, after `InstallFinalize`", "| Phase | immediate, before `InstallFinalize`"),
        (SERVER, "| Phase | deferred, after the conversion", "| Phase | immediate, after the conversion"),
        (INDEX, "finds the previous server's data folder | immediate |", "finds the previous server's data folder | deferred |"),
        (TROUBLE, "| `CustomAction12` | 0 | immediate, no line", "| `CustomAction12` | 0 | deferred, no line"),
    ],
    "numbers of Windows": [
        (TROUBLE, "-2147024891 (0x80070005)", "-2147024891 (0x80070006)"),
        (CLIENTS, "| -2147216619 | 0x80041315 |", "| -2147216618 | 0x80041315 |"),
        (TROUBLE, "| 1618 | another installation", "| 1617 | another installation"),
        (SECURITY, "no such service (1060)", "no such service (1061)"),
    ],
    "values": [
        (CLIENT, "`26` gives 2,", "`26` gives 3,"),
        (SECURITY, "the sum of 400 (read), 200 (write)", "the sum of 200 (read), 400 (write)"),
        (SERVER, "| missing | there | 1602: the user cancelled |", "| missing | there | 1603: the user cancelled |"),
        (CLIENT, "at 2:30 with", "at 3:30 with"),
    ],
    "names": [
        (CLIENT, "| `PVMain` | `Provo` |", "| `PVMain` | `Prova` |"),
        (CLIENTS, "| `Warden` | `Warden` | `WM_CLOSE` |", "| `Wardens` | `Warden` | `WM_CLOSE` |"),
        (CLIENT, "then `WM_COMMAND` 1001", "then `WM_COMMAND` 1002"),
        (SECURITY, "| UDP | 1010 | 1011 | 1012 |", "| UDP | 1010 | 1012 | 1011 |"),
    ],
}


class FalsifiedTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # The project but for its pages, which are copies.
        folder = tempfile.TemporaryDirectory(prefix="hx-falsified-")
        cls.addClassCleanup(folder.cleanup)
        cls.root = Path(folder.name)
        for path in ROOT.iterdir():
            if path.suffix == ".md":
                shutil.copy(path, cls.root)
            elif path.name not in ("docs", "build", ".git"):
                (cls.root / path.name).symlink_to(path)
        shutil.copytree(ROOT / "docs", cls.root / "docs")
        cls.project = FACTS.Project(cls.root)
        cls.pages = FACTS.read_pages(cls.root)
        cls.texts = TEXTS.Check(cls.root, [])
        cls.before = set(cls.findings(cls))

    def findings(self):
        """What all checks of the pages find in the copies. The sources are read once."""
        yield from FACTS.findings(self.project, FACTS.read_pages(self.root))
        self.texts.page = TEXTS.Page((self.root / TEXTS.PAGE).read_text(encoding="utf-8"))
        for name, check in TEXTS.Check.CHECKS.items():
            if name != "images":
                yield from check(self.texts)
        yield from EXAMPLES.examples_findings(self.project.kit, self.root, False)
        yield from TABLE.guide_findings(self.project.kit, False)
        yield from PAGES.findings(self.root)

    def test_nothing_is_found_in_the_pages_as_they_are(self):
        self.assertEqual(sorted(self.before), [])

    def test_each_is_found(self):
        for kind, rows in FALSIFIED.items():
            for page, true, false in rows:
                with self.subTest(kind=kind, page=page, false=false):
                    self.check(page, true, false)

    def check(self, page, true, false):
        text = self.pages[page]
        # Lines may be broken elsewhere.
        place = re.search(re.escape(true).replace(r"\ ", r"\s+"), text)
        self.assertTrue(place, f"{page} does not say '{true}' any more: falsify what it says now (FALSIFIED)")
        (self.root / page).write_text(text[:place.start()] + false + text[place.end():], encoding="utf-8")
        try:
            self.assertTrue(any(page in finding and finding not in self.before for finding in self.findings()),
                            f"{page}: nobody finds that '{false}' is false; it is '{true}'")
        finally:
            (self.root / page).write_text(text, encoding="utf-8")

    def test_there_are_some_of_each_kind(self):
        self.assertGreaterEqual(sum(len(rows) for rows in FALSIFIED.values()), 40)
        for kind, rows in FALSIFIED.items():
            self.assertGreaterEqual(len(rows), 3, kind)
            self.assertTrue(all(true != false for _, true, false in rows))


if __name__ == "__main__":
    unittest.main()
