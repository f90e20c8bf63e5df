"""Delay from a click in the microphone to the packet that contains it."""

import contextlib

import numpy

from rig import media, session

import measuring
import unit

TITLE = "measuring the delay of clicks in the microphone"
RATE_HZ = unit.RATE_HZ
CLICKS = 60
CLICK_SAMPLES = 240  # 5 ms
LOUD = 0.4           # half of a click's peak; the encoder's pre-echo stays below


def clicks():
    """Short bursts at random times, so that they have no fixed place in a packet."""
    random = numpy.random.default_rng(1)
    sound = numpy.zeros(int(RATE_HZ * (1 + 0.4 * CLICKS)))
    for number in range(CLICKS):
        begin = int(RATE_HZ * (0.5 + 0.4 * number + random.uniform(0, 0.2)))
        sound[begin:begin + CLICK_SAMPLES] = 0.8 * numpy.sin(numpy.arange(CLICK_SAMPLES) * 0.4)
    return numpy.stack([sound, sound], axis=1)


def click_positions(samples):
    loud = numpy.flatnonzero(numpy.abs(samples[:, 0]) > LOUD)
    return [int(position) for position, last in zip(loud, [-RATE_HZ, *loud]) if position - last > 0.1 * RATE_HZ]


def measure(_options):
    with contextlib.closing(session.Session("bench-click-delay", microphones=(session.MICROPHONE_48K,))) as world:
        recorder = world.record("micA")
        host = world.record_microphone("--packet-times", "--seconds", 0.4 * CLICKS + 6)
        world.wait_for_capture()
        world.speak(clicks())
        code = host.wait(120)
        if code != 0:
            raise RuntimeError(f"velto-host ended with {code}: {host.errors()[-600:]}")
        packet_times = host.summary["packetTimes"]
        played = click_positions(recorder.samples())
        recorded = click_positions(media.decode(host.recording, RATE_HZ))
        if len(played) != CLICKS or len(recorded) != CLICKS:
            raise RuntimeError(f"{len(played)} clicks reached the microphone and {len(recorded)} were recorded, of {CLICKS}")
        # A decoder leaves out the first packet, which is the encoder's priming.
        return {"delaysMs": [1000 * (packet_times[position // unit.SAMPLES + 1] - recorder.time_of(begin))
                             for begin, position in zip(played, recorded)]}


def table(measured):
    delays = measured["delaysMs"]

    def row(name, *ms):
        return [name, " to ".join(f"{each:.0f}" for each in ms) + " ms", " to ".join(f"{1000 * each / unit.US:.1f}" for each in ms)]

    median, low, high = numpy.percentile(delays, (50, 5, 95))
    rows = [row("median", median), row("5 % to 95 %", low, high), row("shortest to longest", min(delays), max(delays))]
    return [*measuring.table([f"{len(delays)} clicks", "delay", "in units"], rows)]
