#!/usr/bin/python3
"""The comparison of recordings detects each kind of damage, and accepts intact sound."""

import tempfile
import unittest

import numpy

from rig import compare, media, sound_check

RATE = 48000
NOTHING_HEARD = "none of the sound was heard"


def voice(seconds=8.0, seed=1):
    """Noise like speech in two channels: syllables of varying loudness, and mostly low frequencies."""
    random = numpy.random.default_rng(seed)
    count = int(seconds * RATE)
    white = random.standard_normal((count, 2))
    spectrum = numpy.fft.rfft(white, axis=0) / (1 + (numpy.fft.rfftfreq(count, 1 / RATE) / 500.0)[:, None])
    sound = numpy.fft.irfft(spectrum, count, axis=0)
    envelope = 0.2 + numpy.abs(numpy.sin(numpy.arange(count) / RATE * 9.0))[:, None]
    sound *= envelope
    return 0.3 * sound / numpy.abs(sound).max()


def resampled(sound, factor):
    place = numpy.arange(0, len(sound) - 1, factor)
    return numpy.stack([numpy.interp(place, numpy.arange(len(sound)), c) for c in sound.T], axis=1)


def silence(seconds):
    return numpy.zeros((int(seconds * RATE), 2))


class Comparison(unittest.TestCase):
    def setUp(self):
        self.sent = voice()

    def verdict(self, heard):
        self.result = compare.compare(heard, self.sent, RATE)
        return self.result.verdict()

    def test_comparison_accepts_perfect_copy_at_any_delay(self):
        for delay in (0.0, 0.7312, 5.0):
            self.assertEqual(self.verdict(numpy.concatenate([silence(delay), self.sent, silence(1)])), "")
            self.assertEqual(self.result.offset, int(delay * RATE))
            self.assertEqual(compare.first_sound(self.result), int(delay * RATE))
            self.assertEqual((self.result.dropouts, len(self.result.damaged), self.result.slips), (0, 0, 0))
            self.assertGreater(self.result.match_db, 60)

    def test_comparison_accepts_slightly_lower_volume(self):
        self.assertEqual(self.verdict(0.8 * self.sent), "")
        self.assertAlmostEqual(self.result.gain, 0.8, 2)

    def test_comparison_accepts_fractional_sample_delay(self):
        self.assertEqual(self.verdict(compare.delayed(self.sent, 0, len(self.sent), (0.37,))[0]), "")

    def test_comparison_accepts_noise_far_below_sound(self):
        noise = 1e-4 * numpy.random.default_rng(2).standard_normal(self.sent.shape)
        self.assertEqual(self.verdict(self.sent + noise), "")

    def test_comparison_refuses_silence(self):
        self.assertEqual(self.verdict(silence(9)), NOTHING_HEARD)

    def test_comparison_refuses_empty_recording(self):
        self.assertEqual(self.verdict(numpy.zeros((0, 2))), NOTHING_HEARD)

    def test_comparison_refuses_noise(self):
        noise = 0.1 * numpy.random.default_rng(3).standard_normal(self.sent.shape)
        self.assertEqual(self.verdict(noise), NOTHING_HEARD)

    def test_comparison_refuses_other_sound_of_same_kind(self):
        self.assertEqual(self.verdict(voice(seed=9)), NOTHING_HEARD)

    def test_comparison_refuses_wrong_speeds(self):
        for factor in (22050 / 48000, 44100 / 48000, 2.0, 1.01, 0.99, 1.001, 1.0002):
            self.assertNotEqual(self.verdict(resampled(self.sent, factor)), "", factor)

    def test_comparison_refuses_slightly_wrong_speed_when_every_window_matches(self):
        count = numpy.arange(8 * RATE)
        self.sent = 0.3 * numpy.stack([numpy.sin(count ** 2 * 1e-7 + k) for k in (0, 1)], axis=1)
        self.assertIn("speed", self.verdict(resampled(self.sent, 1.00005)))

    def test_comparison_refuses_loud_noise_over_sound(self):
        noise = 0.05 * numpy.random.default_rng(4).standard_normal(self.sent.shape)
        self.assertNotEqual(self.verdict(self.sent + noise), "")

    def test_comparison_refuses_swapped_channels(self):
        self.assertNotEqual(self.verdict(self.sent[:, ::-1]), "")

    def test_comparison_refuses_one_silent_channel(self):
        self.assertNotEqual(self.verdict(self.sent * [1.0, 0.0]), "")

    def test_comparison_refuses_inverted_polarity(self):
        self.assertNotEqual(self.verdict(-self.sent), "")

    def test_comparison_refuses_tenth_of_volume(self):
        self.assertIn("volume", self.verdict(0.1 * self.sent))

    def test_comparison_refuses_sound_that_stops_halfway(self):
        self.assertIn("damaged", self.verdict(numpy.concatenate([self.sent[:4 * RATE], silence(5)])))

    def test_comparison_refuses_one_second_of_silence(self):
        heard = self.sent.copy()
        heard[3 * RATE:4 * RATE] = 0
        self.assertIn("damaged", self.verdict(heard))
        self.assertEqual(self.result.dropouts, 1)
        self.assertTrue(all(2.8 <= w.start_s < 4.0 for w in self.result.damaged))

    def test_comparison_follows_and_counts_inserted_pause(self):
        cut = int(3.1 * RATE)
        heard = numpy.concatenate([self.sent[:cut], silence(0.3), self.sent[cut:]])
        self.assertNotEqual(self.verdict(heard), "")
        self.assertEqual((self.result.slips, self.result.dropouts), (1, 1))
        self.assertEqual([frames for _, frames in self.result.slips_at], [int(0.3 * RATE)])
        self.assertLessEqual(len(self.result.damaged), 1)

    def test_comparison_follows_and_counts_missing_piece(self):
        heard = numpy.delete(self.sent, slice(3 * RATE, int(3.1 * RATE)), axis=0)
        self.assertNotEqual(self.verdict(heard), "")
        self.assertEqual((self.result.slips, self.result.dropouts), (1, 1))
        self.assertEqual([frames for _, frames in self.result.slips_at], [-int(0.1 * RATE)])

    def test_comparison_refuses_many_pauses(self):
        pieces = [p for i in range(8) for p in (self.sent[i * RATE:(i + 1) * RATE], silence(0.05))]
        self.assertNotEqual(self.verdict(numpy.concatenate(pieces)), "")

    def test_comparison_refuses_single_damaged_window(self):
        heard = self.sent.copy()
        heard[int(5.05 * RATE):int(5.10 * RATE)] = 0
        self.assertEqual(self.verdict(heard), "1 of 40 windows are damaged, at 5.0 s")

    def test_comparison_refuses_click_in_quiet_passage(self):
        self.sent[2 * RATE:3 * RATE] = 0
        heard = self.sent.copy()
        heard[int(2.5 * RATE):int(2.51 * RATE)] = 0.5
        self.assertNotEqual(self.verdict(heard), "")

    def test_comparison_refuses_passage_at_different_volume(self):
        heard = self.sent.copy()
        heard[4 * RATE:5 * RATE] *= 0.5
        self.assertIn("damaged", self.verdict(heard))


class CodedSoundComparison(unittest.TestCase):
    """Sound that went through an AAC encoder."""

    @classmethod
    def setUpClass(cls):
        cls.sent = media.glides(8)
        with tempfile.TemporaryDirectory() as folder:
            cls.coded = media.decode(media.coded(f"{folder}/coded.m4a", cls.sent, bit_rate=128), RATE)

    def verdict(self, heard):
        self.result = compare.compare(heard, self.sent, RATE, compare.CODED_MATCH_DB)
        return self.result.verdict()

    def test_coded_comparison_accepts_encoder_loss(self):
        self.assertEqual(self.verdict(numpy.concatenate([silence(0.7312), self.coded])), "")
        self.assertEqual((len(self.result.damaged), self.result.slips, self.result.drift), (0, 0, 0))
        self.assertGreater(min(w.match_db for w in self.result.windows), compare.CODED_MATCH_DB + 2)

    def test_coded_comparison_refuses_silence_and_other_sound(self):
        self.assertEqual(self.verdict(silence(9)), NOTHING_HEARD)
        self.assertEqual(self.verdict(media.glides(8, seed=7)), NOTHING_HEARD)

    def test_coded_comparison_refuses_swapped_silent_and_copied_channels(self):
        self.assertNotEqual(self.verdict(self.coded[:, ::-1]), "")
        self.assertNotEqual(self.verdict(self.coded * [1.0, 0.0]), "")
        self.assertNotEqual(self.verdict(self.coded[:, [0, 0]]), "")

    def test_coded_comparison_refuses_wrong_speeds(self):
        for factor in (44100 / 48000, 2.0, 0.5, 1.001, 0.9998):
            self.assertNotEqual(self.verdict(resampled(self.coded, factor)), "", factor)

    def test_coded_comparison_detects_missing_packet(self):
        heard = numpy.delete(self.coded, slice(3 * RATE, 3 * RATE + 1024), axis=0)
        self.assertNotEqual(self.verdict(heard), "")
        self.assertEqual(self.result.slips, 1)

    def test_coded_comparison_detects_repeated_packet(self):
        place = 3 * RATE
        heard = numpy.concatenate([self.coded[:place], self.coded[place - 1024:]])
        self.assertNotEqual(self.verdict(heard), "")
        self.assertEqual(self.result.slips, 1)

    def test_coded_comparison_detects_silent_packet(self):
        heard = self.coded.copy()
        heard[3 * RATE + 2000:3 * RATE + 3024] = 0
        self.assertNotEqual(self.verdict(heard), "")
        self.assertEqual([round(w.start_s, 1) for w in self.result.damaged], [3.0])


class LoopedSoundCheck(unittest.TestCase):
    def setUp(self):
        self.period = media.glides(20, seed=3)[:, 0]
        self.check = sound_check.SoundCheck(self.period, RATE, good_db=20)

    def feed(self, *pieces):
        heard = numpy.concatenate(pieces)
        for begin in range(0, len(heard), 100001):
            self.check.feed(heard[begin:begin + 100001])

    def test_looped_sound_check_reports_nothing_at_loop_point(self):
        self.feed(numpy.zeros(5000), self.period[1000:], self.period)
        self.assertEqual((self.check.damaged, self.check.slips), (0, []))
        self.assertGreater(self.check.windows, 190)
        self.assertEqual(self.check.places[0], (9600, 5600))

    def test_looped_sound_check_reports_missing_and_added_sound_as_slips(self):
        self.feed(self.period, self.period[4096:], self.period[:96000], numpy.zeros(3000), self.period[96000:])
        self.assertEqual([slip.frames for slip in self.check.slips], [4096, -3000])
        self.assertLessEqual(self.check.damaged, 2)

    def test_looped_sound_check_reports_silence_noise_and_wrong_speed(self):
        noise = numpy.random.default_rng(2).standard_normal(RATE)
        for name, heard in (("silence", numpy.zeros(RATE)), ("noise", 0.1 * noise),
                            ("speed", resampled(self.period[:2 * RATE, None], 1.01)[:RATE, 0])):
            with self.subTest(name):
                check = sound_check.SoundCheck(self.period, RATE, good_db=20)
                check.feed(self.period[:RATE])
                check.feed(heard)
                check.feed(self.period[RATE:2 * RATE])
                self.assertEqual((check.windows, check.damaged, check.slips[0].frames), (15, 5, -RATE))

    def test_looped_sound_check_reports_passage_at_different_volume(self):
        heard = self.period.copy()
        heard[4 * RATE:5 * RATE] *= 0.7
        self.feed(heard)
        self.assertEqual((self.check.windows, self.check.damaged, self.check.slips), (100, 5, []))

    def test_both_comparisons_agree_about_each_window(self):
        """The comparison of a whole recording and the check of a looped sound count the same damage."""
        random = numpy.random.default_rng(5)
        whole = self.period[:8 * RATE].copy()
        for gain in (0.55, 0.8, 0.86, 1.15, 1.3, 1.9):
            begin = 9600 * int(random.integers(1, 38))
            heard = whole.copy()
            heard[begin:begin + 9600] *= gain
            check = sound_check.SoundCheck(self.period, RATE, good_db=compare.GOOD_MATCH_DB)
            check.feed(heard)
            result = compare.compare(heard, whole, RATE)
            self.assertEqual((check.damaged, len(check.slips)), (len(result.damaged), result.slips), gain)
            self.assertEqual(check.damaged, 0 if 1 / compare.GAIN_SPREAD <= gain <= compare.GAIN_SPREAD else 1, gain)


if __name__ == "__main__":
    unittest.main(verbosity=2)
