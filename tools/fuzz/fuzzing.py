"""Running the fuzzer: one target, on the library or on one with a bug in it."""

import os
import re
import resource
import shutil
import subprocess
from pathlib import Path
from typing import NamedTuple, Optional

ROOT = Path(__file__).resolve().parents[2]
CORPUS = ROOT / "fuzz/corpus"
FOUND = ROOT / "build/fuzz/found"
# For a target whose input is text: words that the fuzzer puts into it.
WORDS = ROOT / "fuzz/words"
# What make_image links, and its objects.
BUILD = ROOT / "build/x64-fuzz"

# The targets, in the order of a run of all.
TARGETS = ("formats", "raw-formats", "locale", "dates", "paths", "wildcards", "engine", "actions")

# The names of the inputs, in the corpus of a target, that find the target's planted bugs: "planted", "planted-2", ...
PLANTED = "planted"

# The longest inputs of a target, in bytes.
LONGEST_INPUT = 4096
# One run that takes more seconds than this has found something.
SLOWEST_RUN = 10
# The memory that the fuzzer may use, in megabytes.
MEMORY = 2048

# Without these the fuzzer watches each allocation: the targets count the library's blocks themselves.
FASTER = ("-detect_leaks=0", "-malloc_limit_mb=0")

# The image is loaded there (fuzz/image.cpp), and linked for there.
LOADED_AT, LINKED_AT = 0x480000000000, 0x180000000
PLACE = re.compile(r"0x(4800[0-9a-f]{8})\s+\(<unknown module>\)")


class Tools(NamedTuple):
    """The fuzzer and the library that it loads."""
    program: Path
    image: Path


class Ended(NamedTuple):
    """How the fuzzer ended."""
    status: int
    # Everything that it printed.
    output: str
    # The processor time that it took, in seconds.
    processor: float


class Result(NamedTuple):
    """What a run of the fuzzer did."""
    runs: int
    # Runs in a second, and in a second of processor time.
    speed: int
    processor_speed: int
    # The edges of the library that were reached, and all that it has.
    edges: int
    all_edges: int
    # The input that fails, if one was found.
    input: Optional[Path]
    # Everything that the fuzzer printed.
    output: str

    @property
    def message(self):
        """The line that says what is wrong."""
        for pattern in (r"^hxfuzz: (.*)", r"^SUMMARY: AddressSanitizer: (.*)", r"^SUMMARY: (.*)"):
            if found := re.search(pattern, self.output, re.MULTILINE):
                return found[1]
        lines = self.output.splitlines()
        return lines[-1] if lines else "the fuzzer printed nothing"


def tools_of(folder):
    """The fuzzer and the library that ./hx has copied into the folder of this run."""
    return Tools(folder / "fuzz/hxfuzz", folder / "x64-fuzz/hxinternals.dll")


def processor_time():
    """The processor time of all processes that have ended, in seconds."""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def start(tools, target, words, folder):
    """Runs the fuzzer for a target with the words of its command line. Returns how it ended."""
    command = [tools.program, *words, f"-artifact_prefix={folder}/", f"-timeout={SLOWEST_RUN}", f"-rss_limit_mb={MEMORY}",
               f"-max_len={LONGEST_INPUT}", *FASTER]
    if (WORDS / f"{target}.txt").is_file():
        command.append(f"-dict={WORDS / target}.txt")
    # The address checks' own search for leaks cannot see into the image. Freed blocks are watched within a run, which frees
    # much less than 16 MB; without that limit the search takes new memory all the time.
    environment = {**os.environ, "HX_FUZZ_TARGET": target, "HX_FUZZ_IMAGE": str(tools.image),
                   "ASAN_OPTIONS": "detect_leaks=0:allocator_may_return_null=1:quarantine_size_mb=16"}
    before = processor_time()
    ended = subprocess.run([str(word) for word in command], env=environment, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, check=False)
    return Ended(ended.returncode, ended.stdout.decode(errors="replace"), processor_time() - before)


def read_result(ended):
    """The result of a run that ended so."""
    status, output, processor = ended

    def number(pattern):
        found = re.findall(pattern, output)
        return int(found[-1]) if found else 0

    kept = re.findall(r"Test unit written to (\S+)", output)
    if not kept:
        kept = re.findall(r"^Running: (\S+)", output, re.MULTILINE)
    found = Path(kept[-1]) if status and kept else None
    if status and not found:
        # The fuzzer itself could not run.
        raise SystemExit(f"the fuzzer ended with status {status}:\n{output[-2000:]}")
    runs = number(r"stat::number_of_executed_units:\s*(\d+)")
    return Result(runs, number(r"stat::average_exec_per_sec:\s*(\d+)"), round(runs / processor) if processor else 0,
                  number(r"cov: (\d+)"), number(r"\((\d+) inline 8-bit counters\)"), found, output)


def fuzz(tools, target, folder, seeds=None, seconds=None, runs=None, seed=None):
    """Fuzzes a target for some seconds, or for a number of runs. New inputs go to `folder`/new; it begins with those of the
    folder `seeds`. Stops at the first input that fails."""
    new = folder / "new"
    new.mkdir(parents=True, exist_ok=True)
    words = [new, *([seeds] if seeds else []), "-print_final_stats=1", "-reload=0"]
    words += [f"-max_total_time={seconds}"] if seconds else []
    words += [f"-runs={runs}"] if runs is not None else []
    words += [f"-seed={seed}"] if seed else []
    return read_result(start(tools, target, words, folder))


def replay(tools, target, inputs, folder):
    """Runs a target once with each of the files `inputs`. Stops at the first one that fails."""
    folder.mkdir(parents=True, exist_ok=True)
    return read_result(start(tools, target, ["-runs=1", *inputs], folder))


def merge(tools, target, folders, into, folder):
    """Writes to the folder `into` as few inputs from `folders` as reach every edge that these reach."""
    into.mkdir(parents=True)
    ended = start(tools, target, ["-set_cover_merge=1", "-use_counters=0", into, *folders], folder)
    if ended.status:
        raise SystemExit(f"the inputs of {target} cannot be merged:\n{ended.output[-2000:]}")


def name_places(text, image):
    """The report with the names of functions, files and lines in place of addresses in the library."""
    addresses = sorted(set(PLACE.findall(text)))
    if not addresses:
        return text
    asked = "".join(f"0x{int(address, 16) - LOADED_AT + LINKED_AT:x}\n" for address in addresses)
    answer = subprocess.run(["llvm-symbolizer-19", f"--obj={image}", "--output-style=GNU", "--no-inlines"], input=asked,
                            stdout=subprocess.PIPE, text=True, check=True).stdout.splitlines()
    names = {address: f"{function} {place}" for address, function, place in zip(addresses, answer[::2], answer[1::2])}
    return PLACE.sub(lambda match: names[match[1]], text)


def corpus(target):
    """The inputs of a target that are in the repository."""
    return sorted((CORPUS / target).iterdir()) if (CORPUS / target).is_dir() else []


def planted_name(index):
    """The name of the input that finds the planted bug `index` of a target, counted from 0."""
    return PLANTED if index == 0 else f"{PLANTED}-{index + 1}"


def replace_corpus(target, folder):
    """Puts the inputs of a folder in the place of the target's corpus, but keeps those that find the planted bugs."""
    for file in corpus(target):
        if not file.name.startswith(PLANTED):
            file.unlink()
    (CORPUS / target).mkdir(parents=True, exist_ok=True)
    for file in sorted(folder.iterdir()):
        shutil.copyfile(file, CORPUS / target / file.name)
