"""Kills of the engine during upgrades of the server, each followed by another attempt of the same upgrade. The data must
always be whole in one of their two places, and in the end in the right one."""

import random
import re
from typing import NamedTuple

from lives.packages import hash_of

SERVER = "C:\\Program Files\\Halvorstead\\Vantor"
ASIDE = SERVER + " (previous)"
SETTINGS = "SYSTEM\\CurrentControlSet\\Services\\Vantor\\Settings", "vtdf"
MARKER = "dbcon_completed.txt"
UNCONVERTED, CONVERTED = hash_of(b"1\r\n"), hash_of(b"2\r\n")
FORMAT = "format.txt"
# The data: so many small files and so many large ones, and the sizes of each.
SMALL_FILES, SMALL_SIZES, LARGE_FILES, LARGE_SIZES = 400, (100, 20_000), 5, (3_000_000, 9_000_000)
FOLDERS = 24
# The shares of the kills: before the folder is moved aside, and from then until the data are copied and converted. The rest
# is later.
SHARES = 0.2, 0.5
SPREAD = 20


class Place(NamedTuple):
    """Where an older server has its data, and where an upgrade keeps them."""
    name: str
    data: str
    # The folder in which the data are moved aside, and the pattern of the name there.
    beside: str
    aside: str


PLACES = (
    Place("inside the server's folder", SERVER + "\\Data", ASIDE, r"Data"),
    Place("outside", "C:\\Vantor Store\\Data", "C:\\Vantor Store", r"Data \d{4}-\d\d-\d\d"),
    Place("outside, on another volume", "Z:\\run\\Vantor Store\\Data", "Z:\\run\\Vantor Store", r"Data \d{4}-\d\d-\d\d"),
)


def random_of(seed, number):
    """The chance that decides the kill with this number: its data and its moment."""
    return random.Random(f"{seed}/kill/{number}")


def data_of(chance):
    """The files of a data folder: [(name, size, seed)]. The first is the format."""
    folders = [""]
    for number in range(FOLDERS):
        folders.append(f"{chance.choice(folders)}folder {number}\\")
    sizes = [SMALL_SIZES] * SMALL_FILES + [LARGE_SIZES] * LARGE_FILES
    chance.shuffle(sizes)
    return [(f"{chance.choice(folders)}counts {number}.dat", chance.randint(*size), chance.randrange(2**31))
            for number, size in enumerate(sizes)]


def arrangement(place, chance, codes):
    """The instructions that make an older server with data."""
    lines = [f"name\t{code}\t{{{name}}}" for name, code in codes.items() if not name.endswith(("-fails", "-cancels"))]
    lines.append('run\tolder\t/i "Z:\\run\\server-older.msi" /qn')
    lines.append(f"text\t{place.data}\\{FORMAT}\t1")
    lines += [f"data\t{place.data}\\{name}\t{size}\t{seed}" for name, size, seed in data_of(chance)]
    if place.data != SERVER + "\\Data":
        lines.append("\t".join(("setting", *SETTINGS, place.data + "\\")))
    lines.append(f"tree\tbefore\t{place.data}")
    return lines


UPGRADE = '/i "Z:\\run\\server-first.msi" /qn'


def measuring(place, chance, codes):
    """The instructions that measure an upgrade that is not killed."""
    return [*arrangement(place, chance, codes),
            "\t".join(("watch", "measured", ASIDE, f"{place.data}\\{MARKER}", UPGRADE))]


def look(name, place):
    return [f"tree\t{name}-data\t{place.data}", f"tree\t{name}-beside\t{place.beside}"]


def killing(place, chance, codes, kill):
    """The instructions of a kill and another attempt. `kill` is the time to wait, and the path to wait for before that."""
    return [*arrangement(place, chance, codes), "\t".join(("kill", "killed", *map(str, kill), UPGRADE)), *look("killed", place),
            f"run\tagain\t{UPGRADE}", *look("again", place)]


def moment(chance, number, times):
    """When the kill with this number falls: (milliseconds, the path after which they count). Twenty kills in a row are spread
    evenly. `times` are those of a run that was not killed: when the folder was aside, when the data were converted, the end."""
    aside, converted, end = times
    converted = converted if converted >= 0 else (aside + end) // 2
    share = (number % SPREAD + chance.random()) / SPREAD
    if share < SHARES[0]:
        return int(aside * share / SHARES[0]), "-"
    if share < sum(SHARES):
        return int((converted - aside) * (share - SHARES[0]) / SHARES[1]), ASIDE
    return int(converted - aside + (end - converted) * (share - sum(SHARES)) / (1 - sum(SHARES))), ASIDE


def parse(lines):
    """The output of the program: {(kind, name): words} and {name: {entry: hash}}."""
    said, trees, tree = {}, {}, None
    for line in lines:
        words = line.split(" ")
        if tree is not None:
            if line == "end":
                tree = None
            elif line.startswith("+ "):
                name, _, value = line[2:].partition(" = ")
                tree[name] = value
        elif words[0] == "tree":
            tree = trees[words[1]] = {}
        elif words[0] in ("run", "kill", "watch"):
            said[words[0], words[1]] = words[2:]
    return said, trees


def is_whole(before, tree, formats=(UNCONVERTED, CONVERTED)):
    """Whether a folder has every entry of the data as it was. The format may be one of `formats`. More entries may be there."""
    return all(tree.get(name) in formats if name == FORMAT else tree.get(name) == value for name, value in before.items())


def moved(place, tree):
    """The data in the folder beside which they are moved: the content of the folder with their name there, or {}."""
    found = {}
    for name, value in tree.items():
        first, separator, rest = name.partition("\\")
        if separator and rest and re.fullmatch(place.aside, first):
            found[rest] = value
    return found


def judge(place, lines):
    """What is wrong after a kill and after another attempt: lines, or []."""
    said, trees = parse(lines)
    before = trees.get("before")
    if not before:
        return ["the data were not made"]
    if "again-beside" not in trees:
        return ["the program did not come to its end"]
    wrong = []
    if not is_whole(before, trees["killed-data"]) and not is_whole(before, moved(place, trees["killed-beside"]), (UNCONVERTED,)):
        wrong.append("after the kill the data are whole in neither place")
    if said["run", "again"] != ["0"]:
        wrong.append(f"another attempt ends with {said['run', 'again'][0]}")
    data = trees["again-data"]
    if not is_whole(before, data, (CONVERTED,)):
        wrong.append("after another attempt the data folder is not whole: " + missing(before, data))
    more = sorted(set(data) - set(before))
    if more:
        wrong.append("after another attempt the data folder has more: " + ", ".join(more[:3]))
    return wrong


def missing(before, data):
    names = [name for name, value in before.items() if name != FORMAT and data.get(name) != value]
    return f"{len(names)} of {len(before)} entries differ" + (f", first {sorted(names)[0]}" if names else "; its format is wrong")


ACTION = re.compile(r"Action start [\d:]+: (.+)\.$")


def phase_of(log):
    """In which action a killed run ended, by its log, which is text. The sequence first schedules the script's actions, so an
    action of the script is one that was begun again, or one after the script's begin."""
    actions = [match[1] for match in map(ACTION.match, log.splitlines()) if match]
    if not actions:
        return "before the first action"
    last = actions[-1]
    return last + (" (script)" if actions.count(last) > 1 else "")
