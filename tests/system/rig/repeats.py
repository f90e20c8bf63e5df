"""Limits the repeated recordings of a whole run, delays them until the machine is calm, and lists them for the end of
scripts/test, with the sound that could not be measured.

scripts/test names a file in VELTO_REPEATS, which all tests of the run share. A test that runs alone has its own limit."""

import contextlib
import fcntl
import os
import time

MOST = 6
# Stalls come in groups, for example while the host of a virtual machine is busy. Groups of more than two minutes were seen.
CALM_S, LONGEST_WAIT_S = 5, 180
# All waits of one test program together: its time limit has room for them.
MOST_WAITING_S = 300
# How long a test looks for stolen time before it starts, and how much of a processor may be stolen.
LOOK_S, MOST_STOLEN = 0.3, 0.07
REPEATED, ACCEPTED, REFUSED = "repeated", "accepted", "not repeated, because the run had reached its limit"
UNMEASURED = "NOT MEASURED"

_own = []  # the entries of a test that runs alone
_waited_s = 0.0


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


@contextlib.contextmanager
def _limited_wait(clock):
    """Yields the time at which a wait has to end."""
    global _waited_s
    begin = clock.time()
    yield begin + min(LONGEST_WAIT_S, MOST_WAITING_S - _waited_s)
    _waited_s += clock.time() - begin


def wait_for_calm(stalls, clock=time):
    """Waits until the machine has not stalled for CALM_S, but at most LONGEST_WAIT_S. stalls(): all stalls so far."""
    with _limited_wait(clock) as limit:
        while True:
            last = max((stall.end for stall in stalls()), default=0)
            calm = min(last + CALM_S, limit)
            now = clock.time()
            if calm <= now:
                return
            clock.sleep(calm - now)


def stolen_s():
    """The time that the host of a virtual machine has stolen from all processors so far."""
    with open("/proc/stat", encoding="ascii") as file:
        return int(file.readline().split()[8]) / os.sysconf("SC_CLK_TCK")


def wait_for_idle_host(stolen=stolen_s, clock=time):
    """While the host of a virtual machine steals time, waits until it has not done so for CALM_S, but at most LONGEST_WAIT_S.
    Costs LOOK_S if the host steals nothing."""
    calm_s, look_s = 0, LOOK_S
    with _limited_wait(clock) as limit:
        while clock.time() < limit:
            before = stolen()
            clock.sleep(look_s)
            calm_s = calm_s + look_s if stolen() - before <= MOST_STOLEN * look_s else 0
            if look_s == LOOK_S and calm_s or calm_s >= CALM_S:
                return
            look_s = 1


def note_accepted(reason):
    """Lists damage that was accepted, because the machine stalled."""
    _note(f"{ACCEPTED}: {reason}")


def note_unmeasured(reason):
    """Lists sound that could not be measured, because the machine spoiled each recording."""
    _note(f"{UNMEASURED}: {reason}")


def _note(line):
    path = os.environ.get("VELTO_REPEATS")
    if path:
        with open(path, "a", encoding="utf-8") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            file.write(line + "\n")
