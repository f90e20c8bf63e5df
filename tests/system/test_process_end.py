#!/usr/bin/python3
"""A host process that ends while sound plays does so promptly and with its own exit code."""

import signal

from rig import media, session


class ProcessEnd(session.SystemTest):
    def test_the_exit_code_is_the_hosts(self):
        recorder = self.session.record()
        host = self.session.play(media.speech("speech"), "--exit-after", "4", "--exit-code", "37")
        recorder.wait_for_sound(60)
        self.assertEqual(host.wait(60), 37)
        self.assertLess(host.summary["seconds"], 8, "the speech was played to its end")
        self.until(lambda: not self.session.server.streams(), "the streams to be gone")

    def test_the_end_does_not_wait_for_a_dead_audio_service(self):
        recorder = self.session.record()
        host = self.session.play(media.speech("speech"), "--exit-after", "6", "--exit-code", "38")
        recorder.wait_for_sound(60)
        self.session.server.kill()
        self.assertEqual(host.wait(60), 38)

    def test_a_killed_host_leaves_no_stream(self):
        recorder = self.session.record()
        host = self.session.play(media.speech("speech"), "--loop", "--seconds", "60")
        recorder.wait_for_sound(60)
        host.process.send_signal(signal.SIGKILL)
        self.until(lambda: not self.session.server.streams(), "the streams to be gone")


if __name__ == "__main__":
    session.main()
