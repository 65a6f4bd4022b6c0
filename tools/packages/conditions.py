"""The engine's conditions: reads one, computes it, and finds whether one is true whenever another is. For the scripts of
this folder."""

import itertools
import re
from dataclasses import dataclass
from typing import Optional

from kit.installer_run import COMPARE, COMPARE_TEXT, LOGIC, compare

# The words of a condition. A text in quotation marks has no escapes. A name may be that of an environment variable (%), of
# the state of a component ($: after the run, ?: before it) or of a feature (&: after the run, !: before it).
OPERATORS = {*COMPARE, *COMPARE_TEXT}
WORD = re.compile(r"""\s*(?:"(?P<text>[^"]*)"
                        | (?P<operator>~?(?:<<|>>|><|<>|<=|>=|=|<|>))
                        | (?P<bracket>[()])
                        | (?P<number>-?\d+(?![\w.]))
                        | (?P<name>[%$?&!]?[A-Za-z_][\w.]*))""", re.VERBOSE)
KEYWORDS = {*LOGIC, "NOT"}
STATES = "$?&!"

# What authors write instead, by its beginning.
SLIPS = {'"': "a quotation mark is not closed", "[": "a property is written without square brackets",
         "!=": "the operator for other values is <>", "&&": "the word is AND", "||": "the word is OR"}

# The most different facts for which `implies` tries all combinations.
MOST_FACTS = 12


class ConditionError(Exception):
    """A text that is not a condition; its text says where the engine would stop."""


@dataclass(frozen=True)
class Value:
    """`kind` is "text", "number" or "name"; a name includes the character for its kind, if it has one."""
    kind: str
    word: object


@dataclass(frozen=True)
class Fact:
    """A value by itself (no operator), or two values and the operator between them."""
    left: Value
    operator: Optional[str] = None
    right: Optional[Value] = None


@dataclass(frozen=True)
class Not:
    part: object


@dataclass(frozen=True)
class Logic:
    word: str
    left: object
    right: object


TRUE = Fact(Value("number", 1))


class Reader:
    """Reads one condition from left to right."""

    def __init__(self, condition):
        self.words, position, text = [], 0, condition.rstrip()
        while position < len(text):
            match = WORD.match(text, position)
            if not match:
                rest = text[position:].strip()
                said = next((said for start, said in SLIPS.items() if rest.startswith(start)), None)
                raise ConditionError(said or f"{rest.split()[0]} is not a name, a number, a text in quotation marks or an "
                                     "operator")
            kind, word = match.lastgroup, match[match.lastgroup]
            if kind == "name" and word.upper() in KEYWORDS:
                kind, word = "keyword", word.upper()
            self.words.append((kind, word))
            position = match.end()

    def next(self):
        if not self.words:
            raise ConditionError("it ends too early")
        return self.words.pop(0)

    def logic(self, level=0):
        """The part of the words in LOGIC from this level on; the last of them binds most tightly."""
        if level == len(LOGIC):
            return self.term()
        word = list(LOGIC)[level]
        left = self.logic(level + 1)
        while self.words and self.words[0] == ("keyword", word):
            self.words.pop(0)
            left = Logic(word, left, self.logic(level + 1))
        return left

    def term(self):
        kind, word = self.next()
        if (kind, word) == ("keyword", "NOT"):
            return Not(self.term())
        if (kind, word) == ("bracket", "("):
            inner = self.logic()
            if not self.words:
                raise ConditionError("a bracket is not closed")
            if self.next() != ("bracket", ")"):
                raise ConditionError("an operator is missing in brackets")
            return inner
        left = self.value(kind, word)
        if self.words and self.words[0][0] == "operator":
            operator = self.next()[1]
            return Fact(left, operator, self.value(*self.next()))
        return Fact(left)

    @staticmethod
    def value(kind, word):
        if kind not in ("name", "number", "text"):
            raise ConditionError(f"{word} is in a wrong place")
        return Value(kind, int(word) if kind == "number" else word)


def parse(condition):
    """The tree of a condition; an empty one is always true. Raises ConditionError."""
    if not (condition or "").strip():
        return TRUE
    reader = Reader(condition)
    tree = reader.logic()
    if reader.words:
        raise ConditionError(f"an operator is missing before {reader.words[0][1]}")
    return tree


def facts_of(tree):
    """The facts in a tree, in their order, each once."""
    if isinstance(tree, Fact):
        return [tree]
    parts = [tree.part] if isinstance(tree, Not) else [tree.left, tree.right]
    return list(dict.fromkeys(fact for part in parts for fact in facts_of(part)))


def names_of(tree):
    """The properties in a tree."""
    values = [value for fact in facts_of(tree) for value in (fact.left, fact.right) if value]
    return list(dict.fromkeys(value.word for value in values if value.kind == "name" and value.word[0] not in STATES + "%"))


def compute(tree, answer):
    """The value of a tree: True, False, or None if it is unknown. `answer` gives the value of each fact."""
    if isinstance(tree, Fact):
        return answer(tree)
    if isinstance(tree, Not):
        value = compute(tree.part, answer)
        return None if value is None else not value
    left, right = compute(tree.left, answer), compute(tree.right, answer)
    found = {LOGIC[tree.word](one, other) for one in possible(left) for other in possible(right)}
    return found.pop() if len(found) == 1 else None


def possible(value):
    return (True, False) if value is None else (value,)


def is_met(tree, properties):
    """The value of a tree: None if it depends on something that `properties` does not name. "" is a property without a
    value."""
    def known(value):
        return properties.get(value.word) if value.kind == "name" else value.word

    def answer(fact):
        left, right = known(fact.left), fact.right and known(fact.right)
        if left is None or (fact.right and right is None):
            return None
        return compare(fact.operator, left, right) if fact.operator else left not in ("", 0)

    return compute(tree, answer)


def plain(tree):
    """The tree with "NOT Installed" and the like as facts that can be compared: letter case of REMOVE's value does not
    matter to the engine, which writes it itself."""
    if isinstance(tree, Not):
        return Not(plain(tree.part))
    if isinstance(tree, Logic):
        return Logic(tree.word, plain(tree.left), plain(tree.right))
    if tree.operator in ("=", "~=") and tree.right == Value("text", "ALL") and tree.left.word == "REMOVE":
        return REMOVED
    return tree


REMOVED = Fact(Value("name", "REMOVE"), "~=", Value("text", "ALL"))

# What is true of every run: the second fact follows from the first.
FOLLOWS = [(REMOVED, Fact(Value("name", "REMOVE"))), (Fact(Value("name", "REMOVE")), Fact(Value("name", "Installed"))),
           (REMOVED, Fact(Value("name", "Installed"))), (Fact(Value("name", "REINSTALL")), Fact(Value("name", "Installed")))]


def can_be(facts):
    """True if a run can have all these facts, {fact: value}."""
    for fact, value in facts.items():
        if value and fact.operator in ("=", "~=") and fact.right.kind == "text" and fact.right.word and not facts.get(
                Fact(fact.left), True):
            return False
    return not any(facts.get(one) and not facts.get(other, True) for one, other in FOLLOWS)


def implies(first, others):
    """True if in each run in which `first` is met one of `others` is met. Also true if there are too many facts to say."""
    trees = [plain(tree) for tree in (first, *others)]
    facts = list(dict.fromkeys(fact for tree in trees for fact in facts_of(tree)))
    constant = {fact: fact.left.word not in ("", 0) for fact in facts if fact.operator is None and fact.left.kind != "name"}
    facts = [fact for fact in facts if fact not in constant]
    if len(facts) > MOST_FACTS:
        return True
    for values in itertools.product((True, False), repeat=len(facts)):
        run = {**constant, **dict(zip(facts, values))}
        if can_be(run) and compute(trees[0], run.get) and not any(compute(tree, run.get) for tree in trees[1:]):
            return False
    return True
