#!/usr/bin/env python3
"""Checks that every declaration in a header has a doc comment.

    tools/lint/lint-doc-comments.py [ROOT]

Checks the headers of src/ and tests/rig/. The doc comment of a declaration (function, method, type, member, enumerator,
constant, alias, macro) is "///" on the lines before it, or "///<" after it on its last line. These need none: namespaces,
forward declarations of types (a documented one documents the type), definitions of what was declared before, friends,
deleted, defaulted and overriding members, destructors, copying and moving, and private data. A header must also begin with
a comment that says what it is, and have "#pragma once". Prints "FILE:LINE: what is wrong" for each finding; the exit code
is 1 if there is one.
"""

import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from lint.cpp_tokens import tokenize
from lint.lint_report import report

FOLDERS = ["src", "tests/rig"]

TYPE_KEYS = {"class", "struct", "union", "enum"}
# Macros of the Windows headers with which a type's definition begins.
TYPE_MACROS = {"MIDL_INTERFACE", "DECLARE_INTERFACE", "DECLARE_INTERFACE_"}
ACCESS = {"public", "protected", "private"}
ATTRIBUTES = {"alignas", "__attribute__", "__declspec", "decltype", "explicit", "noexcept"}
OPENING = {"(": ")", "[": "]", "{": "}", "[[": "]]"}
CLOSING = set(OPENING.values())


class Scope:
    """A namespace or a type that contains declarations."""

    def __init__(self, kind, name=None, access="public", hidden=False):
        self.kind = kind  # "namespace", "class" (also struct and union) or "enum"
        self.name = name
        self.access = access
        self.hidden = hidden  # in the private part of a class

    def is_private(self):
        return self.hidden or self.access == "private"


class Declaration:
    """One parsed declaration: its head (up to the body, the initialiser or the end) and its end."""

    def __init__(self, first, head):
        self.first = first
        self.head = head
        self.last = first
        self.value = ""  # the first word after "="


class Header:
    def __init__(self, text):
        self.tokens = tokenize(text)
        self.position = 0
        self.findings = []  # (line, what)
        self.documented_types = set()  # by forward declarations

    # ---- moving over tokens; comments and directives between the tokens of a declaration do not count

    def is_code(self, token):
        return token.kind in ("word", "number", "literal", "sign")

    def skip_to_code(self):
        while self.position < len(self.tokens) and not self.is_code(self.tokens[self.position]):
            self.position += 1

    def peek(self):
        self.skip_to_code()
        return self.tokens[self.position] if self.position < len(self.tokens) else None

    def take(self):
        token = self.peek()
        if token is not None:
            self.position += 1
        return token

    def skip_group(self):
        """Skips a bracketed group, whose opening bracket is next; returns its tokens with the brackets."""
        first = self.take()
        group = [first]
        expected = [OPENING[first.text]]
        while expected:
            token = self.take()
            if token is None:
                break
            group.append(token)
            if token.kind != "sign":
                continue
            if token.text in OPENING:
                expected.append(OPENING[token.text])
            elif token.text == expected[-1]:
                expected.pop()
            elif token.text == "]]" and expected[-2:] == ["]", "]"]:
                del expected[-2:]
        return group

    def skip_angles(self):
        """Skips "<...>", whose "<" is next."""
        depth = 0
        while (token := self.peek()) is not None:
            if token.kind == "sign" and token.text in OPENING:
                self.skip_group()
                continue
            self.take()
            depth += {"<": 1, ">": -1}.get(token.text, 0) if token.kind == "sign" else 0
            if depth == 0:
                return

    # ---- comments

    def has_doc_before(self, index):
        """True if the comment lines directly above the token contain a doc comment."""
        line = self.tokens[index].line
        while index > 0:
            index -= 1
            token = self.tokens[index]
            stands_alone = index == 0 or self.tokens[index - 1].last_line < token.line
            if token.kind not in ("doc", "comment") or token.last_line < line - 1 or not stands_alone:
                return False
            if token.kind == "doc":
                return True
            line = token.line
        return False

    def has_doc_after(self, index):
        """True if "///<" follows the token on its line; only signs may be between them."""
        line = self.tokens[index].last_line
        for token in self.tokens[index + 1:]:
            if token.line != line:
                return False
            if token.kind == "trailing-doc":
                return True
            if token.text not in (",", ";", "}"):
                return False
        return False

    def demand_doc(self, first, last, what):
        if not self.has_doc_before(first) and not self.has_doc_after(last):
            self.findings.append((self.tokens[first].line, f"{what} has no doc comment"))

    # ---- the grammar of declarations

    def read(self):
        if not self.tokens or self.tokens[0].kind not in ("comment", "doc") or self.tokens[0].line != 1:
            self.findings.append((1, "the header does not begin with a comment that says what it is"))
        if not any(t.kind == "directive" and re.fullmatch(r"#\s*pragma\s+once", t.text) for t in self.tokens):
            self.findings.append((1, "the header has no '#pragma once'"))
        self.read_macros()
        while self.peek() is not None:
            self.read_scope(Scope("namespace"))
            self.take()  # An unmatched closing bracket.
        return sorted(set(self.findings))

    def read_macros(self):
        for index, token in enumerate(self.tokens):
            match = re.match(r"#\s*define\s+(\w+)", token.text) if token.kind == "directive" else None
            if match:
                self.demand_doc(index, index, f"macro {match.group(1)}")

    def read_scope(self, scope):
        """Reads declarations up to the scope's closing bracket, which stays."""
        while (token := self.peek()) is not None and token.text != "}":
            if token.text == ";":
                self.take()
            elif scope.kind == "enum":
                self.read_enumerator()
            elif scope.kind == "class" and token.text in ACCESS and self.text_after(1) == ":":
                scope.access = token.text
                self.take()
                self.take()
            elif not self.read_transparent():
                self.read_declaration(scope)

    def text_after(self, count):
        """The text of the code token `count` places after the next one."""
        self.skip_to_code()
        index = self.position
        while count and index < len(self.tokens):
            index += 1
            if index < len(self.tokens) and self.is_code(self.tokens[index]):
                count -= 1
        return self.tokens[index].text if index < len(self.tokens) else ""

    def read_body(self, scope):
        self.take()
        self.read_scope(scope)
        self.take()

    def read_transparent(self):
        """Reads a namespace or a linkage block (extern "C"), which contain declarations; false if neither is next."""
        start = self.position
        words = []
        while (token := self.peek()) is not None and (
                token.text in ("inline", "namespace", "extern", "::", "[[") or token.kind == "literal"
                or (words and "namespace" in words and token.kind == "word")):
            words.append(token.text)
            if token.text == "[[":
                self.skip_group()
            else:
                self.take()
        if token is not None and token.text == "{" and (
                "namespace" in words or (len(words) == 2 and words[0] == "extern" and words[1].startswith('"'))):
            self.read_body(Scope("namespace"))
            return True
        self.position = start
        return False

    def read_enumerator(self):
        self.skip_to_code()
        first = last = self.position
        name = self.tokens[first].text
        while (token := self.peek()) is not None and token.text not in ("}", ","):
            if token.kind == "sign" and token.text in OPENING:
                self.skip_group()
            else:
                self.take()
            last = self.position - 1
        if token is not None and token.text == ",":
            self.take()
        self.demand_doc(first, last, f"enumerator {name}")

    def read_declaration(self, scope):
        self.skip_to_code()
        first = self.position
        declaration = Declaration(first, [])
        type_scope = self.read_head(declaration)
        token = self.peek()
        if type_scope is not None and token is not None and token.text == "{":
            type_scope.hidden = scope.is_private()
            self.read_body(type_scope)
            self.read_to_semicolon(declaration)
        elif token is not None and token.text == "{":  # The body of a function.
            self.skip_group()
            declaration.last = self.position - 1
        else:
            self.read_to_semicolon(declaration)
        what = self.describe(declaration, scope, type_scope)
        if what:
            self.demand_doc(first, declaration.last, what)

    def read_to_semicolon(self, declaration):
        """Reads initialisers and further declarators up to and with the ";"; stops at the end of the scope."""
        while (token := self.peek()) is not None and token.text != "}":
            if token.kind == "sign" and token.text in OPENING:
                self.skip_group()
            else:
                if token.text == "=" and not declaration.value:
                    declaration.value = self.text_after(1)
                self.take()
            declaration.last = self.position - 1
            if token.text == ";":
                return

    def read_head(self, declaration):
        """Reads up to the declaration's "{", "=" or ";", which is not consumed. Collects the head's tokens, without
        template parameters and attributes; a bracketed group is one entry. Returns the scope of the type that begins
        here, or None."""
        head = declaration.head
        initialisers = False
        while (token := self.peek()) is not None:
            declaration.last = self.position
            text = token.text if token.kind != "literal" else ""
            words = [entry for entry in head if isinstance(entry, str)]
            if text in (";", "}"):
                break
            if text == "=" and words[-1:] != ["operator"]:
                break
            if text == "template" and self.text_after(1) == "<":
                self.take()
                self.skip_angles()
                if self.peek() is not None and self.peek().text == "requires":
                    self.skip_requires()
            elif text == "[[":
                self.skip_group()
            elif text in ATTRIBUTES and self.text_after(1) == "(":
                self.take()
                self.skip_group()
            elif text in TYPE_MACROS:
                self.take()
                group = self.skip_group() if self.peek() is not None and self.peek().text == "(" else []
                head.append("struct")
                head += [t.text for t in group[1:2] if text != "MIDL_INTERFACE"]
            elif words[-1:] == ["operator"]:
                self.read_operator(head)
            elif text == "<":
                self.skip_angles()
            elif text == "{":
                if self.is_type(head):
                    return Scope("class" if "enum" not in words else "enum", self.type_name(head),
                                 "private" if "class" in words else "public")
                if not any(isinstance(entry, list) for entry in head):
                    break  # The initialiser of a variable.
                if not initialisers or head[-1] != "name":
                    return None
                self.skip_group()
                head.append("value")
            elif text in ("(", "["):
                group = self.skip_group()
                if initialisers:
                    head.append("value")
                else:
                    head.append(group)
            else:
                self.take()
                if text == ":" and any(isinstance(entry, list) for entry in head):
                    initialisers = True
                if initialisers:
                    head.append("name" if token.kind == "word" or text == ">" else text)
                else:
                    head.append(token.text)
        return None

    def skip_requires(self):
        """Skips a requires clause after template parameters: one bracketed group, or one concept."""
        self.take()
        if self.peek() is not None and self.peek().text == "(":
            self.skip_group()
            return
        while (token := self.peek()) is not None and (token.kind == "word" or token.text == "::"):
            self.take()
            following = self.peek()
            if following is not None and following.text == "<":
                self.skip_angles()
                return
            if following is None or following.text != "::":
                return

    def read_operator(self, head):
        """Reads the name of an operator function: signs or a type, up to its parameters."""
        name = ""
        while (token := self.peek()) is not None:
            if token.text == "(" and (name or self.text_after(1) != ")"):
                break
            if token.text in (";", "{", "}"):
                break
            name += token.text
            self.take()
            if token.text == "(":
                name += self.take().text
        head[-1] = "operator" + name

    # ---- what a head says

    def is_type(self, head):
        """True if the head begins a type's definition, and not, for example, a function that returns one."""
        words = [entry for entry in head if isinstance(entry, str)]
        return bool(TYPE_KEYS & set(words)) and not any(isinstance(entry, list) for entry in head) and "=" not in head

    def type_name(self, head):
        """The name in the head of a type's definition; None if it has no name."""
        names = []
        for entry in head:
            if entry == ":":
                break
            if isinstance(entry, str) and re.fullmatch(r"\w+", entry) and entry not in TYPE_KEYS | {
                    "typedef", "static", "inline", "constexpr", "const", "constinit", "final", "extern", "volatile"}:
                names.append(entry)
        return names[0] if names else None

    def describe(self, declaration, scope, type_scope):
        """What a declaration declares, for the message; None if it needs no doc comment."""
        head = declaration.head
        words = [entry for entry in head if isinstance(entry, str)]
        groups = [index for index, entry in enumerate(head) if isinstance(entry, list) and entry[0].text == "("]
        if not head or words[:1] in (["static_assert"], ["friend"]) or "friend" in words:
            return None
        if words[:2] == ["using", "namespace"]:
            return None
        if words[0] == "using":
            return f"alias {words[1]}" if declaration.value else None
        if words[0] == "namespace":
            return f"namespace alias {words[1]}"
        if words[0] == "concept":
            return f"concept {words[1]}"
        if type_scope is not None:
            name = type_scope.name
            if name in self.documented_types:
                return None
            # The members of a part without a name belong to the enclosing type.
            if name is None and "typedef" not in words and self.only_closes(declaration):
                return None if scope.kind == "class" else f"{words[-1]} without a name"
            return f"type {name}" if name else "type without a name"
        if "typedef" in words:
            return f"alias {next((w for w in reversed(words) if re.match(r'[A-Za-z_]', w)), '')}"
        if self.is_type(head) and self.is_forward(head):
            if self.has_doc_before(declaration.first):
                self.documented_types.add(self.type_name(head))
            return None
        pointer = self.function_pointer_name(head, groups)
        if groups and not pointer:
            return self.describe_function(declaration, scope, head, groups[0])
        if scope.kind == "class" and scope.is_private():
            return None
        if words[-2:-1] == ["::"]:
            return None  # Declared in its class.
        names = [w for w in words if re.fullmatch(r"[A-Za-z_]\w*", w)] + ([pointer] if pointer else [])
        return f"'{names[-1]}'" if names else f"'{' '.join(words)}'"

    def function_pointer_name(self, head, groups):
        """The name in "(*name)(...)" or "(&name)[...]"; None if the head is not such a declaration."""
        if not groups or not isinstance(head[groups[0] + 1] if groups[0] + 1 < len(head) else None, list):
            return None
        inner = [token.text for token in head[groups[0]][1:-1]]
        names = [text for text in inner if re.fullmatch(r"[A-Za-z_]\w*", text)]
        return names[-1] if names and ("*" in inner or "&" in inner) else None

    def only_closes(self, declaration):
        """True if the declaration of a type without a name ends with "};"."""
        end = [t for t in self.tokens[declaration.first:declaration.last + 1] if self.is_code(t)]
        return [t.text for t in end[-2:]] == ["}", ";"]

    def is_forward(self, head):
        words = [entry for entry in head if entry not in ("class", "struct", "union", "enum", "extern", '"C"')]
        return len(words) == 1 or (len(words) > 1 and words[1] == ":")

    def describe_function(self, declaration, scope, head, group):
        before = [entry for entry in head[:group] if isinstance(entry, str)]
        name = before[-1] if before else ""
        if "~" in before or declaration.value in ("default", "delete") or "override" in head[group:]:
            return None
        if before[-2:-1] == ["::"] and len(before) > 2:
            return None  # Declared in its class.
        parameters = [token.text for token in head[group][1:-1]]
        if scope.name and name in (scope.name, "operator=") and self.is_same_type(parameters, scope.name):
            return None
        kind = "method" if scope.kind == "class" else "function"
        return f"{kind} {name}"

    def is_same_type(self, parameters, name):
        """True if the only parameter is a reference to the type itself."""
        plain = [text for text in parameters if text != "const"]
        if plain[:1] != [name] or "," in parameters:
            return False
        if plain[1:2] == ["<"] and ">" in plain:
            plain = [name] + plain[plain.index(">") + 1:]
        return plain[1:2] == ["&"]


def findings(root):
    for folder in FOLDERS:
        for path in sorted((root / folder).rglob("*.h")):
            for line, what in Header(path.read_text(encoding="utf-8")).read():
                yield f"{path.relative_to(root)}:{line}: {what}"


def main():
    return report(findings)


if __name__ == "__main__":
    sys.exit(main())
