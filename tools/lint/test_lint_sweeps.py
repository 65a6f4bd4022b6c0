"""lint-sweeps.py: every entry point is swept."""

import unittest

from support import TreeTest

LIST = "src/frame/entry_points.def"


def test(body, name="SurvivesEveryFailure"):
    return f"TEST_F(OneTest, {name}) {{\n{body}\n}}\n"


class SweepsTest(TreeTest):
    script = "lint/lint-sweeps.py"

    def setUp(self):
        super().setUp()
        self.write({LIST: "EXPORTS\nCustomAction7\nCustomAction12\n",
                    "tests/actions/client/seven_test.cpp": test("  FailEachCall(7);")})

    def twelve(self, text):
        return {"tests/actions/server/twelve_test.cpp": text}

    def assert_missing(self, text):
        self.assert_found(self.twelve(text), f"{LIST}: CustomAction12 has no sweep")

    def test_number(self):
        self.assert_clean(self.twelve(test(
            "  EXPECT_GT(FailEachCall(12, [&](rig::World& world) { Set(world, 1); }), 4u);")))

    def test_no_sweep(self):
        self.assert_missing(test("  EXPECT_EQ(Run(12), 0u);"))

    def test_each_entry_point_that_is_not_swept(self):
        self.assert_found({LIST: "EXPORTS\nCustomAction7\nCustomAction8\nCustomAction12\n"},
                          f"{LIST}: CustomAction8 has no sweep", f"{LIST}: CustomAction12 has no sweep")

    def test_another_argument(self):
        self.assert_missing(test("  FailEachCall(7, {}, 12);"))

    def test_comment(self):
        self.assert_missing(test("  // FailEachCall(12);"))

    def test_disabled(self):
        self.assert_missing(test("  FailEachCall(12);", "DISABLED_SurvivesEveryFailure"))

    def test_declaration(self):
        self.assert_missing("size_t FailEachCall(int number = 12);\n")

    def test_choice(self):
        self.assert_clean(self.twelve(test("  FailEachCall(isRollback ? 7 : 12);")))

    def test_loop(self):
        self.assert_clean(self.twelve(test("  for (int number : {7, 12}) {\n    FailEachCall(number);\n  }")))

    def test_loop_over_others(self):
        self.assert_missing(test("  for (int number : {7, 13}) FailEachCall(number);\n"
                                 "  for (int number : {12}) Run(number);"))

    def test_loop_in_another_test(self):
        self.assert_missing(test("  for (int number : {12}) Run(number);") +
                            test("  for (int number : {7}) FailEachCall(number);", "Other"))

    def test_helper(self):
        helper = ("size_t OneTest::Sweep(int number, const Arrange& arrange) {\n"
                  "  return FailEachCall([number](rig::Scene& scene) {\n"
                  "    return scene.library.CustomAction(number, scene.rig.session);\n  }, arrange);\n}\n")
        deeper = "void ExpectLogs(int action) {\n  Sweep(action, {});\n}\n"
        self.assert_clean({"tests/actions/support.cpp": helper,
                           "tests/actions/support.h": deeper,
                           **self.twelve(test("  ExpectLogs(12);"))})

    def test_helper_that_sweeps_something_else(self):
        self.assert_missing("void Runs(int number) {\n  FailEachCall(7);\n  Run(number);\n}\n" + test("  Runs(12);"))

    def test_piece_of_work(self):
        self.assert_clean(self.twelve(test(
            "  FailEachCall([](rig::Scene& scene) { return scene.library.CustomAction(12, scene.rig.session); });")))


if __name__ == "__main__":
    unittest.main()
