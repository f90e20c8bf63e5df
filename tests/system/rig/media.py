"""Samples made by the native FFmpeg: speech as AAC, and what a decoder makes of it."""

import fcntl
import pathlib
import subprocess

import numpy

from . import paths, processes

SPEECH_FOLDER = pathlib.Path("/usr/share/sounds/alsa")
SPEECH = ("Front_Center", "Front_Left", "Front_Right", "Rear_Center", "Rear_Left", "Rear_Right",
          "Side_Left", "Side_Right")


def _ffmpeg(arguments):
    processes.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *arguments], timeout_s=120)


def speech(name, rate=48000, pan=None, container="aac", backwards=False):
    """An AAC-LC file of some 11 s of real speech, made once. pan: FFmpeg pan expression."""
    target = paths.CACHE / "samples" / f"{name}.{container}"
    target.parent.mkdir(parents=True, exist_ok=True)
    with open(target.parent / "samples.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not target.exists():
            files = [SPEECH_FOLDER / f"{part}.wav" for part in SPEECH]
            missing = [str(f) for f in files if not f.exists()]
            if missing:
                raise RuntimeError(f"no speech to play: {missing[0]} is missing (Debian package alsa-utils)")
            inputs = [argument for f in (reversed(files) if backwards else files) for argument in ("-i", f)]
            chain = f"concat=n={len(files)}:v=0:a=1,aresample={rate},{pan or 'pan=stereo|c0=c0|c1=c0'}"
            unfinished = target.with_suffix(".unfinished." + container)
            _ffmpeg([*inputs, "-filter_complex", chain, "-ar", rate, "-c:a", "aac", "-b:a", "160k", unfinished])
            unfinished.rename(target)
    return target


def decode(path, rate, channels=2):
    """What a decoder makes of the file at the sink's rate: frames by channels, -1 to 1.

    The sound goes through 16-bit PCM at the stream's own rate, as it does on its way to the endpoint.
    """
    command = ["ffmpeg", "-nostdin", "-v", "error", "-i", str(path), "-af",
               f"aformat=sample_fmts=s16,aresample={rate}", "-ac", str(channels), "-f", "f32le", "-"]
    out = subprocess.run(command, capture_output=True, check=True, timeout=120).stdout
    return numpy.frombuffer(out, dtype="<f4").reshape(-1, channels)


def frame_count(path):
    """AAC frames in a file."""
    out = processes.run(["ffprobe", "-v", "error", "-count_packets", "-show_entries", "stream=nb_read_packets",
                         "-of", "csv=p=0", path])
    return int(out.strip().strip(","))
