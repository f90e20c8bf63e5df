"""Detects stalls of the machine: periods in which a thread with sound priority had to wait for a processor."""

import os
import pathlib
import subprocess
import sys
import threading
import time

from . import processes

PERIOD_S = 0.02
MIN_STALL_S = 0.05  # sound moves every 10 ms, and its buffers are a few times as long


class StallMonitor:
    """A child process that measures until it is stopped."""

    def __init__(self, folder):
        self._stalls = folder / "stalls"
        with open(self._stalls, "wb") as out:
            self.process = processes.start([sys.executable, "-B", "-m", "rig.stall_monitor"], stdout=out,
                                           stderr=subprocess.DEVNULL, with_sound=True,
                                           cwd=pathlib.Path(__file__).resolve().parent.parent)

    def longest_stall_s(self):
        """The longest stall so far, or 0 if none was longer than MIN_STALL_S."""
        return max(map(float, self._stalls.read_text("ascii").split()), default=0.0)

    def stop(self):
        processes.end(self.process)


def print_stalls(processor):
    """Sleeps repeatedly on one processor. If a sleep was too long, prints by how many seconds."""
    os.sched_setaffinity(0, {processor})
    while True:
        begin = time.monotonic()
        time.sleep(PERIOD_S)
        late_s = time.monotonic() - begin - PERIOD_S
        if late_s > MIN_STALL_S:
            os.write(1, f"{late_s:.3f}\n".encode())  # one system call, because all threads write to one file


if __name__ == "__main__":
    for each in os.sched_getaffinity(0):
        threading.Thread(target=print_stalls, args=(each,)).start()
