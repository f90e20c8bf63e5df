#!/usr/bin/python3
"""Times the packet queue under Wine beside a queue that allocates, and writes docs/performance.md.

    bench/packet_queue.py [--show]

--show: writes no page. Ends with 1 when the queue is not 3 times faster, or allocates. Needs the
Windows build with VELTO_BENCHMARK_SOURCE, as scripts/bench makes it.
"""

import datetime
import json
import pathlib
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(REPOSITORY / "tests" / "system"))
sys.path.insert(0, str(REPOSITORY / "scripts"))

from rig import paths, processes, session  # noqa: E402  (found through the lines above)

import machine  # noqa: E402
import section  # noqa: E402

PROGRAM = paths.WINDOWS_BIN / "velto-packet-queue-bench.exe"
LEAST_RATIO = 3.0


def measure(world):
    """{benchmark: median, in nanoseconds per packet, and all allocations of its repetitions}."""
    output = world.folder / "packet-queue.json"
    with open(world.folder / "packet-queue.out", "wb") as out:
        program = processes.start(
            ["wine", PROGRAM, "--benchmark_enable_random_interleaving=true",
             f"--benchmark_out={paths.to_windows(output)}", "--benchmark_out_format=json"],
            env=world.prefix.environment, stdout=out, stderr=out)
        code = program.wait(300)
    if code != 0:
        raise RuntimeError(f"{PROGRAM.name} ended with {code}; see {out.name}")
    figures = {}
    for run in json.loads(output.read_text())["benchmarks"]:
        figure = figures.setdefault(run["run_name"].split("/iterations")[0], {"allocations": 0})
        if run.get("aggregate_name") == "median":
            figure["ns"] = run["real_time"]
        elif run["run_type"] == "iteration":
            figure["allocations"] += run.get("allocations", 0)
    return figures


def text(figures, load):
    lines = [f"Measured on {datetime.date.today().isoformat()}: {machine.describe()}.", "",
             "| packet of 400 bytes | packet queue | new packet each | ratio |", "|---|---|---|---|"]
    for name, kind in (("handing over alone", "OneThread/HandOver"),
                       ("with writing and reading it", "OneThread/Copying"),
                       ("the same, a thread for each side", "TwoThreads/Copying")):
        pooled, allocating = figures[f"Pooled/{kind}"]["ns"], figures[f"Allocating/{kind}"]["ns"]
        lines.append(f"| {name} | {pooled:.0f} ns | {allocating:.0f} ns | {allocating / pooled:.1f} |")
    lines += ["", f"Allocations of the packet queue between `Init` and `StopAndClear`: "
              f"{allocations(figures):.0f}.",
              f"Processes that wanted to run when measuring began: {load:.1f}."]
    return "\n".join(lines) + "\n"


def allocations(figures):
    return sum(figure["allocations"] for name, figure in figures.items() if name.startswith("Pooled/"))


def missed(figures):
    """What is not as it has to be, as sentences."""
    ratio = figures["Allocating/OneThread/HandOver"]["ns"] / figures["Pooled/OneThread/HandOver"]["ns"]
    if ratio < LEAST_RATIO:
        yield f"the packet queue is {ratio:.1f} times faster, at least {LEAST_RATIO} are wanted"
    if allocations(figures) != 0:
        yield f"the packet queue allocated {allocations(figures):.0f} times"


def main():
    processes.install_handlers()
    load = machine.load()
    world = session.Session("bench-packet-queue", with_server=False)
    try:
        figures = measure(world)
    finally:
        world.close()
    print(text(figures, load))
    if "--show" not in sys.argv[1:]:
        section.write("bench/packet_queue.py", text(figures, load))
    reasons = list(missed(figures))
    for reason in reasons:
        print(f"bench: missed: {reason}", file=sys.stderr)
    return 1 if reasons else 0


if __name__ == "__main__":
    sys.exit(main())
