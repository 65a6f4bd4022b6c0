"""The workflow for hosted runners: that it is YAML, that its steps fit together, and that it calls what exists. No runner is
here, so this is all that can be checked."""

import re
import subprocess
import unittest

import yaml

from acceptance import pack
from release import dist
from support import TOOLS

FILE = TOOLS.parent / ".github/workflows/acceptance.yml"


class WorkflowTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # The base loader reads every scalar as text, so that "on" stays a word.
        cls.workflow = yaml.load(FILE.read_text(encoding="utf-8"), yaml.BaseLoader)
        cls.jobs = cls.workflow["jobs"]

    def steps(self, job):
        return self.jobs[job]["steps"]

    def test_its_parts(self):
        self.assertEqual(set(self.workflow), {"name", "on", "permissions", "jobs"})
        self.assertEqual(set(self.jobs), {"archives", "windows"})
        for name, job in self.jobs.items():
            self.assertIn("timeout-minutes", job, name)
            for step in job["steps"]:
                self.assertEqual(len({"run", "uses"} & set(step)), 1, step)
                self.assertEqual(set(step) - {"name", "run", "uses", "with", "if", "shell"}, set(), step)

    def test_each_processor_has_a_runner(self):
        pairs = {(row["runner"], row["processor"]) for row in self.jobs["windows"]["strategy"]["matrix"]["include"]}
        self.assertEqual(pairs, {("windows-2022", "x64"), ("windows-2025", "x64"), ("windows-11-arm", "arm64"),
                                 ("windows-11-arm", "x64")})
        self.assertEqual({processor for _, processor in pairs}, set(dist.PROCESSORS))

    def test_variables_of_the_matrix_exist(self):
        keys = set(self.jobs["windows"]["strategy"]["matrix"]["include"][0])
        used = re.findall(r"\$\{\{\s*([^}]+?)\s*\}\}", FILE.read_text(encoding="utf-8"))
        self.assertTrue(used)
        self.assertEqual(set(used) - {f"matrix.{key}" for key in keys}, set())

    def test_the_archives_that_are_made_are_those_that_are_run(self):
        upload = self.steps("archives")[-1]["with"]
        download = self.steps("windows")[0]["with"]
        self.assertEqual(upload["name"], download["name"])
        self.assertEqual(upload["path"], "build/acceptance/*.zip")
        name = pack.name_of("1.2.3", "x64")
        self.assertTrue(name.endswith("-x64") and name.startswith("hxsetup-acceptance-"))
        self.assertIn("run", self.steps("archives")[3])
        self.assertEqual(self.steps("archives")[3]["run"], "./hx acceptance")

    def test_the_script_takes_the_words(self):
        words = self.steps("windows")[2]["run"].split()[1:]
        script = pack.SCRIPT.read_text(encoding="ascii")
        for word in words:
            if word.startswith("/"):
                self.assertIn(f'"%~1"=="{word}"', script)
        self.assertEqual(self.jobs["windows"]["needs"], "archives")

    def test_the_time_limit_is_longer_than_those_of_the_programs(self):
        limits = [int(seconds) for seconds in re.findall(r"^call :run \S+ (\d+) ", pack.SCRIPT.read_text(), re.MULTILINE)]
        self.assertEqual(len(limits), 4)
        self.assertGreater(int(self.jobs["windows"]["timeout-minutes"]) * 60, sum(limits))

    def test_shell_steps(self):
        for step in self.steps("archives"):
            if "run" in step:
                result = subprocess.run(["bash", "-n", "-c", step["run"]], capture_output=True, text=True, check=False)
                self.assertEqual((result.returncode, result.stderr), (0, ""))


if __name__ == "__main__":
    unittest.main()
