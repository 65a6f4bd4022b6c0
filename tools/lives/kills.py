"""Kills of the engine during upgrades of the server, each followed by another attempt of the same upgrade. The data must
always be whole in one of their two places. The other attempt succeeds, or is refused because of the note that the upgrade was
interrupted. Then the older server is put back by hand, as docs/server-upgrade.md says, and the attempt after that must succeed.
In the end the data are whole and converted in the right place."""

import random
import re
from typing import NamedTuple

from lives.packages import hash_of

SERVER = "C:\\Program Files\\Halvorstead\\Vantor"
ASIDE = SERVER + " (previous)"
# The key of the note that an upgrade is under way, and the action that refuses the next attempt.
NOTE, REFUSAL = "SOFTWARE\\Halvorstead\\Vantor\\Upgrade", "RefuseInterrupted"
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
    """The instructions of a kill and the attempts after it. `kill` is the time to wait, and the path to wait for before that."""
    return [*arrangement(place, chance, codes), "\t".join(("kill", "killed", *map(str, kill), UPGRADE)), *look("killed", place),
            f"run\tagain\t{UPGRADE}", *look("again", place), f"restore\tback\t{NOTE}", *look("back", place),
            f"run\tlast\t{UPGRADE}", *look("last", place), f"restore\tend\t{NOTE}"]


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
        elif words[0] in ("run", "kill", "watch", "restore"):
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


def is_in_a_place(place, before, trees, name):
    """Whether the data are whole in the data folder or where an upgrade keeps them."""
    return is_whole(before, trees[f"{name}-data"]) or is_whole(before, moved(place, trees[f"{name}-beside"]), (UNCONVERTED,))


def judge(place, lines, log=""):
    """What is wrong after a kill and after the attempts that follow: lines, or []. `log` is the log of the next attempt."""
    said, trees = parse(lines)
    before = trees.get("before")
    if not before:
        return ["the data were not made"]
    if ("restore", "end") not in said:
        return ["the program did not come to its end"]
    wrong = []
    if not is_in_a_place(place, before, trees, "killed"):
        wrong.append("after the kill the data are whole in neither place")
    if is_refused(said):
        return [*wrong, *judge_refusal(place, before, said, trees, log)]
    if said["run", "again"] != ["0"]:
        wrong.append(f"another attempt ends with {said['run', 'again'][0]}")
    if said["restore", "back"] != ["none"]:
        wrong.append("another attempt leaves a note")
    return wrong + judge_data(before, trees["again-data"], "another attempt")


def is_refused(said):
    """Whether another attempt has failed, and there is a note of the upgrade that was killed."""
    return said.get(("run", "again"), ["0"]) != ["0"] and said.get(("restore", "back")) == ["done"]


def judge_refusal(place, before, said, trees, log):
    """What is wrong with an attempt that found a note, and after the older server was put back."""
    failed = FAILED_ACTION.findall(log)
    if said["run", "again"] != ["1603"] or failed != [REFUSAL]:
        yield f"another attempt ends with {said['run', 'again'][0]}: {', '.join(failed) or 'no action'} failed, not {REFUSAL}"
    for part in ("data", "beside"):
        if trees[f"again-{part}"] != trees[f"killed-{part}"]:
            yield "the attempt that is refused changes the folders"
    if not is_in_a_place(place, before, trees, "again"):
        yield "after the attempt that is refused the data are whole in neither place"
    if not is_whole(before, trees["back-data"], (UNCONVERTED,)):
        yield "the older data are not whole after they were put back: " + missing(before, trees["back-data"])
    if said["run", "last"] != ["0"]:
        yield f"the attempt after the older server was put back ends with {said['run', 'last'][0]}"
    if said["restore", "end"] != ["none"]:
        yield "the last attempt leaves a note"
    yield from judge_data(before, trees["last-data"], "the last attempt")


def judge_data(before, data, attempt):
    """What is wrong with the data folder after an attempt that succeeded."""
    wrong = []
    if not is_whole(before, data, (CONVERTED,)):
        wrong.append(f"after {attempt} the data folder is not whole: " + missing(before, data))
    more = sorted(set(data) - set(before))
    if more:
        wrong.append(f"after {attempt} the data folder has more: " + ", ".join(more[:3]))
    return wrong


def missing(before, data):
    names = [name for name, value in before.items() if name != FORMAT and data.get(name) != value]
    return f"{len(names)} of {len(before)} entries differ" + (f", first {sorted(names)[0]}" if names else "; its format is wrong")


# The engine here ends the log of an action that failed with 0, and that of a sequence too, which has no action of its name.
FAILED_ACTION = re.compile(r"^Action ended [\d:]+: (?!INSTALL\b|ExecuteAction\b)(.+)\. Return value 0\.$", re.MULTILINE)
ACTION = re.compile(r"Action start [\d:]+: (.+)\.$")


def phase_of(log):
    """In which action a killed run ended, by its log, which is text. The sequence first schedules the script's actions, so an
    action of the script is one that was begun again, or one after the script's begin."""
    actions = [match[1] for match in map(ACTION.match, log.splitlines()) if match]
    if not actions:
        return "before the first action"
    last = actions[-1]
    return last + (" (script)" if actions.count(last) > 1 else "")
