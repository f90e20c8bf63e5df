"""Speaks into a virtual microphone."""

import numpy

from . import processes


class Voice:
    """Plays samples into the sink whose monitor is the microphone, and says when they are over.

    They go out ahead of time into a large buffer in the server, so that a busy machine does not
    make the voice stutter.
    """

    def __init__(self, server, folder, microphone, samples, rate):
        samples = numpy.asarray(samples)
        self.seconds = len(samples) / rate
        path = folder / f"voice-{microphone}-{id(self):x}.f32"
        path.write_bytes(samples.astype("<f4").tobytes())
        with open(path, "rb") as source:
            self.process = processes.start(
                ["pacat", "--playback", "--raw", "-d", microphone, "--latency-msec=2000", "--format=float32le",
                 f"--rate={rate}", f"--channels={samples.shape[1]}"],
                stdin=source, env=server.environment, with_sound=True)
        path.unlink()  # the player holds it open

    def wait(self):
        """Waits until the last of it has been said."""
        self.process.wait(self.seconds + 60)

    def stop(self):
        processes.end(self.process)
