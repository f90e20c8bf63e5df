"""The archives under test, and the tools that the tests run on them."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import zipfile

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("VELTO_BUILD", REPOSITORY / "build" / "windows"))
PACKAGES = pathlib.Path(os.environ.get("VELTO_PACKAGES", BUILD / "package"))
FFMPEG = pathlib.Path(os.environ.get("VELTO_FFMPEG_ROOT", BUILD))
GCC, GXX = "x86_64-w64-mingw32-gcc-posix", "x86_64-w64-mingw32-g++-posix"

sys.path.insert(0, str(REPOSITORY / "scripts"))

import wine_program


def archive(kind):
    """The path of the archive velto-audio-handler-VERSION-<kind>."""
    found = list(PACKAGES.glob(f"velto-audio-handler-*-{kind}"))
    if len(found) != 1:
        raise AssertionError(f"{PACKAGES} has {len(found)} archives of the kind {kind}")
    return found[0]


def is_unchecked():
    """Whether the package was made without examining its module."""
    return "-unchecked-" in archive("windows-x64.zip").name


def is_for_tests():
    """Whether make_packages.py made the package."""
    return "-test-" in archive("windows-x64.zip").name


def run(*command, expect=0, **options):
    """Runs a command and returns its output, by default of both streams. Fails if its exit code is another."""
    streams = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT} | options
    result = subprocess.run([str(part) for part in command], text=True, errors="replace", timeout=120, **streams)
    if result.returncode != expect:
        raise AssertionError(f"{' '.join(map(str, command))} ended with {result.returncode}:\n{result.stdout[-3000:]}")
    return result.stdout


def run_windows(program, *arguments, expect=0):
    """Runs a program under Wine, in the prefix of the build's tests and without a sound driver."""
    result = wine_program.run(BUILD / "wine", program, *arguments, timeout_s=120,
                              VELTO_LOG_FILE=wine_program.to_windows(program.parent / "module.log"))
    if result.returncode != expect:
        raise AssertionError(f"{program.name} {' '.join(arguments)} ended with {result.returncode}:\n{result.stdout[-3000:]}")
    return result.stdout


class Unpacked(unittest.TestCase):
    """A test with the package unpacked in a folder that has a space in its name: self.package."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="velto package ")
        cls.addClassCleanup(folder.cleanup)
        cls.root = pathlib.Path(folder.name)
        cls.package = cls.root / "un packed"
        with zipfile.ZipFile(archive("windows-x64.zip")) as packed:
            packed.extractall(cls.package)
