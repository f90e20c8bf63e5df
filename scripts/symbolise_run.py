"""Turns module offsets into functions and lines, in a minidump, a text log or a Wine backtrace.

In a text, an offset has one of the forms "NAME.dll+0x1234", "NAME (+0x1234)" and, as in Windows' event log, "Faulting
module name: NAME.dll ... Fault offset: 0x1234". Each line with offsets is printed, followed by a line for each place. The
symbols are those found first.

A minidump is recognised by its content. The exception and the stack of the thread that crashed are printed. Only symbols and
binaries of the dump's build are used.
"""

import argparse
import pathlib
import re
import sys

import binaries
import minidump

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
BUILDS = (REPOSITORY / "build" / "package" / "work" / "build", REPOSITORY / "build" / "windows")
# Of limited length, so that the time does not grow with the square of a line's length.
OFFSET = re.compile(r"(?<![\w.-])[.-]*(\w[\w.-]{0,254})\s{0,3}\(?\+\s{0,3}0x([0-9a-fA-F]{1,16})\b")
EVENT_MODULE = re.compile(r"Faulting module name: *([\w.-]+)", re.I)
EVENT_OFFSET = re.compile(r"Fault offset: *0x([0-9a-fA-F]+)", re.I)


class Symbols:
    """The debug files and the binaries of some folders, by the lower-case name of the binary."""

    def __init__(self, symbol_folders, binary_folders):
        self._debug, self._binaries, self._opened = {}, {}, {}
        for file in (file for folder in symbol_folders for file in sorted(folder.glob("**/*.debug"))):
            self._debug.setdefault(file.name.removesuffix(".debug").lower(), []).append(file)
        for file in (file for folder in binary_folders for file in sorted(folder.glob("**/*"))):
            if file.suffix.lower() in (".dll", ".exe"):
                self._binaries.setdefault(file.name.lower(), []).append(file)

    def _open(self, path):
        if path not in self._opened:
            self._opened[path] = binaries.Binary(path)
        return self._opened[path]

    def file_name(self, name):
        """The full name of a binary whose name may lack its suffix, as in Wine's backtraces. None if there are no symbols."""
        return next((each.lower() for each in (name, name + ".dll", name + ".exe") if each.lower() in self._debug), None)

    def binary_of(self, module):
        """The binary of a dump's module, if it is of the same build."""
        opened = (self._open(path) for path in self._binaries.get(module.name.lower(), []))
        return next((binary for binary in opened if module.is_build_of(binary)), None)

    def request(self, file_name, offset):
        """(debug file, address) of an offset in a binary with symbols."""
        debug = self._debug[file_name][0]
        return debug, self._open(debug).image_base + offset

    def request_of_frame(self, frame):
        """The same for a frame, or None without symbols of the module's build. A return address belongs to the call before
        it."""
        binary = self.binary_of(frame.module)
        build_id = frame.module.build_id or (binary and binary.build_id)
        offset = frame.address - frame.module.base - (1 if frame.is_return_address else 0)
        for debug in self._debug.get(frame.module.name.lower(), []):
            opened = self._open(debug)
            if build_id and opened.build_id == build_id:
                return debug, opened.image_base + offset
        return None


class Report:
    """Lines, each with requests for places. Runs the tool that finds the places once for each debug file, because it
    reads the whole file each time."""

    def __init__(self):
        self._lines = []

    def add(self, line, requests=()):
        self._lines.append((line, [request for request in requests if request]))

    def print(self):
        """Returns the number of places found."""
        wanted = {}
        for _, requests in self._lines:
            for debug, address in requests:
                wanted.setdefault(debug, {})[address] = []
        for debug, addresses in wanted.items():
            addresses.update(zip(addresses, binaries.places_of(debug, list(addresses))))
        found = 0
        for line, requests in self._lines:
            print(line)
            for debug, address in requests:
                places = wanted[debug][address]
                found += len(places)
                for number, place in enumerate(places, 1):
                    print(f"      = {place}{'' if number == len(places) else ' (inlined)'}")
        return found


def read_text(text, symbols, report):
    faulting = None
    for line in text.splitlines():
        offsets = [(symbols.file_name(match[1]), int(match[2], 16)) for match in OFFSET.finditer(line)]
        if module := EVENT_MODULE.search(line):
            faulting = symbols.file_name(module[1])
        if offset := EVENT_OFFSET.search(line):
            offsets.append((faulting, int(offset[1], 16)))
        if offsets:
            report.add(line, [symbols.request(name, offset) for name, offset in offsets if name])


def read_dump(dump, symbols, all_threads, report):
    if dump.exception:
        thread, code, address, _ = dump.exception
        module = dump.module_at(address)
        where = f"{module.name}+0x{address - module.base:X}" if module else f"0x{address:X}"
        report.add(f"exception 0x{code:08X} at {where}, thread {thread}")
    for thread, frames in dump.stacks(symbols.binary_of):
        if dump.exception and thread != dump.exception[0] and not all_threads:
            continue
        report.add(f"thread {thread}")
        for number, frame in enumerate(frames):
            if frame.module:
                guess = "  (found in the stack's memory, may be wrong)" if frame.is_guess else ""
                report.add(f"  {number:2} {frame.module.name}+0x{frame.address - frame.module.base:X}{guess}",
                           [symbols.request_of_frame(frame)])
            else:
                report.add(f"  {number:2} 0x{frame.address:X}")


def main():
    parser = argparse.ArgumentParser(prog="scripts/symbolise", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter,
                                     epilog="Exit code: 0 if a place was found, 1 if not, 2 for wrong arguments.")
    parser.add_argument("file", type=pathlib.Path, metavar="DUMP-OR-LOG")
    parser.add_argument("--symbols", type=pathlib.Path, action="append", metavar="FOLDER",
                        help="folder with NAME.dll.debug, as scripts/symbols writes it; also searches the folders in it; can be "
                             "given several times (default: the builds of scripts/package and scripts/build)")
    parser.add_argument("--binaries", type=pathlib.Path, action="append", metavar="FOLDER",
                        help="folder with the DLLs and programs, whose unwind information a minidump needs; also searches the "
                             "folders in it; can be given several times (default: as for --symbols)")
    parser.add_argument("--all-threads", action="store_true", help="print the stacks of all threads of a dump")
    options = parser.parse_args()
    for folder in [*(options.symbols or []), *(options.binaries or [])]:
        if not folder.is_dir():
            sys.exit(f"symbolise: error: there is no folder {folder}")
    symbols = Symbols(options.symbols or [build / "symbols" for build in BUILDS],
                      options.binaries or [build / "bin" for build in BUILDS])
    report = Report()
    try:
        content = options.file.read_bytes()
        if content.startswith(minidump.MAGIC):
            read_dump(minidump.Minidump(options.file), symbols, options.all_threads, report)
        else:
            encoding = "utf-16" if content[:2] in (b"\xff\xfe", b"\xfe\xff") else "utf-8"
            read_text(content.decode(encoding, "replace"), symbols, report)
        found = report.print()
    except (OSError, minidump.BadDump, binaries.BadBinary) as error:
        sys.exit(f"symbolise: error: {error}")
    if not found:
        print("symbolise: no place was found: is this the log of another build, or are the symbols elsewhere?", file=sys.stderr)
    return 0 if found else 1


if __name__ == "__main__":
    sys.exit(main())
