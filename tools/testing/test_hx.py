"""The command line of ./hx: the help of each command, and the refusal of words that a command does not take."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from support import TOOLS

ROOT = TOOLS.parent
COMMANDS = ["setup", "build", "package", "check-package", "try", "test", "coverage", "mutants", "acceptance", "lives", "check", "run",
            "explain", "bench", "fuzz", "dist", "lint", "clean", "help"]


def copy_commands(project):
    """Copies the scripts that hx sources for its commands."""
    for script in TOOLS.glob("*/commands.sh"):
        (project / "tools" / script.parent.name).mkdir()
        shutil.copy(script, project / "tools" / script.parent.name)


class CommandLineTest(unittest.TestCase):
    """Runs a copy of hx in a folder that has nothing to build: any work there would fail or leave a file."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-front-")
        self.addCleanup(folder.cleanup)
        self.home = Path(folder.name)
        self.project = self.home / "project"
        (self.project / "tools/setup").mkdir(parents=True)
        (self.project / "build").mkdir()
        (self.project / "build/kept").write_text("kept\n", encoding="utf-8")
        shutil.copy(ROOT / "hx", self.project)
        shutil.copy(TOOLS / "setup/setup.sh", self.project / "tools/setup")
        copy_commands(self.project)
        for name in ("own.wxs", "own.msi"):
            (self.project / name).write_text("not read\n", encoding="utf-8")
        # A package that does not exist, so that a command that begins its set-up fails.
        (self.project / "tools/setup/packages.txt").write_text("hx-no-such-package 1\n", encoding="utf-8")
        self.before = self.state()

    def state(self):
        """Every file and folder with its size and time of the last change."""
        return {str(path.relative_to(self.home)): (path.stat().st_size, path.stat().st_mtime_ns)
                for path in sorted(self.home.rglob("*"))}

    def hx(self, *arguments, folder=None):
        """Runs hx in a folder and checks that nothing was made: (status, output, errors)."""
        environment = {name: value for name, value in os.environ.items() if not name.startswith("HX_")}
        environment |= {"HOME": str(self.home), "XDG_CACHE_HOME": str(self.home / "cache")}
        result = subprocess.run([self.project / "hx", *arguments], capture_output=True, text=True, check=False,
                                cwd=folder, env=environment, stdin=subprocess.DEVNULL, timeout=60)
        self.assertEqual(self.state(), self.before)
        return result.returncode, result.stdout, result.stderr

    def assert_refused(self, arguments, text, folder=None):
        self.assertEqual(self.hx(*arguments, folder=folder), (2, "", f"hx: {text}\n"))

    def test_the_help_lists_each_command(self):
        for arguments in ([], ["help"], ["--help"], ["-h"]):
            with self.subTest(arguments):
                status, output, errors = self.hx(*arguments)
                self.assertEqual((status, errors), (0, ""))
                self.assertEqual(re.findall(r"^  ([a-z]+(?:-[a-z]+)*) ", output, re.MULTILINE), COMMANDS)

    def test_each_command_prints_its_own_help(self):
        seen = set()
        for command in COMMANDS:
            answers = {self.hx(*arguments) for arguments in ([command, "--help"], [command, "-h"], ["help", command])}
            with self.subTest(command):
                (status, output, errors), = answers
                self.assertEqual((status, errors), (0, ""))
                self.assertRegex(output, rf"\Ausage: \./hx {command}\b")
                self.assertGreater(len(output.splitlines()), 2)
                seen.add(output)
        self.assertEqual(len(seen), len(COMMANDS))

    def test_help_comes_first(self):
        for arguments in (["test", "unit", "Path*", "--help"], ["clean", "--cache", "-h"], ["dist", "--nothing", "-h"]):
            with self.subTest(arguments):
                status, output, errors = self.hx(*arguments)
                self.assertEqual((status, errors), (0, ""))
                self.assertRegex(output, rf"\Ausage: \./hx {arguments[0]}\b")

    def test_help_names_each_option(self):
        for command, option in (("test", "--only"), ("dist", "--verify"), ("clean", "--cache"), ("bench", "full"),
                                ("bench", "arm64"), ("bench", "--write"),
                                ("explain", "--summary"), ("explain", "--mask"),
                                ("acceptance", "--processor"), ("acceptance", "--try")):
            with self.subTest(command):
                self.assertIn(option, self.hx(command, "--help")[1])
                self.assertIn(option, self.hx("help")[1])

    def test_the_help_says_what_a_filter_is_and_what_is_written(self):
        levels = self.hx("test", "--help")[1]
        for text in ('"Path*"', "-k", "images and emulated take none", '"N passed, 0 failed"'):
            self.assertIn(text, levels)
        self.assertNotRegex(levels, r"\d passed")
        written = self.hx("help")[1].split("\n\n")[-1]
        for option in ("--out", "--write", "--lines", "--suites", "--merge", "--planted"):
            self.assertIn(option, written)

    def test_unknown_commands(self):
        self.assert_refused(["tset"], "there is no command 'tset'. Did you mean test? ./hx help lists the commands.")
        self.assert_refused(["instal"], "there is no command 'instal'. ./hx help lists the commands.")
        self.assert_refused(["help", "cleen"],
                            "there is no command 'cleen'. Did you mean clean? ./hx help lists the commands.")

    def test_unknown_options(self):
        for command in COMMANDS:
            with self.subTest(command):
                self.assert_refused(
                    [command, "--nothing-like-it"],
                    f"{command} does not take the option '--nothing-like-it'. ./hx {command} --help lists what it takes.")
        for arguments, meant in ((["test", "--onyl", "x64"], "--only"), (["dist", "--verfy"], "--verify"),
                                 (["clean", "--cahce"], "--cache"), (["run", "--hlep"], "--help"), (["explain", "--summry", "a.log"], "--summary")):
            with self.subTest(arguments):
                command, option = arguments[:2]
                self.assert_refused(arguments, f"{command} does not take the option '{option}'. Did you mean {meant}? "
                                               f"./hx {command} --help lists what it takes.")

    def test_too_many_words(self):
        for arguments, text in (
                (["run", "now"], "run does not take 'now'. ./hx run --help lists what it takes."),
                (["clean", "cache"],
                 "clean does not take 'cache'. Did you mean --cache? ./hx clean --help lists what it takes."),
                (["bench", "ful"], "bench does not take 'ful'. Did you mean full? ./hx bench --help lists what it takes."),
                (["bench", "amr64"], "bench does not take 'amr64'. Did you mean arm64? ./hx bench --help lists what it takes."),
                (["bench", "full", "arm64"], "bench takes one of full and arm64, not full and arm64."),
                (["bench", "arm64", "full"], "bench takes one of full and arm64, not arm64 and full."),
                (["bench", "--write"], "--write belongs to 'bench arm64'. ./hx bench --help lists what bench takes."),
                (["bench", "full", "--write"], "--write belongs to 'bench arm64'. ./hx bench --help lists what bench takes."),
                (["test", "unti"], "test does not take 'unti'. Did you mean unit? ./hx test --help lists what it takes."),
                (["test", "images", "Path*"],
                 "the level images always runs all its checks: it takes no filter. ./hx test --help lists what test takes."),
                (["test", "corpus", "--only", "arm64"],
                 "the level corpus runs on x64 only, not with --only arm64. ./hx test --help lists what test takes."),
                (["test", "emulated", "--only", "x64"],
                 "the level emulated runs on ARM64 only, not with --only x64. ./hx test --help lists what test takes."),
                (["test", "emulated", "Server*"],
                 "the level emulated takes no filter: use ./hx test install FILTER --only arm64, or unit in place of install."),
                (["test", "--only", "arm64", "corpus", "paths"],
                 "the level corpus runs on x64 only, not with --only arm64. ./hx test --help lists what test takes."),
                (["test", "unit", "Path*", "Tree*"],
                 "test does not take 'Tree*'. ./hx test --help lists what it takes."),
                (["explain"], "explain needs a log. ./hx explain --help lists what it takes."),
                (["acceptance", "x6"], "acceptance does not take 'x6'. Did you mean x64? ./hx acceptance --help lists what it takes."),
                (["help", "test", "run"], "help does not take 'run'. ./hx help --help lists what it takes.")):
            with self.subTest(arguments):
                self.assert_refused(arguments, text)

    def test_lives(self):
        for arguments, text in (
                (["many"], "lives takes the number of orders first, such as 50 or 17-17, not 'many'."),
                (["1-2-3"], "lives takes the number of orders first, such as 50 or 17-17, not '1-2-3'."),
                (["5", "few"], "lives takes the number of kills after that of the orders, such as 20 or 3-3, not 'few'."),
                (["5", "2", "x"], "the seed of lives is a number of at most nine digits, not 'x'."),
                (["5", "2", "1", "9"], "lives does not take '9'. ./hx lives --help lists what it takes."),
                (["--seed"], "lives does not take the option '--seed'. ./hx lives --help lists what it takes.")):
            with self.subTest(arguments):
                self.assert_refused(["lives", *arguments], text)

    def test_processor(self):
        for arguments in (["--only"], ["--only", "arm"], ["--only", "unit"]):
            with self.subTest(arguments):
                self.assert_refused(["test", *arguments],
                                    "--only takes arm64 or x64. ./hx test --help lists what test takes.")
        for arguments in (["--processor"], ["--processor", "x86"]):
            with self.subTest(arguments):
                self.assert_refused(["acceptance", *arguments],
                                    "--processor takes arm64 or x64. ./hx acceptance --help lists what acceptance takes.")

    def test_coverage(self):
        more = "./hx coverage --help lists what"
        for arguments, text in (
                (["--processor"], f"--processor takes arm64 or x64. {more} coverage takes."),
                (["--processor", "x86"], f"--processor takes arm64 or x64. {more} coverage takes."),
                (["--lines"], f"--lines needs the path of a file. {more} coverage takes."),
                (["--suites", "tools"], "--suites needs the path of a file; 'tools' is a folder."),
                (["--lines", "tools"], "--lines needs the path of a file; 'tools' is a folder."),
                (["--lines", "/missing/folder/file"],
                 "--lines cannot write '/missing/folder/file': its folder must exist, and you need the right to write there."),
                (["--suites", "build/kept/file"],
                 "--suites cannot write 'build/kept/file': its folder must exist, and you need the right to write there."),
                (["install"], f"coverage does not take 'install'. {more} it takes."),
                (["unti"], f"coverage does not take 'unti'. Did you mean unit? {more} it takes."),
                (["unit", "Path*", "Tree*"], f"coverage does not take 'Tree*'. {more} it takes."),
                (["--only", "x64"], f"coverage does not take the option '--only'. {more} it takes.")):
            self.assert_package_refused(["coverage", *arguments], text)

    def test_mutants(self):
        for word in ("0", "-1x", "many", "1.5", "1234567"):
            refused = "does not take the option" if word[0] == "-" else "takes numbers from 1 to 999999, not"
            with self.subTest(word):
                status, output, errors = self.hx("mutants", word)
                self.assertEqual((status, output), (2, ""))
                self.assertIn(f"hx: mutants {refused} '{word}'.", errors)
        self.assert_refused(["mutants", "9", "1", "2"], "mutants does not take '2'. ./hx mutants --help lists what it takes.")
        self.assert_refused(["mutants", "--survivers"], "mutants does not take the option '--survivers'. Did you mean "
                                                        "--survivors? ./hx mutants --help lists what it takes.")

    def assert_package_refused(self, arguments, text):
        with self.subTest(arguments):
            self.assert_refused(arguments, text, self.project)

    def test_package(self):
        right = ["package", "own.wxs", "--processor", "x64"]
        for arguments, text in (
                (["package"], "package needs the path of a .wxs. ./hx package --help says more."),
                (["package", "none.wxs"], "there is no file 'none.wxs'. package needs the path of a .wxs."),
                (["package", "tools"], "there is no file 'tools'. package needs the path of a .wxs."),
                (["package", "own.wxs"], "package needs --processor arm64 or --processor x64."),
                (["package", "own.wxs", "--processor", "x86"], "--processor takes arm64 or x64, not 'x86'."),
                ([*right, "more.wxs"], "package does not take 'more.wxs'. ./hx package --help lists what it takes."),
                ([*right, "--define", "Version"], "--define takes NAME=VALUE, not 'Version'."),
                ([*right, "--define", "=1"], "--define takes NAME=VALUE, not '=1'."),
                ([*right, "--out"], "--out needs a value. ./hx package --help lists what package takes."),
                ([*right, "--out", "tools"], f"--out needs the path of a file; '{self.project}/tools' is a folder."),
                ([*right, "--defien", "A=1"],
                 "package does not take the option '--defien'. Did you mean --define? ./hx package --help lists what it takes.")):
            self.assert_package_refused(arguments, text)

    def test_check_and_try(self):
        for arguments, text in (
                (["try"], "try needs the path of an .msi. ./hx try --help says more."),
                (["check-package", "none.msi"], "there is no file 'none.msi'. check-package needs the path of an .msi."),
                (["check-package", "own.msi", "more.msi"],
                 "check-package does not take 'more.msi'. ./hx check-package --help lists what it takes."),
                (["check-package", "own.msi", "A=1"],
                 "check-package does not take 'A=1'. ./hx check-package --help lists what it takes."),
                (["try", "own.msi", "more.msi"],
                 "try takes one package, and then properties as NAME=VALUE, not 'more.msi'.")):
            self.assert_package_refused(arguments, text)

    def test_fuzz(self):
        for arguments, text in (
                (["fuzz", "fromats"], "fuzz does not take 'fromats'. Did you mean formats? ./hx fuzz --help lists what it takes."),
                (["fuzz", "path", "5"], "fuzz does not take 'path'. Did you mean paths? ./hx fuzz --help lists what it takes."),
                (["fuzz", "paths", "dates"], "fuzz takes one target, not paths and dates."),
                (["fuzz", "paths", "5", "dates"], "fuzz takes one target, not paths and dates."),
                (["fuzz", "0"], "fuzz takes a number of seconds from 1 to 999999, not 0."),
                (["fuzz", "1000000"], "fuzz takes a number of seconds from 1 to 999999, not 1000000."),
                (["fuzz", "5", "6"], "fuzz takes one number of seconds, not 5 and 6."),
                (["fuzz", "--plantd"],
                 "fuzz does not take the option '--plantd'. Did you mean --planted? ./hx fuzz --help lists what it takes."),
                (["fuzz", "--planted", "--merge"], "fuzz takes only one of --planted and --merge."),
                (["fuzz", "5", "--planted"], "fuzz does not take a number of seconds with --planted."),
                (["fuzz", "--input", "own.wxs"], "--input needs the target: ./hx fuzz TARGET --input FILE."),
                (["fuzz", "paths", "--input"], "fuzz needs the path of an input. ./hx fuzz --help says more."),
                (["fuzz", "paths", "--input", "none"], "there is no file 'none'. fuzz needs the path of an input.")):
            self.assert_package_refused(arguments, text)

    def test_paths_begin_where_the_user_is(self):
        (self.project / "tools/near.wxs").write_text("not read\n", encoding="utf-8")
        self.before = self.state()
        self.assert_refused(["package", "near.wxs"], "package needs --processor arm64 or --processor x64.",
                            self.project / "tools")
        self.assert_refused(["package", "near.wxs"], "there is no file 'near.wxs'. package needs the path of a .wxs.",
                            self.project)


class RightCommandsTest(unittest.TestCase):
    """Correct command lines pass the check and reach the set-up."""

    def test_they_begin(self):
        with tempfile.TemporaryDirectory(prefix="hx-front-") as folder:
            project = Path(folder) / "project"
            (project / "tools/setup").mkdir(parents=True)
            shutil.copy(ROOT / "hx", project)
            copy_commands(project)
            for name in ("own.wxs", "own.msi"):
                (project / name).write_text("not read\n", encoding="utf-8")
            # Replaces the set-up; exits where it would begin.
            (project / "tools/setup/setup.sh").write_text(
                'hxRoot=$PWD hxCache=none\nneed_packages() { echo begun; exit 7; }\n', encoding="utf-8")
            for words in (["setup"], ["build"], ["test"], ["test", "unit"], ["test", "unit", "Path*"],
                          ["test", "--only", "x64"], ["test", "unit", "Path*", "--only", "arm64"], ["check"], ["run"], ["bench"],
                          ["coverage"], ["mutants"], ["mutants", "5", "77", "--survivors"], ["coverage", "unit", "Path*", "--processor", "arm64", "--lines", f"{project}/l.json", "--suites", "s.json"],
                          ["bench", "full"], ["bench", "arm64"], ["bench", "--write", "arm64"], ["dist"], ["lives"], ["lives", "3"], ["lives", "17-17", "0", "42"], ["dist", "--verify"], ["lint"],
                          ["test", "acceptance"], ["acceptance"], ["acceptance", "--try", "--processor", "arm64"],
                          ["test", "packages"], ["test", "corpus"], ["test", "corpus", "paths", "--only", "x64"], ["test", "images", "--only", "arm64"],
                          ["test", "emulated"], ["test", "emulated", "--only", "arm64"],
                          ["fuzz"], ["fuzz", "20"], ["fuzz", "paths"],
                          ["fuzz", "paths", "20", "--merge"], ["fuzz", "20", "raw-formats"], ["fuzz", "--planted", "dates"],
                          ["fuzz", "dates", "--input", f"{project}/own.wxs"], ["package", f"{project}/own.wxs", "--processor", "x64"],
                          ["package", "--define", "A=", "--out", "x.msi", "--processor", "arm64", "--define", "B=c d",
                           f"{project}/own.wxs"],
                          ["check-package", f"{project}/own.msi"], ["try", f"{project}/own.msi", "A=1", "B= x"]):
                with self.subTest(words):
                    environment = {name: value for name, value in os.environ.items() if not name.startswith("HX_")}
                    result = subprocess.run([project / "hx", *words], capture_output=True, text=True, check=False,
                                            env=environment, stdin=subprocess.DEVNULL, timeout=60)
                    self.assertEqual((result.returncode, result.stdout, result.stderr), (7, "begun\n", ""))


if __name__ == "__main__":
    unittest.main()
