#!/usr/bin/python3
"""A call through the DLL on a private audio server: speech is played, while other speech is spoken into the
microphone. The output of both directions is compared with the input.

scripts/demo runs this file after it has built everything. The results are in build/demo.
"""

import json
import os
import shutil
import sys
import time
from dataclasses import dataclass

import numpy

from rig import compare, damage, media, paths, picture, processes, repeats, session, waiting
from rig.module_log import FIRST_FRAME
from rig.recorder import write_wav
from rig.stall_monitor import StallMonitor

RATE = 48000
SILENCE_S = 0.5  # before and after the speech in heard.wav
TAIL_S = 0.5     # of the recording after the last word, for the microphone's buffers
LONGEST_CALL_S = 120


def say(text):
    print(f"demo: {text}", flush=True)


@dataclass
class Direction:
    """One direction of the call: input, output, and how well they match."""

    reference: numpy.ndarray
    heard: numpy.ndarray
    result: compare.Comparison
    read_time: callable  # the wall time at which a frame of `heard` was heard or read

    def check(self, stalls):
        """Returns (whether the sound passes, verdict). Raises damage.SoundDamaged if stalls of the machine damaged it."""
        wrong = self.result.wrong_as_a_whole()
        if wrong:
            return False, wrong
        try:
            note = damage.check(damage.places_in(self.result, self.read_time), stalls)
        except damage.DamagedWithoutStall as reason:
            return False, str(reason)
        return True, note or "intact"

    def report(self, stalls, **more):
        passed, verdict = self.check(stalls)
        return {
            "verdict": verdict,
            "passed": passed,
            **more,
            "secondsSent": round(len(self.reference) / RATE, 2),
            "secondsHeard": round(self.result.heard_s, 2),
            "matchDb": round(self.result.match_db, 1),
            "dropOuts": self.result.dropouts,
            "damagedWindows": len(self.result.damaged),
            "windows": len(self.result.windows),
            "volume": round(self.result.gain, 3),
        }

    @property
    def aligned(self):
        """The part of the output that corresponds to the input."""
        return compare.cut(self.heard, self.result.offset, len(self.reference))


def call(world, speech, answer):
    """Plays the speech and speaks the answer into the microphone. Returns (recorder, host) after the host has ended."""
    recorder = world.record()
    world.record("micA")  # keeps the microphone in use, because an idle one starts slowly
    host = world.host("duplex", "--play", paths.to_windows(speech), "--record", paths.to_windows(recording(world)),
                      "--seconds", str(LONGEST_CALL_S), "--packet-times", "--json")
    world.wait_for_capture()
    voice = world.speak(answer)
    recorder.wait_for_sound(60)
    say(f"both directions have sound; the call takes {voice.seconds:.0f} s")
    voice.wait()
    time.sleep(TAIL_S)
    host.interrupt()
    end = host.end(session.INTERRUPTED, 60)
    if not (end.is_good or end.is_wines):
        raise RuntimeError(f"{end.describe()}\n{host.errors().strip()[-600:]}")
    return recorder, host


def recording(world):
    return world.folder / "recorded.m4a"


def measure_speaker(recorder, host, speech, stalls):
    """Returns (direction, report) of the speaker."""
    reference = media.decode(speech, RATE)
    heard = recorder.samples()
    speaker = Direction(reference, heard, compare.compare(heard, reference, RATE), recorder.time_of)
    started, heard_at = host.log.time_of(FIRST_FRAME), compare.first_sound(speaker.result)
    delay = None
    if started and heard_at is not None:
        # If the first windows are damaged, the first good one begins later in the speech.
        delay = round(1000 * (recorder.time_of(heard_at) - speaker.result.good[0].start_s - started))
    return speaker, speaker.report(stalls, unitsInFile=media.unit_count(speech),
                                   unitsSent=host.summary["play"]["unitsSent"], firstSoundDelayMs=delay)


def measure_microphone(world, host, answer, stalls):
    """Returns (direction, report) of the microphone."""
    heard = media.decode(recording(world), RATE)
    summary = host.summary["record"]
    microphone = Direction(answer, heard, compare.compare(heard, answer, RATE, compare.CODED_MATCH_DB),
                           session.read_times(summary))
    return microphone, microphone.report(
        stalls, packets=summary["packets"], packetsInFile=media.unit_count(recording(world)),
        bitRate=round(summary["bitRate"]), firstPacketMs=round(summary["firstPacketMs"]))


def save(folder, world, host, speaker, microphone, report):
    """Writes the sounds, the module's log, the report and the picture into the folder."""
    begin = max(0, speaker.result.offset - int(SILENCE_S * RATE))
    end = speaker.result.offset + len(speaker.reference) + int(SILENCE_S * RATE)
    write_wav(folder / "sent.wav", speaker.reference, RATE)
    write_wav(folder / "heard.wav", speaker.heard[begin:end], RATE)
    write_wav(folder / "said.wav", microphone.reference, RATE)
    shutil.copy2(recording(world), folder / "recorded.m4a")
    shutil.copy2(host.log.path, folder / "module.log")
    (folder / "report.json").write_text(json.dumps(report, indent=2) + "\n")
    played, recorded = report["speaker"], report["microphone"]
    picture.draw(folder / "picture.png", RATE, (
        (f"Speaker: match {played['matchDb']} dB, {played['dropOuts']} drop-outs",
         (speaker.reference, f"sent as {played['unitsSent']} AAC units"), (speaker.aligned, "heard at the endpoint")),
        (f"Microphone: match {recorded['matchDb']} dB, {recorded['dropOuts']} drop-outs",
         (microphone.reference, "spoken into the microphone"),
         (microphone.aligned, f"recorded in {recorded['packets']} AAC units"))))


def print_table(speaker, microphone):
    """Prints the reports of both directions next to each other."""
    delay = speaker["firstSoundDelayMs"]
    rows = (("", "speaker", "microphone"),
            ("AAC units", f"{speaker['unitsSent']} of {speaker['unitsInFile']}", microphone["packets"]),
            ("seconds heard", f"{speaker['secondsHeard']} of {speaker['secondsSent']}",
             f"{microphone['secondsHeard']} of {microphone['secondsSent']}"),
            ("match", f"{speaker['matchDb']} dB", f"{microphone['matchDb']} dB"),
            ("drop-outs", speaker["dropOuts"], microphone["dropOuts"]),
            ("start delay", "-" if delay is None else f"{delay} ms", f"{microphone['firstPacketMs']} ms"))
    print()
    for name, left, right in rows:
        print(f"  {name:<16}{left!s:<18}{right}")
    print(flush=True)


def run(folder, speech, answer):
    """Makes the call, compares both directions, and saves the results. Returns the report."""
    say("starting a private audio server and a private Wine prefix")
    world = session.Session("demo", microphones=(session.MICROPHONE_48K,))
    monitor = None
    try:
        monitor = StallMonitor(world.folder)
        say(f"playing {media.unit_count(speech) * media.UNIT / RATE:.1f} s of speech through ModemSpeaker1, "
            f"speaking {len(answer) / RATE:.1f} s into ModemMic1")
        recorder, host = call(world, speech, answer)
        say("comparing the output with the input")
        stalls = monitor.stalls() + world.waits()
        speaker, speaker_report = measure_speaker(recorder, host, speech, stalls)
        microphone, microphone_report = measure_microphone(world, host, answer, stalls)
        report = {"passed": speaker_report["passed"] and microphone_report["passed"],
                  "speaker": speaker_report, "microphone": microphone_report}
        save(folder, world, host, speaker, microphone, report)
        return report
    finally:
        if monitor:
            monitor.stop()
        world.close()


def run_again_after_stall(folder, speech, answer):
    """Repeats the call once if stalls of the machine damaged it."""
    try:
        return run(folder, speech, answer)
    except damage.SoundDamaged as reason:
        say(f"{reason}; repeating the call once, when the host of this machine steals no time, in 3 minutes at the latest")
    repeats.wait_for_idle_host()
    return run(folder, speech, answer)


def main():
    processes.install_handlers()
    folder = paths.BUILD / "demo"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    try:
        say("making the speech samples")
        speech = media.speech("speech")
        answer = media.decode(media.speech("speech-backwards", backwards=True), RATE)
        report = run_again_after_stall(folder, speech, answer)
    except (RuntimeError, OSError, AssertionError, waiting.TimedOut) as problem:
        print(f"demo: failed: {problem}", file=sys.stderr)
        return 1
    print_table(report["speaker"], report["microphone"])
    say(f"results: {os.path.relpath(folder)}/ (heard.wav, sent.wav, recorded.m4a, said.wav, picture.png, "
        "module.log, report.json)")
    for name in ("speaker", "microphone"):
        verdict = report[name]["verdict"]
        if not report[name]["passed"]:
            print(f"demo: failed: {name}: {verdict}", file=sys.stderr)
        elif verdict != "intact":
            say(f"{name}: {verdict}")
    return 0 if report["passed"] else 1


if __name__ == "__main__":
    sys.exit(main())
