"""Waits for conditions."""

import time


class TimedOut(AssertionError):
    """A condition did not become true in time."""


def until(condition, what, timeout_s=30.0, poll_s=0.05):
    """Returns the first true value of condition(). Raises TimedOut with `what`, the description of the condition."""
    deadline = time.monotonic() + timeout_s
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise TimedOut(f"timed out after {timeout_s:.0f} s waiting for {what}")
        time.sleep(poll_s)
