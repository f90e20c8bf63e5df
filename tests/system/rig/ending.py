"""How a program ended, and whether the module took part in a failure."""

import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import time
from collections import Counter
from dataclasses import dataclass, field

from . import damage, processes, tracer

# Under Wine, some processes with an open stream crash or get stuck at their end, also without the module: Wine kills the
# thread of its sound driver, possibly inside PulseAudio's library, before the driver closes that library. Only code in
# these files counts as Wine's.
_WINES_FILES = re.compile(r"/wine/|/(wine64?|wine64-preloader|libpulse(common-[\d.]+)?\.so[\d.]*|libc\.so\.6|"
                          r"ld-linux-x86-64\.so\.2|libgcc_s\.so\.1|libpthread\.so\.0)$")
_ASSERTION = re.compile(r"Assertion [`'].*' failed.*\s*\Z")
_STUCK_REPORT_S = 5
_BEGIN_S = 20  # on a busy machine

# The kinds of endings. Every one that a run had is counted.
EXPECTED, FAULTY, OTHER_CODE, SIGNAL, KILLED, STUCK, HUNG, ASSERTION = (
    "with the expected exit code", "with the expected exit code, after a fault", "with another exit code", "by a signal",
    "killed by Wine's server", "stuck, killed by the test", "hanging, killed by the test", "by a failed assertion")

WINE, THE_MODULE, UNKNOWN = "Wine", "the module", "unknown"


@dataclass
class Ending:
    """All that is known about the end of a process."""

    expected_code: int
    code: int                   # exit code, or the negative number of the signal
    killed_as: str = ""         # STUCK or HUNG if the test killed the process
    assertion: str = ""
    has_last_words: bool = False  # whether the host had printed the text that it prints last
    is_traced: bool = False
    cpu_s: float = 0.0
    life_s: float = 0.0
    records: list = field(default_factory=list)  # of the tracer

    @property
    def kind(self):
        if self.killed_as:
            return self.killed_as
        if self.assertion:
            return ASSERTION
        if self.code == -signal.SIGKILL:
            return KILLED
        if self.code < 0:
            return SIGNAL
        if self.code != self.expected_code:
            return OTHER_CODE
        return FAULTY if self._faults else EXPECTED

    @property
    def _faults(self):
        return [each for each in self.records if each["kind"] == "fault"]

    @property
    def module_faults(self):
        """Signals that a thread caused while the module's code was on its stack. A program can survive them: Wine's loader
        continues after a crash in DllMain."""
        return _module_faults(self.records)

    @property
    def causes(self):
        """The records that explain a death: where the faults were, or where the main thread was when it was killed."""
        places = [each for each in self.records if each["isMain"] and each["kind"] in ("killed", "thread")]
        if self.kind in (KILLED, STUCK, HUNG):
            return places[:1]
        return self._faults

    @property
    def blame(self):
        """Who caused a death. Wine did only if the place of the death is known to be in Wine, PulseAudio's library or libc,
        with no call of the module around it."""
        if self.module_faults or any(each["module"] for each in self.causes):
            return THE_MODULE
        if self.causes and all(_is_wines(each) for each in self.causes):
            return WINE
        return UNKNOWN

    @property
    def is_good(self):
        return self.kind == EXPECTED

    @property
    def is_wines(self):
        """Whether this is a death that Wine caused after the host's last words. A fault counts as a death: while another thread
        ends the process, it depends on the tracer's speed which of the two is first."""
        return not self.is_good and self.kind != HUNG and self.has_last_words and self.blame == WINE

    def summary(self):
        """The kind, and the cause of any but a good end."""
        return self.kind if self.is_good else f"{self.kind}; cause: {self.blame}"

    def describe(self):
        words = "after its last words" if self.has_last_words else "before its last words"
        known = "" if self.is_traced else " (the process was not traced)"
        text = f"the process ended {self.kind} ({self.code}, expected {self.expected_code}), {words}; cause: {self.blame}{known}"
        for each in (*self.module_faults, *self.causes):
            name = f"signal {each['signal']}" if "signal" in each else "stuck"
            text += f"\n    {name} in {each['file'] or 'no code'}, called from: {', '.join(map(os.path.basename, each['frames']))}"
        return text + (f"\n    {self.assertion}" if self.assertion else "")


def _module_faults(records):
    return [each for each in records if each.get("kind") == "fault" and each["module"]]


def _is_wines(record):
    """An address without code, to which a damaged return address leads, counts as the place that led to it."""
    file = record["file"] or (record["frames"] or [""])[0]
    return bool(_WINES_FILES.search(file))


class Trace:
    """The tracer of a process. signs: files of which one is no longer empty when the process has started; the tracer then
    gives it the priority of sound."""

    def __init__(self, process, report, signs=()):
        self._report = report
        report.unlink(missing_ok=True)
        self._tracer = processes.start(
            [sys.executable, "-S", "-B", "-m", "rig.tracer", process.pid, report, *signs],
            stderr=subprocess.DEVNULL, cwd=pathlib.Path(__file__).resolve().parent.parent)

    def wait_for_begin(self):
        """Waits until the process is traced, or cannot be."""
        deadline = time.monotonic() + _BEGIN_S
        while time.monotonic() < deadline and self._tracer.poll() is None and not self._lines():
            time.sleep(0.01)
        if not self._lines():
            raise RuntimeError("the tracer did not start")

    def report_threads(self):
        """Records where each thread of a stuck process is."""
        before = len(self._lines())
        self._tracer.send_signal(signal.SIGUSR1)
        deadline = time.monotonic() + _STUCK_REPORT_S
        while time.monotonic() < deadline and not any(line.get("isMain") for line in self._lines()[before:]):
            time.sleep(0.05)

    def finish(self):
        """Waits for the end of the report. Returns the last fields of an Ending: whether the process was traced, processor
        time and length of its life in s, and the records."""
        try:
            self._tracer.wait(_STUCK_REPORT_S)
        except subprocess.TimeoutExpired:
            pass
        processes.end(self._tracer)
        lines = self._lines()
        last = next((line for line in lines if "cpuSeconds" in line), {"cpuSeconds": 0.0, "lifeSeconds": 0.0})
        return (any(line.get("traced") for line in lines), last["cpuSeconds"], last["lifeSeconds"],
                [line for line in lines if "kind" in line])

    def module_faults(self):
        return _module_faults(self._lines())

    def waits(self):
        """The times in which a thread of the program waited for a processor, as stalls."""
        return [damage.Stall(line["waitBegin"], line["waitEnd"]) for line in self._lines() if "waitEnd" in line]

    def _lines(self):
        found = []
        for line in self._report.read_text("utf-8").splitlines() if self._report.exists() else []:
            try:
                found.append(json.loads(line))
            except ValueError:
                pass  # being written
        return found


def assertion_in(errors):
    """The failed assertion at the end of a program's messages, or ""."""
    found = _ASSERTION.search(errors)
    return found.group(0).strip() if found else ""


def counted(endings):
    """{kind and cause: number} of endings."""
    return dict(Counter(each.summary() for each in endings))
