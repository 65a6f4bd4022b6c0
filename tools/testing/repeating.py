"""Decides which tests run a second time.

An install test runs many processes, of the installer and of the system, and waits for them. Every one that failed runs
again, once, in a fresh Windows, when no other test is running: so a machine that was busy for a moment fails no run.

On ARM64 the programs run under emulation, and the emulator has faults that are not faults of the library:
- The emulator itself ends with a segmentation fault: its program starts again, at most twice.
- It crashes in another process, or loses one without a message: every test that failed, of any level, runs again in the
  same way.
"""

from testing.planning import EMULATED

# A Windows program that crashes ends with the low byte of its exception; only the emulator itself ends by this signal.
EMULATOR_CRASHED = 139
ATTEMPTS = 3

# Replaces the name of a test if a program broke off before its first test.
BEFORE_THE_FIRST = "(the program's start)"


def starts_again(processor, status, attempt):
    """True if a program that ended with `status` in its attempt number `attempt`, from 1, starts again at once."""
    return processor == EMULATED and status == EMULATOR_CRASHED and attempt < ATTEMPTS


def broken_off(stream):
    """The tests that count as run again after a program that broke off ran once more: those that had failed by then, and
    the one in which it ended. The others ran only once, or passed before."""
    if stream.total is not None and stream.done >= stream.total:
        return stream.failed
    # Between two tests it is the last one that ended.
    last = stream.running or stream.last or BEFORE_THE_FIRST
    return list(dict.fromkeys([*stream.failed, last]))


def second_run(program, failed, stream):
    """The second run of a program: (its filter, the tests that count as run again); None if it does not run again.

    `failed` are the names of its failed tests; None if it broke off before it wrote its results: then all its tests run
    again. `stream` is the progress that it printed."""
    if program.processor != EMULATED and program.level != "install":
        return None
    if failed is None:
        return program.filter or "*", broken_off(stream)
    return (":".join(failed), failed) if failed else None
