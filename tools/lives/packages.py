"""The packages whose lives are tried: three products, each in several versions, and one version that stops late."""

from pathlib import Path

from packages.make_packages import FRAGMENTS, OLDER_VERSION, PROGRAM, ROOT, make_package
from packages.tables import read_package, run

# The folder in which the stopping packages look for a marker of success, which is never there. With the marker of a
# cancelled run in it, they end like a run that a user cancels.
STOP_FOLDER = "C:\\Lives stop\\"
CANCELLED = STOP_FOLDER + "dbcon_cancelled.txt"
# An entry point of the library, deferred, without impersonation: CustomAction17, which fails without a marker.
DEFERRED = 1 + 1024 + 2048

# For each product: its source, the name of its program, and the places of the sequence at which it fails and is cancelled.
# Both are late, after the new files and the service. The client fails after its library is hooked. No run is cancelled after
# the product is registered (6100), because this engine would leave it registered.
SOURCES = {
    "client": ("client/client.wxs", "Ostrel", 6440, 5950),
    "server": ("server/server.wxs", "Vantor server", 5890, 5890),
    "other": ("other/other.wxs", "Brackwell Gauge", 5890, 5890),
}
OLDER = "server/older.wxs"


def versions():
    """The names of the versions and their numbers, from the lowest."""
    version = (ROOT / "VERSION").read_text(encoding="utf-8").strip()
    major, minor, build = map(int, version.split("."))
    return {"older": OLDER_VERSION, "first": version, "next": f"{major}.{minor}.{build + 1}"}


def make_stopping(source, target, place):
    """Makes a copy of a package whose script stops at `place` of the sequence."""
    target.write_bytes(source.read_bytes())
    for statement in (f"INSERT INTO `Property` (`Property`, `Value`) VALUES ('Stop', '{STOP_FOLDER}')",
                      "INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
                      f"VALUES ('Stop', {DEFERRED}, 'hxsetup', 'CustomAction17')",
                      "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) "
                      f"VALUES ('Stop', 'NOT REMOVE', {place})"):
        run("msibuild", target, "-q", statement)


def make_all(library, folder):
    """Makes the packages PRODUCT-VERSION.msi, and of the version "next" also PRODUCT-fails.msi and PRODUCT-cancels.msi, which
    stop. Returns the product codes: {name of the package: code}."""
    folder.mkdir(parents=True, exist_ok=True)
    for product, (source, name, failure, cancel) in SOURCES.items():
        for word, version in versions().items():
            if word != "older" or product == "server":
                make_package(OLDER if word == "older" else source, "x64", library, name, version,
                             folder / f"{product}-{word}.msi")
        for word, place in (("fails", failure), ("cancels", cancel)):
            make_stopping(folder / f"{product}-next.msi", folder / f"{product}-{word}.msi", place)
    return {path.stem: read_package(path).properties()["ProductCode"] for path in sorted(Path(folder).glob("*.msi"))}


def hash_of(data):
    """The size and the hash of bytes, as the program in the Windows shows them: FNV-1a with 64 bits."""
    value = 14695981039346656037
    for byte in data:
        value = ((value ^ byte) * 1099511628211) & (2**64 - 1)
    return f"{len(data)}/{value}"


def contents(library):
    """The hashes of the packages' files: {(product, version, name of the file): hash}. The program of a version is "program"."""
    found = {}
    agent = (library.parent / PROGRAM).read_bytes()
    for product, (_, name, _, _) in SOURCES.items():
        for word, version in versions().items():
            found[product, word, "program"] = hash_of(agent + f"\n{name} {version}\n".encode())
            for path in (FRAGMENTS / product / "files").glob("*"):
                found[product, word, path.name] = hash_of(path.read_bytes())
            found[product, word, "agent"] = hash_of(agent)
    found["server", "older", "program"] = found["server", "older", "older-program.txt"]
    return found
