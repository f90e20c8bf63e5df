"""Turns module offsets into functions and lines, in a minidump, a text log or a Wine backtrace.

    scripts/symbolise DUMP-OR-LOG [--symbols FOLDER] [--binaries FOLDER] [--all-threads]

In a text, an offset has one of the forms "NAME.dll+0x1234", "NAME (+0x1234)" and, as in Windows' event log, "Faulting
module name: NAME.dll ... Fault offset: 0x1234". Each line with offsets is printed, followed by a line for each place.
A minidump is recognised by its content: the exception and the stack of the thread that crashed are printed.

--symbols: folders with NAME.dll.debug, as scripts/symbols writes them. By default, those of build/package and of
build/windows are searched. --binaries: a folder with the DLLs and programs of the same build; they have the unwind
information that a minidump needs. Default: build/windows/bin. Files of another build than the dump's are not used.

Exits with 0 if at least one place was found, else with 1.
"""

import argparse
import pathlib
import re
import sys

import binaries
import minidump

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
DEFAULT_BINARIES = REPOSITORY / "build" / "windows" / "bin"
OFFSET = re.compile(r"\b([\w.-]+?)(\.dll|\.exe)?\s*\(?\+\s*0x([0-9a-fA-F]+)\b")
EVENT_MODULE = re.compile(r"Faulting module name: *([\w.-]+)", re.I)
EVENT_OFFSET = re.compile(r"Fault offset: *0x([0-9a-fA-F]+)", re.I)


def default_symbols():
    found = sorted((REPOSITORY / "build" / "package").glob("**/symbols")) if (REPOSITORY / "build" / "package").is_dir() else []
    return [*found, REPOSITORY / "build" / "windows" / "symbols"]


class Symbols:
    """The debug files of some folders, by the lower-case name of their binary."""

    def __init__(self, folders, binaries_folder):
        self._debug, self._opened = {}, {}
        for folder in reversed(folders):  # the first folder counts
            for file in folder.glob("**/*.debug") if folder.is_dir() else []:
                self._debug[file.name.removesuffix(".debug").lower()] = file
        self._binaries = {file.name.lower(): file for file in binaries_folder.glob("*")
                          if file.suffix.lower() in (".dll", ".exe")} if binaries_folder.is_dir() else {}

    def _open(self, path):
        if path not in self._opened:
            self._opened[path] = binaries.Binary(path)
        return self._opened[path]

    def file_name(self, name, suffix=""):
        """The full name of a binary whose name may lack its suffix, as in Wine's backtraces. None if there are no symbols."""
        candidates = [name + suffix] if suffix else [name, name + ".dll", name + ".exe"]
        return next((each.lower() for each in candidates if each.lower() in self._debug), None)

    def binary_of(self, module):
        """The binary of a dump's module, if it is of the same build."""
        path = self._binaries.get(module.name.lower())
        binary = self._open(path) if path else None
        return binary if binary and module.is_build_of(binary) else None

    def request(self, file_name, offset):
        """(debug file, address) of an offset in a binary with symbols."""
        debug = self._debug[file_name.lower()]
        return debug, self._open(debug).image_base + offset

    def request_of_frame(self, frame):
        """The same for a frame, or None without symbols of the module's build. A return address belongs to the call before
        it."""
        debug, binary = self._debug.get(frame.module.name.lower()), self.binary_of(frame.module)
        build_id = frame.module.build_id or (binary and binary.build_id)
        if not debug or not build_id or self._open(debug).build_id != build_id:
            return None
        return self.request(frame.module.name, frame.address - frame.module.base - (1 if frame.is_return_address else 0))


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
        offsets = [(symbols.file_name(match[1], match[2] or ""), int(match[3], 16)) for match in OFFSET.finditer(line)]
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
    parser = argparse.ArgumentParser(prog="symbolise", description=__doc__.split("\n\n")[0])
    parser.add_argument("file", type=pathlib.Path, metavar="DUMP-OR-LOG")
    parser.add_argument("--symbols", type=pathlib.Path, action="append", metavar="FOLDER")
    parser.add_argument("--binaries", type=pathlib.Path, default=DEFAULT_BINARIES, metavar="FOLDER")
    parser.add_argument("--all-threads", action="store_true", help="print the stacks of all threads of a dump")
    options = parser.parse_args()
    for folder in [*(options.symbols or []), options.binaries]:
        if folder != DEFAULT_BINARIES and not folder.is_dir():
            sys.exit(f"symbolise: error: there is no folder {folder}")
    symbols = Symbols(options.symbols or default_symbols(), options.binaries)
    report = Report()
    try:
        content = options.file.read_bytes()
        if content.startswith(minidump.MAGIC):
            read_dump(minidump.Minidump(options.file), symbols, options.all_threads, report)
        else:
            encoding = "utf-16" if content[:2] in (b"\xff\xfe", b"\xfe\xff") else "utf-8"
            read_text(content.decode(encoding, "replace"), symbols, report)
    except (OSError, minidump.BadDump) as error:
        sys.exit(f"symbolise: error: {error}")
    found = report.print()
    if not found:
        print("symbolise: no place was found: is this the log of another build, or are the symbols elsewhere?", file=sys.stderr)
    return 0 if found else 1


if __name__ == "__main__":
    sys.exit(main())
