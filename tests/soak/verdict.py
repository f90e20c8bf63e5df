"""Figures of a watched call, and what is not as it has to be."""

import numpy

from rig.velto_host import WINE_FAILED

SETTLE_S = 60             # opening devices and filling buffers
# Of the process's own memory, from then to the end of an hour; the host alone keeps the times of
# 170000 packets.
MOST_GROWTH_KIB = 2048
MOST_MORE_HANDLES = 2     # the lowest free number tells how many are in use, whoever holds one for a moment
# 20 queued blocks, the 5 of the delay, the endpoint's 300 ms, and what the server keeps.
MOST_SPEAKER_DELAY_MS = 427 + 107 + 300 + 150
MOST_MICROPHONE_DELAY_MS = 500
LEAST_HEARD = 0.97        # of the length
DAMAGED_PER_MINUTE = 1.0  # windows, of 300; each slip may damage one more


def figures(call):
    settled = [sample for sample in call.samples if sample[0] >= min(SETTLE_S, call.seconds / 4)]
    usage = [(each["handles"], each["threads"]) for each in call.usage[-len(settled):]]
    return {
        "name": call.name, "seconds": call.seconds, "ppm": call.ppm, "exitCode": call.exit_code,
        "nonzeroResults": sum(call.summary[part]["nonzeroResults"] for part in ("play", "record")),
        "framesSent": call.summary["play"]["framesSent"], "packets": call.summary["record"]["packets"],
        "cpuPercent": 100 * call.cpu / call.samples[-1][0],
        "residentKib": _first_and_last(settled, 1), "ownKib": _first_and_last(settled, 2),
        "handles": _first_and_last(usage, 0), "threads": _first_and_last(usage, 1),
        "speaker": _sound(call.played), "microphone": _sound(call.recorded),
        "speakerDelayMs": _spread(call.speaker_delay), "microphoneDelayMs": _spread(call.microphone_delay),
    }


def _first_and_last(samples, field):
    """Medians of the first and the last tenth, as a single sample may catch a passing buffer."""
    some = max(1, len(samples) // 10)
    return [float(numpy.median([sample[field] for sample in part])) for part in (samples[:some], samples[-some:])]


def _sound(check):
    dropped = [slip.frames for slip in check.slips if slip.frames > 0]
    put_in = [-slip.frames for slip in check.slips if slip.frames < 0]
    return {"windows": check.windows, "damaged": check.damaged,
            "drops": len(dropped), "droppedMs": 1000 * sum(dropped) / check.rate,
            "gaps": len(put_in), "gapMs": 1000 * sum(put_in) / check.rate}


def _spread(delays):
    values = [delay for _, delay in delays]
    return [float(value) for value in numpy.percentile(values, (0, 50, 100))] if values else []


def table(calls):
    of = [figures(call) for call in calls]
    rows = [("length", lambda f: f"{f['seconds'] / 60:g} minutes"),
            ("frames sent, packets read", lambda f: f"{f['framesSent']}, {f['packets']}"),
            ("processor", lambda f: f"{f['cpuPercent']:.1f} % of one"),
            ("resident memory", lambda f: _from_to([kib / 1024 for kib in f["residentKib"]], " MiB", ".1f")),
            ("of it the process's own", lambda f: _from_to([kib / 1024 for kib in f["ownKib"]], " MiB", ".2f")),
            ("handles", lambda f: _from_to(f["handles"], "", ".0f")),
            ("threads", lambda f: _from_to(f["threads"], "", ".0f"))]
    for part, delay in (("speaker", "speakerDelayMs"), ("microphone", "microphoneDelayMs")):
        rows += [(f"{part}: windows of 0.2 s, damaged",
                  lambda f, part=part: f"{f[part]['windows']}, {f[part]['damaged']}"),
                 (f"{part}: places where sound was dropped",
                  lambda f, part=part: f"{f[part]['drops']} ({f[part]['droppedMs']:.0f} ms)"),
                 (f"{part}: gaps", lambda f, part=part: f"{f[part]['gaps']} ({f[part]['gapMs']:.0f} ms)"),
                 (f"{part}: delay, least, median, most",
                  lambda f, delay=delay: ", ".join(f"{ms:.0f}" for ms in f[delay]) + " ms")]
    lines = ["| | " + " | ".join(f"sender {abs(f['ppm'])} ppm too {f['name']}" for f in of) + " |",
             "|---" * (1 + len(of)) + "|"]
    lines += [f"| {name} | " + " | ".join(tell(f) for f in of) + " |" for name, tell in rows]
    reasons = [reason for call in calls for reason in missed(call)]
    return "\n".join(lines) + "\n\nVerdict: " + ("; ".join(reasons) if reasons else "passed") + ".\n"


def _from_to(values, unit="", form=""):
    return f"{values[0]:{form}} to {values[1]:{form}}{unit}"


def missed(call):
    """What is not as it has to be, as sentences."""
    f = figures(call)
    name = f"sender too {f['name']}: "
    if f["exitCode"] not in (0, WINE_FAILED) or call.summary["exitCode"] != 0:
        yield name + f"the host ended with {f['exitCode']}"
    if f["nonzeroResults"]:
        yield name + f"{f['nonzeroResults']} calls did not return 0"
    if f["ownKib"][1] - f["ownKib"][0] > MOST_GROWTH_KIB:
        yield name + f"memory grew by {f['ownKib'][1] - f['ownKib'][0]:.0f} KiB"
    for what, most in (("handles", MOST_MORE_HANDLES), ("threads", 0)):
        if f[what][1] > f[what][0] + most:
            yield name + f"{what} grew from {f[what][0]:.0f} to {f[what][1]:.0f}"
    for part, most in (("speaker", MOST_SPEAKER_DELAY_MS), ("microphone", MOST_MICROPHONE_DELAY_MS)):
        sound, delays = f[part], f[part + "DelayMs"]
        if sound["windows"] < LEAST_HEARD * 5 * f["seconds"]:
            yield name + f"{part}: only {sound['windows'] / 5:.0f} s were heard"
        allowed = DAMAGED_PER_MINUTE * f["seconds"] / 60 + sound["drops"] + sound["gaps"]
        if sound["damaged"] > allowed:
            yield name + f"{part}: {sound['damaged']} windows are damaged"
        if not delays or delays[2] > most:
            yield name + f"{part}: the delay is not below {most} ms"
