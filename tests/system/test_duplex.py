#!/usr/bin/python3
"""A call of two minutes: both directions are complete."""

from rig import compare, media, paths, session

MINUTES = 2
# Each stall of the machine delays the played sound, or loses recorded sound. Over two minutes, this can add up to seconds.
SEARCH_S = 10


class Duplex(session.SystemTest):
    MICROPHONES = (session.MICROPHONE_48K,)

    def test_both_directions_are_complete_for_two_minutes(self):
        seconds = 60 * MINUTES
        spoken = media.glides(seconds, seed=21)
        sent = media.coded(self.session.folder / "sent.aac", media.glides(seconds + 4, seed=22))
        recording = self.session.folder / "recorded.m4a"
        recorder = self.session.record()
        host = self.session.host("duplex", "--play", paths.to_windows(sent), "--record", paths.to_windows(recording),
                                 "--packet-times", "--json")
        self.session.wait_for_capture()
        self.session.speak(spoken).wait()
        self.assert_ended_well(host)
        self.assertEqual(host.summary["play"]["nonzeroResults"], 0)
        self.assertEqual(host.summary["record"]["nonzeroResults"], 0)
        self.assertEqual(host.summary["play"]["unitsSent"], media.unit_count(sent))
        result = self.compare_recorded(recording, spoken, search_s=SEARCH_S)
        self.assert_intact(result, session.read_times(host.summary["record"]), minutes=MINUTES)
        result = compare.compare(recorder.samples(), media.decode(sent, 48000), 48000, search_s=SEARCH_S)
        self.report("speaker", result)
        self.assert_intact(result, recorder.time_of, minutes=MINUTES)


if __name__ == "__main__":
    session.main()
