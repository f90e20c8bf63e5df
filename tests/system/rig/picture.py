"""A picture of what was sent above what came out, a column for each direction: waveform and
spectrogram by FFmpeg's filters."""

import numpy

from . import processes
from .recorder import write_wav

# showspectrumpic is fast, and safe, at heights that are powers of two.
WIDTH, WAVE_HEIGHT, SPECTRUM_HEIGHT, STRIP_HEIGHT, GAP = 720, 110, 256, 26, 8
_SENT, _HEARD, _INK, _PAPER = "0x4f9dde", "0xf2a33a", (225, 225, 225), (24, 26, 30)

_FILTERS = {
    "wave": f"aformat=channel_layouts=mono,showwavespic=s={WIDTH}x{WAVE_HEIGHT}:colors={{colour}}:scale=sqrt,format=rgb24",
    "spectrum": f"aformat=channel_layouts=mono,showspectrumpic=s={WIDTH}x{SPECTRUM_HEIGHT}:legend=0:scale=log"
                ":drange=80:stop=10000,format=rgb24",
}

# Letters of 5 by 7 dots, a row a number: a bare machine has no font for FFmpeg's text filter.
_LETTERS = {
    "A": (14, 17, 17, 31, 17, 17, 17), "B": (30, 17, 17, 30, 17, 17, 30), "C": (14, 17, 16, 16, 16, 17, 14),
    "D": (30, 17, 17, 17, 17, 17, 30), "E": (31, 16, 16, 30, 16, 16, 31), "F": (31, 16, 16, 30, 16, 16, 16),
    "G": (14, 17, 16, 23, 17, 17, 14), "H": (17, 17, 17, 31, 17, 17, 17), "I": (14, 4, 4, 4, 4, 4, 14),
    "K": (17, 18, 20, 24, 20, 18, 17), "L": (16, 16, 16, 16, 16, 16, 31), "M": (17, 27, 21, 21, 17, 17, 17),
    "N": (17, 25, 21, 19, 17, 17, 17), "O": (14, 17, 17, 17, 17, 17, 14), "P": (30, 17, 17, 30, 16, 16, 16),
    "Q": (14, 17, 17, 17, 21, 18, 13), "R": (30, 17, 17, 30, 20, 18, 17), "S": (15, 16, 16, 14, 1, 1, 30),
    "T": (31, 4, 4, 4, 4, 4, 4), "U": (17, 17, 17, 17, 17, 17, 14), "V": (17, 17, 17, 17, 17, 10, 4),
    "W": (17, 17, 17, 21, 21, 21, 10), "X": (17, 17, 10, 4, 10, 17, 17), "Y": (17, 17, 10, 4, 4, 4, 4),
    "Z": (31, 1, 2, 4, 8, 16, 31), "0": (14, 17, 19, 21, 25, 17, 14), "1": (4, 12, 4, 4, 4, 4, 14),
    "2": (14, 17, 1, 2, 4, 8, 31), "3": (30, 1, 1, 14, 1, 1, 30), "4": (2, 6, 10, 18, 31, 2, 2),
    "5": (31, 16, 30, 1, 1, 17, 14), "6": (14, 16, 16, 30, 17, 17, 14), "7": (31, 1, 2, 4, 8, 8, 8),
    "8": (14, 17, 17, 14, 17, 17, 14), "9": (14, 17, 17, 15, 1, 1, 14), ".": (0, 0, 0, 0, 0, 12, 12),
    ",": (0, 0, 0, 0, 12, 4, 8), ":": (0, 12, 12, 0, 12, 12, 0), "-": (0, 0, 0, 31, 0, 0, 0),
}


def draw(path, rate, columns):
    """Writes a PNG. Each column is ((samples, label) of what was sent, the same of what came out)."""
    parts = []
    try:
        for column in columns:
            for (samples, label), colour in zip(column, (_SENT, _HEARD)):
                wav = path.with_name(f".{len(parts)}.wav")
                write_wav(wav, samples, rate)
                for kind in ("label", "wave", "spectrum"):
                    parts.append(path.with_name(f".{len(parts)}-{kind}.ppm"))
                    if kind == "label":
                        _write_strip(parts[-1], label)
                    else:
                        _ffmpeg("-i", wav, "-filter_complex", _FILTERS[kind].format(colour=colour), "-frames:v", "1",
                                parts[-1])
                wav.unlink()
        inputs = [argument for part in parts for argument in ("-i", part)]
        _ffmpeg(*inputs, "-filter_complex", _stacked(len(parts) // len(columns), len(columns)), "-frames:v", "1", path)
    finally:
        for part in parts:
            part.unlink(missing_ok=True)


def _stacked(rows, columns):
    """The filter that puts the parts below one another, and their columns side by side."""
    chains = [f"{''.join(f'[{column * rows + row}]' for row in range(rows))}vstack=inputs={rows},"
              f"pad=iw+{GAP}:ih:{GAP if column else 0}:0:0x181a1e[c{column}]" for column in range(columns)]
    return ";".join([*chains, f"{''.join(f'[c{column}]' for column in range(columns))}hstack=inputs={columns}"])


def _ffmpeg(*arguments):
    processes.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *arguments], timeout_s=60)


def _write_strip(path, text, scale=2):
    pixels = numpy.empty((STRIP_HEIGHT, WIDTH, 3), dtype=numpy.uint8)
    pixels[:] = _PAPER
    left, top = 8, (STRIP_HEIGHT - 7 * scale) // 2
    for letter in text.upper():
        for row, bits in enumerate(_LETTERS.get(letter, (0,) * 7)):
            for column in range(5):
                if bits >> (4 - column) & 1:
                    y, x = top + row * scale, left + column * scale
                    pixels[y:y + scale, x:x + scale] = _INK
        left += 6 * scale
    path.write_bytes(b"P6 %d %d 255\n" % (WIDTH, STRIP_HEIGHT) + pixels.tobytes())
