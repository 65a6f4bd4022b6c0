"""The tools of the fuzzer, without the fuzzer: its targets, its planted bugs, and what they read of its output."""

import contextlib
import fcntl
import io
import json
import os
import re
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from fuzz import fuzzing, planted
from fuzz.planted import BUGS, Bug
from support import TOOLS, load_script

ROOT = TOOLS.parent
FUZZ, TRIAL = load_script("fuzz/fuzz.py"), load_script("fuzz/trial_corpus.py")

FOUND = """INFO: Loaded 1 modules   (3073 inline 8-bit counters): 3073 [0x480000047000, 0x480000047c01),
#618 NEW    cov: 88 ft: 206 corp: 56/2619b
hxfuzz: a block is left over
==1== ERROR: libFuzzer: deadly signal
    #7 0x48000001ae9c  (<unknown module>)
Test unit written to /tmp/x/crash-12
stat::number_of_executed_units: 618
stat::average_exec_per_sec:     309
"""
FINISHED = """INFO: Loaded 1 modules   (3073 inline 8-bit counters): 3073 [0x480000047000, 0x480000047c01),
#1000 DONE   cov: 90 ft: 206 corp: 56/2619b
stat::number_of_executed_units: 1000
stat::average_exec_per_sec:     500
"""


class TargetsTest(unittest.TestCase):
    def test_all_lists_are_the_same(self):
        program = (ROOT / "fuzz/main.cpp").read_text(encoding="utf-8")
        self.assertEqual(tuple(re.findall(r'\{"([a-z-]+)", Run\w+\}', program)), fuzzing.TARGETS)
        shell = (TOOLS / "fuzz/commands.sh").read_text(encoding="utf-8")
        self.assertEqual(tuple(re.search(r"^fuzzTargets=\((.*)\)$", shell, re.MULTILINE)[1].split()), fuzzing.TARGETS)
        self.assertEqual(tuple(re.findall(r"^                  ([a-z-]+)  +\S", shell, re.MULTILINE)), fuzzing.TARGETS)
        self.assertEqual(tuple(BUGS), fuzzing.TARGETS)
        self.assertEqual({folder.name for folder in fuzzing.CORPUS.iterdir()}, set(fuzzing.TARGETS))

    def test_each_corpus_has_the_inputs_of_its_bugs(self):
        for target in fuzzing.TARGETS:
            planted_inputs = [file.name for file in fuzzing.corpus(target) if file.name.startswith(fuzzing.PLANTED)]
            self.assertEqual(planted_inputs, sorted(fuzzing.planted_name(index) for index in range(len(BUGS[target]))))

    def test_actions_runs_each_entry_point(self):
        entries = re.findall(r"^CustomAction\d+$", (ROOT / "src/frame/entry_points.def").read_text(encoding="utf-8"), re.MULTILINE)
        actions = (ROOT / "fuzz/targets/actions.cpp").read_text(encoding="utf-8")
        self.assertEqual(sorted(re.findall(r'\{"(CustomAction\d+)", Form::', actions)), sorted(entries))

    def test_words_belong_to_a_target(self):
        for file in fuzzing.WORDS.iterdir():
            self.assertIn(file.stem, fuzzing.TARGETS)


class PlantedTest(unittest.TestCase):
    def test_each_bug_can_be_planted(self):
        for bug in (bug for bugs in BUGS.values() for bug in bugs):
            with self.subTest(bug.what):
                right = (ROOT / "src" / bug.file).read_text(encoding="utf-8")
                self.assertEqual(planted.planted_source(bug), right.replace(bug.right, bug.wrong))
                self.assertNotEqual(planted.planted_source(bug), right)

    def test_a_bug_is_found_by_its_own_check(self):
        result = fuzzing.read_result(fuzzing.Ended(77, FOUND, 1))
        bug = Bug("", "", "", "", 1, "^a block is ")
        self.assertTrue(bug.is_found(result))
        self.assertFalse(bug._replace(says="^a record is ").is_found(result))
        self.assertFalse(bug.is_found(result._replace(input=None)))

    def test_a_bug_that_fits_no_more(self):
        with self.assertRaisesRegex(planted.Misfit, "has the text of the bug 0 times, not once: 'no such text'"):
            planted.planted_source(Bug("", "format/format.cpp", "no such text", "", 1, ""))
        with self.assertRaisesRegex(planted.Misfit, "times, not once"):
            planted.planted_source(Bug("", "format/format.cpp", "case", "", 1, ""))

    def test_the_library_with_a_bug(self):
        """One object is compiled again, and linked with the objects of the real library."""
        with tempfile.TemporaryDirectory() as folder:
            build, own = Path(folder) / "build", Path(folder) / "own"
            build.mkdir()
            own.mkdir()
            source = ROOT / "src/format/format.cpp"
            (build / "compile_commands.json").write_text(json.dumps([
                {"directory": str(build), "file": str(ROOT / "src/format/other.cpp"), "command": "false"},
                {"directory": str(build), "file": str(source), "command": f"cc -DA='b c' -o o/format.obj -c {source}"}]))
            commands = []

            def run(words, **options):
                with (Path(folder) / "lock").open() as lock, self.assertRaises(BlockingIOError):
                    fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
                commands.append((list(map(str, words)), str(options.get("cwd"))))
                return mock.Mock(stdout="first\n: && cc -Wl,--pdb=hxinternals.pdb -o hxinternals.dll o/a.obj o/format.obj && :\n")

            bug = Bug("", "format/format.cpp", "if (buffer) *output.at = 0;", "", 1, "")
            with mock.patch.object(planted, "BUILD", build), mock.patch.object(planted, "LOCK", Path(folder) / "lock"), \
                    mock.patch.object(planted.subprocess, "run", run):
                image = planted.make_image(bug, own)
            self.assertEqual(image, own / "hxinternals.dll")
            self.assertNotIn("*output.at = 0", (own / "format/format.cpp").read_text(encoding="utf-8"))
            self.assertEqual([commands[0], commands[2]], [
                (["cc", "-DA=b c", "-o", f"{own}/planted.obj", "-c", f"{own}/format/format.cpp", "-w",
                  "-iquote", str(own)], str(build)),
                (["cc", f"-Wl,--pdb={own}/hxinternals.pdb", "-o", f"{own}/hxinternals.dll", "o/a.obj", f"{own}/planted.obj"],
                 str(build))])

            # A bug in a header: the source is compiled as it is, and finds the changed header first.
            bug = Bug("", "format/output.h", "if (room == 0) return;", "", 1, "", compiled="format/format.cpp")
            with mock.patch.object(planted, "BUILD", build), mock.patch.object(planted, "LOCK", Path(folder) / "lock"), \
                    mock.patch.object(planted.subprocess, "run", run):
                planted.make_image(bug, own)
            self.assertNotIn("if (room == 0) return;", (own / "format/output.h").read_text(encoding="utf-8"))
            self.assertEqual(commands[3][0], ["cc", "-DA=b c", "-o", f"{own}/planted.obj", "-c", str(source), "-w",
                                              "-iquote", str(own)])


class ResultTest(unittest.TestCase):
    def test_nothing_found(self):
        result = fuzzing.read_result(fuzzing.Ended(0, FINISHED, 1.6))
        self.assertEqual(result[:6], (1000, 500, 625, 90, 3073, None))

    def test_found(self):
        result = fuzzing.read_result(fuzzing.Ended(77, FOUND, 0))
        self.assertEqual(result[:6], (618, 309, 0, 88, 3073, Path("/tmp/x/crash-12")))
        self.assertEqual(result.message, "a block is left over")

    def test_found_by_the_checker(self):
        output = "Running: /tmp/in\n==1==ERROR: AddressSanitizer: SEGV\nSUMMARY: AddressSanitizer: SEGV in Load\n"
        result = fuzzing.read_result(fuzzing.Ended(1, output, 0))
        self.assertEqual((result.input, result.message), (Path("/tmp/in"), "SEGV in Load"))

    def test_a_fuzzer_that_does_not_start(self):
        with self.assertRaisesRegex(SystemExit, "ended with status 77:\nhxfuzz: cannot open the image x"):
            fuzzing.read_result(fuzzing.Ended(77, "hxfuzz: cannot open the image x", 0))

    def test_processor_time(self):
        """Only that of the fuzzer counts, not that of an earlier run."""
        with tempfile.TemporaryDirectory() as folder:
            program = Path(folder) / "hxfuzz"
            program.write_text("#!/bin/sh\nfor i in $(seq 50000); do :; done\n")
            program.chmod(0o755)
            began = fuzzing.processor_time()
            ended = fuzzing.start(fuzzing.Tools(program, "x.dll"), "dates", [], folder)
            self.assertGreater(ended.processor, 0)
            self.assertAlmostEqual(began + ended.processor, fuzzing.processor_time())
            with mock.patch.object(fuzzing, "processor_time", side_effect=[5, 7.5]):
                self.assertEqual(fuzzing.start(fuzzing.Tools(program, "x.dll"), "dates", [], folder).processor, 2.5)

    def test_a_row_has_every_figure_of_the_page(self):
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            FUZZ.row("dates", fuzzing.read_result(fuzzing.Ended(0, FINISHED, 1.6)), "nothing found")
        self.assertEqual(re.sub(" +", " ", output.getvalue()), "dates 1,000 runs 500 a second, 625 a second of processor time "
                                                               "90 of 3,073 edges nothing found\n")

    def test_names_of_places(self):
        def run(words, **options):
            self.assertEqual((words[1], options["input"]), ("--obj=x.dll", "0x18001ae9c\n"))
            return mock.Mock(stdout="Convert\nsrc/format/format.cpp:7:3\n")

        with mock.patch.object(fuzzing.subprocess, "run", run):
            text = fuzzing.name_places(FOUND, "x.dll")
        self.assertIn("    #7 Convert src/format/format.cpp:7:3\n", text)
        self.assertEqual(fuzzing.name_places(FINISHED, "x.dll"), FINISHED)


class CorpusTest(unittest.TestCase):
    def test_the_trial_writes_into_the_folder_of_the_run(self):
        with tempfile.TemporaryDirectory() as folder, mock.patch.dict(os.environ, {"HX_RUN_FOLDER": folder}):
            trial = TRIAL.CorpusTrial("test_size")
            trial.setUp()
            self.assertEqual(trial.folder.parent, Path(folder))
            self.assertEqual(trial.tools, (Path(folder) / "fuzz/hxfuzz", Path(folder) / "x64-fuzz/hxinternals.dll"))
            trial.doCleanups()
            self.assertEqual(list(Path(folder).iterdir()), [])

    def test_replacing(self):
        with tempfile.TemporaryDirectory() as folder:
            folder = Path(folder)
            (folder / "corpus/dates").mkdir(parents=True)
            (folder / "corpus/dates/old").write_bytes(b"old")
            (folder / "new").mkdir()
            (folder / "new/b").write_bytes(b"\r\n\0")
            with mock.patch.object(fuzzing, "CORPUS", folder / "corpus"):
                self.assertEqual(fuzzing.corpus("paths"), [])
                fuzzing.replace_corpus("dates", folder / "new")
                self.assertEqual([file.read_bytes() for file in fuzzing.corpus("dates")], [b"\r\n\0"])
                # They find bugs, but reach nothing that another input does not reach.
                (folder / "corpus/dates/planted").write_bytes(b"bug")
                (folder / "corpus/dates/planted-2").write_bytes(b"second")
                fuzzing.replace_corpus("dates", folder / "new")
                self.assertEqual([file.read_bytes() for file in fuzzing.corpus("dates")], [b"\r\n\0", b"bug", b"second"])


if __name__ == "__main__":
    unittest.main()
