"""Which tests run a second time, and why. On x64 none does.

On ARM64 the programs run under emulation, and the emulator has faults of its own, which say nothing about the library:
- the emulator itself ends by a segmentation fault: its program starts again, at most twice;
- it crashed in another process of that Windows: the tests that failed there run again, once, in a fresh Windows;
- it loses the process of a service without a word: every install test that failed runs again, once, likewise.
"""

from testing.planning import EMULATED

# A Windows program that crashes ends with the low byte of its exception; only the emulator itself ends by this signal.
EMULATOR_CRASHED = 139
ATTEMPTS = 3

# What the emulator says when it crashes in a process.
CRASH_TEXT = "qemu: uncaught target signal"

# Stands for a test if a program broke off before its first one.
BEFORE_THE_FIRST = "(the program's start)"


def starts_again(program, status, attempt):
    """Whether a program that ended with `status` in its attempt number `attempt`, from 1, starts again at once."""
    return program.processor == EMULATED and status == EMULATOR_CRASHED and attempt < ATTEMPTS


def broken_off(stream):
    """The tests of a program that broke off which count as run again when it has run once more: those that had failed by
    then, and the one in which it ended. The rest ran once only, or passed before."""
    if stream.total is not None and stream.done >= stream.total:
        return stream.failed
    # Between two tests it is the one before.
    last = stream.running or stream.last or BEFORE_THE_FIRST
    return list(dict.fromkeys([*stream.failed, last]))


def second_run(program, failed, stream, emulator_crashed):
    """(the filter of a program's second run, the tests that count as run again), or None if there is none.

    `failed` are the names of its failed tests, None if it broke off before it wrote its results: it then runs whole.
    `stream` is what it said; `emulator_crashed` is true if CRASH_TEXT came in its lane."""
    if program.processor != EMULATED or not (program.level == "install" or emulator_crashed):
        return None
    if failed is None:
        return program.filter or "*", broken_off(stream)
    return (":".join(failed), failed) if failed else None
