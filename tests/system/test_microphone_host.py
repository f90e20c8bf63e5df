#!/usr/bin/python3
"""Hosts that fall behind on reading, open twice, close during a read, or end while they record."""

from rig import compare, media, session

QUEUED_S = 10.0  # of unread packets, which the queue keeps before capture waits


class SlowReader(session.SystemTest):
    MICROPHONES = (session.MICROPHONE_48K,)

    def test_slow_reader_gets_ten_queued_seconds_and_loses_rest(self):
        pause_for = 15.0
        spoken = media.glides(30)
        host = self.session.record_microphone("--pause-reading-at", 6.0, "--pause-reading-for", pause_for)
        self.session.wait_for_capture()
        self.session.speak(spoken).wait()
        self.end_recording(host)
        result = self.compare_recorded(host.recording, spoken, search_s=pause_for - QUEUED_S + 2)
        times, unit_s = host.summary["packetTimes"], media.UNIT / session.RECORDING_RATE
        pause = max(range(1, len(times)), key=lambda packet: times[packet] - times[packet - 1])
        pause_s, begin = times[pause] - times[pause - 1], times[pause - 1]
        # Packets that were queued during the pause are read after it: they get the times at which they were recorded.
        queue = range(pause, pause + int(QUEUED_S / unit_s))
        recorded = [begin + (packet - pause + 1) * unit_s if packet in queue else time for packet, time in enumerate(times)]
        time_of = session.times_of_packets(recorded)
        last, begun, gap = self.assert_intact_around_gap(result, time_of, begin)
        lost = (last.offset - begun.offset) / session.RECORDING_RATE
        queued = result.bounds(last)[1] / session.RECORDING_RATE - pause * unit_s
        print(f"  {queued:.2f} s were queued in a pause of {pause_s:.2f} s, then {lost:.2f} s are missing", flush=True)
        # The endpoint's own buffer adds to the queue.
        self.assertTrue(QUEUED_S - 0.3 <= queued <= QUEUED_S + 1.5, f"{queued:.2f} s were queued")
        self.assertLessEqual(abs(lost - (pause_s - queued)), 1.5, f"{lost:.2f} s are missing")
        # Pieces of the endpoint's buffer of 0.5 s can be recorded within the gap.
        bounds = (time_of(result.bounds(last)[1]), time_of(result.bounds(begun)[0]))
        self.assert_gap_at_most(len(gap) * compare.WINDOW_S, lost + 4 * compare.WINDOW_S, bounds)
        self.assertEqual(host.log.count("Error code: "), 0)


class CallOrder(session.SystemTest):
    MICROPHONES = (session.MICROPHONE_48K,)

    def test_first_of_two_openings_keeps_recording_after_close(self):
        host = self.session.host("check-microphone", "--sequence", "open-twice", "--hold", "5", "--json")
        self.until(lambda: "open-twice:" in host.errors(), "the calls to be done", 60)
        self.assertEqual(len(self.session.server.captures()), 1)
        self.assert_ended_well(host)
        self.assertEqual(host.summary, {"firstOpen": 0, "firstGavePacket": True, "secondOpen": 0,
                                        "secondGavePacket": True, "close": 0, "emptyAfterClose": True,
                                        "closeAgain": 0, "exitCode": 0})
        self.session.wait_for_end_of_streams()

    def test_close_ends_waiting_read(self):
        self.session.server.load_dead_microphone("dead")
        host = self.session.host("check-microphone", "--sequence", "close-while-reading", "--json")
        self.assert_ended_well(host)
        print(f"  the close took {host.summary['closeSeconds']:.3f} s", flush=True)
        self.assertTrue(host.summary["readWasWaiting"])
        self.assertEqual([host.summary[key] for key in ("open", "close", "read", "size")], [0, 0, 0, 0])
        # Without the close, the read would have waited for another eight seconds.
        self.assertLess(host.summary["readEndedAfterCloseBegan"], 4)
        self.assertLess(host.summary["closeSeconds"], 4)


class EndWhileRecording(session.SystemTest):
    MICROPHONES = (session.MICROPHONE_48K,)

    def test_recording_process_ends_with_host_exit_code(self):
        host = self.assert_exit_code(41, lambda name: self.record(41, name))
        self.assertGreater(host.summary["packets"], 30)
        self.session.wait_for_end_of_streams()

    def test_recording_process_ends_without_waiting_for_dead_audio_service(self):
        def run(name):
            self.session.restart_server()
            host = self.record(42, name)
            self.session.server.kill()
            return host
        self.assert_exit_code(42, run)

    def record(self, code, name):
        """Starts a host that ends while it records. Returns it when its stream exists."""
        host = self.session.record_microphone("--exit-after", "6", "--exit-code", code, name=name)
        self.session.wait_for_capture()
        return host

    def test_freed_module_stays_loaded_while_it_records(self):
        host = self.session.record_microphone("--unload-after", "5", "--unload-wait", "4")
        self.session.wait_for_capture()
        self.assert_ended_well(host)
        unload = host.summary["unload"]
        print(f"  FreeLibrary took {unload['freeLibrarySeconds']:.3f} s", flush=True)
        self.assertLess(unload["freeLibrarySeconds"], 3)
        # The host can no longer close the recording. Its threads keep running, so their code stays loaded.
        self.assertFalse(unload["moduleGone"])
        self.assertGreater(host.summary["packets"], 30)
        self.assertEqual(media.file_warnings(host.recording), [])
        self.session.wait_for_end_of_streams()


if __name__ == "__main__":
    session.main()
