"""Limits the repeated recordings of a whole run, delays them until the machine is calm, and lists them for the end of
scripts/test.

scripts/test names a file in VELTO_REPEATS, which all tests of the run share. A test that runs alone has its own limit."""

import fcntl
import os
import time

MOST = 6
# Stalls come in groups, for example while the host of a virtual machine is busy. Groups of more than two minutes were seen.
CALM_S, LONGEST_WAIT_S = 5, 180
REPEATED, ACCEPTED, REFUSED = "repeated", "accepted", "not repeated, because the run had reached its limit"

_own = []  # the entries of a test that runs alone


def may_repeat(reason):
    """Counts a repeated recording. False if the run has had MOST already."""
    path = os.environ.get("VELTO_REPEATS")
    if not path:
        is_allowed = len(_own) < MOST
        _own.append(reason)
        return is_allowed
    with open(path, "a+", encoding="utf-8") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        file.seek(0)
        is_allowed = sum(line.startswith(REPEATED + ":") for line in file) < MOST
        file.write(f"{REPEATED if is_allowed else REFUSED}: {reason}\n")
    return is_allowed


def wait_for_calm(stalls, clock=time):
    """Waits until the machine has not stalled for CALM_S, but at most LONGEST_WAIT_S. stalls(): all stalls so far."""
    limit = clock.time() + LONGEST_WAIT_S
    while True:
        last = max((stall.end for stall in stalls()), default=0)
        calm = min(last + CALM_S, limit)
        now = clock.time()
        if calm <= now:
            return
        clock.sleep(calm - now)


def note_accepted(reason):
    """Lists damage that was accepted, because the machine stalled."""
    path = os.environ.get("VELTO_REPEATS")
    if path:
        with open(path, "a", encoding="utf-8") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            file.write(f"{ACCEPTED}: {reason}\n")
