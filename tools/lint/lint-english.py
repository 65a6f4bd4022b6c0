#!/usr/bin/env python3
"""Checks that comments, pages and messages are free of words that have a plainer one.

    tools/lint/lint-english.py [ROOT]

Checks every file that git tracks or would track. Of sources in C++ it reads the comments, of scripts in Python the comments
and the strings with spaces, of all other files the whole text. Code is not prose, so it skips code blocks and text in
backticks. It also skips text in double quotes, which in comments and pages is the text of the system or of a log; the
attributes of authoring and the messages of shell scripts are read in spite of their quotes. Prints "FILE:LINE: the word and
what to write" for each finding; the exit code is 1 if there is one.
"""

import io
import re
import sys
import tokenize
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.cpp_tokens import TOKEN
from lint.lint_report import project_files, report

# The refused words, each with what to write. A space matches any white space, a line break too. One letter of each is in
# brackets, so that this file does not match its own table. The case of letters is ignored, but for "None", which is a value
# in Python. What matches the group "fine" is not refused.
WORDS = [
    (r"(?i:\black[s]\b|\blackin[g]\b|\black[e]d\b)", "'has no', 'is missing' or 'out of memory'"),
    (r"(?i:\black o[f] memory\b)", "'out of memory'"),
    (r"(?P<fine>(?i:\bthere ))?(?i:\bis|\bare) (?:non[e]|NON[E])\b", "'is not', 'fails' or 'there is no'"),
    (r"(?i:\bbe ha[d]\b)", "'is available' or the verb, such as 'open' or 'read'"),
    (r"(?i:\bane[w]\b)", "'again' or 'new'"),
    (r"(?i:\bdeliberatel[y]\b|\bdeliberat[e]\b)", "'On purpose:' at the beginning of the comment, or 'on purpose'"),
    (r"(?i:\bso it is whe[n]\b)", "'also if'"),
    (r"(?i:\bof no accoun[t]\b)", "'ignored'"),
    (r"(?i:\bfor eve[r]\b)", "'forever', or say that it never ends"),
]
RULES = [(re.compile(pattern.replace(" ", r"\s+")), plain) for pattern, plain in WORDS]

# Replaces each character that is not prose. It is neither a letter nor white space, so that no words around it match.
SKIPPED = "\0"

QUOTED = re.compile(r'"[^"\n]*(?:\n[^"\n]*)?"')
BACKTICKS = re.compile(r"```.*?```|`[^`\n]*`", re.DOTALL)
PLACEHOLDER = re.compile(r"\{[^{}]*\}")
# The marks of comments at the beginning of a line, which are not part of a sentence that goes on there.
COMMENT_MARKS = re.compile(r"^[ \t]*(?:///?<?|/\*+|\*/?|#+|;|@?rem\b|<!--)", re.MULTILINE)
XML_COMMENT = re.compile(r"<!--.*?-->", re.DOTALL)


def skip(text):
    """`text` with nothing that is prose, and its line breaks."""
    return re.sub(r"[^\n]", SKIPPED, text)


def without(pattern, text):
    return pattern.sub(lambda match: skip(match.group()), text)


def without_marks(text):
    return COMMENT_MARKS.sub(lambda match: " " * len(match.group()), text)


def prose_of_cpp(text):
    """The comments. Comments of consecutive lines are one text."""
    parts = []
    for match in TOKEN.finditer(text):
        kind, value = match.lastgroup, match.group()
        if kind == "directive":
            code = re.match(r'(?:"(?:\\.|[^"\\\n])*"|(?!//|/\*).)*', value, re.DOTALL).group()
            parts.append(skip(code) + value[len(code):])
        else:
            parts.append(value if kind in ("space", "comment") else skip(value))
    return without(QUOTED, without(BACKTICKS, without_marks("".join(parts))))


def prose_of_python(text):
    """The comments, and the strings that have a space: documentation and messages."""
    lines = text.splitlines(keepends=True)
    starts = [0]
    for line in lines:
        starts.append(starts[-1] + len(line))
    prose = list(re.sub(r"[^\s]", SKIPPED, text))
    for token in tokenize.generate_tokens(io.StringIO(text).readline):
        is_string = token.type == tokenize.STRING or tokenize.tok_name[token.type] == "FSTRING_MIDDLE"
        if token.type == tokenize.COMMENT or (is_string and re.search(r"\w \w", token.string)):
            begin = starts[token.start[0] - 1] + token.start[1]
            string = without_marks(token.string)
            if is_string:
                marks = re.match(r"(?i:[rbuf]*)(\"\"\"|'''|[\"'])?", string)
                end = len(string) - len(marks[1] or "")
                inner = without(PLACEHOLDER, string[marks.end():end])
                string = " " * marks.end() + inner + " " * (len(string) - end)
            prose[begin:begin + len(string)] = without(QUOTED, without(BACKTICKS, string))
    return "".join(prose)


def prose_of_authoring(text):
    """The comments without what they quote, and all texts and attributes."""
    text = XML_COMMENT.sub(lambda match: without(QUOTED, match.group()), text)
    return without(BACKTICKS, without_marks(text))


def prose_of_page(text):
    return without(QUOTED, without(BACKTICKS, text))


def prose_of_script(text):
    return without(BACKTICKS, without_marks(text))


PROSE = {".cpp": prose_of_cpp, ".h": prose_of_cpp, ".inc": prose_of_cpp, ".rc": prose_of_cpp, ".py": prose_of_python,
         ".wxi": prose_of_authoring, ".wxs": prose_of_authoring, ".md": prose_of_page}


def word_findings(name, text):
    prose = PROSE.get(Path(name).suffix, prose_of_script)(text)
    found = [(match.start(), " ".join(match.group().split()), plain) for rule, plain in RULES
             for match in rule.finditer(prose) if not match.groupdict().get("fine")]
    for start, word, plain in sorted(found):
        yield f"{name}:{prose.count(chr(10), 0, start) + 1}: '{word}': write {plain}"


def findings(root):
    for name in project_files(root):
        data = (root / name).read_bytes()
        if b"\0" not in data:
            yield from word_findings(name, data.decode("utf-8", "replace"))


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
