"""Random orders of steps, run in a Windows, each machine state compared with the model."""

import random
import re

from lives.kills import NOTE
from lives.model import GONE, Machine
from lives.packages import CANCELLED, STOP_FOLDER

# The number of steps of an order: at least, at most.
LENGTHS = 4, 8
# How often each kind of step is chosen, compared with the others that can be taken.
WEIGHTS = {"install": 6, "repair": 2, "remove": 2, "fail": 2, "cancel": 1, "use": 3, "restore": 3}
# What msiexec is given for each kind of step, after the package.
ARGUMENTS = {"install": "/i", "repair": "/i", "fail": "/i", "cancel": "/i", "remove": "/x"}
PACKAGES = {"fail": "fails", "cancel": "cancels"}
REPAIR = " REINSTALL=ALL REINSTALLMODE=amus"
ACCOUNT = " PROP_ACCOUNTTYPE=1"
# The list of libraries, without which the client's hook does nothing.
LIBRARIES = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows", "AppInit_DLLs"

# What the system starts when it needs it.
SYSTEMS_OWN = {"service RpcSs"}

STAMP = re.compile(r" (\d{4}-\d\d-\d\d \d\d-\d\d-\d\d)\\")


def order_of(seed, number, machine):
    """The order with this number: its steps, each (product, kind, version). The same seed and number make the same order."""
    chance = random.Random(f"{seed}/{number}")
    steps = []
    for _ in range(chance.randint(*LENGTHS)):
        choices = machine.steps()
        # First the kind, because a kind with more versions would be taken more often.
        kinds = sorted({kind for _, kind, _ in choices})
        taken = chance.choices(kinds, [WEIGHTS[kind] for kind in kinds])[0]
        step = chance.choice([step for step in choices if step[1] == taken])
        machine.take(*step)
        steps.append(step)
    return steps


def title(step):
    return " ".join(word for word in step if word)


def log_name(number, step):
    return "-".join((f"{number:02}", *(word for word in step if word)))


def instructions(steps, codes, machine):
    """What the program in the Windows is told to do for an order."""
    lines = [f"name\t{code}\t{{{name}}}" for name, code in codes.items() if not name.endswith(("-fails", "-cancels"))]
    lines += [f"folder\t{STOP_FOLDER[:-1]}", "\t".join(("setting", *LIBRARIES, "")), "start"]
    for number, step in enumerate(steps, 1):
        product, kind, version = step
        machine.take(*step)
        if kind == "use":
            server = machine.products["server"]
            folder = server.folder + "Data\\"
            lines += [f"once\t{folder}format.txt\t1", f"text\t{folder}counts {server.uses}.dat\tcounts {server.uses}"]
        elif kind == "restore":
            lines.append(f"restore\t{log_name(number, step)}\t{NOTE}")
        else:
            if kind == "cancel":
                lines.append(f"text\t{CANCELLED}\tcancelled")
            package = f'"Z:\\run\\{product}-{PACKAGES.get(kind, version)}.msi"'
            if kind == "remove":
                # By its code: this engine runs the removal of a package whose product is not there.
                package = codes[f"{product}-{version}"]
            more = (REPAIR if kind == "repair" else "") + (ACCOUNT if product == "other" and kind != "remove" else "")
            # What is renamed gets the time to the second: two names in a second would be the same.
            lines += ["pause\t1100"] if product == "server" else []
            lines.append(f"run\t{log_name(number, step)}\t{ARGUMENTS[kind]} {package} /qn{more}")
        lines.append(f"state\t{log_name(number, step)}")
    return lines


def parse(lines):
    """The output of the program: {name: the engine's result}, {name: the lines of the state}."""
    results, states, state = {}, {}, None
    for line in lines:
        word, _, rest = line.partition(" ")
        if state is not None:
            if line == "end":
                state = None
            else:
                state.append(line)
        elif word == "run":
            name, _, code = rest.rpartition(" ")
            results[name] = int(code)
        elif word == "state":
            state = states[rest] = []
    return results, states


def seen(lines):
    """The entries of a state as the model says them: {name: value}. A time after a name reads "#1", "#2" ..., the oldest
    first. An entry that is gone has the value "(gone)"."""
    stamps = {}
    for line in lines:
        for match in STAMP.finditer(line):
            stamps.setdefault(line[2:match.start()], set()).add(match[1])
    found = {}
    for line in lines:
        sign, rest = line[0], line[2:]
        match = STAMP.search(rest)
        if match:
            base = rest[:match.start()]
            number = sorted(stamps[base]).index(match[1]) + 1
            rest = f"{base} #{number}\\{rest[match.end():]}"
        name, _, value = rest.partition(" = ")
        if name in SYSTEMS_OWN:
            continue
        found[name] = GONE if sign == "-" else value
    return found


def differences(expected, found):
    """What the machine has differently from the model, one line each."""
    lines = []
    for name in sorted({*expected, *found}):
        if name not in found:
            lines.append(f"missing:    {name}" + (f" = {expected[name]}" if expected[name] else ""))
        elif name not in expected:
            lines.append(f"unexpected: {name}" + (f" = {found[name]}" if found[name] else ""))
        elif expected[name] != found[name]:
            lines.append(f"different:  {name} = {found[name]}, not {expected[name]}")
    return lines


def judge(steps, machine, lines):
    """Compares what the program printed with the model, step by step. Returns the number of the first step that differs and
    the differences, or (None, [])."""
    results, states = parse(lines)
    for number, step in enumerate(steps, 1):
        name = log_name(number, step)
        expected = machine.take(*step)
        found = []
        if expected is not None and results.get(name) != expected:
            found.append(f"result {results.get(name)}, not {expected}")
        found += differences(machine.entries(), seen(states[name])) if name in states else ["the state is missing"]
        if found:
            return number, found
    return None, []
