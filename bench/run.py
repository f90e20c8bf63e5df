"""Measures speed, delay and memory of the DLL under Wine, and writes the figures into docs/performance.md.

Run it on an idle machine. The part "playing" takes 10 minutes, "playing-floor" 5 minutes.
"""

import contextlib
import importlib
import sys

import measuring

SCRIPT = measuring.Script("bench", __doc__)
MEASUREMENTS = {name: name.replace("-", "_") for name in (
    "write-path", "capture-path", "playing-floor", "playing", "encoder", "packet-queue", "click-delay")}


def add_arguments(parser):
    parser.add_argument("files", nargs="*", metavar="FILE",
                        help="another sound file for write-path and encoder; if given, the page is not written")
    parser.add_argument("--only", choices=MEASUREMENTS, help="measure only this part")
    parser.add_argument("--minutes", type=float, default=10, help="length of playing, at least 1 (default: 10)")
    parser.add_argument("--show", action="store_true", help="print the figures, but do not write the page")


class Page:
    """The section of one measurement in docs/performance.md."""

    def __init__(self, name, is_written):
        self._section = f"scripts/bench --only {name}"
        self._is_written = is_written

    def failures(self):
        return SCRIPT.failures_go_to("performance.md", self._section) if self._is_written else contextlib.nullcontext()

    def write(self, text):
        if self._is_written:
            SCRIPT.publish("performance.md", text, self._section)


def measure(options):
    if not options.minutes >= 1:
        SCRIPT.parser.error("--minutes must be at least 1")
    source = measuring.CACHE / "benchmark-source"
    measuring.prepare("--tests", "windows", setup=["--bench"], options=[f"-DVELTO_BENCHMARK_SOURCE={source}"])
    # These modules need the packages that the set-up installs.
    from rig import processes
    processes.install_handlers()
    results, missed = {}, []
    for name in [options.only] if options.only else MEASUREMENTS:
        module = importlib.import_module(MEASUREMENTS[name])
        SCRIPT.say(module.TITLE)
        page = Page(name, is_written=not options.show and not options.files)
        with page.failures():
            load = measuring.load_average()
            results[name] = {**module.measure(options), "loadAverageAtStart": load}
            lines = [*module.table(results[name]), "", f"Load average at start: {load:.1f}."]
        if hasattr(module, "missed"):
            missed_here = list(module.missed(results[name]))
            lines += ["", measuring.verdict(missed_here)]
            missed += missed_here
        page.write(measuring.section(lines))
    SCRIPT.save(results)
    return SCRIPT.finish(missed)


if __name__ == "__main__":
    add_arguments(SCRIPT.parser)
    sys.exit(SCRIPT.run(measure))
