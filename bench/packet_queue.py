"""Times the packet queue, and a queue that allocates each packet, under Wine."""

import contextlib

from rig import session

import benchmark_program
import measuring
import unit

TITLE = "timing the packet queue and a queue that allocates"
MIN_RATIO = 3.0
KINDS = {"hand-over alone": "OneThread/HandOver",
         "with writing and reading the bytes": "OneThread/Copying",
         "the same, with a thread on each side": "TwoThreads/Copying"}


def measure(_options):
    with contextlib.closing(session.Session("bench-packet-queue", with_server=False)) as world:
        runs = benchmark_program.run(world, "packet-queue")
    return {"ns": benchmark_program.medians(runs),
            "allocations": sum(run.get("allocations", 0) for run in runs
                               if run["run_type"] == "iteration" and run["run_name"].startswith("Pooled/"))}


def ratio(measured, kind):
    return measured["ns"][f"Allocating/{kind}"] / measured["ns"][f"Pooled/{kind}"]


def table(measured):
    def time(queue, kind):
        ns = measured["ns"][f"{queue}/{kind}"]
        return f"{ns:.0f} ns ({unit.percent(ns / 1000)})"

    rows = [[name, time("Pooled", kind), time("Allocating", kind), f"{ratio(measured, kind):.1f}"]
            for name, kind in KINDS.items()]
    return [*measuring.table(["packet of 400 bytes", "packet queue", "new packet each", "ratio"], rows), "", unit.NOTE,
            f"Allocations of the packet queue between `Init` and `StopAndClear`: {measured['allocations']:.0f}."]


def missed(measured):
    found = ratio(measured, KINDS["hand-over alone"])
    if found < MIN_RATIO:
        yield f"the packet queue is {found:.1f} times as fast; the goal is at least {MIN_RATIO}"
    if measured["allocations"] != 0:
        yield f"the packet queue allocated memory {measured['allocations']:.0f} times; the goal is never"
