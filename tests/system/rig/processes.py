"""Child processes that never outlive the run.

Every child leads its own session and is ended when the run ends, by a return, a failure, Ctrl-C
or SIGTERM. If the run is killed, the kernel kills the child. Start children from the main thread
only: the kernel kills a child when the thread that started it ends, even if the process continues.
"""

import atexit
import ctypes
import os
import pathlib
import signal
import subprocess
import sys
import tempfile

from . import waiting

_PR_SET_PDEATHSIG = 1
_PTRACE_PEEKUSER, _PTRACE_ATTACH, _PTRACE_DETACH = 3, 16, 17
_USER_RIP = 128  # the program counter in struct user
_libc = ctypes.CDLL(None, use_errno=True)
_children = []


# Audio servers and recorders run only briefly at a time, so they come before the hosts. So do Wine servers, for which hosts wait;
# but one that starts a program or saves the registry takes longer, so it comes after the audio servers of other tests.
SOUND_PRIORITY, WINE_SERVER_PRIORITY, AUDIO_PRIORITY, MONITOR_PRIORITY = 5, 7, 8, 50


def give_sound_priority(thread, priority=SOUND_PRIORITY):
    """Gives a thread real-time priority, which threads for sound usually have. Has no effect without root rights."""
    try:
        os.sched_setscheduler(thread, os.SCHED_RR, os.sched_param(priority))
    except OSError:
        pass


def give_monitor_priority(thread):
    """Gives a thread priority over all sound, so that a thread for sound that never waits cannot delay it."""
    give_sound_priority(thread, MONITOR_PRIORITY)


def give_all_threads_priority(child, priority=AUDIO_PRIORITY):
    """Gives real-time priority to all threads of a child that has started. Its start would delay the sound of other tests."""
    known = set()
    try:
        while new := set(os.listdir(f"/proc/{child.pid}/task")) - known:
            known |= new
            for thread in new:
                give_sound_priority(int(thread), priority)
    except OSError:
        pass  # the child has ended


def mapped_file(pid, address):
    """Returns the file that is mapped at an address of a process, or ""."""
    with open(f"/proc/{pid}/maps", encoding="utf-8", errors="replace") as maps:
        for line in maps:
            begin, end = (int(bound, 16) for bound in line.split(" ", 1)[0].split("-"))
            if begin <= address < end:
                return line.partition("/")[1] + line.partition("/")[2].strip()
    return ""


def code_file(child):
    """Returns the file whose code a child's main thread runs, or "". Stops the thread briefly."""
    _libc.ptrace.restype = ctypes.c_long
    if _libc.ptrace(_PTRACE_ATTACH, child.pid, None, None) != 0:
        return ""
    _, status = os.waitpid(child.pid, 0)
    if not os.WIFSTOPPED(status):
        child.returncode = os.waitstatus_to_exitcode(status)
        return ""
    address = _libc.ptrace(_PTRACE_PEEKUSER, child.pid, ctypes.c_void_p(_USER_RIP), None)
    file = mapped_file(child.pid, address & (1 << 64) - 1)
    _libc.ptrace(_PTRACE_DETACH, child.pid, None, None)
    return file


def start(command, **options):
    """Starts a command as a child that cannot outlive the run.

    death_signal: the signal that the kernel sends to the child if the run is killed.
    """
    death_signal = options.pop("death_signal", signal.SIGKILL)

    def prepare():
        _libc.prctl(_PR_SET_PDEATHSIG, death_signal)

    child = subprocess.Popen(
        [str(part) for part in command],
        stdin=options.pop("stdin", subprocess.DEVNULL),
        start_new_session=True,
        preexec_fn=prepare,
        **options,
    )
    _children.append(child)
    return child


def run(command, timeout_s=60, check=True, **options):
    """Runs a short command to its end and returns its output as text. Raises TimeoutExpired after
    waiting.patient(timeout_s).

    The output goes into files, because Wine's background processes inherit it and would keep a
    pipe open long after the command has ended.
    """
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        child = start(command, stdout=out, stderr=err, **options)
        try:
            child.wait(waiting.patient(timeout_s))
        finally:
            end(child)
        out.seek(0)
        err.seek(0)
        if check and child.returncode != 0:
            reason = err.read().decode("utf-8", "replace").strip()[-800:]
            raise RuntimeError(f"{command[0]} ended with {child.returncode}: {reason}")
        return out.read().decode("utf-8", "replace")


def end(child, grace_s=3.0):
    """Ends a child with all processes of its session. Does nothing if the child has ended already."""
    if child.poll() is None:
        for sig, wait_s in ((signal.SIGCONT, 0), (signal.SIGTERM, grace_s), (signal.SIGKILL, 10)):
            try:
                os.killpg(child.pid, sig)
            except ProcessLookupError:
                pass
            if wait_s:
                try:
                    child.wait(wait_s)
                    break
                except subprocess.TimeoutExpired:
                    continue
    if child in _children:
        _children.remove(child)


def end_by_environment(entry):
    """Ends every process with this entry ("NAME=value") in its environment.

    Wine starts processes in their own sessions. The private prefix in their environment identifies them.
    """
    wanted = entry.encode()
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if wanted in (folder / "environ").read_bytes().split(b"\0") and int(folder.name) != os.getpid():
                os.kill(int(folder.name), signal.SIGKILL)
        except OSError:
            continue


def end_all():
    """Ends all children, starting with the newest."""
    for child in reversed(list(_children)):
        end(child)


def _on_signal(number, _frame):
    sys.exit(128 + number)


def install_handlers():
    """Makes SIGINT, SIGTERM and SIGHUP end the run through sys.exit, so that clean-up runs."""
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _on_signal)


atexit.register(end_all)
at_end = atexit.register  # functions registered here run before end_all, which was registered first
