#!/usr/bin/python3
"""A long storm, and many cycles of loading and unloading the module and of ending the process."""

import pathlib
import random
import subprocess
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path[:0] = [str(REPOSITORY / "tests" / "system"), str(REPOSITORY / "scripts")]

from rig import media, paths, session, storms  # noqa: E402  (found through the line above)
from rig.velto_host import WINE_FAILED  # noqa: E402

import storm_figures  # noqa: E402

LOADS = 200
ENDS = 200
ENDS_AT_ONCE = 4
STORM_SECONDS = 180
# Part of ENDS. Wine crashes at some ends of a process with an open stream, of any program.
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

    def test_long_storm_gets_documented_results(self):
        host = self.storm("--seconds", STORM_SECONDS)
        with storms.FlappingDefaults(self.session) as flapping:
            while host.running:
                try:
                    host.process.wait(3)
                except subprocess.TimeoutExpired:
                    flapping.rest(3.5)
            changes = flapping.changes
        storms.check_calls(self, host, host.wait())
        self.until(lambda: not self.session.server.captures(), "the end of the microphone's stream")
        calls = sum(sum(results.values()) for results in host.summary["calls"].values())
        storm_figures.add("storm", seconds=STORM_SECONDS, calls=calls, changes=changes, seed=self.seed,
                    different=host.summary["notAsDocumented"])

    def test_module_unloads_after_repeated_load_cycles(self):
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

    def test_processes_end_at_random_moments_without_hanging(self):
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
                self.assertIn(ended, (code, WINE_FAILED), host.output()[-800:] + host.errors()[-800:])
                # The report is the last thing that the host writes before it ends.
                self.assertEqual(host.summary["exitCode"], code)
                self.assertEqual(host.summary["notAsDocumented"], 0)
                codes["failed" if ended == WINE_FAILED else "expected"] += 1
                self.session.hosts.remove(host)
            if first % 40 == 0:
                print(f"  {first + ENDS_AT_ONCE} of {ENDS} ends", flush=True)
        self.until(lambda: not self.session.server.streams() + self.session.server.captures(), "the end of all streams")
        storm_figures.add("ends", ends=ENDS, expected=codes["expected"], failed=codes["failed"])
        self.assertLess(codes["failed"], MAX_FAILED_ENDS * ENDS)


if __name__ == "__main__":
    session.main()
