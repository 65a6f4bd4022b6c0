"""Compiles a changed source, and links both libraries with it.

The other objects are those of the build x64. Both libraries get unreadable pages behind their constants
(tools/images/guarded_constants.py), so that tests notice a mutant that reads past one.
"""

import json
import re
import shlex
import subprocess
import sys
from pathlib import Path
from typing import NamedTuple

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from images.guarded_constants import guarded

NAMES = ("hxsetup", "hxinternals")
# Options after those of the build. Debug information would have the checksum of the changed source, so that two objects with
# the same code would differ. A mutant may have an unused variable.
OPTIONS = ["-g0", "-w"]
# Options of the linker that are left out: nobody reads the PDB of a mutant.
NO_PDB = re.compile(r"-Wl,--pdb=.*|-Wl,-Xlink=-pdb.*")
PAGED = "-Wl,-Xlink=-filealign:4096"


class Failed(Exception):
    """The unchanged library could not be built; the text says why."""


class Object(NamedTuple):
    """One object of the libraries: how it is compiled, and the sources that it is made of, from the project's folder."""
    command: list
    sources: frozenset


class Library:
    """`build` is the folder of the build x64, `folder` one for the results."""

    def __init__(self, build, folder, root):
        self.build, self.folder, self.root = Path(build), Path(folder), Path(root)
        self.folder.mkdir(parents=True, exist_ok=True)
        self.links = {name: self.link_command(name) for name in NAMES}
        self.objects = self.read_objects()
        # The guarded objects of the unchanged sources; and their code without debug information, when it was needed.
        self.guarded = {name: self.keep(name, (self.build / name).read_bytes()) for name in self.objects}
        self.plain = {}

    def ninja(self, *words):
        result = subprocess.run(["ninja", "-C", self.build, *words], capture_output=True, text=True, check=False)
        if result.returncode != 0:
            raise Failed(f"ninja failed: {result.stdout}{result.stderr}")
        return result.stdout

    def link_command(self, name):
        """The words of the command that links a library."""
        line = self.ninja("-t", "commands", f"{name}.dll").splitlines()[-1]
        words = shlex.split(line.removeprefix(": && ").removesuffix(" && :"))
        return [word for word in words if not NO_PDB.fullmatch(word)]

    def read_objects(self):
        """The objects that the libraries are linked from, by their names in the build folder."""
        sources, name = {}, None
        for line in self.ninja("-t", "deps").splitlines():
            if line.startswith(" "):
                path = Path(self.build, line.strip())
                if path.is_relative_to(self.root / "src"):
                    sources[name].add(str(path.relative_to(self.root)))
            elif line:
                sources[name := line.split(":")[0]] = set()
        commands = {}
        for entry in json.loads((self.build / "compile_commands.json").read_text(encoding="utf-8")):
            words = shlex.split(entry["command"])
            at = words.index("-o")
            commands[words[at + 1]] = words[:at] + words[at + 2:]
        linked = [word for word in self.links[NAMES[0]] if word.endswith(".obj")]
        return {name: Object(commands[name], frozenset(sources[name])) for name in linked}

    def commands(self):
        """The commands that compile the objects and link the libraries, as lists of words."""
        return [*(each.command for each in self.objects.values()), *self.links.values()]

    def is_older_than_sources(self):
        """True if a source was changed or removed after an object that has it was made."""
        for name, each in self.objects.items():
            made = (self.build / name).stat().st_mtime_ns
            for source in (self.root / source for source in each.sources):
                if not source.exists() or source.stat().st_mtime_ns > made:
                    return True
        return False

    def keep(self, name, data):
        """Writes a guarded object to the folder of results; returns its path."""
        path = self.folder / "objects" / Path(name).name
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(guarded(data))
        return path

    def compile(self, name, overlay=None):
        """The object `name`, without debug information; None if it does not compile. `overlay` is a file that names what the
        compiler reads in place of a source."""
        path = self.folder / "compiled.obj"
        command = [*self.objects[name].command, *OPTIONS, *(["-ivfsoverlay", overlay] if overlay else []), "-o", path]
        result = subprocess.run(command, cwd=self.build, capture_output=True, text=True, check=False)
        if result.returncode == 0:
            return path.read_bytes()
        if overlay:
            return None
        raise Failed(f"{name} does not compile: {result.stderr}")

    def overlay(self, source, text):
        """Writes a file that gives the source `source` the content `text`; returns its path."""
        content, overlay = self.folder / "changed.txt", self.folder / "overlay.json"
        content.write_text(text, encoding="utf-8")
        overlay.write_text(json.dumps({"version": 0, "use-external-names": False, "roots": [
            {"name": str(self.root / source), "type": "file", "external-contents": str(content)}]}), encoding="utf-8")
        return overlay

    def mutate(self, source, text):
        """Compiles what contains `source` with the content `text`. Returns the objects that differ, as {name: object}; None if
        one does not compile."""
        overlay, changed = self.overlay(source, text), {}
        for name in [name for name, each in self.objects.items() if source in each.sources]:
            if name not in self.plain:
                self.plain[name] = self.compile(name)
            data = self.compile(name, overlay)
            if data is None:
                return None
            if data != self.plain[name]:
                changed[name] = data
        return changed

    def link(self, changed, folder):
        """Links both libraries with these objects in place of their own, into a folder. Returns false if that fails."""
        objects = {**self.guarded, **{name: self.keep("mutant-" + Path(name).name, data) for name, data in changed.items()}}
        for name, command in self.links.items():
            words = [str(objects.get(word, word)) for word in command]
            words[words.index("-o") + 1] = str(Path(folder) / f"{name}.dll")
            result = subprocess.run([*words, PAGED], cwd=self.build, capture_output=True, text=True, check=False)
            if result.returncode != 0:
                if not changed:
                    raise Failed(f"{name}.dll cannot be linked: {result.stderr}")
                return False
        return True
