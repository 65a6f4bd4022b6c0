"""The packages of samples/, which new authors wrote by the guide alone: each is made, checked, tried and removed, for both
processors. Part of ./hx test packages; needs a Windows of each processor."""

import contextlib
import io
import os
import signal
import subprocess
import tempfile
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from packages import ices, package, try_package, validation
from packages.accepted import reason_for
from packages.tables import read_package
from testing.planning import EMULATED

TOOLS = Path(__file__).resolve().parents[1]
SAMPLES = TOOLS / "packages/samples"
RUN_FOLDER = Path(os.environ["HX_RUN_FOLDER"])
PROCESSORS = os.environ["HX_PROCESSORS"].split()
# The stand-in for the programs of all samples.
PROGRAM = "agent.exe"

# For each sample: the properties of its trial, lines that its installation prints, and what the removal leaves.
EXPECTED = {
    "firewall": ((), ["+ C:\\Program Files\\Brackwell\\Sluice\\sluice.exe", "+ product {product} = 1.0.0"],
                 ["+ C:\\Program Files\\Brackwell\\"]),
    "account": (("PROP_ACCOUNTTYPE=1", "PROP_ACCOUNTID=otter"),
                ["+ HKLM\\SOFTWARE\\Brackwell\\Ledger\\Account = \"otter\"", "+ product {product} = 1.0.0"],
                ["+ C:\\Program Files\\Brackwell\\"]),
    "migration": ((), ["+ C:\\Program Files\\Halvorstead\\Vantor\\vt.exe", "+ product {product} = 2.0.0"], None),
    "client": (("DIR_CLIENT=C:\\Tools\\Lantern\\",),
               ["+ HKLM\\SOFTWARE\\Brackwell\\Lantern\\Folder = \"C:\\Tools\\Lantern\\\"", "+ product {product} = 1.0.0"],
               ["+ C:\\Tools\\"]),
    "server": (("PROP_ACCOUNTTYPE=1",),
               ["+ HKLM\\SOFTWARE\\Brackwell\\Harbor\\Account = \"harbor\"", "+ product {product} = 1.0.0"], None),
}


class SamplesTrial(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="hx-samples-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.cases = [(name, processor) for processor in PROCESSORS for name in EXPECTED]
        cls.found = {case: cls.make(*case) for case in cls.cases}

    @classmethod
    def path(cls, name, processor):
        return cls.folder / f"{name}-{processor}.msi"

    @classmethod
    def make(cls, name, processor):
        """What the rules of the fragments find in a sample."""
        builds = RUN_FOLDER / processor
        return package.make(SAMPLES / f"{name}.wxs", processor, builds / "hxsetup.dll", [f"ProgramFile={builds / PROGRAM}"],
                            cls.path(name, processor))

    def test_each_sample_has_its_expectation(self):
        self.assertEqual(sorted(EXPECTED), sorted(path.stem for path in SAMPLES.glob("*.wxs")))

    def test_made_without_findings(self):
        for case, found in self.found.items():
            with self.subTest(case):
                self.assertEqual(found, [])

    def test_checked_without_findings(self):
        paths = [self.path(*case) for case in self.cases]
        reports = ices.check(paths, program=RUN_FOLDER / "x64/ices.exe")
        for case, path, report in zip(self.cases, paths, reports):
            with self.subTest(case):
                database = read_package(path)
                found = [*validation.check(database), *report.findings]
                self.assertEqual([finding for finding in found if not reason_for(finding, database)], [])
                self.assertEqual(len(report.ran), len(ices.WORKING))

    def test_tried_and_removed(self):
        def trial(case):
            name, processor = case
            properties, programs = EXPECTED[name][0], RUN_FOLDER / f"{processor}-tests"
            path, logs = self.path(*case), self.folder / f"{name}-{processor}-logs"
            for _ in range(try_package.ATTEMPTS):
                status, lines = try_package.trial_of(read_package(path), path, processor, properties, programs, logs)
                # Under emulation a process of the engine, or of Windows, dies now and then while it starts.
                if status == 0 or processor != EMULATED and status != try_package.TIMED_OUT:
                    break
            return status, try_package.parse(lines)

        with ThreadPoolExecutor(2) as pool:
            for case, (status, runs) in zip(self.cases, pool.map(trial, self.cases)):
                _, lines, left = EXPECTED[case[0]]
                with self.subTest(case):
                    self.assertEqual(status, 0)
                    self.assertEqual({name: code for name, (code, _) in runs.items()}, {"install": 0, "remove": 0, "rest": 0})
                    for line in lines:
                        self.assertIn(line, runs["install"][1])
                    self.assertIn("- product {product}", runs["remove"][1])
                    if left is not None:
                        self.assertEqual([line for line in runs["rest"][1] if not line.startswith("~ ")], left)


class InterruptedTrial(unittest.TestCase):
    def test_an_interrupted_run_leaves_no_process(self):
        with tempfile.TemporaryDirectory(prefix="hx-interrupted-") as name:
            target = Path(name) / "client.msi"
            builds = RUN_FOLDER / "x64" if (RUN_FOLDER / "x64/hxsetup.dll").is_file() else RUN_FOLDER / PROCESSORS[0]
            with contextlib.redirect_stdout(io.StringIO()):
                package.make(SAMPLES / "client.wxs", builds.name, builds / "hxsetup.dll", [f"ProgramFile={builds / PROGRAM}"],
                             target)
            # Every process of the run inherits it.
            mark = f"TRIAL_OF_PACKAGES={name}"
            front = subprocess.Popen(["env", "--default-signal", mark, TOOLS.parent / "hx", "try", target],
                                     stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            deadline = time.monotonic() + 120
            while not self.processes(mark, "session.sh") and time.monotonic() < deadline and front.poll() is None:
                time.sleep(0.05)
            self.assertTrue(self.processes(mark, "session.sh"))
            front.send_signal(signal.SIGINT)
            output = front.communicate(timeout=60)[0].decode()
            self.assertEqual(front.returncode, 130, output)
            self.assertEqual(self.processes(mark), [])
            self.assertEqual(sorted(path.name for path in Path(name).iterdir()), ["client.msi"])

    @staticmethod
    def processes(mark, name=""):
        """The processes of a run by the variable that they inherit."""
        found = []
        for path in Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                if mark.encode() in (path / "environ").read_bytes() and name.encode() in (path / "cmdline").read_bytes():
                    found.append((path / "cmdline").read_bytes())
        return found


if __name__ == "__main__":
    unittest.main()
