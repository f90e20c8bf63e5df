"""Paths of the build under test."""

import os
import pathlib

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("VELTO_BUILD", REPOSITORY / "build" / "windows"))
BIN = BUILD / "bin"
MODULE = "LibVeltoAudioHandler.dll"
FFMPEG = ("avcodec-59.dll", "avformat-59.dll", "avutil-57.dll", "swresample-4.dll")
SHIPPED = (MODULE, "velto-host.exe", "velto-host-example.exe", "velto-recorder-example.exe", *FFMPEG)
