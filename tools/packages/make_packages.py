#!/usr/bin/env python3
"""Makes the project's installer packages for one processor: tools/packages/make_packages.py arm64|x64 [LIBRARY [FOLDER]]

LIBRARY is the hxsetup.dll of the packages (default: build/PROCESSOR/hxsetup.dll). Its folder must also have the stand-ins
agent.exe (for the programs) and ostrack.dll (for the tracking library), and witness.dll, which reports the state of the
machine to tests and demonstration. The packages are written to FOLDER (default: build/packages/PROCESSOR):
  client.msi          the client package, with the version in the file VERSION
  client-newer.msi    the same with the next higher build number, to upgrade from the first
  server-older.msi    an older server package, which the next one upgrades
  server.msi          the server package, also with the version of the library
  server-watched.msi  the same as a separate product, with the witness in it
  other.msi           a server package of another maker, with other names, and with the version of the library
  other-newer.msi     the same with the next higher build number, to upgrade from the first
  other-firewall.msi  the same as a separate product, with only one fragment and those that it needs
  other-account.msi
  other-access.msi
  other-client.msi    a client package of that maker, with another name
  other-client-newer.msi  the same with the next higher build number, to upgrade from the first
  guide-client.msi    the examples of docs/authoring.md, with the stand-ins for the programs
  guide-server.msi

The same inputs make the same bytes: product codes are derived from the products' names, and times are fixed.
"""

import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from kit.guide_examples import FILES, examples
from packages.compiler import compile_source
from packages.tables import PackageError
from packages.writer import TEMPLATES, Files, guid_of, write_package

ROOT = Path(__file__).resolve().parents[2]
FRAGMENTS = ROOT / "packages"

# The name of the processor in the text of a version.
LABELS = {"arm64": "ARM64", "x64": "x64"}

# The stand-in for the programs as built; the one for the tracking library; the witness; and the stand-in for the programs
# with the package's version appended.
PROGRAM = "agent.exe"
TRACKING = "ostrack.dll"
WITNESS = "witness.dll"
VERSION_PROGRAM = "program.exe"

# The packages with only one fragment, and the variables that select it.
ONE_FRAGMENT = {"firewall": ["WithFirewall"], "account": ["WithAccount"], "access": ["WithAccount", "WithAccess"]}

# The version of the packages that are upgraded; lower than every version of the library.
OLDER_VERSION = "0.9.0"


def make(source, variables, processor, folders, names, target):
    """Makes the package `target` from `source`. The files are searched in `folders`."""
    write_package(compile_source(source, [FRAGMENTS], variables), processor, Files(folders), target, names)


def make_package(source, processor, library, name, version, target, kind="", **more):
    """Makes the package `target` from `source` in packages/. It can contain the files in files/ next to the source, and the
    stand-ins next to the library. A package with a `kind` is another product than the one without. `more` are variables for
    the compiler."""
    label = LABELS[processor]
    source = FRAGMENTS / source
    with tempfile.TemporaryDirectory(prefix="hx-program-") as folder:
        # Different for each version, so that an upgrade has files to replace.
        program = (library.parent / PROGRAM).read_bytes() + f"\n{name} {version}\n".encode()
        (Path(folder) / VERSION_PROGRAM).write_bytes(program)
        variables = {
            "Version": version,
            "DisplayVersion": f"{version} ({label})",
            "ProductCode": guid_of(f"{source.stem} {version} {processor}{kind and f' {kind}'}"),
            "Processor": label,
            "LibraryFile": library.name,
            "AgentFile": PROGRAM,
            "ProgramFile": VERSION_PROGRAM,
            "TrackingFile": TRACKING,
            **more,
        }
        make(source, variables, processor, [folder, library.parent, source.parent / "files"], [version], target)


def make_example(name, text, processor, library, target):
    """Makes the package `target` from an example of the guide. Its text is complete except for the programs: each of them is
    the stand-in next to the library."""
    with tempfile.TemporaryDirectory(prefix="hx-example-") as folder:
        source = Path(folder) / name
        source.write_text(text, encoding="utf-8")
        for file in FILES[name]:
            if file.endswith(".exe"):
                (Path(folder) / file).write_bytes((library.parent / PROGRAM).read_bytes())
        make(source, {"LibraryFile": library.name}, processor, [folder, library.parent, FRAGMENTS / "server/files"], [name],
             target)


def make_all(processor, library, folder):
    """Makes all packages."""
    for path in (library, *(library.parent / name for name in (PROGRAM, TRACKING, WITNESS))):
        if not path.is_file():
            raise PackageError(f"{path} is missing: build it first")
    version = (ROOT / "VERSION").read_text(encoding="utf-8").strip()
    major, minor, build = map(int, version.split("."))
    if (major, minor, build) <= tuple(map(int, OLDER_VERSION.split("."))):
        raise PackageError(f"VERSION is {version}, not higher than that of the older packages, {OLDER_VERSION}")
    folder.mkdir(parents=True, exist_ok=True)
    newer = f"{major}.{minor}.{build + 1}"
    make_package("client/client.wxs", processor, library, "Ostrel", version, folder / "client.msi")
    make_package("client/client.wxs", processor, library, "Ostrel", newer, folder / "client-newer.msi")
    make_package("server/older.wxs", processor, library, "Vantor server", OLDER_VERSION, folder / "server-older.msi")
    make_package("server/server.wxs", processor, library, "Vantor server", version, folder / "server.msi")
    make_package("server/server.wxs", processor, library, "Vantor server", version, folder / "server-watched.msi",
                 "watched", WitnessFile=WITNESS)
    make_package("other/other.wxs", processor, library, "Brackwell Gauge", version, folder / "other.msi")
    make_package("other/other.wxs", processor, library, "Brackwell Gauge", newer, folder / "other-newer.msi")
    for kind, names in ONE_FRAGMENT.items():
        make_package("other/one.wxs", processor, library, "Brackwell Gauge", version, folder / f"other-{kind}.msi", kind,
                     **{name: "yes" for name in names})
    make_package("other/client.wxs", processor, library, "Brackwell Probe", version, folder / "other-client.msi", "probe")
    make_package("other/client.wxs", processor, library, "Brackwell Probe", newer, folder / "other-client-newer.msi", "probe")
    for name, text in examples().items():
        make_example(name, text, processor, library, folder / f"guide-{Path(name).stem}.msi")


def main():
    if not 2 <= len(sys.argv) <= 4 or sys.argv[1] not in TEMPLATES:
        sys.exit(__doc__)
    processor = sys.argv[1]
    library = Path(sys.argv[2] if len(sys.argv) > 2 else ROOT / f"build/{processor}/hxsetup.dll")
    folder = Path(sys.argv[3] if len(sys.argv) > 3 else ROOT / f"build/packages/{processor}")
    try:
        make_all(processor, library, folder)
    except PackageError as error:
        sys.exit(f"tools/packages/make_packages.py: {error}")


if __name__ == "__main__":
    main()
