#!/usr/bin/python3
"""Plays speech through the DLL into a private audio server, and shows that it came out.

Called by scripts/demo when everything is built. Leaves its results in build/demo.
"""

import json
import os
import shutil
import sys

from rig import compare, media, paths, picture, processes, session, waiting
from rig.recorder import write_wav
from rig.velto_host import WINE_CRASHED

RATE = 48000
LEAD_S = 0.5  # of silence kept before the sound in heard.wav


def say(text):
    print(f"demo: {text}", flush=True)


def play(world, speech):
    """Plays the speech and returns (recorder, host) when the host has ended well."""
    recorder = world.record()
    host = world.play(speech)
    recorder.wait_for_sound(60)
    say("sound is coming out of the endpoint; this takes as long as the speech")
    code = host.wait(120)
    if code != 0 and not (code == WINE_CRASHED and host.summary["exitCode"] == 0):
        raise RuntimeError(f"velto-host ended with {code}: {host.errors().strip()[-600:]}")
    return recorder, host


def measure(recorder, host, speech):
    """(report, comparison, reference): what the table and report.json say."""
    reference = media.decode(speech, RATE)
    result = compare.compare(recorder.samples(), reference, RATE)
    started, heard_at = host.log.time_of("VeltoWriteStream has received1 frame"), compare.first_sound(result)
    delay = (recorder.time_of(heard_at) - compare_start(result) - started) if started and heard_at is not None else None
    report = {
        "verdict": result.verdict() or "heard as it was sent",
        "passed": not result.verdict(),
        "framesInFile": media.frame_count(speech),
        "framesSent": host.summary["framesSent"],
        "secondsSent": round(len(reference) / RATE, 2),
        "secondsHeard": round(result.heard_s, 2),
        "matchDb": round(result.match_db, 1),
        "dropOuts": result.dropouts,
        "damagedWindows": len(result.damaged),
        "windows": len(result.windows),
        "volume": round(result.gain, 3),
        "firstSoundDelayMs": None if delay is None else round(1000 * delay),
    }
    return report, result, reference


def compare_start(result):
    """Where in the speech the first good window lies: its sound was not due earlier."""
    return result.good[0].start_s


def keep(folder, recorder, host, report, result, reference):
    heard = recorder.samples()
    begin = max(0, result.offset - int(LEAD_S * RATE))
    write_wav(folder / "heard.wav", heard[begin:result.offset + len(reference) + int(LEAD_S * RATE)], RATE)
    write_wav(folder / "sent.wav", reference, RATE)
    aligned = folder / ".aligned.wav"
    write_wav(aligned, compare.cut(heard, result.offset, len(reference)), RATE)
    picture.draw(folder / "picture.png", folder / "sent.wav", aligned,
                 f"sent: speech as {report['framesSent']} aac frames, {report['secondsSent']} s",
                 f"heard at the endpoint: match {report['matchDb']} db, {report['dropOuts']} drop-outs")
    aligned.unlink()
    shutil.copy2(host.log.path, folder / "module.log")
    (folder / "report.json").write_text(json.dumps(report, indent=2) + "\n")


def print_table(report):
    delay = report["firstSoundDelayMs"]
    rows = (("frames sent", f"{report['framesSent']} of {report['framesInFile']}"),
            ("seconds heard", f"{report['secondsHeard']} of {report['secondsSent']}"),
            ("match", f"{report['matchDb']} dB"),
            ("drop-outs", report["dropOuts"]),
            ("first sound after", "-" if delay is None else f"{delay} ms"))
    print()
    for name, value in rows:
        print(f"  {name:<20}{value}")
    print(flush=True)


def main():
    processes.install_handlers()
    folder = paths.BUILD / "demo"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    world = None
    try:
        say("making the speech sample")
        speech = media.speech("speech")
        say("starting a private audio server and a private Wine prefix")
        world = session.Session("demo")
        say(f"playing {len(media.decode(speech, RATE)) / RATE:.1f} s of speech through speaker1")
        recorder, host = play(world, speech)
        say("comparing what was heard with what was sent")
        report, result, reference = measure(recorder, host, speech)
        keep(folder, recorder, host, report, result, reference)
    except (RuntimeError, OSError, AssertionError, waiting.TimedOut) as problem:
        print(f"demo: failed: {problem}", file=sys.stderr)
        return 1
    finally:
        if world is not None:
            world.close()
    print_table(report)
    say(f"results: {os.path.relpath(folder)}/ (heard.wav, sent.wav, picture.png, module.log, report.json)")
    if not report["passed"]:
        print(f"demo: failed: {report['verdict']}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
