"""Time per call of WriteStreamBuffer through the DLL, beside FFmpeg's bare decoder."""

import json
import pathlib

from rig import paths, processes

import machine

PROGRAM = paths.WINDOWS_BIN / "velto-write-path-bench.exe"
CALLS_PER_LOG_LINE = 50


def as_adts(path):
    """The file as an ADTS stream at 48000 Hz: as it is when it holds AAC at that rate, else coded anew."""
    path = pathlib.Path(path).resolve()
    target = paths.CACHE / "bench" / f"{path.stem}.aac"
    target.parent.mkdir(parents=True, exist_ok=True)
    about = processes.run(["ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries",
                           "stream=codec_name,sample_rate", "-of", "csv=p=0", path]).strip().strip(",")
    coding = ["-c:a", "copy"] if about == "aac,48000" else ["-ar", "48000", "-ac", "2", "-c:a", "aac", "-b:a", "160k"]
    processes.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-i", path, "-vn", *coding, "-f", "adts", target])
    return target


def _medians(results):
    """{benchmark: median in microseconds} over its repetitions."""
    return {run["run_name"].split("/iterations")[0]: run["real_time"] for run in results["benchmarks"]
            if run.get("aggregate_name") == "median"}


def measure(world, files):
    files = [as_adts(path) for path in files]
    output = world.folder / "write-path.json"
    env = dict(world.prefix.environment, VELTO_LOG_FILE=paths.to_windows(world.folder / "write-path.log"))
    load = machine.load()
    with open(world.folder / "write-path.out", "wb") as out:
        program = processes.start(
            ["wine", PROGRAM, "--benchmark_enable_random_interleaving=true",
             f"--benchmark_out={paths.to_windows(output)}", "--benchmark_out_format=json",
             *[paths.to_windows(path) for path in files]], env=env, stdout=out, stderr=out, with_sound=True)
        code = program.wait(500)
    if code != 0:
        raise RuntimeError(f"{PROGRAM.name} ended with {code}; see {out.name}")
    medians = _medians(json.loads(output.read_text()))
    decoded = []
    for path in files:
        written, bare = medians[f"WriteStreamBuffer/{path.stem}"], medians[f"BareDecoder/{path.stem}"]
        decoded.append({"file": path.stem, "writeUs": written, "bareUs": bare, "ratio": written / bare})
    return {
        "files": decoded,
        "parts": {
            "reading the stream type in the registry": medians["ReadRegistry"],
            "signalling the idle watchdog": medians["SignalWatchdog"],
            "allocating, filling and queueing a block": medians["QueueBlock"],
            f"the frame counter's log line, one in {CALLS_PER_LOG_LINE} calls":
                medians["WriteLogLine"] / CALLS_PER_LOG_LINE,
        },
        "load": load,
    }
