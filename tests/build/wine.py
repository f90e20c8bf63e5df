"""Runs built programs under Wine, without a display and without a sound server."""

import os
import subprocess

import places

HOST = places.BIN / "velto-host.exe"


def to_windows(path):
    """The path of a file for a Windows program under Wine."""
    return "Z:" + str(path).replace("/", "\\")


def run(program, *arguments, timeout=240, **variables):
    environment = dict(os.environ, WINEPREFIX=str(places.BUILD / "wine"), WINEDEBUG="-all", DISPLAY="",
                       WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe=", PULSE_SERVER="unix:/nonexistent")
    environment.pop("VELTO_LOG_FILE", None)
    environment.update(variables)
    return subprocess.run(["wine", str(program), *(str(argument) for argument in arguments)], cwd="/", env=environment,
                          capture_output=True, timeout=timeout, encoding="utf-8", errors="replace", check=False)


def run_host(*arguments, **options):
    return run(HOST, *arguments, **options)
