#!/usr/bin/python3
"""Writes the seed corpora of the fuzz targets into FOLDER. Each target has a folder of small files.

Files with sound contain tones and noise from FFmpeg's encoder. Damaged files are derived from these. Each run writes the
same files.
"""

import argparse
import pathlib
import random
import struct
import subprocess

# Sounds with different rates, channels, bit rates and kinds of content.
SOUNDS = {
    "tone": ["-f", "lavfi", "-i", "sine=440:d=0.2:r=48000", "-ac", "2", "-b:a", "96k"],
    "mono": ["-f", "lavfi", "-i", "sine=880:d=0.2:r=48000", "-ac", "1", "-b:a", "48k"],
    "noise": ["-f", "lavfi", "-i", "anoisesrc=d=0.15:r=48000:seed=1", "-ac", "2", "-b:a", "256k"],
    "slow": ["-f", "lavfi", "-i", "sine=300:d=0.3:r=22050", "-ac", "2", "-b:a", "32k"],
    "surround": ["-f", "lavfi", "-i", "anoisesrc=d=0.08:r=48000:seed=2", "-ac", "6", "-b:a", "192k"],
    "silence": ["-f", "lavfi", "-i", "anullsrc=r=48000", "-t", "0.2", "-ac", "2", "-b:a", "96k"],
}
ADTS_HEADER_BYTES = 7


def ffmpeg(*arguments):
    *before, output = arguments
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *before, "-bitexact", output], check=True)


def access_units(adts):
    """Returns the access units of an ADTS stream, without headers."""
    units = []
    while len(adts) > ADTS_HEADER_BYTES:
        size = (adts[3] & 3) << 11 | adts[4] << 3 | adts[5] >> 5
        units.append(adts[ADTS_HEADER_BYTES:size])
        adts = adts[size:]
    return units


def damaged(data, seed):
    """Yields (kind, bytes) four times: cut short, with flipped bits, without a piece, and with a piece repeated."""
    rng = random.Random(seed)
    flipped = bytearray(data)
    for _ in range(8):
        flipped[rng.randrange(len(data))] ^= 1 << rng.randrange(8)
    at = rng.randrange(len(data))
    yield "cut", data[:at]
    yield "flipped", bytes(flipped)
    yield "lost", data[:at] + data[at + rng.randrange(1, 64):]
    yield "doubled", data[:at] + data[at // 2:]


def with_replication(unit, payload):
    """Returns the unit with spectral band replication, which decodes to twice the samples.

    Inserts a fill element of eight bytes with the extension in front of the unit's end: three set bits, then padding.
    """
    bits = "".join(f"{byte:08b}" for byte in unit).rstrip("0")
    bits = bits[:-3] + "110" + "1000" + "1101" + f"{payload:060b}" + "111"
    bits += "0" * (-len(bits) % 8)
    return int(bits, 2).to_bytes(len(bits) // 8, "big")


def write(unit, device=0):
    """Returns a write of the unit, as speaker_path reads it: choice, size, payload, stream type."""
    return struct.pack("<BH", device << 3, len(unit)) + unit + b"\x03"


def speaker_path(units):
    stereo_mix, mono_mix, wide_mix = b"\x00\x00\x00" * 2, b"\x01\x01\x01" * 2, b"\x03\x00\x02\x04\x03\x05"
    idle, lost, headset, speakers, lost_headset, played = (bytes([7, way]) for way in range(6))
    closed = b"\x06"
    for name, sound in units.items():
        yield name, stereo_mix + b"".join(write(unit) for unit in sound[:6])
        for kind, bad in damaged(sound[2], name):
            yield f"{name}_{kind}", stereo_mix + b"".join(map(write, [sound[1], bad, sound[3], sound[2]]))
    mixed = [unit for three in zip(*(sound[:4] for sound in units.values())) for unit in three]
    yield "mixed", mono_mix + b"".join(write(unit, i % 2) for i, unit in enumerate(mixed))
    tone = [write(unit) for unit in units["tone"][:8]]
    yield "changes", wide_mix + tone[0] + headset + tone[1] + tone[2] + lost + tone[3] + idle + tone[4] + closed
    stream = b"".join(tone) + played  # fills the cushion, so that blocks are played
    yield "switches", stereo_mix + stream + headset + stream + speakers + stream
    yield "losses", stereo_mix + stream + lost + stream + headset + stream + lost_headset + stream
    # Writes without a StreamFrame, without its header or its payload, with a wrong length of the id, with a size that
    # cannot be allocated, without an id.
    yield "odd", stereo_mix + b"\x04\x00\x04\x01" + b"\x04\x02\x07\x00\x00\x00" + b"\x04\x03\x00" + \
        b"\x04\x04\x07\x00\x00\x00" + b"\x04\x05" + tone[0]
    for name in ("tone", "mono"):
        rng = random.Random(name)
        twice = [write(with_replication(unit, rng.getrandbits(60))) for unit in units[name][:12]]
        yield f"{name}_twice", stereo_mix + b"".join(twice)
        yield f"{name}_then_twice", stereo_mix + b"".join(map(write, units[name][:6])) + idle + b"".join(twice)
    parameters = struct.pack("<BBBIBIBI", 5, 3, 0, 44100, 1, 16, 2, 4)
    yield "parameters", stereo_mix + parameters + tone[0] + idle + tone[1]
    yield "both", stereo_mix + b"".join(write(unit, i % 2) for i, unit in enumerate(units["noise"]))


def host_records():
    # With the right length, and with the length 9.
    every_id = [bytes([i]) + way for i in range(4) for way in (b"\x00", b"\x02\x09\x00\x00\x00")]

    def listed(*entries):
        """A parameter list of (key, value): kind, count, then each entry, then the padding of the list."""
        return struct.pack("<BB", 0, len(entries)) + b"".join(
            struct.pack("<BBBI", 0, key, value, 7) for key, value in entries) + bytes(4)

    rate, channel, form, codec = range(4)
    full = listed((rate, 200), (channel, 16), (form, 4), (codec, 9))
    codes = b"".join(b"\x03" + listed((channel, value), (form, value)) for value in range(20))
    yield "capabilities", b"\x00\x00\x00\x00\x00" * 3
    yield "released", b"\x01\x01\x00\x00\x00\x04\x00\x00\x00"
    yield "listening", b"\x0a\x00" + b"".join(b"\x04" + name for name in every_id)
    yield "parameters", b"\x0a\x00" + b"".join(b"\x02" + name + full for name in every_id)
    yield "codes", codes
    yield "read_parameters", b"\x03" + full + b"\x03\x01\x00" + b"\x03\x02\x02" + b"\x03\x00\x0f" + bytes(range(256))
    yield "refused_opening", b"".join(b"\x05" + name + b"\x01\x00\x00\x00\x00\x00" for name in every_id)
    yield "reading", b"".join(b"\x06" + name + bytes([way, 0, 15, 0, 0]) for way in range(4) for name in every_id)
    microphone, other_microphone, units = b"\x01\x00", b"\x09\x01", b"\x08\x03"
    opened = b"\x05" + microphone + bytes(6)
    yield "recording", opened + units + b"\x06" + microphone + b"\x00\x00\x0f\x00\x00" + units + b"\x07" + microphone
    yield "moved_recording", opened + units + other_microphone + units + b"\x07" + microphone
    yield "closing", b"".join(b"\x07" + name for name in every_id)
    yield "foreign_id", b"\x04\x0cforeign name\x00" + b"\x04\x85" + b"x" * 133 + b"\x00"


def encoder(rng):
    def opened(rate, channel, change=7, bits=128000):
        return struct.pack("<BBBBI", 0, rate, channel, change, bits)

    def encoded(shape, data=b"", length=b"", filling=0, fill=b""):
        return bytes([1, shape]) + length + bytes([filling]) + fill + struct.pack("<H", len(data)) + data

    noise = bytes(rng.randrange(256) for _ in range(1500))
    square = (b"\xff\x7f" * 40 + b"\x00\x80" * 40) * 3
    silence = encoded(0)
    drained = b"\x04\x03"
    for rate in range(13):
        yield f"rate_{rate}", opened(rate, rate) + encoded(0, noise) * 3 + encoded(0, square) * 2 + drained
    for field in range(5):
        yield f"field_{field}", opened(3, 0, field) + struct.pack("<I", 1 << 31) + silence
    yield "reopened", opened(3, 0) + silence * 3 + opened(3, 1) + silence * 3 + b"\x07" + silence + drained
    other_channels, other_length = 1, 2                     # codes for the shape
    any_fill_count, short_fill_count, any_channels = 1, 2, 3  # codes for the filling
    yield "shapes", opened(3, 0) + encoded(other_channels) + \
        encoded(other_length, noise[:64], b"\x10\x00", any_fill_count, b"\x40\x00\x00\x00") + \
        encoded(other_length, b"", b"\x00\x00") + encoded(other_length, b"", b"\x00\x08") + \
        encoded(0, b"", b"", any_fill_count, b"\xff\xff\xff\xff") + encoded(0, b"", b"", any_channels, b"\x01") + \
        silence * 3 + drained
    yield "short_frame", opened(3, 0) + silence * 2 + encoded(0, noise, b"", short_fill_count, b"\x64\x00") + silence + drained + silence
    yield "invalid_arguments", opened(3, 0) + b"\x06\x00\x06\x80\x05\x00\x05\x01\x05\xff"
    yield "bit_rates", b"".join(opened(3, 0, 7, bits) + encoded(0, noise) * 4 for bits in (1, 8000, 576000))


def packet_queue(rng):
    yield "circulation", b"\x00\x10\xff" + b"\x08\x40" * 4
    yield "by_hand", b"\x00\x04\xff" + b"\x03\x00" * 4 + b"\x06\x00" * 4 + b"\x04\x00" * 4 + b"\x05\x00" * 4
    yield "waits", b"\x00\x01\xff\x03\x00\x03\x01\x04\x01\x06\x00\x04\x00\x04\x02" + b"\x03\x00"
    yield "cleared", b"\x00\x04\xff\x03\x00\x02\x05\x00\x00\x02\xff\x08\x05\x01\x03\x00\x02"
    yield "no_memory", b"\x00\x08\x03\x00\x08\xff\x00\x08\xff"
    for number in range(8):
        yield f"random_{number}", b"\x00\x20\xff" + bytes(rng.randrange(256) for _ in range(200))


def file_reader(files):
    for name, data in files.items():
        yield name, data
        for kind, bad in damaged(data, name):
            yield f"{kind}_{name}", bad
    yield "empty", b""
    yield "begun", files["tone.aac"] + b"\xff\xf1"
    yield "playlist", b"#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nnowhere.aac\n#EXT-X-ENDLIST\n"
    yield "list", b"ffconcat version 1.0\nfile 'nowhere.aac'\n"
    yield "wave", struct.pack("<4sI8sIHHIIHH4sI", b"RIFF", 100, b"WAVEfmt ", 16, 1, 2, 48000, 192000, 4, 16, b"data", 64) + bytes(64)


def make(folder):
    """Encodes the sounds. Returns the files, and the access units of each sound."""
    files = {}
    units = {}
    for name, options in SOUNDS.items():
        adts = folder / f"{name}.aac"
        ffmpeg(*options, "-c:a", "aac", "-f", "adts", str(adts))
        files[adts.name] = adts.read_bytes()
        units[name] = access_units(files[adts.name])
    for name, muxer, more in [("tone.m4a", "ipod", []), ("fast.m4a", "mp4", ["-movflags", "+faststart"]),
                              ("pieces.m4a", "mp4", ["-movflags", "+frag_keyframe+empty_moov"])]:
        ffmpeg("-i", str(folder / "tone.aac"), "-c", "copy", "-bsf:a", "aac_adtstoasc", *more, "-f", muxer, str(folder / name))
        files[name] = (folder / name).read_bytes()
    ffmpeg("-i", str(folder / "tone.aac"), "-c", "copy", "-f", "matroska", str(folder / "tone.mka"))
    files["tone.mka"] = (folder / "tone.mka").read_bytes()
    return files, units


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path, metavar="FOLDER")
    folder = parser.parse_args().folder
    sounds = folder / "sounds"
    sounds.mkdir(parents=True, exist_ok=True)
    files, units = make(sounds)
    corpora = {
        "speaker_path": speaker_path(units),
        "host_records": host_records(),
        "encoder": encoder(random.Random("encoder")),
        "packet_queue": packet_queue(random.Random("queue")),
        "file_reader": file_reader(files),
    }
    for target, inputs in corpora.items():
        place = folder / target
        place.mkdir(exist_ok=True)
        for name, data in inputs:
            (place / name).write_bytes(data)


if __name__ == "__main__":
    main()
