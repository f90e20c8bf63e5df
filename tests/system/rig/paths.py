"""Where things are: the checkout, the Windows build, the folders that a run may write to."""

import os
import pathlib

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
BUILD = pathlib.Path(os.environ.get("VELTO_BUILD_ROOT", REPOSITORY / "build"))
WINDOWS_BIN = pathlib.Path(os.environ.get("VELTO_WINDOWS_BIN", BUILD / "windows" / "bin"))
TEST_BIN = WINDOWS_BIN.parent / "test-bin"
CACHE = BUILD / "rig"
RESULTS = BUILD / "system"

HOST = WINDOWS_BIN / "velto-host.exe"
TEST_HOST = TEST_BIN / "velto-test-host.exe"
EXAMPLE_HOST = WINDOWS_BIN / "velto-host-example.exe"
EXAMPLE_RECORDER = WINDOWS_BIN / "velto-recorder-example.exe"
MODULE = WINDOWS_BIN / "LibVeltoAudioHandler.dll"


def to_windows(path):
    """The name under which a Windows program finds a file of this machine: drive Z: is the root."""
    return "Z:" + str(pathlib.Path(path).resolve()).replace("/", "\\")
