#!/usr/bin/env python3
"""Makes the archives of the acceptance run: tools/acceptance/pack.py RUN-FOLDER FOLDER PROCESSOR...

RUN-FOLDER has the builds and the packages of a run of ./hx. Writes FOLDER/hxsetup-acceptance-VERSION-PROCESSOR.zip, and
prints its path, for each processor. The same commit gives the same archives, bit by bit.
"""

import hashlib
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from release import dist

ROOT = Path(__file__).resolve().parents[2]
SCRIPT = Path(__file__).resolve().parent / "accept.cmd"
LIST = "files.txt"
PROGRAM = "bin/accept.exe"

# The files of the archive by their folders: (folder in the archive, kind of the preset, files).
BUILT = (
    ("bin", "-tests", ("accept.exe", "unit_tests.exe", "action_tests.exe", "install_tests.exe")),
    ("libraries", "", ("hxsetup.dll", "hxsetup.pdb", "hxinternals.dll", "hxinternals.pdb", "rigsubject.dll", "agent.exe",
                       "ostrack.dll", "witness.dll")),
    ("checked", "-checked", ("hxinternals.dll", "rigsubject.dll")),
)


def name_of(version, processor):
    return f"hxsetup-acceptance-{version}-{processor}"


def windows_lines(text):
    """The bytes of a text with the line ends that cmd.exe needs."""
    return text.replace("\n", "\r\n").encode("ascii")


def script_for(template, version, processor, program):
    """The script of an archive: `template` with what this archive has. `program` is the content of its accept.exe."""
    for mark, value in (("@VERSION@", version), ("@PROCESSOR@", processor), ("@HASH@", hashlib.sha256(program).hexdigest())):
        if mark not in template:
            raise dist.Refusal(f"{SCRIPT} has no {mark}")
        template = template.replace(mark, value)
    return template


def read_me(version, processor):
    return (f"hxsetup {version}, tests for {processor}\n\n"
            "Start accept.cmd in a Command Prompt with administrator's rights, on a Windows that you can reset. Do not start\n"
            "it by a double click: the window would close with its answer.\n"
            "accept.cmd /help describes it. The first line of report\\report.txt is the verdict.\n"
            "If it is not \"passed\", send back the whole folder of the report, as a zip.\n")


def collect(run_folder, processor, version):
    """The members of the archive: each name with its content."""
    members = {}
    for folder, kind, files in BUILT:
        for file in files:
            path = run_folder / f"{processor}{kind}" / file
            if not path.is_file():
                raise dist.Refusal(f"{path} is missing: build it first")
            members[f"{folder}/{file}"] = path.read_bytes()
    packages = sorted((run_folder / "packages" / processor).glob("*.msi"))
    if not packages:
        raise dist.Refusal(f"{run_folder / 'packages' / processor} has no packages: make them first")
    members |= {f"packages/{path.name}": path.read_bytes() for path in packages}
    members["accept.cmd"] = windows_lines(
        script_for(SCRIPT.read_text(encoding="ascii"), version, processor, members[PROGRAM]))
    members["README.txt"] = windows_lines(read_me(version, processor))
    members[LIST] = windows_lines("".join(dist.checksum_line(content, name.replace("/", "\\"))
                                          for name, content in sorted(members.items())))
    return members


def make_archive(run_folder, folder, processor):
    """Makes one archive and returns its path."""
    version = dist.read_version(ROOT)
    name = name_of(version, processor)
    folder.mkdir(parents=True, exist_ok=True)
    archive, unfinished = folder / f"{name}.zip", folder / f".{name}.zip"
    dist.pack(unfinished, name, collect(run_folder, processor, version), dist.commit_time(ROOT))
    unfinished.rename(archive)
    return archive


def main(arguments):
    if len(arguments) < 3 or not set(arguments[2:]) <= set(dist.PROCESSORS):
        sys.exit(__doc__)
    try:
        for processor in arguments[2:]:
            print(make_archive(Path(arguments[0]), Path(arguments[1]), processor))
    except dist.Refusal as refusal:
        sys.exit(f"tools/acceptance/pack.py: {refusal}")


if __name__ == "__main__":
    main(sys.argv[1:])
