#!/usr/bin/python3
"""Speech sent to "speaker1" comes out of endpoints of different formats, complete and unaltered."""

from rig import media, session


class StereoAt48000(session.SystemTest):
    def test_speech_is_heard_completely_at_48000_hz(self):
        speech = media.speech("speech")
        recorder = self.session.record()
        host = self.session.play(speech)
        self.assert_ended_well(host)
        self.assert_heard(recorder, speech)
        self.assertEqual(host.summary["framesSent"], media.frame_count(speech))
        self.assertEqual(host.log.count("Initialize end. BUFF_DURATIAN=3000000", "AudioPlayerWas::InitDefaultAudioDevice"), 2)
        self.assertEqual(host.log.count("needDelay. push all delay buffer queue"), 1)

    def test_speech_in_m4a_file_is_heard_completely(self):
        speech = media.speech("speech", container="m4a")
        recorder = self.session.record()
        host = self.session.play(speech)
        self.assert_ended_well(host)
        self.assert_heard(recorder, speech)

    def test_left_and_right_channels_are_not_swapped(self):
        speech = media.speech("speech-left", pan="pan=stereo|c0=c0|c1=0*c0")
        recorder = self.session.record()
        host = self.session.play(speech)
        self.assert_ended_well(host)
        self.assert_heard(recorder, speech)


class StereoAt44100(session.SystemTest):
    SINKS = (("spkA", 44100, 2),)

    def test_speech_is_heard_completely_at_44100_hz(self):
        speech = media.speech("speech")
        recorder = self.session.record(rate=44100)
        host = self.session.play(speech)
        self.assert_ended_well(host)
        self.assert_heard(recorder, speech)


class SixChannelsAt48000(session.SystemTest):
    SINKS = (("spkA", 48000, 6),)

    def test_speech_is_heard_completely_on_front_pair_of_six_channels(self):
        speech = media.speech("speech")
        recorder = self.session.record(channels=6)
        host = self.session.play(speech)
        self.assert_ended_well(host)
        self.assert_heard(recorder, speech)


if __name__ == "__main__":
    session.main()
