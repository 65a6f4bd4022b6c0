"""How a run ends if the front of ./hx, which waits for it, was killed."""

import os
import signal


def end_group(*_):
    """Handles the signal that comes then: ends the whole group of processes."""
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
    os.killpg(0, signal.SIGTERM)
    os._exit(128 + signal.SIGTERM)


def end_with_front():
    """Ends all processes of this run with the front. Does nothing in a process that another one has started for itself."""
    if os.getpgrp() == os.getpid():
        signal.signal(signal.SIGTERM, end_group)
