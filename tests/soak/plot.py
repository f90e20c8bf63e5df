"""Draws delay and memory over time with gnuplot, a column for each call."""

import pathlib
import tempfile

from rig import processes

SCRIPT = """
set terminal pngcairo size 1100,760 font ",10"
set output "{output}"
set multiplot layout 2,{columns} columnsfirst title "velto-host duplex under Wine"
set grid
set key outside below horizontal
set xrange [0:{minutes}]
set xlabel "minutes"
{plots}
unset multiplot
"""

PLOTS = """
set title "sender's clock {ppm:+d} ppm"
set ylabel "delay, ms"
set yrange [0:*]
plot "{speaker}" using ($1/60):2 with lines lw 2 title "speaker", \\
     "{microphone}" using ($1/60):2 with lines lw 2 title "microphone"
set ylabel "memory, MiB"
plot "{memory}" using ($1/60):($2/1024) with lines lw 2 title "resident", \\
     "{memory}" using ($1/60):($3/1024) with lines lw 2 title "private"
"""


def draw(calls, target):
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        plots = []
        for call in calls:
            curves = {"speaker": call.speaker_delay, "microphone": call.microphone_delay, "memory": call.samples}
            files = {curve: folder / f"{call.name}-{curve}" for curve in curves}
            for curve, rows in curves.items():
                files[curve].write_text("".join(" ".join(f"{value:.3f}" for value in row) + "\n" for row in rows))
            plots.append(PLOTS.format(ppm=call.ppm, **files))
        script = folder / "script"
        minutes = max(row[0] for call in calls for row in call.samples) / 60
        script.write_text(SCRIPT.format(output=target, columns=len(calls), minutes=minutes, plots="".join(plots)))
        processes.run(["gnuplot", script])
