"""Runs one of the benchmark programs under Wine."""

import json

from rig import paths, processes


def run(world, name, *arguments, environment=None, with_sound=False):
    """Returns the program's runs and aggregates, as Google Benchmark reports them. `arguments` contains Windows paths.
    with_sound: the program gets the priority of sound."""
    output = world.folder / f"{name}.json"
    log = world.folder / f"{name}.out"
    with open(log, "wb") as out:
        program = processes.start(
            ["wine", paths.TEST_BIN / f"velto-{name}-bench.exe", "--benchmark_enable_random_interleaving=true",
             f"--benchmark_out={paths.to_windows(output)}", "--benchmark_out_format=json", *arguments],
            # Windows finds the DLL through WINEPATH: benchmarks are not in the product's folder.
            env={**world.prefix.environment, "WINEPATH": paths.to_windows(paths.WINDOWS_BIN), **(environment or {})},
            stdout=out, stderr=out)
        if with_sound:
            processes.give_sound_priority(program.pid)
        code = program.wait(500)
    if code != 0:
        raise RuntimeError(f"velto-{name}-bench.exe ended with {code}; its output: {log}")
    return json.loads(output.read_text("utf-8"))["benchmarks"]


def name_of(run_):
    return run_["run_name"].split("/iterations")[0]


def medians(runs):
    """{benchmark: median of its repetitions, in the time unit of the benchmark}"""
    return {name_of(run_): run_["real_time"] for run_ in runs if run_.get("aggregate_name") == "median"}


def repetitions(runs, name):
    """The repetitions of a benchmark, each with its counters."""
    return [run_ for run_ in runs if run_["run_type"] == "iteration" and name_of(run_) == name]
