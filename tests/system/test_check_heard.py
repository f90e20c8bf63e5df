#!/usr/bin/python3
"""The watermark of velto-host check, played by the shipped module and recorded from the sink, satisfies the checker's listener.
Wine 8 has no loopback, so the check itself cannot listen there, and says so. With Wine 10, it listens, too."""

import time

from rig import damage, session

CHECK = "listen.watermark"
SETTLE_S = 0.5           # of the recorder, before sound is played
LOST_SOUND = "SPK-16"    # the clause that a stall of the machine breaks, too
AROUND_S = 0.1           # a gap: the stretch of sound that counts as damaged


class Watermark(session.SystemTest):
    HEARS_CHECKS = True

    def test_shipped_modules_watermark_is_heard_as_it_was_sent(self):
        heard = self.session.record()
        time.sleep(SETTLE_S)
        self.play()
        found = self.listen_to("watermark", heard)
        sound = found["heard"]
        print(f"  {sound['framesHeard']} of {sound['framesSent']} frames heard, level {sound['levelDb']:.2f} dB, "
              f"speed {sound['speed']:.5f}, gaps at {sound['gapsAtSeconds']}", flush=True)
        if {each["clause"] for each in found["broken"]} == {LOST_SOUND}:
            self.refuse_stalled(heard, sound["gapsAtSeconds"])
        self.assertEqual(found["broken"], [])
        self.assertGreater(sound["framesSent"], 0)
        self.assertEqual(sound["framesHeard"], sound["framesSent"])

    def test_silence_breaks_clause_of_complete_sound(self):
        heard = self.session.record()
        time.sleep(1 + SETTLE_S)
        self.assertEqual([each["clause"] for each in self.listen_to("silence", heard)["broken"]], [LOST_SOUND])

    def play(self):
        """Runs the check, which plays the watermark. Without loopback, it reports this; with loopback, its verdict is not used,
        because a stall of the machine damages its own recording, too: system.check examines such verdicts."""
        host = self.session.host("check", "--listen", "--only", CHECK, "--json")
        code = host.wait(120)
        result, = host.summary["results"]
        self.assertEqual(result["name"], CHECK)
        if result["outcome"] == "skipped":
            self.assertEqual(code, 0, host.errors())
            self.assertIn("no loopback", result["reason"])
            self.assertIn("the sound was played", result["reason"])
        else:
            heard = host.summary["measured"]["results"][0]["heard"]
            self.assertGreater(heard["framesHeard"], 0, host.errors())
            print(f"  by loopback: {heard['framesHeard']} of {heard['framesSent']} frames heard", flush=True)

    def listen_to(self, name, heard):
        """Stops a recording and gives it to the checker's listener."""
        heard.stop()
        host = self.session.host(*heard.check_command(self.session.folder / f"{name}.f32"), name=name)
        code = host.wait(120)
        found = host.summary
        self.assertEqual(code, 1 if found["broken"] else 0, host.errors())
        return found

    def refuse_stalled(self, heard, gaps):
        """Raises SoundDamaged, which repeats the test, if the machine stalled at the gaps."""
        places = [damage.Place(heard.time_of(round((at - AROUND_S) * heard.rate)),
                               heard.time_of(round((at + AROUND_S) * heard.rate)), f"{at:.1f} s") for at in gaps]
        damage.refuse_spoiled(places, self.stalls(), accepted=0)


if __name__ == "__main__":
    session.main()
