"""Detects stalls of the machine: periods in which a thread could not run, although it has priority over all sound, or in
which it could not write to the disk.

In a virtual machine, the kernel counts the time in which a processor had work, but the host of the machine ran something
else. Shorter delays count as stalls if they come with such stolen time, because the sound that is watched does not explain them.
"""

import collections
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
# Seen here: a delay of 15 ms with stolen time, and a slip of 1 ms in the sound of one of the programs.
MIN_DELAY_WITH_STOLEN_TIME_S = 0.006
# Many short interruptions delay sound, too.
STOLEN_SPAN_S, MIN_STOLEN_S = 0.2, 0.02


class StallMonitor:
    """A child process that measures until it is stopped."""

    def __init__(self, folder):
        self._stalls = folder / "stalls"
        with open(self._stalls, "wb") as out:
            self.process = processes.start([sys.executable, "-B", "-m", "rig.stall_monitor", folder / "stalls.disk"], stdout=out,
                                           stderr=subprocess.DEVNULL,
                                           cwd=pathlib.Path(__file__).resolve().parent.parent)

    def stalls(self):
        """The stalls so far."""
        lines = self._stalls.read_text("ascii").splitlines()
        return [damage.Stall(*map(float, line.split()[:2])) for line in lines]

    def stop(self):
        processes.end(self.process)


def _print_stall(begin, end, what):
    """Prints a line in one system call, because all threads write to one file."""
    os.write(1, f"{begin:.3f} {end:.3f} {what}\n".encode())


class StolenTime:
    """The time that the host of a virtual machine has stolen from a processor so far."""

    def __init__(self, processor):
        self._name = f"cpu{processor}".encode()
        self._file = os.open("/proc/stat", os.O_RDONLY)
        self._ticks_per_s = os.sysconf("SC_CLK_TCK")

    def seconds(self):
        for line in os.pread(self._file, 65536, 0).splitlines():
            fields = line.split()
            if fields[0] == self._name:
                return int(fields[8]) / self._ticks_per_s
        return 0.0


def is_stall(delay_s, stolen_s, stolen_in_span_s):
    """delay_s: how much too long a period took. stolen_s: the stolen time in it. stolen_in_span_s: in the last STOLEN_SPAN_S."""
    return (delay_s > MIN_STALL_S or delay_s > MIN_DELAY_WITH_STOLEN_TIME_S and stolen_s > 0
            or stolen_s > 0 and stolen_in_span_s >= MIN_STOLEN_S)


def watch_processor(processor):
    """Sleeps repeatedly on one processor."""
    os.sched_setaffinity(0, {processor})
    processes.give_monitor_priority(0)
    stolen = StolenTime(processor)
    span = collections.deque([(time.time(), stolen.seconds())], maxlen=round(STOLEN_SPAN_S / PERIOD_S))
    while True:
        begin, before = time.time(), span[-1][1]
        time.sleep(PERIOD_S)
        end, now = time.time(), stolen.seconds()
        span_begin, span_before = span[0]
        span.append((end, now))
        delay_s = end - begin - PERIOD_S
        if is_stall(delay_s, now - before, now - span_before):
            is_single = is_stall(delay_s, now - before, 0)
            _print_stall(begin if is_single else span_begin, end, f"processor {processor}, {now - before:.2f} s of it stolen")


def watch_disk(path):
    """Writes repeatedly to a file, as the module's log and the host's recording are written."""
    processes.give_monitor_priority(0)
    with open(path, "wb", buffering=0) as out:
        while True:
            begin = time.time()
            out.seek(0)
            out.write(b"x" * 4096)
            end = time.time()
            if end - begin > MIN_STALL_S:
                _print_stall(begin, end, "disk")
            time.sleep(PERIOD_S)


if __name__ == "__main__":
    for each in os.sched_getaffinity(0):
        threading.Thread(target=watch_processor, args=(each,)).start()
    threading.Thread(target=watch_disk, args=(sys.argv[1],)).start()
