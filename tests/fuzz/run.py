"""Runs the fuzz targets and adds up what they did: run.py SECONDS [TARGET ...]

scripts/fuzz has built them. Interrupted, it ends the target and still writes down what was done.
"""

import fcntl
import os
import pathlib
import re
import signal
import subprocess
import sys
import time
import typing

REPO = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(REPO / "scripts"))
import section  # noqa: E402

BUILD = REPO / "build" / "fuzz"
FINDINGS = REPO / "tests" / "fuzz" / "findings"
PAGE = "reliability.md"
TARGETS = ["speaker_road", "host_records", "encoder", "packet_queue", "file_reader"]
LONGEST_INPUT = {"speaker_road": 8192, "host_records": 2048, "encoder": 16384, "packet_queue": 1024, "file_reader": 16384}
INTERRUPTED = 72  # libFuzzer's exit code
HEAD = "| target | executions | seconds | edges reached | findings |"


class Run(typing.NamedTuple):
    executions: int = 0
    seconds: int = 0
    edges: int = 0
    edges_there_are: int = 0
    findings: int = 0


def run(target, seconds):
    """What was done, up to the first finding, and whether it was interrupted."""
    corpus = BUILD / "corpus" / target
    findings = FINDINGS / target
    corpus.mkdir(parents=True, exist_ok=True)
    findings.mkdir(parents=True, exist_ok=True)
    seeds = BUILD / "tests" / "fuzz" / "corpora" / target
    words = REPO / "tests" / "fuzz" / f"{target}.dict"
    dictionary = [f"-dict={words}"] if words.exists() else []
    log = BUILD / f"{target}.log"
    # The unwinder that the unit tests' suppressions need is too slow for this.
    environment = {**os.environ, "ASAN_OPTIONS": "fast_unwind_on_malloc=1"}
    begin = time.monotonic()
    with log.open("w", encoding="utf-8") as output:
        fuzzer = subprocess.Popen([str(BUILD / "bin" / f"velto-fuzz-{target}"), f"-max_total_time={seconds}",
                                   f"-max_len={LONGEST_INPUT[target]}", "-timeout=60", "-print_final_stats=1", *dictionary,
                                   f"-artifact_prefix={findings}/", str(corpus), str(seeds)],
                                  stdout=output, stderr=output, env=environment)
        try:
            fuzzer.wait()
        except KeyboardInterrupt:
            fuzzer.send_signal(signal.SIGINT)
            fuzzer.wait()
    took = round(time.monotonic() - begin)
    text = log.read_text("utf-8", "replace")
    of = re.search(r"\((\d+) inline 8-bit counters\)", text)
    done = re.search(r"number_of_executed_units: *(\d+)", text)
    if not of or not done:
        sys.exit(f"fuzz: error: {target} did not run; its log: {log}")
    executions = int(done[1])
    edges = ([0] + [int(count) for count in re.findall(r" cov: (\d+)", text)])[-1]
    found = fuzzer.returncode not in (0, INTERRUPTED)
    if not any(findings.iterdir()):
        findings.rmdir()
    print(f"{target}: {executions} executions in {took} s, {edges} of {of[1]} edges, {int(found)} findings")
    if found:
        kept = re.findall(r"Test unit written to (\S+)", text)
        print(f"    kept: {kept[-1] if kept else 'nothing'}; how it ended: {log}")
    return Run(executions, took, edges, int(of[1]), int(found)), fuzzer.returncode == INTERRUPTED


def row_of(target, page):
    """What earlier runs came to, or None."""
    found = re.search(rf"^\| {target} \| (\d+) \| (\d+) \| (\d+) of (\d+) \| (\d+) \|$", page, re.MULTILINE)
    return Run(*map(int, found.groups())) if found else None


def write(target, result):
    """Adds executions, seconds and findings up; the edges are the latest run's."""
    with open(BUILD / "page.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        page = (section.DOCS / PAGE).read_text("utf-8")
        rows = {name: row_of(name, page) for name in TARGETS}
        old = rows[target] or Run()
        rows[target] = result._replace(executions=old.executions + result.executions, seconds=old.seconds + result.seconds,
                                       findings=old.findings + result.findings)
        lines = [HEAD, "|---|---|---|---|---|"]
        lines += [f"| {name} | {row.executions} | {row.seconds} | {row.edges} of {row.edges_there_are} | {row.findings} |"
                  for name, row in rows.items() if row]
        section.write("scripts/fuzz", "\n".join(lines) + "\n", PAGE)


def main(seconds, *targets):
    subprocess.run([sys.executable, "-B", str(REPO / "tests/fuzz/corpora.py"), str(BUILD / "tests/fuzz/corpora")], check=True)
    found = 0
    for target in targets or TARGETS:
        result, interrupted = run(target, int(seconds))
        write(target, result)
        found += result.findings
        if interrupted:
            return INTERRUPTED
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
