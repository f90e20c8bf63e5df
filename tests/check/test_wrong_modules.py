#!/usr/bin/python3
"""velto-host check finds what is wrong with each module of tests/check/wrong, and nothing else.

By default, each module is examined by the checks that cover the clauses that it breaks, up to the first one that finds it.
With VELTO_FULL_PLAN=1, each one is examined by all checks up to its level. VELTO_WRITE_PAGES=1 does the same, and writes the
table of docs/check.md. VELTO_JOBS sets how many modules are examined at the same time."""

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
from rig import paths, processes, recorder, schemas, session

SOURCES = REPOSITORY / "tests" / "check" / "wrong"
MODULES = paths.TEST_BIN / "wrong"
PAGE, SECTION = "check.md", "the wrong modules"
WRITES_PAGES = os.environ.get("VELTO_WRITE_PAGES") == "1"
FULL_PLAN = WRITES_PAGES or os.environ.get("VELTO_FULL_PLAN") == "1"
JOBS = int(os.environ.get("VELTO_JOBS", 2))
SEED = 1

PASSED, FAILED = 0, 6     # exit codes of velto-host check
HEARD_FAILED = 1          # exit code of velto-host check-heard
RUN_TIMEOUT_S = 3600 if FULL_PLAN else 900  # of one run of velto-host
SETTLE_S = 0.5            # of the recorder, before sound is played
ATTEMPTS = 3              # to hear a module
LOST_SOUND = "SPK-16"     # the clause that a stall of the machine breaks
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


# ---- Runs of the checker ----------------------------------------------------------------------------------------------

@dataclass
class Findings:
    """What velto-host found in a module, in all runs for it."""

    broken: set = field(default_factory=set)      # clauses
    first: tuple = ("", 0, "passed")              # the check that was the first to find something: name, level, outcome
    problems: list = field(default_factory=list)  # contradictions in the reports, failures of the checker

    def add(self, report, code):
        for result in report["results"]:
            if result["outcome"] == "broken":
                self.problems.append(f"{result['name']}: the checker failed: {result['reason']}")
            if result["broken"] and not self.first[0]:
                self.first = (result["name"], result["level"], result["outcome"])
            self.broken.update(result["broken"])
        expected = FAILED if any(result["broken"] for result in report["results"]) else PASSED
        if code != expected:
            self.problems.append(f"exit code {code} instead of {expected}")


class Worker:
    """Examines one module after the other, with its own sound server and Wine prefix. The microphone is what the loudspeaker
    plays, so a check can hear its own sound."""

    def __init__(self, number):
        self.session = session.Session(f"WrongModules.{number}")
        self.session.server.pactl("set-default-source", "spkA.monitor")
        self.examination = None  # a generator: it yields each process for which it waits
        self.process = None
        self.deadline = 0.0

    def begin(self, module, checks):
        self.findings = Findings()
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
            yield from self._check(module, "--level", module.level)
        else:
            for check in candidates(module, checks):
                yield from self._check(module, "--only", check["name"])
                if self.findings.broken:
                    break

    def _check(self, module, *arguments):
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
        self.findings.add(content, process.returncode)

    def _listen(self, module):
        """Repeats the listening if sound is missing that the module does not lose: the machine may have stalled."""
        for attempt in range(1, ATTEMPTS + 1):
            broken = yield from self._hear(module)
            if broken - set(module.breaks) != {LOST_SOUND}:
                break
            print(f"  {module.name}: lost sound in attempt {attempt} of {ATTEMPTS}", flush=True)
        if broken:
            self.findings.first = (module.heard, module.level, "failed")
        self.findings.broken |= broken

    def _hear(self, module):
        """Records what the module plays in a check, and gives it to the checker's listener. Returns the broken clauses."""
        recording = self.session.folder / f"{module.name}.wav"
        heard = self.session.record()
        time.sleep(SETTLE_S)
        yield from self._check(module, "--listen", "--only", module.heard)
        recorder.write_wav(recording, heard.stop(), heard.rate)
        self.session.recorders.remove(heard)
        process = self._start(f"{module.name}.heard", "check-heard", paths.to_windows(recording))
        yield process
        text = (self.session.folder / f"{module.name}.heard").read_text("utf-8", "replace")
        try:
            broken = {each["clause"] for each in json.loads(text)["broken"]}
        except (ValueError, KeyError):
            self.findings.problems.append(f"check-heard ended with {process.returncode}: {text[-800:]}")
            return set()
        if process.returncode != (HEARD_FAILED if broken else PASSED):
            self.findings.problems.append(f"check-heard found {sorted(broken)} and ended with {process.returncode}")
        return broken

    def _start(self, output, *arguments):
        with open(self.session.folder / output, "wb") as out, open(self.session.folder / f"{output}.err", "wb") as err:
            return processes.start(["wine", paths.HOST, *arguments], stdout=out, stderr=err, cwd=self.session.folder,
                                   env=self.session.prefix.environment)

    def _output(self, name):
        return "".join((self.session.folder / f"{name}.txt{end}").read_text("utf-8", "replace")[-800:] for end in ("", ".err"))


def candidates(module, checks):
    """The checks that can find what is wrong with a module."""
    if module.check:
        return [check for check in checks if check["name"] == module.check]
    return [check for check in checks if check["level"] <= module.level and set(check["clauses"]) & set(module.breaks)]


def list_checks(worker):
    listed = worker.session.prefix.run([paths.HOST, "check", "--list", "--json"])
    return json.loads(listed)["checks"]


def examine_all(modules):
    """Returns ({module's name: findings}, the list of checks)."""
    found, waiting = {}, sorted(modules, key=lambda each: each.level)  # the last one is examined first
    with contextlib.ExitStack() as stack:
        workers = []
        for number in range(JOBS):
            workers.append(Worker(number))
            stack.callback(workers[-1].close)
        checks = list_checks(workers[0])
        busy = {}
        while waiting or busy:
            for worker in workers:
                if worker not in busy and waiting:
                    busy[worker] = waiting.pop()
                    worker.begin(busy[worker], checks)
                elif worker in busy and (findings := worker.poll()) is not None:
                    module = busy.pop(worker)
                    found[module.name] = findings
                    print(f"  {module.name}: {' '.join(sorted(findings.broken)) or 'nothing'}"
                          f"{', found by ' + findings.first[0] if findings.first[0] else ''}", flush=True)
            time.sleep(0.05)
    return found, checks


# ---- The page ---------------------------------------------------------------------------------------------------------

def table(modules, found):
    """Rows of the modules with what was really found."""
    rows = []
    for module in sorted(modules, key=lambda each: (bool(each.breaks), each.level, each.name)):
        findings = found[module.name]
        check, level, outcome = findings.first
        rows.append([f"`{module.name}`", module.text, " ".join(sorted(findings.broken)) or "nothing",
                     str(level or module.level), f"`{check}`" if check else "", outcome])
    return "\n".join(measuring.table(COLUMNS, rows)) + "\n"


class WrongModules(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.modules = all_modules()
        missing = [module.name for module in cls.modules if not (MODULES / f"{module.name}.dll").exists()]
        if missing:
            raise FileNotFoundError(f"missing in {MODULES}: {', '.join(missing)}. Run scripts/build --tests windows.")
        cls.found, cls.checks = examine_all(cls.modules)

    def test_each_module_breaks_exactly_its_clauses(self):
        for module in self.modules:
            with self.subTest(module.name):
                findings = self.found[module.name]
                self.assertEqual(findings.problems, [])
                if FULL_PLAN or module.heard or not module.breaks:
                    self.assertEqual(sorted(findings.broken), module.breaks)
                else:  # one check, which need not cover all clauses
                    self.assertTrue(findings.broken, "nothing was found")
                    self.assertLessEqual(findings.broken, set(module.breaks))

    def test_level_of_each_module_is_lowest_that_finds_it(self):
        for module in self.modules:
            with self.subTest(module.name):
                if module.breaks and not module.speak:
                    self.assertEqual(self.found[module.name].first[1], module.level)

    def test_named_check_of_each_module_exists(self):
        names = {check["name"] for check in self.checks}
        for module in self.modules:
            with self.subTest(module.name):
                self.assertLessEqual({module.check, module.heard, module.speak} - {""}, names)

    def test_page_has_table_of_modules(self):
        if WRITES_PAGES:
            measuring.write_section(PAGE, SECTION, table(self.modules, self.found))
        if not FULL_PLAN:
            self.skipTest("the table has the results of whole levels: VELTO_FULL_PLAN=1 compares it")
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
