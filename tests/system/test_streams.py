#!/usr/bin/python3
"""Consecutive streams in one process: each is heard completely, from its first unit to its last."""

import numpy

from rig import compare, damage, media, paths, session

# Unaltered sound matches by 120 dB. If half a unit is missing from the shortest sound that is compared here, or comes
# from another stream, the match is below 20 dB.
EXACT_DB = 60.0
SILENCE = compare.QUIET_RMS  # the encoder's priming is quieter
LEAST_PERIOD_S = 1.3 + 0.8 - 0.3  # from the start of a stream to that of the next one: its length, and the gap
KEPT_BY_RESAMPLER = 48  # frames; 8 were seen
PRIMING = 800     # frames that are certainly silent at the start of the AAC encoder's output


class Streams(session.SystemTest):
    def stream(self, name, units, seed):
        """Makes an ADTS file of `units` units that ends in the middle of the sound. It begins with the encoder's silent
        priming, because the monitor of a sink misses the first 3 ms of a sound."""
        whole = media.coded(self.session.folder / f"{name}-whole.aac", media.glides(units * 1024 / 48000 + 1, seed=seed))
        return media.write_units(self.session.folder / f"{name}.aac", media.units(whole)[:units])

    def decoded(self, *parts):
        """Returns the samples of the files and lists of units, decoded as one stream."""
        units = [unit for part in parts for unit in (media.units(part) if not isinstance(part, list) else part)]
        return media.decode(media.write_units(self.session.folder / "expected.aac", units), 48000)

    def place(self, recorder, expected, label):
        """Returns the frame of the recording at which a sound begins. All of the sound must match."""
        heard = recorder.samples()
        place, match_db = compare.find(heard, expected)
        print(f"  {label}: at {place / 48000:.3f} s, match {match_db:.1f} dB", flush=True)
        if match_db < EXACT_DB:
            is_found = match_db > 0.0  # otherwise, the sound can be anywhere
            begin, end = (place, place + len(expected)) if is_found else (0, len(heard))
            what = f"{label}: match {match_db:.1f} dB" if is_found else f"{label} was not heard"
            damage.check([damage.Place(recorder.time_of(begin), recorder.time_of(end), what)], self.stalls(), accepted=0)
        return place

    def assert_silent(self, heard, begin, end, label):
        peak = float(numpy.abs(heard[max(begin, 0):max(end, 0)]).max(initial=0))
        self.assertLess(peak, SILENCE, f"{label}: a peak between {begin / 48000:.3f} and {end / 48000:.3f} s")


class ConsecutiveStreams(Streams):
    def test_three_streams_are_heard_completely_and_separately(self):
        files = [self.stream(name, 62, seed) for seed, name in enumerate("abc", 1)]
        recorder = self.session.record()
        host = self.session.play(files[0], *map(paths.to_windows, files[1:]), "--gap", "0.8")
        self.assert_ended_well(host)
        self.assertEqual((host.summary["unitsSent"], host.summary["silentUnits"]), (186, 15))
        # The endpoint is empty before each stream. It must not run empty within a stream.
        empty = host.log.times_of("padding = 0")
        self.assert_undamaged([(moment, moment, f"the endpoint ran empty, {moment - before:.2f} s after the time before")
                               for before, moment in zip(empty, empty[1:]) if moment - before < LEAST_PERIOD_S])
        heard, end = recorder.samples(), 0
        for file in files:
            expected = self.decoded(file, media.SILENT_END)
            result = compare.compare(heard, expected, 48000)
            self.report(file.stem, result)
            self.assert_intact(result, recorder.time_of)
            # Sound of the previous stream that remained in the decoder would be heard during the priming.
            begin = result.good[0].offset
            self.assert_silent(heard, end, begin + PRIMING, f"before {file.stem}")
            end = result.good[-1].offset + len(expected)
        self.assert_silent(heard, end, len(heard), "after the last stream")


class ShortStream(Streams):
    def test_short_stream_with_silent_end_is_heard_completely(self):
        short = self.stream("short", 3, 4)
        recorder = self.session.record()
        host = self.session.play(short)
        self.assert_ended_well(host)
        self.assertEqual((host.summary["unitsSent"], host.summary["silentUnits"]), (3, 5))
        self.place(recorder, self.decoded(short, media.SILENT_END), "short")

    def test_short_stream_without_silent_end_is_heard_before_next_stream(self):
        short, following = self.stream("short", 3, 5), self.stream("following", 47, 6)
        recorder = self.session.record()
        host = self.session.play(short, paths.to_windows(following), "--gap", "1", "--no-silent-end")
        self.assert_ended_well(host)
        self.assertEqual((host.summary["unitsSent"], host.summary["silentUnits"]), (50, 0))
        heard = recorder.samples()
        # Newer versions of Wine resample each stream. The resampler keeps the last frames of a sound that no silence follows.
        place = self.place(recorder, self.decoded(short, following)[:-KEPT_BY_RESAMPLER], "short and following")
        self.assert_silent(heard, 0, place, "before short")

    def test_c_player_example_plays_short_stream_completely(self):
        short = self.stream("short", 3, 7)
        recorder = self.session.record()
        host = self.session.host(paths.to_windows(short), program=paths.EXAMPLE_HOST)
        self.assert_ended_well(host, last_words="3 units sent, 0 refused")
        self.assertIn("3 units sent, 0 refused", host.output())
        self.place(recorder, self.decoded(short, media.SILENT_END), "short")


class EndOfStream(Streams):
    def test_stream_is_heard_to_last_sample_with_full_queue(self):
        file = self.stream("fast", 120, 8)
        recorder = self.session.record()
        # The host sends twice as fast as the endpoint plays, so the module's queue and the endpoint are full at the
        # end. The queue drops its oldest blocks, so the last 19 must be complete.
        host = self.session.play(file, "--pace-rate", "96000")
        self.assert_ended_well(host)
        kept = 1024 * 19
        self.place(recorder, self.decoded(file, media.SILENT_END)[-kept:], "the last 19 units")


if __name__ == "__main__":
    session.main()
