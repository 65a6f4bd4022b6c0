"""lint-english.py: finds each refused word in comments, pages and messages, and none in code or in quoted texts."""

import subprocess
import unittest

from support import TreeTest

# Each in two parts, so that this file does not contain it.
LACKS, LACKING, LACKED, OF_MEMORY = "lac" "ks", "lac" "king", "lac" "ked", "lack o" "f memory"
IS_NONE, BE_HAD, ANEW = "is no" "ne", "be ha" "d", "an" "ew"
DELIBERATE, DELIBERATELY = "delib" "erate", "delib" "erately"
SO_IT_IS, NO_ACCOUNT, FOR_EVER = "so it is whe" "n", "of no accoun" "t", "for eve" "r"
WORDS = {LACKS: "'has no'", LACKING: "'has no'", LACKED: "'has no'", OF_MEMORY: "'out of memory'", IS_NONE: "'is not'",
         "are no" "ne": "'is not'", BE_HAD: "'is available'", ANEW: "'again'", DELIBERATE: "'On purpose:'",
         DELIBERATELY: "'On purpose:'", SO_IT_IS: "'also if'", NO_ACCOUNT: "'ignored'", FOR_EVER: "'forever'"}


class EnglishTest(TreeTest):
    script = "lint/lint-english.py"

    def setUp(self):
        super().setUp()
        subprocess.run(["git", "init", "-q", self.root], check=True)

    def test_each_word(self):
        for word, plain in WORDS.items():
            for written in (word, word.capitalize(), word.upper()):
                with self.subTest(written):
                    self.assert_found({"docs/page.md": f"# Page\n\nMemory {written} here.\n"},
                                      f"docs/page.md:3: '{written}': write {plain}")

    def test_similar_words(self):
        self.assert_clean({"docs/page.md": "A lack of time, black, slack; renewed, a new one; deliberation; for every file; "
                                           f"`x` is None; there {IS_NONE}, there are no" "ne; a head is nonempty.\n"})

    def test_several_in_one_line(self):
        self.assert_found({"docs/page.md": f"{ANEW} and {LACKS}\n"}, f"docs/page.md:1: '{ANEW}'",
                          f"docs/page.md:1: '{LACKS}'")

    def test_words_over_two_lines(self):
        first, last = OF_MEMORY.rsplit(" ", 1)
        for name, text in (("docs/page.md", f"One {first}\n{last} two\n"),
                           ("src/base/a.h", f"/// One {first}\n/// {last} two\n"),
                           ("src/base/b.h", f"int a;  ///< one {first}\n        ///< {last} two\n"),
                           ("src/base/c.cpp", f"/* One {first}\n * {last} two */\n"),
                           ("tools/a.py", f"    # One {first}\n    # {last} two\n"),
                           ("tools/b.py", f'print("one {first} "\n      f"{last} two")\n'),
                           ("packages/a.cmd", f"rem One {first}\nrem {last} two\n"),
                           ("tools/a.sh", f"# One {first}\n# {last} two\n")):
            with self.subTest(name):
                self.assert_found({name: text}, f"{name}:1: '{OF_MEMORY}': write 'out of memory'")
                (self.root / name).unlink()

    def test_wrapped_sentence_with_there(self):
        self.assert_clean({"src/base/a.h": f"/// Null if there\n/// {IS_NONE}.\n"})

    def test_where_prose_is(self):
        for name, text in (("src/base/a.cpp", f'int a = 1;\nconst char* b = "c";  // It {LACKS} a name.\n'),
                           ("src/base/a.h", f"#pragma once\n/// It {LACKS} a name.\n"),
                           ("src/base/b.h", f"\n#define A 1  // It {LACKS} a name.\n"),
                           ("tests/a.cpp", f"\n/* It {LACKS} a name. */\n"),
                           ("src/runtime/a.rc", f"\n// It {LACKS} a name.\n"),
                           ("packages/a.wxi", f"<Include>\n<!-- It {LACKS} a name. --></Include>\n"),
                           ("packages/b.wxi", f'<Include>\n<A Error="It {LACKS} a name."/></Include>\n'),
                           ("packages/c.wxs", f"<Wix>\n<Error>It {LACKS} a name.</Error></Wix>\n"),
                           ("tools/a.py", f'\n"""It {LACKS} a name."""\n'),
                           ("tools/b.py", f"x = 1\nraise Error(f'{{x}} {LACKS} a name')\n"),
                           ("tools/c.py", f"x = 1\ny = x  # It {LACKS} a name.\n"),
                           ("tools/a.sh", f'\nsay "it {LACKS} a name"\n'),
                           ("hx", f"#!/bin/bash\n# It {LACKS} a name.\n"),
                           ("CMakeLists.txt", f"\n# It {LACKS} a name.\n"),
                           ("src/imports/a.def", f"\n; It {LACKS} a name.\n")):
            with self.subTest(name):
                self.assert_found({name: text}, f"{name}:2: '{LACKS}': write ")
                (self.root / name).unlink()

    def test_code_and_quoted_texts(self):
        self.assert_clean({
            "src/base/a.cpp": f'#include "{LACKS}.h"\n// The line "it {LACKS} a name", and `{ANEW}`.\n'
                              f'int {ANEW} = 1\'000;\nLog("it {LACKS} a name, // {ANEW}");\n'
                              f'const char* text = R"(it {LACKS}\n// {ANEW})";\n// The text "it\n// {LACKS} a name".\n',
            "tests/a.cpp": f"ledger.{DELIBERATE.capitalize()}(1);\n",
            "docs/page.md": f'The line "it {LACKS} a name", or `{ANEW} x`.\n\n```text\nit {LACKS} a name\n```\n',
            "packages/a.wxi": f'<Include>\n<!-- The line "it {LACKS} a name". --></Include>\n',
            "tools/a.py": f"{ANEW} = {{'{LACKS}': 1}}\n# The line \"it {LACKS} a name\".\nprint(f'value {{{ANEW}}} of it')\n"})

    def test_ignored_and_binary_files(self):
        self.write({"build/log.txt": LACKS, "icon.bin": "\0" + LACKS})
        self.assert_clean({".gitignore": "build/\n"})


if __name__ == "__main__":
    unittest.main()
