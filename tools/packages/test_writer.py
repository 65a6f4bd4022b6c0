"""compiler.py, tables.py and writer.py: from a source to an .msi whose tables are what the compilers made, completed by what
the linker does on Windows."""

import hashlib
import struct
import subprocess
import tempfile
import unittest
from pathlib import Path

from packages.compiler import CompilerError, compile_source
from packages.tables import PackageError, read_package
from packages.writer import Files, write_package

PRODUCT = """<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
  <Product Id="*" Name="Sample" Manufacturer="Maker" Version="1.2.3" Language="1033"{product}
           UpgradeCode="{{11111111-2222-3333-4444-555555555555}}">
    <Package InstallerVersion="{schema}" {package}/>
    {media}
    <Property Id="TEXT" Value="{text}"/>
    {more}
    <Directory Id="TARGETDIR" Name="SourceDir">
      <Component Id="One" Guid="{guid}"><File Source="one.txt" KeyPath="yes"/></Component>
      <Component Id="Two" Guid="{{11111111-2222-3333-4444-000000000002}}"><File Source="{second}" KeyPath="yes"/></Component>
    </Directory>
    <Feature Id="All"><ComponentRef Id="One"/><ComponentRef Id="Two"/></Feature>
  </Product>
</Wix>
"""
DEFAULTS = {"product": "", "schema": "500", "package": 'Compressed="yes"', "text": "x", "more": "", "second": "two.exe",
            "media": '<Media Id="1" Cabinet="files.cab" EmbedCab="yes"/>',
            "guid": "{11111111-2222-3333-4444-000000000001}"}


class SourceTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-writer-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "one.txt").write_text("one")
        (self.folder / "two.exe").write_bytes(b"MZ, but not a program")

    def source(self, **values):
        path = self.folder / "sample.wxs"
        path.write_text(PRODUCT.format(**{**DEFAULTS, **values}), encoding="utf-8")
        return path

    def make(self, processor="x64", name="sample.msi", names=(), variables=None, **values):
        """The package of a source, read from the .msi."""
        database = compile_source(self.source(**values), [], variables or {})
        write_package(database, processor, Files([self.folder]), self.folder / name, names)
        return read_package(self.folder / name)

    def assert_refused(self, *texts, processor="x64", **values):
        with self.assertRaises(PackageError) as caught:
            self.make(processor, **values)
        for text in texts:
            self.assertIn(text, str(caught.exception))
        self.assertFalse((self.folder / "sample.msi").exists())


class CompilerTest(SourceTest):
    def messages(self, text, **variables):
        (self.folder / "bad.wxs").write_text(text, encoding="utf-8")
        with self.assertRaises(CompilerError) as caught:
            compile_source(self.folder / "bad.wxs", [], variables)
        return caught.exception.messages

    def test_places_are_those_of_the_user(self):
        text = self.source().read_text(encoding="utf-8").replace("<Package", "<Pakage")
        self.assertEqual(self.messages(text), [(f"{self.folder}/bad.wxs:4", "CNDL0005",
                                                "The Product element contains an unexpected child element 'Pakage'.")])

    def test_place_in_an_included_file(self):
        (self.folder / "part.wxi").write_text('<Include>\n<?error Stop.?></Include>')
        text = self.source(more="<?include part.wxi?>").read_text(encoding="utf-8")
        self.assertEqual(self.messages(text), [(f"{self.folder}/part.wxi:2", "CNDL0250", "Stop.")])

    def test_undefined_variable(self):
        text = self.source(text="$(var.Missing)").read_text(encoding="utf-8")
        self.assertEqual([message[1:] for message in self.messages(text)],
                         [("CNDL0150", "Undefined preprocessor variable '$(var.Missing)'. Give it a value: --define NAME=VALUE, or "
                                      "<?define NAME = \"VALUE\"?> before its use.")])

    def test_warning_stops(self):
        text = self.source(more='<Property Id="NOTHING"/>').read_text(encoding="utf-8")
        (place, code, message), = self.messages(text)
        self.assertEqual((place, code), (f"{self.folder}/bad.wxs:7", "CNDL1006"))
        self.assertIn("'NOTHING' does not contain a Value", message)

    def test_message_of_the_linker(self):
        text = self.source(more='<FeatureRef Id="Nobody"/>').read_text(encoding="utf-8")
        (place, code, message), = self.messages(text)
        self.assertEqual((place, code), (f"{self.folder}/bad.wxs:7", "LGHT0094"))
        self.assertIn("Nobody", message)

    def test_second_place_is_part_of_the_message(self):
        text = self.source(more='<Property Id="TEXT" Value="y"/>').read_text(encoding="utf-8")
        (place, code, message), = self.messages(text)
        self.assertEqual((place, code), (f"{self.folder}/bad.wxs:6", "LGHT0091"))
        self.assertTrue(message.startswith("Duplicate symbol 'Property:TEXT' found."), message)
        self.assertTrue(message.endswith(f"are unique. The other one is in {self.folder}/bad.wxs:7."), message)

    def test_hint_only_if_a_fragment_has_the_other_one(self):
        (self.folder / "part.wxi").write_text('<Include>\n<Property Id="TEXT" Value="y"/></Include>')
        text = self.source(more="<?include part.wxi?>").read_text(encoding="utf-8")
        (_, _, message), = self.messages(text)
        self.assertIn(f"The other one is in {self.folder}/part.wxi:2. A fragment declares its properties itself", message)

    def test_elements_of_a_fragment_in_a_wrong_place_are_one_message(self):
        (self.folder / "part.wxi").write_text('<Include>\n<Property Id="A" Value="y"/>\n<Property Id="B" Value="y"/></Include>')
        text = self.source().read_text(encoding="utf-8")
        inside = text.replace('Name="SourceDir">', 'Name="SourceDir"><?include part.wxi?>')
        self.assertEqual(self.messages(inside), [(
            f"{self.folder}/part.wxi:2", "CNDL0005", "The Directory element contains an unexpected child element 'Property'. "
            "Include fragments directly below Product, not inside of another element.")])
        both = inside.replace('<Package', '<Pakage/><Pikage/><Package')
        self.assertEqual(len(self.messages(both)), 3)

    def test_file_that_is_not_xml(self):
        self.assertEqual(self.messages("<Wix")[0][1], "CNDL0104")


class WriterTest(SourceTest):
    def test_files(self):
        package = self.make()
        data = b"MZ, but not a program"
        self.assertEqual(package.keyed("File"), {
            "one.txt": ["One", "one.txt", 3, None, None, 512, 1],
            "two.exe": ["Two", "two.exe", len(data), None, None, 512, 2]})
        self.assertEqual(package.keyed("MsiFileHash"), {
            "one.txt": [0, *struct.unpack("<4i", hashlib.md5(b"one").digest())],
            "two.exe": [0, *struct.unpack("<4i", hashlib.md5(data).digest())]})
        self.assertEqual(package.keyed("Media"), {1: [2, None, "#files.cab", None, None]})

    def test_cabinet(self):
        self.make()
        out = subprocess.run(["msiinfo", "extract", "sample.msi", "files.cab"], cwd=self.folder, check=True, capture_output=True)
        (self.folder / "files.cab").write_bytes(out.stdout)
        (self.folder / "out").mkdir()
        subprocess.run(["gcab", "-x", "-C", "out", "files.cab"], cwd=self.folder, check=True, capture_output=True)
        self.assertEqual({path.name: path.read_bytes() for path in (self.folder / "out").iterdir()},
                         {"one.txt": b"one", "two.exe": b"MZ, but not a program"})

    def test_version_of_a_program(self):
        script = self.folder / "version.rc"
        script.write_text('1 VERSIONINFO\nFILEVERSION 4,3,2,1\nPRODUCTVERSION 9,9,9,9\nBEGIN\nBLOCK "StringFileInfo"\nBEGIN\n'
                          'BLOCK "040704b0"\nBEGIN\nVALUE "CompanyName", "Maker"\nEND\nEND\nBLOCK "VarFileInfo"\nBEGIN\n'
                          'VALUE "Translation", 0x0407, 1200\nEND\nEND\n')
        (self.folder / "empty.cpp").write_text("extern \"C\" int entry() { return 0; }\n")
        for command in (["llvm-rc-19", "/no-preprocess", "/fo", "version.res", "version.rc"],
                        ["clang++-19", "--target=x86_64-windows-gnu", "-c", "empty.cpp"],
                        ["lld-link-19", "/entry:entry", "/subsystem:console", "/nodefaultlib", "/out:two.exe", "empty.o",
                         "version.res"]):
            subprocess.run(command, cwd=self.folder, check=True, capture_output=True)
        package = self.make()
        self.assertEqual(package.keyed("File")["two.exe"][3:5], ["4.3.2.1", "1031"])
        self.assertEqual(list(package.keyed("MsiFileHash")), ["one.txt"])

    def test_empty_file(self):
        (self.folder / "one.txt").write_bytes(b"")
        self.assertEqual(self.make().keyed("MsiFileHash")["one.txt"], [0, 0, 0, 0, 0])

    def test_the_same_bytes(self):
        self.make(name="first.msi")
        self.make(name="second.msi")
        self.assertEqual((self.folder / "first.msi").read_bytes(), (self.folder / "second.msi").read_bytes())

    def test_codes(self):
        """Other content, another processor or another name makes other codes; both codes are GUIDs."""
        first = self.make()
        codes = {(first.properties()["ProductCode"], first.summary[9])}
        for change in ({"text": "y"}, {"processor": "arm64"}, {"names": ["other"]}):
            with self.subTest(change):
                package = self.make(**change)
                codes.add((package.properties()["ProductCode"], package.summary[9]))
        (self.folder / "one.txt").write_text("two")
        changed = self.make()
        codes.add((changed.properties()["ProductCode"], changed.summary[9]))
        self.assertEqual(len({product for product, _ in codes}), 5)
        self.assertEqual(len({package for _, package in codes}), 5)
        for pair in codes:
            for code in pair:
                self.assertRegex(code, r"^\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}$")

    def test_product_code_of_the_source(self):
        code = "{99999999-2222-3333-4444-555555555555}"
        path = self.source()
        path.write_text(path.read_text(encoding="utf-8").replace('Id="*"', f'Id="{code}"'), encoding="utf-8")
        write_package(compile_source(path, [], {}), "x64", Files([self.folder]), self.folder / "own.msi")
        self.assertEqual(read_package(self.folder / "own.msi").properties()["ProductCode"], code)

    def test_summary(self):
        for processor, name in (("x64", "x64"), ("arm64", "Arm64")):
            summary = self.make(processor).summary
            self.assertEqual(summary[7], f"{name};1033")
            self.assertEqual({number: summary[number] for number in (2, 4, 12, 13, 14, 15, 18)},
                             {2: "Installation Database", 4: "Maker", 12: "2024/01/01 00:00:00", 13: "2024/01/01 00:00:00",
                              14: "500", 15: "2", 18: "hxsetup"})

    def test_texts_with_line_breaks_and_letters(self):
        package = self.make(product=' Codepage="1252"', text="Grüße&#10;zwei&#13;&#10;&#10;drei")
        self.assertEqual(package.properties()["TEXT"], "Grüße\r\nzwei\r\n\r\ndrei")
        self.assertEqual(package.codepage, 1252)

    def test_letters_of_another_code_page(self):
        self.assertEqual(self.make(product=' Codepage="65001"', text="日本").properties()["TEXT"], "日本")
        (self.folder / "sample.msi").unlink()
        self.assert_refused("'日'", "code page 1252", product=' Codepage="1252"', text="日本")
        self.assert_refused("'ü'", "code page 0", text="Grüße")
        self.assert_refused("a text with a tab", text="a&#9;b")

    def test_columns_are_described(self):
        """_Validation describes each column of each table, itself included."""
        package = self.make()
        columns = {(table.name, column.name) for table in package.tables.values() for column in table.columns}
        self.assertLessEqual(columns, package.described)
        self.assertIn(("_Validation", "Category"), package.described)
        size = package.tables["File"].columns[package.tables["File"].index("FileSize")]
        self.assertEqual((size.minimum, size.maximum, size.nullable), (0, 2147483647, False))
        component = package.tables["File"].columns[package.tables["File"].index("Component_")]
        self.assertEqual((component.key_table, component.key_column, component.category), ("Component", 1, "Identifier"))

    def test_media_template(self):
        self.assertEqual(self.make(media='<MediaTemplate EmbedCab="yes"/>').keyed("Media"),
                         {1: [2, None, "#cab1.cab", None, None]})

    def test_binary(self):
        (self.folder / "a.dll").write_bytes(b"library")
        self.make(more='<Binary Id="a" SourceFile="a.dll"/>')
        out = subprocess.run(["msiinfo", "extract", "sample.msi", "Binary.a"], cwd=self.folder, check=True, capture_output=True)
        self.assertEqual(out.stdout, b"library")

    def test_path_with_backslashes(self):
        (self.folder / "below").mkdir()
        (self.folder / "two.exe").rename(self.folder / "below/two.exe")
        self.assertEqual(set(self.make(second='below\\two.exe" Name="two.exe').keyed("File")), {"one.txt", "two.exe"})

    def test_path_with_backslashes_without_a_name(self):
        self.assert_refused('write "/" instead of "\\" in its Source', second="below\\two.exe")

    def test_what_cannot_be_made(self):
        self.assert_refused("sample.wxs:10: the file missing.exe is missing", f"searched in {self.folder}",
                            second="missing.exe")
        self.assert_refused("the component One leaves its GUID to the linker", guid="*")
        self.assert_refused('add <Media Id="1"', media="")
        self.assert_refused('of disk 1 must be in the package: add EmbedCab="yes"', media='<Media Id="1" Cabinet="files.cab"/>')
        self.assert_refused('must be in the package: add Compressed="yes"', package='Compressed="no"')
        self.assert_refused('ARM64 needs InstallerVersion="500"', processor="arm64", schema="200")
        self.assert_refused("the file a.dll is missing", more='<Binary Id="a" SourceFile="a.dll"/>')


class ReaderTest(SourceTest):
    def assert_not_read(self, path, *texts):
        with self.assertRaises(PackageError) as caught:
            read_package(path)
        for text in texts:
            self.assertIn(text, str(caught.exception))

    def test_files_that_are_no_package(self):
        self.assert_not_read(self.folder / "none.msi", "none.msi does not exist")
        self.assert_not_read(self.folder, "is not a file")
        self.assert_not_read(self.folder / "one.txt", "one.txt is not an installation package")
        (self.folder / "cut.msi").write_bytes(b"\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1" + bytes(100))
        self.assert_not_read(self.folder / "cut.msi", "cut.msi is not an installation package")
        subprocess.run(["msibuild", "empty.msi", "-q", "CREATE TABLE `T` (`A` SHORT NOT NULL PRIMARY KEY `A`)"],
                       cwd=self.folder, check=True, capture_output=True)
        self.assert_not_read(self.folder / "empty.msi", "it has no table Property")


if __name__ == "__main__":
    unittest.main()
