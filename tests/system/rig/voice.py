"""Plays sound into microphones: the null sinks whose monitors the module records."""

import subprocess
import threading

import numpy

from . import processes


def _start_player(server, microphone, rate, channels, source):
    # The samples go into a large buffer in the server ahead of time, so that a busy machine causes no gaps.
    return processes.start(
        ["pacat", "--playback", "--raw", "-d", microphone, "--latency-msec=2000", "--format=float32le",
         f"--rate={rate}", f"--channels={channels}"],
        stdin=source, env=server.environment)


class Voice:
    """Plays samples into a microphone once."""

    def __init__(self, server, folder, microphone, samples, rate):
        samples = numpy.asarray(samples)
        self.seconds = len(samples) / rate
        path = folder / f"voice-{microphone}-{id(self):x}.f32"
        path.write_bytes(samples.astype("<f4").tobytes())
        with open(path, "rb") as source:
            self.process = _start_player(server, microphone, rate, samples.shape[1], source)
        path.unlink()  # the player has the file open

    def wait(self):
        """Waits until the last sample was played."""
        self.process.wait(self.seconds + 60)

    def stop(self):
        processes.end(self.process)


class LoopedVoice:
    """Plays samples into a microphone in a loop, until it is stopped."""

    def __init__(self, server, microphone, samples, rate):
        self._data = samples.astype("<f4").tobytes()
        self.process = _start_player(server, microphone, rate, samples.shape[1], subprocess.PIPE)
        threading.Thread(target=self._feed, daemon=True).start()

    def _feed(self):
        try:
            while True:
                self.process.stdin.write(self._data)
        except OSError:
            return  # the player has ended

    def stop(self):
        processes.end(self.process)
