#!/usr/bin/python3
"""Files that are missing, damaged, not writable, or in a format that the module does not support."""

import random
import re

from rig import media, paths, session

NOTHING_PLAYED, NO_AAC_FILE = 1, 4


class PlayedFiles(session.SystemTest):
    def setUp(self):
        super().setUp()
        self.speech = media.speech("speech")

    def file(self, name, content):
        path = self.session.folder / name
        path.write_bytes(content)
        return path

    def test_file_without_aac_is_refused_with_message(self):
        noise = random.Random(1).randbytes(40000)
        wave = media.SPEECH_FOLDER / "Front_Center.wav"
        for name, path in (("missing", self.session.folder / "no-such-file.aac"),
                           ("empty", self.file("empty.aac", b"")),
                           ("noise", self.file("noise.aac", noise)),
                           ("text", self.file("text.aac", b"This is no sound at all.\n" * 400)),
                           ("PCM", wave)):
            with self.subTest(name):
                host = self.session.play(path, name=f"refused-{name}")
                self.assertEqual(host.wait(60), NO_AAC_FILE, host.errors())
                self.assertTrue(host.errors().strip(), "no message")

    def test_truncated_file_plays_up_to_its_end(self):
        whole = self.speech.read_bytes()
        host = self.session.play(self.file("truncated.aac", whole[:len(whole) // 4]))
        recorder = self.session.record()
        recorder.wait_for_sound(60)
        self.assert_ended_well(host)
        sent = host.summary["unitsSent"]
        self.assertTrue(90 < sent < 200, sent)
        self.assertEqual(host.summary["nonzeroResults"], 0)

    def test_damaged_units_are_logged_and_playback_continues(self):
        damaged = bytearray(self.speech.read_bytes())
        chance = random.Random(5)
        for _ in range(60):
            place = chance.randrange(len(damaged) // 4, len(damaged) // 2)
            damaged[place] ^= 1 << chance.randrange(8)
        recorder = self.session.record()
        host = self.session.play(self.file("damaged.aac", bytes(damaged)), "--send-damaged")
        recorder.wait_for_sound(60)
        self.assert_ended_well(host)
        self.assertEqual(host.summary["nonzeroResults"], 0)
        self.assertGreater(host.log.count("AUDIO decode error:", "velto::FFmpegDecode::DecoderAudioFrame"), 0)
        # The last quarter of the file is undamaged and must be heard.
        reference = media.decode(self.speech, 48000)
        reference = reference[3 * len(reference) // 4:]
        result = session.compare.compare(recorder.samples(), reference, 48000)
        self.report("last quarter", result)
        self.assert_intact(result, recorder.time_of)

    def test_22050_hz_file_plays_without_errors(self):
        slow = media.speech("speech-22k", rate=22050)
        recorder = self.session.record()
        host = self.session.play(slow)
        recorder.wait_for_sound(60)
        self.assert_ended_well(host)
        self.assertEqual(host.summary["unitsSkipped"], 0)
        self.assertEqual(host.summary["nonzeroResults"], 0)
        self.assertEqual(host.log.count("AUDIO decode error:"), 0)
        self.assertGreater(host.summary["unitsSent"], 200)

    def test_22050_hz_file_sent_at_48000_hz_pace_is_heard_at_wrong_speed(self):
        # Newer versions of Wine resample each stream, which attenuates frequencies above 15 kHz. At the wrong speed, these are the
        # frequencies above 6.9 kHz of the file.
        slow = media.speech("speech-22k-below-6k", rate=22050, cutoff_hz=6000)
        recorder = self.session.record()
        host = self.session.play(slow, "--pace-rate", "48000")
        self.assert_ended_well(host)
        right = session.compare.compare(recorder.samples(), media.decode(slow, 48000), 48000)
        self.assertNotEqual(right.verdict(), "")
        # The same samples, read as samples of 48000 Hz, must be heard.
        samples = media.decode(slow, 22050)
        wrong = session.compare.compare(recorder.samples(), samples, 48000)
        self.report("22050 Hz played at 48000 Hz", wrong)
        self.assert_intact(wrong, recorder.time_of)


class RecordedFiles(session.SystemTest):
    MICROPHONES = (session.MICROPHONE_48K,)

    def test_unwritable_file_is_refused_before_recording(self):
        folder = self.session.folder / "folder.aac"
        folder.mkdir()
        for name, path in (("another extension", self.session.folder / "voice.wav"),
                           ("no folder", self.session.folder / "none" / "voice.m4a"),
                           ("a folder", folder)):
            with self.subTest(name):
                host = self.session.host("record", paths.to_windows(path), "--json", name=f"refused-{name}")
                self.assertEqual(host.wait(60), NO_AAC_FILE, host.errors())
                self.assertIn(path.name, host.errors())
                self.assertEqual(host.log.text(), "", "the module was called")
        self.assertEqual(list(folder.iterdir()), [])
        self.assertEqual(list(self.session.folder.glob("voice*")), [])

    def test_progress_line_shows_time_packets_and_level(self):
        host = self.session.record_microphone("--seconds", "4", "--progress")
        self.session.wait_for_capture()
        self.session.speak(media.glides(12))
        self.assert_ended_well(host)
        shown = re.findall(r"^(\d\d:\d\d\.\d)  (\d+) packets  \[[#.]{20}\] +(-?\d+\.\d) dBFS  \d+ empty reads$",
                           host.errors(), re.MULTILINE)
        self.assertGreaterEqual(len(shown), 3, host.errors())
        self.assertGreater(max(float(level) for _, _, level in shown), -12)
        self.assertGreater(int(shown[-1][1]), 100)


if __name__ == "__main__":
    session.main()
