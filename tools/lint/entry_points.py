"""Reads the entry points of the library where they are named: the list of exports, the functions in src/, and the pages
for package authors: docs/actions.md, the index, and the pages in docs/actions/ with a section for each entry point. For the
scripts beside it."""

import re

from lint.cpp_tokens import tokenize

LIST = "src/frame/entry_points.def"
PAGE = "docs/actions.md"
SECTIONS = "docs/actions"
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


def action_pages(root):
    """The pages for package authors: the index first."""
    return [root / PAGE, *sorted((root / SECTIONS).glob("*.md"))]


def lines_of(page):
    """A page's lines outside of code blocks."""
    fenced = False
    for line in page.read_text(encoding="utf-8").splitlines():
        if line.lstrip().startswith("```"):
            fenced = not fenced
        elif not fenced:
            yield line


def page_lines(root):
    """The lines of all these pages outside of code blocks."""
    for page in action_pages(root):
        yield from lines_of(page)


def heading_pages(root):
    """(entry point, name of the page as seen from docs/) of each section about one."""
    for page in action_pages(root):
        for line in lines_of(page):
            if match := re.match(r"## (CustomAction\d+)\b", line):
                yield match[1], page.relative_to(root / "docs").as_posix()


def headings(root):
    """The entry points that have a section of their own."""
    return (name for name, _ in heading_pages(root))


def rows(root):
    """The entry points in the index's summary table."""
    pages = dict(heading_pages(root))
    for line in lines_of(root / PAGE):
        if match := re.match(r"\| \[(CustomAction\d+)\]\(([\w/.]*)#(\w+)\) \|", line):
            name, page, anchor = match.groups()
            # A link that leads elsewhere names no entry point.
            right = anchor == name.lower() and (page or "actions.md") == pages.get(name, page or "actions.md")
            yield name if right else f"{name} with a link to {page}#{anchor}"
