#!/usr/bin/env python3
"""Links a library so that the test rig can see a read past the end of a constant:

    tools/images/guarded_constants.py COMMAND...

COMMAND is a command of the linker. Every constant section of its object files (a literal, a table) gets pages of its own: the
section ends where a page ends, and a page full of MARK follows. The rig makes these pages unreadable when it loads the
library. Between a constant and its page are at most 15 bytes, if the compiler aligns the constant to more than its size is a
multiple of. The code is not changed. The changed object files are in the folder guarded-OUTPUT beside the output.
"""

import struct
import subprocess
import sys
from pathlib import Path

PAGE = 4096
# What fills a page that must not be read; tests/rig/constant_guard.cpp looks for it.
MARK = b"hxguard\0"

# The parts of an object file (COFF) that change: the header, a section, a symbol, a relocation.
HEADER = struct.Struct("<HHIIIHH")
SECTION = struct.Struct("<8sIIIIIIHHI")
SYMBOL = struct.Struct("<8sIhHBB")
RELOCATION_SIZE = 10
ALIGNMENT_MASK = 0x00F00000
ALIGN_TO_PAGE = 0x00D00000
MORE_RELOCATIONS = 0x01000000
STATIC = 3


class Unusable(Exception):
    """The file is not an object file that can be changed."""


def name_of(field, strings):
    """The name of a section, which is in the table of strings if it is long."""
    text = field.rstrip(b"\0")
    if text.startswith(b"/"):
        start = int(text[1:])
        text = strings[start:strings.index(b"\0", start)]
    return text.decode()


def is_constant(name):
    return name == ".rdata" or name.startswith(".rdata$")


def guarded(data):
    """The object file `data` with its constant sections before pages that must not be read."""
    machine, count, stamp, symbols_at, symbol_count, optional, flags = HEADER.unpack_from(data)
    if machine not in (0x8664, 0xAA64) or optional:
        raise Unusable("not an object file for x64 or ARM64")
    strings = data[symbols_at + symbol_count * SYMBOL.size:]
    out = bytearray(data[:HEADER.size + count * SECTION.size])
    moved = {}
    for index in range(count):
        place = HEADER.size + index * SECTION.size
        name, virtual, address, size, raw, relocations, lines, relocation_count, line_count, bits = SECTION.unpack_from(data, place)
        if lines:
            raise Unusable("the object file has line numbers")
        body = data[raw:raw + size] if raw else b""
        table = bytearray(data[relocations:relocations + relocation_count * RELOCATION_SIZE]) if relocation_count else bytearray()
        if is_constant(name_of(name, strings)) and size and raw:
            if bits & MORE_RELOCATIONS:
                raise Unusable("a constant has too many relocations")
            alignment = 1 << max(((bits & ALIGNMENT_MASK) >> 20) - 1, 0)
            # If the size is not a multiple of the alignment, a few bytes remain between the constant and the page.
            front = -size % PAGE // alignment * alignment
            gap = -(front + size) % PAGE
            body = bytes(front) + body + bytes(gap) + MARK * (PAGE // len(MARK))
            bits = bits & ~ALIGNMENT_MASK | ALIGN_TO_PAGE
            moved[index + 1] = front
            for at in range(0, len(table), RELOCATION_SIZE):
                struct.pack_into("<I", table, at, struct.unpack_from("<I", table, at)[0] + front)
        if bits & MORE_RELOCATIONS:
            raise Unusable("a section has too many relocations")
        raw = len(out) if body and raw else 0
        size = len(body) if body else size
        out += body
        relocations = len(out) if table else 0
        out += table
        SECTION.pack_into(out, place, name, virtual, address, size, raw, relocations, 0, relocation_count, 0, bits)
    HEADER.pack_into(out, 0, machine, count, stamp, len(out), symbol_count, optional, flags)
    out += moved_symbols(data[symbols_at:symbols_at + symbol_count * SYMBOL.size], moved) + strings
    return bytes(out)


def moved_symbols(table, moved):
    """The table of symbols, with those of the constants where these are now."""
    table, at = bytearray(table), 0
    while at < len(table):
        name, value, section, kind, storage, more = SYMBOL.unpack_from(table, at)
        if section in moved:
            SYMBOL.pack_into(table, at, name, value + moved[section], section, kind, storage, more)
        at += SYMBOL.size * (1 + more)
    return bytes(table)


def main(command):
    """Runs the linker on changed copies of its object files."""
    output = Path(command[command.index("-o") + 1])
    folder = output.parent / f"guarded-{output.stem}"
    folder.mkdir(exist_ok=True)
    changed = []
    for number, word in enumerate(command):
        if word.endswith(".obj"):
            copy = folder / f"{number}-{Path(word).name}"
            try:
                copy.write_bytes(guarded(Path(word).read_bytes()))
            except Unusable as error:
                sys.exit(f"guarded_constants.py: {word}: {error}")
            word = str(copy)
        changed.append(word)
    return subprocess.run(changed, check=False).returncode


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
