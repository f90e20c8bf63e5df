#!/usr/bin/python3
"""An endpoint, or the audio service, is lost while sound plays."""

from rig import media, session

INVALIDATED = -2004287484  # AUDCLNT_E_DEVICE_INVALIDATED
GENERAL_FAILURE = -2147467259
BLOCKS_PER_SECOND = 48000 / 1024
BUFFER_FRAMES = 14400  # 300 ms at 48000 Hz, in the client of the lost endpoint


class EndpointLost(session.SystemTest):
    SINKS = (("spkA", 48000, 2), ("spkB", 48000, 2))

    def play(self, recorder, seconds):
        """Starts to play speech in a loop. Returns the host after two seconds of sound."""
        host = self.session.play(media.speech("speech"), "--loop", "--seconds", seconds)
        recorder.wait_for_sound(60)
        recorder.wait_for_more(2)
        return host

    def test_playback_resumes_on_next_default_after_endpoint_is_removed(self):
        endpoints = self.session.endpoints()
        self.session.prefix.make_default_output(endpoints["spkB"])
        first, second = self.session.record("spkA"), self.session.record("spkB")
        host = self.play(second, 25)
        self.session.server.unload_sink("spkB")
        host.log.wait_for(f"Unable to get padding with {INVALIDATED} padding=")
        host.log.wait_for("Need to deal with audio property value change")
        host.log.wait_for(f"CheckDeviceChanged failed audioBufferSize={BUFFER_FRAMES}", times=20)
        self.assert_no_busy_wait(host)
        self.session.prefix.make_default_output(endpoints["spkA"])
        first.wait_for_sound(30)
        self.assert_ended_well(host)
        self.assertEqual(host.summary["nonzeroResults"], 0)
        self.assertEqual(host.log.count("Need to change default audio device."), 1)
        self.assertLessEqual({"speaker-removed", "speaker-lost", "speaker-changed"}, self.session.rows_of(host))

    def test_playback_neither_crashes_nor_busy_waits_when_audio_service_dies(self):
        host = self.play(self.session.record(), 16)
        self.session.server.kill()
        host.log.wait_for(f"Unable to get padding with {INVALIDATED} padding=")
        host.log.wait_for("Need to deal with audio property value change")
        host.log.wait_for(f"AudioPlayerWas function fail with {GENERAL_FAILURE}. Release resource. Line:186")
        host.log.wait_for(f"CheckDeviceChanged failed audioBufferSize={BUFFER_FRAMES}", times=20)
        self.assert_no_busy_wait(host)
        self.assert_ended_well(host)
        self.assertEqual(host.summary["nonzeroResults"], 0)
        self.assertLessEqual({"speaker-removed", "step-failed", "speaker-lost"}, self.session.rows_of(host))

    def test_playback_resumes_after_audio_service_stalls(self):
        recorder = self.session.record()
        host = self.play(recorder, 14)
        self.session.server.freeze()
        try:
            # Each block finds the buffer full at most nine times: the log counts from 0 to 8.
            host.log.wait_for("audioRetryCount=8", times=3)
        finally:
            self.session.server.thaw()
        mark = recorder.samples().shape[0]
        self.until(lambda: recorder.peak_since(mark + 24000) > 0.02, "sound after the stall")
        self.assert_ended_well(host)
        self.assertEqual(host.log.count("audioRetryCount=9"), 0)
        self.assertIn("speaker-stuck", self.session.rows_of(host))
        self.assertEqual(host.summary["nonzeroResults"], 0)

    def assert_no_busy_wait(self, host):
        """Each lost block writes a few log lines, and the host uses little processor time."""
        lines_per_second = self.measure_after_loss(host)
        self.assertGreater(lines_per_second, 0.5 * BLOCKS_PER_SECOND)
        self.assertLess(lines_per_second, 3 * BLOCKS_PER_SECOND)


if __name__ == "__main__":
    session.main()
