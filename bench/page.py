"""The figures as tables, and their place in docs/performance.md."""

BEGIN = "<!-- Measured by scripts/bench; do not edit by hand. -->"
END = "<!-- End of what scripts/bench measured. -->"

MOST_RATIO = 1.6
MOST_CAPTURE_RATIO = 1.3
MOST_GROWTH_KIB = 1024  # from the start to the end of a run, of the process's own memory
FRAME_US = 1024 / 48000 * 1e6


def _write_path(measured):
    lines = ["| frames of | WriteStreamBuffer | bare decoder and converter | ratio |", "|---|---|---|---|"]
    for entry in measured["files"]:
        lines.append(f"| {entry['file']} | {entry['writeUs']:.1f} µs | {entry['bareUs']:.1f} µs | {entry['ratio']:.2f} |")
    first = measured["files"][0]
    parts = measured["parts"]
    rest = first["writeUs"] - first["bareUs"] - sum(parts.values())
    lines += ["", f"Where the {first['writeUs'] - first['bareUs']:.1f} µs beside decoding go, each part measured by itself:",
              "", "| part | time per call |", "|---|---|"]
    lines += [f"| {name} | {microseconds:.2f} µs |" for name, microseconds in parts.items()]
    lines += [f"| what is left: locks, checks, the play thread's share of the processor | {rest:.1f} µs |", "",
              f"A frame is {FRAME_US / 1000:.1f} ms of sound; a call takes {100 * first['writeUs'] / FRAME_US:.2f} % of that."]
    return lines


def _capture_path(measured):
    lines = ["| microphone's rate | capture path | bare converter and encoder | ratio |", "|---|---|---|---|"]
    for entry in measured["rates"]:
        lines.append(f"| {entry['rateHz']} Hz | {entry['captureUs'] / 1000:.2f} ms | {entry['bareUs'] / 1000:.2f} ms | "
                     f"{entry['ratio']:.2f} |")
    return lines


def _playing(measured):
    lines = [f"A host that plays in a loop for {measured['seconds'] / 60:g} minutes "
             f"({measured['framesSent']} frames) uses {measured['cpuSecondsPerMinute']:.2f} s of processor time "
             f"for 60 s of sound ({100 * measured['cpuSecondsPerMinute'] / 60:.1f} % of one processor).", "",
             "| after | resident | of it the process's own |", "|---|---|---|"]
    for sample in measured["memoryKib"]:
        lines.append(f"| {sample['atSeconds']} s | {sample['resident'] / 1024:.1f} MiB | {sample['own'] / 1024:.2f} MiB |")
    return lines


def tables(results):
    lines = [f"Measured on {results['when']}: {results['machine']}.", ""]
    if "writePath" in results:
        lines += _write_path(results["writePath"]) + [""]
    if "capturePath" in results:
        lines += _capture_path(results["capturePath"]) + [""]
    if "playing" in results:
        lines += _playing(results["playing"]) + [""]
    loads = ", ".join(f"{results[name]['load']:.1f}" for name in ("writePath", "capturePath", "playing") if name in results)
    lines.append(f"Processes that wanted to run when measuring began: {loads}.")
    return "\n".join(lines) + "\n"


def missed(results):
    """What is not as it has to be, as sentences."""
    found = []
    for entry in results.get("writePath", {}).get("files", []):
        if entry["ratio"] > MOST_RATIO:
            found.append(f"{entry['file']}: a write takes {entry['ratio']:.2f} times the bare decoder's time, "
                         f"at most {MOST_RATIO} is wanted")
    for entry in results.get("capturePath", {}).get("rates", []):
        if entry["ratio"] > MOST_CAPTURE_RATIO:
            found.append(f"{entry['rateHz']} Hz: capture takes {entry['ratio']:.2f} times the bare encoder's time, "
                         f"at most {MOST_CAPTURE_RATIO} is wanted")
    samples = results.get("playing", {}).get("memoryKib")
    if samples and samples[-1]["own"] - samples[0]["own"] > MOST_GROWTH_KIB:
        found.append(f"memory grew by {samples[-1]['own'] - samples[0]['own']} KiB, "
                     f"at most {MOST_GROWTH_KIB} are wanted")
    return found


def write(path, results):
    text = path.read_text("utf-8")
    before, _, rest = text.partition(BEGIN)
    _, _, after = rest.partition(END)
    path.write_text(f"{before}{BEGIN}\n{tables(results)}{END}{after}", "utf-8")
