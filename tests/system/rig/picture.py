"""Draws waveforms and spectrograms of sent and heard sound with gnuplot, a column for each direction."""

import pathlib
import tempfile

import numpy

from . import processes

COLUMNS = 550       # points of a waveform or a spectrogram along the time axis
WINDOW = 2048       # samples of one spectrum
TOP_KHZ = 12
FLOOR_DB = -80      # relative to the loudest value of the reference
SENT, HEARD = "#2f7fc1", "#e08a1e"

SCRIPT = """
set terminal pngcairo size 1400,900 font "DejaVu Sans,10"
set output "{output}"
set multiplot layout 4,{columns} columnsfirst margins 0.055,0.925,0.065,0.935 spacing 0.135,0.075
set tics out nomirror
set palette defined (0 "#000010", 0.35 "#4b1d91", 0.65 "#c7365f", 0.85 "#f59233", 1 "#fbf6c4")
set cbrange [{floor}:0]
set cbtics 20
set cblabel "level, dB"
set xrange [0:{seconds}]
{plots}
unset multiplot
"""

PLOTS = """
set format x ""
unset xlabel
set title "{title}" offset 0,0.7
set ylabel "amplitude"
set yrange [-{peak}:{peak}]
set key at graph 1.0, graph 1.13 right samplen 2
plot "{sent_wave}" using 1:2:3 with filledcurves fillcolor rgb "{sent_colour}" title "{sent_name}"
unset title
plot "{heard_wave}" using 1:2:3 with filledcurves fillcolor rgb "{heard_colour}" title "{heard_name}"
unset key
set yrange [0:{top_khz}]
set ylabel "frequency, kHz"
set title "{sent_name}" offset 0,-0.7
plot "{sent_spectrum}" binary matrix with image
set title "{heard_name}"
set format x "%g"
set xlabel "time, s"
plot "{heard_spectrum}" binary matrix with image
set title "" offset 0,0
"""


def draw(path, rate, columns):
    """Writes a PNG. Each column is (title, (samples, name) of the sent sound, (samples, name) of the heard sound)."""
    seconds = max(len(samples) for _, *pair in columns for samples, _ in pair) / rate
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        plots = []
        for number, (title, (sent, sent_name), (heard, heard_name)) in enumerate(columns):
            sent, heard = _mono(sent), _mono(heard)
            peak = max(numpy.abs(sent).max(), numpy.abs(heard).max(), 1e-6)
            loudest = _spectrum(sent, rate)[1].max()
            files = {}
            for what, samples in (("sent", sent), ("heard", heard)):
                files[f"{what}_wave"] = _write_wave(folder / f"{number}-{what}.wave", samples, rate)
                files[f"{what}_spectrum"] = _write_spectrum(folder / f"{number}-{what}.spectrum", samples, rate, loudest)
            plots.append(PLOTS.format(title=title, sent_name=sent_name, heard_name=heard_name, peak=round(1.1 * peak, 3),
                                      sent_colour=SENT, heard_colour=HEARD, top_khz=TOP_KHZ, **files))
        script = folder / "script"
        script.write_text(SCRIPT.format(output=path, columns=len(columns), seconds=seconds, floor=FLOOR_DB,
                                        plots="".join(plots)), "utf-8")
        processes.run(["gnuplot", script], timeout_s=60)


def _mono(samples):
    return numpy.asarray(samples, dtype=numpy.float64).reshape(len(samples), -1).mean(axis=1)


def _write_wave(path, samples, rate):
    """Writes the smallest and the largest sample of each of the COLUMNS parts. Returns path."""
    parts = [part for part in numpy.array_split(samples, COLUMNS) if len(part)]
    step = len(samples) / len(parts) / rate
    numpy.savetxt(path, [(step * column, part.min(), part.max()) for column, part in enumerate(parts)], fmt="%.6f")
    return path


def _spectrum(samples, rate):
    """(times, power by time and frequency, frequencies in kHz) up to TOP_KHZ."""
    starts = numpy.linspace(0, max(0, len(samples) - WINDOW), COLUMNS).astype(int)
    padded = numpy.pad(samples, (0, max(0, WINDOW - len(samples))))
    frames = padded[starts[:, None] + numpy.arange(WINDOW)] * numpy.hanning(WINDOW)
    frequencies = numpy.fft.rfftfreq(WINDOW, 1 / rate) / 1000
    shown = frequencies <= TOP_KHZ
    return (starts + WINDOW / 2) / rate, numpy.abs(numpy.fft.rfft(frames, axis=1)[:, shown]) ** 2, frequencies[shown]


def _write_spectrum(path, samples, rate, loudest):
    """Writes a matrix in gnuplot's binary format: times in the first row, frequencies in the first column. Returns path."""
    times, power, frequencies = _spectrum(samples, rate)
    levels = numpy.maximum(10 * numpy.log10(power.T / max(loudest, 1e-30) + 1e-30), FLOOR_DB)
    matrix = numpy.empty((len(frequencies) + 1, len(times) + 1), dtype=numpy.float32)
    matrix[0, 0], matrix[0, 1:], matrix[1:, 0], matrix[1:, 1:] = len(times), times, frequencies, levels
    matrix.tofile(path)
    return path
