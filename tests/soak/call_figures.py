"""The figures of a long call, and its goals."""

import numpy

import measuring
from rig.compare import WINDOW_S

SETTLE_S = 60              # time in which devices are opened and buffers filled
# Growth of the process's private memory after SETTLE_S. The host keeps the times of its packets, 47 a second.
MAX_GROWTH_KIB = 2048
MAX_MORE_HANDLES = 2       # under Wine the number is an estimate, which includes handles that other threads use briefly
# 20 queued blocks, 5 delayed blocks, 300 ms in the endpoint's buffer, and the sound server's buffers.
MAX_SPEAKER_DELAY_MS = 427 + 107 + 300 + 150
MAX_MICROPHONE_DELAY_MS = 500
MIN_COMPARED = 0.97        # part of the call whose sound must be found in the recordings
MAX_DAMAGED_PER_MINUTE = 1 # of 300 windows; each drop or gap may damage one more
WINDOWS_PER_S = 1 / WINDOW_S


def of(call):
    settled = [sample for sample in call.samples if sample[0] >= min(SETTLE_S, call.seconds / 4)]
    usage = [(each["handles"], each["threads"]) for each in call.usage[-len(settled):]]
    return {
        "name": call.name, "seconds": call.seconds, "ppm": call.ppm,
        "end": call.ending.summary(), "ending": call.ending.describe(), "endedWell": call.ending.is_good or call.ending.is_wines,
        "nonzeroResults": sum(call.summary[part]["nonzeroResults"] for part in ("play", "record")),
        "unitsSent": call.summary["play"]["unitsSent"], "packets": call.summary["record"]["packets"],
        "cpuPercent": 100 * call.cpu / call.samples[-1][0],
        "residentKib": _first_and_last(settled, 1), "privateKib": _first_and_last(settled, 2),
        "handles": _first_and_last(usage, 0), "threads": _first_and_last(usage, 1),
        "speaker": _sound(call.played), "microphone": _sound(call.recorded),
        "speakerDelayMs": _spread(call.speaker_delay), "microphoneDelayMs": _spread(call.microphone_delay),
    }


def _first_and_last(samples, field):
    """Medians of the first and the last tenth of the samples, so that a peak in one sample does not count."""
    tenth = max(1, len(samples) // 10)
    return [float(numpy.median([sample[field] for sample in part])) for part in (samples[:tenth], samples[-tenth:])]


def _sound(check):
    dropped = [slip.frames for slip in check.slips if slip.frames > 0]
    inserted = [-slip.frames for slip in check.slips if slip.frames < 0]
    return {"windows": check.windows, "damaged": check.damaged,
            "drops": len(dropped), "droppedMs": 1000 * sum(dropped) / check.rate,
            "gaps": len(inserted), "gapMs": 1000 * sum(inserted) / check.rate}


def _spread(delays):
    values = [delay for _, delay in delays]
    return [float(value) for value in numpy.percentile(values, (0, 50, 100))] if values else []


def _sound_rows(part):
    return {
        f"{part}: windows of 0.2 s, damaged": lambda f: f"{f[part]['windows']}, {f[part]['damaged']}",
        f"{part}: drops": lambda f: f"{f[part]['drops']} ({f[part]['droppedMs']:.0f} ms)",
        f"{part}: gaps": lambda f: f"{f[part]['gaps']} ({f[part]['gapMs']:.0f} ms)",
        f"{part}: shortest, median, longest delay": lambda f: ", ".join(f"{ms:.0f}" for ms in f[f"{part}DelayMs"]) + " ms",
    }


ROWS = {
    "length": lambda f: f"{f['seconds'] / 60:g} minutes",
    "units sent, packets read": lambda f: f"{f['unitsSent']}, {f['packets']}",
    "end of the host": lambda f: f["end"],
    "processor time": lambda f: f"{f['cpuPercent']:.1f} % of one processor",
    "resident memory": lambda f: _from_to([kib / 1024 for kib in f["residentKib"]], " MiB", ".1f"),
    "private part of it": lambda f: _from_to([kib / 1024 for kib in f["privateKib"]], " MiB", ".2f"),
    "handles": lambda f: _from_to(f["handles"], "", ".0f"),
    "threads": lambda f: _from_to(f["threads"], "", ".0f"),
    **_sound_rows("speaker"),
    **_sound_rows("microphone"),
}


def _from_to(values, unit, form):
    return f"{values[0]:{form}} to {values[1]:{form}}{unit}"


def table(results):
    columns = ["", *(f"sender's clock {abs(f['ppm'])} ppm {f['name']}" for f in results)]
    return measuring.table(columns, [[name, *(cell(f) for f in results)] for name, cell in ROWS.items()])


def missed(f):
    """The goals that were missed, as sentences."""
    call = f"{f['name']} sender: "
    if not f["endedWell"]:
        yield call + f["ending"]
    if f["nonzeroResults"]:
        yield call + f"{f['nonzeroResults']} calls did not return 0"
    growth = f["privateKib"][1] - f["privateKib"][0]
    if growth > MAX_GROWTH_KIB:
        yield call + f"memory grew by {growth:.0f} KiB; the goal is at most {MAX_GROWTH_KIB} KiB"
    for name, most in (("handles", MAX_MORE_HANDLES), ("threads", 0)):
        if f[name][1] > f[name][0] + most:
            yield call + f"{name} grew from {f[name][0]:.0f} to {f[name][1]:.0f}"
    for part, most in (("speaker", MAX_SPEAKER_DELAY_MS), ("microphone", MAX_MICROPHONE_DELAY_MS)):
        sound, delays = f[part], f[f"{part}DelayMs"]
        if sound["windows"] < MIN_COMPARED * WINDOWS_PER_S * f["seconds"]:
            yield call + f"{part}: only {sound['windows'] / WINDOWS_PER_S:.0f} s of sound were found"
        allowed = MAX_DAMAGED_PER_MINUTE * f["seconds"] / 60 + sound["drops"] + sound["gaps"]
        if sound["damaged"] > allowed:
            yield call + f"{part}: {sound['damaged']} windows are damaged; the goal is at most {allowed:.0f}"
        if not delays or delays[2] > most:
            longest = f"{delays[2]:.1f} ms" if delays else "unknown"
            yield call + f"{part}: the longest delay is {longest}; the goal is at most {most} ms"
