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


def glides(seconds, rate=48000, channels=2, seed=0):
    """Samples of gliding tones that never repeat, others in each channel: frames by channels.

    Each stretch of 0.2 s can be told from every other one, none is quiet, and the AAC encoder keeps
    the shape of all of it; of speech it replaces the hissing by noise of its own.
    """
    random = numpy.random.default_rng(seed)
    time = numpy.arange(int(seconds * rate)) / rate
    knots = numpy.arange(0, seconds + 1, 0.35)
    sound = numpy.zeros((len(time), channels))
    for channel in range(channels):
        for octave in range(4):
            low = numpy.log(150 * 2.2 ** octave)
            pitch = numpy.exp(numpy.interp(time, knots, low + numpy.log(2.2) * random.random(len(knots))))
            strength = numpy.interp(time, knots, random.uniform(0.3, 1.0, len(knots))) / (2 + octave)
            sound[:, channel] += strength * numpy.sin(2 * numpy.pi * numpy.cumsum(pitch) / rate)
    sound *= numpy.clip(numpy.minimum(time, seconds - time) / 0.05, 0, 1)[:, None]
    return (0.5 * sound / numpy.abs(sound).max()).astype("<f4")


def coded(path, samples, rate=48000, bit_rate=160):
    """Writes samples as an AAC-LC file of so many kbit/s and returns its name."""
    done = subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "f32le", "-ar", str(rate), "-ac", str(samples.shape[1]),
                           "-i", "-", "-c:a", "aac", "-b:a", f"{bit_rate}k", str(path)],
                          input=samples.astype("<f4").tobytes(), stderr=subprocess.PIPE, timeout=120)
    if done.returncode:
        raise RuntimeError(done.stderr.decode("utf-8", "replace"))
    return path


# A silent AAC-LC unit of two channels behind its ADTS header, and as many as end a stream.
SILENT_UNIT = bytes.fromhex("fff14c8001bffc" "21000000001c")
SILENT_END = [SILENT_UNIT] * 5


def units(path):
    """The units of an ADTS file, each with its header."""
    data, found = pathlib.Path(path).read_bytes(), []
    while data:
        size = (data[3] & 3) << 11 | data[4] << 3 | data[5] >> 5
        found.append(data[:size])
        data = data[size:]
    return found


def write_units(path, adts_units):
    """Writes units that units() returned as an ADTS file and returns its name."""
    path.write_bytes(b"".join(adts_units))
    return path


def resample(samples, rate, new_rate):
    """The same sound at another rate."""
    if rate == new_rate:
        return numpy.asarray(samples)
    channels = str(samples.shape[1])
    command = ["ffmpeg", "-v", "error", "-f", "f32le", "-ar", str(rate), "-ac", channels, "-i", "-",
               "-ar", str(new_rate), "-f", "f32le", "-"]
    out = subprocess.run(command, input=samples.astype("<f4").tobytes(), capture_output=True, check=True, timeout=120)
    return numpy.frombuffer(out.stdout, dtype="<f4").reshape(-1, samples.shape[1])


def complaints(path):
    """What the native tools have to say against a file: every warning of a probe and of a whole decoding."""
    said = []
    for command in (["ffprobe", "-v", "warning", "-show_format", "-show_streams", path],
                    ["ffmpeg", "-nostdin", "-v", "warning", "-i", path, "-f", "null", "-"]):
        done = subprocess.run([str(part) for part in command], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                              timeout=120)
        said += done.stderr.decode("utf-8", "replace").splitlines()
        said += [f"{command[0]} ended with {done.returncode}"] if done.returncode else []
    return said


def duration(path):
    """Seconds, as the file says."""
    out = processes.run(["ffprobe", "-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", path])
    return float(out.strip().strip(","))


def decode(path, rate, channels=2):
    """What a decoder makes of the file at the sink's rate: frames by channels, -1 to 1.

    The sound goes through 16-bit PCM at the stream's own rate, as it does on its way to the endpoint.
    """
    command = ["ffmpeg", "-nostdin", "-v", "error", "-i", str(path), "-af",
               f"aformat=sample_fmts=s16,aresample={rate}", "-ac", str(channels), "-f", "f32le", "-"]
    out = subprocess.run(command, capture_output=True, check=True, timeout=120).stdout
    return numpy.frombuffer(out, dtype="<f4").reshape(-1, channels)


def decode_in_pieces(path, rate, channels, frames):
    """What decode() returns, in pieces of so many frames, for files that are too long for one."""
    command = ["ffmpeg", "-nostdin", "-v", "error", "-i", path, "-ar", rate, "-ac", channels, "-f", "f32le", "-"]
    decoder = processes.start(command, stdout=subprocess.PIPE)
    try:
        while data := decoder.stdout.read(4 * channels * frames):
            yield numpy.frombuffer(data, dtype="<f4").reshape(-1, channels)
    finally:
        decoder.stdout.close()
        processes.end(decoder)


def frame_count(path):
    """AAC frames in a file."""
    out = processes.run(["ffprobe", "-v", "error", "-count_packets", "-show_entries", "stream=nb_read_packets",
                         "-of", "csv=p=0", path])
    return int(out.strip().strip(","))
