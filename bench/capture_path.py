"""Processor time of the capture path, and of the bare converter and encoder on the same samples."""

import contextlib

from rig import media, paths, processes, session

import benchmark_program
import measuring
import unit

TITLE = "timing the capture path and the bare encoder"
MAX_RATIO = 1.3
RATES_HZ = (48000, 44100)


def measure(_options):
    with contextlib.closing(session.Session("bench-capture-path", with_server=False)) as world:
        samples = world.folder / "capture-path.f32"
        processes.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-stream_loop", "-1", "-i", media.speech("speech"), "-t", "6",
                       "-ar", "48000", "-ac", "2", "-f", "f32le", samples])
        medians = benchmark_program.medians(benchmark_program.run(world, "capture-path", paths.to_windows(samples)))
    rates = []
    for rate in RATES_HZ:
        capture, bare = medians[f"Capture/{rate}"], medians[f"BareEncoder/{rate}"]
        rates.append({"rateHz": rate, "captureUs": capture, "bareUs": bare, "ratio": capture / bare})
    return {"rates": rates}


def table(measured):
    rows = []
    for entry in measured["rates"]:
        for name, us, ratio in (("capture path", entry["captureUs"], f"{entry['ratio']:.2f}"),
                                ("bare converter and encoder", entry["bareUs"], ""),
                                ("goal", MAX_RATIO * entry["bareUs"], f"at most {MAX_RATIO}")):
            rows.append([f"{entry['rateHz']} Hz", name, f"{us / 1000:.2f} ms",
                         unit.with_percent(unit.us_per_unit(us / 1000), 0), ratio])
    return [*measuring.table(["microphone", "", "time for 1 s of sound", "per unit", "ratio"], rows), "", unit.NOTE]


def missed(measured):
    for entry in measured["rates"]:
        if entry["ratio"] > MAX_RATIO:
            yield (f"{entry['rateHz']} Hz: capture takes {entry['ratio']:.2f} times as long as the bare encoder; "
                   f"the goal is at most {MAX_RATIO}")
