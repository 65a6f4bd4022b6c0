"""Runs the compiler candle and the linker light, which authors use, under Mono. For the scripts of this folder."""

import functools
import os
import re
import subprocess
import tempfile
from pathlib import Path

from packages.tables import PackageError, read_output

ROOT = Path(__file__).resolve().parents[2]
SETUP = ROOT / "tools/setup/setup.sh"

# A message of the two: a file and a line if it has a place, "warning" or "error", its number and its text.
MESSAGE = re.compile(r"(?:(?P<file>.*?)(?:\((?P<line>\d+)\))?|\w+\.exe) : (?P<kind>error|warning) (?P<code>[A-Z]{4}\d{4}) : "
                     r"(?P<text>.*)")

# After the name of a duplicate symbol: one of its two places is in a fragment.
OF_A_FRAGMENT = r".*\.wxi:\d+"

# What to do after messages that do not say it: the number, a pattern for the text and the place, the hint.
HINTS = [
    ("CNDL0027", "File/@Source", "Give the File a Name, or write \"/\" instead of \"\\\" in its Source."),
    ("CNDL0099", "explicit key path", "Write KeyPath=\"yes\" at one File or RegistryValue of the component, or at the Component "
                                      "itself if it has only folders."),
    ("CNDL0103", "with type 'include'", "The fragments are in packages/ of the project and of the release; look for a misspelt "
                                        "name."),
    ("CNDL0150", r"\$\(var\.", "Give it a value: --define NAME=VALUE, or <?define NAME = \"VALUE\"?> before its use."),
    ("LGHT0091", rf"symbol 'WixAction:{OF_A_FRAGMENT}", "A fragment schedules its actions itself: leave out the line of your package."),
    ("LGHT0091", rf"symbol 'Property:{OF_A_FRAGMENT}",
     "A fragment declares its properties itself: leave out the element of your package. For another value, set the property in "
     "an action (docs/authoring.md, \"A client package, step by step\")."),
    ("LGHT0091", rf"symbol '(?!WixAction:|Property:){OF_A_FRAGMENT}",
     "A fragment has the other one: leave out the element of your package, or give it another name."),
    ("LGHT0094", "'Media:", "Files are on a disk: add <Media Id=\"1\" Cabinet=\"files.cab\" EmbedCab=\"yes\"/> to the Product."),
    ("LGHT0094", "/RemoveExistingProducts'",
     "The package looks for older versions, but does not remove them: schedule RemoveExistingProducts in InstallExecuteSequence, "
     "after InstallFinalize (6600), or use MajorUpgrade."),
    ("LGHT0179", "cannot have a unique sequence number",
     "Write Sequence=\"NUMBER\" instead of After or Before, with a number that no action of the fragments has "
     "(docs/authoring.md, \"The sequences\")."),
    ("LGHT1050", "same sequence number -", "A sequence has one place for each end of a run (OnExit): leave out your own action."),
    ("LGHT1050", r"same sequence number \d", "The fragments' actions keep their numbers: give your own another one."),
]

# Messages that only name a second place of the message before them.
SECOND_PLACES = ("LGHT0092", "LGHT1051")

# An element that contains what it may not; if that is in an included fragment, one message says it for all elements there.
MISPLACED, INCLUDED = "CNDL0005", re.compile(r"\.wxi:\d+$")
PARENT = re.compile(r"The (\w+) element contains an unexpected child element")

# Warnings count as errors, and the remarks of "-pedantic" are asked for.
OPTIONS = ("-nologo", "-pedantic", "-wx")


class CompilerError(PackageError):
    """The compiler or the linker refused the source. `messages` are its messages, each (place, code, text); the place is
    "FILE:LINE", or "" if there is none."""

    def __init__(self, messages):
        self.messages = messages
        super().__init__("\n".join(f"{place}: {text} ({code})" if place else f"{text} ({code})"
                                   for place, code, text in messages))


@functools.cache
def folder_of_compilers():
    """The folder of candle.exe and light.exe; installs them if they are missing."""
    result = subprocess.run(["bash", "-euo", "pipefail", "-c", 'source "$0"; need_compilers; echo "$compilers"', str(SETUP)],
                            stdout=subprocess.PIPE, text=True, check=False)
    if result.returncode != 0:
        raise PackageError("the compilers of packages are missing; ./hx setup installs them")
    return Path(result.stdout.strip())


def messages_of(text, places):
    """The messages in the output of a tool. `places` are its names of folders, each with the user's name for it."""
    found = []
    for line in text.splitlines():
        match = MESSAGE.fullmatch(line.strip())
        if match:
            place = place_of(match["file"] or "", places) + (f":{match['line']}" if match["line"] else "")
            if match["code"] in SECOND_PLACES and found:
                found[-1] = (*found[-1][:2], f"{found[-1][2]} The other one is in {place}.")
            else:
                found.append((place, match["code"], match["text"].strip()))
    return [with_hints(*message) for message in misplaced_once(found)]


def misplaced_once(messages):
    """The messages with one for all elements of fragments that are inside of the same wrong element."""
    seen = set()
    for place, code, text in messages:
        parent = PARENT.match(text) if code == MISPLACED and INCLUDED.search(place) else None
        if not parent:
            yield place, code, text
        elif parent[1] not in seen:
            seen.add(parent[1])
            said = "" if parent[1] == "Product" else " Include fragments directly below Product, not inside of another element."
            yield place, code, text + said


def with_hints(place, code, text):
    hints = [hint for number, part, hint in HINTS if number == code and re.search(part, f"{text} {place}")]
    return place, code, " ".join([text, *hints])


def place_of(text, places):
    """A place in a file under the user's name for its folder."""
    for name, real in places:
        if text.startswith(name):
            return real + text[len(name):]
    return text


def run_tool(name, options, stage, places):
    """Runs candle or light in the folder `stage`. Raises CompilerError if it has anything to say."""
    environment = dict(os.environ, LC_ALL="C.UTF-8", WIX_TEMP=str(stage))
    result = subprocess.run(["mono", folder_of_compilers() / f"{name}.exe", *OPTIONS, *options], cwd=stage, text=True,
                            errors="replace", env=environment, capture_output=True, check=False)
    messages = messages_of(result.stdout + result.stderr, places)
    if messages:
        raise CompilerError(messages)
    if result.returncode != 0:
        said = (result.stderr.strip() or result.stdout.strip()).splitlines()
        raise CompilerError([("", name, "\n".join(said[:5]) or f"ended with status {result.returncode}")])
    return result.stdout


class Compilation:
    """The folders of one compilation in `stage`, an empty folder: under other names, because both programs take only
    relative paths. `includes` are the folders in which included files are searched after the folder of the source."""

    def __init__(self, source, includes, variables, stage, texts=()):
        self.source, self.stage = Path(source).resolve(), Path(stage)
        self.folders = {"source": self.source.parent}
        self.folders |= {f"include{number}": Path(each).resolve() for number, each in enumerate(includes)}
        self.places = []
        for name, folder in self.folders.items():
            (self.stage / name).symlink_to(folder)
            self.places.append((f"{self.stage / name}/", f"{short(folder)}/"))
        self.options = [f"-I{name}/" for name in self.folders] + [f"-d{name}={value}" for name, value in variables.items()]
        self.texts = []
        for number, each in enumerate(texts):
            (self.stage / f"texts{number}.wxl").symlink_to(Path(each).resolve())
            self.texts += ["-loc", f"texts{number}.wxl"]

    def preprocess(self):
        """The source with its includes and variables replaced."""
        run_tool("candle", ["-arch", "x64", *self.options, "-psource.txt", f"source/{self.source.name}"], self.stage,
                 self.places)
        return (self.stage / "source.txt").read_text(encoding="utf-8-sig")

    def compile(self):
        """The tables of the package."""
        run_tool("candle", ["-arch", "x64", *self.options, "-out", "package.wixobj", f"source/{self.source.name}"],
                 self.stage, self.places)
        run_tool("light", [*self.texts, "-xo", "-out", "package.wixout", "package.wixobj"], self.stage, self.places)
        output = read_output(self.stage / "package.wixout")
        for table in [*output.tables.values(), *output.linker.values()]:
            table.places = [place_of(place, self.places) for place in table.places]
        return output


def compile_source(source, includes, variables, texts=()):
    """The tables that the linker makes of a source."""
    with tempfile.TemporaryDirectory(prefix="hx-compile-") as stage:
        return Compilation(source, includes, variables, stage, texts).compile()


def short(folder):
    """The name of a folder for messages: relative to the current one if it is below it."""
    try:
        return str(folder.relative_to(Path.cwd())) if folder != Path.cwd() else "."
    except ValueError:
        return str(folder)
