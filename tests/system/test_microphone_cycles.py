#!/usr/bin/python3
"""A host thread that never entered COM opens and closes the microphone 200 times."""

from rig import session

CYCLES = 200
# Known leaks of each opening: the records of 469 packets, and the mix format.
MAX_LEAK_PER_CYCLE = 30 * 1024


class MicrophoneCycles(session.SystemTest):
    MICROPHONES = (session.MICROPHONE_48K,)

    def test_two_hundred_openings_leak_no_more_than_documented(self):
        self.session.record("micA")  # keeps the microphone in use, because an idle one starts slowly
        host = self.session.host("check-microphone", "--sequence", "cycles", "--count", CYCLES, "--json")
        self.assert_ended_well(host, 280)
        summary = host.summary
        self.assertEqual((summary["cycles"], summary["withPacket"], summary["nonzeroResults"]), (CYCLES, CYCLES, 0))
        settled, last = summary["usage"][1], summary["usage"][-1]
        growth = {key: last[key] - settled[key] for key in settled}
        per_cycle = growth["residentBytes"] / growth["cycle"]
        print(f"  {summary['seconds'] / CYCLES:.2f} s a cycle; over {growth['cycle']} cycles {growth['handles']:+} handles, "
              f"{growth['threads']:+} threads, {per_cycle / 1024:.1f} KiB of memory a cycle", flush=True)
        self.assertLessEqual(abs(growth["threads"]), 1)
        self.assertLessEqual(abs(growth["handles"]), 3)
        self.assertLess(per_cycle, MAX_LEAK_PER_CYCLE)


if __name__ == "__main__":
    session.main()
