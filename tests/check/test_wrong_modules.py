#!/usr/bin/python3
"""velto-host check finds what is wrong with each module of tests/check/wrong, and nothing else.

By default, each module is examined by the checks that cover the clauses that it breaks, up to the first one that finds it,
and the controls by all checks without sound. With VELTO_FULL_PLAN=1, each module is examined by all checks up to its level.
VELTO_WRITE_PAGES=1 writes the table of docs/check.md; without VELTO_FULL_PLAN=1, after all checks of the clauses that a module
breaks.

VELTO_JOBS sets how many modules are examined at the same time. VELTO_MODULES, a regular expression, chooses the modules by
their names; VELTO_HEARD=1 chooses those that are heard, and VELTO_HEARD=0 the others.

If the machine stalled while it lost sound of a module, the recording is repeated when the machine is calm again. If all checks
of a module were skipped, they are repeated with new devices."""

import contextlib
import json
import os
import pathlib
import re
import sys
import time
import unittest
from dataclasses import dataclass, field

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(REPOSITORY / "scripts"), str(REPOSITORY / "tests" / "system")]

import measuring
from rig import damage, paths, processes, repeats, schemas, session, stall_monitor

SOURCES = REPOSITORY / "tests" / "check" / "wrong"
MODULES = paths.TEST_BIN / "wrong"
PAGE, SECTION = "check.md", "the wrong modules"
WRITES_PAGES = os.environ.get("VELTO_WRITE_PAGES") == "1"
FULL_PLAN = os.environ.get("VELTO_FULL_PLAN") == "1"
IS_EXACT = FULL_PLAN or WRITES_PAGES  # whether all clauses are found that a module breaks
JOBS = int(os.environ.get("VELTO_JOBS", 6))  # more than the processors: most checks wait
JOBS_WITH_SOUND = min(JOBS, 3)               # of modules that are heard: the starts of many processes would damage sound
CHOSEN = re.compile(os.environ.get("VELTO_MODULES", ""))
HEARD_CHOICE = os.environ.get("VELTO_HEARD", "")
SEED = 1

PASSED, FAILED = 0, 6     # exit codes of velto-host check
HEARD_FAILED = 1          # exit code of velto-host check-heard
RUN_TIMEOUT_S = 3600 if FULL_PLAN else 900  # of one run of velto-host
SETTLE_S = 0.5            # of the recorder, before sound is played
ATTEMPTS = 3              # to hear a module, or to examine it with devices that work
LOST_SOUND = "SPK-16"     # the clause that a stall of the machine breaks
SILENT_LEVEL = 4          # the highest level whose checks play no sound
PLAN = ("all checks up to its level" if FULL_PLAN else
        "all checks of the clauses that it breaks, a control by all checks without sound")
COLUMNS = ["module", "what is wrong", "breaks", "level", "found by", "outcome"]


# ---- The modules ------------------------------------------------------------------------------------------------------

@dataclass
class Module:
    """A module, as the comment at the begin of its source describes it."""

    name: str
    text: str            # what is wrong
    breaks: list         # clauses, sorted; empty for a control
    level: int           # the lowest level whose checks find it
    check: str = ""      # one that finds it, if not each check of its clauses does
    heard: str = ""      # the check whose sound a listener has to hear
    speak: str = ""      # the check that hears its own sound from the microphone

    @property
    def is_heard(self):
        return bool(self.heard or self.speak)

    @property
    def path(self):
        return paths.to_windows(MODULES / f"{self.name}.dll")


def read_module(source):
    comments, values = [], {}
    for line in source.read_text("utf-8").splitlines():
        if not line.startswith("// "):
            break
        key = re.match(r"// (breaks|level|check|heard|speak): (.*)$", line)
        if key:
            values[key[1]] = key[2]
        else:
            comments.append(line.removeprefix("// "))
    breaks = [] if values["breaks"] == "none" else sorted(values.pop("breaks").split())
    values.pop("breaks", None)
    return Module(source.stem, " ".join(comments), breaks, int(values.pop("level")), **values)


def all_modules():
    return [read_module(source) for source in sorted(SOURCES.glob("*.c"))]


def chosen_modules():
    return [module for module in all_modules()
            if CHOSEN.search(module.name) and HEARD_CHOICE in ("", str(int(module.is_heard)))]


# ---- Runs of the checker ----------------------------------------------------------------------------------------------

@dataclass
class Findings:
    """What velto-host found in a module, in all runs for it."""

    broken: set = field(default_factory=set)      # clauses
    first: tuple = ("", 0, "passed")              # the check that was the first to find something: name, level, outcome
    problems: list = field(default_factory=list)  # contradictions in the reports, failures of the checker
    skipped: list = field(default_factory=list)   # the checks that the last attempt did not make, and why
    unmeasured: str = ""                          # why the module could not be heard

    def add(self, report, code):
        for result in report["results"]:
            if result["outcome"] == "broken":
                self.problems.append(f"{result['name']}: the checker failed: {result['reason']}")
            if result["outcome"] == "skipped":
                self.skipped.append(f"{result['name']}: {result['reason']}")
            if result["broken"] and not self.first[0]:
                self.first = (result["name"], result["level"], result["outcome"])
            self.broken.update(result["broken"])
        expected = FAILED if any(result["broken"] for result in report["results"]) else PASSED
        if code != expected:
            self.problems.append(f"exit code {code} instead of {expected}")


class Worker:
    """Examines one module after the other, with its own sound server and Wine prefix. The microphone has a constant tone, or
    the sound that the loudspeaker plays if a check has to hear its own sound.

    hears: whether it gets modules that are heard. Stalls matter only for these."""

    def __init__(self, number, hears):
        self.name = f"WrongModules.{number}"
        self._start_session(self.name)
        self.monitor = stall_monitor.StallMonitor(self.session.folder, self.session.prefix.root) if hears else None
        self.examination = None  # a generator: it yields each process for which it waits
        self.process = None
        self.deadline = 0.0

    def _start_session(self, name):
        self.session = session.Session(name, microphones=(session.MICROPHONE_48K,))
        self.session.server.pactl("load-module", "module-sine", "sink=micA", "frequency=440")

    def begin(self, module, checks):
        self.findings = Findings()
        self.session.server.make_default_source("spkA" if module.speak else "micA")
        self.examination = self._examine(module, checks)
        self._continue()

    def poll(self):
        """Returns the findings when the examination is complete, else None."""
        if self.process is not None:
            if self.process.poll() is None:
                if time.monotonic() < self.deadline:
                    return None
                self.findings.problems.append(f"velto-host did not end in {RUN_TIMEOUT_S} s")
            processes.end(self.process)
            self._continue()
        return self.findings if self.examination is None else None

    def close(self):
        self.session.close()
        self.stop_monitor()

    def stop_monitor(self):
        if self.monitor:
            self.monitor.stop()
            self.monitor = None

    def _continue(self):
        try:
            self.process = next(self.examination)
            self.deadline = time.monotonic() + RUN_TIMEOUT_S
        except StopIteration:
            self.process = self.examination = None

    def _examine(self, module, checks):
        if module.heard:
            yield from self._listen(module)
        if module.heard and module.breaks:
            return
        if module.speak:
            yield from self._check(module, "--speak", "--only", module.speak)
        elif FULL_PLAN or not module.breaks:
            yield from self._check(module, "--level", module.level if FULL_PLAN else SILENT_LEVEL)
        else:
            yield from self._find(module, candidates(module, checks))

    def _find(self, module, checks):
        """Makes the checks, by default up to the first one that finds something. If all were skipped, nothing was examined, as
        when the rig's devices fail: then repeats them with new devices. The files of the old ones stay in their folder."""
        for attempt in range(1, ATTEMPTS + 1):
            for check in checks:
                yield from self._check(module, "--only", check["name"])
                if self.findings.broken and not IS_EXACT:
                    return
            if not checks or len(self.findings.skipped) < len(checks) or attempt == ATTEMPTS:
                return
            reason = f"{module.name}: all checks were skipped: {'; '.join(self.findings.skipped)}"
            if not repeats.may_repeat(reason):
                return
            print(f"  attempt {attempt} of {ATTEMPTS}: {reason}; repeating with new devices", flush=True)
            assert self.monitor is None  # it would watch the old devices
            self.findings.skipped.clear()
            self.session.close()
            self._start_session(f"{self.name}.after.{module.name}.{attempt}")

    def _check(self, module, *arguments, is_recorded=False):
        """is_recorded: the listener gets a recording of the check's sound. If the check could listen, too, its verdict is not
        used, because a stall of the machine damages both."""
        report = self.session.folder / f"{module.name}.json"
        report.unlink(missing_ok=True)
        process = self._start(f"{module.name}.txt", "check", "--module", module.path, "--seed", SEED, "--jobs", 2, *arguments,
                              "--report-json", paths.to_windows(report))
        yield process
        if not report.exists():
            self.findings.problems.append(f"no report: {self._output(module.name)}")
            return
        content = json.loads(report.read_text("utf-8"))
        schemas.check(content)
        if not is_recorded or not any(result["heard"] for result in content["measured"]["results"]):
            self.findings.add(content, process.returncode)

    def _listen(self, module):
        """Repeats a recording that the machine spoiled."""
        for attempt in range(1, ATTEMPTS + 1):
            broken, places = yield from self._hear(module)
            if LOST_SOUND in broken - set(module.breaks):
                try:
                    note = damage.check(places, self.monitor.stalls())
                except damage.SoundDamaged as reason:
                    if attempt == ATTEMPTS or not repeats.may_repeat(f"{module.name}: {reason}"):
                        repeats.note_unmeasured(f"{module.name}: {reason}")
                        self.findings.unmeasured = str(reason)
                        return
                    print(f"  {module.name}, attempt {attempt} of {ATTEMPTS}: {reason}; repeating", flush=True)
                    repeats.wait_for_calm(self.monitor.stalls)
                    continue
                except damage.DamagedWithoutStall as reason:
                    self.findings.problems.append(str(reason))
                else:
                    repeats.note_accepted(f"{module.name}: {note}")
                    broken.remove(LOST_SOUND)
            break
        if broken:
            self.findings.first = (module.heard, module.level, "failed")
        self.findings.broken |= broken

    def _hear(self, module):
        """Records what the module plays in a check, and gives it to the checker's listener. Returns the broken clauses, and the
        places where sound was lost."""
        heard = self.session.record()
        time.sleep(SETTLE_S)
        yield from self._check(module, "--listen", "--only", module.heard, is_recorded=True)
        samples = heard.samples()
        heard.stop()
        self.session.recorders.remove(heard)
        process = self._start(f"{module.name}.heard", *heard.check_command(self.session.folder / f"{module.name}.f32"))
        yield process
        text = (self.session.folder / f"{module.name}.heard").read_text("utf-8", "replace")
        try:
            verdict = json.loads(text)
            broken = {each["clause"] for each in verdict["broken"]}
        except (ValueError, KeyError):
            self.findings.problems.append(f"check-heard ended with {process.returncode}: {text[-800:]}")
            return set(), []
        if process.returncode != (HEARD_FAILED if broken else PASSED):
            self.findings.problems.append(f"check-heard found {sorted(broken)} and ended with {process.returncode}")
        return broken, places_of_lost_sound(verdict["heard"], heard, len(samples))

    def _start(self, output, *arguments):
        with open(self.session.folder / output, "wb") as out, open(self.session.folder / f"{output}.err", "wb") as err:
            return processes.start(["wine", paths.HOST, *arguments], stdout=out, stderr=err, cwd=self.session.folder,
                                   env=self.session.prefix.environment)

    def _output(self, name):
        return "".join((self.session.folder / f"{name}.txt{end}").read_text("utf-8", "replace")[-800:] for end in ("", ".err"))


def places_of_lost_sound(sound, heard, frames):
    """sound: what the listener found in the recording `heard` of so many frames. Without a gap, the place is unknown."""
    ends = [round(seconds * heard.rate) for seconds in sound["gapsAtSeconds"]]
    if not ends:
        return [damage.Place(heard.time_of(0), heard.time_of(frames), "somewhere")]
    return [damage.Place(heard.time_of(end), heard.time_of(end), f"{end / heard.rate:.1f} s") for end in ends]


def candidates(module, checks):
    """The checks that can find what is wrong with a module."""
    if IS_EXACT:
        return [check for check in checks if check["level"] <= module.level and set(check["clauses"]) & set(module.breaks)]
    if module.check:
        return [check for check in checks if check["name"] == module.check]
    return [check for check in checks if check["level"] == module.level and set(check["clauses"]) & set(module.breaks)]


def list_checks(worker):
    listed = worker.session.prefix.run([paths.HOST, "check", "--list", "--json"])
    return json.loads(listed)["checks"]


def examine_all(modules):
    """Returns ({module's name: findings}, the list of checks)."""
    found = {}
    with contextlib.ExitStack() as stack:
        workers = []
        for number in range(min(JOBS, len(modules))):
            workers.append(Worker(number, hears=number < JOBS_WITH_SOUND))
            stack.callback(workers[-1].close)
        checks = list_checks(workers[0])
        heard = [module for module in modules if module.is_heard]
        if heard:
            repeats.wait_for_idle_host()
        found |= examine(heard, workers[:JOBS_WITH_SOUND], checks)
        for worker in workers:
            worker.stop_monitor()
        found |= examine([module for module in modules if module.name not in found], workers, checks)
    return found, checks


def examine(modules, workers, checks):
    """Returns {module's name: findings}."""
    found, busy = {}, {}
    waiting = sorted(modules, key=lambda each: each.level)  # the last one is examined first
    while waiting or busy:
        for worker in workers:
            if worker not in busy and waiting:
                busy[worker] = (waiting.pop(), time.monotonic())
                worker.begin(busy[worker][0], checks)
            elif worker in busy and (findings := worker.poll()) is not None:
                module, begin = busy.pop(worker)
                found[module.name] = findings
                print(f"  {module.name}: {' '.join(sorted(findings.broken)) or findings.unmeasured or 'nothing'}"
                      f"{', found by ' + findings.first[0] if findings.first[0] else ''}, {time.monotonic() - begin:.1f} s",
                      flush=True)
        time.sleep(0.02)
    return found


# ---- The page ---------------------------------------------------------------------------------------------------------

def table(modules, found):
    """Rows of the modules with what was really found."""
    rows = []
    for module in sorted(modules, key=lambda each: (bool(each.breaks), each.level, each.name)):
        findings = found[module.name]
        check, level, outcome = findings.first
        rows.append([f"`{module.name}`", module.text, " ".join(sorted(findings.broken)) or "nothing",
                     str(level or module.level), f"`{check}`" if check else "", outcome])
    return "\n".join([f"Each module was examined by {PLAN}.", "", *measuring.table(COLUMNS, rows)]) + "\n"


class WrongModules(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.modules = chosen_modules()
        missing = [module.name for module in cls.modules if not (MODULES / f"{module.name}.dll").exists()]
        if missing:
            raise FileNotFoundError(f"missing in {MODULES}: {', '.join(missing)}. Run scripts/build --tests windows.")
        cls.found, cls.checks = examine_all(cls.modules)

    def test_each_module_breaks_exactly_its_clauses(self):
        for module in self.modules:
            with self.subTest(module.name):
                findings = self.found[module.name]
                self.assertEqual(findings.problems, [])
                if findings.unmeasured:
                    self.skipTest(f"not measured: {findings.unmeasured}")
                if IS_EXACT or module.heard or not module.breaks:
                    self.assertEqual(sorted(findings.broken), module.breaks)
                else:  # one check, which need not cover all clauses
                    self.assertTrue(findings.broken, f"nothing was found; skipped: {findings.skipped}")
                    self.assertLessEqual(findings.broken, set(module.breaks))

    def test_level_of_each_module_is_lowest_that_finds_it(self):
        for module in self.modules:
            with self.subTest(module.name):
                if module.breaks and not module.speak and not self.found[module.name].unmeasured:
                    self.assertEqual(self.found[module.name].first[1], module.level)

    def test_named_check_of_each_module_exists(self):
        names = {check["name"] for check in self.checks}
        for module in self.modules:
            with self.subTest(module.name):
                self.assertLessEqual({module.check, module.heard, module.speak} - {""}, names)

    if IS_EXACT and not CHOSEN.pattern and not HEARD_CHOICE:  # a skipped test would mean that sound was not measured
        def test_page_has_table_of_modules(self):
            if WRITES_PAGES:
                measuring.write_section(PAGE, SECTION, table(self.modules, self.found))
            page = (measuring.DOCS / PAGE).read_text("utf-8")
            self.assertIn(f"\n{table(self.modules, self.found)}<!-- End of what {SECTION} measured. -->", page)


class Sources(unittest.TestCase):
    """The comments of the sources agree with the contract and with the page. Needs no built file."""

    def test_at_least_thirty_modules_break_a_clause(self):
        self.assertGreaterEqual(len([module for module in all_modules() if module.breaks]), 30)

    def test_broken_clauses_are_those_of_contract(self):
        contract = (measuring.DOCS / "contract.md").read_text("utf-8")
        clauses = set(re.findall(r"^\| ([A-Z]{3}-\d+) \|", contract, re.MULTILINE))
        for module in all_modules():
            with self.subTest(module.name):
                self.assertLessEqual(set(module.breaks), clauses)

    def test_page_lists_each_module_with_its_clauses(self):
        page = (measuring.DOCS / PAGE).read_text("utf-8")
        rows = {row[0]: row for row in re.findall(r"^\| `(\w+)` \| (.*?) \| (.*?) \| (\d+) \|", page, re.MULTILINE)}
        modules = {module.name: (module.name, module.text, " ".join(module.breaks) or "nothing", str(module.level))
                   for module in all_modules()}
        self.assertEqual(rows, modules)


if __name__ == "__main__":
    session.main()
