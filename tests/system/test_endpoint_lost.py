#!/usr/bin/python3
"""An endpoint, or the whole audio service, goes away while sound plays."""

import time

from rig import media, session

INVALIDATED = -2004287484  # AUDCLNT_E_DEVICE_INVALIDATED
GENERAL_FAILURE = -2147467259
BLOCKS_PER_SECOND = 48000 / 1024
BUFFER_FRAMES = 14400  # of the lost client: 300 ms at 48000 Hz


class EndpointLost(session.SystemTest):
    SINKS = (("spkA", 48000, 2), ("spkB", 48000, 2))

    def test_playback_returns_on_next_default_after_endpoint_is_removed(self):
        speech = media.speech("speech")
        endpoints = self.session.endpoints()
        identity = {sink: next(i for n, i in endpoints.items() if sink in n) for sink in ("spkA", "spkB")}
        self.session.prefix.make_default_output(identity["spkB"])
        first, second = self.session.record("spkA"), self.session.record("spkB")
        host = self.session.play(speech, "--loop", "--seconds", "25")
        second.wait_for_sound(60)
        second.wait_for_more(2)
        self.session.server.unload_sink("spkB")
        host.log.wait_for(f"Unable to get padding with {INVALIDATED} padding=")
        host.log.wait_for("Need to deal with audio property value change")
        host.log.wait_for(f"CheckDeviceChanged failed audioBufferSize={BUFFER_FRAMES}", times=20)
        self.assert_no_spin(host)
        self.session.prefix.make_default_output(identity["spkA"])
        first.wait_for_sound(30)
        self.assert_ended_well(host)
        self.assertEqual(host.summary["nonzeroResults"], 0)
        self.assertEqual(host.log.count("Need to change default audio device."), 1)

    def test_playback_neither_crashes_nor_spins_when_audio_service_dies(self):
        speech = media.speech("speech")
        recorder = self.session.record()
        host = self.session.play(speech, "--loop", "--seconds", "16")
        recorder.wait_for_sound(60)
        recorder.wait_for_more(2)
        self.session.server.kill()
        host.log.wait_for(f"Unable to get padding with {INVALIDATED} padding=")
        host.log.wait_for("Need to deal with audio property value change")
        host.log.wait_for(f"AudioPlayerWas function fail with {GENERAL_FAILURE}. Release resource. Line:186")
        host.log.wait_for(f"CheckDeviceChanged failed audioBufferSize={BUFFER_FRAMES}", times=20)
        self.assert_no_spin(host)
        self.assert_ended_well(host)
        self.assertEqual(host.summary["nonzeroResults"], 0)

    def test_playback_returns_after_audio_service_stalls(self):
        speech = media.speech("speech")
        recorder = self.session.record()
        host = self.session.play(speech, "--loop", "--seconds", "14")
        recorder.wait_for_sound(60)
        recorder.wait_for_more(2)
        self.session.server.freeze()
        try:
            # A full buffer is retried nine times per block, never more.
            host.log.wait_for("audioRetryCount=8", times=3)
        finally:
            self.session.server.thaw()
        mark = recorder.samples().shape[0]
        self.until(lambda: recorder.peak_since(mark + 24000) > 0.02, "sound after the stall")
        self.assert_ended_well(host)
        self.assertEqual(host.log.count("audioRetryCount=9"), 0)
        self.assertEqual(host.summary["nonzeroResults"], 0)

    def assert_no_spin(self, host, seconds=3.0):
        """While blocks keep coming and fail, the work stays in proportion to the blocks."""
        lines, cpu, begun = host.log.count(""), host.cpu_seconds(), time.monotonic()
        time.sleep(seconds)
        passed = time.monotonic() - begun
        lines, cpu = host.log.count("") - lines, host.cpu_seconds() - cpu
        print(f"  after the loss: {lines / passed:.0f} log lines/s, {100 * cpu / passed:.0f} % of a core", flush=True)
        self.assertGreater(lines, 0.5 * BLOCKS_PER_SECOND * passed)
        self.assertLess(lines, 3 * BLOCKS_PER_SECOND * passed)
        self.assertLess(cpu, 0.5 * passed)


if __name__ == "__main__":
    session.main()
