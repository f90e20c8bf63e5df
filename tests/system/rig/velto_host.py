"""Runs velto-host under Wine."""

import json
import os
import pathlib
import signal
import subprocess
import time

from . import ending, module_log, paths, processes, waiting

STUCK_S = 10  # a process counts as stuck after looking stuck for so long
FUTEX, FUTEX_WAIT_PRIVATE, FUTEX_LOCK_PI_PRIVATE = 202, 128, 134


class VeltoHost:
    """One run of the host program, or of another Windows program, with its output and the module's log."""

    def __init__(self, prefix, folder, arguments, name="host", program=None):
        folder = pathlib.Path(folder)
        self.output_path = folder / f"{name}.out"
        self.error_path = folder / f"{name}.err"
        self.log = module_log.ModuleLog(folder / f"{name}.log")
        for path in (self.output_path, self.error_path, self.log.path):
            path.unlink(missing_ok=True)
        env = dict(prefix.environment, VELTO_LOG_FILE=paths.to_windows(self.log.path))
        with open(self.output_path, "wb") as out, open(self.error_path, "wb") as err:
            # The shell waits until the tracer is there, so that even a short program is traced.
            gate, opened = os.pipe()
            self.process = processes.start(["sh", "-c", f'read _ <&{gate}; exec "$@" {gate}<&-', "sh", "wine",
                                            program or paths.HOST, *arguments],
                                           env=env, stdout=out, stderr=err, cwd=folder, pass_fds=(gate,))
            os.close(gate)
        self._trace = ending.Trace(self.process, folder / f"{name}.trace",
                                   (self.output_path, self.error_path, self.log.path))
        self._trace.wait_for_begin()
        os.close(opened)
        self._killed_as = ""

    @property
    def running(self):
        return self.process.poll() is None

    def output(self):
        return self.output_path.read_text("utf-8", "replace")

    def errors(self):
        return self.error_path.read_text("utf-8", "replace")

    def last_output(self, characters=1500):
        """Returns the ends of output and errors, for messages."""
        return self.output()[-characters:] + self.errors()[-characters:]

    def records(self):
        """Returns the JSON values in the output: an object on each line, or a single value."""
        text, found = self.output(), []
        for line in text.splitlines():
            if line.startswith("{"):
                try:
                    found.append(json.loads(line))
                except ValueError:
                    pass
        return found or ([json.loads(text)] if text.strip().startswith(("{", "[")) else [])

    def outputs(self):
        """Returns the complete JSON outputs of velto-host that name their schema; none if the host is another program."""
        try:
            return [each for each in self.records() if isinstance(each, dict) and "schema" in each]
        except ValueError:
            return []  # the process ended while it printed

    @property
    def summary(self):
        """The last record printed."""
        records = self.records()
        if not records:
            raise AssertionError(f"the host printed no JSON:\n{self.last_output()}")
        return records[-1]

    def wait(self, timeout_s=90):
        """Waits for the end of the process. Returns its exit code, or the negative number of the signal that ended it.
        Kills a process that is stuck, or that does not end within waiting.patient(timeout_s)."""
        stuck_s = 0
        for _ in range(waiting.patient(timeout_s)):
            try:
                return self.process.wait(1)
            except subprocess.TimeoutExpired:
                stuck_s = stuck_s + 1 if self._looks_stuck() else 0
            if stuck_s == STUCK_S:
                return self._kill_as(ending.STUCK)
        return self._kill_as(ending.HUNG)

    def _kill_as(self, kind):
        self._killed_as = kind
        self._trace.report_threads()
        self.process.kill()
        return self.process.wait()

    def end(self, expected_code=0, timeout_s=90, last_words=None):
        """Waits for the end of the process, and returns all that is known about it. last_words: the text that the program
        prints last; if None, a JSON summary with the exit code."""
        code = self.wait(timeout_s)
        return ending.Ending(expected_code, code, self._killed_as, ending.assertion_in(self.errors()),
                             self._has_printed(last_words, expected_code), *self._trace.finish())

    def _has_printed(self, last_words, code):
        if last_words is not None:
            return last_words in self.output().strip()[-80:]
        try:
            return self.summary["exitCode"] == code
        except (AssertionError, ValueError, KeyError, TypeError):
            return False

    @property
    def module_faults(self):
        """The faults in the module's code so far, as ending.Ending.module_faults."""
        return self._trace.module_faults()

    @property
    def waits(self):
        """The times so far in which a thread of the host waited for a processor, as stalls."""
        return self._trace.waits()

    def _looks_stuck(self):
        """Whether the main thread waits for a lock of malloc or of PulseAudio's library, or is the only thread left
        and waits, or runs, in that library. Windows code under Wine waits in another way."""
        try:
            call = pathlib.Path(f"/proc/{self.process.pid}/syscall").read_text("ascii").split()
            is_alone = len(os.listdir(f"/proc/{self.process.pid}/task")) == 1
        except OSError:
            call = []
        if not call:
            return False  # the process has just ended
        if call[0] == "running":
            return is_alone and "pulse" in processes.code_file(self.process)
        number, address, operation = int(call[0]), int(call[1], 16), int(call[2], 16)
        if number != FUTEX:
            return False
        # The locks of malloc's arenas: each 48 bytes behind a multiple of 64 MiB, the main arena's in the library.
        return (address % (64 << 20) == 0x30
                or "/libc.so" in processes.mapped_file(self.process.pid, address)
                or operation == FUTEX_LOCK_PI_PRIVATE
                or is_alone and operation != FUTEX_WAIT_PRIVATE)

    def interrupt(self):
        """Sends Ctrl-C."""
        self.process.send_signal(signal.SIGINT)

    def cpu_seconds(self):
        """Returns the processor time that the process has used so far."""
        with open(f"/proc/{self.process.pid}/stat") as stat:
            fields = stat.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def memory_kib(self):
        """Returns (resident memory, its private part, which belongs to no file) in KiB."""
        fields = {}
        with open(f"/proc/{self.process.pid}/status") as status:
            for line in status:
                name, _, value = line.partition(":")
                fields[name] = value.split()
        return int(fields["VmRSS"][0]), int(fields["RssAnon"][0])

    def stop(self):
        processes.end(self.process)
        self._trace.finish()


class Activity:
    """Measures the log lines and the processor time of a host, from the creation of this object on."""

    def __init__(self, host):
        self._host = host
        self._lines, self._cpu_s, self._begin = host.log.count(""), host.cpu_seconds(), time.monotonic()

    def per_second(self):
        """Returns (log lines per second, processor time as a part of one processor) until now."""
        passed_s = time.monotonic() - self._begin
        return (self._host.log.count("") - self._lines) / passed_s, (self._host.cpu_seconds() - self._cpu_s) / passed_s
