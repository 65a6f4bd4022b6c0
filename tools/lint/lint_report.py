"""The files, the command line and the report of the lints: they take the tree's root, by default this project's, and print
a line for each finding."""

import subprocess
import sys
from pathlib import Path


def project_files(root):
    """The names of the files below a root that git tracks or would track, sorted."""
    listing = subprocess.run(["git", "-C", root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                             capture_output=True, check=True).stdout
    for name in sorted(set(listing.decode("utf-8", "surrogateescape").split("\0"))):
        if name and (root / name).is_file():
            yield name


def report(findings):
    """Runs a lint whose function `findings` yields its findings below a root; returns the exit status."""
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).resolve().parents[2])
    found = list(findings(root))
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0
