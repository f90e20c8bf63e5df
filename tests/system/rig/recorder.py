"""Records the sound of an endpoint, from the monitor of its sink."""

import bisect
import subprocess
import threading
import time
import wave

import numpy

from . import audio_server, paths, processes, waiting


class ArrivalTimes:
    """The wall times at which the frames of a recording arrived. A sink that stalls can lose time, so a frame's time
    follows from the frames after it, not from the first one."""

    SPAN_S = 0.5

    def __init__(self, rate):
        self._rate = rate
        self._ends, self._clocks = [], []  # of each chunk: its last frame + 1; when frame 0 arrived, if no time was lost

    def add(self, end, now):
        """A chunk that ends before frame `end` arrived."""
        self._ends.append(end)
        self._clocks.append(now - end / self._rate)

    def least_delayed(self):
        """When frame 0 arrived, from the chunk with the least delay. None without a chunk."""
        return min(self._clocks, default=None)

    def of(self, frame):
        """The wall time of a frame, from the chunk with the least delay of those that end within SPAN_S after it."""
        first = min(bisect.bisect_left(self._ends, frame), len(self._ends) - 1)
        last = max(bisect.bisect_right(self._ends, frame + self.SPAN_S * self._rate), first + 1)
        return min(self._clocks[first:last]) + frame / self._rate


class Recorder:
    """Keeps the 32-bit float samples of one sink in memory, with the time at which they arrived."""

    def __init__(self, server, sink, rate, channels):
        self.sink, self.rate, self.channels = sink, rate, channels
        self._chunks = []
        self._frames = 0
        self._times = ArrivalTimes(rate)
        self._lock = threading.Lock()
        self._process = processes.start(
            ["parec", "--raw", "-d", f"{sink}.monitor", "--latency-msec=20", "--format=float32le",
             f"--rate={rate}", f"--channels={channels}", *audio_server.channel_map("--channel-map", channels)],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=server.environment)
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()
        waiting.until(lambda: self._frames > 0 or self._process.poll() is not None, f"sound from {sink}.monitor", 20)
        processes.give_all_threads_priority(self._process)

    def _read(self):
        stream, width, rest = self._process.stdout, 4 * self.channels, b""
        while True:
            data = stream.read1(65536)
            if not data:
                return
            now, data = time.time(), rest + data
            whole = len(data) - len(data) % width
            rest = data[whole:]
            with self._lock:
                self._chunks.append(data[:whole])
                self._frames += whole // width
                self._times.add(self._frames, now)

    @property
    def seconds(self):
        return self._frames / self.rate

    def samples(self):
        """All frames so far, as an array of frames by channels."""
        with self._lock:
            return self._array()

    def drain(self):
        """Removes the samples that arrived since the last call. Returns them, and the wall time of frame 0.

        For long recordings: the time is estimated from these samples alone, because the clocks of the
        sink and of the machine drift apart.
        """
        with self._lock:
            samples, self._chunks = self._array(), []
            clock, self._times = self._times.least_delayed(), ArrivalTimes(self.rate)
        return samples, clock

    def _array(self):
        return numpy.frombuffer(b"".join(self._chunks), dtype="<f4").reshape(-1, self.channels)

    def time_of(self, frame):
        """Wall time (as in time.time()) at which a frame was heard, to within about 20 ms."""
        with self._lock:
            return self._times.of(frame)

    def peak_since(self, frame):
        """The largest absolute sample value from a frame on."""
        part = self.samples()[frame:]
        return float(numpy.abs(part).max()) if len(part) else 0.0

    def wait_for_sound(self, timeout_s=30, level=0.02):
        """Waits for a sample above the level. Returns the number of its frame."""
        def loud():
            over = numpy.flatnonzero(numpy.abs(self.samples()).max(axis=1) > level)
            return int(over[0]) + 1 if len(over) else 0
        return waiting.until(loud, f"sound on {self.sink}", timeout_s) - 1

    def wait_for_more(self, seconds, timeout_s=60):
        """Waits until `seconds` more have been recorded, by the sink's clock."""
        goal = self._frames + int(seconds * self.rate)
        waiting.until(lambda: self._frames >= goal, f"{seconds} more seconds of {self.sink}", timeout_s)

    def check_command(self, path):
        """Writes the frames so far to a file. Returns the command with which velto-host looks for the watermark in them."""
        self.samples().astype("<f4").tofile(path)
        return "check-heard", paths.to_windows(path), "--rate", str(self.rate), "--channels", str(self.channels)

    def stop(self):
        processes.end(self._process)
        self._thread.join(10)
        self._process.stdout.close()
        return self.samples()


def write_wav(path, samples, rate):
    """Writes samples as 16-bit PCM. Clips values beyond full scale."""
    pcm = numpy.clip(numpy.rint(numpy.asarray(samples) * 32767.0), -32768, 32767).astype("<i2")
    with wave.open(str(path), "wb") as out:
        out.setnchannels(pcm.shape[1] if pcm.ndim == 2 else 1)
        out.setsampwidth(2)
        out.setframerate(rate)
        out.writeframes(pcm.tobytes())
