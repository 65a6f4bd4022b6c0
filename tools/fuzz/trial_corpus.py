"""The corpus of the fuzzer: each input of each target runs without a fault, and the fuzzer finds all bugs that are planted for
each target."""

import os
import tempfile
import unittest
from pathlib import Path

from fuzz import fuzzing
from fuzz.planted import BUGS, make_image

# The most inputs of a target, and the most bytes of all.
MOST_INPUTS = 400
MOST_BYTES = 600_000


class CorpusTrial(unittest.TestCase):
    def setUp(self):
        run = Path(os.environ["HX_RUN_FOLDER"])
        self.tools = fuzzing.tools_of(run)
        folder = tempfile.TemporaryDirectory(prefix="fuzz-", dir=run)
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def test_every_input(self):
        for target in fuzzing.TARGETS:
            with self.subTest(target):
                inputs = fuzzing.corpus(target)
                result = fuzzing.replay(self.tools, target, inputs, self.folder / target)
                self.assertIsNone(result.input, fuzzing.name_places(result.output, self.tools.image)[-4000:])
                self.assertEqual(result.output.count("Executed "), len(inputs))

    def test_planted_bugs(self):
        bugs = [(target, index, bug) for target in fuzzing.TARGETS for index, bug in enumerate(BUGS[target])]
        for target, index, bug in bugs:
            with self.subTest(target, bug=bug.what):
                folder = self.folder / target / str(index)
                folder.mkdir(parents=True)
                planted = self.tools._replace(image=make_image(bug, folder))
                # The kept input alone first: with the whole corpus another input may meet another check.
                kept = fuzzing.CORPUS / target / fuzzing.planted_name(index)
                result = fuzzing.replay(planted, target, [kept], folder)
                if not bug.is_found(result):
                    result = fuzzing.fuzz(planted, target, folder, runs=bug.runs, seed=1)
                self.assertIsNotNone(result.input, f"not found in {result.runs} runs")
                self.assertRegex(result.message, bug.says)

    def test_size(self):
        sizes = {target: [file.stat().st_size for file in fuzzing.corpus(target)] for target in fuzzing.TARGETS}
        for target, all_sizes in sizes.items():
            with self.subTest(target):
                self.assertTrue(0 < len(all_sizes) <= MOST_INPUTS, f"{len(all_sizes)} inputs")
        self.assertLessEqual(sum(map(sum, sizes.values())), MOST_BYTES)
        self.assertEqual({folder.name for folder in fuzzing.CORPUS.iterdir()}, set(fuzzing.TARGETS))


if __name__ == "__main__":
    unittest.main()
