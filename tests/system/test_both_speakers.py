#!/usr/bin/python3
"""The media speaker and the call speaker play at once, in two streams, and both are heard completely."""

from rig import media, paths, session


class BothSpeakers(session.SystemTest):
    def test_both_speakers_are_heard_completely_at_once(self):
        left = media.speech("speech-left", pan="pan=stereo|c0=c0|c1=0*c0")
        right = media.speech("speech-right-backwards", pan="pan=stereo|c0=0*c0|c1=c0", backwards=True)
        recorder = self.session.record()
        host = self.session.play(left, "--also-modem", paths.to_windows(right))
        recorder.wait_for_sound(60)
        self.until(lambda: len(self.session.server.streams()) == 2, "two streams in the server")
        self.assert_ended_well(host)
        self.assert_heard(recorder, left, channels=slice(0, 1))
        self.assert_heard(recorder, right, channels=slice(1, 2))

    def test_call_speaker_alone_is_heard_completely(self):
        self.assert_plays_completely(media.speech("speech"), "--device", "ModemSpeaker1")


if __name__ == "__main__":
    session.main()
