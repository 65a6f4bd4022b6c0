"""Runs programs one after the other in a Windows."""

import contextlib
import os
import select
import shlex
import subprocess
from pathlib import Path

SERVE = Path(__file__).resolve().parent / "serve.sh"


class Ended(Exception):
    """Windows ended unexpectedly."""


class Windows:
    """One Windows, for a "with" statement: starts it and ends it. `folder` is its Z:\\run. `number` must differ between
    those that run at the same time. `limit` is the number of seconds that a program may take; its status is 124 if it takes
    longer. `rest` is called with each line that comes after the last program. Tests replace the command `serve`.

    The Windows ends when the thread that opened it ends."""

    def __init__(self, processor, folder, number, limit, rest, serve=SERVE):
        take, give = os.pipe()
        self.process = subprocess.Popen(
            [serve, processor, str(folder), str(give)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, pass_fds=(give,),
            env={**os.environ, "HX_LANE": str(number), "HX_TIME_LIMIT": str(limit)})
        os.close(give)
        self.statuses = take
        self.rest = rest
        self.output = self.process.stdout.fileno()
        self.line = b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with contextlib.suppress(BrokenPipeError):
            self.process.stdin.close()
        while self.read_output(self.rest):
            pass
        self.end_line(self.rest)
        self.process.wait()
        self.process.stdout.close()
        os.close(self.statuses)

    def run(self, variables, command, show):
        """Runs a program of the file tree with these environment variables. Calls `show` with each line of its output,
        including errors. Returns its exit status; raises Ended if Windows ends without one."""
        words = [f"{name}={value}" for name, value in variables.items()] + command
        try:
            self.process.stdin.write(shlex.join(words).encode() + b"\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            pass  # Its last output is read below.
        status = b""
        while not status.endswith(b"\n"):
            ready, _, _ = select.select([self.output, self.statuses], [], [])
            # Reads the output first: everything that the program printed is there before its status.
            if self.output in ready:
                open_still = self.read_output(show)
            else:
                status += (piece := os.read(self.statuses, 64))
                open_still = bool(piece)
            if not open_still:
                while self.read_output(show):
                    pass
                self.end_line(show)
                raise Ended("Windows ended unexpectedly")
        while select.select([self.output], [], [], 0)[0] and self.read_output(show):
            pass
        self.end_line(show)
        return int(status)

    def read_output(self, show):
        """Reads the available output; returns false at its end."""
        piece = os.read(self.output, 65536)
        *lines, self.line = (self.line + piece).split(b"\n")
        for line in lines:
            show(line.decode(errors="replace").rstrip("\r"))
        return bool(piece)

    def end_line(self, show):
        """Shows a last line that has no line end."""
        if self.line:
            show(self.line.decode(errors="replace").rstrip("\r"))
            self.line = b""
