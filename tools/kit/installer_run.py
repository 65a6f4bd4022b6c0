"""Finds which actions of a package run, and in which order: evaluates the conditions of Windows Installer and walks
through a sequence. For the scripts of this folder."""

import re

# The place of the engine's action AppSearch, which does the package's searches.
APP_SEARCH = 50

# An operator with "~" ignores the case of letters.
TOKEN = re.compile(r'\s*(?:"([^"]*)"|(~?(?:<<|>>|><|<>|<=|>=|=|<|>))|([()])|(-?\d+)|([A-Za-z_][\w.]*))')
LOGIC = {
    "IMP": lambda left, right: not left or right,
    "EQV": lambda left, right: left == right,
    "XOR": lambda left, right: left != right,
    "OR": lambda left, right: left or right,
    "AND": lambda left, right: left and right,
}
COMPARE = {
    "=": lambda left, right: left == right,
    "<>": lambda left, right: left != right,
    "<": lambda left, right: left < right,
    ">": lambda left, right: left > right,
    "<=": lambda left, right: left <= right,
    ">=": lambda left, right: left >= right,
}
COMPARE_TEXT = {
    "><": lambda left, right: right in left,
    "<<": lambda left, right: left.startswith(right),
    ">>": lambda left, right: left.endswith(right),
}


def tokens(condition):
    """The words of a condition, each as a kind and a text. The states of components and features are not supported."""
    found, position = [], 0
    text = condition.rstrip()
    while position < len(text):
        match = TOKEN.match(text, position)
        if not match:
            raise ValueError(f"this is not part of a condition: {text[position:]!r} in {condition!r}")
        kind = ("text", "operator", "bracket", "number", "name")[match.lastindex - 1]
        word = match[match.lastindex]
        if kind == "name" and (word.upper() in LOGIC or word.upper() == "NOT"):
            kind, word = "logic", word.upper()
        found.append((kind, word))
        position = match.end()
    return found


def names_in(condition):
    """The properties that a condition reads."""
    return [word for kind, word in tokens(condition) if kind == "name"]


class Condition:
    """One condition, read from left to right. The precedence of the logical words is that of LOGIC, the last one highest."""

    def __init__(self, condition, properties):
        self.condition = condition
        self.properties = properties
        self.left = tokens(condition)

    def value(self):
        if not self.left:
            return True
        result = self.logic(0)
        if self.left:
            raise ValueError(f"more than one condition: {self.condition!r}")
        return result

    def logic(self, level):
        if level == len(LOGIC):
            return self.term()
        word = list(LOGIC)[level]
        result = self.logic(level + 1)
        while self.left and self.left[0] == ("logic", word):
            self.left.pop(0)
            result = LOGIC[word](result, self.logic(level + 1))
        return result

    def term(self):
        kind, word = self.next()
        if (kind, word) == ("logic", "NOT"):
            return not self.term()
        if (kind, word) == ("bracket", "("):
            result = self.logic(0)
            if self.next() != ("bracket", ")"):
                raise ValueError(f"a bracket is not closed: {self.condition!r}")
            return result
        first = self.operand(kind, word)
        if self.left and self.left[0][0] == "operator":
            operator = self.next()[1]
            return compare(operator, first, self.operand(*self.next()))
        # A property without an operator is true if it is set, a number if it is not 0.
        return first not in ("", 0)

    def operand(self, kind, word):
        if kind == "name":
            return self.properties.get(word, "")
        if kind == "number":
            return int(word)
        if kind == "text":
            return word
        raise ValueError(f"{word!r} is in a wrong place: {self.condition!r}")

    def next(self):
        if not self.left:
            raise ValueError(f"the condition ends too early: {self.condition!r}")
        return self.left.pop(0)


def compare(operator, left, right):
    plain = operator.removeprefix("~")
    if plain in COMPARE and isinstance(left, int) != isinstance(right, int):
        # A number is compared with a text only if the text is a number too; otherwise they only differ.
        try:
            left, right = int(left), int(right)
        except ValueError:
            return plain == "<>"
    if isinstance(left, int) and isinstance(right, int) and plain in COMPARE:
        return COMPARE[plain](left, right)
    left, right = str(left), str(right)
    if operator != plain:
        left, right = left.lower(), right.lower()
    return {**COMPARE, **COMPARE_TEXT}[plain](left, right)


def holds(condition, properties):
    """True if a condition is met; an empty one always is."""
    return Condition(condition or "", properties).value()


def format_text(text, properties):
    """The value that an action sets, with the properties in brackets replaced by their values."""
    text = re.sub(r"\[([A-Za-z_][\w.]*)\]", lambda match: str(properties.get(match[1], "")), text)
    return "" if text == "{}" else text


def run_sequence(rows, actions, properties, searched=(), answers=None, given=None):
    """Walks through a sequence as the engine does: yields each row whose condition is met, with the properties at that
    moment. Sets the properties of actions that set one. The changes of other actions must be in `properties` from the
    start. A property named in `searched` is not set before the engine searches for it, unless `given` has its value until
    then. A property that `answers` names for an action is not set before that action has run.

    `rows` have a `number`, an `action` and a `condition`. Rows with a number below 1 run at the end of the sequence and are
    not reached. `actions` has the attributes of each action by its name."""
    answers = answers or {}
    later = {*searched, *(name for names in answers.values() for name in names)}
    state = {name: value for name, value in properties.items() if name not in later} | (given or {})
    found = {name: value for name, value in properties.items() if name in searched}
    for row in sorted((row for row in rows if row.number > 0), key=lambda row: row.number):
        if row.number > APP_SEARCH:
            state |= found
            found = {}
        if not holds(row.condition, state):
            continue
        yield row, dict(state)
        action = actions.get(row.action)
        if action is not None and action.get("Value") is not None and action.get("Property"):
            state[action["Property"]] = format_text(action["Value"], state)
        state |= {name: properties[name] for name in answers.get(row.action, ()) if name in properties}
