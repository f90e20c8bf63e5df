"""Writes the symbols of the Windows build, and of its FFmpeg, into a folder: for each binary NAME.dll or NAME.exe

  NAME.dll.debug   functions, lines and variables (DWARF), for scripts/symbolise, gdb and addr2line
  NAME.pdb         the names of the public functions, for WinDbg and Visual Studio
  index            the binaries and their build ids

Fails if a file is missing or is of another build than its binary. Equal builds give equal files.
"""

import argparse
import pathlib
import shutil
import sys

import binaries
import pdb_file

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
OWN = ("LibVeltoAudioHandler.dll", "velto-host.exe")
FFMPEG = ("avcodec-59.dll", "avformat-59.dll", "avutil-57.dll", "swresample-4.dll")


class Failure(Exception):
    """A file is missing or of another build."""


FAILURES = (Failure, binaries.BadBinary, pdb_file.BadPdb, OSError)


def checked(binary, path, build_id):
    """Returns the path of a symbol file if it is of the same build as its binary."""
    if not path.is_file():
        raise Failure(f"{path} is missing")
    if build_id(path) != binary.build_id:
        raise Failure(f"{path} is of another build than {binary.path}")
    return path


def collect(build, output):
    output.mkdir(parents=True, exist_ok=True)
    symbols, index = build / "symbols", []
    for name in (*OWN, *FFMPEG):
        path = build / "bin" / name
        if not path.is_file():
            raise Failure(f"{path} is missing: run scripts/build windows")
        binary = binaries.Binary(path)
        if not binary.build_id:
            raise Failure(f"{path} has no build id")
        debug = checked(binary, symbols / f"{name}.debug", lambda file: binaries.Binary(file).build_id)
        pdb = checked(binary, symbols / binary.pdb_name, lambda file: pdb_file.PdbFile(file.read_bytes()).build_id)
        shutil.copyfile(debug, output / debug.name)
        (output / pdb.name).write_bytes(pdb_file.PdbFile(pdb.read_bytes()).reproducible())
        index.append(f"{name} {binary.build_id}\n")
    (output / "index").write_text("".join(index), "utf-8")


def main():
    parser = argparse.ArgumentParser(prog="scripts/symbols", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter,
                                     epilog="Exit code: 0, 1 if a file is missing or wrong, 2 for wrong arguments.")
    parser.add_argument("output", type=pathlib.Path, metavar="OUTPUT_FOLDER")
    parser.add_argument("--build", type=pathlib.Path, default=REPOSITORY / "build" / "windows", metavar="FOLDER",
                        help="the build (default: build/windows)")
    options = parser.parse_args()
    try:
        collect(options.build, options.output)
    except FAILURES as error:
        sys.exit(f"symbols: error: {error}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
