"""Runs Windows programs under Wine, in a prefix that other programs can use at the same time."""

import os
import subprocess
import tempfile

NOT_NEEDED = "mscoree,mshtml,winemenubuilder.exe"
SOUND_DRIVERS = "winepulse.drv,winealsa.drv,wineoss.drv"


def to_windows(path):
    """The path of a file for a Windows program under Wine."""
    return "Z:" + str(path).replace("/", "\\")


def run(prefix, program, *arguments, has_sound_driver=False, timeout_s=240, cwd="/", **variables):
    """Runs a program without a display and returns its CompletedProcess, with the output as text. variables: of its environment.

    The output goes into files: Wine's background processes inherit it, and would keep a pipe open after the program's end.
    """
    overrides = NOT_NEEDED if has_sound_driver else f"{NOT_NEEDED},{SOUND_DRIVERS}"
    environment = {**os.environ, "WINEPREFIX": str(prefix), "WINEDEBUG": "-all", "DISPLAY": "",
                   "WINEDLLOVERRIDES": f"{overrides}=", **variables}
    command = ["wine", str(program), *(str(argument) for argument in arguments)]
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=out, stderr=err, timeout=timeout_s, cwd=cwd,
                                env=environment, check=False)
        for file in (out, err):
            file.seek(0)
        result.stdout, result.stderr = (file.read().decode("utf-8", "replace").replace("\r\n", "\n") for file in (out, err))
    return result
