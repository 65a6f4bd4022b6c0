"""The archives of the acceptance run: what they contain, and that they are the same in every run."""

import hashlib
import re
import tempfile
import unittest
import zipfile
from pathlib import Path
from unittest import mock

from acceptance import pack
from release import dist

PROCESSOR = "arm64"


class PackTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-pack-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for folder_, kind, files in pack.BUILT:
            for file in files:
                self.write(f"{PROCESSOR}{kind}/{file}", f"{folder_} {file}")
        for name in ("client.msi", "server.msi"):
            self.write(f"packages/{PROCESSOR}/{name}", name)
        moment = mock.patch.object(dist, "commit_time", return_value=1700000000)
        moment.start()
        self.addCleanup(moment.stop)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def contents(self, out="out"):
        archive = pack.make_archive(self.root, self.root / out, PROCESSOR)
        with zipfile.ZipFile(archive) as packed:
            return archive, {name: packed.read(name) for name in packed.namelist()}

    def test_the_contents(self):
        version = dist.read_version(pack.ROOT)
        archive, members = self.contents()
        top = f"hxsetup-acceptance-{version}-arm64"
        self.assertEqual(archive.name, f"{top}.zip")
        self.assertEqual(sorted(members), sorted(f"{top}/{name}" for name in (
            "accept.cmd", "README.txt", "files.txt", "packages/client.msi", "packages/server.msi",
            *(f"{folder}/{file}" for folder, _, files in pack.BUILT for file in files))))
        # The list has every other file, with the names that Windows uses.
        expected = sorted(f"{hashlib.sha256(content).hexdigest()}  {name[len(top) + 1:]}".replace("/", "\\")
                          for name, content in members.items() if not name.endswith("/files.txt"))
        listed = members[f"{top}/files.txt"].decode()
        self.assertTrue(listed.endswith("\r\n"))
        self.assertEqual(sorted(listed.split("\r\n")[:-1]), expected)
        # The checked libraries are those of the checked build.
        self.assertEqual(members[f"{top}/checked/hxinternals.dll"], b"checked hxinternals.dll")

    def test_the_script(self):
        _, members = self.contents()
        script = next(content for name, content in members.items() if name.endswith("accept.cmd"))
        text = script.decode("ascii")
        self.assertEqual(text.count("\n"), text.count("\r\n"))
        self.assertIn('set "hxProcessor=arm64"', text)
        self.assertIn(hashlib.sha256(b"bin accept.exe").hexdigest(), text)
        self.assertNotRegex(text, "@(VERSION|PROCESSOR|HASH)@")

    def test_each_label_exists(self):
        text = pack.SCRIPT.read_text(encoding="ascii")
        labels = {line[1:] for line in text.splitlines() if line.startswith(":")}
        used = set(re.findall(r"(?:goto|call) :?(\w+)", text)) - {"eof"}
        self.assertEqual(labels, used)

    def test_each_program_of_the_script_is_there(self):
        programs = set(re.findall(r"^call :run \S+ \d+ (\S+)$", pack.SCRIPT.read_text(encoding="ascii"), re.MULTILINE))
        self.assertEqual({*programs, "accept.exe"}, set(dict((folder, files) for folder, _, files in pack.BUILT)["bin"]))

    def test_twice_the_same(self):
        first, _ = self.contents("first")
        second, _ = self.contents("second")
        self.assertEqual(first.read_bytes(), second.read_bytes())

    def test_missing_files(self):
        (self.root / "arm64-checked/rigsubject.dll").unlink()
        with self.assertRaisesRegex(dist.Refusal, "arm64-checked/rigsubject.dll is missing: build it first"):
            self.contents()
        self.write("arm64-checked/rigsubject.dll", "again")
        for path in (self.root / "packages/arm64").iterdir():
            path.unlink()
        with self.assertRaisesRegex(dist.Refusal, "has no packages: make them first"):
            self.contents()

    def test_a_script_without_a_mark(self):
        with self.assertRaisesRegex(dist.Refusal, "has no @HASH@"):
            pack.script_for("@VERSION@ @PROCESSOR@", "1", "x64", b"")


if __name__ == "__main__":
    unittest.main()
