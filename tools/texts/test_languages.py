"""check-languages.py: finds each mistake in a file of texts, by its line."""

import contextlib
import io
import shutil
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from support import TOOLS, load_script

MODULE = load_script("texts/check-languages.py")
TEXTS = TOOLS.parent / "packages/texts"


class LanguagesTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-languages-")
        self.addCleanup(folder.cleanup)
        self.file = Path(folder.name) / "own.wxi"
        shutil.copyfile(TEXTS / "german.wxi", self.file)

    @staticmethod
    def check(*arguments):
        """The exit code and the lines of the script."""
        output = io.StringIO()
        with mock.patch.object(sys, "argv", ["check-languages.py", *map(str, arguments)]), contextlib.redirect_stdout(output):
            return MODULE.main(), output.getvalue().splitlines()

    def lines(self):
        return self.file.read_text(encoding="utf-8").splitlines()

    def line_of(self, name):
        """The number of the line of a text."""
        return next(number for number, line in enumerate(self.lines(), 1) if f"define {name} =" in line)

    def change(self, name, edit):
        """Replaces the line of a text by what `edit` makes of it."""
        lines = self.lines()
        lines[self.line_of(name) - 1] = edit(lines[self.line_of(name) - 1])
        self.file.write_text("\n".join(lines) + "\n", encoding="utf-8")

    def say(self, name, text):
        self.change(name, lambda line: f'{line.partition("= ")[0]}= "{text}"?><?endif?>')

    def assert_found(self, *findings):
        """Asserts that the file has exactly these findings, each (name of the text or line, finding)."""
        expected = [f"{self.file}:{place if isinstance(place, int) else self.line_of(place)}: {text}" for place, text in findings]
        self.assertEqual(self.check(self.file), (1 if expected else 0, expected))

    def test_files_of_the_project(self):
        self.assertEqual(self.check(), (0, []))

    def test_right_file(self):
        self.assert_found()

    def test_missing_text(self):
        self.change("ProgressAccount", lambda line: "")
        self.assert_found((1, "the text ProgressAccount is missing"))

    def test_unknown_text(self):
        self.change("ProgressAccount", lambda line: line + "\n" + line.replace("ProgressAccount", "ProgressAcount"))
        self.assert_found(("ProgressAcount", "the text ProgressAcount is unknown: english.wxi does not have it"))

    def test_text_twice(self):
        self.change("ProgressAccount", lambda line: line + "\n" + line)
        number = self.line_of("ProgressAccount")
        self.assert_found((number + 1, f"the text ProgressAccount is already in line {number}"))

    def test_text_that_is_not_translated(self):
        self.say("ProgressAccount", "Creating the account for the server's service")
        self.assert_found(("ProgressAccount", "the text ProgressAccount is the one of english.wxi: translate it"))

    def test_empty_text(self):
        for text in ("", " ", "Konto wird angelegt "):
            self.say("ProgressAccount", text)
            self.assert_found(("ProgressAccount", "the text ProgressAccount is empty, or begins or ends with a blank"))

    def test_long_refusal(self):
        self.say("RefuseNoSetupFolder", "DIR_SERVER" + "x" * 245)
        self.assert_found(("RefuseNoSetupFolder", "the text RefuseNoSetupFolder does not name DIR_SERVER, as that of english.wxi does"),
                          ("RefuseNoSetupFolder", f"the text RefuseNoSetupFolder names DIR_SERVER{'x' * 245}, and that of "
                                                  "english.wxi does not"))
        self.say("RefuseNoSetupFolder", "DIR_SERVER " + "x" * 244)
        self.assert_found()
        self.say("RefuseNoSetupFolder", "DIR_SERVER " + "x" * 245)
        self.assert_found(("RefuseNoSetupFolder", "the text RefuseNoSetupFolder has 256 characters, more than 255"))

    def test_names_in_a_text(self):
        for name, old, new, lost, gained in (
                ("RefuseDataName", "[ServerDataName]", "[ServerDateName]", ["[ServerDataName]"], ["[ServerDateName]"]),
                ("RefuseDataName", "[ServerDateName]", "[ServerDataName]", [], []),
                ("RefuseHelperNames", "DIR_UPG_HELPERDATA", "DIR_UPG_HELPDATA", ["DIR_UPG_HELPERDATA"], ["DIR_UPG_HELPDATA"]),
                ("RefuseHelperNames", "DIR_UPG_HELPDATA", "DIR_UPG_HELPERDATA", [], []),
                ("Notice26000", "CustomAction15.Data", "CustomAction15.Daten", ["CustomAction15.Data"], ["CustomAction15.Daten"]),
                ("Notice26000", "CustomAction15.Daten", "CustomAction15.Data", [], []),
                ("Notice27000", "$(var.ServerName)", "den Server", ["$(var.ServerName)"], [])):
            with self.subTest(new):
                self.change(name, lambda line, old=old, new=new: line.replace(old, new))
                self.assert_found(*((name, f"the text {name} does not name {each}, as that of english.wxi does") for each in lost),
                                  *((name, f"the text {name} names {each}, and that of english.wxi does not") for each in gained))

    def test_variable_outside_of_its_section(self):
        self.file.write_text("".join(line + "\n" for line in self.lines() if "ifdef var.ServerName" not in line
                                     and line.strip() != "<?endif?>"), encoding="utf-8")
        self.assert_found(*((name, f"the text {name} reads ServerName: put it between <?ifdef var.ServerName?> and <?endif?>")
                            for name in ("Notice25000", "Notice25001", "Notice27000")))

    def test_line_of_another_form(self):
        wrong = ('is not the line of one text: write <?ifndef var.NAME?><?define NAME = "TEXT"?><?endif?> with the same NAME in '
                 "both places")
        whole = self.file.read_text(encoding="utf-8")
        for old, new in (("<?ifndef var.ProgressAccount?>", "<?ifndef var.ProgressDisplay?>"), ("<?ifndef var.ProgressAccount?>", "")):
            self.file.write_text(whole, encoding="utf-8")
            self.change("ProgressAccount", lambda line, old=old, new=new: line.replace(old, new))
            self.assert_found(("ProgressAccount", wrong))

    def test_file_that_does_not_exist(self):
        with self.assertRaises(SystemExit) as caught:
            self.check("missing.wxi")
        self.assertEqual(str(caught.exception), "tools/texts/check-languages.py: missing.wxi is not a file: give a file of texts, "
                                                "such as one of packages/texts/")


if __name__ == "__main__":
    unittest.main()
