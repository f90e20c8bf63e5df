"""Child processes that never outlive the run.

Every child leads its own session, is ended by its process id when the run ends in
whatever way (return, failure, Ctrl-C, SIGTERM), and is told by the kernel to die
should the run itself be killed. Start children from the main thread only: the
kernel watches the starting thread, not the process.
"""

import atexit
import ctypes
import os
import pathlib
import signal
import subprocess
import sys
import tempfile

_PR_SET_PDEATHSIG = 1
_PTRACE_PEEKUSER, _PTRACE_ATTACH, _PTRACE_DETACH = 3, 16, 17
_USER_RIP = 128  # the program counter in struct user
_libc = ctypes.CDLL(None, use_errno=True)
_children = []


def put_sound_first(thread):
    """Real-time priority, as sound has on a real machine; only root may ask for it."""
    try:
        os.sched_setscheduler(thread, os.SCHED_RR, os.sched_param(5))
    except OSError:
        pass


def put_all_threads_first(child):
    """The same for a child that gave its priority up by itself."""
    for thread in os.listdir(f"/proc/{child.pid}/task"):
        put_sound_first(int(thread))


def mapped_file(pid, address):
    """The file that stands at an address of a process, or ""."""
    for line in open(f"/proc/{pid}/maps", encoding="utf-8", errors="replace"):
        begin, end = (int(bound, 16) for bound in line.split(" ", 1)[0].split("-"))
        if begin <= address < end:
            return line.partition("/")[1] + line.partition("/")[2].strip()
    return ""


def code_file(child):
    """The file whose code a running child's main thread is in, or "". Stops it for a moment."""
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
    """Starts command as a child that cannot outlive the run.

    with_sound: the child plays or carries sound and must not starve on a busy machine.
    death_signal: what the kernel sends it should the run be killed.
    """
    with_sound, death_signal = options.pop("with_sound", False), options.pop("death_signal", signal.SIGKILL)

    def prepare():
        _libc.prctl(_PR_SET_PDEATHSIG, death_signal)
        if with_sound:
            put_sound_first(0)

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
    """Runs a short command to its end and returns its output as text.

    The output goes through files: what Wine starts in passing inherits it, and would
    keep a pipe open long after the command has ended.
    """
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        child = start(command, stdout=out, stderr=err, **options)
        try:
            child.wait(timeout_s)
        finally:
            end(child)
        out.seek(0)
        err.seek(0)
        if check and child.returncode != 0:
            reason = err.read().decode("utf-8", "replace").strip()[-800:]
            raise RuntimeError(f"{command[0]} ended with {child.returncode}: {reason}")
        return out.read().decode("utf-8", "replace")


def end(child, grace_s=3.0):
    """Ends a child and what it started in its session; harmless when it has ended already."""
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
    """Ends every process that carries this entry ("NAME=value") in its environment.

    For what Wine starts in sessions of its own, told apart by the run's private prefix.
    """
    wanted = entry.encode()
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if wanted in (folder / "environ").read_bytes().split(b"\0") and int(folder.name) != os.getpid():
                os.kill(int(folder.name), signal.SIGKILL)
        except OSError:
            continue


def end_all():
    """Ends what is left, youngest first."""
    for child in reversed(list(_children)):
        end(child)


def _on_signal(number, _frame):
    sys.exit(128 + number)


def install_handlers():
    """Turns the usual ending signals into an ordinary exit, so that clean-up runs."""
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _on_signal)


atexit.register(end_all)
at_end = atexit.register  # called before the children are ended
