#!/usr/bin/python3
"""Damaged sound is taken again, but neither for ever nor instead of any other failure."""

import contextlib
import io
import unittest

from rig import session


class Take(session.SystemTest):
    """A test whose takes end in this way: None, or what is raised."""

    def __init__(self, ends):
        super().__init__("take")
        self.ends, self.taken, self.tidied_up = ends, 0, 0

    def setUp(self):
        self.addCleanup(self.tidy_up)

    def tidy_up(self):
        self.tidied_up += 1

    def take(self):
        self.taken += 1
        if end := self.ends[self.taken - 1]:
            raise end


class Takes(unittest.TestCase):
    def takes(self, *ends):
        """(whether the test passed, takes) and what was printed."""
        take, result = Take(ends), unittest.TestResult()
        with contextlib.redirect_stdout(io.StringIO()) as self.printed:
            take.run(result)
        self.assertEqual(take.tidied_up, take.taken)
        return result.wasSuccessful(), take.taken

    def test_whole_sound_is_taken_once(self):
        self.assertEqual(self.takes(None), (True, 1))
        self.assertEqual(self.printed.getvalue(), "")

    def test_a_whole_take_after_damaged_ones_passes_and_the_damage_is_told(self):
        damage = session.SoundDamaged("5 windows are damaged")
        self.assertEqual(self.takes(damage, damage, damage, None), (True, 4))
        self.assertEqual(self.printed.getvalue().count("5 windows are damaged; taken again"), 3)

    def test_sound_damaged_in_each_take_fails(self):
        self.assertEqual(self.takes(*[session.SoundDamaged()] * 5), (False, 4))

    def test_any_other_failure_counts_at_once(self):
        self.assertEqual(self.takes(AssertionError(), None), (False, 1))
        self.assertEqual(self.takes(session.SoundDamaged(), OSError(), None), (False, 2))


if __name__ == "__main__":
    unittest.main(verbosity=2)
