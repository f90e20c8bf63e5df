#!/usr/bin/python3
"""A host process that ends while sound plays does so promptly and with its own exit code."""

import signal

from rig import media, session


class ProcessEnd(session.SystemTest):
    def test_playing_process_ends_with_host_exit_code(self):
        recorder = self.session.record()
        host = self.assert_exit_code(37, lambda name: self.play(recorder, 37, name))
        self.assertLess(host.summary["seconds"], 8, "the speech was played to its end")
        self.session.wait_for_end_of_streams()

    def test_playing_process_ends_without_waiting_for_dead_audio_service(self):
        def run(name):
            self.session.restart_server()
            host = self.play(self.session.record(), 38, name)
            self.session.server.kill()
            return host
        self.assert_exit_code(38, run)

    def play(self, recorder, code, name):
        """Starts a host that ends while it plays. Returns it when it has been heard."""
        begin = recorder.samples().shape[0]
        host = self.session.play(media.speech("speech"), "--exit-after", "5", "--exit-code", code, name=name)
        self.until(lambda: not host.running or recorder.peak_since(begin) > 0.02, "sound", 60)
        return host

    def test_killed_host_leaves_no_stream(self):
        recorder = self.session.record()
        host = self.session.play(media.speech("speech"), "--loop", "--seconds", "60")
        recorder.wait_for_sound(60)
        host.process.send_signal(signal.SIGKILL)
        self.session.wait_for_end_of_streams()


if __name__ == "__main__":
    session.main()
