"""Reads Windows binaries: build ids, sections, unwind information. Finds functions and lines."""

import bisect
import dataclasses
import pathlib
import re
import struct
import subprocess
import uuid

import pefile

from pdb_file import BuildId

ADDR2LINE = "x86_64-w64-mingw32-addr2line"
SOURCE_LINE = re.compile(r"(.*):(\d+|\?)(?: \(discriminator \d+\))?$")
CHAINED = 4  # flag in UNWIND_INFO


def parse_codeview(record):
    """Returns (build id, name of the PDB file) of a CodeView record, or (None, "") if it has another format."""
    if len(record) < 24 or record[:4] != b"RSDS":
        return None, ""
    guid = uuid.UUID(bytes_le=bytes(record[4:20]))
    age = struct.unpack_from("<I", record, 20)[0]
    return BuildId(guid, age), record[24:].split(b"\0")[0].decode("utf-8", "replace")


class BadBinary(ValueError):
    """The file is no binary of Windows, or is incomplete."""


class Binary:
    """A DLL, a program, or a file with the debug information of one."""

    def __init__(self, path):
        self.path = pathlib.Path(path)
        try:
            self._pe = pefile.PE(str(path), fast_load=True)
        except pefile.PEFormatError as error:
            raise BadBinary(f"{path} is no binary of Windows: {error}") from error
        self.image_base = self._pe.OPTIONAL_HEADER.ImageBase
        self.image_size = self._pe.OPTIONAL_HEADER.SizeOfImage
        self.checksum = self._pe.OPTIONAL_HEADER.CheckSum
        self.build_id, self.pdb_name = self._codeview()
        self._functions = None

    def _codeview(self):
        directory = pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_DEBUG"]
        self._pe.parse_data_directories(directories=[directory])
        for entry in getattr(self._pe, "DIRECTORY_ENTRY_DEBUG", []):
            if entry.struct.Type == pefile.DEBUG_TYPE["IMAGE_DEBUG_TYPE_CODEVIEW"]:
                return parse_codeview(self._pe.get_data(entry.struct.AddressOfRawData, entry.struct.SizeOfData))
        return None, ""

    def follows_call(self, rva):
        """Whether the code before an address is a call: E8 with 4 bytes, or FF /2 with 1, 2, 3, 5 or 6."""
        if not any(section.VirtualAddress + 7 <= rva < section.VirtualAddress + section.Misc_VirtualSize
                   for section in self._pe.sections if section.IMAGE_SCN_MEM_EXECUTE):
            return False
        code = self._pe.get_data(rva - 7, 7)
        return code[-5] == 0xE8 or any(code[-length] == 0xFF and code[1 - length] >> 3 & 7 == 2 for length in (2, 3, 4, 6, 7))

    def unwind_codes(self, rva):
        """Returns (begin of the function, UNWIND_INFO of each part of a chain) for an address, or None for a leaf."""
        if self._functions is None:
            directory = self._pe.OPTIONAL_HEADER.DATA_DIRECTORY[pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_EXCEPTION"]]
            table = self._pe.get_data(directory.VirtualAddress, directory.Size) if directory.Size else b""
            self._functions = sorted(struct.iter_unpack("<III", table[:len(table) // 12 * 12]))
        number = bisect.bisect_right(self._functions, (rva, 1 << 32, 0)) - 1
        if number < 0 or not self._functions[number][0] <= rva < self._functions[number][1]:
            return None
        begin, _, info = self._functions[number]
        parts = []
        while len(parts) < 32:
            head = self._pe.get_data(info, 4)
            slots = self._pe.get_data(info + 4, (head[2] + 1) // 2 * 4 + 12)
            parts.append((head, slots))
            if not head[0] >> 3 & CHAINED:
                break
            info = struct.unpack_from("<III", slots, (head[2] + 1) // 2 * 4)[2]
        return begin, parts


@dataclasses.dataclass(frozen=True)
class Place:
    function: str
    file: str
    line: int

    def __str__(self):
        where = f" ({self.file}:{self.line})" if self.line else ""
        return f"{self.function}{where}"


def places_of(debug_file, addresses):
    """Returns for each address the list of its places: the inlined functions first, the real one last. Empty if unknown."""
    if not addresses:
        return []
    # On its input, because a command line cannot have the addresses of a long text.
    result = subprocess.run([ADDR2LINE, "-e", str(debug_file), "-a", "-f", "-i", "-C"], capture_output=True, text=True,
                            input="".join(f"{each:#x}\n" for each in addresses), check=False)
    if result.returncode != 0:
        raise BadBinary(f"{ADDR2LINE} cannot read {debug_file}: {result.stderr.strip()}")
    found, lines = [], iter(result.stdout.splitlines())
    for line in lines:
        if line.startswith("0x") and "(" not in line and " " not in line:
            found.append([])
            continue
        place = SOURCE_LINE.match(next(lines))
        if line != "??":
            found[-1].append(Place(line, place[1], int(place[2]) if place[2].isdigit() else 0))
    return found
