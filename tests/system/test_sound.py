#!/usr/bin/python3
"""Endpoints of different formats play the speech sent to "speaker1" completely and unaltered."""

from rig import media, session


class StereoAt48000(session.SystemTest):
    def test_speech_is_heard_completely_at_48000_hz(self):
        speech = media.speech("speech")
        host = self.assert_plays_completely(speech)
        self.assertEqual(host.summary["unitsSent"], media.unit_count(speech))
        self.assertEqual(host.log.count("Initialize end. BUFF_DURATIAN=3000000", "AudioPlayerWas::InitDefaultAudioDevice"), 2)
        self.assertEqual(host.log.count("needDelay. push all delay buffer queue"), 1)

    def test_speech_in_m4a_file_is_heard_completely(self):
        self.assert_plays_completely(media.speech("speech", container="m4a"))

    def test_left_and_right_channels_are_not_swapped(self):
        self.assert_plays_completely(media.speech("speech-left", pan="pan=stereo|c0=c0|c1=0*c0"))


class StereoAt44100(session.SystemTest):
    SINKS = (("spkA", 44100, 2),)

    def test_speech_is_heard_completely_at_44100_hz(self):
        self.assert_plays_completely(media.speech("speech"), rate=44100)


class SixChannelsAt48000(session.SystemTest):
    SINKS = (("spkA", 48000, 6),)

    def test_speech_is_heard_completely_on_front_pair_of_six_channels(self):
        self.assert_plays_completely(media.speech("speech"), channels=6)


if __name__ == "__main__":
    session.main()
