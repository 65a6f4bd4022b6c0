"""Makes a DLL with the exports of hxsetup.dll that does nothing: for tests of packages, which need no built library."""

import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

# The processors of packages, with the compiler's name for each.
MACHINES = {"x64": "x86_64", "arm64": "aarch64"}


def entry_points():
    """The exports of hxsetup.dll."""
    return (ROOT / "src/frame/entry_points.def").read_text(encoding="utf-8").partition("EXPORTS")[2].split()


def make_library(folder, processor, name="hxsetup.dll", exports=None):
    """Makes the DLL in `folder`, which it creates if it is missing. Returns its path."""
    folder.mkdir(exist_ok=True)
    (folder / "empty.cpp").write_text('extern "C" unsigned nothing(unsigned) { return 0; }\n')
    names = entry_points() if exports is None else exports
    for command in (["clang++-19", f"--target={MACHINES[processor]}-windows-msvc", "-c", "empty.cpp"],
                    ["lld-link-19", "/dll", "/noentry", "/nodefaultlib", f"/out:{name}", "empty.o",
                     *(f"/export:{export}=nothing" for export in names)]):
        subprocess.run(command, cwd=folder, check=True, capture_output=True)
    return folder / name
