"""Runs a fuzz target, or all in turn, each for SECONDS, and adds the counts to docs/reliability.md.

Each target counts what its steps achieve. A kind of step that never has an effect fails the run.

Targets:
  speaker_path   units of any bytes through the table to the speaker
  host_records   ids, parameter lists, capabilities, listeners
  encoder        the codec library's encoder: any sound, any parameters
  packet_queue   the packet queue, compared with a model of it
  file_reader    the files that velto-host plays

Inputs that reach new code are kept in build/fuzz/corpus, where the next run starts. A finding is kept in
tests/fuzz/findings/TARGET, where scripts/test replays it.
"""

import contextlib
import fcntl
import os
import re
import signal
import subprocess
import sys
import time
import typing

import measuring

SCRIPT = measuring.Script("fuzz", __doc__)
SOURCES = measuring.REPOSITORY / "tests" / "fuzz"
PAGE = "reliability.md"
MAX_INPUT_BYTES = {"speaker_path": 8192, "host_records": 2048, "encoder": 16384, "packet_queue": 1024, "file_reader": 16384}
FUZZER_INTERRUPTED = 72  # libFuzzer's exit code
COLUMNS = ["target", "executions", "seconds", "edges reached", "findings"]
EFFECT_COLUMNS = ["target", "latest run", "its effects"]


class Run(typing.NamedTuple):
    executions: int = 0
    seconds: int = 0
    edges: int = 0
    all_edges: int = 0
    findings: int = 0
    effects: dict = {}  # {name: count}, of the latest run


@contextlib.contextmanager
def locked(name):
    """Several targets may run at once, each in its own process."""
    with open(SCRIPT.folder() / name, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def start(target, seconds, log):
    folder = SCRIPT.folder()
    corpus, findings = folder / "corpus" / target, SOURCES / "findings" / target
    for each in (corpus, findings):
        each.mkdir(parents=True, exist_ok=True)
    dictionary = SOURCES / f"{target}.dict"
    options = [f"-max_total_time={seconds}", f"-max_len={MAX_INPUT_BYTES[target]}", "-timeout=60", "-print_final_stats=1",
               f"-artifact_prefix={findings}/", *([f"-dict={dictionary}"] if dictionary.exists() else [])]
    # The slow unwinder, which the unit tests' suppressions need, would take most of the time.
    environment = {**os.environ, "ASAN_OPTIONS": "fast_unwind_on_malloc=1"}
    return subprocess.Popen([folder / "test-bin" / f"velto-fuzz-{target}", *options, corpus, folder / "tests/fuzz/corpora" / target],
                            stdout=log, stderr=log, env=environment)


def run(target, seconds):
    """Runs a target until its time is over or it has a finding. Returns its counts, and whether Ctrl-C interrupted it."""
    path = SCRIPT.folder() / f"{target}.log"
    begin = time.monotonic()
    with path.open("w", encoding="utf-8") as log:
        fuzzer = start(target, seconds, log)
        try:
            fuzzer.wait()
        except KeyboardInterrupt:
            fuzzer.send_signal(signal.SIGINT)
            fuzzer.wait()
    passed = round(time.monotonic() - begin)
    text = path.read_text("utf-8", "replace")
    counters = re.search(r"\((\d+) inline 8-bit counters\)", text)
    executed = re.search(r"number_of_executed_units: *(\d+)", text)
    effects = {name: int(count) for name, count in re.findall(r"^effect: (.*): (\d+)$", text, re.MULTILINE)}
    if not counters or not executed:
        raise RuntimeError(f"{target} did not run; its log: {path}")
    edges = ([0] + [int(count) for count in re.findall(r" cov: (\d+)", text)])[-1]
    found = fuzzer.returncode not in (0, FUZZER_INTERRUPTED)
    findings = SOURCES / "findings" / target
    if not any(findings.iterdir()):
        findings.rmdir()
    result = Run(int(executed[1]), passed, edges, int(counters[1]), int(found), effects)
    SCRIPT.say(f"{target}: {result.executions} executions in {passed} s, {edges} of {result.all_edges} edges, "
               f"{result.findings} findings")
    if found:
        kept = re.findall(r"Test unit written to (\S+)", text)
        SCRIPT.warn(f"missed: {target} has a finding, kept as {kept[-1] if kept else 'no file'}; its log: {path}")
    return result, fuzzer.returncode == FUZZER_INTERRUPTED


def missing(target, result, interrupted):
    """Yields the reasons why a run without findings tested less than it should. Ctrl-C and findings end a process before it
    prints its effects."""
    if interrupted or result.findings:
        return
    if not result.effects:
        yield f"{target} printed no effects"
    for name, count in result.effects.items():
        if count == 0:
            yield f"{target} never achieved: {name}"


def earlier(target, page):
    """Returns the sums of earlier runs from the page, or None if the target has not run."""
    found = re.search(rf"^\| {target} \| (\d+) \| (\d+) \| (\d+) of (\d+) \| (\d+) \|$", page, re.MULTILINE)
    return Run(*map(int, found.groups())) if found else None


def effects_on(page):
    """Returns date and commit of each target's latest run, and its effects, from the page, as text."""
    section = page.partition(f"| {' | '.join(EFFECT_COLUMNS)} |")[2].partition("<!-- End")[0]
    return {target: cells for target, *cells in re.findall(r"^\| (\w+) \| (.*) \| (\d.*) \|$", section, re.MULTILINE)}


def add_to_page(target, result):
    """Adds executions, seconds and findings to the sums. The edges are those of the latest run."""
    with locked("page.lock"):
        page = (measuring.DOCS / PAGE).read_text("utf-8")
        sums = {name: earlier(name, page) for name in MAX_INPUT_BYTES}
        effects = effects_on(page)
        if result.effects:
            effects[target] = [measuring.when(), ", ".join(f"{count} {name}" for name, count in result.effects.items())]
        before = sums[target] or Run()
        sums[target] = result._replace(executions=before.executions + result.executions,
                                       seconds=before.seconds + result.seconds, findings=before.findings + result.findings)
        rows = [[name, str(each.executions), str(each.seconds), f"{each.edges} of {each.all_edges}", str(each.findings)]
                for name, each in sums.items() if each]
        effect_rows = [[name, *effects[name]] for name in MAX_INPUT_BYTES if name in effects]
        measuring.write_section(PAGE, "scripts/fuzz", "\n".join(
            [*measuring.table(COLUMNS, rows), "", *measuring.table(EFFECT_COLUMNS, effect_rows)]) + "\n")


def chosen(options):
    """Returns the chosen targets, and the seconds for each."""
    target, seconds = options.target, options.seconds
    if target and target.isdigit() and seconds is None:
        target, seconds = None, target
    seconds = 60 if seconds is None else seconds
    if target and target not in MAX_INPUT_BYTES:
        SCRIPT.parser.error(f"there is no target {target}; the targets are {', '.join(MAX_INPUT_BYTES)}")
    if not str(seconds).isdigit() or int(seconds) < 1:
        SCRIPT.parser.error("SECONDS must be a whole number, at least 1")
    return [target] if target else list(MAX_INPUT_BYTES), int(seconds)


def measure(options):
    targets, seconds = chosen(options)
    measuring.prepare("fuzz", setup=["--fuzz"])
    with locked("corpora.lock"):
        subprocess.run([sys.executable, SOURCES / "corpora.py", SCRIPT.folder() / "tests/fuzz/corpora"], check=True)
    results, interrupted, missed = {}, False, []
    for target in targets:
        result, interrupted = run(target, seconds)
        results[target] = result._asdict()
        missed += missing(target, result, interrupted)
        add_to_page(target, result)
        if interrupted:
            break
    SCRIPT.save({"targets": results})
    if interrupted:
        return measuring.INTERRUPTED
    code = SCRIPT.finish(missed)
    return 1 if any(each["findings"] for each in results.values()) else code


if __name__ == "__main__":
    SCRIPT.parser.add_argument("target", nargs="?", metavar="TARGET", help="one of the targets above (default: all in turn)")
    SCRIPT.parser.add_argument("seconds", nargs="?", metavar="SECONDS", help="for each target (default: 60)")
    sys.exit(SCRIPT.run(measure))
