"""dist.py makes a complete release, the same bytes each time, and refuses a checkout that cannot be released."""

import hashlib
import os
import re
import shutil
import stat
import subprocess
import tempfile
import unittest
import zipfile
from pathlib import Path
from unittest import mock

from kit import authoring_v4
from release.dist_support import PROCESSORS, STAND_INS, copy_project, open_shop, run
from support import TOOLS, load_script

PROJECT = TOOLS.parent
VERSION = (PROJECT / "VERSION").read_text().strip()
dist = load_script("release/dist.py")
package = load_script("packages/make_packages.py")

# A project with one file of each kind; those that are not released say so.
TINY = {
    "VERSION": "1.2.3\n",
    "CHANGELOG.md": "# Changes\n\n## [1.2.3] - 2026-11-21\n",
    "README.md": "not released",
    "docs/actions.md": "The actions.\n",
    "docs/authoring.md": "Writing a package.\n",
    "docs/drawing.svg": "not released",
    "docs/explain.html": "<!DOCTYPE html>\n",
    "docs/explain.png": "A picture.\n",
    "explain/explain.mjs": "import './source/one.mjs';\n",
    "explain/knowledge.json": "{}\n",
    "explain/package.json": "not released",
    "explain/page/page.html": "not released",
    "explain/source/one.mjs": "export const one = 1;\n",
    "explain/tests/one.test.mjs": "not released",
    "packages/library.wxi": "<Include/>\n",
    "packages/client/client.wxs": '<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi"/>\n',
    "packages/client/files/about.txt": "About.\n",
    "packages/server/server.wxs": '<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi"/>\n',
    "packages/server/witness.wxi": "not released",
    "packages/witness/witness.cpp": "not released",
    "src/one.cpp": "not released",
}
MADE = ["README.txt", "SHA256SUMS", *(f"{processor}/{name}" for processor in PROCESSORS for name in (
    "hxsetup.dll", "hxsetup.pdb", "hxrun.exe")), *(f"packages/programs/{processor}/{name}" for processor in PROCESSORS
                                      for name in STAND_INS)]
COMMIT_TIME = 1763717001


def setUpModule():
    global shop, libraries, checkout
    shop, libraries = open_shop()
    checkout = copy_project(PROJECT, shop)


class DistTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-dist-", dir=shop)
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def git(self, project, *arguments):
        moment = f"{COMMIT_TIME} +0000"
        run("git", "-c", "user.name=Tester", "-c", "user.email=tester@example.com", *arguments, cwd=project,
            env={"GIT_AUTHOR_DATE": moment, "GIT_COMMITTER_DATE": moment})

    def test_the_released_script_explains_a_log(self):
        for name in dist.released_files(PROJECT):
            if name.startswith("explain/"):
                (self.folder / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(PROJECT / name, self.folder / name)
        log = PROJECT / "explain/tests/logs/wine-client-stopped.log"
        result = subprocess.run(["node", self.folder / "explain/explain.mjs", "--summary", log], capture_output=True, text=True, check=False)
        self.assertEqual((result.returncode, result.stderr), (1, ""))
        self.assertIn("The upgrade of Ostrel 1.0.1 failed.", result.stdout)
        self.assertIn("docs/explain.html", dist.released_files(PROJECT))

    def project(self, name="tiny", files=None):
        """Makes and commits a new project that contains the script."""
        project = self.folder / name
        for path, text in {**TINY, **(files or {})}.items():
            (project / path).parent.mkdir(parents=True, exist_ok=True)
            (project / path).write_text(text)
        for script in ("release/dist.py", "kit/authoring_v4.py", "kit/guide_examples.py", "kit/__init__.py"):
            (project / "tools" / script).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(TOOLS / script, project / "tools" / script)
        (project / ".gitignore").write_text("__pycache__/\n")
        self.git(project, "init", "-q")
        self.git(project, "add", "-A")
        self.git(project, "commit", "-q", "-m", "Everything")
        return project

    def dist(self, project, *arguments, check=True, **options):
        return run(project / "tools/release/dist.py", *arguments, check=check, **options)

    def unpack(self, archive):
        target = self.folder / "unpacked"
        with zipfile.ZipFile(archive) as content:
            content.extractall(target)
        return target / archive.stem


class Archive(DistTest):
    def release(self):
        """Makes the release of this project unchanged, and unpacks it."""
        return self.unpack(dist.make_release(checkout, libraries, self.folder / "out", {}))

    def test_is_complete(self):
        archive = dist.make_release(checkout, libraries, self.folder / "out", {})
        self.assertEqual(archive.name, f"hxsetup-{VERSION}.zip")
        expected = [PROJECT / "CHANGELOG.md", PROJECT / "VERSION", *(PROJECT / "docs").rglob("*.*"),
                    PROJECT / "explain/explain.mjs", PROJECT / "explain/knowledge.json", *(PROJECT / "explain/source").glob("*.mjs"),
                    *(PROJECT / "packages").glob("*.wxi"), *(PROJECT / "packages/client").rglob("*.*"),
                    *(PROJECT / "packages/server").rglob("*.*"), *(PROJECT / "packages/other").rglob("*.*"),
                    *(PROJECT / "packages/texts").rglob("*.*")]
        expected = {str(path.relative_to(PROJECT)) for path in expected} - {
            "packages/server/witness.wxi", "packages/other/one.wxs"}
        self.assertGreater(len(expected), 30)
        with zipfile.ZipFile(archive) as content:
            names = content.namelist()
            newer = {f"packages-v4/{name.removeprefix('packages/')}" for name in expected
                     if name.startswith("packages/") and name.endswith((".wxi", ".wxs"))}
            newer |= {f"packages-v4/guide/{name}.wxs" for name in ("gauge", "client", "server")}
            self.assertLessEqual({"packages-v4/library.wxi", "packages-v4/server/server.wxs"}, newer)
            self.assertEqual(names, sorted(f"hxsetup-{VERSION}/{name}" for name in expected | newer | set(MADE)))
            for name in newer:
                text = content.read(f"hxsetup-{VERSION}/{name}").decode()
                self.assertEqual(list(authoring_v4.findings(text, name)), [])
            fragment = content.read(f"hxsetup-{VERSION}/packages-v4/firewall.wxi").decode()
            self.assertIn('<CustomAction Id="CustomAction5" BinaryRef="hxsetup" DllEntry="CustomAction5" Return="ignore"/>',
                          fragment)
            for name in expected:
                self.assertEqual(content.read(f"hxsetup-{VERSION}/{name}"), (PROJECT / name).read_bytes(), name)
            for processor in PROCESSORS:
                for folder, names in ((processor, ["hxsetup.dll", "hxsetup.pdb", "hxrun.exe"]),
                                      (f"packages/programs/{processor}", STAND_INS)):
                    for name in names:
                        self.assertEqual(content.read(f"hxsetup-{VERSION}/{folder}/{name}"),
                                         (libraries / processor / name).read_bytes())

    def test_contains_no_paths_of_the_machine(self):
        project = self.project()
        self.dist(project, libraries, self.folder / "out")
        with zipfile.ZipFile(self.folder / "out/hxsetup-1.2.3.zip") as content:
            for entry in content.infolist():
                self.assertEqual(entry.date_time, (2025, 11, 21, 9, 23, 20), entry.filename)
                self.assertEqual(stat.filemode(entry.external_attr >> 16), "-rw-r--r--", entry.filename)
                self.assertEqual((entry.extra, entry.comment), (b"", b""))
                text = content.read(entry)
                self.assertFalse(text.startswith(b"not released"), entry.filename)
                self.assertNotIn(str(project).encode(), text)
            head = content.read("hxsetup-1.2.3/README.txt").decode()
        commit = run("git", "rev-parse", "HEAD", cwd=project).stdout.strip()
        self.assertIn(f"hxsetup 1.2.3\n\nMade from the commit {commit}\nof 2025-11-21 09:23:21 UTC.", head)
        self.assertIn("The libraries are not signed.", head)

    def test_is_the_same_when_made_again(self):
        archives = []
        for name, zone, mask in (("one", "Pacific/Auckland", 0o022), ("another-place/two", "UTC", 0o077)):
            before = os.umask(mask)
            self.addCleanup(os.umask, before)
            project = self.project(name)
            built = self.folder / name / "build"
            shutil.copytree(libraries, built, copy_function=shutil.copyfile)
            (project / ".git/info/exclude").write_text("/build/\n")
            os.utime(project / "VERSION", (1, 1))
            self.dist(project, built, project / "build/dist", env={"TZ": zone, "LC_ALL": "C"})
            archives.append({path.name: path.read_bytes() for path in (project / "build/dist").iterdir()})
        self.assertEqual(sorted(archives[0]), ["hxsetup-1.2.3.zip", "hxsetup-1.2.3.zip.sha256"])
        self.assertEqual(archives[0], archives[1])

    def test_time_comes_from_the_environment(self):
        project = self.project()
        self.dist(project, libraries, self.folder / "out", env={"SOURCE_DATE_EPOCH": "1700000000"})
        with zipfile.ZipFile(self.folder / "out/hxsetup-1.2.3.zip") as content:
            self.assertEqual({entry.date_time for entry in content.infolist()}, {(2023, 11, 14, 22, 13, 20)})

    def test_checksums(self):
        unpacked = self.release()
        run("sha256sum", "--check", "--strict", f"{unpacked.name}.zip.sha256", cwd=self.folder / "out")
        run("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=unpacked)
        listed = [line.split("  ")[1] for line in (unpacked / "SHA256SUMS").read_text().splitlines()]
        there = {str(path.relative_to(unpacked)) for path in unpacked.rglob("*") if path.is_file()}
        self.assertEqual(listed, sorted(there - {"SHA256SUMS"}))
        with open(unpacked / "arm64/hxsetup.dll", "ab") as library:
            library.write(b"\0")
        self.assertNotEqual(run("sha256sum", "--check", "SHA256SUMS", cwd=unpacked, check=False).returncode, 0)

    def test_links_lead_to_existing_files(self):
        unpacked = self.release()
        followed = 0
        for page in sorted(unpacked.rglob("*.md")):
            text = re.sub(r"```.*?```|`[^`\n]*`", "", page.read_text(encoding="utf-8"), flags=re.DOTALL)
            for target in re.findall(r"\]\(([^)#\s]+)(?:#[^)\s]*)?\)", text):
                if not re.match(r"[a-z]+:", target):
                    followed += 1
                    self.assertTrue((page.parent / target).exists(), f"{page.name}: {target}")
        self.assertGreater(followed, 20)

    def test_model_packages_can_be_made_from_it(self):
        unpacked = self.release()
        for processor, name in (("arm64", "client"), ("x64", "server")):
            made = {}
            for root in (PROJECT, unpacked):
                bench = self.folder / f"bench-{root.name}"
                bench.mkdir(exist_ok=True)
                shutil.copy(unpacked / processor / "hxsetup.dll", bench)
                for stand_in in STAND_INS:
                    shutil.copy(unpacked / f"packages/programs/{processor}/{stand_in}", bench)
                # make_packages.py requires it next to the library, but only the watched packages contain it.
                (bench / "witness.dll").write_bytes(b"")
                made[root] = bench / f"{name}.msi"
                with mock.patch.object(package, "ROOT", root):
                    package.make_package(f"{name}/{name}.wxs", processor, bench / "hxsetup.dll", name, VERSION,
                                         made[root])
            self.assertEqual(made[PROJECT].read_bytes(), made[unpacked].read_bytes())
            self.assertIn(f"ProductVersion\t{VERSION}", run("msiinfo", "export", made[unpacked], "Property").stdout)

    def test_replaces_an_earlier_one(self):
        project = self.project()
        out = self.folder / "out"
        out.mkdir()
        for left in ("hxsetup-1.2.2.zip", "hxsetup-1.2.2.zip.sha256", "hxsetup-1.2.3.zip"):
            (out / left).write_text("old")
        printed = self.dist(project, libraries, out).stdout
        self.assertEqual(sorted(path.name for path in out.iterdir()), ["hxsetup-1.2.3.zip", "hxsetup-1.2.3.zip.sha256"])
        digest = hashlib.sha256((out / "hxsetup-1.2.3.zip").read_bytes()).hexdigest()
        self.assertEqual(printed, f"{digest}  hxsetup-1.2.3.zip\n")


class Refused(DistTest):
    def assert_refused(self, project, *texts, env=None, built=None):
        """Asserts that both --check and the release fail with these texts, and leave no release."""
        runs = [self.dist(project, built or libraries, self.folder / "out", check=False, env=env)]
        if built is None:
            runs.append(self.dist(project, "--check", check=False, env=env))
        for result in runs:
            self.assertEqual((result.returncode, result.stdout), (1, ""))
            for text in texts:
                self.assertIn(text, result.stderr)
        self.assertEqual(list(self.folder.glob("out/*.zip*")), [])

    def test_good(self):
        project = self.project()
        self.git(project, "tag", "v1.2.3")
        self.git(project, "tag", "candidate")
        self.assertEqual(self.dist(project, "--check").stdout, "")
        self.dist(project, libraries, self.folder / "out")
        self.assertTrue((self.folder / "out/hxsetup-1.2.3.zip").is_file())

    def test_changed_file(self):
        project = self.project()
        (project / "docs/actions.md").write_text("Changed.\n")
        self.assert_refused(project, "are not committed", " M docs/actions.md")

    def test_staged_file(self):
        project = self.project()
        (project / "docs/actions.md").write_text("Changed.\n")
        self.git(project, "add", "-A")
        self.assert_refused(project, "M  docs/actions.md")

    def test_untracked_file(self):
        project = self.project()
        (project / "src/two.cpp").write_text("int two;\n")
        self.assert_refused(project, "?? src/two.cpp")

    def test_other_tag(self):
        project = self.project()
        self.git(project, "tag", "v1.2.4")
        self.assert_refused(project, "tagged v1.2.4, but VERSION is 1.2.3")

    def test_unreleased_changes(self):
        project = self.project(files={"CHANGELOG.md": "## [Unreleased]\n\n- More.\n\n## [1.2.3] - 2026-11-21\n"})
        self.assert_refused(project, "CHANGELOG.md begins with [Unreleased], but VERSION is 1.2.3")

    def test_authoring_without_a_form_in_version_4(self):
        project = self.project(files={"packages/library.wxi": "<Include>\n  <Icon/>\n</Include>\n"})
        self.assert_refused(project, "packages/library.wxi:2: Icon is not in the tables of tools/kit/authoring_v4.py")

    def test_no_checkout(self):
        project = self.project()
        shutil.rmtree(project / ".git")
        self.assert_refused(project, "git status")

    def test_missing_library(self):
        project = self.project()
        for missing in ("x64/hxsetup.dll", "arm64/hxsetup.pdb", "x64/hxrun.exe", "x64/agent.exe", "x64/ostrack.dll"):
            built = self.folder / missing.replace("/", "-")
            shutil.copytree(libraries, built)
            (built / missing).unlink()
            self.assert_refused(project, f"{built / missing} is missing", built=built)

    def test_half_a_certificate(self):
        project = self.project()
        file = self.folder / "file"
        file.write_text("x")
        for settings in (["CERTIFICATE"], ["KEY"], ["PKCS12", "KEY"], ["PKCS12", "CERTIFICATE", "KEY"],
                         ["PASSWORD_FILE"]):
            with self.subTest(settings):
                self.assert_refused(project, "to sign, set", env={f"HX_SIGN_{name}": str(file) for name in settings})
        self.assert_refused(project, "to sign, set", env={"HX_SIGN_TIMESTAMP": "http://127.0.0.1:1/"})

    def test_missing_certificate(self):
        project = self.project()
        self.assert_refused(project, "HX_SIGN_PKCS12 is not the absolute path", env={"HX_SIGN_PKCS12": "tools/release/dist.py"})
        self.assert_refused(project, "HX_SIGN_PKCS12 is not the absolute path", env={"HX_SIGN_PKCS12": "/none.p12"})

    def test_wrong_usage(self):
        for arguments in ([], ["--checks"], ["a", "b", "c"]):
            result = self.dist(self.project(f"tiny{len(arguments)}"), *arguments, check=False)
            self.assertEqual(result.returncode, 1)
            self.assertIn("tools/release/dist.py --check | LIBRARIES FOLDER", result.stderr)


if __name__ == "__main__":
    unittest.main()
