"""The syntax of conditions, as the engine reads them: in sequences, launch conditions, components and features.

    condition   expression | nothing
    expression  term [OPERATOR expression]       OPERATOR: AND, OR, XOR, EQV, IMP
    term        NOT term | factor
    factor      "(" expression ")" | value [COMPARISON value]
    value       PROPERTY, %VARIABLE, $ or ? or & or ! with a key, "text", number
"""

import re
from typing import NamedTuple

LOGICAL = ("AND", "OR", "XOR", "EQV", "IMP")
COMPARISON = r"~?(?:<=|>=|<>|><|<<|>>|=|<|>)"
TOKEN = re.compile(rf"""\s*(?:
    (?P<text>"[^"]*")
  | (?P<comparison>{COMPARISON})
  | (?P<bracket>[()])
  | (?P<number>-?\d+(?![\w.]))
  | (?P<name>[%$?&!]?[A-Za-z_][\w.]*)
  | (?P<wrong>\S))""", re.VERBOSE | re.ASCII)


class ConditionError(Exception):
    """A condition that the engine cannot read; its text says where and why."""


class Token(NamedTuple):
    kind: str
    text: str


def tokens_of(text):
    tokens = []
    for match in TOKEN.finditer(text):
        kind = match.lastgroup
        if kind == "wrong":
            if match[kind] == '"':
                raise ConditionError("the text after the last quotation mark does not end: add the missing quotation mark")
            raise ConditionError(f"{match[kind]!r} is not part of any name, number or operator")
        word = match[kind]
        if kind == "name" and word.upper() in (*LOGICAL, "NOT"):
            kind, word = "word", word.upper()
        tokens.append(Token(kind, word))
    return tokens


class Reader:
    """Reads the tokens of one condition. `names` are the properties and keys that it uses, with their prefixes."""

    def __init__(self, text):
        self.tokens = tokens_of(text)
        self.position = 0
        self.names = []

    def take(self, kind, text=None):
        """The next token if it is of this kind, otherwise None."""
        if self.position < len(self.tokens):
            token = self.tokens[self.position]
            if token.kind == kind and text in (None, token.text):
                self.position += 1
                return token
        return None

    def found(self):
        if self.position < len(self.tokens):
            return f"{self.tokens[self.position].text!r} is there"
        return "the condition ends"

    def expression(self):
        self.term()
        while (word := self.take("word")) is not None:
            if word.text == "NOT":
                raise ConditionError("before NOT, AND or OR is missing")
            self.term()

    def term(self):
        while self.take("word", "NOT"):
            pass
        if self.take("bracket", "("):
            self.expression()
            if not self.take("bracket", ")"):
                raise ConditionError(f"a closing bracket is missing where {self.found()}")
            return
        self.value()
        if self.take("comparison"):
            self.value()

    def value(self):
        name = self.take("name")
        if name:
            self.names.append(name.text)
        elif not self.take("text") and not self.take("number"):
            raise ConditionError(f"a property, a number or a text in quotation marks is missing where {self.found()}")


def names_in(text):
    """The properties and keys that a condition uses, with their prefixes. Raises ConditionError if it cannot be read."""
    reader = Reader(text)
    if not reader.tokens:
        return []
    reader.expression()
    if reader.position < len(reader.tokens):
        raise ConditionError(f"AND or OR is missing where {reader.found()}")
    return reader.names
