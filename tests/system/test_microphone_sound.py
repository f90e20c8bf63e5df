#!/usr/bin/python3
"""Recorded files contain the sound of the default microphone, complete and at the right speed."""

import time

from rig import media, paths, session

PACKETS_PER_SECOND = 48000 / 1024


class Microphone(session.SystemTest):
    MICROPHONES = (session.MICROPHONE_48K,)

    def record(self, spoken, rate=48000, container="m4a", *arguments):
        host = self.session.record_microphone(*arguments, container=container)
        self.session.wait_for_capture()
        self.session.speak(spoken, rate).wait()
        self.end_recording(host)
        return host


class StereoAt48000(Microphone):
    def test_twenty_seconds_are_recorded_without_missing_packet(self):
        spoken = media.glides(20)
        host = self.record(spoken)
        self.assert_recorded(host, spoken)
        self.assert_pace(host, 20)

    def assert_pace(self, host, seconds):
        summary = host.summary
        self.assertGreater(summary["packets"], seconds * PACKETS_PER_SECOND)
        self.assertEqual(summary["packets"], media.unit_count(host.recording))
        decoded = len(media.decode(host.recording, 48000))
        self.assertAlmostEqual(decoded / 1024, summary["packets"] - 1, delta=1, msg="one packet is the encoder's priming")
        self.assertEqual(summary["undecodable"], 0)
        # The encoder aims at 128 kbit/s, and needs less for silence.
        self.assertTrue(60000 < summary["bitRate"] < 140000, summary["bitRate"])
        self.assertLessEqual(summary["largestPacket"], 1536)

    def test_m4a_recording_has_requested_length_and_causes_no_warning(self):
        host = self.session.record_microphone("--seconds", "10")
        self.session.wait_for_capture()
        self.session.speak(media.glides(30))
        self.assert_ended_well(host)
        self.assertEqual(media.file_warnings(host.recording), [])
        self.assertAlmostEqual(media.duration(host.recording), 10, delta=1024 / 48000 + 0.002)

    def test_aac_recording_contains_sound(self):
        spoken = media.glides(6, seed=5)
        host = self.record(spoken, container="aac")
        self.assert_recorded(host, spoken)

    def test_call_microphone_records_sound(self):
        spoken = media.glides(6, seed=3)
        host = self.record(spoken, 48000, "m4a", "--device", "ModemMic1")
        self.assertEqual(host.summary["device"], "ModemMic1")
        self.assert_recorded(host, spoken)

    def test_c_recorder_example_records_sound(self):
        spoken = media.glides(5, seed=6)
        recording = self.session.folder / "example.aac"
        host = self.session.host(paths.to_windows(recording), "14", program=paths.EXAMPLE_RECORDER)
        self.session.wait_for_capture()
        begin = time.time()  # of the recording, to within its first packet's delay
        self.session.speak(spoken)
        self.assert_ended_well(host, last_words="packets recorded")
        self.assertEqual(host.output().split()[:1], [str(media.unit_count(recording))])
        self.assert_intact(self.compare_recorded(recording, spoken), lambda frame: begin + frame / session.RECORDING_RATE)


class MonoAt44100(Microphone):
    MICROPHONES = (("micA", 44100, 1),)

    def test_mono_sound_is_recorded_in_both_channels(self):
        spoken = media.glides(10, 44100, 1)
        host = self.record(spoken, 44100)
        self.assert_recorded(host, spoken, 44100)


if __name__ == "__main__":
    session.main()
