"""A call in both directions that goes on while something happens to the sound server."""

import time

from rig import compare, media, paths, waiting
from rig.recorder import Recorder

LOUD = 0.02
MOST_WAIT_S = 40


class CallInTrouble:
    """velto-host duplex, playing in a loop, recording what is said into micA for so many seconds."""

    def __init__(self, session, seconds):
        self.session = session
        self.said = media.glides(seconds, seed=41)
        sent = media.coded(session.folder / "sent.aac", media.glides(20, seed=42))
        self.recording = session.folder / "recorded.aac"
        self.host = session.host("duplex", "--play", paths.to_windows(sent), "--loop", "--record",
                                 paths.to_windows(self.recording), "--packet-times", "--json")
        self.wait_for_streams("spkA", "micA.monitor")
        self.voice = session.speak(self.said)
        recorder = session.record("spkA")
        recorder.wait_for_sound(60)
        time.sleep(3)
        self.lines, self.cpu, self.trouble = self.host.log.count(""), self.host.cpu_seconds(), time.time()

    def note_load(self):
        """Called at the end of the trouble: what it cost meanwhile."""
        passed = time.time() - self.trouble
        self.cpu_percent = 100 * (self.host.cpu_seconds() - self.cpu) / passed
        self.lines_per_second = (self.host.log.count("") - self.lines) / passed
        self.mended = time.time()

    def wait_for_streams(self, sink, source):
        """Waits until the call plays on one sink and hears one source.

        "speaker1", which gets no frames, follows a change at its next one: its stream may stay behind.
        """
        server = self.session.server
        waiting.until(lambda: sink in [place for _, place in server.streams()] and
                      [place for _, place in server.captures()] == [source], f"streams on {sink} and {source}", 60)

    def sound_is_back_on(self, sink, rate=48000):
        """Seconds from the end of the trouble to sound on the sink."""
        recorder = Recorder(self.session.server, sink, rate, 2)
        self.session.recorders.append(recorder)
        waiting.until(lambda: recorder.peak_since(0) > LOUD, f"sound on {sink}", MOST_WAIT_S)
        return time.time() - self.mended

    def end(self):
        """Ends the call; returns when the first packet came after the trouble that was followed by a second
        without a gap, in seconds after its end, and the summary."""
        time.sleep(4)
        self.host.interrupt()
        self.host.wait(60)
        summary = self.host.summary
        times = [moment for moment in summary["record"]["packetTimes"] if moment > self.mended]
        steady = next((first for first, later in zip(times, times[40:]) if later - first < 1.5), None)
        return (None if steady is None else steady - self.mended), summary

    def recorded_at_the_end(self):
        """How many of the windows of the last two seconds that were recorded hold what was said."""
        heard = media.decode(self.recording, 48000)[-96000:, :1]
        result = compare.compare(self.said[:, :1], heard, 48000, compare.CODED_MATCH_DB, len(self.said) / 48000)
        return len(result.good), len(result.windows)
