#!/usr/bin/python3
"""The rig finds out how a process ended, and whether the module's code took part in it."""

import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from rig import ending, processes, tracer, waiting

MODULE, WINE_FILE, HOST = f"/bin/{tracer.MODULE}", "/usr/lib/wine/x86_64-unix/ntdll.so", "/bin/velto-host.exe"
PULSE, LIBC = "/usr/lib/x86_64-linux-gnu/libpulse.so.0.24.2", "/usr/lib/x86_64-linux-gnu/libc.so.6"


def record(kind, file, *frames, is_main=True):
    files = (file, *frames)
    return {"kind": kind, "thread": 1, "isMain": is_main, "file": file, "frames": list(frames),
            "module": MODULE in files, **({} if kind == "thread" else {"signal": 11})}


def end(code=0, *records, words=True, expected=0, **more):
    return ending.Ending(expected, code, has_last_words=words, is_traced=True, records=list(records), **more)


class Causes(unittest.TestCase):
    def assert_cause(self, end_of_process, kind, blame, is_wines):
        self.assertEqual((end_of_process.kind, end_of_process.blame, end_of_process.is_wines), (kind, blame, is_wines))
        self.assertEqual(end_of_process.is_good, kind == ending.EXPECTED)

    def test_expected_code_without_fault_is_good(self):
        self.assertTrue(end().is_good)
        self.assertTrue(end(37, expected=37).is_good)

    def test_other_exit_code_has_unknown_cause(self):
        self.assert_cause(end(1), ending.OTHER_CODE, ending.UNKNOWN, False)

    def test_fault_in_sound_library_is_wines(self):
        for file in (WINE_FILE, PULSE, LIBC):
            self.assert_cause(end(-11, record("fault", file, HOST)), ending.SIGNAL, ending.WINE, True)

    def test_jump_from_library_to_no_code_is_wines(self):
        self.assert_cause(end(-11, record("fault", "", LIBC, WINE_FILE)), ending.SIGNAL, ending.WINE, True)
        self.assert_cause(end(-11, record("fault", "", HOST)), ending.SIGNAL, ending.UNKNOWN, False)
        self.assert_cause(end(-11, record("fault", "")), ending.SIGNAL, ending.UNKNOWN, False)

    def test_fault_before_last_words_is_not_excused(self):
        self.assert_cause(end(-11, record("fault", PULSE), words=False), ending.SIGNAL, ending.WINE, False)

    def test_fault_in_module_or_called_by_module_is_not_excused(self):
        for fault in (record("fault", MODULE), record("fault", LIBC, MODULE), record("fault", "", WINE_FILE, MODULE)):
            self.assert_cause(end(-11, fault), ending.SIGNAL, ending.THE_MODULE, False)

    def test_fault_in_other_program_code_is_not_excused(self):
        self.assert_cause(end(-11, record("fault", HOST)), ending.SIGNAL, ending.UNKNOWN, False)
        self.assert_cause(end(-11, record("fault", "/bin/avcodec-59.dll")), ending.SIGNAL, ending.UNKNOWN, False)

    def test_fault_outside_wine_counts_when_later_fault_is_wines(self):
        self.assertEqual(end(-11, record("fault", HOST), record("fault", LIBC)).blame, ending.UNKNOWN)

    def test_fault_counts_when_exit_code_is_expected(self):
        self.assert_cause(end(0, record("fault", LIBC)), ending.FAULTY, ending.WINE, True)
        self.assert_cause(end(0, record("fault", MODULE)), ending.FAULTY, ending.THE_MODULE, False)

    def test_fault_of_module_counts_when_later_fault_is_wines(self):
        self.assert_cause(end(-11, record("fault", MODULE), record("fault", LIBC)), ending.SIGNAL, ending.THE_MODULE, False)

    def test_cause_of_killed_or_stuck_process_is_place_of_main_thread(self):
        other = record("killed", WINE_FILE, MODULE, is_main=False)
        self.assert_cause(end(-9, other, record("killed", PULSE)), ending.KILLED, ending.WINE, True)
        self.assert_cause(end(-9, record("killed", PULSE, MODULE)), ending.KILLED, ending.THE_MODULE, False)
        self.assert_cause(end(-9, other), ending.KILLED, ending.UNKNOWN, False)
        stuck = {"killed_as": ending.STUCK}
        self.assert_cause(end(-9, record("thread", LIBC, PULSE), **stuck), ending.STUCK, ending.WINE, True)
        self.assert_cause(end(-9, record("thread", LIBC, MODULE), **stuck), ending.STUCK, ending.THE_MODULE, False)

    def test_hanging_process_is_never_excused(self):
        self.assert_cause(end(-9, record("thread", LIBC), killed_as=ending.HUNG), ending.HUNG, ending.WINE, False)

    def test_failed_assertion_is_found_at_end_of_messages(self):
        text = ending.assertion_in("a line\nAssertion 'c' failed at pulse/context.c:1, function x(). Aborting.\n")
        self.assertEqual(text, "Assertion 'c' failed at pulse/context.c:1, function x(). Aborting.")
        self.assert_cause(end(3, record("fault", LIBC, PULSE), assertion=text), ending.ASSERTION, ending.WINE, True)
        self.assertEqual(ending.assertion_in("Assertion 'c' failed at x.\nand more\n"), "")

    def test_endings_are_counted_by_kind_and_cause(self):
        self.assertEqual(ending.counted([end(), end(), end(-11, record("fault", LIBC)), end(1)]), {
            "with the expected exit code": 2, "by a signal; cause: Wine": 1, "with another exit code; cause: unknown": 1})


class TracedProcess(unittest.TestCase):
    """Native processes, traced as hosts are."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def run_code(self, code):
        """Starts a program that runs Python code when it is traced."""
        self.process = subprocess.Popen([sys.executable, "-c", f"import ctypes, time\ninput()\nprint(1, flush=True)\n{code}"],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(self.process.stdout.close)
        self.addCleanup(self.process.stdin.close)
        self.addCleanup(self.process.kill)
        report = self.folder / "trace"
        self.trace = ending.Trace(self.process, report)
        waiting.until(lambda: report.exists() and report.read_text(), "the tracer", 10)
        self.process.stdin.write(b"\n")
        self.process.stdin.flush()
        self.process.stdout.readline()

    def wait_for_sleep(self):
        """Until the process is in a system call: before, it can be anywhere in Python's code."""
        stat = pathlib.Path(f"/proc/{self.process.pid}/stat")
        waiting.until(lambda: stat.read_text().rpartition(")")[2].split()[0] == "S", "a sleeping process", 10)

    def end(self, **more):
        code = self.process.wait(30)
        return ending.Ending(0, code, more.get("killed_as", ""), "", True, *self.trace.finish())

    def test_trace_of_good_end_has_processor_time_and_no_fault(self):
        self.run_code("end = time.process_time() + 0.5\nwhile time.process_time() < end: pass")
        found = self.end()
        self.assertTrue(found.is_good and found.is_traced, found.describe())
        self.assertGreater(found.cpu_s, 0.4)
        self.assertGreaterEqual(found.life_s, found.cpu_s - 0.2)

    def test_fault_is_found_in_library(self):
        self.run_code("ctypes.CDLL('libc.so.6').strlen(None)")
        found = self.end()
        self.assertEqual((found.kind, found.code, found.blame), (ending.SIGNAL, -signal.SIGSEGV, ending.WINE), found.describe())

    def test_fault_is_found_in_module(self):
        # Any library under the module's name: modf writes to its second argument.
        library = "/lib/x86_64-linux-gnu/libm.so.6"
        shutil.copy(library, self.folder / tracer.MODULE)
        self.run_code(f"m = ctypes.CDLL({str(self.folder / tracer.MODULE)!r})\n"
                      "m.modf.argtypes = [ctypes.c_double, ctypes.c_void_p]\nm.modf(1.5, None)")
        found = self.end()
        self.assertEqual((found.kind, found.blame), (ending.SIGNAL, ending.THE_MODULE), found.describe())
        self.assertEqual(len(found.module_faults), 1)

    def test_wait_for_busy_processor_is_reported(self):
        self.run_code("import os\nos.sched_setaffinity(0, {0})\nend = time.time() + 1.5\nwhile time.time() < end: pass")
        time.sleep(0.5)
        begin = time.time()
        processes.run([sys.executable, "-c", "import os, time\nos.sched_setaffinity(0, {0})\n"
                       "os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(1))\n"
                       "end = time.time() + 0.3\nwhile time.time() < end: pass"])
        self.end()
        longest = max(self.trace.waits(), key=lambda wait: wait.end - wait.begin)
        self.assertGreater(longest.end - longest.begin, 0.2)
        self.assertTrue(longest.reaches(begin, begin + 0.3))

    def test_place_of_killed_process_is_found(self):
        self.run_code("time.sleep(60)")
        self.wait_for_sleep()
        self.process.kill()
        found = self.end()
        self.assertEqual((found.kind, found.blame), (ending.KILLED, ending.WINE), found.describe())

    def test_place_of_stuck_process_is_found(self):
        self.run_code("time.sleep(60)")
        self.wait_for_sleep()
        self.trace.report_threads()
        self.process.kill()
        found = self.end(killed_as=ending.STUCK)
        self.assertEqual((found.kind, found.blame), (ending.STUCK, ending.WINE), found.describe())
        self.assertEqual(found.causes[0]["kind"], "thread", "where it was before it was killed")


if __name__ == "__main__":
    unittest.main(verbosity=2)
