"""Traces a Windows program under Wine, and reports where its threads were when it failed.

The tracer is a separate process, because ptrace lets only one thread of a process control a traced program. The program
stops only for signals and when a thread starts or ends. Both are rare, so its sound does not suffer.

    python3 -m rig.tracer PID REPORT [SIGN ...]

The tracer also gives the program real-time priority, as soon as one of the files SIGN is not empty. The start of a program
uses a processor for some tenths of a second, in which it would delay the sound of programs that already play. The threads of
Wine's sound driver get more priority than the program's others: they have only some tens of milliseconds of sound in advance,
and opening a device in another program takes longer.

Once the program has the priority of sound, the tracer also reports when one of its threads was ready to run but waited for a
processor, because the machine was too busy with other programs. A wait for the program's own threads does not count.

Each line of the report is a JSON object: {"traced": true} at the beginning, then a record of each signal that the program
caused, of each thread that a signal ended, of each long wait for a processor, and, after SIGUSR1, of each thread. The last
line has the processor time and the length of the program's life. ending.py reads the report.
"""

import array
import bisect
import ctypes
import json
import os
import signal
import struct
import sys
import time

MODULE = "LibVeltoAudioHandler.dll"

_SEIZE, _INTERRUPT, _LISTEN, _CONTINUE = 0x4206, 0x4207, 0x4208, 7
_GETREGS, _GETEVENTMSG, _GETSIGINFO = 12, 0x4201, 0x4202
_TRACE_CLONE, _TRACE_EXEC, _TRACE_EXIT = 1 << 3, 1 << 4, 1 << 6
_EVENT_CLONE, _EVENT_EXIT, _EVENT_STOP = 3, 6, 128
_WALL = 0x40000000
_POLL_S = 0.02
_SOUND_PRIORITY = 5  # as in processes.py, which would take longer to import
_DRIVER_PRIORITY = 6
_DRIVER_THREADS = "winepulse_"
_WAITS_POLL_S = 0.05
_MIN_WAIT_S = 0.01  # the module has about 60 ms of sound in advance
_BUSY_PART = 0.8    # of one processor: a program that uses more can be the reason for its own waits
_NAMING_S = 1  # a new thread gets its name within this time
_REGISTERS, _RIP, _RSP, _GS_BASE = 27, 16, 19, 22  # struct user_regs_struct: number of fields, numbers of some
_FAULTS = {signal.SIGSEGV, signal.SIGBUS, signal.SIGILL, signal.SIGFPE, signal.SIGABRT}
_JOB_CONTROL = {signal.SIGSTOP, signal.SIGTSTP, signal.SIGTTIN, signal.SIGTTOU}

# A thread of Wine has a stack for Windows code and another one for UNIX code. The GS register points to the thread's
# environment block, which has the bounds of the Windows stack and, in Wine 8, a pointer to the registers that Windows
# code had when it called UNIX code.
_TEB_BYTES, _TEB_STACK_BASE, _TEB_STACK_LIMIT, _TEB_SYSCALL_FRAME = 0x330, 0x08, 0x10, 0x328
_FRAME_RSP = 0x88
_MAX_STACK = 1 << 20
_MAX_FRAMES = 24

_libc = ctypes.CDLL(None, use_errno=True)
_libc.ptrace.restype = ctypes.c_long
_libc.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]


def _ptrace(request, thread, address=None, data=None):
    if _libc.ptrace(request, thread, address, data) == -1:
        raise OSError(ctypes.get_errno(), f"ptrace {request:#x}")


class Memory:
    """The memory of a stopped program."""

    def __init__(self, pid):
        self._pid = pid
        self._begins, self._maps = [], []
        image, image_end = None, 0
        with open(f"/proc/{pid}/maps", encoding="utf-8", errors="replace") as maps:
            for line in maps:
                bounds, access, offset, _, _, name = (line.rstrip("\n").split(None, 5) + [""])[:6]
                begin, end = (int(bound, 16) for bound in bounds.split("-"))
                # Wine maps the header of a Windows image from its file, and may copy the sections behind it.
                if name.startswith("/") and int(offset, 16) == 0:
                    image = name
                elif name or begin != image_end:
                    image = name or None
                image_end = end
                self._begins.append(begin)
                self._maps.append((begin, end, "x" in access, image or "no file"))

    def read(self, address, count):
        """The bytes at an address: fewer than `count` at the end of a mapping, none where nothing is mapped."""
        found = self.find(address)
        if not found:
            return b""
        try:
            with open(f"/proc/{self._pid}/mem", "rb", buffering=0) as memory:
                memory.seek(address)
                return memory.read(min(count, found[1] - address))
        except (OSError, OverflowError):
            return b""

    def find(self, address):
        """(begin, end, whether it is code, file) of the mapping at an address, or None."""
        place = bisect.bisect_right(self._begins, address) - 1
        return self._maps[place] if place >= 0 and address < self._maps[place][1] else None

    def code_file(self, address):
        found = self.find(address)
        return found[3] if found and found[2] else ""

    def return_addresses(self, begin, end):
        """The files of the return addresses on a part of a stack, the newest first.

        Every word that points behind a call instruction counts. Some of them are remains of calls that have returned, so
        the list may have too many files, but lacks none."""
        data = self.read(begin, min(end - begin, _MAX_STACK))
        found = []
        for word in array.array("Q", data[:len(data) // 8 * 8]):
            file = self.code_file(word)
            if file and _is_call(self.read(word - 7, 7)):
                found.append(file)
        return found


def _is_call(before):
    """Whether the bytes before an address end with a call instruction: relative, or through a register or memory."""
    return len(before) == 7 and (before[2] == 0xE8 or any(
        before[-size] == 0xFF and before[1 - size] >> 3 & 7 == 2 for size in (2, 3, 4, 6, 7)))


class Tracer:
    def __init__(self, pid, report, signs):
        self._pid, self._report, self._signs = pid, report, signs
        self._has_priority = not signs
        self._named_at = 0.0  # time.monotonic() at which the newest thread has its name
        self._driver_threads = set()
        self._times, self._times_at = {}, time.time()  # of each thread: run and waited, in s, at a wall time
        self._begin = time.monotonic()
        self._threads = set()
        self._wants_threads = False  # set by SIGUSR1
        signal.signal(signal.SIGUSR1, self._on_request)
        signal.signal(signal.SIGALRM, lambda *_: self._on_timer())

    def run(self):
        self._seize()
        _give_priority(0, _DRIVER_PRIORITY)  # so that a stop of the program is short
        signal.setitimer(signal.ITIMER_REAL, _POLL_S, _POLL_S)
        self._write(traced=True)
        while self._threads:
            try:
                thread, status = os.waitpid(-1, _WALL)
            except ChildProcessError:
                return
            if not os.WIFSTOPPED(status):
                self._threads.discard(thread)
                self._driver_threads.discard(thread)
                continue
            try:
                self._on_stop(thread, os.WSTOPSIG(status), status >> 16)
            except OSError:
                pass  # the thread was killed meanwhile

    def _seize(self):
        options = _TRACE_CLONE | _TRACE_EXEC | _TRACE_EXIT
        while new := self._own_threads() - self._threads:
            for thread in new:
                try:
                    _ptrace(_SEIZE, thread, None, options)
                except OSError:
                    if thread in self._own_threads():
                        raise
                    continue  # the thread has ended
                self._threads.add(thread)

    def _own_threads(self):
        return {int(each) for each in os.listdir(f"/proc/{self._pid}/task")}

    def _on_request(self, *_):
        self._wants_threads = True
        for thread in os.listdir(f"/proc/{self._pid}/task"):
            try:
                _ptrace(_INTERRUPT, int(thread))
            except OSError:
                pass

    def _on_stop(self, thread, number, event):
        self._threads.add(thread)
        passed_on = 0
        if event == 0:
            passed_on = number
            if number in _FAULTS:
                self._record("fault", thread, signal=number, address=self._fault_address(thread))
        elif event == _EVENT_CLONE:
            self._named_at = time.monotonic() + _NAMING_S
            self._raise_priorities()
            signal.setitimer(signal.ITIMER_REAL, _POLL_S, _POLL_S)
        elif event == _EVENT_EXIT:
            self._on_exit(thread)
        elif event == _EVENT_STOP and number in _JOB_CONTROL:
            _ptrace(_LISTEN, thread)
            return
        elif event == _EVENT_STOP and number == signal.SIGTRAP and self._wants_threads:
            self._record("thread", thread)
        _ptrace(_CONTINUE, thread, None, passed_on)

    def _on_timer(self):
        self._raise_priorities()
        self._report_waits()

    def _report_waits(self):
        """Reports the longest time that a thread has waited for a processor since the last call."""
        before, now, ran_s, longest_s = self._times_at, time.time(), 0, 0
        for thread in tuple(self._threads):
            try:
                with open(f"/proc/{self._pid}/task/{thread}/schedstat", "rb", buffering=0) as counts:
                    times = [int(count) / 1e9 for count in counts.read().split()[:2]]
            except OSError:
                continue  # the thread has ended
            earlier = self._times.get(thread, times)
            self._times[thread] = times
            ran_s += times[0] - earlier[0]
            longest_s = max(longest_s, times[1] - earlier[1])
        self._times_at = now
        if self._has_priority and longest_s >= _MIN_WAIT_S and ran_s < _BUSY_PART * (now - before):
            self._write(waitBegin=before - longest_s, waitEnd=now)

    def _raise_priorities(self):
        """Gives the program real-time priority if it has written to a sign. New threads inherit it. Gives the driver's threads,
        which are known by their names, theirs."""
        if not self._has_priority and any(os.path.exists(sign) and os.path.getsize(sign) for sign in self._signs):
            self._has_priority = True
            for thread in self._threads:
                _give_priority(thread, _SOUND_PRIORITY)
        if self._has_priority:
            for thread in self._threads - self._driver_threads:
                if self._name(thread).startswith(_DRIVER_THREADS):
                    self._driver_threads.add(thread)
                    _give_priority(thread, _DRIVER_PRIORITY)
            if time.monotonic() > self._named_at:
                signal.setitimer(signal.ITIMER_REAL, _WAITS_POLL_S, _WAITS_POLL_S)

    def _name(self, thread):
        try:
            with open(f"/proc/{self._pid}/task/{thread}/comm", encoding="utf-8", errors="replace") as name:
                return name.read()
        except OSError:
            return ""  # the thread has ended

    def _on_exit(self, thread):
        status = ctypes.c_ulong()
        _ptrace(_GETEVENTMSG, thread, None, ctypes.addressof(status))
        if os.WIFSIGNALED(status.value):
            self._record("killed", thread, signal=os.WTERMSIG(status.value))
        if thread == self._pid:
            with open(f"/proc/{self._pid}/stat", encoding="ascii", errors="replace") as stat:
                fields = stat.read().rpartition(")")[2].split()
            self._write(cpuSeconds=(int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK"),
                        lifeSeconds=time.monotonic() - self._begin)

    @staticmethod
    def _fault_address(thread):
        info = ctypes.create_string_buffer(128)
        _ptrace(_GETSIGINFO, thread, None, ctypes.addressof(info))
        return struct.unpack_from("<Q", info, 16)[0]

    def _record(self, kind, thread, **more):
        registers = (ctypes.c_ulong * _REGISTERS)()
        _ptrace(_GETREGS, thread, None, ctypes.addressof(registers))
        memory = Memory(self._pid)
        rip, rsp = registers[_RIP], registers[_RSP]
        stack = memory.find(rsp)
        files = memory.return_addresses(rsp, stack[1]) if stack else []
        files += self._windows_frames(memory, registers[_GS_BASE], rsp)
        self._write(kind=kind, thread=thread, isMain=thread == self._pid, file=memory.code_file(rip), rip=rip,
                    frames=_without_repeats(files)[:_MAX_FRAMES],
                    module=any(each.endswith("/" + MODULE) for each in [memory.code_file(rip), *files]), **more)

    @staticmethod
    def _windows_frames(memory, block, rsp):
        """The files of the return addresses on the Windows stack of a thread that runs UNIX code."""
        data = memory.read(block, _TEB_BYTES) if block else b""
        if len(data) < _TEB_BYTES:
            return []
        base, limit, frame = (struct.unpack_from("<Q", data, field)[0]
                              for field in (_TEB_STACK_BASE, _TEB_STACK_LIMIT, _TEB_SYSCALL_FRAME))
        if limit <= rsp < base:
            return []  # it runs Windows code, and this stack has been read
        saved = memory.read(frame + _FRAME_RSP, 8)
        begin = struct.unpack("<Q", saved)[0] if len(saved) == 8 else 0
        return memory.return_addresses(begin if limit <= begin < base else limit, base)

    def _write(self, **record):
        # One system call, because the timer's handler can interrupt another record.
        os.write(self._report, (json.dumps(record) + "\n").encode())


def _give_priority(thread, priority):
    try:
        os.sched_setscheduler(thread, os.SCHED_RR, os.sched_param(priority))
    except OSError:
        pass


def _without_repeats(files):
    return [each for number, each in enumerate(files) if number == 0 or each != files[number - 1]]


if __name__ == "__main__":
    with open(sys.argv[2], "wb", buffering=0) as out:
        try:
            Tracer(int(sys.argv[1]), out.fileno(), sys.argv[3:]).run()
        except OSError as problem:
            out.write(json.dumps({"problem": str(problem)}).encode() + b"\n")
