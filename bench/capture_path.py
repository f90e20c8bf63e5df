"""Processor time of the capture path, beside the bare converter and encoder."""

import json

from rig import paths, processes

import machine

PROGRAM = paths.WINDOWS_BIN / "velto-capture-path-bench.exe"
RATES = (48000, 44100)


def measure(world, sound):
    samples = world.folder / "capture-path.f32"
    processes.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-stream_loop", "-1", "-i", sound, "-t", "6",
                   "-ar", "48000", "-ac", "2", "-f", "f32le", samples])
    output = world.folder / "capture-path.json"
    load = machine.load()
    with open(world.folder / "capture-path.out", "wb") as out:
        program = processes.start(
            ["wine", PROGRAM, "--benchmark_enable_random_interleaving=true",
             f"--benchmark_out={paths.to_windows(output)}", "--benchmark_out_format=json",
             paths.to_windows(samples)], env=world.prefix.environment, stdout=out, stderr=out)
        code = program.wait(500)
    if code != 0:
        raise RuntimeError(f"{PROGRAM.name} ended with {code}; see {out.name}")
    medians = {run["run_name"].split("/iterations")[0]: run["real_time"]
               for run in json.loads(output.read_text())["benchmarks"] if run.get("aggregate_name") == "median"}
    found = []
    for rate in RATES:
        capture, bare = medians[f"Capture/{rate}"], medians[f"BareEncoder/{rate}"]
        found.append({"rateHz": rate, "captureUs": capture, "bareUs": bare, "ratio": capture / bare})
    return {"rates": found, "load": load}
