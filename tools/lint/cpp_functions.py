"""Finds functions, calls and arguments in C++ tokens, as far as lints need them. Knows no grammar: only brackets."""

from typing import NamedTuple

from lint.cpp_tokens import tokenize

CLOSING = {"(": ")", "{": "}", "[": "]"}
NO_NAMES = {"if", "for", "while", "switch", "catch", "return", "sizeof", "alignas", "decltype", "static_assert"}


class Function(NamedTuple):
    name: str
    arguments: list  # those of its head, each a list of texts
    begin: int  # the place of the brace that opens its body
    end: int  # the place of the brace that closes it


def code(text):
    """The texts of the tokens that are code, without comments and directives."""
    return [token.text for token in tokenize(text) if token.kind in ("word", "sign", "literal", "number")]


def closing(texts, opening):
    """The place of the bracket that closes the one at `opening`; the end of the tokens if none does."""
    sign, depth = texts[opening], 0
    for place in range(opening, len(texts)):
        depth += {sign: 1, CLOSING[sign]: -1}.get(texts[place], 0)
        if depth == 0:
            return place
    return len(texts)


def arguments(texts, opening):
    """What the brackets that open at `opening` hold, split at the commas outside of inner brackets."""
    found, depth = [[]], 0
    for text in texts[opening + 1:closing(texts, opening)]:
        depth += {"(": 1, "{": 1, "[": 1, ")": -1, "}": -1, "]": -1}.get(text, 0)
        if text == "," and depth == 0:
            found.append([])
        else:
            found[-1].append(text)
    return found if found != [[]] else []


def functions(texts):
    """The functions with a body, in order of their names: those of classes and namespaces, and tests."""
    for place, text in enumerate(texts[:-1]):
        if texts[place + 1] != "(" or not text.isidentifier() or text in NO_NAMES:
            continue
        after = closing(texts, place + 1) + 1
        while after < len(texts) and texts[after] in ("const", "override", "noexcept"):
            after += 1
        if after < len(texts) and texts[after] == "{":
            yield Function(text, arguments(texts, place + 1), after, closing(texts, after))


def calls(texts, name, begin=0, end=None):
    """The places of the brackets that open the arguments of calls of `name`."""
    for place in range(begin, min(len(texts) if end is None else end, len(texts) - 1)):
        if texts[place] == name and texts[place + 1] == "(":
            yield place + 1
