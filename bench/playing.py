"""Processor time and memory of a host process that plays through the DLL."""

import time

import machine

SETTLE_S = 10       # opening the sound device and filling all buffers
CPU_WINDOW_S = 60
SAMPLE_S = 5


def _sleep_until(moment):
    time.sleep(max(0.0, moment - time.monotonic()))


def measure(world, speech, seconds):
    """Plays in a loop for so many seconds and watches the process from outside."""
    host = world.play(speech, "--loop", "--seconds", str(seconds))
    begin = time.monotonic()
    load = machine.load()
    samples = []
    _sleep_until(begin + SETTLE_S)
    cpu, window = host.cpu_seconds(), time.monotonic()
    cpu_after = None
    while host.running and time.monotonic() - begin < seconds - 1:
        samples.append((time.monotonic() - begin, *host.memory_kib()))
        if cpu_after is None and time.monotonic() - window >= CPU_WINDOW_S:
            cpu_after = (host.cpu_seconds() - cpu) / (time.monotonic() - window)
        time.sleep(SAMPLE_S)
    if not host.running and len(samples) * SAMPLE_S < seconds / 2:
        raise RuntimeError(f"velto-host ended early: {host.errors()[-600:]}")
    if cpu_after is None:
        cpu_after = (host.cpu_seconds() - cpu) / (time.monotonic() - window)
    code = host.wait(60)
    if code != 0:
        raise RuntimeError(f"velto-host ended with {code}: {host.errors()[-600:]}")
    start, middle, end = samples[0], samples[len(samples) // 2], samples[-1]
    return {
        "seconds": seconds,
        "cpuSecondsPerMinute": 60 * cpu_after,
        "framesSent": host.summary["framesSent"],
        "memoryKib": [{"atSeconds": round(at), "resident": resident, "own": own}
                      for at, resident, own in (start, middle, end)],
        "peakResidentKib": max(resident for _, resident, _ in samples),
        "load": load,
    }
