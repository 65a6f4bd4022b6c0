#!/usr/bin/env python3
"""Checks that the tests and the description of the option letters know every letter and bit of the copy/move engine.

    tools/lint/lint-option-letters.py [ROOT]

Each letter of the table kOptionLetters in src/files/tree_copy.cpp must be in the table kLetters of
tests/unit/files/tree_copy_options_test.cpp, with the same bits to set and to clear; each bit of TreeOptions in
src/files/tree_copy.h must be named in that test. Each letter must also be in the list at the head of tree_copy.h, in the
model of the engine (tests/unit/files/tree_model.h), and in the letters from which the tests of the model choose at random.
Prints a line for each finding; the exit code is 1 if there is one.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.cpp_functions import arguments, code
from lint.lint_report import report

OPTIONS = ("src/files/tree_copy.h", "TreeOptions")
SOURCE = ("src/files/tree_copy.cpp", "kOptionLetters")
TEST = ("tests/unit/files/tree_copy_options_test.cpp", "kLetters")
# The other places that must have each letter: the file, and the pattern of what holds letters there.
OTHERS = [("src/files/tree_copy.h", r"^//   ([a-z](?:, [a-z])*)  "), ("tests/unit/files/tree_model.h", r"case L'(\w)':"),
          ("tests/unit/files/tree_copy_model_test.cpp", r'wchar_t kLetters\[\] = L"(\w+)"')]
EVERY_BIT = ["~", "DWORD", "{", "0", "}"]


class Unreadable(Exception):
    """A file or a table is missing, or this script cannot read it; the text says which."""


def read(root, path):
    if not (root / path).is_file():
        raise Unreadable(f"{path} does not exist")
    return code((root / path).read_text(encoding="utf-8"))


def entries(texts, path, head):
    """The entries, each a list of texts, in the braces after `head`."""
    for place in range(len(texts) - len(head)):
        if texts[place:place + len(head)] == head:
            # What follows the last comma is no entry.
            return [entry for entry in arguments(texts, texts.index("{", place)) if entry]
    raise Unreadable(f"{path} has no \"{' '.join(head)}\"")


def value(texts, options, path):
    """The value of an expression of options, numbers and "|"."""
    if texts == EVERY_BIT:
        return sum(options.values())
    total = 0
    for text in [text for text in texts if text != "|"]:
        if text not in options and not text.isdigit():
            raise Unreadable(f"{path}: this script cannot read \"{' '.join(texts)}\"")
        total |= options[text] if text in options else int(text)
    return total


def letters(root, table, options):
    """The bits that each letter of a table sets and clears."""
    path, name = table
    found = {}
    for entry in entries(read(root, path), path, [name, "[", "]", "="]):
        letter, sets, clears = arguments(entry, 0)
        if letter[0] in found:
            raise Unreadable(f"{path}: {letter[0]} is twice in {name}")
        found[letter[0]] = (value(sets, options, path), value(clears, options, path))
    return found


def disagreements(root):
    path, name = OPTIONS
    options = {entry[0]: int(entry[2]) for entry in entries(read(root, path), path, ["enum", name])}
    source, test = letters(root, SOURCE, options), letters(root, TEST, options)
    for letter, bits in source.items():
        if letter not in test:
            yield f"{TEST[0]}: {letter} of {SOURCE[0]} is missing from {TEST[1]}"
        elif test[letter] != bits:
            yield (f"{TEST[0]}: {letter} sets {test[letter][0]} and clears {test[letter][1]}, "
                   f"but in {SOURCE[0]} it sets {bits[0]} and clears {bits[1]}")
    for letter, bits in test.items():
        if letter not in source and bits != (0, 0):
            yield f"{TEST[0]}: {letter} sets or clears bits, but {SOURCE[0]} does not have it"
    for place, pattern in OTHERS:
        if not (root / place).is_file():
            raise Unreadable(f"{place} does not exist")
        text = (root / place).read_text(encoding="utf-8")
        there = set("".join(re.findall(pattern, text, re.MULTILINE)))
        yield from (f"{place}: {letter} of {SOURCE[0]} is missing" for letter in source if letter[2] not in there)
    named = set(read(root, TEST[0]))
    for option in options:
        if option not in named:
            yield f"{TEST[0]}: no test says what {option} does"


def findings(root):
    if not (root / "src").is_dir():
        return
    try:
        yield from disagreements(root)
    except Unreadable as problem:
        yield str(problem)


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
