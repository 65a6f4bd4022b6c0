"""The small changes that make a mutant of a source.

The sources are formatted, which the lint checks: an operator with two operands has white space on both sides, so that the "*"
of a pointer, the "&" of a reference and the "<" of a template are not taken for one."""

import re
from typing import NamedTuple

from mutants.lexer import bodies_of, partners_of, tokens_of


class Change(NamedTuple):
    """A change of a source: `after` replaces `before`, which begins at the offset `start`. `name` says what it is."""
    name: str
    start: int
    before: str
    after: str

    def apply(self, text):
        end = self.start + len(self.before)
        assert text[self.start:end] == self.before
        return text[:self.start] + self.after + text[end:]


# What can replace an operator with two operands.
BETWEEN = {
    "<": ("comparison", "<=", ">="), "<=": ("comparison", "<", ">"), ">": ("comparison", ">=", "<="),
    ">=": ("comparison", ">", "<"), "==": ("comparison", "!="), "!=": ("comparison", "=="),
    "+": ("arithmetic", "-"), "-": ("arithmetic", "+"), "*": ("arithmetic", "/"), "/": ("arithmetic", "*"),
    "%": ("arithmetic", "/"), "+=": ("arithmetic", "-=", "="), "-=": ("arithmetic", "+=", "="),
    "*=": ("arithmetic", "/=", "="), "/=": ("arithmetic", "*=", "="), "%=": ("arithmetic", "/="),
    "&&": ("logic", "||"), "||": ("logic", "&&"),
    "&": ("bits", "|"), "|": ("bits", "&"), "^": ("bits", "|"), "<<": ("bits", ">>"), ">>": ("bits", "<<"),
    "&=": ("bits", "|=", "="), "|=": ("bits", "&=", "="), "^=": ("bits", "|="), "<<=": ("bits", ">>="),
    ">>=": ("bits", "<<="),
}
# What can replace an operator with one operand. "" removes it.
ALONE = {"++": ("arithmetic", "--"), "--": ("arithmetic", "++"), "-": ("arithmetic", ""), "!": ("logic", ""), "~": ("bits", "")}
# What ends an operand of "&&" and "||" on either side, besides brackets.
OPERAND_ENDS = {",", ";", "=", "return", "?", ":", "||", "+=", "-=", "|=", "&="}
# The words that begin a statement with a condition in brackets.
CONDITIONED = {"if", "while", "for"}
# The words that a removed statement does not begin with. "break" and "continue" can be removed, and "return" without a value.
KEPT = {"if", "else", "for", "while", "do", "switch", "case", "default", "return", "using", "static_assert", "typedef", "struct",
        "enum", "class", "public", "private", "protected", "static", "constexpr", "template", "friend", "goto", "namespace"}
INTEGER = re.compile(r"(0[xX][0-9a-fA-F']+|[0-9][0-9']*)([uUlLzZ]*)")
CONSTANT = re.compile(r"k[A-Z]\w*|[A-Z][A-Z0-9]*(?:_[A-Z0-9]+)+")
CHARACTER = re.compile(r"(?P<prefix>u8|[uUL])?'(?:(?P<plain>[^\\])|\\(?:(?P<octal>[0-7]{1,3})|x(?P<hex>[0-9a-fA-F]+)|(?P<named>.)))'")
NAMED = {"a": 7, "b": 8, "t": 9, "n": 10, "v": 11, "f": 12, "r": 13}
# Words before the type that a function returns.
SPECIFIERS = {"inline", "static", "constexpr", "extern"}


def neighbours(number):
    """The integer literals next to one, or nothing if it is not one."""
    match = INTEGER.fullmatch(number)
    if not match:
        return ()
    digits, suffix = match[1].replace("'", ""), match[2]
    if digits[:2].lower() == "0x":
        value, form = int(digits, 16), "0x{:X}"
    elif digits != "0" and digits[0] == "0":
        value, form = int(digits, 8), "0{:o}"
    else:
        value, form = int(digits), "{}"
    below = form.format(value - 1) + suffix if value else "-1"
    return form.format(value + 1) + suffix, below


def other_characters(literal):
    """The literals of the next character and of the one with the value 0."""
    match = CHARACTER.fullmatch(literal)
    if not match:
        return ()
    if match["plain"]:
        value = ord(match["plain"])
    elif match["octal"]:
        value = int(match["octal"], 8)
    elif match["hex"]:
        value = int(match["hex"], 16)
    else:
        value = NAMED.get(match["named"], ord(match["named"]))
    prefix, following = match["prefix"] or "", value + 1
    plain = 32 <= following < 127 and chr(following) not in "'\\"
    return (f"{prefix}'{chr(following) if plain else f'{chr(92)}x{following:X}'}'", *([f"{prefix}'{chr(92)}0'"] if value else ()))


class Places:
    """Finds the places of a source at which a change can be made. Each place has one or more changes."""

    def __init__(self, text):
        self.text = text
        self.tokens = tokens_of(text)
        self.partners = partners_of(self.tokens)
        self.places = []
        self.enumerators = self.find_enumerators()
        for first, last in bodies_of(self.tokens, self.partners):
            self.body = first
            for index in range(first + 1, last):
                self.visit(index)

    def add(self, name, start, end, *afters):
        if afters:
            self.places.append([Change(name, start, self.text[start:end], after) for after in afters])

    def find_enumerators(self):
        """The names that the file has after "NAME::", by that NAME; those of the enumerations that it defines are all there."""
        found, tokens = {}, self.tokens
        for index, token in enumerate(tokens):
            if token.text == "::" and CONSTANT.fullmatch(tokens[index + 1].text) and tokens[index - 1].kind == "word":
                found.setdefault(tokens[index - 1].text, {})[tokens[index + 1].text] = None
            elif token.text == "enum" and tokens[index + 1].text == "class":
                names, at = found.setdefault(tokens[index + 2].text, {}), index + 3
                while tokens[at].text not in ("{", ";"):
                    at += 1
                for inside in range(at + 1, self.partners.get(at, at)):
                    if tokens[inside - 1].text in ("{", ","):
                        names[tokens[inside].text] = None
        return found

    def visit(self, index):
        token = self.tokens[index]
        if token.kind == "number":
            self.add("constant", token.start, token.end, *neighbours(token.text))
        elif token.kind == "character":
            self.add("character", token.start, token.end, *other_characters(token.text))
        elif token.kind == "word":
            self.visit_word(index, token)
        elif token.kind == "sign":
            self.visit_sign(index, token)
        if self.begins_statement(index):
            self.visit_statement(index, token)

    def visit_word(self, index, token):
        if token.text in ("true", "false"):
            self.add("constant", token.start, token.end, {"true": "false", "false": "true"}[token.text])
        elif CONSTANT.fullmatch(token.text) and self.tokens[index - 1].text not in ("::", ".", "->") and \
                self.tokens[index + 1].text not in ("(", "[", "::", "."):
            self.add("constant", token.start, token.end, f"({token.text} + 1)", f"({token.text} - 1)")
        elif CONSTANT.fullmatch(token.text) and self.tokens[index - 1].text == "::" and \
                self.tokens[index + 1].text not in ("(", "[", "::", "."):
            others = self.enumerators.get(self.tokens[index - 2].text, ())
            self.add("enumerator", token.start, token.end, *(name for name in others if name != token.text))
        elif token.text in CONDITIONED:
            self.visit_condition(index)

    def visit_condition(self, index):
        first = index + 1
        if self.tokens[first].text == "constexpr":
            return
        last = self.partners[first]
        # The parts between the semicolons: the condition is the last part, but the second one of "for".
        ends, at = [first], first + 1
        while at < last:
            if self.tokens[at].text == ";":
                ends.append(at)
            at = self.partners[at] + 1 if self.tokens[at].text in ("(", "[", "{") else at + 1
        ends.append(last)
        if self.tokens[index].text == "for":
            if len(ends) != 4:
                return
            ends = ends[:3]
        before, after = self.tokens[ends[-2] + 1:ends[-1] + 1][0], self.tokens[ends[-1] - 1]
        if ends[-1] - ends[-2] > 1:
            self.negate(before.start, after.end)

    def negate(self, start, end):
        self.add("condition", start, end, f"!({self.text[start:end]})")

    def visit_sign(self, index, token):
        spaced = self.text[token.start - 1].isspace() and self.text[token.end].isspace()
        if token.text in BETWEEN and spaced:
            name, *afters = BETWEEN[token.text]
            self.add(name, token.start, token.end, *afters)
            if name == "logic":
                self.visit_operands(index)
        elif token.text in ALONE and not spaced:
            name, *afters = ALONE[token.text]
            self.add(name, token.start, token.end, *afters)
        elif token.text == "?" and spaced:
            start = self.operand_before(index)
            self.negate(start, self.tokens[index - 1].end)

    def visit_operands(self, index):
        """Removes either operand of the "&&" or "||" at `index`."""
        ends = OPERAND_ENDS | ({"&&"} if self.tokens[index].text == "&&" else set())
        first, last = index - 1, index + 1
        while self.tokens[first].text not in ends | {"(", "[", "{"}:
            first = self.partners[first] - 1 if self.tokens[first].text in (")", "]", "}") else first - 1
        while self.tokens[last].text not in ends | {")", "]", "}"}:
            last = self.partners[last] + 1 if self.tokens[last].text in ("(", "[", "{") else last + 1
        left, right = self.tokens[first + 1].start, self.tokens[last - 1].end
        both = self.text[left:right]
        self.places.append([Change("operand", left, both, self.text[left:self.tokens[index - 1].end]),
                            Change("operand", left, both, self.text[self.tokens[index + 1].start:right])])

    def returned_type(self):
        """The type that the function around returns, as text; "" if it is not before its name."""
        at = self.body - 1
        while self.tokens[at].kind == "word":
            at -= 1
        if self.tokens[at].text != ")":
            return ""
        name = self.partners[at] - 1
        while self.tokens[name - 1].text == "::":
            name -= 2
        first = name
        while self.tokens[first - 1].kind == "word" or self.tokens[first - 1].text in ("*", "::", ">"):
            first -= 1
            if self.tokens[first].text == ">":
                opening = self.opening_angle(first)
                if self.tokens[opening - 1].text == "template":
                    first += 1
                    break
                first = opening
        while self.tokens[first].text in SPECIFIERS:
            first += 1
        return self.text[self.tokens[first].start:self.tokens[name].start].strip() if first < name else ""

    def opening_angle(self, index):
        """The index of the "<" for the ">" at `index`."""
        depth = 0
        for at in range(index, -1, -1):
            depth += {">": 1, "<": -1}.get(self.tokens[at].text, 0)
            if depth == 0:
                return at
        raise ValueError("'>' is not opened")

    def operand_before(self, index):
        """Where the condition of the "?" at `index` begins."""
        at = index - 1
        while True:
            token = self.tokens[at]
            if token.text in (")", "]", "}"):
                at = self.partners[at] - 1
            elif token.text in ("(", "[", "{", ",", ";", "=", "return", "?", ":", "+=", "-=", "|=", "&="):
                return self.tokens[at + 1].start
            else:
                at -= 1

    def begins_statement(self, index):
        before = self.tokens[index - 1]
        if before.kind == "word":
            return before.text in ("else", "do")
        if before.text in (";", "{", "}"):
            return not self.inside_round(index)
        if before.text == ":":
            return self.ends_case(index - 1)
        if before.text == ")":
            return self.tokens[self.partners[index - 1] - 1].text in CONDITIONED
        return False

    def inside_round(self, index):
        """True if the next bracket around `index` is not a brace."""
        at = index - 1
        while self.tokens[at].text not in ("(", "[", "{"):
            at = self.partners[at] - 1 if self.tokens[at].text in (")", "]", "}") else at - 1
        return self.tokens[at].text != "{"

    def ends_case(self, index):
        """True if the colon at `index` ends a label."""
        at = index - 1
        while self.tokens[at].text not in (";", "{", "}", "?", ":"):
            if self.tokens[at].text in ("case", "default"):
                return True
            at -= 1
        return False

    def visit_statement(self, index, token):
        if token.kind == "sign" and token.text not in ("*", "++", "--", "("):
            return
        end = index
        while self.tokens[end].text != ";":
            if self.tokens[end].text in (")", "]", "}"):
                return  # The end of an initializer in braces, or of a body without a semicolon.
            end = self.partners[end] + 1 if self.tokens[end].text in ("(", "[", "{") else end + 1
        last = self.tokens[end]
        if token.text == "return" and end > index + 1:
            first, value = self.tokens[index + 1].start, self.text[self.tokens[index + 1].start:last.start]
            # An address that nothing has.
            if value == "nullptr" and (type := self.returned_type()).endswith("*"):
                self.add("value", first, last.start, f"reinterpret_cast<{type}>(8)")
            self.add("value", first, last.start, *(after for after in ("{}", f"!({value})", f"({value}) + 1")
                                                   if value not in ("{}", "true", "false", "0", "nullptr")))
        elif token.text not in KEPT or token.text == "return":
            self.add("statement", token.start, last.end, ";")


def places_of(text):
    """The places of a source at which a change can be made, each a list of changes, in the order of the text."""
    return sorted(Places(text).places, key=lambda changes: (changes[0].start, -len(changes[0].before)))


def line_of(text, offset):
    """The number of the line of an offset, from 1 on."""
    return text.count("\n", 0, offset) + 1
