"""Collects the symbols of the Windows build. Called by scripts/symbols, whose --help describes the files."""

import argparse
import pathlib
import shutil
import sys

import binaries

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
OWN = ("LibVeltoAudioHandler.dll", "velto-host.exe")
FFMPEG = ("avcodec-59.dll", "avformat-59.dll", "avutil-57.dll", "swresample-4.dll")


class Failure(Exception):
    pass


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
        pdb = checked(binary, symbols / binary.pdb_name, binaries.pdb_build_id)
        shutil.copyfile(debug, output / debug.name)
        (output / pdb.name).write_bytes(binaries.without_time(pdb.read_bytes()))
        index.append(f"{name} {binary.build_id}\n")
    (output / "index").write_text("".join(index), "utf-8")


def main():
    parser = argparse.ArgumentParser(prog="symbols", description="Writes the symbols of the Windows build into a folder: "
                                     "DWARF (NAME.debug), PDB files and an index of build ids.")
    parser.add_argument("output", type=pathlib.Path, metavar="OUTPUT_FOLDER")
    parser.add_argument("--build", type=pathlib.Path, default=REPOSITORY / "build" / "windows", metavar="FOLDER")
    options = parser.parse_args()
    try:
        collect(options.build, options.output)
    except (Failure, OSError) as error:
        sys.exit(f"symbols: error: {error}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
