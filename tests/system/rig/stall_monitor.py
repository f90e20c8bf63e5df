"""Detects stalls of the machine: periods in which a thread could not run, although it has priority over all sound, in which it
could not write to the disk, or in which a server of the test, which has priority over the programs that play, had to wait for a
processor.

In a virtual machine, the kernel counts the time in which a processor had work, but the host of the machine ran something
else. Shorter delays count as stalls if they come with such stolen time, because the sound that is watched does not explain them.
"""

import collections
import contextlib
import itertools
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
# The servers and recorders, without which no sound is heard or recorded. A player into a microphone sends 2 s in advance, so it
# may wait.
SERVERS = ("pulseaudio", "wineserver", "parec")
MIN_WAIT_S = 0.005
# The processes that velto-host starts for its checks. Their waits are those of programs that play, as the tracer sees them.
# Their main threads compute and send; what they send is queued, so only a long wait of them counts.
CHECKS, MIN_WAIT_OF_CHECK_S = "velto-host", 0.01
DRIVER_THREADS = "winepulse"  # the threads of Wine's sound driver: a program that has none plays nothing yet
NEW_PROCESSES_PERIODS = 10
NAMING_S = 10  # a new process gets its name within this time


class StallMonitor:
    """A child process that measures until it is stopped.

    prefix: a Wine prefix in which velto-host starts processes that play. No tracer knows them, so the monitor gives them the
    priority of sound and reports their waits."""

    def __init__(self, folder, prefix=None):
        self._stalls = folder / "stalls"
        with open(self._stalls, "wb") as out:
            self.process = processes.start([sys.executable, "-B", "-m", "rig.stall_monitor", folder / "stalls.disk", os.getpid(),
                                            *([prefix] if prefix else [])],
                                           stdout=out, stderr=subprocess.DEVNULL,
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


def watch_processor(processor, prepared):
    """Sleeps repeatedly on one processor. prepared: an Event, set when it begins."""
    os.sched_setaffinity(0, {processor})
    processes.give_monitor_priority(0)
    stolen = StolenTime(processor)
    span = collections.deque([(time.time(), stolen.seconds())], maxlen=round(STOLEN_SPAN_S / PERIOD_S))
    prepared.set()
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


class Waits:
    """The time that the threads of a test's servers have waited for a processor, although they were ready to run."""

    def __init__(self):
        self._counts = {}    # (process, thread): its open file of counts
        self._waited_s = {}  # (process, thread): the sum at the last call

    def watch(self, process):
        """Adds the threads of a process that are not watched yet."""
        for thread in os.listdir(f"/proc/{process}/task"):
            if (process, thread) not in self._counts:
                self._counts[process, thread] = os.open(f"/proc/{process}/task/{thread}/schedstat", os.O_RDONLY)

    def longest(self, least_of_main_s=0.0):
        """Returns the longest wait since the last call, in s, and the process whose thread waited. Shorter waits of main threads
        than least_of_main_s do not count."""
        longest = (0.0, "")
        for key, file in list(self._counts.items()):
            try:
                waited_s = int(os.pread(file, 64, 0).split()[1]) / 1e9
            except OSError:  # the thread has ended
                os.close(self._counts.pop(key))
                self._waited_s.pop(key, None)
                continue
            new_s = waited_s - self._waited_s.get(key, waited_s)
            self._waited_s[key] = waited_s
            if key[0] != key[1] or new_s >= least_of_main_s:
                longest = max(longest, (new_s, key[0]))
        return longest


def servers_of(test):
    """The SERVERS that a process has started: {process: name}."""
    servers = {}
    for process in pathlib.Path(f"/proc/{test}/task/{test}/children").read_text("ascii").split():
        name = pathlib.Path(f"/proc/{process}/comm").read_text("utf-8").strip()
        if name.startswith(SERVERS):
            servers[process] = name
    return servers


def _name(folder):
    return (folder / "comm").read_text("utf-8", "replace")


class Checks:
    """The processes of velto-host in a Wine prefix that have opened a device."""

    def __init__(self, prefix):
        self._variable = f"WINEPREFIX={prefix}".encode()
        self._found = {}      # process: when it was found
        self._checks = set()  # processes of velto-host in the prefix

    def find(self):
        """Returns {process: name}, and gives their threads the priority of sound. A new thread has that of the thread that started
        it until the next call. The main thread gets less than all other sound, because it encodes for nearly a second what the
        check sends. Reads only processes that are checks, or so new that they may become checks: to read all processes of a
        machine takes long."""
        now = time.monotonic()
        self._found = {process: self._found.get(process, now) for process in os.listdir("/proc") if process.isdigit()}
        self._checks &= self._found.keys()
        opened = {}
        for process in [each for each, found in self._found.items() if each in self._checks or now - found < NAMING_S]:
            with contextlib.suppress(OSError):  # it has ended
                if self._has_opened_device(pathlib.Path("/proc", process)):
                    opened[process] = CHECKS
        return opened

    def _has_opened_device(self, folder):
        if not _name(folder).startswith(CHECKS) or self._variable not in (folder / "environ").read_bytes().split(b"\0"):
            return False
        self._checks.add(folder.name)
        threads = list((folder / "task").iterdir())
        drivers = [thread for thread in threads if _name(thread).startswith(DRIVER_THREADS)]
        if drivers:
            for thread in threads:
                priority = processes.SOUND_PRIORITY + (thread in drivers) - (thread.name == folder.name)
                processes.give_sound_priority(int(thread.name), priority)
        return bool(drivers)


def watch_waits(find, least_s, least_of_main_s=0.0):
    """Reads repeatedly how long processes waited. find(): those that exist now, {process: name}. least_of_main_s: for their main
    threads."""
    processes.give_monitor_priority(0)
    waits, names, before = Waits(), {}, time.time()
    for period in itertools.count():
        waited_s, process = waits.longest(least_of_main_s)
        if waited_s >= least_s:
            _print_stall(before - waited_s, time.time(), f"{names[process]} waited {waited_s:.3f} s")
        before = time.time()
        if period % NEW_PROCESSES_PERIODS == 0:
            with contextlib.suppress(OSError):  # one has ended
                found = find()
                names |= found
                for process in found:
                    waits.watch(process)
        time.sleep(PERIOD_S)


def _start(watch, *arguments):
    threading.Thread(target=watch, args=arguments).start()


def main(disk_path, test, prefix=None):
    """Begins with the disk after the others, so that the file shows that all of them watch."""
    prepared = []
    for each in os.sched_getaffinity(0):
        prepared.append(threading.Event())
        _start(watch_processor, each, prepared[-1])
    _start(watch_waits, lambda: servers_of(test), MIN_WAIT_S)
    if prefix:
        _start(watch_waits, Checks(prefix).find, MIN_WAIT_OF_CHECK_S, MIN_STALL_S)
    for event in prepared:
        event.wait()
    _start(watch_disk, disk_path)


if __name__ == "__main__":
    main(*sys.argv[1:])
