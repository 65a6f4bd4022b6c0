"""Reads the entry points of the library where they are named: the list of exports, the functions in src/, and the page
for package authors. For the scripts beside it."""

import re

from lint.cpp_tokens import tokenize

LIST = "src/frame/entry_points.def"
PAGE = "docs/actions.md"
NAME = re.compile(r"CustomAction\d+")


def listed(root):
    """The names in the list of exports, in its order."""
    entries = False
    for line in (root / LIST).read_text(encoding="utf-8").splitlines():
        words = line.split(";")[0].split()
        if words[:1] == ["EXPORTS"]:
            entries, words = True, words[1:]
        if entries and words:
            yield words[0]


def defined(root):
    """The functions with the name of an entry point that have a body."""
    for path in sorted((root / "src").rglob("*.cpp")):
        tokens = [t for t in tokenize(path.read_text(encoding="utf-8"))
                  if t.kind in ("word", "sign", "literal", "number")]
        for index, token in enumerate(tokens[:-1]):
            if not NAME.fullmatch(token.text) or tokens[index + 1].text != "(":
                continue
            depth = 0
            for end in range(index + 1, len(tokens)):
                depth += {"(": 1, ")": -1}.get(tokens[end].text, 0)
                if depth == 0:
                    if end + 1 < len(tokens) and tokens[end + 1].text == "{":
                        yield token.text
                    break


def page_lines(root):
    """The page's lines outside of code blocks."""
    fenced = False
    for line in (root / PAGE).read_text(encoding="utf-8").splitlines():
        if line.lstrip().startswith("```"):
            fenced = not fenced
        elif not fenced:
            yield line


def headings(root):
    """The entry points that have a section of their own."""
    return (match.group(1) for line in page_lines(root) if (match := re.match(r"## (CustomAction\d+)\b", line)))


def rows(root):
    """The entry points in the page's summary table."""
    for line in page_lines(root):
        match = re.match(r"\| \[(CustomAction\d+)\]\(#(\w+)\) \|", line)
        if match:
            # A link that leads elsewhere names no entry point.
            yield match.group(1) if match.group(2) == match.group(1).lower() else f"{match.group(1)}#{match.group(2)}"
