#!/usr/bin/env python3
"""Makes the release archive: tools/release/dist.py --check | LIBRARIES FOLDER

LIBRARIES has hxsetup.dll, hxsetup.pdb, hxrun.exe and the stand-ins, as built, in arm64/ and x64/. hxsetup-VERSION.zip and
hxsetup-VERSION.zip.sha256 are written to FOLDER. docs/release.md says what is in the archive. --check only checks that
the checkout can be released.

The same commit makes the same bytes: every time in the archive is the time of the commit, or SOURCE_DATE_EPOCH.

The libraries and hxrun.exe are signed if the environment names a certificate. The paths are absolute:
  HX_SIGN_PKCS12          a PKCS#12 file with the certificate, its chain and its key; or
  HX_SIGN_CERTIFICATE     a PEM file with the certificate and its chain, and
  HX_SIGN_KEY             the PEM file of its key
  HX_SIGN_PASSWORD_FILE   the file with the password of either, if there is a password
  HX_SIGN_TIMESTAMP       the URL of an RFC 3161 time-stamp service; without it no other machine is contacted
"""

import hashlib
import os
import re
import subprocess
import sys
import tempfile
import time
import zipfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from kit import authoring_v4

ROOT = Path(__file__).resolve().parents[2]
NAME = "hxsetup"
PROCESSORS = ("arm64", "x64")
LIBRARY = f"{NAME}.dll"
DATABASE = f"{NAME}.pdb"
PROGRAM = "hxrun.exe"
CHECKSUMS = "SHA256SUMS"
SIGN_FILES = ("PKCS12", "CERTIFICATE", "KEY", "PASSWORD_FILE")
SIGN_SETTINGS = (*SIGN_FILES, "TIMESTAMP")

# The stand-ins of the model packages for the programs of client and server and for the tracking library.
STAND_INS = ("agent.exe", "ostrack.dll")
STAND_IN_FOLDER = "packages/programs"

# The files of the project that are released unchanged, at the same paths, so that the links between them work.
RELEASED = re.compile(r"CHANGELOG\.md|VERSION|docs/.+\.(md|html|png)|explain/(explain\.mjs|knowledge\.json|source/.+)|"
                      r"packages/[^/]+\.wxi|packages/(client|server|other|texts)/.+")
# Only for tests and the demonstration, and useless without its library.
WITHHELD = {"packages/server/witness.wxi", "packages/other/one.wxs"}

# The authoring of the released files in the language of version 4 and later of the compilers is in this folder.
NEWER_FOLDER = authoring_v4.FOLDER

# Each member of the archive is a regular file that everybody may read.
MEMBER_MODE = 0o100644
UNIX = 3


class Refusal(Exception):
    """The release cannot be made; the text tells the user why."""


def git(project, *arguments):
    result = subprocess.run(["git", "-C", project, *arguments], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise Refusal(f"git {' '.join(arguments)}: {result.stderr.strip()}")
    return result.stdout


def read_version(project):
    return (project / "VERSION").read_text(encoding="utf-8").strip()


def check_releasable(project):
    """Refuses a checkout with uncommitted changes, one whose tag or CHANGELOG.md has another version than VERSION, and one
    with authoring that has no known form in version 4 and later of the compilers."""
    changed = git(project, "status", "--porcelain", "--untracked-files=all").splitlines()
    if changed:
        raise Refusal("a release is made from a commit, and these changes are not committed:\n" + "\n".join(changed[:20]))
    version = read_version(project)
    tags = git(project, "tag", "--points-at", "HEAD", "--list", "v*").split()
    if tags and f"v{version}" not in tags:
        raise Refusal(f"the commit is tagged {' '.join(tags)}, but VERSION is {version}")
    heading = re.search(r"^## \[(.*?)\]", (project / "CHANGELOG.md").read_text(encoding="utf-8"), re.MULTILINE)
    if not heading or heading[1] != version:
        raise Refusal(f"CHANGELOG.md begins with [{heading[1] if heading else ''}], but VERSION is {version}")
    newer_authoring(project, released_files(project))


def commit_time(project):
    """The time of the release in seconds since 1970: SOURCE_DATE_EPOCH, or the time of the last commit."""
    return int(os.environ.get("SOURCE_DATE_EPOCH") or git(project, "log", "-1", "--format=%ct"))


def released_files(project):
    """The names of the project's files that are released."""
    names = git(project, "ls-files", "-z", "--cached", "--others", "--exclude-standard").split("\0")
    return [name for name in names if RELEASED.fullmatch(name) and name not in WITHHELD]


def newer_authoring(project, names):
    """The texts for version 4 and later of the compilers, by their names in the archive. `names` are the released files."""
    try:
        texts = authoring_v4.authoring(project, names)
    except authoring_v4.Unknown as unknown:
        raise Refusal(str(unknown)) from None
    return {f"{NEWER_FOLDER}/{path}": text for path, text in texts.items()}


def signing_options(settings):
    """The options of osslsigncode for the certificate and the key; none if the environment names neither."""
    given = {name: settings[f"HX_SIGN_{name}"] for name in SIGN_SETTINGS if settings.get(f"HX_SIGN_{name}")}
    container, certificate, key = (given.get(name) for name in ("PKCS12", "CERTIFICATE", "KEY"))
    if not given:
        return []
    for name in SIGN_FILES:
        if name in given and not (Path(given[name]).is_absolute() and Path(given[name]).is_file()):
            raise Refusal(f"HX_SIGN_{name} is not the absolute path of a file: {given[name]}")
    if bool(container) == bool(certificate or key) or bool(certificate) != bool(key):
        raise Refusal("to sign, set HX_SIGN_PKCS12, or HX_SIGN_CERTIFICATE and HX_SIGN_KEY, and no others of these")
    options = ["-pkcs12", container] if container else ["-certs", certificate, "-key", key]
    if "PASSWORD_FILE" in given:
        options += ["-readpass", given["PASSWORD_FILE"]]
    if "TIMESTAMP" in given:
        options += ["-ts", given["TIMESTAMP"]]
    return options


def sign(library, options, version, moment):
    """Returns the bytes of a library or program, signed. The signature's own time is `moment`, so that it is the same in
    every run; a time-stamp service adds the true time."""
    with tempfile.TemporaryDirectory(prefix="hx-sign-") as folder:
        signed = Path(folder) / LIBRARY
        command = ["osslsigncode", "sign", *options, "-h", "sha256", "-n", f"{NAME} {version}", "-time", str(moment),
                   "-in", library, "-out", signed]
        # Without a terminal at which to ask, a missing password is an error.
        result = subprocess.run(command, stdin=subprocess.DEVNULL, start_new_session=True, capture_output=True,
                                text=True, check=False)
        if result.returncode != 0 or not signed.is_file():
            raise Refusal(f"{library} could not be signed:\n{(result.stdout + result.stderr).strip()}")
        return signed.read_bytes()


def read_me(project, version, moment, signed):
    """The text of the archive's README."""
    commit = git(project, "rev-parse", "HEAD").strip()
    when = time.strftime("%Y-%m-%d %H:%M:%S UTC", time.gmtime(moment))
    return (f"{NAME} {version}\n\nMade from the commit {commit}\nof {when}. The libraries are "
            f"{'signed' if signed else 'not signed'}.\n\ndocs/release.md says what is here and how to check it.\n")


def collect(project, libraries, moment, settings):
    """The members of the archive, without the checksums: each name with its content."""
    version = read_version(project)
    options = signing_options(settings)
    names = released_files(project)
    members = {name: (project / name).read_bytes() for name in names}
    members |= {name: text.encode() for name, text in newer_authoring(project, names).items()}
    for processor in PROCESSORS:
        built = libraries / processor
        for file in (LIBRARY, DATABASE, PROGRAM, *STAND_INS):
            if not (built / file).is_file():
                raise Refusal(f"{built / file} is missing: build it first")
        for file in (LIBRARY, PROGRAM):
            path = built / file
            members[f"{processor}/{file}"] = sign(path, options, version, moment) if options else path.read_bytes()
        members[f"{processor}/{DATABASE}"] = (built / DATABASE).read_bytes()
        members |= {f"{STAND_IN_FOLDER}/{processor}/{file}": (built / file).read_bytes() for file in STAND_INS}
    members["README.txt"] = read_me(project, version, moment, bool(options)).encode()
    return members


def checksum_line(content, name):
    return f"{hashlib.sha256(content).hexdigest()}  {name}\n"


def pack(path, top, members, moment):
    """Writes the archive: all members sorted, with the same time and mode, below the folder `top`."""
    with zipfile.ZipFile(path, "w") as archive:
        for name, content in sorted(members.items()):
            entry = zipfile.ZipInfo(f"{top}/{name}", time.gmtime(moment)[:6])
            entry.create_system = UNIX
            entry.external_attr = MEMBER_MODE << 16
            archive.writestr(entry, content, zipfile.ZIP_DEFLATED, 9)


def make_release(project, libraries, folder, settings):
    """Makes the archive and the file with its checksum; returns the archive's path."""
    moment = commit_time(project)
    members = collect(project, libraries, moment, settings)
    sums = "".join(checksum_line(content, name) for name, content in sorted(members.items()))
    top = f"{NAME}-{read_version(project)}"
    folder.mkdir(parents=True, exist_ok=True)
    # The folder always contains one complete release, even if this run is interrupted.
    for left in folder.glob(f"{NAME}-*.zip*"):
        left.unlink()
    archive = folder / f"{top}.zip"
    unfinished = folder / f".{top}.zip"
    pack(unfinished, top, {**members, CHECKSUMS: sums.encode()}, moment)
    unfinished.rename(archive)
    (folder / f"{archive.name}.sha256").write_text(checksum_line(archive.read_bytes(), archive.name), encoding="utf-8")
    return archive


def main(arguments):
    if arguments != ["--check"] and len(arguments) != 2:
        sys.exit(__doc__)
    try:
        check_releasable(ROOT)
        if arguments == ["--check"]:
            signing_options(os.environ)
            return
        archive = make_release(ROOT, Path(arguments[0]), Path(arguments[1]), os.environ)
    except Refusal as refusal:
        sys.exit(f"tools/release/dist.py: {refusal}")
    print((archive.parent / f"{archive.name}.sha256").read_text(encoding="utf-8"), end="")


if __name__ == "__main__":
    main(sys.argv[1:])
