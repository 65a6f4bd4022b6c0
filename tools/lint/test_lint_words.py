"""lint-words.py: finds each forbidden word and construct, and nothing that only looks like one."""

import subprocess
import unittest

from support import TreeTest

# Each in two parts, so that this file does not contain it.
WORDS = ["Par" "t 2.1", "Spec" "ification", "spec" "ification", "spec" ".md", "the sp" "ec", "share" "d/x",
         "/wor" "k/x", "/tm" "p/abc-root", "sub" "agent", "TO" "DO", "FIX" "ME", "XX" "X"]


class WordsTest(TreeTest):
    script = "lint/lint-words.py"

    def setUp(self):
        super().setUp()
        subprocess.run(["git", "init", "-q", self.root], check=True)

    def test_each_word(self):
        for word in WORDS:
            with self.subTest(word):
                text = f"First.\nSee {word}, line 2.\n"
                self.assert_found({"docs/page.md": text}, f"docs/page.md:2: '{word.rstrip('x')}")

    def test_words_in_names_of_files(self):
        self.assert_found({"docs/spec" ".md": "Text.\n"}, "docs/spec" ".md:1: the file's name contains ")

    def test_similar_words(self):
        self.assert_clean({"docs/page.md": "part 2.1, Party 2.1, special, the specs, shared, network/, /tmp/root,\n"
                                           "to" "do, XX" "XX, mkdtemp hx.XX" "XXXX, aspec" ".md\n"})

    def test_tracked_ignored_and_exempt_files(self):
        word = WORDS[0]
        self.write({".gitignore": "build/\n", "build/log.txt": word, "DEVELOPERS.md": word})
        self.assert_clean({})
        self.write({"kept/log.txt": word})
        subprocess.run(["git", "-C", self.root, "add", "kept"], check=True)
        self.assert_found({".gitignore": "build/\nkept/\n"}, "kept/log.txt:1: ")

    def test_binary_files_are_read_by_name_only(self):
        self.assert_clean({"icon.bin": "\0" + WORDS[0]})

    def test_each_construct(self):
        for code, found in [
                ("std::move(x);", "'std::'"), ("std :: size_t n;", "'std::'"),
                ("#include <string>", "the C++ library header"),
                ("# include <type_traits>", "the C++ library header"), ("#include <string.h>", "the C library header"),
                ("auto p = new Thing;", "an expression with 'new'"),
                ("auto p = new (block) Thing;", "an expression with 'new'"), ("delete p;", "an expression with 'delete'"),
                ("delete[] p;", "an expression with 'delete'"), ("thread_local int x;", "'thread_local'"),
                ("__thread int x;", "'__thread'"), ("throw 1;", "'throw'"), ("dynamic_cast<A*>(b);", "'dynamic_cast'"),
                ("#define MAKE(x) new x", "an expression with 'new'")]:
            for name in ("src/base/a.h", "src/base/a.cpp"):
                with self.subTest(code=code, name=name):
                    self.assert_found({name: f"// A file.\n{code}\n"}, f"{name}:2: {found}")
                    (self.root / name).unlink()

    def test_similar_constructs(self):
        self.assert_clean({"src/base/a.h": """// A new file, of std::nothing; throw away.
/* delete this */
#include <windows.h>
#include <stdint.h>
#include "base/new.h"
struct A {
  A(const A&) = delete;
  A& operator=(const A&) =
      delete;
};
const char* text = "new std::x \\" throw";
const char c = '"';  // new
const wchar_t* raw = LR"x(delete p; ")x";
inline void* operator new(size_t, HeapPlace place) noexcept;
A* a = new (HeapPlace{block}) A();
int renewed = 1'000, new_ = 0, deleted, thrown, stdx;
"""})

    def test_tests_may_use_the_library(self):
        self.assert_clean({"tests/unit/a.cpp": "#include <string>\nstd::string* x = new std::string;\n"})


if __name__ == "__main__":
    unittest.main()
