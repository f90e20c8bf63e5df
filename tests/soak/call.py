"""A long call under Wine, and what is measured meanwhile: sound in both directions, delay, memory, handles, threads."""

import json
import subprocess
import threading
import time

import numpy

from rig import compare, media, paths, processes
from rig.sound_check import SoundCheck

RATE = 48000
FRAME = 1024
PERIOD_S = 64
SAMPLE_S = 10
SPOKEN_DB = 20.0  # match of the sound in the microphone, which is not coded


class EndlessVoice:
    """Plays a sound into a microphone, in a loop."""

    def __init__(self, server, microphone, samples):
        self._data = samples.astype("<f4").tobytes()
        self.process = processes.start(
            ["pacat", "--playback", "--raw", "-d", microphone, "--latency-msec=2000", "--format=float32le",
             f"--rate={RATE}", f"--channels={samples.shape[1]}"],
            stdin=subprocess.PIPE, env=server.environment, with_sound=True)
        threading.Thread(target=self._feed, daemon=True).start()

    def _feed(self):
        try:
            while True:
                self.process.stdin.write(self._data)
        except OSError:
            return  # pacat has ended

    def stop(self):
        processes.end(self.process)


def looped_reference(path, folder):
    """The decoded sound of one pass through the file in the middle of a loop, first channel."""
    thrice = folder / "thrice.aac"
    thrice.write_bytes(3 * path.read_bytes())
    period = media.frame_count(path) * FRAME
    return media.decode(thrice, RATE)[period:2 * period, 0]


class Call:
    """velto-host duplex, for a number of seconds. Its sender's clock differs from the sound device's by ppm."""

    def __init__(self, world, name, seconds, ppm):
        self.name, self.seconds, self.ppm = name, seconds, ppm
        self.pace = RATE * (1 + ppm * 1e-6)
        folder = world.folder
        self.sent = media.coded(folder / f"sent-{name}.aac", media.glides(PERIOD_S, seed=31))
        self.voice_sound = media.glides(PERIOD_S, seed=32)
        self.recording = folder / f"recorded-{name}.aac"  # an MP4 writer would need memory for every packet
        self.played = SoundCheck(looped_reference(self.sent, folder), RATE, compare.GOOD_MATCH_DB)
        self.spoken = SoundCheck(self.voice_sound[:, 0], RATE, SPOKEN_DB)
        self.recorded = SoundCheck(self.voice_sound[:, 0], RATE, compare.CODED_MATCH_DB)
        self.samples = []           # of the process: (seconds since the begin, resident KiB, private KiB)
        self.speaker_delay = []     # (seconds since the begin, ms)
        self.microphone_delay = []  # the same
        self._spoken_at = []        # (wall time, frame of the period)
        self._run(world)

    def _run(self, world):
        speaker, microphone = world.record("spkA"), world.record("micA")
        voice = EndlessVoice(world.server, "micA", self.voice_sound)
        host = world.host("duplex", "--play", paths.to_windows(self.sent), "--record",
                          paths.to_windows(self.recording), "--loop", "--seconds", self.seconds, "--pace-rate",
                          f"{self.pace:.3f}", "--usage-every", SAMPLE_S, "--packet-times", "--json", name=self.name)
        try:
            host.log.wait_for("VeltoWriteStream has received1 frame", 60)
            self.begin = host.log.time_of("VeltoWriteStream has received1 frame")
            self.cpu_begin = host.cpu_seconds()
            while host.running and time.time() - self.begin < self.seconds + 60:
                try:
                    host.process.wait(SAMPLE_S)
                except subprocess.TimeoutExpired:
                    self.samples.append((time.time() - self.begin, *host.memory_kib()))
                    self.cpu = host.cpu_seconds() - self.cpu_begin
                self._compare(speaker, microphone)
                self._print_progress()
            self.exit_code = host.wait(60)
            # On a loaded machine, the comparison may have fallen behind until the host ended.
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
        _, samples, clock = speaker.take()
        if len(samples):
            known = len(self.played.places)
            self.played.feed(samples[:, 0])
            for at, place in self.played.places[known:][-1:]:
                heard = clock + at / RATE
                self.speaker_delay.append((heard - self.begin, 1000 * self._speaker_delay(heard, place)))
        _, samples, clock = microphone.take()
        if len(samples):
            known = len(self.spoken.places)
            self.spoken.feed(samples[:, 0])
            self._spoken_at += [(clock + at / RATE, place) for at, place in self.spoken.places[known:]]

    def _speaker_delay(self, heard, place):
        """Seconds from the call that sent a frame of the period to the moment at which it was heard."""
        period = len(self.played.reference)
        sent_in_pass = place // FRAME * FRAME
        passes = int(((heard - self.begin) * self.pace - sent_in_pass) // period)
        return heard - self.begin - (passes * period + sent_in_pass) / self.pace

    def _compare_recording(self):
        """Decodes the recording piece by piece, and finds when each piece was spoken."""
        times = self.summary["record"]["packetTimes"]
        for piece in media.decode_in_pieces(self.recording, RATE, 2, 60 * RATE):
            self.recorded.feed(piece[:, 0])
        spoken = sorted(self._spoken_at)
        moments = numpy.array([moment for moment, _ in spoken])
        for at, place in self.recorded.places[::50]:
            packet = at // FRAME
            if packet >= len(times):
                continue
            before = int(numpy.searchsorted(moments, times[packet])) - 1
            if before < 0:
                continue
            moment, spoken_place = spoken[before]
            half = len(self.voice_sound) // 2
            frames = (spoken_place - place + half) % len(self.voice_sound) - half
            self.microphone_delay.append((times[packet] - self.begin, 1000 * (times[packet] - moment + frames / RATE)))

    def _print_progress(self):
        if not self.samples:
            return
        at, _, private = self.samples[-1]
        delay = f"{self.speaker_delay[-1][1]:.0f} ms" if self.speaker_delay else "none"
        print(f"soak: {self.name} {at:6.0f} of {self.seconds:.0f} s: {private / 1024:.1f} MiB, speaker delay {delay}, "
              f"{self.played.damaged} damaged of {self.played.windows} windows, {len(self.played.slips)} drops and gaps",
              flush=True)
