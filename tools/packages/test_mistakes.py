"""mistakes.py: each mistake, tried as an author would make it, gets its message."""

import os
import re
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from kit.guide_examples import FILES, examples
from packages import rules
from packages.compiler import CompilerError, compile_source
from packages.mistakes import MISTAKES
from packages.sample_library import MACHINES, make_library
from packages.tables import PackageError, read_package
from packages.writer import Files, write_package

ROOT = Path(__file__).resolve().parents[2]
PROGRAM = "program.exe"

# The values of the variables of all sources.
VARIABLES = {"LibraryFile": "hxsetup.dll", "Version": "1.0.0", "ProductCode": "*", "Processor": "x64", "ProgramFile": PROGRAM}

class Workplace:
    """Makes packages in `folder`, an empty one."""

    def __init__(self, folder):
        self.folder, self.texts = Path(folder) / "work", examples()
        self.folder.mkdir()
        self.libraries = {processor: make_library(Path(folder) / processor, processor).read_bytes() for processor in MACHINES}

    def text_of(self, name):
        """A source that is right."""
        return self.texts.get(name) or (ROOT / "packages" / name).read_text(encoding="utf-8")

    def make(self, name, text, processor="x64", variables=None, without=()):
        """The package of a source, with the library for `processor`."""
        folder = Path(tempfile.mkdtemp(dir=self.folder))
        source = folder / Path(name).name
        source.write_text(text, encoding="utf-8")
        for file in [*FILES.get(name, [PROGRAM]), "hxsetup.dll"]:
            if file not in without:
                (folder / file).write_bytes(self.libraries[processor] if file == "hxsetup.dll" else b"a program")
        database = compile_source(source, [ROOT / "packages"], VARIABLES if variables is None else variables)
        write_package(database, "x64", Files([folder]), folder / "made.msi")
        return folder / "made.msi"

    def messages(self, mistake):
        """What an author who makes a mistake is told, and by what: (found, messages)."""
        text = self.text_of(mistake.source)
        for old, new in mistake.edits:
            if old not in text:
                raise AssertionError(f"{mistake.source} does not have {old!r}: correct the mistake \"{mistake.did}\"")
            text = text.replace(old, new, 1)
        try:
            package = self.make(mistake.source, text, **mistake.more)
        except CompilerError as refused:
            said = [text for _, _, text in refused.messages]
        except PackageError as refused:
            said = [str(refused).partition(": ")[2]]
        else:
            return "check", [text for _, text in rules.check(read_package(package), package)]
        return "compile", [self.short(text) for text in said]

    def short(self, text):
        """A message without the folders of this run and the numbers of lines."""
        for path in (*self.folder.iterdir(), ROOT / "packages"):
            text = text.replace(f"{path}/", "").replace(str(path), "FOLDER")
            # From the project's folder this is only "packages/", which messages name, too.
            text = re.sub(rf"{re.escape(os.path.relpath(path))}/(?=[\w.-]+\.wx)", "", text)
        return re.sub(r"(\.wx[is]):\d+", r"\1", text)


class MistakesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hx-mistakes-")
        cls.addClassCleanup(folder.cleanup)
        cls.place = Workplace(folder.name)

    def test_each_mistake_has_its_message(self):
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            for mistake, said in zip(MISTAKES, pool.map(self.place.messages, MISTAKES)):
                with self.subTest(mistake.did):
                    self.assertEqual(said, (mistake.found, mistake.messages))

    def test_right_sources_have_no_message(self):
        for name in sorted({mistake.source for mistake in MISTAKES}):
            with self.subTest(name):
                package = self.place.make(name, self.place.text_of(name))
                self.assertEqual(rules.check(read_package(package), package), [])

    def test_each_mistake_is_named_once(self):
        self.assertEqual(len({mistake.did for mistake in MISTAKES}), len(MISTAKES))


if __name__ == "__main__":
    unittest.main()
