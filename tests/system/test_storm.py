#!/usr/bin/python3
"""Eleven threads make random calls at once while the default devices change."""

import random

from rig import media, session, storms

SECONDS = 20


class Storm(session.SystemTest):
    SINKS = (("spkA", 48000, 2), ("spkB", 44100, 2))
    MICROPHONES = (session.MICROPHONE_48K,)

    def test_concurrent_calls_return_documented_results(self):
        self.session.server.load_second_microphone("micB", "micA", 44100, 2)
        self.session.speak(media.glides(SECONDS + 60, seed=5))
        seed = random.SystemRandom().randrange(10 ** 6)
        host = self.session.host("check-storm", "--seconds", SECONDS, "--seed", seed, "--json")
        with storms.FlappingDefaults(self.session) as flapping:
            flapping.change_until_end(host, seconds=2)
        print(f"  seed {seed}, {flapping.changes} changes of a default device", flush=True)
        storms.check_calls(self, host)
        self.session.wait_for_end_of_streams()


if __name__ == "__main__":
    session.main()
