"""Noise-to-mask ratio: how far coding noise lies above the level that the sound masks.

A simple model of hearing. The mask is the energy of the original in bands of a third of a Bark, spread to the neighbouring
bands (steeply downward, gently upward), less an offset, and at least the threshold in quiet. The noise is the energy of the
difference between the magnitudes of the two spectra, because the ear hears no phase. Noise that replaces noise therefore
costs little.
"""

import numpy

WINDOW = 2048
HOP = 1024
BANDS_PER_BARK = 3
OFFSET_DB = 12.0        # noise this far below the sound in its own band is inaudible
DOWNWARD_DB = 27.0      # per Bark, toward lower bands
UPWARD_DB = 10.0        # per Bark, toward higher bands
FULL_SCALE_SPL = 96.0   # loudness of a full-scale tone, in dB
QUIETEST_DB = -70.0     # quieter windows are left out


def _bark(hz):
    return 13 * numpy.arctan(0.00076 * hz) + 3.5 * numpy.arctan((hz / 7500) ** 2)


def _quiet_db(hz):
    khz = numpy.maximum(hz, 50) / 1000
    return 3.64 * khz ** -0.8 - 6.5 * numpy.exp(-0.6 * (khz - 3.3) ** 2) + 0.001 * khz ** 4


def _magnitudes(channel):
    windows = numpy.lib.stride_tricks.sliding_window_view(channel, WINDOW)[::HOP]
    shape = numpy.hanning(WINDOW)
    return numpy.abs(numpy.fft.rfft(windows * shape, axis=1)) * 2 / shape.sum()


def noise_to_mask_db(original, coded, rate):
    """The mean over all windows and bands of both channels. Below 0, the noise is inaudible on average."""
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
        original_magnitudes, coded_magnitudes = _magnitudes(original[:, channel]), _magnitudes(coded[:, channel])
        loud = 20 * numpy.log10(original_magnitudes.max(axis=1) + 1e-12) > QUIETEST_DB
        energy = original_magnitudes[loud] ** 2 @ membership
        noise = (original_magnitudes[loud] - coded_magnitudes[loud]) ** 2 @ membership
        mask = numpy.maximum(energy @ spread * 10 ** (-OFFSET_DB / 10), quiet)
        ratios.append((noise / mask)[:, used])
    return 10 * numpy.log10(numpy.concatenate(ratios).mean())
