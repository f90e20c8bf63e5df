#!/usr/bin/python3
"""A host process that ends while sound plays does so promptly and with its own exit code."""

import signal

from rig import media, session


class ProcessEnd(session.SystemTest):
    def test_playing_process_ends_with_host_exit_code(self):
        recorder = self.session.record()
        host = self.end_while_playing(37, recorder)
        self.assertLess(host.summary["seconds"], 8, "the speech was played to its end")
        self.session.wait_for_end_of_streams()

    def test_playing_process_ends_without_waiting_for_dead_audio_service(self):
        recorder = self.session.record()
        self.end_while_playing(38, recorder, before_end=self.session.server.kill)

    def end_while_playing(self, code, recorder, before_end=None):
        def run(name, is_first):
            begin = recorder.samples().shape[0]
            host = self.session.play(media.speech("speech"), "--exit-after", "5", "--exit-code", code, name=name)
            self.until(lambda: not host.running or recorder.peak_since(begin) > 0.02, "sound", 60)
            if before_end and is_first:
                before_end()
            return host
        return self.assert_exit_code(code, run)

    def test_killed_host_leaves_no_stream(self):
        recorder = self.session.record()
        host = self.session.play(media.speech("speech"), "--loop", "--seconds", "60")
        recorder.wait_for_sound(60)
        host.process.send_signal(signal.SIGKILL)
        self.session.wait_for_end_of_streams()


if __name__ == "__main__":
    session.main()
