#!/usr/bin/python3
"""Streams one after the other on one load: each is heard whole, from its first unit to its last."""

import numpy

from rig import compare, media, paths, session

# Sound that reached the endpoint unaltered matches by 120 dB. Half a unit that is missing from the shortest
# stretch compared here, or sound of another stream in its place, leaves less than 20 dB.
EXACT_DB = 60.0
SILENCE = 1e-3    # -60 dBFS; the encoder leaves less in front of a sound
PRIMING = 800     # frames of silence, and some more, with which the AAC encoder begins


class Streams(session.SystemTest):
    def stream(self, name, units, seed):
        """An ADTS file of so many units that ends in the middle of a sound. It begins with the encoder's silent
        priming: of sound that begins at once, the monitor of a sink misses the first 3 ms."""
        whole = media.coded(self.session.folder / f"{name}-whole.aac", media.glides(units * 1024 / 48000 + 1, seed=seed))
        return media.write_units(self.session.folder / f"{name}.aac", media.units(whole)[:units])

    def decoded(self, *parts):
        """What one decoder makes of these files and units, one after the other."""
        units = [unit for part in parts for unit in (media.units(part) if not isinstance(part, list) else part)]
        return media.decode(media.write_units(self.session.folder / "expected.aac", units), 48000)

    def place(self, heard, expected, what):
        """Where a sound lies in a recording, all of it."""
        place, match_db = compare.find(heard, expected)
        print(f"  {what}: at {place / 48000:.3f} s, match {match_db:.1f} dB", flush=True)
        self.assert_sound(match_db >= EXACT_DB, f"{what}: match {match_db:.1f} dB")
        return place

    def assert_silent(self, heard, begin, end, what):
        peak = float(numpy.abs(heard[max(begin, 0):max(end, 0)]).max(initial=0))
        self.assert_sound(peak < SILENCE, f"{what}: a peak of {peak:.5f} at {begin / 48000:.3f} to {end / 48000:.3f} s")


class ConsecutiveStreams(Streams):
    def test_three_streams_are_heard_completely_and_separately(self):
        files = [self.stream(name, 62, seed) for seed, name in enumerate("abc", 1)]
        recorder = self.session.record()
        host = self.session.play(files[0], *map(paths.to_windows, files[1:]), "--gap", "0.8")
        self.assert_ended_well(host)
        self.assertEqual((host.summary["framesSent"], host.summary["silentUnits"]), (186, 15))
        # The endpoint has run empty before each stream, and must not while one plays.
        underruns = host.log.count("padding = 0") - len(files)
        self.assert_sound(underruns <= 0, f"the endpoint ran empty {underruns} times within a stream")
        heard, end, results = recorder.samples(), 0, []
        for file in files:
            expected = self.decoded(file, media.SILENT_END)
            result = compare.compare(heard, expected, 48000)
            self.report(file.stem, result)
            self.assert_whole(result, tolerated_windows=1, tolerated_slips=1)
            results.append(result)
            # The priming is silent; the decoder would add to it what is left of the stream before.
            begin = result.good[0].offset
            self.assert_silent(heard, end, begin + PRIMING, f"before {file.stem}")
            end = result.good[-1].offset + len(expected)
        self.assert_silent(heard, end, len(heard), "behind the last")
        # What a busy machine does to sound behind the module: one window in most runs that it damages at all.
        damaged = sum(len(result.damaged) for result in results)
        self.assert_sound(damaged <= 2, f"{damaged} windows are damaged")


class ShortStream(Streams):
    def test_short_stream_with_silent_end_is_heard_completely(self):
        short = self.stream("short", 3, 4)
        recorder = self.session.record()
        host = self.session.play(short)
        self.assert_ended_well(host)
        self.assertEqual((host.summary["framesSent"], host.summary["silentUnits"]), (3, 5))
        self.place(recorder.samples(), self.decoded(short, media.SILENT_END), "short")

    def test_short_stream_without_silent_end_is_heard_before_next_stream(self):
        short, following = self.stream("short", 3, 5), self.stream("following", 47, 6)
        recorder = self.session.record()
        host = self.session.play(short, paths.to_windows(following), "--gap", "1", "--no-silent-end")
        self.assert_ended_well(host)
        self.assertEqual((host.summary["framesSent"], host.summary["silentUnits"]), (50, 0))
        heard = recorder.samples()
        place = self.place(heard, self.decoded(short, following), "both in one")
        self.assert_silent(heard, 0, place, "before both")

    def test_c_player_example_plays_short_stream_completely(self):
        short = self.stream("short", 3, 7)
        recorder = self.session.record()
        host = self.session.host(paths.to_windows(short), program=paths.EXAMPLE_HOST)
        self.assert_ended_well(host, last_words="3 frames sent, 0 refused")
        self.assertIn("3 frames sent, 0 refused", host.output())
        self.place(recorder.samples(), self.decoded(short, media.SILENT_END), "short")


class EndOfStream(Streams):
    def test_stream_is_heard_to_last_sample_with_full_queue(self):
        file = self.stream("fast", 120, 8)
        recorder = self.session.record()
        # Twice as fast as it is played: the module's queue and the endpoint are full at the end. What is
        # dropped is the oldest in the queue, so that the queue's own last units are whole.
        host = self.session.play(file, "--pace-rate", "96000")
        self.assert_ended_well(host)
        kept = 1024 * 19
        self.place(recorder.samples(), self.decoded(file, media.SILENT_END)[-kept:], "the last of it")


if __name__ == "__main__":
    session.main()
