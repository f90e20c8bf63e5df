"""Reads minidumps of 64-bit Windows programs: modules, threads, and the stack of each thread.

A stack is walked with the unwind information of the binaries. Where a binary is missing, the next return address is
searched for in the stack's memory; such a frame is marked as a guess.
"""

import dataclasses
import pathlib
import struct

import binaries
import pdb_file

MAGIC = b"MDMP"
THREADS, MODULES, MEMORY, EXCEPTION, SYSTEM, MEMORY64 = 3, 4, 5, 6, 7, 9
CONTEXT_REGISTERS, CONTEXT_RIP = 0x78, 0xF8  # Rax, Rcx, Rdx, Rbx, Rsp, Rbp, Rsi, Rdi, R8 to R15; Rip
RSP = 4
MOST_FRAMES = 100
SEARCHED_BYTES = 16384
PUSH, ALLOCATE_LARGE, ALLOCATE_SMALL, SET_FRAME, SAVE, SAVE_FAR, _, _, SAVE_XMM, SAVE_XMM_FAR, MACHINE_FRAME = range(11)


class BadDump(Exception):
    """The file is no minidump of a 64-bit program, or is incomplete."""


@dataclasses.dataclass(frozen=True)
class Module:
    base: int
    size: int
    path: str
    checksum: int  # of the file, as the linker wrote it
    build_id: pdb_file.BuildId | None  # Wine's dumps have none

    def is_build_of(self, binary):
        """Whether this is the module's binary."""
        if self.build_id:
            return self.build_id == binary.build_id
        return self.size == binary.image_size and self.checksum == binary.checksum

    @property
    def name(self):
        return self.path.replace("/", "\\").rpartition("\\")[2]


@dataclasses.dataclass(frozen=True)
class Frame:
    address: int
    module: Module | None
    is_return_address: bool
    is_guess: bool


@dataclasses.dataclass(frozen=True)
class Thread:
    id: int
    context: bytes


class Minidump:
    def __init__(self, path):
        self._data = pathlib.Path(path).read_bytes()
        try:
            self._read()
        except struct.error as error:
            raise BadDump(f"{path} is incomplete: {error}") from error

    def _read(self):
        if self._data[:4] != MAGIC:
            raise BadDump("this is no minidump")
        count, directory = struct.unpack_from("<II", self._data, 8)
        streams = {}
        for number in range(count):
            kind, size, place = struct.unpack_from("<III", self._data, directory + 12 * number)
            if kind and place + size > len(self._data):
                raise BadDump("the file is incomplete")
            streams.setdefault(kind, place)
        if SYSTEM in streams and struct.unpack_from("<H", self._data, streams[SYSTEM])[0] != 9:
            raise BadDump("this is no minidump of a 64-bit program")
        self.modules = self._read_modules(streams[MODULES]) if MODULES in streams else []
        self._memory = self._read_memory(streams)
        self.threads = self._read_threads(streams[THREADS]) if THREADS in streams else []
        self.exception = self._read_exception(streams[EXCEPTION]) if EXCEPTION in streams else None

    def _location(self, place):
        size, offset = struct.unpack_from("<II", self._data, place)
        return self._data[offset:offset + size]

    def _read_modules(self, place):
        found = []
        for number in range(struct.unpack_from("<I", self._data, place)[0]):
            entry = place + 4 + 108 * number
            base, size, checksum, _, name = struct.unpack_from("<QIIII", self._data, entry)
            length = struct.unpack_from("<I", self._data, name)[0]
            path = self._data[name + 4:name + 4 + length].decode("utf-16-le", "replace")
            found.append(Module(base, size, path, checksum, binaries.parse_codeview(self._location(entry + 24 + 52))[0]))
        return found

    def _read_memory(self, streams):
        ranges = []
        if MEMORY in streams:
            for number in range(struct.unpack_from("<I", self._data, streams[MEMORY])[0]):
                begin, size, offset = struct.unpack_from("<QII", self._data, streams[MEMORY] + 4 + 16 * number)
                ranges.append((begin, size, offset))
        if MEMORY64 in streams:
            count, offset = struct.unpack_from("<QQ", self._data, streams[MEMORY64])
            for number in range(count):
                begin, size = struct.unpack_from("<QQ", self._data, streams[MEMORY64] + 16 + 16 * number)
                ranges.append((begin, size, offset))
                offset += size
        return ranges

    def _read_threads(self, place):
        found = []
        for number in range(struct.unpack_from("<I", self._data, place)[0]):
            entry = place + 4 + 48 * number
            begin, size, offset = struct.unpack_from("<QII", self._data, entry + 24)
            self._memory.append((begin, size, offset))
            found.append(Thread(struct.unpack_from("<I", self._data, entry)[0], self._location(entry + 40)))
        return found

    def _read_exception(self, place):
        """Returns (thread id, code, address, context)."""
        thread, _, code, _, _, address = struct.unpack_from("<IIIIQQ", self._data, place)
        return thread, code, address, self._location(place + 160)

    def word(self, address):
        """Returns the 64-bit word at an address, or None if the dump lacks it."""
        for begin, size, offset in self._memory:
            if begin <= address <= begin + size - 8 and offset + address - begin + 8 <= len(self._data):
                return struct.unpack_from("<Q", self._data, offset + address - begin)[0]
        return None

    def module_at(self, address):
        return next((module for module in self.modules if module.base <= address < module.base + module.size), None)

    def stacks(self, binary_of):
        """Yields (thread id, frames), the thread that crashed first. binary_of(module) returns its Binary, or None."""
        crashed = self.exception[0] if self.exception else None
        for thread in sorted(self.threads, key=lambda each: each.id != crashed):
            context = self.exception[3] if thread.id == crashed else thread.context
            yield thread.id, list(self._walk(context, binary_of))

    def _walk(self, context, binary_of):
        if len(context) < CONTEXT_RIP + 8:
            return
        registers = list(struct.unpack_from("<16Q", context, CONTEXT_REGISTERS))
        address, is_guess = struct.unpack_from("<Q", context, CONTEXT_RIP)[0], False
        for number in range(MOST_FRAMES):
            module = self.module_at(address)
            yield Frame(address, module, number > 0, is_guess)
            before = registers[RSP]
            binary = binary_of(module) if module else None
            if binary:
                address, is_guess = self._unwind(registers, address - module.base, binary), False
            else:
                address, is_guess = self._search(registers, binary_of), True
            if not address or registers[RSP] <= before:
                return

    def _unwind(self, registers, rva, binary):
        """Changes the registers to those of the caller. Returns the return address, or None."""
        found = binary.unwind_codes(rva)
        for head, slots in found[1] if found else []:
            is_chained = head is not found[1][0][0]
            frame, frame_offset = head[3] & 15, (head[3] >> 4) * 16
            number = 0
            while number < head[2]:
                code_offset, operation, info = slots[2 * number], slots[2 * number + 1] & 15, slots[2 * number + 1] >> 4
                extra = {ALLOCATE_LARGE: 2 if info else 1, SAVE: 1, SAVE_FAR: 2, SAVE_XMM: 1, SAVE_XMM_FAR: 2}.get(operation, 0)
                operand = struct.unpack_from("<I" if extra == 2 else "<H", slots, 2 * number + 2)[0] if extra else 0
                number += 1 + extra
                if not is_chained and code_offset > rva - found[0]:
                    continue  # the crash came before this step of the function's beginning
                if operation == PUSH:
                    registers[info] = self.word(registers[RSP])
                    registers[RSP] += 8
                elif operation == ALLOCATE_LARGE:
                    registers[RSP] += operand if info else 8 * operand
                elif operation == ALLOCATE_SMALL:
                    registers[RSP] += 8 * info + 8
                elif operation == SET_FRAME:
                    if registers[frame] is None:
                        return None
                    registers[RSP] = registers[frame] - frame_offset
                elif operation in (SAVE, SAVE_FAR):
                    registers[info] = self.word(registers[RSP] + operand * (1 if operation == SAVE_FAR else 8))
                elif operation == MACHINE_FRAME:
                    place = registers[RSP] + 8 * info
                    registers[RSP] = self.word(place + 24) or 0
                    return self.word(place)
        address = self.word(registers[RSP])
        registers[RSP] += 8
        return address

    def _search(self, registers, binary_of):
        """Searches the stack for an address behind a call in a module with a binary."""
        for place in range(registers[RSP], registers[RSP] + SEARCHED_BYTES, 8):
            value = self.word(place)
            module = self.module_at(value) if value else None
            binary = binary_of(module) if module else None
            if binary and binary.follows_call(value - module.base):
                registers[RSP] = place + 8
                return value
        return None
