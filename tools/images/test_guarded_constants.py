"""guarded_constants.py: each constant ends where a page ends, a page full of the mark follows, and the code stays the same."""

import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from images.guarded_constants import MARK, PAGE, Unusable, guarded
from support import TOOLS

SCRIPT = TOOLS / "images/guarded_constants.py"
TRIPLES = {"arm64": "aarch64-w64-windows-gnu", "x64": "x86_64-w64-windows-gnu"}
COMPILE = ["-c", "-ffreestanding", "-fno-exceptions", "-fno-rtti", "-fdata-sections", "-ffunction-sections", "-Os", "-std=c++20"]
LINK = ["-nostdlib", "-fuse-ld=lld-19", "-shared", "-Wl,--entry,Entry", "-Wl,--no-insert-timestamp", "-Wl,--export-all-symbols"]
# "Texts" points to both texts; 5,000 bytes take more than a page.
SOURCE = """
extern "C" {
extern const char* const Texts[] = {"plain text", "another text"};
extern const short Table[3] = {0x1111, 0x2222, 0x3333};
extern const unsigned char Long[5000] = {0x5A, 0xA5};
int Entry(int index) { return Texts[index & 1][index] + Table[index % 3] + Long[index]; }
}
"""


class Image:
    """What a linked library has in its pages."""

    def __init__(self, path):
        data = path.read_bytes()
        header = struct.unpack_from("<I", data, 60)[0]
        count, optional = struct.unpack_from("<H", data, header + 6)[0], struct.unpack_from("<H", data, header + 20)[0]
        self.base = struct.unpack_from("<Q", data, header + 24 + 24)[0]
        self.sections = {}
        for index in range(count):
            place = header + 24 + optional + 40 * index
            name, size, address, raw_size, raw = struct.unpack_from("<8sIIII", data, place)
            self.sections[name.rstrip(b"\0").decode()] = (address, data[raw:raw + min(size, raw_size)])

    def at(self, address, size):
        start, content = self.sections[".rdata"]
        return content[address - start:address - start + size]

    def find(self, content):
        """The one address of this content in the section of the constants."""
        start, found = self.sections[".rdata"]
        assert found.count(content) == 1, found.count(content)
        return start + found.index(content)


class GuardedConstantsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-guarded-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "source.cpp").write_text(SOURCE, encoding="utf-8")

    def compiled(self, processor):
        path = self.folder / "source.obj"
        subprocess.run(["clang++-19", f"--target={TRIPLES[processor]}", *COMPILE, self.folder / "source.cpp", "-o", path], check=True)
        return path

    def linked(self, processor, *launcher):
        path = self.folder / f"{len(launcher)}-{processor}.dll"
        subprocess.run([*launcher, "clang++-19", f"--target={TRIPLES[processor]}", *LINK, "-o", path, self.compiled(processor)],
                       check=True)
        return Image(path)

    def test_each_constant_ends_before_a_page_of_the_mark(self):
        for processor in TRIPLES:
            image = self.linked(processor, sys.executable, SCRIPT)
            plain, another = b"plain text\0", b"another text\0"
            long = b"\x5a\xa5" + bytes(4998)
            # The compiler aligns the last one to 16 bytes, which its size is not a multiple of.
            for content, gap in ((plain, 0), (another, 0), (b"\x11\x11\x22\x22\x33\x33", 0), (long, -len(long) % 16)):
                with self.subTest(processor=processor, content=content[:12]):
                    end = image.find(content) + len(content)
                    page = -(-end // PAGE) * PAGE
                    self.assertLessEqual(page - end, gap)
                    self.assertEqual(image.at(page, PAGE), MARK * (PAGE // len(MARK)))
            # The pointers to the texts are where they were, and point to where the texts are now.
            texts = struct.pack("<QQ", image.base + image.find(plain), image.base + image.find(another))
            self.assertEqual((image.find(texts) + len(texts)) % PAGE, 0)

    def test_the_code_stays_the_same(self):
        for processor in TRIPLES:
            with self.subTest(processor):
                before, after = self.linked(processor).sections, self.linked(processor, sys.executable, SCRIPT).sections
                self.assertEqual(len(before[".text"][1]), len(after[".text"][1]))
                self.assertLess(len(before[".rdata"][1]), 2 * PAGE)
                self.assertGreater(len(after[".rdata"][1]), 10 * PAGE)

    def test_the_objects_of_the_build_are_not_changed(self):
        before = self.compiled("x64").read_bytes()
        self.linked("x64", sys.executable, SCRIPT)
        self.assertEqual((self.folder / "source.obj").read_bytes(), before)

    def test_what_is_not_an_object(self):
        with self.assertRaises(Unusable):
            guarded(b"MZ" + bytes(100))
        (self.folder / "bad.obj").write_bytes(b"MZ" + bytes(100))
        result = subprocess.run([sys.executable, SCRIPT, "false", "-o", self.folder / "x.dll", self.folder / "bad.obj"],
                                capture_output=True, text=True, check=False)
        self.assertEqual((result.returncode, result.stderr),
                         (1, f"guarded_constants.py: {self.folder}/bad.obj: not an object file for x64 or ARM64\n"))

    def test_the_status_of_the_linker(self):
        result = subprocess.run([sys.executable, SCRIPT, "sh", "-c", "exit 7", "-o", self.folder / "x.dll"], check=False)
        self.assertEqual(result.returncode, 7)


if __name__ == "__main__":
    unittest.main()
