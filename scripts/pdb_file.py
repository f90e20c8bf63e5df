"""Reads PDB files, and writes them so that equal links give equal files."""

import dataclasses
import itertools
import struct
import uuid

MAGIC = b"Microsoft C/C++ MSF 7.00\r\n\x1aDS\0\0\0"
INFO, DEBUG_INFO = 1, 3  # numbers of streams
ABSENT = 0xFFFFFFFF  # the size of a stream that does not exist
BLOCK = 1024
DEBUG_INFO_HEADER, MODULE_HEADER = 64, 64
MODULES_SIZE = 24  # position in the header of the debug information
MODULE_STREAM, MODULE_SYMBOLS_SIZE = 34, 36  # positions in the header of a module
LINKERS_ENVIRONMENT = 0x113D  # a record with the linker's working folder and options


class BadPdb(ValueError):
    """The file is no PDB file, or is incomplete or damaged."""


# What reading a damaged file raises.
DAMAGED = (struct.error, IndexError, OverflowError, TypeError, ValueError, ZeroDivisionError)


@dataclasses.dataclass(frozen=True)
class BuildId:
    guid: uuid.UUID
    age: int

    def __str__(self):
        """As Microsoft's symbol servers write it."""
        return f"{self.guid.hex.upper()}{self.age:X}"


def blocks_of(size, block):
    return 0 if size == ABSENT else -(-size // block)


class PdbFile:
    """The streams of a PDB file."""

    def __init__(self, data):
        if not data.startswith(MAGIC):
            raise BadPdb("this is no PDB file")
        try:
            self.streams = list(self._read(data))
            info = self.streams[INFO]
            # The age in the header of the debug information counts changes of the PDB file. This one is the binary's.
            self.build_id = BuildId(uuid.UUID(bytes_le=info[12:28]), struct.unpack_from("<I", info, 8)[0])
        except DAMAGED as error:
            raise BadPdb(f"this PDB file is damaged: {error}") from error

    @staticmethod
    def _read(data):
        block, _, _, size, _, map_block = struct.unpack_from("<6I", data, len(MAGIC))

        def joined(numbers, length):
            return b"".join(data[number * block:(number + 1) * block] for number in numbers)[:length]

        directory = joined(struct.unpack_from(f"<{blocks_of(size, block)}I", data, map_block * block), size)
        count = struct.unpack_from("<I", directory)[0]
        sizes = struct.unpack_from(f"<{count}I", directory, 4)
        position = 4 + 4 * count
        for size in sizes:
            numbers = struct.unpack_from(f"<{blocks_of(size, block)}I", directory, position)
            position += 4 * len(numbers)
            yield None if size == ABSENT else joined(numbers, size)

    def modules(self):
        """The names of the linked files, as they are in the PDB file."""
        return [name for _, names in self._modules() for name in names]

    def _modules(self):
        """Yields the header and the two names of each linked file."""
        stream = self.streams[DEBUG_INFO]
        position = DEBUG_INFO_HEADER
        end = position + struct.unpack_from("<I", stream, MODULES_SIZE)[0]
        while position < end:
            names = stream[position + MODULE_HEADER:end].split(b"\0", 2)[:2]
            yield stream[position:position + MODULE_HEADER], names
            position += MODULE_HEADER + (sum(map(len, names)) + 2 + 3) // 4 * 4

    def reproducible(self):
        """The file without the time and the folders of the link. Debuggers compare the build id instead of the time."""
        try:
            streams = self._reproducible_streams()
        except DAMAGED as error:
            raise BadPdb(f"this PDB file is damaged: {error}") from error
        return packed(streams)

    def _reproducible_streams(self):
        streams = list(self.streams)
        streams[INFO] = streams[INFO][:4] + bytes(4) + streams[INFO][8:]
        modules = b""
        for header, names in self._modules():
            number, size = struct.unpack_from("<HI", header, MODULE_STREAM)
            if number != 0xFFFF:
                symbols = without_environment(streams[number][:size])
                streams[number] = symbols + streams[number][size:]
                header = header[:MODULE_SYMBOLS_SIZE] + struct.pack("<I", len(symbols)) + header[MODULE_SYMBOLS_SIZE + 4:]
            modules += header + padded(b"".join(name.rpartition(b"/")[2] + b"\0" for name in names), 4)
        old = streams[DEBUG_INFO]
        old_end = DEBUG_INFO_HEADER + struct.unpack_from("<I", old, MODULES_SIZE)[0]
        streams[DEBUG_INFO] = (old[:MODULES_SIZE] + struct.pack("<I", len(modules)) +
                               old[MODULES_SIZE + 4:DEBUG_INFO_HEADER] + modules + old[old_end:])
        return streams


def without_environment(symbols):
    """The symbols of a module: a signature, then records with their length and kind."""
    kept, position = symbols[:4], 4
    while position < len(symbols):
        length, kind = struct.unpack_from("<HH", symbols, position)
        if kind != LINKERS_ENVIRONMENT:
            kept += symbols[position:position + length + 2]
        position += length + 2
    return kept


def padded(data, length):
    return data + bytes(-len(data) % length)


def packed(streams):
    """A PDB file of these streams."""
    blocks = {}
    free_numbers = (number for number in itertools.count(3) if number % BLOCK not in (1, 2))  # those are for maps

    def add(data):
        """Puts the data into the next blocks, and returns their numbers."""
        numbers = []
        for begin in range(0, len(data), BLOCK):
            numbers.append(next(free_numbers))
            blocks[numbers[-1]] = padded(data[begin:begin + BLOCK], BLOCK)
        return numbers

    places = [add(stream or b"") for stream in streams]
    sizes = [ABSENT if stream is None else len(stream) for stream in streams]
    directory = struct.pack(f"<{1 + len(sizes)}I", len(sizes), *sizes)
    directory += b"".join(struct.pack(f"<{len(numbers)}I", *numbers) for numbers in places)
    numbers = add(directory)
    map_block = add(struct.pack(f"<{len(numbers)}I", *numbers))
    if len(map_block) != 1 or len(numbers) > BLOCK // 4:
        raise BadPdb("this PDB file is too large")
    count = max(blocks) + 1
    # One bit for each block, 0 for a used one. The map has a block in each interval of BLOCK blocks, and a second one for
    # programs that change the file.
    intervals = -(-count // BLOCK)
    free_map = (bytes(count // 8) + bytes([0xFF << count % 8 & 0xFF])).ljust(intervals * BLOCK, b"\xFF")
    for first in range(0, count, BLOCK):
        for number in (first + 1, first + 2):
            blocks[number] = free_map[first:first + BLOCK]
    blocks[0] = padded(MAGIC + struct.pack("<6I", BLOCK, 1, count, len(directory), 0, map_block[0]), BLOCK)
    return b"".join(blocks[number] for number in range(count))
