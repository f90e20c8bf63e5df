#!/usr/bin/python3
"""A system test retries damaged sound if the machine stalled, a limited number of times. Other failures fail at once."""

import contextlib
import io
import pathlib
import signal
import tempfile
import time
import unittest
from unittest import mock

from rig import session, stall_monitor, waiting


class ScriptedTest(session.SystemTest):
    """A system test whose attempts have the given outcomes: None to pass, or an exception to raise."""

    def __init__(self, outcomes, stall_s):
        super().__init__("attempt")
        self.stall_monitor = mock.Mock(longest_stall_s=lambda: stall_s)
        self.outcomes, self.attempts, self.cleanups = outcomes, 0, 0

    def setUp(self):
        self.addCleanup(self.clean_up)

    def clean_up(self):
        self.cleanups += 1

    def attempt(self):
        self.attempts += 1
        if outcome := self.outcomes[self.attempts - 1]:
            raise outcome


class Retries(unittest.TestCase):
    def run_test(self, *outcomes, stall_s=0.3):
        """Returns (whether the test passed, number of attempts). Every attempt must be cleaned up."""
        test, result = ScriptedTest(outcomes, stall_s), unittest.TestResult()
        with contextlib.redirect_stdout(io.StringIO()) as self.printed:
            test.run(result)
        self.assertEqual(test.cleanups, test.attempts)
        return result.wasSuccessful(), test.attempts

    def test_undamaged_sound_needs_one_attempt(self):
        self.assertEqual(self.run_test(None), (True, 1))
        self.assertEqual(self.printed.getvalue(), "")

    def test_undamaged_retry_passes_and_failed_attempts_are_printed(self):
        damage = session.SoundDamaged("5 windows are damaged")
        self.assertEqual(self.run_test(damage, damage, damage, None), (True, 4))
        self.assertEqual(self.printed.getvalue().splitlines(), [
            f"  attempt {attempt} of 4 failed: 5 windows are damaged; the machine stalled for 0.30 s, retrying"
            for attempt in (1, 2, 3)])

    def test_damaged_sound_without_stall_is_not_retried(self):
        self.assertEqual(self.run_test(session.SoundDamaged(), None, stall_s=0.0), (False, 1))

    def test_sound_damaged_in_every_attempt_fails(self):
        self.assertEqual(self.run_test(*[session.SoundDamaged()] * 5), (False, 4))

    def test_other_failures_are_not_retried(self):
        self.assertEqual(self.run_test(AssertionError(), None), (False, 1))
        self.assertEqual(self.run_test(session.SoundDamaged(), OSError(), None), (False, 2))


class StallMonitor(unittest.TestCase):
    def test_stall_monitor_detects_stall(self):
        with tempfile.TemporaryDirectory() as folder:
            monitor = stall_monitor.StallMonitor(pathlib.Path(folder))
            self.addCleanup(monitor.stop)
            time.sleep(1)
            # A stopped monitor cannot tell its own stop from a stall of the machine.
            monitor.process.send_signal(signal.SIGSTOP)
            time.sleep(0.5)
            monitor.process.send_signal(signal.SIGCONT)
            waiting.until(monitor.longest_stall_s, "the stall in the monitor's output", 10)
            self.assertGreater(monitor.longest_stall_s(), 0.3)


if __name__ == "__main__":
    unittest.main(verbosity=2)
