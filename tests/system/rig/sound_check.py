"""Follows a looped sound in a recording of any length, window by window."""

from dataclasses import dataclass

import numpy

from . import compare


@dataclass
class Slip:
    """A place at which sound is missing (frames > 0) or was inserted (frames < 0)."""
    at: int  # frame of the recording
    frames: int


class SoundCheck:
    """`reference` is one period of the sound, in one channel. The recording is fed in pieces. Windows, slips and volumes are
    compared as in compare.py; the volume of the recording is that of its first good window.

    Windows count from the first good one to the last good one, so silence before and after the sound does not.
    The caller has to check how many windows were counted.
    """

    def __init__(self, reference, rate, good_db):
        self.reference = numpy.asarray(reference, "f4")
        self.rate, self.good_db = rate, good_db
        self.width = int(compare.WINDOW_S * rate)
        self.windows = self.damaged = 0
        self.slips = []
        self.places = []  # (frame of the recording, frame of the reference) of each good window
        self._offset = None
        self._gain = None
        self._pending = 0  # damaged windows since the last good one
        self._rest = numpy.zeros(0, "f4")
        self._at = 0
        self._spectrum = numpy.fft.rfft(self.reference)
        power = numpy.concatenate([self.reference, self.reference[:self.width]]).astype("f8") ** 2
        sums = numpy.concatenate([[0.0], numpy.cumsum(power)])
        self._energy = numpy.maximum(sums[self.width:] - sums[:-self.width], 1e-9)[:len(self.reference)]

    @property
    def found(self):
        """Whether a window was good."""
        return self._offset is not None

    def feed(self, heard):
        """Adds the next piece of the recording, in one channel."""
        data = numpy.concatenate([self._rest, numpy.asarray(heard, "f4")])
        whole = len(data) // self.width
        for number in range(whole):
            self._count(data[number * self.width:(number + 1) * self.width])
            self._at += self.width
        self._rest = data[whole * self.width:]

    def _count(self, window):
        place = self._place(window)
        if place is None:
            self._pending += self.found
            return
        self.windows += 1 + self._pending
        self.damaged += self._pending
        self._pending = 0
        offset = (place - self._at) % len(self.reference)
        jump = 0 if self._offset is None else shortest_way(offset - self._offset, len(self.reference))
        if compare.is_slip(jump):
            self.slips.append(Slip(self._at, jump))
        self._offset = offset
        self.places.append((self._at, place))

    def _place(self, window):
        """The frame of the reference at which the window begins, or None."""
        if compare.rms(window) < compare.QUIET_RMS:
            return None
        if self.found:
            expected = self._at + self._offset
            for near in sorted(range(-compare.NEAR_FRAMES, compare.NEAR_FRAMES + 1), key=abs):
                if self._is_at(window, expected + near):
                    return (expected + near) % len(self.reference)
        spectrum = numpy.conj(numpy.fft.rfft(window, len(self.reference)))
        likeness = numpy.fft.irfft(self._spectrum * spectrum, len(self.reference)) / numpy.sqrt(self._energy)
        place = int(numpy.argmax(likeness))
        return place if self._is_at(window, place) else None

    def _is_at(self, window, place):
        """Whether a window is good if it begins at this frame of the reference. The first good window sets the volume."""
        expected = self.reference.take(numpy.arange(place, place + self.width), mode="wrap").astype("f8")
        match_db, gain = compare.match(window, expected)
        if match_db < self.good_db:
            return False
        if self._gain is not None:
            return compare.has_same_gain(gain, self._gain)
        if not compare.GAIN_RANGE[0] <= gain <= compare.GAIN_RANGE[1]:
            return False
        self._gain = gain
        return True


def shortest_way(frames, period):
    """Returns a distance in a loop, in its shorter direction: from -period // 2 to period // 2."""
    half = period // 2
    return (frames + half) % period - half
