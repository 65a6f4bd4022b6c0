#!/usr/bin/env python3
"""Random lives of packages, and kills of the engine: the command ./hx lives.

    tools/lives/lives.py --builds FOLDER --logs FOLDER ORDERS KILLS [SEED]

Makes the packages of three products from the library in FOLDER/x64. Takes random steps in their lives, each order in a fresh
x64 Windows, and compares the machine after each step with model.py. Then kills the engine in upgrades of a server, and tries
each upgrade again.

ORDERS and KILLS are how many, or the first and the last as in 17-17. The seed decides what each of them does; without one, a
new seed is taken and printed. The moment of a kill is a share of the time that the same upgrade takes without a kill.

Leaves the logs of each order and kill in the folder of --logs. The exit status is 0 if nothing differs.
"""

import argparse
import random
import re
import shutil
import sys
import tempfile
import time
from collections import Counter
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from explain.beside import copy_page
from lives import kills, orders, packages
from lives.model import Machine
from packages.tables import PackageError
from packages.try_package import explained, log_text
from windows.windows_session import Ended, Windows

# The seconds that an order, or a kill with its second attempt, may take.
TIME_LIMIT = 400
SEEDS = 1_000_000
# A kill that comes after the end of the upgrade is tried again: at which share of the time, and how often in all.
EARLIER, ATTEMPTS = 0.7, 4
RANGE = re.compile(r"(\d+)-(\d+)")
# What looks like the password of a service's account: five groups of four characters. No log that is kept has one.
PASSWORD = re.compile(rb"(?:[A-Va-v0-9!=$\-+.,~^_]\0?[A-D]\0?A\0?A\0?){5}")


def numbers_of(text):
    """The numbers of the orders or kills that a word of the command line means."""
    match = RANGE.fullmatch(text)
    first, last = (int(match[1]), int(match[2])) if match else (1, int(text))
    return range(first, last + 1)


def hide_passwords(data):
    return PASSWORD.sub(lambda match: b"*" * len(match[0]), data)


class Rig:
    """The folder that the Windows see as Z:\\run, with the packages and the program; and the folder for the logs."""

    def __init__(self, builds, folder, logs):
        self.folder, self.logs = folder, logs
        library = builds / "x64/hxsetup.dll"
        self.codes = packages.make_all(library, folder)
        self.versions, self.contents = packages.versions(), packages.contents(library)
        shutil.copyfile(builds / "x64-tests/lives.exe", folder / "lives.exe")

    def machine(self):
        return Machine(self.versions, self.contents)

    def run(self, instructions, name):
        """Runs instructions in a new Windows. Returns the output; the logs are in the folder `name` of the logs."""
        for left in self.folder.glob("*.log"):
            left.unlink()
        shutil.rmtree(self.folder / "Vantor Store", ignore_errors=True)
        (self.folder / "lives.txt").write_text("".join(f"{line}\n" for line in instructions), encoding="utf-8")
        lines = []
        with Windows("x64", self.folder, "", TIME_LIMIT, lines.append) as windows:
            status = windows.run({}, ["wine64", r"Z:\run\lives.exe", r"Z:\run\lives.txt"], lines.append)
        target = self.logs / name
        shutil.rmtree(target, ignore_errors=True)
        target.mkdir(parents=True)
        for log in self.folder.glob("*.log"):
            (target / log.name).write_bytes(hide_passwords(log.read_bytes()))
        if status:
            lines.append(f"the program ended with status {status}")
        return lines


def say(text=""):
    print(text, flush=True)


def run_orders(rig, seed, numbers):
    """Runs the orders. Returns how many differ."""
    kinds, differing, states = Counter(), 0, 0
    for number in numbers:
        steps = orders.order_of(seed, number, rig.machine())
        name = f"order-{number:03}"
        lines = rig.run(orders.instructions(steps, rig.codes, rig.machine()), name)
        wrong, differences = orders.judge(steps, rig.machine(), lines)
        done = steps[:wrong] if wrong else steps
        kinds.update(meaning for _, meaning in rig.machine().meanings(done))
        states += len(done)
        say(f"order {number}: {', '.join(map(orders.title, done))}: {'DIFFERS' if wrong else 'as the model says'}")
        if not wrong:
            continue
        differing += 1
        report_difference(rig.logs / name, orders.log_name(wrong, steps[wrong - 1]), differences, lines)
    say(f"{len(numbers)} orders, {states} states compared, {differing} orders differ")
    for kind, count in sorted(kinds.items()):
        say(f"  {count:4} {kind}")
    return differing


def report_difference(folder, step, differences, lines):
    """Prints what differs after a step, where its logs are, and what its log means."""
    for line in differences[:40]:
        say(f"    {line}")
    if len(differences) > 40:
        say(f"    and {len(differences) - 40} more")
    for line in lines[-2:]:
        if line.startswith(("lives:", "the program")):
            say(f"    {line}")
    say(f"    the logs are in {folder}")
    log = folder / f"{step}.log"
    if log.is_file():
        for line in explained(log):
            say(f"      {line}")


def measure(rig, place):
    """The times of an upgrade that is not killed: the folder aside, the data converted, the end."""
    chance = random.Random(place.name)
    lines = rig.run(kills.measuring(place, chance, rig.codes), "measured")
    said, _ = kills.parse(lines)
    code, *times = said.get(("watch", "measured"), ["-1", "0", "0", "0"])
    if code != "0":
        raise PackageError(f"the upgrade with the data {place.name} fails without a kill, with {code}: " + " ".join(lines[-3:]))
    return [int(word) for word in times]


def kill(rig, place, seed, moment, name):
    """Kills an upgrade and tries it again. If the upgrade ends before the kill, begins again with an earlier moment. Returns
    the output, and whether the upgrade was killed."""
    for _ in range(ATTEMPTS):
        lines = rig.run(kills.killing(place, random.Random(seed), rig.codes, moment), name)
        said, _ = kills.parse(lines)
        if said.get(("kill", "killed"), [""])[0] != "ended":
            break
        moment = int(moment[0] * EARLIER), moment[1]
    return lines, said.get(("kill", "killed"), [""])[0] == "killed"


def run_kills(rig, seed, numbers):
    """Runs the kills. Returns how many went wrong."""
    times, phases, losses, refused = {}, Counter(), 0, 0
    for number in numbers:
        place = kills.PLACES[number % len(kills.PLACES)]
        if place not in times:
            times[place] = measure(rig, place)
        chance = kills.random_of(seed, number)
        moment = kills.moment(chance, number, times[place])
        name = f"kill-{number:03}"
        lines, was_killed = kill(rig, place, chance.random(), moment, name)
        phase = kills.phase_of(log_text(rig.logs / name / "killed.log")) if was_killed else "after the end"
        again = rig.logs / name / "again.log"
        wrong = kills.judge(place, lines, log_text(again) if again.is_file() else "")
        phases[phase] += 1
        losses += bool(wrong)
        refused += kills.is_refused(kills.parse(lines)[0])
        then = "; refused, and put back" if kills.is_refused(kills.parse(lines)[0]) else ""
        say(f"kill {number}: data {place.name}; {phase}{then}: {'WRONG' if wrong else 'the data are whole'}")
        for line in wrong:
            say(f"    {line}")
        if wrong:
            say(f"    the logs are in {rig.logs / name}")
    say(f"{len(numbers)} kills, {refused} with an attempt that was refused, {losses} with a loss")
    for phase, count in sorted(phases.items()):
        say(f"  {count:4} {phase}")
    return losses


def run_lives(rig, seed, order_numbers, kill_numbers):
    """Runs all of it. Returns how many orders and kills went wrong."""
    wrong = run_orders(rig, seed, order_numbers) if order_numbers else 0
    return wrong + (run_kills(rig, seed, kill_numbers) if kill_numbers else 0)


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--builds", type=Path, required=True)
    parser.add_argument("--logs", type=Path, required=True)
    parser.add_argument("orders", type=numbers_of)
    parser.add_argument("kills", type=numbers_of)
    parser.add_argument("seed", type=int, nargs="?")
    parsed = parser.parse_args(arguments)
    seed = random.SystemRandom().randrange(SEEDS) if parsed.seed is None else parsed.seed
    say(f"seed {seed}")
    begun = time.monotonic()
    try:
        with tempfile.TemporaryDirectory(prefix="hx-lives-") as folder:
            rig = Rig(parsed.builds, Path(folder), parsed.logs)
            wrong = run_lives(rig, seed, parsed.orders, parsed.kills)
        copy_page(parsed.logs)
    except (PackageError, Ended, OSError) as error:
        print(f"hx: {error}", file=sys.stderr)
        return 1
    say(f"seed {seed}: {wrong} wrong, in {time.monotonic() - begun:.0f} seconds; the logs are in {parsed.logs}")
    return int(wrong > 0)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
