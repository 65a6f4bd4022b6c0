#!/usr/bin/env python3
"""Checks the hxsetup.dll of each given folder: its headers, exports, imports, unwind data and protections.

    tools/images/check-images.py [--project ROOT] [--program] FOLDER...

A folder is named after its processor (arm64..., x64...) and contains hxsetup.dll and hxsetup.pdb. With --program, checks the
hxrun.exe of each folder instead, for what a released program must have. Prints one line per
check ("ok NAME" or "FAILED NAME: reason") and the counts; the exit code is 1 if a check failed.

image_facts.py reads the facts.
"""

import argparse
import re
import struct
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from images.image_facts import (DATABASE, LIBRARY, Image, Node, number_of, parse_readobj, parse_version_resource,
                         read_definition_file, run, why_not_leaf)

# The same objects, with nothing discarded. An import that only this library has is not dead: operations that no entry
# point calls need it.
INTERNALS = "hxinternals.dll"
PROGRAM = "hxrun.exe"
# The libraries of Windows that the program may need. All others would have to be released with it.
SYSTEM_LIBRARIES = {f"{name}.dll" for name in ("advapi32", "kernel32", "msi", "msvcrt", "netapi32", "ntdll", "ole32",
                                               "oleaut32", "shell32", "user32", "version")}
ORDINAL_LIBRARY = "msi.dll"
MAX_SIZE = {"arm64": 112 * 1024}
MACHINES = {"arm64": "IMAGE_FILE_MACHINE_ARM64", "x64": "IMAGE_FILE_MACHINE_AMD64"}
LOAD_FROM_SYSTEM32 = 0x800
# The value of the stack cookie in the file: the loader replaces only this value.
GUARD_NOT_CHOSEN = 0x00002B992DDFA232
GUARD_FAILED = "__stack_chk_fail"
SHADOW_STACK = "IMAGE_DLL_CHARACTERISTICS_EX_CET_COMPAT"
# The size up to the end of GuardLongJumpTargetCount, in bytes.
MIN_LOAD_CONFIG_SIZE = 192
# The bytes that the linker puts between functions.
PADDING = {"arm64": b"\x00", "x64": b"\xcc\x00"}

# The checks. Each returns the list of its findings.


def check_machine(image):
    machine = image.file_header.get("Machine", "").split(" ")[0]
    expected = MACHINES.get(image.processor)
    if expected is None:
        return [f"the folder's name does not begin with a processor: {image.folder.name}"]
    reasons = [] if machine == expected else [f"{machine} instead of {expected}"]
    is_library = "IMAGE_FILE_DLL" in image.file_header.flags("Characteristics")
    if is_library != (image.path.name != PROGRAM):
        reasons.append("not a program" if is_library else "not a library")
    return reasons


def differences(kind, found, expected):
    reasons = [f"{kind} {item} is missing" for item in sorted(expected - found)]
    return reasons + [f"{kind} {item} is not listed" for item in sorted(found - expected)]


def check_exports(image):
    _, entries = read_definition_file(image.project / "src/frame/entry_points.def")
    exports = image.facts.all("Export")
    reasons = differences("export", {e.get("Name") or "without a name" for e in exports},
                          {name for name, _ in entries})
    for export in exports:
        if not image.is_code(export.number("RVA")):
            reasons.append(f"export {export.get('Name')} is not a function of the image")
    return reasons


def listed_imports(project):
    """The imports that src/imports/ lists, as (dll in lower case, name or #ordinal), and the findings about them."""
    listed, reasons = set(), []
    for path in sorted((project / "src/imports").glob("*.def")):
        library, entries = read_definition_file(path)
        library = library.lower()
        for name, ordinal in entries:
            by_ordinal = library == ORDINAL_LIBRARY
            if by_ordinal != (ordinal is not None):
                reasons.append(f"{path.name} must list {name} by {'ordinal' if by_ordinal else 'name'}")
            listed.add((library, f"#{ordinal}" if ordinal is not None else name))
    return listed, reasons


def imports_of(facts):
    """The imports of an image, as (dll in lower case, name or #ordinal)."""
    found = set()
    for dll in facts.all("Import"):
        for symbol in dll.all("Symbol"):
            name, ordinal = re.fullmatch(r"(.*?) ?\((\d+)\)", symbol).groups()
            found.add((dll.get("Name").lower(), name or f"#{ordinal}"))
    return found


def check_imports(image):
    listed, reasons = listed_imports(image.project)
    found = imports_of(image.facts)
    internals = image.folder / INTERNALS
    if internals.is_file():
        found |= imports_of(parse_readobj(run("llvm-readobj-19", "--coff-imports", str(internals))))
    show = lambda imports: {f"{library}!{name}" for library, name in imports}
    reasons += differences("library", {library for library, _ in found}, {library for library, _ in listed})
    reasons += differences("import", show(found), show(listed))
    if image.directories.number("DelayImportDescriptorRVA") != 0:
        reasons.append("there are delayed imports")
    return reasons


def check_system_imports(image):
    return [f"{library} is not a library of Windows" for library, _ in sorted(imports_of(image.facts))
            if library not in SYSTEM_LIBRARIES]


def first_uncovered_code(image, covered, start, end):
    """The first address in [start, end) that is neither marked in `covered` nor padding; None if there is none."""
    code = image.read(start, end - start)
    return next((start + i for i, byte in enumerate(code)
                 if not covered[start + i] and byte not in PADDING[image.processor]), None)


def check_unwind(image):
    functions, _ = image.symbols
    if not functions:
        return [f"{DATABASE} names no function"]
    reasons = []
    covered = bytearray(max(s.rva + s.size for s in image.sections))
    for start, end in image.unwind_ranges:
        covered[start:end] = b"\1" * (end - start)
    for function in functions:
        if not image.is_code(function.start):
            continue
        if not any(covered[function.start:function.end]):
            why = why_not_leaf(image.processor, image.instructions_of(function.start, function.end))
            if why:
                reasons.append(f"{function.name} has no unwind data but needs it: {why}")
        elif first_uncovered_code(image, covered, function.start, function.end) is not None:
            reasons.append(f"the unwind data of {function.name} covers only a part of it")
    # All code must belong to a function of the symbols: the check above cannot see any other.
    for function in functions:
        covered[function.start:function.end] = b"\1" * (function.end - function.start)
    for section in image.sections:
        if section.executable:
            stray = first_uncovered_code(image, covered, section.rva, section.rva + section.size)
            if stray is not None:
                reasons.append(f"the code at {stray:#x} belongs to no known function")
    return reasons


def check_version(image):
    reasons = []
    data = image.version_resource()
    if data is None:
        return ["there is no version resource"]
    version = (image.project / "VERSION").read_text(encoding="utf-8").strip()
    numbers = tuple(([int(part) for part in version.split(".")] + [0] * 4)[:4])
    file_version, product_version, strings = parse_version_resource(data)
    for name, found, expected in [
            ("file version", file_version, numbers), ("product version", product_version, numbers),
            ("FileVersion", strings.get("FileVersion"), version),
            ("ProductVersion", strings.get("ProductVersion"), version),
            ("OriginalFilename", strings.get("OriginalFilename"), image.path.name)]:
        if found != expected:
            reasons.append(f"{name} is {found}, not {expected}")
    return reasons


def check_flags(image):
    flags = image.optional_header.flags("Characteristics")
    required = {f"IMAGE_DLL_CHARACTERISTICS_{name}"
                for name in ("DYNAMIC_BASE", "HIGH_ENTROPY_VA", "NX_COMPAT", "GUARD_CF")}
    return [f"{flag} is not set" for flag in sorted(required - flags)]


def check_load_config(image):
    config = image.load_config
    if not config.entries:
        return ["there is no load configuration"]
    reasons = []
    if config.number("Size") < MIN_LOAD_CONFIG_SIZE:
        reasons.append(f"its size is only {config.number('Size')} bytes")
    if config.number("DependentLoadFlags") != LOAD_FROM_SYSTEM32:
        reasons.append(f"DependentLoadFlags is {config.get('DependentLoadFlags')}")
    for field in ("GuardCFCheckFunction", "GuardCFCheckDispatch"):
        slot = (config.number(field) or image.base) - image.base
        stored = image.read(slot, 8)
        target = struct.unpack("<Q", stored)[0] - image.base if stored else None
        if target is None or not image.is_code(target):
            reasons.append(f"{field} does not point to a function")
        elif image.section_of(slot).writable:
            reasons.append(f"{field} is in a writable section")
    missing = {"CF_INSTRUMENTED", "CF_FUNCTION_TABLE_PRESENT"} - config.flags("GuardFlags")
    reasons += [f"{flag} is not set" for flag in sorted(missing)]
    table = {number_of(value) - image.base for _, value in image.facts.node("GuardFidTable").entries}
    if not config.number("GuardCFFunctionTable") or not config.number("GuardCFFunctionCount") or not table:
        reasons.append("the table of call targets is empty")
    reasons += [f"call target {rva:#x} is not code" for rva in sorted(table) if not image.is_code(rva)]
    for export in image.facts.all("Export"):
        # What is not code is a finding of check_exports.
        if image.is_code(export.number("RVA")) and export.number("RVA") not in table:
            reasons.append(f"{export.get('Name')} is not a call target")
    return reasons


def guarded_calls(image, slot):
    """The number of instructions that call, or load, what the pointer at `slot` of the load configuration says."""
    found = 0
    for section in image.sections:
        if not section.executable:
            continue
        code = image.bytes[section.raw_offset:section.raw_offset + min(section.raw_size, section.size)]
        if image.processor == "x64":
            # call or jmp qword ptr [rip + distance]
            for match in re.finditer(rb"\xff[\x15\x25](?=(.{4}))", code, re.DOTALL):
                distance = struct.unpack("<i", match[1])[0]
                found += section.rva + match.start() + 6 + distance == slot
            continue
        pages = {}
        for at in range(0, len(code) - 3, 4):
            word = struct.unpack_from("<I", code, at)[0]
            if word & 0x9F000000 == 0x90000000:  # adrp: the page of an address
                offset = (word >> 5 & 0x7FFFF) << 2 | word >> 29 & 3
                page = (section.rva + at >> 12) + (offset - (1 << 21 if offset >> 20 else 0))
                pages[word & 31] = page << 12
            elif word & 0xFFC00000 == 0xF9400000:  # ldr: eight bytes in that page
                found += pages.get(word >> 5 & 31, -1) + (word >> 10 & 0xFFF) * 8 == slot
    return found


def check_guarded_calls(image):
    """Checks that the program's calls through pointers go through Control Flow Guard. Those of its C++ library do not, so
    this only says that some do."""
    # The compiler calls through the dispatch function on x64, and calls the check function before the target on ARM64.
    field = "GuardCFCheckDispatch" if image.processor == "x64" else "GuardCFCheckFunction"
    address = image.load_config.number(field) if image.load_config.entries else None
    if not address:
        return []  # Reported by check_load_config.
    return [] if guarded_calls(image, address - image.base) else ["no call through a pointer is checked"]


def check_stack_guard(image):
    """Checks that the loader can find and replace the stack cookie, and that functions compare it."""
    if not image.load_config.entries:
        return []  # Reported by check_load_config.
    reasons = []
    address = image.load_config.number("SecurityCookie")
    slot = address - image.base if address else None
    stored = image.read(slot, 8) if slot else None
    if stored is None:
        reasons.append("SecurityCookie does not point to stored data")
    else:
        if not image.section_of(slot).writable:
            reasons.append("the stack cookie is in a section that the loader cannot write")
        if struct.unpack("<Q", stored)[0] != GUARD_NOT_CHOSEN:
            reasons.append("the stack cookie is not the value that the loader replaces")
    functions, publics = image.symbols
    if GUARD_FAILED not in publics and not any(function.name == GUARD_FAILED for function in functions):
        reasons.append("no function compares the stack cookie")
    return reasons


def check_return_addresses(image):
    """Checks that return addresses are protected. x64: by a shadow stack. ARM64: each function that saves its return
    address signs it."""
    if image.processor == "x64":
        flags = {value.split(" ")[0] for node in image.facts.find("ExtendedCharacteristics")
                 if isinstance(node, Node) for _, value in node.entries}
        return [] if SHADOW_STACK in flags else [f"{SHADOW_STACK} is not set"]
    reasons = []
    for entry in image.facts.node("UnwindInformation").all("RuntimeFunction"):
        data = entry.node("ExceptionData") if entry.get("ExceptionData") else entry
        steps = " ".join(text for _, text in data.node("Prologue").entries)
        if re.search(r"\b(x30|lr)\b", steps) and "pacibsp" not in steps:
            reasons.append(f"the function at {entry.number('Function') - image.base:#x} does not sign its return address")
    return reasons


def check_sections(image):
    return [f"{s.name} is both writable and executable" for s in image.sections
            if s.writable and s.executable]


def check_thread_storage(image):
    if image.directories.number("TLSTableRVA") or image.directories.number("TLSTableSize"):
        return ["there is a thread-local directory"]
    return [f"there is a section {s.name}" for s in image.sections if s.name.startswith(".tls")]


OBJECTS = "CMakeFiles/*.dir/src/**/*.obj"
INITIALISER_SECTIONS = re.compile(r"\.(CRT|ctors|dtors|init_array|fini_array|init|fini)\b")
INITIALISER_FUNCTIONS = re.compile(r"_GLOBAL__|__cxx_global_|__tls_init")


def check_static_initialisers(image):
    reasons = [f"there is a section {s.name}" for s in image.sections if INITIALISER_SECTIONS.match(s.name)]
    functions, publics = image.symbols
    reasons += [f"{f.name} is a static initialiser" for f in functions if INITIALISER_FUNCTIONS.match(f.name)]
    # The linker makes these lists even if they are empty: -1 at the beginning, 0 at the end.
    for name in ("__CTOR_LIST__", "__DTOR_LIST__"):
        if name in publics and image.read(publics[name], 16) != struct.pack("<qq", -1, 0):
            reasons.append(f"{name} is not empty")
    # The linker may have merged an initialiser section into another one, so the objects are checked too.
    # A folder without objects is a copy of the folder that the project builds in.
    for folder in (image.folder, image.project / "build" / image.folder.name):
        objects = sorted(folder.glob(OBJECTS))
        if objects:
            break
    for path in objects:
        names = re.findall(r"^ *Name: (\.\S+)", run("llvm-readobj-19", "--sections", str(path)), re.M)
        reasons += [f"{path.name} has a section {name}" for name in sorted(set(names))
                    if INITIALISER_SECTIONS.match(name)]
    return reasons


def check_no_local_paths(image):
    reasons = []
    project = str(image.project.resolve())
    # The symbols may contain the paths of the system's headers.
    foreign = [project, "/home", "/root"]
    for path, places in ((image.path, [*foreign, "/usr"]), (image.database, foreign)):
        if not path.is_file():
            continue  # Only a library has a program database, and main has looked for it.
        content = path.read_bytes()
        for place in places:
            for encoding in ("utf-8", "utf-16-le"):
                at = content.find(place.encode(encoding))
                if at >= 0:
                    reasons.append(f"{path.name} contains '{place}' at {at:#x}")
    return reasons


def check_timestamps(image):
    stamps = [stamp for key in ("TimeDateStamp", "Time/Date Stamp") for stamp in image.facts.find(key)]
    if not stamps:
        return ["no timestamp was found"]
    return [f"{stamp} instead of 0" for stamp in stamps if not stamp.endswith("(0x0)")]


def check_database(image):
    debug = list(image.facts.node("DebugDirectory").find("PDBInfo"))
    if not debug:
        return ["the image names no program database"]
    reasons = []
    if debug[0].get("PDBFileName") != DATABASE:
        reasons.append(f"the image names '{debug[0].get('PDBFileName')}' as its program database")
    guid = re.search(r"GUID: (\{.*\})", image.database_text)
    if not guid or guid.group(1) != debug[0].get("PDBGUID"):
        reasons.append(f"{DATABASE} does not belong to the image")
    return reasons


def check_relocations(image):
    reasons = []
    if "IMAGE_FILE_RELOCS_STRIPPED" in image.file_header.flags("Characteristics"):
        reasons.append("the relocations are stripped")
    entries = image.facts.node("BaseReloc").all("Entry")
    if not image.directories.number("BaseRelocationTableSize") or not any(
            entry.get("Type") == "DIR64" for entry in entries):
        reasons.append("there are no relocations")
    return reasons


def check_size(image):
    limit = MAX_SIZE.get(image.processor)
    size = len(image.bytes)
    return [f"{size} bytes, more than {limit}"] if limit and size > limit else []


def check_path_limits(image):
    """The installer has the limits of Windows for the lengths of paths, so a dry run must have them too."""
    return ["it is declared longPathAware"] if b"longPathAware" in image.bytes else []


CHECKS = {
    "machine": check_machine,
    "exports": check_exports,
    "imports": check_imports,
    "unwind-data": check_unwind,
    "version-resource": check_version,
    "flags": check_flags,
    "load-configuration": check_load_config,
    "stack-guard": check_stack_guard,
    "return-addresses": check_return_addresses,
    "sections": check_sections,
    "no-thread-local-storage": check_thread_storage,
    "no-static-initialisers": check_static_initialisers,
    "no-local-paths": check_no_local_paths,
    "timestamps": check_timestamps,
    "program-database": check_database,
    "relocations": check_relocations,
    "size": check_size,
}

# The program contains the C++ library of another compiler, so not all of its code is checked.
PROGRAM_CHECKS = {
    "machine": check_machine,
    "imports": check_system_imports,
    "version-resource": check_version,
    "flags": check_flags,
    "load-configuration": check_load_config,
    "guarded-calls": check_guarded_calls,
    "sections": check_sections,
    "no-local-paths": check_no_local_paths,
    "timestamps": check_timestamps,
    "relocations": check_relocations,
    "path-limits": check_path_limits,
}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--project", type=Path, default=Path(__file__).resolve().parents[2])
    parser.add_argument("--program", action="store_true")
    parser.add_argument("folders", type=Path, nargs="+", metavar="FOLDER")
    arguments = parser.parse_args()

    file, checks = (PROGRAM, PROGRAM_CHECKS) if arguments.program else (LIBRARY, CHECKS)
    passed = failed = 0
    for folder in arguments.folders:
        folder = folder.resolve()
        try:
            image = Image(folder, arguments.project, file)
            if not arguments.program and not image.database.is_file():
                raise RuntimeError(f"there is no {DATABASE}")
        except (OSError, RuntimeError) as error:
            print(f"FAILED {folder.name}/image: {error}")
            failed += 1
            continue
        print(f"{folder.name}/{file}: {len(image.bytes)} bytes")
        for name, check in checks.items():
            try:
                reasons = check(image)
            except Exception as error:  # A check that breaks off has failed.
                reasons = [f"{type(error).__name__}: {error}"]
            if reasons:
                print(f"FAILED {folder.name}/{name}: {'; '.join(reasons)}")
                failed += 1
            else:
                print(f"ok {folder.name}/{name}")
                passed += 1
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
