"""The emulator's plugin, count.c, with small ARM64 programs whose instructions are known."""

import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from support import TOOLS

# Marks in the code, by the names of count.c.
MACROS = """
.macro begin
  hint #112
.endm
.macro end
  hint #113
.endm
// Sends the bytes of "text" and writes the line.
.macro write_line
  mov x2, #8 * (text_end - text)
  bl send
  hint #117
.endm
.section .own, "ax"
.balign 65536
"""

# Sends x2 bits of the text at x1.
SEND = """
send:
  ldr x1, =text
  mov x3, #0
1:
  lsr x4, x3, #3
  ldrb w5, [x1, x4]
  and x4, x3, #7
  lsr x5, x5, x4
  tbnz x5, #0, 2f
  hint #114
  b 3f
2:
  hint #115
3:
  add x3, x3, #1
  cmp x3, x2
  b.lo 1b
  ret
image:
  ldr x6, =range
  mov x2, #128
  ldr x1, =range
  mov x3, #0
  b 1b
.data
range: .quad own, own_end - 1
"""


@unittest.skipUnless(shutil.which("qemu-aarch64"), "the emulator is not installed")
class PluginTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hx-count-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        subprocess.run(["clang-19", "-O2", "-Wall", "-Wextra", "-Werror", "-shared", "-fPIC", "-o", cls.folder / "count.so",
                        TOOLS / "counting/count.c"], check=True)

    def count(self, code, text="case", own=""):
        """Runs a program: (status, lines of the counter, errors). `own` is the code of the image "own"."""
        source, program, out = (self.folder / name for name in ("program.s", "program", "out"))
        source.write_text(f"""{MACROS}
own:
{own}
own_end:
.balign 65536
.text
.globl _start
_start:
  bl image
  hint #116
{code}
  mov x0, #0
  mov x8, #93
  svc #0
{SEND}
text: .ascii "{text}"
text_end:
""", encoding="utf-8")
        subprocess.run(["clang-19", "--target=aarch64-linux-gnu", "-nostdlib", "-static", "-fuse-ld=lld-19", "-o", program,
                        source], check=True)
        result = subprocess.run(["qemu-aarch64", "-plugin", f"{self.folder}/count.so,out={out}", program],
                                capture_output=True, text=True, check=False, timeout=60)
        return result.returncode, out.read_text(encoding="utf-8").splitlines(), result.stderr

    def assert_counts(self, lines, code, **more):
        self.assertEqual(self.count(code, **more), (0, lines, ""))

    def test_nothing(self):
        self.assert_counts(["0 0 case"], "begin\nend\nwrite_line")

    def test_straight_code(self):
        self.assert_counts(["0 3 case"], "begin\nnop\nnop\nnop\nend\nwrite_line")

    def test_a_loop_is_counted_as_often_as_it_runs(self):
        # One instruction before the loop, three in each of 1000 rounds.
        self.assert_counts(["0 3001 case"], "begin\nmov x9, #1000\n5:\nsub x9, x9, #1\ncmp x9, #0\nb.ne 5b\nend\nwrite_line")

    def test_the_instructions_of_the_image_are_own(self):
        # The call is of the program; three instructions are of the image.
        self.assert_counts(["3 4 case"], "begin\nbl work\nend\nwrite_line", own="work:\nnop\nnop\nret")

    def test_stretches_add_up_until_they_are_written(self):
        self.assert_counts(["0 3 case", "0 1 case"],
                           "begin\nnop\nend\nnop\nbegin\nnop\nnop\nend\nwrite_line\nbegin\nnop\nend\nwrite_line")

    def test_own_instructions_add_up_too(self):
        self.assert_counts(["6 8 case"], "begin\nbl work\nend\nbegin\nbl work\nend\nwrite_line", own="work:\nnop\nnop\nret")

    def test_every_byte_of_the_name(self):
        self.assert_counts(["0 0 %08lX\t\u20ac~"], "begin\nend\nwrite_line", text="%08lX\\t\u20ac~")

    def test_other_hints_are_instructions(self):
        self.assert_counts(["0 3 case"], "begin\nhint #111\nhint #118\nhint #34\nend\nwrite_line")

    def test_a_name_that_is_too_long(self):
        status, lines, errors = self.count("begin\nend\nwrite_line", text="x" * 1024)
        self.assertEqual((status, lines, errors), (1, [], "count.so: the program has sent too much\n"))

    def test_an_image_without_addresses(self):
        status, lines, errors = self.count("hint #116")
        self.assertEqual((status, lines, errors), (1, [], "count.so: an image has two addresses\n"))

    def test_a_file_that_cannot_be_written(self):
        for words, text in (("", "count.so: needs out=FILE"), (f",out={self.folder}/none/out", "No such file")):
            with self.subTest(words):
                result = subprocess.run(["qemu-aarch64", "-plugin", f"{self.folder}/count.so{words}", "/none"],
                                        capture_output=True, text=True, check=False, timeout=60)
                self.assertNotEqual(result.returncode, 0)
                self.assertIn(text, result.stderr)


if __name__ == "__main__":
    unittest.main()
