"""When a newer package removes an older one, the removal does not depend on the older package's DLL. That DLL may be for
another processor, so that it cannot be loaded."""

import unittest

from support import TOOLS, load_script

CHECKS = load_script("kit/kit_checks.py")
RUNS = load_script("kit/package_runs.py")
RUN = load_script("kit/installer_run.py")


class ReplacedTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.models = {model.name: model for model in CHECKS.read_kit(TOOLS.parent).models}

    def calls(self, name, run):
        """The library's actions that a run of a model reaches, with all options and with none."""
        model = self.models[name]
        scenario, = [each for each in RUNS.SCENARIOS[name] if each.name == run]
        rows = [row for row in model.rows if row.place == "execute"]
        found = {}
        for options in ({}, scenario.options):
            properties = {**model.defaults(), **scenario.properties, **options}
            for row, _ in RUN.run_sequence(rows, model.actions, properties, model.found, RUNS.ANSWERS):
                action = model.actions.get(row.action)
                if action is not None and CHECKS.is_library(action):
                    found[row.action] = action
        return found

    def test_client(self):
        """No action is called. The only exception needs a property that only a command line can set, and a removal that the
        engine starts has no command line."""
        self.assertEqual(set(self.calls("client/client.wxs", "replaced")), {"CustomAction11"})

    def test_server(self):
        """The actions that are called change nothing, and their results are ignored."""
        calls = self.calls("server/server.wxs", "replaced")
        self.assertEqual(set(calls), {"CustomAction12", "CustomAction14", "CustomAction34", "CustomAction35"})
        for name, action in calls.items():
            self.assertEqual(action.get("Return"), "ignore", name)
            self.assertNotIn(CHECKS.kind_of(action), CHECKS.LATER, name)

    def test_a_removal_by_itself(self):
        """A removal of the client needs the DLL; a removal of the server continues without it."""
        checked = {name: {action for action, attributes in self.calls(name, "removal").items()
                          if attributes.get("Return") != "ignore"}
                   for name in self.models if name in RUNS.SCENARIOS}
        self.assertEqual(checked, {"client/client.wxs": {"CustomAction1"}, "server/server.wxs": set(),
                                  "other/other.wxs": set()})


if __name__ == "__main__":
    unittest.main()
