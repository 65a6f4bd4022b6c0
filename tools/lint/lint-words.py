#!/usr/bin/env python3
"""Checks that no file of the project contains a forbidden word or construct.

    tools/lint/lint-words.py [ROOT]

Checks every file that git tracks or would track, and its name: no marks of unfinished work, no words about how the text was
written, no folders of the machine that it was written on. In the sources of src/ also: nothing of the C++ library or of its
run-time support, because the library is built without them. Prints "FILE:LINE: what is wrong" for each finding; the exit
code is 1 if there is one.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.cpp_tokens import tokenize
from lint.lint_report import project_files, report

EXEMPT = {"DEVELOPERS.md"}

# Each pattern has a pair of brackets in its middle, so that this file does not match it.
WORDS = re.compile("|".join([
    r"\bPar[t] [0-9]+\.[0-9]+", r"[Ss]pecificatio[n]", r"\bspec\.m[d]", r"\bthe spe[c]\b", r"share[d]/",
    r"/wor[k]/", r"/tm[p]/[a-z]+-root", r"subagen[t]", r"\bTOD[O]\b", r"\bFIXM[E]\b", r"\bXX[X]\b"]))

# The argument of placement new for blocks of the process heap (base/heap.h): the only `new` that is allowed.
PLACE = "HeapPlace"

FORBIDDEN_WORDS = {
    "thread_local": "'thread_local'",
    "__thread": "'__thread'",
    "throw": "'throw'",
    "dynamic_cast": "'dynamic_cast'",
}
C_LIBRARY = {"assert", "complex", "ctype", "errno", "fenv", "inttypes", "locale", "math", "setjmp", "signal",
             "stdio", "stdlib", "string", "tgmath", "time", "uchar", "wchar", "wctype"}



def word_findings(name, text):
    match = WORDS.search(name)
    if match:
        yield f"{name}:1: the file's name contains '{match.group()}'"
    for number, line in enumerate(text.splitlines(), 1):
        for match in WORDS.finditer(line):
            yield f"{name}:{number}: '{match.group()}'"


def construct_findings(name, text):
    tokens = [t for t in tokenize(text) if t.kind not in ("comment", "doc", "trailing-doc", "literal")]
    for index, token in enumerate(tokens):
        before = tokens[index - 1].text if index else ""
        after = tokens[index + 1].text if index + 1 < len(tokens) else ""
        problem = None
        if token.kind == "directive":
            header = re.match(r"#\s*include\s*<([^>]*)>", token.text)
            if header and "." not in header.group(1):
                problem = f"the C++ library header <{header.group(1)}>"
            elif header and header.group(1).removesuffix(".h") in C_LIBRARY:
                problem = f"the C library header <{header.group(1)}>"
            elif re.match(r"#\s*define\b", token.text):
                # The text of a macro is code too.
                body = re.sub(r"#\s*define\s+\w+", "", token.text, count=1)
                yield from (f"{name}:{token.line}:" + line.partition(":")[2].partition(":")[2]
                            for line in construct_findings(name, body))
        elif token.text == "std" and after == "::":
            problem = "'std::'"
        elif token.text == "delete" and before != "=":
            problem = "an expression with 'delete'"
        elif token.text == "new":
            problem = "an expression with 'new'"
            if PLACE in (t.text for t in tokens[index + 1:index + 5]):
                problem = None
        elif token.kind == "word":
            problem = FORBIDDEN_WORDS.get(token.text)
        if problem:
            yield f"{name}:{token.line}: {problem} is not allowed here"


def findings(root):
    for name in project_files(root):
        if name in EXEMPT:
            continue
        data = (root / name).read_bytes()
        if b"\0" in data:
            text = ""  # A binary file: only its name is checked.
        else:
            text = data.decode("utf-8", "replace")
        yield from word_findings(name, text)
        if name.startswith("src/") and name.endswith((".h", ".cpp", ".inc")):
            yield from construct_findings(name, text)


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
