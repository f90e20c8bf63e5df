#!/usr/bin/python3
"""Eleven threads make random calls at once while the default devices change."""

import random

from rig import media, session, storms

SECONDS = 20
PACKET_WAIT_S = 60  # while the default devices stay, for a machine that is too busy to open a microphone in a rest


class Storm(session.SystemTest):
    SINKS = (("spkA", 48000, 2), ("spkB", 44100, 2))
    MICROPHONES = (session.MICROPHONE_48K,)

    def test_concurrent_calls_return_documented_results(self):
        self.session.server.load_second_microphone("micB", "micA", 44100, 2)
        self.session.speak(media.glides(SECONDS + PACKET_WAIT_S + 60, seed=5))
        seed = random.SystemRandom().randrange(10 ** 6)
        host = self.session.host("check-storm", "--seconds", SECONDS, "--packet-wait", PACKET_WAIT_S, "--seed", seed, "--json")
        with storms.FlappingDefaults(self.session) as flapping:
            flapping.change_until_end(host, seconds=2, longest_s=SECONDS)
        print(f"  seed {seed}, {flapping.changes} changes of a default device", flush=True)
        storms.check_calls(self, host, PACKET_WAIT_S + 90)
        self.session.wait_for_end_of_streams()


if __name__ == "__main__":
    session.main()
