"""The corpus of the fuzzer: each input of each target runs without a fault, and the fuzzer finds the bug that is planted for
each target."""

import os
import tempfile
import unittest
from pathlib import Path

from fuzz import fuzzing
from fuzz.planted import BUGS, make_image

# The most inputs of a target, and the most bytes of all.
MOST_INPUTS = 200
MOST_BYTES = 600_000


def tools():
    """The fuzzer and the library of this run."""
    folder = Path(os.environ["HX_RUN_FOLDER"])
    return fuzzing.Tools(folder / "fuzz/hxfuzz", folder / "x64-fuzz/hxinternals.dll")


class CorpusTrial(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-fuzz-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def test_every_input(self):
        for target in fuzzing.TARGETS:
            with self.subTest(target):
                inputs = fuzzing.corpus(target)
                result = fuzzing.replay(tools(), target, inputs, self.folder / target)
                self.assertIsNone(result.input, fuzzing.name_places(result.output, tools().image)[-4000:])
                self.assertEqual(result.output.count("Executed "), len(inputs))

    def test_planted_bugs(self):
        for target in fuzzing.TARGETS:
            with self.subTest(target):
                folder = self.folder / target
                folder.mkdir()
                planted = make_image(BUGS[target], folder)._replace(program=tools().program)
                result = fuzzing.fuzz(planted, target, folder, seeds=fuzzing.CORPUS / target, runs=BUGS[target].runs, seed=1)
                self.assertIsNotNone(result.input, f"{BUGS[target].what}: not found in {result.runs} runs")

    def test_size(self):
        sizes = {target: [file.stat().st_size for file in fuzzing.corpus(target)] for target in fuzzing.TARGETS}
        for target, all_sizes in sizes.items():
            with self.subTest(target):
                self.assertTrue(0 < len(all_sizes) <= MOST_INPUTS, f"{len(all_sizes)} inputs")
        self.assertLessEqual(sum(map(sum, sizes.values())), MOST_BYTES)
        self.assertEqual({folder.name for folder in fuzzing.CORPUS.iterdir()}, set(fuzzing.TARGETS))


if __name__ == "__main__":
    unittest.main()
