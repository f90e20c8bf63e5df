"""What storms have in common: default devices that never rest, and what must be true at the end."""

import signal
import time

from . import paths, processes

_KEY = r"HKCU\Software\Wine\Drivers\winepulse.drv"


class FlappingDefaults:
    """Makes two speakers, and two microphones, the default in turn, as fast as programs can be started:
    about ten changes a second. Used with "with"."""

    def __init__(self, session, speakers=("spkA", "spkB"), microphones=("Monitor of micA", "micB")):
        self._session = session
        render, capture = session.endpoints(), session.endpoints("capture")
        turns = [("DefaultOutput", render[name]) for name in speakers]
        turns += [("DefaultInput", capture[name]) for name in microphones]
        self._turns = turns[0::2] + turns[1::2]  # the first of each, then the second of each

    def __enter__(self):
        script = self._session.folder / "flapping.bat"
        changes = [f"reg add {_KEY} /v {value} /t REG_SZ /d {endpoint} /f" for value, endpoint in self._turns]
        script.write_text("\r\n".join(["@echo off", ":again", *changes, "goto again", ""]))
        self._out = open(self._session.folder / "flapping.out", "wb")
        self._process = processes.start(["wine", "cmd", "/c", paths.to_windows(script)], stdout=self._out,
                                        stderr=self._out, env=self._session.prefix.environment)
        return self

    def __exit__(self, *_):
        processes.end(self._process)
        self._out.close()

    def rest(self, seconds):
        """Changes nothing for a while, so that devices can be opened to the end."""
        self._process.send_signal(signal.SIGSTOP)
        time.sleep(seconds)
        self._process.send_signal(signal.SIGCONT)

    @property
    def changes(self):
        return (self._session.folder / "flapping.out").read_bytes().count(b"successfully")


def check_calls(test, host, code):
    """Each call returned what is documented, and the process came to its own end."""
    test.assertEqual(code, 0, host.output()[-1500:] + host.errors()[-1500:])
    summary = host.summary
    print("  " + ", ".join(f"{slot} {sum(results.values())}" for slot, results in summary["calls"].items())
          + f"; {summary['packets']} packets", flush=True)
    test.assertEqual(summary["notAsDocumented"], 0, summary["calls"])
    test.assertGreater(summary["packets"], 0)
    for slot in ("WriteStreamBuffer", "SetAudioParameter", "CloseAudioTrack", "GetAudioCapability", "OpenAudioRecord",
                 "ReadStreamBuffer", "CloseAudioRecord", "RegisterListener"):
        test.assertGreater(sum(summary["calls"][slot].values()), 3, slot)
    # Of the writes one in 16 has a wrong id; few of them find the module busy opening its devices.
    writes = summary["calls"]["WriteStreamBuffer"]
    test.assertGreater(writes.get("-2000", 0), sum(writes.values()) / 32, writes)
