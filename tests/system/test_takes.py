#!/usr/bin/python3
"""Sound that a machine standing still damaged is taken again, but neither for ever nor instead of any other failure."""

import contextlib
import io
import pathlib
import signal
import tempfile
import time
import unittest
from unittest import mock

from rig import session, waiting, witness


class Take(session.SystemTest):
    """A test whose takes end in this way: None, or what is raised."""

    def __init__(self, ends, stall_s):
        super().__init__("take")
        self.witness = mock.Mock(longest_stall_s=lambda: stall_s)
        self.ends, self.taken, self.tidied_up = ends, 0, 0

    def setUp(self):
        self.addCleanup(self.tidy_up)

    def tidy_up(self):
        self.tidied_up += 1

    def take(self):
        self.taken += 1
        if end := self.ends[self.taken - 1]:
            raise end


class Retries(unittest.TestCase):
    def takes(self, *ends, stall_s=0.3):
        """(whether the test passed, takes) and what was printed."""
        take, result = Take(ends, stall_s), unittest.TestResult()
        with contextlib.redirect_stdout(io.StringIO()) as self.printed:
            take.run(result)
        self.assertEqual(take.tidied_up, take.taken)
        return result.wasSuccessful(), take.taken

    def test_undamaged_sound_needs_one_attempt(self):
        self.assertEqual(self.takes(None), (True, 1))
        self.assertEqual(self.printed.getvalue(), "")

    def test_undamaged_retry_passes_and_failed_attempts_are_printed(self):
        damage = session.SoundDamaged("5 windows are damaged")
        self.assertEqual(self.takes(damage, damage, damage, None), (True, 4))
        self.assertEqual(self.printed.getvalue().count("5 windows are damaged; the machine stood still for 0.30 s"), 3)

    def test_damaged_sound_without_stall_is_not_retried(self):
        self.assertEqual(self.takes(session.SoundDamaged(), None, stall_s=0.0), (False, 1))

    def test_sound_damaged_in_every_attempt_fails(self):
        self.assertEqual(self.takes(*[session.SoundDamaged()] * 5), (False, 4))

    def test_other_failures_are_not_retried(self):
        self.assertEqual(self.takes(AssertionError(), None), (False, 1))
        self.assertEqual(self.takes(session.SoundDamaged(), OSError(), None), (False, 2))


class StallMonitor(unittest.TestCase):
    def test_stall_monitor_detects_stall(self):
        with tempfile.TemporaryDirectory() as folder:
            looking_on = witness.Witness(pathlib.Path(folder))
            self.addCleanup(looking_on.stop)
            time.sleep(1)
            # All that it knows of a machine is when it runs itself.
            looking_on.process.send_signal(signal.SIGSTOP)
            time.sleep(0.5)
            looking_on.process.send_signal(signal.SIGCONT)
            waiting.until(looking_on.longest_stall_s, "the stall to be seen", 10)
            self.assertGreater(looking_on.longest_stall_s(), 0.3)


if __name__ == "__main__":
    unittest.main(verbosity=2)
