#!/usr/bin/python3
"""A host process that ends while sound plays does so promptly and with its own exit code."""

import signal

from rig import media, session
from rig.velto_host import WINE_FAILED


class ProcessEnd(session.SystemTest):
    def test_the_exit_code_is_the_hosts(self):
        recorder = self.session.record()
        host = self.end_while_playing(37, recorder)
        self.assertLess(host.summary["seconds"], 8, "the speech was played to its end")
        self.until(lambda: not self.session.server.streams(), "the streams to be gone")

    def test_the_end_does_not_wait_for_a_dead_audio_service(self):
        recorder = self.session.record()
        self.end_while_playing(38, recorder, before_end=self.session.server.kill)

    def end_while_playing(self, code, recorder, before_end=None, attempts=4):
        """The first run whose end Wine did not take away must have the host's exit code."""
        for attempt in range(attempts):
            begin = recorder.samples().shape[0]
            host = self.session.play(media.speech("speech"), "--exit-after", "5", "--exit-code", code, name=f"host-{attempt}")
            self.until(lambda: not host.running or recorder.peak_since(begin) > 0.02, "sound", 60)
            if before_end and attempt == 0:
                before_end()
            ended = host.wait(60)
            if ended != WINE_FAILED:
                break
            print("  (Wine crashed in the end of the process; once more)", flush=True)
        self.assertEqual(ended, code)
        return host

    def test_a_killed_host_leaves_no_stream(self):
        recorder = self.session.record()
        host = self.session.play(media.speech("speech"), "--loop", "--seconds", "60")
        recorder.wait_for_sound(60)
        host.process.send_signal(signal.SIGKILL)
        self.until(lambda: not self.session.server.streams(), "the streams to be gone")


if __name__ == "__main__":
    session.main()
