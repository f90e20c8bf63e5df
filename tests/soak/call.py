"""A long call under Wine, with measurements of sound and delay in both directions, memory, handles and threads."""

import json
import subprocess
import time

import numpy

from rig import compare, media, paths
from rig.module_log import FIRST_FRAME
from rig.sound_check import SoundCheck, shortest_way
from rig.voice import LoopedVoice

RATE = 48000
UNIT = 1024  # samples per channel
PERIOD_S = 64
SAMPLE_S = 10


def looped_reference(path, folder):
    """Returns the first channel of one pass through a looped file, decoded with a pass before it and one after it."""
    thrice = folder / "thrice.aac"
    thrice.write_bytes(3 * path.read_bytes())
    period = media.unit_count(path) * UNIT
    return media.decode(thrice, RATE)[period:2 * period, 0]


class Call:
    """Runs velto-host duplex for a number of seconds. The sender's clock differs from the sound device's by ppm."""

    def __init__(self, world, name, seconds, ppm):
        self.name, self.seconds, self.ppm = name, seconds, ppm
        self.pace = RATE * (1 + ppm * 1e-6)
        folder = world.folder
        self.sent = media.coded(folder / f"sent-{name}.aac", media.glides(PERIOD_S, seed=31))
        self.voice_sound = media.glides(PERIOD_S, seed=32)
        self.recording = folder / f"recorded-{name}.aac"  # an MP4 writer would need memory for every packet
        self.played = SoundCheck(looped_reference(self.sent, folder), RATE, compare.GOOD_MATCH_DB)
        self.spoken = SoundCheck(self.voice_sound[:, 0], RATE, compare.GOOD_MATCH_DB)
        self.recorded = SoundCheck(self.voice_sound[:, 0], RATE, compare.CODED_MATCH_DB)
        self.samples = []           # of the process: (seconds since the start, resident KiB, private KiB)
        self.speaker_delay = []     # (seconds since the start, ms)
        self.microphone_delay = []  # the same
        self._spoken_at = []        # (wall time, frame of the period)
        self._run(world)

    def _run(self, world):
        speaker, microphone = world.record("spkA"), world.record("micA")
        voice = LoopedVoice(world.server, "micA", self.voice_sound, RATE)
        host = world.host("duplex", "--play", paths.to_windows(self.sent), "--record",
                          paths.to_windows(self.recording), "--loop", "--seconds", self.seconds, "--pace-rate",
                          f"{self.pace:.3f}", "--usage-every", SAMPLE_S, "--packet-times", "--json", name=self.name)
        try:
            host.log.wait_for(FIRST_FRAME, 60)
            self.begin = host.log.time_of(FIRST_FRAME)
            self.cpu_begin = host.cpu_seconds()
            while host.running and time.time() - self.begin < self.seconds + 60:
                try:
                    host.process.wait(SAMPLE_S)
                except subprocess.TimeoutExpired:
                    self.samples.append((time.time() - self.begin, *host.memory_kib()))
                    self.cpu = host.cpu_seconds() - self.cpu_begin
                self._compare(speaker, microphone)
                self._print_progress()
            self.ending = host.end(0, 60)
            # On a busy machine, the host can end before all of its sound has been compared.
            self._compare(speaker, microphone)
        finally:
            voice.stop()
            for recorder in (speaker, microphone):
                recorder.stop()
                world.recorders.remove(recorder)
        self.summary = host.summary
        self.usage = [json.loads(line) for line in host.errors().splitlines() if line.startswith('{"handles"')]
        self._compare_recording()

    def _compare(self, speaker, microphone):
        samples, clock = speaker.drain()
        if len(samples):
            known = len(self.played.places)
            self.played.feed(samples[:, 0])
            for at, place in self.played.places[known:][-1:]:
                heard = clock + at / RATE
                self.speaker_delay.append((heard - self.begin, 1000 * self._speaker_delay(heard, place)))
        samples, clock = microphone.drain()
        if len(samples):
            known = len(self.spoken.places)
            self.spoken.feed(samples[:, 0])
            self._spoken_at += [(clock + at / RATE, place) for at, place in self.spoken.places[known:]]

    def _speaker_delay(self, heard, place):
        """Seconds from the write of the unit that contains a frame of the period to the moment at which that frame was heard."""
        period = len(self.played.reference)
        sent_in_pass = place // UNIT * UNIT
        passes = int(((heard - self.begin) * self.pace - sent_in_pass) // period)
        return heard - self.begin - (passes * period + sent_in_pass) / self.pace

    def _compare_recording(self):
        """Decodes the recording in pieces, checks its sound, and measures the delay from a sound to its packet."""
        times = self.summary["record"]["packetTimes"]
        for piece in media.decode_in_pieces(self.recording, RATE, 2, 60 * RATE):
            self.recorded.feed(piece[:, 0])
        spoken = sorted(self._spoken_at)
        moments = numpy.array([moment for moment, _ in spoken])
        for at, place in self.recorded.places[::50]:
            packet = at // UNIT
            if packet >= len(times):
                continue
            before = int(numpy.searchsorted(moments, times[packet])) - 1
            if before < 0:
                continue
            moment, spoken_place = spoken[before]
            frames = shortest_way(spoken_place - place, len(self.voice_sound))
            self.microphone_delay.append((times[packet] - self.begin, 1000 * (times[packet] - moment + frames / RATE)))

    def _print_progress(self):
        if not self.samples:
            return
        at, _, private = self.samples[-1]
        delay = f"{self.speaker_delay[-1][1]:.0f} ms" if self.speaker_delay else "none"
        print(f"soak: {self.name} {at:6.0f} of {self.seconds:.0f} s: {private / 1024:.1f} MiB, speaker delay {delay}, "
              f"{self.played.damaged} damaged of {self.played.windows} windows, {len(self.played.slips)} drops and gaps",
              flush=True)
