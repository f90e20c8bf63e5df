#!/usr/bin/python3
"""A call through the DLL in a private audio server: speech is played, other speech is said into the
microphone at the same time, and both are shown to have come out.

Called by scripts/demo when everything is built. Leaves its results in build/demo.
"""

import json
import os
import shutil
import sys
from dataclasses import dataclass

import numpy

from rig import compare, media, paths, picture, processes, session, waiting
from rig.recorder import write_wav
from rig.velto_host import WINE_FAILED

RATE = 48000
LEAD_S = 0.5    # of silence kept before the sound in heard.wav
MARGIN_S = 6.0  # for which the microphone is recorded longer than somebody speaks into it


def say(text):
    print(f"demo: {text}", flush=True)


@dataclass
class Direction:
    """One way of the call: what went in, what came out, and how well they agree."""

    reference: numpy.ndarray
    heard: numpy.ndarray
    result: compare.Comparison

    def report(self, **more):
        verdict = self.result.verdict()
        return {
            "verdict": verdict or "heard as it was sent",
            "passed": not verdict,
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
        """The part of what came out that answers what went in."""
        return compare.cut(self.heard, self.result.offset, len(self.reference))


def call(world, speech, answer):
    """Plays the speech, says the answer into the microphone, and returns (recorder, host) at the end."""
    recorder = world.record()
    world.record("micA")  # keeps the microphone awake, as a real one always is
    seconds = len(answer) / RATE + MARGIN_S
    host = world.host("duplex", "--play", paths.to_windows(speech), "--record", paths.to_windows(recording(world)),
                      "--seconds", f"{seconds:.1f}", "--json")
    world.wait_for_capture()
    world.speak(answer)
    recorder.wait_for_sound(60)
    say(f"sound goes both ways; this takes {seconds:.0f} s")
    code = host.wait(180)
    if code != 0 and not (code == WINE_FAILED and host.summary["exitCode"] == 0):
        raise RuntimeError(f"velto-host ended with {code}: {host.errors().strip()[-600:]}")
    return recorder, host


def recording(world):
    return world.folder / "recorded.m4a"


def measure_speaker(recorder, host, speech):
    """(direction, report) of what was played."""
    reference = media.decode(speech, RATE)
    heard = recorder.samples()
    way = Direction(reference, heard, compare.compare(heard, reference, RATE))
    started, heard_at = host.log.time_of("VeltoWriteStream has received1 frame"), compare.first_sound(way.result)
    delay = None
    if started and heard_at is not None:
        # The sound of the first good window was not due earlier than it lies in the speech.
        delay = round(1000 * (recorder.time_of(heard_at) - way.result.good[0].start_s - started))
    return way, way.report(framesInFile=media.frame_count(speech), framesSent=host.summary["play"]["framesSent"],
                           firstSoundDelayMs=delay)


def measure_microphone(world, host, answer):
    """(direction, report) of what was recorded."""
    heard = media.decode(recording(world), RATE)
    way = Direction(answer, heard, compare.compare(heard, answer, RATE, compare.CODED_MATCH_DB))
    summary = host.summary["record"]
    return way, way.report(packets=summary["packets"], packetsInFile=media.frame_count(recording(world)),
                           bitRate=round(summary["bitRate"]), firstPacketMs=round(summary["firstPacketMs"]))


def keep(folder, world, host, ways, report):
    (speaker, told), (microphone, asked) = ways
    begin = max(0, speaker.result.offset - int(LEAD_S * RATE))
    end = speaker.result.offset + len(speaker.reference) + int(LEAD_S * RATE)
    write_wav(folder / "sent.wav", speaker.reference, RATE)
    write_wav(folder / "heard.wav", speaker.heard[begin:end], RATE)
    write_wav(folder / "said.wav", microphone.reference, RATE)
    shutil.copy2(recording(world), folder / "recorded.m4a")
    shutil.copy2(host.log.path, folder / "module.log")
    (folder / "report.json").write_text(json.dumps(report, indent=2) + "\n")
    picture.draw(folder / "picture.png", RATE, (
        (f"Speaker: match {told['matchDb']} dB, {told['dropOuts']} drop-outs",
         (speaker.reference, f"sent as {told['framesSent']} AAC units"), (speaker.aligned, "heard at the endpoint")),
        (f"Microphone: match {asked['matchDb']} dB, {asked['dropOuts']} drop-outs",
         (microphone.reference, "said into the microphone"), (microphone.aligned, f"recorded in {asked['packets']} AAC units"))))


def print_table(told, asked):
    delay = told["firstSoundDelayMs"]
    rows = (("", "speaker", "microphone"),
            ("AAC units", f"{told['framesSent']} of {told['framesInFile']}", asked["packets"]),
            ("seconds heard", f"{told['secondsHeard']} of {told['secondsSent']}",
             f"{asked['secondsHeard']} of {asked['secondsSent']}"),
            ("match", f"{told['matchDb']} dB", f"{asked['matchDb']} dB"),
            ("drop-outs", told["dropOuts"], asked["dropOuts"]),
            ("first after", "-" if delay is None else f"{delay} ms", f"{asked['firstPacketMs']} ms"))
    print()
    for name, left, right in rows:
        print(f"  {name:<16}{left!s:<18}{right}")
    print(flush=True)


def main():
    processes.install_handlers()
    folder = paths.BUILD / "demo"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    world = None
    try:
        say("making the speech samples")
        speech = media.speech("speech")
        answer = media.decode(media.speech("speech-backwards", backwards=True), RATE)
        say("starting a private audio server and a private Wine prefix")
        world = session.Session("demo", microphones=(session.MICROPHONE_48K,))
        say(f"playing {media.duration(speech):.1f} s of speech through ModemSpeaker1, "
            f"saying {len(answer) / RATE:.1f} s into ModemMic1")
        recorder, host = call(world, speech, answer)
        say("comparing what came out with what went in")
        ways = measure_speaker(recorder, host, speech), measure_microphone(world, host, answer)
        told, asked = (report for _, report in ways)
        report = {"passed": told["passed"] and asked["passed"], "speaker": told, "microphone": asked}
        keep(folder, world, host, ways, report)
    except (RuntimeError, OSError, AssertionError, waiting.TimedOut) as problem:
        print(f"demo: failed: {problem}", file=sys.stderr)
        return 1
    finally:
        if world is not None:
            world.close()
    print_table(told, asked)
    say(f"results: {os.path.relpath(folder)}/ (heard.wav, sent.wav, recorded.m4a, said.wav, picture.png, "
        "module.log, report.json)")
    for name, way in (("speaker", told), ("microphone", asked)):
        if not way["passed"]:
            print(f"demo: failed: {name}: {way['verdict']}", file=sys.stderr)
    if not report["passed"]:
        print("demo: a busy machine damages sound, too: run it again while nothing else runs", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
