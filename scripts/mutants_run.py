"""Breaks the module one place at a time, and runs the unit tests that reach the place until one fails.

Places are relations, logic, conditions, constants, arithmetic, returned values, calls, assignments, jumps and locks in
capture, handler, platform, playback, render and support. All mutants are compiled at once, each behind a switch, under
AddressSanitizer. Mutants of locks run under ThreadSanitizer first. Where no switch is possible, as in a case label, mutants
are compiled one by one, after the others.

A mutant is caught if a test fails, the program crashes, a sanitizer reports an error or the time limit passes. Survivors
that have a reason are in tests/mutants/survivors.toml.

Results are kept in build/mutants, so that an interrupted run continues. --all writes them into docs/reliability.md.
"""

import concurrent.futures
import dataclasses
import json
import random
import signal
import subprocess
import sys
import threading

import measuring

SCRIPT = measuring.Script("mutants", __doc__)
SCRIPT.parser.epilog = "Exit code: 0 if the goal is met, 1 if it is missed or the preparation fails, 2 for wrong arguments or " \
    "if the run fails, 130 after Ctrl-C."


def arguments():
    add = SCRIPT.parser.add_argument
    add("--sample", type=int, metavar="N", help="N mutants, chosen at random")
    add("--seed", type=int, default=1, metavar="S", help="seed of the random choice; default 1")
    add("--all", action="store_true", help="all mutants")
    add("--only", action="append", default=[], metavar="FILE[:LINE]", help="mutants of these places; also a folder or a pattern; "
        "can be repeated")
    add("--id", action="append", default=[], metavar="ID", help="this mutant; can be repeated")
    add("--again", action="store_true", help="forget earlier results of the chosen mutants")
    add("--without-walk", action="store_true", help="leave out the tests that take a second or more, among them the fault walk")
    add("--jobs", type=int, metavar="N", help="processes at a time; default: the number of processors")
    add("--list", action="store_true", help="list the mutants, run none")
    add("--show", metavar="ID", help="print one mutant, the tests that reach it, and its result")


class State:
    """The results of earlier runs with the same sources and tests, on disk, one line each."""

    def __init__(self, folder, fingerprint):
        self.file = folder / "results.jsonl"
        self.lock = threading.Lock()
        self.results, self.hints = {}, {}
        lines = self.file.read_text("utf-8").splitlines() if self.file.exists() else []
        entries = [json.loads(line) for line in lines if line.endswith("}")]
        is_same = bool(entries) and entries[0].get("fingerprint") == fingerprint
        for entry in entries[1:]:
            key = entry.pop("key")
            self.hints[key] = entry["by"]
            self.results[key] = entry
        if not is_same:
            # The test that caught a mutant will probably do so again: it runs first.
            self.results = {}
            hints = [json.dumps({"key": key, "outcome": "hint", "by": by}) for key, by in self.hints.items() if by]
            self.file.write_text("\n".join([json.dumps({"fingerprint": fingerprint}), *hints]) + "\n", "utf-8")
        self.results = {key: entry for key, entry in self.results.items() if entry["outcome"] != "hint"}

    def add(self, mutant, result):
        entry = dataclasses.asdict(result)
        with self.lock:
            self.results[mutant.key] = entry
            with open(self.file, "a", encoding="utf-8") as out:
                out.write(json.dumps({"key": mutant.key, **entry}) + "\n")


class Run:
    def __init__(self, options):
        # These modules need python3-clang, which scripts/setup installs.
        import mutants_build
        import mutants_page
        import mutants_tests
        self.build, self.page, self.tests = mutants_build, mutants_page, mutants_tests
        self.accepted = mutants_page.read_accepted()
        self.options = options
        self.jobs = options.jobs or mutants_build.jobs_default()
        SCRIPT.folder()
        SCRIPT.warn("reading the sources")
        self.copies = mutants_build.Copies(self.jobs, SCRIPT.warn)
        self.fingerprint = mutants_build.fingerprint()
        self.state = State(mutants_build.FOLDER, self.fingerprint)
        self.done = 0

    def chosen(self):
        mutants = self.copies.mutants
        if self.options.only:
            mutants = [mutant for mutant in mutants if any(self.build.matches(mutant, pattern) for pattern in self.options.only)]
        if self.options.id:
            mutants = [mutant for mutant in mutants if mutant.key in self.options.id]
        if not mutants:
            raise RuntimeError("no mutant is chosen")
        if self.options.sample is not None and self.options.sample < len(mutants):
            picked = random.Random(self.options.seed).sample(mutants, self.options.sample)
            mutants = sorted(picked, key=lambda mutant: (mutant.file, mutant.number))
        return mutants

    def list(self, mutants):
        for mutant in mutants:
            note = " (separate)" if self.copies.is_separate(mutant) else ""
            print(f"{mutant.key} {mutant.file}:{mutant.line}: {mutant.kind}: {mutant.change}{note}")
        kinds = {kind: sum(mutant.kind == kind for mutant in mutants) for kind in dict.fromkeys(mutant.kind for mutant in mutants)}
        print(f"{len(mutants)} mutants: " + ", ".join(f"{kind} {count}" for kind, count in sorted(kinds.items())))
        return 0

    def show(self, key):
        mutant = next((one for one in self.copies.mutants if one.key == key), None)
        if mutant is None:
            raise RuntimeError(f"there is no mutant {key}")
        self.list([mutant])
        print(f"    | {mutant.content}")
        if (self.build.FOLDER / "reached.json").exists():
            self.read_tests()
            tests = self.runner.reaching(mutant, self.copies.is_separate(mutant))
            print(f"{len(tests)} tests reach it: " + ", ".join(test.name for test in tests[:20]))
        if key in self.state.results:
            print(self.state.results[key])
        return 0

    # --- Tests ------------------------------------------------------------------------------------

    def prepare(self):
        """Builds the copies and finds out which test reaches which place."""
        self.copies.build()
        file, mark = self.build.FOLDER / "reached.json", self.build.FOLDER / "reached.fingerprint"
        wanted = f"{self.fingerprint} {len(self.copies.excluded)}"
        if not file.exists() or not mark.exists() or mark.read_text("utf-8") != wanted:
            groups = self.tests.groups_of(self.build.binaries("asan"), self.build.TARGETS)
            self.tests.save(file, *self.tests.record(groups, self.build.FOLDER, SCRIPT.warn))
            mark.write_text(wanted, "utf-8")
        self.read_tests()

    def read_tests(self):
        groups = self.tests.groups_of(self.build.binaries("asan"), self.build.TARGETS)
        tests, outside = self.tests.load(self.build.FOLDER / "reached.json", groups)
        if self.options.without_walk:
            tests = [test for test in tests if test.milliseconds < self.tests.SLOW_MS]
        numbers = {}
        for mutant in self.copies.mutants:
            numbers.setdefault(mutant.file, set()).add(mutant.number)
        threads = self.tests.groups_of(self.build.binaries("tsan"), self.build.TARGETS)
        self.runner = self.tests.Runner(tests, outside, numbers, self.state.hints, threads)

    def is_explained(self, mutant):
        return any(self.page.explains(entry, mutant) for entry in self.accepted)

    def run_one(self, mutant):
        result = self.runner.run(mutant, is_explained=self.is_explained(mutant))
        if result.outcome == "not reached" and mutant.constexpr:
            return None  # the compiler has evaluated the place
        return result

    def report_one(self, mutant, result, count):
        self.state.add(mutant, result)
        self.done += 1
        by = f" by {result.by}" if result.by else ""
        SCRIPT.warn(f"[{self.done}/{count}] {result.outcome}{by}, {result.seconds:.1f} s: "
                    f"{mutant.key} {mutant.file}:{mutant.line}: {mutant.kind}: {mutant.change}")

    def run_all(self, mutants):
        if self.options.again:
            for mutant in mutants:
                self.state.results.pop(mutant.key, None)
        left = [mutant for mutant in mutants if mutant.key not in self.state.results]
        separate = [mutant for mutant in left if self.copies.is_separate(mutant)]
        switched = [mutant for mutant in left if not self.copies.is_separate(mutant)]
        if not left:
            return
        self.prepare()
        # The build may have found more mutants that need a separate compilation.
        separate += [mutant for mutant in switched if self.copies.is_separate(mutant)]
        switched = [mutant for mutant in switched if not self.copies.is_separate(mutant)]
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            futures = {pool.submit(self.run_one, mutant): mutant for mutant in switched}
            try:
                for future in concurrent.futures.as_completed(futures):
                    mutant, result = futures[future], future.result()
                    if result is None:
                        separate.append(mutant)
                    else:
                        self.report_one(mutant, result, len(left))
            except BaseException:
                self.tests.STOP.set()
                pool.shutdown(wait=False, cancel_futures=True)
                raise
        if separate:
            self.run_separately(separate, len(left))

    def run_separately(self, mutants, count):
        SCRIPT.warn(f"compiling the mutants without a switch one by one: {len(mutants)}")
        try:
            for mutant in mutants:
                if self.copies.build_separately(mutant):
                    result = self.runner.run(mutant, is_separate=True, is_explained=self.is_explained(mutant))
                else:
                    result = self.tests.Result("unbuildable")
                self.report_one(mutant, result, count)
        finally:
            self.copies.write()

    # --- Results ----------------------------------------------------------------------------------

    def report(self, mutants):
        results = {key: self.tests.Result(**entry) for key, entry in self.state.results.items()}
        report = self.page.Report(mutants, results)
        if report.survivors:
            print("\nSurvivors:\n")
            print("\n".join(report.survivor_lines()))
        print("\n" + "\n".join(report.tables()) + "\n")
        is_all = self.options.all and not self.options.only and not self.options.id and self.options.sample is None
        if is_all:
            SCRIPT.save({"all": report.total, "survivors": [dataclasses.asdict(mutant) for mutant in report.survivors]})
            SCRIPT.publish("reliability.md", report.section(self.not_tried()))
        return SCRIPT.finish(report.missed(is_all))

    def not_tried(self):
        lines = self.build.windows_only_lines()
        return [f"Not tried: {sum(lines.values())} lines that only the Windows build compiles, in "
                + ", ".join(f"`{name}` ({count})" for name, count in lines.items())
                + "; static assertions; operands of `sizeof`. Survivors with a reason were not run against the tests that take "
                  "a second or more; such a test can only lower their number."]


def measure(options):
    if options.jobs is not None and options.jobs < 1 or options.sample is not None and options.sample < 1:
        SCRIPT.parser.error("--jobs and --sample need a number above 0")
    if not (options.all or options.sample or options.only or options.id or options.list or options.show):
        SCRIPT.parser.error("choose mutants with --sample, --all, --only or --id")
    measuring.prepare(setup=["--mutants"])
    try:
        run = Run(options)
        if options.show:
            return run.show(options.show)
        mutants = run.chosen()
        if options.list:
            return run.list(mutants)
        run.run_all(mutants)
        return run.report(mutants)
    except (RuntimeError, OSError, subprocess.SubprocessError) as problem:
        SCRIPT.warn(f"error: {problem}")
        return 2


if __name__ == "__main__":
    arguments()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.default_int_handler)
    sys.exit(SCRIPT.run(measure))
