"""Splits C++ text into tokens, for the lints: comments, directives, literals, words. Does not parse the grammar."""

import re
from typing import NamedTuple


class Token(NamedTuple):
    kind: str  # "doc", "trailing-doc", "comment", "directive", "literal", "word", "number" or "sign"
    text: str
    line: int  # of its first character, from 1
    last_line: int


TOKEN = re.compile(
    r"""
    (?P<space>\s+|\\\n)
  | (?P<comment>//(?:\\\n|[^\n])*|/\*.*?\*/)
  | (?P<directive>\#(?:\\\n|//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|[^\n/]|/(?![/*]))*)
  | (?P<literal>(?:u8|[uUL])?(?:R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\])*"|'(?:\\.|[^'\\])*'))
  | (?P<number>\.?\d(?:'?[\w.]|(?<=[eEpP])[+-])*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<sign>::|->|\[\[|\]\]|.)
    """, re.VERBOSE | re.DOTALL)


def tokenize(text):
    """Returns the tokens of `text` in order. A directive with its continuation lines is one token; a comment at the end
    of its line is not part of it."""
    tokens = []
    line = 1
    for match in TOKEN.finditer(text):
        kind, value = match.lastgroup, match.group()
        if kind == "mark":
            kind = "literal"
        start, line = line, line + value.count("\n")
        if kind == "space":
            continue
        if kind == "comment":
            if value.startswith(("///<", "/**<")):
                kind = "trailing-doc"
            elif re.match(r"///(?!/)|/\*\*(?![*/])", value):
                kind = "doc"
        elif kind == "directive":
            value = re.sub(r"\s*(//|/\*).*", "", value) if '"' not in value else value
        tokens.append(Token(kind, value, start, line))
    return tokens
