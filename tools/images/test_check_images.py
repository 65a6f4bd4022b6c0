"""check-images.py: every check passes a good image and finds a bad one."""

import contextlib
import io
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from support import TOOLS, load_script

PROJECT = TOOLS.parent
check_images = load_script("images/check-images.py")

TRIPLES = {"arm64": "aarch64-w64-windows-gnu", "x64": "x86_64-w64-windows-gnu"}
MACHINES = {"arm64": "arm64", "x64": "i386:x86-64"}
COMPILE = ["-c", "-ffreestanding", "-fno-exceptions", "-fno-rtti", "-funwind-tables", "-fno-ident",
           "-ffunction-sections", "-fdata-sections", "-g", "-gcodeview", "-gno-codeview-command-line",
           "-fdebug-compilation-dir=.", "-Os", "-std=c++20", "-Xclang", "-cfguard", "-Wno-everything",
           "-isystem", "/usr/share/mingw-w64/include"]
# The options that protect return addresses: the compiler's for each processor, the linker's for x64.
PROTECT = {"arm64": ["-mbranch-protection=standard"], "x64": []}
KEEP_TWICE = "-Wl,-Xlink=-cetcompat"
GUARD = "-fstack-protector-strong"
LINK = ["-nostdlib", "-fuse-ld=lld-19", "-shared", "-Wl,--entry,DllMain", "-Wl,--no-insert-timestamp",
        "-Wl,--gc-sections", "-Wl,--guard-cf", "-Wl,--disable-auto-import",
        "-Wl,--pdb=hxsetup.pdb", "-Wl,-Xlink=-pdbaltpath:hxsetup.pdb", "-Wl,-Xlink=-pdbsourcepath:C:/tiny"]

LISTS = {
    "VERSION": "1.2.3\n",
    "src/frame/entry_points.def": "; A comment.\nEXPORTS\nCustomAction2\n",
    "src/imports/kernel32.def": "LIBRARY KERNEL32.dll\nEXPORTS\nGetTickCount\n",
    "src/imports/msi.def": "LIBRARY msi.dll\nEXPORTS\nMsiSetInternalUI @141 NONAME\n",
}
SOURCE = r"""
extern "C" {
__declspec(dllimport) unsigned GetTickCount();
unsigned MsiSetInternalUI(unsigned, void*);
int DllMain(void*, unsigned, void*) { return 1; }
int Leaf(int a, int b, int c, int d, int e, int f) { return a + b + c + d + e * f; }
int Guarded(int a) {
  volatile char buffer[16] = {};
  buffer[a & 15] = 1;
  return buffer[3];
}
unsigned (*volatile pointer)();
unsigned CustomAction2(unsigned a) {
  return GetTickCount() + Guarded(a) + MsiSetInternalUI(a, nullptr) + Leaf(a, 2, 3, 4, 5, 6) + (pointer ? pointer() : 0);
}
}
"""


class Workshop:
    """Makes images in a temporary folder. Compiles the runtime once for each processor."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory(prefix="hx-images-")
        self.root = Path(self.folder.name)
        self.parts = {}

    def run(self, *command, cwd=None):
        subprocess.run(command, cwd=cwd or self.root, check=True)

    def runtime(self, processor):
        if processor not in self.parts:
            self.parts[processor] = []
            for name in ("load_config", "stack_guard"):
                runtime = self.root / f"{processor}-{name}.obj"
                self.run("clang++-19", f"--target={TRIPLES[processor]}", *COMPILE, *PROTECT[processor],
                         f"-ffile-prefix-map={PROJECT}=.", "-I", PROJECT / "src", "-o", runtime,
                         PROJECT / f"src/runtime/{name}.cpp")
                self.parts[processor].append(runtime)
        return self.parts[processor]

    def resource(self, name="version.res", text_of=lambda text: text):
        path = self.root / name
        if not path.exists():
            source = self.root / (name + ".rc")
            source.write_text(text_of((PROJECT / "src/runtime/version.rc").read_text()))
            self.run("llvm-rc-19", "/nologo", "/D", "HX_VERSION_NUMBERS=1,2,3,0",
                     "/D", 'HX_VERSION_TEXT="1.2.3"', "/FO", path, source)
        return path

    def image(self, name, processor="x64", code="", lists=(), link=(), resource=None, without=()):
        """Links an image in its own project and returns the project. `lists` are files of the project that differ from
        LISTS; `link` adds options of the linker, `without` removes some."""
        project = self.root / name
        folder = project / "build" / processor
        folder.mkdir(parents=True)
        for path, text in {**LISTS, **dict(lists)}.items():
            (project / path).parent.mkdir(parents=True, exist_ok=True)
            (project / path).write_text(text)
        (folder / "tiny.cpp").write_text(SOURCE + code)
        target = f"--target={TRIPLES[processor]}"
        protection = [option for option in [GUARD, *PROTECT[processor]] if option not in without]
        self.run("clang++-19", target, *COMPILE, *protection, "-o", "tiny.obj", "tiny.cpp", cwd=folder)
        libraries = []
        for path in sorted((project / "src/imports").glob("*.def")):
            library = folder / f"lib{path.stem}.a"
            self.run("llvm-dlltool-19", "-m", MACHINES[processor], "-d", path, "-l", library)
            libraries.append(library.name)
        options = [*LINK, KEEP_TWICE] if processor == "x64" else LINK
        options = [option for option in options if option not in without]
        # The linker records the paths of its inputs in the database.
        self.run("clang++-19", target, *options, *link, "-o", "hxsetup.dll", *self.runtime(processor), "tiny.obj",
                 resource or self.resource(), "../../src/frame/entry_points.def", *libraries, cwd=folder)
        return project

    def clone(self, project, name):
        copy = self.root / name
        shutil.copytree(project, copy)
        return copy


def setUpModule():
    global workshop, good
    workshop = Workshop()
    unittest.addModuleCleanup(workshop.folder.cleanup)
    good = {processor: workshop.image(f"good-{processor}", processor) for processor in TRIPLES}


def judge(project, folders=None, options=()):
    """Checks a project's images: (failed checks with their reasons, passed checks, exit code)."""
    folders = [str(folder) for folder in folders or sorted((project / "build").iterdir())]
    output = io.StringIO()
    arguments = ["check-images.py", "--project", str(project), *options, *folders]
    with mock.patch.object(sys, "argv", arguments), contextlib.redirect_stdout(output):
        code = check_images.main()
    failed, passed = {}, set()
    for line in output.getvalue().splitlines():
        if match := re.match(r"FAILED \S+/(\S+): (.*)", line):
            failed[match.group(1)] = match.group(2)
        elif match := re.match(r"ok \S+/(\S+)$", line):
            passed.add(match.group(1))
    assert output.getvalue().endswith(f"{len(passed)} passed, {len(failed)} failed\n"), output.getvalue()
    return failed, passed, code


class ImageTest(unittest.TestCase):
    def assert_fails(self, project, check, reason):
        """Asserts that this check fails for this reason, and no other check."""
        failed, passed, code = judge(project)
        self.assertEqual(list(failed), [check], failed)
        self.assertIn(reason, failed[check])
        self.assertEqual(code, 1)
        self.assertEqual(passed, set(check_images.CHECKS) - {check})

    def image(self, **options):
        return workshop.image(self.id(), **options)

    def patched(self, offset_of, change, processor="x64"):
        """A copy of the good image with changed bytes at an offset."""
        project = workshop.clone(good[processor], self.id() + str(len(list(workshop.root.iterdir()))))
        path = project / "build" / processor / "hxsetup.dll"
        data = bytearray(path.read_bytes())
        change(data, offset_of(data))
        path.write_bytes(data)
        return project


def coff_header(data):
    return struct.unpack_from("<I", data, 0x3C)[0] + 4


def optional_header(data):
    return coff_header(data) + 20


def directory(index):
    return lambda data: optional_header(data) + 112 + 8 * index


def section_header(name):
    def find(data):
        count = struct.unpack_from("<H", data, coff_header(data) + 2)[0]
        first = optional_header(data) + 240
        return next(at for at in range(first, first + 40 * count, 40)
                    if data[at:at + 8].rstrip(b"\0") == name)
    return find


def load_config(data):
    rva = struct.unpack_from("<I", data, directory(10)(data))[0]
    start, _, raw = struct.unpack_from("<III", data, section_header(b".rdata")(data) + 12)
    return raw + rva - start


def put(format, value):
    values = value if isinstance(value, tuple) else (value,)
    return lambda data, offset: struct.pack_into(format, data, offset, *values)


class GoodImages(ImageTest):
    def test_every_check_passes(self):
        for processor in TRIPLES:
            with self.subTest(processor):
                self.assertEqual(judge(good[processor]), ({}, set(check_images.CHECKS), 0))

    def test_folders_named_after_the_checked_build_count(self):
        project = workshop.clone(good["x64"], self.id())
        (project / "build/x64").rename(project / "build/x64-checked")
        self.assertEqual(judge(project)[2], 0)


class Machine(ImageTest):
    def test_image_of_the_other_processor(self):
        project = workshop.clone(good["x64"], self.id())
        (project / "build/x64").rename(project / "build/arm64")
        self.assertIn("machine", judge(project)[0])

    def test_missing_image(self):
        project = workshop.clone(good["x64"], self.id())
        (project / "build/x64/hxsetup.dll").unlink()
        failed, _, code = judge(project)
        self.assertEqual((list(failed), code), (["image"], 1))


class Exports(ImageTest):
    def assert_entry_points_fail(self, built, listed, reason):
        project = self.image(lists={"src/frame/entry_points.def": built})
        (project / "src/frame/entry_points.def").write_text(listed)
        self.assert_fails(project, "exports", reason)

    def test_missing(self):
        self.assert_entry_points_fail("EXPORTS\nCustomAction2\n", "EXPORTS\nCustomAction2\nCustomAction3\n",
                                      "export CustomAction3 is missing")

    def test_unlisted(self):
        self.assert_entry_points_fail("EXPORTS\nCustomAction2\nLeaf\n", "EXPORTS\nCustomAction2\n",
                                      "export Leaf is not listed")

    def test_without_a_name(self):
        self.assert_entry_points_fail("EXPORTS\nCustomAction2\nLeaf @7 NONAME\n",
                                      "EXPORTS\nCustomAction2\nLeaf\n", "export without a name")


class Imports(ImageTest):
    def assert_list_fails(self, name, text, reason):
        project = workshop.clone(good["x64"], self.id())
        (project / "src/imports" / name).write_text(text)
        self.assert_fails(project, "imports", reason)

    def test_dead_entry(self):
        self.assert_list_fails("kernel32.def", "LIBRARY KERNEL32.dll\nEXPORTS\nGetTickCount\nSleep\n",
                               "import kernel32.dll!Sleep is missing")

    def test_entry_that_only_the_internals_use(self):
        code = 'extern "C" { __declspec(dllimport) void Sleep(unsigned); void Wait() { Sleep(1); } }'
        lists = {"src/imports/kernel32.def": "LIBRARY KERNEL32.dll\nEXPORTS\nGetTickCount\nSleep\n"}
        project = self.image(code=code, lists=lists)
        self.assert_fails(project, "imports", "import kernel32.dll!Sleep is missing")
        internals = workshop.image(self.id() + "-kept", code=code, lists=lists, without=["-Wl,--gc-sections"])
        shutil.copy(internals / "build/x64/hxsetup.dll", project / "build/x64/hxinternals.dll")
        self.assertEqual(judge(project)[0], {})
        shutil.copy(project / "build/x64/hxsetup.dll", project / "build/x64/hxinternals.dll")
        self.assert_fails(project, "imports", "import kernel32.dll!Sleep is missing")

    def test_unlisted_name(self):
        self.assert_list_fails("kernel32.def", "LIBRARY KERNEL32.dll\nEXPORTS\n",
                               "import kernel32.dll!GetTickCount is not listed")

    def test_unlisted_library(self):
        self.assert_list_fails("kernel32.def", "LIBRARY OTHER.dll\nEXPORTS\nGetTickCount\n",
                               "library kernel32.dll is not listed")

    def test_other_ordinal(self):
        self.assert_list_fails("msi.def", "LIBRARY msi.dll\nEXPORTS\nMsiSetInternalUI @142 NONAME\n",
                               "import msi.dll!#141 is not listed")

    def test_installer_by_name(self):
        by_name = {"src/imports/msi.def": "LIBRARY msi.dll\nEXPORTS\nMsiSetInternalUI\n"}
        self.assert_fails(self.image(lists=by_name), "imports", "must list MsiSetInternalUI by ordinal")

    def test_others_by_ordinal(self):
        by_ordinal = {"src/imports/kernel32.def": "LIBRARY KERNEL32.dll\nEXPORTS\nGetTickCount @5 NONAME\n"}
        self.assert_fails(self.image(lists=by_ordinal), "imports", "must list GetTickCount by name")

    def test_delayed(self):
        helper = 'extern "C" void* __delayLoadHelper2(const void*, void**) { return nullptr; }'
        project = self.image(code=helper, link=["-Wl,-Xlink=-delayload:KERNEL32.dll"])
        self.assertIn("there are delayed imports", judge(project)[0]["imports"])


class Unwind(ImageTest):
    def assert_naked(self, processor, assembly, reason):
        code = 'extern "C" __attribute__((naked, used)) void Naked() { asm("%s"); }' % assembly
        # Without garbage collection the function stays, though nothing calls it.
        project = self.image(processor=processor, code=code, without=["-Wl,--gc-sections"])
        if reason:
            self.assert_fails(project, "unwind-data", "Naked has no unwind data but needs it: " + reason)
        else:
            self.assertEqual(judge(project)[0], {})

    def test_moved_stack_x64(self):
        self.assert_naked("x64", r"pushq %rbx\n popq %rbx\n ret", "'pushq %rbx'")

    def test_moved_stack_arm64(self):
        self.assert_naked("arm64", r"sub sp, sp, #16\n add sp, sp, #16\n ret", "'sub sp, sp, #0x10'")

    def test_call_arm64(self):
        self.assert_naked("arm64", r"mov x9, x30\n bl DllMain\n ret x9", "'mov x9, x30'")

    def test_leaf_x64(self):
        self.assert_naked("x64", r"movl 40(%rsp), %eax\n movl %eax, 8(%rsp)\n ret", None)

    def test_leaf_arm64(self):
        self.assert_naked("arm64", r"ldr w0, [sp, #8]\n ret", None)

    def test_code_without_a_symbol(self):
        project = self.image(code=r'asm(".text\n nop\n .p2align 4\n");', without=["-Wl,--gc-sections"])
        self.assert_fails(project, "unwind-data", "belongs to no known function")

    def test_shortened_range(self):
        def shorten(data, header):
            raw = struct.unpack_from("<I", data, header + 20)[0]
            end = struct.unpack_from("<I", data, raw + 4)[0]
            # Removes more than the breakpoint after a call that does not return.
            struct.pack_into("<I", data, raw + 4, end - 6)
        self.assert_fails(self.patched(section_header(b".pdata"), shorten), "unwind-data", "covers only a part of it")

    def test_leaf_functions(self):
        leaf = check_images.why_not_leaf
        for processor, mnemonic, operands, expected in [
                ("x64", "retq", "", True), ("x64", "jmpq", "*0x11e2(%rip)", True),
                ("x64", "movq", "0x28(%rsp), %rax", True), ("x64", "movq", "(%rsp,%rcx,8), %rax", True),
                ("x64", "movl", "%r8d, %eax", True), ("x64", "movaps", "%xmm5, %xmm0", True),
                ("x64", "movq", "%rax, -0x8(%rsp)", False), ("x64", "subq", "$0x28, %rsp", False),
                ("x64", "leaq", "0x8(%rsp), %rsp", False), ("x64", "xorl", "%ebx, %ebx", False),
                ("x64", "movb", "$0x1, %sil", False), ("x64", "movq", "%r12, %rax", False),
                ("x64", "movaps", "%xmm6, %xmm0", False), ("x64", "rep", "stosb", False),
                ("x64", "callq", "0x180001040", False), ("x64", "pushq", "%rax", False),
                ("arm64", "ret", "", True), ("arm64", "br", "x9", True),
                ("arm64", "mov", "w0, #0xb8", True), ("arm64", "fadd", "d0, d1, d7", True),
                ("arm64", "ldr", "x0, [sp]", True), ("arm64", "ldr", "x0, [sp, #0x8]", True),
                ("arm64", "b.ne", "0x180001038", True), ("arm64", "add", "v16.2d, v17.2d, v7.2d", True),
                ("arm64", "str", "x30, [sp, #-0x10]!", False), ("arm64", "ldr", "x0, [sp], #0x10", False),
                ("arm64", "bl", "0x18000106c", False), ("arm64", "blr", "x8", False),
                ("arm64", "mov", "w19, w0", False), ("arm64", "mov", "x29, x0", False),
                ("arm64", "fmov", "d8, d0", False), ("arm64", "add", "v15.2d, v0.2d, v1.2d", False)]:
            with self.subTest(f"{mnemonic} {operands}"):
                self.assertEqual(leaf(processor, [(mnemonic, operands)]) is None, expected)
        self.assertIsNotNone(leaf("x64", []))


class Version(ImageTest):
    def test_other_version(self):
        project = workshop.clone(good["x64"], self.id())
        (project / "VERSION").write_text("1.2.4\n")
        self.assert_fails(project, "version-resource", "file version is (1, 2, 3, 0), not (1, 2, 4, 0)")

    def test_other_file_name(self):
        resource = workshop.resource("named.res", lambda text: text.replace("hxsetup.dll", "other.dll"))
        self.assert_fails(self.image(resource=resource), "version-resource", "OriginalFilename is other.dll")

    def test_no_resource(self):
        self.assert_fails(self.patched(directory(2), put("<Q", 0)), "version-resource", "no version resource")


class Flags(ImageTest):
    def test_each(self):
        for name, bit in [("DYNAMIC_BASE", 0x40), ("HIGH_ENTROPY_VA", 0x20), ("NX_COMPAT", 0x100),
                          ("GUARD_CF", 0x4000)]:
            with self.subTest(name):
                def clear(data, offset):
                    struct.pack_into("<H", data, offset, struct.unpack_from("<H", data, offset)[0] & ~bit)
                project = self.patched(lambda data: optional_header(data) + 70, clear)
                self.assert_fails(project, "flags", f"{name} is not set")


class LoadConfiguration(ImageTest):
    def test_each_field(self):
        for offset, form, value, reason in [
                (0, "<I", 148, "only 148 bytes"), (78, "<H", 0, "DependentLoadFlags"),
                (112, "<Q", 0, "GuardCFCheckFunction"), (120, "<Q", 0, "GuardCFCheckDispatch"),
                (136, "<Q", 0, "call targets is empty"), (144, "<I", 0x400, "CF_INSTRUMENTED is not set"),
                (144, "<I", 0x100, "CF_FUNCTION_TABLE_PRESENT is not set")]:
            with self.subTest(offset=offset, value=value):
                project = self.patched(lambda data: load_config(data) + offset, put(form, value))
                failed = judge(project)[0]
                self.assertEqual(list(failed), ["load-configuration"])
                self.assertIn(reason, failed["load-configuration"])

    def test_missing(self):
        self.assert_fails(self.patched(directory(10), put("<Q", 0)), "load-configuration",
                          "there is no load configuration")


class StackGuard(ImageTest):
    def assert_cookie_fails(self, change, reason):
        self.assert_fails(self.patched(lambda data: load_config(data) + 88, change), "stack-guard", reason)

    def test_cookie_that_points_nowhere(self):
        self.assert_cookie_fails(put("<Q", 0), "SecurityCookie does not point to stored data")

    def test_cookie_that_cannot_be_written(self):
        def at_the_load_configuration(data, offset):
            config = struct.unpack_from("<I", data, directory(10)(data))[0]
            struct.pack_into("<Q", data, offset, 0x180000000 + config)
        self.assert_cookie_fails(at_the_load_configuration, "the loader cannot write")

    def test_cookie_of_another_value(self):
        guard = 0x00002B992DDFA232
        for processor in TRIPLES:
            with self.subTest(processor):
                data = bytes((good[processor] / "build" / processor / "hxsetup.dll").read_bytes())
                # Code that compares with the value contains it too; the cookie is in the data section.
                raw = struct.unpack_from("<I", data, section_header(b".data")(data) + 20)[0]
                at = data.index(struct.pack("<Q", guard), raw)
                self.assert_fails(self.patched(lambda _, at=at: at, put("<Q", guard + 1), processor), "stack-guard",
                                  "is not the value that the loader replaces")

    def test_no_function_is_guarded(self):
        self.assert_fails(self.image(without=[GUARD]), "stack-guard", "no function compares the stack cookie")


class ReturnAddresses(ImageTest):
    def test_no_shadow_stack(self):
        self.assert_fails(self.image(without=[KEEP_TWICE]), "return-addresses", "CET_COMPAT is not set")

    def test_not_signed(self):
        self.assert_fails(self.image(processor="arm64", without=PROTECT["arm64"]), "return-addresses",
                          "does not sign its return address")


class Rest(ImageTest):
    def test_writable_code(self):
        def allow(data, header):
            struct.pack_into("<I", data, header + 36, struct.unpack_from("<I", data, header + 36)[0] | 1 << 31)
        self.assert_fails(self.patched(section_header(b".text"), allow), "sections", ".text is both")

    def test_thread_local_directory(self):
        self.assert_fails(self.patched(directory(9), put("<II", (0x2000, 40))), "no-thread-local-storage",
                          "directory")

    def test_static_initialiser(self):
        project = self.image(code="unsigned start = GetTickCount();\n")
        self.assert_fails(project, "no-static-initialisers", "__CTOR_LIST__ is not empty")

    def test_initialiser_section_merged_into_another(self):
        project = self.image(code='extern "C" __attribute__((section(".CRT$XCU"), used)) '
                                  "unsigned (*const hook)(unsigned) = CustomAction2;\n")
        objects = project / "build/x64/CMakeFiles/objects.dir/src/frame"
        objects.mkdir(parents=True)
        (project / "build/x64/tiny.obj").rename(objects / "tiny.cpp.obj")
        self.assert_fails(project, "no-static-initialisers", "tiny.cpp.obj has a section .CRT$XCU")
        # A copy of the images elsewhere is checked with the objects of the project's own folder.
        copy = workshop.root / (self.id() + "-copy") / "build/x64"
        copy.mkdir(parents=True)
        for name in ("hxsetup.dll", "hxsetup.pdb"):
            shutil.copy(project / "build/x64" / name, copy)
        failed = judge(project, [copy])[0]
        self.assertEqual(list(failed), ["no-static-initialisers"])

    def test_local_path(self):
        for text in ('"/usr/share/x"', 'u"/home/somebody"'):
            with self.subTest(text):
                kind = "char16_t" if text[0] == "u" else "char"
                name = f"{self.id()}-{kind}"
                project = workshop.image(name, code=f"extern const {kind} place[]; const {kind} place[] = {text};",
                                         without=["-Wl,--gc-sections"])
                self.assert_fails(project, "no-local-paths", "hxsetup.dll contains '/")

    def test_project_folder(self):
        project = workshop.clone(good["x64"], self.id())
        with open(project / "build/x64/hxsetup.dll", "ab") as file:
            file.write(str(project).encode())
        self.assert_fails(project, "no-local-paths", f"hxsetup.dll contains '{project}'")

    def test_project_folder_in_the_database(self):
        project = self.image(without=["-Wl,-Xlink=-pdbsourcepath:C:/tiny"])
        self.assert_fails(project, "no-local-paths", f"hxsetup.pdb contains '{project}'")

    def test_timestamp(self):
        self.assert_fails(self.patched(lambda data: coff_header(data) + 4, put("<I", 1700000000)), "timestamps",
                          "instead of 0")

    def test_database_with_a_folder(self):
        project = self.image(link=["-Wl,-Xlink=-pdbaltpath:C:/builds/hxsetup.pdb"])
        self.assert_fails(project, "program-database", "the image names 'C:")

    def test_database_of_another_build(self):
        other = self.image(code="int other;\n" + 'extern "C" int Other(int a) { return a + 1; }')
        project = workshop.clone(good["x64"], self.id() + "-mixed")
        shutil.copy(other / "build/x64/hxsetup.pdb", project / "build/x64/hxsetup.pdb")
        failed = judge(project)[0]
        self.assertIn("does not belong to the image", failed["program-database"])

    def test_no_relocations(self):
        self.assert_fails(self.patched(directory(5), put("<Q", 0)), "relocations", "there are no relocations")

    def test_size(self):
        grow = lambda data, offset: data.extend(bytes(112 * 1024 + 1 - offset))
        self.assert_fails(self.patched(len, grow, "arm64"), "size", "114689 bytes, more than 114688")
        self.assertEqual(judge(self.patched(len, grow, "x64"))[0], {})


class ProgramTest(ImageTest):
    """The checks of hxrun.exe, tried on a library."""

    def program(self, change=lambda data: None):
        """A project whose image looks like the program, changed by `change`."""
        resource = workshop.resource("program.res", lambda text: text.replace("hxsetup.dll", "hxrun.exe"))
        name = f"program-{len(list(workshop.root.iterdir()))}"
        project = workshop.image(name, resource=resource)
        library = project / "build/x64/hxsetup.dll"
        data = bytearray(library.read_bytes())
        # IMAGE_FILE_DLL is 0x2000 in the characteristics.
        data[coff_header(data) + 19] &= ~0x20
        change(data)
        (project / "build/x64/hxrun.exe").write_bytes(data)
        library.unlink()
        (project / "build/x64/hxsetup.pdb").unlink()
        return project

    def assert_program_fails(self, project, check, reason):
        failed, passed, code = judge(project, options=["--program"])
        self.assertEqual(list(failed), [check], failed)
        self.assertIn(reason, failed[check])
        self.assertEqual((passed, code), (set(check_images.PROGRAM_CHECKS) - {check}, 1))

    def test_a_good_one(self):
        failed, passed, code = judge(self.program(), options=["--program"])
        self.assertEqual((failed, passed, code), ({}, set(check_images.PROGRAM_CHECKS), 0))

    def test_a_library_is_no_program(self):
        def set_library(data):
            data[coff_header(data) + 19] |= 0x20

        self.assert_program_fails(self.program(set_library), "machine", "not a program")

    def test_flags(self):
        def clear_guard(data):
            data[optional_header(data) + 71] &= ~0x40

        self.assert_program_fails(self.program(clear_guard), "flags", "GUARD_CF is not set")

    def test_unchecked_calls(self):
        def other_pointer(data):
            at = load_config(data)
            data[at + 120:at + 128] = data[at + 112:at + 120]

        self.assert_program_fails(self.program(other_pointer), "guarded-calls", "no call through a pointer is checked")

    def test_a_library_that_windows_does_not_have(self):
        def rename(data):
            at = data.index(b"msi.dll")
            data[at:at + 7] = b"mso.dll"

        self.assert_program_fails(self.program(rename), "imports", "mso.dll is not a library of Windows")

    def test_another_version(self):
        def change(data):
            at = data.index("1.2.3".encode("utf-16-le"))
            data[at:at + 2] = "9".encode("utf-16-le")

        self.assert_program_fails(self.program(change), "version-resource", "not 1.2.3")

    def test_long_paths(self):
        def declare(data):
            data.extend(b"<longPathAware>true</longPathAware>")

        self.assert_program_fails(self.program(declare), "path-limits", "it is declared longPathAware")

    def test_a_missing_one(self):
        failed, _, code = judge(good["x64"], options=["--program"])
        self.assertEqual(list(failed), ["image"])
        self.assertEqual(code, 1)


if __name__ == "__main__":
    unittest.main()
