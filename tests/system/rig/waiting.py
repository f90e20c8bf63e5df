"""Waiting for conditions instead of for the clock."""

import time


class TimedOut(AssertionError):
    """A condition did not come true in time."""


def until(condition, what, timeout_s=30.0, poll_s=0.05):
    """Returns the first true value of condition(); raises TimedOut naming what was waited for."""
    deadline = time.monotonic() + timeout_s
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise TimedOut(f"waited {timeout_s:.0f} s in vain for {what}")
        time.sleep(poll_s)
