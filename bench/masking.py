"""How far coding noise lies below what the sound itself masks.

A simple model of hearing: the energy of the original in bands of a third of the ear's critical
bands, spread to the neighbours (steeply downward, gently upward), less an offset, and at least the
threshold in quiet. What counts is the energy of the difference of two spectra's magnitudes in each
band, as an ear hears no phase; so noise put in the place of noise costs little.
"""

import numpy

WINDOW = 2048
HOP = 1024
BANDS_PER_BARK = 3
OFFSET_DB = 12.0        # noise this much below the sound in its own band is not heard
DOWNWARD_DB = 27.0      # per Bark, toward lower bands
UPWARD_DB = 10.0        # per Bark, toward higher bands
FULL_SCALE_SPL = 96.0   # loudness of a full-scale tone, in dB
QUIETEST_DB = -70.0     # frames below this are not judged


def _bark(hz):
    return 13 * numpy.arctan(0.00076 * hz) + 3.5 * numpy.arctan((hz / 7500) ** 2)


def _quiet_db(hz):
    khz = numpy.maximum(hz, 50) / 1000
    return 3.64 * khz ** -0.8 - 6.5 * numpy.exp(-0.6 * (khz - 3.3) ** 2) + 0.001 * khz ** 4


def _magnitudes(channel):
    frames = numpy.lib.stride_tricks.sliding_window_view(channel, WINDOW)[::HOP]
    window = numpy.hanning(WINDOW)
    return numpy.abs(numpy.fft.rfft(frames * window, axis=1)) * 2 / window.sum()


def noise_to_mask_db(original, coded, rate):
    """The mean over all frames and bands of both channels; below 0 is not heard, on average."""
    hz = numpy.fft.rfftfreq(WINDOW, 1 / rate)
    band = (_bark(hz) * BANDS_PER_BARK).astype(int)
    count = band.max() + 1
    membership = (band[:, None] == numpy.arange(count)).astype(float)
    distance = (numpy.arange(count)[None, :] - numpy.arange(count)[:, None]) / BANDS_PER_BARK  # [from, to]
    spread = 10 ** (-numpy.where(distance < 0, -distance * DOWNWARD_DB, distance * UPWARD_DB) / 10)
    spread /= spread.sum(axis=0)
    quiet = numpy.array([10 ** ((_quiet_db(hz[band == b]).min() if (band == b).any() else 0) / 10)
                         for b in range(count)]) / 10 ** (FULL_SCALE_SPL / 10)
    used = membership.sum(axis=0) > 0
    ratios = []
    for channel in range(original.shape[1]):
        wanted, heard = _magnitudes(original[:, channel]), _magnitudes(coded[:, channel])
        loud = 20 * numpy.log10(wanted.max(axis=1) + 1e-12) > QUIETEST_DB
        energy = wanted[loud] ** 2 @ membership
        noise = (wanted[loud] - heard[loud]) ** 2 @ membership
        mask = numpy.maximum(energy @ spread * 10 ** (-OFFSET_DB / 10), quiet)
        ratios.append((noise / mask)[:, used])
    return 10 * numpy.log10(numpy.concatenate(ratios).mean())
