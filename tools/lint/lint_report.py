"""How the lints are called and report: with the tree's root, or none for this project, and a line for each finding."""

import sys
from pathlib import Path


def report(findings):
    """The exit status of a lint whose function `findings` yields what it finds below a root."""
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).resolve().parents[2])
    found = list(findings(root))
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0
