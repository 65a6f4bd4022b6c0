"""authoring_v4.py: each change of the authoring for version 4 and later has its exact text, what is not known is refused, a
result with something of version 3 in it is found, and the page has the same table."""

import re
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from unittest import mock

from kit import authoring_v4 as v4
from support import TOOLS

ROOT = TOOLS.parent
PAGE = (ROOT / v4.PAGE).read_text(encoding="utf-8")

PRODUCT = """<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
  <Product Id="*" Name="One" Manufacturer="Two" Version="1.0.0"
           Language="1033">
    <Package InstallerVersion="500"/>
{}  </Product>
</Wix>
"""
PACKAGE = """<Wix xmlns="http://wixtoolset.org/schemas/v4/wxs">
  <Package ProductCode="*" Name="One" Manufacturer="Two" Version="1.0.0"
           Language="1033"
           InstallerVersion="500">
{}  </Package>
</Wix>
"""
INCLUDE = "<Include>\n{}</Include>\n"
NEW_INCLUDE = '<Include xmlns="http://wixtoolset.org/schemas/v4/wxs">\n{}</Include>\n'


def product(text):
    return PRODUCT.format(text)


def package(text):
    return PACKAGE.format(text)


def include(text):
    return INCLUDE.format(text)


def new_include(text):
    return NEW_INCLUDE.format(text)


def sequence(row, make):
    return make(f"  <InstallExecuteSequence>\n    {row}\n  </InstallExecuteSequence>\n")


def standard_directory(name):
    return (product(f'    <Directory Id="TARGETDIR" Name="SourceDir">\n      <Directory Id="{name}">\n'
                    '        <Directory Id="DIR_ONE" Name="One"/>\n      </Directory>\n    </Directory>\n'),
            package(f'      <StandardDirectory Id="{name}">\n        <Directory Id="DIR_ONE" Name="One"/>\n'
                    "      </StandardDirectory>\n"))


DIRECTORY = '    <Directory Id="DIR_ONE" Name="One">\n      {}\n    </Directory>\n'
FOLDER = DIRECTORY.format('<Component Id="One" Guid="{{0}}"><CreateFolder>\n        {}\n      </CreateFolder></Component>')

# For each construct of CHANGES: authoring that has it, and the exact result.
EXAMPLES = {
    'Wix/@xmlns="http://schemas.microsoft.com/wix/2006/wi"': (product(""), package("")),
    "Include[not(@xmlns)]": (include(""), new_include("")),
    "Product": (product("    <UI/>\n"), package("    <UI/>\n")),
    "Product/@Id": (product("").replace('"*"', '"$(var.Code)"'), package("").replace('"*"', '"$(var.Code)"')),
    "Product/Package": (
        product("").replace('"500"', '"500"\n             Compressed="yes"'),
        package("").replace('"500"', '"500" Compressed="yes"')),
    "Package/@InstallScope": (
        product("").replace('"500"', '"500" InstallScope="perMachine"'),
        package("").replace('"500"', '"500" Scope="perMachine"')),
    "Package/@Description": (
        product("").replace('"500"', '"500"\n             Description="One &amp; two"'),
        package('    <SummaryInformation Description="One &amp; two"/>\n')),
    "Product/Condition": (
        product('    <Condition Message="No.">A</Condition>\n'),
        package('    <Launch Message="No." Condition="A"/>\n')),
    "Product/Condition/@Message": (
        product('    <Condition\n        Message=\'Not "now".\'>A</Condition>\n'),
        package('    <Launch\n        Message=\'Not "now".\' Condition="A"/>\n')),
    "Product/Condition/text()": (
        product('    <Condition Message="No.">\n      A = "1"\n      OR B\n    </Condition>\n'),
        package('    <Launch Message="No." Condition=\'A = "1" OR B\'/>\n')),
    'RegistrySearch/@Win64="yes"': (
        include('  <Property Id="ONE">\n    <RegistrySearch Id="S" Root="HKLM" Key="K" Win64="yes" Type="raw"/>\n'
                "  </Property>\n"),
        new_include('  <Property Id="ONE">\n    <RegistrySearch Id="S" Root="HKLM" Key="K" Bitness="always64" Type="raw"/>\n'
                    "  </Property>\n")),
    "CustomAction/@BinaryKey": (
        include('  <CustomAction Id="CustomAction5" BinaryKey="hxsetup" DllEntry="CustomAction5"\n    Return="ignore"/>\n'),
        new_include('  <CustomAction Id="CustomAction5" BinaryRef="hxsetup" DllEntry="CustomAction5"\n'
                    '    Return="ignore"/>\n')),
    "Custom/text()": (
        sequence('<Custom Action="A" Sequence="10">NOT (REMOVE ~= "ALL") AND A &lt;&gt; B</Custom>', include),
        sequence('<Custom Action="A" Sequence="10" Condition=\'NOT (REMOVE ~= "ALL") AND A &lt;&gt; B\'/>', new_include)),
    "InstallExecute/text()": (
        sequence('<InstallExecute Sequence="2050">A</InstallExecute>', include),
        sequence('<InstallExecute Sequence="2050" Condition="A"/>', new_include)),
    "InstallExecuteAgain/text()": (
        sequence('<InstallExecuteAgain Sequence="6570">A</InstallExecuteAgain>', include),
        sequence('<InstallExecuteAgain Sequence="6570" Condition="A"/>', new_include)),
    "InstallServices/text()": (
        sequence('<InstallServices Sequence="5800">NOT A</InstallServices>', include),
        sequence('<InstallServices Sequence="5800" Condition="NOT A"/>', new_include)),
    "RemoveExistingProducts/text()": (
        sequence('<RemoveExistingProducts Sequence="6601">A</RemoveExistingProducts>', include),
        sequence('<RemoveExistingProducts Sequence="6601" Condition="A"/>', new_include)),
    "Error/text()": (
        include('  <UI>\n    <Error Id="25003">It\'s $(var.One).  Use "two".</Error>\n  </UI>\n'),
        new_include('  <UI>\n    <Error Id="25003" Message="It\'s $(var.One).  Use &quot;two&quot;."/>\n  </UI>\n')),
    "ProgressText/text()": (
        include('  <UI>\n    <ProgressText Action="A" Template="[1]">Doing it</ProgressText>\n  </UI>\n'),
        new_include('  <UI>\n    <ProgressText Action="A" Template="[1]" Message="Doing it"/>\n  </UI>\n')),
    'Directory/@Id="TARGETDIR"': (
        product('    <!-- One. -->\n    <Directory Id="TARGETDIR" Name="SourceDir">\n      <!-- Two. -->\n'
                '      <Directory Id="DIR_ONE" Name="One"/>\n    </Directory>\n'),
        package('    <!-- One. -->\n      <!-- Two. -->\n      <Directory Id="DIR_ONE" Name="One"/>\n')),
    **{f'Directory/@Id="{name}"': standard_directory(name)
       for name in ("CommonAppDataFolder", "ProgramFiles64Folder", "System64Folder")},
    'Component/@Win64="yes"': (
        product(DIRECTORY.format('<Component Id="One" Guid="{0}" Win64="yes" Permanent="yes"/>')),
        package(DIRECTORY.format('<Component Id="One" Guid="{0}" Bitness="always64" Permanent="yes"/>'))),
    "PermissionEx/Condition": (
        product(FOLDER.format('<PermissionEx Sddl="O:BA"><Condition>NOT Installed</Condition></PermissionEx>')),
        package(FOLDER.format('<PermissionEx Sddl="O:BA" Condition="NOT Installed"/>'))),
    "<?error ... -dNAME=VALUE?>": (
        include("  <?error Give the compiler the path: -dOne=PATH?>\n"),
        new_include("  <?error Give the compiler the path: -d One=PATH?>\n")),
}


def convert(text):
    return v4.convert(text, "a.wxi")


class ChangesTest(unittest.TestCase):
    def test_each_change(self):
        for form, (old, new) in EXAMPLES.items():
            with self.subTest(form):
                self.assertEqual(convert(old), new)
                self.assertEqual(list(v4.findings(new, "a.wxi")), [])

    def test_each_change_has_an_example(self):
        self.assertEqual(set(EXAMPLES), set(v4.CHANGES))
        for form, (old, _) in EXAMPLES.items():
            forms = {found for _, found in v4.Document(old, "a.wxi").forms()}
            self.assertIn(form, forms)

    def test_the_rest_stays(self):
        """Comments, instructions, spaces and line ends, and elements without a text."""
        for text in ("  <!-- Win64=\"yes\" <Custom>A</Custom> $(env.A) -->\n",
                     '  <?ifdef var.A?><?define B = "$(var.A)"?><?else?>\n  <?if $(var.A) = "b" or $(var.A)="B"?><?endif?>\n'
                     "  <?endif?>\n  <?include one.wxi?>\n  <?foreach C in a;b?>\n  <?endforeach?>\n",
                     '  <InstallUISequence>\n    <Custom  Action="A"   Sequence="1540" />\n  </InstallUISequence  >\n',
                     '  <Property Id="A" Value="ü $(var.A)[B]&lt;"\n\t  Secure="yes"></Property>\r\n'):
            with self.subTest(text):
                self.assertEqual(convert(include(text)), new_include(text))

    def test_comment_of_the_inner_package(self):
        """It speaks of attributes that are now in the outer element."""
        old = product("").replace("    <Package ", "    <!-- One.\n      Two. -->\n    <Package ")
        new = package("").replace("  <Package ", "  <!-- One.\n    Two. -->\n  <Package ")
        self.assertEqual(convert(old), new)

    def test_other_text_before_the_inner_package(self):
        for text in ("    <UI/>\n", "    <!-- One. -->\n    <UI/>\n", "    <?define A = \"b\"?>\n"):
            old = product("").replace("    <Package ", f"{text}    <Package ")
            self.assertEqual(convert(old), package(text))

    def test_both_quotation_marks(self):
        row = '<Custom Action="A">A = "it\'s"</Custom>'
        self.assertEqual(convert(sequence(row, include)),
                         sequence('<Custom Action="A" Condition="A = &quot;it\'s&quot;"/>', new_include))


# What the messages say of texts and elements that are known.
LINE_BREAKS = ("the text of Error has line breaks, tabs, or blanks at an end, which an attribute loses. Write it in one "
               "line.")
COMMENT = ("the text of Error has a comment, an instruction or CDATA in it, which an attribute cannot have. Move it out of "
           "the element.")
PERMISSIONS = ("PermissionEx must have nothing in it but one condition with a text, because it becomes one tag. Leave the "
               "rest out.")
ROOT_FOLDER = ("TARGETDIR must be in Product and have only directories in it, because version 4 and later leave it out. "
               "Move what else it has into a directory with a name.")
TWO_IN_ONE = "Product must have exactly one Package, of one tag, because the two become one element"


class RefusedTest(unittest.TestCase):
    def assert_refused(self, text, line, what):
        with self.assertRaises(v4.Unknown) as caught:
            convert(text)
        self.assertEqual(str(caught.exception).partition(" is not in the tables")[0], f"a.wxi:{line}: {what}")

    def test_message(self):
        with self.assertRaises(v4.Unknown) as caught:
            convert(include("  <Icon/>\n"))
        self.assertEqual(str(caught.exception),
                         "a.wxi:2: Icon is not in the tables of tools/kit/authoring_v4.py. Find out what version 4 and "
                         "later make of it. Then add it to ELEMENTS if nothing changes, or to CHANGES and to "
                         "docs/authoring-v4.md.")

    def test_elements_and_attributes(self):
        for text, line, what in (
                (include('  <UI>\n    <Dialog Id="A"/>\n  </UI>\n'), 3, "Dialog"),
                (include('  <Component Id="A"/>\n'), 2, "Component in Include"),
                (include("  <Product/>\n"), 2, "Product in Include"),
                (include('  <Property Id="A"\n    Admin="yes"/>\n'), 2, "Property/@Admin"),
                (include('  <Property Id="A">text</Property>\n'), 2, "a text in Property"),
                (include('  <util:A xmlns:util="b"/>\n'), 2, "util:A"),
                (include('  <Condition Message="A">B</Condition>\n'), 2, "Condition in Include"),
                (product(DIRECTORY.format('<Component Id="A" Win64="no"/>')), 6, 'Component/@Win64="no"'),
                (product(DIRECTORY.format('<Component Id="A" Win64="$(var.A)"/>')), 6, 'Component/@Win64="$(var.A)"'),
                (product(DIRECTORY.format('<Component Id="A">\n<Condition>B</Condition></Component>')), 7,
                 "Condition in Component"),
                (product('    <Directory Id="TARGETDIR" Name="SourceDir">\n<Component Id="A"/></Directory>\n'), 5,
                 ROOT_FOLDER),
                (product(DIRECTORY.format('<Directory Id="TARGETDIR" Name="SourceDir"/>')), 6, ROOT_FOLDER),
                (product('    <Directory Id="TARGETDIR" Name="A"><Directory Id="WindowsFolder"/></Directory>\n'), 5,
                 "the standard directory WindowsFolder"),
                (product('    <Directory Id="System64Folder"/>\n'), 5,
                 "System64Folder is not directly in TARGETDIR, but StandardDirectory must be directly in Package. Move it."),
                (product('    <Directory Id="TARGETDIR">\n<Directory Id="System64Folder" Name="A"/></Directory>\n'), 6,
                 "System64Folder has attributes that StandardDirectory does not have. Leave them out."),
                (product("").replace('    <Package InstallerVersion="500"/>\n', ""), 2,
                 TWO_IN_ONE),
                (product(FOLDER.format('<PermissionEx Sddl="A">\n<Condition/></PermissionEx>')), 8,
                 PERMISSIONS),
                (product("    <Package/>\n"), 2, TWO_IN_ONE),
                (product("").replace('"500"/>', '"500">\n<!-- A --></Package>'), 2,
                 TWO_IN_ONE),
                (product(FOLDER.format('<PermissionEx Sddl="A"><Condition>B</Condition><Condition>C</Condition>'
                                       "</PermissionEx>")), 7,
                 PERMISSIONS),
                (product(FOLDER.format('<PermissionEx Sddl="A"><!-- B --><Condition>C</Condition></PermissionEx>')), 7,
                 PERMISSIONS),
                (include('  <Property Id="A" xmlns="b"/>\n'), 2, "Property/@xmlns"),
                (sequence('<Custom Action="A">B<Custom/></Custom>', include), 3, "Custom in Custom"),
                (product(FOLDER.format('<PermissionEx Sddl="A"><Condition Message="B">C</Condition></PermissionEx>')), 7,
                 "Condition/@Message")):
            with self.subTest(what):
                self.assert_refused(text, line, what)

    def test_namespaces(self):
        self.assert_refused("<Wix/>", 1, "Wix with the namespace none")
        self.assert_refused('<Wix xmlns="other"/>', 1, "Wix with the namespace other")
        self.assert_refused('<Include xmlns="http://schemas.microsoft.com/wix/2006/wi"/>', 1,
                            "Include with the namespace http://schemas.microsoft.com/wix/2006/wi")
        self.assert_refused(package(""), 1, "Wix with the namespace http://wixtoolset.org/schemas/v4/wxs")

    def test_texts_that_an_attribute_cannot_have(self):
        for text, what in (("A\n  B", LINE_BREAKS),
                           (" A", LINE_BREAKS),
                           ("A<!-- B -->", COMMENT),
                           ("A<?include b.wxi?>", COMMENT),
                           ("<![CDATA[A]]>", COMMENT)):
            with self.subTest(text):
                self.assert_refused(include(f'  <UI>\n    <Error Id="1">{text}</Error>\n  </UI>\n'), 3, what)

    def test_instructions_and_variables(self):
        self.assert_refused(include("  <?pragma A?>\n"), 2, "the instruction <?pragma?>")
        for variable in ("$(env.A)", "$(sys.CURRENTDIR)", "$(fun.AutoVersion(1.0)", "!(bind.property.A)", "!(wix.A)"):
            with self.subTest(variable):
                self.assert_refused(include(f'  <Property Id="A"\n    Value="{variable}"/>\n'), 3,
                                    f"the variable {variable}")
        self.assertEqual(convert(include('  <Property Id="$(A)" Value="!(loc.B)"/>\n')),
                         new_include('  <Property Id="$(A)" Value="!(loc.B)"/>\n'))

    def test_not_xml(self):
        with self.assertRaises(v4.Unknown) as caught:
            convert("<Include>\n<UI>\n</Include>")
        self.assertEqual(str(caught.exception), "a.wxi:3: this is not XML: mismatched tag")
        self.assert_refused("<!DOCTYPE Include>\n<Include/>", 1, "<!DOCTYPE>")


class FindingsTest(unittest.TestCase):
    """The check of the results finds what is of version 3."""

    def test_each_old_form(self):
        for form, (old, new) in EXAMPLES.items():
            with self.subTest(form):
                found = "\n".join(v4.findings(old, "a.wxi"))
                then = f"Version 4 and later have {v4.CHANGES[form]}." if v4.CHANGES[form] else "Leave it out."
                self.assertRegex(found, rf"(?m)^a\.wxi:\d+: {re.escape(form)} is of version 3\. {re.escape(then)}$")

    def test_one_old_form_left_in_a_fragment(self):
        text = (ROOT / "packages/firewall.wxi").read_text(encoding="utf-8")
        new = convert(text)
        self.assertEqual(list(v4.findings(new, "a.wxi")), [])
        for right, wrong, what in (
                ('BinaryRef="hxsetup" DllEntry="CustomAction19"', 'BinaryKey="hxsetup" DllEntry="CustomAction19"',
                 "CustomAction/@BinaryKey is of version 3. Version 4 and later have CustomAction/@BinaryRef."),
                (' Condition=\'NOT (REMOVE ~= "ALL")\'/>', '>NOT (REMOVE ~= "ALL")</Custom>',
                 "Custom/text() is of version 3. Version 4 and later have Custom/@Condition."),
                (' xmlns="http://wixtoolset.org/schemas/v4/wxs"', "",
                 'Include[not(@xmlns)] is of version 3. Version 4 and later have '
                 'Include/@xmlns="http://wixtoolset.org/schemas/v4/wxs".')):
            with self.subTest(what):
                self.assertEqual(new.count(right), 1)
                found = list(v4.findings(new.replace(right, wrong), "a.wxi"))
                line = new.count("\n", 0, new.index(right)) + 1
                self.assertEqual(found[0], f"a.wxi:{line}: {what}")

    def test_of_neither(self):
        self.assertEqual(list(v4.findings(new_include('  <Property Id="A" Sekure="yes"/>\n  <Icon/>\n'), "a.wxi")),
                         ["a.wxi:2: Property/@Sekure is not known in version 4 and later",
                          "a.wxi:3: Icon is not known in version 4 and later"])
        self.assertEqual(list(v4.findings(new_include('  <Property Id="A">b</Property>\n  <Condition/>\n'), "a.wxi")),
                         ["a.wxi:2: Property has a text, which version 4 and later do not have",
                          "a.wxi:3: Condition is not known in version 4 and later"])
        self.assertEqual(list(v4.findings('<Include xmlns="other"/>', "a.wxi")),
                         ["a.wxi:1: Include does not have the namespace http://wixtoolset.org/schemas/v4/wxs"])


def tree_of(element):
    """(name, attributes, text, elements) of an element, without namespaces, comments and instructions."""
    text = " ".join(" ".join([element.text or "", *(child.tail or "" for child in element)]).split())
    return element.tag.rpartition("}")[2], dict(element.attrib), text, [tree_of(child) for child in element]


# How the way back to version 3 renames an attribute of any element, or makes it a text again.
OLD_ATTRIBUTES = {"BinaryRef": "BinaryKey", "Bitness": "Win64", "Scope": "InstallScope"}
OLD_TEXTS = ("Condition", "Message")


def way_back(tree):
    """The tree of version 3 for one of version 4 and later. Written without the tables of authoring_v4.py."""
    name, attributes, _, children = tree
    children = [way_back(child) for child in children]
    attributes = {OLD_ATTRIBUTES.get(key, key): {"always64": "yes"}.get(value, value) for key, value in attributes.items()}
    if name == "PermissionEx":
        return name, attributes, "", [("Condition", {}, attributes.pop("Condition"), [])]
    if name == "Package":
        inner = {key: attributes.pop(key) for key in ("InstallerVersion", "Compressed", "InstallScope")}
        inner |= next((child[1] for child in children if child[0] == "SummaryInformation"), {})
        children = [child for child in children if child[0] != "SummaryInformation"]
        folders = [child for child in children if child[0] == "Directory"]
        place = children.index(folders[0])
        children[place:place + len(folders)] = [("Directory", {"Id": "TARGETDIR", "Name": "SourceDir"}, "", folders)]
        attributes["Id"] = attributes.pop("ProductCode")
        return "Product", attributes, "", [("Package", inner, "", []), *children]
    text = next((attributes.pop(key) for key in OLD_TEXTS if key in attributes), "")
    name = {"Launch": "Condition", "StandardDirectory": "Directory"}.get(name, name)
    return name, attributes, " ".join(text.split()), children


class TreeTest(unittest.TestCase):
    """The authoring of this tree."""

    def test_all_is_right(self):
        result = subprocess.run([TOOLS / "kit/authoring_v4.py"], capture_output=True, text=True, check=False)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))

    def test_the_way_back(self):
        """Elements, attributes and texts: what the results have in the forms of version 3 is what was there before."""
        texts = v4.sources(ROOT)
        self.assertGreater(len(texts), 25)
        for path, (name, old) in texts.items():
            with self.subTest(path):
                new = tree_of(ElementTree.fromstring(v4.convert(old, name)))
                self.assertEqual(way_back(new), tree_of(ElementTree.fromstring(old)))

    def test_comments_and_instructions(self):
        for path, (name, old) in v4.sources(ROOT).items():
            with self.subTest(path):
                new = v4.convert(old, name)
                comments = [sorted(re.sub(r"\s+", " ", comment) for comment in re.findall(r"<!--.*?-->", text, re.DOTALL))
                            for text in (old, new)]
                self.assertEqual(comments[0], comments[1])
                before, after = (re.findall(r"<\?.*?\?>", text) for text in (old, new))
                self.assertEqual([v4.OPTION.sub("-d ", each) if each.startswith("<?error") else each for each in before],
                                 after)

    def test_few_lines_change(self):
        """Only lines with a construct that changes."""
        for path, (name, old) in v4.sources(ROOT).items():
            with self.subTest(path):
                before, after = (re.sub(r"[ \t]+", " ", text).splitlines() for text in (old, v4.convert(old, name)))
                same = set(before) & set(after)
                changed = [line for line in before if line not in same]
                marks = ("xmlns", "<Product", "</Product", "<Package", "<Include", "InstallScope", "Description=",
                         "UpgradeCode", "Win64", "BinaryKey", "</Custom>", "</Install", "</Remove", "</Error>", "</ProgressText>",
                         "Condition", "Directory", "<?error")
                self.assertEqual([line for line in changed if not any(mark in line for mark in marks)], [])

    def test_no_name_of_the_compilers(self):
        """The extensions of version 4 and later give their actions names that begin with Wix4 or Wix5, and so on."""
        names = re.compile(r"(?:Id|Action|Property)=\"(Wix[^\"]*)\"", re.IGNORECASE)
        for path, text in v4.authoring(ROOT).items():
            self.assertEqual(names.findall(text), [], path)

    def test_writes_a_folder(self):
        with tempfile.TemporaryDirectory(prefix="hx-v4-") as folder:
            subprocess.run([TOOLS / "kit/authoring_v4.py", f"{folder}/a"], check=True)
            files = {str(path.relative_to(f"{folder}/a")): path.read_text(encoding="utf-8")
                     for path in Path(folder).rglob("*.*")}
        self.assertEqual(files, v4.authoring(ROOT))
        self.assertLessEqual({"library.wxi", "client/client.wxs", "server/server.wxs", "other/other.wxs", "guide/client.wxs",
                              "guide/server.wxs"}, set(files))


class ProjectTest(unittest.TestCase):
    """A made-up project with a mistake."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-v4-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.write(v4.PAGE, PAGE)
        self.write(v4.GUIDE, "# Guide\n\n<!-- example: a.wxs -->\n```xml\n" + product("") + "```\n")
        self.write("packages/one.wxi", include(""))

    def write(self, path, text):
        (self.root / path).parent.mkdir(parents=True, exist_ok=True)
        (self.root / path).write_text(text, encoding="utf-8")

    def findings(self):
        return [finding.partition(" is not in the tables")[0] for finding in v4.all_findings(self.root)]

    def test_good(self):
        self.assertEqual(self.findings(), [])
        self.assertEqual(v4.authoring(self.root), {"one.wxi": new_include(""), "guide/a.wxs": package("")})

    def test_unknown_constructs(self):
        self.write("packages/two/three.wxs", product("    <Icon/>\n"))
        self.write(v4.GUIDE, "<!-- example: a.wxs -->\n```xml\n" + product("    <Icon/>\n") + "```\n")
        self.assertEqual(self.findings(), ["packages/two/three.wxs:5: Icon", "docs/authoring.md:5: Icon"])

    def test_unknown_kind_of_file(self):
        self.write("packages/texts.wxl", "<WixLocalization/>")
        self.assertEqual(self.findings(), ["packages/texts.wxl:1: tools/kit/authoring_v4.py cannot convert a file of this "
                                           "kind. Teach it to do that."])

    def test_a_result_of_version_3(self):
        with mock.patch.object(v4, "convert", lambda text, name: text):
            self.assertEqual(self.findings()[0],
                             "packages-v4/one.wxi:1: Include[not(@xmlns)] is of version 3. Version 4 and later have "
                             'Include/@xmlns="http://wixtoolset.org/schemas/v4/wxs".')

    def test_page_and_table(self):
        row = "| `CustomAction/@BinaryKey` | `CustomAction/@BinaryRef` |"
        self.assertEqual(PAGE.count(row), 1)
        for new, expected in (
                ("", "no row of the table of changes has CustomAction/@BinaryKey"),
                (row.replace("BinaryRef", "BinaryId"),
                 "CustomAction/@BinaryKey becomes CustomAction/@BinaryRef, but the row has CustomAction/@BinaryId"),
                (row + "\n| `File/@Assembly` | `File/@Other` |",
                 "File/@Assembly in the table of changes is not in CHANGES of tools/kit/authoring_v4.py")):
            with self.subTest(expected):
                self.write(v4.PAGE, PAGE.replace(row, new))
                self.assertEqual(self.findings(), [f"docs/authoring-v4.md:1: {expected}"])


class PageTest(unittest.TestCase):
    def test_rows_are_read(self):
        self.assertEqual(v4.page_changes(PAGE), v4.CHANGES)

    def test_says_what_was_not_done(self):
        self.assertIn("No compiler of version 4 or later has compiled these files here.", re.sub(r"\s+", " ", PAGE))


if __name__ == "__main__":
    unittest.main()
