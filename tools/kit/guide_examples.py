"""Reads the examples of docs/authoring.md: whole packages, each in pieces on the page. For the scripts of this folder and
their tests."""

import re
from pathlib import Path

GUIDE = Path(__file__).resolve().parents[2] / "docs/authoring.md"

# The files that the examples take from the folder of their source.
FILES = {
    "gauge.wxs": ["gauge.exe"],
    "client.wxs": ["ostrel.exe", "osua.exe", "osau.exe", "ostrel32.exe"],
    "server.wxs": ["vt.exe", "dbcon.cmd"],
}

# Each example, with the model in packages/ of which it is a smaller form and whose runs it has.
MODELS = {"gauge.wxs": "other/other.wxs", "client.wxs": "client/client.wxs", "server.wxs": "server/server.wxs"}


# The examples of which packages are made for the install tests. The others are only compiled.
INSTALLED = ("client.wxs", "server.wxs")


def examples(guide=GUIDE):
    """The examples of which packages are made, as all_examples."""
    return {name: text for name, text in all_examples(guide).items() if name in INSTALLED}


def all_examples(guide=GUIDE):
    """The examples by their file names, each assembled from its pieces."""
    texts = {}
    for name, piece in re.findall(r"<!-- example: (\S+) -->\n```xml\n(.*?)```\n", guide.read_text(encoding="utf-8"),
                                  re.DOTALL):
        texts[name] = texts.get(name, "") + piece
    return texts
