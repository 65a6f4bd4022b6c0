"""docs/authoring.md: its examples compile unchanged and keep the rules of the fragments; the pictures give the engine's own
actions the same numbers as compilers."""

import re
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

from packages.compiler import compile_source
from packages.tables import read_package
from support import TOOLS, load_script

ROOT = TOOLS.parent
EXAMPLES = load_script("kit/guide_examples.py")
GUIDE, FILES, MODELS, examples = EXAMPLES.GUIDE, EXAMPLES.FILES, EXAMPLES.MODELS, EXAMPLES.all_examples
PACKAGES = load_script("packages/make_packages.py")
TABLE = load_script("kit/action-table.py")
CHECKS = load_script("kit/kit_checks.py")
FACTS = load_script("kit/package_facts.py")

# The elements that a model has for its fragments: an example needs them too.
NEEDED = {"RegistryValue", "ServiceInstall", "ServiceControl", "InstallServices", "RemoveExistingProducts"}


def shared(root):
    """The elements of authoring that can be compared, each with its attributes and text."""
    for element in root.iter():
        tag = element.tag.rpartition("}")[2]
        key = element.get("Id") or element.get("Action") or element.get("Name") or element.get("Sequence")
        if tag in ("Wix", "Product", "Package", "MajorUpgrade", "Upgrade", "UpgradeVersion") or key is None:
            continue
        attributes = {name: value for name, value in element.attrib.items() if name not in ("Source", "Secure")}
        yield f"{tag} {key}", {**attributes, "text": " ".join((element.text or "").split())}


class CompiledTest(unittest.TestCase):
    """The tables of the compiled examples."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hx-guide-")
        cls.addClassCleanup(folder.cleanup)
        cls.packages, cls.sources = {}, {}
        library = Path(folder.name) / "hxsetup.dll"
        for file in (library.name, PACKAGES.PROGRAM):
            (library.parent / file).write_bytes(f"not really {file}\n".encode())
        for name, text in examples().items():
            package = Path(folder.name) / f"{name}.msi"
            PACKAGES.make_example(name, text, "arm64", library, package)
            cls.sources[name] = Path(folder.name) / name
            cls.sources[name].write_text(text, encoding="utf-8")
            cls.packages[name] = read_package(package)

    def rows(self, name, table):
        return self.packages[name].keyed(table)

    def test_both_are_there(self):
        self.assertEqual(sorted(self.packages), sorted(FILES))

    def test_library_and_files(self):
        for name, files in FILES.items():
            with self.subTest(name):
                self.assertEqual(list(self.rows(name, "Binary")), ["hxsetup"])
                found = {row[1].split("|")[-1] for row in self.rows(name, "File").values()}
                self.assertEqual(found, set(files))

    def test_actions_are_placed(self):
        for name, model in self.models():
            with self.subTest(name):
                actions, rows = self.rows(name, "CustomAction"), self.rows(name, "InstallExecuteSequence")
                self.assertEqual(set(actions), set(model.actions))
                for row in model.rows:
                    if row.place == "execute":
                        self.assertEqual(rows[row.action], [row.condition or None, row.number], row.action)
                calls = {action: row[2] for action, row in actions.items() if row[1] == "hxsetup"}
                self.assertGreaterEqual(len(calls), 7)
                for action, target in calls.items():
                    self.assertEqual(target, action.partition(".")[0])

    def test_call_without_a_fragment(self):
        """The piece that calls an entry point without a fragment, in the package that it is for."""
        name, piece = re.search(r"<!-- piece of (\S+) -->\n```xml\n(.*?)```\n", GUIDE.read_text(encoding="utf-8"),
                                re.DOTALL).groups()
        source = self.sources[name].with_name("more.wxs")
        source.write_text(examples()[name].replace("    <Feature", piece + "    <Feature"), encoding="utf-8")
        package = compile_source(source, [ROOT / "packages"], {"LibraryFile": "hxsetup.dll"})
        known = self.rows(name, "CustomAction")
        added = {action: row[:3] for action, row in package.keyed("CustomAction").items() if action not in known}
        call, = [action for action, row in added.items() if row[1] == "hxsetup"]
        setter, = set(added) - {call}
        # A deferred action of the library, without impersonation, whose result is ignored; and the action that sets its data.
        self.assertEqual(added[call], [1 + 64 + 1024 + 2048, "hxsetup", call.partition(".")[0]])
        self.assertEqual(added[setter][:2], [51, call])
        numbers = {action: row[1] for action, row in package.keyed("InstallExecuteSequence").items()}
        self.assertLess(numbers["CostFinalize"], numbers[setter])
        self.assertLess(numbers[setter], numbers[call])

    def test_secure_and_hidden(self):
        for name, model in self.models():
            with self.subTest(name):
                properties = self.rows(name, "Property")
                for listing, mark in (("SecureCustomProperties", "Secure"), ("MsiHiddenProperties", "Hidden")):
                    marked = {each for each, attributes in model.properties.items() if attributes.get(mark) == "yes"}
                    self.assertTrue(marked)
                    self.assertLessEqual(marked, set(properties[listing][0].split(";")))

    def test_error_texts(self):
        self.assertEqual(set(self.rows("client.wxs", "Error")), {25003})
        self.assertEqual(set(self.rows("server.wxs", "Error")), {25000, 25001, 26000, 26001, 27000})

    def test_removal_of_older_versions(self):
        for name in FILES:
            with self.subTest(name):
                rows = self.rows(name, "InstallExecuteSequence")
                self.assertGreater(int(rows["RemoveExistingProducts"][1]), int(rows["InstallFinalize"][1]))

    def test_processor(self):
        for name, package in self.packages.items():
            with self.subTest(name):
                self.assertEqual(package.summary[7], "Arm64;1033")

    def test_numbers_of_the_engine(self):
        """The numbers that the pictures give the engine's own actions."""
        for name, model in self.models():
            rows = self.rows(name, "InstallExecuteSequence")
            own = {row.action for row in model.rows}
            for action, number in TABLE.STANDARD.items():
                if action in rows and action not in own:
                    self.assertEqual(int(rows[action][1]), number, f"{name}: {action}")
            self.assertIn("InstallFinalize", rows)

    def models(self):
        fragments = FACTS.read_fragments(ROOT)
        for name, source in self.sources.items():
            yield name, FACTS.Model(source.parent / "none", source, fragments, name)


class RulesTest(unittest.TestCase):
    """The examples keep the same rules as the models."""

    def test_rules(self):
        kit = CHECKS.read_kit(ROOT)
        with tempfile.TemporaryDirectory(prefix="hx-guide-") as folder:
            for name, text in examples().items():
                source = Path(folder) / name
                source.write_text(text, encoding="utf-8")
                model = FACTS.Model(ROOT, source, kit.fragments, MODELS[name])
                mine = kit._replace(models=[model])
                with self.subTest(name):
                    found = [*CHECKS.check_secrets(mine), *CHECKS.check_secure(mine),
                             *CHECKS.check_searches(mine), *CHECKS.check_runs(mine, TABLE.SCENARIOS)]
                    found += [line for line in CHECKS.check_models(mine) if line.startswith(MODELS[name])]
                    self.assertEqual(found, [])

    def test_as_in_the_models(self):
        """Elements of an example that the model has too, by identifier, action or registry value, are the same there."""
        for name, text in examples().items():
            theirs = dict(shared(ElementTree.parse(ROOT / "packages" / MODELS[name]).getroot()))
            mine = dict(shared(ElementTree.fromstring(text)))
            self.assertGreater(len(set(mine) & set(theirs)), 10)
            needed = {key for key in theirs if key.split()[0] in NEEDED}
            self.assertTrue(needed)
            self.assertEqual(needed - set(mine), set())
            for key in sorted(set(mine) & set(theirs)):
                with self.subTest(f"{name}: {key}"):
                    known = {attribute: theirs[key].get(attribute) for attribute in mine[key]}
                    self.assertEqual(mine[key], known)

    def test_pairs(self):
        text = GUIDE.read_text(encoding="utf-8")
        pairs = re.findall(r"^\| \[(CustomAction\d+)\]\(\S+\) \| \[(CustomAction\d+)\]\(\S+\) \|", text, re.MULTILINE)
        self.assertEqual(pairs, CHECKS.PAIRS)

    def test_links(self):
        """Links between the pages lead to an existing page and heading."""
        text = GUIDE.read_text(encoding="utf-8")
        for page, heading in re.findall(r"\]\(([\w./-]*)#?([\w-]*)\)", text):
            with self.subTest(f"{page}#{heading}"):
                target = GUIDE.parent / page if page else GUIDE
                self.assertTrue(target.exists())
                if heading:
                    names = re.findall(r"^#+ (.*)$", target.read_text(encoding="utf-8"), re.MULTILINE)
                    self.assertIn(heading, [re.sub(r"[^\w -]", "", name).lower().replace(" ", "-") for name in names])


class TreeTest(unittest.TestCase):
    def test_the_kit_is_right(self):
        """The entry points, the fragments and the pages of this tree agree, and the guide is up to date."""
        result = subprocess.run([TOOLS / "kit/action-table.py"], capture_output=True, text=True, check=False)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))


if __name__ == "__main__":
    unittest.main()
