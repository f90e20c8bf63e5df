#!/usr/bin/python3
"""Playback follows the default endpoint."""

from rig import compare, damage, media, session

MAX_GAP_WINDOWS = 6
BLOCK = 1024  # frames at 48000 Hz
ABSENT_ENDPOINT = "{0.0.0.00000000}.{00000000-1111-2222-3333-444444444444}"


class DefaultDevice(session.SystemTest):
    SINKS = (("spkA", 48000, 2), ("spkB", 44100, 2))

    def test_playback_continues_on_new_default_endpoint(self):
        speech = media.speech("speech")
        endpoints = self.session.endpoints()
        first, second = self.session.record("spkA", 48000), self.session.record("spkB", 44100)
        host = self.session.play(speech)
        first.wait_for_sound(60)
        first.wait_for_more(3)
        self.session.prefix.make_default_output(endpoints["spkB"])
        second.wait_for_sound(30)
        # Each speaker has a stream. The call speaker's stream would follow at its next block, but gets none.
        self.until(lambda: sorted(s for _, s in self.session.server.streams()).count("spkB") == 1,
                   "exactly one stream on the new endpoint")
        self.assertEqual(len(self.session.server.streams()), 2, "the old stream is still there")
        left_behind = first.samples().shape[0]
        second.wait_for_more(2)
        self.assertLess(first.peak_since(left_behind + 48000), 1e-3, "the old endpoint still plays")
        self.assert_ended_well(host)
        self.assert_covered(speech, first, second)
        self.assertEqual(host.log.count("Need to change default audio device."), 1)
        self.assertEqual(host.log.count("OnAudioDeviceChanged failed"), 0)

    def test_playback_keeps_client_when_default_endpoint_is_unchanged(self):
        speech = media.speech("speech")
        recorder = self.session.record("spkA", 48000)
        host = self.session.play(speech)
        recorder.wait_for_sound(60)
        recorder.wait_for_more(2)
        streams = self.session.server.streams()
        # The new default endpoint does not exist. Wine reports the change, but the default that the module
        # then gets is still the endpoint that it plays on.
        self.session.prefix.make_default_output(ABSENT_ENDPOINT)
        host.log.wait_for("same deviceId")
        self.assertEqual(self.session.server.streams(), streams)
        self.assert_ended_well(host)
        self.assert_heard(recorder, speech)
        self.assertEqual(host.log.count("Need to change default audio device."), 0)

    def assert_covered(self, path, first, second):
        """Every window was heard on one of the endpoints, but for one gap of at most MAX_GAP_WINDOWS at the change."""
        here = compare.compare(first.samples(), media.decode(path, first.rate), first.rate)
        there = compare.compare(second.samples(), media.decode(path, second.rate), second.rate)
        lost = [w for w, other in zip(here.windows, there.windows) if w.state == other.state == compare.DAMAGED]
        if len(lost) > MAX_GAP_WINDOWS:
            damage.refuse_spoiled(damage.places_in(here, first.time_of, lost), self.stalls())
        for label, result in (("first endpoint", here), ("second endpoint", there)):
            self.report(label, result)
            self.assertGreater(len(result.good), 7, label)
        # The last window on the first endpoint and the first one on the second endpoint are around the gap.
        last, begun = here.good[-1].start_s, there.good[0].start_s
        gap = sum(last < w.start_s < begun for w in here.windows)
        self.assertLessEqual(gap, MAX_GAP_WINDOWS, f"heard on neither endpoint between {last:.1f} and {begun:.1f} s")
        self.assert_intact(here, first.time_of, [w for w in here.windows if w.start_s <= last])
        self.assert_intact(there, second.time_of, self.without_pauses(there, begun))

    def without_pauses(self, result, begun):
        """The windows from BEGUN on, without those around short pauses. The stream's cushion is lost with the buffer of the old
        endpoint. So a short delay of a block or of the sound system is heard as a pause, after which the stream has this time in
        advance: all pauses together are not longer than a block. Nothing of the sound may be missing."""
        pauses = [(window.start_s, frames) for window, frames in result.slips_at if window.start_s > begun and frames > 0]
        total = sum(frames for _, frames in pauses)
        if total > BLOCK * result.rate / 48000:
            pauses = []
        for start, frames in pauses:
            print(f"  a pause of {frames} frames before {start:.1f} s", flush=True)
        around = [(start - 1.5 * compare.WINDOW_S, start + compare.WINDOW_S / 2) for start, _ in pauses]
        return [w for w in result.windows if w.start_s >= begun and not any(a < w.start_s < b for a, b in around)]


if __name__ == "__main__":
    session.main()
