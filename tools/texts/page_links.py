"""The links and headings of a page."""

import re

# A link to a file of the project or to a heading.
LINK = re.compile(r"\]\(([^)#:\s]*)(?:#([^)\s]+))?\)")


def links_of(text):
    """(file, heading) of each link, each once; either may be empty."""
    return set(LINK.findall(text))


def anchors_of(text):
    """What a link names the headings of a page by."""
    return {re.sub(r"[^\w\- ]", "", line.lstrip("#").strip().lower()).replace(" ", "-")
            for line in text.splitlines() if line.startswith("#")}
