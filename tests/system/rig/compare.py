"""Compares a recording with the sound that was sent, the reference.

The reference is aligned with the recording, first as a whole, then window by window. The match of a
window, in dB, is the energy of the reference over the energy of the difference. Only content counts:
the time at which the sound was heard does not affect the verdict.

 * A window is good if it matches by GOOD_MATCH_DB or more at the volume of the whole recording. For sound
   that was encoded on its way, the caller passes CODED_MATCH_DB instead.
 * A window that is quiet in the reference has to be quiet in the recording.
 * If the sound continues at another place of the recording (a pause was inserted, a piece is missing), a
   wide search finds it again, and the jump counts as a slip. A recording at a wrong speed drifts, slips in
   every window, or matches nowhere. It fails in all three cases.
"""

import functools
from dataclasses import dataclass, field

import numpy

WINDOW_S = 0.2
GOOD_MATCH_DB = 20.0
# For sound that went through an AAC encoder. At 128 kbit/s, the encoder's loss leaves a match of 15 dB in the worst
# window of gliding tones or speech, and of 26 to 55 dB in a typical one. 13 ms of silence in a window leave
# 12 dB. A silent window, the sound of another channel, or another speed leave about 0 dB.
CODED_MATCH_DB = 12.0
BEST_MATCH_DB = 120.0     # the largest match that is reported: no difference
QUIET_RMS = 1e-3          # -60 dBFS
NEAR_FRAMES = 3           # a larger move from window to window is a slip
WIDE_SEARCH_S = 1.5
FRACTIONS = tuple(numpy.arange(-0.5, 0.51, 0.125))  # sub-sample delays that the alignment tries
ALIGNED_AT_ONCE = 48000   # frames; longer sound is aligned in two steps
COARSE = 8                # frames that the first step averages into one
MAX_DRIFT_FRAMES = 6      # in the whole recording, without slips
GAIN_RANGE = (0.5, 2.0)   # of the whole recording
GAIN_SPREAD = 1.2         # largest factor between the gain of a window and that of the whole recording

GOOD, DAMAGED, QUIET = "good", "damaged", "quiet"


@dataclass
class Window:
    start_s: float      # in the reference
    match_db: float
    offset: int         # frame of the recording that corresponds to frame 0 of the reference
    gain: float
    state: str


@dataclass
class Comparison:
    rate: int
    windows: list = field(default_factory=list)
    offset: int = 0
    slips_at: list = field(default_factory=list)  # (first window after the slip, frames that were inserted; < 0: missing)
    drift: int = 0          # total change of the offset in frames, without slips

    @property
    def slips(self):
        return len(self.slips_at)

    def bounds(self, window):
        """The frames of the recording between which a window is. A damaged window has no known place: the good windows around it
        give its bounds."""
        start, length = int(window.start_s * self.rate), int(WINDOW_S * self.rate)
        before = after = window
        if window.state == DAMAGED:
            before = next((w for w in reversed(self.windows) if w.state == GOOD and w.start_s < window.start_s), None)
            after = next((w for w in self.windows if w.state == GOOD and w.start_s > window.start_s), None)
            before, after = before or after or window, after or before or window
        begin, end = start + before.offset, start + length + after.offset
        if before.start_s < window.start_s:
            begin, end = (max(frame, self.bounds(before)[1]) for frame in (begin, end))
        if after.start_s > window.start_s:
            begin, end = (min(frame, self.bounds(after)[0]) for frame in (begin, end))
        return min(begin, end), max(begin, end)

    @property
    def audible(self):
        return [w for w in self.windows if w.state != QUIET]

    @property
    def good(self):
        return [w for w in self.windows if w.state == GOOD]

    @property
    def damaged(self):
        return [w for w in self.windows if w.state == DAMAGED]

    @property
    def match_db(self):
        """Median match of the windows in which the reference is not quiet."""
        return float(numpy.median([w.match_db for w in self.audible])) if self.audible else 0.0

    @property
    def gain(self):
        return float(numpy.median([w.gain for w in self.good])) if self.good else 0.0

    @property
    def dropouts(self):
        """Number of runs of damaged windows, plus the slips between two good windows."""
        runs = slips = 0
        last_state, last_offset = GOOD, None
        for window in self.windows:
            if window.state == DAMAGED:
                runs += last_state != DAMAGED
            elif window.state == GOOD:
                if last_offset is not None and is_slip(window.offset - last_offset):
                    slips += last_state != DAMAGED
                last_offset = window.offset
            last_state = window.state
        return runs + slips

    @property
    def heard_s(self):
        """Seconds of the reference that were heard undamaged."""
        return WINDOW_S * len([w for w in self.windows if w.state != DAMAGED])

    def verdict(self):
        """Returns an empty text if the sound is intact, otherwise the reason."""
        wrong = self.wrong_as_a_whole()
        if wrong:
            return wrong
        if self.damaged:
            places = ", ".join(f"{w.start_s:.1f}" for w in self.damaged[:12])
            return f"{len(self.damaged)} of {len(self.windows)} windows are damaged, at {places} s"
        if self.slips:
            return f"the sound slipped {self.slips} times"
        return ""

    def wrong_as_a_whole(self):
        """Returns a reason that no stall of the machine explains: the sound is missing, or its speed or volume is wrong."""
        if not self.audible:
            return "the reference contains no sound to compare"
        if not self.good:
            return "none of the sound was heard"
        if abs(self.drift) > MAX_DRIFT_FRAMES:
            return f"the speed is wrong: the sound drifted by {self.drift} frames"
        if not GAIN_RANGE[0] <= self.gain <= GAIN_RANGE[1]:
            return f"the volume is {self.gain:.2f} times the original"
        return ""


def is_slip(frames):
    """Whether a move of the sound from window to window is a slip."""
    return abs(frames) > NEAR_FRAMES


def has_same_gain(gain, common):
    """Whether a window is as loud as the recording it belongs to."""
    return common / GAIN_SPREAD <= gain <= common * GAIN_SPREAD


def compare(heard, reference, rate, good_match_db=GOOD_MATCH_DB, search_s=WIDE_SEARCH_S):
    """Compares two recordings of the same rate and number of channels (frames by channels).

    search_s: how far the sound may have moved at a slip."""
    heard, reference = _two_dimensional(heard), _two_dimensional(reference)
    result = Comparison(rate)
    result.offset = place = _best_offset(heard, reference)
    length = int(WINDOW_S * rate)
    for start in range(0, len(reference) - length + 1, length):
        window, place = _compare_window(heard, reference, start, length, place, rate, good_match_db, search_s)
        result.windows.append(window)
    _check_gains(result)
    moves = [(b, b.offset - a.offset) for a, b in zip(result.good, result.good[1:])]
    result.slips_at = [(window, move) for window, move in moves if is_slip(move)]
    result.drift = sum(move for _, move in moves if not is_slip(move))
    return result


def first_sound(comparison):
    """Frame of the recording at which the first good window of the reference begins, or None."""
    if not comparison.good:
        return None
    window = comparison.good[0]
    return int(window.start_s * comparison.rate) + window.offset


def find(heard, part):
    """Returns (frame of the recording at which the sound matches best, match in dB of the whole sound)."""
    heard, part = _two_dimensional(heard), _two_dimensional(part)
    place = _best_offset(heard, part)
    match_db, _ = match(cut(heard, place, len(part)), part)
    return place, match_db


def _compare_window(heard, reference, start, length, place, rate, good_match_db, search_s):
    part = reference[start:start + length]
    if rms(part) < QUIET_RMS:
        state = QUIET if rms(cut(heard, start + place, length)) < 3 * QUIET_RMS else DAMAGED
        return Window(start / rate, 0.0, place, 0.0, state), place
    best = _best_match(heard, reference, start, length, range(place - NEAR_FRAMES, place + NEAR_FRAMES + 1))
    if best[0] < good_match_db:
        wide = int(search_s * rate)
        low = start + place - wide
        found = _best_offset(cut(heard, low, length + 2 * wide), part) + low - start
        other = _best_match(heard, reference, start, length, range(found - NEAR_FRAMES, found + NEAR_FRAMES + 1))
        best = max(best, other)
    match_db, offset, gain = best
    state = GOOD if match_db >= good_match_db else DAMAGED
    return Window(start / rate, match_db, offset, gain, state), offset if state == GOOD else place


def _best_match(heard, reference, start, length, offsets):
    part = reference[start:start + length]
    best = max((*match(cut(heard, start + o, length), part), o) for o in offsets)
    if best[0] < 40.0:  # the sound may be delayed by a fraction of a frame
        heard_part, offset = cut(heard, start + best[2], length), best[2]
        shifted = delayed(reference, start, length, FRACTIONS)
        best = max(best, *((*match(heard_part, part), offset) for part in shifted))
    match_db, gain, offset = best
    return match_db, offset, gain


def match(heard_part, part):
    """Returns (match in dB, gain) of two sounds of equal length. The gain is the one at which part fits heard_part best."""
    energy = float(numpy.sum(part * part))
    gain = float(numpy.sum(heard_part * part)) / energy if energy else 0.0
    if gain <= 0:
        return 0.0, 0.0
    rest = heard_part - gain * part
    wanted = gain * gain * energy
    return 10 * numpy.log10(wanted / max(float(numpy.sum(rest * rest)), wanted * 10 ** (-BEST_MATCH_DB / 10))), gain


def delayed(signal, start, length, fractions):
    """Returns a piece of signal, delayed by each of the fractions of a frame. The margin keeps edge effects out of it."""
    margin = 256
    size = _fast_size(length + 2 * margin)
    spectrum = numpy.fft.rfft(cut(signal, start - margin, size), axis=0)
    return numpy.fft.irfft(spectrum * _phase_shifts(size, fractions), size, axis=1)[:, margin:margin + length]


@functools.cache
def _phase_shifts(size, fractions):
    """The factors that delay a spectrum by each of the fractions."""
    return numpy.exp(-2j * numpy.pi * numpy.outer(fractions, numpy.fft.rfftfreq(size)))[:, :, None]


@functools.cache
def _fast_size(least):
    """The next size without a large prime factor. Transforms of other sizes take several times as long."""
    size = least
    while True:
        rest = size
        for factor in (2, 3, 5):
            while rest % factor == 0:
                rest //= factor
        if rest == 1:
            return size
        size += 1


def _check_gains(result):
    """Marks good windows as damaged if their volume differs from that of the whole recording."""
    common = result.gain
    for window in result.good:
        if not has_same_gain(window.gain, common):
            window.state = DAMAGED


def _best_offset(heard, part):
    """The frame of heard at which part begins. Long sound is aligned coarsely first, then by its loudest piece."""
    if len(part) < ALIGNED_AT_ONCE:
        return _correlate(heard, part)
    rough = COARSE * _correlate(_coarse(heard), _coarse(part))
    length = ALIGNED_AT_ONCE // 2
    energy = [float(numpy.sum(part[start:start + length] ** 2)) for start in range(0, len(part) - length + 1, length)]
    start = length * int(numpy.argmax(energy))
    margin = 8 * COARSE
    found = _correlate(cut(heard, start + rough - margin, length + 2 * margin), part[start:start + length])
    return rough - margin + found


def _coarse(signal):
    """The mean of every COARSE frames."""
    whole = len(signal) - len(signal) % COARSE
    return signal[:whole].reshape(-1, COARSE, signal.shape[1]).mean(axis=1)


def _correlate(heard, part):
    """The place of the best cross-correlation, summed over all channels."""
    size = _fast_size(len(heard) + len(part) + 1)
    product = sum(numpy.fft.rfft(heard[:, c], size) * numpy.conj(numpy.fft.rfft(part[:, c], size))
                  for c in range(heard.shape[1]))
    correlation = numpy.fft.irfft(product, size)
    peak = int(numpy.argmax(correlation))
    return peak if peak < len(heard) else peak - size


def cut(signal, start, length):
    """Returns `length` frames from `start` on. Frames outside of signal are silent."""
    low, high = max(start, 0), min(start + length, len(signal))
    if low == start and high == start + length:
        return signal[low:high]
    out = numpy.zeros((length, signal.shape[1]))
    if high > low:
        out[low - start:high - start] = signal[low:high]
    return out


def rms(part):
    return float(numpy.sqrt(numpy.mean(part * part))) if len(part) else 0.0


def _two_dimensional(samples):
    samples = numpy.asarray(samples, dtype=float)
    return samples[:, None] if samples.ndim == 1 else samples
