"""Runs velto-host under Wine."""

import json
import os
import pathlib
import re
import signal
import subprocess

from . import module_log, paths, processes, waiting


# The end of a process with an open stream fails under Wine 8.0 in some percent of the cases: Wine kills its
# sound driver's thread, perhaps inside PulseAudio's library, and then lets the driver close the library. This
# crashes, fails an assertion or never ends. A program without the module fails, too, but nothing here examines
# where a failure happened. When closing takes longer than half a second, Wine's server kills the process.
WINE_FAILED = -signal.SIGSEGV
STUCK_S = 10
FUTEX, FUTEX_WAIT_PRIVATE, FUTEX_LOCK_PI_PRIVATE = 202, 128, 134


class VeltoHost:
    """One run of the host program: its output, its log, its end."""

    def __init__(self, prefix, folder, arguments, name="host", program=None):
        folder = pathlib.Path(folder)
        self.output_path = folder / f"{name}.out"
        self.error_path = folder / f"{name}.err"
        self.log = module_log.ModuleLog(folder / f"{name}.log")
        for path in (self.output_path, self.error_path, self.log.path):
            path.unlink(missing_ok=True)
        env = dict(prefix.environment, VELTO_LOG_FILE=paths.to_windows(self.log.path))
        with open(self.output_path, "wb") as out, open(self.error_path, "wb") as err:
            self.process = processes.start(["wine", program or paths.HOST, *arguments], env=env,
                                           stdout=out, stderr=err, cwd=folder, with_sound=True)

    @property
    def running(self):
        return self.process.poll() is None

    def output(self):
        return self.output_path.read_text("utf-8", "replace")

    def errors(self):
        return self.error_path.read_text("utf-8", "replace")

    def records(self):
        """The JSON objects among the output: one a line, or the whole of it."""
        text, found = self.output(), []
        for line in text.splitlines():
            if line.startswith("{"):
                try:
                    found.append(json.loads(line))
                except ValueError:
                    pass
        return found or ([json.loads(text)] if text.strip().startswith(("{", "[")) else [])

    @property
    def summary(self):
        """The last record printed."""
        records = self.records()
        if not records:
            raise AssertionError(f"the host printed no JSON:\n{self.output()[-1500:]}\n{self.errors()[-1500:]}")
        return records[-1]

    def wait(self, timeout_s=90):
        """Waits for the end and returns the exit code, or WINE_FAILED."""
        stuck_s = 0
        for _ in range(timeout_s):
            try:
                code = self.process.wait(1)
                aborted = re.search(r"Assertion [`'].*' failed.*\s*\Z", self.errors())
                return WINE_FAILED if code == -signal.SIGKILL or aborted else code
            except subprocess.TimeoutExpired:
                stuck_s = stuck_s + 1 if self._is_stuck_in_its_driver() else 0
            if stuck_s == STUCK_S:
                self.process.kill()
                self.process.wait()
                return WINE_FAILED
        raise waiting.TimedOut(f"velto-host did not end within {timeout_s} s:\n"
                               f"{self.output()[-800:]}\n{self.errors()[-800:]}")

    def _is_stuck_in_its_driver(self):
        """Whether the main thread is kept by what no Windows code waits for under Wine: by a lock of malloc or
        of PulseAudio's library; or whether it is the only one left and waits or runs in that library."""
        try:
            call = pathlib.Path(f"/proc/{self.process.pid}/syscall").read_text("ascii").split()
            is_alone = len(os.listdir(f"/proc/{self.process.pid}/task")) == 1
        except OSError:
            call = []
        if not call:
            return False  # it has just ended
        if call[0] == "running":
            return is_alone and "pulse" in processes.code_file(self.process)
        number, address, operation = int(call[0]), int(call[1], 16), int(call[2], 16)
        if number != FUTEX:
            return False
        # malloc's locks: of an arena 48 bytes into its region of 64 MiB, so aligned; of the first one in the library.
        return (address % (64 << 20) == 0x30
                or "/libc.so" in processes.mapped_file(self.process.pid, address)
                or operation == FUTEX_LOCK_PI_PRIVATE
                or is_alone and operation != FUTEX_WAIT_PRIVATE)

    def interrupt(self):
        """Ctrl-C."""
        self.process.send_signal(signal.SIGINT)

    def cpu_seconds(self):
        """Processor time used so far."""
        with open(f"/proc/{self.process.pid}/stat") as stat:
            fields = stat.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def memory_kib(self):
        """(resident, of it the process's own and not a file's) in KiB."""
        fields = {}
        with open(f"/proc/{self.process.pid}/status") as status:
            for line in status:
                name, _, value = line.partition(":")
                fields[name] = value.split()
        return int(fields["VmRSS"][0]), int(fields["RssAnon"][0])

    def stop(self):
        processes.end(self.process)
