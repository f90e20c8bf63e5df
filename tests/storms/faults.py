#!/usr/bin/python3
"""What happens to a call when the sound server is in trouble, and how long until all is well again."""

import pathlib
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "system"))

from rig import session, storms  # noqa: E402  (found through the line above)

import call_in_trouble  # noqa: E402
import notes  # noqa: E402

MOST_CPU_PERCENT = 50
MOST_LINES_PER_SECOND = 600  # three for each block written and each poll of the microphone, two loggers


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
        self.call = call_in_trouble.CallInTrouble(self.session, 90)

    def finish(self, fault, road, speaker_s, sink, source):
        self.call.wait_for_streams(sink, source)
        places = [place for _, place in self.server.streams()]
        streams, captures = places.count(sink), len(self.server.captures())
        microphone_s, summary = self.call.end()
        good, windows = self.call.recorded_at_the_end()
        figures = {"name": fault, "road": road, "speakerS": speaker_s, "microphoneS": microphone_s,
                   "cpuPercent": self.call.cpu_percent, "linesPerSecond": self.call.lines_per_second,
                   "streams": streams, "captures": captures, "goodAtTheEnd": f"{good} of {windows}"}
        print(f"  {figures}", flush=True)
        notes.write("fault", **figures)
        self.assertIsNotNone(microphone_s, "no packets came any more")
        self.assertGreaterEqual(good, windows - 2, "what was recorded last is not what was said")
        self.assertLessEqual(len(places), 2, f"one stream for each speaker is all: {places}")
        self.assertEqual(captures, 1)
        self.assertLess(self.call.cpu_percent, MOST_CPU_PERCENT)
        self.assertLess(self.call.lines_per_second, MOST_LINES_PER_SECOND)
        for part in ("play", "record"):
            self.assertEqual(summary[part]["nonzeroResults"], 0)

    def change_defaults(self, speaker, microphone):
        self.prefix.make_default_output(self.speakers[speaker])
        self.prefix.make_default_input(self.microphones[microphone])

    def test_endpoints_removed(self):
        self.change_defaults("spkB", "micB")
        self.call.wait_for_streams("spkB", "micB")
        self.call.trouble = time.time()
        self.server.unload_sink("spkB")
        self.server.unload_source("micB")
        time.sleep(5)
        self.call.note_load()
        self.change_defaults("spkA", "Monitor of micA")
        back = self.call.sound_is_back_on("spkA")
        self.finish("both endpoints removed for 5 s", "another default", back, "spkA", "micA.monitor")

    def test_server_stopped(self):
        self.server.freeze()
        time.sleep(2)
        self.server.thaw()
        self.call.note_load()
        back = self.call.sound_is_back_on("spkA")
        self.finish("server stopped for 2 s", "none needed", back, "spkA", "micA.monitor")

    def test_default_flapping(self):
        with storms.FlappingDefaults(self.session) as flapping:
            time.sleep(30)
        changes = flapping.changes
        self.call.note_load()
        self.change_defaults("spkB", "micB")
        back = self.call.sound_is_back_on("spkB")
        self.finish(f"{changes} changes of a default in 30 s", "the last default", back, "spkB", "micB")

    def test_server_restarted(self):
        self.server.kill()
        time.sleep(5)
        self.call.note_load()
        self.server.start()
        self.server.load_second_microphone("micB", "micA", 48000, 2)
        self.change_defaults("spkB", "micB")
        self.change_defaults("spkA", "Monitor of micA")
        self.call.voice = self.session.speak(self.call.said)
        back = self.call.sound_is_back_on("spkA")
        self.finish("server killed, started again after 5 s", "a change of the defaults", back, "spkA", "micA.monitor")

    def test_rate_changed(self):
        self.change_defaults("spkB", "micB")
        self.call.wait_for_streams("spkB", "micB")
        self.call.trouble = time.time()
        self.server.unload_sink("spkB")
        self.server.unload_source("micB")
        self.server.load_sink("spkB", 44100, 2)
        self.server.load_second_microphone("micB", "micA", 44100, 2)
        time.sleep(3)
        self.call.note_load()
        self.change_defaults("spkA", "Monitor of micA")
        self.change_defaults("spkB", "micB")
        back = self.call.sound_is_back_on("spkB")
        self.finish("endpoints came back at 44100 Hz", "the default once more", back, "spkB", "micB")


if __name__ == "__main__":
    session.main()
