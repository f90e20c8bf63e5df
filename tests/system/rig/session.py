"""One test's world: its own server, prefix and folder, and the test case that stands in it."""

import functools
import os
import pathlib
import shutil
import signal
import sys
import time
import unittest

import numpy

from . import compare, media, paths, processes, waiting
from .audio_server import PrivateAudioServer
from .recorder import Recorder, write_wav
from .velto_host import WINE_FAILED, VeltoHost
from .voice import Voice
from .wine_prefix import WinePrefix
from .witness import Witness

STEREO_48K = ("spkA", 48000, 2)
MICROPHONE_48K = ("micA", 48000, 2)
RECORDING_RATE = 48000


class Session:
    """Set up in the order server, prefix; taken down in reverse, whatever happened."""

    def __init__(self, name, sinks=(STEREO_48K,), with_server=True, microphones=()):
        self.folder = paths.RESULTS / name
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        self.server = PrivateAudioServer(self.folder, sinks, microphones)
        self.prefix = WinePrefix(self.folder, self.server.environment)
        self.recorders, self.hosts, self.voices = [], [], []
        try:
            if with_server:
                self.server.start()
            self.prefix.start()
        except BaseException:
            self.close()
            raise

    def record(self, sink="spkA", rate=48000, channels=2):
        recorder = Recorder(self.server, sink, rate, channels)
        self.recorders.append(recorder)
        return recorder

    def host(self, *arguments, name="host", program=None):
        host = VeltoHost(self.prefix, self.folder, arguments, name, program)
        self.hosts.append(host)
        return host

    def test_host(self, command, *arguments, name="host"):
        """Runs velto-test-host, which makes calls that no correct host makes."""
        return self.host(command, "--module", paths.to_windows(paths.MODULE), *arguments, name=name,
                         program=paths.TEST_HOST)

    def play(self, path, *arguments, name="host"):
        return self.host("play", paths.to_windows(path), "--json", *arguments, name=name)

    def speak(self, samples, rate=48000, microphone="micA"):
        """Says something into a microphone."""
        voice = Voice(self.server, self.folder, microphone, samples, rate)
        self.voices.append(voice)
        return voice

    def record_microphone(self, *arguments, name="host", container="m4a"):
        """Records through the module; the file is host.recording."""
        recording = self.folder / f"{name}.{container}"
        host = self.host("record", paths.to_windows(recording), "--json", *arguments, name=name)
        host.recording = recording
        return host

    def wait_for_capture(self, source="micA.monitor", timeout_s=60):
        """Waits until the module listens to a source, and to that one only."""
        waiting.until(lambda: [each for _, each in self.server.captures()] == [source],
                      f"a stream from {source}", timeout_s)

    def endpoints(self, flow="render"):
        """{name: id} of the endpoints as Windows sees them."""
        host = self.host("devices", "--json", name="devices")
        assert host.wait(60) == 0, host.errors()
        listed = host.records()[-1]
        listed = listed.get("endpoints", listed.get("devices", [])) if isinstance(listed, dict) else listed
        return {e["name"]: e["id"] for e in listed if e.get("flow", "render") == flow}

    def close(self):
        for child in self.hosts + self.voices:
            child.stop()
        for number, recorder in enumerate(self.recorders):
            samples = recorder.stop()
            if len(samples):
                write_wav(self.folder / f"heard-{number}-{recorder.sink}.wav", samples, recorder.rate)
        self.prefix.stop()
        self.server.stop()


class SoundDamaged(AssertionError):
    """The sound is not what it should be: the module's fault, or that of a machine too busy for sound."""


class SystemTest(unittest.TestCase):
    """A test with a session of its own. SINKS, MICROPHONES and WITH_SERVER say what is
    there at its start.

    Damaged sound is taken again in a new session, up to TAKES times, when the machine stood still
    meanwhile: no module could have kept it whole. Any other failure counts at once."""

    SINKS = (STEREO_48K,)
    MICROPHONES = ()
    WITH_SERVER = True
    TAKES = 4

    def __init__(self, name="runTest"):
        super().__init__(name)
        setattr(self, name, functools.partial(self._take, getattr(self, name)))

    def _take(self, test):
        for take in range(1, self.TAKES + 1):
            try:
                return test()
            except SoundDamaged as damage:
                stall_s = self.witness.longest_stall_s()
                if take == self.TAKES or not stall_s:
                    raise
                print(f"  take {take} of {self.TAKES}: {damage}; the machine stood still for {stall_s:.2f} s, "
                      "taken again", flush=True)
            self.doCleanups()
            self.setUp()

    def setUp(self):
        if not paths.HOST.exists() or not paths.MODULE.exists():
            self.fail(f"{paths.WINDOWS_BIN} lacks velto-host.exe or the DLL; run scripts/build windows")
        name = f"{type(self).__module__.removeprefix('__main__')}{type(self).__name__}.{self._testMethodName}"
        self.session = Session(name.lstrip("."), self.SINKS, self.WITH_SERVER, self.MICROPHONES)
        self.addCleanup(self.session.close)
        self.witness = Witness(self.session.folder)
        self.addCleanup(self.witness.stop)

    def assert_sound(self, is_right, reason):
        """For what only the sound can tell."""
        if not is_right:
            raise SoundDamaged(reason)

    def assert_whole(self, result, **tolerance):
        verdict = result.verdict(**tolerance)
        self.assert_sound(not verdict, verdict)

    def assert_most_is_good(self, windows, least, label="heard"):
        """A part of a recording holds at least so many good windows, and hardly any damaged ones."""
        good, damaged = (sum(w.state == state for w in windows) for state in (compare.GOOD, compare.DAMAGED))
        self.assert_sound(good > least and damaged <= compare.TOLERATED_WINDOWS,
                          f"{label}: {good} windows are good, {damaged} are damaged")

    def assert_heard(self, recorder, path, channels=slice(None)):
        """The recording holds the whole of what was sent."""
        reference = media.decode(path, recorder.rate)
        heard = recorder.samples()[:, :2]
        result = compare.compare(heard[:, channels], reference[:, channels], recorder.rate)
        self.report(recorder.sink, result)
        self.assert_whole(result)
        return result

    def end_recording(self, host, settle_s=2.5):
        """Lets what is still on its way arrive, and ends the recording with Ctrl-C."""
        time.sleep(settle_s)
        host.interrupt()
        code = host.wait(60)
        self.assertIn(code, (130, WINE_FAILED), host.output()[-1500:] + host.errors()[-1500:])
        self.assertEqual(host.summary["exitCode"], 130)
        self.assertEqual(host.summary["nonzeroResults"], 0)

    def assert_recorded(self, recording, spoken, rate=48000, **tolerance):
        """The file holds the whole of what was said into the microphone."""
        result = self.compare_recorded(recording, spoken, rate)
        self.assert_whole(result, **tolerance)
        return result

    def compare_recorded(self, recording, spoken, rate=48000, search_s=compare.WIDE_SEARCH_S):
        heard = media.decode(recording, RECORDING_RATE)
        reference = media.resample(spoken, rate, RECORDING_RATE)
        if reference.shape[1] == 1:
            reference = numpy.repeat(reference, 2, axis=1)
        result = compare.compare(heard, reference, RECORDING_RATE, compare.CODED_MATCH_DB, search_s)
        self.report(pathlib.Path(recording).name, result)
        return result

    def report(self, label, result):
        print(f"  {label}: {result.heard_s:.1f} s heard, match {result.match_db:.1f} dB, "
              f"{len(result.damaged)} damaged of {len(result.windows)} windows, "
              f"{result.dropouts} drop-outs, {result.slips} slips", flush=True)

    def assert_ended_well(self, host, timeout_s=90, last_words='"exitCode": 0'):
        """Exit code 0. Where Wine took the end of the process away, the host's last words count:
        it prints them when all it has left to do is to return."""
        code = host.wait(timeout_s)
        if code == WINE_FAILED and last_words in host.output().strip()[-80:]:
            print("  (Wine crashed or got stuck in the end of the process, after the host was done)", flush=True)
            return
        self.assertEqual(code, 0, host.output()[-1500:] + host.errors()[-1500:])

    def assert_exit_code(self, code, run, attempts=4):
        """The first run whose end Wine did not take away must have the host's own exit code.
        run(NAME, WHETHER_FIRST) starts one and returns its host."""
        for attempt in range(attempts):
            host = run(f"host-{attempt}", attempt == 0)
            ended = host.wait(60)
            if ended != WINE_FAILED:
                break
            print("  (Wine crashed or got stuck in the end of the process; once more)", flush=True)
        self.assertEqual(ended, code)
        return host

    def until(self, condition, what, timeout_s=30.0):
        return waiting.until(condition, what, timeout_s)


def main():
    """Runs the tests of the calling file. Everything that was started ends with it."""
    processes.install_handlers()
    for variable in ("PULSE_SERVER", "PULSE_SINK", "PULSE_RUNTIME_PATH"):
        os.environ.pop(variable, None)
    signal.siginterrupt(signal.SIGTERM, True)
    sys.stdout.reconfigure(line_buffering=True)
    unittest.main(module="__main__", verbosity=2, failfast=False, catchbreak=False)
