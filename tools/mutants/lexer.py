"""The tokens of a C++ source, and the bodies of its functions."""

import re
from typing import NamedTuple


class Token(NamedTuple):
    """One token. `start` and `end` are offsets in the text. `kind` is "word", "number", "character", "text" or "sign"."""
    kind: str
    text: str
    start: int
    end: int


# What is not a token comes first: comments, and preprocessor lines with their continuations.
PIECE = re.compile(r"""
    (?P<comment> //[^\n]* | /\*.*?\*/ )
  | (?P<space> \s+ )
  | (?P<text> (?:u8|[uUL])? (?: R"(?P<mark>[^()\s\\]{0,16})\(.*?\)(?P=mark)" | "(?:\\.|[^"\\\n])*" ) )
  | (?P<character> (?:u8|[uUL])? '(?:\\.|[^'\\\n])+' )
  | (?P<number> \.?[0-9] (?: [eEpP][+-] | '?[\w.] )* )
  | (?P<word> [A-Za-z_]\w* )
  | (?P<sign> <<=|>>=|<=>|->\*|\.\.\.|\#\#|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|. )
""", re.VERBOSE | re.DOTALL)
DIRECTIVE = re.compile(r"\#(?:\\\n|//[^\n]*|/\*.*?\*/|[^\n])*", re.DOTALL)


def tokens_of(text):
    """The tokens of a source, without comments and preprocessor lines."""
    tokens, at, begins_line = [], 0, True
    while at < len(text):
        if begins_line and text[at] == "#":
            at = DIRECTIVE.match(text, at).end()
            continue
        match = PIECE.match(text, at)
        kind = match.lastgroup if match.lastgroup != "mark" else "text"
        if kind == "space":
            begins_line = begins_line or "\n" in match[0]
        elif kind != "comment":
            begins_line = False
            tokens.append(Token(kind, match[0], at, match.end()))
        at = match.end()
    return tokens


CLOSING = {"(": ")", "[": "]", "{": "}"}


def partners_of(tokens):
    """The index of the other bracket for the index of each bracket."""
    partners, opened = {}, []
    for index, token in enumerate(tokens):
        if token.kind == "sign" and token.text in CLOSING:
            opened.append(index)
        elif token.kind == "sign" and token.text in CLOSING.values():
            other = opened.pop()
            if CLOSING[tokens[other].text] != token.text:
                raise ValueError(f"'{tokens[other].text}' is closed by '{token.text}'")
            partners[other], partners[index] = index, other
    if opened:
        raise ValueError(f"'{tokens[opened[-1]].text}' is not closed")
    return partners


# Words that may be between the arguments of a function and its body.
AFTER_ARGUMENTS = {"const", "noexcept", "override", "final", "mutable"}


def opens_function(tokens, partners, index):
    """True if the brace at `index` opens the body of a function, or of a lambda, that is in no other body."""
    at = index - 1
    while at >= 0 and tokens[at].text in AFTER_ARGUMENTS:
        at -= 1
    # "auto Name() -> Type {"
    back = at
    while back > 0 and (tokens[back].kind == "word" or tokens[back].text in ("::", "*", "&", "<", ">")):
        back -= 1
    if tokens[back].text == "->" and tokens[back - 1].text == ")":
        at = back - 1
    if at < 0 or tokens[at].text != ")":
        # A constructor whose last member is initialized in braces: "Name(int a) : member_{a} {".
        return at >= 0 and tokens[at].text == "}" and initializes(tokens, partners, at)
    return True


def initializes(tokens, partners, index):
    """True if the brace that closes at `index` belongs to the initializers of a constructor."""
    at = partners[index] - 1
    while at > 0 and tokens[at].kind == "word":
        if tokens[at - 1].text == ":":
            return tokens[at - 2].text == ")"
        if tokens[at - 1].text != "," or tokens[at - 2].text not in (")", "}"):
            return False
        at = partners[at - 2] - 1
    return False


def bodies_of(tokens, partners):
    """The bodies of the functions: the indexes of their braces."""
    bodies, index = [], 0
    while index < len(tokens):
        if tokens[index].text == "{" and tokens[index].kind == "sign" and opens_function(tokens, partners, index):
            bodies.append((index, partners[index]))
            index = partners[index]
        index += 1
    return bodies


def is_constant(text, offset):
    """True if the offset is in the body of a function that the compiler can run itself. What the tests run of its lines does not
    say then which of them depend on it."""
    tokens = tokens_of(text)
    for first, last in bodies_of(tokens, partners_of(tokens)):
        if tokens[first].start <= offset < tokens[last].end:
            head = first - 1
            while head >= 0 and tokens[head].text not in (";", "{", "}"):
                head -= 1
            return any(token.text in ("constexpr", "consteval") for token in tokens[head + 1:first])
    return False
