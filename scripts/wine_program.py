"""Runs Windows programs under Wine, in a prefix that other programs can use at the same time."""

import os
import subprocess
import tempfile

NOT_NEEDED = "mscoree,mshtml,winemenubuilder.exe"
SOUND_DRIVERS = "winepulse.drv,winealsa.drv,wineoss.drv"


def to_windows(path):
    """The path of a file for a Windows program under Wine."""
    return "Z:" + str(path).replace("/", "\\")


def environment_of(prefix, has_sound_driver):
    """The environment variables of this process, with those for Wine."""
    overrides = NOT_NEEDED if has_sound_driver else f"{NOT_NEEDED},{SOUND_DRIVERS}"
    return {**os.environ, "WINEPREFIX": str(prefix), "WINEDEBUG": "-all", "DISPLAY": "", "WINEDLLOVERRIDES": f"{overrides}="}


def prepare(prefix):
    """Creates the prefix, if it does not exist. Programs that create it at the same time disturb each other."""
    if not (prefix / "system.reg").exists():
        subprocess.run(["wineboot", "-i"], env=environment_of(prefix, has_sound_driver=True), check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def run(prefix, program, *arguments, has_sound_driver=False, timeout_s=240, cwd="/", **variables):
    """Runs a program without a display and returns its CompletedProcess, with the output as text.

    variables: environment variables that replace those of this process; None removes one.

    The output goes into files: Wine's background processes inherit it, and would keep a pipe open after the program's end.
    """
    environment = {name: value for name, value in {**environment_of(prefix, has_sound_driver), **variables}.items()
                   if value is not None}
    command = ["wine", str(program), *(str(argument) for argument in arguments)]
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=out, stderr=err, timeout=timeout_s, cwd=cwd,
                                env=environment, check=False)
        for file in (out, err):
            file.seek(0)
        result.stdout, result.stderr = (file.read().decode("utf-8", "replace").replace("\r\n", "\n") for file in (out, err))
    return result
