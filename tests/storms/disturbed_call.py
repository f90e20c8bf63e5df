"""A call in both directions during which a test disturbs the sound server."""

import time

from rig import compare, media, paths, waiting
from rig.velto_host import Activity

LOUD = 0.02
MAX_WAIT_S = 40


class DisturbedCall:
    """Runs velto-host duplex: it plays a file in a loop, and records micA, into which a voice speaks for `seconds`."""

    def __init__(self, session, seconds):
        self.session = session
        self.spoken = media.glides(seconds, seed=41)
        sent = media.coded(session.folder / "sent.aac", media.glides(20, seed=42))
        self.recording = session.folder / "recorded.aac"
        self.host = session.host("duplex", "--play", paths.to_windows(sent), "--loop", "--record",
                                 paths.to_windows(self.recording), "--packet-times", "--json")
        self.wait_for_streams("spkA", "micA.monitor")
        self.voice = session.speak(self.spoken)
        recorder = session.record("spkA")
        recorder.wait_for_sound(60)
        time.sleep(3)
        self.begin_fault()

    def begin_fault(self):
        """Starts counting processor time and log lines."""
        self.activity = Activity(self.host)

    def end_fault(self):
        """Keeps the processor time and the log lines of the fault. Recovery times count from here."""
        self.fault_end = time.time()
        self.lines_per_second, cpu = self.activity.per_second()
        self.cpu_percent = 100 * cpu

    def wait_for_streams(self, sink, source):
        """Waits until the call plays on a sink and records a source.

        The stream of "speaker1" may stay on its old sink: it gets no units, and follows a change at its next unit.
        """
        server = self.session.server
        waiting.until(lambda: sink in [place for _, place in server.streams()] and
                      [place for _, place in server.captures()] == [source], f"streams on {sink} and {source}", 60)

    def seconds_until_sound(self, sink, rate=48000):
        """Waits for sound on the sink. Returns the seconds from the end of the fault."""
        recorder = self.session.record(sink, rate)
        waiting.until(lambda: recorder.peak_since(0) > LOUD, f"sound on {sink}", MAX_WAIT_S)
        return time.time() - self.fault_end

    def end(self):
        """Ends the call. Returns the seconds from the end of the fault to the first packet of a steady flow, or None,
        and the host's report. The flow is steady if the next 40 packets, 0.85 s, take less than 1.5 s."""
        time.sleep(4)
        self.host.interrupt()
        self.host.wait(60)
        summary = self.host.summary
        times = [moment for moment in summary["record"]["packetTimes"] if moment > self.fault_end]
        steady = next((first for first, later in zip(times, times[40:]) if later - first < 1.5), None)
        return (None if steady is None else steady - self.fault_end), summary

    def last_seconds_recorded(self):
        """Compares the last two seconds of the recording with the voice. Returns the numbers of good and of all windows."""
        recorded = media.decode(self.recording, 48000)[-96000:, :1]
        result = compare.compare(self.spoken[:, :1], recorded, 48000, compare.CODED_MATCH_DB, len(self.spoken) / 48000)
        return len(result.good), len(result.windows)
