#!/usr/bin/python3
"""The default microphone changes or is lost during a recording. The host only continues to read."""

import time

from rig import compare, media, session
from rig.wine_prefix import PULSE_KEY

INVALIDATED = "Capture audio frame failed! err=0x88890004"  # AUDCLNT_E_DEVICE_INVALIDATED
POLLS_PER_SECOND = 100
NOTHING_RECORDED = 5
SOURCES = {"micB": "micB", "Monitor of micA": "micA.monitor"}  # PulseAudio's names of Windows' endpoints


class MicrophoneChange(session.SystemTest):
    """Both microphones get the same sound, so that the recording shows how much of it is missing after a change."""

    MICROPHONES = (session.MICROPHONE_48K,)

    def setUp(self):
        super().setUp()
        self.session.server.load_second_microphone("micB", "micA", 44100, 2)
        endpoints = self.session.endpoints("capture")
        self.identity = {name: endpoints[name] for name in ("micB", "Monitor of micA")}

    def test_recording_continues_on_new_default_device(self):
        spoken = media.glides(14)
        host = self.session.record_microphone()
        self.session.wait_for_capture()
        voice = self.session.speak(spoken)
        time.sleep(6)
        changed = time.time()
        self.session.prefix.make_default_input(self.identity["micB"])
        self.session.wait_for_capture("micB")
        voice.wait()
        self.end_recording(host)
        self.assert_one_gap(host, spoken, changed, most_s=3.0)

    def test_rapid_changes_end_in_one_capture_of_last_device(self):
        spoken = media.glides(16, seed=4)
        host = self.session.record_microphone()
        self.session.wait_for_capture()
        voice = self.session.speak(spoken)
        time.sleep(2)
        prefix, identities = self.session.prefix, list(self.identity.values())
        # One console runs all changes, so that they are faster than the restart of a capture.
        change = " & ".join(f'reg add {PULSE_KEY} /v DefaultInput /d {identities[turn % 2]} /f' for turn in range(21))
        prefix.run(["cmd", "/c", change])
        self.session.wait_for_capture("micB")
        voice.wait()
        self.end_recording(host)
        self.assertGreater(host.log.count("OnAudioStateChanged"), 3)
        result = self.compare_recorded(host.recording, spoken, search_s=10)
        last = [w for w in result.windows if w.start_s >= 13]
        self.assertGreaterEqual(sum(w.state == compare.GOOD for w in last), 12, "good windows in the last three seconds")

    def test_recording_continues_after_each_of_four_changes(self):
        spoken = media.glides(24, seed=6)
        host = self.session.record_microphone()
        self.session.wait_for_capture()
        voice = self.session.speak(spoken)
        changes = []
        for name in 2 * ("micB", "Monitor of micA"):
            time.sleep(4)
            self.session.prefix.make_default_input(self.identity[name])
            self.session.wait_for_capture(SOURCES[name])
            changes.append(time.time())
        voice.wait()
        self.end_recording(host)
        result, read_time = self.compare_recorded(host.recording, spoken, search_s=10), session.read_times(host.summary)
        for number, (begin, end) in enumerate(zip(changes, changes[1:] + [float("inf")]), 1):
            good = [w for w in result.good if begin < read_time(result.bounds(w)[0]) < end]
            self.assertGreaterEqual(len(good), 5, f"good windows after change {number}")

    def test_recording_resumes_on_next_default_after_device_is_removed(self):
        spoken = media.glides(16)
        self.session.prefix.make_default_input(self.identity["micB"])
        host = self.session.record_microphone()
        self.session.wait_for_capture("micB")
        voice = self.session.speak(spoken)
        time.sleep(5)
        removed = time.time()
        self.session.server.unload_source("micB")
        host.log.wait_for(INVALIDATED, times=20)
        self.assert_no_busy_wait(host)
        self.session.prefix.make_default_input(self.identity["Monitor of micA"])
        self.session.wait_for_capture()
        voice.wait()
        self.end_recording(host)
        self.assert_one_gap(host, spoken, removed, most_s=8.0)

    def test_recording_keeps_earlier_sound_when_audio_service_dies(self):
        spoken = media.glides(20)
        host = self.session.record_microphone()
        self.session.wait_for_capture()
        self.session.speak(spoken)
        time.sleep(7)
        self.session.server.kill()
        host.log.wait_for(INVALIDATED, times=20)
        self.assert_no_busy_wait(host)
        self.end_recording(host)
        self.assertEqual(media.file_warnings(host.recording), [])
        result = self.compare_recorded(host.recording, spoken)
        self.assertGreater(len(result.good), 15, "good windows")
        front = [w for w in result.windows if w.start_s < result.good[-1].start_s]
        self.assert_intact(result, session.read_times(host.summary), front)

    def assert_one_gap(self, host, spoken, since, most_s):
        """The recording lacks one piece of the sound, at most `most_s` seconds long, which was spoken after the time `since`."""
        result, read_time = self.compare_recorded(host.recording, spoken, search_s=most_s + 1), session.read_times(host.summary)
        last, begun, gap = self.assert_intact_around_gap(result, read_time, since)
        # The file also contains the priming of the second encoder.
        missing = (last.offset - begun.offset + 1024) / session.RECORDING_RATE
        lost = len(gap) * compare.WINDOW_S
        print(f"  {missing:.3f} s of sound are missing; {host.summary['longestGapMs']:.0f} ms without a packet", flush=True)
        self.assertGreaterEqual(missing, 0)
        bounds = (read_time(result.bounds(last)[1]), read_time(result.bounds(begun)[0]))
        self.assert_gap_at_most(missing, most_s, bounds)
        # The windows in the gap are those of the missing sound, and one on each side that lacks a part of its sound.
        self.assert_gap_at_most(lost, missing + 2 * compare.WINDOW_S, bounds)

    def assert_no_busy_wait(self, host):
        """Each failing poll writes about one log line, and the host uses little processor time."""
        self.assertLess(self.measure_after_loss(host), 1.5 * POLLS_PER_SECOND)
        self.assertTrue(host.running)


class WithoutAudioService(session.SystemTest):
    WITH_SERVER = False

    def test_recording_without_audio_service_is_empty_and_logs_reason(self):
        host = self.session.record_microphone("--seconds", "2")
        self.assertEqual(host.wait(60), NOTHING_RECORDED)
        self.assertEqual((host.summary["packets"], host.summary["nonzeroResults"]), (0, 0))
        self.assertGreater(host.summary["emptyReads"] + host.summary["stoppedReads"], 20)
        self.assertIn("nothing was recorded", host.errors())
        self.assertEqual(list(self.session.folder.glob("*.m4a*")), [])
        # REGDB_E_CLASSNOTREG: without the service, Wine 8 has no device enumerator. That of Wine 10 has no endpoint.
        self.assertEqual(host.log.count("Create IMMDeviceEnumerator failed, err=0x80040154")
                         + host.log.count("GetDefaultAudioEndpoint failed, err=0x80070490"), 1)
        self.assertGreater(host.log.count("m_bAtomStop is stop", "AudioCapture::GetAudioData"), 20)


if __name__ == "__main__":
    session.main()
