"""Runs velto-host under Wine."""

import json
import os
import pathlib
import signal
import subprocess

from . import module_log, paths, processes, waiting


# Wine 8.0 crashes in about one of 25 process ends with a stream open, whatever program it is: its
# sound driver's own thread outlives what it uses. A bare program without the module does so, too.
# More seldom it kills that thread inside malloc and then waits for malloc's lock itself, for ever.
# And where leaving takes longer than half a second, its server kills the process.
WINE_FAILED = -signal.SIGSEGV
STUCK_S = 10
FUTEX = "202"


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
                return WINE_FAILED if code == -signal.SIGKILL else code
            except subprocess.TimeoutExpired:
                stuck_s = stuck_s + 1 if self._waits_for_malloc() else 0
            if stuck_s == STUCK_S:
                self.process.kill()
                self.process.wait()
                return WINE_FAILED
        raise waiting.TimedOut(f"velto-host did not end within {timeout_s} s:\n"
                               f"{self.output()[-800:]}\n{self.errors()[-800:]}")

    def _waits_for_malloc(self):
        """Whether the main thread waits for an arena of the C library's malloc, which Wine's own side
        uses and no Windows code does. The lock stands 48 bytes into a region of 64 MiB, so aligned."""
        try:
            call = pathlib.Path(f"/proc/{self.process.pid}/syscall").read_text("ascii").split()
        except OSError:
            return False
        return call[0] == FUTEX and int(call[1], 16) % (64 << 20) == 0x30

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
