"""tools/setup/packages.txt names the Debian package of each command that hx and its scripts run, except those that every
Debian system has: on such a system the set-up installs all others."""

import re
import shutil
import subprocess
import unittest
from pathlib import Path

from support import TOOLS

ROOT = TOOLS.parent

# What can precede a command: the beginning of the line, an operator, a keyword, or another command that runs it.
BEFORE = (r"(?:^|[|;&({!]|\$\(|\b(?:if|then|else|elif|do|while|until|exec|env|xargs|unshare|setsid|sudo)\s|"
          r"command=\(|\"\$\{\w+\[@\]\}\"\s)\s*")
COMMAND = re.compile(rf"{BEFORE}([a-z][a-z0-9_.+-]*)(?=[\s;)]|$)", re.MULTILINE)

# Every Debian system has these: a shell script needs them to start; base-files depends on an awk.
ALWAYS = {"mawk", "gawk", "apt"}

# Only named in a message.
MENTIONED = {"systemctl"}


def commands(text):
    """The commands of a shell script, without its own functions and the shell's built-in commands."""
    text = re.sub(r"<<-?\s*'?(\w+)'?[^\n]*\n.*?\n\1\n", "\n", text, flags=re.DOTALL)
    text = re.sub(r"\\\n\s*", " ", text)
    text = re.sub(r"(^|\s)#.*", "", text)
    text = re.sub(r"'[^']*'", "''", text)
    own = set(re.findall(r"^(\w+)\(\) ", text, re.MULTILINE))
    shell = subprocess.run(["bash", "-c", "compgen -bk"], capture_output=True, text=True, check=True).stdout.split()
    # The patterns of a "case".
    text = re.sub(r"^\s*[\w| -]+\)", "", text, flags=re.MULTILINE)
    return set(COMMAND.findall(text)) - own - set(shell) - MENTIONED


def query(form, *packages):
    result = subprocess.run(["dpkg-query", "-W", "-f", form, *packages], capture_output=True, text=True, check=False)
    return result.stdout.splitlines()


def packages_of(names):
    """The Debian packages of the commands that are programs of one: package -> commands."""
    paths = {}
    for name in names:
        if path := shutil.which(name, path="/usr/bin:/bin:/usr/sbin:/sbin"):
            if Path(path).is_symlink() and str(Path(path).readlink()).startswith("/etc/alternatives/"):
                path = str(Path(path).resolve())
            # dpkg records a file by the path in its package, which may go through a link of the root folder.
            for each in (path, path.removeprefix("/usr")):
                paths[each] = name
    result = subprocess.run(["dpkg-query", "-S", *paths], capture_output=True, text=True, check=False)
    found = {}
    for line in result.stdout.splitlines():
        package, _, path = line.partition(": ")
        found.setdefault(package.partition(":")[0], set()).add(paths[path])
    return found


@unittest.skipUnless(shutil.which("dpkg-query"), "not a Debian")
class PackagesTest(unittest.TestCase):
    def test_each_command_has_its_package(self):
        essential = {line.split()[0] for line in query("${Package} ${Essential}\n") if line.endswith(" yes")} | ALWAYS
        self.assertIn("util-linux", essential)
        listed = {line.split()[0] for line in (TOOLS / "setup/packages.txt").read_text(encoding="utf-8").splitlines()
                  if line and not line.startswith("#")}
        scripts = (ROOT / "hx", *sorted(TOOLS.glob("*/*.sh")))
        found = packages_of({each for script in scripts for each in commands(script.read_text(encoding="utf-8"))})
        needed = query("${Depends}, ${Pre-Depends}, ", *listed)
        covered = essential | listed | set(re.findall(r"(?:^|, )([a-z0-9.+-]+)", " ".join(needed)))
        # Commands are found at the beginning of a line, after a pipe, in a condition and after another command.
        for package, command in (("coreutils", "sha256sum"), ("mount", "mount"), ("util-linux", "unshare"),
                                 ("git", "git"), ("mmdebstrap", "mmdebstrap"), ("bubblewrap", "bwrap")):
            self.assertIn(command, found.get(package, set()))
        missing = {package: words for package, words in found.items() if package not in covered}
        # need_packages looks for the command npm, because npm is often not installed from Debian.
        for package in ("nodejs", "npm"):
            missing.pop(package, None)
        self.assertEqual(missing, {})

    def test_the_list_is_sorted(self):
        names = [line.split()[0] for line in (TOOLS / "setup/packages.txt").read_text(encoding="utf-8").splitlines()
                 if line and not line.startswith("#")]
        self.assertEqual(names, sorted(set(names)))


if __name__ == "__main__":
    unittest.main()
