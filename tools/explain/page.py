"""Puts explain.html together: one file without any other, from the modules of explain/ and the knowledge.

The modules are ordinary ones with imports and exports, so that Node runs and tests them as they are. Here they become one
script, which the page runs and also gives to its worker: the modules in the order of their imports, without the words import
and export. So a name at the outermost level must be used by one module only. The page's policy for content names this script
and the style by their hashes, and allows nothing else: nothing can be loaded or sent.
"""

import base64
import hashlib
import re
from pathlib import PurePosixPath

PAGE = "docs/explain.html"
FOLDER = "explain"
# The last module, whose imports lead to all others.
MAIN = "page/main.mjs"

IMPORT = re.compile(r'^import (?:\{[^}]*\} from )?"([^"]+)";\n', re.MULTILINE)
EXPORT = re.compile(r"^export (?=(?:async )?(?:function|const|let|class)\b)", re.MULTILINE)
OUTERMOST = re.compile(r"^(?:async )?(?:function\*?|const|let|class) (\w+)", re.MULTILINE)

POLICY = ("default-src 'none'; script-src 'sha256-{script}'; style-src 'sha256-{style}'; worker-src blob:; img-src data:; "
          "base-uri 'none'; form-action 'none'")


class Wrong(Exception):
    """The page cannot be put together; the text says why."""


def modules(root):
    """[(name, text)] of all modules that MAIN needs, each after those that it imports."""
    found, begun = {}, []

    def add(name):
        if name in found:
            return
        if name in begun:
            raise Wrong(f"{FOLDER}/{name} imports itself, through {' and '.join(begun)}")
        begun.append(name)
        path = root / FOLDER / name
        if not path.is_file():
            raise Wrong(f"{FOLDER}/{name} is missing, and {FOLDER}/{begun[-2] if begun[1:] else MAIN} imports it")
        text = path.read_text(encoding="utf-8")
        for target in IMPORT.findall(text):
            parts = []
            for part in (PurePosixPath(name).parent / target).parts:
                parts = parts[:-1] if part == ".." else [*parts, part]
            add("/".join(parts))
        begun.remove(name)
        found[name] = text

    add(MAIN)
    return list(found.items())


def script_of(root, knowledge):
    """The script of the page."""
    owners, parts = {}, []
    for name, text in modules(root):
        text = EXPORT.sub("", IMPORT.sub("", without_types(text)))
        if left := re.search(r"^\s*(?:import|export)\b.*|\bimport\(.*", text, re.MULTILINE):
            raise Wrong(f"{FOLDER}/{name}: the page cannot contain: {left[0].strip()}")
        for word in OUTERMOST.findall(text):
            if word in owners:
                raise Wrong(f"{FOLDER}/{name}: '{word}' is also a name of {FOLDER}/{owners[word]}")
            owners[word] = name
        parts.append(f"// {FOLDER}/{name}\n{text.strip()}\n")
    # "</" in a text would end the element.
    facts = compact(knowledge).replace("</", "<\\/")
    script = f'"use strict";\n(() => {{\nconst KNOWLEDGE = {facts};\n\n' + "\n".join(parts) + "})();\n"
    if re.search(r"</script|<!--", script, re.IGNORECASE):
        raise Wrong(f"a module of {FOLDER}/ contains the end of a script or the beginning of a comment")
    return script


def without_types(text):
    """A module without its documentation comments, which are for the check of types; those stay in explain/."""
    return re.sub(r"[ \t]*/\*\*(?!/).*?\*/[ \t]*\n?", lambda match: "\n" if match[0].endswith("\n") and match.start() and
                  text[match.start() - 1] != "\n" else " " if not match[0].endswith("\n") else "", text, flags=re.DOTALL)


def compact(knowledge):
    """The knowledge in few bytes; its lines stay lines."""
    return re.sub(r"\n ?(?=\S)", "\n", re.sub(r"(?m)^ +", "", knowledge)).strip()


def digest(text):
    return base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()


def page_of(root, knowledge):
    """The text of the page."""
    template, style = ((root / FOLDER / "page" / name).read_text(encoding="utf-8") for name in ("page.html", "page.css"))
    script = script_of(root, knowledge)
    policy = POLICY.format(script=digest(script), style=digest(style))
    for mark, text in (("policy", policy), ("style", style), ("script", script)):
        if template.count(f"{{{{{mark}}}}}") != 1:
            raise Wrong(f"{FOLDER}/page/page.html must have {{{{{mark}}}}} once")
        head, _, tail = template.partition(f"{{{{{mark}}}}}")
        template = head + text + tail
    return template
