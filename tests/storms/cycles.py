#!/usr/bin/python3
"""Storms of concurrent calls: a long one, many with a load and an unload each, and many in which the process ends.
scripts/storms runs these tests.

To run one of them alone: PYTHONPATH=scripts:tests/system tests/storms/cycles.py Cycles.test_...
"""

import random

import storm_figures
from rig import ending, media, paths, session, storms

LOADS = 200
ENDS = 200
ENDS_AT_ONCE = 4
STORM_SECONDS = 180
MAX_FAILED_ENDS = 0.2  # a part of ENDS, also of those that count as Wine's


class Cycles(session.SystemTest):
    SINKS = (("spkA", 48000, 2), ("spkB", 44100, 2))
    MICROPHONES = (session.MICROPHONE_48K,)

    def setUp(self):
        super().setUp()
        self.session.server.load_second_microphone("micB", "micA", 44100, 2)
        self.session.speak(media.glides(STORM_SECONDS + 60, seed=5))
        self.seed = random.SystemRandom().randrange(10 ** 6)

    def storm(self, *arguments, name="host"):
        self.seed += 1
        return self.session.host("check-storm", "--seed", self.seed, "--json", *arguments, name=name)

    def test_calls_of_long_storm_return_documented_results(self):
        host = self.storm("--seconds", STORM_SECONDS)
        with storms.FlappingDefaults(self.session) as flapping:
            flapping.change_until_end(host, seconds=3, longest_s=STORM_SECONDS)
            changes = flapping.changes
        storms.check_calls(self, host)
        self.session.wait_for_end_of_streams()
        calls = sum(sum(results.values()) for results in host.summary["calls"].values())
        storm_figures.add("storm", seconds=STORM_SECONDS, calls=calls, changes=changes, seed=self.seed,
                          different=host.summary["notAsDocumented"])

    def test_module_unloads_after_repeated_loads_and_storms(self):
        host = self.storm("--seconds", "0.5", "--loads", LOADS)
        storms.check_calls(self, host, LOADS * 6 + 400)
        summary = host.summary
        first, before, after = summary["usage"][0], summary["usage"][-2], summary["usage"][-1]
        print(f"  threads {first['threads']}, {before['threads']}, {after['threads']}; {summary['unload']}", flush=True)
        self.assertEqual(summary["loads"], LOADS)
        self.assertTrue(summary["unload"]["moduleGone"])
        self.assertEqual(self.session.server.streams() + self.session.server.captures(), [])
        storm_figures.add("loads", loads=LOADS, threadsBefore=before["threads"], threadsAfter=after["threads"],
                          goneAfterS=summary["unload"]["seconds"], different=summary["notAsDocumented"])

    def test_processes_that_end_during_storm_fail_only_in_wine(self):
        delays = random.Random(self.seed)
        self.end_processes("with the module", None, lambda number, code, name: self.storm(
            "--seconds", "60", "--exit-after", f"{delays.uniform(0, 2.5):.3f}", "--exit-code", code, name=name))

    def test_processes_without_module_end_during_streams(self):
        """The control: how many processes die at their end if the module is not in them."""
        delays = random.Random(self.seed)
        self.end_processes("without the module", "the streams run", lambda number, code, name: self.session.host(
            f"{delays.uniform(0, 2.5):.3f}", code, name=name, program=paths.BARE_STREAMS))

    def end_processes(self, program, last_words, start):
        """Starts ENDS processes, which end while streams run. Every way in which they end is counted, also if the test
        fails. start(number, exit code, name) returns a host."""
        ends, failures = [], []
        try:
            for first in range(0, ENDS, ENDS_AT_ONCE):
                hosts = [(start(number, 1 + number % 250, f"end-{number % (4 * ENDS_AT_ONCE)}"), 1 + number % 250)
                         for number in range(first, first + ENDS_AT_ONCE)]
                for host, code in hosts:
                    ends.append(host.end(code, 60, last_words))
                    if not (ends[-1].is_good or ends[-1].is_wines):
                        failures.append(f"{ends[-1].describe()}\n{host.last_output(800)}")
                    elif last_words is None:
                        self.assertEqual(host.summary["notAsDocumented"], 0)
                    self.session.hosts.remove(host)
                if first % 40 == 0:
                    print(f"  {first + ENDS_AT_ONCE} of {ENDS} ends {program}", flush=True)
        finally:
            counts = ending.counted(ends)
            print(f"  {program}: {counts}", flush=True)
            storm_figures.add("ends", program=program, ends=len(ends), hung=sum(end.kind == ending.HUNG for end in ends),
                              counts=counts)
        self.assertFalse(failures, f"{len(failures)} of {ENDS} ends; the first: {failures[0] if failures else ''}")
        self.session.wait_for_end_of_streams()
        self.assertLess(sum(not end.is_good for end in ends), MAX_FAILED_ENDS * ENDS)


if __name__ == "__main__":
    session.main()
