#!/usr/bin/python3
"""The audio service starts after the host. Takes over four minutes."""

from rig import compare, media, session
from rig.module_log import FIRST_FRAME, IDLE_RELEASE


# Without the service, Wine 8 has no device enumerator (REGDB_E_CLASSNOTREG), and that of Wine 10 has no endpoint
# (ERROR_NOT_FOUND).
NO_SERVICE = ("AudioPlayerWas function fail with -2147221164. Release resource. Line:272",
              "AudioPlayerWas function fail with -2147023728. Release resource. Line:296")


class LateServer(session.SystemTest):
    WITH_SERVER = False

    def test_playback_starts_after_idle_release_when_service_starts_late(self):
        speech = media.speech("speech")
        host = self.session.play(speech, "--pause-after", "4", "--pause", "246")
        self.until(lambda: sum(map(host.log.count, NO_SERVICE)) >= 2, "both speakers to fail to start", 60)
        host.log.wait_for("CheckDeviceChanged failed audioBufferSize=0", 30, times=20)
        self.session.server.start()
        recorder = self.session.record()
        host.log.wait_for(IDLE_RELEASE, 300)
        self.assertLess(host.log.time_of(IDLE_RELEASE) - host.log.time_of(FIRST_FRAME), 300)
        self.assert_ended_well(host, 120)
        self.assertEqual(host.summary["nonzeroResults"], 0)
        self.assertEqual(host.log.count(IDLE_RELEASE), 1)
        result = compare.compare(recorder.samples(), media.decode(speech, 48000), 48000)
        self.report("second part", result)
        second = [w for w in result.windows if w.start_s >= 4.4]
        self.assert_intact(result, recorder.time_of, second)
        self.assertGreater(sum(w.state == compare.GOOD for w in second), 20)


if __name__ == "__main__":
    session.main()
