"""Sees the machine stand still: whether a thread of the sound's own priority is kept waiting, on any processor."""

import os
import pathlib
import subprocess
import sys
import threading
import time

from . import processes

PERIOD_S = 0.02
LATE_S = 0.05  # sound is handed on every 10 ms, out of a buffer of a few times that


class Witness:
    """A child that looks on until it is stopped."""

    def __init__(self, folder):
        self._notes = folder / "stalls"
        with open(self._notes, "wb") as out:
            self.process = processes.start([sys.executable, "-B", "-m", "rig.witness"], stdout=out,
                                            stderr=subprocess.DEVNULL, with_sound=True,
                                            cwd=pathlib.Path(__file__).resolve().parent.parent)

    def longest_stall_s(self):
        """0 when no thread was kept waiting for longer than LATE_S so far."""
        return max(map(float, self._notes.read_text("ascii").split()), default=0.0)

    def stop(self):
        processes.end(self.process)


def watch(processor):
    os.sched_setaffinity(0, {processor})
    while True:
        begun = time.monotonic()
        time.sleep(PERIOD_S)
        late = time.monotonic() - begun - PERIOD_S
        if late > LATE_S:
            os.write(1, f"{late:.3f}\n".encode())  # in one piece: the threads share the file


if __name__ == "__main__":
    for each in os.sched_getaffinity(0):
        threading.Thread(target=watch, args=(each,)).start()
