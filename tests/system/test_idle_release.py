#!/usr/bin/python3
"""The speakers are released after four minutes without a unit, and reopened at the next unit. Takes over four minutes."""

from rig import compare, media, session
from rig.module_log import FIRST_FRAME, IDLE_RELEASE


class IdleRelease(session.SystemTest):
    def test_speakers_are_released_once_when_idle_and_play_again(self):
        speech = media.speech("speech")
        recorder = self.session.record()
        host = self.session.play(speech, "--pause-after", "5", "--pause", "246")
        recorder.wait_for_sound(60)
        self.until(lambda: len(self.session.server.streams()) == 2, "one stream for each speaker")
        recorder.wait_for_more(10)
        # Examined before the pause ends: if the machine spoils this part, its repetition does not cost four minutes.
        self.assert_part_heard("before", recorder, 0, speech, 0.0, 4.6)
        host.log.wait_for(IDLE_RELEASE, 300)
        self.assertEqual(host.log.count(FIRST_FRAME), 1, "the line of the first unit")
        idle = host.log.time_of(IDLE_RELEASE) - host.log.time_of(FIRST_FRAME)
        self.assertTrue(240 < idle < 300, f"released after {idle:.1f} s")
        self.session.wait_for_end_of_streams()
        self.assertTrue(host.running)
        self.until(lambda: len(self.session.server.streams()) == 2, "the two streams after the pause", 60)
        self.assert_ended_well(host, 120)
        self.assertEqual(host.log.count(IDLE_RELEASE), 1)
        self.assertEqual(host.log.count("Initialize end. BUFF_DURATIAN=3000000"), 4)
        self.assertEqual(host.summary["nonzeroResults"], 0)
        self.assert_part_heard("after", recorder, 120 * recorder.rate, speech, 5.4, 99.0)

    def assert_part_heard(self, label, recorder, first, path, low, high):
        """The recording from frame `first` on has all of the sound between the times low and high, in s of the file."""
        result = compare.compare(recorder.samples()[first:], media.decode(path, 48000), recorder.rate)
        self.report(label, result)
        windows = [w for w in result.windows if low <= w.start_s < high]
        self.assert_intact(result, lambda frame: recorder.time_of(first + frame), windows)
        self.assertGreater(sum(w.state == compare.GOOD for w in windows), 15, label)


if __name__ == "__main__":
    session.main()
