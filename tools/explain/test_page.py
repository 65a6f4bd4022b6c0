"""explain.html is one file that can load and send nothing; the check finds a page that is not up to date."""

import base64
import contextlib
import hashlib
import io
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from explain.page import PAGE, Wrong, modules, page_of, script_of
from support import TOOLS, load_script

ROOT = TOOLS.parent
MAKE = load_script("explain/make-page.py")
COUNTS = load_script("explain/run-tests.py").counts


def content(page, tag):
    return re.search(rf"<{tag}>(.*)</{tag}>", page, re.DOTALL)[1]


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.page = (ROOT / PAGE).read_text(encoding="utf-8")

    def test_the_policy_allows_the_script_and_the_style_only(self):
        policy = re.search(r'http-equiv="Content-Security-Policy" content="([^"]*)"', self.page)[1]
        digests = {tag: base64.b64encode(hashlib.sha256(content(self.page, tag).encode()).digest()).decode() for tag in ("script", "style")}
        self.assertEqual(policy.split("; "), ["default-src 'none'", f"script-src 'sha256-{digests['script']}'", f"style-src 'sha256-{digests['style']}'",
                                              "worker-src blob:", "img-src data:", "base-uri 'none'", "form-action 'none'"])

    def test_the_page_refers_to_nothing_outside(self):
        head = self.page[:self.page.index("<script>")]
        self.assertNotRegex(head, r"\b(?:src|href)=(?!\"#main\")")
        self.assertNotRegex(content(self.page, "style"), r"url\(|@import")
        self.assertNotRegex(content(self.page, "script"), r"\b(?:fetch|XMLHttpRequest|WebSocket|EventSource|importScripts|sendBeacon|localStorage|innerHTML|outerHTML|insertAdjacentHTML|document\.write|eval)\b")

    def test_the_script_is_one_that_runs(self):
        with tempfile.NamedTemporaryFile("w", suffix=".js", encoding="utf-8") as file:
            file.write(content(self.page, "script"))
            file.flush()
            subprocess.run(["node", "--check", file.name], check=True)


class TreeTest(unittest.TestCase):
    """A made-up explain/ with two modules."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-explain-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.write("page/page.html", '<meta content="{{policy}}"><style>{{style}}</style><script>{{script}}</script>')
        self.write("page/page.css", "p {}")
        self.write("page/main.mjs", 'import { one } from "../source/one.mjs";\n\n/** @type {number} */\nconst two = /** @type {any} */ (one) + 1;\n')
        self.write("source/one.mjs", "/** The first. */\nexport const one = 1;\n")

    def write(self, name, text):
        path = self.root / "explain" / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def test_modules_come_after_what_they_import(self):
        self.assertEqual([name for name, _ in modules(self.root)], ["source/one.mjs", "page/main.mjs"])
        self.assertEqual(script_of(self.root, '{\n "a": 1\n}\n'), '"use strict";\n(() => {\nconst KNOWLEDGE = {\n"a": 1\n};\n\n'
                         "// explain/source/one.mjs\nconst one = 1;\n\n// explain/page/main.mjs\nconst two = (one) + 1;\n})();\n")

    def test_what_a_single_script_cannot_contain_is_refused(self):
        for text, says in (("export const one = 1;\nconst two = 2;\n", "'two' is also a name of explain/source/one.mjs"),
                           ("export const one = 1;\nexport { one as three };\n", "the page cannot contain: export"),
                           ('import { two } from "../page/main.mjs";\nexport const one = 1;\n', "imports itself"),
                           ('import { six } from "./six.mjs";\nexport const one = 1;\n', r"six\.mjs is missing"),
                           ('export const one = "</script>";\n', "the end of a script")):
            with self.subTest(says):
                self.write("source/one.mjs", text)
                with self.assertRaisesRegex(Wrong, says):
                    script_of(self.root, "{}")

    def test_a_text_of_the_knowledge_cannot_end_the_script(self):
        self.assertEqual(page_of(self.root, '{"a": "</script><script>"}').count("</script"), 1)

    def test_a_mark_must_be_there_once(self):
        self.write("page/page.html", "{{policy}}{{style}}")
        with self.assertRaisesRegex(Wrong, r"must have \{\{script\}\} once"):
            page_of(self.root, "{}")


class CheckTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="hx-explain-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name in ("src", "packages", "docs", "tools/texts/entry_points.json", "VERSION", "explain"):
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            if (ROOT / name).is_dir():
                shutil.copytree(ROOT / name, self.root / name, ignore=shutil.ignore_patterns("node_modules"))
            else:
                shutil.copy(ROOT / name, self.root / name)

    def run_check(self, *words):
        output = io.StringIO()
        with mock.patch.object(sys, "argv", ["make-page.py", *words, "--project", str(self.root)]), contextlib.redirect_stdout(output):
            code = MAKE.main()
        return code, output.getvalue().splitlines()

    def test_a_change_of_the_page_on_troubles_is_found_and_written(self):
        self.assertEqual(self.run_check(), (0, ["2 passed, 0 failed"]))
        page = self.root / "docs/troubleshooting.md"
        page.write_text(page.read_text(encoding="utf-8").replace("| the task is registered |", "| the task is new |"), encoding="utf-8")
        code, lines = self.run_check()
        self.assertEqual((code, lines[-1]), (1, "0 passed, 2 failed"))
        self.assertIn("FAILED explain/knowledge.json is not what its sources give: tools/explain/make-page.py --write writes it again", lines)
        self.assertEqual(self.run_check("--write")[0], 0)
        self.assertEqual(self.run_check(), (0, ["2 passed, 0 failed"]))

    def test_a_change_of_a_module_is_found(self):
        module = self.root / "explain/source/mask.mjs"
        module.write_text(module.read_text(encoding="utf-8").replace("SHORTEST_SECRET = 4", "SHORTEST_SECRET = 3"), encoding="utf-8")
        self.assertEqual(self.run_check(), (1, ["FAILED docs/explain.html is not what its sources give: tools/explain/make-page.py --write writes it again",
                                                "0 passed, 1 failed"]))

    def test_a_line_without_an_entry_is_found(self):
        page = self.root / "docs/troubleshooting.md"
        page.write_text(re.sub(r"(?m)^\| `no account to delete` .*\n", "", page.read_text(encoding="utf-8")), encoding="utf-8")
        code, lines = self.run_check()
        self.assertEqual((code, lines), (1, ["FAILED the line 'no account to delete' has no row in docs/troubleshooting.md", "0 passed, 1 failed"]))


class RunTest(unittest.TestCase):
    def test_counts_of_both_forms_of_the_runner(self):
        self.assertEqual(COUNTS("# tests 3\n# pass 2\n# fail 1\n"), (2, 1))
        self.assertEqual(COUNTS("\u2139 pass 5\n\u2139 fail 0\n"), (5, 0))
        self.assertIsNone(COUNTS("# pass 2\n"))


if __name__ == "__main__":
    unittest.main()
