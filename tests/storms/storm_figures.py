"""Stores the figures that the tests in this folder measure, and formats them for docs/reliability.md."""

import json

import measuring
from rig import paths

FILE = paths.RESULTS / "storms.jsonl"


def clear():
    FILE.parent.mkdir(parents=True, exist_ok=True)
    FILE.unlink(missing_ok=True)


def add(kind, **figures):
    with open(FILE, "a", encoding="utf-8") as out:
        out.write(json.dumps({"kind": kind, **figures}) + "\n")


def read():
    """{kind: [figures]}"""
    found = {"fault": [], "storm": [], "loads": [], "ends": []}
    for line in map(json.loads, FILE.read_text("utf-8").splitlines() if FILE.exists() else []):
        found[line["kind"]].append(line)
    return found


def lines(found):
    faults = [[each["name"], each["remedy"], f"{each['speakerS']:.1f} s", f"{each['microphoneS']:.1f} s",
               f"{each['cpuPercent']:.0f} %", f"{each['streams']}, {each['captures']}"] for each in found["fault"]]
    yield from measuring.table(["fault during a call", "what restores the sound", "speaker after", "microphone after",
                                "processor during the fault", "streams: speaker, microphone"], faults)
    yield ""
    for storm in found["storm"]:
        yield (f"- A storm of {storm['seconds']} s: {storm['calls']} calls from eleven threads during {storm['changes']} changes of "
               f"the default devices; {storm['different']} calls did not return what is documented.")
    for loads in found["loads"]:
        yield (f"- One process loaded the module, ran a storm and freed the module {loads['loads']} times. The module was "
               f"unloaded {loads['goneAfterS']:.0f} s after the last time; the number of threads changed from "
               f"{loads['threadsBefore']} to {loads['threadsAfter']}.")
    for ends in found["ends"]:
        counts = ", ".join(f"{number} {kind}" for kind, number in sorted(ends["counts"].items(), key=lambda each: -each[1]))
        yield (f"- {ends['ends']} processes {ends['program']} ended while streams ran; {ends['hung']} hung. Ended: {counts}.")
