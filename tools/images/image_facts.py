"""Reads a linked library and its program database, for check-images.py.

The facts come from llvm-readobj-19 (headers, directories, unwind data), llvm-pdbutil-19 (functions) and
llvm-objdump-19 (the instructions of functions without unwind data).
"""

import bisect
import functools
import re
import struct
import subprocess

LIBRARY = "hxsetup.dll"
DATABASE = "hxsetup.pdb"
VERSION_RESOURCE_TYPE = "VERSIONINFO (ID 16)"


def run(*command):
    """Runs a tool and returns its standard output; raises RuntimeError if the tool fails."""
    result = subprocess.run(command, capture_output=True, text=True, errors="replace")
    if result.returncode != 0:
        raise RuntimeError(f"{command[0]}: {result.stderr.strip() or result.returncode}")
    return result.stdout


# ---- llvm-readobj's text, as a tree


class Node:
    """A block of llvm-readobj's output: its entries in order, as (key, text or Node). The key of a line without a key
    is "". """

    def __init__(self):
        self.entries = []

    def all(self, key):
        return [value for name, value in self.entries if name == key]

    def get(self, key, default=None):
        return next(iter(self.all(key)), default)

    def node(self, key):
        value = self.get(key)
        return value if isinstance(value, Node) else Node()

    def number(self, key):
        return number_of(self.get(key))

    def flags(self, key):
        """The names in a block of flags, "NAME (0x1)" each."""
        return {value.split(" ")[0] for _, value in self.node(key).entries if isinstance(value, str)}

    def find(self, key):
        """Every value of `key` in this block and below."""
        for name, value in self.entries:
            if name == key:
                yield value
            if isinstance(value, Node):
                yield from value.find(key)


def number_of(text):
    """The number in "0x10", "16", "(0x10)" or "NAME (0x10)"; None if there is no number."""
    if not isinstance(text, str):
        return None
    match = re.fullmatch(r"(?:.*\()?(0x[0-9A-Fa-f]+|\d+)\)?", text.strip())
    return int(match.group(1), 0) if match else None


def parse_readobj(text):
    root = Node()
    stack = [root]
    for line in text.splitlines():
        line = line.strip()
        opening = re.fullmatch(r"(.*?)\s*[\[{](?:\s*\(0x[0-9A-Fa-f]+\))?", line)
        if line in ("}", "]", ")"):
            if len(stack) > 1:
                stack.pop()
        elif opening:
            node = Node()
            key, colon, title = opening.group(1).partition(": ")
            if colon:
                node.entries.append(("title", title))
            stack[-1].entries.append((key, node))
            stack.append(node)
        elif line.endswith(" ("):
            node = Node()
            stack[-1].entries.append((line[:-2], node))
            stack.append(node)
        elif line:
            key, colon, value = line.partition(":")
            stack[-1].entries.append((key, value.strip()) if colon else ("", line))
    return root


# ---- the image and the project's lists


class Section:
    def __init__(self, node):
        self.name = node.get("Name", "").split(" (")[0]
        self.rva = node.number("VirtualAddress")
        self.virtual_size = node.number("VirtualSize")
        self.raw_size = node.number("RawDataSize")
        self.raw_offset = node.number("PointerToRawData")
        self.flags = node.flags("Characteristics")

    @property
    def size(self):
        return min(self.virtual_size, self.raw_size)

    def holds(self, rva):
        return self.rva <= rva < self.rva + self.virtual_size

    @property
    def executable(self):
        return "IMAGE_SCN_MEM_EXECUTE" in self.flags

    @property
    def writable(self):
        return "IMAGE_SCN_MEM_WRITE" in self.flags


class Function:
    """A function of the program database: [start, end) as image-relative addresses. `end` is None if the database has no
    length for it."""

    def __init__(self, name, start, size):
        self.name = name
        self.start = start
        self.end = start + size if size is not None else None


class Program:
    """A DLL or a program, with what its headers say. `more` are further options of llvm-readobj."""

    def __init__(self, path, *more):
        self.path = path
        self.bytes = path.read_bytes()
        self.facts = parse_readobj(run("llvm-readobj-19", "--file-headers", "--sections", "--coff-exports", "--coff-resources",
                                       *more, str(path)))
        self.file_header = self.facts.node("ImageFileHeader")
        self.optional_header = self.facts.node("ImageOptionalHeader")
        self.directories = self.optional_header.node("DataDirectory")
        self.sections = [Section(node) for node in self.facts.node("Sections").all("Section")]

    def section_of(self, rva):
        return next((section for section in self.sections if section.holds(rva)), None)

    def read(self, rva, size):
        """`size` bytes of the image as loaded; None if they are not in a stored section."""
        section = self.section_of(rva)
        if section is None or rva - section.rva + size > section.size:
            return None
        offset = section.raw_offset + rva - section.rva
        return self.bytes[offset:offset + size]

    def is_code(self, rva):
        section = self.section_of(rva)
        return section is not None and section.executable

    def version_resource(self):
        """The bytes of the version resource; None if there is none."""
        data = None
        if self.directories.number("ResourceTableRVA"):
            for kind in self.facts.node("Resources").all("Type"):
                if kind.get("title") == VERSION_RESOURCE_TYPE:
                    for entry in kind.find("Data"):
                        if isinstance(entry, Node) and entry.number("DataRVA"):
                            data = self.read(entry.number("DataRVA"), entry.number("DataSize"))
                            break
        return data


class Image(Program):
    """The library of one folder, or the program `name`, with all facts that the checks need."""

    def __init__(self, folder, project, name=LIBRARY):
        super().__init__(folder / name, "--coff-imports", "--coff-load-config", "--coff-basereloc",
                         "--coff-debug-directory", "--unwind")
        self.folder = folder
        self.project = project
        self.processor = folder.name.split("-")[0]
        self.database = folder / DATABASE
        self.base = self.optional_header.number("ImageBase")
        self.load_config = self.facts.node("LoadConfig")

    @functools.cached_property
    def unwind_ranges(self):
        """The ranges [start, end) that have unwind data, sorted."""
        ranges = []
        for entry in self.facts.node("UnwindInformation").all("RuntimeFunction"):
            if self.processor == "x64":
                start, end = entry.number("StartAddress"), entry.number("EndAddress")
            else:
                start = entry.number("Function")
                length = entry.number("FunctionLength")
                if length is None:
                    length = entry.node("ExceptionData").number("FunctionLength")
                end = start + length
            ranges.append((start - self.base, end - self.base))
        return sorted(ranges)

    @functools.cached_property
    def database_text(self):
        # The exit code is ignored: for this tool the linker's own modules, which have no symbols, are errors.
        return subprocess.run(
            ["llvm-pdbutil-19", "dump", "--summary", "--symbols", "--publics", str(self.database)],
            capture_output=True, text=True, errors="replace").stdout

    @functools.cached_property
    def symbols(self):
        """The symbols of the program database: (functions, address of each public symbol by name)."""
        functions, publics = {}, {}
        kind = name = None
        public_functions = []
        for line in self.database_text.splitlines():
            record = re.match(r"\s*\d+ \| (S_\w+) \[size = \d+\](?: `(.*)`)?", line)
            if record:
                kind, name = record.groups()
                continue
            address = re.search(r"addr = (\d+):(\d+)", line)
            if not address or kind not in ("S_GPROC32", "S_LPROC32", "S_THUNK32", "S_PUB32"):
                continue
            segment = int(address.group(1))
            if not 1 <= segment <= len(self.sections):
                continue
            rva = self.sections[segment - 1].rva + int(address.group(2))
            if kind == "S_PUB32":
                publics[name] = rva
                if "function" in line:
                    public_functions.append((name, rva))
            else:
                functions[rva] = Function(name, rva, int(re.search(r"size = (\d+)", line).group(1)))
        for name, rva in public_functions:
            functions.setdefault(rva, Function(name, rva, None))
        ordered = [functions[rva] for rva in sorted(functions)]
        for function, following in zip(ordered, ordered[1:] + [None]):
            if function.end is None:
                section = self.section_of(function.start)
                limit = section.rva + section.size
                function.end = min(following.start, limit) if following else limit
        return ordered, publics

    @functools.cached_property
    def instructions(self):
        """The disassembled code: sorted addresses, and (mnemonic, operands) of each."""
        text = run("llvm-objdump-19", "--disassemble", "--no-show-raw-insn", str(self.path))
        addresses, instructions = [], []
        for line in text.splitlines():
            match = re.match(r"\s*([0-9a-f]+):\s+(\S+)\s*(.*)", line)
            if match:
                operands = re.sub(r"<[^>]*>|\s//.*|\s+# .*", "", match.group(3)).strip()
                addresses.append(int(match.group(1), 16) - self.base)
                instructions.append((match.group(2), operands))
        return addresses, instructions

    def instructions_of(self, start, end):
        addresses, instructions = self.instructions
        return instructions[bisect.bisect_left(addresses, start):bisect.bisect_left(addresses, end)]


def read_definition_file(path):
    """(library or None, [(name, ordinal or None)]) of a .def file."""
    library, entries, listing = None, [], False
    for line in path.read_text(encoding="utf-8").splitlines():
        words = line.split(";")[0].split()
        if not words:
            continue
        if words[0] == "LIBRARY":
            library = words[1]
        elif words[0] == "EXPORTS":
            listing = True
            words = words[1:]
        if listing and words:
            ordinal = next((int(word[1:]) for word in words[1:] if word.startswith("@")), None)
            entries.append((words[0], ordinal))
    return library, entries


def parse_version_resource(data):
    """(file version, product version, strings) of a VS_VERSIONINFO; the versions as four numbers. The string "Translation"
    has the numbers of the languages, separated by commas."""
    versions = [None, None]
    strings = {}

    def align(offset):
        return (offset + 3) & ~3

    def block(offset):
        length, value_length, kind = struct.unpack_from("<HHH", data, offset)
        end = offset + length
        name_end = offset + 6
        while data[name_end:name_end + 2] != b"\0\0":
            name_end += 2
        name = data[offset + 6:name_end].decode("utf-16-le")
        value = align(name_end + 2)
        children = align(value + value_length * (2 if kind == 1 else 1))
        if name == "VS_VERSION_INFO" and value_length:
            fields = struct.unpack_from("<6I", data, value)
            if fields[0] == 0xFEEF04BD:
                for index in (0, 1):
                    high, low = fields[2 + 2 * index:4 + 2 * index]
                    versions[index] = (high >> 16, high & 0xFFFF, low >> 16, low & 0xFFFF)
        elif kind == 1 and value_length:
            strings[name] = data[value:value + 2 * value_length].decode("utf-16-le").rstrip("\0")
        elif name == "Translation":
            words = struct.unpack_from(f"<{value_length // 2}H", data, value)
            strings[name] = ",".join(map(str, words[::2]))
        while children + 6 <= end:
            children = align(block(children))
        return end

    if len(data) >= 6:
        block(0)
    return versions[0], versions[1], strings


# ---- functions without unwind data

X64_SAVED = re.compile(
    r"%(?:[re]?(?:bx|bp|si|di)|bl|bh|bpl|sil|dil|r1[2-5][dwb]?|[xyz]mm(?:[6-9]|1[0-5]))\b")
X64_STACK = re.compile(r"%(?:[re]?sp|spl)\b")
# An operand at or above the return address: the caller's home space or an argument.
X64_ARGUMENT = re.compile(r"(?<![-\w])(?:0x[0-9a-f]+)?\(%rsp(?:,[^)]*)?\)")
X64_CALLS = re.compile(r"(?:call|push|pop|enter|leave|cpuid|rep)")
ARM64_SAVED = re.compile(r"\b(?:[xw](?:19|2\d|30)|fp|lr|[bhsdqv](?:[89]|1[0-5])(?:\.\w+)?)\b")
ARM64_STACK = re.compile(r"\bw?sp\b")
ARM64_ARGUMENT = re.compile(r"\[sp(?:, #0x[0-9a-f]+)?\](?!!|,)")
ARM64_CALLS = re.compile(r"(?:bl|blr|blra\w*|pac\w*|aut\w*|reta\w)$")


def why_not_leaf(processor, instructions):
    """Returns the instruction because of which this code needs unwind data. Returns None for a leaf: code that calls
    nothing, does not move the stack pointer and changes no register that it must preserve. The calling conventions of
    both processors exempt a leaf."""
    calls, saved, stack, argument = (
        (X64_CALLS, X64_SAVED, X64_STACK, X64_ARGUMENT) if processor == "x64"
        else (ARM64_CALLS, ARM64_SAVED, ARM64_STACK, ARM64_ARGUMENT))
    if not instructions:
        return "its code cannot be read"
    for mnemonic, operands in instructions:
        if calls.match(mnemonic) or saved.search(operands) or stack.search(argument.sub("", operands)):
            return f"'{mnemonic} {operands}'".replace(" '", "'")
    return None
