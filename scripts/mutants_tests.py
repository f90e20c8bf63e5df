"""Runs the tests that reach a mutant, the quickest first, until one fails."""

import dataclasses
import json
import os
import pathlib
import re
import resource
import signal
import subprocess
import sys
import tempfile
import threading
import time

CAUGHT = ("caught", "crashed", "hung")  # by a failing test; by a signal or a sanitizer; by the time limit
QUICK_TESTS = 8
SLOW_MS = 1000
LIMIT_S = 15          # of a test, in addition to ten times its usual time
LIMIT_FACTOR = 10
SLOW_FAILURE_S = 5    # a busy machine could be the reason
POLL_S = 0.05
OUTPUT_LINES = 400
FROM_OUTSIDE = (-signal.SIGINT, -signal.SIGTERM, -signal.SIGKILL, -signal.SIGHUP)
START, END = "the start of the program", "a check at the end of the program"
SANITIZER = "hard_rss_limit_mb=4000"  # a mutant may allocate without end
# Exact stacks of allocations, which the suppressed leaks need, take most of a test's time. The first run of a batch does
# without both.
WITHOUT_LEAKS, WITH_LEAKS = "detect_leaks=0:fast_unwind_on_malloc=1", ""


@dataclasses.dataclass
class Group:
    """A program with the environment and the tests of one entry of ctest."""
    name: str
    program: str
    filter: str
    environment: dict


@dataclasses.dataclass
class Test:
    group: Group
    name: str
    milliseconds: int
    reached: frozenset


@dataclasses.dataclass
class Result:
    outcome: str
    by: str = ""       # the test that failed, or the last that ran
    seconds: float = 0.0
    tests: int = 0     # number of tests that reach the mutant


@dataclasses.dataclass
class Ended:
    code: int          # None after the time limit
    lines: list        # the end of the output
    last_test_s: float  # how long the last test ran


class Watch:
    """How long the current test of a process has been running, by the marks in its output."""

    def __init__(self, output):
        self.output, self.at, self.test, self.since = output, 0, "", time.monotonic()

    def seconds(self):
        self.output.seek(self.at)
        text = self.output.read()
        end = text.rfind(b"\n") + 1
        self.at += end
        started = re.findall(rb"^\[ RUN      \] (\S+)", text[:end], re.MULTILINE)
        if started:
            self.test, self.since = started[-1].decode(), time.monotonic()
        return time.monotonic() - self.since


STOP = threading.Event()  # set when the run is interrupted: ends the test processes


def has_ended(process):
    """Does not reap the process, so that no other process gets its id before its group is killed."""
    return os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT) is not None


def groups_of(build, programs):
    """The entries of ctest that run one of these programs."""
    shown = subprocess.run(["ctest", "--show-only=json-v1"], cwd=build, capture_output=True, text=True, check=True).stdout
    found = []
    for test in json.loads(shown)["tests"]:
        command = test.get("command") or [""]
        if pathlib.Path(command[0]).name not in programs:
            continue
        values = next((entry["value"] for entry in test["properties"] if entry["name"] == "ENVIRONMENT"), [])
        environment = dict(value.split("=", 1) for value in values)
        tests = environment.pop("GTEST_FILTER", "*")
        environment.pop("VELTO_FAULT_WALK", None)  # the figures of a mutant are of no use
        found.append(Group(test["name"], command[0], tests, environment))
    return found


def build_and_name(group):
    """The two parts of a name of ctest: asan.unit."""
    build, _, name = group.name.partition(".")
    return build, name


def start(group, tests, mutant, limit_of, record=None, sanitizer=WITH_LEAKS):
    """Runs tests of a group in a separate process, until the first fails. `limit_of(test)`: seconds."""
    environment = {**os.environ, **group.environment, "GTEST_FILTER": tests, "GTEST_FAIL_FAST": "1", "GTEST_COLOR": "no",
                   "VELTO_MUTANT": str(mutant)}
    environment["ASAN_OPTIONS"] = ":".join(filter(None, (environment.get("ASAN_OPTIONS"), SANITIZER, sanitizer)))
    environment["TSAN_OPTIONS"] = ":".join(filter(None, (environment.get("TSAN_OPTIONS"), "halt_on_error=1")))
    if record is not None:
        environment["VELTO_MUTANTS_REACHED"] = str(record)
    with tempfile.NamedTemporaryFile() as output, open(output.name, "rb") as reader:
        process = subprocess.Popen([group.program], env=environment, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                   start_new_session=True,
                                   preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)))
        watch, is_late = Watch(reader), False
        try:
            while not has_ended(process) and not is_late:
                if STOP.wait(POLL_S):
                    raise RuntimeError("interrupted")
                is_late = watch.seconds() > limit_of(watch.test)
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)  # with the children that a test left
            except ProcessLookupError:
                pass
            code = process.wait()
        last_test_s = watch.seconds()
        output.seek(0, os.SEEK_END)
        output.seek(max(0, output.tell() - 200000))
        return Ended(None if is_late else code, output.read().decode("utf-8", "replace").splitlines()[-OUTPUT_LINES:], last_test_s)


def named(lines, mark):
    """The tests that a mark of the output names."""
    found = [re.match(rf"\[ *{mark} *\] ([\w/]+\.[\w/]+)", line) for line in lines]
    return [match[1] for match in found if match]


def record(groups, folder, say):
    """Runs all tests without a mutant. Returns the tests, and the places that are reached outside tests."""
    tests, outside = [], set()
    for group in groups:
        say(f"running {group.name} without a mutant")
        base = folder / f"reached-{group.name}"
        for suffix in (".map", ".txt"):
            base.with_suffix(base.suffix + suffix).unlink(missing_ok=True)
        ended = start(group, group.filter, 0, lambda test: 1800, base)
        if ended.code != 0:
            failed = named(ended.lines, "FAILED") or named(ended.lines, "RUN")[-1:] or [END]
            begin = max((at for at, line in enumerate(ended.lines) if "[ RUN " in line and failed[-1] in line), default=-40)
            print("\n".join(f"    | {line}" for line in ended.lines[begin:][:40]), file=sys.stderr)
            raise RuntimeError(f"{failed[-1]} of {group.name} fails without a mutant")
        for line in pathlib.Path(f"{base}.txt").read_text("utf-8").splitlines():
            name, milliseconds, numbers = line.split("\t")
            reached = frozenset(int(number) for number in numbers.split())
            if name == "load":
                outside |= reached
            else:
                tests.append(Test(group, name, int(milliseconds), reached))
        outside |= {number for number, flag in enumerate(pathlib.Path(f"{base}.map").read_bytes()) if flag}
    return tests, outside


def save(file, tests, outside):
    file.write_text(json.dumps({"outside": sorted(outside),
                                "tests": [[test.group.name, test.name, test.milliseconds, sorted(test.reached)]
                                          for test in tests]}), "utf-8")


def load(file, groups):
    kept = json.loads(file.read_text("utf-8"))
    by_name = {group.name: group for group in groups}
    return [Test(by_name[group], name, milliseconds, frozenset(reached))
            for group, name, milliseconds, reached in kept["tests"]], set(kept["outside"])


class Runner:
    """Runs mutants. `hints`: {key: test} that caught a mutant earlier. `threads`: the groups that run under ThreadSanitizer."""

    def __init__(self, tests, outside, numbers_of_file, hints, threads=()):
        self.tests = sorted(tests, key=lambda test: test.milliseconds)
        self.threads = {build_and_name(group)[1]: group for group in threads}
        self.outside = outside
        self.numbers_of_file = numbers_of_file
        self.hints = hints
        self.verified = set()

    def reaching(self, mutant, is_separate):
        """The tests that reach a mutant. If it is compiled separately, or is reached outside tests, as the program starts or
        ends, no switch records these tests: then those that reach its file come first, and all others follow."""
        if not is_separate and mutant.number not in self.outside:
            return [test for test in self.tests if mutant.number in test.reached]
        own = self.numbers_of_file[mutant.file]
        near = [test for test in self.tests if own & test.reached]
        chosen = {id(test) for test in near}
        return near + [test for test in self.tests if id(test) not in chosen]

    def batches(self, mutant, tests):
        """Lists of tests that share a process."""
        hint = self.hints.get(mutant.key)
        first = [test for test in tests if test.name == hint and test.milliseconds < 20 * SLOW_MS]
        quick = [test for test in tests if test.name != hint or not first]
        batches = [first, quick[:QUICK_TESTS]]
        rest = quick[QUICK_TESTS:]
        batches.append([test for test in rest if test.milliseconds < SLOW_MS])
        batches += [[test] for test in rest if test.milliseconds >= SLOW_MS]
        for batch in batches:
            for group in dict.fromkeys(test.group.name for test in batch):
                yield [test for test in batch if test.group.name == group]

    def run(self, mutant, is_separate=False, is_explained=False):
        """is_explained: the mutant is expected to survive. The slow tests, which take most of a survivor's time, are left out."""
        begun = time.monotonic()
        tests = self.reaching(mutant, is_separate)
        if is_explained:
            tests = [test for test in tests if test.milliseconds < SLOW_MS] or tests
        if not tests:
            return Result("not reached")
        batches = list(self.batches(mutant, tests))
        if mutant.kind == "lock":
            batches = self.under_thread_sanitizer(batches) + batches
        for batch in batches:
            found = self.run_batch(batch, 0 if is_separate else mutant.number, is_separate)
            if found is not None:
                outcome, by = found
                return Result(outcome, by, time.monotonic() - begun, len(tests))
        return Result("survived", "", time.monotonic() - begun, len(tests))

    def under_thread_sanitizer(self, batches):
        """The same tests in the programs with ThreadSanitizer."""
        groups = [self.threads.get(build_and_name(batch[0].group)[1]) for batch in batches]
        return [[dataclasses.replace(test, group=group) for test in batch] for batch, group in zip(batches, groups) if group]

    def run_batch(self, batch, number, is_separate):
        """(outcome, test) if the mutant is caught."""
        if batch[0].group in self.threads.values():
            return self.run_once(batch, number, is_separate, "")
        return self.run_once(batch, number, is_separate, WITHOUT_LEAKS) or self.run_once(batch, number, is_separate, WITH_LEAKS)

    def run_once(self, batch, number, is_separate, sanitizer):
        usual = {test.name: test.milliseconds / 1000 for test in batch}
        tests = ":".join(usual)

        def limit_of(test):
            return LIMIT_S + LIMIT_FACTOR * usual.get(test, 0)

        def attempt():
            return start(batch[0].group, tests, number, limit_of, sanitizer=sanitizer)

        ended = attempt()
        if ended.code is None or ended.code in FROM_OUTSIDE or ended.code != 0 and ended.last_test_s > SLOW_FAILURE_S:
            ended = attempt()
        if ended.code == 0:
            return None
        failed, last = named(ended.lines, "FAILED"), named(ended.lines, "RUN")
        if ended.code is None:
            outcome, by = "hung", last[-1] if last else START
        elif failed:
            outcome, by = "caught", failed[0]
        elif not last:
            outcome, by = "crashed", START
        else:
            is_end = len(last) == len(batch) and named(ended.lines, "OK")[-1:] == last[-1:]
            outcome, by = "crashed", END if is_end else last[-1]
        if not is_separate:
            self.verify(batch, by, limit_of)
        return outcome, by

    def verify(self, batch, by, limit_of):
        """Runs the failed test without the mutant. If it fails then, too, the mutant was not the reason, and the run ends."""
        single = [test for test in batch if test.name == by] or batch
        tests = ":".join(test.name for test in single)
        if (single[0].group.name, tests) in self.verified:
            return
        ended = start(single[0].group, tests, 0, limit_of)
        if ended.code != 0:
            raise RuntimeError(f"{by} fails without a mutant when only these tests run: {tests}: " + " / ".join(ended.lines[-5:]))
        self.verified.add((single[0].group.name, tests))
