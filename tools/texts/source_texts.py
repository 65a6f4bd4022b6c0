"""What the library's sources say: their texts, their codes, and which entry point leads to which. For check-texts.py.

The sources are read as clang-format leaves them, declaration by declaration; no grammar beyond that is known.
"""

import re
from typing import NamedTuple

from lint.cpp_tokens import tokenize

ESCAPES = {"n": "\n", "t": "\t", "r": "\r", "0": "\0"}
ENTRY_POINT = re.compile(r"CustomAction\d+")
NUMBER = re.compile(r"0x[0-9A-Fa-f]+|\d+")


class Text(NamedTuple):
    """A string literal: its value, its place, and its declaration."""

    value: str
    file: str
    line: int
    owner: "Declaration"


class Code(NamedTuple):
    """A named constant that is negative, or a failure by its highest bit."""

    name: str
    value: int
    file: str
    line: int
    enum: str  # the enumeration that it belongs to, or ""


class Declaration:
    """A declaration at the outermost level: a function, a constant, a type with all that is in it."""

    def __init__(self, file, tokens):
        self.file = file
        self.tokens = tokens
        self.name = name_of(tokens)
        # A word after "." or "->" is another thing of the same name.
        self.words = {token.text for before, token in zip([None] + tokens, tokens)
                      if token.kind == "word" and (before is None or before.text not in (".", "->"))}

    @property
    def key(self):
        return self.file, self.name

    @property
    def line(self):
        return self.tokens[0].line


def name_of(tokens):
    """The name that a declaration introduces; "" for none."""
    words = [token.text for token in tokens if token.kind == "word"]
    if words and words[0] in ("struct", "class", "enum"):
        return next((word for word in words[1:] if word not in ("class", "struct")), "")
    before = ""
    for token in tokens:
        if token.text in ("(", "=", "[", "{", ";") and before and before != "decltype":
            return before
        before = token.text if token.kind == "word" else ""
    return ""


def declarations_of(file, text):
    """The declarations of a source, in order."""
    tokens = [token for token in tokenize(text) if token.kind not in ("comment", "doc", "trailing-doc", "directive")]
    found, current, depth, index = [], [], 0, 0
    while index < len(tokens):
        token = tokens[index]
        if depth == 0 and not current:
            scope = scope_length(tokens, index)
            if scope:
                index += scope
                continue
            if token.text in ("}", ";"):
                index += 1
                continue
        current.append(token)
        if token.text == "{":
            depth += 1
        elif token.text == "}":
            depth -= 1
        # A brace that a "(" or "," follows closed a value in a constructor's list.
        following = tokens[index + 1].text if index + 1 < len(tokens) else ""
        if depth == 0 and (token.text == ";" or (token.text == "}" and following not in (",", "{", ")"))):
            found.append(Declaration(file, current))
            current = []
        index += 1
    if current:
        found.append(Declaration(file, current))
    return found


def scope_length(tokens, index):
    """The tokens of `namespace NAME {` or `extern "C" {` at `index`; 0 for something else."""
    texts = [token.text for token in tokens[index:index + 3]]
    if texts[:2] == ["namespace", "{"]:
        return 2
    if len(texts) == 3 and texts[2] == "{" and (texts[0] == "namespace" or texts[:2] == ["extern", '"C"']):
        return 3
    return 0


def value_of(literal):
    """The characters of a string literal token."""
    body = literal[literal.index('"') + 1:-1]
    return re.sub(r"\\(.)", lambda match: ESCAPES.get(match.group(1), match.group(1)), body, flags=re.DOTALL)


def is_string(token):
    return token.kind == "literal" and token.text.endswith('"')


def strings_in(tokens):
    """(value, line) of each string literal among tokens; neighbours are one text. The "C" of a linkage is not one."""
    index = 0
    while index < len(tokens):
        first = index
        value = ""
        while index < len(tokens) and is_string(tokens[index]):
            value += value_of(tokens[index].text)
            index += 1
        if index == first:
            index += 1
        elif not (first and tokens[first - 1].text == "extern"):
            yield value, tokens[first].line


def texts_of(declaration):
    """The texts of a declaration."""
    for value, line in strings_in(declaration.tokens):
        yield Text(value, declaration.file, line, declaration)


def codes_of(declaration):
    """The failure codes that a declaration names: `kName = -1`, also through a cast, and 0x80000000 upwards."""
    texts = [token.text for token in declaration.tokens]
    enum = declaration.name if texts[0] == "enum" else ""
    for index, text in enumerate(texts[:-2]):
        if texts[index + 1] != "=" or not re.fullmatch(r"k[A-Z]\w*", text):
            continue
        rest = texts[index + 2:]
        if rest[:2] == ["static_cast", "<"] and ">" in rest:
            rest = rest[rest.index(">") + 2:]
        negative = rest[:1] == ["-"]
        if negative:
            rest = rest[1:]
        if not rest or not NUMBER.fullmatch(rest[0]):
            continue
        value = int(rest[0], 0)
        if negative or 0x80000000 <= value <= 0xFFFFFFFF:
            value = -value if negative else value - 0x100000000
            yield Code(text, value, declaration.file, declaration.tokens[index].line, enum)


class Sources:
    """All sources below a folder."""

    def __init__(self, root):
        self.declarations = []
        for path in sorted((root / "src").rglob("*")):
            if path.suffix in (".cpp", ".h"):
                name = path.relative_to(root).as_posix()
                self.declarations += declarations_of(name, path.read_text(encoding="utf-8"))
        self.texts = [text for declaration in self.declarations for text in texts_of(declaration)]
        self.codes = [code for declaration in self.declarations for code in codes_of(declaration)]
        self.by_key, self.by_name = {}, {}
        for declaration in self.declarations:
            self.by_key.setdefault(declaration.key, []).append(declaration)
            self.by_name.setdefault(declaration.name, []).append(declaration)
        self.in_headers = {d.name for d in self.declarations if d.file.endswith(".h")}
        # The keys of all that each entry point leads to.
        self.reach = {}
        for declaration in self.declarations:
            if ENTRY_POINT.fullmatch(declaration.name) and declaration.file.endswith(".cpp"):
                self.reach[declaration.name] = self.reached_from(declaration)

    def reached_from(self, start):
        reached, waiting = {start.key}, [start]
        while waiting:
            declaration = waiting.pop()
            for word in declaration.words:
                # A name of the same file is meant first; of another file only what a header makes known.
                targets = self.by_key.get((declaration.file, word))
                if targets is None and word in self.in_headers:
                    targets = self.by_name[word]
                for target in targets or ():
                    if target.key not in reached:
                        reached.add(target.key)
                        waiting += self.by_key[target.key]
        return reached

    def entry_points_of(self, declaration):
        """The entry points that lead to a declaration."""
        return {name for name, reached in self.reach.items() if declaration.key in reached}

    def words_reached(self, entry_point):
        """Every word in what an entry point leads to, but not in other entry points."""
        words = set()
        for key in self.reach[entry_point]:
            if key[1] == entry_point or not ENTRY_POINT.fullmatch(key[1]):
                for declaration in self.by_key[key]:
                    words |= declaration.words
        return words

    def arguments(self, function, position):
        """The tokens of the argument number `position` (from 0) of each call of `function`."""
        for declaration in self.declarations:
            texts = [token.text for token in declaration.tokens]
            for index, text in enumerate(texts[:-1]):
                if text == function and texts[index + 1] == "(":
                    yield declaration, argument_at(declaration.tokens, index + 2, position)


def argument_at(tokens, index, position):
    depth, argument = 0, []
    for token in tokens[index:]:
        if depth == 0 and token.text in (",", ")"):
            if position == 0:
                break
            position -= 1
            if token.text == ")":
                break
            continue
        depth += {"(": 1, "{": 1, "[": 1, ")": -1, "}": -1, "]": -1}.get(token.text, 0)
        if position == 0:
            argument.append(token)
    return argument
