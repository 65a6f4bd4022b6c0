"""The texts of the fragments in packages of other languages: a package that names a file of texts shows no other text of the
fragments, and the compiler names a text that is missing."""

import re
import shutil
import tempfile
import unittest
from pathlib import Path

from kit.package_facts import read_fragments
from kit.texts import default_file, language_files, read_texts
from packages.compiler import CompilerError, compile_source
from packages.tables import read_package
from packages.writer import Files, write_package
from support import TOOLS

ROOT = TOOLS.parent
FRAGMENTS = ROOT / "packages"
GERMAN = FRAGMENTS / "texts/german.wxi"

# One model of each kind, with the name of its server in the notices.
MODELS = {"client/client.wxs": None, "server/server.wxs": "Vantor server", "other/other.wxs": "Brackwell gauge",
          "other/client.wxs": None}
# The texts for the progress page that a model has for its own actions.
OWN = {"server/server.wxs": ["ConvertDatabase"]}

VARIABLES = {"Version": "1.2.3", "DisplayVersion": "1.2.3 (x64)", "Processor": "x64", "LibraryFile": "hxsetup.dll",
             "ProductCode": "{11111111-2222-3333-4444-555555555555}", "AgentFile": "a.exe", "ProgramFile": "p.exe",
             "TrackingFile": "t.dll"}

# The type of an action that ends the installation with a text.
ERROR_ACTION = 19

PACKAGE = """<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
  <Product Id="*" Name="Sample" Manufacturer="Maker" Version="1.2.3" Language="1031" Codepage="1252"
           UpgradeCode="{{11111111-2222-3333-4444-555555555555}}">
    <Package InstallerVersion="500" Compressed="yes" InstallScope="perMachine"/>
    <Media Id="1" Cabinet="files.cab" EmbedCab="yes"/>
    {defines}
    <?include library.wxi?>
    <?include user_interface.wxi?>
    <Directory Id="TARGETDIR" Name="SourceDir">
      <Component Id="One" Guid="{{11111111-2222-3333-4444-000000000001}}"><File Source="one.txt" KeyPath="yes"/></Component>
    </Directory>
    <Feature Id="All"><ComponentRef Id="One"/></Feature>
  </Product>
</Wix>
"""


def shown(database):
    """The texts of a package that the fragments can have: {(table, key): text}."""
    found = {("Error", row["Error"]): row["Message"] for row in database.rows("Error")}
    found |= {("ActionText", row["Action"]): row["Description"] for row in database.rows("ActionText")}
    found |= {("CustomAction", row["Action"]): row["Target"] for row in database.rows("CustomAction")
              if row["Type"] & 0x3F == ERROR_ACTION}
    return found


class LanguagesTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-languages-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    @staticmethod
    def compile_model(name, **variables):
        return compile_source(FRAGMENTS / name, [FRAGMENTS], {**VARIABLES, **variables})

    def compile(self, defines="", files=(), **variables):
        """A small package, with `files` next to its source, each (name, text)."""
        (self.folder / "sample.wxs").write_text(PACKAGE.format(defines=defines), encoding="utf-8")
        for name, text in files:
            (self.folder / name).write_text(text, encoding="utf-8")
        return compile_source(self.folder / "sample.wxs", [FRAGMENTS], {"LibraryFile": "hxsetup.dll", **variables})

    @staticmethod
    def texts_of(path, server):
        """{name: text} of a language's file, with the server's name."""
        return {text.name: text.text.replace("$(var.ServerName)", server or "$(var.ServerName)") for text in read_texts(path)}

    def test_models_in_english(self):
        """Each text is the one of the default language, and each action of the fragments has one for the progress page."""
        fragments = read_fragments(ROOT)
        actions = {action for fragment in fragments.values() for action in fragment.actions}
        for name, server in MODELS.items():
            with self.subTest(name):
                database = self.compile_model(name)
                known = set(self.texts_of(default_file(ROOT), server).values())
                found = shown(database)
                own = {("ActionText", action) for action in OWN.get(name, [])}
                self.assertLessEqual(own, set(found))
                self.assertEqual({key for key, text in found.items() if text not in known}, own)
                used = {row["Action"] for row in database.rows("CustomAction")} & actions
                self.assertEqual({key[1] for key in found if key[0] == "ActionText"}, used | set(OWN.get(name, [])))
                self.assertTrue(used)

    def test_models_in_german(self):
        """The same rows as in English, none of them with a text of English."""
        for name, server in MODELS.items():
            with self.subTest(name):
                english, german = shown(self.compile_model(name)), shown(self.compile_model(name, TextsFile="german.wxi"))
                self.assertEqual(english.keys(), german.keys())
                names = {text: key for key, text in self.texts_of(default_file(ROOT), server).items()}
                texts = self.texts_of(GERMAN, server)
                for key in english:
                    if key[1] not in OWN.get(name, []):
                        self.assertEqual(german[key], texts[names[english[key]]], key)
                        self.assertNotEqual(german[key], english[key])

    def test_finished_package_in_german(self):
        """The code page of the package has the letters."""
        database = self.compile(TextsFile="german.wxi", files=[("one.txt", "one"), ("hxsetup.dll", "library")])
        write_package(database, "x64", Files([self.folder]), self.folder / "sample.msi")
        written = read_package(self.folder / "sample.msi")
        self.assertEqual(written.codepage, 1252)
        self.assertEqual(shown(written)["ActionText", "RefuseNoAdministrator"], "Voraussetzungen der Installation werden gepr\u00fcft")
        self.assertEqual(shown(written), shown(database))

    def test_each_file_has_every_text(self):
        files = language_files(ROOT)
        self.assertIn(GERMAN, files)
        for path in files:
            self.assertEqual([text.name for text in read_texts(path)], [text.name for text in read_texts(default_file(ROOT))])

    def test_own_language(self):
        """A file next to the source, or in a folder that the compiler searches."""
        text = re.sub(r'(define (\w+) = )"[^?]*"', r'\1"Text \2"', default_file(ROOT).read_text(encoding="utf-8"))
        for variables, defines in (({}, '<?define TextsFile = "$(sys.SOURCEFILEDIR)own.wxi"?>'),
                                   ({"TextsFile": "own.wxi"}, "")):
            with self.subTest(defines):
                database = self.compile(defines, [("own.wxi", text)], **variables)
                self.assertEqual(shown(database), {
                    ("ActionText", "CustomAction2"): "Text ProgressDisplay",
                    ("ActionText", "RefuseNoAdministrator"): "Text ProgressChecking",
                    ("CustomAction", "RefuseNoAdministrator"): "Text RefuseNoAdministrator"})

    def test_fragments_by_their_folder(self):
        """Without a folder for included files: each file finds the others next to itself."""
        shutil.copytree(FRAGMENTS / "texts", self.folder / "parts/texts")
        for name in ("library.wxi", "user_interface.wxi"):
            shutil.copyfile(FRAGMENTS / name, self.folder / "parts" / name)
        (self.folder / "sample.wxs").write_text(PACKAGE.format(defines="").replace("<?include ", "<?include parts/"))
        for variables, file in (({}, default_file(ROOT)), ({"TextsFile": "german.wxi"}, GERMAN)):
            database = compile_source(self.folder / "sample.wxs", [], {"LibraryFile": "hxsetup.dll", **variables})
            self.assertEqual(shown(database)["ActionText", "CustomAction2"], self.texts_of(file, None)["ProgressDisplay"])

    def test_one_text_of_the_package(self):
        database = self.compile('<?define ProgressDisplay = "Wechsel &amp; "mehr" \u00fc"?>', TextsFile="german.wxi")
        found = shown(database)
        self.assertEqual(found["ActionText", "CustomAction2"], 'Wechsel &amp; "mehr" \u00fc')
        self.assertEqual(found["ActionText", "RefuseNoAdministrator"],
                         self.texts_of(GERMAN, None)["ProgressChecking"])

    def test_text_that_is_missing(self):
        text = "".join(line for line in GERMAN.read_text(encoding="utf-8").splitlines(True) if "ProgressDisplay" not in line)
        with self.assertRaises(CompilerError) as caught:
            self.compile(files=[("own.wxi", text)], TextsFile="own.wxi")
        (place, code, message), = caught.exception.messages
        self.assertRegex(place, r"/user_interface\.wxi:\d+$")
        self.assertEqual(code, "CNDL0150")
        self.assertTrue(message.startswith("Undefined preprocessor variable '$(var.ProgressDisplay)'."), message)

    def test_unknown_file(self):
        with self.assertRaises(CompilerError) as caught:
            self.compile(TextsFile="germam.wxi")
        (place, code, message), = caught.exception.messages
        self.assertRegex(place, r"/texts/texts\.wxi:\d+$")
        self.assertEqual(code, "CNDL0103")
        self.assertTrue(message.startswith("The system cannot find the file 'germam.wxi' with type 'include'."), message)


if __name__ == "__main__":
    unittest.main()
