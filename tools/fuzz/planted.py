"""Bugs that are planted to prove the targets of the fuzzer: a library with one of them is built beside the real one."""

import contextlib
import fcntl
import json
import re
import shlex
import subprocess
from pathlib import Path
from typing import NamedTuple

from fuzz.fuzzing import BUILD, ROOT

# The lock of ./hx: who holds it builds in this folder.
LOCK = ROOT / "build/.lock"


class Bug(NamedTuple):
    """A bug: in the file of src/, the text `right`, which occurs once, becomes `wrong`."""
    what: str
    file: str
    right: str
    wrong: str
    # The most runs that the fuzzer may need, without the corpus.
    runs: int
    # What the fuzzer must say about it, as a regular expression: the check that is proven by the bug.
    says: str
    # The source that is compiled with the bug, if `file` is a header.
    compiled: str = ""

    def is_found(self, result):
        """True if the fuzzer has found the bug, by the check that it proves."""
        return result.input is not None and re.search(self.says, result.message) is not None


# The bugs of each target, one for each check that is worth a proof.
BUGS = {
    "formats": (Bug("a text in braces is not limited to the space that is left",
                   "format/text_writer.cpp", "  if (count > room) count = room;\n", "", 100_000, "^SEGV "),
                Bug("a text is cut one byte too early",
                    "format/text_writer.cpp", "  if (count > room) count = room;\n",
                    "  if (count > room) count = room - (room != 0);\n", 100_000, "^the format .* in [0-9]+ bytes is "),
                Bug("an escaped text is cut although its last character fits",
                    "format/text_sink.cpp", "unit.length > output_->room", "unit.length >= output_->room", 100_000,
                    "^the format .* in [0-9]+ bytes is ")),
    "raw-formats": (Bug("a brace at the end of a format is read as if something followed it",
                       "format/directive.cpp", "  if (*inside == 0) return at;\n", "", 100_000, "^SEGV "),),
    "locale": (Bug("a field of the locale is cut within a character",
                  "format/locale_record.cpp", "while (length > 0 && (converted[length] & 0xC0) == 0x80) --length;\n", "",
                  100_000, "^the field .* ends within a character$"),),
    "dates": (Bug("the last day of a year that belongs to the next year's first week has week 53",
                 "format/date_pattern.cpp", "thursday >= static_cast<int32_t>(DaysOfYear(year))",
                 "thursday > static_cast<int32_t>(DaysOfYear(year))", 200_000, "seconds are .*, not "),
              Bug("a date is cut one byte too early within a name or a number",
                  "format/text_sink.cpp", "unit.length > output_->room",
                  "unit.length + (length != kToTerminator && length > 1) > output_->room", 100_000,
                  "that is cut to .* is another one ")),
    "paths": (Bug("a record that ends before its padding is read as a whole one",
                 "paths/path_query.cpp", "EntrySize(length) > left", "kTextOffset + length > left", 200_000, "^an entry ends at "),
              Bug("a name is joined with a slash",
                  "paths/path.cpp", "if (!standsAlone) *end++ = '\\\\';", "if (!standsAlone) *end++ = '/';", 100_000,
                  "^a node's text is "),
              Bug("two nodes of a path become one with a text that is not that of the path",
                  "paths/path_text.cpp", "    flat->text[length] = '\\0';\n", "    flat->text[--length] = '\\0';\n", 100_000,
                  "is flattened to|is copied as"),
              Bug("the error mode becomes 0 instead of what it was",
                  "files/dir_walker.cpp", "  ErrorModeGuard errorMode;\n",
                  "  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);\n"
                  "  struct Zero { ~Zero() { SetErrorMode(0); } } errorMode;\n", 200_000, "^the error mode is left at 0;")),
    "wildcards": (Bug("after a mismatch the name goes on where it is, not after the start of the last match",
                     "files/wildcard.cpp", "      name = starName;\n", "      name.Skip();\n", 100_000,
                      "^the pattern .* and the .*name "),),
    "engine": (Bug("the new name of a target that is renamed has no space for its terminator",
                  "files/tree_copy.cpp", "constexpr size_t kStampRoom = 32;", "constexpr size_t kStampRoom = 20;", 200_000,
                   "^heap-buffer-overflow"),
               Bug("a file that is copied is not there, although the result is success",
                   "files/tree_copy.cpp", "return isReached && CopyFileW(source, target, TRUE) ?",
                   "return isReached ?", 200_000, "is not at its target"),
               Bug("a target that is to be renamed is deleted before a move",
                   "files/tree_copy.cpp", "  if (Has(kTreeKeepAside)) return", "  if (Has(kTreeKeepAside) && !Has(kTreeMove)) return",
                   200_000, "^the content [0-9]+ is lost"),
               Bug("a target that is kept is renamed",
                   "files/tree_copy.cpp", "if (Has(kTreeOverwrite)) {", "if (Has(kTreeOverwrite) || Has(kTreeKeepAside)) {",
                   200_000, "^although nothing is moved or overwritten, this entry changed: "),
               Bug("the contents of a link in a target are deleted, although links are not followed",
                   "files/tree_delete.cpp", "if (!IsGoneThrough(*found, options)) return DeleteAlone(entry.source",
                   "if (!IsGoneThrough(*found, 0)) return DeleteAlone(entry.source", 400_000,
                   "^something changes to which a link leads: "),
               Bug("a target is renamed to a path without its drive",
                   "files/tree_copy.cpp", "return MoveFileW(target, aside.get());", "return MoveFileW(target, aside.get() + 2);",
                   200_000, "^something changes that the line does not name: ")),
    "actions": (Bug("a text of the registry is terminated one byte too late",
                   "base/registry_text.cpp", "status == ERROR_SUCCESS ? size - 1 : 0", "status == ERROR_SUCCESS ? size : 0",
                   200_000, "^stack-buffer-overflow"),
                Bug("a line of the log is larger than its buffer",
                    "frame/session.cpp", "FormatStringV(text, kLogLineSize,", "FormatStringV(text, kLogLineSize + 8,",
                    1_000_000, "^stack-buffer-overflow"),
                Bug("a module is loaded each time that a function in it is called",
                    "base/late_binding.cpp", "  if (entry->function || entry->isFinal) return entry->function;\n", "",
                    200_000, "is loaded 2 times and kept, not 1 times"),
                Bug("after a single byte of a text one byte too many is cleared",
                    "format/output.h", "    *(*at)++ = *text++;\n", "    (*at)[2] = 0;\n    *(*at)++ = *text++;\n", 1_000_000,
                    "^stack-buffer-overflow", "format/format.cpp"),
                Bug("the policy that has the rights of accounts is not closed",
                    "security/service_account_creation.cpp", "  LsaClose(policy);\n", "", 400_000, "^a policy is left over$"),
                Bug("the password of a new account is not published",
                    "security/service_account_creation.cpp",
                    "  MsiSetPropertyW(session, L\"PROP_ACCOUNTPASS\", account.password.text);\n", "", 400_000,
                    "^an account is made, but PROP_ACCOUNTPASS is "),
                Bug("an account is deleted that the installer did not make",
                    "security/service_account_deletion.cpp", "!ownName || !IsSameName(user, ownName.get())", "!ownName",
                    200_000, "is deleted, which the installer did not make$"),
                Bug("a line of the log can have 511 bytes",
                    "frame/session.cpp", "kLogLineSize = 256", "kLogLineSize = 512", 1_000_000,
                    "^a line of the log has [0-9]+ bytes$")),
}


class Misfit(Exception):
    """A bug that cannot be planted, because the source has changed."""


def planted_source(bug):
    """The text of the bug's source file with the bug."""
    text = (ROOT / "src" / bug.file).read_text(encoding="utf-8")
    if text.count(bug.right) != 1:
        raise Misfit(f"src/{bug.file} has the text of the bug {text.count(bug.right)} times, not once: {bug.right!r}")
    return text.replace(bug.right, bug.wrong)


def command_of(text, changes):
    """The words of a command, some of them replaced. Ninja puts a link between two empty commands."""
    return [changes.get(word, word) for word in shlex.split(text) if word not in (":", "&&")]


def link_command():
    """The command that links the library, which is the last one of its build."""
    return subprocess.run(["ninja", "-C", str(BUILD), "-t", "commands", "hxinternals.dll"], stdout=subprocess.PIPE,
                          text=True, check=True).stdout.splitlines()[-1]


@contextlib.contextmanager
def build_lock():
    """Waits until no other run builds in this folder, and lets none begin."""
    with LOCK.open("w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def make_image(bug, folder):
    """Makes the library with the bug in a folder, from the objects of the real one. Returns its path."""
    with build_lock():
        return make_image_alone(bug, folder)


def make_image_alone(bug, folder):
    """The same, while no other run builds."""
    source, image, thing = ROOT / "src" / (bug.compiled or bug.file), folder / "hxinternals.dll", folder / "planted.obj"
    changed = folder / bug.file
    changed.parent.mkdir(exist_ok=True)
    changed.write_text(planted_source(bug), encoding="utf-8")
    # A header is found in the folder before it is found in src/.
    copy = source if bug.compiled else changed
    entries = json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8"))
    entry = next(entry for entry in entries if Path(entry["file"]) == source)
    words = shlex.split(entry["command"])
    own = words[words.index("-o") + 1]
    # Without warnings: the bug may leave a variable unused.
    subprocess.run([*command_of(entry["command"], {entry["file"]: str(copy), own: str(thing)}), "-w",
                    "-iquote", str(folder)], cwd=entry["directory"], check=True)
    subprocess.run(command_of(link_command(), {own: str(thing), "hxinternals.dll": str(image),
                                               "-Wl,--pdb=hxinternals.pdb": f"-Wl,--pdb={image.with_suffix('.pdb')}"}),
                   cwd=BUILD, check=True)
    return image
