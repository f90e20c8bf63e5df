"""Waits for conditions."""

import time

# Callers choose a limit for a calm machine. It only ends a test that hangs, so a busy machine gets a limit that is longer by this
# factor, but at most by so many seconds.
PATIENCE, MOST_ADDED_S = 3, 300
# Most conditions start a program or read a file, which delays the sound of other tests: it happens less often after SOON_S.
POLL_S, SOON_S, LATER_POLL_S = 0.05, 1, 0.25


def patient(limit_s):
    """The limit that a busy machine gets."""
    return min(PATIENCE * limit_s, limit_s + MOST_ADDED_S)


class TimedOut(AssertionError):
    """A condition did not become true in time."""


def until(condition, what, timeout_s=30.0):
    """Returns the first true value of condition(). Raises TimedOut with `what`, the description of the condition, after
    patient(timeout_s)."""
    limit_s = patient(timeout_s)
    begin = time.monotonic()
    while True:
        value = condition()
        if value:
            return value
        waited_s = time.monotonic() - begin
        if waited_s > limit_s:
            raise TimedOut(f"timed out after {limit_s:.0f} s waiting for {what}")
        time.sleep(POLL_S if waited_s < SOON_S else LATER_POLL_S)
