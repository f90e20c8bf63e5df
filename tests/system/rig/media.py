"""Makes, decodes and examines sound files, with the native FFmpeg."""

import fcntl
import pathlib
import subprocess

import numpy

from . import paths, processes

SPEECH_FOLDER = pathlib.Path("/usr/share/sounds/alsa")
SPEECH = ("Front_Center", "Front_Left", "Front_Right", "Rear_Center", "Rear_Left", "Rear_Right",
          "Side_Left", "Side_Right")
UNIT = 1024  # samples per channel of an AAC unit


def _raw(rate, channels):
    """FFmpeg's options for samples without a header."""
    return ["-f", "f32le", "-ar", str(rate), "-ac", str(channels)]


def _frames(data, channels):
    """Raw samples as an array of frames by channels."""
    return numpy.frombuffer(data, dtype="<f4").reshape(-1, channels)


def _probe(path, *options):
    """One value of a file, as text."""
    return processes.run(["ffprobe", "-v", "error", *options, "-of", "csv=p=0", path]).strip().strip(",")


def speech(name, rate=48000, pan=None, container="aac", backwards=False, cutoff_hz=None):
    """An AAC-LC file of about 11 s of real speech. It is made once and cached. pan: an expression for FFmpeg's filter.
    cutoff_hz: the encoder leaves out higher frequencies."""
    target = paths.CACHE / "samples" / f"{name}.{container}"
    target.parent.mkdir(parents=True, exist_ok=True)
    with open(target.parent / "samples.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not target.exists():
            files = [SPEECH_FOLDER / f"{part}.wav" for part in SPEECH]
            missing = [str(f) for f in files if not f.exists()]
            if missing:
                raise RuntimeError(f"there is no speech to play: {missing[0]} is missing (Debian package alsa-utils)")
            inputs = [argument for f in (reversed(files) if backwards else files) for argument in ("-i", f)]
            chain = f"concat=n={len(files)}:v=0:a=1,aresample={rate},{pan or 'pan=stereo|c0=c0|c1=c0'}"
            unfinished = target.with_suffix(".unfinished." + container)
            processes.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *inputs, "-filter_complex", chain, "-ar", rate,
                           "-c:a", "aac", "-b:a", "160k", *(["-cutoff", cutoff_hz] if cutoff_hz else []), unfinished],
                          timeout_s=120)
            unfinished.rename(target)
    return target


def glides(seconds, rate=48000, channels=2, seed=0):
    """Samples of gliding tones that never repeat and differ in each channel: frames by channels.

    Each piece of 0.2 s differs from every other one, and none is quiet. The AAC encoder keeps the waveform
    of these tones, while it replaces the hissing sounds of speech by noise.
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
    """Writes samples as an AAC-LC file. Returns path. bit_rate is in kbit/s."""
    done = subprocess.run(["ffmpeg", "-v", "error", "-y", *_raw(rate, samples.shape[1]), "-i", "-", "-c:a", "aac",
                           "-b:a", f"{bit_rate}k", str(path)],
                          input=samples.astype("<f4").tobytes(), stderr=subprocess.PIPE, timeout=120)
    if done.returncode:
        raise RuntimeError(done.stderr.decode("utf-8", "replace"))
    return path


# A silent AAC-LC unit of two channels, with its ADTS header. Hosts send five after the last unit of a stream.
SILENT_UNIT = bytes.fromhex("fff14c8001bffc" "21000000001c")
SILENT_END = [SILENT_UNIT] * 5


def units(path):
    """Returns the units of an ADTS file, each with its header."""
    data, found = pathlib.Path(path).read_bytes(), []
    while data:
        size = (data[3] & 3) << 11 | data[4] << 3 | data[5] >> 5
        found.append(data[:size])
        data = data[size:]
    return found


def write_units(path, adts_units):
    """Writes units, as units() returns them, into an ADTS file. Returns path."""
    path.write_bytes(b"".join(adts_units))
    return path


def resample(samples, rate, new_rate):
    """Returns the sound at another rate."""
    if rate == new_rate:
        return numpy.asarray(samples)
    channels = samples.shape[1]
    command = ["ffmpeg", "-v", "error", *_raw(rate, channels), "-i", "-", "-ar", str(new_rate), "-f", "f32le", "-"]
    out = subprocess.run(command, input=samples.astype("<f4").tobytes(), capture_output=True, check=True, timeout=120)
    return _frames(out.stdout, channels)


def file_warnings(path):
    """Returns every warning of ffprobe, and of ffmpeg decoding the whole file."""
    warnings = []
    for command in (["ffprobe", "-v", "warning", "-show_format", "-show_streams", path],
                    ["ffmpeg", "-nostdin", "-v", "warning", "-i", path, "-f", "null", "-"]):
        done = subprocess.run([str(part) for part in command], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                              timeout=120)
        warnings += done.stderr.decode("utf-8", "replace").splitlines()
        warnings += [f"{command[0]} ended with {done.returncode}"] if done.returncode else []
    return warnings


def duration(path):
    """Seconds, according to ffprobe. For ADTS files, this is only an estimate."""
    return float(_probe(path, "-show_entries", "format=duration"))


def decode(path, rate, channels=2):
    """Returns the samples of a file at a rate: frames by channels, from -1 to 1.

    The samples are rounded to 16 bits before they are resampled, as in the module.
    """
    command = ["ffmpeg", "-nostdin", "-v", "error", "-i", str(path), "-af",
               f"aformat=sample_fmts=s16,aresample={rate}", "-ac", str(channels), "-f", "f32le", "-"]
    out = subprocess.run(command, capture_output=True, check=True, timeout=120).stdout
    return _frames(out, channels)


def decode_in_pieces(path, rate, channels, frames):
    """Yields the samples of a file that is too long for memory, in pieces of `frames` frames."""
    command = ["ffmpeg", "-nostdin", "-v", "error", "-i", path, *_raw(rate, channels), "-"]
    decoder = processes.start(command, stdout=subprocess.PIPE)
    try:
        while data := decoder.stdout.read(4 * channels * frames):
            yield _frames(data, channels)
    finally:
        decoder.stdout.close()
        processes.end(decoder)


def unit_count(path):
    """Returns the number of AAC units in a file."""
    return int(_probe(path, "-count_packets", "-show_entries", "stream=nb_read_packets"))
