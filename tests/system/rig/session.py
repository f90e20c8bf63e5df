"""Session: the sound server, Wine prefix and folder of one test. SystemTest: the test case that uses a session."""

import functools
import json
import os
import pathlib
import shutil
import signal
import sys
import time
import unittest

import numpy

from . import compare, damage, media, paths, processes, repeats, waiting
from .audio_server import PrivateAudioServer
from .recorder import Recorder, write_wav
from .stall_monitor import StallMonitor
from .velto_host import Activity, VeltoHost
from .voice import Voice
from .wine_prefix import WinePrefix

STEREO_48K = ("spkA", 48000, 2)
MICROPHONE_48K = ("micA", 48000, 2)
RECORDING_RATE = 48000
INTERRUPTED = 130        # exit code of velto-host after Ctrl-C
NOT_MEASURED = 77        # exit code of a test program if the machine spoiled recordings, and all else passed
MAX_CPU = 0.5            # of one processor
START_CPU_S = 2.0        # processor time to start and end a host
MOST_LIFE_S = 60         # of a process that plays or records for a few seconds
PIECE = 3                # windows: the longest piece of sound in a gap


class Session:
    """A sound server and a Wine prefix. close() ends both, and every host, recorder and voice that the session started."""

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

    def waits(self):
        """The times so far in which a thread of a host waited for a processor, as stalls."""
        return [wait for host in self.hosts for wait in host.waits]

    def play(self, path, *arguments, name="host"):
        return self.host("play", paths.to_windows(path), "--json", *arguments, name=name)

    def speak(self, samples, rate=48000, microphone="micA"):
        """Starts to play samples into a microphone."""
        voice = Voice(self.server, self.folder, microphone, samples, rate)
        self.voices.append(voice)
        return voice

    def record_microphone(self, *arguments, name="host", container="m4a"):
        """Starts a host that records through the module into the file host.recording."""
        recording = self.folder / f"{name}.{container}"
        host = self.host("record", paths.to_windows(recording), "--json", "--packet-times", *arguments, name=name)
        host.recording = recording
        return host

    def wait_for_capture(self, source="micA.monitor", timeout_s=60):
        """Waits until the module records this source and no other one."""
        waiting.until(lambda: [each for _, each in self.server.captures()] == [source],
                      f"a stream from {source}", timeout_s)

    def wait_for_end_of_streams(self):
        """Waits until the module neither plays nor records."""
        waiting.until(lambda: not self.server.streams() + self.server.captures(), "the end of all streams")

    def endpoints(self, flow="render"):
        """Returns {name: id} of the endpoints that Windows programs see."""
        host = self.host("devices", "--json", name="devices")
        assert host.wait(60) == 0, host.errors()
        listed = host.records()[-1]
        listed = listed.get("endpoints", listed.get("devices", [])) if isinstance(listed, dict) else listed
        return {e["name"]: e["id"] for e in listed if e.get("flow", "render") == flow}

    def default_endpoint(self, flow="render"):
        """Returns (name, id) of the endpoint for the server's default device: "PulseAudio", in newer Wine with a second word."""
        return next((name, id_) for name, id_ in self.endpoints(flow).items() if name.startswith("PulseAudio"))

    def rows_of(self, host):
        """Returns the names of the rows of the troubleshooting table that "velto-host log" finds in a host's log."""
        explained = json.loads(self.prefix.run([paths.HOST, "log", paths.to_windows(host.log.path), "--json"]))
        return {finding["row"] for finding in explained["findings"]}

    def restart_server(self):
        """Starts the sound server again if it was killed."""
        if self.server.process.poll() is not None:
            self.server.start()

    def close(self):
        for child in self.hosts + self.voices:
            child.stop()
        for number, recorder in enumerate(self.recorders):
            samples = recorder.stop()
            if len(samples):
                write_wav(self.folder / f"heard-{number}-{recorder.sink}.wav", samples, recorder.rate)
        self.prefix.stop()
        self.server.stop()


class SystemTest(unittest.TestCase):
    """A test with its own session. SINKS, MICROPHONES and WITH_SERVER set what exists at its start. HEARS_CHECKS: the processes
    that velto-host starts for its checks play, and are heard.

    If the machine spoils a recording by stalls, the test repeats in a new session when the machine is calm again, with up to
    ATTEMPTS attempts in total and within the limit of the whole run: no module can play through a stall. If the last recording
    is spoiled, too, the test is skipped: its sound was not measured. Any other failure fails the test at once."""

    SINKS = (STEREO_48K,)
    MICROPHONES = ()
    WITH_SERVER = True
    HEARS_CHECKS = False
    ATTEMPTS = 3

    def __init__(self, name="runTest"):
        super().__init__(name)
        setattr(self, name, functools.partial(self._run_with_repeats, getattr(self, name)))

    def _run_with_repeats(self, test):
        for attempt in range(1, self.ATTEMPTS + 1):
            try:
                return test()
            except damage.SoundDamaged as reason:
                if attempt == self.ATTEMPTS or not repeats.may_repeat(f"{self.id()}: {reason}"):
                    repeats.note_unmeasured(f"{self.id()}: {reason}")
                    self.skipTest(f"not measured: {reason}")
                print(f"  attempt {attempt} of {self.ATTEMPTS}: {reason}; repeating", flush=True)
            repeats.wait_for_calm(self.stalls)
            self.doCleanups()
            self.setUp()

    def setUp(self):
        if not paths.HOST.exists() or not paths.MODULE.exists():
            self.fail(f"velto-host.exe or the DLL is missing in {paths.WINDOWS_BIN}: run scripts/build windows")
        repeats.wait_for_idle_host()
        name = f"{type(self).__module__.removeprefix('__main__')}{type(self).__name__}.{self._testMethodName}"
        self.session = Session(name.lstrip("."), self.SINKS, self.WITH_SERVER, self.MICROPHONES)
        # These two run after the next one, which ends all hosts.
        self.addCleanup(self.assert_outputs_match_schemas)
        self.addCleanup(self.assert_no_module_faults)
        self.addCleanup(self.session.close)
        self.stall_monitor = StallMonitor(self.session.folder, self.session.prefix.root if self.HEARS_CHECKS else None)
        self.addCleanup(self.stall_monitor.stop)

    def assert_outputs_match_schemas(self):
        """The JSON outputs of velto-host have the documented form."""
        from . import schemas  # the demo runs without a validator
        for host in self.session.hosts:
            for output in host.outputs():
                schemas.check(output)

    def assert_intact(self, result, time_of, windows=None, minutes=1):
        """The compared sound is intact but for what damage.check accepts. time_of(frame): the wall time at which
        a frame of the recording was heard or read. windows: compares only these."""
        places = damage.places_in(result, time_of, windows)
        damage.refuse_spoiled(places, self.stalls(), damage.ACCEPTED_PER_MINUTE * minutes)
        self.assertEqual(result.wrong_as_a_whole(), "")
        self.assert_undamaged(places, minutes)

    def assert_gap_at_most(self, seconds, most_s, bounds):
        """Of the sound in a gap between two wall times, `seconds` are missing or damaged: at most `most_s`. If stalls in the gap
        explain the excess, the machine has spoiled the recording."""
        if seconds > most_s:
            damage.refuse_longer_gap(*bounds, seconds - most_s, self.stalls())
        self.assertLessEqual(seconds, most_s, "seconds of missing or damaged sound")

    def stalls(self):
        """The stalls of the machine so far, and the times in which it was too busy for a host."""
        return self.stall_monitor.stalls() + self.session.waits()

    def assert_undamaged(self, places, minutes=1):
        """There are no damaged places but those that damage.check accepts."""
        note = damage.check(places, self.stalls(), damage.ACCEPTED_PER_MINUTE * minutes)
        if note:
            repeats.note_accepted(f"{self.id()}: {note}")
            print(f"  (accepted: {note})", flush=True)

    def assert_heard(self, recorder, path, channels=slice(None)):
        """The recording contains all of the sound in the file at path."""
        reference = media.decode(path, recorder.rate)
        heard = recorder.samples()[:, :2]
        result = compare.compare(heard[:, channels], reference[:, channels], recorder.rate)
        self.report(recorder.sink, result)
        self.assert_intact(result, recorder.time_of)
        return result

    def assert_plays_completely(self, path, *arguments, rate=48000, channels=2):
        """Plays a file to its end. The endpoint must play all of its sound. Returns the host."""
        recorder = self.session.record(rate=rate, channels=channels)
        host = self.session.play(path, *arguments)
        self.assert_ended_well(host)
        self.assert_heard(recorder, path)
        return host

    def end_recording(self, host, settle_s=2.5):
        """Waits until the last sound has reached the recording, and ends it with Ctrl-C."""
        time.sleep(settle_s)
        host.interrupt()
        self.assert_ended_well(host, 60, code=INTERRUPTED)
        self.assertEqual(host.summary["nonzeroResults"], 0)

    def assert_recorded(self, host, spoken, rate=48000):
        """The host's recording contains all of the sound that was spoken into the microphone."""
        result = self.compare_recorded(host.recording, spoken, rate)
        self.assert_intact(result, read_times(host.summary))
        return result

    def compare_recorded(self, recording, spoken, rate=48000, search_s=compare.WIDE_SEARCH_S):
        heard = media.decode(recording, RECORDING_RATE)
        reference = media.resample(spoken, rate, RECORDING_RATE)
        if reference.shape[1] == 1:
            reference = numpy.repeat(reference, 2, axis=1)
        result = compare.compare(heard, reference, RECORDING_RATE, compare.CODED_MATCH_DB, search_s)
        self.report(pathlib.Path(recording).name, result)
        return result

    def assert_intact_around_gap(self, result, time_of, since, least=13):
        """The recording is intact but for one gap, and has at least `least` good windows on each side of it. The gap is the longest
        one that ends after the wall time `since`; pieces of sound of up to PIECE windows in it belong to it. Returns (the last good
        window before the gap, the first one after it, the windows between them)."""
        self.assertEqual(result.wrong_as_a_whole(), "")
        good = result.good
        holes = [number for number in range(1, len(good)) if self._is_hole(result, good[number - 1], good[number])]
        ending = [number for number in holes if time_of(result.bounds(good[number])[0]) > since]
        self.assertTrue(ending, "there is no gap")
        first = end = max(ending, key=lambda number: good[number].start_s - good[number - 1].start_s)
        for number in holes:  # from front to back
            end = number if end < number <= end + PIECE else end
        for number in reversed(holes):
            first = number if first > number >= first - PIECE else first
        for label, count in (("before", first), ("after", len(good) - end)):
            self.assertGreaterEqual(count, least, f"good windows {label} the gap")
        last, begun = good[first - 1], good[end]
        self.assert_intact(result, time_of, [w for w in result.windows if w.start_s <= last.start_s or w.start_s > begun.start_s])
        return last, begun, [w for w in result.windows if last.start_s < w.start_s < begun.start_s]

    @staticmethod
    def _is_hole(result, last, begun):
        """Whether sound is missing between two good windows that follow each other."""
        return compare.is_slip(begun.offset - last.offset) or any(last.start_s < w.start_s < begun.start_s for w in result.damaged)

    def report(self, label, result):
        print(f"  {label}: {result.heard_s:.1f} s heard, match {result.match_db:.1f} dB, "
              f"{len(result.damaged)} damaged of {len(result.windows)} windows, "
              f"{result.dropouts} drop-outs, {result.slips} slips", flush=True)

    def assert_ended_well(self, host, timeout_s=90, last_words=None, code=0):
        """The process had a good end, and did not use more processor time than one that mostly waits."""
        end = self.assert_good_end(host, timeout_s, last_words, code)
        self.assertLess(end.cpu_s, START_CPU_S + MAX_CPU * end.life_s, "processor time of the host, in s")

    def assert_good_end(self, host, timeout_s=90, last_words=None, code=0):
        """The process ended with the exit code. A process that died otherwise passes only if it did so after its last words,
        and if the cause is known to be Wine's. Returns its Ending."""
        end = host.end(code, timeout_s, last_words)
        self.assertTrue(end.is_traced and end.life_s > 0, f"{host.output_path.stem}: the process was not traced to its end")
        if end.is_wines:
            print(f"  (accepted: {end.describe()})", flush=True)
        elif not end.is_good:
            self.fail(f"{end.describe()}\n{host.last_output()}")
        return end

    def assert_no_module_faults(self):
        """No process crashed in the module's code, including those whose end the test did not examine."""
        for host in self.session.hosts:
            faults = host.module_faults
            self.assertFalse(faults, f"{host.output_path.stem}: the module's code caused signals: {faults}")

    def assert_exit_code(self, code, run, attempts=4):
        """Repeats a scenario until its process ends with the exit code. It is repeated only if the process died after its
        last words and the cause is known to be Wine's. run(name) starts a process and returns its host."""
        for attempt in range(1, attempts + 1):
            host = run(f"host-{attempt}")
            end = host.end(code, MOST_LIFE_S)
            if end.code == code or not end.is_wines:
                break
            print(f"  attempt {attempt} of {attempts}: {end.describe()}", flush=True)
        self.assertTrue(end.is_good or end.code == code and end.is_wines, f"{end.describe()}\n{host.last_output()}")
        self.assertLess(end.life_s, MOST_LIFE_S, "seconds from the start of the process to its end")
        return host

    def measure_after_loss(self, host, seconds=3.0):
        """Returns the log lines per second while the device is lost. Fails if the host busy-waits meanwhile."""
        activity = Activity(host)
        time.sleep(seconds)
        lines, cpu = activity.per_second()
        print(f"  after the loss: {lines:.0f} log lines/s, {100 * cpu:.0f} % of a processor", flush=True)
        self.assertLess(cpu, MAX_CPU)
        return lines

    def until(self, condition, what, timeout_s=30.0):
        return waiting.until(condition, what, timeout_s)


def read_times(summary):
    """Returns a function from a frame of a recording to the wall time at which the host read its packet. summary: the
    host's report of the recording."""
    return times_of_packets(summary["packetTimes"])


def times_of_packets(times):
    """Returns a function from a frame of a recording to the wall time of its packet. Frames beyond the end, where sound is
    missing, follow the last packet."""
    def of(frame):
        late_s = max(frame - len(times) * media.UNIT, 0) / RECORDING_RATE
        return times[min(max(frame // media.UNIT, 0), len(times) - 1)] + late_s
    return of


def main():
    """Runs the tests of the calling file, and exits. All child processes end with it."""
    processes.install_handlers()
    for variable in ("PULSE_SERVER", "PULSE_SINK", "PULSE_RUNTIME_PATH"):
        os.environ.pop(variable, None)
    signal.siginterrupt(signal.SIGTERM, True)
    sys.stdout.reconfigure(line_buffering=True)
    program = unittest.main(module="__main__", verbosity=2, failfast=False, catchbreak=False, exit=False)
    sys.exit(exit_code(program.result))


def exit_code(result):
    """The exit code of a test program: 1 after a failure, else NOT_MEASURED if the machine spoiled a recording, else 0."""
    if not result.wasSuccessful():
        return 1
    return NOT_MEASURED if result.skipped else 0
