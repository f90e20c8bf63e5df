"""Processor time and memory of a host process that plays through the DLL."""

import contextlib
import time

from rig import media, session

import measuring
import unit

TITLE = "watching a host that plays a file in a loop"
MAX_GROWTH_KIB = 1024  # of the process's private memory, from 10 s after the start to the end
SETTLE_S = 10          # for opening the sound device and filling all buffers
CPU_WINDOW_S = 60
SAMPLE_S = 5


def measure(options):
    seconds = 60 * options.minutes
    with contextlib.closing(session.Session("bench-playing")) as world:
        host = world.play(media.speech("speech"), "--loop", "--seconds", str(seconds))
        samples, cpu_per_second = watch(host, seconds)
        code = host.wait(60)
        if code != 0:
            raise RuntimeError(f"velto-host ended with {code}: {host.errors()[-600:]}")
        return {
            "seconds": seconds,
            "cpuSecondsPerMinute": 60 * cpu_per_second,
            "unitsSent": host.summary["unitsSent"],
            "memoryKib": [{"atSeconds": round(at), "resident": resident, "private": private}
                          for at, resident, private in (samples[0], samples[len(samples) // 2], samples[-1])],
            "peakResidentKib": max(resident for _, resident, _ in samples),
        }


def watch(host, seconds):
    """Memory as (seconds since the start, resident KiB, private KiB), and processor time per second."""
    begin = time.monotonic()
    time.sleep(SETTLE_S)
    cpu_begin, window_begin = host.cpu_seconds(), time.monotonic()
    cpu_per_second = None
    samples = []
    while host.running and time.monotonic() - begin < seconds - 1:
        samples.append((time.monotonic() - begin, *host.memory_kib()))
        passed = time.monotonic() - window_begin
        if cpu_per_second is None and passed >= min(CPU_WINDOW_S, seconds - SETTLE_S - SAMPLE_S):
            cpu_per_second = (host.cpu_seconds() - cpu_begin) / passed
        time.sleep(SAMPLE_S)
    if cpu_per_second is None:
        raise RuntimeError(f"velto-host ended early: {host.errors()[-600:]}")
    return samples, cpu_per_second


def table(measured):
    cpu_s = measured["cpuSecondsPerMinute"]
    rows = [[f"{sample['atSeconds']} s", f"{sample['resident'] / 1024:.1f} MiB", f"{sample['private'] / 1024:.2f} MiB"]
            for sample in measured["memoryKib"]]
    return [f"A host that plays in a loop for {measured['seconds'] / 60:g} minutes ({measured['unitsSent']} units) uses "
            f"{cpu_s:.2f} s of processor time for 60 s of sound: {unit.us_per_unit(1000 * cpu_s / 60):.0f} µs per unit, "
            f"{100 * cpu_s / 60:.1f} % of one processor.", "",
            *measuring.table(["after", "resident memory", "private part of it"], rows)]


def missed(measured):
    first, last = (measured["memoryKib"][at]["private"] for at in (0, -1))
    if last - first > MAX_GROWTH_KIB:
        yield f"memory grew by {last - first} KiB; the goal is at most {MAX_GROWTH_KIB} KiB"
