#!/usr/bin/python3
"""A recording repeats only if the machine stalled at each damaged place, and a limited number of times in a whole run."""

import contextlib
import io
import os
import pathlib
import re
import signal
import sys
import tempfile
import time
import unittest
from unittest import mock

import numpy

from rig import compare, damage, media, processes, recorder, repeats, session, stall_monitor, waiting

RATE = 48000
BEGIN = 1000.0  # wall time of the recording's first frame
STALL = damage.Stall(BEGIN + 4.0, BEGIN + 4.2)


def time_of(frame):
    return BEGIN + frame / RATE


class Damage(unittest.TestCase):
    """Recordings with damage at 4.4 s, during a stall, or elsewhere."""

    @classmethod
    def setUpClass(cls):
        cls.sent = media.glides(8, seed=11)

    def places(self, *bounds_s, windows=None):
        heard = self.sent.copy()
        for begin, end in bounds_s:
            heard[int(begin * RATE):int(end * RATE)] = 0
        self.result = compare.compare(heard, self.sent, RATE)
        return damage.places_in(self.result, time_of, windows)

    def test_intact_sound_is_accepted_with_and_without_stall(self):
        self.assertEqual(damage.check(self.places(), []), "")
        self.assertEqual(damage.check(self.places(), [STALL]), "")

    def test_damage_without_stall_is_refused(self):
        with self.assertRaisesRegex(damage.DamagedWithoutStall, ": 4.4 s$"):
            damage.check(self.places((4.45, 4.5)), [])

    def test_few_damaged_windows_within_stall_are_accepted_and_described(self):
        self.assertEqual(damage.check(self.places((4.45, 4.5)), [STALL]),
                         "damaged while the machine stalled, for 0.20 s at most: 4.4 s")

    def test_stall_at_another_place_excuses_nothing(self):
        for far in (damage.Stall(BEGIN + 2.0, BEGIN + 2.5), damage.Stall(BEGIN + 6.0, BEGIN + 7.0)):
            with self.assertRaises(damage.DamagedWithoutStall):
                damage.check(self.places((4.45, 4.5)), [far])

    def test_damage_outside_of_stall_is_refused_when_other_damage_is_within(self):
        with self.assertRaisesRegex(damage.DamagedWithoutStall, ": 1.2 s$"):
            damage.check(self.places((1.25, 1.3), (4.45, 4.5)), [STALL])

    def test_much_damage_within_stall_calls_for_repeat(self):
        with self.assertRaises(damage.SoundDamaged):
            damage.check(self.places((3.9, 5.0)), [STALL])

    def test_damage_without_stall_is_refused_beside_much_damage_within(self):
        """A spoiled recording may have one such place in twenty, because queued sound is lost late."""
        long_stall = damage.Stall(BEGIN + 3.0, BEGIN + 5.5)
        with self.assertRaisesRegex(damage.DamagedWithoutStall, ": 1.2 s$"):
            damage.check(self.places((1.25, 1.3), (3.9, 5.0)), [long_stall])
        places = self.places((1.25, 1.3), (2.65, 6.35))
        self.assertEqual(len(places), 20)
        with self.assertRaises(damage.SoundDamaged):
            damage.check(places, [long_stall])
        with self.assertRaises(damage.DamagedWithoutStall):
            damage.check(places + [places[0]], [long_stall])

    def test_missing_sound_without_stall_is_refused(self):
        heard = numpy.delete(self.sent, slice(3 * RATE, 3 * RATE + 4800), axis=0)
        places = damage.places_in(compare.compare(heard, self.sent, RATE), time_of)
        slips = [place.what for place in places if place.what.startswith("a slip")]
        self.assertEqual(slips, ["a slip of -4800 frames at 3.2 s"])
        with self.assertRaises(damage.DamagedWithoutStall):
            damage.check(places, [])
        self.assertNotEqual(damage.check(places, [damage.Stall(BEGIN + 2.9, BEGIN + 3.0)]), "")

    def test_longer_gap_is_explained_only_by_time_of_stalls_and_second_after_them(self):
        stalls = [damage.Stall(BEGIN + 4.0, BEGIN + 4.2), damage.Stall(BEGIN + 4.1, BEGIN + 4.4)]
        for excess_s, near in ((1.5, stalls), (0.1, [damage.Stall(BEGIN + 1.0, BEGIN + 1.5)]), (0.1, [])):
            damage.refuse_longer_gap(BEGIN + 3.0, BEGIN + 5.4, excess_s, near)
        with self.assertRaisesRegex(damage.SoundDamaged, "^a gap, or the damage in it, is 1.30 s too long, .* for 0.40 s in it$"):
            damage.refuse_longer_gap(BEGIN + 3.0, BEGIN + 5.4, 1.3, stalls)

    def test_only_chosen_windows_count(self):
        self.places((4.45, 4.5))
        early = [w for w in self.result.windows if w.start_s < 4]
        self.assertEqual(damage.places_in(self.result, time_of, early), [])


class ArrivalTimes(unittest.TestCase):
    """The wall time of a frame, from a sink that loses two seconds after three. Chunks of 20 ms arrive up to 15 ms late."""

    LOST_S, LOSS_S = 2.0, 3.0
    CHUNK = RATE // 50

    def setUp(self):
        self.times = recorder.ArrivalTimes(RATE)
        for chunk in range(1, 301):
            self.times.add(chunk * self.CHUNK, self.heard(chunk * self.CHUNK) + 0.005 * (chunk % 4))

    def heard(self, frame):
        return time_of(frame) + (self.LOST_S if frame > self.LOSS_S * RATE else 0)

    def test_time_of_frame_follows_lost_time(self):
        for second in (0, 1.0, 2.4, 2.99, 3.0, 3.01, 3.2, 4.0, 5.9, 6.0):
            self.assertAlmostEqual(self.times.of(int(second * RATE)), self.heard(int(second * RATE)), delta=0.02)

    def test_least_delayed_chunk_dates_first_frame(self):
        self.assertAlmostEqual(self.times.least_delayed(), BEGIN, delta=0.001)
        self.assertIsNone(recorder.ArrivalTimes(RATE).least_delayed())


class ScriptedTest(session.SystemTest):
    """A system test whose attempts have the given outcomes: None to pass, or an exception to raise."""

    def __init__(self, outcomes):
        super().__init__("attempt")
        self.outcomes, self.attempts, self.cleanups, self.machine_stalls = outcomes, 0, 0, []

    def setUp(self):
        self.addCleanup(self.clean_up)

    def stalls(self):
        return self.machine_stalls

    def clean_up(self):
        self.cleanups += 1

    def attempt(self):
        self.attempts += 1
        if outcome := self.outcomes[self.attempts - 1]:
            raise outcome


class Repeats(unittest.TestCase):
    DAMAGE = damage.SoundDamaged("5 windows")

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.list = pathlib.Path(folder.name) / "repeats"
        variables = mock.patch.dict("os.environ", VELTO_REPEATS=str(self.list))
        variables.start()
        self.addCleanup(variables.stop)

    def run_test(self, *outcomes):
        """Returns (whether the test passed, None if its sound was not measured; number of attempts). Every attempt must be
        cleaned up."""
        test, result = ScriptedTest(outcomes), unittest.TestResult()
        self.result = result
        with (contextlib.redirect_stdout(io.StringIO()) as self.printed,
              mock.patch.object(repeats, "wait_for_calm") as self.wait_for_calm):
            test.run(result)
        self.assertEqual(test.cleanups, test.attempts)
        return None if result.skipped else result.wasSuccessful(), test.attempts

    def test_undamaged_sound_needs_one_attempt(self):
        self.assertEqual(self.run_test(None), (True, 1))
        self.assertEqual(self.printed.getvalue(), "")
        self.assertFalse(self.list.exists())

    def test_damage_within_stalls_is_repeated_printed_and_listed(self):
        self.assertEqual(self.run_test(self.DAMAGE, self.DAMAGE, None), (True, 3))
        self.assertEqual(self.printed.getvalue().splitlines(),
                         [f"  attempt {attempt} of 3: 5 windows; repeating" for attempt in (1, 2)])
        self.assertEqual(self.wait_for_calm.call_count, 2)
        self.assertEqual(self.list.read_text().splitlines(), ["repeated: __main__.ScriptedTest.attempt: 5 windows"] * 2)

    def test_sound_damaged_in_every_attempt_is_not_measured_and_listed(self):
        self.assertEqual(self.run_test(*[self.DAMAGE] * 4), (None, 3))
        self.assertEqual(self.list.read_text().splitlines()[-1], "NOT MEASURED: __main__.ScriptedTest.attempt: 5 windows")

    def test_program_says_if_sound_was_not_measured(self):
        for outcomes, code in (((None,), 0), ((self.DAMAGE,) * 3, session.NOT_MEASURED), ((AssertionError(),), 1)):
            self.run_test(*outcomes)
            self.assertEqual(session.exit_code(self.result), code)
        self.run_test(*[self.DAMAGE] * 3)
        ScriptedTest([AssertionError()]).run(self.result)
        self.assertEqual(session.exit_code(self.result), 1, "a failure beside a spoiled recording")

    def test_other_failures_are_not_repeated(self):
        self.assertEqual(self.run_test(AssertionError(), None), (False, 1))
        self.assertEqual(self.run_test(damage.DamagedWithoutStall(), None), (False, 1))
        self.assertEqual(self.run_test(self.DAMAGE, OSError(), None), (False, 2))

    def test_whole_run_repeats_limited_number_of_times(self):
        repeated = 0
        while self.run_test(self.DAMAGE, None) == (True, 2):
            repeated += 1
        self.assertEqual(repeated, repeats.MOST)
        self.assertEqual(self.run_test(self.DAMAGE, None), (None, 1))
        refused, unmeasured = self.list.read_text().splitlines()[-2:]
        self.assertTrue(refused.startswith(repeats.REFUSED))
        self.assertTrue(unmeasured.startswith(repeats.UNMEASURED))

    def test_accepted_damage_is_listed_and_does_not_count(self):
        for _ in range(2 * repeats.MOST):
            repeats.note_accepted("one window")
        self.assertTrue(repeats.may_repeat("many windows"))
        self.assertEqual(self.list.read_text().splitlines()[-2:], ["accepted: one window", "repeated: many windows"])


class ScriptedClock:
    """A clock that only sleep() advances."""

    def __init__(self):
        self.now = BEGIN

    def time(self):
        return self.now

    def sleep(self, seconds):
        self.now += seconds


def nothing_waited():
    """For each test: the test program has not waited so far."""
    return mock.patch.object(repeats, "_waited_s", 0.0)


class Gaps(unittest.TestCase):
    """Recordings of eight seconds in which sound is missing."""

    def setUp(self):
        self.test = ScriptedTest([])
        self.sent = media.glides(8, seed=11)
        variables = mock.patch.dict("os.environ")
        variables.start()
        self.addCleanup(variables.stop)
        os.environ.pop("VELTO_REPEATS", None)  # accepted damage here is not of the run's sound

    def compared(self, *lost_s):
        heard = numpy.delete(self.sent, numpy.concatenate([numpy.arange(int(a * RATE), int(b * RATE)) for a, b in lost_s]), axis=0)
        return compare.compare(heard, self.sent, RATE, search_s=4)

    def gap(self, result, since=BEGIN, **limits):
        last, begun, windows = self.test.assert_intact_around_gap(result, time_of, since, **limits)
        return round(last.start_s, 1), round(begun.start_s, 1), last.offset - begun.offset, len(windows)

    def test_gap_has_its_place_and_length(self):
        last, begun, frames, windows = self.gap(self.compared((4.0, 5.0)))
        self.assertEqual(frames, RATE)
        self.assertTrue(3.6 <= last <= 3.8 and 5.0 <= begun <= 5.2 and 5 <= windows <= 7, (last, begun, windows))

    def test_lost_sound_is_placed_between_good_sound_around_it(self):
        result = self.compared((2.0, 3.0))
        self.assertEqual([result.bounds(w) for w in result.damaged], [(2 * RATE, 2 * RATE)] * 5)
        heard = self.sent.copy()
        heard[2 * RATE:3 * RATE] = 0
        result = compare.compare(heard, self.sent, RATE)
        self.assertEqual([tuple(frame / RATE for frame in result.bounds(w)) for w in result.damaged],
                         [(2.0, 2.2), (2.2, 2.4), (2.4, 2.6), (2.6, 2.8), (2.8, 3.0)])
        result = compare.compare(numpy.zeros_like(self.sent), self.sent, RATE)
        self.assertEqual(result.bounds(result.windows[3])[0], int(0.6 * RATE) + result.windows[3].offset)

    def test_sound_without_gap_is_refused(self):
        with self.assertRaisesRegex(AssertionError, "there is no gap"):
            self.gap(compare.compare(self.sent, self.sent, RATE))

    def test_sound_that_does_not_come_back_is_refused_also_with_stall(self):
        self.test.machine_stalls = [damage.Stall(BEGIN + 4.0, BEGIN + 8.0)]
        with self.assertRaisesRegex(AssertionError, "good windows after the gap") as raised:
            self.gap(self.compared((4.0, 7.0)))
        self.assertNotIsInstance(raised.exception, damage.SoundDamaged)

    def test_second_gap_is_refused_without_stall_and_repeated_with_stall(self):
        result = self.compared((1.6, 2.6), (5.0, 6.2))
        with self.assertRaises(damage.DamagedWithoutStall):
            self.gap(result, least=5)
        self.test.machine_stalls = [damage.Stall(BEGIN + 1.6, BEGIN + 1.8)]
        with self.assertRaises(damage.SoundDamaged):
            self.gap(result, least=5)

    def test_short_drop_out_after_the_change_is_not_the_gap(self):
        self.test.machine_stalls = [damage.Stall(BEGIN + 2.0, BEGIN + 2.2)]
        last, begun, frames, _ = self.gap(self.compared((2.0, 2.1), (4.0, 5.0)), BEGIN + 1.0, least=5)
        self.assertEqual(frames, RATE)
        self.assertTrue(3.6 <= last <= 3.8 and 5.0 <= begun <= 5.2, (last, begun))

    def test_piece_of_sound_in_gap_belongs_to_it(self):
        last, begun, frames, _ = self.gap(self.compared((3.0, 4.0), (4.5, 5.4)), least=5)
        self.assertEqual(frames, int(1.9 * RATE))
        self.assertTrue(2.6 <= last <= 2.8 and 5.4 <= begun <= 5.6, (last, begun))

    def test_gap_that_is_too_long_is_failure_unless_stalls_explain_it(self):
        bounds = (BEGIN + 3.9, BEGIN + 4.1)
        for seconds, stalls, error in ((3.5, [], AssertionError), (3.5, [STALL], damage.SoundDamaged), (5.0, [STALL], AssertionError)):
            self.test.machine_stalls = stalls
            with self.assertRaises(AssertionError) as raised:
                self.test.assert_gap_at_most(seconds, 3.0, bounds)
            self.assertIs(type(raised.exception), error)
        self.test.assert_gap_at_most(3.0, 3.0, bounds)

    def test_frames_after_last_packet_are_later(self):
        time_of_frame = session.times_of_packets([10.0, 10.5, 10.6])
        self.assertEqual([time_of_frame(frame) for frame in (-5, 0, media.UNIT, 2 * media.UNIT, 3 * media.UNIT + RATE)],
                         [10.0, 10.0, 10.5, 10.6, 11.6])


class Calm(unittest.TestCase):
    """The wait between two attempts."""

    def setUp(self):
        self.enterContext(nothing_waited())

    def waited_s(self, stalls):
        clock = ScriptedClock()
        repeats.wait_for_calm(lambda: [stall for stall in stalls if stall.end <= clock.now], clock)
        return clock.now - BEGIN

    def test_calm_machine_is_not_waited_for(self):
        self.assertEqual(self.waited_s([]), 0)
        self.assertEqual(self.waited_s([damage.Stall(BEGIN - 7, BEGIN - 6)]), 0)

    def test_wait_ends_when_last_stall_is_five_seconds_ago(self):
        self.assertEqual(self.waited_s([damage.Stall(BEGIN - 2, BEGIN - 1)]), 4)
        self.assertEqual(self.waited_s([damage.Stall(BEGIN - 2, BEGIN - 1), damage.Stall(BEGIN + 2, BEGIN + 3)]), 8)

    def test_wait_is_limited_on_machine_that_keeps_stalling(self):
        stalls = [damage.Stall(BEGIN + second, BEGIN + second + 0.5) for second in range(-1, 200)]
        self.assertEqual(self.waited_s(stalls), repeats.LONGEST_WAIT_S)
        self.assertEqual(self.waited_s(stalls), repeats.MOST_WAITING_S - repeats.LONGEST_WAIT_S, "limit of the program")
        self.assertEqual(self.waited_s(stalls), 0)


class IdleHost(unittest.TestCase):
    """The wait before a test."""

    def setUp(self):
        self.enterContext(nothing_waited())

    def waited_s(self, *busy):
        """busy: (begin, end) of the periods in which the host steals half of a processor."""
        clock = ScriptedClock()

        def stolen():
            return sum(0.5 * max(min(clock.now - BEGIN, end) - begin, 0) for begin, end in busy)

        repeats.wait_for_idle_host(stolen, clock)
        return clock.now - BEGIN

    def test_idle_host_costs_one_look(self):
        self.assertAlmostEqual(self.waited_s(), repeats.LOOK_S)

    def test_wait_ends_when_host_has_stolen_nothing_for_five_seconds(self):
        self.assertAlmostEqual(self.waited_s((0, 20.3)), 25.3)
        self.assertAlmostEqual(self.waited_s((0, 2.3), (6.3, 7.3)), 12.3)

    def test_wait_for_host_that_keeps_stealing_is_limited(self):
        self.assertAlmostEqual(self.waited_s((0, 1000)), repeats.LONGEST_WAIT_S, delta=1)

    def test_stolen_time_is_that_of_all_processors(self):
        with open("/proc/stat", encoding="ascii") as stat:
            stolen = [int(line.split()[8]) for line in stat if line.startswith("cpu") and line[3].isdigit()]
        self.assertAlmostEqual(repeats.stolen_s(), sum(stolen) / os.sysconf("SC_CLK_TCK"), delta=1)


# Names itself velto-host. When a file exists, starts a thread with the name of one of Wine's sound driver.
CHECK = """
import pathlib, sys, threading, time
def give_name(thread, name):
    pathlib.Path(f"/proc/self/task/{thread}/comm").write_text(name)
def drive():
    give_name(threading.get_native_id(), "winepulse_timer")
    time.sleep(1000)
give_name(threading.get_native_id(), "velto-host.exe")
while not pathlib.Path(sys.argv[1]).exists():
    time.sleep(0.02)
threading.Thread(target=drive).start()
"""


class StallMonitor(unittest.TestCase):
    def test_stall_monitor_reports_time_and_length_of_stall(self):
        with tempfile.TemporaryDirectory() as folder:
            monitor = stall_monitor.StallMonitor(pathlib.Path(folder))
            self.addCleanup(monitor.stop)
            waiting.until((pathlib.Path(folder) / "stalls.disk").exists, "the monitor to watch", 20)
            # A stopped monitor cannot tell its own stop from a stall of the machine.
            monitor.process.send_signal(signal.SIGSTOP)
            begin = time.time()
            time.sleep(0.5)
            end = time.time()
            monitor.process.send_signal(signal.SIGCONT)
            longest = waiting.until(lambda: max((s for s in monitor.stalls() if s.end > end - 0.001), default=None,
                                                key=lambda stall: stall.end - stall.begin), "the stall", 10)
            self.assertLess(longest.begin, begin + 0.1)
            self.assertGreater(longest.end - longest.begin, 0.4)

    def test_wait_of_server_is_reported(self):
        """A server shares a processor with two other programs that never wait."""
        spin = "import os; os.sched_setaffinity(0, {0}); open('/proc/self/comm', 'w').write('%s')\nwhile True: pass"
        for name in ("wineserver64", "other", "other"):
            self.addCleanup(processes.end, processes.start([sys.executable, "-c", spin % name]))
        with tempfile.TemporaryDirectory() as folder:
            monitor = stall_monitor.StallMonitor(pathlib.Path(folder))
            self.addCleanup(monitor.stop)
            stalls = pathlib.Path(folder) / "stalls"
            waiting.until(lambda: re.search(r"wineserver64 waited 0\.\d+ s\n", stalls.read_text()), "the wait of the server", 10)
            self.assertNotIn("other", stalls.read_text())

    def start_check(self, prefix):
        """A process with the name of velto-host. Returns its number, and the file that makes it open a device."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        sign = pathlib.Path(folder.name) / "sign"
        check = processes.start([sys.executable, "-c", CHECK, sign], env={"WINEPREFIX": prefix})
        self.addCleanup(processes.end, check)
        comm = pathlib.Path(f"/proc/{check.pid}/comm")
        waiting.until(lambda: comm.read_text("ascii") == "velto-host.exe\n", "the name of the process", 20)
        return str(check.pid), sign

    def test_check_is_found_when_it_opens_device_long_after_its_start(self):
        process, sign = self.start_check("/a prefix")
        checks = stall_monitor.Checks("/a prefix")
        with mock.patch.object(stall_monitor, "NAMING_S", 0.2):
            self.assertEqual(checks.find(), {})
            time.sleep(0.3)
            self.assertEqual(checks.find(), {})
            sign.touch()
            self.assertEqual(waiting.until(checks.find, "the check", 20), {process: stall_monitor.CHECKS})
            self.assertEqual(checks.find(), {process: stall_monitor.CHECKS})

    def test_driver_of_check_comes_before_sound_and_main_thread_after_it(self):
        process, sign = self.start_check("/a prefix")
        sign.touch()
        with mock.patch.object(processes, "give_sound_priority") as give:
            waiting.until(stall_monitor.Checks("/a prefix").find, "the check", 20)
        given = dict(call.args for call in give.call_args_list)  # {thread: priority}
        self.assertEqual(given.pop(int(process)), processes.SOUND_PRIORITY - 1)
        self.assertEqual(list(given.values()), [processes.SOUND_PRIORITY + 1])

    def test_short_wait_of_main_thread_of_check_is_no_stall(self):
        """It encodes after all other sound, and what it sends is queued."""
        waits, counts = stall_monitor.Waits(), {"7": [0, 0], "8": [0, 0]}  # {thread of process 7: waits in ns}
        with (mock.patch("os.listdir", return_value=list(counts)),
              mock.patch("os.open", side_effect=lambda path, _: path.split("/")[4])):
            waits.watch("7")
        for main_s, other_s, longest_s in ((0.05, 0.02, 0.02), (0.07, 0.02, 0.07), (0.05, 0.0, 0.0)):
            with mock.patch("os.pread", side_effect=lambda thread, *_: b"1 %d 1" % counts[thread][0]):
                waits.longest(0.06)
            counts["7"][0] += int(main_s * 1e9)
            counts["8"][0] += int(other_s * 1e9)
            with mock.patch("os.pread", side_effect=lambda thread, *_: b"1 %d 1" % counts[thread][0]):
                self.assertAlmostEqual(waits.longest(0.06)[0], longest_s)

    def test_check_of_other_prefix_is_not_found(self):
        for process, sign in (self.start_check("/other"), self.start_check("/a prefix")):
            sign.touch()
            drivers = pathlib.Path(f"/proc/{process}/task")
            waiting.until(lambda: any((each / "comm").read_text("ascii").startswith(stall_monitor.DRIVER_THREADS)
                                      for each in drivers.iterdir()), "the open device", 20)
        self.assertEqual(stall_monitor.Checks("/a prefix").find(), {process: stall_monitor.CHECKS})

    def test_short_delay_is_stall_only_with_stolen_time(self):
        short, long = 0.02, 0.07
        self.assertFalse(stall_monitor.is_stall(short, 0, 0))
        self.assertTrue(stall_monitor.is_stall(short, 0.01, 0.01))
        self.assertTrue(stall_monitor.is_stall(long, 0, 0))
        self.assertFalse(stall_monitor.is_stall(0.001, 0.01, 0.01))

    def test_many_short_interruptions_are_stall(self):
        self.assertTrue(stall_monitor.is_stall(0, 0.01, stall_monitor.MIN_STOLEN_S))
        self.assertFalse(stall_monitor.is_stall(0, 0.01, stall_monitor.MIN_STOLEN_S / 2))
        self.assertFalse(stall_monitor.is_stall(0, 0, stall_monitor.MIN_STOLEN_S), "reported before")

    def test_stolen_time_is_that_of_its_processor(self):
        with open("/proc/stat", encoding="ascii") as stat:
            fields = next(line.split() for line in stat if line.startswith("cpu0 "))
        seconds = stall_monitor.StolenTime(0).seconds()
        self.assertGreaterEqual(seconds, int(fields[8]) / os.sysconf("SC_CLK_TCK"))
        self.assertLess(seconds, int(fields[8]) / os.sysconf("SC_CLK_TCK") + 1)


if __name__ == "__main__":
    unittest.main(verbosity=2)
