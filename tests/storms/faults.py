#!/usr/bin/python3
"""Faults of the sound server during a call, and the time until the sound returns. scripts/storms runs these tests.

To run one of them alone: PYTHONPATH=scripts:tests/system tests/storms/faults.py Faults.test_...
"""

import time

import disturbed_call
import storm_figures
from rig import session, storms

MAX_CPU_PERCENT = 50
# Rows of the troubleshooting table when both endpoints are lost and others become the default.
REMOVED = {"speaker-removed", "speaker-lost", "microphone-removed", "speaker-changed", "microphone-changed"}
MAX_LINES_PER_SECOND = 600  # more than three for each of 47 blocks and of 100 polls of the microphone


class Faults(session.SystemTest):
    SINKS = (("spkA", 48000, 2), ("spkB", 48000, 2))
    MICROPHONES = (session.MICROPHONE_48K,)

    def setUp(self):
        super().setUp()
        self.server, self.prefix = self.session.server, self.session.prefix
        self.server.load_second_microphone("micB", "micA", 48000, 2)
        self.speakers, self.microphones = self.session.endpoints(), self.session.endpoints("capture")
        self.prefix.make_default_output(self.speakers["spkA"])
        self.prefix.make_default_input(self.microphones["Monitor of micA"])
        self.call = disturbed_call.DisturbedCall(self.session, 90)

    def finish(self, fault, remedy, speaker_s, sink, source, rows):
        """Ends the call, and expects that velto-host log finds `rows` in the module's log."""
        self.call.wait_for_streams(sink, source)
        places = [place for _, place in self.server.streams()]
        streams, captures = places.count(sink), len(self.server.captures())
        microphone_s, summary = self.call.end()
        end = self.assert_good_end(self.call.host, 60, code=session.INTERRUPTED)
        good, windows = self.call.last_seconds_recorded()
        measured = {"name": fault, "remedy": remedy, "speakerS": speaker_s, "microphoneS": microphone_s,
                   "cpuPercent": self.call.cpu_percent, "linesPerSecond": self.call.lines_per_second,
                   "streams": streams, "captures": captures, "end": end.summary(), "goodWindowsAtTheEnd": f"{good} of {windows}"}
        print(f"  {measured}", flush=True)
        storm_figures.add("fault", **measured)
        self.assertIsNotNone(microphone_s, "the packets did not return to a steady flow")
        self.assertGreaterEqual(good, windows - 2, "the end of the recording is damaged")
        self.assertLessEqual(len(places), 2, f"more than one stream for each speaker: {places}")
        self.assertEqual(captures, 1)
        self.assertLess(self.call.cpu_percent, MAX_CPU_PERCENT)
        self.assertLess(self.call.lines_per_second, MAX_LINES_PER_SECOND)
        self.assertLessEqual(rows, self.session.rows_of(self.call.host), "rows that velto-host log names")
        for part in ("play", "record"):
            self.assertEqual(summary[part]["nonzeroResults"], 0)

    def change_defaults(self, speaker, microphone):
        self.prefix.make_default_output(self.speakers[speaker])
        self.prefix.make_default_input(self.microphones[microphone])

    def move_call_and_remove_endpoints(self):
        """Moves the call to the second endpoints, then removes these."""
        self.change_defaults("spkB", "micB")
        self.call.wait_for_streams("spkB", "micB")
        self.call.begin_fault()
        self.server.unload_sink("spkB")
        self.server.unload_source("micB")

    def test_call_recovers_after_endpoints_are_removed(self):
        self.move_call_and_remove_endpoints()
        time.sleep(5)
        self.call.end_fault()
        self.change_defaults("spkA", "Monitor of micA")
        speaker_s = self.call.seconds_until_sound("spkA")
        self.finish("both endpoints removed for 5 s", "another default device", speaker_s, "spkA", "micA.monitor",
                    REMOVED)

    def test_call_recovers_after_server_stalls(self):
        self.server.freeze()
        time.sleep(2)
        self.server.thaw()
        self.call.end_fault()
        speaker_s = self.call.seconds_until_sound("spkA")
        self.finish("server stopped for 2 s", "nothing: the sound continues", speaker_s, "spkA", "micA.monitor",
                    {"speaker-stuck"})

    def test_call_recovers_after_flapping_defaults(self):
        with storms.FlappingDefaults(self.session) as flapping:
            time.sleep(30)
        changes = flapping.changes
        self.call.end_fault()
        self.change_defaults("spkB", "micB")
        speaker_s = self.call.seconds_until_sound("spkB")
        self.finish(f"{changes} changes of a default device in 30 s", "the last default device", speaker_s, "spkB", "micB",
                    {"speaker-changed", "microphone-changed"})

    def test_call_recovers_after_server_restarts(self):
        self.server.kill()
        time.sleep(5)
        self.call.end_fault()
        self.server.start()
        self.server.load_second_microphone("micB", "micA", 48000, 2)
        self.change_defaults("spkB", "micB")
        self.change_defaults("spkA", "Monitor of micA")
        self.call.voice = self.session.speak(self.call.spoken)
        speaker_s = self.call.seconds_until_sound("spkA")
        self.finish("server killed, restarted after 5 s", "a change of the default devices", speaker_s, "spkA", "micA.monitor",
                    REMOVED)

    def test_call_recovers_after_sample_rate_changes(self):
        self.move_call_and_remove_endpoints()
        self.server.load_sink("spkB", 44100, 2)
        self.server.load_second_microphone("micB", "micA", 44100, 2)
        time.sleep(3)
        self.call.end_fault()
        self.change_defaults("spkA", "Monitor of micA")
        self.change_defaults("spkB", "micB")
        speaker_s = self.call.seconds_until_sound("spkB")
        self.finish("endpoints removed, restored at 44100 Hz", "the default device, set again", speaker_s, "spkB", "micB",
                    REMOVED)


if __name__ == "__main__":
    session.main()
