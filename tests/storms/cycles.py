#!/usr/bin/python3
"""Storms of concurrent calls: a long one, many with a load and an unload each, and many in which the process ends.
scripts/storms runs these tests.

To run one of them alone: PYTHONPATH=scripts:tests/system tests/storms/cycles.py Cycles.test_...
"""

import random

import storm_figures
from rig import media, paths, session, storms
from rig.velto_host import CRASHED_OR_STUCK

LOADS = 200
ENDS = 200
ENDS_AT_ONCE = 4
STORM_SECONDS = 180
# A part of ENDS. Some processes with an open stream crash at their end, see CRASHED_OR_STUCK.
MAX_FAILED_ENDS = 0.2


class Cycles(session.SystemTest):
    SINKS = (("spkA", 48000, 2), ("spkB", 44100, 2))
    MICROPHONES = (session.MICROPHONE_48K,)

    def setUp(self):
        super().setUp()
        self.file = paths.to_windows(media.speech("speech"))
        self.session.server.load_second_microphone("micB", "micA", 44100, 2)
        self.session.speak(media.glides(STORM_SECONDS + 60, seed=5))
        self.seed = random.SystemRandom().randrange(10 ** 6)

    def storm(self, *arguments, name="host"):
        self.seed += 1
        return self.session.test_host("storm", self.file, "--seed", self.seed, "--json", *arguments, name=name)

    def test_calls_of_long_storm_return_documented_results(self):
        host = self.storm("--seconds", STORM_SECONDS)
        with storms.FlappingDefaults(self.session) as flapping:
            flapping.change_until_end(host, seconds=3)
            changes = flapping.changes
        storms.check_calls(self, host, host.wait())
        self.session.wait_for_end_of_streams()
        calls = sum(sum(results.values()) for results in host.summary["calls"].values())
        storm_figures.add("storm", seconds=STORM_SECONDS, calls=calls, changes=changes, seed=self.seed,
                          different=host.summary["notAsDocumented"])

    def test_module_unloads_after_repeated_loads_and_storms(self):
        host = self.storm("--seconds", "0.5", "--loads", LOADS)
        code = host.wait(LOADS * 6 + 400)
        storms.check_calls(self, host, code)
        summary = host.summary
        first, before, after = summary["usage"][0], summary["usage"][-2], summary["usage"][-1]
        print(f"  threads {first['threads']}, {before['threads']}, {after['threads']}; {summary['unload']}", flush=True)
        self.assertEqual(summary["loads"], LOADS)
        self.assertTrue(summary["unload"]["moduleGone"])
        self.assertEqual(self.session.server.streams() + self.session.server.captures(), [])
        storm_figures.add("loads", loads=LOADS, threadsBefore=before["threads"], threadsAfter=after["threads"],
                          goneAfterS=summary["unload"]["seconds"], different=summary["notAsDocumented"])

    def test_processes_that_end_during_storm_do_not_hang(self):
        delays = random.Random(self.seed)
        codes = {"expected": 0, "failed": 0}
        for first in range(0, ENDS, ENDS_AT_ONCE):
            hosts = []
            for number in range(first, first + ENDS_AT_ONCE):
                code = 1 + number % 250
                host = self.storm("--seconds", "60", "--exit-after", f"{delays.uniform(0, 2.5):.3f}",
                                  "--exit-code", code, name=f"end-{number % (4 * ENDS_AT_ONCE)}")
                hosts.append((host, code))
            for host, code in hosts:
                ended = host.wait(60)  # fails if the process hangs
                self.assertIn(ended, (code, CRASHED_OR_STUCK), host.last_output(800))
                # The host prints the report immediately before it ends.
                self.assertEqual(host.summary["exitCode"], code)
                self.assertEqual(host.summary["notAsDocumented"], 0)
                codes["failed" if ended == CRASHED_OR_STUCK else "expected"] += 1
                self.session.hosts.remove(host)
            if first % 40 == 0:
                print(f"  {first + ENDS_AT_ONCE} of {ENDS} ends", flush=True)
        self.session.wait_for_end_of_streams()
        storm_figures.add("ends", ends=ENDS, expected=codes["expected"], failed=codes["failed"])
        self.assertLess(codes["failed"], MAX_FAILED_ENDS * ENDS)


if __name__ == "__main__":
    session.main()
