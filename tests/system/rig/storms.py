"""Shared by the storm tests: default devices that keep changing, and the checks at the end."""

import signal
import subprocess
import time

from . import paths, processes
from .wine_prefix import PULSE_KEY

REST_S = 3.5  # long enough to open all devices


class FlappingDefaults:
    """In a "with" block, keeps switching the default speaker between two speakers, and the default microphone between two
    microphones. Each change starts a program, which limits them to some tens a second."""

    def __init__(self, session, speakers=("spkA", "spkB"), microphones=("Monitor of micA", "micB")):
        self._session = session
        render, capture = session.endpoints(), session.endpoints("capture")
        turns = [("DefaultOutput", render[name]) for name in speakers]
        turns += [("DefaultInput", capture[name]) for name in microphones]
        self._turns = turns[0::2] + turns[1::2]  # both first endpoints, then both second endpoints

    def __enter__(self):
        script = self._session.folder / "flapping.bat"
        changes = [f"reg add {PULSE_KEY} /v {value} /t REG_SZ /d {endpoint} /f" for value, endpoint in self._turns]
        script.write_text("\r\n".join(["@echo off", ":again", *changes, "goto again", ""]))
        self._out = open(self._session.folder / "flapping.out", "wb")
        self._process = processes.start(["wine", "cmd", "/c", paths.to_windows(script)], stdout=self._out,
                                        stderr=self._out, env=self._session.prefix.environment)
        return self

    def __exit__(self, *_):
        processes.end(self._process)
        self._out.close()

    def change_until_end(self, host, seconds, longest_s):
        """Until the host ends, at most `longest_s`, alternates `seconds` of changes with a rest, in which the module can open
        devices."""
        end = time.monotonic() + longest_s
        while host.running and time.monotonic() < end:
            try:
                host.process.wait(seconds)
            except subprocess.TimeoutExpired:
                self._process.send_signal(signal.SIGSTOP)
                time.sleep(REST_S)
                self._process.send_signal(signal.SIGCONT)

    @property
    def changes(self):
        return (self._session.folder / "flapping.out").read_bytes().count(b"successfully")


def check_calls(test, host, timeout_s=90):
    """The process ends with exit code 0, and each call returned a documented result."""
    test.assert_good_end(host, timeout_s)
    summary = host.summary
    print("  " + ", ".join(f"{slot} {sum(results.values())}" for slot, results in summary["calls"].items())
          + f"; {summary['packets']} packets", flush=True)
    test.assertEqual(summary["notAsDocumented"], 0, summary["calls"])
    test.assertGreater(summary["packets"], 0)
    for slot in ("WriteStreamBuffer", "SetAudioParameter", "CloseAudioTrack", "GetAudioCapability", "OpenAudioRecord",
                 "ReadStreamBuffer", "CloseAudioRecord", "RegisterListener"):
        test.assertGreater(sum(summary["calls"][slot].values()), 3, slot)
    # One write in five has a wrong id length or no header and gets -2000, unless another thread is opening the devices.
    writes = summary["calls"]["WriteStreamBuffer"]
    test.assertGreater(writes.get("-2000", 0), sum(writes.values()) / 10, writes)
