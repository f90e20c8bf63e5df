"""Time per call of WriteStreamBuffer through the DLL, of its floor, and of FFmpeg's bare decoder, on the same units."""

import contextlib
import pathlib

from rig import media, paths, processes, session

import benchmark_program
import measuring
import spread
import unit

TITLE = "timing WriteStreamBuffer, its floor and the bare decoder"
MAX_RATIO = 1.10
CALLS_PER_LOG_LINE = 50


def as_adts(path):
    """Returns the file as an ADTS stream at 48000 Hz: copied if it contains AAC at that rate, else encoded."""
    path = pathlib.Path(path).resolve()
    target = paths.CACHE / "bench" / f"{path.stem}.aac"
    target.parent.mkdir(parents=True, exist_ok=True)
    about = processes.run(["ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries",
                           "stream=codec_name,sample_rate", "-of", "csv=p=0", path]).strip().strip(",")
    coding = ["-c:a", "copy"] if about == "aac,48000" else ["-ar", "48000", "-ac", "2", "-c:a", "aac", "-b:a", "160k"]
    processes.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-i", path, "-vn", *coding, "-f", "adts", target])
    return target


def measure(options):
    files = [as_adts(path) for path in (media.speech("speech"), *options.files)]
    with contextlib.closing(session.Session("bench-write-path")) as world:
        log = {"VELTO_LOG_FILE": paths.to_windows(world.folder / "write-path.log")}
        runs = benchmark_program.run(world, "write-path", *map(paths.to_windows, files), environment=log, with_sound=True)
    medians = benchmark_program.medians(runs)
    return {
        "files": [of_file(path.stem, runs, medians) for path in files],
        "parts": {
            "reading the stream type in the registry": medians["ReadRegistry"],
            "signalling the idle watchdog": medians["SignalWatchdog"],
            "allocating, filling and queueing a block": medians["QueueBlock"],
            f"the log line of the call counter, one in {CALLS_PER_LOG_LINE} calls":
                medians["WriteLogLine"] / CALLS_PER_LOG_LINE,
        },
    }


def of_file(name, runs, medians):
    turns = benchmark_program.repetitions(runs, f"Write/{name}")
    module, floor = spread.of(turn["moduleUs"] for turn in turns), spread.of(turn["floorUs"] for turn in turns)
    bare = medians[f"BareDecoder/{name}"]
    return {"file": name, "repetitions": len(turns), "moduleUs": module, "floorUs": floor, "bareUs": bare,
            "ratio": spread.of(turn["moduleUs"] / turn["floorUs"] for turn in turns),
            "ratioToDecoder": module["median"] / bare}


def table(measured):
    rows = [[entry["file"], unit.with_percent(entry["moduleUs"]["median"]), unit.with_percent(entry["floorUs"]["median"]),
             spread.text(entry["ratio"]), f"{MAX_RATIO:.2f}", unit.with_percent(entry["bareUs"]),
             f"{entry['ratioToDecoder']:.1f}"] for entry in measured["files"]]
    first, parts = measured["files"][0], measured["parts"]
    besides = first["moduleUs"]["median"] - first["bareUs"]
    part_rows = [[name, f"{microseconds:.2f} µs", unit.percent(microseconds)] for name, microseconds in parts.items()]
    rest = besides - sum(parts.values())
    part_rows.append(["the rest", f"{rest:.1f} µs", unit.percent(rest)])
    return [*measuring.table(["units of", "WriteStreamBuffer", "floor", "ratio, quartiles", "goal: at most",
                              "bare decoder and converter", "ratio to it"], rows), "", unit.NOTE,
            f"Medians of {first['repetitions']} repetitions.", "",
            f"The {besides:.1f} µs besides decoding, by part; all but the last are measured alone:", "",
            *measuring.table(["part", "time per call", "of a unit"], part_rows)]


def missed(measured):
    for entry in measured["files"]:
        if entry["ratio"]["median"] > MAX_RATIO:
            yield (f"{entry['file']}: a write takes {entry['ratio']['median']:.2f} times as long as its floor; "
                   f"the goal is at most {MAX_RATIO:.2f}")
