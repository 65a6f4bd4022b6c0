"""lint-version.py: every fault of VERSION and CHANGELOG.md is found."""

import unittest

from support import TreeTest


def changelog(*headings):
    return "# Changes\n\n" + "".join(f"{heading}\n\n- Something.\n\n" for heading in headings)


class VersionTest(TreeTest):
    script = "lint/lint-version.py"

    def files(self, version, *headings):
        return {"VERSION": version, "CHANGELOG.md": changelog(*headings)}

    def test_right(self):
        self.assert_clean(self.files("1.2.3\n", "## [1.2.3] - 2026-11-21"))

    def test_right_with_a_history_and_the_next_version(self):
        self.assert_clean(self.files("255.255.65535\n", "## [Unreleased]", "## [255.255.65535] - 2026-11-21",
                                     "## [1.10.0] - 2026-02-28", "## [1.9.9] - 2026-01-01"))

    def test_other_version(self):
        for version in ("1.2.4\n", "1.2.2\n"):
            with self.subTest(version):
                self.assert_found(self.files(version, "## [1.2.3] - 2026-11-21"),
                                  f"CHANGELOG.md:3: the newest version is 1.2.3, but VERSION has {version.strip()}")

    def test_not_three_numbers(self):
        for version in ("1.2", "1.2.3.4", "01.2.3", "1.02.3", "v1.2.3", "256.0.0", "1.256.0", "1.0.65536"):
            with self.subTest(version):
                self.assert_found(self.files(f"{version}\n", "## [Unreleased]"),
                                  "VERSION:1: must be one line with three numbers",
                                  "CHANGELOG.md:1: has no heading of a version")

    def test_no_end_of_line(self):
        self.assert_found(self.files("1.2.33", "## [1.2.33] - 2026-11-21"), "VERSION:1: must be one line")

    def test_headings(self):
        for heading in ("## 1.2.3", "## [1.2.3]", "## [1.2.3] - 21.11.2026", "## [1.2.3] - 2026-02-30",
                        "## [1.2] - 2026-11-21"):
            with self.subTest(heading):
                self.assert_found(self.files("1.2.3\n", heading), "CHANGELOG.md:3: must read",
                                  "CHANGELOG.md:1: has no heading of a version")

    def test_order(self):
        self.assert_found(self.files("1.2.3\n", "## [1.2.3] - 2026-11-21", "## [1.10.0] - 2026-10-01"),
                          "CHANGELOG.md:7: 1.10.0 is not below a newer version")
        self.assert_found(self.files("1.2.3\n", "## [1.2.3] - 2026-11-21", "## [1.2.3] - 2026-10-01"),
                          "CHANGELOG.md:7: 1.2.3 is not below a newer version")

    def test_unreleased_comes_first(self):
        self.assert_found(self.files("1.2.3\n", "## [1.2.3] - 2026-11-21", "## [Unreleased]"),
                          "CHANGELOG.md:7: must read")

    def test_missing(self):
        self.assert_found({}, "VERSION:1: must be one line", "CHANGELOG.md:1: does not exist")


if __name__ == "__main__":
    unittest.main()
