"""Detects stalls of the machine: periods in which a thread could not run, although it has priority over all sound, or in
which it could not write to the disk."""

import os
import pathlib
import subprocess
import sys
import threading
import time

from . import damage, processes

PERIOD_S = 0.02
# Even if real-time threads never wait, the kernel gives 50 ms of each second to ordinary threads. A shorter delay can be the
# fault of the sound that is watched.
MIN_STALL_S = 0.06


class StallMonitor:
    """A child process that measures until it is stopped."""

    def __init__(self, folder):
        self._stalls = folder / "stalls"
        with open(self._stalls, "wb") as out:
            self.process = processes.start([sys.executable, "-B", "-m", "rig.stall_monitor", folder / "stalls.disk"], stdout=out,
                                           stderr=subprocess.DEVNULL,
                                           cwd=pathlib.Path(__file__).resolve().parent.parent)

    def stalls(self):
        """The stalls so far that were longer than MIN_STALL_S."""
        lines = self._stalls.read_text("ascii").splitlines()
        return [damage.Stall(*map(float, line.split()[:2])) for line in lines]

    def stop(self):
        processes.end(self.process)


def _print_if_late(begin, expected_s, what):
    """Prints begin and end of a period that took too long, in one system call, because all threads write to one file."""
    end = time.time()
    if end - begin - expected_s > MIN_STALL_S:
        os.write(1, f"{begin:.3f} {end:.3f} {what}\n".encode())


def watch_processor(processor):
    """Sleeps repeatedly on one processor."""
    os.sched_setaffinity(0, {processor})
    processes.give_monitor_priority(0)
    while True:
        begin = time.time()
        time.sleep(PERIOD_S)
        _print_if_late(begin, PERIOD_S, f"processor {processor}")


def watch_disk(path):
    """Writes repeatedly to a file, as the module's log and the host's recording are written."""
    processes.give_monitor_priority(0)
    with open(path, "wb", buffering=0) as out:
        while True:
            begin = time.time()
            out.seek(0)
            out.write(b"x" * 4096)
            _print_if_late(begin, 0, "disk")
            time.sleep(PERIOD_S)


if __name__ == "__main__":
    for each in os.sched_getaffinity(0):
        threading.Thread(target=watch_processor, args=(each,)).start()
    threading.Thread(target=watch_disk, args=(sys.argv[1],)).start()
