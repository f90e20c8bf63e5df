#!/usr/bin/python3
"""Measures the delay from a click in the microphone to the packet that holds it, and writes docs/performance.md.

    bench/click_delay.py [--show]

--show: writes no page. Needs the Windows build.
"""

import datetime
import pathlib
import sys

import numpy

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(REPOSITORY / "tests" / "system"))
sys.path.insert(0, str(REPOSITORY / "scripts"))

from rig import media, processes, session  # noqa: E402  (found through the lines above)

import machine  # noqa: E402
import section  # noqa: E402

RATE = 48000
SAMPLES_PER_PACKET = 1024
CLICKS = 60
CLICK_FRAMES = 240  # 5 ms
# A click waits until its frame of 21.3 ms is full, and the encoder gives it out with the second
# frame after it.
FLOOR_MS = (42.7, 64.0)
POLL_MS, PERIOD_MS = 10, 10


def clicks():
    """Short bursts, at places that have nothing to do with the packets."""
    random = numpy.random.default_rng(1)
    sound = numpy.zeros(int(RATE * (1 + 0.4 * CLICKS)))
    for number in range(CLICKS):
        begin = int(RATE * (0.5 + 0.4 * number + random.uniform(0, 0.2)))
        sound[begin:begin + CLICK_FRAMES] = 0.8 * numpy.sin(numpy.arange(CLICK_FRAMES) * 0.4)
    return numpy.stack([sound, sound], axis=1)


def click_places(samples):
    """Frames at which a click reaches its full loudness; the encoder's echo before it does not."""
    loud = numpy.flatnonzero(numpy.abs(samples[:, 0]) > 0.4)
    return [int(place) for place, last in zip(loud, [-RATE, *loud]) if place - last > 0.1 * RATE]


def measure(world):
    """Delays in ms."""
    recorder = world.record("micA")
    host = world.record_microphone("--packet-times", "--seconds", 0.4 * CLICKS + 6)
    world.wait_for_capture()
    world.speak(clicks())
    code = host.wait(120)
    if code != 0:
        raise RuntimeError(f"velto-host ended with {code}: {host.errors()[-600:]}")
    times = host.summary["packetTimes"]
    said = click_places(recorder.samples())
    recorded = click_places(media.decode(host.recording, RATE))
    if len(said) != CLICKS or len(recorded) != CLICKS:
        raise RuntimeError(f"{len(said)} clicks were said and {len(recorded)} recorded, of {CLICKS}")
    # The first packet is the run-up, which a decoder leaves out.
    return [1000 * (times[place // SAMPLES_PER_PACKET + 1] - recorder.time_of(begin))
            for begin, place in zip(said, recorded)]


def text(delays, load):
    median, low, high = numpy.percentile(delays, (50, 5, 95))
    most = FLOOR_MS[1] + POLL_MS + PERIOD_MS
    return "\n".join((
        f"Measured on {datetime.date.today().isoformat()}: {machine.describe()}, {len(delays)} clicks.", "",
        "| | delay |", "|---|---|",
        f"| median | {median:.0f} ms |",
        f"| 5 % to 95 % | {low:.0f} to {high:.0f} ms |",
        f"| shortest, longest | {min(delays):.0f}, {max(delays):.0f} ms |",
        f"| encoder alone | {FLOOR_MS[0]} to {FLOOR_MS[1]} ms |",
        f"| with a poll and a device period | up to {most:.0f} ms |", "",
        f"Processes that wanted to run when measuring began: {load:.1f}.")) + "\n"


def main():
    processes.install_handlers()
    load = machine.load()
    world = session.Session("bench-click-delay", microphones=(session.MICROPHONE_48K,))
    try:
        delays = measure(world)
    finally:
        world.close()
    print(text(delays, load))
    if "--show" not in sys.argv[1:]:
        section.write("bench/click_delay.py", text(delays, load))
    return 0


if __name__ == "__main__":
    sys.exit(main())
