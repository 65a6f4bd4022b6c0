"""Shared by the tests of dist.py: libraries to release, and functions that run programs on the result."""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

TRIPLES = {"arm64": "aarch64-w64-windows-gnu", "x64": "x86_64-w64-windows-gnu"}
PROCESSORS = sorted(TRIPLES)
STAND_INS = ["agent.exe", "ostrack.dll"]
SOURCE = r"""
extern "C" int DllMain(void*, unsigned, void*) { return 1; }
extern "C" __declspec(dllexport) unsigned CustomAction2(unsigned a) { return a * a; }
"""


def run(*command, cwd=None, env=None, check=True):
    result = subprocess.run(command, cwd=cwd, env={**os.environ, **(env or {})}, capture_output=True, text=True,
                            stdin=subprocess.DEVNULL, check=False)
    if check and result.returncode != 0:
        raise AssertionError(f"{command}: {result.returncode}\n{result.stdout}{result.stderr}")
    return result


def open_shop():
    """For setUpModule: (a folder for the tests of the module, the folder in it with small libraries). Removes the settings
    of the user who runs the tests, so that they do not change the results."""
    kept = {name: value for name, value in os.environ.items()
            if name.startswith("HX_SIGN_") or name == "SOURCE_DATE_EPOCH"}
    for name in kept:
        del os.environ[name]
    unittest.addModuleCleanup(os.environ.update, kept)
    folder = tempfile.TemporaryDirectory(prefix="hx-dist-")
    unittest.addModuleCleanup(folder.cleanup)
    libraries = Path(folder.name) / "libraries"
    for processor, triple in TRIPLES.items():
        built = libraries / processor
        built.mkdir(parents=True)
        (built / "tiny.cpp").write_text(SOURCE)
        run("clang++-19", f"--target={triple}", "-ffreestanding", "-fno-exceptions", "-fno-rtti", "-nostdlib",
            "-shared", "-fuse-ld=lld-19", "-g", "-gcodeview", "-Wl,--entry,DllMain", "-Wl,--no-insert-timestamp",
            "-Wl,--pdb=hxsetup.pdb", "-o", "hxsetup.dll", "tiny.cpp", cwd=built)
        # Any image that can be signed.
        shutil.copy(built / "hxsetup.dll", built / "hxrun.exe")
        for name in STAND_INS:
            (built / name).write_bytes(f"{name} {processor}".encode())
    return Path(folder.name), libraries


def copy_project(project, folder):
    """Copies the released files of this project and commits the copy, because the project need not be a checkout."""
    copy = folder / "project"
    for name in ("docs", "packages", "explain"):
        shutil.copytree(project / name, copy / name, ignore=shutil.ignore_patterns("node_modules"))
    for name in ("CHANGELOG.md", "VERSION"):
        shutil.copy(project / name, copy)
    for command in (("init", "-q"), ("add", "-A"), ("commit", "-q", "-m", "Everything")):
        run("git", "-c", "user.name=Tester", "-c", "user.email=tester@example.com", *command, cwd=copy)
    return copy
