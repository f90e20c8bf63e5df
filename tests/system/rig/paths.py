"""Paths of the repository, of the Windows build, and of the folders that a run writes to."""

import os
import pathlib

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
BUILD = pathlib.Path(os.environ.get("VELTO_BUILD_ROOT", REPOSITORY / "build"))
WINDOWS_BIN = pathlib.Path(os.environ.get("VELTO_WINDOWS_BIN", BUILD / "windows" / "bin"))
TEST_BIN = WINDOWS_BIN.parent / "test-bin"
CACHE = BUILD / "rig"
RESULTS = BUILD / "system"

HOST = WINDOWS_BIN / "velto-host.exe"
BARE_STREAMS = TEST_BIN / "velto-bare-streams.exe"
EXAMPLE_HOST = WINDOWS_BIN / "velto-host-example.exe"
EXAMPLE_RECORDER = WINDOWS_BIN / "velto-recorder-example.exe"
MODULE = WINDOWS_BIN / "LibVeltoAudioHandler.dll"


def to_windows(path):
    """The path of a file for a Windows program under Wine, where drive Z: is the root folder."""
    return "Z:" + str(pathlib.Path(path).resolve()).replace("/", "\\")
