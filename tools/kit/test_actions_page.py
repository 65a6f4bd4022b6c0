"""docs/actions.md: its examples match the fragments, and compile unchanged."""

import re
import tempfile
import unittest
from pathlib import Path

from kit.package_facts import EXIT_NUMBERS
from packages.compiler import compile_source
from support import TOOLS, TreeTest, load_script

ROOT = TOOLS.parent
EXAMPLES = load_script("kit/action_examples.py")
CHECKS = load_script("kit/kit_checks.py")

# The package into which each example is put, so that it compiles.
PACKAGE_TEXT = """<?xml version="1.0" encoding="utf-8"?>
<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
  <Product Id="*" Name="Example" Manufacturer="Halvorstead" Version="1.0.0" Language="1033" Codepage="1252"
           UpgradeCode="{{D7F1B5E2-08C4-4B7D-A2F9-6C3E5D1B9A70}}">
    <Package InstallerVersion="500" Compressed="yes" InstallScope="perMachine"/>
    <Media Id="1" Cabinet="example.cab" EmbedCab="yes"/>
    {library}
    {example}
    <Directory Id="TARGETDIR" Name="SourceDir">
      <Directory Id="INSTALLDIR" Name="Example">
        <Component Id="Program" Guid="{{D7F1B5E2-08C4-4B7D-A2F9-6C3E5D1B9A71}}" Win64="yes">
          <File Id="ProgramFile" Name="program.exe" Source="program.exe" KeyPath="yes"/>
        </Component>
      </Directory>
    </Directory>
    <Feature Id="All" Level="1"><ComponentRef Id="Program"/></Feature>
  </Product>
</Wix>
"""


def elements_of(text):
    """The actions and places in a piece of authoring: the tag, name, attributes and content of each."""
    text = re.sub(r"<!--.*?-->", "", text, flags=re.DOTALL)
    for tag, attributes, content in re.findall(r"<(CustomAction|Custom)\s([^<>]*?)(?:/>|>([^<]*)</Custom>)", text):
        attributes = dict(re.findall(r'(\w+)="([^"]*)"', attributes))
        yield tag, attributes.get("Id") or attributes.get("Action"), attributes, content.strip()


def defined(fragments):
    """The values of the compiler's variables: those that a package defines, and the defaults of the fragments."""
    values = {"LibraryFile": "hxsetup.dll", "DisplayVersion": "1.0.0"}
    for fragment in fragments.values():
        values.update(re.findall(r'<\?define\s+(\w+)\s*=\s*"?(.*?)"?\s*\?>', fragment.text))
    return values


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.kit = CHECKS.read_kit(ROOT)
        cls.page = "\n".join(page.read_text(encoding="utf-8") for page in EXAMPLES.action_pages(ROOT))
        cls.blocks = list(EXAMPLES.blocks(cls.page))
        # The elements of the fragments and the models for each action and each place.
        cls.known = {"CustomAction": {}, "Custom": {}}
        files = [*cls.kit.fragments.values(), *(model.files[0] for model in cls.kit.models)]
        for file in files:
            for tag, key, attributes, content in elements_of(file.text):
                cls.known[tag].setdefault(key, []).append((attributes, content))
        assert cls.known["Custom"]["SetFirewallData"] and cls.known["CustomAction"]["CustomAction5"]

    def test_each_entry_point_has_its_example(self):
        names = [name for _, name, _, _ in EXAMPLES.PART.findall(self.page)]
        self.assertEqual(sorted(names), sorted(["library", *self.kit.exported]))
        for heading, name in re.findall(r"^## (CustomAction\d+)$|<!-- generated: (CustomAction\d+) -->", self.page,
                                        re.MULTILINE):
            section = heading or section
            self.assertEqual(name or section, section)

    def test_they_match_the_fragments(self):
        self.assertEqual(EXAMPLES.examples_findings(self.kit, ROOT, False), [])

    def test_examples_written_by_hand(self):
        """An action of an example that a fragment has too is the same in both, even if the example is written by hand."""
        for heading, text in self.blocks:
            with self.subTest(heading):
                self.assertNotIn("UPGRADINGPRODUCTCODE", text)
                self.assertEqual(set(re.findall(r'<Binary Id="(\w+)"|BinaryKey="(\w+)"', text)) -
                                 {("hxsetup", ""), ("", "hxsetup")}, set())
                for attributes in re.findall(r"<CustomAction ([^>]*)/>", text):
                    if "DllEntry" in attributes:
                        name, entry = (re.search(rf'{key}="([^"]*)"', attributes)[1] for key in ("Id", "DllEntry"))
                        self.assertEqual(name.partition(".")[0], entry)
                        self.assertRegex(attributes, r'Return="(check|ignore)"')
                for tag, key, attributes, content in elements_of(text):
                    if key in self.known[tag]:
                        self.assertIn((attributes, content), self.known[tag][key], f"{tag} {key}")

    def test_compiled(self):
        """Each example in its own package: its actions and places are in the tables."""
        values = defined(self.kit.fragments)
        self.assertGreater(len(self.blocks), len(self.kit.exported))
        with tempfile.TemporaryDirectory(prefix="hx-examples-") as folder:
            for number, (heading, example) in enumerate(self.blocks):
                with self.subTest(heading):
                    library = "" if "<Binary" in example else "<?include library.wxi?>"
                    source = Path(folder) / f"{number}.wxs"
                    source.write_text(PACKAGE_TEXT.format(library=library, example=example), encoding="utf-8")
                    used = {"LibraryFile", *re.findall(r"\$\(var\.(\w+)\)", example)}
                    variables = {name: values[name] for name in used}
                    self.check_tables(compile_source(source, [ROOT / "packages"], variables), example)

    def check_tables(self, package, example):
        self.assertEqual(list(package.keyed("Binary")), ["hxsetup"])
        named = re.findall(r'<CustomAction Id="([^"]*)"', example)
        actions = {}
        if named:
            # library.wxi has its own action, which no example shows.
            own = self.kit.fragments["library.wxi"].actions
            actions = {name: row for name, row in package.keyed("CustomAction").items() if name not in own}
        self.assertEqual(set(actions), set(named))
        for name, row in actions.items():
            if row[1] == "hxsetup":
                self.assertEqual(row[2], name.partition(".")[0])
        for sequence in ("InstallUISequence", "InstallExecuteSequence"):
            block = re.search(rf"<{sequence}>(.*?)</{sequence}>", example, re.DOTALL)
            rows = re.findall(r'<Custom Action="([^"]*)"\s+(?:Sequence|OnExit)="(\w+)"(?:/>|>([^<]*)<)',
                              block[1] if block else "")
            self.assertEqual(block is None, not rows)
            table = package.keyed(sequence)
            for name, place, condition in rows:
                place = EXIT_NUMBERS.get(place) or int(place)
                condition = condition.replace("&gt;", ">").replace("&lt;", "<")
                self.assertEqual(table[name], [condition or None, place], name)


class FindingsTest(TreeTest):
    """action-table.py finds an example that differs from the fragments, and corrects it."""

    script = "kit/action-table.py"

    INDEX, PAGE = "docs/actions.md", "docs/actions/some.md"
    FRAGMENT = """<!--
  CustomAction5, CustomAction16: the list.
-->
<Include>
  <!-- What it reads. -->
  <Property Id="PROP_LIST" Secure="yes"/>
  <Property Id="PROP_OTHER" Secure="yes"/>
  <CustomAction Id="CustomAction5" BinaryKey="hxsetup" DllEntry="CustomAction5"
                Return="ignore"/>
  <CustomAction Id="SetBack" Property="CustomAction16.Back" Value="&quot;[PROP_OTHER]&quot; $(var.Name)"/>
  <CustomAction Id="CustomAction16.Back" BinaryKey="hxsetup" DllEntry="CustomAction16" Execute="rollback"/>
  <InstallExecuteSequence>
    <Custom Action="SetBack" Sequence="1500"/>
    <!-- A word on it. -->
    <Custom Action="CustomAction5"
            Sequence="6620">PROP_LIST &lt;&gt; "1"</Custom>
    <Custom Action="CustomAction16.Back" Sequence="1600"/>
  </InstallExecuteSequence>
</Include>
"""
    LIST_EXAMPLE = """<!-- packages/list.wxi -->
<Property Id="PROP_LIST" Secure="yes"/>
<CustomAction Id="CustomAction5" BinaryKey="hxsetup" DllEntry="CustomAction5"
              Return="ignore"/>
<InstallExecuteSequence>
  <Custom Action="CustomAction5"
          Sequence="6620">PROP_LIST &lt;&gt; "1"</Custom>
</InstallExecuteSequence>
"""
    BACK_EXAMPLE = """<!-- packages/list.wxi -->
<CustomAction Id="SetBack" Property="CustomAction16.Back" Value="&quot;[PROP_OTHER]&quot; $(var.Name)"/>
<CustomAction Id="CustomAction16.Back" BinaryKey="hxsetup" DllEntry="CustomAction16" Execute="rollback"/>
<InstallExecuteSequence>
  <Custom Action="SetBack" Sequence="1500"/>
  <Custom Action="CustomAction16.Back" Sequence="1600"/>
</InstallExecuteSequence>
"""

    @staticmethod
    def page(examples):
        return "# Actions\n" + "".join(
            f"\n## {name}\n\n| | |\n|---|---|\n| Reads | {reads} |\n\n<!-- generated: {name} -->\n{text}"
            f"<!-- end of {name} -->\n\nA word after it.\n"
            for name, (reads, text) in examples.items())

    def findings(self, examples, write=False):
        page = self.page(examples)
        self.write({self.INDEX: "# Actions\n", self.PAGE: page, "packages/list.wxi": self.FRAGMENT, "src/frame/entry_points.def": ""})
        found = EXAMPLES.examples_findings(CHECKS.read_kit(self.root), self.root, write)
        return found, (self.root / self.PAGE).read_text(encoding="utf-8") == page

    def right(self):
        return {"CustomAction5": ("`PROP_LIST`", f"```xml\n{self.LIST_EXAMPLE}```\n"),
                "CustomAction16": ("nothing", f"```xml\n{self.BACK_EXAMPLE}```\n")}

    def test_right_ones(self):
        self.assertEqual(self.findings(self.right()), ([], True))

    def test_a_wrong_one(self):
        wrong = {name: (reads, text.replace("6620", "6610")) for name, (reads, text) in self.right().items()}
        self.assertEqual(self.findings(wrong), ([
            f"{self.PAGE}: the example 'CustomAction5' is not what the fragments have: tools/kit/action-table.py --write"],
            True))

    def test_written(self):
        empty = {name: (reads, "") for name, (reads, _) in self.right().items()}
        self.assertEqual(self.findings(empty, write=True), ([], False))
        self.assertEqual((self.root / self.PAGE).read_text(encoding="utf-8"), self.page(self.right()))

    def test_unknown_entry_point(self):
        page = self.page(self.right()).replace("end of CustomAction5 ", "end of CustomAction6 ").replace(
            "generated: CustomAction5 ", "generated: CustomAction6 ")
        self.write({self.INDEX: "# Actions\n", self.PAGE: page, "packages/list.wxi": self.FRAGMENT, "src/frame/entry_points.def": ""})
        self.assertEqual(EXAMPLES.examples_findings(CHECKS.read_kit(self.root), self.root, True),
                         [f"{self.PAGE}: there is no entry point 'CustomAction6'",
                          f"{self.PAGE}: CustomAction5 has no example: end its section with <!-- generated: CustomAction5 --> "
                          "and <!-- end of CustomAction5 -->, and run tools/kit/action-table.py --write"])


if __name__ == "__main__":
    unittest.main()
