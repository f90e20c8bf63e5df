"""Time of the capture path, of its floor, and of the bare converter and encoder, on the same samples."""

import contextlib

from rig import media, paths, processes, session

import benchmark_program
import measuring
import spread
import unit

TITLE = "timing the capture path, its floor and the bare encoder"
MAX_RATIO = 1.05
RATES_HZ = (48000, 44100)


def measure(_options):
    with contextlib.closing(session.Session("bench-capture-path", with_server=False)) as world:
        samples = world.folder / "capture-path.f32"
        processes.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-stream_loop", "-1", "-i", media.speech("speech"), "-t", "6",
                       "-ar", "48000", "-ac", "2", "-f", "f32le", samples])
        runs = benchmark_program.run(world, "capture-path", paths.to_windows(samples), with_sound=True)
    medians = benchmark_program.medians(runs)
    return {"rates": [of_rate(rate, runs, medians[f"BareEncoder/{rate}"]) for rate in RATES_HZ]}


def of_rate(rate, runs, bare):
    turns = benchmark_program.repetitions(runs, f"Capture/{rate}")
    module, floor = spread.of(turn["moduleUs"] for turn in turns), spread.of(turn["floorUs"] for turn in turns)
    return {"rateHz": rate, "repetitions": len(turns), "moduleUs": module, "floorUs": floor, "bareUs": bare,
            "ratio": spread.of(turn["moduleUs"] / turn["floorUs"] for turn in turns),
            "ratioToEncoder": module["median"] / bare}


def table(measured):
    rows = []
    for entry in measured["rates"]:
        module = entry["moduleUs"]["median"]
        for name, us, ratio in (("capture path", module, ""),
                                ("floor", entry["floorUs"]["median"], f"{spread.text(entry['ratio'])}; goal: at most {MAX_RATIO}"),
                                ("bare converter and encoder", entry["bareUs"], f"{entry['ratioToEncoder']:.2f}")):
            rows.append([f"{entry['rateHz']} Hz", name, f"{us / 1000:.2f} ms",
                         unit.with_percent(unit.us_per_unit(us / 1000), 0), ratio])
    return [*measuring.table(["microphone", "", "time for 1 s of sound", "per unit", "the capture path's ratio to it, quartiles"], rows),
            "", unit.NOTE, f"Medians of {measured['rates'][0]['repetitions']} repetitions."]


def missed(measured):
    for entry in measured["rates"]:
        if entry["ratio"]["median"] > MAX_RATIO:
            yield (f"{entry['rateHz']} Hz: capture takes {entry['ratio']['median']:.2f} times as long as its floor; "
                   f"the goal is at most {MAX_RATIO}")
