"""Limits the repeated recordings of a whole run, and lists them for the end of scripts/test.

scripts/test names a file in VELTO_REPEATS, which all tests of the run share. A test that runs alone has its own limit."""

import fcntl
import os

MOST = 6
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


def note_accepted(reason):
    """Lists damage that was accepted, because the machine stalled."""
    path = os.environ.get("VELTO_REPEATS")
    if path:
        with open(path, "a", encoding="utf-8") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            file.write(f"{ACCEPTED}: {reason}\n")
