"""Compares the settings of FFmpeg's AAC encoder at 128000 bit/s.

For each setting: processor time for a second of sound, and how far the difference from the original lies below the sound
(SNR) and below the level that the sound masks. Uses the native ffmpeg of FFmpeg 5.1, and the speech of Debian's alsa-utils.
"""

import os
import pathlib
import subprocess
import tempfile

import numpy

from rig import media

import masking
import measuring
import unit

TITLE = "comparing the settings of the encoder"
RATE = 48000
BIT_RATE = 128000
PRIMING = 1024  # samples that the encoder puts in front of the sound
SECONDS = 20
LOOPS = 5
RUNS = 3

CODERS = ("twoloop", "fast")
NO_SUBSTITUTION, NO_INTENSITY = ["-aac_pns", "0"], ["-aac_is", "0"]
NO_SHAPING, NO_MID_SIDE = ["-aac_tns", "0"], ["-aac_ms", "0"]
TOOLS = {
    "all tools": [],
    "no noise substitution": NO_SUBSTITUTION,
    "no intensity stereo": NO_INTENSITY,
    "neither of these two": [*NO_SUBSTITUTION, *NO_INTENSITY],
    "also no noise shaping": [*NO_SUBSTITUTION, *NO_INTENSITY, *NO_SHAPING],
    "also no mid/side stereo": [*NO_SUBSTITUTION, *NO_INTENSITY, *NO_SHAPING, *NO_MID_SIDE],
}
CHOSEN = ("fast", "all tools")  # the setting in platform/codec/aac_encoder.cpp


def ffmpeg(*arguments, sound=None):
    """Returns the standard output of the command, and its processor time in seconds."""
    before = os.times()
    command = ["ffmpeg", *(["-nostdin"] if sound is None else []), "-v", "error", "-y", *map(str, arguments)]
    out = subprocess.run(command, input=sound, capture_output=True, check=True, timeout=300).stdout
    after = os.times()
    return out, after.children_user + after.children_system - before.children_user - before.children_system


def speech():
    """Speech in the middle, and the faint noise of a room, which differs between the channels."""
    words = [media.decode(media.SPEECH_FOLDER / f"{part}.wav", RATE, channels=1) for part in media.SPEECH]
    spoken = numpy.resize(numpy.concatenate(words), (SECONDS * RATE, 1))
    room = numpy.random.default_rng(1).normal(0, 0.001, (SECONDS * RATE, 2))
    return numpy.clip(0.8 * spoken + room, -1, 1)


def music():
    """Plucked chords across the stereo field, a bass, and drums: tones, attacks and noise."""
    random = numpy.random.default_rng(2)
    sound = numpy.zeros((SECONDS * RATE, 2))
    beat = RATE // 4
    time = numpy.arange(2 * RATE) / RATE
    for start in range(0, len(sound) - len(time), beat):
        root = 110 * 2 ** (random.choice([0, 3, 5, 7, 10]) / 12)
        for step in random.choice([0, 3, 4, 7, 9, 12, 16, 19], 3, replace=False):
            note = root * 2 ** (1 + step / 12)
            tone = sum(numpy.sin(2 * numpy.pi * k * note * time * (1 + 2e-4 * k * k)) / k * numpy.exp(-time * (2 + k))
                       for k in range(1, 16) if k * note < 20000)
            pan = random.uniform(0, numpy.pi / 2)
            sound[start:start + len(time)] += 0.12 * tone[:, None] * [numpy.cos(pan), numpy.sin(pan)]
        bass = numpy.sin(2 * numpy.pi * root / 2 * time) * numpy.exp(-3 * time)
        drum = random.normal(0, 1, (len(time), 2)) * numpy.exp(-60 * time)[:, None]
        sound[start:start + len(time)] += 0.2 * bass[:, None] + 0.08 * drum
    return 0.9 * sound / numpy.abs(sound).max()


def from_file(path):
    return media.decode(path, RATE)[:SECONDS * RATE].astype(float)


def measure(options):
    sounds = {"speech": speech(), "music": music()}
    sounds.update({pathlib.Path(name).stem: from_file(name) for name in options.files})
    rows = []
    with tempfile.TemporaryDirectory() as folder:
        for name, sound in sounds.items():
            rows += measure_sound(name, sound, pathlib.Path(folder))
    return {"settings": rows}


def measure_sound(name, sound, folder):
    """Returns the figures of each setting for one sound."""
    original_file = folder / "original.wav"
    pcm = (sound * 32767).round().astype("<i2")
    ffmpeg("-f", "s16le", "-ar", RATE, "-ac", 2, "-i", "-", original_file, sound=pcm.tobytes())
    original = pcm / 32768.0
    seconds = len(pcm) / RATE
    loop = ["-stream_loop", LOOPS - 1, "-i", original_file]  # makes the program's start-up time negligible
    rows = []
    floor = min(ffmpeg(*loop, "-c:a", "pcm_f32le", "-f", "null", "-")[1] for _ in range(RUNS))
    for coder in CODERS:
        for tools, options in TOOLS.items():
            encoding = ["-c:a", "aac", "-b:a", BIT_RATE, "-aac_coder", coder, *options]
            cpu = min(ffmpeg(*loop, *encoding, "-f", "null", "-")[1] for _ in range(RUNS)) - floor
            coded_file = folder / "coded.aac"
            ffmpeg("-i", original_file, *encoding, coded_file)
            coded = numpy.frombuffer(ffmpeg("-i", coded_file, "-f", "f32le", "-")[0], "<f4").reshape(-1, 2)
            coded = coded[PRIMING:PRIMING + len(original)]
            same_length = original[:len(coded)]
            rows.append({
                "sound": name, "coder": coder, "tools": tools,
                "cpuMs": 1000 * cpu / (LOOPS * seconds),
                "kbits": 8 * coded_file.stat().st_size / seconds / 1000,
                "snrDb": float(10 * numpy.log10((same_length ** 2).sum() / ((same_length - coded) ** 2).sum())),
                "maskDb": float(masking.noise_to_mask_db(same_length, coded, RATE)),
            })
            print("bench: {sound}, {coder}, {tools}: {cpuMs:.2f} ms, {kbits:.0f} kbit/s, SNR {snrDb:.1f} dB, "
                  "noise to mask {maskDb:.1f} dB".format(**rows[-1]), flush=True)
    return rows


def table(measured):
    rows = measured["settings"]
    sounds = list(dict.fromkeys(row["sound"] for row in rows))
    lines = []
    for coder in CODERS:
        for tools in TOOLS:
            of = {row["sound"]: row for row in rows if (row["coder"], row["tools"]) == (coder, tools)}
            cpu_ms = numpy.mean([row["cpuMs"] for row in of.values()])
            cells = [f"{cpu_ms:.1f} ms", unit.percent(unit.us_per_unit(cpu_ms))]
            for sound in sounds:
                cells += [f"{of[sound]['snrDb']:.1f} dB", f"{of[sound]['maskDb']:.1f} dB"]
            if (coder, tools) == CHOSEN:
                cells = [f"**{cell}**" for cell in cells]
            lines.append([coder, tools, *cells])
    columns = [column for sound in sounds for column in (f"{sound}: SNR", f"{sound}: noise to mask")]
    return [f"Native FFmpeg, {SECONDS} s of each sound at {BIT_RATE} bit/s. The time is for 1 s of sound; its percentage is also "
            "that of a unit.", "", *measuring.table(["coder", "tools", "processor time", "of a unit", *columns], lines)]
