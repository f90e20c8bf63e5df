"""Follows an endless, repeating sound in what was heard, window by window."""

from dataclasses import dataclass

import numpy

WINDOW_S = 0.2
NEAR_FRAMES = 3
GAIN_RANGE = (0.5, 2.0)
QUIET_RMS = 1e-3  # -60 dBFS
BEST_MATCH_DB = 120.0


@dataclass
class Slip:
    """Sound that went on at another place: frames > 0 are missing, frames < 0 were put in."""
    at: int  # frame of what was heard
    frames: int


class SoundCheck:
    """`reference` is one period of the sound, on one channel. Heard sound is fed in pieces.

    What counts lies between the first and the last good window: silence before and after is not
    of the sound. How much was heard at all is for the caller to judge.
    """

    def __init__(self, reference, rate, good_db):
        self.reference = numpy.asarray(reference, "f4")
        self.rate, self.good_db = rate, good_db
        self.width = int(WINDOW_S * rate)
        self.windows = self.damaged = 0
        self.slips = []
        self.places = []  # (frame heard, frame of the reference) of each good window
        self._offset = None
        self._pending = 0  # damaged windows since the last good one
        self._rest = numpy.zeros(0, "f4")
        self._at = 0
        self._spectrum = numpy.fft.rfft(self.reference)
        power = numpy.concatenate([self.reference, self.reference[:self.width]]).astype("f8") ** 2
        sums = numpy.concatenate([[0.0], numpy.cumsum(power)])
        self._energy = numpy.maximum(sums[self.width:] - sums[:-self.width], 1e-9)[:len(self.reference)]

    @property
    def found(self):
        return self._offset is not None

    def feed(self, heard):
        """What was heard next, on one channel. Before the sound is found, nothing counts."""
        data = numpy.concatenate([self._rest, numpy.asarray(heard, "f4")])
        whole = len(data) // self.width
        for number in range(whole):
            self._judge(data[number * self.width:(number + 1) * self.width])
            self._at += self.width
        self._rest = data[whole * self.width:]

    def _judge(self, window):
        place = self._place(window)
        if place is None and not self.found:
            return
        if place is None:
            self._pending += 1
            return
        self.windows += 1 + self._pending
        self.damaged += self._pending
        self._pending = 0
        offset = (place - self._at) % len(self.reference)
        jump = 0 if self._offset is None else self._signed(offset - self._offset)
        if abs(jump) > NEAR_FRAMES:
            self.slips.append(Slip(self._at, jump))
        self._offset = offset
        self.places.append((self._at, place))

    def _place(self, window):
        """The frame of the reference that the window begins with, or None."""
        if numpy.sqrt(numpy.mean(window ** 2)) < QUIET_RMS:
            return None
        if self.found:
            expected = self._at + self._offset
            for near in sorted(range(-NEAR_FRAMES, NEAR_FRAMES + 1), key=abs):
                if self._match_db(window, expected + near) >= self.good_db:
                    return (expected + near) % len(self.reference)
        spectrum = numpy.conj(numpy.fft.rfft(window, len(self.reference)))
        likeness = numpy.fft.irfft(self._spectrum * spectrum, len(self.reference)) / numpy.sqrt(self._energy)
        place = int(numpy.argmax(likeness))
        return place if self._match_db(window, place) >= self.good_db else None

    def _match_db(self, window, place):
        expected = self.reference.take(numpy.arange(place, place + self.width), mode="wrap").astype("f8")
        gain = window @ expected / max(expected @ expected, 1e-9)
        if not GAIN_RANGE[0] <= gain <= GAIN_RANGE[1]:
            return 0.0
        expected *= gain
        difference = numpy.sum((window - expected) ** 2)
        if difference <= 0:
            return BEST_MATCH_DB
        return min(BEST_MATCH_DB, 10 * numpy.log10(numpy.sum(expected ** 2) / difference))

    def _signed(self, frames):
        half = len(self.reference) // 2
        return (frames + half) % len(self.reference) - half
